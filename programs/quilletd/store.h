// One store: texts by key, for any number of threads.
#pragma once

#include <atomic>
#include <memory>
#include <string>

namespace quilletd {

enum class result { done, no_store, no_key, full };

/// A number of things that there may be at a time, shared by all threads.
class budget {
  public:
    explicit budget(long long limit) : limit_(limit) {}

    /// Takes `more` in place of `less`; false when that would be too many in all.
    bool take(long long more, long long less = 0) {
        long long used = used_;
        do
            if (used - less + more > limit_) return false;
        while (!used_.compare_exchange_weak(used, used - less + more));
        return true;
    }
    void give_back(long long count) { used_ -= count; }
    long long used() const { return used_; }

  private:
    const long long limit_;
    std::atomic<long long> used_ = 0;
};

/// Keys and values are kept in the form in which they travel, so that an answer is a copy of what came.
class store {
  public:
    virtual ~store() = default;

    virtual result put(const char *key, const char *value) = 0;
    virtual void del(const char *key) = 0;
    /// False when there is no such key.
    virtual bool get(const char *key, std::string *value) = 0;
    /// Appends a line "KEY=VALUE" for each entry of the first bucket from `bucket` on that has any. Returns the bucket
    /// to go on with, 0 at the end. A listing goes bucket by bucket so that it may pause while others change the store.
    virtual int list_bucket(int bucket, std::string *lines) = 0;
    virtual int count() = 0;
    /// Entries that had to go for others; exact when nobody is at work on the store.
    virtual long long evicted() = 0;
};

/// A store that is full refuses a new entry, or drops the one unused longest for it. Its entries take their memory from
/// `bytes`, which outlives it.
std::unique_ptr<store> new_store(int max_entries, bool evicts, budget &bytes);

} // namespace quilletd
