/* Data hash: maps keys of a fixed size to values of a fixed size, both held in place.
 *
 * The sibling of the hash table (base/hashtable.h) for binary keys: integers, addresses, digests. One allocation holds
 * an item, key and value included. A key is stored once. The number of buckets is the caller's choice and never
 * changes: take about the number of keys, say xp_getprime_over(number of keys).
 *
 *     xp_datahash peers;
 *     xp_init_datahash(&peers, 1009, NULL, NULL, sizeof address, NULL, NULL, sizeof(peer), NULL, NULL);
 *     peer *p = (peer *)xpdh_new(&peers, &address, NULL, &inserted);
 *     if (inserted) memset(p, 0, sizeof *p);
 *     p->requests++;
 *     xp_close_datahash(&peers);
 *
 * Keys are hashed and compared over their whole size, zero bytes included; so in a structure that is a key, set the
 * padding too. The value area follows the key area without a gap, and the key area is aligned to 8 bytes: give a key a
 * size that keeps the value aligned. Both areas stay where they are until their item is deleted.
 *
 * Copy hooks are called as (area, source) and fill the area; they get a null source too. Without a hook the bytes are
 * copied, and a null source leaves the area for the caller to set. Comparisons are called as (searched key, stored key
 * area).
 *
 * Out of memory: xpdh_new returns null and xpdh_put 0; the table is as it was. xpdh_update and xp_init_datahash end the
 * process.
 *
 * Threads: a table belongs to one thread at a time. */
#ifndef VORNCORE_BASE_DATAHASH_H
#define VORNCORE_BASE_DATAHASH_H

#include "vorncore/base/types.h"

VORNCORE_BEGIN_DECLS

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wpedantic" /* C++ has no flexible array members */
typedef struct xp_dataitem {
    struct xp_dataitem *next; /* older item of the same bucket */
    char data[];              /* key area, then value area */
} xp_dataitem;
#pragma GCC diagnostic pop

/* Hooks, hash and comparison may be assigned while the table is empty. */
typedef struct xp_datahash {
    xp_dataitem **buckets;       /* owned vector of chain heads, newest item first; null for an empty bucket */
    uint32_t bucket_count;       /* positive */
    uint32_t key_size;           /* bytes of the key area */
    uint32_t item_size;          /* bytes of key and value area */
    uint32_t count;              /* items */
    xp_slot_copy_fn key_copy;    /* fills a key area; null copies the bytes */
    xp_release_fn key_release;   /* gets the key area of an item that is dropped or overwritten */
    xp_slot_copy_fn value_copy;  /* the same for value areas */
    xp_release_fn value_release; /* after the key's */
    xp_hash_fn hash;             /* null: xp_rotate_hashf's rule over the bytes of the key */
    xp_compare_fn compare;       /* null: memcmp of the keys */
} xp_datahash;

/* A place in a walk: buckets up to `end`, in index order. */
typedef struct xp_datahashenum {
    xp_datahash *table;    /* borrowed */
    int32_t bucket;        /* of the current item */
    xp_dataitem *current;  /* null before the first item and behind the last */
    xp_dataitem *previous; /* item before the current one in its chain, null at the head */
    int32_t end;           /* bucket to stop before */
} xp_datahashenum;

/* Sizes are in bytes. The hash function must return a bucket below the bucket_count it is given; null means h =
 * xp_hash_randseed[first byte], then h = rotate-left(h, 4) ^ c for every byte c, the first one included, modulo
 * bucket_count. Kept for callers: c is sign-extended, as in the hash of texts. */
void xp_init_datahash(xp_datahash *table, uint32_t bucket_count, xp_hash_fn hash, xp_compare_fn compare,
                      uint32_t key_size, xp_slot_copy_fn key_copy, xp_release_fn key_release, uint32_t value_size,
                      xp_slot_copy_fn value_copy, xp_release_fn value_release);
/* Null when out of memory. */
xp_datahash *xp_create_datahash(uint32_t bucket_count, xp_hash_fn hash, xp_compare_fn compare, uint32_t key_size,
                                xp_slot_copy_fn key_copy, xp_release_fn key_release, uint32_t value_size,
                                xp_slot_copy_fn value_copy, xp_release_fn value_release);
void xp_close_datahash(xp_datahash *table);
void xp_destroy_datahash(xp_datahash *table);

/* Drops every item, bucket by bucket, newest first. */
void xpdh_clear(xp_datahash *table);

/* Inserts if the key is absent: 1 inserted, 0 present; nothing has changed then and no hook was called. */
int xpdh_put(xp_datahash *table, const void *key, const void *value);
/* Inserts, or overwrites in place: the stored key and value are released, then both areas are filled again. Always 1.
 * Kept for callers: unlike in xpht_update the old pair is gone before the new one is copied, so it must not be made of
 * parts that the release hooks free. */
int xpdh_update(xp_datahash *table, const void *key, const void *value);
/* The value area of the key as it is, or of a new item. `inserted` (may be null) is set to 1 for a new one, else to 0.
 */
void *xpdh_new(xp_datahash *table, const void *key, const void *value, int *inserted);
/* Drops the item of the key: 1, or 0 when absent. */
int xpdh_del(xp_datahash *table, const void *key);

/* The value area of a key (null when absent), whether it is there. */
void *xpdh_get(const xp_datahash *table, const void *key);
int xpdh_contains(const xp_datahash *table, const void *key);
/* Stores pointers to the key and the value area in `pair`: 1, or 0 and nothing stored. */
int xpdh_get_pair(const xp_datahash *table, const void *key, xp_pair *pair);

/* Calls callback(argument, pair of pointers to the areas) for each item, by bucket, newest first in each, until it
 * returns 0. Returns the number of items visited; the one that stopped the walk is not counted. The pair itself lives
 * for the call only. */
int xpdh_enumerate(xp_datahash *table, xp_pair_fn callback, void *argument);
/* The same for buckets first .. end - 1, limited to those there are. */
int xpdh_enumerate_ex(xp_datahash *table, xp_pair_fn callback, void *argument, int first, int end);

/* Mean and variance of the items' positions in their chains, counted from 1. Both are 0 for an empty table. */
void xpdh_statistic(const xp_datahash *table, double *mean, double *variance);

/* An enumerator stands before the first item of all buckets, or of buckets first .. end - 1. The areas of the current
 * item are current->data and current->data + table->key_size. */
void xp_init_datahashenum(xp_datahashenum *e, xp_datahash *table);
void xp_init_datahashenum_ex(xp_datahashenum *e, xp_datahash *table, int first, int end);
xp_datahashenum *xp_create_datahashenum(xp_datahash *table);
xp_datahashenum *xp_create_datahashenum_ex(xp_datahash *table, int first, int end);
void xp_close_datahashenum(xp_datahashenum *e);
void xp_destroy_datahashenum(xp_datahashenum *e);
/* Moves to the next item: 1, or 0 at the end. */
int xpdhe_next(xp_datahashenum *e);
/* Drops the current item and moves to the next one: 1, or 0 at the end or without a current item. */
int xpdhe_del(xp_datahashenum *e);

VORNCORE_END_DECLS

#endif
