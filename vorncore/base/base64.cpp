#include "vorncore/base/base64.h"

#include <algorithm>
#include <string.h>

#include "vorncore/base/internal/base64_avx2.h"
#include "vorncore/base/internal/base64_table.h"
#include "vorncore/base/internal/cpu.h"

using namespace vorncore;

namespace {

uint8_t value_of(char c) { return base64_values[static_cast<unsigned char>(c)]; }

uint8_t byte_of(uint32_t bits) { return static_cast<uint8_t>(bits); }

void encode_group(const uint8_t *bytes, char *out) {
    const uint32_t bits = uint32_t{bytes[0]} << 16 | uint32_t{bytes[1]} << 8 | bytes[2];
    memcpy(out, &base64_pairs[bits >> 12], 2);
    memcpy(out + 2, &base64_pairs[bits & 4095], 2);
}

/// The 24 bits of four characters; more when one is not in the alphabet.
uint32_t group_bits(const char *text) {
    uint32_t bits = 0;
    for (size_t place = 0; place < 4; place++) bits |= base64_bits[place][static_cast<unsigned char>(text[place])];
    return bits;
}

/// Encodes groups of three bytes: all that `length` holds. Returns the end of the characters.
char *encode_groups(const uint8_t *bytes, size_t length, char *out) {
    const size_t done = length >= 28 && has_avx2() ? base64_encode_avx2(bytes, length, out) : 0;
    out += done / 3 * 4;
    for (size_t i = done; i + 3 <= length; i += 3, out += 4) encode_group(bytes + i, out);
    return out;
}

/// Encodes the one or two bytes that are left, with padding.
char *encode_rest(const uint8_t *bytes, size_t length, char *out) {
    if (length == 0) return out;
    const uint8_t filled[3] = {bytes[0], length == 2 ? bytes[1] : uint8_t{0}, 0};
    encode_group(filled, out);
    out[3] = '=';
    if (length == 1) out[2] = '=';
    return out + 4;
}

char *encode(const uint8_t *bytes, size_t length, char *out) {
    char *end = encode_rest(bytes + length / 3 * 3, length % 3, encode_groups(bytes, length, out));
    *end = '\0';
    return end;
}

/// Decodes groups of four characters of the alphabet up to the first that holds anything else. Returns the number of
/// characters decoded.
size_t decode_groups(const char *text, size_t length, uint8_t *out) {
    size_t done = length >= 32 && has_avx2() ? base64_decode_avx2(text, length, out) : 0;
    for (out += done / 4 * 3; length - done >= 4; done += 4, out += 3) {
        const uint32_t bits = group_bits(text + done);
        if (bits >= base64_not_clean) break;
        out[0] = byte_of(bits >> 16);
        out[1] = byte_of(bits >> 8);
        out[2] = byte_of(bits);
    }
    return done;
}

/// A group that is gathered character by character, without those to skip.
class group {
  public:
    bool empty() const { return filled_ == 0; }
    bool full() const { return filled_ == 4; }
    void add(char c) {
        const uint8_t value = value_of(c);
        if (value != base64_skip) values_[filled_++] = value;
    }
    /// Empties the full group into `out`. Returns the number of bytes, less than 3 at padding; -1 when malformed.
    int decode(uint8_t *out) {
        const auto [a, b, c, d] = values_;
        filled_ = 0;
        if (a == base64_padding || b == base64_padding) return -1;
        out[0] = byte_of(uint32_t{a} << 2 | b >> 4);
        if (c == base64_padding) return 1;
        out[1] = byte_of(uint32_t{b} << 4 | c >> 2);
        if (d == base64_padding) return 2;
        out[2] = byte_of(uint32_t{c} << 6 | d);
        return 3;
    }

  private:
    uint8_t values_[4];
    int filled_ = 0;
};

/// Decodes the groups that begin before `length`, which must not be past the NUL. Returns the number of bytes or -1.
ptrdiff_t decode(const char *text, size_t length, uint8_t *const begin) {
    uint8_t *out = begin;
    for (const char *end = text + length; text < end;) {
        const size_t done = decode_groups(text, static_cast<size_t>(end - text), out);
        text += done;
        out += done / 4 * 3;
        if (text >= end) break;
        group careful;
        for (; !careful.full() && *text; text++) careful.add(*text); // kept: up to the NUL, not to `end`
        if (!careful.full()) return careful.empty() ? out - begin : -1;
        const int count = careful.decode(out);
        if (count < 0) return -1;
        out += count;
        if (count < 3) break;
    }
    return out - begin;
}

/// Gathers output for a stream in an area of `size` bytes, which is written whenever it is full.
template <size_t size>
class staging_area {
  public:
    explicit staging_area(xpi_ostream *out) : out_(out) {}
    bool put(const void *data, size_t length) {
        for (const auto *bytes = static_cast<const char *>(data); length;) {
            const size_t part = std::min(length, size - filled_);
            memcpy(area_ + filled_, bytes, part);
            filled_ += part;
            bytes += part;
            length -= part;
            if (filled_ == size && !finish()) return false;
        }
        return true;
    }
    bool finish() {
        const auto length = static_cast<uint32_t>(filled_);
        filled_ = 0;
        return !length || out_->write(out_, area_, length) >= 0;
    }

  private:
    xpi_ostream *out_;
    size_t filled_ = 0;
    char area_[size];
};

/// The next chunk of an input stream. Its length is 0 at the end, negative on failure: a stream that fails may leave
/// the length alone.
int32_t next_chunk(xpi_istream *in, const char *&chunk) {
    uint32_t length = UINT32_MAX;
    chunk = in->read(in, &length);
    return chunk || !length ? static_cast<int32_t>(length) : -1;
}

constexpr size_t step = 768; // bytes that the stream coders encode or decode at a time, in whole groups

} // namespace

int xp_base64_encoded_size(int length) { return static_cast<int>((int64_t{length} + 2) / 3 * 4); }

char *xp_base64_encode(const char *text, char *destination) {
    encode(reinterpret_cast<const uint8_t *>(text), strlen(text), destination);
    return destination;
}

int xp_base64_encode_data(const void *bytes, int length, char *destination) {
    const auto size = static_cast<size_t>(std::max(length, 0));
    return static_cast<int>(encode(static_cast<const uint8_t *>(bytes), size, destination) - destination);
}

char *xp_base64_decode(const char *text, char *destination) {
    const ptrdiff_t length = decode(text, strlen(text), reinterpret_cast<uint8_t *>(destination));
    if (length < 0) return nullptr;
    destination[length] = '\0';
    return destination;
}

int xp_base64_decode_data(const char *text, int length, void *destination) {
    const size_t bound = strnlen(text, static_cast<size_t>(std::max(length, 0)));
    return static_cast<int>(decode(text, bound, static_cast<uint8_t *>(destination)));
}

int xp_base64_encode_stream(xpi_istream *in, xpi_ostream *out) {
    staging_area<1020> written(out);
    uint8_t carried[3];
    size_t carry = 0; // bytes carried over, fewer than 3
    char text[step / 3 * 4];
    const char *chunk;
    int32_t length;
    while ((length = next_chunk(in, chunk)) > 0) {
        const auto *bytes = reinterpret_cast<const uint8_t *>(chunk), *const end = bytes + length;
        while (bytes < end) {
            if (carry || end - bytes < 3) {
                carried[carry++] = *bytes++;
                if (carry < 3) continue;
                encode_group(carried, text);
                carry = 0;
                if (!written.put(text, 4)) return 0;
                continue;
            }
            const size_t now = std::min(step, static_cast<size_t>(end - bytes) / 3 * 3);
            if (!written.put(text, static_cast<size_t>(encode_groups(bytes, now, text) - text))) return 0;
            bytes += now;
        }
    }
    if (length < 0) return 0;
    return written.put(text, static_cast<size_t>(encode_rest(carried, carry, text) - text)) && written.finish();
}

int xp_base64_decode_stream(xpi_istream *in, xpi_ostream *out) {
    staging_area<1021> written(out);
    group careful;
    uint8_t bytes[step];
    const char *chunk;
    int32_t length;
    while ((length = next_chunk(in, chunk)) > 0) {
        for (const char *const end = chunk + length; chunk < end;) {
            if (careful.empty()) {
                const size_t done =
                    decode_groups(chunk, std::min(step / 3 * 4, static_cast<size_t>(end - chunk)), bytes);
                chunk += done;
                if (!written.put(bytes, done / 4 * 3)) return 0;
                if (chunk == end) break;
            }
            careful.add(*chunk++);
            if (!careful.full()) continue;
            const int count = careful.decode(bytes);
            if (count < 0 || !written.put(bytes, static_cast<size_t>(count))) return 0;
            if (count < 3) return written.finish(); // padding
        }
    }
    return length == 0 && careful.empty() && written.finish();
}
