#include "vorncore/base/queue.h"

#include <deque>
#include <random>

#include "support/harness.h"
#include "support/log_lines.h"
#include "vorncore/base/stack.h"

namespace {

void *item_of(intptr_t n) { return reinterpret_cast<void *>(n); }

TEST(CirQueue, BehavesLikeADequeUnderRandomOperations) {
    std::mt19937 random(1);
    for (int size = 1; size <= 5; size++) {
        xp_cirqueue *queue = xp_create_cirqueue(size);
        std::deque<void *> model;
        for (int step = 0; step < 2000; step++) {
            void *const item = item_of(random() % 4); // null, too
            void *out = &model;
            const bool full = std::ssize(model) == size, empty = model.empty();
            switch (random() % 3) {
            case 0:
                ASSERT_EQ(xpcq_put(queue, item), !full);
                if (!full) model.push_back(item);
                break;
            case 1:
                ASSERT_EQ(xpcq_get(queue, &out), !empty);
                ASSERT_EQ(out, empty ? &model : model.front());
                if (!empty) model.pop_front();
                break;
            case 2: {
                void *const dropped = full ? model.front() : nullptr;
                ASSERT_EQ(xpcq_forced_put(queue, item), dropped ? dropped : item);
                if (full) model.pop_front();
                model.push_back(item);
            }
            }
            const int count = static_cast<int>(model.size());
            ASSERT_EQ(xpcq_count(queue), count);
            ASSERT_EQ(queue->state, count == 0 ? 2 : count == size ? 1 : 0);
            ASSERT_EQ(xpcq_peek(queue, &out), count > 0);
            for (int i = 0; i < count; i++) {
                ASSERT_EQ(xpcq_peek_at(queue, i, &out), 1);
                ASSERT_EQ(out, model[static_cast<size_t>(i)]);
            }
            ASSERT_EQ(xpcq_peek_at(queue, count - 1, nullptr), count > 0);
            ASSERT_EQ(xpcq_peek_at(queue, count, &out) + xpcq_peek_at(queue, -1, &out), 0);
        }
        xp_destroy_cirqueue(queue);
    }
}

TEST(CirQueue, ReportsARecordThatContradictsItself) {
    harness::log_lines log;
    xp_cirqueue queue;
    xp_init_cirqueue(&queue, 3);
    queue.state = 0;
    EXPECT_EQ(xpcq_count(&queue), -1);
    ASSERT_EQ(log.lines.size(), 1u);
    EXPECT_EQ(log.lines[0].category, "|CQUE|");
    EXPECT_EQ(log.lines[0].file, "vorncore/base/queue.cpp");
    EXPECT_EQ(log.lines[0].number, 101);
    EXPECT_EQ(log.lines[0].message, "Circular Queue is broken.");
    xp_close_cirqueue(&queue);
}

TEST(CirQueue, CreationReportsAFailedAllocation) {
    harness::oom_sweep([] {
        if (xp_cirqueue *queue = xp_create_cirqueue(3)) xp_destroy_cirqueue(queue);
    });
}

TEST(Stack, HandsOutTheLastItemAndReleasesWhatItPops) {
    static std::vector<void *> released;
    released.clear();
    xp_array stack;
    xp_init_array(&stack, 1, nullptr, [](void *item) { released.push_back(item); });
    void *out = &stack;
    EXPECT_EQ(xpst_pop(&stack, &out) + xpst_peek(&stack, &out), 0);
    EXPECT_EQ(out, &stack);
    for (intptr_t n = 1; n <= 3; n++) xpar_add(&stack, item_of(n));
    EXPECT_EQ(xpst_peek(&stack, &out), 1);
    EXPECT_EQ(out, item_of(3));
    EXPECT_EQ(xpst_pop(&stack, nullptr), 1);
    EXPECT_EQ(xpst_pop(&stack, &out), 1);
    EXPECT_EQ(out, item_of(2));
    EXPECT_EQ(released, (std::vector<void *>{item_of(3), item_of(2)}));
    EXPECT_EQ(stack.count, 1);
    xp_close_array(&stack);
}

} // namespace
