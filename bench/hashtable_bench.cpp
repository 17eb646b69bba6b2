#include <benchmark/benchmark.h>

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

// Random texts of one length. The tables hold `stored`; searches come with texts of their own, in another order.
struct keys {
    std::vector<std::string> stored, searched, absent;
};

const keys &keys_of(const benchmark::State &state) {
    static std::unordered_map<int64_t, std::unique_ptr<keys>> cache;
    auto &slot = cache[state.range(0) << 8 | state.range(1)];
    if (slot) return *slot;
    slot = std::make_unique<keys>();
    std::mt19937_64 random(1);
    const auto fresh = [&] {
        std::string key;
        while (key.size() < static_cast<size_t>(state.range(1)))
            key += "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ-_"[random() % 64];
        return key;
    };
    for (int64_t i = 0; i < state.range(0); i++) slot->stored.push_back(fresh());
    for (int64_t i = 0; i < state.range(0); i++) slot->absent.push_back(fresh());
    std::vector<const std::string *> order; // copied one by one: a text that is searched for is near at hand
    for (const auto &key : slot->stored) order.push_back(&key);
    std::shuffle(order.begin(), order.end(), random);
    for (const auto *key : order) slot->searched.push_back(key->c_str());
    return *slot;
}

// A table is what the four workloads need: put(stored key), get(key), del(key).
struct vorncore_table {
    xp_hashtable table;
    explicit vorncore_table(size_t n) {
        xp_init_hashtable(&table, xp_getprime_over(static_cast<int>(n)), nullptr, nullptr, nullptr, nullptr, nullptr,
                          nullptr);
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
using std_table = map_table<std::unordered_map<std::string, const void *>>;
using std_view_table = map_table<std::unordered_map<std::string_view, const void *>>; // borrows its keys

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
    Table table(searched.size());
    for (const auto &key : keys_of(state).stored) table.put(key);
    for (auto _ : state)
        for (const auto &key : searched) benchmark::DoNotOptimize(table.get(key));
    state.SetItemsProcessed(state.iterations() * state.range(0));
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
        Table table(k.stored.size());
        for (const auto &key : k.stored) table.put(key);
        state.ResumeTiming();
        for (const auto &key : k.searched) table.del(key);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

#define WORKLOADS(Table, who)                                                                                          \
    WORKLOAD(insert, Table, who);                                                                                      \
    WORKLOAD(hit, Table, who);                                                                                         \
    WORKLOAD(miss, Table, who);                                                                                        \
    WORKLOAD(del, Table, who)
#define WORKLOAD(name, Table, who)                                                                                     \
    BENCHMARK(name<Table>)->Name(#name "/" who)->ArgsProduct({{1000, 100'000, 1'000'000}, {8, 16, 40}})

WORKLOADS(vorncore_table, "vorncore");
WORKLOADS(std_table, "std::unordered_map<string>");
WORKLOADS(std_view_table, "std::unordered_map<string_view>");

#ifdef HAVE_GLIB
struct glib_table {
    GHashTable *table;
    explicit glib_table(size_t) : table(g_hash_table_new(g_str_hash, g_str_equal)) {}
    ~glib_table() { g_hash_table_destroy(table); }
    void put(const std::string &key) { g_hash_table_insert(table, (gpointer)key.c_str(), (gpointer)&key); }
    void *get(const std::string &key) { return g_hash_table_lookup(table, key.c_str()); }
    void del(const std::string &key) { g_hash_table_remove(table, key.c_str()); }
};
WORKLOADS(glib_table, "GHashTable");
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
WORKLOADS(apr_table, "apr_hash");
#endif

#ifdef HAVE_ABSL
using absl_table = map_table<absl::flat_hash_map<std::string, const void *>>;
WORKLOADS(absl_table, "absl::flat_hash_map<string>");
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
