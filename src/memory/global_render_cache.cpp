// The process-wide render cache and its switches:
//   TOVI_RENDERER_GLOBALIZE_RENDER_CACHE (int, 1)  make it at load
//   TOVI_RENDERER_TRACE_GLOBAL_CACHE     (int, 0)  its messages on stderr
#include <cstdio>

#include "framework/host/environment.h"
#include "memory/global_render_cache.h"

namespace {
// The global cache starts small and lives on growth.
constexpr unsigned kGlobalStartSize = 16384;
// The cap of a private cache made when there is no global one.
constexpr unsigned kPrivateCacheSize = 0x1000000;

struct Global {
    bool trace;
    TrenderCache* cache;
};

Global makeGlobal() {
    const bool globalize = TenvironmentVariable("TOVI_RENDERER_GLOBALIZE_RENDER_CACHE").asInt32(1) != 0;
    const bool trace = TenvironmentVariable("TOVI_RENDERER_TRACE_GLOBAL_CACHE").asInt32(0) != 0;
    Global g{trace, nullptr};
    if (globalize) {
        // Lives as long as the process.
        g.cache = new TrenderCache(kGlobalStartSize, TmallocAllocator::mallocAllocator());
        if (trace) {
            std::fprintf(stderr, "Warning TOVI_RENDERER_GLOBALIZE_RENDER_CACHE is enabled.\n");
            std::fprintf(stderr, " starting with %u bytes of RAM \n", kGlobalStartSize);
        }
    }
    return g;
}

const Global& global() {
    static const Global g = makeGlobal();
    return g;
}
const bool sMadeAtLoad = (global(), true);
}  // namespace

TrenderCache* theGlobalRenderCache() { return global().cache; }

TrenderCache* theGlobalRenderCache(unsigned maximumMemorySize) {
    TrenderCache* cache = global().cache;
    if (!cache) return nullptr;
    displayGlobalRenderCacheFootPrint();
    cache->setMaximumMemorySize(maximumMemorySize);
    if (global().trace)
        std::fprintf(stderr, "Warning: setting global cache maximum memory size to %u\n", cache->maximumMemorySize());
    return cache;
}

void displayGlobalRenderCacheFootPrint() {
    const Global& g = global();
    if (!g.trace || !g.cache) return;
    const size_t footPrint = g.cache->arena().footPrint();
    const size_t used = g.cache->allocatedMemory();
    std::fprintf(stderr, "Warning: render cache footPrint %zu bytes \n", footPrint);
    std::fprintf(stderr, "Warning: render cache used %zu bytes \n", used);
    std::fprintf(stderr, "Warning: render cache free %zu bytes \n", footPrint - used);
}

TrenderCache* globalOrPrivateRenderCache(std::unique_ptr<TrenderCache>& privateCache) {
    if (TrenderCache* cache = theGlobalRenderCache()) return cache;
    if (!privateCache) privateCache = std::make_unique<TrenderCache>(kPrivateCacheSize, TmallocAllocator::mallocAllocator());
    return privateCache.get();
}
