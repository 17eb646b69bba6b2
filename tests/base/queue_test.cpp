#include "vorncore/base/queue.h"

#include <deque>

#include "support/harness.h"
#include "support/items.h"
#include "support/log_lines.h"
#include "vorncore/base/stack.h"

using namespace harness;

namespace {

TEST(CirQueue, BehavesLikeADequeUnderRandomOperations) {
    std::mt19937 random(1);
    for (int size = 1; size <= 5; size++) {
        xp_cirqueue *queue;
        oom_sweep([&] { queue = xp_create_cirqueue(size); });
        std::deque<void *> model;
        for (int step = 0; step < 2000; step++) {
            void *const item = item_of(random() % 4), *out = &model; // null, too
            const bool full = std::ssize(model) == size, empty = model.empty();
            void *const first = empty ? &model : model.front();
            const auto choice = random() % 3;
            ASSERT_TRUE(choice != 0 || xpcq_put(queue, item) == !full);
            ASSERT_TRUE(choice != 1 || (xpcq_get(queue, &out) == !empty && out == first));
            ASSERT_TRUE(choice != 2 || xpcq_forced_put(queue, item) == (full && first ? first : item));
            if (choice == 1 ? !empty : choice == 2 && full) model.pop_front();
            if (choice == 2 || (choice == 0 && !full)) model.push_back(item);
            int count = 0;
            for (void *each : model) ASSERT_TRUE(xpcq_peek_at(queue, count++, &out) && out == each);
            const bool some = xpcq_peek(queue, &out);
            ASSERT_TRUE(!some || out == model.front());
            ASSERT_EQ((numbers{some, queue->state, xpcq_count(queue), xpcq_peek_at(queue, 0, nullptr),
                               xpcq_peek_at(queue, -1, &out), xpcq_peek_at(queue, count, &out)}),
                      (numbers{count > 0, count ? count == size : 2, count, count > 0, 0, 0}));
        }
        xp_destroy_cirqueue(queue);
    }
}

TEST(CirQueue, ReportsARecordThatContradictsItself) {
    log_lines log;
    xp_cirqueue queue;
    xp_init_cirqueue(&queue, 3);
    queue.state = 0;
    EXPECT_EQ(xpcq_count(&queue), -1);
    EXPECT_EQ(log.take(), "|CQUE|vorncore/base/queue.cpp: Circular Queue is broken.\n");
    EXPECT_EQ(log.last_number, 101);
    xp_close_cirqueue(&queue);
}

TEST(Stack, HandsOutTheLastItemAndReleasesWhatItPops) {
    xp_array stack;
    xp_init_array(&stack, 1, nullptr, record_release);
    void *out = &stack;
    EXPECT_EQ(xpst_pop(&stack, &out) + xpst_peek(&stack, &out), 0);
    EXPECT_EQ(out, &stack);
    for (intptr_t n = 1; n <= 3; n++) xpar_add(&stack, item_of(n));
    EXPECT_TRUE(xpst_peek(&stack, &out) == 1 && out == item_of(3));
    EXPECT_TRUE(xpst_pop(&stack, nullptr) + xpst_pop(&stack, &out) == 2 && out == item_of(2));
    EXPECT_EQ(released, (numbers{3, 2}));
    xp_close_array(&stack);
}

} // namespace
