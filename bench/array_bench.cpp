#include <benchmark/benchmark.h>

#include <string.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "vorncore/base/array.h"
#ifdef HAVE_GLIB
#include <glib.h>
#endif

namespace {

int by_text(const void *a, const void *b) { return strcmp(static_cast<const char *>(a), static_cast<const char *>(b)); }
int by_text_slot(const void *a, const void *b) {
    return strcmp(*static_cast<char *const *>(a), *static_cast<char *const *>(b));
}

// Pointers to texts: shape 0 random, 1 sorted, 2 few unique.
const std::vector<const char *> &texts(benchmark::State &state) {
    static std::vector<std::string> storage[2][3];
    static std::vector<const char *> pointers[2][3];
    const size_t size = state.range(0) == 100'000 ? 0 : 1, shape = static_cast<size_t>(state.range(1));
    auto &chosen = pointers[size][shape];
    if (chosen.empty()) {
        std::mt19937 random(1);
        auto &words = storage[size][shape];
        for (int i = 0; i < state.range(0); i++)
            words.push_back("item-" + std::to_string(shape == 2 ? random() % 16 : random()));
        if (shape == 1) std::sort(words.begin(), words.end());
        for (const auto &word : words) chosen.push_back(word.c_str());
    }
    const char *const names[] = {"random", "sorted", "few unique"};
    state.SetLabel(names[shape]);
    return chosen;
}

template <class Sort>
void sort_copies(benchmark::State &state, Sort sort) {
    const auto &input = texts(state);
    std::vector<const char *> copy;
    for (auto _ : state) {
        state.PauseTiming();
        copy = input;
        state.ResumeTiming();
        sort(copy);
    }
}

void vorncore_sort(benchmark::State &state) {
    sort_copies(state, [](std::vector<const char *> &items) {
        xp_array view = {(void **)(items.data()), nullptr, nullptr, 0, 0, static_cast<int32_t>(items.size())};
        xpar_sort(&view, by_text);
    });
}
void qsort_sort(benchmark::State &state) {
    sort_copies(state, [](std::vector<const char *> &items) {
        qsort(items.data(), items.size(), sizeof(char *), by_text_slot);
    });
}
void std_sort(benchmark::State &state) {
    sort_copies(state, [](std::vector<const char *> &items) {
        std::sort(items.begin(), items.end(), [](const char *a, const char *b) { return strcmp(a, b) < 0; });
    });
}

void vorncore_add(benchmark::State &state) {
    for (auto _ : state) {
        xp_array array;
        xp_init_array(&array, 16, nullptr, nullptr);
        for (int i = 0; i < 1000; i++) xpar_add(&array, &array);
        benchmark::DoNotOptimize(array.items);
        xp_close_array(&array);
    }
}
void std_vector_add(benchmark::State &state) {
    for (auto _ : state) {
        std::vector<void *> array;
        for (int i = 0; i < 1000; i++) array.push_back(&array);
        benchmark::DoNotOptimize(array.data());
    }
}

#define SHAPES ->ArgsProduct({{100'000, 1'000'000}, {0, 1, 2}})->Unit(benchmark::kMillisecond)
BENCHMARK(vorncore_sort)->Name("sort/vorncore") SHAPES;
BENCHMARK(qsort_sort)->Name("sort/qsort") SHAPES;
BENCHMARK(std_sort)->Name("sort/std::sort") SHAPES;
BENCHMARK(vorncore_add)->Name("add_1000/vorncore");
BENCHMARK(std_vector_add)->Name("add_1000/std::vector");

#ifdef HAVE_GLIB
void glib_sort(benchmark::State &state) {
    sort_copies(state, [](std::vector<const char *> &items) {
        GPtrArray view = {(gpointer *)(items.data()), static_cast<guint>(items.size())};
        // g_ptr_array_sort needs an array of its own making
        g_qsort_with_data(
            view.pdata, static_cast<gint>(view.len), sizeof(gpointer),
            [](gconstpointer a, gconstpointer b, gpointer) { return by_text_slot(a, b); }, nullptr);
    });
}
void glib_add(benchmark::State &state) {
    for (auto _ : state) {
        GPtrArray *array = g_ptr_array_new();
        for (int i = 0; i < 1000; i++) g_ptr_array_add(array, array);
        g_ptr_array_free(array, TRUE);
    }
}
BENCHMARK(glib_sort)->Name("sort/g_qsort_with_data") SHAPES;
BENCHMARK(glib_add)->Name("add_1000/GPtrArray");
#endif

} // namespace
