#include <benchmark/benchmark.h>

#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "vorncore/base/hashtable.h"
#ifdef HAVE_GLIB
#include <glib.h>
#endif
#ifdef HAVE_APR
#include <apr_general.h>
#include <apr_hash.h>
#endif
#ifdef HAVE_ABSL
#include <absl/container/flat_hash_map.h>
#endif

namespace {

// Random texts of one length. Searches come with texts of their own, and in an order long enough that no branch
// predictor learns it.
struct keys {
    std::vector<std::string> stored, shuffled, searched, absent;
};

const keys &keys_of(const benchmark::State &state) {
    static std::unordered_map<int64_t, std::unique_ptr<keys>> cache;
    const auto count = static_cast<size_t>(state.range(0)), length = static_cast<size_t>(state.range(1));
    auto &slot = cache[state.range(0) << 8 | state.range(1)];
    if (slot) return *slot;
    slot = std::make_unique<keys>();
    std::mt19937_64 random(1);
    const auto fresh = [&] {
        std::string key;
        while (key.size() < length)
            key += "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ-_"[random() % 64];
        return key;
    };
    std::vector<size_t> order;
    for (size_t i = 0; i < count; i++) slot->stored.push_back(fresh()), order.push_back(i);
    std::shuffle(order.begin(), order.end(), random);
    for (const size_t i : order) slot->shuffled.push_back(slot->stored[i].c_str());
    for (size_t i = 0; i < std::max<size_t>(count, 1 << 17); i++) {
        slot->searched.push_back(slot->stored[random() % count].c_str());
        slot->absent.push_back(fresh());
    }
    return *slot;
}

// A table is what the four workloads need: put(stored key), get(key), del(key). It borrows its keys or owns copies.
template <bool owns>
struct vorncore_table {
    xp_hashtable table;
    explicit vorncore_table(size_t n) {
        const auto copy = [](const void *key) -> void * { return strdup(static_cast<const char *>(key)); };
        xp_init_hashtable(&table, xp_getprime_over(static_cast<int>(n)), nullptr, nullptr, owns ? +copy : nullptr,
                          owns ? free : nullptr, nullptr, nullptr);
    }
    ~vorncore_table() { xp_close_hashtable(&table); }
    void put(const std::string &key) { xpht_put(&table, key.c_str(), &key); }
    void *get(const std::string &key) { return xpht_get(&table, key.c_str()); }
    void del(const std::string &key) { xpht_del(&table, key.c_str()); }
};

template <class Map>
struct map_table {
    Map map;
    explicit map_table(size_t n) { map.reserve(n); }
    void put(const std::string &key) { map.try_emplace(key, &key); }
    const void *get(const std::string &key) {
        const auto found = map.find(key);
        return found == map.end() ? nullptr : found->second;
    }
    void del(const std::string &key) { map.erase(key); }
};

template <class Table>
void insert(benchmark::State &state) {
    const keys &k = keys_of(state);
    for (auto _ : state) {
        auto table = std::make_unique<Table>(k.stored.size());
        for (const auto &key : k.stored) table->put(key);
        state.PauseTiming();
        table.reset();
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

template <class Table>
void search(benchmark::State &state, const std::vector<std::string> &searched) {
    const keys &k = keys_of(state);
    Table table(k.stored.size());
    for (const auto &key : k.stored) table.put(key);
    for (auto _ : state)
        for (const auto &key : searched) benchmark::DoNotOptimize(table.get(key));
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(searched.size()));
}
template <class Table>
void hit(benchmark::State &state) {
    search<Table>(state, keys_of(state).searched);
}
template <class Table>
void miss(benchmark::State &state) {
    search<Table>(state, keys_of(state).absent);
}

template <class Table>
void del(benchmark::State &state) {
    const keys &k = keys_of(state);
    for (auto _ : state) {
        state.PauseTiming();
        auto table = std::make_unique<Table>(k.stored.size());
        for (const auto &key : k.stored) table->put(key);
        state.ResumeTiming();
        for (const auto &key : k.shuffled) table->del(key);
        state.PauseTiming();
        table.reset();
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

#define WORKLOADS(Table, keys, who)                                                                                    \
    WORKLOAD(insert, Table, keys, who);                                                                                \
    WORKLOAD(hit, Table, keys, who);                                                                                   \
    WORKLOAD(miss, Table, keys, who);                                                                                  \
    WORKLOAD(del, Table, keys, who)
#define WORKLOAD(name, Table, keys, who)                                                                               \
    BENCHMARK(name<Table>)->Name(#name "_" keys "/" who)->ArgsProduct({{1000, 100'000, 1'000'000}, {8, 16, 40}})

using std_map = map_table<std::unordered_map<std::string_view, const void *>>;
using std_owner = map_table<std::unordered_map<std::string, const void *>>;
WORKLOADS(vorncore_table<false>, "borrowed", "vorncore");
WORKLOADS(vorncore_table<true>, "owned", "vorncore");
WORKLOADS(std_map, "borrowed", "std::unordered_map");
WORKLOADS(std_owner, "owned", "std::unordered_map");

#ifdef HAVE_GLIB
template <bool owns>
struct glib_table {
    GHashTable *table;
    explicit glib_table(size_t)
        : table(g_hash_table_new_full(g_str_hash, g_str_equal, owns ? g_free : nullptr, nullptr)) {}
    ~glib_table() { g_hash_table_destroy(table); }
    void put(const std::string &key) {
        g_hash_table_insert(table, owns ? g_strdup(key.c_str()) : (gpointer)key.c_str(), (gpointer)&key);
    }
    void *get(const std::string &key) { return g_hash_table_lookup(table, key.c_str()); }
    void del(const std::string &key) { g_hash_table_remove(table, key.c_str()); }
};
WORKLOADS(glib_table<false>, "borrowed", "GHashTable");
WORKLOADS(glib_table<true>, "owned", "GHashTable");
#endif

#ifdef HAVE_APR
struct apr_table {
    apr_pool_t *pool;
    apr_hash_t *table;
    explicit apr_table(size_t) {
        [[maybe_unused]] static const apr_status_t started = apr_initialize();
        apr_pool_create(&pool, nullptr);
        table = apr_hash_make(pool);
    }
    ~apr_table() { apr_pool_destroy(pool); }
    void put(const std::string &key) { apr_hash_set(table, key.c_str(), APR_HASH_KEY_STRING, &key); }
    void *get(const std::string &key) { return apr_hash_get(table, key.c_str(), APR_HASH_KEY_STRING); }
    void del(const std::string &key) { apr_hash_set(table, key.c_str(), APR_HASH_KEY_STRING, nullptr); }
};
WORKLOADS(apr_table, "borrowed", "apr_hash");
#endif

#ifdef HAVE_ABSL
using absl_map = map_table<absl::flat_hash_map<std::string_view, const void *>>;
using absl_owner = map_table<absl::flat_hash_map<std::string, const void *>>;
WORKLOADS(absl_map, "borrowed", "absl::flat_hash_map");
WORKLOADS(absl_owner, "owned", "absl::flat_hash_map");
#endif

// The hash alone, over keys that fit the nearest cache.
template <class Hash>
void hash(benchmark::State &state, Hash hash) {
    std::vector<std::string> keys;
    std::mt19937 random(2);
    for (int i = 0; i < 64; i++) {
        std::string &key = keys.emplace_back();
        while (key.size() < static_cast<size_t>(state.range(0))) key += static_cast<char>('a' + random() % 26);
    }
    for (auto _ : state)
        for (const auto &key : keys) benchmark::DoNotOptimize(hash(key));
    state.SetBytesProcessed(state.iterations() * state.range(0) * static_cast<int64_t>(keys.size()));
}
#define HASH(who, function)                                                                                            \
    BENCHMARK_CAPTURE(hash, who, function)->Name("hash/" #who)->Arg(8)->Arg(16)->Arg(40)->Arg(256)
HASH(vorncore, [](const std::string &key) { return xp_rotate_hashf(key.c_str(), 1009); });
HASH(std::hash, [](const std::string &key) { return std::hash<std::string>()(key); });
#ifdef HAVE_GLIB
HASH(g_str_hash, [](const std::string &key) { return g_str_hash(key.c_str()); });
#endif

} // namespace
