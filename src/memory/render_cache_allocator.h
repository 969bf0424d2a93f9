#pragma once
// Allocator adapters of the render. TrenderCacheAllocator hands out blocks of
// a TrenderCache, so that arenas drawing pages through it take part in the
// budget and can trigger eviction; it lives inside the cache's own arena.
// TrenderThreadAllocator forwards to the allocation of one render thread.
#include <cstddef>

#include "framework/host/allocator.h"
#include "framework/host/variant_arena.h"

class TrenderCache;
class TrenderThreadBase;

class TrenderCacheAllocator final : public Tallocator {
public:
    explicit TrenderCacheAllocator(TrenderCache& cache) : fCache(&cache) {}
    ~TrenderCacheAllocator() override = default;

    // The tag is ignored. Requests beyond 32 bits yield null.
    void* allocate(size_t size, unsigned tag = 0) override;
    void free(void* p, unsigned tag = 0) override;

    TrenderCache& cache() const { return *fCache; }

    // The object's storage is a block of the cache's arena.
    static void operator delete(void* p) { TvariantArena::deallocate(p); }

private:
    TrenderCache* fCache;
};

// The render thread class belongs to the shading engine; it registers the two
// functions that reach its own arena when it loads.
class TrenderThreadAllocator final : public Tallocator {
public:
    using AllocateFunction = void* (*)(TrenderThreadBase& thread, size_t size);
    using FreeFunction = void (*)(TrenderThreadBase& thread, void* p);

    explicit TrenderThreadAllocator(TrenderThreadBase& thread) : fThread(&thread) {}
    ~TrenderThreadAllocator() override = default;

    // Null until the functions are registered.
    void* allocate(size_t size, unsigned tag = 0) override;
    void free(void* p, unsigned tag = 0) override;

    TrenderThreadBase& thread() const { return *fThread; }

    static void sSetThreadFunctions(AllocateFunction allocate, FreeFunction free);

private:
    TrenderThreadBase* fThread;
};
