// Records out of a file and out of a pipe. What counts is the processor time of the reader, system calls included: it
// never waits, and the time does not depend on what else the machine does.
#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <time.h>
#include <unistd.h>

#include <random>
#include <string>

#include "vorncore/io/io.h"
#include "vorncore/io/readbuf.h"
#include "vorncore/io/readbuf2.h"

namespace {

constexpr int buffer_size = 64 << 10;

/// Log lines of 20 to 99 bytes; or header blocks of eight such lines and an empty one.
std::string make_text(size_t size, bool blocks) {
    std::mt19937 random(1);
    std::string text;
    while (text.size() < size) {
        for (int line = 0; line < 8; line++) {
            text.append(20 + random() % 80, static_cast<char>('a' + random() % 26));
            text += blocks ? "\r\n" : "\n";
        }
        if (blocks) text += "\r\n";
    }
    return text;
}

/// Opens a source of `text`, lets `consume(descriptor)` read it to its end, and counts the time of that.
template <class Source, class Consume>
void read_all(benchmark::State &state, const std::string &text, Source open_source, Consume consume) {
    const auto now = [] {
        timespec time;
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
    };
    for (auto _ : state) {
        const int fd = open_source(text);
        const double start = now();
        benchmark::DoNotOptimize(consume(fd));
        state.SetIterationTime(now() - start);
        close(fd);
    }
    state.SetBytesProcessed(static_cast<int64_t>(text.size()) * state.iterations());
}

template <class Consume>
void from_file(benchmark::State &state, bool blocks, Consume consume) {
    static const std::string texts[] = {make_text(8 << 20, false), make_text(8 << 20, true)};
    const int fd = memfd_create("lines", 0);
    if (xp_write_all(fd, texts[blocks].data(), static_cast<int64_t>(texts[blocks].size()), -1) < 0) abort();
    read_all(
        state, texts[blocks],
        [=](const std::string &) {
            lseek(fd, 0, SEEK_SET);
            return dup(fd);
        },
        consume);
    close(fd);
}

template <class Consume>
void from_pipe(benchmark::State &state, bool blocks, Consume consume) {
    static const std::string texts[] = {make_text(1'000'000, false), make_text(1'000'000, true)};
    read_all(
        state, texts[blocks],
        [](const std::string &text) {
            int ends[2];
            if (pipe(ends) != 0 || fcntl(ends[1], F_SETPIPE_SZ, 1 << 20) < 1 << 20) abort();
            if (write(ends[1], text.data(), text.size()) != static_cast<ssize_t>(text.size())) abort();
            close(ends[1]);
            return ends[0];
        },
        consume);
}

long vorncore_lines(int fd) {
    xprb rb;
    xp_init_readbuf(&rb, fd, buffer_size / 2); // the block is twice this
    long total = 0;
    char *end;
    while (const char *line = xprb_read_to_delimiter(&rb, &end, '\n')) total += end - line;
    xp_close_readbuf(&rb);
    return total;
}

long vorncore2_lines(int fd) {
    xprb2 rb;
    xp_io_buffer_size = buffer_size;
    xp_init_readbuf2(&rb, fd, 4096);
    long total = 0;
    char *end;
    while (const char *line = xprb2_read_to_delimiter(&rb, &end, '\n')) total += end - line;
    xp_close_readbuf2(&rb);
    return total;
}

/// With the buffer that the C library takes by itself, 4 KiB here, when size is 0.
FILE *buffered(int fd, size_t size) {
    FILE *file = fdopen(dup(fd), "r");
    static char buffer[buffer_size];
    if (size) setvbuf(file, buffer, _IOFBF, size);
    return file;
}

template <size_t size>
long getline_lines(int fd) {
    FILE *file = buffered(fd, size);
    char *line = nullptr;
    size_t capacity = 0;
    long total = 0;
    for (ssize_t length; (length = getline(&line, &capacity, file)) >= 0;) {
        line[length - 1] = '\0';
        total += length - 1;
    }
    free(line);
    fclose(file);
    return total;
}

template <size_t size>
long fgets_lines(int fd) {
    FILE *file = buffered(fd, size);
    char line[4096];
    long total = 0;
    while (fgets(line, sizeof line, file)) {
        const size_t length = strlen(line) - 1;
        line[length] = '\0';
        total += static_cast<long>(length);
    }
    fclose(file);
    return total;
}

long vorncore_blocks(int fd) {
    xprb rb;
    xp_init_readbuf(&rb, fd, buffer_size / 2);
    long total = 0;
    char *end;
    while (const char *block = xprb_read_to_pattern(&rb, &end, "\r\n\r\n", 4)) total += end - block;
    xp_close_readbuf(&rb);
    return total;
}

long vorncore2_blocks(int fd) {
    xprb2 rb;
    xp_io_buffer_size = buffer_size;
    xp_init_readbuf2(&rb, fd, 4096);
    long total = 0;
    char *end;
    while (const char *block = xprb2_read_to_pattern(&rb, &end, "\r\n\r\n", 4)) total += end - block;
    xp_close_readbuf2(&rb);
    return total;
}

// The C library has no search for a pattern: a block is gathered from lines until an empty one comes.
template <size_t size>
long getline_blocks(int fd) {
    FILE *file = buffered(fd, size);
    char *line = nullptr;
    size_t capacity = 0;
    long total = 0;
    std::string block;
    for (ssize_t length; (length = getline(&line, &capacity, file)) >= 0;) {
        if (length == 2) {
            total += static_cast<long>(block.size()) - 2;
            block.clear();
        } else {
            block.append(line, static_cast<size_t>(length));
        }
    }
    free(line);
    fclose(file);
    return total;
}

template <size_t size>
long fgets_blocks(int fd) {
    FILE *file = buffered(fd, size);
    char block[8192]; // gathered in place
    long total = 0;
    for (size_t at = 0; fgets(block + at, static_cast<int>(sizeof block - at), file);) {
        const size_t length = strlen(block + at);
        at += length;
        if (length == 2) {
            total += static_cast<long>(at) - 4;
            at = 0;
        }
    }
    fclose(file);
    return total;
}

#define READER(workload, who, over, blocks, read)                                                                      \
    BENCHMARK_CAPTURE(over, , blocks, read)->Name(workload "/" who)->UseManualTime()
#define READERS(workload, over, blocks, what)                                                                          \
    READER(workload, "vorncore", over, blocks, vorncore_##what);                                                       \
    READER(workload, "vorncore, second kind", over, blocks, vorncore2_##what);                                         \
    READER(workload, "getline, 64 KiB", over, blocks, getline_##what<buffer_size>);                                    \
    READER(workload, "getline, 4 KiB", over, blocks, getline_##what<0>);                                               \
    READER(workload, "fgets, 64 KiB", over, blocks, fgets_##what<buffer_size>);                                        \
    READER(workload, "fgets, 4 KiB", over, blocks, fgets_##what<0>)

READERS("file_lines", from_file, false, lines);
READERS("pipe_lines", from_pipe, false, lines);
READERS("file_header_blocks", from_file, true, blocks);
READERS("pipe_header_blocks", from_pipe, true, blocks);

} // namespace
