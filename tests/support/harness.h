// The harness of every test program. After each test it checks that no block and no descriptor is left open; the test
// program's main() is here too.
#pragma once

#include <gtest/gtest.h>

#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace harness {

/// Blocks that the library and the tests have allocated with the C allocator and not freed yet.
long live_blocks();
int open_descriptors();

/// Lets the nth allocation of this thread fail for as long as the object lives.
class fail_allocation {
  public:
    explicit fail_allocation(int nth);
    ~fail_allocation();
    bool fired() const;
};

/// Runs a scenario with its 1st, 2nd, 3rd, ... allocation failing, until none is left to fail. The scenario cleans up
/// after itself whatever fails, and checks what a failed call leaves behind.
template <class Scenario>
void oom_sweep(Scenario scenario) {
    for (int nth = 1;; nth++) {
        SCOPED_TRACE("failing allocation " + std::to_string(nth));
        fail_allocation failure(nth);
        scenario();
        if (failure.fired()) continue;
        EXPECT_GT(nth, 1) << "the scenario allocates nothing";
        return;
    }
}

/// A copy of bytes that ends right before an unmapped page: reading one byte too far crashes.
class guard_page {
  public:
    explicit guard_page(std::string_view bytes);
    ~guard_page();
    guard_page(const guard_page &) = delete;
    char *data() { return data_; }

  private:
    char *base_, *data_;
    size_t mapped_;
};

/// The same of a text and its NUL.
struct guarded_text : guard_page {
    explicit guarded_text(const char *text) : guard_page({text, strlen(text) + 1}) {}
};

} // namespace harness
