// `vorn kv bench`: what the service does under load.
#include <getopt.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <latch>
#include <random>
#include <thread>
#include <vector>

#include "programs/arguments.h"
#include "programs/vorn/command.h"
#include "programs/vorn/kv.h"

namespace vorn {

namespace {

using clock = std::chrono::steady_clock;

constexpr int keys = 1000;
const std::string value(100, 'v');

struct plan {
    kv_options target;
    int connections = 8;
    int seconds = 5;
    unsigned gets = 9, puts = 1;
};

struct times {
    std::vector<uint32_t> get, put; // nanoseconds
};

/// One connection's work. False when a request failed.
class worker {
  public:
    worker(const plan &chosen, unsigned seed) : plan_(chosen), client_(chosen.target), random_(seed) {}

    bool prepare() {
        const char *id;
        if (!client_.connect() || client_.told("bench: new", xpql_new(client_, &id)) != exit_done) return false;
        for (int i = 0; i < keys; i++)
            if (!put(i)) return false;
        return true;
    }

    bool run(clock::time_point end, times *taken) {
        bool good = true;
        for (auto before = clock::now(); good && before < end;) {
            const int key = static_cast<int>(random_() % keys);
            const bool getting = random_() % (plan_.gets + plan_.puts) < plan_.gets;
            good = getting ? get(key) : put(key);
            const auto after = clock::now();
            const auto ns = std::chrono::duration_cast<std::chrono::nanoseconds>(after - before).count();
            (getting ? taken->get : taken->put).push_back(static_cast<uint32_t>(std::min<long long>(ns, UINT32_MAX)));
            before = after;
        }
        return client_.told("bench: purge", xpql_purge(client_)) == exit_done && good;
    }

  private:
    bool put(int key) {
        char name[16];
        snprintf(name, sizeof name, "key %d", key);
        return client_.told("bench: put", xpql_put(client_, name, value.c_str())) == exit_done;
    }
    bool get(int key) {
        char name[16], *got;
        snprintf(name, sizeof name, "key %d", key);
        return client_.told("bench: get", xpql_get(client_, name, &got)) == exit_done;
    }

    const plan &plan_;
    kv_client client_;
    std::minstd_rand random_;
};

void print_row(const char *name, std::vector<uint32_t> &ns, double seconds) {
    if (ns.empty()) return;
    std::sort(ns.begin(), ns.end());
    const auto at = [&](double part) {
        return ns[static_cast<size_t>(part * static_cast<double>(ns.size() - 1))] / 1e3;
    };
    printf("%-10s %12zu %12.0f %12.1f %12.1f\n", name, ns.size(), static_cast<double>(ns.size()) / seconds, at(0.5),
           at(0.99));
}

void append(std::vector<uint32_t> *to, const std::vector<uint32_t> &from) {
    to->insert(to->end(), from.begin(), from.end());
}

void print(std::vector<times> &taken, double seconds) {
    std::vector<uint32_t> get, put, all;
    for (const times &one : taken) {
        append(&get, one.get);
        append(&put, one.put);
    }
    append(&all, get);
    append(&all, put);
    printf("%-10s %12s %12s %12s %12s\n", "operation", "count", "per second", "median us", "99 % us");
    print_row("get", get, seconds);
    print_row("put", put, seconds);
    print_row("all", all, seconds);
}

int run(const plan &chosen) {
    std::vector<times> taken(static_cast<size_t>(chosen.connections));
    std::vector<std::thread> threads;
    threads.reserve(taken.size());
    std::latch ready(chosen.connections + 1);
    std::atomic<bool> good = true;
    for (int i = 0; i < chosen.connections; i++)
        threads.emplace_back([&, i] {
            worker work(chosen, static_cast<unsigned>(i + 1));
            const bool prepared = work.prepare();
            if (!prepared) good = false;
            ready.arrive_and_wait();
            const auto end = clock::now() + std::chrono::seconds(good ? chosen.seconds : 0);
            if (prepared && !work.run(end, &taken[static_cast<size_t>(i)])) good = false;
        });
    ready.arrive_and_wait();
    const auto begin = clock::now();
    for (std::thread &thread : threads) thread.join();
    if (!good) return exit_failure;
    print(taken, std::chrono::duration<double>(clock::now() - begin).count());
    return exit_done;
}

bool parse_ratio(const char *text, plan *chosen) {
    char end;
    return sscanf(text, "%u:%u%c", &chosen->gets, &chosen->puts, &end) == 2 && chosen->gets <= 1000 &&
           chosen->puts <= 1000 && chosen->gets + chosen->puts > 0;
}

} // namespace

int kv_bench(int count, char **arguments) {
    static const option names[] = {{"connections", required_argument, nullptr, 'c'},
                                   {"seconds", required_argument, nullptr, 's'},
                                   {"ratio", required_argument, nullptr, 'r'},
                                   {}};
    plan chosen;
    bool good = true;
    optind = 0; // the words before "bench" have been read already
    for (int c; (c = getopt_long(count, arguments, "+", names, nullptr)) != -1;) switch (c) {
        case 'c': chosen.connections = program::number_argument("vorn kv bench", "connections", optarg, 1, 1000); break;
        case 's': chosen.seconds = program::number_argument("vorn kv bench", "seconds", optarg, 1, 3600); break;
        case 'r': good = good && parse_ratio(optarg, &chosen); break;
        default: good = false;
        }
    if (good && optind == count - 1 && kv_address(arguments[optind], &chosen.target)) return run(chosen);
    fputs("usage: vorn kv bench [--connections C] [--seconds S] [--ratio GET:PUT] HOST:PORT\n", stderr);
    return exit_usage;
}

} // namespace vorn
