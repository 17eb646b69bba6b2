// The stores of the service, by id, for any number of threads.
#pragma once

#include "programs/quilletd/store.h"
#include "vorncore/base/xhashtable.h"

namespace quilletd {

struct limits {
    int stores = 1000;
    int entries = 100'000;                 // of one store
    bool evicts = false;                   // a full store drops the entry unused longest; else it takes no new one
    long long bytes = 256LL * 1024 * 1024; // of all stores, with what an entry costs beside its text
};

struct statistics {
    int stores = 0;
    long long entries = 0, bytes = 0, evicted = 0;
};

/// A store is used with the slot of its id held for reading, so it cannot be purged meanwhile; its own slots come
/// second.
class stores {
  public:
    explicit stores(const limits &allowed);
    ~stores();
    stores(const stores &) = delete;
    stores &operator=(const stores &) = delete;

    /// The id of a new store, at most 7 characters; empty when there are too many.
    std::string create();
    result purge(const char *id);
    /// An empty value deletes; deleting what is not there is done already.
    result put(const char *id, const char *key, const char *value);
    result get(const char *id, const char *key, std::string *value);
    bool exists(const char *id);
    /// As store::list_bucket; a store that is not there is at its end.
    int list_bucket(const char *id, int bucket, std::string *lines);

    /// Figures of the moment, taken while others go on.
    statistics take_statistics();

  private:
    template <class Use>
    bool use(const char *id, Use use);
    bool insert(const std::string &id, store *made);

    const limits allowed_;
    budget places_, bytes_;
    std::atomic<unsigned long long> made_ = 0;
    std::atomic<long long> evicted_ = 0; // by stores that were purged
    xp_xhashtable table_;                // id to store, both owned, the stores by this class
};

} // namespace quilletd
