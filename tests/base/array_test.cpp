#include "vorncore/base/array.h"

#include "support/harness.h"
#include "support/items.h"
#include "vorncore/base/internal/arrayroom.h"

using namespace harness;

namespace {

int comparisons;
template <intptr_t unit>
int by(const void *a, const void *b) {
    comparisons++;
    return static_cast<int>(number(a) / unit - number(b) / unit);
}

numbers contents(const xp_array &array) {
    numbers all;
    for (int i = 0; i < array.count; i++) all.push_back(number(array.items[i]));
    return all;
}

TEST(Array, BehavesLikeAVectorUnderRandomOperations) {
    std::mt19937 random(1);
    numbers model, gone;
    int capacity = 3;
    xp_array *array;
    oom_sweep([&] { array = xp_create_array(capacity, one_more, record_release); });
    for (int step = 0; step < 20'000; step++) {
        const intptr_t n = random() % 50;
        int wanted = 0, at = static_cast<int>(random() % (model.size() + 1));
        const bool inside = at < std::ssize(model);
        const auto place = model.begin() + at;
        xp_array *result = array;
        switch (random() % 16) {
        default: xpar_add(array, item_of(n - 1)), model.push_back(n); break;
        case 0: {
            const fail_allocation failure(step % 4 == 0);
            const bool inserted = xpar_insert(array, at, item_of(n - 1)) == array;
            ASSERT_NE(inserted, failure.fired());
            if (inserted) model.insert(place, n);
            break;
        }
        case 1:
        case 2:
            if (inside) xpar_del(array, at), gone.push_back(*place), model.erase(place);
            break;
        case 3:
            if (inside) xpar_replace(array, at, item_of(n - 1)), gone.push_back(*place), *place = n;
            break;
        case 4:
            if (inside) xpar_reverse_ex(array, at / 2, at), std::reverse(model.begin() + at / 2, place + 1);
            if (!inside) xpar_reverse(array), std::reverse(model.begin(), model.end());
            break;
        case 5: {
            xpar_sort(array, by<1>), std::sort(model.begin(), model.end());
            const int found = xpar_bsearch(array, item_of(n), by<1>);
            ASSERT_EQ(found >= 0, std::binary_search(model.begin(), model.end(), n));
            ASSERT_TRUE(found < 0 || model[static_cast<size_t>(found)] == n);
            break;
        }
        case 6:
            if (step % 8) break;
            xpar_uniq(array, by<10>); // of a run of equal items the first stays
            for (const intptr_t item : std::exchange(model, {}))
                (model.empty() || model.back() / 10 != item / 10 ? model : gone).push_back(item);
            break;
        case 7: xpar_ensure(array, wanted = at + 5); break;
        case 8: {
            xp_array *source = xp_create_array(1, nullptr, record_release);
            for (; at % 5; at--) xpar_add(source, item_of(at)), model.push_back(at);
            xpar_drain_from(array, source);
            xp_destroy_array(source);
            break;
        }
        case 9:
            if (step % 8) break;
            if (const fail_allocation no_shrinking(step % 16 == 0); inside)
                result = xpar_reset(array), gone = model, capacity = 3;
            if (!inside) result = xpar_forget_all(array);
            model.clear();
        }
        while (capacity < std::max<ptrdiff_t>(wanted, std::ssize(model))) capacity *= 2;
        ASSERT_EQ(result, array);
        ASSERT_EQ(array->capacity, capacity) << "step " << step;
        ASSERT_EQ(contents(*array), model) << "step " << step;
        ASSERT_EQ(released, gone) << "step " << step;
        released.clear(), gone.clear();
    }
    xp_destroy_array(array);
    EXPECT_EQ(released, model);
}

TEST(Array, GrowsOutOfARoomBehindItsRecord) {
    alignas(16) vorncore::array_with_room<2> block;
    xp_array *const array = block.init();
    xpar_add(array, item_of(1));
    xpar_add(array, item_of(2));
    EXPECT_EQ(array->items, block.room);
    {
        const fail_allocation failure(1);
        EXPECT_EQ(xpar_insert(array, 0, item_of(0)), nullptr);
    }
    xpar_insert(array, 0, item_of(0));
    EXPECT_EQ(contents(*array), numbers({0, 1, 2}));
    EXPECT_EQ(array->capacity, 4);
    EXPECT_EQ(xpar_reset(array)->capacity, 2);
    xp_close_array(array);
    xp_close_array(block.init());
}

// Items are key << 16 | index, so that equal keys stay told apart. The expected figures come from an independent
// transcription of the algorithm in another language.
TEST(Array, SortKeepsItsComparisonsAndItsOrderOfEqualItems) {
    const struct {
        int count;
        unsigned keys;
        int comparisons;
        uint32_t order;
    } cases[] = {{20, 5, 51, 2806115638}, {500, 37, 2538, 652668284}, {5000, 100'000, 69896, 2462821448}};
    for (const auto &c : cases) {
        xp_array array;
        xp_init_array(&array, 8, nullptr, nullptr);
        uint32_t random = 12345, order = 0;
        for (int i = 0; i < c.count; i++) {
            random = (random * 1103515245 + 12345) & 0x7FFFFFFF;
            xpar_add(&array, item_of(static_cast<intptr_t>((random >> 8) % c.keys) << 16 | i));
        }
        comparisons = 0;
        xpar_sort(&array, by<1 << 16>);
        EXPECT_EQ(comparisons, c.comparisons) << c.count << " items";
        for (const intptr_t item : contents(array)) order = order * 31 + static_cast<uint32_t>(item);
        EXPECT_EQ(order, c.order) << c.count << " items";
        xp_close_array(&array);
    }
}

TEST(Array, BinarySearchHalvesFromSixItemsOn) {
    xp_array array;
    xp_init_array(&array, 1, nullptr, nullptr);
    for (const intptr_t n : {1, 2, 2, 2, 2, 3}) xpar_add(&array, item_of(n));
    EXPECT_EQ(xpar_bsearch(&array, item_of(2), by<1>), 3);
    xpar_del(&array, 5);
    EXPECT_EQ(xpar_bsearch(&array, item_of(2), by<1>), 1) << "of five, the first";
    xp_close_array(&array);
}

// What the cuts are is compared with a plain splitter by tokenize_fuzz.
TEST(Array, TokenizeLooksAtEntryOneOfATableFirst) {
    std::string table(256, '\0'); // entry 1 is zero: taken as the text "\x01"
    table[0] = '\x01';
    table[';'] = 1;
    guarded_text text("a;b\x01z");
    xp_array array;
    xp_init_array(&array, 1, nullptr, nullptr);
    xpar_tokenize(&array, nullptr, ",", 0);
    xpar_tokenize(&array, text.data(), table.data(), XP_TOKENIZE_TABLE);
    EXPECT_EQ(contents(array), (numbers{number(text.data()), number(text.data() + 4)}));
    EXPECT_STREQ(text.data(), "a;b");
    xp_close_array(&array);
}

TEST(Array, CapacityZeroNeverGrows) {
    xp_array array;
    xp_init_array(&array, 0, nullptr, nullptr);
    EXPECT_EQ(xpar_insert(&array, 0, "x"), nullptr);
    EXPECT_DEATH(xpar_add(&array, "x"), "vorncore: xpar_add: out of memory \\(8 bytes\\)");
    xp_close_array(&array);
}

} // namespace
