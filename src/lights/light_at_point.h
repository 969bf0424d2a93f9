#pragma once
// TlightAtPoint: what a set of lights gives at a point, outside a render
// (tools, scene queries). Each light answers through its scalar compute.
#include <vector>

#include "framework/host/array.h"
#include "shading/light_data.h"

class TrenderLightShape;

struct _lightAtPointInformation {
    TlightData data;
    TrenderLightShape* light = nullptr;
};

class TlightAtPoint {
public:
    // Nodes that are not render lights are left out.
    explicit TlightAtPoint(const TDNarray& lights);
    unsigned numberOfLights() const { return unsigned(fLights.size()); }
    // Fills info[k] for light k at `point` (camera space); returns the count.
    unsigned lightAtPoint(const T3Float& point, _lightAtPointInformation* info) const;
    // The same for `count` points: info[p * numberOfLights() + k].
    unsigned lightAtPoint(const T3Float* points, unsigned count, _lightAtPointInformation* info) const;

private:
    std::vector<TrenderLightShape*> fLights;
};
