#include "shading/sample_manager.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "framework/host/variant_arena.h"
#include "shading/render_thread.h"
#include "shading/sample.h"
#include "shading/shading_engine.h"
#include "shading/shading_opus.h"

std::atomic<unsigned> TsampleManager::fsManagerCount{0};
std::atomic<unsigned> TsampleManager::fsBatchCount{0};
std::atomic<unsigned long> TsampleManager::fsShadedSamples{0};

namespace {
// Each record is preceded by the link of its batch's free list.
constexpr unsigned kRecordHeader = 16;

struct TrecordBlock {
    TrecordBlock* next;
    uint64_t pad;
};
}  // namespace

TsampleManager::TsampleManager(TrenderThreadBase& thread, TbaseDeepRaster* raster) : fThread(thread), fDeepRaster(raster) {
    fBuckets = static_cast<TsampleBatch**>(thread.allocate(sizeof(TsampleBatch*) * kBucketCount));
    std::memset(fBuckets, 0, sizeof(TsampleBatch*) * kBucketCount);
    fsManagerCount.fetch_add(1, std::memory_order_relaxed);
}

TsampleManager::~TsampleManager() {
    flushDispatchedSamples();
    while (fBatches) {
        TsampleBatch* next = fBatches->listNext;
        destroyBatch(fBatches);
        fBatches = next;
    }
    TrenderThreadBase::free(fBuckets);
    fsManagerCount.fetch_sub(1, std::memory_order_relaxed);
}

unsigned TsampleManager::batchCount() const {
    unsigned n = 0;
    for (TsampleBatch* b = fBatches; b; b = b->listNext) ++n;
    return n;
}

TbitField64 TsampleManager::startSampling(TDNshadingEngine* group, TSEoption option, TrenderGroupBase* renderGroup,
                                          TframeSampleData* data, const TgeoManagerBase* geoManager, unsigned*) {
    TbitField64 result;
    group->analyse(option, &result, data, geoManager, &fThread);
    if (group->option(option).opus) setLastBatch(group, option, renderGroup);
    return result;
}

TsampleBatch* TsampleManager::findBatch(const TrenderGroupBase* group, const TshadingOpus* opus) const {
    if (fLastBatchCache && fLastBatchCache->renderGroup == group && fLastBatchCache->opus == opus) return fLastBatchCache;
    for (TsampleBatch* b = fBuckets[bucketOf(group, opus)]; b; b = b->hashNext)
        if (b->renderGroup == group && b->opus == opus) return b;
    return nullptr;
}

bool TsampleManager::setLastBatch(TDNshadingEngine* group, TSEoption option, TrenderGroupBase* renderGroup, unsigned* fieldTable) {
    TshadingOpus* opus = group->option(option).opus;
    if (!opus) {
        fLastBatchCache = nullptr;
        TframeSampleData* data = fThread.frameConstants() ? fThread.frameConstants()->frameSampleData() : nullptr;
        const TgeoManagerBase* geo = renderGroup ? renderGroup->geometryManager() : nullptr;
        if (data && geo) {
            TbitField64 ignored;
            group->analyse(option, &ignored, data, geo, &fThread);
        }
        opus = group->option(option).opus;
    }
    if (opus) {
        TsampleBatch* batch = findBatch(renderGroup, opus);
        if (!batch) {
            unsigned size = (group->sampleSize(option) + 7) / 8 * 8;
            if (fieldTable) {
                size = (fieldTable[kSampleItemCount] + opus->userSampleSize() + (opus->sizeOffset() ? kIlluminationSlotSize : 0) + 7) & ~7u;
                // User entries start pointer-aligned, so the table's own total
                // may lie past the plain sum.
                if (unsigned users = opus->sizeOffset())
                    size = std::max(size, (fieldTable[Tsample::sFieldTableLength(users) - 1] + 7) & ~7u);
            }
            void* memory = fThread.allocate(sizeof(TsampleBatch) + sizeof(Tsample*) * kBatchSize);
            batch = static_cast<TsampleBatch*>(memory);
            *batch = TsampleBatch{renderGroup, opus, nullptr, nullptr, nullptr, 0, kBatchSize,
                                  reinterpret_cast<Tsample**>(batch + 1), fDeepRaster, size, nullptr, nullptr};
            unsigned bucket = bucketOf(renderGroup, opus);
            batch->hashNext = fBuckets[bucket];
            if (fBuckets[bucket]) fBuckets[bucket]->hashPrevious = batch;
            fBuckets[bucket] = batch;
            batch->listNext = fBatches;
            fBatches = batch;
            fsBatchCount.fetch_add(1, std::memory_order_relaxed);
        }
        fLastBatchCache = batch;
    }
    if (!fLastBatchCache) {
        std::printf("\nTsampleManager::setLastBatch() failed on\n");
        std::printf("shading group %s\n", group->name().asC());
        std::printf("Postcondition violated, fLastBatchCache is NULL.\n\n");
        return false;
    }
    return true;
}

void* TsampleManager::takeRecord(TsampleBatch& batch) {
    if (!batch.freeRecords) {
        unsigned stride = kRecordHeader + batch.recordSize;
        auto* block = static_cast<TrecordBlock*>(fThread.allocate(sizeof(TrecordBlock) + size_t(stride) * kRecordsPerBlock));
        if (!block) return nullptr;
        block->next = static_cast<TrecordBlock*>(batch.recordBlocks);
        batch.recordBlocks = block;
        auto* first = reinterpret_cast<unsigned char*>(block + 1);
        for (unsigned r = kRecordsPerBlock; r-- > 0;) {
            unsigned char* header = first + size_t(stride) * r;
            *reinterpret_cast<void**>(header) = batch.freeRecords;
            batch.freeRecords = header;
        }
    }
    auto* header = static_cast<unsigned char*>(batch.freeRecords);
    batch.freeRecords = *reinterpret_cast<void**>(header);
    return header + kRecordHeader;
}

void TsampleManager::allocateSamples(TDNshadingEngine* group, TSEoption option, TrenderGroupBase* renderGroup, unsigned count,
                                     Tsample** samples, unsigned* fieldTable) {
    std::memset(samples, 0, sizeof(Tsample*) * count);
    reuseSamples(group, option, renderGroup, count, samples, fieldTable);
}

void TsampleManager::reuseSamples(TDNshadingEngine* group, TSEoption option, TrenderGroupBase* renderGroup, unsigned count,
                                  Tsample** samples, unsigned* fieldTable) {
    if (!count || !setLastBatch(group, option, renderGroup, fieldTable)) return;
    TsampleBatch& batch = *fLastBatchCache;
    if (!samples[0]) {
        unsigned* table = fieldTable ? fieldTable : group->fieldOffsetTable(option);
        for (unsigned i = 0; i < count; ++i) {
            void* memory = takeRecord(batch);
            samples[i] = memory ? Tsample::sCreate(memory, batch.recordSize, table, this, &batch) : nullptr;
        }
        return;
    }
    unsigned* table = fieldTable ? fieldTable : const_cast<unsigned*>(samples[0]->fieldOffsets());
    for (unsigned i = 0; i < count; ++i)
        if (samples[i]) samples[i]->reset(table, this, &batch);
}

void TsampleManager::shadeBatch(TsampleBatch& batch) {
    unsigned n = batch.count;
    if (!n) return;
    if (batch.renderGroup) {
        bool receive = batch.renderGroup->receiveShadows();
        for (unsigned i = 0; i < n; ++i) batch.samples[i]->setReceiveShadows(receive);
    }
    batch.opus->shade(n, batch.samples);
    if (batch.deepRaster) batch.deepRaster->receiveSamples(TSEoption(batch.opus->shadingOption()), batch.renderGroup, batch.samples, n);
    batch.count = 0;
    fDispatched -= n;
    fsShadedSamples.fetch_add(n, std::memory_order_relaxed);
}

int TsampleManager::dispatchSamples(unsigned count, Tsample** samples) {
    for (unsigned i = 0; i < count; ++i) {
        Tsample* s = samples[i];
        if (!s || !s->batch()) continue;
        TsampleBatch& batch = *s->batch();
        ++fDispatched;
        s->setObjectId(static_cast<void*>(batch.renderGroup));
        s->setDispatched(true);
        batch.samples[batch.count++] = s;
        if (batch.count == batch.capacity) shadeBatch(batch);
    }
    return 0;
}

int TsampleManager::flushDispatchedSamples() {
    while (fDispatched) {
        for (TsampleBatch* b = fBatches; b; b = b->listNext)
            if (b->count) shadeBatch(*b);
        if (fDispatched && !fBatches) fDispatched = 0;
    }
    return 0;
}

void TsampleManager::releaseSamples(unsigned count, Tsample** samples) {
    // Last first: the free list then hands the records out again in the
    // order they were taken, one after another, so that a batch's records
    // lie at a fixed spacing and the engine uses them in place.
    for (unsigned i = count; i-- > 0;) {
        Tsample* s = samples[i];
        if (!s || !s->batch()) continue;
        TsampleBatch& batch = *s->batch();
        auto* header = reinterpret_cast<unsigned char*>(s) - kRecordHeader;
        *reinterpret_cast<void**>(header) = batch.freeRecords;
        batch.freeRecords = header;
        samples[i] = nullptr;
    }
}

void TsampleManager::destroyBatch(TsampleBatch* batch) {
    for (auto* block = static_cast<TrecordBlock*>(batch->recordBlocks); block;) {
        TrecordBlock* next = block->next;
        TrenderThreadBase::free(block);
        block = next;
    }
    TrenderThreadBase::free(batch);
    fsBatchCount.fetch_sub(1, std::memory_order_relaxed);
}

void TsampleManager::endSampling(TDNshadingEngine* group, TSEoption option, TrenderGroupBase* renderGroup) {
    TshadingOpus* opus = group->option(option).opus;
    if (!opus) return;
    if (TsampleBatch* batch = findBatch(renderGroup, opus)) {
        if (batch->count) shadeBatch(*batch);
        unsigned bucket = bucketOf(renderGroup, opus);
        if (batch->hashPrevious)
            batch->hashPrevious->hashNext = batch->hashNext;
        else
            fBuckets[bucket] = batch->hashNext;
        if (batch->hashNext) batch->hashNext->hashPrevious = batch->hashPrevious;
        for (TsampleBatch** link = &fBatches; *link; link = &(*link)->listNext)
            if (*link == batch) {
                *link = batch->listNext;
                break;
            }
        destroyBatch(batch);
        fLastBatchCache = nullptr;
    }
    TrenderThreadBase::deleteOpus(group, option, false);
}
