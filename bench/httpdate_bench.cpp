#include <benchmark/benchmark.h>

#include <string.h>
#include <time.h>

#include "vorncore/app/httpdate.h"
#include "vorncore/app/httpurl.h"
#ifdef HAVE_CURL
#include <curl/curl.h>
#endif

namespace {

// The three forms, each with the format that the C library reads it with.
const char *const dates[][2] = {{"Sun, 06 Nov 1994 08:49:37 GMT", "%a, %d %b %Y %H:%M:%S GMT"},
                                {"Sunday, 06-Nov-94 08:49:37 GMT", "%A, %d-%b-%y %H:%M:%S GMT"},
                                {"Sun Nov 06 08:49:37 1994", "%a %b %d %H:%M:%S %Y"}};
const char *const forms[] = {"rfc1123", "rfc850", "asctime"};

const char *const *date_of(benchmark::State &state) {
    state.SetLabel(forms[state.range(0)]);
    return dates[state.range(0)];
}

void vorncore_parse(benchmark::State &state) {
    const char *text = date_of(state)[0];
    for (auto _ : state) {
        benchmark::DoNotOptimize(text);
        benchmark::DoNotOptimize(xp_parse_http_date(text));
    }
}
void strptime_parse(benchmark::State &state) {
    const char *const *date = date_of(state);
    for (auto _ : state) {
        tm parts = {};
        strptime(date[0], date[1], &parts);
        benchmark::DoNotOptimize(timegm(&parts));
    }
}

void vorncore_make(benchmark::State &state) {
    char text[30];
    int64_t seconds = 784111777;
    for (auto _ : state) benchmark::DoNotOptimize(xp_make_http_date(seconds++, text));
}
void strftime_make(benchmark::State &state) {
    char text[30];
    time_t seconds = 784111777;
    for (auto _ : state) {
        tm parts;
        gmtime_r(&seconds, &parts);
        seconds++;
        benchmark::DoNotOptimize(strftime(text, sizeof text, dates[0][1], &parts));
    }
}

const char url_text[] = "http://www.example.com:8080/catalogue/items/list?category=17&page=3";

void vorncore_url(benchmark::State &state) {
    char text[sizeof url_text];
    xp_http_url url;
    for (auto _ : state) {
        memcpy(text, url_text, sizeof text); // the parser cuts its text
        benchmark::DoNotOptimize(xp_parse_http_url(text, &url));
        benchmark::DoNotOptimize(url);
    }
}

BENCHMARK(vorncore_parse)->Name("parse_date/vorncore")->DenseRange(0, 2);
BENCHMARK(strptime_parse)->Name("parse_date/strptime+timegm")->DenseRange(0, 2);
BENCHMARK(vorncore_make)->Name("make_date/vorncore");
BENCHMARK(strftime_make)->Name("make_date/gmtime_r+strftime");
BENCHMARK(vorncore_url)->Name("parse_url/vorncore");

#ifdef HAVE_CURL
void curl_parse_url(benchmark::State &state) {
    const CURLUPart parts[] = {CURLUPART_HOST, CURLUPART_PORT, CURLUPART_PATH, CURLUPART_QUERY};
    for (auto _ : state) {
        CURLU *url = curl_url();
        curl_url_set(url, CURLUPART_URL, url_text, 0);
        for (const CURLUPart part : parts) {
            char *text;
            curl_url_get(url, part, &text, 0);
            benchmark::DoNotOptimize(text);
            curl_free(text);
        }
        curl_url_cleanup(url);
    }
}
BENCHMARK(curl_parse_url)->Name("parse_url/curl_url");
#endif

} // namespace
