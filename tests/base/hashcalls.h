// The four hash tables under one model: random calls, and after each of them the whole table compared. And how the
// tests of the striped ones look at locks.
#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <set>

#include "support/harness.h"
#include "support/threads.h"
#include "vorncore/base/hashtable.h"
#include "vorncore/io/rwlock.h"

namespace hashes {

using texts = std::vector<std::string>;

inline const char *text(const void *item) { return static_cast<const char *>(item); }
inline uint32_t by_length(const void *key, uint32_t n) { return static_cast<uint32_t>(strlen(text(key))) % n; }
inline uint32_t by_letter(const void *key, uint32_t n) { return static_cast<uint32_t>(*text(key) - 'a') % n; }

// Hooks that keep every text for good and note which are released.
inline void *keep(const void *item) {
    static std::set<std::string> all;
    return const_cast<char *>(all.insert(text(item)).first->c_str());
}
inline std::mutex releasing;
inline std::string released;
inline void release(void *item) {
    const std::lock_guard lock(releasing);
    released += std::string("-") + text(item);
}
inline std::string take_released() {
    const std::lock_guard lock(releasing);
    return std::exchange(released, {});
}

/// The bucket or the lock mode, which the calls of a striped table take as their last argument.
struct last {
    int n;
    operator int() const { return n; }
    operator uint32_t() const { return static_cast<uint32_t>(n); }
};
template <class... Arguments>
auto call(auto *function, last bucket_or_mode, Arguments... arguments) {
    if constexpr (std::is_invocable_v<decltype(function), Arguments...>)
        return function(arguments...);
    else
        return function(arguments..., bucket_or_mode);
}

/// The reads of a table: g get, q get_pair, o get_first alone, f get_first and get_next, a get_all.
template <class Table, class Iterator, auto get, auto get_pair, auto get_all, auto get_first, auto get_next>
texts values(char how, Table *table, const char *key, last bucket) {
    texts found;
    void *value = how == 'g' ? call(get, bucket, table, key) : nullptr;
    const xp_pair *const pair = how == 'q' ? call(get_pair, bucket, table, key) : nullptr;
    if (pair && !strcmp(text(pair->key), key)) value = pair->value;
    if (how == 'o') call(get_first, bucket, table, key, nullptr, &value);
    if (value) found.push_back(text(value));
    Iterator i;
    for (int more = how == 'f' && call(get_first, bucket, table, key, &i, &value); more;
         more = call(get_next, bucket, table, &i, &value))
        found.push_back(text(value));
    xp_array all;
    xp_init_array(&all, 1, nullptr, nullptr);
    const int count = how == 'a' ? call(get_all, bucket, table, key, &all) : 0;
    EXPECT_TRUE(count == all.count && (!count || count == call(get_all, bucket, table, key, nullptr)));
    for (int n = 0; n < all.count; n++) found.push_back(text(all.items[n]));
    xp_close_array(&all);
    return found;
}

/// What a table must hold. Values differ, so they stand for their items: by bucket, the newest first; and by use, the
/// one unused longest first.
struct model {
    enum { chained, lru, shared_lru } kind;
    xp_hash_fn hash;
    std::map<std::string, std::string> key_of = {};
    texts chains[5] = {}, usage = {};
    std::string gone = {}, pending = {}; // what is released, as it is noted; and what is evicted, to be released

    texts &chain(const std::string &key) { return chains[hash(key.c_str(), 5)]; }
    texts equal(const std::string &key) {
        texts found = chain(key);
        std::erase_if(found, [&](const std::string &value) { return key_of[value] != key; });
        return found;
    }
    texts range(int first, int end) const {
        texts all;
        for (int b = std::max(first, 0); b < std::min(end, 5); b++)
            all.insert(all.end(), chains[b].begin(), chains[b].end());
        return all;
    }
    texts in_order() const { return kind == chained ? range(0, 5) : usage; }
    void use(const std::string &value) { std::erase(usage, value), usage.push_back(value); }
    int drop(const texts &values) {
        for (const std::string &value : values) {
            gone += '-' + key_of[value] + '-' + value;
            std::erase(chain(key_of[value]), value);
            std::erase(usage, value);
        }
        return static_cast<int>(values.size());
    }
    int trim(size_t limit) {
        return drop({usage.begin(), usage.end() - static_cast<ptrdiff_t>(std::min(limit, usage.size()))});
    }
    void add(const std::string &key, const std::string &value, bool evicts = false) {
        key_of[value] = key;
        chain(key).insert(chain(key).begin(), value);
        usage.push_back(value);
        const std::string before = kind == shared_lru ? std::exchange(gone, {}) : "";
        if (kind == shared_lru || (kind == lru && evicts)) trim(12);
        if (kind == shared_lru) pending = std::exchange(gone, before) + pending;
    }
    void diet() { gone += std::exchange(pending, {}); }
    int put(const std::string &key, const std::string &value, bool inserts, bool overwrites) {
        const texts found = equal(key);
        if (found.empty() && inserts) add(key, value, true);
        if (found.empty() || !overwrites) return found.empty() && inserts;
        gone += '-' + key + '-' + found[0];
        key_of[value] = key;
        for (texts *all : {&chain(key), &usage}) std::replace(all->begin(), all->end(), found[0], value);
        return 1;
    }
    void rehash(xp_hash_fn to) {
        texts moved;
        for (texts &each : chains) {
            moved.insert(kind == chained ? moved.begin() : moved.end(), each.begin(), each.end());
            each.clear();
        }
        hash = to;
        for (const std::string &value : moved) chain(key_of[value]).insert(chain(key_of[value]).begin(), value);
    }
};

inline int note_value(void *seen, xp_pair *pair) { return static_cast<texts *>(seen)->push_back(text(pair->value)), 1; }

// A hook of tables that threads share; what they release, `free` spoils.
inline void *duplicate(const void *item) { return strdup(text(item)); }

/// Who holds the slots of a lock: a digit for readers, w for a writer; and how many wait for one.
inline std::string holders(const xp_rwlock &lock, int slots) {
    std::string all;
    for (int i = 0; i < slots; i++) all += lock.active_writers[i] ? "w" : std::to_string(lock.active_readers[i]);
    return all;
}
inline size_t waiters(xp_rwlock &lock, int slot) {
    pthread_mutex_lock(&lock.mutex);
    const int waiting = lock.waiting_readers[slot] + lock.waiting_writers[slot];
    pthread_mutex_unlock(&lock.mutex);
    return static_cast<size_t>(waiting);
}

/// The calls of a table. They take the bucket or the lock mode, or neither.
template <class Enumerator, auto gets, auto peeks, auto put, auto update, auto replace, auto add, auto make, auto del,
          auto del_all, auto contains, auto count, auto enumerate, auto clear, auto start, auto next, auto drop,
          auto close, auto destroy, auto create_walk, auto destroy_walk>
struct calls {
    /// Random calls on a table of 5 buckets, and of capacity 12. `before` comes before each of them.
    static void expect_like_model(auto *t, model &m, const std::function<void(int step)> &before) {
        harness::oom_sweep([=] {
            if (Enumerator *e = call(create_walk, last{-1}, t)) destroy_walk(e);
        });
        std::mt19937 random(1);
        for (int step = 0; step < 20'000 && !testing::Test::HasFatalFailure(); step++) {
            before(step);
            ASSERT_EQ(take_released(), std::exchange(m.gone, {}));
            const size_t r = random() % 18;
            const std::string key(1 + r % 10, static_cast<char>(0xE0 + r)), value = std::to_string(step);
            const char *const k = key.c_str(), *const v = value.c_str();
            const last bucket{static_cast<int>(m.hash(k, 5) | static_cast<uint32_t>(step) << 31)}, unlocked{-1};
            const texts equal = m.equal(key), newest(equal.begin(), equal.begin() + !equal.empty());
            const char how = "gqofa"[random() % 5];
            const texts &found = strchr("fa", how) ? equal : newest;
            Enumerator e;
            SCOPED_TRACE(key + " " + value);
            const auto what = random() % 12;
            const harness::fail_allocation failure(what < 2 && step % 4 == 0);
            int flag = 9;
            switch (what) {
            default: call(add, bucket, t, k, v), m.add(key, value); break;
            case 0:
                flag = call(put, bucket, t, k, v);
                ASSERT_EQ(flag, !failure.fired() && m.put(key, value, true, false));
                break;
            case 1: {
                const void *const stored = call(make, bucket, t, k, v, &flag);
                ASSERT_EQ(flag, equal.empty() && !failure.fired());
                ASSERT_EQ(texts(stored != nullptr, stored ? text(stored) : ""), flag ? texts{value} : newest);
                if (flag) m.add(key, value);
                if (!flag && stored && m.kind == m.shared_lru) m.use(text(stored));
                break;
            }
            case 2: ASSERT_EQ(call(update, bucket, t, k, v), m.put(key, value, true, true)); break;
            case 3: ASSERT_EQ(call(replace, bucket, t, k, v), m.put(key, value, false, true)); break;
            case 4: ASSERT_EQ(call(del, bucket, t, k), m.drop(newest)); break;
            case 5: ASSERT_EQ(call(del_all, bucket, t, k), m.drop(equal)); break;
            case 6: ASSERT_EQ(peeks(how, t, k, bucket), found); break;
            case 7:
                ASSERT_EQ(gets(how, t, k, bucket), found);
                for (const std::string &each : found) m.use(each);
                break;
            case 8: { // deletes on its way
                call(start, unlocked, &e, t);
                int more = drop(&e) || next(&e);
                for (const std::string &each : m.in_order()) {
                    ASSERT_TRUE(more && text(e.current->value) == each);
                    more = random() % 4 ? next(&e) : (m.drop({each}), drop(&e));
                }
                close(&e);
                break;
            }
            case 9:
                if (step % 16 == 0) call(clear, unlocked, t), m.drop(m.range(0, 5)), m.diet();
            }
            texts order, seen;
            for (call(start, unlocked, &e, t); next(&e);) order.push_back(text(e.current->value));
            ASSERT_EQ(order, m.in_order());
            ASSERT_EQ(next(&e), m.kind != m.chained && !order.empty()) << "starts anew";
            close(&e);
            const int first = step % 7 - 3, end = 2 + step % 5;
            const int visited = call(enumerate, unlocked, t, note_value, &seen, first, end);
            ASSERT_EQ(seen, m.range(first, end));
            ASSERT_EQ(visited, std::ssize(seen));
            ASSERT_EQ(count(t), std::ssize(m.usage));
            ASSERT_EQ(call(contains, bucket, t, k), !m.equal(key).empty());
        }
        destroy(t);
        m.drop(m.range(0, 5)), m.diet();
        EXPECT_EQ(take_released(), m.gone);
    }

    /// The calls of a striped table that lock.
    template <auto read_lock, auto write_lock, auto read_unlock, auto write_unlock, auto read_by_nr, auto write_by_nr,
              auto read_all, auto write_all, auto read_unlock_all, auto write_unlock_all, auto read_keys,
              auto write_keys, auto read_unlock_keys, auto write_unlock_keys>
    struct locks {
        /// On a table of 3 slots and 8 buckets, one for each of the keys "a" to "h", and on its list, if it has one.
        /// `mark` is that of a bucket locked for writing.
        static void expect_locks(auto *t, xp_rwlock &slots, xp_rwlock *list, uint32_t mark) {
            for (const char *key : {"c", "h"}) call(put, last{static_cast<int>(by_letter(key, 8))}, t, key, key);
            xp_array keys, found;
            xp_init_array(&keys, 4, nullptr, nullptr), xp_init_array(&found, 1, nullptr, nullptr);
            for (const char *key : {"h", "c", "e", "f"}) xpar_add(&keys, key); // e and h share a slot, c and f another
            const last marked{static_cast<int>(mark | 7)};
            Enumerator e;
            const auto walk = [&](int mode, int steps) {
                int more = 0;
                for (start(&e, t, mode); steps--;) more = next(&e);
                return more;
            };
            const auto leave = [&] { close(&e); };
            const auto stopped = [&](int mode) {
                return enumerate(
                    t, [](void *, xp_pair *pair) { return int(*text(pair->key) != 'h'); }, nullptr, -5, 9, mode);
            };
            const auto leave_read = [&] { list ? xprwl_read_unlock(list, 0) : (void)0, read_unlock(t, 7); };
            const auto leave_written = [&] { list ? xprwl_write_unlock(list, 0) : (void)0, write_unlock(t, 7); };
            const auto held = [&] { return holders(slots, 3) + (list ? holders(*list, 1) : ""); };
            const struct {
                size_t result;
                std::string held; // slots, list
                std::function<size_t()> take;
                std::function<void()> leave;
            } cases[] = {
                {7, "0100", [&] { return read_lock(t, "h"); }, [&] { read_unlock(t, 4); }},
                {mark | 7, "0w00", [&] { return write_lock(t, "h"); }, [&] { write_unlock(t, 7); }},
                {7, "0100", [&] { return read_by_nr(t, marked); }, [&] { read_unlock(t, marked); }},
                {mark | 7, "0w00", [&] { return write_by_nr(t, 7); }, [&] { write_unlock(t, marked); }},
                {3, "1110", [&] { return read_all(t); }, [&] { EXPECT_EQ(read_unlock_all(t), 3); }},
                {3, "www0", [&] { return write_all(t); }, [&] { EXPECT_EQ(write_unlock_all(t), 3); }},
                {2, "0110", [&] { return read_keys(t, &keys, &found); }, [&] { read_unlock_keys(t, &found); }},
                {mark | 2, "0ww0",
                 [&] { return write_keys(t, &keys, &found), reinterpret_cast<size_t>(found.items[1]); },
                 [&] { write_unlock_keys(t, &found); }},
                {1, "0101", [&] { return stopped(0); }, leave_read},
                {1, "0w0w", [&] { return stopped(1); }, leave_written},
                {1, "0w0w", [&] { return stopped(2); }, leave_written},
                {1, "0000", [&] { return stopped(-1); }, [] {}},
                {0, "0001", [&] { return walk(0, 0); }, leave},
                {1, "0011", [&] { return walk(0, 1); }, leave},
                {1, "0w0w", [&] { return walk(1, 2); }, leave},
                {0, "000w", [&] { return walk(1, 3); }, leave},
                {1, "0000", [&] { return walk(2, 1); }, leave},
                {1, "0w0w", [&] { return walk(1, 1), drop(&e); }, leave},
            };
            for (const auto &c : cases) {
                EXPECT_EQ(c.take(), c.result) << c.held;
                EXPECT_EQ(held(), c.held.substr(0, held().size()));
                c.leave();
                EXPECT_EQ((held() + std::to_string(found.count)).find_first_not_of('0'), std::string::npos) << c.held;
            }
            for (const bool all : {false, true}) {
                read_by_nr(t, 2);
                std::thread writer([&] {
                    all ? write_all(t) : write_keys(t, &keys, &found);
                    all ? (void)write_unlock_all(t) : write_unlock_keys(t, &found);
                });
                while (!waiters(slots, 2)) std::this_thread::yield();
                EXPECT_EQ(holders(slots, 3), all ? "ww1" : "0w1") << "the lowest slot is taken first";
                read_unlock(t, 2);
                writer.join();
            }
            xp_close_array(&keys), xp_close_array(&found);
            destroy(t);
        }

        /// Threads read, write and walk under the locks that they need, and do something else in between.
        static void let_share(auto *t, int threads, auto in_between) {
            harness::in_threads(threads, [=](int self) {
                std::mt19937 random(static_cast<unsigned>(self));
                for (int n = 0; n < 48'000 / threads; n++) {
                    const std::string key = std::to_string(random() % 20 * (random() % 20));
                    const char *const k = key.c_str();
                    auto bucket = read_lock(t, k);
                    const last b{static_cast<int>(bucket)};
                    for (const std::string &value : gets("gf"[n % 2], t, k, b)) EXPECT_EQ(value, key);
                    read_unlock(t, bucket);
                    bucket = write_lock(t, k);
                    n % 3 ? put(t, k, k, bucket) : del(t, k, bucket);
                    write_unlock(t, bucket);
                    in_between(n);
                    if (n % 32) continue;
                    texts seen;
                    enumerate(t, note_value, &seen, 0, 99, n % 64 != 0);
                    Enumerator e;
                    start(&e, t, n % 64 != 0);
                    for (int more = next(&e); more; more = e.mode && random() % 2 ? drop(&e) : next(&e))
                        EXPECT_STREQ(text(e.current->key), text(e.current->value));
                    close(&e);
                }
            });
            texts left;
            EXPECT_EQ(enumerate(t, note_value, &left, 0, 99, 0), count(t));
        }
    };
};

} // namespace hashes
