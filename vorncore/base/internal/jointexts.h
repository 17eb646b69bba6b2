// Concatenation of texts.
#pragma once

#include <stdarg.h>
#include <string.h>

#include "vorncore/base/internal/alloc.h"

namespace vorncore {

/// The texts up to a null pointer in a new string of just their length, null when memory is short.
inline char *join_texts(const char *first, va_list others) {
    va_list again;
    va_copy(again, others);
    size_t size = 1;
    for (const char *text = first; text; text = va_arg(others, const char *)) size = saturating_sum(size, strlen(text));
    char *const joined = try_array<char>(size);
    if (joined) {
        char *end = joined;
        *end = '\0';
        for (const char *text = first; text; text = va_arg(again, const char *)) end = stpcpy(end, text);
    }
    va_end(again);
    return joined;
}

} // namespace vorncore
