#pragma once
// The process-wide render cache.
#include <memory>

#include "memory/render_cache.h"

// The process-wide cache, made at load unless
// TOVI_RENDERER_GLOBALIZE_RENDER_CACHE is 0; null when switched off.
TrenderCache* theGlobalRenderCache();
// The same, after raising its cap to at least maximumMemorySize.
TrenderCache* theGlobalRenderCache(unsigned maximumMemorySize);
// With TOVI_RENDERER_TRACE_GLOBAL_CACHE on, writes the global cache's
// footprint, used and free bytes to the standard error stream.
void displayGlobalRenderCacheFootPrint();
// The cache of code that was given none: the global one, or else a private
// cache with a 16 MiB cap made once into `privateCache`, which the caller owns.
TrenderCache* globalOrPrivateRenderCache(std::unique_ptr<TrenderCache>& privateCache);
