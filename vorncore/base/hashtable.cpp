#include "vorncore/base/hashtable.h"

#include <limits.h>

#include "vorncore/base/internal/alloc.h"
#include "vorncore/base/internal/hashchain.h"
#include "vorncore/base/internal/table.h"
#include "vorncore/base/internal/tryinit.h"

using namespace vorncore;

namespace {

/// Fixed pseudo-random words. They decide in which order a table is enumerated, so they never change.
consteval uint32_t seed_of(unsigned byte) {
    constexpr uint32_t first[] = {0x4420C1B7, 0xAF54B6F3, 0x41438558, 0x4E394EBD,
                                  0x6482447F, 0x607CACD2, 0x31E1458F, 0x7A2D33BE};
    if (byte < 8) return first[byte];
    if (byte == 255) return 0x24F21893;
    uint32_t word = byte * 0x9E3779B9;
    word = (word ^ word >> 16) * 0x85EBCA6B;
    word = (word ^ word >> 13) * 0xC2B2AE35;
    return word ^ word >> 16;
}

struct counted_items : pointer_pairs<xp_hashtable, xp_hashitem> {
    xp_hashitem *allocate() const {
        void *const block = malloc(sizeof(xp_hashitem));
        if (block) table->count++;
        return static_cast<xp_hashitem *>(block);
    }
    void discard(xp_hashitem *i) const {
        free(i);
        table->count--;
    }
};
using chains = hash_chains<counted_items>;

/// The searches change nothing, but what they find may be changed through the result.
chains chains_of(const xp_hashtable *table) { return chains(counted_items{{const_cast<xp_hashtable *>(table)}}); }

xp_hashitem *find(const xp_hashtable *table, const void *key) { return chains_of(table).find(sought_in(table, key)); }

} // namespace

bool vorncore::try_init_hashtable(xp_hashtable *table, int bucket_count, xp_hash_fn hash, xp_compare_fn compare,
                                  xp_copy_fn key_copy, xp_release_fn key_release, xp_copy_fn value_copy,
                                  xp_release_fn value_release) {
    *table = {try_buckets<xp_hashitem>(bucket_count),
              bucket_count,
              0,
              key_copy,
              key_release,
              value_copy,
              value_release,
              hash ? hash : xp_rotate_hashf,
              compare ? compare : compare_texts()};
    return table->buckets;
}

static int __xpht_put(const char *call, xp_hashtable *table, const void *key, const void *value, put_mode mode) {
    const int result = chains_of(table).put(sought_in(table, key), value, mode);
    if (result < 0) out_of_memory(call, sizeof(xp_hashitem));
    return result;
}

const uint32_t xp_hash_randseed[256] = {VORNCORE_TABLE_256(seed_of)};

uint32_t xp_rotate_hashf(const void *key, uint32_t bucket_count) {
    const char *const text = static_cast<const char *>(key);
    return reduced(rotate_hash(text, text_length(text)), bucket_count);
}

int xp_isprime(int n) {
    if (n < 3 || n % 2 == 0) return n == 2;
    // Kept: the square of the divisor itself is not tried, so squares of primes pass.
    for (int64_t d = 3; d * d < n; d += 2)
        if (n % d == 0) return 0;
    return 1;
}

int xp_getprime_over(int n) {
    if (n < 2) return 3;
    if (n == INT_MAX) return -1;
    for (n += n % 2 ? 2 : 1; !xp_isprime(n);) n += 2; // INT_MAX is a prime
    return n;
}

int xp_getprime_under(int n) {
    if (n <= 3) return -1;
    for (n -= n % 2 ? 2 : 1; !xp_isprime(n);) n -= 2; // 3 ends it
    return n;
}

void xp_init_hashtable(xp_hashtable *table, int bucket_count, xp_hash_fn hash, xp_compare_fn compare,
                       xp_copy_fn key_copy, xp_release_fn key_release, xp_copy_fn value_copy,
                       xp_release_fn value_release) {
    if (!try_init_hashtable(table, bucket_count, hash, compare, key_copy, key_release, value_copy, value_release))
        out_of_memory("xp_init_hashtable", bytes_of<xp_hashitem *>(bucket_count));
}

xp_hashtable *xp_create_hashtable(int bucket_count, xp_hash_fn hash, xp_compare_fn compare, xp_copy_fn key_copy,
                                  xp_release_fn key_release, xp_copy_fn value_copy, xp_release_fn value_release) {
    return create_record<xp_hashtable>(try_init_hashtable, bucket_count, hash, compare, key_copy, key_release,
                                       value_copy, value_release);
}

void xp_close_hashtable(xp_hashtable *table) {
    xpht_clear(table);
    free(table->buckets);
}

void xp_destroy_hashtable(xp_hashtable *table) { destroy_record(table, xp_close_hashtable); }

void xpht_clear(xp_hashtable *table) {
    if (table->count) chains_of(table).clear(no_guard());
}

void xpht_reset(xp_hashtable *table) { xpht_clear(table); }

int xpht_count(const xp_hashtable *table) { return table->count; }

int xpht_put(xp_hashtable *table, const void *key, const void *value) {
    return chains_of(table).put(sought_in(table, key), value, put_mode::put) > 0;
}

int xpht_update(xp_hashtable *table, const void *key, const void *value) {
    return __xpht_put("xpht_update", table, key, value, put_mode::update);
}

int xpht_replace(xp_hashtable *table, const void *key, const void *value) {
    return __xpht_put("xpht_replace", table, key, value, put_mode::replace);
}

void xpht_add(xp_hashtable *table, const void *key, const void *value) {
    if (!chains_of(table).add(sought_in(table, key), value)) out_of_memory("xpht_add", sizeof(xp_hashitem));
}

xp_pair *xpht_new_pair(xp_hashtable *table, const void *key, const void *value, int *inserted) {
    return pair_of(chains_of(table).find_or_add(sought_in(table, key), value, inserted));
}

void *xpht_new(xp_hashtable *table, const void *key, const void *value, int *inserted) {
    xp_pair *const pair = xpht_new_pair(table, key, value, inserted);
    return pair ? pair->value : nullptr;
}

void *xpht_get(const xp_hashtable *table, const void *key) {
    const xp_hashitem *const found = find(table, key);
    return found ? found->value : nullptr;
}

xp_pair *xpht_get_pair(const xp_hashtable *table, const void *key) { return pair_of(find(table, key)); }

int xpht_contains(const xp_hashtable *table, const void *key) { return find(table, key) != nullptr; }

int xpht_get_all(const xp_hashtable *table, const void *key, xp_array *values) {
    return chains_of(table).each_equal(sought_in(table, key), [=](const xp_hashitem *item) {
        if (values) xpar_add(values, item->value);
    });
}

int xpht_get_first(const xp_hashtable *table, const void *key, xp_hashiter *iterator, void **value) {
    return step(iterator, key, find(table, key), value);
}

int xpht_get_next(const xp_hashtable *table, xp_hashiter *iterator, void **value) {
    const sought key = {iterator->key, 0}; // the bucket does not matter any more
    return step(iterator, key.key, chains_of(table).first_equal(iterator->next, key), value);
}

int xpht_del(xp_hashtable *table, const void *key) { return chains_of(table).del(sought_in(table, key), 1); }

int xpht_del_all(xp_hashtable *table, const void *key) { return chains_of(table).del(sought_in(table, key), INT_MAX); }

int xpht_enumerate(xp_hashtable *table, xp_pair_fn callback, void *argument) {
    return xpht_enumerate_ex(table, callback, argument, 0, table->bucket_count);
}

int xpht_enumerate_ex(xp_hashtable *table, xp_pair_fn callback, void *argument, int first, int end) {
    return chains_of(table).enumerate(callback, argument, first, end, no_guard());
}

void xpht_statistic(const xp_hashtable *table, double *mean, double *variance) {
    chains_of(table).statistic(table->count, mean, variance, no_guard());
}

void xpht_rehash(xp_hashtable *table) {
    if (!table->count) return;
    chains all = chains_of(table);
    xp_hashitem *collected = nullptr, **tail = &collected; // chain behind chain, that of the last bucket first
    for (auto bucket = static_cast<uint32_t>(table->bucket_count); bucket-- > 0;) {
        *tail = all.detach(bucket);
        while (*tail) tail = &(*tail)->next;
    }
    while (xp_hashitem *const item = collected) {
        collected = item->next;
        const sought key = sought_in(table, item->key);
        all.push(key.bucket, key.tag, item);
    }
}

void xp_init_hashenum(xp_hashenum *e, xp_hashtable *table) { xp_init_hashenum_ex(e, table, 0, table->bucket_count); }

void xp_init_hashenum_ex(xp_hashenum *e, xp_hashtable *table, int first, int end) {
    e->table = table;
    chains_of(table).start(e, first, end);
}

xp_hashenum *xp_create_hashenum(xp_hashtable *table) { return xp_create_hashenum_ex(table, 0, table->bucket_count); }

xp_hashenum *xp_create_hashenum_ex(xp_hashtable *table, int first, int end) {
    return create_record<xp_hashenum>(xp_init_hashenum_ex, table, first, end);
}

void xp_close_hashenum(xp_hashenum *) {}

void xp_destroy_hashenum(xp_hashenum *e) { free(e); }

int xphe_next(xp_hashenum *e) { return chains_of(e->table).next(e, no_guard()); }

int xphe_del(xp_hashenum *e) { return chains_of(e->table).del_current(e, no_guard()); }
