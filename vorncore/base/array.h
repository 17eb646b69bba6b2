/* Dynamic array: a growable vector of pointers.
 *
 * The collector that every call returning "all of them" fills, and the vector behind stacks, trees and tokenizers.
 * Items are single pointers; the array owns one only through its two hooks: what the copy hook returns is what is
 * stored, and what the array drops goes through the release hook.
 *
 *     xp_array words;
 *     xp_init_array(&words, 16, NULL, NULL);
 *     xpar_tokenize(&words, line, ",", XP_TOKENIZE_TRIM);
 *     for (int i = 0; i < words.count; i++) puts(words.items[i]);
 *     xp_close_array(&words);
 *
 * Indices are the caller's responsibility and are not checked. Comparisons get the items themselves, not pointers to
 * slots. Out of memory: calls that return a pointer return null and leave the array as it was, void calls end the
 * process.
 *
 * Threads: an array belongs to one thread at a time. */
#ifndef VORNCORE_BASE_ARRAY_H
#define VORNCORE_BASE_ARRAY_H

#include "vorncore/base/types.h"

VORNCORE_BEGIN_DECLS

/* Items and count may be read directly: items[0 .. count - 1] are live, without gaps. */
typedef struct xp_array {
    void **items;             /* owned vector of `capacity` slots */
    xp_copy_fn copy;          /* applied by add, insert, replace and tokenize; null stores items as given */
    xp_release_fn release;    /* applied by clear, reset, del, replace, uniq and close; null drops silently */
    int32_t capacity;         /* slots in the vector */
    int32_t initial_capacity; /* slots that xpar_reset returns to */
    int32_t count;            /* live items */
} xp_array;

/* The vector doubles when it is full, so `capacity` must be positive: an array of capacity 0 never grows. */
void xp_init_array(xp_array *array, int capacity, xp_copy_fn copy, xp_release_fn release);
xp_array *xp_create_array(int capacity, xp_copy_fn copy, xp_release_fn release);
void xp_close_array(xp_array *array);
void xp_destroy_array(xp_array *array);

/* Drops every item, in index order; the capacity stays. */
void xpar_clear(xp_array *array);
/* Drops every item and goes back to the initial capacity. Returns the array. */
xp_array *xpar_reset(xp_array *array);
/* Empties the array without releasing: the caller takes the items. Returns the array. */
xp_array *xpar_forget_all(xp_array *array);
/* Doubles the capacity until it is at least `wanted` slots. */
void xpar_ensure(xp_array *array, int wanted);

/* Appends copy(item). */
void xpar_add(xp_array *array, const void *item);
/* Inserts copy(item) at index 0 .. count. Returns the array. */
xp_array *xpar_insert(xp_array *array, int index, const void *item);
/* Releases an item and closes the gap. */
void xpar_del(xp_array *array, int index);
/* Releases an item, then stores copy(item) in its place. */
void xpar_replace(xp_array *array, int index, const void *item);
/* Moves all items to the end of `destination`, ownership with them: no hook is called and `source` is empty. */
void xpar_drain_from(xp_array *destination, xp_array *source);

/* Sorts in place, without allocating. Not stable, but for equal input the order of equal items and the sequence of
 * comparisons are always the same. */
void xpar_sort(xp_array *array, xp_compare_fn compare);
/* Drops every item that equals the one kept before it: of a sorted array, all duplicates but the first. */
void xpar_uniq(xp_array *array, xp_compare_fn compare);
/* Index of an item with compare(key, item) == 0 in a sorted array, -1 if there is none. Of several equal items any may
 * be found; in an array of at most five it is the first. */
int xpar_bsearch(const xp_array *array, const void *key, xp_compare_fn compare);

/* Cuts `text` in place at every delimiter byte and appends a pointer to each piece: pieces lie inside the text unless a
 * copy hook duplicates them. `delimiters` is a text, or with XP_TOKENIZE_TABLE a table of 256 bytes whose entry 0 must
 * be non-zero. Adjacent delimiters, and one at the end, make empty pieces. A null or empty text adds nothing.
 * Kept for callers: when delimiters[1] is zero, the one byte delimiters[0] is the delimiter, whatever the flags say. */
void xpar_tokenize(xp_array *array, char *text, const void *delimiters, int flags);

/* Reverses all items, or those from index `first` to index `last`, both included. */
void xpar_reverse(xp_array *array);
void xpar_reverse_ex(xp_array *array, int first, int last);

VORNCORE_END_DECLS

#endif
