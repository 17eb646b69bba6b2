#include <benchmark/benchmark.h>

#include <stdio.h>
#include <stdlib.h>

#include "vorncore/base/format.h"
#ifdef HAVE_FMT
#include <fmt/format.h>
#endif
#ifdef HAVE_GLIB
#include <glib.h>
#endif

namespace {

// What a server program prints: the arguments change from call to call.
struct request {
    int id, status, bytes;
    long long time;
    const char *host, *method, *path, *agent;
};
const request requests[] = {
    {7, 200, 512, 1335434949123, "10.0.0.1", "GET", "/", "curl/7.22"},
    {12345, 404, 0, 1335434949999, "db-west-3.example.net", "POST", "/api/v1/items/8812?full=1", "quillet/2"},
    {-1, 302, 1048576, -5, "localhost", "GET", "/static/css/site-0f3a9.css", "Mozilla/5.0 (X11; Linux x86_64)"},
    {987654, 500, 73, 42, "192.168.100.200", "DELETE", "/a/b", "-"},
};

// The same four texts under both directive languages, with their arguments.
#define INTEGERS "%d %d %u %lld %d %x", "{} {} {} {} {} {:x}"
#define LAID_OUT "[%6d] %08x %-5d|%+d %.4d %3u%%", "[{:6}] {:08x} {:<5}|{:+} {:04} {:3}%"
#define STRINGS  "%s %s %s%s %-16s|", "{} {} {}{} {:<16}|"
#define LOG_LINE                                                                                                       \
    "connection %d from %s closed after the peer had not answered within the time limit; %d bytes of the response "    \
    "were lost, the next attempt is made in five seconds\n",                                                           \
        "connection {} from {} closed after the peer had not answered within the time limit; {} bytes of the "         \
        "response were lost, the next attempt is made in five seconds\n"
#define INTEGERS_OF(r) r.id, r.status, static_cast<unsigned>(r.bytes), r.time, r.bytes, static_cast<unsigned>(r.id)
#define LAID_OUT_OF(r) r.id, static_cast<unsigned>(r.bytes), r.status, r.id, r.status, static_cast<unsigned>(r.status)
#define STRINGS_OF(r)  r.method, r.path, r.host, r.path, r.agent
#define LOG_LINE_OF(r) r.id, r.host, r.bytes

template <class Format>
void run(benchmark::State &state, Format format) {
    size_t i = 0;
    for (auto _ : state) benchmark::DoNotOptimize(format(requests[i++ % 4]));
}

int32_t refuse(xp_fmt_target *) { return 0; }

#define PRINTF_STYLE(printf_format, braces) printf_format
#define BRACES(printf_format, braces)       braces
#define EXPAND(macro, ...)                  macro(__VA_ARGS__)

#define WORKLOAD(name, text, arguments)                                                                                \
    void vorncore_##name(benchmark::State &state) {                                                                    \
        char area[512];                                                                                                \
        run(state, [&](const request &r) {                                                                             \
            xp_fmt_target target = {area, area + sizeof(area), nullptr, refuse};                                       \
            return xp_format(&target, EXPAND(PRINTF_STYLE, text), arguments(r));                                       \
        });                                                                                                            \
    }                                                                                                                  \
    void snprintf_##name(benchmark::State &state) {                                                                    \
        char area[512];                                                                                                \
        run(state,                                                                                                     \
            [&](const request &r) { return snprintf(area, sizeof(area), EXPAND(PRINTF_STYLE, text), arguments(r)); }); \
    }                                                                                                                  \
    void vorncore_new_##name(benchmark::State &state) {                                                                \
        run(state, [](const request &r) {                                                                              \
            char *string = xp_sprintf(EXPAND(PRINTF_STYLE, text), arguments(r));                                       \
            benchmark::DoNotOptimize(*string);                                                                         \
            free(string);                                                                                              \
            return 0;                                                                                                  \
        });                                                                                                            \
    }                                                                                                                  \
    void asprintf_new_##name(benchmark::State &state) {                                                                \
        run(state, [](const request &r) {                                                                              \
            char *string;                                                                                              \
            const int count = asprintf(&string, EXPAND(PRINTF_STYLE, text), arguments(r));                             \
            free(string);                                                                                              \
            return count;                                                                                              \
        });                                                                                                            \
    }                                                                                                                  \
    BENCHMARK(vorncore_##name)->Name(#name "/vorncore");                                                               \
    BENCHMARK(snprintf_##name)->Name(#name "/snprintf");                                                               \
    BENCHMARK(vorncore_new_##name)->Name(#name "_new/vorncore");                                                       \
    BENCHMARK(asprintf_new_##name)->Name(#name "_new/asprintf");

WORKLOAD(integers, INTEGERS, INTEGERS_OF)
WORKLOAD(laid_out, LAID_OUT, LAID_OUT_OF)
WORKLOAD(strings, STRINGS, STRINGS_OF)
WORKLOAD(log_line, LOG_LINE, LOG_LINE_OF)

#ifdef HAVE_FMT
// The format is not checked at compile time: a library call's never is.
#define FMT_WORKLOAD(name, text, arguments)                                                                            \
    void fmt_to_##name(benchmark::State &state) {                                                                      \
        char area[512];                                                                                                \
        run(state, [&](const request &r) {                                                                             \
            return fmt::format_to(area, fmt::runtime(EXPAND(BRACES, text)), arguments(r)) - area;                      \
        });                                                                                                            \
    }                                                                                                                  \
    void fmt_to_n_##name(benchmark::State &state) {                                                                    \
        char area[512];                                                                                                \
        run(state, [&](const request &r) {                                                                             \
            return fmt::format_to_n(area, sizeof(area), fmt::runtime(EXPAND(BRACES, text)), arguments(r)).size;        \
        });                                                                                                            \
    }                                                                                                                  \
    BENCHMARK(fmt_to_##name)->Name(#name "/fmt::format_to");                                                           \
    BENCHMARK(fmt_to_n_##name)->Name(#name "/fmt::format_to_n");
FMT_WORKLOAD(integers, INTEGERS, INTEGERS_OF)
FMT_WORKLOAD(laid_out, LAID_OUT, LAID_OUT_OF)
FMT_WORKLOAD(strings, STRINGS, STRINGS_OF)
FMT_WORKLOAD(log_line, LOG_LINE, LOG_LINE_OF)
#endif

#ifdef HAVE_GLIB
#define GLIB_WORKLOAD(name, text, arguments)                                                                           \
    void g_string_##name(benchmark::State &state) {                                                                    \
        GString *string = g_string_sized_new(512);                                                                     \
        run(state, [&](const request &r) {                                                                             \
            g_string_truncate(string, 0);                                                                              \
            g_string_append_printf(string, EXPAND(PRINTF_STYLE, text), arguments(r));                                  \
            return string->len;                                                                                        \
        });                                                                                                            \
        g_string_free(string, TRUE);                                                                                   \
    }                                                                                                                  \
    BENCHMARK(g_string_##name)->Name(#name "/g_string_append_printf");
GLIB_WORKLOAD(integers, INTEGERS, INTEGERS_OF)
GLIB_WORKLOAD(laid_out, LAID_OUT, LAID_OUT_OF)
GLIB_WORKLOAD(strings, STRINGS, STRINGS_OF)
GLIB_WORKLOAD(log_line, LOG_LINE, LOG_LINE_OF)
#endif

} // namespace
