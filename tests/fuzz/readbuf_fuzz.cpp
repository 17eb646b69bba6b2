// Both read buffers find the records that a string of the same bytes has, in whatever pieces they arrive, and take back
// what they gave.
#include "tests/fuzz/target.h"
#include "vorncore/io/io.h"
#include "vorncore/io/readbuf.h"
#include "vorncore/io/readbuf2.h"

/// One call of both buffers: 1 when it gives what is in front of `left`, 0 when it has to be made again, -1 when it can
/// never succeed.
static int call(xprb *first, xprb2 *second, unsigned char choice, std::string &left) {
    constexpr std::string_view endings[] = {"\n", "a", "aba", "\r\n", "\r\n\r\n", "", "", ""}; // none: a count of bytes
    const std::string_view ending = endings[choice % 8];
    const auto max = static_cast<size_t>(first->max_record), count = choice / 8 % (max + 1);
    const int length = static_cast<int>(ending.empty() ? count : ending.size());
    const char *one =
        ending.empty() ? xprb_read_all(first, length) : xprb_read_to_pattern(first, nullptr, ending.data(), length);
    const char *other =
        ending.empty() ? xprb2_read_all(second, length) : xprb2_read_to_pattern(second, nullptr, ending.data(), length);
    const size_t at = ending.empty() ? count : left.substr(0, max).find(ending);
    if (at > left.size()) {
        require(!one && !other && first->last_error == second->last_error);
        return first->last_error == IOERROR_READTIMEOUT ? 0 : -1;
    }
    require(one && other && left.compare(0, at, one, at) == 0 && left.compare(0, at, other, at) == 0);
    left.erase(0, at + ending.size());
    const bool fits = first->data_end - first->scan + static_cast<int>(at) <= first->max_record &&
                      second->input_end - second->input_position + static_cast<int>(at) <= second->input_size;
    if (choice < 64 && fits) {
        const std::string given(one, at);
        left.insert(0, given);
        require(xprb_unread(first, given.data(), static_cast<int>(at)) == 1);
        require(xprb2_unread(second, given.data(), static_cast<int>(at)) == 1);
    }
    return 1;
}

static void check(std::string_view input) {
    if (input.empty()) return;
    const auto *const data = reinterpret_cast<const uint8_t *>(input.data());
    size_t size = input.size();
    const int max = data[0] % 20 + 1;
    int ends[4];
    require(pipe(ends) == 0 && pipe(ends + 2) == 0);
    xp_io_buffer_size = data[0] / 12 + 1;
    xprb *first = xp_create_readbuf(ends[0], max);
    xprb2 *second = xp_create_readbuf2(ends[2], max);
    first->timeout = second->timeout = 0;
    std::string left; // has arrived, and has not been handed out
    for (size_t i = 1, made = 1; i < size; i++) {
        std::string piece;
        for (int bits = data[i]; bits > 1; bits /= 4) piece += "ab\r\n"[bits % 4];
        for (const int end : {ends[1], ends[3]}) require(write(end, piece.data(), piece.size()) >= 0);
        left += piece;
        for (int result = 1; result > 0 && made <= i; made += result > 0)
            if ((result = call(first, second, data[made], left)) < 0) size = 0;
    }
    xp_destroy_readbuf(first);
    xp_destroy_readbuf2(second);
    for (const int end : ends) close(end);
}
