// Working space for a text of the caller's length.
#pragma once

#include <stdlib.h>

namespace vorncore {

/// `size` bytes: on the stack up to 4 KiB, on the heap past that, where data() may be null.
class scratch {
  public:
    explicit scratch(size_t size) : data_(size <= sizeof stack_ ? stack_ : static_cast<char *>(malloc(size))) {}
    ~scratch() {
        if (data_ != stack_) free(data_);
    }
    scratch(const scratch &) = delete;
    scratch &operator=(const scratch &) = delete;
    char *data() { return data_; }

  private:
    char stack_[4096];
    char *data_;
};

} // namespace vorncore
