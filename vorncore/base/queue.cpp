#include "vorncore/base/queue.h"

#include "vorncore/base/internal/alloc.h"
#include "vorncore/base/internal/report.h"

using namespace vorncore;

namespace {

enum state : int32_t { neither, full, empty };

constexpr int broken_line = 101; // kept: filters of log lines match it

bool init(xp_cirqueue *queue, int size) {
    *queue = {try_array<void *>(size), 0, 0, size, empty};
    return queue->slots;
}

uint32_t size_of(const xp_cirqueue *queue) { return static_cast<uint32_t>(queue->size); }

/// Moves an index on by one; the queue is then in `state_if_met` if that made the indices equal.
void advance(xp_cirqueue *queue, uint32_t *index, int32_t state_if_met) {
    if (++*index == size_of(queue)) *index = 0;
    queue->state = queue->put == queue->get ? state_if_met : neither;
}

} // namespace

void xp_init_cirqueue(xp_cirqueue *queue, int size) {
    if (!init(queue, size)) out_of_memory("xp_init_cirqueue", bytes_of<void *>(size));
}

xp_cirqueue *xp_create_cirqueue(int size) { return create_record<xp_cirqueue>(init, size); }

void xp_close_cirqueue(xp_cirqueue *queue) { free(queue->slots); }

void xp_destroy_cirqueue(xp_cirqueue *queue) { destroy_record(queue, xp_close_cirqueue); }

int xpcq_put(xp_cirqueue *queue, const void *item) {
    if (queue->state == full) return 0;
    queue->slots[queue->put] = const_cast<void *>(item);
    advance(queue, &queue->put, full);
    return 1;
}

int xpcq_get(xp_cirqueue *queue, void **item) {
    if (!xpcq_peek(queue, item)) return 0;
    advance(queue, &queue->get, empty);
    return 1;
}

int xpcq_peek(const xp_cirqueue *queue, void **item) {
    if (queue->state == empty) return 0;
    *item = queue->slots[queue->get];
    return 1;
}

int xpcq_peek_at(const xp_cirqueue *queue, int position, void **item) {
    if (position < 0 || position >= xpcq_count(queue)) return 0;
    uint32_t index = queue->get + static_cast<uint32_t>(position);
    if (index >= size_of(queue)) index -= size_of(queue);
    if (item) *item = queue->slots[index];
    return 1;
}

int xpcq_count(const xp_cirqueue *queue) {
    if (queue->state == empty) return 0;
    if (queue->state == full) return queue->size;
    if (queue->put == queue->get) {
        report({"|CQUE|", __FILE__, broken_line}, "Circular Queue is broken.");
        return -1;
    }
    return static_cast<int>(queue->put - queue->get + (queue->put < queue->get ? size_of(queue) : 0));
}

void *xpcq_forced_put(xp_cirqueue *queue, const void *item) {
    void *dropped = nullptr;
    if (queue->state == full) xpcq_get(queue, &dropped);
    xpcq_put(queue, item);
    return dropped ? dropped : const_cast<void *>(item);
}
