#include "shading/shading_catalog.h"

#include <new>

#include "framework/host/threads.h"
#include "memory/global_render_cache.h"
#include "shading/shading_engine.h"
#include "shading/shading_opus.h"

namespace {
TmtCriticalSection& catalogSection() {
    static TmtCriticalSection section;
    return section;
}
TshadingCatalogEntry* gChains[TshadingCatalog::kChainCount];

// Entries and their arenas come from the global render cache, made on the
// heap when the process has none.
TrenderCache& catalogCache() {
    static std::unique_ptr<TrenderCache> privateCache;
    return *globalOrPrivateRenderCache(privateCache);
}

void destroyEntry(TshadingCatalogEntry* entry) {
    if (entry->opus) {
        entry->opus->releaseOpus();
        entry->opus->~TshadingOpus();
    }
    entry->arena->~TstackArena();
    catalogCache().deallocate(entry->arena);
    catalogCache().deallocate(entry);
}

TshadingCatalogEntry** findLink(const TdependNode* node, unsigned option) {
    TshadingCatalogEntry** link = &gChains[TshadingCatalog::sHash(node, option)];
    while (*link && !((*link)->node == node && (*link)->option == option)) link = &(*link)->next;
    return link;
}
}  // namespace

bool TshadingCatalog::getOpus(TshadingOpus**& slot, TstackArena*& arena, TdependNode* node, unsigned option) {
    TmtLock lock(catalogSection());
    TshadingCatalogEntry** link = findLink(node, option);
    if (TshadingCatalogEntry* entry = *link) {
        slot = &entry->opus;
        arena = entry->arena;
        ++entry->uses;
        return entry->opus != nullptr;
    }
    TrenderCache& cache = catalogCache();
    auto* entry = static_cast<TshadingCatalogEntry*>(cache.allocate(sizeof(TshadingCatalogEntry)));
    void* arenaMemory = cache.allocate(sizeof(TstackArena));
    entry->node = node;
    entry->option = option;
    entry->arena = new (arenaMemory) TstackArena(cache.asArenaAllocator(), kArenaGrowth);
    entry->opus = nullptr;
    entry->uses = 1;
    unsigned chain = sHash(node, option);
    entry->next = gChains[chain];
    gChains[chain] = entry;
    slot = &entry->opus;
    arena = entry->arena;
    return false;
}

void TshadingCatalog::deleteOpus(TdependNode* node, unsigned option, bool force) {
    TshadingCatalogEntry* doomed = nullptr;
    {
        TmtLock lock(catalogSection());
        TshadingCatalogEntry** link = findLink(node, option);
        TshadingCatalogEntry* entry = *link;
        if (!entry) return;
        if (!force && entry->uses > 1) {
            --entry->uses;
            return;
        }
        *link = entry->next;
        doomed = entry;
    }
    // Outside the section: releasing a group's program may delete its lights' programs.
    destroyEntry(doomed);
}

void TshadingCatalog::deleteAll() {
    for (unsigned c = 0; c < kChainCount; ++c) {
        TshadingCatalogEntry* chain;
        {
            TmtLock lock(catalogSection());
            chain = gChains[c];
            gChains[c] = nullptr;
        }
        while (chain) {
            TshadingCatalogEntry* next = chain->next;
            destroyEntry(chain);
            chain = next;
        }
    }
}

unsigned TshadingCatalog::entryCount() {
    TmtLock lock(catalogSection());
    unsigned n = 0;
    for (TshadingCatalogEntry* head : gChains)
        for (TshadingCatalogEntry* e = head; e; e = e->next) ++n;
    return n;
}

unsigned TshadingCatalog::uses(const TdependNode* node, unsigned option) {
    TmtLock lock(catalogSection());
    TshadingCatalogEntry* e = *findLink(node, option);
    return e ? e->uses : 0;
}

TshadingOpus* TshadingCatalog::find(const TdependNode* node, unsigned option) {
    TmtLock lock(catalogSection());
    TshadingCatalogEntry* e = *findLink(node, option);
    return e ? e->opus : nullptr;
}

namespace {
// A group's reset deletes its programs from the catalog.
struct DeleteOpusInstaller {
    DeleteOpusInstaller() {
        TDNshadingEngine::setDeleteOpusHook(
            [](TDNshadingEngine* group, unsigned option, bool allThreads) { TshadingCatalog::deleteOpus(group, option, allThreads); });
    }
};
const DeleteOpusInstaller sDeleteOpusInstaller;
}  // namespace
