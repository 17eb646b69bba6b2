#include "vorncore/base/strutil.h"

#include <string.h>

#include "vorncore/base/internal/tokenizer.h"
#include "vorncore/base/internal/urlcode.h"

using namespace vorncore;

namespace {

struct same_byte {
    bool operator()(char a, char b) const { return a == b; }
};

struct same_letter {
    bool operator()(char a, char b) const { return xp_char_to_upper(a) == xp_char_to_upper(b); }
};

template <class Same>
bool starts_with(const char *text, const char *prefix, const char **rest, Same same) {
    for (; *prefix; text++, prefix++)
        if (!same(*text, *prefix)) return false; // also at the end of the text
    if (rest) *rest = text;
    return true;
}

template <class Same>
bool ends_with(const char *text, const char *suffix, const char **begin, Same same) {
    const size_t length = strlen(text), suffix_length = strlen(suffix);
    if (suffix_length > length) return false;
    const char *end = text + (length - suffix_length);
    if (!starts_with(end, suffix, nullptr, same)) return false;
    if (begin) *begin = end;
    return true;
}

} // namespace

char *xp_trim(char *text) { return trim_text(text, white_space{}); }

char *xp_trim_ex(char *text, const char *set) {
    return trim_text(text, byte_set(reinterpret_cast<const unsigned char *>(set), false));
}

char *xp_tr(char *text, int from, int to) {
    for (char *p = text; *p; p++)
        if (*p == static_cast<char>(from)) *p = static_cast<char>(to);
    return text;
}

int xp_tokenize(char **pieces, int capacity, char *text, const void *delimiters, int flags) {
    const auto *bytes = static_cast<const unsigned char *>(delimiters);
    int count = 0;
    const auto store = [&](char *piece) {
        if (count >= capacity) return false;
        pieces[count++] = piece;
        return true;
    };
    bool stored_all;
    if (flags & XP_TOKENIZE_TABLE)
        stored_all = cut_text(text, byte_table{bytes}, flags, store);
    else if (!bytes[0] || !bytes[1])
        stored_all = cut_text(text, one_byte{bytes[0]}, flags, store);
    else
        stored_all = cut_text(text, byte_set(bytes, true), flags, store);
    return stored_all ? count : -1;
}

int xp_starts_with(const char *text, const char *prefix, const char **rest) {
    return starts_with(text, prefix, rest, same_byte{});
}

int xp_case_starts_with(const char *text, const char *prefix, const char **rest) {
    return starts_with(text, prefix, rest, same_letter{});
}

int xp_ends_with(const char *text, const char *suffix, const char **begin) {
    return ends_with(text, suffix, begin, same_byte{});
}

int xp_case_ends_with(const char *text, const char *suffix, const char **begin) {
    return ends_with(text, suffix, begin, same_letter{});
}

const char *xp_int_to_str(int value, char *buffer, int size, int grouping) {
    if (value == 0) return "0"; // kept: the library's own, not in the buffer
    if (size <= 0 || value == INT32_MIN) return nullptr;
    char *first = buffer + size - 1;
    *first = '\0';
    int digits = 0;
    for (int left = value < 0 ? -value : value; left; left /= 10, digits++) {
        if (grouping && digits && digits % 3 == 0) {
            if (first == buffer) return nullptr;
            *--first = ',';
        }
        if (first == buffer) return nullptr;
        *--first = static_cast<char>('0' + left % 10);
    }
    if (value < 0) {
        if (first == buffer) return nullptr;
        *--first = '-';
    }
    return first;
}

char *xp_url_encode(const char *source, char *destination) {
    char *out = destination;
    url_encode(source, [&out](const url_code &code) {
        memcpy(out, &code, sizeof code); // never past three bytes for each byte of the source and one more
        out += code.length;
        return true;
    });
    *out = '\0';
    return destination;
}

char *xp_url_decode(char *text) { return url_decode(text); }

int xp_strncpy(char *destination, const char *source, int size, int limit) {
    if (size <= 0) return 0;
    const int most = limit >= 0 && limit < size ? limit : size - 1;
    const size_t length = strnlen(source, static_cast<size_t>(most));
    memmove(destination, source, length);
    destination[length] = '\0';
    return static_cast<int>(length);
}

int xp_strcpy(char *destination, const char *source) {
    const size_t length = strlen(source);
    memmove(destination, source, length + 1);
    return static_cast<int>(length);
}
