// The files that the commands read, and what they write to standard output.
#pragma once

#include <cstddef>

#include "vorncore/base/membuf.h"
#include "vorncore/io/readbuf.h"
#include "vorncore/io/writebuf.h"

namespace vorn {

constexpr int chunk_size = 64 * 1024;

/// A memory buffer that closes itself.
struct bytes : xp_membuf {
    bytes() { xp_init_membuf(this, chunk_size); }
    ~bytes() { xp_close_membuf(this); }
    bytes(const bytes &) = delete;
    bytes &operator=(const bytes &) = delete;

    size_t length() const { return static_cast<size_t>(cursor - data); }
};

/// A file, or standard input for "-" and null. What fails is not told.
class input {
  public:
    explicit input(const char *file);
    ~input();
    input(const input &) = delete;
    input &operator=(const input &) = delete;

    int fd() const { return fd_; }
    /// Bytes that are there, at most `size`; 0 at the end, and when it failed.
    size_t read(void *to, int size);
    /// Fills the buffer with all there is, and what lies behind its contents is a NUL. The length fits an int with room
    /// to spare, or it fails.
    bool read_all(bytes *to);
    /// The errno of what failed, opening included, or 0.
    int error() const { return error_; }

  private:
    int fd_;
    int error_;
};

/// Lines of any length from a file, or from standard input for "-".
class line_reader {
  public:
    explicit line_reader(const char *file);
    ~line_reader();
    line_reader(const line_reader &) = delete;
    line_reader &operator=(const line_reader &) = delete;

    /// The next line without its line end; null at the end of the file or when it cannot be read.
    char *next(size_t *length);
    /// Why the file could not be opened or read, or null.
    const char *failure();

  private:
    input file_;
    xprb in_;
    xp_membuf long_line_;
    bool at_end_ = false;
};

/// Standard output, buffered by the library. What is left in the buffer at the end is dropped unless it was finished.
class output {
  public:
    explicit output(const char *command) : command_(command) { xp_init_writebuf(&buffer, 1, chunk_size); }
    ~output();
    output(const output &) = delete;
    output &operator=(const output &) = delete;

    bool failed() const { return buffer.status == 0; }
    /// Writes what is left. The exit code, told when it is a failure.
    int finish();

    xpwb buffer;

  private:
    const char *command_;
};

} // namespace vorn
