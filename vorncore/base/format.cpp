#include "vorncore/base/format.h"

#include <limits.h>

#include <algorithm>

#include "vorncore/base/internal/alloc.h"
#include "vorncore/base/internal/directive.h"
#include "vorncore/base/internal/jointexts.h"
#include "vorncore/base/internal/number.h"
#include "vorncore/base/internal/staging.h"

using namespace vorncore;

namespace {

/// Output known to fit into the area. An engine is the same for output that may not.
struct fitting_output {
    char *at;
    bool put(char c) { return *at++ = c, true; }
    bool copy(const char *bytes, size_t length) { return at = append(at, bytes, length), true; }
    bool fill(char c, size_t length) { return at = append_run(at, c, length), true; }
    bool prefix(const number &n) { return at = append_prefix(at, n), true; }
    bool digits(const number &n) { return at = append_digits(at, n), true; }
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
            format = run_simple(format);
            if (!format) return -1;
            if (!*format) break;
            format = run_one(format);
            if (!format) return -1;
        }
        target_->cursor = at_;
        filled_ += static_cast<uint64_t>(at_ - begin_);
        return static_cast<int>(std::min<uint64_t>(filled_, INT_MAX));
    }

    // Output that crosses areas is rare: its loops stay out of line, once.
    bool put(char c) {
        while (at_ == end_)
            if (!next_area()) return false;
        *at_++ = c;
        return true;
    }

    [[gnu::noinline]] bool copy(const char *bytes, size_t length) {
        return in_runs(length, [&](size_t run) {
            at_ = append(at_, bytes, run);
            bytes += run;
        });
    }

    [[gnu::noinline]] bool fill(char c, size_t length) {
        return in_runs(length, [&](size_t run) { at_ = append_run(at_, c, run); });
    }

    bool prefix(const number &n) { return copy(n.prefix, n.prefix_length); }

    [[gnu::noinline]] bool digits(const number &n) {
        char made[number::longest];
        append_digits(made, n);
        return copy(made, n.length);
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

    /// Has `length` bytes written by `write(run)` in as many runs as areas ask for.
    template <class Write>
    bool in_runs(size_t length, Write write) {
        while (length > room()) {
            const size_t run = room();
            write(run);
            length -= run;
            if (!next_area()) return false;
        }
        write(length);
        return true;
    }

    static const char *find_percent(const char *text) {
        for (int near = 0; near < 8; near++, text++) // between two directives there is little
            if (*text == '%' || !*text) return text;
        return strchrnul(text, '%');
    }

    /// The quick way for what most formats are made of: formats as long as there are only texts and directives of one
    /// letter, and while the area has room to spare. Returns what is left of the format, null when newbuf refused.
    const char *run_simple(const char *format) {
        char *at = at_, *end = end_;
        for (;;) {
            const char *const percent = find_percent(format);
            const auto length = static_cast<size_t>(percent - format);
            if (length + number::longest > static_cast<size_t>(end - at)) break;
            at = append(at, format, length);
            format = percent;
            if (!*format) break;
            const char conversion = format[1];
            if (conversion == 'd') {
                const number n = number::of_signed(va_arg(arguments_, int), 0);
                at = append_digits(append_prefix(at, n), n);
            } else if (conversion == 'u' || conversion == 'x') {
                at = append_digits(at, number::of_unsigned(va_arg(arguments_, unsigned), 0, conversion));
            } else if (conversion == 's') {
                const char *const text = text_argument();
                const size_t text_length = strlen(text);
                if (text_length <= static_cast<size_t>(end - at)) {
                    at = append(at, text, text_length);
                } else {
                    at_ = at;
                    if (!copy(text, text_length)) return nullptr;
                    at = at_;
                    end = end_;
                }
            } else {
                break;
            }
            format += 2;
        }
        at_ = at;
        return format;
    }

    /// Formats one run of text or one directive; returns what is behind it.
    const char *run_one(const char *format) {
        if (*format != '%') {
            const char *const percent = find_percent(format);
            return copy(format, static_cast<size_t>(percent - format)) ? percent : nullptr;
        }
        format++;
        directive d;
        if (const char *const behind = d.parse(format)) return convert(d) ? behind : nullptr;
        if (!put('%')) return nullptr;
        return *format == '%' ? format + 1 : format;
    }

    const char *text_argument() {
        const char *const text = va_arg(arguments_, const char *);
        return text ? text : "(null)";
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
        case 's': return write_text(d, text_argument());
        case 'c': return write_byte(d, static_cast<char>(va_arg(arguments_, int)));
        case 'd':
        case 'i':
            return write_number(d, d.wide ? number::of_signed(va_arg(arguments_, long long), d.flags)
                                          : number::of_signed(va_arg(arguments_, int), d.flags));
        case 'p': return write_number(d, pointer_argument(d.flags));
        default:
            return write_number(
                d, number::of_unsigned(d.wide ? va_arg(arguments_, unsigned long long) : va_arg(arguments_, unsigned),
                                       d.flags, d.conversion));
        }
    }

    number pointer_argument(uint8_t flags) {
        const void *const pointer = va_arg(arguments_, void *);
        return pointer ? number::of_unsigned(reinterpret_cast<uintptr_t>(pointer), flags, 'x')
                       : number::of_null_pointer();
    }

    /// Writes through `body(output)` what is `length` bytes long, with blanks before or behind it.
    template <class Body>
    bool justify(const directive &d, size_t length, Body body) {
        const size_t padding = d.width > length ? d.width - length : 0;
        const size_t before = d.left() ? 0 : padding, behind = padding - before;
        if (length + padding > room()) return fill(' ', before) && body(*this) && fill(' ', behind);
        fitting_output out{at_};
        out.fill(' ', before);
        body(out);
        out.fill(' ', behind);
        at_ = out.at;
        return true;
    }

    bool write_text(const directive &d, const char *text) {
        const size_t length = d.precision_from ? strnlen(text, d.precision) : strlen(text);
        return justify(d, length, [=](auto &out) { return out.copy(text, length); });
    }

    bool write_byte(const directive &d, char byte) {
        return justify(d, 1, [=](auto &out) { return out.put(byte); });
    }

    bool write_number(const directive &d, const number &n) {
        size_t zeros = d.precision > n.length ? d.precision - n.length : 0;
        if (d.flags & group_digits) {
            if (d.conversion == 'b') return write_grouped(d, n, zeros, 4, ' ');
            if (d.conversion == 'd' || d.conversion == 'i' || d.conversion == 'u')
                return write_grouped(d, n, zeros, 3, ',');
        }
        const size_t length = n.prefix_length + zeros + n.length;
        if (d.flags & fill_zeros && !d.left() && !d.precision_from && d.width > length) zeros = d.width - length;
        return justify(d, n.prefix_length + zeros + n.length,
                       [&](auto &out) { return out.prefix(n) && out.fill('0', zeros) && out.digits(n); });
    }

    bool write_grouped(const directive &d, const number &n, size_t zeros, size_t group, char separator) {
        char made[number::longest];
        append_digits(made, n);
        const size_t count = zeros + n.length;
        const size_t separators = count ? (count - 1) / group : 0;
        return justify(d, n.prefix_length + count + separators, [&](auto &out) {
            if (!out.prefix(n)) return false;
            size_t until_separator = count - separators * group;
            for (size_t i = 0; i < count; i++, until_separator--) {
                if (!until_separator) {
                    if (!out.put(separator)) return false;
                    until_separator = group;
                }
                if (!out.put(i < zeros ? '0' : made[i - zeros])) return false;
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
    va_list others;
    va_start(others, first);
    char *const joined = join_texts(first, others);
    va_end(others);
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
