#include <time.h>

#include "support/harness.h"
#include "vorncore/app/httpdate.h"
#include "vorncore/app/httpurl.h"

namespace {

TEST(HttpDate, WhatIsReadAndWhatIsNot) {
    constexpr int64_t seconds = 784111777, day = 86400;
    const std::pair<std::string, int64_t> cases[] = {
        {"Sun Nov 06 08:49:37 1994", seconds},
        {"Sun Nov 6 08:49:37 1994", seconds},
        {"Sun Nov  6 08:49:37 1994", seconds - 160 * day}, // the blank counts as a digit
        {"???, 06 Nov 1994 08:49:37 GMT", seconds},
        {"Fr????, 06-Nov-94 08:49:37 GMT", seconds},
        {"Sxnday, 06-Nov-94 08:49:37 GMT", -1},
        {"sunday, 06-Nov-94 08:49:37 GMT", -1},
        {"Sunday, 06-Nov-69 08:49:37 GMT", -1},
        {"Thu, 01 Jan 1970 00:00:00 GMT", 0},
        {"Thu, 00 Jan 1970 00:00:00 GMT", -1},
        {"Sun, 06 Nov 1994 08:49:37 UTC", -1},
        {"Sun, 06 NOV 1994 08:49:37 GMT", -1},
        {"Sun, 0: Nov 1994 08:49:37 GMT", seconds + 4 * day}, // ":" follows "9"
    };
    for (const auto &[date, expected] : cases)
        for (size_t at = 0; at <= date.size() + 1; at++) {
            harness::guard_page cut((date + 'x').substr(0, at) + '\0');
            EXPECT_EQ(xp_parse_http_date(cut.data()), at == date.size() ? expected : -1) << cut.data();
            if (expected != seconds || at >= date.size() || !strchr(" :-,", date[at])) continue;
            std::string marred = date;
            marred[at] = '/';
            const size_t unread = date[3] == ' ' ? 10 : 6; // before an asctime's time, behind a weekday in full
            EXPECT_EQ(xp_parse_http_date(marred.c_str()), at == unread ? seconds : -1) << marred;
        }
}

TEST(HttpDate, AgreesWithTheCLibrary) {
    const int64_t end = 253402300800; // the year 10000
    const char *forms[] = {"%a, %d %b %04Y %H:%M:%S GMT", "%A, %d-%b-%y %H:%M:%S GMT", "%a %b %d %H:%M:%S %Y"};
    std::mt19937_64 random(1);
    for (int64_t i = 0; i < 100'000; i++) {
        const int64_t seconds = i < 40'000 ? i * 86400 - 1 : static_cast<int64_t>(random() % (2 * end)) - end / 4;
        tm parts;
        gmtime_r(&seconds, &parts);
        char expected[64], made[30];
        strftime(expected, sizeof expected, forms[i % 3], &parts);
        if (seconds >= 0 && seconds < end && (i % 3 != 1 || parts.tm_year < 100)) {
            ASSERT_EQ(xp_parse_http_date(expected), seconds) << expected;
        }
        strftime(expected, sizeof expected, forms[0], &parts);
        ASSERT_STREQ(xp_make_http_date(seconds, made), seconds < end ? expected : "");
    }
    char none[30];
    for (const int64_t far : {INT64_MIN, INT64_MAX}) EXPECT_STREQ(xp_make_http_date(far, none), "");
}

TEST(HttpUrl, IsCutIntoHostPortAndPath) {
    const char *const cases[][2] = {
        // a text; host, port and path
        {"http://alpha/x/y?n=3:4#f", "alpha 80 x/y?n=3:4#f"},
        {"HTTP://alpha:8080/", "alpha 8080 "},
        {"alpha", "alpha 80 "},
        {"alpha//x", "alpha 80 /x"},
        {"alpha: -1/x", "alpha -1 x"}, // what strtol reads
        {"alpha:4294967376", "alpha 80 "},
    };
    xp_http_url url;
    for (const auto &[text, parts] : cases) {
        harness::guarded_text cut(text);
        ASSERT_EQ(xp_parse_http_url(cut.data(), &url), 1) << text;
        EXPECT_EQ(std::string(url.host) + " " + std::to_string(url.port) + " " + url.path, parts);
    }
    for (const char *text :
         {"alpha:80x", "alpha:/x", "alpha:0", ":80/", "http://", "", "https://alpha/", "u:p@alpha/", "alpha:1:2/"})
        EXPECT_EQ(xp_parse_http_url(harness::guarded_text(text).data(), &url), 0) << text;
}

} // namespace
