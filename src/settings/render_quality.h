#pragma once
// TdnRenderQuality: sampling, anti-aliasing and ray tracing of a render.
#include "framework/host/node_class.h"
#include "framework/node_registry.h"
#include "settings/settings_attributes.h"

struct TdnVSRenderQuality : TdependNodeVS {
    SN_SETTING(TattributeInt16, reflections, "rfl")
    SN_SETTING(TattributeInt16, refractions, "rfr")
    SN_SETTING(TattributeInt16, shadows, "sl")
    SN_SETTING(TattributeFloat, rayTraceBias, "rtb")
    SN_SETTING(TattributeEnum, edgeAntiAliasing, "eaa")
    SN_SETTING(TattributeBoolean, renderSample, "rsdn")
    SN_SETTING(TattributeBoolean, useMultiPixelFilter, "ufil")
    SN_SETTING(TattributeEnum, pixelFilterType, "pft")
    SN_SETTING(TattributeFloat, pixelFilterWidthX, "pfwx")
    SN_SETTING(TattributeFloat, pixelFilterWidthY, "pfwy")
    SN_SETTING(TattributeFloat, plugInFilterWeight, "pifw")
    SN_SETTING(TattributeInt16, shadingSamples, "ss")
    SN_SETTING(TattributeInt16, maxShadingSamples, "mss")
    SN_SETTING(TattributeInt16, visibilitySamples, "mvs")
    SN_SETTING(TattributeInt16, maxVisibilitySamples, "mvm")
    SN_SETTING(TattributeInt16, volumeSamples, "vs")
    SN_SETTING(TattributeInt16, particleSamples, "pss")
    SN_SETTING(TattributeBoolean, enableRaytracing, "ert")
    SN_SETTING(TattributeFloat, redThreshold, "rct")
    SN_SETTING(TattributeFloat, greenThreshold, "gct")
    SN_SETTING(TattributeFloat, blueThreshold, "bct")
    SN_SETTING(TattributeFloat, coverageThreshold, "cct")

    TdnVSRenderQuality();
};

class TdnRenderQuality : public TnodeClass<TdnRenderQuality, TdependNode, TdnVSRenderQuality> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnRenderQuality", 517, "kRenderQuality");

    enum { kHighestAA = 0, kHighAA = 1, kMediumAA = 2, kLowAA = 3 };
    enum {
        kBoxPixelFilter = 0,
        kTrianglePixelFilter = 1,
        kGaussianPixelFilter = 2,
        kQuadraticBSplinePixelFilter = 3,
        kPlugInPixelFilter = 4,
    };

    SN_ATTRIBUTE(EdgeAntiAliasing, edgeAntiAliasing)
    SN_ATTRIBUTE(PixelFilterType, pixelFilterType)
    SN_ATTRIBUTE(ShadingSamples, shadingSamples)
    SN_ATTRIBUTE(EnableRaytracing, enableRaytracing)
};
