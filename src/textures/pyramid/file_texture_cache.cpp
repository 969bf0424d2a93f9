#include "textures/pyramid/file_texture_cache.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <vector>

#include "textures/pyramid/pyramid.h"

namespace {

// Lowest set bit of a byte, for walking the flag words 8 bits at a time.
struct TlowestBit {
    int8_t bit[256];
    TlowestBit() {
        bit[0] = -1;
        for (int i = 1; i < 256; ++i) {
            int b = 0;
            while (!((i >> b) & 1)) ++b;
            bit[i] = int8_t(b);
        }
    }
};
const TlowestBit kLowestBit;

// Every live cache, so that a dying pyramid can be dropped from all of them,
// and the thread rows in use.
struct Tregistry {
    std::mutex mutex;
    std::vector<TfileTextureCache*> caches;
    bool rowTaken[TfileTextureCache::kThreadRows] = {};
};
Tregistry& registry() {
    static Tregistry* r = new Tregistry;  // outlives thread-local caches at exit
    return *r;
}

}  // namespace

TfileTextureCache::TfileTextureCache() {
    {
        Tregistry& r = registry();
        std::lock_guard lock(r.mutex);
        for (int i = 0; i < kThreadRows; ++i)
            if (!r.rowTaken[i]) {
                r.rowTaken[i] = true;
                fRow = i;
                break;
            }
        r.caches.push_back(this);
    }
    allocateSlots();
}

TfileTextureCache::~TfileTextureCache() {
    {
        Tregistry& r = registry();
        std::lock_guard lock(r.mutex);
        if (fRow >= 0) r.rowTaken[fRow] = false;
        r.caches.erase(std::remove(r.caches.begin(), r.caches.end(), this), r.caches.end());
    }
    // Leave no bits of this row behind in pyramids that live on.
    for (int s = 0; s < std::min(fUsed, kBaseCapacity); ++s)
        if (fSlots[s].pyramid && fRow >= 0) fSlots[s].pyramid->cacheFlagWord(fRow, fSlots[s].level) &= ~(1u << s);
    releaseSlots();
}

namespace {
std::atomic<int> sRenderCapacityLog2{TfileTextureCache::kBaseCapacityLog2};
std::atomic<unsigned> sRenderSizing{0};
}  // namespace

TfileTextureCache& TfileTextureCache::threadCache() {
    thread_local TfileTextureCache cache;
    const unsigned sizing = sRenderSizing.load(std::memory_order_acquire);
    if (cache.fSizing != sizing) {
        cache.fSizing = sizing;
        const int log2 = sRenderCapacityLog2.load(std::memory_order_relaxed);
        if (log2 != cache.fCapacityLog2) cache.setCapacity(log2);
    }
    return cache;
}

int TfileTextureCache::sCapacityLog2ForRender(int threads, int tileSide, uint64_t memoryBytes, int imageWidth) {
    if (tileSide <= 0) return kBaseCapacityLog2;
    threads = std::max(threads, 1);
    // Blocks down a tile and across a row of tiles at 4 texels per pixel,
    // plus one for straddling block edges and one for the next tile.
    const int down = tileSide * 4 / kBlockTexels + 2;
    const int across = std::max(tileSide, imageWidth) * 4 / kBlockTexels + 2;
    const int64_t wanted = int64_t(across) * down * 5 / 4 * kTexturesPerTile * 2;
    const uint64_t affordable = memoryBytes / 64 / uint64_t(threads) / kSlotBytes;
    int log2 = kBaseCapacityLog2;
    while (log2 < kMaxCapacityLog2 && (int64_t(1) << log2) < wanted && (uint64_t(2) << log2) <= affordable) ++log2;
    return log2;
}

void TfileTextureCache::sSizeForRender(int threads, int tileSide, int imageWidth) {
    const long pages = sysconf(_SC_PHYS_PAGES), pageSize = sysconf(_SC_PAGE_SIZE);
    const uint64_t memory = pages > 0 && pageSize > 0 ? uint64_t(pages) * uint64_t(pageSize) : uint64_t(1) << 30;
    sRenderCapacityLog2.store(sCapacityLog2ForRender(threads, tileSide, memory, imageWidth), std::memory_order_relaxed);
    sRenderSizing.fetch_add(1, std::memory_order_release);
}

void TfileTextureCache::allocateSlots() {
    const int ring = std::min(fCapacity, kBaseCapacity), victims = fCapacity - ring;
    fSlots = new Tslot[size_t(ring)];
    // Zeroed pages from the system: a large cache costs memory only where
    // blocks land.
    fStore = static_cast<uint8_t*>(std::calloc(size_t(fCapacity), kSlotBytes));
    for (int i = 0; i < ring; ++i) fSlots[i] = {-1, -1, -1, -1, nullptr, i};
    fVictims = victims > 0 ? new Tvictim[size_t(victims)] : nullptr;
    for (int i = 0; i < victims; ++i) fVictims[i] = {-1, -1, nullptr, ring + i};
    fHead = fTail = -1;
    fUsed = 0;
}

void TfileTextureCache::releaseSlots() {
    delete[] fSlots;
    std::free(fStore);
    delete[] fVictims;
    fSlots = nullptr;
    fStore = nullptr;
    fVictims = nullptr;
    fHead = fTail = -1;
    fUsed = 0;
}

void TfileTextureCache::setCapacity(int log2) {
    log2 = std::clamp(log2, kBaseCapacityLog2, kMaxCapacityLog2);
    for (int s = 0; s < std::min(fUsed, kBaseCapacity); ++s)
        if (fSlots[s].pyramid && fRow >= 0) fSlots[s].pyramid->cacheFlagWord(fRow, fSlots[s].level) &= ~(1u << s);
    releaseSlots();
    fCapacityLog2 = log2;
    fCapacity = 1 << log2;
    allocateSlots();
}

void TfileTextureCache::freeThreadLocalCache() { setCapacity(kBaseCapacityLog2); }

void TfileTextureCache::unlink(int s) {
    Tslot& slot = fSlots[s];
    if (slot.prev >= 0) fSlots[slot.prev].next = slot.next;
    else fHead = slot.next;
    if (slot.next >= 0) fSlots[slot.next].prev = slot.prev;
    else fTail = slot.prev;
    slot.prev = slot.next = -1;
}

void TfileTextureCache::pushFront(int s) {
    fSlots[s].prev = -1;
    fSlots[s].next = fHead;
    if (fHead >= 0) fSlots[fHead].prev = s;
    fHead = s;
    if (fTail < 0) fTail = s;
}

void TfileTextureCache::moveToFront(int s) {
    if (fHead == s) return;
    unlink(s);
    pushFront(s);
}

int TfileTextureCache::victimSet(const Tpyramid& pyramid, int level, int block) const {
    const int sets = victimSets();
    if (sets <= 0) return -1;
    // Consecutive blocks in the file take consecutive sets, so a compact
    // region of one level never overflows a set; the name's hash moves each
    // pyramid's region elsewhere.
    uint32_t salt = 2166136261u;
    for (const char* c = pyramid.name().asC(); *c; ++c) salt = (salt ^ uint8_t(*c)) * 16777619u;
    const uint32_t global = Tpyramid::fsNumBlocks[level] + uint32_t(block);
    return int((global + salt * 0x9E3779B1u) % uint32_t(sets));
}

TfileTextureCache::Tvictim* TfileTextureCache::victimWays(const Tpyramid& pyramid, int level, int block) {
    return fVictims + size_t(victimSet(pyramid, level, block)) * kVictimWays;
}

int TfileTextureCache::keepVictim(Tvictim* ways, const Tslot& evicted, int page) {
    const int dropped = ways[kVictimWays - 1].page;
    for (int k = kVictimWays - 1; k > 0; --k) ways[k] = ways[k - 1];
    ways[0] = {evicted.block, evicted.level, evicted.pyramid, page};
    return dropped;
}

int TfileTextureCache::findInSlots(Tpyramid& pyramid, int level, int block) {
    if (fRow >= 0) {
        uint32_t bits = pyramid.cacheFlagWord(fRow, level);
        for (int base = 0; bits; base += 8, bits >>= 8) {
            uint32_t byte = bits & 0xFF;
            while (byte) {
                int s = base + kLowestBit.bit[byte];
                if (fSlots[s].block == block) return s;
                byte &= byte - 1;
            }
        }
        return -1;
    }
    for (int s = 0; s < std::min(fUsed, kBaseCapacity); ++s)
        if (fSlots[s].pyramid == &pyramid && fSlots[s].level == level && fSlots[s].block == block) return s;
    return -1;
}

const uint8_t* TfileTextureCache::findOther(Tpyramid& pyramid, int level, int block) {
    int s = findInSlots(pyramid, level, block);
    if (s >= 0) {
        ++fStats.hits;
        moveToFront(s);
        return slotData(s);
    }
    return miss(pyramid, level, block);
}

const uint8_t* TfileTextureCache::miss(Tpyramid& pyramid, int level, int block) {
    ++fStats.misses;
    int s;
    const int ring = std::min(fCapacity, kBaseCapacity);
    bool evicted = false;
    Tslot old{};
    if (fUsed < ring) {
        s = fUsed++;
        pushFront(s);
    } else {
        s = fTail;
        old = fSlots[s];
        evicted = old.pyramid != nullptr;
        if (fRow >= 0 && evicted) old.pyramid->cacheFlagWord(fRow, old.level) &= ~(1u << s);
        moveToFront(s);
    }
    Tslot& slot = fSlots[s];
    slot.block = block;
    slot.level = level;
    slot.pyramid = &pyramid;
    if (fRow >= 0) pyramid.cacheFlagWord(fRow, level) |= 1u << s;

    if (fVictims) {
        // A second chance: a block thrown out earlier may wait in its set;
        // the block thrown out now goes to the front of its own set.
        Tvictim* ways = victimWays(pyramid, level, block);
        for (int w = 0; w < kVictimWays; ++w) {
            if (ways[w].pyramid != &pyramid || ways[w].level != level || ways[w].block != block) continue;
            ++fStats.victimHits;
            const int spare = slot.page;  // holds the evicted block, if any
            slot.page = ways[w].page;
            for (int k = w; k < kVictimWays - 1; ++k) ways[k] = ways[k + 1];
            ways[kVictimWays - 1] = {-1, -1, nullptr, spare};
            if (evicted) {
                Tvictim* home = victimWays(*old.pyramid, old.level, old.block);
                const int dropped = keepVictim(home, old, spare);
                // In another set, the emptied entry takes the page that fell out.
                if (home != ways) ways[kVictimWays - 1].page = dropped;
            }
            return slotData(s);
        }
        if (evicted) slot.page = keepVictim(victimWays(*old.pyramid, old.level, old.block), old, slot.page);
    }

    int bw, bh;
    pyramid.blockSize(level, block, bw, bh);
    ++fStats.loads;
    pyramid.loadBlock(*this, slotData(s), block, level, bw, bh, pyramid.channels());
    return slotData(s);
}

bool TfileTextureCache::holdsPyramid(const Tpyramid* pyramid) const {
    for (int s = 0; s < std::min(fUsed, kBaseCapacity); ++s)
        if (fSlots[s].pyramid == pyramid) return true;
    for (int v = 0; v < fCapacity - kBaseCapacity; ++v)
        if (fVictims[v].pyramid == pyramid) return true;
    return false;
}

void TfileTextureCache::forgetPyramid(const Tpyramid* pyramid) {
    for (int s = 0; s < std::min(fUsed, kBaseCapacity); ++s)
        if (fSlots[s].pyramid == pyramid) {
            // The pyramid's flag words go with it; the slot is simply unnamed.
            fSlots[s].pyramid = nullptr;
            fSlots[s].block = fSlots[s].level = -1;
            // Least recently used first, so it is the next to be reused.
            if (fTail != s) {
                unlink(s);
                fSlots[s].prev = fTail;
                fSlots[s].next = -1;
                if (fTail >= 0) fSlots[fTail].next = s;
                fTail = s;
                if (fHead < 0) fHead = s;
            }
        }
    for (int set = 0; set < victimSets(); ++set) {
        Tvictim* ways = fVictims + size_t(set) * kVictimWays;
        for (int w = 0; w < kVictimWays; ++w)
            if (ways[w].pyramid == pyramid) ways[w] = {-1, -1, nullptr, ways[w].page};
        // The kept ones stay in front, in their order.
        std::stable_partition(ways, ways + kVictimWays, [](const Tvictim& v) { return v.pyramid != nullptr; });
    }
}

void TfileTextureCache::sForgetPyramidEverywhere(const Tpyramid* pyramid) {
    Tregistry& r = registry();
    std::lock_guard lock(r.mutex);
    for (TfileTextureCache* cache : r.caches) cache->forgetPyramid(pyramid);
}
