#include "textures/pyramid/pyramid_inventory.h"

#include <vector>

#include "framework/host/threads.h"
#include "textures/pyramid/pyramid.h"

namespace {
struct Tstate {
    TmtCriticalSection section;
    std::vector<Tpyramid*> ordinary, swatch;
    TrenderCache* cache = nullptr;
    Tallocator* allocator = nullptr;
    std::vector<Tpyramid*>& list(bool isSwatch) { return isSwatch ? swatch : ordinary; }
};
// Pyramids outlive renders, so that the next render finds them; they live
// until the process ends. The state is never destroyed: deleting pyramids
// from a static destructor would run after the render cache they draw on
// is gone.
Tstate& state() {
    static Tstate* s = new Tstate;
    return *s;
}
Tallocator& allocator() {
    Tallocator* a = state().allocator;
    return a ? *a : TmallocAllocator::mallocAllocator();
}
}  // namespace

void TpyramidInventory::init(TrenderCache* cache) {
    std::lock_guard lock(state().section);
    if (!state().cache) state().cache = cache;
}

TrenderCache* TpyramidInventory::renderCache() { return state().cache; }

void TpyramidInventory::setAllocator(Tallocator* a) { state().allocator = a; }

void* TpyramidInventory::allocate(size_t size) { return allocator().allocate(size); }

void TpyramidInventory::deallocate(void* p) {
    if (p) allocator().free(p);
}

TpyramidInventory::TfindResult TpyramidInventory::findPyramid(const Tstring& id, bool isSwatch) {
    std::lock_guard lock(state().section);
    auto& list = state().list(isSwatch);
    for (size_t i = 0; i < list.size(); ++i)
        if (list[i]->name() == id) return {list[i], int(i)};
    return {};
}

void TpyramidInventory::registerPyramid(Tpyramid* pyramid, TfindResult& result) {
    if (!pyramid) return;
    std::lock_guard lock(state().section);
    auto& list = state().list(pyramid->isSwatch());
    for (size_t i = 0; i < list.size(); ++i)
        if (list[i] == pyramid) {
            result = {pyramid, int(i)};
            return;
        }
    list.push_back(pyramid);
    result = {pyramid, int(list.size() - 1)};
}

void TpyramidInventory::unregisterPyramid(Tpyramid* pyramid, bool isSwatch) {
    std::lock_guard lock(state().section);
    auto& list = state().list(isSwatch);
    for (size_t i = 0; i < list.size(); ++i)
        if (list[i] == pyramid) {
            list.erase(list.begin() + ptrdiff_t(i));
            return;
        }
}

void TpyramidInventory::freeUnusedPyramids() {
    std::vector<Tpyramid*> doomed;
    {
        std::lock_guard lock(state().section);
        auto& list = state().ordinary;
        for (size_t i = list.size(); i-- > 0;) {
            Tpyramid* p = list[i];
            if (p->needed()) {
                p->clearNeeded();
                p->resetCacheFlags(p->flagRows());
            } else {
                doomed.push_back(p);
                list.erase(list.begin() + ptrdiff_t(i));
            }
        }
    }
    // Deleted outside the section: a pyramid unregisters itself on the way out.
    for (Tpyramid* p : doomed) delete p;
}

void TpyramidInventory::freeAllPyramids() {
    std::vector<Tpyramid*> doomed;
    {
        std::lock_guard lock(state().section);
        doomed = state().ordinary;
        doomed.insert(doomed.end(), state().swatch.begin(), state().swatch.end());
        state().ordinary.clear();
        state().swatch.clear();
    }
    for (Tpyramid* p : doomed) delete p;
}

unsigned TpyramidInventory::count(bool isSwatch) {
    std::lock_guard lock(state().section);
    return unsigned(state().list(isSwatch).size());
}
