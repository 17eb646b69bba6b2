/* Lock-striped LRU hash: the table of base/lruhash.h for many threads, a cache of bounded size that they share.
 *
 * The buckets share a row of reader-writer locks, the slots: bucket b has slot b modulo the number of slots. As in
 * base/xhashtable.h the caller locks the slot of a key, works on that key, and unlocks; the lock call returns the
 * bucket number that the calls in between take as their last argument. The one list of all items by last use has a lock
 * of its own, which the calls take by themselves.
 *
 *     xp_xlruhash pages;
 *     xp_init_xlruhash(&pages, 64, XP_RWLOCK_WRITER_FIRST, 1000, 1009, NULL, NULL, duplicate_text, free, NULL,
 *                      free_page);
 *
 *     uint32_t bucket = xpxlh_read_lock(&pages, name);            // any thread
 *     struct page *page = xpxlh_get(&pages, name, bucket);        // and it is the one used last
 *     if (page) send(page);                                       // nobody frees it as long as the slot is held
 *     xpxlh_read_unlock(&pages, bucket);
 *
 *     page = load(name);
 *     bucket = xpxlh_write_lock(&pages, name);
 *     if (!xpxlh_put(&pages, name, page, bucket))                 // evicts the page unused longest
 *         free_page(page);                                        // another thread had put one
 *     xpxlh_write_unlock(&pages, bucket);
 *     xpxlh_diet(&pages);                                         // frees what was evicted
 *
 * Eviction has two steps. What an insertion pushes out of the capacity is no longer counted and no search finds it, but
 * its bucket may be another thread's at that moment; so it stays there, with its key and value, and is freed by the
 * next xpxlh_diet, which holds no slot when it begins. Call that after insertions, or from time to time; without it
 * memory grows.
 *
 * Order of locks: a slot, then the list lock, then mutexes of the table's own, which are held for a moment only.
 * Whoever holds one slot must not wait for another one: only xpxlh_*_locks and xpxlh_*_lock_all take several, always
 * from the lowest number up. So while a thread holds a slot, it makes no call that takes slots (below: "takes slots"),
 * also not from a callback or a hook; and while it holds the list lock, as an enumerator and an enumeration do, it
 * makes no call that takes that ("takes the list lock") either: such calls may wait for ever. xpxlh_count takes
 * neither.
 *
 * Several keys at once: xpxlh_write_locks(&pages, &names, &slots) lists slots, not buckets; the bucket of each key is
 * pages.lru.hash(key, (uint32_t)pages.lru.bucket_count) then.
 *
 * Keys, values, hooks, hash and comparison are those of base/hashtable.h, and so is what put, update, replace, add and
 * new mean. A searched key must outlive the call. A value is released after its key, and the item's memory is gone by
 * then; hooks are called with the locks held that are named at each call, and must not use the table.
 *
 * Out of memory: a call that returns a pointer returns null, and xpxlh_put returns 0; the table is as it was.
 * xpxlh_update, xpxlh_add and xp_init_xlruhash end the process.
 *
 * Threads: any number, for all calls but init, close and destroy of the table, under the locks that are named for each.
 * An enumerator and an iterator belong to one thread at a time. */
#ifndef VORNCORE_BASE_XLRUHASH_H
#define VORNCORE_BASE_XLRUHASH_H

#include <pthread.h>

#include "vorncore/base/lruhash.h"
#include "vorncore/io/rwlock.h"

VORNCORE_BEGIN_DECLS

typedef struct xp_xlruitem xp_xlruitem;

struct xp_xlruitem {
    xp_xlruitem *next;     /* in its bucket, as in xp_lruitem; null once it is out of it */
    xp_xlruitem *previous; /* these two are guarded by the slot */
    xp_xlruitem *older;    /* by last use, as in xp_lruitem; null once it was evicted */
    xp_xlruitem *newer;    /* the same; of an evicted item the next one to free. Both are guarded by the list lock */
    int32_t bucket;        /* its index */
    void *key;             /* key and value lie side by side: an xp_pair. Both are guarded by the slot */
    void *value;
    int32_t references; /* the table's, and those of enumerators; guarded, as `valid`, by item mutex `bucket` % 23 */
    int32_t valid;      /* 1, or 0 once evicted or deleted; read without the mutex too, as an atomic */
};

typedef struct xp_xlruhash {
    xp_lruhash lru;                /* its own calls must not be used. `count` is not used either and stays 0; `capacity`
                                    * may be assigned while nobody inserts */
    xp_rwlock bucket_lock;         /* one slot for every `slot_count`th bucket */
    xp_rwlock list_lock;           /* one slot, 0: guards the list of all items and `pending` */
    int32_t slot_count;            /* slots of `bucket_lock`; never 0 */
    int32_t live_count;            /* items that are neither evicted nor deleted */
    pthread_mutex_t count_mutex;   /* guards `live_count`; whoever has it takes no other lock */
    pthread_mutex_t *item_mutexes; /* owned, 23 of them */
    xp_xlruitem *pending; /* evicted items, for xpxlh_diet; looked at without the list lock too, as an atomic */
} xp_xlruhash;

/* A place among the values of one key; `next` points to an item of this table. */
typedef xp_lruhashiter xp_xlruhashiter;

/* A place among all items, by last use. */
typedef struct xp_xlruhashenum {
    xp_xlruhash *table;
    xp_xlruitem *current;  /* `sentinel` before the first item and behind the last */
    xp_xlruitem *sentinel; /* that of `table` */
    int32_t mode;          /* holds its locks for reading (0), for writing (1), none at all (any other value) */
} xp_xlruhashenum;

/* `slot_count` and `capacity` must be positive; more slots than buckets are of no use. `lock_mode`, one of XP_RWLOCK_*,
 * is that of the slots and of the list lock. The others are those of xp_init_lruhash. */
void xp_init_xlruhash(xp_xlruhash *table, int slot_count, int lock_mode, int capacity, int bucket_count,
                      xp_hash_fn hash, xp_compare_fn compare, xp_copy_fn key_copy, xp_release_fn key_release,
                      xp_copy_fn value_copy, xp_release_fn value_release);
xp_xlruhash *xp_create_xlruhash(int slot_count, int lock_mode, int capacity, int bucket_count, xp_hash_fn hash,
                                xp_compare_fn compare, xp_copy_fn key_copy, xp_release_fn key_release,
                                xp_copy_fn value_copy, xp_release_fn value_release);
/* Drop every item, then those that were evicted and not freed yet. No other thread may use the table any more, no lock
 * may be held, no enumerator may be open. */
void xp_close_xlruhash(xp_xlruhash *table);
void xp_destroy_xlruhash(xp_xlruhash *table);

/* Bucket numbers carry a mark, the top bit, when they come from a call that locks for writing. All calls that take a
 * bucket number ignore it. */

/* Lock the slot of a key, shared or alone; they block until it is free. Return the number of the key's bucket. */
uint32_t xpxlh_read_lock(xp_xlruhash *table, const void *key);
uint32_t xpxlh_write_lock(xp_xlruhash *table, const void *key);
/* Unlock the slot of a bucket. */
void xpxlh_read_unlock(xp_xlruhash *table, uint32_t bucket);
void xpxlh_write_unlock(xp_xlruhash *table, uint32_t bucket);
/* Lock the slot of a bucket that is known already. Return its number, with or without the mark as above. */
uint32_t xpxlh_read_lock_by_nr(xp_xlruhash *table, uint32_t bucket);
uint32_t xpxlh_write_lock_by_nr(xp_xlruhash *table, uint32_t bucket);
/* Lock every slot. These four return the number of slots. */
int xpxlh_read_lock_all(xp_xlruhash *table);
int xpxlh_write_lock_all(xp_xlruhash *table);
int xpxlh_read_unlock_all(xp_xlruhash *table);
int xpxlh_write_unlock_all(xp_xlruhash *table);
/* Lock the slots of several keys, each slot once however many of the keys are in it. `result` must be empty and have no
 * hooks: it lists the slots that are held, marked when for writing, for the unlock calls, which empty it. Return how
 * many they are. */
int xpxlh_read_locks(xp_xlruhash *table, const xp_array *keys, xp_array *result);
int xpxlh_write_locks(xp_xlruhash *table, const xp_array *keys, xp_array *result);
void xpxlh_read_unlocks(xp_xlruhash *table, xp_array *result);
void xpxlh_write_unlocks(xp_xlruhash *table, xp_array *result);

/* The calls on one key want its bucket's number; it is not looked for again. They take no slot. Those of this group
 * want the slot held for writing. When they insert, they take the list lock, once the copy hooks have been called: the
 * new item is the one used last, and items unused longest are evicted while there are more than the capacity. They
 * release only what they overwrite. */

/* Inserts if the key is absent: 1 inserted, 0 present; nothing has changed then. */
int xpxlh_put(xp_xlruhash *table, const void *key, const void *value, uint32_t bucket);
/* Inserts, or overwrites the newest pair of the key, the stored key too. Both copies are made before the old key and
 * the old value are released. Always 1. Kept for callers: overwriting is no use. */
int xpxlh_update(xp_xlruhash *table, const void *key, const void *value, uint32_t bucket);
/* Overwrites as xpxlh_update, but only a key that is present: 1 overwritten, 0 absent. */
int xpxlh_replace(xp_xlruhash *table, const void *key, const void *value, uint32_t bucket);
/* Inserts another pair, whether or not the key is present. Unlike xplh_add it evicts, and so do the next two. */
void xpxlh_add(xp_xlruhash *table, const void *key, const void *value, uint32_t bucket);
/* The pair of the key, which becomes the one used last, or a new pair. `inserted` (may be null) is set to 1 for a new
 * one, else to 0. */
xp_pair *xpxlh_new_pair(xp_xlruhash *table, const void *key, const void *value, int *inserted, uint32_t bucket);
/* The value of that pair. */
void *xpxlh_new(xp_xlruhash *table, const void *key, const void *value, int *inserted, uint32_t bucket);
/* Deletes the newest pair of the key: 1, or 0 when absent. Takes the list lock. Key and value are released with the
 * slot held; if an enumerator is waiting for the slot to rest on the item, it does that later. */
int xpxlh_del(xp_xlruhash *table, const void *key, uint32_t bucket);
/* The same with all pairs of the key, newest first. Returns how many. */
int xpxlh_del_all(xp_xlruhash *table, const void *key, uint32_t bucket);

/* For the searches the slot may be held for reading. What they return may be used as long as it is held, even when
 * another thread evicts it meanwhile. Those that begin with get take the list lock for each item found, which becomes
 * the one used last. */

/* The newest value of a key, its pair; null when absent. */
void *xpxlh_get(xp_xlruhash *table, const void *key, uint32_t bucket);
xp_pair *xpxlh_get_pair(xp_xlruhash *table, const void *key, uint32_t bucket);
/* Appends every value of the key to `values` (may be null), newest first. Returns how many there are. They are used in
 * that order, so the oldest of them ends up as the one used last. */
int xpxlh_get_all(xp_xlruhash *table, const void *key, xp_array *values, uint32_t bucket);
/* The values of a key one by one, newest first: 1 and the value stored, or 0 and nothing stored. xpxlh_get_next goes on
 * where a successful xpxlh_get_first with that iterator stood; the slot must have been held all the time since. */
int xpxlh_get_first(xp_xlruhash *table, const void *key, xp_xlruhashiter *iterator, void **value, uint32_t bucket);
int xpxlh_get_next(xp_xlruhash *table, xp_xlruhashiter *iterator, void **value, uint32_t bucket);

/* The same without using what is found, and without the list lock: these never wait. */
void *xpxlh_peek(xp_xlruhash *table, const void *key, uint32_t bucket);
xp_pair *xpxlh_peek_pair(xp_xlruhash *table, const void *key, uint32_t bucket);
int xpxlh_peek_all(xp_xlruhash *table, const void *key, xp_array *values, uint32_t bucket);
int xpxlh_peek_first(xp_xlruhash *table, const void *key, xp_xlruhashiter *iterator, void **value, uint32_t bucket);
int xpxlh_peek_next(xp_xlruhash *table, xp_xlruhashiter *iterator, void **value, uint32_t bucket);
int xpxlh_contains(xp_xlruhash *table, const void *key, uint32_t bucket);

/* The number of items that are neither evicted nor deleted, at this moment. May be called with any lock held. */
int xpxlh_count(xp_xlruhash *table);

/* Deletes every item, bucket by bucket, newest first, each bucket with its slot and the list lock held for writing;
 * then frees what was evicted before as xpxlh_diet does. Takes slots and the list lock. With -1 for `lock` it takes no
 * slots, and the list lock only to see what was evicted: the caller holds every slot for writing, and nobody has an
 * enumerator that locks. The two calls do the same. */
void xpxlh_clear(xp_xlruhash *table, int lock);
void xpxlh_reset(xp_xlruhash *table, int lock);
/* Frees the evicted items, each with its slot held for writing; one that an enumerator refers to goes when the
 * enumerator moves on or is closed. Takes the list lock, then slots. Any number of threads may call it
 * at the same time. */
void xpxlh_diet(xp_xlruhash *table);

/* Calls callback(argument, pair) for each item, by bucket, newest first in each, until it returns 0. Returns the number
 * of items visited; the one that stopped the walk is not counted. Each bucket is walked with its slot and the list lock
 * held for reading (lock mode 0), for writing (any other mode), or not locked (-1); empty ones are passed over without
 * locking. Takes slots and the list lock.
 * Kept for callers: when the callback stops the walk, both locks stay held. The caller unlocks the list first, then the
 * slot of that bucket, which is the bucket of the key that the callback saw:
 *
 *     xprwl_read_unlock(&table->list_lock, 0);
 *     xpxlh_read_unlock(table, bucket); */
int xpxlh_enumerate(xp_xlruhash *table, xp_pair_fn callback, void *argument, int lock_mode);
/* The same for buckets first .. end - 1, limited to those there are. */
int xpxlh_enumerate_ex(xp_xlruhash *table, xp_pair_fn callback, void *argument, int first, int end, int lock_mode);
/* Mean and variance of the items' positions in their buckets, counted from 1 for the newest; evicted items are no
 * items, but have positions. Both are 0 for an empty table. Takes the slot of each non-empty bucket for reading, unless
 * `lock` is -1. */
void xpxlh_statistic(xp_xlruhash *table, double *mean, double *variance, int lock);

/* An enumerator stands before the first item and holds the list lock, in its mode, and while it rests on an item also
 * the slot of the item's bucket: until it is closed or moves on, everyone else's gets, insertions and deletions wait.
 *
 * When it comes to another bucket, it lets go of both locks and takes the new slot, then the list lock; what others do
 * in between it may or may not see. An item that is deleted just then it passes over. One that is evicted it shows as
 * long as that is still in its bucket, and goes on from it at the item that is then unused longest, since eviction
 * takes all that was before. After an item that is used just then, it meets only what was used even later.
 *
 * A call on an enumerator takes slots and the list lock. With its locks held it may call release hooks, for items that
 * were evicted or deleted while it referred to them. An enumerator without locks is for who has the table to himself,
 * or every slot for writing. */
void xp_init_xlruhashenum(xp_xlruhashenum *e, xp_xlruhash *table, int lock_mode);
xp_xlruhashenum *xp_create_xlruhashenum(xp_xlruhash *table, int lock_mode);
/* Unlock the list, then the slot of the item that the enumerator rests on. */
void xp_close_xlruhashenum(xp_xlruhashenum *e);
void xp_destroy_xlruhashenum(xp_xlruhashenum *e);
/* Moves toward the item used last, first to the one unused longest: 1, or 0 at the end, where no slot is held and from
 * where it starts anew. */
int xpxlhe_next(xp_xlruhashenum *e);
/* Deletes the current item and moves on as xpxlhe_next: 1, or 0 at the end or without a current item. Not for an
 * enumerator that reads. */
int xpxlhe_del(xp_xlruhashenum *e);

VORNCORE_END_DECLS

#endif
