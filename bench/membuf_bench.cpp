#include <benchmark/benchmark.h>

#include <string>
#include <string_view>

#include "vorncore/base/membuf.h"
#ifdef HAVE_GLIB
#include <glib.h>
#endif

namespace {

constexpr int64_t total = 1 << 16; // bytes that each run collects, from an empty buffer

// A text of range(0) bytes that lies elsewhere within its page at each run. Copying takes twice as long when source and
// destination are a few bytes apart modulo 4096; from one place, chance would decide which contender that hits.
class wandering_piece {
  public:
    explicit wandering_piece(const benchmark::State &state)
        : size_(static_cast<size_t>(state.range(0))), area_(8192 + 1, 'x') {}
    std::string_view next() {
        area_[at_ + size_] = 'x';
        at_ = (at_ + 256) % 4096;
        area_[at_ + size_] = '\0';
        return {area_.data() + at_, size_};
    }

  private:
    size_t size_, at_ = 0;
    std::string area_;
};

// Appends pieces of range(0) bytes; a piece of one byte goes through the call for single bytes.
void vorncore_append(benchmark::State &state) {
    wandering_piece source(state);
    for (auto _ : state) {
        const auto piece = source.next();
        xp_membuf mb;
        xp_init_membuf(&mb, 64);
        if (piece.size() == 1)
            for (int64_t i = 0; i < total; i++) xpmb_add_char(&mb, piece[0]);
        else
            for (int64_t i = 0; i < total; i += state.range(0)) xpmb_add_data(&mb, piece.data(), piece.size());
        benchmark::DoNotOptimize(xpmb_tostr(&mb));
        xp_close_membuf(&mb);
    }
}
void vorncore_append_text(benchmark::State &state) {
    wandering_piece source(state);
    for (auto _ : state) {
        const auto piece = source.next();
        xp_membuf mb;
        xp_init_membuf(&mb, 64);
        for (int64_t i = 0; i < total; i += state.range(0)) xpmb_add_str(&mb, piece.data());
        benchmark::DoNotOptimize(xpmb_tostr(&mb));
        xp_close_membuf(&mb);
    }
}
void string_append(benchmark::State &state) {
    wandering_piece source(state);
    for (auto _ : state) {
        const auto piece = source.next();
        std::string text;
        if (piece.size() == 1)
            for (int64_t i = 0; i < total; i++) text.push_back(piece[0]);
        else
            for (int64_t i = 0; i < total; i += state.range(0)) text.append(piece.data(), piece.size());
        benchmark::DoNotOptimize(text.c_str());
    }
}
void string_append_text(benchmark::State &state) {
    wandering_piece source(state);
    for (auto _ : state) {
        const auto piece = source.next();
        std::string text;
        for (int64_t i = 0; i < total; i += state.range(0)) text.append(piece.data());
        benchmark::DoNotOptimize(text.c_str());
    }
}

#define PIECES ->Arg(1)->Arg(16)->Arg(4096)
#define TEXTS  ->Arg(16)->Arg(4096)
BENCHMARK(vorncore_append)->Name("append/vorncore") PIECES;
BENCHMARK(string_append)->Name("append/std::string") PIECES;
BENCHMARK(vorncore_append_text)->Name("append_text/vorncore") TEXTS;
BENCHMARK(string_append_text)->Name("append_text/std::string") TEXTS;

#ifdef HAVE_GLIB
void glib_append(benchmark::State &state) {
    wandering_piece source(state);
    for (auto _ : state) {
        const auto piece = source.next();
        GString *text = g_string_new(nullptr);
        if (piece.size() == 1)
            for (int64_t i = 0; i < total; i++) g_string_append_c(text, piece[0]);
        else
            for (int64_t i = 0; i < total; i += state.range(0))
                g_string_append_len(text, piece.data(), static_cast<gssize>(piece.size()));
        benchmark::DoNotOptimize(text->str);
        g_string_free(text, TRUE);
    }
}
void glib_append_text(benchmark::State &state) {
    wandering_piece source(state);
    for (auto _ : state) {
        const auto piece = source.next();
        GString *text = g_string_new(nullptr);
        for (int64_t i = 0; i < total; i += state.range(0)) g_string_append(text, piece.data());
        benchmark::DoNotOptimize(text->str);
        g_string_free(text, TRUE);
    }
}
BENCHMARK(glib_append)->Name("append/GString") PIECES;
BENCHMARK(glib_append_text)->Name("append_text/GString") TEXTS;
#endif

} // namespace
