#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <random>
#include <string>
#include <thread>
#include <vector>

#include "vorncore/io/writebuf.h"

namespace {

constexpr int buffer_size = 8192;

/// Where the output goes: 0 /dev/null, 1 a pipe that a thread drains.
class destination {
  public:
    explicit destination(benchmark::State &state) {
        const bool piped = state.range(0) == 1;
        state.SetLabel(piped ? "pipe" : "/dev/null");
        int ends[2] = {-1, -1};
        if (piped && pipe(ends) == 0)
            drain_ = std::thread([in = ends[0]] {
                char bytes[65536];
                while (read(in, bytes, sizeof bytes) > 0) {
                }
                close(in);
            });
        fd = piped ? ends[1] : open("/dev/null", O_WRONLY);
    }
    ~destination() {
        close(fd);
        if (drain_.joinable()) drain_.join();
    }
    int fd;

  private:
    std::thread drain_;
};

struct vorncore_output {
    explicit vorncore_output(const destination &to) : wb(xp_create_writebuf(to.fd, buffer_size)) {}
    ~vorncore_output() { xp_destroy_writebuf(wb); }
    xpwb *wb;
};

struct stdio_output {
    explicit stdio_output(const destination &to) : file(fdopen(dup(to.fd), "w")) {
        setvbuf(file, nullptr, _IOFBF, buffer_size);
    }
    ~stdio_output() { fclose(file); }
    FILE *file;
};

// A thousand texts of 0 to 2 * range(1) bytes.
template <class Output, class Write>
void strings(benchmark::State &state, Write write) {
    std::mt19937 random(1);
    std::vector<std::string> texts;
    int64_t bytes = 0;
    for (int i = 0; i < 1000; i++) {
        texts.emplace_back(random() % (2 * static_cast<unsigned>(state.range(1)) + 1), 'x');
        bytes += static_cast<int64_t>(texts.back().size());
    }
    destination to(state);
    Output out(to);
    for (auto _ : state)
        for (const std::string &text : texts) write(out, text.c_str());
    state.SetBytesProcessed(state.iterations() * bytes);
}
void vorncore_strings(benchmark::State &state) {
    strings<vorncore_output>(state, [](auto &out, const char *text) { xpwb_write_str(out.wb, text); });
}
void fwrite_strings(benchmark::State &state) {
    strings<stdio_output>(state, [](auto &out, const char *text) { fwrite(text, 1, strlen(text), out.file); });
}

// A response line and a header of it.
template <class Output, class Print>
void print(benchmark::State &state, Print print_one) {
    destination to(state);
    Output out(to);
    unsigned n = 0;
    for (auto _ : state) {
        print_one(out, "HTTP/1.1 %d %s\r\n", 200, "OK");
        print_one(out, "%s: bytes %u-%u/%08x\r\n", "Content-Range", n, n + 4096, n);
        n++;
    }
}
void vorncore_print(benchmark::State &state) {
    print<vorncore_output>(state, [](auto &out, auto... all) { xpwb_printf(out.wb, all...); });
}
void fprintf_print(benchmark::State &state) {
    print<stdio_output>(state, [](auto &out, auto... all) { fprintf(out.file, all...); });
}

#define DESTINATIONS_AND_SIZES ->ArgsProduct({{0, 1}, {8, 64}})->UseRealTime()
#define DESTINATIONS           ->Arg(0)->Arg(1)->UseRealTime()
BENCHMARK(vorncore_strings)->Name("write_1000_strings/vorncore") DESTINATIONS_AND_SIZES;
BENCHMARK(fwrite_strings)->Name("write_1000_strings/fwrite") DESTINATIONS_AND_SIZES;
BENCHMARK(vorncore_print)->Name("print_2_lines/vorncore") DESTINATIONS;
BENCHMARK(fprintf_print)->Name("print_2_lines/fprintf") DESTINATIONS;

} // namespace
