/* LRU hash: a hash table that keeps its items also by their last use, for caches of bounded size.
 *
 *     xp_lruhash pages;
 *     xp_init_lruhash(&pages, 1000, 1009, NULL, NULL, duplicate_text, free, NULL, free_page);
 *     struct page *page = xplh_get(&pages, name);                            // and it is the one used last
 *     if (!page) xplh_put(&pages, name, page = load(name));                  // and the one unused longest is dropped
 *
 * Keys, values, hooks, hash and comparison are those of base/hashtable.h, and so is what put, update, replace, add and
 * new mean. What differs: put and update keep the number of items within the capacity; every read has a second form,
 * peek, that does not count as a use.
 *
 * A searched key must outlive the call: do not delete by a stored key that the key release hook frees.
 *
 * Out of memory: a call that returns a pointer returns null, and xplh_put returns 0; the table is as it was.
 * xplh_update, xplh_add and xp_init_lruhash end the process. A table that is full needs no memory for another item.
 *
 * Threads: a table belongs to one thread at a time, also for reading: a get changes it. base/xlruhash.h is the form for
 * many. */
#ifndef VORNCORE_BASE_LRUHASH_H
#define VORNCORE_BASE_LRUHASH_H

#include "vorncore/base/array.h"
#include "vorncore/base/types.h"

VORNCORE_BEGIN_DECLS

typedef struct xp_lruitem xp_lruitem;

/* The sentinel of a bucket's ring: stands for an item as far as its first two links. Both lead back to it when the
 * bucket is empty. */
typedef struct xp_lrubucket {
    xp_lruitem *first; /* oldest item */
    xp_lruitem *last;  /* newest item: where a search begins */
} xp_lrubucket;

/* The sentinel of the ring of all items: stands for an item up to its bucket index, which is -1. Its `next` and
 * `previous` are not used. */
typedef struct xp_lrunode {
    xp_lruitem *next;
    xp_lruitem *previous;
    xp_lruitem *older; /* item used last */
    xp_lruitem *newer; /* item unused longest */
    int32_t bucket;
} xp_lrunode;

struct xp_lruitem {
    xp_lruitem *next;     /* in its bucket: the item that was inserted after it */
    xp_lruitem *previous; /* in its bucket: the item that was inserted before it */
    xp_lruitem *older;    /* by last use: the next one toward the item unused longest */
    xp_lruitem *newer;    /* by last use: the next one toward the item used last */
    int32_t bucket;       /* its index */
    void *key;            /* key and value lie side by side: an xp_pair */
    void *value;
};

/* Hooks, hash and comparison may be assigned while the table is empty; after another hash function is assigned to a
 * table with items, call xplh_rehash. */
typedef struct xp_lruhash {
    xp_lrubucket *buckets; /* owned vector of sentinels */
    int32_t count;         /* items */
    int32_t capacity;      /* items that put and update leave at most; may be assigned */
    int32_t bucket_count;  /* sentinels in the vector */
    xp_lrunode recency;    /* sentinel of all items */
    xp_hash_fn hash;       /* xp_rotate_hashf when initialised with null */
    xp_compare_fn compare; /* strcmp when initialised with null */
    xp_copy_fn key_copy;   /* these four as in a hash table */
    xp_release_fn key_release;
    xp_copy_fn value_copy;
    xp_release_fn value_release;
} xp_lruhash;

/* A place among the values of one key. */
typedef struct xp_lruhashiter {
    const void *key;    /* borrowed */
    xp_lruitem *next;   /* item to examine next */
    xp_lrubucket *head; /* where the search ends */
} xp_lruhashiter;

/* A place among all items, by last use. The table may be changed through xplhe_del only while an enumerator is on its
 * way. */
typedef struct xp_lruhashenum {
    xp_lruhash *table;
    xp_lruitem *current;  /* `sentinel` before the first item and behind the last */
    xp_lruitem *sentinel; /* that of `table` */
} xp_lruhashenum;

/* `capacity` must be positive. `bucket_count` never changes: take about the capacity. A null hash function means
 * xp_rotate_hashf, a null comparison strcmp. */
void xp_init_lruhash(xp_lruhash *table, int capacity, int bucket_count, xp_hash_fn hash, xp_compare_fn compare,
                     xp_copy_fn key_copy, xp_release_fn key_release, xp_copy_fn value_copy,
                     xp_release_fn value_release);
xp_lruhash *xp_create_lruhash(int capacity, int bucket_count, xp_hash_fn hash, xp_compare_fn compare,
                              xp_copy_fn key_copy, xp_release_fn key_release, xp_copy_fn value_copy,
                              xp_release_fn value_release);
void xp_close_lruhash(xp_lruhash *table);
void xp_destroy_lruhash(xp_lruhash *table);

/* Drops every item, bucket by bucket, newest first. The two calls do the same. */
void xplh_clear(xp_lruhash *table);
void xplh_reset(xp_lruhash *table);
int xplh_count(const xp_lruhash *table);

/* Inserts if the key is absent: 1 inserted, 0 present; nothing has changed then. Before an item is inserted, those
 * unused longest are dropped while count >= capacity. The new item is the one used last. */
int xplh_put(xp_lruhash *table, const void *key, const void *value);
/* Inserts in the same way, or overwrites the newest pair of the key, the stored key too. Both copies are made before
 * the old key and the old value are released. Always 1. Kept for callers: overwriting is no use, the item stays where
 * it is in the order of use. */
int xplh_update(xp_lruhash *table, const void *key, const void *value);
/* Overwrites as xplh_update, but only a key that is present: 1 overwritten, 0 absent. */
int xplh_replace(xp_lruhash *table, const void *key, const void *value);
/* Inserts another pair, whether or not the key is present. Drops nothing: the count may go above the capacity, and the
 * next put or update that inserts brings it back. */
void xplh_add(xp_lruhash *table, const void *key, const void *value);
/* The pair of the key as it is, which is no use of it, or a new pair, for which nothing is dropped. `inserted` (may be
 * null) is set to 1 for a new one, else to 0. */
xp_pair *xplh_new_pair(xp_lruhash *table, const void *key, const void *value, int *inserted);
/* The value of that pair. */
void *xplh_new(xp_lruhash *table, const void *key, const void *value, int *inserted);

/* The newest value of a key, its pair; null when absent. Every item found becomes the one used last. */
void *xplh_get(xp_lruhash *table, const void *key);
xp_pair *xplh_get_pair(xp_lruhash *table, const void *key);
/* Appends every value of the key to `values` (may be null), newest first. Returns how many there are. They are used in
 * that order, so the oldest of them ends up as the one used last. */
int xplh_get_all(xp_lruhash *table, const void *key, xp_array *values);
/* The values of a key one by one, newest first: 1 and the value stored, or 0 and nothing stored. xplh_get_next goes on
 * where a successful xplh_get_first with that iterator stood; without an iterator there is no way on. */
int xplh_get_first(xp_lruhash *table, const void *key, xp_lruhashiter *iterator, void **value);
int xplh_get_next(xp_lruhash *table, xp_lruhashiter *iterator, void **value);

/* The same without using what is found. */
void *xplh_peek(const xp_lruhash *table, const void *key);
xp_pair *xplh_peek_pair(const xp_lruhash *table, const void *key);
int xplh_peek_all(const xp_lruhash *table, const void *key, xp_array *values);
int xplh_peek_first(const xp_lruhash *table, const void *key, xp_lruhashiter *iterator, void **value);
int xplh_peek_next(const xp_lruhash *table, xp_lruhashiter *iterator, void **value);
int xplh_contains(const xp_lruhash *table, const void *key);

/* Drops the newest pair of the key: 1, or 0 when absent. */
int xplh_del(xp_lruhash *table, const void *key);
/* Drops all pairs of the key, newest first. Returns how many. */
int xplh_del_all(xp_lruhash *table, const void *key);
/* Drops the item unused longest. The table must not be empty. */
void xplh_remove_lru(xp_lruhash *table);
/* Drops the items unused longest while there are more than `limit`. Returns how many. Kept for callers: this trims
 * once, the capacity stays what it was. */
int xplh_set_capacity(xp_lruhash *table, int limit);

/* Calls callback(argument, pair) for each item, by bucket, newest first in each, until it returns 0. Returns the number
 * of items visited; the one that stopped the walk is not counted. */
int xplh_enumerate(xp_lruhash *table, xp_pair_fn callback, void *argument);
/* The same for buckets first .. end - 1, limited to those there are. */
int xplh_enumerate_ex(xp_lruhash *table, xp_pair_fn callback, void *argument, int first, int end);

/* Mean of the items' positions in their buckets, counted from 1 for the newest. Kept for callers: the second figure is
 * no variance but mean * mean * the mean of the squares of the positions. Both are 0 for an empty table. */
void xplh_statistic(const xp_lruhash *table, double *mean, double *second);
/* Places every item anew by the hash function that the table has now. The order of use stays; the order of equal keys
 * is reversed. */
void xplh_rehash(xp_lruhash *table);

/* An enumerator stands before the first item. */
void xp_init_lruhashenum(xp_lruhashenum *e, xp_lruhash *table);
xp_lruhashenum *xp_create_lruhashenum(xp_lruhash *table);
void xp_close_lruhashenum(xp_lruhashenum *e);
void xp_destroy_lruhashenum(xp_lruhashenum *e);
/* Moves toward the item used last, first to the one unused longest: 1, or 0 at the end, from where it starts anew. */
int xplhe_next(xp_lruhashenum *e);
/* Moves the other way, first to the item used last. */
int xplhe_prev(xp_lruhashenum *e);
/* Drops the current item and moves on as xplhe_next: 1, or 0 at the end or without a current item. */
int xplhe_del(xp_lruhashenum *e);

VORNCORE_END_DECLS

#endif
