// Base64 by vectors, for processors that has_avx2() says yes for: 24 bytes and 32 characters a step.
#pragma once

#include <immintrin.h>
#include <stddef.h>
#include <stdint.h>

#include "vorncore/base/internal/base64_table.h"

namespace vorncore {

/// Tells alphabet from other bytes by two lookups: a byte is in it if the marks of its two hexadecimal digits share no
/// bit. High digits with the same low digits in the alphabet share a mark.
struct base64_marks {
    uint8_t high[16] = {16, 16, 1, 2, 4, 8, 4, 8, 16, 16, 16, 16, 16, 16, 16, 16}, low[16] = {};
    consteval base64_marks() {
        for (unsigned byte = 0; byte < 256; byte++)
            if (base64_values[byte] >= 64) low[byte & 15] |= high[byte >> 4];
    }
};
inline constexpr base64_marks alphabet_marks;

#define VORNCORE_AVX2 __attribute__((target("avx2"))) inline

/// The same 16 bytes in both halves: a table for byte shuffles.
VORNCORE_AVX2 __m256i both_halves(const void *table) {
    return _mm256_broadcastsi128_si256(_mm_loadu_si128(static_cast<const __m128i *>(table)));
}

/// Encodes as many 24-byte steps as can be loaded from `length` bytes. Returns the number of bytes encoded.
VORNCORE_AVX2 size_t base64_encode_avx2(const uint8_t *bytes, size_t length, char *out) {
    // Three bytes abc of a group go to a 32-bit word as b a c b: each sextet then lies whole in a 16-bit half.
    static constexpr char spread_bytes[16] = {1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10};
    // What to add to a sextet to get its character, by class: 0 for a-z, 1-10 digits, 11 "+", 12 "/", 13 for A-Z.
    static constexpr char digit = '0' - 52,
                          class_offsets[16] = {'a' - 26, digit, digit, digit, digit,    digit,    digit,
                                               digit,    digit, digit, digit, '+' - 62, '/' - 63, 'A'};
    const __m256i spread = both_halves(spread_bytes), offsets = both_halves(class_offsets);
    size_t done = 0;
    for (; length - done >= 28; done += 24, out += 32) { // the second load ends 28 bytes on
        const __m128i low = _mm_loadu_si128(reinterpret_cast<const __m128i *>(bytes + done));
        const __m128i high = _mm_loadu_si128(reinterpret_cast<const __m128i *>(bytes + done + 12));
        const __m256i words = _mm256_shuffle_epi8(_mm256_set_m128i(high, low), spread);
        // Multiplications shift the halves by different counts: sextets 0 and 2 down, 1 and 3 up.
        const __m256i even =
            _mm256_mulhi_epu16(_mm256_and_si256(words, _mm256_set1_epi32(0x0FC0FC00)), _mm256_set1_epi32(0x04000040));
        const __m256i odd =
            _mm256_mullo_epi16(_mm256_and_si256(words, _mm256_set1_epi32(0x003F03F0)), _mm256_set1_epi32(0x01000010));
        const __m256i sextets = _mm256_or_si256(even, odd);
        const __m256i upper = _mm256_cmpgt_epi8(_mm256_set1_epi8(26), sextets);
        const __m256i classes = _mm256_or_si256(_mm256_subs_epu8(sextets, _mm256_set1_epi8(51)),
                                                _mm256_and_si256(upper, _mm256_set1_epi8(13)));
        const __m256i text = _mm256_add_epi8(sextets, _mm256_shuffle_epi8(offsets, classes));
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(out), text);
    }
    return done;
}

/// Decodes steps of 32 characters up to the first that holds a byte outside the alphabet ("=" is outside). Returns the
/// number of characters decoded. `out` may be where `text` is.
VORNCORE_AVX2 size_t base64_decode_avx2(const char *text, size_t length, uint8_t *out) {
    const __m256i low_marks = both_halves(alphabet_marks.low), high_marks = both_halves(alphabet_marks.high);
    // What to add to a character to get its sextet, by high digit; "/", apart from "+", takes entry 1.
    static constexpr char digit_offsets[16] = {0, 63 - '/', 62 - '+', 52 - '0', -'A', -'A', 26 - 'a', 26 - 'a'};
    static constexpr char big_endian[16] = {2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1};
    const __m256i offsets = both_halves(digit_offsets), order = both_halves(big_endian);
    const __m256i digit = _mm256_set1_epi8(15), slash = _mm256_set1_epi8('/');
    size_t done = 0;
    for (; length - done >= 32; done += 32, out += 24) {
        const __m256i chars = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(text + done));
        const __m256i low = _mm256_and_si256(chars, digit), high = _mm256_and_si256(_mm256_srli_epi32(chars, 4), digit);
        if (!_mm256_testz_si256(_mm256_shuffle_epi8(low_marks, low), _mm256_shuffle_epi8(high_marks, high))) break;
        const __m256i is_slash = _mm256_cmpeq_epi8(chars, slash);
        const __m256i sextets = _mm256_add_epi8(chars, _mm256_shuffle_epi8(offsets, _mm256_add_epi8(is_slash, high)));
        const __m256i pairs = _mm256_maddubs_epi16(sextets, _mm256_set1_epi32(0x01400140)); // 2 sextets, 12 bits
        const __m256i groups = _mm256_madd_epi16(pairs, _mm256_set1_epi32(0x00011000));     // 4 sextets, 24 bits
        const __m256i halves = _mm256_shuffle_epi8(groups, order);                          // 12 bytes in each
        const __m256i bytes = _mm256_permutevar8x32_epi32(halves, _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 3, 7));
        // Just 24 bytes: no room is asked for beyond the result, and in place nothing unread is written over.
        _mm_storeu_si128(reinterpret_cast<__m128i *>(out), _mm256_castsi256_si128(bytes));
        _mm_storel_epi64(reinterpret_cast<__m128i *>(out + 16), _mm256_extracti128_si256(bytes, 1));
    }
    return done;
}

#undef VORNCORE_AVX2

} // namespace vorncore
