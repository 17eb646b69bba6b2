/* Data array: a growable vector of records of one size, held in place.
 *
 * The sibling of the dynamic array (base/array.h) for small structures: item n lies at data + n * item_size, one block
 * holds them all, and nothing is allocated before the first insertion.
 *
 *     xp_dataarray points;
 *     xp_init_dataarray(&points, 16, sizeof(point), NULL, NULL);
 *     xpda_add(&points, &p);
 *     ((point *)xpda_add(&points, NULL))->x = 1;             filled in place
 *     point *all = (point *)points.data;
 *     xp_close_dataarray(&points);
 *
 * The copy hook is called as (slot, source) and fills the slot; it gets a null source too. Without a hook item_size
 * bytes are copied from the source, and a null source leaves the slot's bytes for the caller to set. A source must not
 * lie inside the array: items move when it grows and when one is inserted or deleted, and pointers to them end there.
 *
 * Indices are the caller's responsibility and are not checked. Out of memory: xpda_add and xpda_insert return null, the
 * array is as it was and no hook has been called.
 *
 * Threads: an array belongs to one thread at a time. */
#ifndef VORNCORE_BASE_DATAARRAY_H
#define VORNCORE_BASE_DATAARRAY_H

#include "vorncore/base/types.h"

VORNCORE_BEGIN_DECLS

/* Items may be read and written in place, and read and counted directly: items 0 .. count - 1 are live. */
typedef struct xp_dataarray {
    char *data;                /* owned, capacity * item_size bytes; null until the first insertion */
    xp_slot_copy_fn copy;      /* fills a slot: add, insert, replace; null copies the bytes */
    xp_release_fn release;     /* gets every slot whose item is dropped; null drops silently */
    uint32_t item_size;        /* bytes of an item, not 0 */
    uint32_t capacity;         /* slots in `data`; 0 while it is null */
    uint32_t initial_capacity; /* slots of the first allocation */
    uint32_t count;            /* live items */
} xp_dataarray;

/* Allocates no slots. The capacity doubles when it is used up, so `capacity` must be positive: an array of capacity 0
 * takes no item. */
void xp_init_dataarray(xp_dataarray *array, uint32_t capacity, uint32_t item_size, xp_slot_copy_fn copy,
                       xp_release_fn release);
/* Null when out of memory. */
xp_dataarray *xp_create_dataarray(uint32_t capacity, uint32_t item_size, xp_slot_copy_fn copy, xp_release_fn release);
void xp_close_dataarray(xp_dataarray *array);
void xp_destroy_dataarray(xp_dataarray *array);

/* Drops every item, in index order; the capacity stays. */
void xpda_clear(xp_dataarray *array);
/* Drops every item and frees the slots: the array is as it was made. Returns the array. */
xp_dataarray *xpda_reset(xp_dataarray *array);

/* Appends an item. Returns its slot. */
void *xpda_add(xp_dataarray *array, const void *source);
/* Inserts an item at index 0 .. count. Returns its slot. */
void *xpda_insert(xp_dataarray *array, uint32_t index, const void *source);
/* Releases an item and closes the gap. */
void xpda_del(xp_dataarray *array, uint32_t index);
/* Releases an item, then fills its slot anew. */
void xpda_replace(xp_dataarray *array, uint32_t index, const void *source);

/* qsort of the items. Comparisons get pointers to items. */
void xpda_sort(xp_dataarray *array, xp_compare_fn compare);
/* Drops every item that equals the one kept before it: of a sorted array, all duplicates but the first. Items that stay
 * move as bytes. Returns the array. */
xp_dataarray *xpda_uniq(xp_dataarray *array, xp_compare_fn compare);
/* bsearch of a sorted array: the index of an item with compare(key, item) == 0, -1 if there is none. */
int xpda_bsearch(const xp_dataarray *array, const void *key, xp_compare_fn compare);

VORNCORE_END_DECLS

#endif
