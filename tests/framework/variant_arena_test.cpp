// Variable-size arenas: merging of free blocks with the size each release
// reports, counting, page handling, alignment and a threaded workout.
#include "framework/host/variant_arena.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <random>
#include <thread>
#include <vector>

namespace {
constexpr unsigned kNoLimit = 4294967295u;
// Page header 32 bytes, block header 16.
constexpr unsigned kPage = 4096, kPageUsable = kPage - 32 - 16;

// Counts what the arena draws and can be told to fail.
class TcountingAllocator : public Tallocator {
public:
    void* allocate(size_t size, unsigned) override {
        if (fail) return nullptr;
        ++live;
        bytes += size;
        sizes[size]++;
        return std::malloc(size);
    }
    void free(void* p, unsigned) override {
        --live;
        std::free(p);
    }
    bool fail = false;
    int live = 0;
    size_t bytes = 0;
    std::map<size_t, int> sizes;
};
}  // namespace

TEST(VariantArenaMerge, ReleaseReportsTheMergedFreeBlock) {
    // Three 64-byte blocks at the start of a page; the rest of the page is
    // one free block of kPageUsable - 3 * 80 bytes.
    const unsigned rest = kPageUsable - 3 * 80;
    struct Case {
        int order[3];  // which block goes first, second, third
        unsigned freed[3];
    };
    const Case cases[] = {
        {{0, 1, 2}, {64, 144, kPageUsable}},
        {{2, 1, 0}, {rest + 80, rest + 160, kPageUsable}},
        {{1, 0, 2}, {64, 144, kPageUsable}},
        {{1, 2, 0}, {64, rest + 160, kPageUsable}},
        {{0, 2, 1}, {64, rest + 80, kPageUsable}},
    };
    for (const Case& c : cases) {
        TcountingAllocator base;
        TvariantArena arena(kPage, kNoLimit, base, "test", false, true);
        void* blocks[3];
        for (auto& b : blocks) b = arena.allocate(64);
        for (int i = 0; i < 3; ++i) {
            unsigned freed = 0;
            TvariantArena::deallocate(blocks[c.order[i]], freed);
            EXPECT_EQ(freed, c.freed[i]) << c.order[0] << c.order[1] << c.order[2] << " step " << i;
            EXPECT_TRUE(arena.verify());
        }
        EXPECT_EQ(arena.freeBlockCount(), 1u);
        EXPECT_EQ(arena.allocatedBytes(), 0u);
    }
    unsigned freed = 99;
    TvariantArena::deallocate(nullptr, freed);
    EXPECT_EQ(freed, 0u);
}

TEST(VariantArenaCount, RequestsRoundTo16AndCountUntilReleased) {
    struct Case {
        size_t size;
        size_t counted;
    };
    TcountingAllocator base;
    TvariantArena arena(kPage, kNoLimit, base, "test", true, true);
    size_t total = 0;
    std::vector<void*> live;
    for (const Case c : {Case{0, 16}, Case{1, 16}, Case{16, 16}, Case{17, 32}, Case{100, 112}, Case{4000, 4000}}) {
        void* p = arena.allocate(c.size);
        ASSERT_NE(p, nullptr);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % 16, 0u);
        total += c.counted;
        EXPECT_EQ(arena.allocatedBytes(), total) << c.size;
        live.push_back(p);
    }
    for (void* p : live) TvariantArena::deallocate(p);
    EXPECT_EQ(arena.allocatedBytes(), 0u);
    EXPECT_TRUE(arena.verify());
    // The footprint is what was drawn from the allocator and not given back.
    EXPECT_EQ(arena.footPrint(), size_t(kPage) * size_t(base.live));
}

TEST(VariantArenaPages, OversizeRequestsAndEmptyPages) {
    struct Case {
        bool releaseEmptyPages, oversizePages;
        bool bigServed;
        int pagesAfterAllReleased;
    };
    for (const Case c : {Case{true, true, true, 1}, Case{false, true, true, 3}, Case{true, false, false, 1},
                         Case{false, false, false, 2}}) {
        TcountingAllocator base;
        TvariantArena arena(kPage, kNoLimit, base, "test", c.releaseEmptyPages, c.oversizePages);
        void* a = arena.allocate(kPageUsable);  // fills a page exactly
        void* b = arena.allocate(kPageUsable);  // a second page
        void* big = arena.allocate(3 * kPage);
        EXPECT_EQ(big != nullptr, c.bigServed);
        if (big) {
            EXPECT_EQ(base.sizes[3 * kPage + 48], 1);  // a page of its own, just large enough
            EXPECT_EQ(arena.pageCount(), 3u);
        }
        TvariantArena::deallocate(a);
        TvariantArena::deallocate(b);
        TvariantArena::deallocate(big);
        // Released pages go back, one normal page stays as a spare.
        EXPECT_EQ(base.live, c.pagesAfterAllReleased) << c.releaseEmptyPages << c.oversizePages;
        EXPECT_EQ(int(arena.pageCount()), base.live);
        EXPECT_TRUE(arena.verify());
    }
}

TEST(VariantArenaPages, FitSearchLimitBoundsReuse) {
    struct Case {
        unsigned limit;
        unsigned pages;
    };
    for (const Case c : {Case{0, 3}, Case{1, 1}, Case{kNoLimit, 1}}) {
        TcountingAllocator base;
        TvariantArena arena(kPage, c.limit, base, "test", false, true);
        for (int i = 0; i < 3; ++i) ASSERT_NE(arena.allocate(100), nullptr);
        EXPECT_EQ(arena.pageCount(), c.pages) << c.limit;
    }
}

TEST(VariantArenaPages, AllocatorFailureGivesNull) {
    TcountingAllocator base;
    base.fail = true;
    TvariantArena arena(kPage, kNoLimit, base, "test", true, true);
    EXPECT_EQ(arena.allocate(10), nullptr);
    EXPECT_EQ(arena.allocateInternal(10, 64), nullptr);
    EXPECT_EQ(arena.footPrint(), 0u);
}

TEST(VariantArenaInternal, AlignedAndOutsideTheCount) {
    TcountingAllocator base;
    TvariantArena arena(16384, kNoLimit, base, "test", true, true);
    void* counted = arena.allocate(48);
    std::vector<void*> internal;
    for (size_t alignment : {1, 8, 16, 32, 64, 256, 4096}) {
        void* p = arena.allocateInternal(40, alignment);
        ASSERT_NE(p, nullptr) << alignment;
        EXPECT_EQ(reinterpret_cast<uintptr_t>(p) % alignment, 0u) << alignment;
        std::memset(p, 0x5A, 40);
        internal.push_back(p);
        EXPECT_TRUE(arena.verify()) << alignment;
    }
    EXPECT_EQ(arena.allocatedBytes(), 48u);
    EXPECT_EQ(arena.allocateInternal(8, 48), nullptr);  // not a power of two
    for (void* p : internal) TvariantArena::deallocate(p);
    EXPECT_EQ(arena.allocatedBytes(), 48u);
    TvariantArena::deallocate(counted);
    EXPECT_EQ(arena.allocatedBytes(), 0u);
    EXPECT_EQ(arena.freeBlockCount(), 1u);  // everything merged again
}

TEST(VariantArenaRandom, BlocksNeverOverlapAndBookkeepingHolds) {
    TcountingAllocator base;
    TvariantArena arena(8192, 8, base, "test", true, true);
    std::mt19937 rng(7);
    std::vector<std::pair<unsigned char*, size_t>> live;
    size_t expected = 0;
    for (int step = 0; step < 3000; ++step) {
        if (live.empty() || rng() % 3 != 0) {
            const size_t size = rng() % 5 == 0 ? 1 + rng() % 20000 : 1 + rng() % 300;
            auto* p = static_cast<unsigned char*>(arena.allocate(size));
            ASSERT_NE(p, nullptr);
            std::memset(p, int(step & 0xFF), size);
            live.emplace_back(p, size);
            expected += TvariantArena::blockSize(p);
        } else {
            const size_t i = rng() % live.size();
            auto [p, size] = live[i];
            // Nobody wrote over this block while it lived.
            const unsigned char v = p[0];
            EXPECT_TRUE(std::all_of(p, p + size, [v](unsigned char x) { return x == v; }));
            expected -= TvariantArena::blockSize(p);
            TvariantArena::deallocate(p);
            live[i] = live.back();
            live.pop_back();
        }
        ASSERT_EQ(arena.allocatedBytes(), expected);
        if (step % 100 == 0) {
            ASSERT_TRUE(arena.verify()) << step;
        }
    }
    for (auto [p, size] : live) TvariantArena::deallocate(p);
    EXPECT_EQ(arena.allocatedBytes(), 0u);
    EXPECT_TRUE(arena.verify());
    EXPECT_LE(base.live, 1);
}

TEST(VariantArenaThreads, ThreadSafeArenaSurvivesConcurrentUse) {
    TcountingAllocator base;
    TmtVariantArena arena(16384, kNoLimit, base, "mt", true, true);
    auto work = [&](unsigned seed) {
        std::mt19937 rng(seed);
        std::vector<std::pair<uint32_t*, unsigned>> mine;
        for (int n = 0; n < 5000; ++n) {
            if (mine.size() < 32 && rng() % 2) {
                const unsigned words = 1 + rng() % 200;
                auto* p = static_cast<uint32_t*>(arena.allocate(words * 4));
                for (unsigned i = 0; i < words; ++i) p[i] = seed ^ i;
                mine.emplace_back(p, words);
            } else if (!mine.empty()) {
                auto [p, words] = mine.back();
                mine.pop_back();
                for (unsigned i = 0; i < words; ++i)
                    if (p[i] != (seed ^ i)) ADD_FAILURE() << "block overwritten";
                TvariantArena::deallocate(p);
            }
        }
        for (auto [p, words] : mine) TvariantArena::deallocate(p);
    };
    std::vector<std::thread> threads;
    for (unsigned t = 0; t < 4; ++t) threads.emplace_back(work, 100 + t);
    for (auto& t : threads) t.join();
    EXPECT_EQ(arena.allocatedBytes(), 0u);
    EXPECT_TRUE(arena.verify());
}
