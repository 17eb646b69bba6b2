// Threads read and overwrite values under 1e5 text keys that every table borrows; how often is in the name.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <mutex>
#include <random>
#include <shared_mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "vorncore/base/xhashtable.h"
#ifdef HAVE_TBB
#include <tbb/concurrent_hash_map.h>
#endif

namespace {

constexpr size_t key_count = 100'000;
constexpr int stripe_count = 64;

// Searches come with texts of their own, in an order that no branch predictor learns; each thread begins elsewhere.
struct keys {
    std::vector<std::string> stored, searched;
    keys() {
        std::mt19937_64 random(1);
        for (size_t i = 0; i < key_count; i++) {
            std::string &key = stored.emplace_back();
            while (key.size() < 16)
                key += "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ-_"[random() % 64];
        }
        for (size_t i = 0; i < 1 << 18; i++) searched.push_back(stored[random() % key_count]);
    }
};
const keys &all_keys() {
    static const keys all;
    return all;
}

struct vorncore_table {
    xp_xhashtable table;
    vorncore_table() {
        xp_init_xhashtable(&table, stripe_count, XP_RWLOCK_WRITER_FIRST, xp_getprime_over(key_count), nullptr, nullptr,
                           nullptr, nullptr, nullptr, nullptr);
    }
    ~vorncore_table() { xp_close_xhashtable(&table); }
    void put(const std::string &key, const void *value) {
        const int bucket = xpxht_write_lock(&table, key.c_str());
        xpxht_update(&table, key.c_str(), value, bucket);
        xpxht_write_unlock(&table, bucket);
    }
    const void *get(const std::string &key) {
        const int bucket = xpxht_read_lock(&table, key.c_str());
        const void *const value = xpxht_get(&table, key.c_str(), bucket);
        xpxht_read_unlock(&table, bucket);
        return value;
    }
};

struct striped_map {
    struct stripe {
        alignas(64) std::shared_mutex mutex;
        std::unordered_map<std::string_view, const void *> map;
    };
    std::array<stripe, stripe_count> stripes;
    striped_map() {
        for (stripe &s : stripes) s.map.reserve(2 * key_count / stripe_count);
    }
    stripe &of(const std::string &key) {
        return stripes[std::hash<std::string_view>()(key) >> 48 & (stripe_count - 1)];
    }
    void put(const std::string &key, const void *value) {
        stripe &s = of(key);
        const std::lock_guard hold(s.mutex);
        s.map.insert_or_assign(key, value);
    }
    const void *get(const std::string &key) {
        stripe &s = of(key);
        const std::shared_lock hold(s.mutex);
        const auto found = s.map.find(key);
        return found == s.map.end() ? nullptr : found->second;
    }
};

#ifdef HAVE_TBB
struct tbb_map {
    struct by_text {
        static size_t hash(std::string_view key) { return std::hash<std::string_view>()(key); }
        static bool equal(std::string_view a, std::string_view b) { return a == b; }
    };
    using map = tbb::concurrent_hash_map<std::string_view, const void *, by_text>;
    map table{key_count};
    void put(const std::string &key, const void *value) {
        map::accessor place;
        table.insert(place, key);
        place->second = value;
    }
    const void *get(const std::string &key) {
        map::const_accessor place;
        return table.find(place, key) ? place->second : nullptr;
    }
};
#endif

template <class Table>
void mixed(benchmark::State &state) {
    static Table *table;
    const keys &all = all_keys();
    if (state.thread_index() == 0) {
        table = new Table;
        for (const auto &key : all.stored) table->put(key, &key);
    }
    const auto writes = static_cast<size_t>(state.range(0)); // of a hundred
    size_t i = static_cast<size_t>(state.thread_index()) * 77'777, turn = 0;
    for (auto _ : state) {
        const std::string &key = all.searched[i++ % all.searched.size()];
        turn += writes;
        if (turn >= 100) {
            turn -= 100;
            table->put(all.stored[i % key_count], &key);
        } else {
            benchmark::DoNotOptimize(table->get(key));
        }
    }
    state.SetItemsProcessed(state.iterations());
    if (state.thread_index() == 0) delete table;
}

#define MIXED(Table, who)                                                                                              \
    BENCHMARK(mixed<Table>)                                                                                            \
        ->Name("mixed/" who)                                                                                           \
        ->ArgName("writes")                                                                                            \
        ->Arg(5)                                                                                                       \
        ->Arg(50)                                                                                                      \
        ->Threads(1)                                                                                                   \
        ->Threads(2)                                                                                                   \
        ->Threads(4)                                                                                                   \
        ->UseRealTime()
MIXED(vorncore_table, "vorncore");
MIXED(striped_map, "striped_unordered_map");
#ifdef HAVE_TBB
MIXED(tbb_map, "tbb::concurrent_hash_map");
#endif

} // namespace
