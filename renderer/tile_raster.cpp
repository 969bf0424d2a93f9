#include "renderer/tile_raster.h"

#include "renderer/render_scene.h"
#include "shading/sample.h"

void TtileRaster::reserve(unsigned objectCount, unsigned slotCapacity) {
    fSlots.resize(slotCapacity);
    fNext.resize(slotCapacity);
    fHead.assign(objectCount, -1);
    fTail.assign(objectCount, -1);
}

void TtileRaster::begin(unsigned count) {
    fCount = count;
    fPending = 0;
    std::fill(fHead.begin(), fHead.end(), -1);
    std::fill(fTail.begin(), fTail.end(), -1);
}

void TtileRaster::expect(unsigned object, unsigned slot) {
    fNext[slot] = -1;
    if (fTail[object] < 0)
        fHead[object] = int32_t(slot);
    else
        fNext[fTail[object]] = int32_t(slot);
    fTail[object] = int32_t(slot);
    ++fPending;
}

void TtileRaster::receiveSamples(TSEoption, TrenderGroupBase* group, Tsample** samples, unsigned count) {
    if (!group) return;
    unsigned object = static_cast<TrenderObject*>(group)->index;
    if (object >= fHead.size()) return;
    for (unsigned i = 0; i < count; ++i) {
        int32_t s = fHead[object];
        if (s < 0) return;  // nothing was expected: not a sample of this tile
        fHead[object] = fNext[s];
        if (fHead[object] < 0) fTail[object] = -1;
        --fPending;
        fSlots[s].color = *samples[i]->outColor();
        fSlots[s].transparency = *samples[i]->outTransparency();
        fSlots[s].glow = *samples[i]->outGlowColor();
    }
}
