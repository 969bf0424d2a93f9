// Support types of the host layer: arrays, bit fields, arenas, messages.
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "framework/host/allocator.h"
#include "framework/host/array.h"
#include "framework/host/bit_field.h"
#include "framework/host/command_engine.h"
#include "framework/host/environment.h"
#include "framework/host/iff_tag.h"
#include "framework/host/math.h"
#include "framework/host/threads.h"
#include "support/alloc_counter.h"

TEST(HostArray, InsertRemoveAndFindKeepElementOrder) {
    TuInt32Array a{1, 2, 3};
    a.insert(9, 1);  // 1 9 2 3
    a.raw().insertElement(nullptr, 0, 2);  // 0 0 1 9 2 3
    ASSERT_EQ(a.length(), 6u);
    EXPECT_EQ(a[0], 0u);
    EXPECT_EQ(a[3], 9u);
    a.removeAt(1, 2);  // 0 9 2 3
    EXPECT_EQ(a.find(9), 1);
    EXPECT_EQ(a.find(7), -1);
    a.removeAt(10);  // past the end: nothing
    a.removeLast(10);  // more than there is: empties
    EXPECT_TRUE(a.isEmpty());
}

TEST(HostArray, SortedPointerArrayReportsPositionAndPresence) {
    int cells[4] = {};
    TvoidPtrSortedArray s;
    unsigned pos;
    EXPECT_TRUE(s.insert(&cells[2], pos));
    EXPECT_TRUE(s.insert(&cells[0], pos));
    EXPECT_EQ(pos, 0u);
    EXPECT_FALSE(s.insert(&cells[2], pos));
    EXPECT_EQ(s.find(&cells[2], pos), 0);
    EXPECT_EQ(pos, 1u);
    EXPECT_NE(s.find(&cells[1], pos), 0);
    EXPECT_EQ(pos, 1u);  // where it would go
    EXPECT_TRUE(s.remove(&cells[0]));
    EXPECT_FALSE(s.remove(&cells[0]));
    EXPECT_EQ(s.length(), 1u);
}

TEST(HostBitField, SetAllLeavesBitsPastTheLengthClearAndWordsSplitAtThirtyTwo) {
    for (unsigned n : {1u, 31u, 32u, 33u, 64u, 100u}) {
        TbitFieldFixedN f(n);
        f.setAll();
        EXPECT_EQ(f.count(), n) << n;
        EXPECT_FALSE(f.test(n)) << n;
        f.clear(0);
        EXPECT_EQ(f.count(), n - 1) << n;
    }
    uint32_t storage[2] = {0, 0};
    TbitFieldFixedN over(40, storage);
    over.set(35);
    EXPECT_EQ(storage[1], 1u << 3);  // writes through to the given words
    TbitFieldFixedN copy = over;  // a copy owns its words
    copy.clear(35);
    EXPECT_TRUE(over.test(35));
    // Sixty-four bits split into words at thirty-two.
    TbitField64 b;
    b.set(0);
    b.set(31);
    b.set(32);
    b.set(63);
    EXPECT_EQ(b.low(), 0x80000001u);
    EXPECT_EQ(b.high(), 0x80000001u);
    b.clear(63);
    EXPECT_FALSE(b.test(63));
    EXPECT_TRUE((b & TbitField64(1ull << 32)).test(32));
}

namespace {
// An allocator that counts what it hands out, to watch an arena's blocks.
struct CountingAllocator : Tallocator {
    int live = 0;
    size_t lastSize = 0;
    void* allocate(size_t size, unsigned) override { ++live; lastSize = size; return std::malloc(size); }
    void free(void* p, unsigned) override { --live; std::free(p); }
};
}  // namespace

TEST(HostStackArena, RoundsToEightAndGrowsByBlocks) {
    CountingAllocator base;
    {
        TstackArena arena(base, 256);
        auto* a = static_cast<char*>(arena.allocate(1));
        auto* b = static_cast<char*>(arena.allocate(3));
        EXPECT_EQ(b - a, 8);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(a) % 8, 0u);
        EXPECT_EQ(arena.allocatedBytes(), 16u);
        EXPECT_EQ(arena.blockCount(), 1u);
        arena.allocate(1000);  // larger than the growth size: a block of its own size
        EXPECT_EQ(arena.blockCount(), 2u);
        EXPECT_GE(base.lastSize, 1000u);
        EXPECT_EQ(base.live, 2);
    }
    EXPECT_EQ(base.live, 0);  // destruction frees every block
}

TEST(HostThreads, RefCounterCountsExactlyUnderContention) {
    TmtRefCounter counter;
    std::vector<std::thread> threads;
    std::atomic<int> reachedZero{0};
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 10000; ++i) counter.add();
        });
    for (auto& t : threads) t.join();
    threads.clear();
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 10000; ++i)
                if (counter.remove() == 0) ++reachedZero;
        });
    for (auto& t : threads) t.join();
    EXPECT_EQ(counter.count(), 0);
    EXPECT_EQ(reachedZero.load(), 1);
}

TEST(HostThreads, NodeMutexIsSharedPerNodeAndDroppedWithTheLastHolder) {
    auto& mgr = TdepNodeMutexMgr::instance();
    auto* nodeA = reinterpret_cast<const TdependNode*>(0x1000);
    auto* nodeB = reinterpret_cast<const TdependNode*>(0x2000);
    unsigned before = mgr.liveMutexCount();
    auto a1 = mgr.obtainNodeMutex(nodeA);
    auto a2 = mgr.obtainNodeMutex(nodeA);
    auto b = mgr.obtainNodeMutex(nodeB);
    EXPECT_EQ(a1.get(), a2.get());
    EXPECT_NE(a1.get(), b.get());
    EXPECT_EQ(mgr.liveMutexCount(), before + 2);
    mgr.returnMutex(nodeA, a1);
    EXPECT_EQ(mgr.liveMutexCount(), before + 2);
    mgr.returnMutex(nodeA, a2);
    mgr.returnMutex(nodeB, b);
    EXPECT_EQ(mgr.liveMutexCount(), before);
}

TEST(HostCommandEngine, CatalogueTextsTakeArgumentsAndReachTheSink) {
    static const TcatalogueEntry kGreeting{"s_TestStrings.rGreeting", "cannot open ^1s (^2s)"};
    TcommandCapture capture;
    theCommandEngine().displayWarning(kGreeting, {"a.bot", "truncated"});
    theCommandEngine().displayError("plain");
    ASSERT_EQ(capture.messages().size(), 2u);
    EXPECT_EQ(capture.messages()[0].text, "cannot open a.bot (truncated)");
    EXPECT_EQ(capture.countKey("s_TestStrings.rGreeting"), 1u);
    EXPECT_EQ(capture.count(TmessageSeverity::kError), 1u);
    // A key without a text shows the key, so a missing entry is visible.
    EXPECT_EQ(TcommandEngine::format({"s_TestStrings.rMissing"}), "s_TestStrings.rMissing");
}

TEST(HostCommandEngine, CommandsRunByNameWithTheirArguments) {
    theCommandEngine().registerCommand("testEcho", [](const std::vector<std::string>& args) {
        return TscriptCmdResult{true, args.empty() ? "" : args.back()};
    });
    TscriptCmdResult r;
    EXPECT_TRUE(theCommandEngine().executeCommandWithResult("testEcho -query value", r));
    EXPECT_EQ(r.value, "value");
    EXPECT_FALSE(theCommandEngine().executeCommandWithResult("noSuchCommand", r));
}

TEST(HostEnvironment, IntegerReadingsFallBackOnTheDefault) {
    setenv("SHADENET_TEST_ENV", "0x10", 1);
    EXPECT_EQ(TenvironmentVariable("SHADENET_TEST_ENV").asInt32(3), 16);
    setenv("SHADENET_TEST_ENV", "abc", 1);
    EXPECT_EQ(TenvironmentVariable("SHADENET_TEST_ENV").asInt32(3), 3);
    unsetenv("SHADENET_TEST_ENV");
    EXPECT_FALSE(TenvironmentVariable("SHADENET_TEST_ENV").isSet());
    EXPECT_EQ(TenvironmentVariable("SHADENET_TEST_ENV").asUnsignedPtr(4294967295u), 4294967295u);
}

TEST(HostMath, InverseUndoesATransform) {
    Tmatrix m = Tmatrix::scaling(2, 3, 4) * Tmatrix::translation(1, -2, 5);
    Tmatrix r = m * m.inverse();
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) EXPECT_NEAR(r.m[i][j], i == j ? 1.0 : 0.0, 1e-12);
    T3Float p = m.transformPoint({1, 1, 1});
    EXPECT_FLOAT_EQ(p.x, 3);
    EXPECT_FLOAT_EQ(p.z, 9);
    EXPECT_NEAR(m.determinant(), 24.0, 1e-12);
    EXPECT_EQ(TiffTag("XPIX").value(), 0x58504958u);
    EXPECT_EQ(TiffTag("RPO3").withLast('X').asString(), "RPOX");
}

// The zero-allocation checks of the shading tests prove nothing unless the
// counter sees allocations at all, with either way of counting (replaced
// operators or, under the thread sanitizer, its allocator hook).
TEST(AllocationCounter, CountsTheCallingThreadsAllocationsOnly) {
    static void* volatile sink = nullptr;
    TallocationCounter counter;
    sink = ::operator new(48);
    ::operator delete(sink);
    sink = ::operator new[](16);
    ::operator delete[](sink);
    EXPECT_EQ(counter.allocations(), 2u);
    std::thread other([] {
        for (int i = 0; i < 8; ++i) {
            sink = ::operator new(32);
            ::operator delete(sink);
        }
    });
    size_t afterStart = counter.allocations();
    other.join();
    // Starting the thread may allocate here; the other thread's eight must not show.
    EXPECT_EQ(counter.allocations(), afterStart);
}
