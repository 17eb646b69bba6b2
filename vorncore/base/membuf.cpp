#include "vorncore/base/membuf.h"

#include <algorithm>

#include "vorncore/base/format.h"
#include "vorncore/base/internal/alloc.h"
#include "vorncore/base/internal/urlcode.h"

using namespace vorncore;

namespace {

// Every buffer without storage points here. It is never written, so that buffers of several threads may share it.
char empty_byte[1];

struct format_target {
    xp_fmt_target target; // first: the engine hands this to the callback
    xp_membuf *mb;
};

uint64_t length_of(const xp_membuf *mb) { return static_cast<uint64_t>(mb->cursor - mb->data); }

/// Gives the buffer storage of `capacity` bytes and one for a terminator.
bool set_capacity(xp_membuf *mb, uint64_t capacity) {
    if (capacity >= PTRDIFF_MAX) return false;
    const uint64_t length = length_of(mb);
    void *storage = realloc(mb->capacity ? mb->data : nullptr, capacity + 1);
    if (!storage) return false;
    mb->data = static_cast<char *>(storage);
    mb->cursor = mb->data + length;
    mb->capacity = capacity;
    return true;
}

void drop_storage(xp_membuf *mb) {
    mb->data = mb->cursor = empty_byte;
    mb->capacity = 0;
}

/// `capacity` doubled until it is at least `need`; saturates.
uint64_t doubled(uint64_t capacity, uint64_t need) {
    while (capacity < need) capacity = saturating_product(capacity, 2);
    return capacity;
}

/// Room for `count` more bytes, with the capacity that doubling before each byte that finds it full would reach.
bool grow_bytewise(xp_membuf *mb, uint64_t count) {
    const uint64_t need = length_of(mb) + count;
    if (need <= mb->capacity) return true;
    return set_capacity(mb, doubled(mb->capacity ? mb->capacity : mb->initial_capacity, need));
}

/// Bytes that byte-wise appends may still add.
uint64_t allowance(const xp_membuf *mb) {
    const uint64_t length = length_of(mb);
    if (!mb->max_length) return SIZE_MAX;
    return mb->max_length > length ? mb->max_length - length : 0;
}

/// Copies bytes behind the contents after `grow(mb)` has made room; they may lie in the storage that it moves.
template <class Grow>
bool append(xp_membuf *mb, const char *bytes, uint64_t length, Grow grow) {
    const auto offset = reinterpret_cast<uintptr_t>(bytes) - reinterpret_cast<uintptr_t>(mb->data);
    const bool own = offset < mb->capacity;
    if (!grow(mb)) return false;
    if (length) memcpy(mb->cursor, own ? mb->data + offset : bytes, length);
    mb->cursor += length;
    return true;
}

/// The result of a byte-wise append: what fitted stays when the maximum length ended it, nothing when memory did.
int settled(xp_membuf *mb, uint64_t old_length, bool whole) {
    if (!whole && allowance(mb)) mb->cursor = mb->data + old_length;
    return whole;
}

bool put(xp_membuf *mb, char c) {
    if (!allowance(mb) || !grow_bytewise(mb, 1)) return false;
    *mb->cursor++ = c;
    return true;
}

} // namespace

static bool __preparebuf(xp_membuf *mb, uint64_t need) {
    if (mb->max_length && mb->max_length < need) return false;
    if (need <= mb->capacity) return true;
    return set_capacity(mb, doubled(mb->capacity ? mb->capacity : 2, need));
}

static int32_t newbuf(xp_fmt_target *target) {
    xp_membuf *mb = reinterpret_cast<format_target *>(target)->mb;
    const uint64_t old = mb->capacity, max = mb->max_length;
    if (max && old >= max) return 0;
    const uint64_t wanted = std::max<uint64_t>(saturating_product(old, 2), mb->initial_capacity);
    if (!set_capacity(mb, max ? std::min(wanted, max) : wanted)) return 0;
    target->begin = mb->data + old;
    target->end = mb->data + mb->capacity;
    return 1;
}

void xp_init_membuf(xp_membuf *mb, uint32_t initial) { *mb = {empty_byte, 0, empty_byte, std::max(initial, 1u), 0}; }

xp_membuf *xp_create_membuf(uint32_t initial) { return create_record<xp_membuf>(xp_init_membuf, initial); }

void xp_close_membuf(xp_membuf *mb) {
    if (mb->capacity) free(mb->data);
}

void xp_destroy_membuf(xp_membuf *mb) { destroy_record(mb, xp_close_membuf); }

void xpmb_clear(xp_membuf *mb) { mb->cursor = mb->data; }

void xpmb_reset(xp_membuf *mb) {
    xp_close_membuf(mb);
    drop_storage(mb);
}

void xpmb_set_maxlength(xp_membuf *mb, uint64_t max) {
    mb->max_length = max;
    if (max && length_of(mb) > max) mb->cursor = mb->data + max;
}

int(xpmb_add_char)(xp_membuf *mb, int byte) { return put(mb, static_cast<char>(byte)); }

int xpmb_add_str(xp_membuf *mb, const char *text) {
    const uint64_t most = allowance(mb);
    const size_t length = mb->max_length ? strnlen(text, most) : strlen(text);
    const bool whole = length < most || !text[length];
    return append(mb, text, length, [=](xp_membuf *grown) { return grow_bytewise(grown, length); }) && whole;
}

int xpmb_add_str_v(xp_membuf *mb, const char *text, ...) {
    const uint64_t old_length = length_of(mb);
    bool added = true;
    va_list texts;
    va_start(texts, text);
    for (; text && added; text = va_arg(texts, const char *)) added = xpmb_add_str(mb, text);
    va_end(texts);
    return settled(mb, old_length, added);
}

int xpmb_add_data(xp_membuf *mb, const void *bytes, uint64_t length) {
    const uint64_t need = saturating_sum(length_of(mb), length);
    return append(mb, static_cast<const char *>(bytes), length,
                  [=](xp_membuf *grown) { return __preparebuf(grown, need); });
}

int xpmb_add_str_url_encode(xp_membuf *mb, const char *text) {
    const uint64_t old_length = length_of(mb);
    const auto room_end = [mb] { return mb->cursor + std::min(allowance(mb), mb->capacity - length_of(mb)); };
    char *out = mb->cursor, *end = room_end();
    const char *left = url_encode(text, [&](const url_code &code) {
        if (end - out >= 3) {
            memcpy(out, &code, sizeof code); // the fourth byte lands in the terminator's place at the worst
            out += code.length;
            return true;
        }
        mb->cursor = out;
        int count = 0;
        while (count < code.length && put(mb, code.text[count])) count++;
        out = mb->cursor;
        end = room_end();
        return count == code.length;
    });
    mb->cursor = out;
    return settled(mb, old_length, !*left);
}

int xpmb_vprintf(xp_membuf *mb, const char *format, va_list arguments) {
    format_target out = {{mb->cursor, mb->data + mb->capacity, nullptr, newbuf}, mb};
    const int count = xp_vformat(&out.target, format, arguments);
    if (count >= 0) mb->cursor = out.target.cursor;
    return count;
}

int xpmb_printf(xp_membuf *mb, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int count = xpmb_vprintf(mb, format, arguments);
    va_end(arguments);
    return count;
}

int xpmb_set_size(xp_membuf *mb, uint64_t size) {
    if (size > length_of(mb) && !__preparebuf(mb, size)) return 0;
    mb->cursor = mb->data + size;
    return 1;
}

int xpmb_ensure(xp_membuf *mb, uint64_t size) { return __preparebuf(mb, size); }

char *xpmb_tostr(xp_membuf *mb) {
    if (mb->capacity) *mb->cursor = '\0'; // without storage there is the shared byte, which is NUL
    return mb->data;
}

static xp_membuf *buffer_of(void *stream) {
    return static_cast<xp_membuf *>(static_cast<xpi_iostream *>(stream)->context);
}

static void __stream_destroy(void *stream) { free(stream); }

static const char *__stream_lasterrmsg(void *) { return "NO ERROR"; }

static int32_t __stream_lasterrcode(void *) { return 0; }

static char *__stream_read(void *stream, uint32_t *length) {
    uint32_t &offset = static_cast<xpi_iostream *>(stream)->read_offset;
    const xp_membuf *mb = buffer_of(stream);
    const uint64_t readable = std::min<uint64_t>(length_of(mb), UINT32_MAX), first = offset;
    *length = readable > first ? static_cast<uint32_t>(readable - first) : 0;
    if (!*length) return nullptr;
    offset += *length;
    return mb->data + first;
}

static int32_t __stream_write(void *stream, const void *data, uint32_t length) {
    xpmb_add_data(buffer_of(stream), data, length);
    return static_cast<int32_t>(length); // kept: whatever came of it
}

static int32_t __stream_flush(void *) { return 1; }

xpi_iostream *xpmb_create_iostream(xp_membuf *mb) {
    static constexpr xpi_iostream operations = {__stream_destroy,
                                                __stream_lasterrmsg,
                                                __stream_lasterrcode,
                                                __stream_read,
                                                __stream_write,
                                                __stream_flush,
                                                nullptr,
                                                0};
    return create_record<xpi_iostream>([mb](xpi_iostream *stream) {
        *stream = operations;
        stream->context = mb;
    });
}
