// Bytes that wait to be handled: appended at the end, dropped from the front.
#pragma once

#include <cstring>
#include <string_view>

#include "vorncore/base/membuf.h"

namespace quilletd {

class byte_queue {
  public:
    byte_queue() { xp_init_membuf(&bytes_, 256); }
    ~byte_queue() { xp_close_membuf(&bytes_); }
    byte_queue(const byte_queue &) = delete;
    byte_queue &operator=(const byte_queue &) = delete;

    size_t size() const { return static_cast<size_t>(bytes_.cursor - bytes_.data) - dropped_; }
    bool empty() const { return size() == 0; }
    char *data() { return bytes_.data + dropped_; }

    /// False when there is no memory; nothing is appended then.
    bool append(std::string_view text) {
        if (text.empty()) return true;
        if (dropped_ > size()) close_gap();
        return xpmb_add_data(&bytes_, text.data(), text.size());
    }

    /// An empty queue gives back what it has grown to: many connections are idle most of the time.
    void drop(size_t count) {
        dropped_ += count;
        if (!empty()) return;
        dropped_ = 0;
        if (bytes_.capacity > kept_capacity)
            xpmb_reset(&bytes_);
        else
            xpmb_clear(&bytes_);
    }

  private:
    static constexpr size_t kept_capacity = 4096;

    void close_gap() {
        const size_t left = size();
        memmove(bytes_.data, data(), left);
        xpmb_set_size(&bytes_, left);
        dropped_ = 0;
    }

    xp_membuf bytes_;
    size_t dropped_ = 0; // bytes at the front that are gone
};

} // namespace quilletd
