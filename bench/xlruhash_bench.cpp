// Threads share a cache: each gets, and puts what it missed.
#include <benchmark/benchmark.h>

#include <mutex>

#include "cachemix.h"
#include "vorncore/base/hashtable.h"
#include "vorncore/base/xlruhash.h"

using namespace cache_mix;

namespace {

class vorncore_cache {
  public:
    vorncore_cache() {
        xp_init_xlruhash(&table_, 64, XP_RWLOCK_WRITER_FIRST, capacity, xp_getprime_over(capacity), nullptr, nullptr,
                         nullptr, nullptr, nullptr, nullptr);
    }
    ~vorncore_cache() { xp_close_xlruhash(&table_); }
    bool access(const std::string &key) {
        const uint32_t bucket = xpxlh_read_lock(&table_, key.c_str());
        const bool hit = xpxlh_get(&table_, key.c_str(), bucket);
        xpxlh_read_unlock(&table_, bucket);
        if (!hit) put(key, bucket);
        return hit;
    }

  private:
    void put(const std::string &key, uint32_t bucket) {
        xpxlh_write_lock_by_nr(&table_, bucket);
        xpxlh_put(&table_, key.c_str(), &key, bucket);
        xpxlh_write_unlock(&table_, bucket);
        xpxlh_diet(&table_);
    }
    xp_xlruhash table_;
};

class guarded_cache {
  public:
    bool access(const std::string &key) {
        const std::lock_guard lock(mutex_);
        const bool hit = cache_.get(key);
        if (!hit) cache_.put(key);
        return hit;
    }

  private:
    std::mutex mutex_;
    std_cache cache_;
};

template <class Cache>
struct full : Cache {
    full() {
        for (size_t i = 0; i < accesses / 2; i++) this->access(*input().sequence[i]);
    }
};

template <class Cache>
void mix(benchmark::State &state) {
    static full<Cache> cache;
    const auto &sequence = input().sequence;
    size_t at = sequence.size() / static_cast<size_t>(state.threads()) * static_cast<size_t>(state.thread_index());
    int64_t hits = 0;
    for (auto _ : state) {
        hits += cache.access(*sequence[at]);
        if (++at == sequence.size()) at = 0;
    }
    state.counters["hits"] = benchmark::Counter(static_cast<double>(hits) / static_cast<double>(state.iterations()),
                                                benchmark::Counter::kAvgThreads);
}

BENCHMARK(mix<vorncore_cache>)->Name("get_or_put/vorncore")->Threads(1)->Threads(2)->Threads(4)->UseRealTime();
BENCHMARK(mix<guarded_cache>)
    ->Name("get_or_put/mutex, std::list and std::unordered_map")
    ->Threads(1)
    ->Threads(2)
    ->Threads(4)
    ->UseRealTime();

} // namespace
