#include "vorncore/io/readbuf.h"

#include "vorncore/io/internal/readbuf.h"

using namespace vorncore;

// Bytes are appended at data_end and handed out at data. When the block's end is reached, the bytes not handed out move
// to its front: the block holds two records, so this happens at most once for each record size read.

namespace {

size_t block_size(int max_record) { return saturating_product(bytes_of<char>(max_record), 2); }

bool init(xprb *rb, int descriptor, int max_record) {
    *rb = {};
    rb->max_record = max_record;
    rb->timeout = -1;
    const size_t size = block_size(max_record);
    rb->block = max_record < 0 ? nullptr : try_array<char>(size);
    if (!rb->block) return false;
    rb->block_end = rb->block + size;
    xprb_reset(rb, descriptor);
    return true;
}

void set_empty(xprb *rb) { rb->data = rb->data_end = rb->scan = rb->block; }

char *take(xprb *rb, int *length, int maximum) {
    char *const data = rb->data;
    const ptrdiff_t count = rb->data_end - data;
    *length = static_cast<int>(std::min<ptrdiff_t>(count, maximum));
    if (count <= maximum)
        set_empty(rb);
    else
        rb->data = rb->scan = data + maximum;
    return data;
}

/// The window of a search (internal/readbuf.h).
class in_place {
  public:
    explicit in_place(xprb *rb) : rb_(rb), data_(rb->data), data_end_(rb->data_end), scan_(rb->scan) {}

    bool holds(int length) const { return length > 0 && length <= rb_->max_record; }

    /// Reads until at least `length` bytes are there.
    bool hold(int length) {
        while (data_end_ - data_ < length)
            if (!fill(length)) return false;
        return true;
    }

    bool await(int length) { return hold(length) && (scan_ != data_end_ || fill(length)); }

    /// What was scanned for another ending may be shorter than this one: the search starts where the first can end.
    template <class Ending>
    char *scan(const Ending &ending) {
        char *const limit = data_ + std::min<ptrdiff_t>(data_end_ - data_, rb_->max_record);
        char *last = std::max(scan_, data_ + ending.length() - 1);
        while ((last = find_byte(last, ending.last_byte(), limit - last))) {
            last++;
            if (!ending.matches(last - 1)) continue;
            scan_ = last;
            return last - ending.length();
        }
        scan_ = limit;
        return nullptr;
    }

    char *record() const { return data_; }
    ptrdiff_t scanned() const { return scan_ - data_; }
    bool full() const { return scanned() == rb_->max_record; }
    static bool spills() { return true; }
    void drop() { data_ = scan_; }

    char *take() { return take(scan_ - data_); }
    char *take(ptrdiff_t length) {
        char *const record = data_;
        data_ = scan_ = record + length;
        save();
        return record;
    }

    char *overflow() { return refuse(rb_); }

  private:
    /// One read into the rest of the block, in which `length` bytes from data_ must find room.
    bool fill(int length) {
        if (data_ == data_end_ || data_end_ == rb_->block_end || rb_->block_end - data_ < length) move_to_front();
        const int got = read_into(rb_, data_end_, rb_->block_end - data_end_);
        if (got > 0) data_end_ += got;
        if (got < 1) save();
        return got > 0;
    }

    void move_to_front() {
        const ptrdiff_t pending = data_end_ - data_, scanned = scan_ - data_;
        memmove(rb_->block, data_, static_cast<size_t>(pending));
        data_ = rb_->block;
        scan_ = data_ + scanned;
        data_end_ = data_ + pending;
    }

    void save() {
        rb_->data = data_;
        rb_->data_end = data_end_;
        rb_->scan = scan_;
    }

    xprb *rb_;
    char *data_;
    char *data_end_;
    char *scan_;
};

} // namespace

void xp_init_readbuf(xprb *rb, int descriptor, int max_record) {
    if (!init(rb, descriptor, max_record)) out_of_memory("xp_init_readbuf", block_size(max_record));
}

xprb *xp_create_readbuf(int descriptor, int max_record) { return create_record<xprb>(init, descriptor, max_record); }

void xp_close_readbuf(xprb *rb) {
    free(rb->block);
    free(rb->message);
}

void xp_destroy_readbuf(xprb *rb) { destroy_record(rb, xp_close_readbuf); }

void xprb_reset(xprb *rb, int descriptor) {
    rb->fd = descriptor;
    set_empty(rb);
    clear_failure(rb);
}

char *xprb_read_to_delimiter(xprb *rb, char **end, int delimiter) {
    return read_until(in_place(rb), end, byte_ending{static_cast<char>(delimiter)});
}

char *xprb_read_to_delimiter_ex(xprb *rb, char **end, int delimiter, xp_membuf *mb) {
    if (!mb) return xprb_read_to_delimiter(rb, end, delimiter);
    return read_until_into(in_place(rb), end, byte_ending{static_cast<char>(delimiter)}, mb);
}

char *xprb_read_to_pattern(xprb *rb, char **end, const char *pattern, int length) {
    return read_until(in_place(rb), end, pattern_ending{pattern, length});
}

char *xprb_read_line(xprb *rb, char **end) {
    char *line_end = nullptr;
    char *const line = xprb_read_to_delimiter(rb, &line_end, '\n');
    if (line && line_end > line && line_end[-1] == '\r') *--line_end = '\0';
    if (end) *end = line_end;
    return line;
}

char *xprb_read_all(xprb *rb, int length) {
    in_place window(rb);
    if (length < 0 || length > rb->max_record) return window.overflow();
    return window.hold(length) ? window.take(length) : nullptr;
}

char *xprb_read(xprb *rb, int *length) { return xprb_read_upto(rb, length, INT_MAX); }

char *xprb_read_upto(xprb *rb, int *length, int maximum) {
    if (maximum < 0) return refuse(rb);
    if (rb->data == rb->data_end) {
        set_empty(rb);
        const int got = read_into(rb, rb->block, rb->max_record);
        if (got == IOERROR_EOF) *length = 0;
        if (got < 1) return nullptr;
        rb->data_end += got;
    }
    return take(rb, length, maximum);
}

char *xprb_read_bufdata(xprb *rb, int *length) {
    *length = 0;
    return rb->data == rb->data_end ? nullptr : take(rb, length, INT_MAX);
}

int xprb_unread(xprb *rb, const void *data, int length) {
    if (!push_back(rb, rb->block, rb->max_record, rb->scan, rb->data_end, data, length)) return 0;
    rb->data = rb->scan;
    return 1;
}

const char *xprb_lasterrmsg(xprb *rb) { return failure_text(rb, readbuf_message_size); }

xpi_istream *xprb_create_istream(xprb *rb) { return create_istream<xprb_lasterrmsg, xprb_read>(rb); }
