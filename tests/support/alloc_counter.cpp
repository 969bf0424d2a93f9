#include "support/alloc_counter.h"

#include <cstdlib>
#include <new>

namespace {
thread_local size_t tAllocations = 0;
}

TallocationCounter::TallocationCounter() : fStart(tAllocations) {}
TallocationCounter::~TallocationCounter() = default;
size_t TallocationCounter::allocations() const { return tAllocations - fStart; }

// Replacements of the global allocation functions; every test program links
// this file through the support library's main.
void* operator new(std::size_t size) {
    ++tAllocations;
    if (void* p = std::malloc(size ? size : 1)) return p;
    throw std::bad_alloc();
}
void* operator new[](std::size_t size) { return operator new(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    ++tAllocations;
    return std::malloc(size ? size : 1);
}
void* operator new[](std::size_t size, const std::nothrow_t& t) noexcept { return operator new(size, t); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }
