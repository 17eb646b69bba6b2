#include "vorncore/base/strutil.h"

#include <limits.h>
#include <stdio.h>
#include <string.h>

#include <random>

#include "support/harness.h"
#include "vorncore/base/chartype.h"

namespace {

// A text whose terminator is the last byte before an unmapped page.
struct guarded_text : harness::guard_page {
    explicit guarded_text(const char *text) : guard_page(std::string_view(text, strlen(text) + 1)) {}
};

TEST(StrUtil, TrimCutsBothEndsAndNothingInside) {
    const char *const cases[][3] = {
        // text, set (null: white space), what stays
        {"  a b  ", nullptr, "a b"}, {"   ", nullptr, ""},   {"", nullptr, ""},  {"\t\n\v\f\r x", nullptr, "x"},
        {"\xA0x", nullptr, "\xA0x"}, {"--a-b-", "-", "a-b"}, {" a ", "", " a "}, {"\xE9x\xE9", "\xE9", "x"}};
    for (const auto &[text, set, trimmed] : cases) {
        guarded_text copy(text);
        EXPECT_STREQ(set ? xp_trim_ex(copy.data(), set) : xp_trim(copy.data()), trimmed) << '<' << text << '>';
    }
    char blank[] = "   ";
    EXPECT_EQ(xp_trim(blank), blank + 3);
}

TEST(StrUtil, TrReplacesOneByte) {
    char text[] = "a\xE9-\xE9";
    EXPECT_EQ(xp_tr(text, 0xE9, 'e'), text);
    EXPECT_STREQ(text, "ae-e");
}

// What the cuts are is compared with a plain splitter by tokenize_fuzz.
TEST(StrUtil, TokenizeCutsAtEveryDelimiterUpToTheCapacity) {
    std::string table(256, '\0');
    table[0] = table[';'] = 1; // entry 1 is zero: a table all the same
    const struct {
        const char *text, *delimiters;
        int flags, capacity, result;
        const char *last; // of the pieces stored
    } cases[] = {{"a,,b", ",", 0, 9, 3, "b"},
                 {"a,,b,", ",", XP_TOKENIZE_SKIP_EMPTY, 2, 2, "b"},
                 {"a,b,c", ",", 0, 2, -1, "b"},
                 {" , b\t,;", ",;", XP_TOKENIZE_TRIM | XP_TOKENIZE_SKIP_EMPTY, 1, 1, "b"},
                 {" a", ",;", XP_TOKENIZE_TRIM, 9, 1, "a"},
                 {"a", ",", 0, 0, -1, nullptr},
                 {"", ",", 0, 0, 0, nullptr},
                 {"a,b", "", 0, 9, 1, "a,b"},
                 {"a;b\x01z", table.data(), XP_TOKENIZE_TABLE, 9, 2, "b\x01z"}};
    for (const auto &c : cases) {
        guarded_text text(c.text);
        char *pieces[9] = {};
        EXPECT_EQ(xp_tokenize(pieces, c.capacity, text.data(), c.delimiters, c.flags), c.result) << c.text;
        int stored = 0;
        while (stored < 9 && pieces[stored]) stored++;
        EXPECT_EQ(stored, c.result < 0 ? c.capacity : c.result) << c.text;
        EXPECT_STREQ(stored ? pieces[stored - 1] : nullptr, c.last) << c.text;
    }
    EXPECT_EQ(xp_tokenize(nullptr, 0, nullptr, ",", 0), 0);
    char cut_so_far[] = "a,b,c,d", *pieces[2];
    xp_tokenize(pieces, 2, cut_so_far, ",", 0);
    EXPECT_EQ(memcmp(cut_so_far, "a\0b\0c\0d", 8), 0);
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
        if (grouping)
            for (int at = static_cast<int>(expected.size()) - 3; at > (value < 0); at -= 3)
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
    const char *zero = xp_int_to_str(0, nullptr, 0, 1);
    EXPECT_STREQ(zero, "0");
    EXPECT_EQ(xp_int_to_str(0, buffer, 16, 0), zero);
    EXPECT_EQ(xp_int_to_str(INT_MIN, buffer, 16, 0), nullptr);
}

TEST(StrUtil, UrlEncodeFollowsTheCharacterTypes) {
    for (int byte = 1; byte < 256; byte++) {
        const char c = static_cast<char>(byte), source[] = {c, 'x', '\0'};
        const bool one = xp_char_is(c, XP_CHAR_URL_SAFE) || c == ' ';
        char expected[8];
        snprintf(expected, sizeof expected, one ? "%cx" : "%%%02Xx", c == ' ' ? '+' : byte);
        harness::guard_page encoded("1234567"); // exactly the room that is asked for
        EXPECT_EQ(xp_url_encode(source, encoded.data()), encoded.data());
        EXPECT_STREQ(encoded.data(), expected);
        EXPECT_STREQ(xp_url_decode(encoded.data()), source);
    }
}

TEST(StrUtil, UrlDecodeKeepsWhatIsNoEscape) {
    const char *const cases[][2] = {{"%zz%41+", "%zzA "}, {"%", "%"},       {"a%4", "a%4"},
                                    {"%%41", "%A"},       {"%4%41", "%4A"}, {"%fF%Ff", "\xFF\xFF"},
                                    {"%4g%g4", "%4g%g4"}, {"%2525", "%25"}, {"%2B+", "+ "}};
    for (const auto &[text, decoded] : cases) {
        guarded_text copy(text);
        EXPECT_EQ(xp_url_decode(copy.data()), copy.data());
        EXPECT_STREQ(copy.data(), decoded) << text;
    }
    char nul[] = "a%00b";
    EXPECT_EQ(memcmp(xp_url_decode(nul), "a\0b", 4), 0);
}

TEST(StrUtil, CopiesAreBoundedAndTerminated) {
    const struct {
        int size, limit;
        const char *copied;
    } cases[] = {{4, -1, "abc"},    {4, 2, "ab"}, {4, 3, "abc"}, {4, 4, "abc"},
                 {9, -1, "abcdef"}, {9, 0, ""},   {1, -1, ""}};
    for (const auto &c : cases) {
        char copy[10];
        memset(copy, '#', sizeof copy);
        EXPECT_EQ(xp_strncpy(copy, "abcdef", c.size, c.limit), static_cast<int>(strlen(c.copied)));
        EXPECT_STREQ(copy, c.copied) << c.size << ' ' << c.limit;
        EXPECT_EQ(copy[c.size], '#');
    }
    harness::guard_page unterminated("ab"); // not read past the limit
    char copy[4];
    EXPECT_EQ(xp_strncpy(copy, unterminated.data(), 4, 2), 2);
    EXPECT_EQ(xp_strncpy(copy, "x", 0, -1), 0);
    EXPECT_STREQ(copy, "ab");
    EXPECT_EQ(xp_strcpy(copy, "xyz"), 3);
    EXPECT_STREQ(copy, "xyz");
}

} // namespace
