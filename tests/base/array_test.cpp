#include "vorncore/base/array.h"

#include <string.h>

#include <algorithm>
#include <random>

#include "support/harness.h"

namespace {

using items = std::vector<std::string>;

void *duplicate(const void *text) { return strdup(static_cast<const char *>(text)); }

items released;
void record_release(void *item) { released.push_back(static_cast<const char *>(item)); }

intptr_t number(const void *item) { return reinterpret_cast<intptr_t>(item); }
const void *item_of(intptr_t n) { return reinterpret_cast<const void *>(n); }

int comparisons;
int by_number(const void *a, const void *b) {
    comparisons++;
    return number(a) < number(b) ? -1 : number(a) > number(b);
}

items texts(const xp_array &array) {
    items all;
    for (int i = 0; i < array.count; i++) all.push_back(static_cast<const char *>(array.items[i]));
    return all;
}

TEST(Array, CapacityGrowsByDoublingAndResetReturnsToTheInitialOne) {
    xp_array array;
    xp_init_array(&array, 16, nullptr, nullptr);
    for (int i = 0; i < 1000; i++) xpar_add(&array, "x");
    EXPECT_EQ(array.capacity, 1024);
    xpar_ensure(&array, 1025);
    EXPECT_EQ(array.capacity, 2048);
    xpar_ensure(&array, 3);
    EXPECT_EQ(array.capacity, 2048);
    EXPECT_EQ(xpar_reset(&array), &array);
    EXPECT_EQ(array.capacity, 16);
    EXPECT_EQ(array.count, 0);
    xp_close_array(&array);
}

TEST(Array, HooksSeeWhatEntersAndWhatLeavesInOrder) {
    released.clear();
    xp_array *array = xp_create_array(
        2, [](const void *item) -> void * { return static_cast<char *>(const_cast<void *>(item)) + 1; },
        record_release);
    for (const char *text : {"-c", "-d", "-e"}) xpar_add(array, text);
    EXPECT_EQ(xpar_insert(array, 0, "-a"), array);
    xpar_insert(array, 4, "-f");
    xpar_insert(array, 1, "-b");
    EXPECT_EQ(texts(*array), (items{"a", "b", "c", "d", "e", "f"}));
    xpar_del(array, 5);
    xpar_del(array, 1);
    xpar_replace(array, 0, "-z");
    EXPECT_EQ(released, (items{"f", "b", "a"}));
    EXPECT_EQ(texts(*array), (items{"z", "c", "d", "e"}));

    xp_array *other = xp_create_array(1, nullptr, record_release);
    xpar_add(other, "first");
    xpar_drain_from(other, array);
    EXPECT_EQ(array->count, 0);
    EXPECT_EQ(texts(*other), (items{"first", "z", "c", "d", "e"}));
    EXPECT_EQ(other->capacity, 8);
    released.clear();
    xp_destroy_array(array);
    EXPECT_EQ(released, items{});
    xp_destroy_array(other);
    EXPECT_EQ(released, (items{"first", "z", "c", "d", "e"}));

    xp_array forgotten;
    released.clear();
    xp_init_array(&forgotten, 1, nullptr, record_release);
    xpar_add(&forgotten, "kept by the caller");
    EXPECT_EQ(xpar_forget_all(&forgotten), &forgotten);
    xp_close_array(&forgotten);
    EXPECT_EQ(released, items{});
}

TEST(Array, BehavesLikeAVectorUnderRandomOperations) {
    std::mt19937 random(1);
    std::vector<intptr_t> model;
    xp_array array;
    xp_init_array(&array, 1, nullptr, nullptr);
    for (int step = 0; step < 20'000; step++) {
        const intptr_t n = static_cast<intptr_t>(random() % 50);
        const int at = model.empty() ? 0 : static_cast<int>(random() % model.size());
        switch (random() % 8) {
        case 0:
        case 1: xpar_add(&array, item_of(n)), model.push_back(n); break;
        case 2: xpar_insert(&array, at, item_of(n)), model.insert(model.begin() + at, n); break;
        case 3:
            if (!model.empty()) xpar_del(&array, at), model.erase(model.begin() + at);
            break;
        case 4:
            if (!model.empty()) xpar_replace(&array, at, item_of(n)), model[static_cast<size_t>(at)] = n;
            break;
        case 5:
            xpar_reverse_ex(&array, at / 2, at),
                std::reverse(model.begin() + at / 2, model.begin() + at + (model.empty() ? 0 : 1));
            break;
        case 6:
            if (step % 16 == 0) xpar_sort(&array, by_number), std::sort(model.begin(), model.end());
            break;
        case 7:
            if (step % 64 == 0)
                xpar_uniq(&array, by_number), model.erase(std::unique(model.begin(), model.end()), model.end());
            break;
        }
        ASSERT_EQ(array.count, static_cast<int>(model.size()));
        ASSERT_TRUE(std::equal(model.begin(), model.end(), array.items,
                               [](intptr_t expected, void *item) { return expected == number(item); }))
            << "step " << step;
    }
    xp_close_array(&array);
}

int by_high_part(const void *a, const void *b) {
    comparisons++;
    return static_cast<int>((number(a) >> 16) - (number(b) >> 16));
}

// Items are key << 16 | index, so that equal keys stay told apart. The expected figures come from an independent
// transcription of the algorithm in another language.
TEST(Array, SortKeepsItsComparisonsAndItsOrderOfEqualItems) {
    const struct {
        int count;
        unsigned keys;
        int comparisons;
        uint32_t order;
    } cases[] = {
        {20, 5, 51, 2806115638},
        {60, 1000, 367, 3561014092},
        {500, 37, 2538, 652668284},
        {5000, 100'000, 69896, 2462821448},
    };
    for (const auto &c : cases) {
        xp_array array;
        xp_init_array(&array, 8, nullptr, nullptr);
        uint32_t random = 12345;
        for (int i = 0; i < c.count; i++) {
            random = (random * 1103515245 + 12345) & 0x7FFFFFFF;
            xpar_add(&array, item_of(static_cast<intptr_t>((random >> 8) % c.keys) << 16 | i));
        }
        comparisons = 0;
        xpar_sort(&array, by_high_part);
        EXPECT_EQ(comparisons, c.comparisons) << c.count << " items";
        uint32_t order = 0;
        for (int i = 0; i < c.count; i++) order = order * 31 + static_cast<uint32_t>(number(array.items[i]));
        EXPECT_EQ(order, c.order) << c.count << " items";
        xp_close_array(&array);
    }
}

TEST(Array, SortsEveryShapeOfInput) {
    std::mt19937 random(2);
    for (const int n : {0, 1, 6, 7, 8, 40, 41, 100, 1000, 20'000})
        for (const int shape : {0, 1, 2, 3, 4}) {
            std::vector<intptr_t> input, output;
            for (int i = 0; i < n; i++) {
                const int shapes[] = {static_cast<int>(random() % 100'000), i, n - i, static_cast<int>(random() % 4),
                                      i % 17};
                input.push_back(shapes[shape]);
            }
            xp_array array;
            xp_init_array(&array, n + 1, nullptr, nullptr);
            for (const intptr_t item : input) xpar_add(&array, item_of(item));
            comparisons = 0;
            xpar_sort(&array, by_number);
            EXPECT_TRUE(n > 1 || comparisons == 0);
            for (int i = 0; i < n; i++) output.push_back(number(array.items[i]));
            std::sort(input.begin(), input.end());
            EXPECT_EQ(input, output) << n << " items of shape " << shape;
            xp_close_array(&array);
        }
}

TEST(Array, UniqReleasesAllButTheFirstOfARun) {
    released.clear();
    xp_array array;
    xp_init_array(&array, 8, nullptr, record_release);
    for (const char *text : {"a1", "a2", "b1", "b2", "b3", "c1"}) xpar_add(&array, text);
    xpar_uniq(&array, [](const void *a, const void *b) {
        return *static_cast<const char *>(a) - *static_cast<const char *>(b);
    });
    EXPECT_EQ(texts(array), (items{"a1", "b1", "c1"}));
    EXPECT_EQ(released, (items{"a2", "b2", "b3"}));
    xp_close_array(&array);
}

TEST(Array, BinarySearchFindsWhatIsThereAndNothingElse) {
    xp_array array;
    xp_init_array(&array, 1, nullptr, nullptr);
    EXPECT_EQ(xpar_bsearch(&array, item_of(1), by_number), -1);
    for (int count = 1; count <= 40; count++) {
        xpar_add(&array, item_of(2 * count));
        for (intptr_t key = 1; key <= 2 * count + 1; key++) {
            comparisons = 0;
            const int index = xpar_bsearch(&array, item_of(key), by_number);
            ASSERT_EQ(index, key % 2 ? -1 : key / 2 - 1) << count << " items";
            if (count <= 5 && index >= 0) {
                ASSERT_EQ(comparisons, index + 1) << "up to five items are searched in order";
            }
        }
    }
    xpar_forget_all(&array);
    for (const intptr_t n : {1, 1, 2, 2, 2, 3}) xpar_add(&array, item_of(n));
    EXPECT_EQ(xpar_bsearch(&array, item_of(2), by_number), 3) << "six items are halved";
    xpar_del(&array, 5);
    EXPECT_EQ(xpar_bsearch(&array, item_of(2), by_number), 2) << "of five, the first";
    xp_close_array(&array);
}

TEST(Array, TokenizeCutsAtEveryDelimiter) {
    std::string table(256, '\0'), one_entry(256, '\0');
    table[0] = table[1] = table[';'] = 1;
    one_entry[0] = '\x01'; // entry 1 is zero: taken as the text "\x01"
    one_entry[';'] = 1;
    const struct {
        const char *text;
        const char *delimiters;
        int flags;
        items pieces;
    } cases[] = {
        {"", ",", 0, {}},
        {",", ",", 0, {"", ""}},
        {"a, b,,c", ",", 0, {"a", " b", "", "c"}},
        {"a, b,,c", ",", XP_TOKENIZE_TRIM | XP_TOKENIZE_SKIP_EMPTY, {"a", "b", "c"}},
        {"a , \t ,c", ",", XP_TOKENIZE_SKIP_EMPTY, {"a ", " \t ", "c"}},
        {"a,b;c", ",;", 0, {"a", "b", "c"}},
        {"a,b;", ",;", 0, {"a", "b", ""}},
        {"a\xE4z", "\xE4-", 0, {"a", "z"}},
        {"whole", "", 0, {"whole"}},
        {"a;b\x01z", table.data(), XP_TOKENIZE_TABLE, {"a", "b", "z"}},
        {"a;b\x01z", one_entry.data(), XP_TOKENIZE_TABLE, {"a;b", "z"}},
    };
    for (const auto &c : cases) {
        harness::guard_page text(std::string_view(c.text, strlen(c.text) + 1));
        xp_array array;
        xp_init_array(&array, 1, duplicate, free);
        xpar_tokenize(&array, text.data(), c.delimiters, c.flags);
        EXPECT_EQ(texts(array), c.pieces) << '<' << c.text << "> flags " << c.flags;
        xp_close_array(&array);
    }
    xp_array array;
    xp_init_array(&array, 1, nullptr, nullptr);
    xpar_tokenize(&array, nullptr, ",", 0);
    EXPECT_EQ(array.count, 0);
    xp_close_array(&array);
}

TEST(Array, FailedAllocationsAreReportedOrEndTheProcess) {
    harness::oom_sweep([] {
        xp_array *array = xp_create_array(1, nullptr, nullptr);
        if (!array) return;
        array->items[array->count++] = nullptr;
        EXPECT_TRUE(xpar_insert(array, 0, "x") || array->count == 1);
        xpar_reset(array);
        xp_destroy_array(array);
    });
    xp_array array;
    xp_init_array(&array, 1, nullptr, nullptr);
    xpar_add(&array, "x");
    EXPECT_DEATH(
        {
            harness::fail_allocation failure(1);
            xpar_add(&array, "y");
        },
        "vorncore: xpar_add: out of memory");
    xp_close_array(&array);
}

} // namespace
