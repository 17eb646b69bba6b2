#include "vorncore/base/strutil.h"

#include <limits.h>
#include <stdio.h>

#include "support/harness.h"
#include "vorncore/base/chartype.h"

using namespace harness;

TEST(StrUtil, TrimCutsBothEndsAndNothingInside) {
    const char *const cases[][3] = {
        // text, set (null: white space), what stays
        {"  a b  ", nullptr, "a b"}, {"   ", nullptr, ""},   {"", nullptr, ""},  {"\t\n\v\f\r x", nullptr, "x"},
        {"\xA0x", nullptr, "\xA0x"}, {"--a-b-", "-", "a-b"}, {" a ", "", " a "}, {"--", "-", ""},
        {"\xE9x\xE9", "\xE9", "x"}};
    for (const auto &[text, set, trimmed] : cases) {
        guarded_text copy(text);
        EXPECT_STREQ(set ? xp_trim_ex(copy.data(), set) : xp_trim(copy.data()), trimmed) << '<' << text << '>';
    }
    char text[] = "a\xE9-\xE9";
    EXPECT_EQ(xp_tr(text, 0xE9, 'e'), text);
    EXPECT_STREQ(text, "ae-e");
}

// What the cuts are is compared with a plain splitter by tokenize_fuzz.
TEST(StrUtil, TokenizeTakesATableForATableAndStopsAtTheCapacity) {
    std::string table(256, '\0');
    table[0] = table[';'] = 1; // entry 1 is zero
    char text[] = "a;b\x01;c;d", *pieces[3] = {};
    EXPECT_EQ(xp_tokenize(pieces, 2, text, table.data(), XP_TOKENIZE_TABLE), -1);
    EXPECT_STREQ(pieces[1], "b\x01");
    EXPECT_EQ(pieces[2], nullptr);
    EXPECT_EQ(xp_tokenize(nullptr, 0, nullptr, ",", 0), 0);
}

TEST(StrUtil, PrefixesAndSuffixes) {
    const struct {
        int (*call)(const char *, const char *, const char **);
        const char *text, *part;
        int offset; // of what the out pointer gets; -1: no match
    } cases[] = {{xp_starts_with, "abc", "ab", 2},
                 {xp_starts_with, "abc", "", 0},
                 {xp_starts_with, "abc", "Ab", -1},
                 {xp_starts_with, "ab", "abc", -1},
                 {xp_case_starts_with, "aBc[", "AbC[", 4},
                 {xp_case_starts_with, "a{", "a[", -1},
                 {xp_ends_with, "abc", "bc", 1},
                 {xp_ends_with, "abc", "abcd", -1},
                 {xp_ends_with, "abc", "", 3},
                 {xp_ends_with, "abc", "bC", -1},
                 {xp_ends_with, "abc", "abc", 0},
                 {xp_case_ends_with, "x.TXT", ".txt", 1},
                 {xp_case_ends_with, "\xC9", "\xE9", -1}};
    for (const auto &c : cases) {
        const char *out = nullptr;
        EXPECT_EQ(c.call(c.text, c.part, &out), c.offset >= 0) << c.text << ' ' << c.part;
        EXPECT_EQ(out, c.offset >= 0 ? c.text + c.offset : nullptr) << c.text << ' ' << c.part;
        EXPECT_EQ(c.call(c.text, c.part, nullptr), c.offset >= 0);
    }
}

TEST(StrUtil, IntToStrFillsTheBufferFromItsEnd) {
    std::mt19937 random(1);
    for (int i = 0; i < 4000; i++) {
        const int value = static_cast<int>(random()) >> random() % 32, grouping = i & 1;
        if (value == 0 || value == INT_MIN) continue;
        std::string expected = std::to_string(value);
        for (int at = static_cast<int>(expected.size()) - 3; grouping && at > (value < 0); at -= 3)
            expected.insert(expected.begin() + at, ',');
        const int fits = static_cast<int>(expected.size()) + 1;
        for (int size = 0; size <= fits + 2; size++) {
            std::string buffer(static_cast<size_t>(size), '#');
            const char *text = xp_int_to_str(value, buffer.data(), size, grouping);
            ASSERT_EQ(text, size < fits ? nullptr : buffer.data() + size - fits) << value << " in " << size;
            ASSERT_STREQ(text, text ? expected.c_str() : nullptr);
        }
    }
    char buffer[16];
    EXPECT_STREQ(xp_int_to_str(0, nullptr, 0, 1), "0");
    EXPECT_EQ(xp_int_to_str(0, buffer, 16, 0), xp_int_to_str(0, nullptr, 0, 1));
    EXPECT_EQ(xp_int_to_str(INT_MIN, buffer, 16, 0), nullptr);
}

TEST(StrUtil, UrlCoding) {
    for (int byte = 1; byte < 256; byte++) {
        const char c = static_cast<char>(byte), source[] = {c, 'x', '\0'};
        const bool one = xp_char_is(c, XP_CHAR_URL_SAFE) || c == ' ';
        char expected[8];
        snprintf(expected, sizeof expected, one ? "%cx" : "%%%02Xx", c == ' ' ? '+' : byte);
        guard_page encoded("1234567"); // exactly the room that is asked for
        EXPECT_EQ(xp_url_encode(source, encoded.data()), encoded.data());
        EXPECT_STREQ(encoded.data(), expected);
        EXPECT_STREQ(xp_url_decode(encoded.data()), source);
    }
    const char *const cases[][2] = {{"%zz%41+", "%zzA "}, {"a%4", "a%4"},   {"%4%41", "%4A"}, {"%fF%Ff", "\xFF\xFF"},
                                    {"%4g%g4", "%4g%g4"}, {"%2525", "%25"}, {"a%00b", "a"}};
    for (const auto &[text, decoded] : cases) {
        guarded_text copy(text);
        EXPECT_EQ(xp_url_decode(copy.data()), copy.data());
        EXPECT_STREQ(copy.data(), decoded) << text;
    }
}

TEST(StrUtil, CopiesAreBoundedAndTerminated) {
    const struct {
        int size, limit;
        const char *copied;
    } cases[] = {{4, -1, "abc"},    {4, 2, "ab"}, {4, 3, "abc"}, {4, 4, "abc"},
                 {9, -1, "abcdef"}, {9, 0, ""},   {1, -1, ""}};
    for (const auto &c : cases) {
        std::string copy(10, '#');
        EXPECT_EQ(xp_strncpy(copy.data(), "abcdef", c.size, c.limit), static_cast<int>(strlen(c.copied)));
        EXPECT_STREQ(copy.c_str(), c.copied) << c.size << ' ' << c.limit;
        EXPECT_EQ(copy[static_cast<size_t>(c.size)], '#');
    }
    guard_page unterminated("ab"); // not read past the limit
    char copy[] = "####";
    EXPECT_EQ(xp_strncpy(copy, "x", 0, -1), 0);
    EXPECT_EQ(xp_strncpy(copy + 1, unterminated.data(), 3, 2), 2);
    EXPECT_STREQ(copy, "#ab");
    EXPECT_EQ(xp_strcpy(copy, "xy"), 2);
    EXPECT_STREQ(copy, "xy");
}
