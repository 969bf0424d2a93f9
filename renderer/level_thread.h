#pragma once
// TrenderLevelThread: one render thread's entry into the shading engine at
// one level of ray nesting. Camera hits shade on level 0; the hits of rays
// that a material traces while level L shades go to level L + 1, so a batch
// is never added to while it is being shaded.
#include <cstdint>
#include <vector>

#include "shading/render_thread.h"
#include "shading/shading_types.h"

class TrenderObject;
class Tsample;

class TrenderLevelThread : public TrenderThreadBase {
public:
    // Shades `option` of up to `groupCount` groups (surfaces unless told).
    TrenderLevelThread(TframeConstants* constants, TraySampler* sampler, unsigned groupCount,
                       TSEoption option = kSurfaceColorTransparency);
    ~TrenderLevelThread() override;

    TraySampler* raySampler() override { return fSampler; }

    // A fresh sample for a hit on `object`, or null when its group has no
    // program (the caller then draws the default colour).
    Tsample* allocate(const TrenderObject& object);
    // The same for any render group of `group`, the group's `groupIndex`-th.
    Tsample* allocate(TDNshadingEngine* group, int groupIndex, TrenderGroupBase* renderGroup, const TgeoManagerBase* geometry);
    // Gives up this thread's use of the programs it started.
    void endSampling();

private:
    struct Started {
        TDNshadingEngine* group = nullptr;
        TrenderGroupBase* renderGroup = nullptr;
        bool ok = false;
    };
    TraySampler* fSampler;
    TSEoption fOption;
    std::vector<Started> fStarted;  // per group index
};

// The colour of an object whose group cannot shade: a neutral grey that
// still shows the shape.
T3Float defaultSurfaceColour(const T3Float& normal, const T3Float& rayDirection);
