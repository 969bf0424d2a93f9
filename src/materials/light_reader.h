#pragma once
// The light records of a batch as a material reads them: the existing
// elements of the light data array are found once per batch, and record
// (k, i) is light k's record for sample i. A constant array (all samples lit
// alike) has stride 0, so the same loop serves both.
#include "framework/host/data_block.h"
#include "shading/light_data.h"

class TlightReader {
public:
    static constexpr unsigned kMaxLights = 64;

    TlightReader(TdataBlock& block, const Tattribute& lights) {
        // The block writes into a scratch array, not into the reader: a
        // reader whose address escaped would have its records reloaded
        // after every opaque call and store in the light loops.
        const void* found[kMaxLights];
        unsigned stride = 0;
        fCount = block.existingElementValues(lights, found, stride, kMaxLights);
        fStride = stride;
        for (unsigned k = 0; k < fCount; ++k) fFirst[k] = static_cast<const char*>(found[k]);
    }
    unsigned count() const { return fCount; }
    const TlightData& record(unsigned k, unsigned sample) const {
        return *reinterpret_cast<const TlightData*>(fFirst[k] + size_t(fStride) * sample);
    }
    // One record for every sample of the batch (a constant array).
    bool sharedByBatch(unsigned) const { return fStride == 0; }

private:
    // Left unset beyond the lights in use: a batch does not clear room for
    // lights it does not have.
    const char* fFirst[kMaxLights];  // sample 0's record of each light
    unsigned fStride = 0;
    unsigned fCount = 0;
};
