// Objects shared by threads, for as many steps as the test says.
#pragma once

#include <thread>
#include <vector>

namespace harness {

inline constexpr int thread_counts[] = {2, 4, 16};

/// Calls work(0) ... work(count - 1), each in a thread, and waits for all.
template <class Work>
void in_threads(int count, const Work &work) {
    std::vector<std::thread> threads;
    for (int n = 0; n < count; n++) threads.emplace_back([&work, n] { work(n); });
    for (auto &thread : threads) thread.join();
}

} // namespace harness
