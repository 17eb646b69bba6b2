#include <benchmark/benchmark.h>

#include <math.h>

#include <algorithm>
#include <list>
#include <numeric>
#include <random>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "vorncore/base/hashtable.h"
#include "vorncore/base/lruhash.h"
#ifdef HAVE_GLIB
#include <glib.h>
#endif

namespace {

constexpr int key_count = 1'000'000, capacity = 100'000, accesses = 2'000'000;

// Texts of 16 characters, accessed with a probability of 1 / rank ^ 0.99.
struct workload {
    std::vector<std::string> keys;
    std::vector<const std::string *> sequence;

    workload() {
        std::mt19937_64 random(1);
        for (int i = 0; i < key_count; i++) {
            char text[17];
            snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(random()));
            keys.emplace_back(text);
        }
        std::vector<double> cumulated;
        double sum = 0;
        for (int rank = 1; rank <= key_count; rank++) cumulated.push_back(sum += pow(rank, -0.99));
        std::uniform_real_distribution<double> uniform(0, sum);
        for (int i = 0; i < accesses; i++) {
            const auto rank = std::upper_bound(cumulated.begin(), cumulated.end(), uniform(random)) - cumulated.begin();
            sequence.push_back(&keys[static_cast<size_t>(std::min<ptrdiff_t>(rank, key_count - 1))]);
        }
    }
};

const workload &input() {
    static const workload one;
    return one;
}

// A cache is what the mix needs: get(key), and put(key) of an absent key. All of them borrow the keys.
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

class std_cache {
  public:
    std_cache() { places_.reserve(capacity); }
    const void *get(const std::string &key) {
        const auto found = places_.find(key);
        if (found == places_.end()) return nullptr;
        items_.splice(items_.begin(), items_, found->second);
        return found->second->second;
    }
    void put(const std::string &key) {
        if (places_.size() >= capacity) {
            places_.erase(items_.back().first);
            items_.pop_back();
        }
        items_.emplace_front(key, &key);
        places_.emplace(key, items_.begin());
    }

  private:
    using item = std::pair<std::string_view, const void *>;
    std::list<item> items_;
    std::unordered_map<std::string_view, std::list<item>::iterator> places_;
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
