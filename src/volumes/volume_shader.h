#pragma once
// TdnVolumeShader: a volume shader that computes nothing of its own. What
// is connected to, or set on, its outputs is what the interval shows.
#include "framework/host/attribute_groups.h"
#include "framework/host/node_class.h"
#include "framework/node_registry.h"
#include "framework/render_node.h"

struct TdnVSVolumeShader : TdependNodeVS {
    TcolorAttribute outColor{"outColor", "oc", TiffTag("VSOC")};
    TcolorAttribute outTransparency{"outTransparency", "ot", TiffTag("VSOT")};
    TcolorAttribute outMatteOpacity{"outMatteOpacity", "omo", TiffTag("VSOM")};
    TdnVSVolumeShader() {
        outTransparency.setDefault(1, 1, 1);
        outMatteOpacity.setDefault(0, 0, 0);
    }
};

class TdnVolumeShader : public TnodeClass<TdnVolumeShader, TrenderNode, TdnVSVolumeShader> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnVolumeShader", 523, "kVolumeShader");
    SN_COLOR_ATTRIBUTE(OutColor, outColor)
    SN_COLOR_ATTRIBUTE(OutTransparency, outTransparency)
    SN_COLOR_ATTRIBUTE(OutMatteOpacity, outMatteOpacity)
};
