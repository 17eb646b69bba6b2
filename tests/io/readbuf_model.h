// Both read buffers beside a string, under operations that a text of choices decides: the seeded test makes the text at
// random, the fuzzer at its will.
#pragma once

#include <limits.h>
#include <stddef.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <type_traits>

#include "vorncore/io/io.h"
#include "vorncore/io/readbuf.h"
#include "vorncore/io/readbuf2.h"

/// The calls of a kind, which is named by its record.
template <auto Init, auto Create, auto Close, auto Destroy, auto Reset, auto Lasterrmsg, auto ToDelimiter,
          auto ToDelimiterEx, auto ToPattern, auto All, auto Read, auto Bufdata, auto Unread, auto Istream>
struct readbuf_calls {
    static constexpr auto init = Init;
    static constexpr auto create = Create;
    static constexpr auto close = Close;
    static constexpr auto destroy = Destroy;
    static constexpr auto reset = Reset;
    static constexpr auto lasterrmsg = Lasterrmsg;
    static constexpr auto to_delimiter = ToDelimiter;
    static constexpr auto to_delimiter_ex = ToDelimiterEx;
    static constexpr auto to_pattern = ToPattern;
    static constexpr auto all = All;
    static constexpr auto read = Read;
    static constexpr auto bufdata = Bufdata;
    static constexpr auto unread = Unread;
    static constexpr auto istream = Istream;
};
template <class Record>
struct calls;
template <>
struct calls<xprb>
    : readbuf_calls<xp_init_readbuf, xp_create_readbuf, xp_close_readbuf, xp_destroy_readbuf, xprb_reset,
                    xprb_lasterrmsg, xprb_read_to_delimiter, xprb_read_to_delimiter_ex, xprb_read_to_pattern,
                    xprb_read_all, xprb_read, xprb_read_bufdata, xprb_unread, xprb_create_istream> {};
template <>
struct calls<xprb2>
    : readbuf_calls<xp_init_readbuf2, xp_create_readbuf2, xp_close_readbuf2, xp_destroy_readbuf2, xprb2_reset,
                    xprb2_lasterrmsg, xprb2_read_to_delimiter, xprb2_read_to_delimiter_ex, xprb2_read_to_pattern,
                    xprb2_read_all, xprb2_read, xprb2_read_bufdata, xprb2_unread, xprb2_create_istream> {};

inline int scanned(const xprb &rb) { return static_cast<int>(rb.scan - rb.data); }
inline int scanned(const xprb2 &rb) { return static_cast<int>(rb.record_position - rb.record); }
inline int unscanned(const xprb &rb) { return static_cast<int>(rb.data_end - rb.scan); }
inline int unscanned(const xprb2 &rb) { return static_cast<int>(rb.input_end - rb.input_position); }

template <class Record>
class readbuf_model {
  public:
    explicit readbuf_model(std::string_view choices) : choices_(choices), max_(choose(20)), input_(choose(20) + 1) {
        expect(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends_) == 0, "socketpair");
        xp_io_buffer_size = input_;
        on::init(&rb_, ends_[0], max_);
        xp_io_buffer_size = 8192;
        xp_init_membuf(&mb_, 1);
        rb_.timeout = 0;
    }
    ~readbuf_model() {
        on::close(&rb_);
        xp_close_membuf(&mb_);
        for (const int end : ends_) close(end);
    }
    readbuf_model(const readbuf_model &) = delete;

    /// What went wrong, empty when all operations did what the string says.
    std::string run() {
        while (!choices_.empty() && fault_.empty()) {
            const int step = choose(10);
            switch (step) {
            case 0:
            case 1: send(choose_bytes()); break;
            case 2:
            case 3:
            case 4: search(endings[choose(8)]); break;
            case 5: search_ex('\n'); break;
            case 6: read_all(choose(max_ + 3) - 1); break;
            case 7: read(choose(24) - 2); break;
            case 8: read(21 + choose(2)); break;
            case 9: unread(choose_bytes()); break;
            }
            expect(::scanned(rb_) == scanned_, "the part of a record that is kept");
            if (!fault_.empty()) fault_ += " (step " + std::to_string(step) + ", pending '" + pending_ + "')";
        }
        return fault_;
    }

  private:
    using on = calls<Record>;
    static constexpr bool copies = std::is_same_v<Record, xprb2>;
    static constexpr std::string_view endings[] = {"\n", "a", "", "ab", "aba", "\r\n", "\r\n\r\n", "aaaaaaaaaaaa"};

    int choose(int count) {
        const int choice = choices_.empty() ? 0 : static_cast<unsigned char>(choices_[0]) % count;
        choices_.remove_prefix(std::min<size_t>(1, choices_.size()));
        return choice;
    }
    std::string choose_bytes() {
        std::string bytes;
        for (int left = choose(24); left > 0; left--) bytes += "ab\r\n"[choose(4)];
        return bytes;
    }
    void expect(bool condition, const char *what) {
        if (!condition && fault_.empty()) fault_ = std::string(copies ? "second" : "first") + " kind: " + what;
    }
    void fails(const char *result, int code) { expect(!result && rb_.last_error == code, "a failure"); }
    /// Expects `count` bytes of what is pending, and takes them out.
    void gives(const char *result, int count, int at = 0) {
        const auto from = static_cast<size_t>(at), length = static_cast<size_t>(count);
        expect(result && pending_.substr(from, length) == std::string_view(result, length), "the bytes");
        pending_.erase(from, length);
        scanned_ = at;
    }
    void gives_record(const char *result, const char *end, size_t length, int ending) {
        gives(result, static_cast<int>(length));
        expect(end == result + length && !*end, "the end of the record");
        pending_.erase(0, static_cast<size_t>(ending));
    }
    int pending() const { return static_cast<int>(pending_.size()); }
    int kept() const { return copies ? scanned_ : 0; } // of pending, what reads do not give

    void send(const std::string &bytes) {
        if (pending() > 2000) return;
        expect(write(ends_[1], bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()), "write");
        pending_ += bytes;
    }

    void search(std::string_view ending) {
        const Record before = rb_;
        const int length = static_cast<int>(ending.size());
        char *end = nullptr, *record = length == 1 ? on::to_delimiter(&rb_, &end, ending[0])
                                                   : on::to_pattern(&rb_, &end, ending.data(), length);
        if (length < 1 || length > max_) return fails(record, IOERROR_OVERFLOW);
        const auto from = static_cast<size_t>(std::max(0, scanned_ - length + 1));
        const size_t at = pending_.substr(0, static_cast<size_t>(max_)).find(ending, from);
        if (at != std::string::npos) return gives_record(record, end, at, length);
        fails(record, pending() >= max_ ? IOERROR_OVERFLOW : IOERROR_READTIMEOUT);
        if (pending() >= max_) return start_again(before);
        if (copies || pending() >= length) scanned_ = pending();
    }

    /// After a record that does not fit, which leaves the positions as they were.
    void start_again(const Record &before) {
        expect(memcmp(&rb_, &before, offsetof(Record, last_error)) == 0, "positions that stay");
        on::reset(&rb_, ends_[0]);
        char sink[4096];
        while (recv(ends_[0], sink, sizeof sink, MSG_DONTWAIT) > 0) continue;
        pending_.clear();
        scanned_ = 0;
    }

    void search_ex(char ending) {
        char *end = nullptr;
        char *record = on::to_delimiter_ex(&rb_, &end, ending, &mb_);
        if (max_ == 0) return fails(record, IOERROR_OVERFLOW);
        const size_t at = pending_.find(ending, static_cast<size_t>(scanned_));
        if (at != std::string::npos) return gives_record(record, end, at, 1);
        fails(record, IOERROR_READTIMEOUT);
        const int gathered = copies ? pending() / max_ * max_ : scanned_ == pending() ? 0 : pending();
        expect(mb_.cursor - mb_.data == gathered, "what gathers in the memory buffer");
        gives(mb_.data, gathered);
        scanned_ = pending();
    }

    void read_all(int length) {
        const char *bytes = on::all(&rb_, length);
        if (length < 0 || length > max_) return fails(bytes, IOERROR_OVERFLOW);
        if (pending() < length) {
            if (copies) scanned_ = pending();
            return fails(bytes, IOERROR_READTIMEOUT);
        }
        const int dropped = std::max(0, kept() - length);
        gives(bytes, length);
        pending_.erase(0, static_cast<size_t>(dropped));
    }

    /// What is there, or else what one read gives, at most so many bytes; or, from 21 on, in the other ways.
    void read(int maximum) {
        const int there = unscanned(rb_) + scanned_ - kept();
        int length = -1;
        const char *bytes = nullptr;
        if (maximum == 21) bytes = on::bufdata(&rb_, &length);
        if (maximum > 21 || (copies && maximum != 21)) bytes = on::read(&rb_, &length);
        if constexpr (!copies)
            if (maximum < 21) bytes = xprb_read_upto(&rb_, &length, maximum);
        if (maximum == 21 && there == 0) return expect(!bytes && length == 0, "nothing buffered");
        if (copies || maximum > 20) maximum = INT_MAX;
        if (maximum < 0 || (!copies && max_ == 0 && there == 0)) return fails(bytes, IOERROR_OVERFLOW);
        if (pending() == kept()) return fails(bytes, length == -1 ? IOERROR_READTIMEOUT : 0);
        expect(there > 0 ? length == std::min(there, maximum) : length > 0 || maximum == 0, "a length");
        gives(bytes, length, kept());
    }

    void unread(const std::string &bytes) {
        const int length = static_cast<int>(bytes.size());
        const bool fits = unscanned(rb_) + length <= (copies ? input_ : max_) || (copies && length == 0);
        expect(on::unread(&rb_, bytes.data(), length) == fits, "bytes put back");
        if (!fits) return fails(nullptr, IOERROR_OVERFLOW);
        if (!copies) pending_.erase(0, static_cast<size_t>(scanned_));
        scanned_ = kept();
        pending_.insert(static_cast<size_t>(scanned_), bytes);
    }

    std::string_view choices_;
    std::string fault_;
    int ends_[2] = {-1, -1};
    int max_, input_;
    Record rb_;
    xp_membuf mb_;
    std::string pending_; // sent, and not handed out
    int scanned_ = 0;     // bytes of it that end no record; in the second kind, the part of a record that is copied
};
