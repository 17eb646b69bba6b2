#include "programs/quilletd/stores.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

namespace quilletd {

namespace {

constexpr long long entry_overhead = 64; // item, allocator, terminators

long long cost_of(const xp_pair *entry) {
    return entry_overhead +
           static_cast<long long>(strlen(static_cast<char *>(entry->key)) + strlen(static_cast<char *>(entry->value)));
}

/// Key and value in one block, which belongs to the key.
char *new_entry(const char *key, const char *value) {
    const size_t key_size = strlen(key) + 1, value_size = strlen(value) + 1;
    auto *block = static_cast<char *>(malloc(key_size + value_size));
    if (!block) throw std::bad_alloc();
    memcpy(block, key, key_size);
    memcpy(block + key_size, value, value_size);
    return block;
}

void *copy_text(const void *text) { return strdup(static_cast<const char *>(text)); }
void destroy_table(void *table) { xp_destroy_hashtable(static_cast<xp_hashtable *>(table)); }

/// At most seven digits of base 36; a counter that has gone round starts over.
std::string id_of(unsigned long long number) {
    std::string id;
    for (number %= 78'364'164'096ULL; number > 0 || id.empty(); number /= 36)
        id.insert(id.begin(), "0123456789abcdefghijklmnopqrstuvwxyz"[number % 36]);
    return id;
}

} // namespace

stores::stores(const limits &allowed)
    : allowed_(allowed), buckets_(xp_getprime_over(std::clamp(allowed.entries / 8, 60, 100'000))) {
    xp_init_hashtable(&stores_, xp_getprime_over(std::clamp(allowed.stores, 60, 100'000)), nullptr, nullptr, copy_text,
                      free, nullptr, destroy_table);
}

stores::~stores() { xp_close_hashtable(&stores_); }

std::string stores::create() {
    if (xpht_count(&stores_) >= allowed_.stores) return {};
    std::string id;
    do {
        id = id_of(++made_);
    } while (find(id.c_str()));
    xp_hashtable *table = xp_create_hashtable(buckets_, nullptr, nullptr, nullptr, free, nullptr, nullptr);
    if (!table) throw std::bad_alloc();
    if (!xpht_put(&stores_, id.c_str(), table)) {
        xp_destroy_hashtable(table);
        throw std::bad_alloc();
    }
    return id;
}

stores::result stores::purge(const char *id) {
    xp_hashtable *table = find(id);
    if (!table) return result::no_store;
    xpht_enumerate(
        table,
        [](void *bytes, xp_pair *entry) {
            *static_cast<long long *>(bytes) -= cost_of(entry);
            return 1;
        },
        &bytes_);
    xpht_del(&stores_, id);
    return result::done;
}

stores::result stores::put(const char *id, const char *key, const char *value) {
    xp_hashtable *table = find(id);
    if (!table) return result::no_store;
    const xp_pair *old = xpht_get_pair(table, key);
    const long long freed = old ? cost_of(old) : 0;
    if (!*value) {
        xpht_del(table, key);
        bytes_ -= freed;
        return result::done;
    }
    const long long used = entry_overhead + static_cast<long long>(strlen(key) + strlen(value));
    if (bytes_ - freed + used > allowed_.bytes || (!old && xpht_count(table) >= allowed_.entries)) return result::full;
    char *entry = new_entry(key, value);
    xpht_update(table, entry, entry + strlen(key) + 1); // frees the old block, key and value
    bytes_ += used - freed;
    return result::done;
}

stores::result stores::get(const char *id, const char *key, const char **value) const {
    const xp_hashtable *table = find(id);
    if (!table) return result::no_store;
    *value = static_cast<const char *>(xpht_get(table, key));
    return *value ? result::done : result::no_key;
}

} // namespace quilletd
