#include "programs/vorn/files.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

#include "programs/vorn/command.h"
#include "vorncore/io/io.h"

namespace vorn {

input::input(const char *file)
    : fd_(file && strcmp(file, "-") != 0 ? open(file, O_RDONLY | O_CLOEXEC) : STDIN_FILENO),
      error_(fd_ < 0 ? errno : 0) {}

input::~input() {
    if (fd_ > STDIN_FILENO) close(fd_);
}

size_t input::read(void *to, int size) {
    if (error_) return 0;
    const int count = xp_read_timeout(fd_, to, size, -1);
    if (count < 0 && count != IOERROR_EOF) error_ = errno;
    return count > 0 ? static_cast<size_t>(count) : 0;
}

bool input::read_all(bytes *to) {
    for (size_t length = 0, count = 1; count && !error_;) {
        if (length > INT_MAX - 2 * chunk_size)
            error_ = EFBIG;
        else if (!xpmb_set_size(to, length + chunk_size))
            error_ = ENOMEM;
        count = read(to->data + length, chunk_size);
        length += count;
        xpmb_set_size(to, length);
    }
    xpmb_tostr(to);
    return !error_;
}

line_reader::line_reader(const char *file) : file_(file) {
    xp_init_readbuf(&in_, file_.fd(), chunk_size);
    xp_init_membuf(&long_line_, 256);
}

line_reader::~line_reader() {
    xp_close_membuf(&long_line_);
    xp_close_readbuf(&in_);
}

char *line_reader::next(size_t *length) {
    if (file_.error() || at_end_) return nullptr;
    char *end;
    char *line = xprb_read_to_delimiter_ex(&in_, &end, '\n', &long_line_);
    if (!line) { // the last line may lack its line feed: then it has gathered in the memory buffer
        at_end_ = true;
        if (in_.last_error != IOERROR_EOF || long_line_.cursor == long_line_.data) return nullptr;
        line = xpmb_tostr(&long_line_);
        end = long_line_.cursor;
    }
    if (end > line && end[-1] == '\r') *--end = '\0';
    *length = static_cast<size_t>(end - line);
    return line;
}

const char *line_reader::failure() {
    if (file_.error()) return strerror(file_.error());
    return in_.last_error != 0 && in_.last_error != IOERROR_EOF ? xprb_lasterrmsg(&in_) : nullptr;
}

output::~output() {
    xpwb_reset(&buffer, -1);
    xp_close_writebuf(&buffer);
}

int output::finish() {
    if (xpwb_flush(&buffer) == 1) return exit_done;
    fprintf(stderr, "vorn %s: write: %s\n", command_, xpwb_lasterrmsg(&buffer));
    return exit_failure;
}

} // namespace vorn
