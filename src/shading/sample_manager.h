#pragma once
// TsampleManager: gathers one render thread's samples into batches keyed on
// (render group, program) and shades a batch the moment it holds 64 samples,
// handing it to the deep raster. Nothing here is locked: a manager and its
// batches belong to one thread.
#include <atomic>
#include <cstdint>

#include "framework/host/bit_field.h"
#include "shading/render_bases.h"
#include "shading/shading_types.h"

class TDNshadingEngine;
class TrenderThreadBase;
class Tsample;

class TsampleBatch {
public:
    TrenderGroupBase* renderGroup;
    TshadingOpus* opus;
    TsampleBatch* hashNext;
    TsampleBatch* hashPrevious;
    TsampleBatch* listNext;
    unsigned count;
    unsigned capacity;
    Tsample** samples;
    TbaseDeepRaster* deepRaster;
    // Sample records: blocks of 64 taken from the thread's arena, each record
    // preceded by the link of the free list.
    unsigned recordSize;
    void* freeRecords;
    void* recordBlocks;
};

class TsampleManager {
public:
    static constexpr unsigned kBucketCount = 128;
    static constexpr unsigned kRecordsPerBlock = 64;

    TsampleManager(TrenderThreadBase& thread, TbaseDeepRaster* raster);
    ~TsampleManager();
    TsampleManager(const TsampleManager&) = delete;
    TsampleManager& operator=(const TsampleManager&) = delete;

    TbitField64 startSampling(TDNshadingEngine* group, TSEoption option, TrenderGroupBase* renderGroup, TframeSampleData* data,
                              const TgeoManagerBase* geoManager, unsigned* requests);
    bool setLastBatch(TDNshadingEngine* group, TSEoption option, TrenderGroupBase* renderGroup, unsigned* fieldTable = nullptr);
    // Fresh records (the array is zeroed first).
    void allocateSamples(TDNshadingEngine* group, TSEoption option, TrenderGroupBase* renderGroup, unsigned count,
                         Tsample** samples, unsigned* fieldTable = nullptr);
    // Records from the batch when samples[0] is null, else the given ones reset.
    void reuseSamples(TDNshadingEngine* group, TSEoption option, TrenderGroupBase* renderGroup, unsigned count,
                      Tsample** samples, unsigned* fieldTable = nullptr);
    int dispatchSamples(unsigned count, Tsample** samples);
    int flushDispatchedSamples();
    void releaseSamples(unsigned count, Tsample** samples);
    void endSampling(TDNshadingEngine* group, TSEoption option, TrenderGroupBase* renderGroup);

    unsigned batchSize() const { return kBatchSize; }
    TrenderThreadBase& renderThread() const { return fThread; }
    unsigned pendingSamples() const { return fDispatched; }
    unsigned batchCount() const;

    // Statistics, plain and approximate under races.
    static std::atomic<unsigned> fsManagerCount;
    static std::atomic<unsigned> fsBatchCount;
    static std::atomic<unsigned long> fsShadedSamples;

private:
    static unsigned bucketOf(const TrenderGroupBase* group, const TshadingOpus* opus) {
        return unsigned((reinterpret_cast<uintptr_t>(group) / 8 + reinterpret_cast<uintptr_t>(opus) / 8) % kBucketCount);
    }
    TsampleBatch* findBatch(const TrenderGroupBase* group, const TshadingOpus* opus) const;
    void shadeBatch(TsampleBatch& batch);
    void destroyBatch(TsampleBatch* batch);
    void* takeRecord(TsampleBatch& batch);

    TrenderThreadBase& fThread;
    TsampleBatch** fBuckets;
    TsampleBatch* fBatches = nullptr;
    TsampleBatch* fLastBatchCache = nullptr;
    TbaseDeepRaster* fDeepRaster;
    unsigned fDispatched = 0;
};
