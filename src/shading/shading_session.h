#pragma once
// TshadingSession: one group shaded outside a renderer's frame (previews,
// tests, benchmarks) along the road a render takes. The group is initialised
// through a render thread, so each node of its network and each of its
// lights gets shadingNodeInit; the programs run shadingNodeOnDemand on the
// first batch; the end of the session resets the group, which runs
// endOfRender on every node and drops the programs. Set the group's light
// tables before the session starts: the reset clears them.
#include "shading/render_thread.h"
#include "shading/shading_types.h"

class TDNshadingEngine;
class TshadingOpus;
struct TframeSampleData;

class TshadingSession {
public:
    explicit TshadingSession(TDNshadingEngine* group, TframeSampleData* data = nullptr);
    ~TshadingSession();
    TshadingSession(const TshadingSession&) = delete;
    TshadingSession& operator=(const TshadingSession&) = delete;

    // The group's program for `option`, analysed at the first call; null
    // when the network gives none. `result` receives the items it provides.
    TshadingOpus* program(TSEoption option = kSurfaceColorTransparency, TbitField64* result = nullptr);
    bool analyse(TSEoption option, TbitField64* result);
    TDNshadingEngine* group() const { return fGroup; }

private:
    TframeConstants fConstants;
    TrenderThreadBase fThread;
    TDNshadingEngine* fGroup;
};
