// One client's conversation: request lines in, reply lines out.
#pragma once

#include "programs/quilletd/bytequeue.h"
#include "programs/quilletd/stores.h"
#include "vorncore/io/writebuf.h"

namespace quilletd {

class session {
  public:
    /// Replies go to `descriptor`, which is non-blocking; what it does not take waits.
    session(stores &all, size_t max_line, int descriptor) : all_(all), max_line_(max_line) {
        xp_init_writebuf(&output_, descriptor, block_size);
    }
    ~session() {
        xpwb_reset(&output_, -1); // a client that is gone takes nothing more
        xp_close_writebuf(&output_);
    }
    session(const session &) = delete;
    session &operator=(const session &) = delete;

    /// What the client sent: feed it, then call answer.
    bool feed(std::string_view bytes) { return input_.append(bytes); }

    /// Answers requests until there is none left or `output_limit` bytes wait for the client; true when there is more
    /// to answer as soon as some of that has gone. A single reply is never cut, so it may go beyond the limit.
    bool answer(size_t output_limit);

    /// Bytes that wait for the client.
    size_t waiting() const {
        return static_cast<size_t>(output_.pending.count) * block_size +
               static_cast<size_t>(output_.current.write_position - output_.current.flush_position);
    }
    xpwb *output() { return &output_; }
    long long requests() const { return requests_; }

  private:
    static constexpr int block_size = 8192;

    bool next_line(char **line, size_t *length);
    void answer_line(char *line, size_t length);
    void put(char *arguments);
    void get(char *arguments);
    void begin_listing(const char *store);
    void list_on();
    void write(std::string_view text) { xpwb_write(&output_, text.data(), static_cast<int>(text.size())); }
    void reply(std::string_view status, std::string_view text = {});
    void reply(result what, std::string_view done);

    stores &all_;
    size_t max_line_;
    byte_queue input_;
    xpwb output_;
    size_t scanned_ = 0;    // bytes of input known to hold no end of line
    bool skipping_ = false; // the rest of a line that was too long
    bool listing_ = false;
    char listed_store_[8] = {};
    int next_bucket_ = 0;
    long long requests_ = 0;
};

} // namespace quilletd
