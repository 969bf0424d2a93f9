#include "renderer/thread_team.h"

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

void forEachOnThreads(size_t count, int threads, const std::function<void(size_t index, int member)>& body) {
    if (count == 0) return;
    const int members = int(std::min(size_t(std::max(1, threads)), count));
    std::atomic<size_t> next{0};
    auto work = [&](int member) {
        for (size_t i = next.fetch_add(1, std::memory_order_relaxed); i < count; i = next.fetch_add(1, std::memory_order_relaxed))
            body(i, member);
    };
    std::vector<std::thread> team;
    team.reserve(size_t(members - 1));
    for (int member = 1; member < members; ++member) team.emplace_back(work, member);
    work(0);
    for (std::thread& t : team) t.join();
}

int defaultThreadCount() { return int(std::max(1u, std::thread::hardware_concurrency())); }
