#include "support/test_samples.h"

#include "support/alloc_counter.h"

TtestSamples::TtestSamples(TDNshadingEngine* group, size_t count, TsampleBatch* batch) {
    const unsigned size = group->sampleSize(kSurfaceColorTransparency);
    unsigned* fields = group->fieldOffsetTable(kSurfaceColorTransparency);
    memory.assign(count, std::vector<uint64_t>((size + 7) / 8, 0));
    for (std::vector<uint64_t>& record : memory) samples.push_back(Tsample::sCreate(record.data(), size, fields, nullptr, batch));
}

size_t TtestSamples::allocationsOfASecondShade(TshadingOpus* opus) {
    shade(opus);
    TallocationCounter counter;
    shade(opus);
    return counter.allocations();
}
