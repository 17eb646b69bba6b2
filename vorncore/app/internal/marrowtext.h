// The text form of commands and rows of the database gateway. In a parameter and in a column "#" stands before a letter
// for the bytes that have a meaning there, and "#0" alone is null.
#pragma once

#include <string.h>

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

/// Undoes the escaping in place; a "#" that begins no pair is dropped. A null column gives null.
inline char *unescape_column(char *column) {
    if (strcmp(column, "#0") == 0) return nullptr;
    char *out = strchrnul(column, '#');
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

} // namespace vorncore
