// The render cache: eviction before growth, the cap's rules, the freed-block
// shortcut and the arena allocator adapter.
#include "memory/render_cache.h"

#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "cache_tile.h"
#include "framework/host/allocator.h"
#include "memory/render_cache_allocator.h"

namespace {
constexpr unsigned kHuge = 4294967295u;

TrenderCache makeCache(unsigned cap, unsigned pageSize = 65536) {
    return TrenderCache(TmallocAllocator::mallocAllocator(), cap, pageSize, kHuge);
}
}  // namespace

TEST(RenderCacheEviction, SweepEndsWhenAFreedBlockFitsTheRequest) {
    // Three 256-byte tiles at the start of a page, then a pinned block that
    // keeps the total over the cap. Freed blocks merge, so the second
    // eviction frees 256 + 16 + 256 bytes.
    struct Case {
        unsigned request;
        const char* evicted;
        unsigned largestFreed;
    };
    for (const Case c : {Case{256, "A", 256}, Case{257, "AB", 528}, Case{528, "AB", 528}, Case{529, "ABC", 800}}) {
        TrenderCache cache = makeCache(kHuge);
        std::string evicted;
        TcacheTile a(cache, 256, 'A', &evicted), b(cache, 256, 'B', &evicted), cc(cache, 256, 'C', &evicted);
        a.touch();
        b.touch();
        cc.touch();
        void* pinned = cache.allocate(8192);
        cache.reallySetMaximumMemorySize(1024);
        void* p = cache.allocate(c.request);
        EXPECT_EQ(evicted, c.evicted) << c.request;
        EXPECT_EQ(cache.largestFreedBlock(), c.largestFreed) << c.request;
        // Still over the cap: only the freed block ended the sweep.
        EXPECT_GT(cache.allocatedMemory(), cache.maximumMemorySize()) << c.request;
        EXPECT_EQ(cache.maximumMemorySize(), 1024u) << c.request;
        EXPECT_TRUE(cache.arena().verify());
        cache.deallocate(p);
        cache.deallocate(pinned);
    }
}

TEST(RenderCacheGrowth, CapRisesBySizePlusMarginOnlyWhenNothingLeaves) {
    // With a tile, a 16-byte block pinned after it keeps its freed block
    // from merging with the rest of the page, so that only the total decides.
    // The tile and the pin hold 272 bytes; a request that brings the total
    // exactly to the cap counts as over it.
    struct Case {
        const char* what;
        unsigned cap;
        unsigned size;
        bool idleTile;     // a 256-byte tile idles in the list
        bool tileRefuses;  // and will not leave
        const char* evicted;
        unsigned expectedCap;
    };
    const Case cases[] = {
        {"below the cap", 100000, 1000, false, false, "", 100000},
        {"empty list", 1000, 2000, false, false, "", 1000 + 2000 + TrenderCache::kGrowthMargin},
        {"empty list, cap zero", 0, 16, false, false, "", 16 + TrenderCache::kGrowthMargin},
        {"refusing tile", 1000, 2000, true, true, "", 1000 + 2000 + TrenderCache::kGrowthMargin},
        {"evicted, list ran dry", 1000, 2000, true, false, "T", 1000 + 2000 + TrenderCache::kGrowthMargin},
        {"evicted, now under", 1000, 800, true, false, "T", 1000},
        {"reaching the cap exactly", 272 + 512, 512, true, false, "T", 272 + 512},
        {"a byte under the cap", 272 + 513, 512, true, false, "", 272 + 513},
        // 272 + (2^32 - 100) wraps to 172 in 32 bits, under the cap; the arena
        // cannot serve it and says so with null.
        {"a sum that wraps past 32 bits", 1000, 4294967196u, true, false, "", 1000},
    };
    for (const Case& c : cases) {
        TrenderCache cache = makeCache(kHuge);
        std::string evicted;
        TcacheTile tile(cache, 256, 'T', &evicted);
        void* pin = nullptr;
        if (c.idleTile) {
            tile.touch();
            pin = cache.allocate(16);
        }
        tile.refuse = c.tileRefuses;
        cache.reallySetMaximumMemorySize(c.cap);
        ASSERT_EQ(cache.allocatedMemory(), c.idleTile ? 272u : 0u) << c.what;
        void* p = cache.allocate(c.size);
        EXPECT_EQ(p != nullptr, c.size < kHuge / 2) << c.what;
        EXPECT_EQ(cache.maximumMemorySize(), c.expectedCap) << c.what;
        EXPECT_EQ(evicted, c.evicted) << c.what;
        cache.deallocate(p);
        cache.deallocate(pin);
    }
}

TEST(RenderCacheCap, SetOnlyRaisesReallySetAlsoLowers) {
    struct Case {
        unsigned start, n;
        unsigned afterSet, afterReallySet;
    };
    const Case cases[] = {
        {1000, 500, 1000, 500}, {1000, 1000, 1000, 1000}, {1000, 5000, 5000, 5000}, {0, kHuge, kHuge, kHuge},
        {kHuge, 0, kHuge, 0},
    };
    for (const Case& c : cases) {
        TrenderCache a = makeCache(c.start), b = makeCache(c.start);
        a.setMaximumMemorySize(c.n);
        b.reallySetMaximumMemorySize(c.n);
        EXPECT_EQ(a.maximumMemorySize(), c.afterSet) << c.start << " " << c.n;
        EXPECT_EQ(b.maximumMemorySize(), c.afterReallySet) << c.start << " " << c.n;
    }
}

TEST(RenderCacheCap, LoweringEvictsNothingUntilTheNextAllocation) {
    TrenderCache cache = makeCache(kHuge);
    std::string evicted;
    TcacheTile a(cache, 1024, 'A', &evicted), b(cache, 1024, 'B', &evicted);
    a.touch();
    b.touch();
    cache.reallySetMaximumMemorySize(512);
    EXPECT_EQ(cache.idleCount(), 2u);
    EXPECT_EQ(evicted, "");
    // Over the cap now: unused memory wraps.
    EXPECT_EQ(cache.unusedMemory(), 512u - 2048u);
    void* p = cache.allocate(16);
    // A's 1024 bytes are free again, which fits 16: B stays.
    EXPECT_EQ(evicted, "A");
    EXPECT_EQ(cache.idleCount(), 1u);
    cache.deallocate(p);
}

TEST(RenderCacheAllocator, ArenaPagesDrawnThroughTheCacheCountInItsBudgetAndEvict) {
    TrenderCache cache = makeCache(kHuge);
    Tallocator& allocator = cache.asArenaAllocator();
    EXPECT_EQ(&cache.asArenaAllocator(), &allocator);
    // The adapter lives in the arena's bookkeeping, outside the budget.
    EXPECT_EQ(cache.allocatedMemory(), 0u);
    EXPECT_GT(cache.arena().footPrint(), 0u);
    {
        TstackArena frame(allocator, 65536);
        ASSERT_NE(frame.allocate(100), nullptr);
        ASSERT_NE(frame.allocate(70000), nullptr);  // a second, larger block
        EXPECT_EQ(frame.blockCount(), 2u);
        // Every byte the stack arena holds is a block of the cache, rounded to 16.
        EXPECT_EQ(cache.allocatedMemory(), (frame.footPrint() + 15) / 16 * 16 + 0u);
    }
    EXPECT_EQ(cache.allocatedMemory(), 0u);
    EXPECT_TRUE(cache.arena().verify());
    // A page request over the cap evicts idle tiles like any other.
    std::string evicted;
    TcacheTile a(cache, 4096, 'A', &evicted);
    a.touch();
    cache.reallySetMaximumMemorySize(8192);
    TstackArena frame(allocator, 8192);
    ASSERT_NE(frame.allocate(8), nullptr);
    EXPECT_EQ(evicted, "A");
}

TEST(RenderCacheAllocator, ConcurrentFirstRequestsGetOneAdapter) {
    for (int round = 0; round < 20; ++round) {
        TrenderCache cache = makeCache(kHuge);
        std::vector<Tallocator*> seen(4);
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t) threads.emplace_back([&, t] { seen[t] = &cache.asArenaAllocator(); });
        for (auto& t : threads) t.join();
        const std::set<Tallocator*> distinct(seen.begin(), seen.end());
        ASSERT_EQ(distinct.size(), 1u);
        // A usable allocator, not a placeholder.
        void* p = (*distinct.begin())->allocate(32);
        ASSERT_NE(p, nullptr);
        EXPECT_EQ(cache.allocatedMemory(), 32u);
        (*distinct.begin())->free(p);
    }
}

namespace {
// Stands in for a render thread: the allocator only carries the reference.
struct TfakeThread {
    TrenderCache* cache;
    unsigned calls = 0;
};
TfakeThread& fake(TrenderThreadBase& thread) { return reinterpret_cast<TfakeThread&>(thread); }
void* threadAllocate(TrenderThreadBase& thread, size_t size) {
    ++fake(thread).calls;
    return fake(thread).cache->allocate(unsigned(size));
}
void threadFree(TrenderThreadBase& thread, void* p) { fake(thread).cache->deallocate(p); }
}  // namespace

TEST(RenderCacheAllocator, ThreadAllocatorForwardsToTheThread) {
    TrenderCache cache = makeCache(kHuge);
    TfakeThread thread{&cache};
    TrenderThreadAllocator allocator(reinterpret_cast<TrenderThreadBase&>(thread));
    TrenderThreadAllocator::sSetThreadFunctions(nullptr, nullptr);
    EXPECT_EQ(allocator.allocate(64), nullptr);
    TrenderThreadAllocator::sSetThreadFunctions(threadAllocate, threadFree);
    void* p = allocator.allocate(64);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(thread.calls, 1u);
    EXPECT_EQ(cache.allocatedMemory(), 64u);
    allocator.free(p);
    EXPECT_EQ(cache.allocatedMemory(), 0u);
    TrenderThreadAllocator::sSetThreadFunctions(nullptr, nullptr);
}
