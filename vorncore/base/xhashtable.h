/* Lock-striped hash table: the table of base/hashtable.h for many threads.
 *
 * The buckets share a row of reader-writer locks, the slots: bucket b has slot b modulo the number of slots. The caller
 * locks the slot of a key, works on that key as long as he likes, and unlocks. The lock call returns the bucket number,
 * which the calls in between take as their last argument, so that they need not look for the bucket again:
 *
 *     xp_xhashtable users;
 *     xp_init_xhashtable(&users, 64, XP_RWLOCK_WRITER_FIRST, 1009, NULL, NULL, duplicate_text, free, NULL, free_user);
 *
 *     int bucket = xpxht_read_lock(&users, name);                // any thread
 *     struct user *user = xpxht_get(&users, name, bucket);
 *     if (user) greet(user);                                     // nobody can drop it as long as the slot is held
 *     xpxht_read_unlock(&users, bucket);
 *
 *     bucket = xpxht_write_lock(&users, name);
 *     if (!xpxht_contains(&users, name, bucket)) xpxht_put(&users, name, new_user(name), bucket);
 *     xpxht_write_unlock(&users, bucket);
 *
 * Several keys at once, say to move a value from one to another: put the keys into an array, lock with
 * xpxht_write_locks, and pass -1 for the bucket, since what is listed are slots.
 *
 *     xpxht_write_locks(&users, &names, &slots);
 *     ... xpxht_get(&users, names.items[0], -1) ...
 *     xpxht_write_unlocks(&users, &slots);
 *
 * Which lock comes first: whoever holds one slot must not wait for another one, or two threads may wait for each other.
 * Only xpxht_*_locks and xpxht_*_lock_all take several, always from the lowest number up. So while a thread holds a
 * slot, it makes no call that locks: no second lock call, no clear, enumeration, statistic or enumerator with locking,
 * also not from a callback or hook. xpxht_count takes a mutex of its own and may be called at any time. A slot that is
 * read-locked cannot be turned into a write-locked one.
 *
 * More slots mean fewer threads that wait for each other, but all slots share the one mutex of their lock object
 * (io/rwlock.h), which every lock and unlock call takes for a moment.
 *
 * Keys, values, hooks, and what is returned when memory is short are as in base/hashtable.h; xpxht_update, xpxht_add
 * and xp_init_xhashtable end the process then. What a search returns may be used as long as the slot is held.
 *
 * Threads: any number, for all calls but init, close and destroy of the table, under the locks that are named below for
 * each. An enumerator and an iterator belong to one thread at a time. */
#ifndef VORNCORE_BASE_XHASHTABLE_H
#define VORNCORE_BASE_XHASHTABLE_H

#include <pthread.h>

#include "vorncore/base/hashtable.h"
#include "vorncore/io/rwlock.h"

VORNCORE_BEGIN_DECLS

typedef struct xp_xhashtable {
    xp_hashtable table;          /* its own calls neither lock nor may be used while others have access */
    xp_rwlock lock;              /* one slot for every `slot_count`th bucket */
    int32_t slot_count;          /* slots; never 0 */
    pthread_mutex_t count_mutex; /* guards table.count alone; whoever has it takes no other lock */
} xp_xhashtable;

/* A place in a table. */
typedef struct xp_xhashenum {
    xp_xhashtable *table;
    int32_t bucket;        /* of the current item */
    xp_hashitem *current;  /* null before the first item and behind the last */
    xp_hashitem *previous; /* item before the current one in its chain, null at the head */
    int32_t end;           /* bucket to stop before */
    int32_t locked;        /* bucket whose slot the enumerator holds, -1 for none */
    int32_t mode;          /* holds slots for reading (0), for writing (1), not at all (any other value) */
} xp_xhashenum;

/* `slot_count` must be positive; more slots than buckets are of no use. `lock_mode` is one of XP_RWLOCK_*. The others
 * are those of xp_init_hashtable. */
void xp_init_xhashtable(xp_xhashtable *table, int slot_count, int lock_mode, int bucket_count, xp_hash_fn hash,
                        xp_compare_fn compare, xp_copy_fn key_copy, xp_release_fn key_release, xp_copy_fn value_copy,
                        xp_release_fn value_release);
xp_xhashtable *xp_create_xhashtable(int slot_count, int lock_mode, int bucket_count, xp_hash_fn hash,
                                    xp_compare_fn compare, xp_copy_fn key_copy, xp_release_fn key_release,
                                    xp_copy_fn value_copy, xp_release_fn value_release);
/* Drop every item, without locking: no other thread may use the table any more, no slot may be held. */
void xp_close_xhashtable(xp_xhashtable *table);
void xp_destroy_xhashtable(xp_xhashtable *table);

/* Lock the slot of a key, shared or alone; they block until it is free. Return the number of the key's bucket. */
int xpxht_read_lock(xp_xhashtable *table, const void *key);
int xpxht_write_lock(xp_xhashtable *table, const void *key);
/* Unlock the slot of a bucket. */
void xpxht_read_unlock(xp_xhashtable *table, int bucket);
void xpxht_write_unlock(xp_xhashtable *table, int bucket);
/* The same for a bucket that is known already. Return its number. */
int xpxht_read_lock_by_nr(xp_xhashtable *table, int bucket);
int xpxht_write_lock_by_nr(xp_xhashtable *table, int bucket);
/* Lock every slot. These four return the number of slots. */
int xpxht_read_lock_all(xp_xhashtable *table);
int xpxht_write_lock_all(xp_xhashtable *table);
int xpxht_read_unlock_all(xp_xhashtable *table);
int xpxht_write_unlock_all(xp_xhashtable *table);
/* Lock the slots of several keys, each slot once however many of the keys are in it. `result` must be empty and have no
 * hooks: it lists the slots that are held, for the unlock calls, which empty it. Return how many they are. */
int xpxht_read_locks(xp_xhashtable *table, const xp_array *keys, xp_array *result);
int xpxht_write_locks(xp_xhashtable *table, const xp_array *keys, xp_array *result);
void xpxht_read_unlocks(xp_xhashtable *table, xp_array *result);
void xpxht_write_unlocks(xp_xhashtable *table, xp_array *result);

/* The calls on one key do what their namesakes xpht_* do, in the bucket given; a negative number stands for the bucket
 * of the key. None of them locks. These want the slot held for writing: */
int xpxht_put(xp_xhashtable *table, const void *key, const void *value, int bucket);
int xpxht_update(xp_xhashtable *table, const void *key, const void *value, int bucket);
int xpxht_replace(xp_xhashtable *table, const void *key, const void *value, int bucket);
void xpxht_add(xp_xhashtable *table, const void *key, const void *value, int bucket);
xp_pair *xpxht_new_pair(xp_xhashtable *table, const void *key, const void *value, int *inserted, int bucket);
void *xpxht_new(xp_xhashtable *table, const void *key, const void *value, int *inserted, int bucket);
int xpxht_del(xp_xhashtable *table, const void *key, int bucket);
int xpxht_del_all(xp_xhashtable *table, const void *key, int bucket);
/* For these, reading is enough. The iterator of xpxht_get_next holds its place; the slot must have been held all the
 * time since xpxht_get_first. */
void *xpxht_get(const xp_xhashtable *table, const void *key, int bucket);
xp_pair *xpxht_get_pair(const xp_xhashtable *table, const void *key, int bucket);
int xpxht_contains(const xp_xhashtable *table, const void *key, int bucket);
int xpxht_get_all(const xp_xhashtable *table, const void *key, xp_array *values, int bucket);
int xpxht_get_first(const xp_xhashtable *table, const void *key, xp_hashiter *iterator, void **value, int bucket);
int xpxht_get_next(const xp_xhashtable *table, xp_hashiter *iterator, void **value);

/* The number of items at this moment. Needs no slot and may be called with any held. */
int xpxht_count(xp_xhashtable *table);

/* The calls on many buckets pass over empty ones without locking. What others insert or drop while they are on their
 * way may or may not be met. With -1 for the lock they do not lock at all: the caller holds every slot concerned. */

/* Drops every item, bucket by bucket, newest first, each bucket with its slot held for writing unless `lock` is -1. The
 * two calls do the same. */
void xpxht_clear(xp_xhashtable *table, int lock);
void xpxht_reset(xp_xhashtable *table, int lock);
/* As xpht_enumerate, each bucket with its slot held for reading (lock mode 0), for writing (any other mode), or not
 * locked (-1). A callback must not lock.
 * Kept for callers: when the callback stops the walk by returning 0, the slot of that bucket stays locked, and is the
 * caller's to unlock, by the number of that bucket. */
int xpxht_enumerate(xp_xhashtable *table, xp_pair_fn callback, void *argument, int lock_mode);
/* The same for buckets first .. end - 1, limited to those there are. */
int xpxht_enumerate_ex(xp_xhashtable *table, xp_pair_fn callback, void *argument, int first, int end, int lock_mode);
/* As xpht_statistic, each bucket with its slot held for reading unless `lock` is -1. Both figures refer to the number
 * of items at the beginning, so they are exact only when nobody changes the table meanwhile. */
void xpxht_statistic(xp_xhashtable *table, double *mean, double *variance, int lock);

/* An enumerator stands before the first item of all buckets, or of buckets first .. end - 1, and holds no slot. While
 * it rests on an item, it holds the slot of that item's bucket, in its mode, and no other. */
void xp_init_xhashenum(xp_xhashenum *e, xp_xhashtable *table, int lock_mode);
void xp_init_xhashenum_ex(xp_xhashenum *e, xp_xhashtable *table, int first, int end, int lock_mode);
xp_xhashenum *xp_create_xhashenum(xp_xhashtable *table, int lock_mode);
xp_xhashenum *xp_create_xhashenum_ex(xp_xhashtable *table, int first, int end, int lock_mode);
/* Unlock the slot that the enumerator still holds. */
void xp_close_xhashenum(xp_xhashenum *e);
void xp_destroy_xhashenum(xp_xhashenum *e);
/* Moves to the next item: 1, or 0 at the end, where no slot is held. */
int xpxhe_next(xp_xhashenum *e);
/* Drops the current item and moves to the next one: 1, or 0 at the end or without a current item. The item must be held
 * for writing: by the enumerator, or by the caller with one that does not lock. */
int xpxhe_del(xp_xhashenum *e);

VORNCORE_END_DECLS

#endif
