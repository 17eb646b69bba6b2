// Trimming and cutting of texts in place, for the array and the string utilities.
#pragma once

#include <string.h>

#include "vorncore/base/chartype.h"
#include "vorncore/base/internal/textscan.h"
#include "vorncore/base/types.h"

namespace vorncore {

/// Delimiter classes: `set(c)` says whether a byte belongs.
struct white_space {
    bool operator()(char c) const { return xp_char_is(c, XP_CHAR_SPACE); }
};

struct one_byte {
    unsigned char byte;
    bool operator()(char c) const { return static_cast<unsigned char>(c) == byte || !c; }
};

/// A caller's table of 256 bytes, non-zero for a member.
struct byte_table {
    const unsigned char *entries;
    bool operator()(char c) const { return entries[static_cast<unsigned char>(c)]; }
};

/// The bytes of a text; NUL belongs too when `with_nul` is set.
class byte_set {
  public:
    byte_set(const unsigned char *text, bool with_nul) {
        for (; *text; text++) entries_[*text] = true;
        entries_[0] = with_nul;
    }
    bool operator()(char c) const { return entries_[static_cast<unsigned char>(c)]; }

  private:
    bool entries_[256] = {};
};

/// Cuts members of a set off both ends of a text, in place; `set` must not contain NUL. Returns the new beginning.
template <class Set>
char *trim_text(char *text, const Set &set) {
    while (set(*text)) text++;
    char *end = text; // behind the last byte that stays
    for (char *p = text; *p; p++)
        if (!set(*p)) end = p + 1;
    if (*end) *end = '\0';
    return text;
}

/// The ends of the pieces of a text, one after the other.
template <class Set>
class piece_ends {
  public:
    piece_ends(char *text, const Set &set) : at_(text), set_(set) {}
    char *next() {
        while (!set_(*at_)) at_++;
        return at_++;
    }

  private:
    char *at_;
    const Set &set_;
};

template <>
struct piece_ends<one_byte> : marked_bytes {
    piece_ends(char *text, one_byte set)
        : marked_bytes(text, static_cast<char>(set.byte), static_cast<char>(set.byte)) {}
};

/// Cuts a text at each byte of a set that contains NUL and hands every piece that the flags let through to
/// `take(piece)`, until that returns false: then the text is cut up to there and so is the result.
template <class Set, class Take>
bool cut_text(char *text, const Set &ends_piece, int flags, Take take) {
    if (!text || !*text) return true;
    piece_ends ends(text, ends_piece);
    for (bool last = false; !last;) {
        char *const end = ends.next();
        last = !*end;
        *end = '\0';
        char *piece = flags & XP_TOKENIZE_TRIM ? trim_text(text, white_space{}) : text;
        if (!(flags & XP_TOKENIZE_SKIP_EMPTY && !*piece) && !take(piece)) return false;
        text = end + 1;
    }
    return true;
}

} // namespace vorncore
