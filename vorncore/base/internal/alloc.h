// Memory for the library. Two kinds of call, for the two kinds of caller:
//   - who can report failure uses malloc, realloc and the `try_` forms, which give null;
//   - who cannot (a void operation) calls out_of_memory(), which ends the process with one line on standard error.
// Sizes saturate: a product or sum that overflows becomes SIZE_MAX, which no allocator grants.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <type_traits>

namespace vorncore {

/// Writes "vorncore: CALL: out of memory (SIZE bytes)" to standard error and aborts.
[[noreturn]] void out_of_memory(const char *call, size_t size);

inline size_t saturating_product(size_t count, size_t size) {
    size_t bytes;
    return __builtin_mul_overflow(count, size, &bytes) ? SIZE_MAX : bytes;
}

inline size_t saturating_sum(size_t a, size_t b) {
    size_t bytes;
    return __builtin_add_overflow(a, b, &bytes) ? SIZE_MAX : bytes;
}

/// Bytes of `count` items of type T; a negative count counts as too many.
template <class T, class Count>
size_t bytes_of(Count count) {
    return saturating_product(static_cast<size_t>(count), sizeof(T));
}

template <class T, class Count>
T *try_array(Count count) {
    return static_cast<T *>(malloc(bytes_of<T>(count)));
}

template <class T, class Count>
T *try_zeroed_array(Count count) {
    return static_cast<T *>(calloc(static_cast<size_t>(count), sizeof(T)));
}

/// Null on failure; the old block is then untouched.
template <class T, class Count>
T *try_resize(T *block, Count count) {
    return static_cast<T *>(realloc(block, bytes_of<T>(count)));
}

/// A copy of a text, null when `text` is null or memory is short.
inline char *try_strdup(const char *text) { return text ? strdup(text) : nullptr; }

inline char *must_strdup(const char *call, const char *text) {
    char *copy = strdup(text);
    if (!copy) out_of_memory(call, strlen(text) + 1);
    return copy;
}

/// The create form of a family: allocates a record and calls init(record, settings...), which returns nothing or
/// whether it could. Null when memory is short.
template <class Record, class Init, class... Settings>
Record *create_record(Init init, Settings... settings) {
    auto *record = static_cast<Record *>(malloc(sizeof(Record)));
    if (!record) return nullptr;
    if constexpr (std::is_void_v<decltype(init(record, settings...))>) {
        init(record, settings...);
    } else if (!init(record, settings...)) {
        free(record);
        return nullptr;
    }
    return record;
}

/// The destroy form of a family.
template <class Record>
void destroy_record(Record *record, void (*close)(Record *)) {
    close(record);
    free(record);
}

} // namespace vorncore
