#include <benchmark/benchmark.h>

#include <string>

#include "vorncore/base/md5.h"
#ifdef HAVE_OPENSSL
#define OPENSSL_SUPPRESS_DEPRECATED
#include <openssl/evp.h>
#include <openssl/md5.h>
#endif
#ifdef HAVE_GLIB
#include <glib.h>
#endif

namespace {

template <class Digest>
void digest(benchmark::State &state, Digest run) {
    const std::string bytes(static_cast<size_t>(state.range(0)), 'x');
    for (auto _ : state) run(bytes);
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void vorncore_md5(benchmark::State &state) {
    digest(state, [](const std::string &bytes) {
        xp_md5 md5;
        xp_md5_init(&md5);
        xp_md5_update(&md5, bytes.data(), static_cast<int>(bytes.size()));
        benchmark::DoNotOptimize(*xp_md5_close(&md5));
    });
}

#define SIZES ->Arg(64)->Arg(4096)->Arg(1 << 20)
BENCHMARK(vorncore_md5)->Name("digest/vorncore") SIZES;

#ifdef HAVE_OPENSSL
void openssl_md5(benchmark::State &state) {
    digest(state, [](const std::string &bytes) {
        MD5_CTX md5;
        unsigned char result[16];
        MD5_Init(&md5);
        MD5_Update(&md5, bytes.data(), bytes.size());
        MD5_Final(result, &md5);
        benchmark::DoNotOptimize(result);
    });
}
void openssl_evp_md5(benchmark::State &state) {
    EVP_MD_CTX *md5 = EVP_MD_CTX_new();
    digest(state, [=](const std::string &bytes) {
        unsigned char result[16];
        EVP_DigestInit_ex(md5, EVP_md5(), nullptr);
        EVP_DigestUpdate(md5, bytes.data(), bytes.size());
        EVP_DigestFinal_ex(md5, result, nullptr);
        benchmark::DoNotOptimize(result);
    });
    EVP_MD_CTX_free(md5);
}
BENCHMARK(openssl_md5)->Name("digest/OpenSSL") SIZES;
BENCHMARK(openssl_evp_md5)->Name("digest/OpenSSL EVP") SIZES;
#endif
#ifdef HAVE_GLIB
void glib_md5(benchmark::State &state) {
    GChecksum *md5 = g_checksum_new(G_CHECKSUM_MD5);
    digest(state, [=](const std::string &bytes) {
        unsigned char result[16];
        gsize length = sizeof result;
        g_checksum_reset(md5);
        g_checksum_update(md5, reinterpret_cast<const guchar *>(bytes.data()), static_cast<gssize>(bytes.size()));
        g_checksum_get_digest(md5, result, &length);
        benchmark::DoNotOptimize(result);
    });
    g_checksum_free(md5);
}
BENCHMARK(glib_md5)->Name("digest/GChecksum") SIZES;
#endif

} // namespace
