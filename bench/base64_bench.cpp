#include <benchmark/benchmark.h>

#include <random>
#include <string>

#include "vorncore/base/base64.h"
#ifdef HAVE_OPENSSL
#include <openssl/evp.h>
#endif
#ifdef HAVE_GLIB
#include <glib.h>
#endif

namespace {

std::string random_bytes(const benchmark::State &state) {
    std::mt19937 random(1);
    std::string bytes(static_cast<size_t>(state.range(0)), '\0');
    for (char &c : bytes) c = static_cast<char>(random());
    return bytes;
}

std::string encoded_bytes(const benchmark::State &state) {
    const std::string bytes = random_bytes(state);
    std::string text(bytes.size() / 3 * 4 + 5, '\0');
    text.resize(static_cast<size_t>(xp_base64_encode_data(bytes.data(), static_cast<int>(bytes.size()), text.data())));
    return text;
}

void throughput(benchmark::State &state) {
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}

void vorncore_encode(benchmark::State &state) {
    const std::string bytes = random_bytes(state);
    std::string text(bytes.size() / 3 * 4 + 5, '\0');
    for (auto _ : state) {
        xp_base64_encode_data(bytes.data(), static_cast<int>(bytes.size()), text.data());
        benchmark::ClobberMemory();
    }
    throughput(state);
}
void vorncore_decode(benchmark::State &state) {
    const std::string text = encoded_bytes(state);
    std::string bytes(text.size(), '\0');
    for (auto _ : state) {
        xp_base64_decode_data(text.c_str(), static_cast<int>(text.size()), bytes.data());
        benchmark::ClobberMemory();
    }
    throughput(state);
}

#define SIZES ->Arg(64)->Arg(4096)->Arg(1 << 20)
BENCHMARK(vorncore_encode)->Name("encode/vorncore") SIZES;
BENCHMARK(vorncore_decode)->Name("decode/vorncore") SIZES;

#ifdef HAVE_OPENSSL
void openssl_encode(benchmark::State &state) {
    const std::string bytes = random_bytes(state);
    std::string text(bytes.size() / 3 * 4 + 5, '\0');
    for (auto _ : state) {
        EVP_EncodeBlock(reinterpret_cast<unsigned char *>(text.data()),
                        reinterpret_cast<const unsigned char *>(bytes.data()), static_cast<int>(bytes.size()));
        benchmark::ClobberMemory();
    }
    throughput(state);
}
void openssl_decode(benchmark::State &state) {
    const std::string text = encoded_bytes(state);
    std::string bytes(text.size(), '\0');
    for (auto _ : state) {
        EVP_DecodeBlock(reinterpret_cast<unsigned char *>(bytes.data()),
                        reinterpret_cast<const unsigned char *>(text.data()), static_cast<int>(text.size()));
        benchmark::ClobberMemory();
    }
    throughput(state);
}
BENCHMARK(openssl_encode)->Name("encode/EVP_EncodeBlock") SIZES;
BENCHMARK(openssl_decode)->Name("decode/EVP_DecodeBlock") SIZES;
#endif

#ifdef HAVE_GLIB
void glib_encode(benchmark::State &state) {
    const std::string bytes = random_bytes(state);
    for (auto _ : state) g_free(g_base64_encode(reinterpret_cast<const unsigned char *>(bytes.data()), bytes.size()));
    throughput(state);
}
void glib_decode(benchmark::State &state) {
    const std::string text = encoded_bytes(state);
    for (auto _ : state) {
        gsize length;
        g_free(g_base64_decode(text.c_str(), &length));
    }
    throughput(state);
}
BENCHMARK(glib_encode)->Name("encode/g_base64_encode") SIZES;
BENCHMARK(glib_decode)->Name("decode/g_base64_decode") SIZES;
#endif

} // namespace
