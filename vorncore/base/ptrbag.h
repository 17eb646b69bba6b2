/* Pointer bag: stores pointers under small integers that stay valid until the item is deleted.
 *
 * Slot numbers are handed out from 0 up; a deleted slot is used again, the last one deleted first. The bag owns items
 * only through its two hooks: what the copy hook returns is what is stored, and what the bag drops goes through the
 * release hook.
 *
 *     int id = xppb_add(&sessions, session);
 *     ...
 *     if (xppb_get(&sessions, id, &item)) serve(item);
 *     xppb_del(&sessions, id);
 *
 * A free slot holds the address of the next free one, which is how it is told from an occupied slot: stored items must
 * never point into the bag's own vector. Null is an item like any other.
 *
 * Threads: a bag belongs to one thread at a time. */
#ifndef VORNCORE_BASE_PTRBAG_H
#define VORNCORE_BASE_PTRBAG_H

#include "vorncore/base/types.h"

VORNCORE_BEGIN_DECLS

typedef struct xp_ptrbag {
    void **slots;     /* owned vector of `capacity` slots */
    int32_t capacity; /* slots in the vector */
    int32_t count;    /* items */
    int32_t used;     /* slots from this one on have never been used */
    void *free_head;  /* first free slot below `used`; the address of the vector plus one byte when there is none */
    xp_copy_fn copy;  /* applied by add; null stores the item as given */
    xp_release_fn release; /* applied by del, clear and close; null drops silently */
} xp_ptrbag;

typedef struct xp_ptrbagenum {
    xp_ptrbag *bag; /* borrowed */
    int32_t index;  /* current slot; -1 in front of the first */
} xp_ptrbagenum;

/* The vector doubles when it is full, so `capacity` must be positive: a bag of capacity 0 never grows. */
void xp_init_ptrbag(xp_ptrbag *bag, int capacity, xp_copy_fn copy, xp_release_fn release);
/* Null when out of memory. */
xp_ptrbag *xp_create_ptrbag(int capacity, xp_copy_fn copy, xp_release_fn release);
void xp_close_ptrbag(xp_ptrbag *bag);
void xp_destroy_ptrbag(xp_ptrbag *bag);

/* Stores copy(item) and returns its slot. -1 when out of memory: the copy hook has then not been called. */
int xppb_add(xp_ptrbag *bag, const void *item);
/* 1 and the item, or 0 for a slot that has been deleted. The index is not checked: it must be below `used`. */
int xppb_get(const xp_ptrbag *bag, int index, void **item);
/* Releases the item of an occupied slot and frees the slot. */
void xppb_del(xp_ptrbag *bag, int index);
/* The same without the release: the caller takes the item. Returns the bag. */
xp_ptrbag *xppb_forget(xp_ptrbag *bag, int index);
/* Releases every item, in slot order; numbering starts at 0 again. The capacity stays. */
void xppb_clear(xp_ptrbag *bag);
/* Whether what a slot contains is an item: 1, or 0 for a link of the free list. */
int xppb_is_valid_item(const xp_ptrbag *bag, const void *content);

/* An enumerator starts in front of the first slot. Each move returns 1 on an occupied slot; 0 at the end, where the
 * other direction may follow. Items added behind the current slot are met. */
void xp_init_ptrbagenum(xp_ptrbagenum *e, xp_ptrbag *bag);
xp_ptrbagenum *xp_create_ptrbagenum(xp_ptrbag *bag);
void xp_close_ptrbagenum(xp_ptrbagenum *e);
void xp_destroy_ptrbagenum(xp_ptrbagenum *e);
int xppbe_next(xp_ptrbagenum *e);
int xppbe_prev(xp_ptrbagenum *e);
/* Deletes the current item, then moves on as xppbe_next does. */
int xppbe_del(xp_ptrbagenum *e);

VORNCORE_END_DECLS

#endif
