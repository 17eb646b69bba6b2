#include "support/harness.h"

#include <errno.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>

#include "support/items.h"

namespace {

std::atomic<long> live{0};             // blocks of the C allocator that the library and the tests have
thread_local int allocations_left = 0; // until the one that fails; 0: none is to fail
thread_local bool failure_fired = false;

bool must_fail() {
    if (allocations_left == 0 || --allocations_left > 0) return false;
    failure_fired = true;
    errno = ENOMEM;
    return true;
}

template <class Block>
Block *counted(Block *block) {
    if (block) live++;
    return block;
}

} // namespace

extern "C" {
void *__real_malloc(size_t);
void *__real_calloc(size_t, size_t);
void *__real_realloc(void *, size_t);
void __real_free(void *);
char *__real_strdup(const char *);

void *__wrap_malloc(size_t size) { return must_fail() ? nullptr : counted(__real_malloc(size)); }
void *__wrap_calloc(size_t count, size_t size) { return must_fail() ? nullptr : counted(__real_calloc(count, size)); }
void *__wrap_realloc(void *block, size_t size) {
    if (must_fail()) return nullptr;
    if (!block) return counted(__real_realloc(nullptr, size));
    if (!size) live--; // it is freed
    return __real_realloc(block, size);
}
void __wrap_free(void *block) {
    if (block) live--;
    __real_free(block);
}
char *__wrap_strdup(const char *text) { return must_fail() ? nullptr : counted(__real_strdup(text)); }
}

namespace harness {

long live_blocks() { return live; }
int open_descriptors() {
    return static_cast<int>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}));
}

fail_allocation::fail_allocation(int nth) {
    allocations_left = nth;
    failure_fired = false;
}
fail_allocation::~fail_allocation() { allocations_left = 0; }
bool fail_allocation::fired() const { return failure_fired; }

guard_page::guard_page(std::string_view bytes) {
    const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    const size_t body = (bytes.size() + page - 1) / page * page;
    mapped_ = body + page;
    base_ = static_cast<char *>(mmap(nullptr, mapped_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    mprotect(base_ + body, page, PROT_NONE);
    data_ = base_ + body - bytes.size();
    memcpy(data_, bytes.data(), bytes.size());
}
guard_page::~guard_page() { munmap(base_, mapped_); }

} // namespace harness

namespace {

using namespace harness;

class leak_check : public testing::EmptyTestEventListener {
    void OnTestStart(const testing::TestInfo &) override {
        released = {};
        blocks_ = live_blocks();
        descriptors_ = open_descriptors();
    }
    void OnTestEnd(const testing::TestInfo &) override {
        EXPECT_EQ(live_blocks() - blocks_, 0) << "blocks are left";
        EXPECT_EQ(open_descriptors() - descriptors_, 0) << "descriptors are left";
    }
    long blocks_ = 0;
    int descriptors_ = 0;
};

} // namespace

int main(int count, char **arguments) {
    testing::InitGoogleTest(&count, arguments);
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    testing::UnitTest::GetInstance()->listeners().Append(new leak_check);
    return RUN_ALL_TESTS();
}
