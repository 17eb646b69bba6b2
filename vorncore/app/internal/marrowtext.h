// The text form of commands and rows of the database gateway. In a parameter and in a column "#" stands before a letter
// for the bytes that have a meaning there, and "#0" alone is null.
#pragma once

#include <string.h>

#include "vorncore/base/internal/textscan.h"

namespace vorncore {

/// A command in the making, in storage of a fixed size.
class command_line {
  public:
    command_line(char *storage, const char *storage_end) : next_(storage), end_(storage_end) {}

    void add(char c) {
        if (next_ < end_)
            *next_++ = c;
        else
            fits_ = false;
    }
    void add(const char *text) {
        while (*text && fits_) add(*text++);
    }
    void add_escaped(const char *text) {
        for (; *text && fits_; text++) {
            const char letter = letter_of(*text);
            if (letter) add('#');
            add(letter ? letter : *text);
        }
    }

    /// Whether all that was added has found room.
    bool fits() const { return fits_; }

  private:
    /// What follows "#" in place of a byte; 0 for a byte that stands for itself.
    static char letter_of(char c) { return c == '#' ? '#' : c == ',' ? '/' : c == '\n' ? 'n' : '\0'; }

    char *next_;
    const char *end_;
    bool fits_ = true;
};

/// Undoes the escaping in place, from the first "#" of a column on; a "#" that begins no pair is dropped. A null column
/// gives null.
inline char *unescape_column(char *column, char *first_escape) {
    if (strcmp(column, "#0") == 0) return nullptr;
    char *out = first_escape;
    for (const char *in = out; *in; in++) {
        char c = *in;
        if (c == '#') {
            c = *++in;
            if (!c) break;
            c = c == '/' ? ',' : c == 'n' ? '\n' : c;
        }
        *out++ = c;
    }
    *out = '\0';
    return column;
}

/// Cuts a row at every "," and calls take(column) for each column, unescaped, null for null.
template <class Take>
void cut_row(char *row, Take take) {
    marked_bytes marks(row, ',', '#');
    for (bool last = false; !last;) {
        char *const first_escape = marks.next();
        char *end = first_escape;
        while (*end == '#') end = marks.next();
        last = !*end;
        *end = '\0';
        take(end == first_escape ? row : unescape_column(row, first_escape));
        row = end + 1;
    }
}

} // namespace vorncore
