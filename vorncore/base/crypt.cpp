#include "vorncore/base/crypt.h"

#include <limits.h>
#include <string.h>

#include <bit>

#include "vorncore/base/hashtable.h"
#include "vorncore/base/md5.h"
#include "vorncore/io/rand.h"
#include "vorncore/io/timeutil.h"

namespace {

constexpr int header_size = 8;
constexpr int key_cycle = 15; // kept: the sixteenth byte takes no part

uint32_t low_nibble(uint32_t word) { return word & 15; }

/// The hash of a header before its first byte.
uint32_t seed_of(uint8_t first_byte) { return xp_hash_randseed[255 - first_byte]; }

} // namespace

static uint32_t __hashf2(const uint8_t *header) {
    uint32_t h = seed_of(header[0]);
    for (int i = 0; i < header_size; i++) h = std::rotl(h, 4) ^ header[i];
    return h;
}

/// A header whose hash is `salt`. The upper half of a byte meets the lower half of the one before it in the hash, where
/// both cancel out: so the halves are random, but for what makes the hash come out right.
static void __make_hashkey(uint8_t *header, uint32_t salt, xp_random *random) {
    header[0] = static_cast<uint8_t>(xp_rand32u(random));
    const uint32_t first = header[0] ^ std::rotl(seed_of(header[0]), 4); // the hash after one byte
    uint32_t upper = low_nibble(first) ^ salt >> 28;
    for (int i = 1; i < header_size; i++) {
        const uint32_t draw = i < header_size - 1 ? low_nibble(xp_rand32u(random)) : 0;
        header[i] =
            static_cast<uint8_t>(upper << 4 | (draw ^ low_nibble(salt >> (28 - 4 * i) ^ first >> (32 - 4 * i))));
        upper = draw;
    }
}

namespace {

/// Both ways: XORs bytes with those of the salt, highest first, and of the key in turn.
void apply(const uint8_t *key, uint32_t salt, const uint8_t *input, int length, uint8_t *output) {
    constexpr int period = 60; // of four bytes and of fifteen
    uint8_t mask[period];
    for (int i = 0; i < period; i++) mask[i] = key[i % key_cycle] ^ static_cast<uint8_t>(salt >> (24 - i % 4 * 8));
    for (; length >= period; length -= period, input += period, output += period)
        for (int i = 0; i < period; i++) output[i] = input[i] ^ mask[i];
    for (int i = 0; i < length; i++) output[i] = input[i] ^ mask[i];
}

} // namespace

void xp_crypt_init(uint8_t *key, const void *phrase, int length) {
    xp_md5 md5;
    xp_md5_init(&md5);
    xp_md5_update(&md5, phrase, length);
    memcpy(key, xp_md5_close(&md5), 16);
}

int xp_crypt_encrypt(const uint8_t *key, const void *input, int length, void *output) {
    if (length < 0 || length > INT_MAX - header_size) return -1;
    xp_random random;
    xp_rand32_init(&random, xp_hash_randseed[xp_time_us() % 256]);
    const uint32_t salt = xp_rand32u(&random);
    auto *const header = static_cast<uint8_t *>(output);
    __make_hashkey(header, salt, &random);
    apply(key, salt, static_cast<const uint8_t *>(input), length, header + header_size);
    return length + header_size;
}

int xp_crypt_decrypt(const uint8_t *key, const void *input, int length, void *output) {
    if (length < header_size) return -1;
    const auto *const header = static_cast<const uint8_t *>(input);
    apply(key, __hashf2(header), header + header_size, length - header_size, static_cast<uint8_t *>(output));
    return length - header_size;
}
