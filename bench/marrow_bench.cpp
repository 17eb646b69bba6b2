// Results of a million rows of eight columns, from a peer on a thread that sends prepared bytes over loopback: the
// client beside getline and strsep, which undo no escaping, and beside read() alone, which cuts nothing. What counts is
// the processor time of the reader, system calls included. "outside_calls" is the share of it outside system calls,
// "rows_by_wall" the rows a second of the clock on the wall.
#include <benchmark/benchmark.h>

#include <stdio.h>
#include <string.h>
#include <sys/resource.h>

#include <chrono>
#include <random>
#include <string>
#include <thread>

#include "tests/support/servers.h"
#include "vorncore/app/marrow.h"
#include "vorncore/io/io.h"
#include "vorncore/io/socket.h"

namespace {

constexpr int row_count = 1'000'000, rows_a_part = 10'000, buffer_size = 64 << 10, timeout = 10'000;

/// A number, five words, a null and a text with escaped bytes a row.
std::string make_rows() {
    std::mt19937 random(1);
    std::string rows;
    for (int row = 0; row < rows_a_part; row++) {
        rows += std::to_string(random());
        for (int column = 1; column < 6; column++)
            rows.append(",").append(2 + random() % 16, static_cast<char>('a' + random() % 26));
        rows += ",#0,one#/ two##\n";
    }
    return rows;
}
const std::string part = make_rows();

/// Answers each line on one connection with the whole result.
class gateway {
  public:
    gateway() : thread_([this] { serve(); }) {}
    ~gateway() { thread_.join(); } // once the client is gone
    gateway(const gateway &) = delete;
    int port() const { return listener_.port; }

  private:
    void serve() const {
        pollfd entry{listener_.fd, POLLIN, 0};
        poll(&entry, 1, timeout);
        const int fd = accept(listener_.fd, nullptr, nullptr);
        for (char c; read(fd, &c, 1) == 1;) {
            if (c != '\n') continue;
            xp_write_str(fd, "200 ok\n", timeout);
            for (int i = 0; i < row_count; i += rows_a_part)
                xp_write_all(fd, part.data(), static_cast<int64_t>(part.size()), timeout);
            xp_write_str(fd, "\n", timeout);
        }
        close(fd);
    }

    harness::loopback_listener listener_;
    std::thread thread_;
};

struct usage {
    double user, all;
};
usage used_so_far() {
    rusage r;
    getrusage(RUSAGE_THREAD, &r);
    const auto seconds = [](timeval t) {
        return static_cast<double>(t.tv_sec) + 1e-6 * static_cast<double>(t.tv_usec);
    };
    return {seconds(r.ru_utime), seconds(r.ru_utime) + seconds(r.ru_stime)};
}

/// Calls read_result() again and again; it returns whether it got all of the result.
template <class Read>
void results(benchmark::State &state, Read read_result) {
    using clock = std::chrono::steady_clock;
    const usage before = used_so_far();
    const auto start = clock::now();
    for (auto _ : state) {
        const double used = used_so_far().all;
        if (!read_result()) return state.SkipWithError("a result is cut short");
        state.SetIterationTime(used_so_far().all - used);
    }
    const std::chrono::duration<double> wall = clock::now() - start;
    const usage after = used_so_far();
    state.counters["outside_calls"] = (after.user - before.user) / (after.all - before.all);
    state.counters["rows_by_wall"] = static_cast<double>(state.iterations()) * row_count / wall.count();
}

template <class Read>
void vorncore_results(benchmark::State &state, Read read_result) {
    const gateway peer;
    xp_marrow client;
    xp_init_marrow(&client, "127.0.0.1", peer.port(), buffer_size / 2, timeout); // the block is twice this
    xpmw_connect(&client);
    results(state, [&] { return xpmw_stmt_open(&client, "all", 0) == XPMW_OK && read_result(&client) == row_count; });
    xp_close_marrow(&client);
}

void vorncore_fetch(benchmark::State &state) {
    vorncore_results(state, [](xp_marrow *client) {
        int rows = 0;
        for (; xpmw_stmt_fetch(client) == XPMW_OK; rows++)
            for (int i = xpmw_stmt_get_column_cnt(client); i-- > 0;)
                benchmark::DoNotOptimize(xpmw_stmt_get_column(client, i));
        return rows;
    });
}

void vorncore_fetch_all(benchmark::State &state) {
    vorncore_results(state, [](xp_marrow *client) {
        char **items;
        int columns, rows;
        xpmw_stmt_fetch_all(client, &items, &columns, &rows);
        xpmw_stmt_close(client);
        return rows;
    });
}

/// Reads result lines; calls take(column) for each column of a row.
template <class Take>
void getline_results(benchmark::State &state, Take take) {
    const gateway peer;
    const int fd = xp_connect_tcp("127.0.0.1", peer.port(), timeout);
    FILE *const in = fdopen(fd, "r");
    setvbuf(in, nullptr, _IOFBF, buffer_size);
    char *line = nullptr;
    size_t capacity = 0;
    results(state, [&] {
        xp_write_str(fd, "all\n", timeout);
        getline(&line, &capacity, in); // "200 ok"
        int rows = 0;
        for (ssize_t length; (length = getline(&line, &capacity, in)) > 1; rows++) {
            line[length - 1] = '\0';
            char *rest = line;
            for (char *column; (column = strsep(&rest, ","));) take(column);
        }
        return rows == row_count;
    });
    free(line);
    fclose(in);
}

void getline_fetch(benchmark::State &state) {
    getline_results(state, [](char *column) { benchmark::DoNotOptimize(column); });
}

void getline_fetch_all(benchmark::State &state) {
    std::vector<char *> items;
    getline_results(state, [&](const char *column) {
        items.push_back(strdup(column));
        if (items.size() < size_t{row_count} * 8) return;
        for (char *item : items) free(item);
        items.clear();
    });
    for (char *item : items) free(item);
}

void bare_fetch(benchmark::State &state) {
    const gateway peer;
    const int fd = xp_connect_tcp("127.0.0.1", peer.port(), timeout);
    std::string buffer(buffer_size, '\0');
    const size_t size = strlen("200 ok\n") + part.size() * (row_count / rows_a_part) + 1;
    results(state, [&] {
        xp_write_str(fd, "all\n", timeout);
        size_t length = 0;
        for (ssize_t got; length < size && (got = read(fd, buffer.data(), buffer.size())) > 0;)
            length += static_cast<size_t>(got);
        return length == size;
    });
    close(fd);
}

#define TIMED ->UseManualTime()->Unit(benchmark::kMillisecond)
BENCHMARK(vorncore_fetch)->Name("fetch/vorncore") TIMED;
BENCHMARK(getline_fetch)->Name("fetch/getline, strsep") TIMED;
BENCHMARK(bare_fetch)->Name("fetch/read") TIMED;
BENCHMARK(vorncore_fetch_all)->Name("fetch_all/vorncore") TIMED;
BENCHMARK(getline_fetch_all)->Name("fetch_all/getline, strsep, strdup") TIMED;

} // namespace
