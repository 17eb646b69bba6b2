#include "vorncore/io/readbuf2.h"

#include "vorncore/io/internal/readbuf.h"
#include "vorncore/io/internal/syscall.h"

using namespace vorncore;

// input[input_position .. input_end) has been read and belongs to no record yet; record[.. record_position) has been
// copied. A read waits until the input is used up and then fills its area from the start, so nothing is ever moved.

namespace {

size_t block_size(int input_size, int max_record) {
    return saturating_sum(bytes_of<char>(max_record), bytes_of<char>(input_size));
}

bool init(xprb2 *rb, int descriptor, int max_record) {
    *rb = {};
    rb->timeout = -1;
    rb->max_record = max_record;
    rb->input_size = buffer_size();
    rb->record = max_record < 0 ? nullptr : try_array<char>(block_size(rb->input_size, max_record));
    if (!rb->record) return false;
    rb->input = rb->record + max_record;
    xprb2_reset(rb, descriptor);
    return true;
}

char *take_input(xprb2 *rb, int *length) {
    *length = static_cast<int>(rb->input_end - rb->input_position);
    rb->input_end = rb->input_position;
    return rb->input_position;
}

/// The window of a search (internal/readbuf.h).
class by_copy {
  public:
    explicit by_copy(xprb2 *rb)
        : rb_(rb), input_(rb->input_position), input_end_(rb->input_end), record_end_(rb->record_position) {}

    bool holds(int length) const { return length > 0 && length <= rb_->max_record; }

    /// The input is read whatever the ending's length: scan() copies until there can be one.
    bool await(int) { return input_ != input_end_ || fill(); }

    /// Copies the input up to and with each byte that may complete the ending: what must precede it is then in the
    /// record.
    template <class Ending>
    char *scan(const Ending &ending) {
        copy_at_most(ending.length() - 1 - scanned());
        while (const ptrdiff_t count = copyable()) {
            const char *const last = find_byte(input_, ending.last_byte(), count);
            copy(last ? last + 1 - input_ : count);
            if (last && ending.matches(record_end_ - 1)) return record_end_ - ending.length();
        }
        return nullptr;
    }

    void copy_at_most(ptrdiff_t count) { copy(std::max<ptrdiff_t>(0, std::min(count, copyable()))); }

    char *record() const { return rb_->record; }
    ptrdiff_t scanned() const { return record_end_ - rb_->record; }
    bool full() const { return scanned() == rb_->max_record; }
    bool spills() const { return full(); }
    void drop() { record_end_ = rb_->record; }

    char *take() {
        drop();
        save();
        return record();
    }

    char *overflow() { return refuse(rb_); }

  private:
    ptrdiff_t copyable() const { return std::min(input_end_ - input_, rb_->max_record - scanned()); }

    void copy(ptrdiff_t count) {
        memcpy(record_end_, input_, static_cast<size_t>(count));
        record_end_ += count;
        input_ += count;
    }

    bool fill() {
        const int got = read_into(rb_, rb_->input, rb_->input_size);
        input_ = input_end_ = rb_->input;
        if (got > 0) input_end_ += got;
        if (got < 1) save();
        return got > 0;
    }

    void save() {
        rb_->input_position = input_;
        rb_->input_end = input_end_;
        rb_->record_position = record_end_;
    }

    xprb2 *rb_;
    char *input_;
    char *input_end_;
    char *record_end_;
};

} // namespace

void xp_init_readbuf2(xprb2 *rb, int descriptor, int max_record) {
    if (!init(rb, descriptor, max_record)) out_of_memory("xp_init_readbuf2", block_size(rb->input_size, max_record));
}

xprb2 *xp_create_readbuf2(int descriptor, int max_record) { return create_record<xprb2>(init, descriptor, max_record); }

void xp_close_readbuf2(xprb2 *rb) {
    free(rb->record);
    free(rb->message);
}

void xp_destroy_readbuf2(xprb2 *rb) { destroy_record(rb, xp_close_readbuf2); }

void xprb2_reset(xprb2 *rb, int descriptor) {
    rb->fd = descriptor;
    rb->input_position = rb->input_end = rb->input;
    rb->record_position = rb->record;
    clear_failure(rb);
}

char *xprb2_read_to_delimiter(xprb2 *rb, char **end, int delimiter) {
    return read_until(by_copy(rb), end, byte_ending{static_cast<char>(delimiter)});
}

char *xprb2_read_to_delimiter_ex(xprb2 *rb, char **end, int delimiter, xp_membuf *mb) {
    if (!mb) return xprb2_read_to_delimiter(rb, end, delimiter);
    return read_until_into(by_copy(rb), end, byte_ending{static_cast<char>(delimiter)}, mb);
}

char *xprb2_read_to_pattern(xprb2 *rb, char **end, const char *pattern, int length) {
    return read_until(by_copy(rb), end, pattern_ending{pattern, length});
}

char *xprb2_read_all(xprb2 *rb, int length) {
    by_copy window(rb);
    if (length < 0 || length > rb->max_record) return window.overflow();
    while (window.scanned() < length) {
        if (!window.await(1)) return nullptr;
        window.copy_at_most(length - window.scanned());
    }
    return window.take();
}

char *xprb2_read(xprb2 *rb, int *length) {
    if (rb->input_position != rb->input_end) return take_input(rb, length);
    // The larger area is the better one to read into, but the record area may hold the beginning of a record.
    const bool record_area = rb->input_size <= rb->max_record && rb->record_position == rb->record;
    char *const data = record_area ? rb->record : rb->input;
    const int got = read_into(rb, data, record_area ? rb->max_record : rb->input_size);
    if (got > 0 || got == IOERROR_EOF) *length = std::max(got, 0);
    return got > 0 ? data : nullptr;
}

char *xprb2_read_bufdata(xprb2 *rb, int *length) {
    char *const data = take_input(rb, length);
    return *length > 0 ? data : nullptr;
}

int xprb2_unread(xprb2 *rb, const void *data, int length) {
    if (length == 0) return 1;
    return push_back(rb, rb->input, rb->input_size, rb->input_position, rb->input_end, data, length);
}

const char *xprb2_lasterrmsg(xprb2 *rb) { return failure_text(rb, readbuf_message_size); }

xpi_istream *xprb2_create_istream(xprb2 *rb) { return create_istream<xprb2_lasterrmsg, xprb2_read>(rb); }
