#include "vorncore/base/respool.h"

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <random>

#include "support/harness.h"
#include "vorncore/base/stream.h"

namespace {

using values = std::vector<intptr_t>;

values released;
void record(void *value) { released.push_back(reinterpret_cast<intptr_t>(value)); }
void *value_of(intptr_t n) { return reinterpret_cast<void *>(n); }

TEST(ResPool, ReleasesLikeItsModelUnderRandomOperations) {
    struct entry {
        intptr_t value;
        bool owned;
    };
    std::mt19937 random(1);
    std::vector<entry> model;
    size_t highest = 16; // entries at one time
    values expected;
    const auto empty = [&](int index, bool release) {
        if (index < 0 || index >= std::ssize(model) || !model[static_cast<size_t>(index)].owned) return 0;
        model[static_cast<size_t>(index)].owned = false;
        if (release) expected.push_back(model[static_cast<size_t>(index)].value);
        return 1;
    };
    const auto pop = [&] {
        const entry last = model.back();
        model.pop_back();
        if (last.owned) expected.push_back(last.value);
        return last.owned;
    };
    released.clear();
    xp_respool *rp = xp_create_respool();
    for (int step = 0; step < 20'000; step++) {
        const intptr_t n = static_cast<intptr_t>(random() % 20); // some values are there twice, some are null
        const int index = static_cast<int>(random() % (model.size() + 3)) - 1;
        const auto last = std::find_if(model.rbegin(), model.rend(), [=](entry e) { return e.owned && e.value == n; });
        const int found = static_cast<int>(model.rend() - last) - 1;
        ASSERT_EQ(xprp_search(rp, value_of(n)), found);
        switch (random() % 20) {
        case 0: ASSERT_EQ(xprp_free(rp, index), empty(index, true)); break;
        case 1: ASSERT_EQ(xprp_forget(rp, index), empty(index, false)); break;
        case 2: ASSERT_EQ(xprp_free_obj(rp, value_of(n)), empty(found, true)); break;
        case 3: ASSERT_EQ(xprp_forget_obj(rp, value_of(n)), empty(found, false)); break;
        case 4:
        case 5:
        case 6: {
            int popped = 0;
            while (!model.empty() && !popped) popped = pop();
            ASSERT_EQ(xprp_pop(rp), popped);
            break;
        }
        case 7: {
            const int mark = std::ssize(model) > 40 ? -7 : static_cast<int>(std::max<intptr_t>(index, index * 3 / 4));
            while (std::ssize(model) - 1 > std::max(mark, -1)) pop();
            xprp_pop_ex(rp, mark);
            break;
        }
        default: ASSERT_EQ(xprp_add(rp, value_of(n), record), value_of(n)); model.push_back({n, true});
        }
        highest = std::max(highest, model.size());
        ASSERT_EQ(xprp_last_index(rp), std::ssize(model) - 1) << "step " << step;
        ASSERT_EQ(released, expected) << "step " << step;
    }
    EXPECT_EQ(rp->capacity, std::bit_ceil(highest));
    while (!model.empty()) pop();
    xprp_reset(rp);
    EXPECT_EQ(rp->capacity, 16u);
    EXPECT_EQ(released, expected);
    xp_destroy_respool(rp);
}

TEST(ResPool, ReleasesEachKindOfResourceOnceAndTheLastFirst) {
    static int descriptor;
    static std::vector<bool> descriptor_open; // as the stream and the object see it when they go
    descriptor_open.clear();
    descriptor = open("/dev/null", O_RDONLY | O_CLOEXEC);
    const auto look = [](void *) { descriptor_open.push_back(fcntl(descriptor, F_GETFD) >= 0); };
    xpi_istream stream{};
    stream.destroy = look;
    static xp_respool rp;
    xp_init_respool(&rp);
    EXPECT_EQ(xprp_add_interface(&rp, nullptr), nullptr);
    EXPECT_EQ(xprp_add_interface(&rp, &stream), &stream);
    EXPECT_EQ(xprp_add_file(&rp, descriptor), descriptor);
    EXPECT_EQ(xprp_add_file(&rp, -999), -999);
    xprp_add(&rp, nullptr, look);
    char *block = static_cast<char *>(xprp_calloc(&rp, 3, 5));
    EXPECT_EQ(std::string_view(block, 15), std::string_view("\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0", 15));
    EXPECT_EQ(rp.count, 5);
    // A procedure that comes back to the pool finds itself gone and what is below it still there.
    xprp_add(&rp, block + 1, [](void *value) { EXPECT_EQ(xprp_free_obj(&rp, value), 0), xprp_free(&rp, 4); });
    xp_close_respool(&rp);
    EXPECT_EQ(descriptor_open, (std::vector<bool>{true, false}));
}

TEST(ResPool, ReallocKeepsTheBooksForEveryOutcome) {
    xp_respool rp;
    xp_init_respool(&rp);
    const auto fail = [&](void *block) {
        const harness::fail_allocation failure(1);
        return xprp_realloc(&rp, block, 200);
    };
    void *block = xprp_malloc(&rp, 100);
    void *const fence = xprp_malloc(&rp, 100);
    int moves = 0;
    for (size_t size = 99; size < 1 << 20; size += 1 + size / 50) {
        const int before = rp.count, index = xprp_search(&rp, block);
        const auto address = reinterpret_cast<uintptr_t>(block);
        block = xprp_realloc(&rp, block, size);
        const bool moved = reinterpret_cast<uintptr_t>(block) != address;
        moves += moved;
        ASSERT_EQ(rp.count, before + moved);
        ASSERT_EQ(xprp_search(&rp, block), moved ? before : index);
        ASSERT_EQ(rp.entries[index].release == nullptr, moved);
    }
    EXPECT_GT(moves, 0);
    const int count = rp.count;
    EXPECT_EQ(fail(block), nullptr);
    EXPECT_EQ(xprp_search(&rp, block), -1) << "owned by nobody";
    EXPECT_EQ(xprp_search(&rp, nullptr), count);
    free(block);
    EXPECT_EQ(fail(nullptr), nullptr) << "it did not move";
    EXPECT_EQ(rp.count, count + 1);
    EXPECT_EQ(xprp_search(&rp, xprp_realloc(&rp, nullptr, 10)), count + 1);
    EXPECT_EQ(xprp_search(&rp, nullptr), count) << "null has no entry to forget";
    EXPECT_EQ(xprp_realloc(&rp, fence, 0), nullptr);
    EXPECT_EQ(rp.entries[1].release, nullptr);
    xp_close_respool(&rp);
}

TEST(ResPool, MakesTextsThatItOwns) {
    xp_respool rp;
    xp_init_respool(&rp);
    const std::string longer(100, 'x');
    const char *const none = nullptr;
    const std::pair<const char *, std::string> cases[] = {
        {xprp_strdup(&rp, "abc"), "abc"},       {xprp_strcat(&rp, "ab", ""), "ab"},
        {xprp_strcat(&rp, "ab", "cd"), "abcd"}, {xprp_strcat_v(&rp, "a", "", "b", longer.c_str(), none), "ab" + longer},
        {xprp_strcat_v(&rp, none), ""},         {xprp_printf(&rp, "%s-%d", longer.c_str(), 7), longer + "-7"},
    };
    int index = 0;
    for (const auto &[text, expected] : cases) {
        EXPECT_EQ(text, expected);
        EXPECT_EQ(rp.entries[index++].value, text);
    }
    EXPECT_EQ(xprp_strdup(&rp, nullptr), nullptr);
    EXPECT_EQ(rp.count, index);
    xp_close_respool(&rp);
}

// With one entry free, so that the vector grows for the second resource.
TEST(ResPool, FailedAllocationsLeakNothing) {
    const int descriptor = open("/dev/null", O_RDONLY | O_CLOEXEC);
    harness::oom_sweep([=] {
        xp_respool *rp = xp_create_respool();
        if (!rp) return;
        for (int i = 0; i < 15; i++) xprp_add(rp, nullptr, record);
        void *const blocks[] = {xprp_malloc(rp, 1), xprp_calloc(rp, 1, 1), xprp_strcat(rp, "a", "b"),
                                xprp_printf(rp, "a")};
        EXPECT_GE(std::count(std::begin(blocks), std::end(blocks), nullptr) + rp->count, 19);
        while (rp->count % 16 != 0) xprp_add(rp, nullptr, record);
        const int before = rp->count;
        EXPECT_EQ(rp->count, xprp_add(rp, value_of(1), record) ? before + 1 : before);
        while (rp->count % 16 != 0) xprp_add(rp, nullptr, record);
        const int duplicate = dup(descriptor);
        if (xprp_add_file(rp, duplicate) != duplicate) close(duplicate);
        xprp_reset(rp);
        EXPECT_EQ(rp->capacity, 16u);
        xp_destroy_respool(rp);
    });
    close(descriptor);
}

} // namespace
