#pragma once
// Variable-size arenas. A TvariantArena draws pages from a Tallocator and
// carves them into blocks that can be given back singly; neighbouring free
// blocks merge at once, so a release reports the size of the free block it
// produced. Blocks find their arena through their page, which is why the
// release is a static function: the caller needs only the pointer.
//
// TmtVariantArena is the same arena with its own lock; every allocation and
// release of it is serialised, and the byte counters can be read at any time
// without the lock.
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>

#include "framework/host/allocator.h"

class TbaseArena {
public:
    TbaseArena(Tallocator& allocator, const char* name);
    virtual ~TbaseArena() = default;
    TbaseArena(const TbaseArena&) = delete;
    TbaseArena& operator=(const TbaseArena&) = delete;

    const char* name() const { return fName.c_str(); }
    Tallocator& allocator() const { return *fAllocator; }
    // Bytes held from the allocator, bookkeeping included.
    size_t footPrint() const { return fFootPrint.load(std::memory_order_relaxed); }

protected:
    Tallocator* fAllocator;
    std::string fName;
    std::atomic<size_t> fFootPrint{0};
};

class TvariantArena : public TbaseArena {
public:
    // releaseEmptyPages: a page whose blocks are all free goes back to the
    // allocator (one empty page is kept as a spare so that an alternating
    // allocate/release does not churn the allocator). oversizePages: a
    // request larger than a page gets a page of its own; without it such a
    // request yields null.
    TvariantArena(unsigned pageSize, unsigned fitSearchLimit, Tallocator& allocator, const char* name,
                  bool releaseEmptyPages, bool oversizePages);
    ~TvariantArena() override;

    // Blocks are 16-byte aligned. Null when the allocator gives nothing.
    void* allocate(size_t size);
    // Bookkeeping storage of the arena's owner: not counted in
    // allocatedBytes(). alignment is a power of two.
    void* allocateInternal(size_t size, size_t alignment);
    // Gives a block back to its arena. freedSize receives the usable size of
    // the free block that the release produced, after merging with free
    // neighbours (0 for a null pointer).
    static void deallocate(void* p, unsigned& freedSize);
    static void deallocate(void* p) {
        unsigned ignored;
        deallocate(p, ignored);
    }
    // Usable size of a live block.
    static size_t blockSize(const void* p);

    // Bytes handed out by allocate and not yet given back.
    size_t allocatedBytes() const { return fAllocated.load(std::memory_order_relaxed); }
    unsigned pageSize() const { return fPageSize; }
    unsigned fitSearchLimit() const { return fFitSearchLimit; }
    unsigned pageCount() const;
    unsigned freeBlockCount() const;
    // Walks every page and the free list and checks that they agree: tags,
    // neighbours, counters. For tests and debugging.
    bool verify() const;

    static constexpr size_t kAlignment = 16;
    // Page and block layout; defined in the implementation only.
    struct Page;
    struct Block;

protected:
    // Set by the thread-safe arena; null means no locking.
    std::mutex* fLock = nullptr;

private:
    Block* takeBlock(size_t need);
    Block* newPage(size_t need);
    void split(Block* block, size_t need);
    void* finishAllocation(Block* block, size_t need, bool internal);
    void* allocateLocked(size_t size, size_t alignment, bool internal);
    void release(Block* block, unsigned& freedSize);
    void linkFree(Block* block);
    void unlinkFree(Block* block);
    void releasePage(Page* page);

    unsigned fPageSize;
    unsigned fFitSearchLimit;
    bool fReleaseEmptyPages;
    bool fOversizePages;
    Page* fPages = nullptr;
    Page* fSpare = nullptr;
    Block* fFreeList = nullptr;
    std::atomic<size_t> fAllocated{0};
};

class TmtVariantArena : public TvariantArena {
public:
    TmtVariantArena(unsigned pageSize, unsigned fitSearchLimit, Tallocator& allocator, const char* name,
                    bool releaseEmptyPages, bool oversizePages);

private:
    std::mutex fMutex;
};
