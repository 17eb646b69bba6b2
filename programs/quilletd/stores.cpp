#include "programs/quilletd/stores.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

#include "programs/quilletd/heldslot.h"

namespace quilletd {

namespace {

void *copy_text(const void *text) { return strdup(static_cast<const char *>(text)); }
store *store_of(const void *value) { return static_cast<store *>(const_cast<void *>(value)); }

/// At most seven digits of base 36; a counter that has gone round starts over.
std::string id_of(unsigned long long number) {
    std::string id;
    for (number %= 78'364'164'096ULL; number > 0 || id.empty(); number /= 36)
        id.insert(id.begin(), "0123456789abcdefghijklmnopqrstuvwxyz"[number % 36]);
    return id;
}

} // namespace

stores::stores(const limits &allowed) : allowed_(allowed), places_(allowed.stores), bytes_(allowed.bytes) {
    xp_init_xhashtable(&table_, 64, XP_RWLOCK_WRITER_FIRST, xp_getprime_over(std::clamp(allowed.stores, 60, 100'000)),
                       nullptr, nullptr, copy_text, free, nullptr, nullptr);
}

stores::~stores() {
    const auto destroy = [](void *, xp_pair *pair) { return delete store_of(pair->value), 1; };
    xpxht_enumerate(&table_, destroy, nullptr, -1);
    xp_close_xhashtable(&table_);
}

template <class Use>
bool stores::use(const char *id, Use use) {
    const held_slot slot(&table_, id, xpxht_read_lock, xpxht_read_unlock);
    store *const found = store_of(xpxht_get(&table_, id, slot.bucket));
    if (found) use(*found);
    return found;
}

std::string stores::create() {
    if (!places_.take(1)) return {};
    try {
        auto made = new_store(allowed_.entries, allowed_.evicts, bytes_);
        std::string id;
        while (!insert(id = id_of(++made_), made.get())) {
        }
        static_cast<void>(made.release()); // the table has it
        return id;
    } catch (const std::bad_alloc &) {
        places_.give_back(1);
        throw;
    }
}

/// False when there is a store of that id.
bool stores::insert(const std::string &id, store *made) {
    const held_slot slot(&table_, id.c_str(), xpxht_write_lock, xpxht_write_unlock);
    if (xpxht_contains(&table_, id.c_str(), slot.bucket)) return false;
    if (!xpxht_put(&table_, id.c_str(), made, slot.bucket)) throw std::bad_alloc();
    return true;
}

result stores::purge(const char *id) {
    std::unique_ptr<store> gone; // ends behind the lock
    {
        const held_slot slot(&table_, id, xpxht_write_lock, xpxht_write_unlock);
        gone.reset(store_of(xpxht_get(&table_, id, slot.bucket)));
        xpxht_del(&table_, id, slot.bucket);
    }
    if (!gone) return result::no_store;
    evicted_ += gone->evicted();
    places_.give_back(1);
    return result::done;
}

result stores::put(const char *id, const char *key, const char *value) {
    result done = result::done;
    const bool found = use(id, [&](store &s) { *value ? void(done = s.put(key, value)) : s.del(key); });
    return found ? done : result::no_store;
}

result stores::get(const char *id, const char *key, std::string *value) {
    bool got = false;
    if (!use(id, [&](store &s) { got = s.get(key, value); })) return result::no_store;
    return got ? result::done : result::no_key;
}

bool stores::exists(const char *id) {
    return use(id, [](store &) {});
}

int stores::list_bucket(const char *id, int bucket, std::string *lines) {
    int next = 0;
    use(id, [&](store &s) { next = s.list_bucket(bucket, lines); });
    return next;
}

statistics stores::take_statistics() {
    statistics sums{0, 0, bytes_.used(), evicted_};
    const auto add = [](void *argument, xp_pair *pair) {
        auto *to = static_cast<statistics *>(argument);
        to->entries += store_of(pair->value)->count();
        to->evicted += store_of(pair->value)->evicted();
        return 1;
    };
    sums.stores = xpxht_enumerate(&table_, add, &sums, 0);
    return sums;
}

} // namespace quilletd
