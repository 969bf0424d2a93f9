#pragma once
// TfileTextureCache: one thread's cache of decoded BOT blocks. Each thread
// has its own (threadCache()), so reading texels takes no lock.
//
// A slot holds one decoded block in 4096 bytes: channels interleaved, rows
// as wide as the block, so an edge block is narrower. The first 32 slots are
// found through the pyramid's flag words: for each thread row and level one
// 32-bit word whose bits say which slots hold a block of that pyramid and
// level. Above 32 slots, the rest form a set-associative victim table that
// keeps evicted blocks for a second chance. Slots and victim entries name
// pages of the block store, so that moving a block between them swaps page
// numbers instead of copying 4096 bytes.
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
    // of `tileSide` pixels across an image `imageWidth` pixels wide (0: size
    // for one tile only), for this machine's memory. Called before the
    // render's threads start; caches take the size on their next use.
    static void sSizeForRender(int threads, int tileSide, int imageWidth = 0);
    // The capacity (log2) that keeps the blocks of a row of tiles in the
    // cache, so that the next row of tiles finds the blocks it shares with
    // this one: up to 4 texels per pixel on each axis, the blocks a tile
    // straddles, the next coarser level and a few textures at once, doubled
    // so that the victim table's sets rarely overflow; within 1/64 of
    // `memoryBytes` over all threads, and never less than one tile's worth
    // when that fits. A tile side of 0 gives the default of 32 slots.
    static int sCapacityLog2ForRender(int threads, int tileSide, uint64_t memoryBytes, int imageWidth = 0);
    static constexpr int kTexturesPerTile = 4;
    // Ways of a victim set: a tile's blocks at two levels of four textures
    // leave about 20 blocks outside the 32 slots, and with two ways three
    // of them meeting in one set happened often enough to cost reloads.
    static constexpr int kVictimWays = 4;

    // The decoded block (loading it on a miss). Never null. The most
    // recently used block is tested here, inline: neighbouring lookups
    // mostly stay in one block.
    const uint8_t* findBlock(Tpyramid& pyramid, int level, int block) {
        if (fHead >= 0) {
            const Tslot& mru = fSlots[fHead];
            if (mru.block == block && mru.level == level && mru.pyramid == &pyramid) {
                ++fStats.hits;
                return fStore + size_t(mru.page) * kSlotBytes;
            }
        }
        return findOther(pyramid, level, block);
    }

    // Megabytes allowed to cache files; negative: megabytes to keep free.
    int limitMB() const { return fLimitMB; }
    void setLimitMB(int mb) { fLimitMB = mb; }
    int row() const { return fRow; }
    int capacity() const { return fCapacity; }
    // 2^log2 slots (at least 32); drops what the cache holds.
    void setCapacity(int log2);

    // The victim set of a block: blocks of one level that lie near each
    // other in the file get different sets; pyramids are told apart by a
    // hash of their name, so that the sets do not depend on heap addresses.
    // -1 when the cache has no victim table.
    int victimSet(const Tpyramid& pyramid, int level, int block) const;
    int victimSets() const { return (fCapacity - kBaseCapacity) / kVictimWays; }

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
        int page;
    };
    // Ways of a set run from the most recent; an empty entry has no pyramid.
    struct Tvictim {
        int block, level;
        const Tpyramid* pyramid;
        int page;
    };

    void allocateSlots();
    void releaseSlots();
    void moveToFront(int slot);
    void unlink(int slot);
    void pushFront(int slot);
    uint8_t* slotData(int slot) { return fStore + size_t(fSlots[slot].page) * kSlotBytes; }
    Tvictim* victimWays(const Tpyramid& pyramid, int level, int block);
    // Puts an evicted block, with its page, at the front of its set; the
    // page of the entry that falls out at the back is returned for reuse.
    static int keepVictim(Tvictim* ways, const Tslot& evicted, int page);
    int findInSlots(Tpyramid& pyramid, int level, int block);
    const uint8_t* findOther(Tpyramid& pyramid, int level, int block);
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
