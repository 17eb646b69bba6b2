// The two arrays have most of their calls in common: the random loop runs on both, the rest is what each adds.
#include "vorncore/base/array.h"
#include "vorncore/base/dataarray.h"

#include "support/harness.h"
#include "support/items.h"
#include "vorncore/base/internal/arrayroom.h"

using namespace harness;

namespace {

// Both hold numbers: as the pointers themselves, or in place.
intptr_t number_in(const void *slot) { return *static_cast<const intptr_t *>(slot); }
void copy_one_more(void *slot, const void *source) { *static_cast<intptr_t *>(slot) = number_in(source) + 1; }
void record_number_in(void *slot) { released.push_back(number_in(slot)); }

unsigned comparisons;
template <auto Number, intptr_t unit>
int by(const void *a, const void *b) {
    comparisons++;
    return static_cast<int>(Number(a) / unit - Number(b) / unit);
}

numbers contents(const void *items, ptrdiff_t count) {
    return {static_cast<const intptr_t *>(items), static_cast<const intptr_t *>(items) + count};
}

template <auto Number, auto Items, auto Add, auto Insert, auto Del, auto Replace, auto Sort, auto Search, auto Uniq,
          auto Reset>
void behave_like_a_vector(auto *array, void (*destroy)(decltype(array))) {
    static std::mt19937 random(1);
    constexpr bool in_place = Number == number_in;
    const auto item = [](const intptr_t &n) -> const void * { return in_place ? &n : item_of(n); };
    numbers model, gone;
    const auto first_capacity = static_cast<size_t>(array->capacity);
    size_t capacity = first_capacity; // of the data array 0: nothing is allocated before the first item
    for (int step = 0; step < 200; step++) {
        const intptr_t n = random() % 50, before = n - 1;
        auto at = static_cast<decltype(array->count)>(random() % (model.size() + 1));
        const auto place = model.begin() + at;
        const auto choice = random() % (place == model.end() ? 10 : 16); // from 10 on, with the item at the place
        size_t wanted = 0;
        const fail_allocation failure(step % 2 && (choice == 4 || choice == 10));
        if (choice < 4) Add(array, item(before)), model.push_back(n);
        if (choice == 4 && Insert(array, at, item(before))) model.insert(place, n);
        if (choice == 5) {
            Sort(array, by<Number, 1>), std::sort(model.begin(), model.end());
            const int found = Search(array, item(n), by<Number, 1>);
            ASSERT_EQ(found >= 0, std::binary_search(model.begin(), model.end(), n));
            ASSERT_TRUE(found < 0 || model[static_cast<size_t>(found)] == n);
        }
        if (choice == 6) { // of a run of equal items the first stays
            Uniq(array, by<Number, 10>);
            for (const intptr_t each : std::exchange(model, {}))
                (model.empty() || model.back() / 10 != each / 10 ? model : gone).push_back(each);
        }
        if constexpr (!in_place) { // what the data array does not have
            if (choice == 7) xpar_ensure(array, at + 5), wanted = static_cast<size_t>(at) + 5;
            if (choice == 8 && step % 8 == 0) array = xpar_forget_all(array), model.clear();
            if (choice == 9) {
                xp_array *other = xp_create_array(1, nullptr, record_release);
                for (; at % 5; at--) xpar_add(other, item_of(at)), model.push_back(at);
                xpar_drain_from(array, other);
                xp_destroy_array(other);
            }
            if (choice == 11) xpar_reverse_ex(array, at / 2, at), std::reverse(model.begin() + at / 2, place + 1);
            if (choice == 12) xpar_reverse(array), std::reverse(model.begin(), model.end());
        }
        if (choice == 10 && step % 8 < 2) array = Reset(array), gone.swap(model), capacity = first_capacity;
        if (choice == 13) Replace(array, at, item(before)), gone.push_back(*place), *place = n;
        if (choice > 13) Del(array, at), gone.push_back(*place), model.erase(place);
        while (capacity < std::max(wanted, model.size())) capacity = std::max<size_t>(2, 2 * capacity);
        ASSERT_EQ(static_cast<size_t>(array->capacity), capacity) << "step " << step;
        ASSERT_EQ(contents(array->*Items, array->count), model) << "step " << step;
        ASSERT_EQ(std::exchange(released, {}), std::exchange(gone, {})) << "step " << step;
    }
    destroy(array);
    EXPECT_EQ(std::exchange(released, {}), model);
}

// In every other round the array's first vector is a room behind the record.
TEST(Arrays, BehaveLikeAVectorUnderRandomOperations) {
    for (int round = 0; round < 100; round++) {
        alignas(16) vorncore::array_with_room<2> block;
        xp_array *array = block.init();
        xpar_add(array, "1"), xpar_add(array, "2");
        EXPECT_EQ((fail_allocation(1), xpar_insert(array, 0, "0")), nullptr);
        EXPECT_EQ(array->items, block.room) << "there is room for both";
        xp_close_array(array), array = block.init();
        if (round % 2) oom_sweep([&] { array = xp_create_array(2, nullptr, nullptr); });
        array->copy = one_more, array->release = record_release;
        behave_like_a_vector<number, &xp_array::items, xpar_add, xpar_insert, xpar_del, xpar_replace, xpar_sort,
                             xpar_bsearch, xpar_uniq, xpar_reset>(array, round % 2 ? xp_destroy_array : xp_close_array);
        behave_like_a_vector<number_in, &xp_dataarray::data, xpda_add, xpda_insert, xpda_del, xpda_replace, xpda_sort,
                             xpda_bsearch, xpda_uniq, xpda_reset>(
            xp_create_dataarray(2, sizeof(intptr_t), copy_one_more, record_number_in), xp_destroy_dataarray);
    }
}

// Items are key << 16 | index, so that equal keys stay told apart. The expected figures come from an independent
// transcription of the algorithms in another language.
TEST(Array, SortAndSearchKeepTheirComparisonsAndTheirChoiceAmongEqualItems) {
    const struct {
        unsigned items, keys, comparisons, order;
        int found; // of key 0: in up to five items the first
    } cases[] = {{5, 1, 4, 31810, 0},
                 {6, 1, 5, 986115, 3},
                 {20, 5, 51, 2806115638, 5},
                 {500, 37, 2538, 652668284, 7},
                 {5000, 100'000, 69896, 2462821448, -1}};
    for (const auto &c : cases) {
        xp_array array;
        xp_init_array(&array, 8, nullptr, nullptr);
        uint32_t random = 12345, order = 0;
        for (unsigned i = 0; i < c.items; i++) {
            random = (random * 1103515245 + 12345) & 0x7FFFFFFF;
            xpar_add(&array, item_of(static_cast<intptr_t>((random >> 8) % c.keys) << 16 | i));
        }
        comparisons = 0;
        xpar_sort(&array, by<number, 1 << 16>);
        EXPECT_EQ(comparisons, c.comparisons) << c.items << " items";
        for (const intptr_t item : contents(array.items, array.count)) order = order * 31 + static_cast<uint32_t>(item);
        EXPECT_EQ(order, c.order) << c.items << " items";
        EXPECT_EQ(xpar_bsearch(&array, item_of(0), by<number, 1 << 16>), c.found) << c.items << " items";
        xp_close_array(&array);
    }
}

// What the cuts are is compared with a plain splitter by tokenize_fuzz.
TEST(Array, TokenizeLooksAtEntryOneOfATableFirst) {
    char text[] = "a;b\x01z";
    std::string table(256, '\0'); // entry 1 is zero: taken as the text "\x01"
    table[0] = table[';'] = 1;
    xp_array array;
    xp_init_array(&array, 1, nullptr, nullptr);
    xpar_tokenize(&array, nullptr, ",", 0);
    xpar_tokenize(&array, text, table.data(), XP_TOKENIZE_TABLE);
    EXPECT_EQ(contents(array.items, array.count), (numbers{number(text), number(text + 4)}));
    xpar_del(&array, 0); // nothing releases it
    xp_close_array(&array);
}

TEST(Array, CapacityZeroNeverGrows) {
    xp_array array;
    xp_init_array(&array, 0, nullptr, nullptr);
    EXPECT_EQ(xpar_insert(&array, 0, "x"), nullptr) << "there is nothing to double";
    EXPECT_DEATH(xpar_add(&array, "x"), "vorncore: xpar_add: out of memory \\(8 bytes\\)");
    xp_close_array(&array);
}

TEST(DataArray, CopiesBytesWithoutAHookAndNoneFromNull) {
    guard_page source("12345");
    xp_dataarray array;
    xp_init_dataarray(&array, 1, 5, nullptr, nullptr);
    xpda_add(&array, source.data());
    xpda_replace(&array, 0, nullptr);
    EXPECT_EQ(std::string_view(array.data, 5), "12345");
    array.initial_capacity = 0;
    EXPECT_EQ(xpda_add(xpda_uniq(xpda_reset(&array), nullptr), nullptr), nullptr);
}

} // namespace
