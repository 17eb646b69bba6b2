// What the benchmarks of caches share: the mix of their accesses, and what one would write without a library.
#pragma once

#include <math.h>
#include <stdint.h>
#include <stdio.h>

#include <algorithm>
#include <list>
#include <random>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace cache_mix {

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

inline const workload &input() {
    static const workload one;
    return one;
}

// A cache is what the mix needs: get(key), and put(key) of an absent key. All of them borrow the keys.
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

} // namespace cache_mix
