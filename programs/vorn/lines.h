// Text files of the subcommands, read a line at a time.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "vorncore/io/io.h"
#include "vorncore/io/readbuf.h"

namespace vorn {

/// Lines of any length from a file, or from standard input for "-".
class line_reader {
  public:
    explicit line_reader(const char *file)
        : fd_(strcmp(file, "-") != 0 ? open(file, O_RDONLY | O_CLOEXEC) : STDIN_FILENO), open_errno_(errno) {
        xp_init_readbuf(&in_, fd_, 64 * 1024);
        xp_init_membuf(&long_line_, 256);
    }
    ~line_reader() {
        xp_close_membuf(&long_line_);
        xp_close_readbuf(&in_);
        if (fd_ > STDIN_FILENO) close(fd_);
    }
    line_reader(const line_reader &) = delete;
    line_reader &operator=(const line_reader &) = delete;

    /// The next line without its line end; null at the end of the file or when it cannot be read.
    char *next(size_t *length) {
        if (fd_ < 0 || at_end_) return nullptr;
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

    /// Why the file could not be opened or read, or null.
    const char *failure() {
        if (fd_ < 0) return strerror(open_errno_);
        return in_.last_error != 0 && in_.last_error != IOERROR_EOF ? xprb_lasterrmsg(&in_) : nullptr;
    }

  private:
    int fd_;
    int open_errno_;
    xprb in_;
    xp_membuf long_line_;
    bool at_end_ = false;
};

} // namespace vorn
