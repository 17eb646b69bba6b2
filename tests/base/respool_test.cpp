#include "vorncore/base/respool.h"

#include <fcntl.h>
#include <unistd.h>

#include "support/harness.h"
#include "support/items.h"
#include "vorncore/base/stream.h"

using namespace harness;

namespace {

TEST(ResPool, ReleasesLikeItsModelUnderRandomOperations) {
    struct entry {
        intptr_t value;
        bool owned;
    };
    std::mt19937 random(1);
    std::vector<entry> model;
    numbers gone;
    const auto empty = [&](int index, bool release) {
        if (index < 0 || index >= std::ssize(model) || !model[static_cast<size_t>(index)].owned) return 0;
        model[static_cast<size_t>(index)].owned = false;
        if (release) gone.push_back(model[static_cast<size_t>(index)].value);
        return 1;
    };
    const auto pop = [&] {
        const int owned = empty(static_cast<int>(model.size()) - 1, true);
        return model.pop_back(), owned;
    };
    xp_respool *rp = xp_create_respool();
    for (int step = 0; step < 20'000; step++) {
        const intptr_t n = static_cast<intptr_t>(random() % 20); // some values are there twice, some are null
        const int index = static_cast<int>(random() % (model.size() + 3)) - 1;
        const auto last = std::find_if(model.rbegin(), model.rend(), [=](entry e) { return e.owned && e.value == n; });
        const int found = static_cast<int>(model.rend() - last) - 1;
        ASSERT_EQ(xprp_search(rp, item_of(n)), found);
        int result = 0, expected = 0;
        const auto choice = random() % 20;
        if (choice == 0) result = xprp_free(rp, index), expected = empty(index, true);
        if (choice == 1) result = xprp_forget(rp, index), expected = empty(index, false);
        if (choice == 2) result = xprp_free_obj(rp, item_of(n)), expected = empty(found, true);
        if (choice == 3) result = xprp_forget_obj(rp, item_of(n)), expected = empty(found, false);
        if (choice >= 4 && choice < 7)
            for (result = xprp_pop(rp); !model.empty() && !expected;) expected = pop();
        if (choice == 7) {
            const int mark = std::ssize(model) > 40 ? -7 : std::max(index, index * 3 / 4);
            while (std::ssize(model) - 1 > std::max(mark, -1)) pop();
            xprp_pop_ex(rp, mark);
        }
        if (choice > 7) {
            ASSERT_EQ(xprp_add(rp, item_of(n), record_release), item_of(n));
            model.push_back({n, true});
        }
        ASSERT_EQ(result, expected) << "step " << step;
        ASSERT_EQ(xprp_last_index(rp), std::ssize(model) - 1) << "step " << step;
        ASSERT_EQ(released, gone) << "step " << step;
    }
    while (!model.empty()) pop();
    xprp_reset(rp);
    EXPECT_EQ(released, gone);
    xp_destroy_respool(rp);
}

TEST(ResPool, ReleasesEachKindOfResourceOnceAndTheLastFirst) {
    static int descriptor; // looked at when the stream and the object go
    descriptor = open("/dev/null", O_RDONLY | O_CLOEXEC);
    const auto look = [](void *) { released.push_back(fcntl(descriptor, F_GETFD) >= 0); };
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
    EXPECT_EQ(std::string(block, 15), std::string(15, '\0'));
    EXPECT_EQ(rp.count, 5);
    // A procedure that comes back to the pool finds itself gone and what is below it still there.
    xprp_add(&rp, block + 1, [](void *value) { EXPECT_EQ(xprp_free_obj(&rp, value) + 2 * xprp_free(&rp, 4), 2); });
    EXPECT_EQ(xprp_free_obj(&rp, block + 1), 1);
    xp_close_respool(&rp);
    EXPECT_EQ(released, (numbers{true, false}));
}

TEST(ResPool, ReallocKeepsTheBooksForEveryOutcome) {
    xp_respool rp;
    xp_init_respool(&rp);
    const auto fail = [&](void *block) { return fail_allocation(1), xprp_realloc(&rp, block, 200); };
    void *block = xprp_malloc(&rp, 100), *const fence = xprp_malloc(&rp, 100);
    for (size_t size = 99; size < 1 << 20; size += 1 + size / 50) { // some move the block, some do not
        const int count = rp.count, index = xprp_search(&rp, block);
        const auto address = number(block);
        block = xprp_realloc(&rp, block, size);
        const bool moved = number(block) != address;
        ASSERT_EQ(rp.count, count + moved);
        ASSERT_EQ(xprp_search(&rp, block), moved ? count : index);
        ASSERT_EQ(rp.entries[index].release == nullptr, moved);
    }
    const int count = rp.count;
    EXPECT_EQ(fail(block), nullptr);
    EXPECT_EQ(xprp_search(&rp, block), -1) << "owned by nobody";
    EXPECT_EQ(xprp_search(&rp, nullptr), count);
    free(block);
    EXPECT_EQ(fail(nullptr), nullptr) << "it did not move";
    EXPECT_EQ(xprp_search(&rp, xprp_realloc(&rp, nullptr, 10)), count + 1);
    EXPECT_EQ(xprp_search(&rp, nullptr), count) << "null has no entry to forget";
    EXPECT_EQ(xprp_realloc(&rp, fence, 0), nullptr);
    EXPECT_EQ(rp.entries[1].release, nullptr);
    xp_close_respool(&rp);
}

// The first text finds one entry free, the others what the vector grows by.
TEST(ResPool, MakesTextsThatItOwnsAndLeaksNothing) {
    const int descriptor = open("/dev/null", O_RDONLY | O_CLOEXEC);
    const std::string longer(100, 'x');
    oom_sweep([&] {
        xp_respool *rp = xp_create_respool();
        if (!rp) return;
        const char *const none = nullptr;
        while (rp->count < 15) xprp_add(rp, nullptr, record_release);
        EXPECT_EQ(xprp_strdup(rp, none), none);
        EXPECT_EQ(rp->count, 15);
        const std::pair<const char *, std::string> texts[] = {
            {xprp_strdup(rp, "abc"), "abc"},
            {xprp_strcat(rp, "ab", ""), "ab"},
            {xprp_strcat_v(rp, "a", "", "b", longer.c_str(), none), "ab" + longer},
            {xprp_strcat_v(rp, none), ""},
            {xprp_printf(rp, "%s-%d", longer.c_str(), 7), longer + "-7"}};
        const auto right = [=](auto &text) {
            return text.first && xprp_search(rp, text.first) >= 15 && text.first == text.second;
        };
        EXPECT_GE(std::count_if(std::begin(texts), std::end(texts), right), 4) << "but for one";
        EXPECT_EQ(rp->capacity, 32u);
        while (rp->count < 32) xprp_add(rp, nullptr, record_release);
        const int duplicate = dup(descriptor);
        if (xprp_add_file(rp, duplicate) != duplicate) close(duplicate);
        xprp_reset(rp);
        EXPECT_EQ(rp->capacity, 16u);
        xp_destroy_respool(rp);
    });
    close(descriptor);
}

} // namespace
