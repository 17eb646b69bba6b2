#include <benchmark/benchmark.h>

#include "cachemix.h"
#include "vorncore/base/hashtable.h"
#include "vorncore/base/lruhash.h"
#ifdef HAVE_GLIB
#include <glib.h>
#endif

using namespace cache_mix;

namespace {

class vorncore_cache {
  public:
    vorncore_cache() {
        xp_init_lruhash(&table_, capacity, xp_getprime_over(capacity), nullptr, nullptr, nullptr, nullptr, nullptr,
                        nullptr);
    }
    ~vorncore_cache() { xp_close_lruhash(&table_); }
    const void *get(const std::string &key) { return xplh_get(&table_, key.c_str()); }
    void put(const std::string &key) { xplh_put(&table_, key.c_str(), &key); }

  private:
    xp_lruhash table_;
};

template <class Cache>
void mix(benchmark::State &state) {
    const workload &w = input();
    Cache cache;
    size_t at = 0, hits = 0;
    const auto access = [&] {
        const std::string &key = *w.sequence[at];
        if (++at == w.sequence.size()) at = 0;
        if (cache.get(key))
            hits++;
        else
            cache.put(key);
    };
    for (int i = 0; i < accesses / 2; i++) access(); // the cache is full
    hits = 0;
    for (auto _ : state) access();
    state.counters["hits"] = static_cast<double>(hits) / static_cast<double>(state.iterations());
}

BENCHMARK(mix<vorncore_cache>)->Name("get_or_put/vorncore");
BENCHMARK(mix<std_cache>)->Name("get_or_put/std::list and std::unordered_map");

#ifdef HAVE_GLIB
class glib_cache {
  public:
    ~glib_cache() {
        g_hash_table_destroy(places_);
        g_queue_clear(&items_);
    }
    const void *get(const std::string &key) {
        GList *const found = static_cast<GList *>(g_hash_table_lookup(places_, key.c_str()));
        if (!found) return nullptr;
        g_queue_unlink(&items_, found);
        g_queue_push_head_link(&items_, found);
        return found->data;
    }
    void put(const std::string &key) {
        if (items_.length >= capacity)
            g_hash_table_remove(places_, static_cast<const std::string *>(g_queue_pop_tail(&items_))->c_str());
        g_queue_push_head(&items_, const_cast<std::string *>(&key));
        g_hash_table_insert(places_, const_cast<char *>(key.c_str()), items_.head);
    }

  private:
    GHashTable *places_ = g_hash_table_new(g_str_hash, g_str_equal);
    GQueue items_ = G_QUEUE_INIT;
};
BENCHMARK(mix<glib_cache>)->Name("get_or_put/GHashTable and GQueue");
#endif

} // namespace
