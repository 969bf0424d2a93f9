#pragma once
// TrenderThreadBase: a renderer thread's entry into the shading engine. It
// initialises the shading groups the thread meets, starts and ends sampling
// of a (group, option) pair through its sample manager, and owns the
// thread's arena, drawn from the render cache. The shading catalog and the
// set of initialised groups are class-wide.
#include "framework/host/array.h"
#include "framework/host/bit_field.h"
#include "shading/render_bases.h"
#include "shading/shading_types.h"

class TDNshadingEngine;
class TdependNode;
class TrenderCache;
class TsampleManager;
class TstackArena;
class TshadingOpus;

// Per-frame values the renderer hands every thread.
class TframeConstants {
public:
    TrenderCache* renderCache() const { return fRenderCache; }
    void setRenderCache(TrenderCache* cache) { fRenderCache = cache; }
    TframeSampleData* frameSampleData() const { return fFrameSampleData; }
    void setFrameSampleData(TframeSampleData* data) { fFrameSampleData = data; }
    TbaseDeepRaster* deepRaster() const { return fDeepRaster; }
    void setDeepRaster(TbaseDeepRaster* raster) { fDeepRaster = raster; }

private:
    TrenderCache* fRenderCache = nullptr;
    TframeSampleData* fFrameSampleData = nullptr;
    TbaseDeepRaster* fDeepRaster = nullptr;
};

class TrenderThreadBase {
public:
    static constexpr unsigned kArenaPageSize = 0x10000;
    static constexpr unsigned kArenaNoLimit = 0xFFFFFFFF;

    explicit TrenderThreadBase(TframeConstants* constants);
    virtual ~TrenderThreadBase();
    TrenderThreadBase(const TrenderThreadBase&) = delete;
    TrenderThreadBase& operator=(const TrenderThreadBase&) = delete;

    virtual TraySampler* raySampler() { return nullptr; }
    virtual void deleteRaySampler() {}
    virtual TraySampler* backgroundSampler() { return nullptr; }
    virtual void deleteBackgroundSampler() {}
    // Initialises the group once per render; true when this call did it.
    virtual bool initShadingGroup(TDNshadingEngine* group);
    // The same, counting a reference on the group first.
    virtual bool refInitShadingGroup(TDNshadingEngine* group);

    // Analyses (group, option) if needed and readies the batch of
    // `renderGroup`; returns the items the network provides.
    TbitField64 startSampling(TDNshadingEngine* group, TSEoption option, TrenderGroupBase* renderGroup,
                              const TgeoManagerBase* geoManager, unsigned* requests = nullptr);
    void endSampling(TDNshadingEngine* group, TSEoption option, TrenderGroupBase* renderGroup);

    // The shading catalog, for the engine.
    static bool getOpus(TshadingOpus**& slot, TstackArena*& arena, TdependNode* node, unsigned option);
    static void deleteOpus(TdependNode* node, unsigned option, bool force);
    static bool resetShadingGroup(TDNshadingEngine* group);
    static bool refResetShadingGroup(TDNshadingEngine* group);
    // End of frame: resets every initialised group and empties the catalog.
    static void resetShadingGroups();
    static unsigned initializedGroupCount() { return fInitializedSEs.length(); }

    // The thread's memory.
    void* allocate(size_t size);
    static void free(void* p);
    TrenderCache* cache() const;
    class TvariantArena* arena();
    TsampleManager* sampleManager() const { return fSampleManager; }

    TframeConstants* frameConstants() const { return fConstants; }
    void setFrameConstants(TframeConstants* constants) { fConstants = constants; }
    unsigned threadIndex() const { return fThreadIndex; }
    void setThreadIndex(unsigned index) { fThreadIndex = index; }

private:
    TframeConstants* fConstants;
    unsigned fThreadIndex = 0;
    class TvariantArena* fArena = nullptr;
    TsampleManager* fSampleManager = nullptr;
    // Groups initialised in this render; a renderer initialises each group
    // from one thread first, so this is not locked.
    static TvoidPtrSortedArray fInitializedSEs;
};
