#pragma once
// TfileTextureCache: one thread's cache of decoded BOT blocks. Each thread
// has its own (threadCache()), so reading texels takes no lock.
//
// A slot holds one decoded block in 4096 bytes: channels interleaved, rows
// as wide as the block, so an edge block is narrower. The first 32 slots are
// found through the pyramid's flag words: for each thread row and level one
// 32-bit word whose bits say which slots hold a block of that pyramid and
// level. Above 32 slots, the rest form a direct-mapped victim table that
// keeps evicted blocks for a second chance.
#include <cstddef>
#include <cstdint>

class Tpyramid;

class TfileTextureCache {
public:
    static constexpr int kSlotBytes = 4096;
    static constexpr int kBaseCapacity = 32;
    static constexpr int kBaseCapacityLog2 = 5;
    static constexpr int kMaxCapacityLog2 = 16;
    static constexpr int kBlockTexels = 32;  // side of a block
    // Thread rows that every pyramid's flag words hold. A cache made while
    // all rows are taken finds its blocks by scanning its slots instead.
    static constexpr int kThreadRows = 64;
    static constexpr int kDefaultLimitMB = -50;

    TfileTextureCache();
    ~TfileTextureCache();
    TfileTextureCache(const TfileTextureCache&) = delete;
    TfileTextureCache& operator=(const TfileTextureCache&) = delete;

    // The calling thread's cache, made on first use, and resized on its
    // first use after sSizeForRender.
    static TfileTextureCache& threadCache();

    // Sizes every thread's cache for a render by `threads` threads of tiles
    // of `tileSide` pixels, for this machine's memory. Called before the
    // render's threads start; caches take the size on their next use.
    static void sSizeForRender(int threads, int tileSide);
    // The capacity (log2) that keeps a tile's blocks in the cache: up to 4
    // texels per pixel on each axis, the blocks a tile straddles, the next
    // coarser level and a few textures at once, doubled for the victim
    // table's collisions, within 1/64 of `memoryBytes` over all threads. A
    // tile side of 0 gives the default of 32 slots.
    static int sCapacityLog2ForRender(int threads, int tileSide, uint64_t memoryBytes);
    static constexpr int kTexturesPerTile = 4;

    // The decoded block (loading it on a miss). Never null.
    const uint8_t* findBlock(Tpyramid& pyramid, int level, int block);

    // Megabytes allowed to cache files; negative: megabytes to keep free.
    int limitMB() const { return fLimitMB; }
    void setLimitMB(int mb) { fLimitMB = mb; }
    int row() const { return fRow; }
    int capacity() const { return fCapacity; }
    // 2^log2 slots (at least 32); drops what the cache holds.
    void setCapacity(int log2);

    // Whether any slot or victim entry names the pyramid.
    bool holdsPyramid(const Tpyramid* pyramid) const;
    // Drops every block of the pyramid from this cache.
    void forgetPyramid(const Tpyramid* pyramid);
    // Drops the pyramid from every thread's cache; only while no thread reads.
    static void sForgetPyramidEverywhere(const Tpyramid* pyramid);
    // Frees the slots and restores the capacity of 32.
    void freeThreadLocalCache();

    struct Tstats {
        uint64_t hits = 0, misses = 0, victimHits = 0, loads = 0;
    };
    const Tstats& stats() const { return fStats; }
    int usedSlots() const { return fUsed; }

private:
    struct Tslot {
        int prev, next;
        int block, level;
        Tpyramid* pyramid;
    };
    struct Tvictim {
        int block, level;
        Tpyramid* pyramid;
    };

    void allocateSlots();
    void releaseSlots();
    void moveToFront(int slot);
    void unlink(int slot);
    void pushFront(int slot);
    int victimIndex(const Tpyramid* pyramid, int level, int block) const;
    uint8_t* slotData(int slot) { return fStore + size_t(slot) * kSlotBytes; }
    int findInSlots(Tpyramid& pyramid, int level, int block);
    const uint8_t* miss(Tpyramid& pyramid, int level, int block);

    int fLimitMB = kDefaultLimitMB;
    int fRow = -1;
    int fHead = -1, fTail = -1;
    int fUsed = 0;
    Tslot* fSlots = nullptr;
    Tvictim* fVictims = nullptr;
    uint8_t* fStore = nullptr;
    int fCapacity = kBaseCapacity;
    int fCapacityLog2 = kBaseCapacityLog2;
    unsigned fSizing = 0;  // the sSizeForRender call this cache last followed
    Tstats fStats;
};
