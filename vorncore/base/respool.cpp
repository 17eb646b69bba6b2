#include "vorncore/base/respool.h"

#include <unistd.h>

#include "vorncore/base/format.h"
#include "vorncore/base/internal/alloc.h"
#include "vorncore/base/internal/jointexts.h"
#include "vorncore/base/stream.h"

using namespace vorncore;

namespace {

constexpr uint32_t initial_capacity = 16;

bool init(xp_respool *rp) {
    *rp = {0, initial_capacity, try_array<xp_resentry>(initial_capacity)};
    return rp->entries;
}

bool resize(xp_respool *rp, uint32_t capacity) {
    auto *entries = try_resize(rp->entries, capacity);
    if (!entries) return false;
    rp->entries = entries;
    rp->capacity = capacity;
    return true;
}

bool push(xp_respool *rp, void *value, xp_release_fn release) {
    uint32_t doubled;
    if (static_cast<uint32_t>(rp->count) == rp->capacity &&
        (__builtin_mul_overflow(rp->capacity, 2u, &doubled) || !resize(rp, doubled)))
        return false;
    rp->entries[rp->count++] = {release, value};
    return true;
}

bool is_owned(const xp_respool *rp, int index) { return index >= 0 && index < rp->count && rp->entries[index].release; }

uintptr_t address_of(const void *value) { return reinterpret_cast<uintptr_t>(value); }

int find(const xp_respool *rp, uintptr_t value) {
    for (int i = rp->count - 1; i >= 0; i--)
        if (rp->entries[i].release && address_of(rp->entries[i].value) == value) return i;
    return -1;
}

/// The entry is empty before its procedure runs, so that one which comes back to the pool does not run twice.
void release(xp_resentry *entry) {
    const xp_release_fn procedure = entry->release;
    entry->release = nullptr;
    procedure(entry->value);
}

} // namespace

static void __xp_free(void *block) { free(block); }

static void __close_fd(void *descriptor) { close(static_cast<int>(reinterpret_cast<intptr_t>(descriptor))); }

static void __destroy_interface(void *stream) {
    if (stream) static_cast<xpi_istream *>(stream)->destroy(stream);
}

namespace {

/// Takes a new block, also a null one; a block that finds no entry is freed.
void *own_block(xp_respool *rp, void *block) {
    if (push(rp, block, __xp_free)) return block;
    free(block);
    return nullptr;
}

char *own_text(xp_respool *rp, char *text) { return static_cast<char *>(own_block(rp, text)); }

} // namespace

void xp_init_respool(xp_respool *rp) {
    if (!init(rp)) out_of_memory("xp_init_respool", bytes_of<xp_resentry>(initial_capacity));
}

xp_respool *xp_create_respool(void) { return create_record<xp_respool>(init); }

void xp_close_respool(xp_respool *rp) {
    xprp_clear(rp);
    free(rp->entries);
}

void xp_destroy_respool(xp_respool *rp) { destroy_record(rp, xp_close_respool); }

void xprp_clear(xp_respool *rp) { xprp_pop_ex(rp, -1); }

void xprp_reset(xp_respool *rp) {
    xprp_clear(rp);
    // A vector that cannot be shrunk is larger than recorded, which harms nobody.
    if (rp->capacity != initial_capacity && !resize(rp, initial_capacity)) rp->capacity = initial_capacity;
}

void *xprp_add(xp_respool *rp, void *value, xp_release_fn release) {
    return push(rp, value, release) ? value : nullptr;
}

int xprp_add_file(xp_respool *rp, int descriptor) {
    if (descriptor < 0) return descriptor;
    return push(rp, reinterpret_cast<void *>(static_cast<intptr_t>(descriptor)), __close_fd) ? descriptor : -1;
}

void *xprp_add_interface(xp_respool *rp, void *stream) { return xprp_add(rp, stream, __destroy_interface); }

void *xprp_malloc(xp_respool *rp, size_t size) { return own_block(rp, malloc(size)); }

void *xprp_calloc(xp_respool *rp, size_t count, size_t size) { return own_block(rp, calloc(count, size)); }

void *xprp_realloc(xp_respool *rp, void *block, size_t size) {
    const uintptr_t address = address_of(block); // the pointer itself must not be used once the block moved
    void *const resized = realloc(block, size);
    if (address_of(resized) == address) return resized;
    if (!address) return own_block(rp, resized);
    // Kept: the old block is given up also when it could not be resized.
    xprp_forget(rp, find(rp, address));
    // The old block is gone: a null here would tell the caller that it is still there.
    if (!push(rp, resized, __xp_free) && resized) out_of_memory("xprp_realloc", bytes_of<xp_resentry>(rp->count + 1));
    return resized;
}

char *xprp_strdup(xp_respool *rp, const char *text) { return text ? own_text(rp, strdup(text)) : nullptr; }

char *xprp_strcat(xp_respool *rp, const char *a, const char *b) {
    return xprp_strcat_v(rp, a, b, static_cast<char *>(nullptr));
}

char *xprp_strcat_v(xp_respool *rp, const char *text, ...) {
    va_list others;
    va_start(others, text);
    char *joined = own_text(rp, join_texts(text, others));
    va_end(others);
    return joined;
}

char *xprp_vprintf(xp_respool *rp, const char *format, va_list arguments) {
    return own_text(rp, xp_vsprintf(format, arguments));
}

char *xprp_printf(xp_respool *rp, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    char *text = xprp_vprintf(rp, format, arguments);
    va_end(arguments);
    return text;
}

int xprp_last_index(const xp_respool *rp) { return rp->count - 1; }

void xprp_pop_ex(xp_respool *rp, int mark) {
    if (mark < 0) mark = -1;
    while (rp->count - 1 > mark) {
        xp_resentry *entry = &rp->entries[--rp->count];
        if (entry->release) release(entry);
    }
}

int xprp_pop(xp_respool *rp) {
    while (rp->count > 0) {
        xp_resentry *entry = &rp->entries[--rp->count];
        if (!entry->release) continue;
        release(entry);
        return 1;
    }
    return 0;
}

int xprp_search(const xp_respool *rp, const void *value) { return find(rp, address_of(value)); }

int xprp_free(xp_respool *rp, int index) {
    if (!is_owned(rp, index)) return 0;
    release(&rp->entries[index]);
    return 1;
}

int xprp_free_obj(xp_respool *rp, const void *value) { return xprp_free(rp, xprp_search(rp, value)); }

int xprp_forget(xp_respool *rp, int index) {
    if (!is_owned(rp, index)) return 0;
    rp->entries[index].release = nullptr;
    return 1;
}

int xprp_forget_obj(xp_respool *rp, const void *value) { return xprp_forget(rp, xprp_search(rp, value)); }
