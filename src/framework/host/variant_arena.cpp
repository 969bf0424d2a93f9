#include "framework/host/variant_arena.h"

#include <algorithm>
#include <new>

// Page layout: a page header, then blocks end to end up to the page's end.
// Each block has a 16-byte header: its page, its usable size with two flag
// bits, and the usable size of the block before it (boundary tag), so that a
// release can merge with both neighbours in constant time. A free block keeps
// its free-list links in its first 16 usable bytes.
struct TvariantArena::Page {
    TvariantArena* arena;
    Page* next;
    Page* prev;
    size_t bytes;  // as drawn from the allocator
};

struct TvariantArena::Block {
    Page* page;
    uint32_t sizeFlags;
    uint32_t prevSize;
};

namespace {
constexpr size_t kPageHeader = 32;
constexpr size_t kBlockHeader = 16;
constexpr size_t kMinPayload = 16;  // room for the two free-list links
constexpr uint32_t kInUse = 1;
constexpr uint32_t kInternal = 2;
constexpr uint32_t kFlagMask = 15;
// Sizes live in 32 bits; keep the largest request clear of the wrap.
constexpr size_t kMaxRequest = 0xFFFFFFFFu - 1024;

constexpr size_t roundUp16(size_t n) { return (n + 15) & ~size_t(15); }

// Locks when the arena has a lock.
struct Guard {
    explicit Guard(std::mutex* m) : fMutex(m) {
        if (fMutex) fMutex->lock();
    }
    ~Guard() {
        if (fMutex) fMutex->unlock();
    }
    std::mutex* fMutex;
};
}  // namespace

TbaseArena::TbaseArena(Tallocator& allocator, const char* name) : fAllocator(&allocator), fName(name ? name : "") {}

namespace {
using Block = TvariantArena::Block;
static_assert(sizeof(Block) == kBlockHeader || sizeof(void*) != 8, "block header is 16 bytes");
inline uint32_t sizeOf(const Block* b) { return b->sizeFlags & ~kFlagMask; }
inline bool inUse(const Block* b) { return (b->sizeFlags & kInUse) != 0; }
inline char* payloadOf(const Block* b) { return reinterpret_cast<char*>(const_cast<Block*>(b)) + kBlockHeader; }
inline Block** linksOf(Block* b) { return reinterpret_cast<Block**>(payloadOf(b)); }
inline Block* firstOf(void* page) { return reinterpret_cast<Block*>(static_cast<char*>(page) + kPageHeader); }
}  // namespace

TvariantArena::TvariantArena(unsigned pageSize, unsigned fitSearchLimit, Tallocator& allocator, const char* name,
                             bool releaseEmptyPages, bool oversizePages)
    : TbaseArena(allocator, name),
      fPageSize(unsigned(std::max<size_t>(pageSize & ~15u, kPageHeader + kBlockHeader + 4 * kMinPayload))),
      fFitSearchLimit(fitSearchLimit),
      fReleaseEmptyPages(releaseEmptyPages),
      fOversizePages(oversizePages) {}

TvariantArena::~TvariantArena() {
    while (fPages) {
        Page* next = fPages->next;
        fAllocator->free(fPages);
        fPages = next;
    }
}

TmtVariantArena::TmtVariantArena(unsigned pageSize, unsigned fitSearchLimit, Tallocator& allocator, const char* name,
                                 bool releaseEmptyPages, bool oversizePages)
    : TvariantArena(pageSize, fitSearchLimit, allocator, name, releaseEmptyPages, oversizePages) {
    fLock = &fMutex;
}

void TvariantArena::linkFree(Block* block) {
    Block** links = linksOf(block);
    links[0] = fFreeList;
    links[1] = nullptr;
    if (fFreeList) linksOf(fFreeList)[1] = block;
    fFreeList = block;
}

void TvariantArena::unlinkFree(Block* block) {
    Block** links = linksOf(block);
    if (links[1])
        linksOf(links[1])[0] = links[0];
    else
        fFreeList = links[0];
    if (links[0]) linksOf(links[0])[1] = links[1];
}

namespace {
// The block after b in its page, or null at the page's end.
TvariantArena::Block* nextInPage(TvariantArena::Block* b, size_t pageBytes, char* pageStart) {
    char* after = payloadOf(b) + sizeOf(b);
    return after >= pageStart + pageBytes ? nullptr : reinterpret_cast<TvariantArena::Block*>(after);
}
}  // namespace

TvariantArena::Block* TvariantArena::newPage(size_t need) {
    const size_t normalUsable = fPageSize - kPageHeader - kBlockHeader;
    size_t bytes = fPageSize;
    if (need > normalUsable) {
        if (!fOversizePages) return nullptr;
        bytes = kPageHeader + kBlockHeader + need;
    }
    void* raw = fAllocator->allocate(bytes);
    if (!raw) return nullptr;
    Page* page = new (raw) Page{this, fPages, nullptr, bytes};
    if (fPages) fPages->prev = page;
    fPages = page;
    fFootPrint.fetch_add(bytes, std::memory_order_relaxed);
    Block* b = firstOf(page);
    b->page = page;
    b->sizeFlags = uint32_t(bytes - kPageHeader - kBlockHeader);
    b->prevSize = 0;
    linkFree(b);
    return b;
}

TvariantArena::Block* TvariantArena::takeBlock(size_t need) {
    // First fit, looking at no more than the search limit before a new page
    // is cheaper than walking a long list of small holes.
    unsigned looked = 0;
    for (Block* b = fFreeList; b && looked < fFitSearchLimit; b = linksOf(b)[0], ++looked)
        if (sizeOf(b) >= need) return b;
    return newPage(need);
}

void TvariantArena::split(Block* block, size_t need) {
    const uint32_t size = sizeOf(block);
    if (size < need + kBlockHeader + kMinPayload) return;  // the rest would be too small to stand alone
    Page* page = block->page;
    Block* rest = reinterpret_cast<Block*>(payloadOf(block) + need);
    rest->page = page;
    rest->sizeFlags = uint32_t(size - need - kBlockHeader);
    rest->prevSize = uint32_t(need);
    if (Block* after = nextInPage(rest, page->bytes, reinterpret_cast<char*>(page))) after->prevSize = sizeOf(rest);
    block->sizeFlags = uint32_t(need) | (block->sizeFlags & kFlagMask);
    linkFree(rest);
}

void* TvariantArena::finishAllocation(Block* block, size_t need, bool internal) {
    if (block->page == fSpare) fSpare = nullptr;
    split(block, need);
    block->sizeFlags = sizeOf(block) | kInUse | (internal ? kInternal : 0);
    if (!internal) fAllocated.fetch_add(sizeOf(block), std::memory_order_relaxed);
    return payloadOf(block);
}

void* TvariantArena::allocateLocked(size_t size, size_t alignment, bool internal) {
    if (size > kMaxRequest || alignment > 65536 || (alignment & (alignment - 1))) return nullptr;
    const size_t need = roundUp16(std::max(size, kMinPayload));
    if (alignment <= kAlignment) {
        Block* b = takeBlock(need);
        if (!b) return nullptr;
        unlinkFree(b);
        return finishAllocation(b, need, internal);
    }
    // Over-aligned: take enough to cut an aligned block out of the middle;
    // the part in front goes back as a free block of its own.
    Block* b = takeBlock(need + alignment + kBlockHeader + kMinPayload);
    if (!b) return nullptr;
    unlinkFree(b);
    Page* page = b->page;
    const uintptr_t start = reinterpret_cast<uintptr_t>(payloadOf(b)) + kBlockHeader + kMinPayload;
    const uintptr_t aligned = (start + alignment - 1) & ~uintptr_t(alignment - 1);
    const uint32_t front = uint32_t(aligned - reinterpret_cast<uintptr_t>(payloadOf(b)) - kBlockHeader);
    Block* nb = reinterpret_cast<Block*>(aligned - kBlockHeader);
    nb->page = page;
    nb->sizeFlags = sizeOf(b) - front - uint32_t(kBlockHeader);
    nb->prevSize = front;
    if (Block* after = nextInPage(nb, page->bytes, reinterpret_cast<char*>(page))) after->prevSize = sizeOf(nb);
    b->sizeFlags = front;
    linkFree(b);
    return finishAllocation(nb, need, internal);
}

void* TvariantArena::allocate(size_t size) {
    Guard guard(fLock);
    return allocateLocked(size, kAlignment, false);
}

void* TvariantArena::allocateInternal(size_t size, size_t alignment) {
    Guard guard(fLock);
    return allocateLocked(size, alignment, true);
}

void TvariantArena::releasePage(Page* page) {
    if (page->prev)
        page->prev->next = page->next;
    else
        fPages = page->next;
    if (page->next) page->next->prev = page->prev;
    if (fSpare == page) fSpare = nullptr;
    fFootPrint.fetch_sub(page->bytes, std::memory_order_relaxed);
    fAllocator->free(page);
}

void TvariantArena::release(Block* b, unsigned& freedSize) {
    Page* page = b->page;
    char* pageStart = reinterpret_cast<char*>(page);
    uint32_t size = sizeOf(b);
    if (!(b->sizeFlags & kInternal)) fAllocated.fetch_sub(size, std::memory_order_relaxed);
    b->sizeFlags = size;
    if (Block* next = nextInPage(b, page->bytes, pageStart); next && !inUse(next)) {
        unlinkFree(next);
        size += uint32_t(kBlockHeader) + sizeOf(next);
        b->sizeFlags = size;
    }
    if (b != firstOf(page)) {
        Block* prev = reinterpret_cast<Block*>(reinterpret_cast<char*>(b) - kBlockHeader - b->prevSize);
        if (!inUse(prev)) {
            unlinkFree(prev);
            prev->sizeFlags = sizeOf(prev) + uint32_t(kBlockHeader) + size;
            b = prev;
        }
    }
    Block* after = nextInPage(b, page->bytes, pageStart);
    if (after) after->prevSize = sizeOf(b);
    freedSize = sizeOf(b);
    if (b == firstOf(page) && !after) {
        // The page is empty. One normal page stays as a spare.
        if (fReleaseEmptyPages && (fSpare || page->bytes != fPageSize)) {
            releasePage(page);
            return;
        }
        if (!fSpare) fSpare = page;
    }
    linkFree(b);
}

void TvariantArena::deallocate(void* p, unsigned& freedSize) {
    freedSize = 0;
    if (!p) return;
    Block* b = reinterpret_cast<Block*>(static_cast<char*>(p) - kBlockHeader);
    TvariantArena* arena = b->page->arena;
    Guard guard(arena->fLock);
    arena->release(b, freedSize);
}

size_t TvariantArena::blockSize(const void* p) {
    return p ? sizeOf(reinterpret_cast<const Block*>(static_cast<const char*>(p) - kBlockHeader)) : 0;
}

unsigned TvariantArena::pageCount() const {
    Guard guard(fLock);
    unsigned n = 0;
    for (Page* p = fPages; p; p = p->next) ++n;
    return n;
}

unsigned TvariantArena::freeBlockCount() const {
    Guard guard(fLock);
    unsigned n = 0;
    for (Block* b = fFreeList; b; b = linksOf(b)[0]) ++n;
    return n;
}

bool TvariantArena::verify() const {
    Guard guard(fLock);
    size_t footPrint = 0, allocated = 0;
    unsigned freeInPages = 0;
    for (Page* page = fPages; page; page = page->next) {
        if (page->arena != this || (page->next && page->next->prev != page)) return false;
        footPrint += page->bytes;
        char* pageStart = reinterpret_cast<char*>(page);
        uint32_t prevSize = 0;
        bool prevFree = false;
        Block* b = firstOf(page);
        for (;;) {
            if (b->page != page || b->prevSize != prevSize) return false;
            const bool isFree = !inUse(b);
            if (isFree && prevFree) return false;  // neighbours must have merged
            if (isFree)
                ++freeInPages;
            else if (!(b->sizeFlags & kInternal))
                allocated += sizeOf(b);
            char* end = payloadOf(b) + sizeOf(b);
            if (end > pageStart + page->bytes) return false;
            if (end == pageStart + page->bytes) break;
            prevSize = sizeOf(b);
            prevFree = isFree;
            b = reinterpret_cast<Block*>(end);
        }
    }
    unsigned freeListed = 0;
    Block* prev = nullptr;
    for (Block* b = fFreeList; b; prev = b, b = linksOf(b)[0]) {
        if (inUse(b) || linksOf(b)[1] != prev) return false;
        if (++freeListed > freeInPages) return false;
    }
    return freeListed == freeInPages && allocated == allocatedBytes() && footPrint == this->footPrint();
}
