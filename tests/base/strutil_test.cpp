#include "vorncore/base/strutil.h"

#include <ctype.h>
#include <limits.h>
#include <stdio.h>

#include "support/harness.h"

using namespace harness;

// xp_tokenize is compared with a plain splitter by tokenize_fuzz.
TEST(StrUtil, TrimCutsBothEndsAndNothingInside) {
    const char *const cases[][3] = {
        // text, set (null: white space), what stays
        {"  a b  ", nullptr, "a b"}, {"   ", nullptr, ""},   {"", nullptr, ""},  {"\t\n\v\f\r x", nullptr, "x"},
        {"\xA0x", nullptr, "\xA0x"}, {"--a-b-", "-", "a-b"}, {" a ", "", " a "}, {"\xE9\xE9x\xE9", "\xE9", "x"}};
    for (const auto &[text, set, trimmed] : cases) {
        guarded_text copy(text);
        EXPECT_STREQ(set ? xp_trim_ex(copy.data(), set) : xp_trim(copy.data()), trimmed) << '<' << text << '>';
    }
    char text[] = "a\xE9-\xE9";
    EXPECT_EQ(xp_tr(text, 0xE9, 'e'), text);
    EXPECT_STREQ(text, "ae-e");
}

TEST(StrUtil, PrefixesAndSuffixesAgreeWithTheCLibrary) {
    const char abc[] = "abc"; // its shorter ends have a matching byte in front
    const char *const texts[] = {abc, abc + 1, abc + 2, abc + 3, "a", "A[", "a{", "aB", "bC", "x\xC9", "\xE9"};
    for (const char *text : texts)
        for (const char *part : texts) {
            const size_t length = strlen(part);
            const char *const tail = strlen(text) < length ? "none" : text + strlen(text) - length;
            const auto check = [=](auto call, int difference, const char *where) {
                const char *out = nullptr;
                EXPECT_EQ(call(text, part, &out) + call(text, part, nullptr), difference ? 0 : 2)
                    << text << ' ' << part;
                EXPECT_EQ(out, difference ? nullptr : where) << text << ' ' << part;
            };
            check(xp_starts_with, strncmp(text, part, length), text + length);
            check(xp_case_starts_with, strncasecmp(text, part, length), text + length);
            check(xp_ends_with, strcmp(tail, part), tail);
            check(xp_case_ends_with, strcasecmp(tail, part), tail);
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
    EXPECT_STREQ(xp_int_to_str(0, buffer, 16, 0), "0");
    EXPECT_EQ(xp_int_to_str(0, buffer, 16, 0), xp_int_to_str(0, nullptr, 0, 1)) << "the library's own";
    EXPECT_EQ(xp_int_to_str(INT_MIN, buffer, 16, 0), nullptr);
}

TEST(StrUtil, UrlCoding) {
    for (int byte = 1; byte < 256; byte++) {
        char expected[8], source[] = {static_cast<char>(byte), 'x', '\0'};
        snprintf(expected, sizeof expected, isalnum(byte) || strchr("*-._", byte) ? "%cx" : "%%%02Xx", byte);
        guard_page encoded("1234567"); // exactly the room that is asked for
        EXPECT_STREQ(xp_url_encode(source, encoded.data()), byte == ' ' ? "+x" : expected);
        EXPECT_STREQ(xp_url_decode(encoded.data()), source);
    }
    const char *const cases[][2] = {{"%zz%41+", "%zzA "},   {"a%4", "a%4"},       {"%4%41", "%4A"},
                                    {"%fF%Ff", "\xFF\xFF"}, {"%4g%g4", "%4g%g4"}, {"a%00b", "a"}};
    for (const auto &[text, decoded] : cases) EXPECT_STREQ(xp_url_decode(guarded_text(text).data()), decoded) << text;
}

TEST(StrUtil, CopiesAreThoseOfSnprintf) {
    for (int size = -1; size < 9; size++)
        for (int limit = -1; limit < 9; limit++) {
            guard_page source({"abcdef", limit < 0 || limit > 6 ? 7 : static_cast<size_t>(limit)});
            std::string copy(10, '#'), expected = copy;
            if (size > 0) snprintf(expected.data(), static_cast<size_t>(size), "%.*s", limit, "abcdef");
            const int length = xp_strncpy(copy.data(), source.data(), size, limit);
            EXPECT_EQ(copy, expected) << size << ' ' << limit;
            EXPECT_EQ(length, size > 0 ? static_cast<int>(strlen(expected.c_str())) : 0);
        }
    char copy[] = "####";
    EXPECT_EQ(xp_strcpy(copy, guarded_text("xy").data()), 2);
    EXPECT_STREQ(copy, "xy");
}
