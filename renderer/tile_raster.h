#pragma once
// TtileRaster: the deep raster of one render thread. It holds one slot per
// camera sample of the tile being rendered (with the tile's margin for the
// pixel filter) and receives the shaded batches into those slots. Samples of
// one render group are shaded in the order they were dispatched, so each
// group keeps a queue of the slots it still owes.
#include <cstdint>
#include <vector>

#include "framework/host/math.h"
#include "shading/render_bases.h"

struct TtileSlot {
    float x = 0, y = 0;          // raster position, pixels from the top left
    T3Float color, transparency;
    T3Float glow;                // the surface's glow colour, for the glow pass
    T3Float pointCamera;
    T3Float pointWorld, normalWorld;  // for the data layers
    float alpha = 0;             // coverage
    int32_t object = -1;         // -1: the ray hit nothing
    int32_t primitive = -1;
    float distance = 0;
    T3Float origin, direction;   // the world ray, for what lies behind
    float tHit = 0;
    float bu = 0, bv = 0;        // the tracer's barycentrics at the hit
    int32_t sequence = -1;       // place among its object's samples dispatched in the tile; -1: none
};

class TtileRaster : public TbaseDeepRaster {
public:
    void reserve(unsigned objectCount, unsigned slotCapacity);
    // Starts a tile of `count` slots with every queue empty.
    void begin(unsigned count);
    TtileSlot& slot(unsigned i) { return fSlots[i]; }
    const TtileSlot& slot(unsigned i) const { return fSlots[i]; }
    unsigned size() const { return fCount; }
    // The next sample of `object` dispatched fills `slot`.
    void expect(unsigned object, unsigned slot);
    // Slots still waiting for their shaded sample.
    unsigned pending() const { return fPending; }

    void receiveSamples(TSEoption option, TrenderGroupBase* group, Tsample** samples, unsigned count) override;

private:
    std::vector<TtileSlot> fSlots;
    std::vector<int32_t> fNext, fHead, fTail;
    unsigned fCount = 0, fPending = 0;
};
