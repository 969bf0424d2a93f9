#pragma once
// TpyramidInventory: the pyramids of a session, shared between file texture
// nodes by identifier; ordinary and swatch pyramids are kept apart. It also
// hands pyramids their level memory.
#include <cstddef>

#include "framework/host/allocator.h"
#include "framework/host/tstring.h"

class Tpyramid;
class TrenderCache;

class TpyramidInventory {
public:
    struct TfindResult {
        Tpyramid* pyramid = nullptr;
        int index = -1;  // place in its array
        bool found() const { return pyramid != nullptr; }
    };

    // The first non-null cache stays.
    static void init(TrenderCache* cache);
    static TrenderCache* renderCache();
    // Where level memory comes from; null restores the plain heap. The
    // render cache plugs in here through an allocator that forwards to it.
    static void setAllocator(Tallocator* allocator);
    static void* allocate(size_t size);
    static void deallocate(void* p);

    static TfindResult findPyramid(const Tstring& id, bool swatch);
    static void registerPyramid(Tpyramid* pyramid, TfindResult& result);
    static void unregisterPyramid(Tpyramid* pyramid, bool swatch);
    // Deletes every ordinary pyramid not marked as needed and clears the
    // mark (and the cache flags) of the others.
    static void freeUnusedPyramids();
    static void freeAllPyramids();
    static unsigned count(bool swatch);
};
