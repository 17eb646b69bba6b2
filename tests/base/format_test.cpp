#include "vorncore/base/format.h"

#include <limits.h>

#include "support/harness.h"

using namespace harness;

namespace {

/// A target of areas of one size, that stops after `areas_left` of them; the bytes past the area are guarded.
struct chunked_target : xp_fmt_target {
    explicit chunked_target(size_t size, int areas = INT_MAX) : area(size + 1, '#'), areas_left(areas) {
        begin = area.data();
        end = begin + size;
        cursor = nullptr;
        newbuf = [](xp_fmt_target *target) -> int32_t {
            auto *self = static_cast<chunked_target *>(target);
            if (self->areas_left-- == 0) return 0;
            self->output.append(self->begin, self->end);
            return 1;
        };
    }

    std::string area;
    std::string output; // of the areas handed over
    int areas_left;
};

/// The output into one large area, which that into areas of any other size must equal.
std::string formatted(const char *format, ...) {
    std::string whole;
    for (const size_t size : std::initializer_list<size_t>{4096, 1, 7, 40}) {
        chunked_target target(size);
        va_list arguments;
        va_start(arguments, format);
        const int count = xp_vformat(&target, format, arguments);
        va_end(arguments);
        EXPECT_EQ(target.area[size], '#');
        // An area that the end of the output just fills is not handed over.
        EXPECT_TRUE(count == 0 || static_cast<int>(target.output.size()) < count) << format;
        const std::string output = target.output + std::string(target.begin, target.cursor);
        EXPECT_EQ(count, static_cast<int>(output.size())) << format;
        if (whole.empty()) whole = output;
        EXPECT_EQ(output, whole) << format << ", areas of " << size;
    }
    return whole;
}

TEST(Format, LaysOutWhatThePlatformDoesNot) {
    const auto null = static_cast<char *>(nullptr);
    const auto address = reinterpret_cast<void *>(0xABC0);
    const struct {
        const char *expected;
        std::string output;
    } cases[] = {
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
        {"1,234,567|999|0,001|-1,000", formatted("%'d|%'u|%'.4d|%'lld", 1234567, 999u, 1, -1000ll)},
        {"   1,000|1,000   |     001", formatted("%'08d|%-'8d|%'8.3d", 1000, 1000, 1)},
        {"1111 1111|1 0000|0001", formatted("%'b|%'b|%'.4b", 255, 16, 1)},
        {"ff|123456|4d2", formatted("%'x|%'o|%'p", 255, 0123456, reinterpret_cast<void *>(1234))},
        {"    A|B|  ab", formatted("%05c|%.9c|%04.2s", 65, 0x142, "abc")},
        {"(null)|(nu|   (nu", formatted("%s|%.3s|%6.3s", null, null, null)},
        {"%|100%|%d", formatted("%%|100%%|%%d")},
        // malformed: "%" and the rest as it stands; no argument is taken, the next directive gets the first
        {"%f %ls %*.*q %hd %5.-3d 9", formatted("%f %ls %*.*q %hd %5.-3d %d", 9)},
        {"%llld %lp %lc %lb %zu %5%d 9%", formatted("%llld %lp %lc %lb %zu %5%%d %d%", 9)},
        {"%-+ 0#'12.34ll", formatted("%-+ 0#'12.34ll")},
    };
    for (const auto &c : cases) EXPECT_EQ(c.output, c.expected);
    EXPECT_EQ(formatted("a%cb", 0), std::string("a\0b", 3));
}

// Left out of the comparison is what differs on purpose: the most negative number, 0 under precision 0, "%#o" with a
// precision; and what the platform leaves open.
TEST(Format, AgreesWithThePlatformOnWhatBothKnow) {
    std::mt19937 random(1);
    const auto one_in = [&](unsigned n) { return random() % n == 0; };
    for (int round = 0; round < 200'000 && !HasFailure(); round++) {
        const char conversion = "diuxXocs"[random() % 8];
        const bool textual = conversion == 'c' || conversion == 's', wide = !textual && one_in(2), precise = one_in(2);
        const auto precision = random() % 40;
        std::string format = "<%";
        for (unsigned flags = one_in(2) ? 0 : random() % 4; flags; flags--) {
            const char flag = textual ? '-' : "-+ 0#"[random() % 5];
            if (flag != '#' || (strchr("xXo", conversion) && !(precise && conversion == 'o'))) format += flag;
        }
        if (one_in(2)) format += std::to_string(1 + random() % 40);
        if (precise) format += '.' + std::to_string(precision);
        if (wide) format += one_in(2) ? "ll" : "l";
        format += conversion;
        format += one_in(2) ? ">" : "> and a tail of some length";
        long long value = static_cast<long long>(uint64_t{random()} << 32 | random()) >> random() % 64;
        if (!wide) value = static_cast<int>(value);
        if (value == LLONG_MIN || (!wide && value == INT_MIN) || (precise && precision == 0 && value == 0)) continue;

        const auto compare = [&](auto argument) {
            char expected[256];
            snprintf(expected, sizeof(expected), format.c_str(), argument);
            EXPECT_EQ(formatted(format.c_str(), argument), expected) << format << " of " << value;
        };
        if (conversion == 's') compare("a text of a certain length");
        if (conversion == 'c') compare(static_cast<int>('a' + (value & 15)));
        if (!textual && wide) compare(value);
        if (!textual && !wide) compare(static_cast<int>(value));
    }
    guard_page text("abc"); // nothing is read that need not be
    EXPECT_EQ(formatted("%.3s|%-3.*s", text.data(), 2, text.data()), "abc|ab ");
    EXPECT_EQ(formatted(guarded_text("text %5").data()), "text %5");
}

TEST(Format, RefusalLeavesTheCursorAndTheBytesWritten) {
    chunked_target target(4, 1);
    EXPECT_EQ(xp_format(&target, "%s%d", "abcdef", 123), -1);
    EXPECT_EQ(target.cursor, nullptr);
    EXPECT_EQ(target.output + target.area, "abcdef12#");
    chunked_target none(0, 0); // asked for nothing, an empty area will do
    EXPECT_EQ(xp_format(&none, "%s%.0s", "", "x"), 0);
    EXPECT_EQ(none.cursor, none.begin);
    EXPECT_EQ(xp_format(&none, "x"), -1);
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
    for (const int length : {0, 1, 63, 64, 65, 128, 129, 100'000}) {
        const std::string text(static_cast<size_t>(length), 'x');
        oom_sweep([&] {
            const auto end = static_cast<char *>(nullptr);
            const std::pair<char *, std::string> made[] = {{xp_sprintf("%s", text.c_str()), text},
                                                           {xp_sprintf(text.c_str()), text},
                                                           {xp_strdup_v(text.c_str(), "", "bc", end), text + "bc"},
                                                           {xp_strdup_v(end), ""}};
            for (const auto &[string, expected] : made) {
                EXPECT_TRUE(!string || string == expected) << length;
                free(string);
            }
        });
    }
}

/// What a front end handed to its device, whose nth write fails.
struct device {
    size_t failing;
    std::vector<size_t> pieces;
    bool takes(size_t length) { return pieces.push_back(length), pieces.size() != failing; }
};

int print_to_file(device &to, int length) {
    const auto write = [](void *cookie, const char *, size_t size) {
        return static_cast<device *>(cookie)->takes(size) ? static_cast<ssize_t>(size) : 0;
    };
    FILE *file = fopencookie(&to, "w", {nullptr, write, nullptr, nullptr});
    setvbuf(file, nullptr, _IONBF, 0); // one write for one fwrite
    const int result = xp_fprintf(file, "%*s", length, "");
    fclose(file);
    return result;
}

int print_to_stream(device &to, int length) {
    xpi_ostream stream = {};
    stream.context = &to;
    stream.write = [](void *self, const void *, uint32_t size) {
        const bool all = static_cast<device *>(static_cast<xpi_ostream *>(self)->context)->takes(size);
        return static_cast<int32_t>(size) - !all;
    };
    return xp_osprintf(&stream, "%*s", length, ""); // flush is null: not called
}

TEST(Format, FrontEndsHandOverWholeStagingAreas) {
    const struct {
        int (*print)(device &, int);
        int length;
        size_t failing;
        std::vector<size_t> pieces;
    } cases[] = {{print_to_file, 0, 0, {}},
                 {print_to_file, 160, 0, {80, 80}},
                 {print_to_file, 161, 3, {80, 80, 1}},
                 {print_to_file, 160, 2, {80, 80}},
                 {print_to_stream, 4096, 0, {4096}},
                 {print_to_stream, 8193, 0, {4096, 4096, 1}},
                 {print_to_stream, 8200, 3, {4096, 4096, 8}},
                 {print_to_stream, 8193, 1, {4096}}};
    for (const auto &c : cases) {
        device to = {c.failing, {}};
        EXPECT_EQ(c.print(to, c.length), c.failing ? -1 : c.length) << "row " << &c - cases;
        EXPECT_EQ(to.pieces, c.pieces) << "row " << &c - cases;
    }
}

} // namespace
