// The text form of keys and values in requests and listings of the key-value service: the bytes that have a meaning in
// a line are written as "#" and a letter.
#pragma once

#include <stddef.h>
#include <string.h>

namespace vorncore {

/// What follows "#" in place of a byte; 0 for a byte that stands for itself.
constexpr char quill_letter_of(char c) {
    switch (c) {
    case '\n': return 'n';
    case '\r': return 'r';
    case ' ': return '_';
    case '#': return '#';
    case '=': return '>';
    case '\0': return '0';
    default: return '\0';
    }
}

/// Bytes of the escaped text, without a terminator: at most twice those of the text. A null text is an empty one.
inline size_t escaped_size(const char *text) {
    size_t size = 0;
    for (; text && *text; text++) size += quill_letter_of(*text) ? 2 : 1;
    return size;
}

/// Writes the escaped text to `out`, unterminated. Returns the end of what it wrote.
inline char *_escape(char *out, const char *text) {
    for (; text && *text; text++)
        if (const char letter = quill_letter_of(*text)) {
            *out++ = '#';
            *out++ = letter;
        } else {
            *out++ = *text;
        }
    return out;
}

/// Undoes the escaping in place; what is no escape stays as it is. Returns the new end, where a NUL is written: the
/// text itself may hold NUL bytes then. A null text gives null.
inline char *_unescape(char *text) {
    if (!text) return nullptr;
    static constexpr char escaped[] = {'\n', '\r', ' ', '#', '=', '\0'};
    char *out = text;
    while (*text) {
        const char c = *text++;
        *out = c;
        if (c == '#')
            for (const char original : escaped)
                if (*text == quill_letter_of(original)) {
                    *out = original;
                    text++;
                    break;
                }
        out++;
    }
    *out = '\0';
    return out;
}

} // namespace vorncore
