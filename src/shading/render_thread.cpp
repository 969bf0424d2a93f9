#include "shading/render_thread.h"

#include <new>

#include "framework/host/variant_arena.h"
#include "memory/global_render_cache.h"
#include "shading/sample_manager.h"
#include "shading/shading_catalog.h"
#include "shading/shading_engine.h"

TvoidPtrSortedArray TrenderThreadBase::fInitializedSEs;

TrenderThreadBase::TrenderThreadBase(TframeConstants* constants) : fConstants(constants) {}

TrenderThreadBase::~TrenderThreadBase() {
    if (fSampleManager) {
        fSampleManager->~TsampleManager();
        TvariantArena::deallocate(fSampleManager);
    }
    if (fArena) {
        TrenderCache* owner = cache();
        fArena->~TvariantArena();
        if (owner) owner->deallocate(fArena);
    }
}

TrenderCache* TrenderThreadBase::cache() const {
    if (fConstants && fConstants->renderCache()) return fConstants->renderCache();
    static std::unique_ptr<TrenderCache> privateCache;
    return globalOrPrivateRenderCache(privateCache);
}

TvariantArena* TrenderThreadBase::arena() {
    if (!fArena) {
        TrenderCache* c = cache();
        void* memory = c->allocate(sizeof(TvariantArena));
        fArena = new (memory) TvariantArena(kArenaPageSize, kArenaNoLimit, c->asArenaAllocator(), "Render Thread", true, true);
    }
    return fArena;
}

void* TrenderThreadBase::allocate(size_t size) { return arena()->allocate(size); }
void TrenderThreadBase::free(void* p) { TvariantArena::deallocate(p); }

bool TrenderThreadBase::initShadingGroup(TDNshadingEngine* group) {
    arena();
    unsigned position;
    if (!group || !fInitializedSEs.insert(group, position)) return false;
    group->initializeConnected(fArena, fConstants ? fConstants->frameSampleData() : nullptr, nullptr);
    return true;
}

bool TrenderThreadBase::refInitShadingGroup(TDNshadingEngine* group) {
    if (group) group->incrementReferenceCount();
    return initShadingGroup(group);
}

TbitField64 TrenderThreadBase::startSampling(TDNshadingEngine* group, TSEoption option, TrenderGroupBase* renderGroup,
                                             const TgeoManagerBase* geoManager, unsigned* requests) {
    if (!fSampleManager) {
        void* memory = allocate(sizeof(TsampleManager));
        fSampleManager = new (memory) TsampleManager(*this, fConstants ? fConstants->deepRaster() : nullptr);
    }
    return fSampleManager->startSampling(group, option, renderGroup, fConstants ? fConstants->frameSampleData() : nullptr,
                                         geoManager, requests);
}

void TrenderThreadBase::endSampling(TDNshadingEngine* group, TSEoption option, TrenderGroupBase* renderGroup) {
    if (fSampleManager) fSampleManager->endSampling(group, option, renderGroup);
}

bool TrenderThreadBase::getOpus(TshadingOpus**& slot, TstackArena*& arena, TdependNode* node, unsigned option) {
    return TshadingCatalog::getOpus(slot, arena, node, option);
}

void TrenderThreadBase::deleteOpus(TdependNode* node, unsigned option, bool force) { TshadingCatalog::deleteOpus(node, option, force); }

bool TrenderThreadBase::resetShadingGroup(TDNshadingEngine* group) {
    if (!fInitializedSEs.remove(group)) return false;
    group->resetShadingEngine();
    return true;
}

bool TrenderThreadBase::refResetShadingGroup(TDNshadingEngine* group) {
    if (!group || !group->referenceCountingEnabled()) return false;
    if (group->decrementReferenceCount() != 0) return false;
    return resetShadingGroup(group);
}

void TrenderThreadBase::resetShadingGroups() {
    while (fInitializedSEs.length() > 0) {
        auto* group = static_cast<TDNshadingEngine*>(const_cast<void*>(fInitializedSEs[fInitializedSEs.length() - 1]));
        fInitializedSEs.remove(group);
        group->resetShadingEngine();
    }
    TshadingCatalog::deleteAll();
}
