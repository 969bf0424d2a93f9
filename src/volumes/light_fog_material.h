#pragma once
// TdnLightFogMaterial: the fog inside a light's volume. Its opacity is the
// density itself, or with fastDropOff the density times the thickness the
// renderer gives in filterSize's Z; its colour is that opacity times the
// lights reaching the interval. The environment fog borrows the light loop.
#include "framework/host/attribute_groups.h"
#include "framework/host/node_class.h"
#include "framework/node_registry.h"
#include "framework/render_node.h"
#include "volumes/fog_outputs.h"

struct TdnVSLightFogMaterial : TdependNodeVS {
    TvectorAttribute filterSize{"filterSize", "fs", TiffTag("LFFS")};
    TattributeLightData lightDataArray{"lightDataArray", "ltd", TiffTag("LFLD")};
    TcolorAttribute color{"color", "cl", TiffTag("LFC3")};
    TattributeFloat density{"density", "d", TiffTag("LFDN")};
    TattributeBoolean fastDropOff{"fastDropOff", "fd", TiffTag("LFFD")};
    TattributeBoolean colorBasedTransparency{"colorBasedTransparency", "cbt", TiffTag("LFCB")};
    TfogOutputs io{TiffTag("LFOC"), TiffTag("LFOT"), TiffTag("LFOM"), TiffTag("LFMM"), TiffTag("LFMG")};
    TdnVSLightFogMaterial();
    bool setupDependencies(TdependencyMatrix& m) override;
};

class TdnLightFogMaterial : public TnodeClass<TdnLightFogMaterial, TrenderNode, TdnVSLightFogMaterial> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnLightFogMaterial", 520, "kLightFog");
    SN_VECTOR_ATTRIBUTE(FilterSize, filterSize)
    SN_ATTRIBUTE(LightDataArray, lightDataArray)
    SN_COLOR_ATTRIBUTE(Color, color)
    SN_ATTRIBUTE(Density, density)
    SN_ATTRIBUTE(FastDropOff, fastDropOff)
    SN_ATTRIBUTE(ColorBasedTransparency, colorBasedTransparency)
    SN_COLOR_ATTRIBUTE(OutColor, io.outColor)
    SN_COLOR_ATTRIBUTE(OutTransparency, io.outTransparency)
    SN_COLOR_ATTRIBUTE(OutMatteOpacity, io.outMatteOpacity)
    SN_ATTRIBUTE(MatteOpacityMode, io.matteOpacityMode)
    SN_ATTRIBUTE(MatteOpacity, io.matteOpacity)

    // out = sum over the lights of intensity * colour * opacity, once for a
    // light's ambient flag and once more for its diffuse flag, per sample of
    // [first, first + count); `lights` is the block's light data array.
    static void computeOutColor(TdataBlock& block, const Tattribute& lights, unsigned first, unsigned count,
                                const T3Float* color, const float* opacity, T3Float* out);

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;
};
