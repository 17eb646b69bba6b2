#include <benchmark/benchmark.h>

#include <algorithm>
#include <memory>
#include <random>
#include <unordered_map>
#include <vector>

#include "vorncore/base/datahash.h"
#include "vorncore/base/hashtable.h"
#ifdef HAVE_GLIB
#include <glib.h>
#endif

namespace {

// Random keys of 8 bytes with values of 8 bytes; searches come in another order.
struct keys {
    std::vector<uint64_t> stored, searched, absent;
    explicit keys(size_t n) : stored(n), absent(n) {
        std::mt19937_64 random(1);
        std::generate(stored.begin(), stored.end(), random);
        std::generate(absent.begin(), absent.end(), random);
        searched = stored;
        std::shuffle(searched.begin(), searched.end(), random);
    }
};

struct vorncore_table {
    xp_datahash table;
    explicit vorncore_table(size_t n) {
        const int buckets = xp_getprime_over(static_cast<int>(n));
        xp_init_datahash(&table, static_cast<uint32_t>(buckets), nullptr, nullptr, 8, nullptr, nullptr, 8, nullptr,
                         nullptr);
    }
    ~vorncore_table() { xp_close_datahash(&table); }
    void put(const uint64_t &key) { xpdh_put(&table, &key, &key); }
    void *get(const uint64_t &key) { return xpdh_get(&table, &key); }
};

struct std_table {
    std::unordered_map<uint64_t, uint64_t> map;
    explicit std_table(size_t n) { map.reserve(n); }
    void put(const uint64_t &key) { map.try_emplace(key, key); }
    const void *get(const uint64_t &key) {
        const auto found = map.find(key);
        return found == map.end() ? nullptr : &found->second;
    }
};

template <class Table>
void insert(benchmark::State &state) {
    const keys k(static_cast<size_t>(state.range(0)));
    for (auto _ : state) {
        Table table(k.stored.size());
        for (const uint64_t &key : k.stored) table.put(key);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

template <class Table>
void search(benchmark::State &state, const std::vector<uint64_t> &searched, const keys &k) {
    Table table(k.stored.size());
    for (const uint64_t &key : k.stored) table.put(key);
    for (auto _ : state)
        for (const uint64_t &key : searched) benchmark::DoNotOptimize(table.get(key));
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
template <class Table>
void hit(benchmark::State &state) {
    const keys k(static_cast<size_t>(state.range(0)));
    search<Table>(state, k.searched, k);
}
template <class Table>
void miss(benchmark::State &state) {
    const keys k(static_cast<size_t>(state.range(0)));
    search<Table>(state, k.absent, k);
}

#define WORKLOAD(name, Table, who) BENCHMARK(name<Table>)->Name(#name "/" who)->Arg(1000)->Arg(100'000)
#define WORKLOADS(Table, who)                                                                                          \
    WORKLOAD(insert, Table, who);                                                                                      \
    WORKLOAD(hit, Table, who);                                                                                         \
    WORKLOAD(miss, Table, who)

WORKLOADS(vorncore_table, "vorncore");
WORKLOADS(std_table, "std::unordered_map");

#ifdef HAVE_GLIB
// Key and value are the pointers themselves.
struct glib_table {
    GHashTable *table;
    explicit glib_table(size_t) : table(g_hash_table_new(g_direct_hash, g_direct_equal)) {}
    ~glib_table() { g_hash_table_destroy(table); }
    void put(const uint64_t &key) {
        g_hash_table_insert(table, reinterpret_cast<gpointer>(key), reinterpret_cast<gpointer>(key));
    }
    void *get(const uint64_t &key) { return g_hash_table_lookup(table, reinterpret_cast<gconstpointer>(key)); }
};
WORKLOADS(glib_table, "GHashTable(direct)");
#endif

} // namespace
