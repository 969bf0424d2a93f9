// Several threads lock, unlock, allocate and evict against one render cache
// whose cap is far below what the tiles want, so eviction runs all the time.
// Tiles really fill and check their memory on the way in and out.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <memory>
#include <random>
#include <thread>
#include <vector>

#include "memory/render_cache.h"

namespace {
std::atomic<int> gViolations{0};

class TstressTile : public TcacheProxy {
public:
    TstressTile(TrenderCache& cache, unsigned id) : fCache(cache), fId(id), fSize(256 + 64 * (id % 8)) {}

    int enterCache(void*) override {
        if (fResident.exchange(true)) ++gViolations;  // entered twice
        ++fGeneration;
        fData = static_cast<uint32_t*>(fCache.allocate(fSize));
        if (!fData) return -1;
        for (unsigned i = 0; i < words(); ++i) fData[i] = expected(i);
        ++enters;
        return 0;
    }
    int leaveCache(void*) override {
        if (!fResident.load()) ++gViolations;  // left without being in
        if (!intact()) ++gViolations;
        // Some tiles sometimes refuse, as a tile being written back would.
        if (fId % 5 == 0 && (++fLeaveAttempts % 3) == 0) {
            ++refusals;
            return 1;
        }
        fCache.deallocate(fData);
        fData = nullptr;
        fResident = false;
        ++leaves;
        return 0;
    }
    // Read under a lock by any number of threads.
    bool intact() const {
        if (!fData) return false;
        for (unsigned i = 0; i < words(); ++i)
            if (fData[i] != expected(i)) return false;
        return true;
    }
    bool resident() const { return fResident.load(); }
    // The arena may hand out up to 16 bytes more than asked rather than
    // leave a sliver too small to stand alone.
    unsigned blockBytes() const {
        const size_t bytes = TvariantArena::blockSize(fData);
        const unsigned rounded = (fSize + 15) / 16 * 16;
        return bytes == rounded || bytes == rounded + 16 ? unsigned(bytes) : 0;
    }

    std::atomic<int> enters{0}, leaves{0}, refusals{0};

private:
    unsigned words() const { return fSize / 4; }
    uint32_t expected(unsigned i) const { return fId * 2654435761u ^ (fGeneration << 20) ^ i; }

    TrenderCache& fCache;
    unsigned fId;
    unsigned fSize;
    uint32_t fGeneration = 0;
    unsigned fLeaveAttempts = 0;
    uint32_t* fData = nullptr;
    std::atomic<bool> fResident{false};
};
}  // namespace

TEST(RenderCacheStress, ThreadsLockAllocateAndEvictWithoutLosingEntries) {
    constexpr unsigned kTiles = 96, kThreads = 4, kIterations = 20000;
    // Growth is on, so the cap rises whenever the list runs dry; start it small.
    TrenderCache cache(TmallocAllocator::mallocAllocator(), 8192, 16384, 4294967295u);
    std::vector<std::unique_ptr<TstressTile>> tiles;
    for (unsigned i = 0; i < kTiles; ++i) tiles.push_back(std::make_unique<TstressTile>(cache, i));
    gViolations = 0;
    std::atomic<int> lockedReads{0};

    auto work = [&](unsigned seed) {
        std::mt19937 rng(seed);
        std::vector<void*> scratch;
        for (unsigned n = 0; n < kIterations; ++n) {
            const unsigned what = rng() % 16;
            TstressTile& tile = *tiles[rng() % kTiles];
            if (what < 10) {
                if (cache.lock(tile) != 0) {
                    ++gViolations;  // enters never fail here
                    continue;
                }
                if (!tile.resident() || !tile.intact()) ++gViolations;
                ++lockedReads;
                if (what == 0) {  // hold two at once, in any order
                    TstressTile& other = *tiles[rng() % kTiles];
                    cache.lock(other);
                    if (!other.intact()) ++gViolations;
                    cache.unlock(other);
                }
                cache.unlock(tile);
            } else if (what < 13) {
                const unsigned size = 64 + rng() % 2048;
                if (void* p = cache.allocate(size)) {
                    std::memset(p, 0xAB, size);
                    scratch.push_back(p);
                }
                if (scratch.size() > 8) {
                    cache.deallocate(scratch.front());
                    scratch.erase(scratch.begin());
                }
            } else if (what < 15) {
                cache.reclaim();
            } else {
                cache.removeProxy(tile);
            }
        }
        for (void* p : scratch) cache.deallocate(p);
    };
    std::vector<std::thread> threads;
    for (unsigned t = 0; t < kThreads; ++t) threads.emplace_back(work, 1234 + t);
    for (auto& t : threads) t.join();

    EXPECT_EQ(gViolations.load(), 0);
    EXPECT_GT(lockedReads.load(), 0);
    unsigned resident = 0, residentBytes = 0, leaves = 0;
    for (auto& tile : tiles) {
        EXPECT_EQ(tile->referenceCount(), 0u);
        const int32_t state = tile->state();
        EXPECT_TRUE(state == TcacheEntry::kNotInCache || state == TcacheEntry::kInLRU) << state;
        // In memory exactly when idle in the list; every entry is accounted for.
        EXPECT_EQ(tile->resident(), state == TcacheEntry::kInLRU);
        EXPECT_EQ(tile->enters.load() - tile->leaves.load(), tile->resident() ? 1 : 0);
        if (tile->resident()) {
            ++resident;
            EXPECT_NE(tile->blockBytes(), 0u);
            residentBytes += tile->blockBytes();
            EXPECT_TRUE(tile->intact());
        }
        leaves += unsigned(tile->leaves.load());
    }
    EXPECT_GT(leaves, kTiles);  // eviction really ran
    EXPECT_EQ(cache.idleCount(), resident);
    EXPECT_EQ(cache.lruLength(), resident);
    // Nothing but the resident tiles holds memory of the cache.
    EXPECT_EQ(cache.allocatedMemory(), residentBytes);
    EXPECT_TRUE(cache.arena().verify());
    // Draining the list gives everything back.
    unsigned drained = 0;
    for (int r; (r = cache.reclaim()) != Tcache::kReclaimEmpty;) drained += r == 0;
    EXPECT_EQ(drained, resident);
    EXPECT_EQ(cache.allocatedMemory(), 0u);
}
