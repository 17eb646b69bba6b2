// The rotating hash of texts and of fixed-size keys, and the default hash and comparison of the tables.
#pragma once

#include <bit>
#include <stdint.h>
#include <string.h>

#include "vorncore/base/hashtable.h"

namespace vorncore {

/// h = rotate-left(h, 4) ^ c from h = 0 for the eight bytes of a word, first byte lowest; each byte is sign-extended.
///
/// A byte is extended as ~(c ^ 0xFF) when its top bit is set, and rotation leaves ~0 as it is: so flip the lower eight
/// bits of each such byte, fold the bytes as unsigned ones, and flip the result if their number is odd.
inline uint32_t fold_word(uint64_t word) {
    const uint64_t high = word & 0x8080808080808080;
    const uint32_t flip = __builtin_parityll(high) ? ~0u : 0u;
    // The first byte comes to the top: byte k belongs 4 * (7 - k) bits up, neighbours overlap by a nibble.
    word = __builtin_bswap64(word ^ ((high << 1) - (high >> 7)));
    word = (word & 0x00FF00FF00FF00FF) ^ (word & 0xFF00FF00FF00FF00) >> 4;
    word = (word & 0x0000FFFF0000FFFF) ^ (word & 0xFFFF0000FFFF0000) >> 8;
    word = (word & 0x00000000FFFFFFFF) ^ (word & 0xFFFFFFFF00000000) >> 16;
    return static_cast<uint32_t>(word) ^ static_cast<uint32_t>(word >> 32) ^ flip;
}

template <class Word>
uint64_t load_word(const char *bytes) {
    Word word;
    memcpy(&word, bytes, sizeof word);
    return word;
}

/// The last `n` bytes before `end`, 1 to 8 and at most `length` of them, as the low bytes of a word.
inline uint64_t load_tail(const char *end, size_t n, size_t length) {
    if (length >= 8) return load_word<uint64_t>(end - 8) >> (64 - 8 * n);
    const char *start = end - n;
    if (n >= 4) return load_word<uint32_t>(start) | load_word<uint32_t>(end - 4) << (8 * n - 32);
    return load_word<uint8_t>(start) | load_word<uint8_t>(start + n / 2) << (n / 2 * 8) |
           load_word<uint8_t>(end - 1) << (8 * n - 8);
}

/// h = seed word of the first byte, then h = rotate-left(h, 4) ^ c for every byte, sign-extended.
///
/// Eight steps rotate by a whole turn, so words are summed by XOR alone and folded once. The bytes behind the last
/// whole word turn the sum by their number first; a word that is turned by whole bytes folds to the turned hash.
inline uint32_t rotate_hash(const char *key, size_t length) {
    if (length == 0) return xp_hash_randseed[0];
    const char *const end = key + length;
    const size_t tail = (length - 1) % 8 + 1;
    const uint32_t seed = xp_hash_randseed[static_cast<unsigned char>(*key)];
    uint64_t sum = load_tail(end, tail, length);
    for (const char *const words_end = end - tail; key != words_end; key += 8) sum ^= load_word<uint64_t>(key);
    return std::rotl(seed, static_cast<int>(4 * tail)) ^ fold_word(std::rotr(sum, static_cast<int>(8 * tail)));
}

inline uint32_t rotate_hash_text(const void *key) {
    const char *const text = static_cast<const char *>(key);
    return rotate_hash(text, strlen(text));
}

inline uint32_t reduced(uint32_t hash, uint32_t bucket_count) { return bucket_count ? hash % bucket_count : hash; }

/// The bucket of a key; the default hash is not called through its pointer.
inline uint32_t bucket_of(xp_hash_fn hash, const void *key, uint32_t bucket_count) {
    return hash == xp_rotate_hashf ? reduced(rotate_hash_text(key), bucket_count) : hash(key, bucket_count);
}

/// The comparison that a null one stands for: strcmp.
inline xp_compare_fn compare_texts() { return reinterpret_cast<xp_compare_fn>(reinterpret_cast<void (*)()>(strcmp)); }

/// compare(key, stored) == 0; the default comparison is not called through its pointer, nor at all for texts that
/// differ in their first byte.
inline bool equal_keys(xp_compare_fn compare, const void *key, const void *stored) {
    if (compare != compare_texts()) return compare(key, stored) == 0;
    const char *const a = static_cast<const char *>(key), *const b = static_cast<const char *>(stored);
    return *a == *b && strcmp(a, b) == 0;
}

} // namespace vorncore
