// The last error of a service client, as text in a buffer that is made at the first one.
#pragma once

#include <stdarg.h>
#include <stdio.h>

#include "vorncore/base/internal/alloc.h"

namespace vorncore {

inline constexpr size_t error_text_size = 4096;

/// Without memory for the buffer the text stays null; the result code still tells what happened.
inline void keep_error_text(char **text, const char *format, va_list arguments) {
    if (!*text) *text = try_array<char>(error_text_size);
    if (*text) vsnprintf(*text, error_text_size, format, arguments);
}

} // namespace vorncore
