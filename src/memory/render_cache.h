#pragma once
// TrenderCache: the memory budget of a render. It is at once a Tcache of
// idle, reclaimable entries (tiles) and the owner of the thread-safe arena
// from which the render takes everything else. An allocation that would pass
// the cap first evicts idle entries, least recently used first, and raises
// the cap only when nothing is left to throw out. The cap is soft: the cache
// itself never refuses an allocation.
//
// Switches, read once when the library loads:
//   TRACE_RENDER_CACHE  (int, 0)           trace of the first constructor
//   GROW_RENDER_CACHE   (int, 1)           allocate may raise the cap
//   LIMIT_CACHE_SIZE    (unsigned, 2^32-1) idle limit of every render cache
#include <atomic>
#include <cstddef>
#include <cstdint>

#include "framework/host/allocator.h"
#include "framework/host/variant_arena.h"
#include "memory/cache.h"

class TrenderCache : public Tcache {
public:
    static constexpr unsigned sDefaultPageSize = 2097152;
    static constexpr unsigned sDefaultMaximumMemory = 4294967295u;
    static constexpr unsigned sDefaultFitSearchLimit = 4294967295u;
    // What the cap grows by beyond the request that passed it.
    static constexpr unsigned kGrowthMargin = 262144;

    TrenderCache(unsigned maximumMemorySize, Tallocator& allocator);
    TrenderCache(Tallocator& allocator, unsigned maximumMemorySize, unsigned pageSize, unsigned fitSearchLimit);
    // Gives up every page. Entries still idle get no leaveCache.
    ~TrenderCache();
    // A copy would share the arena's pages and release them twice.
    TrenderCache(const TrenderCache&) = delete;
    TrenderCache& operator=(const TrenderCache&) = delete;

    void* allocate(unsigned size);
    void deallocate(void* p);
    void free(void* p) { deallocate(p); }

    TmtVariantArena& arena() { return fArena; }
    unsigned maximumMemorySize() const { return fMaximumMemorySize.load(std::memory_order_relaxed); }
    unsigned allocatedMemory() const { return unsigned(fArena.allocatedBytes()); }
    // Wraps when the cap has been passed.
    unsigned unusedMemory() const { return maximumMemorySize() - allocatedMemory(); }
    // Only raises the cap.
    void setMaximumMemorySize(unsigned n);
    // Sets the cap, lower or higher; a lower cap evicts nothing until the next allocate.
    void reallySetMaximumMemorySize(unsigned n) { fMaximumMemorySize.store(n, std::memory_order_relaxed); }
    // Size of the largest free block any deallocate reported since the
    // latest allocate began.
    unsigned largestFreedBlock() const { return fLargestFreed.load(std::memory_order_relaxed); }

    // An allocator whose blocks come from this cache and count in its budget,
    // for arenas that draw their pages from the render. Made on first request.
    Tallocator& asArenaAllocator();

    // The switches as read at load.
    static bool sTraceEnabled();
    static bool sGrowEnabled();
    static size_t sIdleLimit();

private:
    TmtVariantArena fArena;
    std::atomic<uint32_t> fMaximumMemorySize;
    // 0 until asked for, 1 while the first caller builds it, then its address.
    std::atomic<uintptr_t> fArenaAllocator{0};
    std::atomic<uint32_t> fLargestFreed{0};
};
