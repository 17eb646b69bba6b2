// GET from an nginx of our own, one connection a request: the client beside libcurl's easy interface, which is kept
// from reusing connections, and beside a loop over bare sockets, which is as little as a client can do.
#include <benchmark/benchmark.h>

#include <sys/resource.h>
#ifdef HAVE_CURL
#include <curl/curl.h>
#endif

#include <memory>

#include "tests/support/servers.h"
#include "vorncore/app/http.h"

namespace {

using harness::nginx;

/// Calls get(url) for a file of range(0) bytes; its result is the length of the body.
template <class Get>
void requests(benchmark::State &state, bool cpu_time, Get get) {
    const auto size = static_cast<size_t>(state.range(0));
    const std::string path = std::to_string(size);
    const auto used = [] {
        rusage usage;
        getrusage(RUSAGE_SELF, &usage);
        return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
               1e-6 * static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec);
    };
    constexpr int batch = 16; // requests between two looks at the clock of the processor
    while (state.KeepRunningBatch(batch)) {
        const double before = cpu_time ? used() : 0;
        for (int i = 0; i < batch; i++)
            if (get(path) != size) return state.SkipWithError("a request failed");
        if (cpu_time)
            for (int i = 0; i < batch; i++) state.SetIterationTime((used() - before) / batch);
    }
}

void vorncore_get(benchmark::State &state, const nginx &server, bool cpu_time) {
    xp_http client;
    xp_init_http(&client, nullptr);
    requests(state, cpu_time, [&](const std::string &path) {
        if (!xphttp_get(&client, (server.address() + "/" + path).c_str(), nullptr)) return ~size_t{0};
        return static_cast<size_t>(client.resp_body->cursor - client.resp_body->data);
    });
    xp_close_http(&client);
}

#ifdef HAVE_CURL
void curl_get(benchmark::State &state, const nginx &server, bool cpu_time) {
    CURL *handle = curl_easy_init();
    curl_slist *headers = curl_slist_append(nullptr, "Connection: close");
    std::string body;
    const auto append = [](char *data, size_t size, size_t count, void *to) -> size_t {
        static_cast<std::string *>(to)->append(data, size * count);
        return size * count;
    };
    curl_easy_setopt(handle, CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(handle, CURLOPT_FORBID_REUSE, 1L);
    curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, static_cast<curl_write_callback>(append));
    curl_easy_setopt(handle, CURLOPT_WRITEDATA, &body);
    requests(state, cpu_time, [&](const std::string &path) {
        body.clear();
        curl_easy_setopt(handle, CURLOPT_URL, (server.address() + "/" + path).c_str());
        return curl_easy_perform(handle) == CURLE_OK ? body.size() : ~size_t{0};
    });
    curl_slist_free_all(headers);
    curl_easy_cleanup(handle);
}
#endif

void sockets_get(benchmark::State &state, const nginx &server, bool cpu_time) {
    std::string answer(static_cast<size_t>(state.range(0)) + 4096, '\0');
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(server.port()));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    requests(state, cpu_time, [&](const std::string &path) {
        const int fd = socket(AF_INET, SOCK_STREAM, 0);
        const std::string request =
            "GET /" + path + " HTTP/1.1\r\nHost: " + server.address() + "\r\nConnection: close\r\n\r\n";
        size_t length = 0;
        if (connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0 &&
            send(fd, request.data(), request.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(request.size()))
            for (ssize_t got; (got = recv(fd, answer.data() + length, answer.size() - length, 0)) > 0;)
                length += static_cast<size_t>(got);
        close(fd);
        const size_t body = std::string_view(answer.data(), length).find("\r\n\r\n") + 4;
        return length - body;
    });
}

} // namespace

int main(int count, char **arguments) {
    benchmark::Initialize(&count, arguments);
    if (harness::find_program("nginx").empty()) {
        fputs("http_bench: no nginx, skipped\n", stderr);
        return 0;
    }
    const nginx server;
    constexpr int64_t sizes[] = {1 << 10, 1 << 16, 1 << 22};
    for (const int64_t size : sizes)
        server.folder().write(std::to_string(size), std::string(static_cast<size_t>(size), 'x'));
    const std::pair<const char *, void (*)(benchmark::State &, const nginx &, bool)> clients[] = {
        {"vorncore", vorncore_get},
#ifdef HAVE_CURL
        {"libcurl", curl_get},
#endif
        {"sockets", sockets_get},
    };
    for (const auto &[who, get] : clients) {
        const auto add = [&, call = get](const std::string &workload, bool cpu_time) {
            auto *added =
                benchmark::RegisterBenchmark((workload + "/" + who).c_str(),
                                             [=, &server](benchmark::State &state) { call(state, server, cpu_time); });
            for (const int64_t size : sizes) added->Arg(size);
            cpu_time ? added->UseManualTime() : added->UseRealTime();
        };
        add("GET", false);
        add("GET_processor_time", true);
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
