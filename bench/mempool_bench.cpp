#include <benchmark/benchmark.h>

#include <stdlib.h>

#include <vector>

#include "vorncore/base/mempool.h"
#include "vorncore/base/objpool.h"
#ifdef HAVE_GLIB
#include <glib.h>
#endif

namespace {

constexpr size_t block_size = 128;

// One block at a time, and many at once given back in the order of their making, as a server holds one for each
// request.
template <class Alloc, class Free>
void pairs(benchmark::State &state, Alloc alloc, Free give_back) {
    std::vector<void *> held(static_cast<size_t>(state.range(0)));
    for (auto _ : state) {
        for (void *&block : held) {
            block = alloc();
            benchmark::DoNotOptimize(block);
        }
        for (void *block : held) give_back(block);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

void vorncore_blocks(benchmark::State &state) {
    xp_mempool mp;
    xp_init_mempool(&mp, block_size);
    pairs(
        state, [&] { return xpmp_alloc(&mp); }, [&](void *block) { xpmp_free(&mp, block); });
    xp_close_mempool(&mp);
}
void vorncore_blocks_inline(benchmark::State &state) {
    xp_mempool mp;
    xp_init_mempool(&mp, block_size);
    pairs(
        state, [&] { return xpmp_alloc_inline(&mp); }, [&](void *block) { xpmp_free_inline(&mp, block); });
    xp_close_mempool(&mp);
}
void malloc_blocks(benchmark::State &state) {
    pairs(
        state, [] { return malloc(block_size); }, free);
}

// An object that owns a buffer: what a pool saves is making it.
struct object {
    char *buffer;
    size_t used;
};
void *make_object() {
    auto *o = static_cast<object *>(malloc(sizeof(object)));
    *o = {static_cast<char *>(malloc(4096)), 0};
    return o;
}
void destroy_object(void *o) {
    free(static_cast<object *>(o)->buffer);
    free(o);
}

void vorncore_objects(benchmark::State &state) {
    xp_objpool op;
    xp_init_objpool(&op, make_object, destroy_object, nullptr, nullptr);
    pairs(
        state, [&] { return xpop_alloc(&op); }, [&](void *o) { xpop_free(&op, o); });
    xp_close_objpool(&op);
}
void vorncore_locked_objects(benchmark::State &state) {
    xp_xobjpool op;
    xp_init_xobjpool(&op, make_object, destroy_object, nullptr, nullptr);
    pairs(
        state, [&] { return xpxop_alloc(&op); }, [&](void *o) { xpxop_free(&op, o); });
    xp_close_xobjpool(&op);
}
void malloc_objects(benchmark::State &state) { pairs(state, make_object, destroy_object); }

#define HELD ->Arg(1)->Arg(1000)
BENCHMARK(vorncore_blocks)->Name("blocks/vorncore") HELD;
BENCHMARK(malloc_blocks)->Name("blocks/malloc") HELD;
BENCHMARK(vorncore_blocks_inline)->Name("blocks_inline/vorncore") HELD;
BENCHMARK(malloc_blocks)->Name("blocks_inline/malloc") HELD;
BENCHMARK(vorncore_objects)->Name("objects/vorncore") HELD;
BENCHMARK(malloc_objects)->Name("objects/malloc") HELD;
BENCHMARK(vorncore_locked_objects)->Name("locked_objects/vorncore") HELD;
BENCHMARK(malloc_objects)->Name("locked_objects/malloc") HELD;

#ifdef HAVE_GLIB
void slice_blocks(benchmark::State &state) {
    pairs(
        state, [] { return g_slice_alloc(block_size); }, [](void *block) { g_slice_free1(block_size, block); });
}
void slice_objects(benchmark::State &state) {
    pairs(
        state,
        [] {
            auto *o = g_slice_new(object);
            *o = {static_cast<char *>(g_slice_alloc(4096)), 0};
            return o;
        },
        [](void *o) {
            g_slice_free1(4096, static_cast<object *>(o)->buffer);
            g_slice_free1(sizeof(object), o);
        });
}
BENCHMARK(slice_blocks)->Name("blocks/g_slice") HELD;
BENCHMARK(slice_blocks)->Name("blocks_inline/g_slice") HELD;
BENCHMARK(slice_objects)->Name("objects/g_slice") HELD;
BENCHMARK(slice_objects)->Name("locked_objects/g_slice") HELD;
#endif

} // namespace
