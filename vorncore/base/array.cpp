#include "vorncore/base/array.h"

#include <algorithm>

#include "vorncore/base/internal/alloc.h"
#include "vorncore/base/internal/arrayroom.h"
#include "vorncore/base/internal/sort.h"
#include "vorncore/base/internal/tokenizer.h"

using namespace vorncore;

namespace {

bool init(xp_array *array, int capacity, xp_copy_fn copy, xp_release_fn release) {
    *array = {try_array<void *>(capacity), copy, release, capacity, capacity, 0};
    return array->items;
}

void *stored(const xp_array *array, const void *item) {
    return array->copy ? array->copy(item) : const_cast<void *>(item);
}

void release(const xp_array *array, int index) {
    if (array->release) array->release(array->items[index]);
}

size_t bytes_between(int first, int end) { return static_cast<size_t>(end - first) * sizeof(void *); }

/// The items in a vector of another size, null when memory is short and for a negative size.
void **resized(const xp_array *array, int capacity) {
    if (capacity < 0) return nullptr;
    if (!is_in_room(array)) return try_resize(array->items, capacity);
    void **const items = try_array<void *>(capacity);
    if (items) memcpy(items, array->items, bytes_between(0, array->count));
    return items;
}

bool resize(xp_array *array, int capacity) {
    void **const items = resized(array, capacity);
    if (!items) return false;
    array->items = items;
    array->capacity = capacity;
    return true;
}

/// The capacity doubled until it is at least `wanted`; -1 where doubling never gets there.
int doubled(int capacity, int wanted) {
    if (capacity <= 0) return -1;
    while (capacity < wanted)
        if (__builtin_add_overflow(capacity, capacity, &capacity)) return -1;
    return capacity;
}

bool make_room_for_one(xp_array *array) {
    return array->capacity > array->count || resize(array, doubled(array->capacity, array->count + 1));
}

} // namespace

static void __xpar_reverse_ex(xp_array *array, int i, int j) {
    for (; i < j; i++, j--) std::swap(array->items[i], array->items[j]);
}

void xp_init_array(xp_array *array, int capacity, xp_copy_fn copy, xp_release_fn release) {
    if (!init(array, capacity, copy, release)) out_of_memory("xp_init_array", bytes_of<void *>(capacity));
}

xp_array *xp_create_array(int capacity, xp_copy_fn copy, xp_release_fn release) {
    return create_record<xp_array>(init, capacity, copy, release);
}

void xp_close_array(xp_array *array) {
    xpar_clear(array);
    if (!is_in_room(array)) free(array->items);
}

void xp_destroy_array(xp_array *array) { destroy_record(array, xp_close_array); }

void xpar_clear(xp_array *array) {
    if (array->release)
        for (int i = 0; i < array->count; i++) array->release(array->items[i]);
    array->count = 0;
}

xp_array *xpar_reset(xp_array *array) {
    xpar_clear(array);
    // A vector that cannot be shrunk is larger than recorded, which harms nobody.
    if (array->capacity != array->initial_capacity && !resize(array, array->initial_capacity))
        array->capacity = array->initial_capacity;
    return array;
}

xp_array *xpar_forget_all(xp_array *array) {
    array->count = 0;
    return array;
}

void xpar_ensure(xp_array *array, int wanted) {
    if (array->capacity < wanted && !resize(array, doubled(array->capacity, wanted)))
        out_of_memory("xpar_ensure", bytes_of<void *>(wanted));
}

void xpar_add(xp_array *array, const void *item) {
    if (!make_room_for_one(array)) out_of_memory("xpar_add", bytes_of<void *>(array->count + 1));
    array->items[array->count] = stored(array, item);
    array->count++;
}

xp_array *xpar_insert(xp_array *array, int index, const void *item) {
    if (!make_room_for_one(array)) return nullptr;
    void *const kept = stored(array, item);
    void **slot = array->items + index;
    if (index != array->count) memmove(slot + 1, slot, bytes_between(index, array->count));
    *slot = kept;
    array->count++;
    return array;
}

void xpar_del(xp_array *array, int index) {
    release(array, index);
    array->count--;
    void **slot = array->items + index;
    if (index != array->count) memmove(slot, slot + 1, bytes_between(index, array->count));
}

void xpar_replace(xp_array *array, int index, const void *item) {
    release(array, index);
    array->items[index] = stored(array, item);
}

void xpar_drain_from(xp_array *destination, xp_array *source) {
    if (!source->count) return;
    xpar_ensure(destination, destination->count + source->count);
    memcpy(destination->items + destination->count, source->items, bytes_between(0, source->count));
    destination->count += source->count;
    source->count = 0;
}

void xpar_sort(xp_array *array, xp_compare_fn compare) {
    if (array->count > 1) pointer_sort(array->items, compare).sort(0, array->count - 1);
}

void xpar_uniq(xp_array *array, xp_compare_fn compare) {
    if (array->count < 2) return;
    int kept = 0;
    for (int i = 1; i < array->count; i++) {
        if (compare(array->items[kept], array->items[i]) == 0)
            release(array, i);
        else
            array->items[++kept] = array->items[i];
    }
    array->count = kept + 1;
}

int xpar_bsearch(const xp_array *array, const void *key, xp_compare_fn compare) {
    int low = 0, high = array->count - 1;
    if (high < 5) { // so few that halving costs more than it saves; the first of several equal items is found
        for (; low <= high; low++)
            if (compare(key, array->items[low]) == 0) return low;
        return -1;
    }
    while (low <= high) {
        const int middle = low + (high - low + 1) / 2;
        const int order = compare(key, array->items[middle]);
        if (order == 0) return middle;
        if (middle == low) return -1;
        if (order > 0)
            low = middle + 1;
        else
            high = middle - 1;
    }
    return -1;
}

void xpar_tokenize(xp_array *array, char *text, const void *delimiters, int flags) {
    const auto *bytes = static_cast<const unsigned char *>(delimiters);
    const auto add = [=](char *piece) {
        xpar_add(array, piece);
        return true;
    };
    // Kept: the test for one character comes before the table flag.
    if (!bytes[0] || !bytes[1])
        cut_text(text, one_byte{bytes[0]}, flags, add);
    else if (flags & XP_TOKENIZE_TABLE)
        cut_text(text, byte_table{bytes}, flags, add);
    else
        cut_text(text, byte_set(bytes, true), flags, add);
}

void xpar_reverse(xp_array *array) { __xpar_reverse_ex(array, 0, array->count - 1); }

void xpar_reverse_ex(xp_array *array, int first, int last) { __xpar_reverse_ex(array, first, last); }
