#include "memory/render_cache_allocator.h"

#include <atomic>
#include <cstdint>

#include "memory/render_cache.h"

void* TrenderCacheAllocator::allocate(size_t size, unsigned) {
    if (size > UINT32_MAX) return nullptr;
    return fCache->allocate(unsigned(size));
}

void TrenderCacheAllocator::free(void* p, unsigned) { fCache->deallocate(p); }

namespace {
std::atomic<TrenderThreadAllocator::AllocateFunction> sAllocate{nullptr};
std::atomic<TrenderThreadAllocator::FreeFunction> sFree{nullptr};
}  // namespace

void TrenderThreadAllocator::sSetThreadFunctions(AllocateFunction allocate, FreeFunction free) {
    sAllocate.store(allocate, std::memory_order_release);
    sFree.store(free, std::memory_order_release);
}

void* TrenderThreadAllocator::allocate(size_t size, unsigned) {
    AllocateFunction f = sAllocate.load(std::memory_order_acquire);
    return f ? f(*fThread, size) : nullptr;
}

void TrenderThreadAllocator::free(void* p, unsigned) {
    // Thread memory is arena memory, given back as a whole; a thread class
    // that wants single releases registers a free function.
    if (FreeFunction f = sFree.load(std::memory_order_acquire)) f(*fThread, p);
}
