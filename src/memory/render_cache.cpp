#include "memory/render_cache.h"

#include <cstdio>
#include <new>
#include <thread>

#include "framework/host/environment.h"
#include "memory/render_cache_allocator.h"

namespace {
struct Switches {
    bool trace;
    bool grow;
    size_t idleLimit;
};

const Switches& switches() {
    static const Switches s{
        TenvironmentVariable("TRACE_RENDER_CACHE").asInt32(0) != 0,
        TenvironmentVariable("GROW_RENDER_CACHE").asInt32(1) != 0,
        size_t(TenvironmentVariable("LIMIT_CACHE_SIZE").asUnsignedPtr(4294967295u)),
    };
    return s;
}
// Read at load, not on first use, so that a later change of the environment
// has no effect.
const bool sSwitchesRead = (switches(), true);

constexpr uintptr_t kAllocatorBeingMade = 1;
}  // namespace

bool TrenderCache::sTraceEnabled() { return switches().trace; }
bool TrenderCache::sGrowEnabled() { return switches().grow; }
size_t TrenderCache::sIdleLimit() { return switches().idleLimit; }

TrenderCache::TrenderCache(unsigned maximumMemorySize, Tallocator& allocator)
    : Tcache(sIdleLimit()),
      fArena(sDefaultPageSize, sDefaultFitSearchLimit, allocator, "Render Cache", true, true),
      fMaximumMemorySize(maximumMemorySize) {
    if (sTraceEnabled() && !sGrowEnabled()) std::fprintf(stderr, "TrenderCache: GROW_RENDER_CACHE disabled\n");
}

TrenderCache::TrenderCache(Tallocator& allocator, unsigned maximumMemorySize, unsigned pageSize,
                           unsigned fitSearchLimit)
    : Tcache(sIdleLimit()),
      fArena(pageSize, fitSearchLimit, allocator, "Render Cache", true, true),
      fMaximumMemorySize(maximumMemorySize) {}

TrenderCache::~TrenderCache() {
    const uintptr_t slot = fArenaAllocator.load(std::memory_order_acquire);
    if (slot > kAllocatorBeingMade) delete reinterpret_cast<TrenderCacheAllocator*>(slot);
}

void* TrenderCache::allocate(unsigned size) {
    fLargestFreed.store(0, std::memory_order_relaxed);
    // 32-bit sums on purpose: a sum that wraps counts as not over.
    auto over = [&] { return uint32_t(allocatedMemory() + size) >= maximumMemorySize(); };
    int status = -1;
    if (over()) {
        status = reclaim(nullptr);
        while (status == 0) {
            // A free block the request fits into has appeared.
            if (size <= largestFreedBlock()) break;
            if (!over()) break;
            status = reclaim(nullptr);
        }
    }
    if (sGrowEnabled() && status != 0 && over()) {
        TmtLock guard(fMutex);
        fMaximumMemorySize.store(maximumMemorySize() + size + kGrowthMargin, std::memory_order_relaxed);
    }
    return fArena.allocate(size);
}

void TrenderCache::deallocate(void* p) {
    unsigned freed = 0;
    TvariantArena::deallocate(p, freed);
    // A plain store: a racing larger value may be lost, which only ends a
    // sweep later than it could have.
    if (freed > fLargestFreed.load(std::memory_order_relaxed)) fLargestFreed.store(freed, std::memory_order_relaxed);
}

void TrenderCache::setMaximumMemorySize(unsigned n) {
    uint32_t current = fMaximumMemorySize.load(std::memory_order_relaxed);
    while (n > current && !fMaximumMemorySize.compare_exchange_weak(current, n, std::memory_order_relaxed)) {
    }
}

Tallocator& TrenderCache::asArenaAllocator() {
    uintptr_t expected = 0;
    if (fArenaAllocator.compare_exchange_strong(expected, kAllocatorBeingMade, std::memory_order_acq_rel)) {
        void* storage = fArena.allocateInternal(sizeof(TrenderCacheAllocator), alignof(TrenderCacheAllocator));
        if (!storage) {
            // Out of memory: let a later caller try again, and serve this one
            // from the heap rather than hand out a reference to nothing.
            fArenaAllocator.store(0, std::memory_order_release);
            return TmallocAllocator::mallocAllocator();
        }
        auto* allocator = new (storage) TrenderCacheAllocator(*this);
        fArenaAllocator.store(reinterpret_cast<uintptr_t>(allocator), std::memory_order_release);
        return *allocator;
    }
    // Another thread is building it; that takes a few instructions.
    while ((expected = fArenaAllocator.load(std::memory_order_acquire)) == kAllocatorBeingMade)
        std::this_thread::yield();
    if (expected == 0) return asArenaAllocator();
    return *reinterpret_cast<TrenderCacheAllocator*>(expected);
}
