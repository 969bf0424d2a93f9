#include "support/alloc_counter.h"

#include <cstdlib>
#include <new>

namespace {
thread_local size_t tAllocations = 0;
}

TallocationCounter::TallocationCounter() : fStart(tAllocations) {}
TallocationCounter::~TallocationCounter() = default;
size_t TallocationCounter::allocations() const { return tAllocations - fStart; }

#if defined(__SANITIZE_THREAD__)
// Under the thread sanitizer the allocation functions stay its own: a
// replacement in the test program makes every library's new and delete
// look like the program's, so the sanitizer no longer sees which library
// freed memory and reports the frees of the uninstrumented image and ray
// libraries, whose thread pools synchronise out of its sight. Its allocator
// hook counts instead (malloc too, which is stricter).
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*onAllocate)(const volatile void*, size_t),
                                                        void (*onFree)(const volatile void*));
namespace {
void countAllocation(const volatile void*, size_t) { ++tAllocations; }
void ignoreFree(const volatile void*) {}
[[maybe_unused]] const int kHooksInstalled = __sanitizer_install_malloc_and_free_hooks(countAllocation, ignoreFree);
}  // namespace
#else
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
#endif
