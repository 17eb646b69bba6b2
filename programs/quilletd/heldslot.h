// A slot of a lock-striped table, plain or LRU.
#pragma once

namespace quilletd {

/// The slot of a key, held for as long as the object lives.
template <class Record, class Number>
class held_slot {
  public:
    held_slot(Record *table, const char *key, Number (*lock)(Record *, const void *), void (*unlock)(Record *, Number))
        : bucket(lock(table, key)), table_(table), unlock_(unlock) {}
    ~held_slot() { unlock_(table_, bucket); }
    held_slot(const held_slot &) = delete;

    const Number bucket;

  private:
    Record *table_;
    void (*unlock_)(Record *, Number);
};

} // namespace quilletd
