#include <benchmark/benchmark.h>

#include <array>
#include <list>

#include "vorncore/base/datalist.h"
#include "vorncore/base/list.h"
#ifdef HAVE_GLIB
#include <glib.h>
#endif

namespace {

constexpr int count = 1000;
using item = std::array<char, 32>;

// Appends, walks and drops a list of 1000.

void vorncore_pointers(benchmark::State &state) {
    for (auto _ : state) {
        xp_list list;
        xp_init_list(&list, nullptr, nullptr);
        for (int i = 0; i < count; i++) xpls_add(&list, &list);
        for (const xp_listnode *n = list.sentinel.first, *end = xpls_head(&list); n != end; n = n->next)
            benchmark::DoNotOptimize(n->datum);
        xp_close_list(&list);
    }
}
void std_pointers(benchmark::State &state) {
    for (auto _ : state) {
        std::list<void *> list;
        for (int i = 0; i < count; i++) list.push_back(&list);
        for (void *datum : list) benchmark::DoNotOptimize(datum);
    }
}

void vorncore_items(benchmark::State &state) {
    const item source{};
    for (auto _ : state) {
        xp_datalist list;
        xp_init_datalist(&list, sizeof(item), nullptr, nullptr);
        for (int i = 0; i < count; i++) xpdl_add(&list, &source);
        for (const xp_datanode *n = list.sentinel.first, *end = xpdl_head(&list); n != end; n = n->next)
            benchmark::DoNotOptimize(n->data[0]);
        xp_close_datalist(&list);
    }
}
void std_items(benchmark::State &state) {
    const item source{};
    for (auto _ : state) {
        std::list<item> list;
        for (int i = 0; i < count; i++) list.push_back(source);
        for (const item &i : list) benchmark::DoNotOptimize(i[0]);
    }
}

// The front of a list of 1000 goes to its back, 1000 times.

void vorncore_rotate(benchmark::State &state) {
    xp_list list;
    xp_init_list(&list, nullptr, nullptr);
    for (int i = 0; i < count; i++) xpls_add(&list, &list);
    for (auto _ : state)
        for (int i = 0; i < count; i++) benchmark::DoNotOptimize(xpls_rotate(&list, 1));
    xp_close_list(&list);
}
void std_rotate(benchmark::State &state) {
    std::list<void *> list(count);
    for (auto _ : state)
        for (int i = 0; i < count; i++) {
            list.splice(list.end(), list, list.begin());
            benchmark::DoNotOptimize(list.back());
        }
}

BENCHMARK(vorncore_pointers)->Name("pointers/vorncore");
BENCHMARK(std_pointers)->Name("pointers/std::list");
BENCHMARK(vorncore_items)->Name("items_of_32_bytes/vorncore");
BENCHMARK(std_items)->Name("items_of_32_bytes/std::list");
BENCHMARK(vorncore_rotate)->Name("rotate/vorncore");
BENCHMARK(std_rotate)->Name("rotate/std::list");

#ifdef HAVE_GLIB
void glib_pointers(benchmark::State &state) {
    for (auto _ : state) {
        GQueue queue = G_QUEUE_INIT;
        for (int i = 0; i < count; i++) g_queue_push_tail(&queue, &queue);
        for (const GList *n = queue.head; n; n = n->next) benchmark::DoNotOptimize(n->data);
        g_queue_clear(&queue);
    }
}
// A list of GLib holds an item of 32 bytes by pointer.
void glib_items(benchmark::State &state) {
    const item source{};
    for (auto _ : state) {
        GQueue queue = G_QUEUE_INIT;
        for (int i = 0; i < count; i++) g_queue_push_tail(&queue, g_memdup2(&source, sizeof source));
        for (const GList *n = queue.head; n; n = n->next) benchmark::DoNotOptimize(*static_cast<char *>(n->data));
        g_queue_clear_full(&queue, g_free);
    }
}
void glib_rotate(benchmark::State &state) {
    GQueue queue = G_QUEUE_INIT;
    for (int i = 0; i < count; i++) g_queue_push_tail(&queue, &queue);
    for (auto _ : state)
        for (int i = 0; i < count; i++) {
            g_queue_push_tail_link(&queue, g_queue_pop_head_link(&queue));
            benchmark::DoNotOptimize(queue.tail);
        }
    g_queue_clear(&queue);
}
BENCHMARK(glib_pointers)->Name("pointers/GQueue");
BENCHMARK(glib_items)->Name("items_of_32_bytes/GQueue");
BENCHMARK(glib_rotate)->Name("rotate/GQueue");
#endif

} // namespace
