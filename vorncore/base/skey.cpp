#include "vorncore/base/skey.h"

#include <stdint.h>
#include <string.h>

#include "vorncore/base/internal/table.h"

namespace {

constexpr size_t signature_size = 4;
constexpr uint32_t signatures = 62 * 62 * 62 * 62;

/// 31 bits of a full-period mixing sequence.
consteval int32_t seed_word(uint64_t index) {
    uint64_t z = (index + 1) * 0x9E3779B97F4A7C15u;
    z = (z ^ z >> 30) * 0xBF58476D1CE4E5B9u;
    z = (z ^ z >> 27) * 0x94D049BB133111EBu;
    return static_cast<int32_t>(z >> 33);
}

// A constant of the signing scheme: every key handed out depends on it, so no word may ever change.
constexpr int32_t seeds[256] = {VORNCORE_TABLE_256(seed_word)};

} // namespace

static char *_ql_conv62(uint32_t value, char *out, int width) {
    static const char digits[] = "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
    for (int at = width - 2; at >= 0; at--, value /= 62) out[at] = digits[value % 62];
    return value ? nullptr : out;
}

/// Writes the four signature characters of a key, without a terminator.
static void _ql_hashf(const char *key, char *out) {
    if (!key || !*key) {
        memcpy(out, "0000", signature_size);
        return;
    }
    // Signed 32-bit arithmetic that wraps; only the right shift and the remainder look at the sign.
    uint32_t h = static_cast<uint32_t>(seeds[static_cast<unsigned char>(*key)]);
    for (; *key; key++) {
        const int32_t x = (static_cast<unsigned char>(*key) ^ 0x80) - 0x80; // as a signed char
        const uint32_t halved = static_cast<uint32_t>(static_cast<int32_t>(h) >> 1);
        h = static_cast<uint32_t>(x) ^ halved ^ (h << (static_cast<uint32_t>(x % 31) & 31));
    }
    if (h >> 31) h = -h;
    _ql_conv62(h % signatures, out, signature_size + 1);
}

char *xp_encode_rawskey(const char *raw, char *destination) {
    char signature[signature_size];
    _ql_hashf(raw, signature);
    if (!raw) raw = "";
    memmove(destination + signature_size, raw, strlen(raw) + 1);
    memcpy(destination, signature, signature_size);
    return destination;
}

char *xprp_encode_rawskey(xp_respool *rp, const char *raw) {
    const size_t length = raw ? strlen(raw) : 0;
    auto *destination = static_cast<char *>(xprp_malloc(rp, length + signature_size + 1));
    return destination ? xp_encode_rawskey(raw, destination) : nullptr;
}

char *xp_decode_skey(const char *key) {
    if (strnlen(key, signature_size) < signature_size) return nullptr;
    char signature[signature_size];
    _ql_hashf(key + signature_size, signature);
    return memcmp(key, signature, signature_size) == 0 ? const_cast<char *>(key + signature_size) : nullptr;
}
