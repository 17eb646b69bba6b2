#include "vorncore/base/respool.h"

#include <fcntl.h>
#include <unistd.h>

#include "support/harness.h"
#include "support/items.h"
#include "vorncore/base/stream.h"

using namespace harness;

namespace {

TEST(ResPool, ReleasesLikeItsModelUnderRandomOperations) {
    std::mt19937 random(1);
    numbers model, gone; // -1 stands for an empty entry
    const auto leave = [&](ptrdiff_t index, bool release) {
        const intptr_t n = index < 0 || index >= std::ssize(model) ? -1 : std::exchange(model.begin()[index], -1);
        if (n >= 0 && release) gone.push_back(n);
        return n >= 0;
    };
    xp_respool *rp = xp_create_respool();
    for (int step = 0; step < 20'000; step++) {
        const auto n = static_cast<intptr_t>(random() % 20); // some values are there twice, some are null
        const int top = static_cast<int>(model.size()) - 1, index = static_cast<int>(random() % (model.size() + 3)) - 1;
        const int found = static_cast<int>(model.rend() - std::find(model.rbegin(), model.rend(), n)) - 1;
        ASSERT_EQ(xprp_search(rp, item_of(n)), found);
        if (top < 15) rp->entries[top + 1] = {record_release, item_of(99)}; // nobody looks behind the last entry
        int result = 0, expected = 0, mark = top;
        const auto choice = random() % 16;
        if (choice == 0) result = xprp_free(rp, index), expected = leave(index, true);
        if (choice == 1) result = xprp_forget(rp, index), expected = leave(index, false);
        if (choice == 2) result = xprp_free_obj(rp, item_of(n)), expected = leave(found, true);
        if (choice == 3) result = xprp_forget_obj(rp, item_of(n)), expected = leave(found, false);
        if (choice == 4)
            for (result = xprp_pop(rp); mark >= 0 && !expected; mark--) expected = model.begin()[mark] >= 0;
        if (choice == 5) xprp_pop_ex(rp, mark = top > 40 ? -7 : std::max(index, index * 3 / 4));
        for (; std::ssize(model) - 1 > std::max(mark, -1); model.pop_back()) leave(std::ssize(model) - 1, true);
        if (choice > 5) model.push_back(number(xprp_add(rp, item_of(n), record_release)));
        ASSERT_TRUE(result == expected && xprp_last_index(rp) == std::ssize(model) - 1 && released == gone) << step;
    }
    xp_destroy_respool(rp);
    std::remove_copy(model.rbegin(), model.rend(), std::back_inserter(gone), -1);
    EXPECT_EQ(released, gone);
}

TEST(ResPool, ReleasesEachKindOfResourceOnceAndTheLastFirst) {
    static const int descriptor = open("/dev/null", O_RDONLY | O_CLOEXEC);
    const auto look = [](void *) { released.push_back(fcntl(descriptor, F_GETFD) >= 0); };
    xpi_istream stream{};
    stream.destroy = look;
    static xp_respool rp;
    xp_init_respool(&rp);
    EXPECT_TRUE(!xprp_add_interface(&rp, nullptr) && xprp_add_interface(&rp, &stream) == &stream);
    EXPECT_TRUE(xprp_add_file(&rp, descriptor) == descriptor && xprp_add_file(&rp, -999) == -999 && rp.count == 3);
    xprp_add(&rp, nullptr, look);
    EXPECT_EQ(std::string(static_cast<char *>(xprp_calloc(&rp, 3, 5)), 15), std::string(15, '\0'));
    // A procedure that comes back to the pool finds itself gone and what is below it still there.
    xprp_add(&rp, &rp, [](void *value) { EXPECT_EQ(xprp_free_obj(&rp, value) + 2 * xprp_free(&rp, 4), 2); });
    EXPECT_EQ(xprp_free_obj(&rp, &rp), 1);
    xp_close_respool(&rp);
    EXPECT_EQ(released, (numbers{true, false}));
}

TEST(ResPool, ReallocKeepsTheBooksForEveryOutcome) {
    xp_respool rp;
    xp_init_respool(&rp);
    void *block = xprp_malloc(&rp, 100), *const fence = xprp_malloc(&rp, 100);
    for (size_t size = 99; size < 1 << 20; size += 1 + size / 50) { // some move the block, some do not
        const int count = rp.count, index = xprp_search(&rp, block);
        const auto address = number(block);
        block = xprp_realloc(&rp, block, size);
        const bool moved = number(block) != address;
        ASSERT_EQ(xprp_search(&rp, block), moved ? count : index) << size;
        ASSERT_TRUE(rp.count == count + moved && !rp.entries[index].release == moved) << size;
    }
    const auto fail = [&](void *old) { return fail_allocation(1), xprp_realloc(&rp, old, 200); };
    const int count = rp.count;
    EXPECT_TRUE(!fail(block) && xprp_search(&rp, block) == -1 && xprp_search(&rp, nullptr) == count);
    free(block); // which nobody owned
    EXPECT_TRUE(!fail(nullptr) && rp.count == count + 1) << "it did not move";
    EXPECT_EQ(xprp_search(&rp, xprp_realloc(&rp, nullptr, 10)), count + 1) << "null has no entry to forget";
    EXPECT_TRUE(!xprp_realloc(&rp, fence, 0) && !rp.entries[1].release);
    xp_close_respool(&rp);
}

// The first text finds one entry free, the others what the vector grows by.
TEST(ResPool, MakesTextsThatItOwnsAndLeaksNothing) {
    const std::string longer(100, 'x');
    oom_sweep([&] {
        xp_respool *rp = xp_create_respool();
        if (!rp) return;
        const char *const none = nullptr;
        while (rp->count < 15) xprp_add(rp, nullptr, record_release);
        EXPECT_TRUE(!xprp_strdup(rp, none) && rp->count == 15);
        const std::pair<const char *, std::string> texts[] = {
            {xprp_strdup(rp, "abc"), "abc"},
            {xprp_strcat(rp, "ab", ""), "ab"},
            {xprp_strcat_v(rp, none), ""},
            {xprp_strcat_v(rp, "a", "", "b", longer.c_str(), none), "ab" + longer},
            {xprp_printf(rp, "%s-%d", longer.c_str(), 7), longer + "-7"}};
        int right = 0;
        for (const auto &[text, expected] : texts) right += text && xprp_search(rp, text) >= 15 && text == expected;
        EXPECT_TRUE(right >= 4 && rp->capacity == 32) << "but for one";
        while (rp->count < 32) xprp_add(rp, nullptr, record_release);
        if (const int copy = dup(STDIN_FILENO); xprp_add_file(rp, copy) != copy) close(copy);
        xprp_reset(rp);
        EXPECT_EQ(rp->capacity, 16u);
        xp_destroy_respool(rp);
    });
}

} // namespace
