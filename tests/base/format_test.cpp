#include "vorncore/base/format.h"

#include <limits.h>

#include "support/harness.h"

using namespace harness;

namespace {

// That the output is the same into areas of any size is what format_fuzz looks at.
std::string formatted(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    char *const made = xp_vsprintf(format, arguments);
    va_end(arguments);
    std::string text = made;
    free(made);
    return text;
}

TEST(Format, LaysOutWhatThePlatformDoesNot) {
    const auto null = static_cast<char *>(nullptr);
    const auto address = reinterpret_cast<void *>(0xABC0);
    const std::pair<const char *, std::string> cases[] = {
        {"5   |   5|+5|5 ", formatted("%*d|%*d|%+ d|%-02i", -4, 5, 4, 5, 5, 5)},
        {"4294967295 18446744073709551615", formatted("%+u % llu", ~0u, ~0ull)},
        // precision: of a negative argument the absolute value; "." alone is 0, which still prints the digit of 0
        {"005|0|5|0||", formatted("%.*d|%.d|%.ld|%.0x|%.0s|", -3, 5, 0, 5l, 0, "text")},
        {"  005|005  |0010|5", formatted("%05.3d|%0-5.3d|%#.3o|%#u", 5, 5, 8, 5)},
        {"1010|00001010|10|11111111111111111111111111111111", formatted("%b|%08b|%#b|%b", 10, 10, 2, ~0u)},
        {"abc0|0xabc0|00abc0|abc0", formatted("%p|%#p|%06p|%+p", address, address, address, address)},
        {")lin(|  )lin(|00)lin(", formatted("%p|%#7p|%07p", nullptr, nullptr, nullptr)},
        // the most negative number has no digits
        {"-|-   |-00|-", formatted("%d|%-4lld|%.2d|%'ld", INT_MIN, LLONG_MIN, INT_MIN, LONG_MIN)},
        {"1,234,567|9,999|999|0,001|-1,000", formatted("%'u|%'i|%'u|%'.4d|%'lld", 1234567u, 9999, 999u, 1, -1000ll)},
        {"   1,000|1,000   |     001", formatted("%'08d|%-'8d|%'8.3d", 1000, 1000, 1)},
        {"1111 1111|1 0000|0001", formatted("%'b|%'b|%'.4b", 255, 16, 1)},
        {"ff|123456|4d2", formatted("%'x|%'o|%'p", 255, 0123456, reinterpret_cast<void *>(1234))},
        {"    A|B|C  |  ab", formatted("%05c|%.9c|%-3c|%04.2s", 65, 0x142, 67, "abc")},
        {"(null)|(nu|   (nu", formatted("%s|%.3s|%6.3s", null, null, null)},
        {"%|100%|%d", formatted("%%|100%%|%%d")},
        // malformed: "%" and the rest as it stands; no argument is taken, the next directive gets the first
        {"%f %ls %*.*q %hd %5.-3d 9", formatted("%f %ls %*.*q %hd %5.-3d %d", 9)},
        {"%llld %lp %lc %lb %zu %5%d 9%", formatted("%llld %lp %lc %lb %zu %5%%d %d%", 9)},
        {"%-+ 0#'12.34ll", formatted("%-+ 0#'12.34ll")},
    };
    for (const auto &[expected, output] : cases) EXPECT_EQ(output, expected);
}

// Left out of the comparison is what differs on purpose: the most negative number, 0 under precision 0, "%#o" with a
// precision.
TEST(Format, AgreesWithThePlatformOnWhatBothKnow) {
    std::mt19937_64 random(1);
    const auto any_of = [&](std::initializer_list<const char *> choices) {
        return std::string(choices.begin()[random() % choices.size()]);
    };
    for (int round = 0; round < 100'000 && !HasFailure(); round++) {
        const std::string conversion = any_of({"d", "i", "u", "x", "X", "o"}), size = any_of({"", "l", "ll"});
        const std::string width = any_of({"", "1", "12", "40"}), precision = any_of({"", ".", ".9", ".17", ".39"});
        std::string flags = any_of({"", "-", "+", " ", "0", "#"}) + any_of({"", "-", "+", " ", "0", "#"});
        if (conversion == "o" && !precision.empty()) std::erase(flags, '#');
        std::string format = "<%";
        for (const auto &part : {flags, width, precision, size, conversion, any_of({"", " and a tail"})})
            format += part;
        const auto value = static_cast<long long>(random()) >> random() % 64;
        const auto narrow = static_cast<int>(value);
        if (value == LLONG_MIN || narrow == INT_MIN || (precision == "." && !narrow)) continue;
        const auto compare = [&](auto argument) {
            char expected[128];
            snprintf(expected, sizeof expected, format.c_str(), argument);
            EXPECT_EQ(formatted(format.c_str(), argument), expected) << format << " of " << value;
        };
        size.empty() ? compare(narrow) : compare(value);
    }
}

TEST(Format, ReadsAndAsksForNoMoreThanItNeeds) {
    guard_page text("abc");
    EXPECT_EQ(formatted("%.3s|%-3.*s", text.data(), 2, text.data()), "abc|ab ");
    EXPECT_EQ(formatted(guarded_text("text %5").data()), "text %5");
    char area[3];
    xp_fmt_target target = {area, area + 3, nullptr, [](xp_fmt_target *) { return 0; }};
    EXPECT_EQ(xp_format(&target, "a%cb%.0s", 0, "x"), 3);
    EXPECT_EQ(std::string(area, target.cursor), std::string("a\0b", 3));
    target.begin = target.end;
    EXPECT_EQ(xp_format(&target, "%s%.0s", "", "x"), 0);
    EXPECT_EQ(xp_format(&target, "x"), -1);
}

TEST(Format, HugeWidthsAndPrecisionsSaturate) {
    static char area[1 << 20];
    static int32_t answer; // of the target that is asked for more room
    xp_fmt_target target = {area, area + sizeof area, nullptr, [](xp_fmt_target *) { return answer; }};
    answer = 1;
    for (const char *format : {"%2147483647d", "%99999999999999999999o", "%-2147483648c", "%.2147483647xand more"})
        EXPECT_EQ(xp_format(&target, format, 1), INT_MAX) << format;
    answer = 0;
    for (const char *format : {"%*d", "%.*u", "%'.*d", "%'.*b", "%#.*x"})
        EXPECT_EQ(xp_format(&target, format, INT_MIN, 1), -1) << format;
}

TEST(Format, StringsGrow) {
    for (const size_t length : {0u, 62u, 63u, 64u, 127u, 128u, 100'000u}) {
        const std::string start(length, 'x'), text = start + 'y';
        oom_sweep([&] {
            const auto end = static_cast<char *>(nullptr);
            char *const made[] = {xp_sprintf("%s", text.c_str()), xp_sprintf(text.c_str()),
                                  xp_strdup_v(start.c_str(), "", "y", end), xp_strdup_v(end), xp_sprintf("%s", "")};
            for (char *const &string : made) {
                EXPECT_TRUE(!string || string == (&string < &made[3] ? text : "")) << length;
                free(string);
            }
        });
    }
}

/// What a front end hands to; one of its calls fails.
struct device : xpi_ostream {
    size_t failing;
    std::vector<size_t> pieces;
    explicit device(size_t call) : xpi_ostream{}, failing(call) { // flush is null: not called
        write = [](void *self, const void *, uint32_t length) {
            return static_cast<int32_t>(static_cast<device *>(self)->take(length));
        };
    }
    size_t take(size_t length) { return pieces.push_back(length), pieces.size() == failing ? 0 : length; }
};

int print_to_file(device &to, int length) {
    const auto write = [](void *cookie, const char *, size_t size) {
        return static_cast<ssize_t>(static_cast<device *>(cookie)->take(size));
    };
    FILE *file = fopencookie(&to, "w", {nullptr, write, nullptr, nullptr});
    setvbuf(file, nullptr, _IONBF, 0); // one write for one fwrite
    const int result = xp_fprintf(file, "%*s", length, "");
    fclose(file);
    return result;
}

int print_to_stream(device &to, int length) { return xp_osprintf(&to, "%*s", length, ""); }

TEST(Format, FrontEndsHandOverWholeStagingAreas) {
    const std::pair<int (*)(device &, int), size_t> front_ends[] = {{print_to_file, 80}, {print_to_stream, 4096}};
    for (const auto &[print, area] : front_ends)
        for (const size_t length : {size_t{0}, size_t{9}, area, 2 * area, 2 * area + 1})
            for (size_t failing = 0; failing < 4; failing++) {
                std::vector<size_t> pieces(length / area, area);
                if (length % area) pieces.push_back(length % area);
                const bool fails = failing && failing <= pieces.size();
                if (fails) pieces.resize(failing);
                device to(failing);
                EXPECT_EQ(print(to, static_cast<int>(length)), fails ? -1 : static_cast<int>(length)) << failing;
                EXPECT_EQ(to.pieces, pieces) << length << ", piece " << failing << " refused";
            }
}

} // namespace
