// The lines of an HTTP response, taken apart without I/O. Lines are NUL-terminated and their line end is gone.
#pragma once

#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "vorncore/base/convert.h"
#include "vorncore/base/strutil.h"

namespace vorncore {

/// Copies up to three characters behind the first blank of a status line; false when there are fewer.
inline bool parse_status_line(const char *line, char (&code)[4]) {
    const char *blank = strchr(line, ' ');
    const size_t count = blank ? strnlen(blank + 1, 3) : 0;
    if (count) memcpy(code, blank + 1, count);
    code[count] = '\0';
    return count == 3;
}

struct header_line {
    const char *name; // null: the line has no colon
    const char *value;
};

/// Cuts "NAME:  VALUE" at its first colon; the blanks before the value go, nothing else is trimmed.
inline header_line cut_header_line(char *line) {
    char *colon = strchr(line, ':');
    if (!colon) return {nullptr, nullptr};
    *colon = '\0';
    return {line, colon + 1 + strspn(colon + 1, " ")};
}

/// A decimal number and nothing behind it.
inline bool parse_content_length(const char *text, int64_t *length) {
    char *end;
    *length = strtol(text, &end, 10);
    return !*end;
}

enum class chunk_line { last, none, size };

/// What a line before a chunk says. Kept: "0a" ends the body, and what follows the digits is read as more digits.
inline chunk_line parse_chunk_line(char *line, int32_t *size) {
    line = xp_trim(line);
    if (*line == '0') return chunk_line::last;
    *size = static_cast<int32_t>(xp_reverse_convert(line, 16));
    return *size > 0 ? chunk_line::size : chunk_line::none;
}

struct cookie {
    char *name;
    char *value; // null: the cookie is to be deleted
};

/// Takes the value of a Set-Cookie header apart, in place; its attributes are ignored.
inline cookie cut_cookie(char *text) {
    const size_t head = strcspn(text, "=;"); // an "=" counts before the first ";" only
    if (text[head] != '=') {
        text[head] = '\0';
        return {xp_url_decode(text), nullptr};
    }
    char *value = text + head + 1;
    text[head] = '\0';
    if (*value) value[1 + strcspn(value + 1, ";")] = '\0'; // kept: a ";" that begins the value belongs to it
    return {xp_url_decode(text), xp_url_decode(value)};
}

} // namespace vorncore
