// The rotating hash, of texts and of keys of a fixed size, and keys compared in words.
#pragma once

#include <bit>
#include <emmintrin.h>
#include <stdint.h>
#include <string.h>

#include "vorncore/base/hashtable.h"
#include "vorncore/base/internal/textscan.h"

namespace vorncore {

/// memcmp(a, b, n) == 0, inlined; n > 0.
inline bool equal_bytes(const char *a, const char *b, size_t n) {
    if (n >= 8) {
        for (size_t i = 0; i + 8 < n; i += 8)
            if (load_word<uint64_t>(a + i) != load_word<uint64_t>(b + i)) return false;
        return load_word<uint64_t>(a + n - 8) == load_word<uint64_t>(b + n - 8);
    }
    if (n >= 4)
        return load_word<uint32_t>(a) == load_word<uint32_t>(b) &&
               load_word<uint32_t>(a + n - 4) == load_word<uint32_t>(b + n - 4);
    return a[0] == b[0] && a[n / 2] == b[n / 2] && a[n - 1] == b[n - 1];
}

/// Up to seven bytes as the last ones of a word.
inline uint64_t load_short(const char *bytes, size_t n) {
    if (n >= 4) return load_word<uint32_t>(bytes) << (64 - 8 * n) | load_word<uint32_t>(bytes + n - 4) << 32;
    uint64_t word = 0;
    while (n--) word = word >> 8 | load_word<uint8_t>(bytes++) << 56;
    return word;
}

/// strcmp(a, b) == 0 for an `a` of known length.
///
/// Of `b` no word is read before all in front of it were found equal, and whole words only at a multiple of their size:
/// what is read behind its end, memory checkers know for harmless.
inline bool equal_texts(const char *a, size_t length, const char *b) {
    if (!VORNCORE_READ_TO_PAGE_END || reinterpret_cast<uintptr_t>(b) % 8 != 0) return strcmp(a, b) == 0;
    const size_t n = length + 1, tail = n % 8; // the NUL is compared too
    const char *const end = a + (n - tail);
    for (; a != end; a += 8, b += 8)
        if (load_word<uint64_t>(a) != load_word<uint64_t>(b)) return false;
    if (!tail) return true;
    const size_t rest = 64 - 8 * tail; // bits
    const uint64_t last = n > 8 ? load_word<uint64_t>(a + tail - 8) >> rest << rest : load_short(a, tail);
    return last == load_word<uint64_t>(b) << rest;
}

/// h = rotate-left(h, 4) ^ c from h = 0 for the eight bytes of a word, first byte lowest; each byte is sign-extended.
///
/// A byte with its top bit set extends to ~(c ^ 0xFF), and rotation leaves ~0 as it is: so flip the eight bits of each
/// such byte, take all bytes as unsigned ones, and flip the result if their number is odd. Byte k then belongs
/// 4 * (7 - k) bits up: every other byte side by side in the result, those between four bits higher.
inline uint32_t fold_word(uint64_t word) {
    __m128i bytes = _mm_cvtsi64_si128(static_cast<int64_t>(word));
    const __m128i negative = _mm_cmpgt_epi8(_mm_setzero_si128(), bytes);
    bytes = _mm_xor_si128(bytes, negative);
    const __m128i first = _mm_and_si128(bytes, _mm_set1_epi16(0xFF)), second = _mm_srli_epi16(bytes, 8);
    const __m128i apart = _mm_shuffle_epi32(_mm_packus_epi16(first, second), _MM_SHUFFLE(3, 1, 2, 0));
    const uint64_t halves = __builtin_bswap64(static_cast<uint64_t>(_mm_cvtsi128_si64(apart)));
    const bool odd = __builtin_parity(static_cast<uint8_t>(_mm_movemask_epi8(negative)));
    return static_cast<uint32_t>(halves) ^ std::rotl(static_cast<uint32_t>(halves >> 32), 4) ^
           -static_cast<uint32_t>(odd);
}

/// h = seed word of the first byte, then h = rotate-left(h, 4) ^ c for every byte, sign-extended.
///
/// Eight steps turn h once round, so words that end where the key ends are summed by XOR alone and folded once.
inline uint32_t rotate_hash(const char *key, size_t length) {
    const uint32_t seed = xp_hash_randseed[length ? static_cast<unsigned char>(*key) : 0];
    uint64_t sum;
    if (length >= 8) {
        sum = load_word<uint64_t>(key) << 1 << (63 - length % 8 * 8); // those before the first whole word, if any
        for (const char *word = key + length % 8, *end = key + length; word != end; word += 8) {
            sum ^= load_word<uint64_t>(word);
            asm("" : "+r"(sum)); // no vectors: for keys as short as most they cost more than they save
        }
    } else {
        sum = load_short(key, length);
    }
    return std::rotl(seed, static_cast<int>(length % 8 * 4)) ^ fold_word(sum);
}

inline uint32_t reduced(uint32_t hash, uint32_t bucket_count) { return bucket_count ? hash % bucket_count : hash; }

} // namespace vorncore
