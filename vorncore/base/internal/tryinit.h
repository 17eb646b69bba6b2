// Init forms of records that other records embed: false when memory is short, where the exported forms end the process.
#pragma once

#include "vorncore/base/hashtable.h"
#include "vorncore/base/lruhash.h"
#include "vorncore/io/rwlock.h"

namespace vorncore {

bool try_init_hashtable(xp_hashtable *table, int bucket_count, xp_hash_fn hash, xp_compare_fn compare,
                        xp_copy_fn key_copy, xp_release_fn key_release, xp_copy_fn value_copy,
                        xp_release_fn value_release);
bool try_init_lruhash(xp_lruhash *table, int capacity, int bucket_count, xp_hash_fn hash, xp_compare_fn compare,
                      xp_copy_fn key_copy, xp_release_fn key_release, xp_copy_fn value_copy,
                      xp_release_fn value_release);
bool try_init_rwlock(xp_rwlock *lock, int slots, int mode);

} // namespace vorncore
