#include <benchmark/benchmark.h>

#include <string.h>

#include <random>
#include <string>

#include "vorncore/base/strutil.h"
#ifdef HAVE_APR
#include <apr_escape.h>
#include <apr_pools.h>
#include <apr_strings.h>
#endif
#ifdef HAVE_GLIB
#include <glib.h>
#endif

namespace {

// Text of range(0) bytes, as a form field holds it: words and blanks, and range(1) in a hundred bytes to be escaped.
std::string form_text(const benchmark::State &state) {
    std::mt19937 random(1);
    std::string text;
    while (static_cast<int64_t>(text.size()) < state.range(0)) {
        const auto draw = random() % 100;
        if (draw < static_cast<unsigned>(state.range(1)))
            text += static_cast<char>(0x80 + random() % 0x40);
        else
            text += draw % 7 == 6 ? ' ' : static_cast<char>('a' + random() % 26);
    }
    return text;
}

std::string encoded_text(const benchmark::State &state) {
    const std::string text = form_text(state);
    std::string encoded(3 * text.size() + 1, '\0');
    return xp_url_encode(text.c_str(), encoded.data());
}

void label(benchmark::State &state) {
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}

void vorncore_encode(benchmark::State &state) {
    const std::string text = form_text(state);
    std::string encoded(3 * text.size() + 1, '\0');
    for (auto _ : state) benchmark::DoNotOptimize(xp_url_encode(text.c_str(), encoded.data()));
    label(state);
}
// Decoding is in place: the copy of the input counts.
void vorncore_decode(benchmark::State &state) {
    const std::string encoded = encoded_text(state);
    std::string text = encoded;
    for (auto _ : state) {
        memcpy(text.data(), encoded.c_str(), encoded.size() + 1);
        benchmark::DoNotOptimize(xp_url_decode(text.data()));
    }
    label(state);
}

const char *const line = "alpha, beta,gamma ,delta, epsilon,zeta,eta ,theta, iota,kappa";
void vorncore_split(benchmark::State &state) {
    char copy[80], *pieces[16];
    for (auto _ : state) {
        strcpy(copy, line);
        benchmark::DoNotOptimize(xp_tokenize(pieces, 16, copy, ",", XP_TOKENIZE_TRIM));
    }
}
void strtok_split(benchmark::State &state) {
    char copy[80], *pieces[16], *rest;
    for (auto _ : state) {
        strcpy(copy, line);
        int count = 0;
        for (char *piece = strtok_r(copy, ",", &rest); piece; piece = strtok_r(nullptr, ",", &rest))
            pieces[count++] = xp_trim(piece);
        benchmark::DoNotOptimize(pieces);
    }
}

#define TEXTS ->ArgsProduct({{40, 4096}, {0, 5, 50}})
BENCHMARK(vorncore_encode)->Name("url_encode/vorncore") TEXTS;
BENCHMARK(vorncore_decode)->Name("url_decode/vorncore") TEXTS;
BENCHMARK(vorncore_split)->Name("split_10/vorncore");
BENCHMARK(strtok_split)->Name("split_10/strtok_r");

#ifdef HAVE_APR
class pool {
  public:
    pool() {
        apr_initialize();
        apr_pool_create(&pool_, nullptr);
    }
    ~pool() {
        apr_pool_destroy(pool_);
        apr_terminate();
    }
    apr_pool_t *emptied() {
        apr_pool_clear(pool_);
        return pool_;
    }

  private:
    apr_pool_t *pool_ = nullptr;
};

void apr_encode(benchmark::State &state) {
    const std::string text = form_text(state);
    pool memory;
    for (auto _ : state) benchmark::DoNotOptimize(apr_pescape_urlencoded(memory.emptied(), text.c_str()));
    label(state);
}
void apr_decode(benchmark::State &state) {
    const std::string encoded = encoded_text(state);
    pool memory;
    for (auto _ : state)
        benchmark::DoNotOptimize(apr_punescape_url(memory.emptied(), encoded.c_str(), nullptr, nullptr, 1));
    label(state);
}
BENCHMARK(apr_encode)->Name("url_encode/apr") TEXTS;
BENCHMARK(apr_decode)->Name("url_decode/apr") TEXTS;
#endif

#ifdef HAVE_GLIB
void glib_encode(benchmark::State &state) {
    const std::string text = form_text(state);
    for (auto _ : state) g_free(g_uri_escape_string(text.c_str(), nullptr, FALSE));
    label(state);
}
void glib_decode(benchmark::State &state) {
    const std::string encoded = encoded_text(state);
    for (auto _ : state) g_free(g_uri_unescape_string(encoded.c_str(), nullptr));
    label(state);
}
BENCHMARK(glib_encode)->Name("url_encode/g_uri_escape_string") TEXTS;
BENCHMARK(glib_decode)->Name("url_decode/g_uri_unescape_string") TEXTS;
#endif

} // namespace
