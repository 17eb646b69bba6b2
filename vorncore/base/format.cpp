#include "vorncore/base/format.h"

#include <algorithm>
#include <bit>
#include <limits.h>
#include <limits>
#include <type_traits>

#include "vorncore/base/internal/alloc.h"
#include "vorncore/base/internal/staging.h"

using namespace vorncore;

namespace {

enum : uint8_t {
    left_justify = 0x01,
    always_sign = 0x02,
    blank_sign = 0x04,
    fill_zeros = 0x08,
    alternate = 0x10,
    group_digits = 0x20,
    any_flag = 0x3F,
    sized_conversion = 0x40, // may have a length before it
    plain_conversion = 0x80,
};

/// What each byte means within a directive.
struct byte_kinds {
    uint8_t of[256] = {};
    consteval byte_kinds() {
        mark("-", left_justify), mark("+", always_sign), mark(" ", blank_sign);
        mark("0", fill_zeros), mark("#", alternate), mark("'", group_digits);
        mark("diuxXo", sized_conversion), mark("bpcs", plain_conversion);
    }
    consteval void mark(const char *bytes, uint8_t kind) {
        for (; *bytes; bytes++) of[static_cast<unsigned char>(*bytes)] = kind;
    }
};
constexpr byte_kinds kinds;

uint8_t kind_of(char c) { return kinds.of[static_cast<unsigned char>(c)]; }

bool is_digit(char c) { return c >= '0' && c <= '9'; }

/// A directive is read to its end before an argument is fetched: one that turns out malformed takes none.
struct directive {
    enum source : uint8_t { absent, given, argument };

    uint32_t width = 0;
    uint32_t precision = 0;
    source width_from = absent;
    source precision_from = absent;
    uint8_t flags = 0;
    bool wide = false; // the argument has 64 bits
    char conversion = 0;

    bool left() const { return flags & left_justify; }
    bool bare() const { return !(flags | width_from | precision_from); }

    /// Reads what stands behind the "%"; returns where it ends, null when it is malformed.
    const char *parse(const char *p) {
        for (; kind_of(*p) & any_flag; p++) flags |= kind_of(*p);
        if (*p == '*' || is_digit(*p)) p = parse_number(p, width, width_from);
        if (*p == '.') {
            precision_from = given;
            p = parse_number(p + 1, precision, precision_from);
        }
        uint8_t allowed = sized_conversion | plain_conversion;
        if (*p == 'l') {
            p += p[1] == 'l' ? 2 : 1;
            wide = true;
            allowed = sized_conversion;
        }
        conversion = *p;
        return kind_of(*p) & allowed ? p + 1 : nullptr;
    }

  private:
    static const char *parse_number(const char *p, uint32_t &number, source &from) {
        if (*p == '*') {
            from = argument;
            return p + 1;
        }
        for (; is_digit(*p); p++) {
            const uint64_t longer = uint64_t{number} * 10 + static_cast<uint64_t>(*p - '0');
            number = static_cast<uint32_t>(std::min<uint64_t>(longer, INT_MAX));
            from = given;
        }
        return p;
    }
};

struct digit_pairs {
    char text[200];
    consteval digit_pairs() : text() {
        for (int i = 0; i < 100; i++)
            text[2 * i] = static_cast<char>('0' + i / 10), text[2 * i + 1] = static_cast<char>('0' + i % 10);
    }
};
constexpr digit_pairs pairs;

/// Writes decimal digits so that they end before `end`; returns the first one.
template <class Unsigned>
char *write_decimal(char *end, Unsigned value) {
    while (value >= 100) {
        end -= 2;
        memcpy(end, pairs.text + value % 100 * 2, 2);
        value /= 100;
    }
    if (value >= 10) {
        end -= 2;
        memcpy(end, pairs.text + value * 2, 2);
        return end;
    }
    *--end = static_cast<char>('0' + value);
    return end;
}

/// The same with digits of `bits` bits.
char *write_binary(char *end, uint64_t value, int bits, const char *alphabet) {
    const uint64_t mask = (1u << bits) - 1;
    do *--end = alphabet[value & mask];
    while (value >>= bits);
    return end;
}

/// The parts of a number, ready to be laid out.
struct number {
    static constexpr size_t max_digits = 32; // those of a "%b"

    const char *prefix = "";
    uint32_t prefix_length = 0;
    uint32_t digit_count = 0;
    char storage[max_digits]; // digits, at its end

    char *end() { return storage + max_digits; }
    const char *digits() const { return storage + max_digits - digit_count; }
    void start_at(const char *first) { digit_count = static_cast<uint32_t>(storage + max_digits - first); }
    void set_prefix(const char *text, uint32_t length) {
        prefix = text;
        prefix_length = length;
    }
};

class engine {
  public:
    engine(xp_fmt_target *target, va_list arguments)
        : target_(target), at_(target->begin), end_(target->end), begin_(target->begin) {
        va_copy(arguments_, arguments);
    }
    engine(const engine &) = delete;
    ~engine() { va_end(arguments_); }

    int run(const char *format) {
        for (;;) {
            const char *percent = strchrnul(format, '%');
            if (!copy(format, static_cast<size_t>(percent - format))) return -1;
            if (!*percent) break;
            format = percent + 1;
            directive d;
            const char *behind = d.parse(format);
            if (behind ? !convert(d) : !put('%')) return -1;
            if (behind)
                format = behind;
            else if (*format == '%')
                format++;
        }
        target_->cursor = at_;
        filled_ += static_cast<uint64_t>(at_ - begin_);
        return static_cast<int>(std::min<uint64_t>(filled_, INT_MAX));
    }

  private:
    size_t room() const { return static_cast<size_t>(end_ - at_); }

    /// Hands the full area over and takes the next one.
    bool next_area() {
        if (!target_->newbuf(target_)) return false;
        filled_ += static_cast<uint64_t>(at_ - begin_);
        at_ = begin_ = target_->begin;
        end_ = target_->end;
        return true;
    }

    bool put(char c) {
        while (at_ == end_)
            if (!next_area()) return false;
        *at_++ = c;
        return true;
    }

    bool copy(const char *bytes, size_t length) {
        while (length > room()) {
            const size_t run = room();
            if (run) memcpy(at_, bytes, run);
            at_ = end_;
            bytes += run;
            length -= run;
            if (!next_area()) return false;
        }
        if (length) memcpy(at_, bytes, length); // an empty area may be null
        at_ += length;
        return true;
    }

    bool fill(char c, uint64_t length) {
        while (length > room()) {
            const size_t run = room();
            if (run) memset(at_, c, run);
            at_ = end_;
            length -= run;
            if (!next_area()) return false;
        }
        if (length) memset(at_, c, length);
        at_ += length;
        return true;
    }

    /// Writes through `body()` what is `length` bytes long, with blanks before or behind it.
    template <class Body>
    bool justify(const directive &d, uint64_t length, Body body) {
        const uint64_t padding = d.width > length ? d.width - length : 0;
        if (d.left()) return body() && fill(' ', padding);
        return fill(' ', padding) && body();
    }

    uint32_t size_argument(bool &negative) {
        const int value = va_arg(arguments_, int);
        negative = value < 0;
        return negative ? 0 - static_cast<uint32_t>(value) : static_cast<uint32_t>(value);
    }

    bool convert(directive &d) {
        bool negative = false;
        if (d.width_from == directive::argument) {
            d.width = size_argument(negative);
            if (negative) d.flags |= left_justify;
        }
        // Kept: the sign of a precision is dropped.
        if (d.precision_from == directive::argument) d.precision = size_argument(negative);
        switch (d.conversion) {
        case 's': return write_text(d, va_arg(arguments_, const char *));
        case 'c': return write_byte(d, static_cast<char>(va_arg(arguments_, int)));
        case 'd':
        case 'i':
            return d.wide ? write_signed(d, va_arg(arguments_, long long)) : write_signed(d, va_arg(arguments_, int));
        case 'p': return write_pointer(d, va_arg(arguments_, void *));
        default:
            if (d.wide) return write_unsigned(d, va_arg(arguments_, unsigned long long));
            return write_unsigned(d, va_arg(arguments_, unsigned));
        }
    }

    bool write_text(const directive &d, const char *text) {
        if (!text) text = "(null)";
        const size_t length = d.precision_from ? strnlen(text, d.precision) : strlen(text);
        return justify(d, length, [=, this] { return copy(text, length); });
    }

    bool write_byte(const directive &d, char byte) {
        return justify(d, 1, [=, this] { return put(byte); });
    }

    template <class Signed>
    bool write_signed(const directive &d, Signed value) {
        using Unsigned = std::make_unsigned_t<Signed>;
        number n;
        if (value < 0)
            n.set_prefix("-", 1);
        else if (d.flags & always_sign)
            n.set_prefix("+", 1);
        else if (d.flags & blank_sign)
            n.set_prefix(" ", 1);
        // Kept: the most negative value has no digits.
        if (value != std::numeric_limits<Signed>::min()) {
            const auto magnitude = static_cast<Unsigned>(value < 0 ? -value : value);
            n.start_at(write_decimal(n.end(), magnitude));
        }
        return write_number(d, n);
    }

    template <class Unsigned>
    bool write_unsigned(const directive &d, Unsigned value) {
        number n;
        const bool prefixed = d.flags & alternate && value != 0;
        switch (d.conversion) {
        case 'u': n.start_at(write_decimal(n.end(), value)); break;
        case 'b': n.start_at(write_binary(n.end(), value, 1, "01")); break;
        case 'o':
            n.start_at(write_binary(n.end(), value, 3, "01234567"));
            if (prefixed) n.set_prefix("0", 1);
            break;
        case 'X':
            n.start_at(write_binary(n.end(), value, 4, "0123456789ABCDEF"));
            if (prefixed) n.set_prefix("0X", 2);
            break;
        default:
            n.start_at(write_binary(n.end(), value, 4, "0123456789abcdef"));
            if (prefixed) n.set_prefix("0x", 2);
        }
        return write_number(d, n);
    }

    bool write_pointer(const directive &d, const void *pointer) {
        if (pointer) return write_unsigned(d, static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(pointer)));
        // Kept: the text of a null pointer comes out in reverse.
        number n;
        n.start_at(n.end() - 5);
        memcpy(n.end() - 5, ")lin(", 5);
        return write_number(d, n);
    }

    bool write_number(const directive &d, const number &n) {
        if (d.bare()) return copy(n.prefix, n.prefix_length) && copy(n.digits(), n.digit_count);
        uint64_t zeros = d.precision > n.digit_count ? d.precision - n.digit_count : 0;
        if (d.flags & group_digits) {
            if (d.conversion == 'b') return write_grouped(d, n, zeros, 4, ' ');
            if (d.conversion == 'd' || d.conversion == 'i' || d.conversion == 'u')
                return write_grouped(d, n, zeros, 3, ',');
        }
        const uint64_t length = n.prefix_length + zeros + n.digit_count;
        if (d.flags & fill_zeros && !d.left() && !d.precision_from && d.width > length) zeros = d.width - length;
        return justify(d, n.prefix_length + zeros + n.digit_count, [&, this] {
            return copy(n.prefix, n.prefix_length) && fill('0', zeros) && copy(n.digits(), n.digit_count);
        });
    }

    bool write_grouped(const directive &d, const number &n, uint64_t zeros, uint32_t group, char separator) {
        const uint64_t digits = zeros + n.digit_count;
        const uint64_t separators = digits ? (digits - 1) / group : 0;
        return justify(d, n.prefix_length + digits + separators, [&, this] {
            if (!copy(n.prefix, n.prefix_length)) return false;
            for (uint64_t left = digits; left; left--) { // digits not written yet
                if (left != digits && left % group == 0 && !put(separator)) return false;
                if (!put(left > n.digit_count ? '0' : n.digits()[n.digit_count - left])) return false;
            }
            return true;
        });
    }

    xp_fmt_target *target_;
    char *at_;            // where the next byte goes
    char *end_;           // of the current area
    char *begin_;         // of the current area
    uint64_t filled_ = 0; // bytes in the areas handed over
    va_list arguments_;
};

/// A string that grows.
struct string_target : xp_fmt_target {
    char *buffer;
    size_t capacity; // without the byte for the NUL

    bool resize(size_t to) {
        char *const grown = try_resize(buffer, saturating_sum(to, 1));
        if (!grown) return false;
        begin = grown + capacity;
        end = grown + to;
        buffer = grown;
        capacity = to;
        return true;
    }
};

using file_staging = staging<80, FILE *>;
using stream_staging = staging<4096, xpi_ostream *>;

bool write_item(const file_staging &out, uint32_t length) { return fwrite(out.area, length, 1, out.device) == 1; }

bool write_stream(const stream_staging &out, uint32_t length) {
    return out.device->write(out.device, out.area, length) == static_cast<int32_t>(length);
}

} // namespace

static int32_t __gad_newbuf__(xp_fmt_target *target) {
    auto *string = static_cast<string_target *>(target);
    return string->resize(saturating_product(string->capacity, 2));
}

static int32_t __fileout_newbuf__(xp_fmt_target *target) {
    return write_item(*static_cast<file_staging *>(target), file_staging::size);
}

static int32_t __os_newbuf__(xp_fmt_target *target) {
    return write_stream(*static_cast<stream_staging *>(target), stream_staging::size);
}

int xp_vformat(xp_fmt_target *target, const char *format, va_list arguments) {
    return engine(target, arguments).run(format);
}

int xp_format(xp_fmt_target *target, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int count = xp_vformat(target, format, arguments);
    va_end(arguments);
    return count;
}

char *xp_vsprintf(const char *format, va_list arguments) {
    string_target string{{nullptr, nullptr, nullptr, __gad_newbuf__}, nullptr, 0};
    if (!string.resize(64)) return nullptr;
    if (xp_vformat(&string, format, arguments) < 0) {
        free(string.buffer);
        return nullptr;
    }
    *string.cursor = '\0';
    return string.buffer;
}

char *xp_sprintf(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    char *const text = xp_vsprintf(format, arguments);
    va_end(arguments);
    return text;
}

char *xp_strdup_v(const char *first, ...) {
    va_list texts;
    size_t size = 1;
    va_start(texts, first);
    for (const char *text = first; text; text = va_arg(texts, const char *)) size = saturating_sum(size, strlen(text));
    va_end(texts);
    char *const joined = try_array<char>(size);
    if (!joined) return nullptr;
    char *end = joined;
    *end = '\0';
    va_start(texts, first);
    for (const char *text = first; text; text = va_arg(texts, const char *)) end = stpcpy(end, text);
    va_end(texts);
    return joined;
}

int xp_vfprintf(FILE *file, const char *format, va_list arguments) {
    return file_staging(file, __fileout_newbuf__).format(format, arguments, write_item);
}

int xp_fprintf(FILE *file, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int count = xp_vfprintf(file, format, arguments);
    va_end(arguments);
    return count;
}

int xp_vosprintf(xpi_ostream *stream, const char *format, va_list arguments) {
    return stream_staging(stream, __os_newbuf__).format(format, arguments, write_stream);
}

int xp_osprintf(xpi_ostream *stream, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int count = xp_vosprintf(stream, format, arguments);
    va_end(arguments);
    return count;
}
