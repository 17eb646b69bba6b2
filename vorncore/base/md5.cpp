#include "vorncore/base/md5.h"

#include <algorithm>
#include <bit>
#include <string.h>
#include <utility>

#include "vorncore/base/chartype.h"

static_assert(std::endian::native == std::endian::little, "words are loaded and stored as they are");

const uint8_t xp_md5_padding[64] = {0x80};

namespace {

constexpr size_t block_size = 64;
constexpr size_t length_at = 56; // place of the bit count in the last block

/// |sin(step + 1)| in units of 2^-32.
constexpr uint32_t sine(int step) {
    const long double circle = 6.283185307179586476925286766559006L;
    const long double whole = (step + 1) / circle;
    const long double x = (whole - static_cast<int>(whole)) * circle;
    long double sum = 0, term = x;
    for (int n = 2; n < 60; n += 2) {
        sum += term;
        term *= -x * x / (n * (n + 1));
    }
    return static_cast<uint32_t>((sum < 0 ? -sum : sum) * 4294967296.0L);
}

uint32_t word(const uint8_t *block, int index) {
    uint32_t value;
    memcpy(&value, block + 4 * index, sizeof value);
    return value;
}

/// Adds the function of a round to a sum. Each step waits for b, the result of the step before, so what does not need b
/// stands where it can be done meanwhile. In the second round a sum replaces the "or" of two terms that share no bit.
template <int Round>
uint32_t mix(uint32_t sum, uint32_t b, uint32_t c, uint32_t d) {
    if constexpr (Round == 0) return sum + (d ^ (b & (c ^ d)));
    if constexpr (Round == 1) return sum + (c & ~d) + (b & d);
    if constexpr (Round == 2) return sum + (b ^ (c ^ d));
    if constexpr (Round == 3) return sum + (c ^ (b | ~d));
}

/// One of the 64 steps. The words change places from step to step instead of being moved.
template <int Step>
[[gnu::always_inline]] inline void step(uint32_t (&words)[4], const uint8_t *block) {
    constexpr int round = Step / 16;
    constexpr uint32_t constant = sine(Step);
    constexpr int input[] = {Step, 5 * Step + 1, 3 * Step + 5, 7 * Step};
    constexpr int shifts[4][4] = {{7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};
    uint32_t &a = words[-Step & 3];
    const uint32_t b = words[(1 - Step) & 3], c = words[(2 - Step) & 3], d = words[(3 - Step) & 3];
    const uint32_t sum = mix<round>(a + word(block, input[round] & 15) + constant, b, c, d);
    a = std::rotl(sum, shifts[round][Step & 3]) + b;
}

template <int... Steps>
[[gnu::always_inline]] inline void run(uint32_t (&words)[4], const uint8_t *block,
                                       std::integer_sequence<int, Steps...>) {
    (step<Steps>(words, block), ...);
}

} // namespace

/// Digests whole blocks, wherever they lie.
static void __xp_md5_transform(uint32_t *state, const uint8_t *blocks, size_t count) {
    uint32_t words[4];
    memcpy(words, state, sizeof words);
    for (; count > 0; count--, blocks += block_size) {
        const uint32_t before[4] = {words[0], words[1], words[2], words[3]};
        run(words, blocks, std::make_integer_sequence<int, 64>());
        for (int i = 0; i < 4; i++) words[i] += before[i];
    }
    memcpy(state, words, sizeof words);
}

void xp_md5_init(xp_md5 *md5) {
    constexpr uint32_t start[4] = {0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476};
    memcpy(md5->state, start, sizeof start);
    md5->count_high = md5->count_low = 0;
    md5->has_text = 0;
}

void xp_md5_update(xp_md5 *md5, const void *bytes, int length) {
    if (length <= 0) return;
    const auto *from = static_cast<const uint8_t *>(bytes);
    size_t left = static_cast<size_t>(length);
    const size_t used = md5->count_low % block_size;
    md5->count_high += __builtin_add_overflow(md5->count_low, static_cast<uint32_t>(length), &md5->count_low);
    if (used) {
        const size_t fill = std::min(block_size - used, left);
        memcpy(md5->block + used, from, fill);
        if (used + fill < block_size) return;
        __xp_md5_transform(md5->state, md5->block, 1);
        from += fill;
        left -= fill;
    }
    __xp_md5_transform(md5->state, from, left / block_size);
    memcpy(md5->block, from + left / block_size * block_size, left % block_size);
}

const uint8_t *xp_md5_close(xp_md5 *md5) {
    const uint64_t bits = (static_cast<uint64_t>(md5->count_high) << 32 | md5->count_low) * 8;
    const size_t used = md5->count_low % block_size;
    xp_md5_update(md5, xp_md5_padding, static_cast<int>((used < length_at ? 0 : block_size) + length_at - used));
    memcpy(md5->block + length_at, &bits, sizeof bits);
    __xp_md5_transform(md5->state, md5->block, 1);
    memcpy(md5->block, md5->state, sizeof md5->state);
    md5->has_text = 0;
    return md5->block;
}

const char *xp_md5_result_str(xp_md5 *md5) {
    if (md5->has_text) return md5->text;
    const auto *lower_case = xp_byte_hexa_str_map_D1A3841C_A89F_48c0_80B1_6828D3B9640D + 256;
    for (size_t i = 0; i < sizeof md5->state; i++) memcpy(md5->text + 2 * i, lower_case[md5->block[i]], 2);
    md5->text[2 * sizeof md5->state] = '\0';
    md5->has_text = 1;
    return md5->text;
}
