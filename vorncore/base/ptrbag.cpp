#include "vorncore/base/ptrbag.h"

#include <algorithm>

#include "vorncore/base/internal/alloc.h"

using namespace vorncore;

namespace {

/// The end of the free list: an odd address inside the vector, so that the slot holding it counts as free.
void *end_of_free_list(void **slots) { return reinterpret_cast<char *>(slots) + 1; }

void make_empty(xp_ptrbag *bag) {
    bag->count = bag->used = 0;
    bag->free_head = end_of_free_list(bag->slots);
}

bool init(xp_ptrbag *bag, int capacity, xp_copy_fn copy, xp_release_fn release) {
    *bag = {try_array<void *>(capacity), capacity, 0, 0, nullptr, copy, release};
    if (!bag->slots) return false;
    make_empty(bag);
    return true;
}

/// Only called with an empty free list, so that no link goes stale when the vector moves.
bool grow(xp_ptrbag *bag) {
    int capacity;
    if (__builtin_mul_overflow(bag->capacity, 2, &capacity) || capacity == 0) return false;
    void **slots = try_resize(bag->slots, capacity);
    if (!slots) return false;
    bag->slots = slots;
    bag->capacity = capacity;
    bag->free_head = end_of_free_list(slots);
    return true;
}

/// A slot for a new item, null when memory is short.
void **take_slot(xp_ptrbag *bag) {
    if (bag->free_head != end_of_free_list(bag->slots)) {
        void **slot = static_cast<void **>(bag->free_head);
        bag->free_head = *slot;
        return slot;
    }
    if (bag->used == bag->capacity && !grow(bag)) return nullptr;
    return bag->slots + bag->used++;
}

bool is_occupied(const xp_ptrbag *bag, int index) { return xppb_is_valid_item(bag, bag->slots[index]) != 0; }

} // namespace

void xp_init_ptrbag(xp_ptrbag *bag, int capacity, xp_copy_fn copy, xp_release_fn release) {
    if (!init(bag, capacity, copy, release)) out_of_memory("xp_init_ptrbag", bytes_of<void *>(capacity));
}

xp_ptrbag *xp_create_ptrbag(int capacity, xp_copy_fn copy, xp_release_fn release) {
    return create_record<xp_ptrbag>(init, capacity, copy, release);
}

void xp_close_ptrbag(xp_ptrbag *bag) {
    xppb_clear(bag);
    free(bag->slots);
}

void xp_destroy_ptrbag(xp_ptrbag *bag) { destroy_record(bag, xp_close_ptrbag); }

int xppb_add(xp_ptrbag *bag, const void *item) {
    void **slot = take_slot(bag);
    if (!slot) return -1;
    *slot = bag->copy ? bag->copy(item) : const_cast<void *>(item);
    bag->count++;
    return static_cast<int>(slot - bag->slots);
}

int xppb_get(const xp_ptrbag *bag, int index, void **item) {
    if (!is_occupied(bag, index)) return 0;
    *item = bag->slots[index];
    return 1;
}

void xppb_del(xp_ptrbag *bag, int index) {
    if (bag->release) bag->release(bag->slots[index]);
    xppb_forget(bag, index);
}

xp_ptrbag *xppb_forget(xp_ptrbag *bag, int index) {
    void **slot = bag->slots + index;
    *slot = bag->free_head;
    bag->free_head = slot;
    bag->count--;
    return bag;
}

void xppb_clear(xp_ptrbag *bag) {
    if (bag->release)
        for (int i = 0; i < bag->used; i++)
            if (is_occupied(bag, i)) bag->release(bag->slots[i]);
    make_empty(bag);
}

int xppb_is_valid_item(const xp_ptrbag *bag, const void *content) {
    return reinterpret_cast<uintptr_t>(content) - reinterpret_cast<uintptr_t>(bag->slots) >=
           bytes_of<void *>(bag->capacity);
}

void xp_init_ptrbagenum(xp_ptrbagenum *e, xp_ptrbag *bag) { *e = {bag, -1}; }

xp_ptrbagenum *xp_create_ptrbagenum(xp_ptrbag *bag) { return create_record<xp_ptrbagenum>(xp_init_ptrbagenum, bag); }

void xp_close_ptrbagenum(xp_ptrbagenum *) {}

void xp_destroy_ptrbagenum(xp_ptrbagenum *e) { destroy_record(e, xp_close_ptrbagenum); }

int xppbe_next(xp_ptrbagenum *e) {
    const xp_ptrbag *bag = e->bag;
    while (e->index < bag->used)
        if (++e->index < bag->used && is_occupied(bag, e->index)) return 1;
    return 0;
}

int xppbe_prev(xp_ptrbagenum *e) {
    const xp_ptrbag *bag = e->bag;
    e->index = std::min(e->index, bag->used); // the bag may have been cleared
    while (e->index >= 0)
        if (--e->index >= 0 && is_occupied(bag, e->index)) return 1;
    return 0;
}

int xppbe_del(xp_ptrbagenum *e) {
    xppb_del(e->bag, e->index);
    return xppbe_next(e);
}
