// The stores of the service: tables of texts by key, in memory.
#pragma once

#include <string>

#include "vorncore/base/hashtable.h"

namespace quilletd {

struct limits {
    int stores = 1000;
    int entries = 100'000;                 // of one store
    long long bytes = 256LL * 1024 * 1024; // of all stores, with what an entry costs beside its text
};

/// Keys and values are kept in the form in which they travel, so that an answer is a copy of what came.
class stores {
  public:
    enum class result { done, no_store, no_key, full };

    explicit stores(const limits &allowed);
    ~stores();
    stores(const stores &) = delete;
    stores &operator=(const stores &) = delete;

    /// The id of a new store, at most 7 characters; empty when there are too many.
    std::string create();
    result purge(const char *id);
    /// An empty value deletes; deleting what is not there is done already.
    result put(const char *id, const char *key, const char *value);
    result get(const char *id, const char *key, const char **value) const;

    /// Part of a listing: calls line(key, value) for each entry of the first bucket from `bucket` on that has any.
    /// Returns the bucket to go on with, 0 at the end. A listing goes bucket by bucket so that it may pause while
    /// others change the store, or purge it.
    template <class Line>
    int list_bucket(const char *id, int bucket, Line line) {
        auto *table = find(id);
        if (!table) return 0;
        while (bucket < table->bucket_count && !table->buckets[bucket]) bucket++;
        const auto each = [](void *argument, xp_pair *pair) {
            (*static_cast<Line *>(argument))(static_cast<char *>(pair->key), static_cast<char *>(pair->value));
            return 1;
        };
        xpht_enumerate_ex(table, each, &line, bucket, bucket + 1);
        return bucket + 1 < table->bucket_count ? bucket + 1 : 0;
    }
    bool exists(const char *id) const { return find(id) != nullptr; }

  private:
    xp_hashtable *find(const char *id) const { return static_cast<xp_hashtable *>(xpht_get(&stores_, id)); }

    limits allowed_;
    int buckets_;         // of a store
    long long bytes_ = 0; // used by the entries of all stores
    unsigned long long made_ = 0;
    xp_hashtable stores_; // id to table, both owned
};

} // namespace quilletd
