#include "vorncore/app/httpdate.h"

#include <time.h>

#include <random>
#include <utility>

#include "support/harness.h"

namespace {

TEST(HttpDate, WhatIsReadAndWhatIsNot) {
    constexpr int64_t seconds = 784111777, day = 86400;
    const std::pair<const char *, int64_t> cases[] = {
        {"Sun, 06 Nov 1994 08:49:37 GMT", seconds},
        {"Sunday, 06-Nov-94 08:49:37 GMT", seconds},
        {"Sun Nov 06 08:49:37 1994", seconds},
        {"Sun Nov 6 08:49:37 1994", seconds},
        {"Sun Nov  6 08:49:37 1994", seconds - 160 * day}, // the blank counts as a digit
        {"???, 06 Nov 1994 08:49:37 GMT", seconds},
        {"Fr????, 06-Nov-94 08:49:37 GMT", seconds},
        {"Sxnday, 06-Nov-94 08:49:37 GMT", -1},
        {"sunday, 06-Nov-94 08:49:37 GMT", -1},
        {"Sunday, 06-Nov-70 00:00:00 GMT", 309 * day},
        {"Sunday, 06-Nov-69 08:49:37 GMT", -1},
        {"Thu, 01 Jan 1970 00:00:00 GMT", 0},
        {"Thu, 00 Jan 1970 00:00:00 GMT", -1},
        {"Sun, 06 Nov 1994 08:49:37 UTC", -1},
        {"Sun, 06 NOV 1994 08:49:37 GMT", -1},
        {"Sun, 0: Nov 1994 08:49:37 GMT", seconds + 4 * day}, // ":" follows "9"
    };
    for (const auto &[date, expected] : cases) {
        std::string text = date + std::string("x");
        for (size_t length = 0; length <= text.size(); length++) {
            harness::guard_page cut(text.substr(0, length) + '\0');
            EXPECT_EQ(xp_parse_http_date(cut.data()), length + 1 == text.size() ? expected : -1) << cut.data();
        }
        text.pop_back();
        const char *unread = &text[text[3] == ' ' ? 10 : 6]; // before an asctime's time, behind a weekday in full
        for (char &mark : text)
            if (expected == seconds && strchr(" :-,", mark)) {
                const char before = std::exchange(mark, '/');
                EXPECT_EQ(xp_parse_http_date(text.c_str()), &mark == unread ? seconds : -1) << text;
                mark = before;
            }
    }
}

TEST(HttpDate, AgreesWithTheCLibrary) {
    const int64_t end = 253402300800; // the year 10000
    const char *forms[] = {"%a, %d %b %Y %H:%M:%S GMT", "%A, %d-%b-%y %H:%M:%S GMT", "%a %b %d %H:%M:%S %Y"};
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
        snprintf(expected + strftime(expected, 13, "%a, %d %b ", &parts), 40, "%04d %02d:%02d:%02d GMT",
                 parts.tm_year + 1900, parts.tm_hour, parts.tm_min, parts.tm_sec);
        ASSERT_STREQ(xp_make_http_date(seconds, made), seconds < end ? expected : "");
    }
}

} // namespace
