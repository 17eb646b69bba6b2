#include "vorncore/io/writebuf.h"

#include <algorithm>

#include "vorncore/base/format.h"
#include "vorncore/base/internal/number.h"
#include "vorncore/base/internal/urlcode.h"
#include "vorncore/io/internal/lasterror.h"
#include "vorncore/io/timeutil.h"

using namespace vorncore;

// Invariant between calls: the current block has room, unless formatted output just filled it: that asks for room when
// it needs a byte, while plain writers flush a block as soon as it is full.

namespace {

enum status : int32_t { failed = 0, done = 1, pending = 2 };

constexpr size_t message_size = 2048;
constexpr int drain_pause = 100; // milliseconds between attempts when a buffer is closed

char *block_end(const xpwb *wb) { return wb->current.start + wb->block_size; }

size_t room(const xpwb *wb) { return static_cast<size_t>(block_end(wb) - wb->current.write_position); }

void set_empty(xpwb_block *block) { block->write_position = block->flush_position = block->start; }

bool new_block(xpwb *wb) {
    char *const start = try_array<char>(wb->block_size);
    if (!start) return false;
    wb->current = {start, start, start};
    return true;
}

void free_block(void *block) { free(static_cast<xpwb_block *>(block)->start); }

bool init(xpwb *wb, int descriptor, int block_size) {
    *wb = {};
    wb->block_size = std::max(block_size, 1);
    wb->timeout = wb->max_pending = -1;
    xp_init_datalist(&wb->pending, sizeof(xpwb_block), nullptr, free_block);
    if (!new_block(wb)) return false;
    xpwb_reset(wb, descriptor);
    return true;
}

/// Queues the current block, full and not written, and starts a new one: 1, 0 at the limit, -1 when memory is short.
int queue_block(xpwb *wb) {
    const xpwb_block full = wb->current;
    if (wb->max_pending >= 0 && wb->pending.count >= wb->max_pending) {
        wb->status = failed;
        return 0;
    }
    if (new_block(wb)) {
        if (xpdl_add(&wb->pending, &full)) return 1;
        free(wb->current.start);
        wb->current = full;
    }
    errno = ENOMEM;
    set_failure(wb, IOERROR_WRITE);
    wb->status = failed;
    return -1;
}

/// Makes the full current block give room: 1, or the result of the writer that needs it.
int make_room(xpwb *wb) {
    const int result = xpwb_flush(wb);
    if (result == pending) return queue_block(wb);
    return result == done ? 1 : -1;
}

/// `put` of bytes that reach the end of the block.
[[gnu::noinline]] int put_across(xpwb *wb, const char *data, size_t length) {
    while (length) {
        const size_t run = std::min(length, room(wb));
        memcpy(wb->current.write_position, data, run);
        wb->current.write_position += run;
        data += run;
        length -= run;
        if (room(wb) == 0)
            if (const int result = make_room(wb); result != 1) return result;
    }
    return 1;
}

/// 1, or the result of a writer that failed.
int put(xpwb *wb, const char *data, size_t length) {
    if (wb->status == failed) return -1;
    if (length >= room(wb)) return put_across(wb, data, length);
    wb->current.write_position = append(wb->current.write_position, data, length);
    return 1;
}

struct format_target : xp_fmt_target {
    xpwb *wb;

    void aim_at_room() {
        begin = wb->current.write_position;
        end = block_end(wb);
    }
};

} // namespace

static int32_t __formatter_newbuf(xp_fmt_target *target) {
    auto *out = static_cast<format_target *>(target);
    out->wb->current.write_position = block_end(out->wb);
    if (make_room(out->wb) != 1) return 0;
    out->aim_at_room();
    return 1;
}

void xp_init_writebuf(xpwb *wb, int descriptor, int block_size) {
    if (!init(wb, descriptor, block_size)) out_of_memory("xp_init_writebuf", bytes_of<char>(block_size));
}

xpwb *xp_create_writebuf(int descriptor, int block_size) { return create_record<xpwb>(init, descriptor, block_size); }

void xp_close_writebuf(xpwb *wb) {
    while (wb->pending.count || wb->current.flush_position != wb->current.write_position) {
        if (xpwb_flush(wb) != pending) break;
        xp_psleep(drain_pause);
    }
    xp_close_datalist(&wb->pending);
    free(wb->current.start);
    free(wb->message);
}

void xp_destroy_writebuf(xpwb *wb) { destroy_record(wb, xp_close_writebuf); }

void xpwb_reset(xpwb *wb, int descriptor) {
    xpdl_clear(&wb->pending);
    set_empty(&wb->current);
    clear_failure(wb);
    wb->fd = descriptor;
    wb->status = done;
}

xpwb *xpwb_set_flush_noti(xpwb *wb, xp_flush_noti_fn function, void *argument) {
    wb->flush_noti = function;
    wb->noti_argument = argument;
    return wb;
}

int xpwb_write(xpwb *wb, const void *data, int length) {
    const int result = put(wb, static_cast<const char *>(data), static_cast<size_t>(std::max(length, 0)));
    return result == 1 ? length : result;
}

int xpwb_write_str(xpwb *wb, const char *text) {
    const size_t length = strlen(text);
    const int result = put(wb, text, length);
    return result == 1 ? static_cast<int>(length) : result;
}

int xpwb_write_str_v(xpwb *wb, const char *text, ...) {
    int sum = wb->status == failed ? -1 : 0;
    va_list texts;
    va_start(texts, text);
    for (; text && sum >= 0; text = va_arg(texts, const char *)) {
        const int taken = xpwb_write_str(wb, text);
        sum = taken < 0 ? -1 : sum + taken;
    }
    va_end(texts);
    return sum;
}

int xpwb_write_char(xpwb *wb, int character) {
    const char byte = static_cast<char>(character);
    return put(wb, &byte, 1);
}

int xpwb_write_str_url_encode(xpwb *wb, const char *text) {
    int result = wb->status == failed ? -1 : 1;
    if (result != 1) return result;
    const char *const end = url_encode(text, [&](const url_code &code) {
        if (room(wb) > sizeof code) { // stored whole, and the block is not full after it
            memcpy(wb->current.write_position, &code, sizeof code);
            wb->current.write_position += code.length;
            return true;
        }
        result = put(wb, code.text, code.length);
        return result == 1;
    });
    return result == 1 ? static_cast<int>(end - text) : result;
}

int64_t xpwb_write_istream(xpwb *wb, xpi_istream *stream) {
    if (wb->status == failed) return -1;
    int64_t total = 0;
    uint32_t length = 0;
    while (const char *chunk = stream->read(stream, &length)) {
        if (length == 0) break;
        if (const int result = put(wb, chunk, length); result != 1) return result;
        total += length;
    }
    return total;
}

int xpwb_vprintf(xpwb *wb, const char *format, va_list arguments) {
    if (wb->status == failed) return -1;
    format_target out{};
    out.newbuf = __formatter_newbuf;
    out.wb = wb;
    out.aim_at_room();
    const int count = xp_vformat(&out, format, arguments);
    if (count >= 0) wb->current.write_position = out.cursor;
    return count;
}

int xpwb_printf(xpwb *wb, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int count = xpwb_vprintf(wb, format, arguments);
    va_end(arguments);
    return count;
}

int xpwb_flush_anonbuf(xpwb *wb, xpwb_block *block) {
    if (block->flush_position == block->write_position) return done;
    const int length = static_cast<int>(block->write_position - block->flush_position);
    if (wb->flush_noti) wb->flush_noti(wb->noti_argument, block->flush_position, length);
    const int written = xp_write_timeout(wb->fd, block->flush_position, length, wb->timeout);
    if (written < 0) {
        set_failure(wb, written);
        return written == IOERROR_WRITE && wb->saved_errno == EAGAIN ? pending : failed;
    }
    block->flush_position += written;
    return written == length ? done : pending;
}

int xpwb_flush(xpwb *wb) {
    if (wb->status == failed) return failed;
    xp_datanode *const head = xpdl_head(&wb->pending);
    for (xp_datanode *node = head->next; node != head; node = xpdl_del(&wb->pending, node)) {
        const int result = xpwb_flush_anonbuf(wb, reinterpret_cast<xpwb_block *>(node->data));
        if (result != done) return wb->status = result;
    }
    wb->status = xpwb_flush_anonbuf(wb, &wb->current);
    if (wb->status == done) set_empty(&wb->current);
    return wb->status;
}

const char *xpwb_lasterrmsg(xpwb *wb) { return failure_text(wb, message_size); }

namespace {

xpwb *buffer_behind(void *stream) { return static_cast<xpwb *>(static_cast<xpi_ostream *>(stream)->context); }

} // namespace

xpi_ostream *xpwb_create_ostream(xpwb *wb) {
    return create_record<xpi_ostream>([=](xpi_ostream *stream) {
        *stream = {
            free,
            [](void *s) { return xpwb_lasterrmsg(buffer_behind(s)); },
            [](void *s) { return buffer_behind(s)->last_error; },
            nullptr,
            [](void *s, const void *data, uint32_t length) -> int32_t {
                return xpwb_write(buffer_behind(s), data, static_cast<int>(length));
            },
            [](void *s) -> int32_t { return xpwb_flush(buffer_behind(s)) != failed; },
            wb,
        };
        return true;
    });
}
