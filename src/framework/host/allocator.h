#pragma once
// Allocators and the stack arena. An allocator hands out raw blocks; arenas
// draw their blocks from one and give them back only as a whole.
#include <cstddef>
#include <cstdint>

class Tallocator {
public:
    virtual ~Tallocator() = default;
    virtual void* allocate(size_t size, unsigned tag = 0) = 0;
    virtual void free(void* p, unsigned tag = 0) = 0;
};

// The process's plain heap.
class TmallocAllocator final : public Tallocator {
public:
    static TmallocAllocator& mallocAllocator();
    void* allocate(size_t size, unsigned tag = 0) override;
    void free(void* p, unsigned tag = 0) override;
};

// A chain of blocks from an allocator. Allocation rounds to 8 bytes and takes
// from the current block or a new one of at least the growth size; nothing is
// freed singly, destruction frees all.
class TstackArena {
public:
    TstackArena(Tallocator& allocator, size_t growthSize);
    ~TstackArena();
    TstackArena(const TstackArena&) = delete;
    TstackArena& operator=(const TstackArena&) = delete;

    void* allocate(size_t size);
    template <typename T> T* allocateArray(size_t count) { return static_cast<T*>(allocate(sizeof(T) * count)); }

    // Bytes handed out and bytes held from the allocator.
    size_t allocatedBytes() const { return fAllocated; }
    size_t footPrint() const { return fFootPrint; }
    unsigned blockCount() const;
    Tallocator& allocator() const { return fAllocator; }

private:
    struct Block {
        Block* next;
        size_t size;  // usable bytes after the header
    };
    Tallocator& fAllocator;
    size_t fGrowthSize;
    Block* fCurrent = nullptr;
    size_t fUsed = 0;  // bytes used in the current block
    size_t fAllocated = 0;
    size_t fFootPrint = 0;
};
