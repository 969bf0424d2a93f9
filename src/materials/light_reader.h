#pragma once
// The light records of a batch as a material reads them: the existing
// elements of the light data array are found once per batch, and record
// (k, i) is light k's record for sample i. A constant array (all samples lit
// alike) has stride 0, so the same loop serves both.
#include <algorithm>
#include <new>

#include "framework/host/data_block.h"
#include "shading/light_data.h"

class TlightReader {
public:
    static constexpr unsigned kMaxLights = 64;

    TlightReader(TdataBlock& block, const Tattribute& lights) {
        unsigned indices[kMaxLights];
        unsigned n = std::min(block.multiIndices(lights, indices, kMaxLights), kMaxLights);
        for (unsigned k = 0; k < n; ++k) {
            TdataHandle h = block.elementValue(lights, indices[k]);
            if (!h.isNull()) new (&handles()[fCount++]) TdataHandle(h);
        }
    }
    unsigned count() const { return fCount; }
    const TlightData& record(unsigned k, unsigned sample) const {
        return *static_cast<const TlightData*>(handles()[k].element(sample));
    }
    // One record for every sample of the batch (a constant element).
    bool sharedByBatch(unsigned k) const { return !handles()[k].isVariable(); }

private:
    // Raw storage: only the handles in use are constructed, so a batch does
    // not clear room for lights it does not have.
    TdataHandle* handles() { return reinterpret_cast<TdataHandle*>(fStorage); }
    const TdataHandle* handles() const { return reinterpret_cast<const TdataHandle*>(fStorage); }
    alignas(TdataHandle) unsigned char fStorage[kMaxLights * sizeof(TdataHandle)];
    unsigned fCount = 0;
};
