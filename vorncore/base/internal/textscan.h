// Texts read in blocks: an aligned block of 16 bytes never reaches into another page.
#pragma once

#include <bit>
#include <emmintrin.h>
#include <stdint.h>
#include <string.h>

// Texts are read up to the end of their page. Sanitizers would object, and are of more use to callers where they see
// every read of a text: under them the C library or a plain loop does the work.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define VORNCORE_READ_TO_PAGE_END false
#elif defined(__has_feature)
#define VORNCORE_READ_TO_PAGE_END                                                                                      \
    (!__has_feature(address_sanitizer) && !__has_feature(thread_sanitizer) && !__has_feature(memory_sanitizer))
#else
#define VORNCORE_READ_TO_PAGE_END true
#endif

namespace vorncore {

template <class Word>
uint64_t load_word(const char *bytes) {
    Word word;
    memcpy(&word, bytes, sizeof word);
    return word;
}

/// 0 when no byte of the word is zero; else the lowest bit set is the top one of the first zero byte.
inline uint64_t zeros_in(uint64_t word) { return (word - 0x0101010101010101) & ~word & 0x8080808080808080; }

/// The next eight bytes of a text; what stands behind its end does not count. Only aligned words are read, each with a
/// byte of the text in it: memory checkers know that for harmless.
inline uint64_t load_text(const char *text) {
    const uintptr_t before = reinterpret_cast<uintptr_t>(text) % 8;
    const uint64_t word = load_word<uint64_t>(text - before) >> 8 * before;
    if (!before || zeros_in(word | ~(~uint64_t{0} >> 8 * before))) return word;
    return word | load_word<uint64_t>(text - before + 8) << (64 - 8 * before);
}

/// strlen, inlined.
inline size_t text_length(const char *text) {
    if (!VORNCORE_READ_TO_PAGE_END) return strlen(text);
    const size_t before = reinterpret_cast<uintptr_t>(text) % 16;
    const auto *block = reinterpret_cast<const __m128i *>(text - before);
    const auto zeros_in = [](__m128i bytes) {
        return static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(bytes, _mm_setzero_si128())));
    };
    unsigned zeros = zeros_in(*block) >> before;
    if (zeros) return static_cast<size_t>(std::countr_zero(zeros));
    while (!(zeros = zeros_in(*++block))) {
    }
    return static_cast<size_t>(reinterpret_cast<const char *>(block) - text + std::countr_zero(zeros));
}

/// A walk to every byte of a text that is `a` or `b`, and to its NUL. What lies behind it may be changed: a text is
/// looked at once, a block ahead.
class marked_bytes {
  public:
    marked_bytes(char *text, char a, char b) : at_(text), a_(a), b_(b) {
        if (!VORNCORE_READ_TO_PAGE_END) return;
        const size_t before = reinterpret_cast<uintptr_t>(text) % 16;
        at_ -= before;
        marks_ = marks() & ~0u << before;
    }

    /// Not to be called again once it has found the NUL.
    char *next() {
        if (!VORNCORE_READ_TO_PAGE_END) {
            while (*at_ && *at_ != a_ && *at_ != b_) at_++;
            return at_++;
        }
        while (!marks_) {
            at_ += 16;
            marks_ = marks();
        }
        char *const found = at_ + std::countr_zero(marks_);
        marks_ &= marks_ - 1;
        return found;
    }

  private:
    /// A bit for each byte of the block at at_.
    unsigned marks() const {
        const __m128i bytes = *reinterpret_cast<const __m128i *>(at_);
        const __m128i a = _mm_cmpeq_epi8(bytes, _mm_set1_epi8(a_)), b = _mm_cmpeq_epi8(bytes, _mm_set1_epi8(b_));
        const __m128i zero = _mm_cmpeq_epi8(bytes, _mm_setzero_si128());
        return static_cast<unsigned>(_mm_movemask_epi8(_mm_or_si128(_mm_or_si128(a, b), zero)));
    }

    char *at_; // the block; the next byte where texts are not read in blocks
    unsigned marks_ = 0;
    char a_, b_;
};

} // namespace vorncore
