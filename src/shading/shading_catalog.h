#pragma once
// The global shading catalog: one entry per (node, option) pair, holding the
// compiled program and the arena it lives in, in a hash of 512 chains under
// one critical section. Programs are shared read-only by every render thread.
#include "framework/host/allocator.h"

class TdependNode;
class TshadingOpus;

struct TshadingCatalogEntry {
    TdependNode* node;
    unsigned option;
    TstackArena* arena;
    TshadingOpus* opus;
    TshadingCatalogEntry* next;
    unsigned uses;
};

class TshadingCatalog {
public:
    static constexpr unsigned kChainCount = 512;
    static constexpr unsigned kArenaGrowth = 0x1000;

    static unsigned sHash(const TdependNode* node, unsigned option) {
        return unsigned((reinterpret_cast<uintptr_t>(node) / 8 + option) & 0x1FF);
    }
    // Finds or makes the entry of (node, option) and counts a use of it.
    // Returns whether a program already stands there; on false the caller
    // builds it into `arena` and stores it through `slot`.
    static bool getOpus(TshadingOpus**& slot, TstackArena*& arena, TdependNode* node, unsigned option);
    // Drops a use; the last one (or `force`) destroys the entry, its program and its arena.
    static void deleteOpus(TdependNode* node, unsigned option, bool force);
    // Destroys every entry regardless of uses.
    static void deleteAll();

    // For tests and statistics.
    static unsigned entryCount();
    static unsigned uses(const TdependNode* node, unsigned option);
    static TshadingOpus* find(const TdependNode* node, unsigned option);
};
