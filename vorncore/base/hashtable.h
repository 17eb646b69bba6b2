/* Chained hash table: maps untyped keys to untyped values.
 *
 * Keys are texts unless the caller brings a hash function and a comparison of his own; then any pointer-sized key will
 * do. A key may be stored more than once. The number of buckets is the caller's choice and never changes: take about
 * the number of keys, say xp_getprime_over(number of keys).
 *
 *     xp_hashtable ages;
 *     xp_init_hashtable(&ages, 1009, NULL, NULL, duplicate_text, free, NULL, NULL);
 *     xpht_update(&ages, name, (void *)age);
 *     if (xpht_contains(&ages, "Ann")) ...
 *     xp_close_hashtable(&ages);
 *
 * The table owns keys and values only through its hooks: what a copy hook returns is what is stored, and what the table
 * drops goes through the release hook, the key first. Without copy hooks it borrows both. The comparison is called as
 * (searched key, stored key). A searched key must outlive the call: do not delete by a stored key that the key release
 * hook frees.
 *
 * Out of memory: a call that returns a pointer returns null, and xpht_put returns 0; the table is as it was.
 * xpht_update, xpht_add and xp_init_hashtable end the process.
 *
 * Threads: a table belongs to one thread at a time; base/xhashtable.h is the form for many. */
#ifndef VORNCORE_BASE_HASHTABLE_H
#define VORNCORE_BASE_HASHTABLE_H

#include "vorncore/base/array.h"
#include "vorncore/base/types.h"

VORNCORE_BEGIN_DECLS

typedef struct xp_hashitem {
    struct xp_hashitem *next; /* older item of the same bucket */
    void *key;                /* key and value lie side by side: an xp_pair */
    void *value;
} xp_hashitem;

/* Hooks, hash and comparison may be assigned while the table is empty; after another hash function is assigned to a
 * table with items, call xpht_rehash. */
typedef struct xp_hashtable {
    xp_hashitem **buckets;       /* owned vector of chain heads, newest item first; null for an empty bucket. Changed by
                                  * calls only: what the library knows of each chain lies behind the heads */
    int32_t bucket_count;        /* heads in the vector */
    int32_t count;               /* items */
    xp_copy_fn key_copy;         /* applied to a key that is stored; null stores it as given */
    xp_release_fn key_release;   /* applied to a key that is dropped; null drops silently */
    xp_copy_fn value_copy;       /* the same for values */
    xp_release_fn value_release; /* the same for values */
    xp_hash_fn hash;             /* xp_rotate_hashf when initialised with null */
    xp_compare_fn compare;       /* strcmp when initialised with null */
} xp_hashtable;

/* A place in a table. The table may be changed through xphe_del only while an enumerator is on its way. */
typedef struct xp_hashenum {
    xp_hashtable *table;
    int32_t bucket;        /* of the current item */
    xp_hashitem *current;  /* null before the first item and behind the last */
    xp_hashitem *previous; /* item before the current one in its chain, null at the head */
    int32_t end;           /* bucket to stop before */
} xp_hashenum;

/* A place among the values of one key. */
typedef struct xp_hashiter {
    const void *key; /* borrowed */
    xp_hashitem *next;
} xp_hashiter;

/* Start value of the default hash, by the first byte of the key. */
extern const uint32_t xp_hash_randseed[256];

/* The default hash of a text: h = xp_hash_randseed[first byte], then h = rotate-left(h, 4) ^ c for every byte c, the
 * first one included. Returns h modulo bucket_count, or h itself for a bucket_count of 0.
 * Kept for callers: c is sign-extended to 32 bits, so bytes from 0x80 on flip the upper bits too. */
uint32_t xp_rotate_hashf(const void *key, uint32_t bucket_count);

/* 1 for primes, else 0. Kept for callers: squares of odd primes (9, 25, 49 ...) pass as primes. */
int xp_isprime(int n);
/* The next number above n that passes xp_isprime, at least 3; -1 if there is none, which is for INT_MAX alone. */
int xp_getprime_over(int n);
/* The next number below n that passes, at least 3; -1 for n <= 3. */
int xp_getprime_under(int n);

/* A null hash function means xp_rotate_hashf, a null comparison strcmp. */
void xp_init_hashtable(xp_hashtable *table, int bucket_count, xp_hash_fn hash, xp_compare_fn compare,
                       xp_copy_fn key_copy, xp_release_fn key_release, xp_copy_fn value_copy,
                       xp_release_fn value_release);
xp_hashtable *xp_create_hashtable(int bucket_count, xp_hash_fn hash, xp_compare_fn compare, xp_copy_fn key_copy,
                                  xp_release_fn key_release, xp_copy_fn value_copy, xp_release_fn value_release);
void xp_close_hashtable(xp_hashtable *table);
void xp_destroy_hashtable(xp_hashtable *table);

/* Drops every item, bucket by bucket, newest first. The two calls do the same. */
void xpht_clear(xp_hashtable *table);
void xpht_reset(xp_hashtable *table);
int xpht_count(const xp_hashtable *table);

/* Inserts if the key is absent: 1 inserted, 0 present; nothing has changed then and no hook was called. */
int xpht_put(xp_hashtable *table, const void *key, const void *value);
/* Inserts, or overwrites the newest pair of the key: the stored key too, not only the value. Both copies are made
 * before the old key and the old value are released. Always 1. */
int xpht_update(xp_hashtable *table, const void *key, const void *value);
/* Overwrites as xpht_update, but only a key that is present: 1 overwritten, 0 absent. */
int xpht_replace(xp_hashtable *table, const void *key, const void *value);
/* Inserts another pair, whether or not the key is present. */
void xpht_add(xp_hashtable *table, const void *key, const void *value);
/* The pair of the key as it is, or a new pair. `inserted` (may be null) is set to 1 for a new one, else to 0. */
xp_pair *xpht_new_pair(xp_hashtable *table, const void *key, const void *value, int *inserted);
/* The value of that pair. */
void *xpht_new(xp_hashtable *table, const void *key, const void *value, int *inserted);

/* The newest value of a key, its pair (null when absent), whether it is there. */
void *xpht_get(const xp_hashtable *table, const void *key);
xp_pair *xpht_get_pair(const xp_hashtable *table, const void *key);
int xpht_contains(const xp_hashtable *table, const void *key);
/* Appends every value of the key to `values` (may be null), newest first. Returns how many there are. */
int xpht_get_all(const xp_hashtable *table, const void *key, xp_array *values);
/* The values of a key one by one, newest first: 1 and the value stored, or 0 and nothing stored. xpht_get_next goes on
 * where a successful xpht_get_first with that iterator stood; without an iterator there is no way on. */
int xpht_get_first(const xp_hashtable *table, const void *key, xp_hashiter *iterator, void **value);
int xpht_get_next(const xp_hashtable *table, xp_hashiter *iterator, void **value);

/* Drops the newest pair of the key: 1, or 0 when absent. */
int xpht_del(xp_hashtable *table, const void *key);
/* Drops all pairs of the key, newest first. Returns how many. */
int xpht_del_all(xp_hashtable *table, const void *key);

/* Calls callback(argument, pair) for each item, by bucket, newest first in each, until it returns 0. Returns the number
 * of items visited; the one that stopped the walk is not counted. */
int xpht_enumerate(xp_hashtable *table, xp_pair_fn callback, void *argument);
/* The same for buckets first .. end - 1, limited to those there are. */
int xpht_enumerate_ex(xp_hashtable *table, xp_pair_fn callback, void *argument, int first, int end);

/* Mean and variance of the items' positions in their chains, counted from 1: the mean is the number of comparisons that
 * finding a key takes. Both are 0 for an empty table. */
void xpht_statistic(const xp_hashtable *table, double *mean, double *variance);
/* Places every item anew by the hash function that the table has now. Items of one bucket may change their order. */
void xpht_rehash(xp_hashtable *table);

/* An enumerator stands before the first item of all buckets, or of buckets first .. end - 1. */
void xp_init_hashenum(xp_hashenum *e, xp_hashtable *table);
void xp_init_hashenum_ex(xp_hashenum *e, xp_hashtable *table, int first, int end);
xp_hashenum *xp_create_hashenum(xp_hashtable *table);
xp_hashenum *xp_create_hashenum_ex(xp_hashtable *table, int first, int end);
void xp_close_hashenum(xp_hashenum *e);
void xp_destroy_hashenum(xp_hashenum *e);
/* Moves to the next item: 1, or 0 at the end. */
int xphe_next(xp_hashenum *e);
/* Drops the current item and moves to the next one: 1, or 0 at the end or without a current item. */
int xphe_del(xp_hashenum *e);

VORNCORE_END_DECLS

#endif
