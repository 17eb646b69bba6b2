#include "vorncore/base/dataarray.h"

#include <stdlib.h>

#include "vorncore/base/internal/alloc.h"
#include "vorncore/base/internal/slot.h"

using namespace vorncore;

namespace {

char *slot_at(const xp_dataarray *array, uint32_t index) {
    return array->data + static_cast<size_t>(index) * array->item_size;
}

size_t bytes_between(const xp_dataarray *array, uint32_t first, uint32_t end) {
    return static_cast<size_t>(end - first) * array->item_size;
}

void release(const xp_dataarray *array, uint32_t index) {
    if (array->release) array->release(slot_at(array, index));
}

void fill(const xp_dataarray *array, char *slot, const void *source) {
    fill_slot(array->copy, slot, source, array->item_size);
}

bool make_room_for_one(xp_dataarray *array) {
    if (array->capacity > array->count) return true;
    uint32_t capacity = array->initial_capacity;
    if (array->data && __builtin_add_overflow(array->capacity, array->capacity, &capacity)) return false;
    if (capacity <= array->count) return false; // a capacity of 0 has nothing to double
    auto *data = static_cast<char *>(realloc(array->data, saturating_product(capacity, array->item_size)));
    if (!data) return false;
    array->data = data;
    array->capacity = capacity;
    return true;
}

} // namespace

void xp_init_dataarray(xp_dataarray *array, uint32_t capacity, uint32_t item_size, xp_slot_copy_fn copy,
                       xp_release_fn release) {
    *array = {nullptr, copy, release, item_size, 0, capacity, 0};
}

xp_dataarray *xp_create_dataarray(uint32_t capacity, uint32_t item_size, xp_slot_copy_fn copy, xp_release_fn release) {
    return create_record<xp_dataarray>(xp_init_dataarray, capacity, item_size, copy, release);
}

void xp_close_dataarray(xp_dataarray *array) {
    xpda_clear(array);
    free(array->data);
}

void xp_destroy_dataarray(xp_dataarray *array) { destroy_record(array, xp_close_dataarray); }

void xpda_clear(xp_dataarray *array) {
    if (array->data && array->release)
        for (uint32_t i = 0; i < array->count; i++) release(array, i);
    array->count = 0;
}

xp_dataarray *xpda_reset(xp_dataarray *array) {
    xp_close_dataarray(array);
    array->data = nullptr;
    array->capacity = 0;
    return array;
}

void *xpda_add(xp_dataarray *array, const void *source) { return xpda_insert(array, array->count, source); }

void *xpda_insert(xp_dataarray *array, uint32_t index, const void *source) {
    if (!make_room_for_one(array)) return nullptr;
    char *const slot = slot_at(array, index);
    if (index < array->count) memmove(slot + array->item_size, slot, bytes_between(array, index, array->count));
    fill(array, slot, source);
    array->count++;
    return slot;
}

void xpda_del(xp_dataarray *array, uint32_t index) {
    release(array, index);
    array->count--;
    char *const slot = slot_at(array, index);
    if (index < array->count) memmove(slot, slot + array->item_size, bytes_between(array, index, array->count));
}

void xpda_replace(xp_dataarray *array, uint32_t index, const void *source) {
    release(array, index);
    fill(array, slot_at(array, index), source);
}

void xpda_sort(xp_dataarray *array, xp_compare_fn compare) {
    if (array->data) qsort(array->data, array->count, array->item_size, compare);
}

xp_dataarray *xpda_uniq(xp_dataarray *array, xp_compare_fn compare) {
    if (array->count < 2) return array;
    uint32_t kept = 0;
    for (uint32_t i = 1; i < array->count; i++) {
        if (compare(slot_at(array, kept), slot_at(array, i)) == 0)
            release(array, i);
        else if (++kept != i)
            memcpy(slot_at(array, kept), slot_at(array, i), array->item_size);
    }
    array->count = kept + 1;
    return array;
}

int xpda_bsearch(const xp_dataarray *array, const void *key, xp_compare_fn compare) {
    if (!array->data) return -1;
    const void *const found = bsearch(key, array->data, array->count, array->item_size, compare);
    if (!found) return -1;
    return static_cast<int>(static_cast<size_t>(static_cast<const char *>(found) - array->data) / array->item_size);
}
