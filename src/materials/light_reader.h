#pragma once
// The light records of a batch as a material reads them: the existing
// elements of the light data array are found once per batch, and record
// (k, i) is light k's record for sample i. A constant array (all samples lit
// alike) has stride 0, so the same loop serves both.
#include <algorithm>

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
            if (!h.isNull()) fHandles[fCount++] = h;
        }
    }
    unsigned count() const { return fCount; }
    const TlightData& record(unsigned k, unsigned sample) const {
        return *static_cast<const TlightData*>(fHandles[k].element(sample));
    }

private:
    TdataHandle fHandles[kMaxLights];
    unsigned fCount = 0;
};
