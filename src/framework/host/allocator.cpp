#include "framework/host/allocator.h"

#include <algorithm>
#include <cstdlib>

TmallocAllocator& TmallocAllocator::mallocAllocator() {
    static TmallocAllocator instance;
    return instance;
}

void* TmallocAllocator::allocate(size_t size, unsigned) { return std::malloc(size ? size : 1); }
void TmallocAllocator::free(void* p, unsigned) { std::free(p); }

namespace {
constexpr size_t kArenaAlignment = 8;
constexpr size_t roundUp(size_t n) { return (n + kArenaAlignment - 1) & ~(kArenaAlignment - 1); }
constexpr size_t kHeaderSize = roundUp(sizeof(void*) + sizeof(size_t));
}  // namespace

TstackArena::TstackArena(Tallocator& allocator, size_t growthSize)
    : fAllocator(allocator), fGrowthSize(std::max<size_t>(growthSize, 64)) {}

TstackArena::~TstackArena() {
    while (fCurrent) {
        Block* next = fCurrent->next;
        fAllocator.free(fCurrent);
        fCurrent = next;
    }
}

void* TstackArena::allocate(size_t size) {
    size = roundUp(size ? size : 1);
    if (!fCurrent || fUsed + size > fCurrent->size) {
        size_t usable = std::max(fGrowthSize, size);
        void* raw = fAllocator.allocate(kHeaderSize + usable);
        if (!raw) return nullptr;
        Block* block = static_cast<Block*>(raw);
        block->next = fCurrent;
        block->size = usable;
        fCurrent = block;
        fUsed = 0;
        fFootPrint += kHeaderSize + usable;
    }
    void* p = reinterpret_cast<unsigned char*>(fCurrent) + kHeaderSize + fUsed;
    fUsed += size;
    fAllocated += size;
    return p;
}

unsigned TstackArena::blockCount() const {
    unsigned n = 0;
    for (Block* b = fCurrent; b; b = b->next) ++n;
    return n;
}
