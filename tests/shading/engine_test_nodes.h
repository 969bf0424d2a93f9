#pragma once
// Small render node classes for the shading engine tests: a texture-like
// node driven by the sample's uvCoord, an affine scale, a pass-through
// surface and a mix that reads its two colours lazily. Each counts its
// computes and the samples it computed.
#include <atomic>
#include <functional>

#include "framework/host/attribute_groups.h"
#include "framework/host/node_class.h"
#include "framework/render_node.h"

struct TengineCounters {
    std::atomic<int> computes{0};
    std::atomic<int> samples{0};
    void count(unsigned n) {
        ++computes;
        samples += int(n);
    }
};

struct TengineTestUvVS : TdependNodeVS {
    TpairAttribute uvCoord{"uvCoord", "uv", TiffTag("EUVC"), "uCoord", "u", TiffTag("EUCO"), "vCoord", "v", TiffTag("EVCO")};
    TcolorAttribute tint{"tint", "ti", TiffTag("ETIN")};
    TcolorAttribute outColor{"outColor", "oc", TiffTag("EOCL")};
    TattributeFloat outAlpha{"outAlpha", "oa", TiffTag("EOAL")};
    TengineTestUvVS() {
        tint.setDefault(1, 1, 1);
        outColor.setFlag(kAttrWritable, false);
        outAlpha.setFlag(kAttrWritable, false);
    }
    bool setupDependencies(TdependencyMatrix& m) override {
        if (!TdependNodeVS::setupDependencies(m)) return false;
        affects(m, {&uvCoord.whole, &tint.whole}, {&outColor.whole});
        affects(m, {&uvCoord.whole}, {&outAlpha});
        return true;
    }
};
// outColor = (u, v, u * v) * tint; outAlpha = u + v.
class TengineTestUv : public TnodeClass<TengineTestUv, TrenderNode, TengineTestUvVS> {
public:
    static constexpr TnodeClassInfo kInfo{"TengineTestUv", 9101, "kEngineTestUv", "engineTestUv", "EUV ", "utility/test"};
    SN_PAIR_ATTRIBUTE(UvCoord, uvCoord, U, V)
    SN_COLOR_ATTRIBUTE(Tint, tint)
    SN_COLOR_ATTRIBUTE(OutColor, outColor)
    SN_ATTRIBUTE(OutAlpha, outAlpha)
    TengineCounters counters;

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;
};

struct TengineTestScaleVS : TdependNodeVS {
    TattributeFloat value{"value", "v", TiffTag("ESVA")};
    TattributeFloat factor{"factor", "f", TiffTag("ESFA")};
    TattributeFloat offset{"offset", "o", TiffTag("ESOF")};
    TattributeFloat outValue{"outValue", "ov", TiffTag("ESOV")};
    TengineTestScaleVS() {
        factor.setNativeDefaultData(2.0);
        outValue.setFlag(kAttrWritable, false);
    }
    bool setupDependencies(TdependencyMatrix& m) override {
        if (!TdependNodeVS::setupDependencies(m)) return false;
        affects(m, {&value, &factor, &offset}, {&outValue});
        return true;
    }
};
// outValue = value * factor + offset.
class TengineTestScale : public TnodeClass<TengineTestScale, TrenderNode, TengineTestScaleVS> {
public:
    static constexpr TnodeClassInfo kInfo{"TengineTestScale", 9102, "kEngineTestScale", "engineTestScale", "ESCL", "utility/test"};
    SN_ATTRIBUTE(Value, value)
    SN_ATTRIBUTE(Factor, factor)
    SN_ATTRIBUTE(Offset, offset)
    SN_ATTRIBUTE(OutValue, outValue)
    TengineCounters counters;
    // Run once at the start of the next compute, as a material tracing a
    // ray that hits itself shades again inside its own run.
    std::function<void()> reenter;

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;
};

struct TengineTestSurfaceVS : TdependNodeVS {
    TcolorAttribute color{"color", "c", TiffTag("ESCO")};
    TcolorAttribute transparency{"transparency", "it", TiffTag("ESTR")};
    TcolorAttribute outColor{"outColor", "oc", TiffTag("ESOC")};
    TcolorAttribute outTransparency{"outTransparency", "ot", TiffTag("ESOT")};
    TengineTestSurfaceVS() {
        color.setDefault(0.5f, 0.5f, 0.5f);
        outColor.setFlag(kAttrWritable, false);
        outTransparency.setFlag(kAttrWritable, false);
    }
    bool setupDependencies(TdependencyMatrix& m) override {
        if (!TdependNodeVS::setupDependencies(m)) return false;
        affects(m, {&color.whole}, {&outColor.whole});
        affects(m, {&transparency.whole}, {&outTransparency.whole});
        return true;
    }
};
// A pass-through material: outColor = color, outTransparency = transparency.
class TengineTestSurface : public TnodeClass<TengineTestSurface, TrenderNode, TengineTestSurfaceVS> {
public:
    static constexpr TnodeClassInfo kInfo{"TengineTestSurface", 9103, "kEngineTestSurface", "engineTestSurface", "ESUR",
                                          "shader/surface"};
    SN_COLOR_ATTRIBUTE(Color, color)
    SN_COLOR_ATTRIBUTE(Transparency, transparency)
    SN_COLOR_ATTRIBUTE(OutColor, outColor)
    SN_COLOR_ATTRIBUTE(OutTransparency, outTransparency)
    TengineCounters counters;

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;
};

struct TengineTestMixVS : TdependNodeVS {
    TattributeFloat weight{"weight", "w", TiffTag("EMWE")};
    TcolorAttribute color1{"color1", "c1", TiffTag("EMC1")};
    TcolorAttribute color2{"color2", "c2", TiffTag("EMC2")};
    TcolorAttribute outColor{"outColor", "oc", TiffTag("EMOC")};
    TengineTestMixVS() { outColor.setFlag(kAttrWritable, false); }
    bool setupDependencies(TdependencyMatrix& m) override {
        if (!TdependNodeVS::setupDependencies(m)) return false;
        affects(m, {&weight, &color1.whole, &color2.whole}, {&outColor.whole});
        return true;
    }
};
// outColor = color1 where weight >= 0.5, else color2; each colour is read
// only for the runs of samples that choose it.
class TengineTestMix : public TnodeClass<TengineTestMix, TrenderNode, TengineTestMixVS> {
public:
    static constexpr TnodeClassInfo kInfo{"TengineTestMix", 9104, "kEngineTestMix", "engineTestMix", "EMIX", "utility/test"};
    SN_ATTRIBUTE(Weight, weight)
    SN_COLOR_ATTRIBUTE(Color1, color1)
    SN_COLOR_ATTRIBUTE(Color2, color2)
    SN_COLOR_ATTRIBUTE(OutColor, outColor)
    TengineCounters counters;
    bool lazy = true;

    void analyse(TDNshadingEngine*, TSEnodeDescription* description, void*, TbitField64&) override;

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;
};

struct TengineTestOffsetVS : TdependNodeVS {
    TcolorAttribute color{"color", "c", TiffTag("EOFC")};
    TattributeFloat shift{"shift", "sh", TiffTag("EOFS")};
    TcolorAttribute outColor{"outColor", "oc", TiffTag("EOFO")};
    // Stands for the sample's uvCoord while the node computes.
    TpairAttribute outUv{"outUv", "ouv", TiffTag("EOFU"), "outU", "ou", TiffTag("EOFX"), "outV", "ov", TiffTag("EOFY")};
    TengineTestOffsetVS() {
        shift.setNativeDefaultData(0.25);
        outColor.setFlag(kAttrWritable, false);
        outUv.whole.setFlag(kAttrWritable, false);
        outUv.whole.setFlag(kAttrComputed | kAttrReadable | kAttrSampleOutput, true);
        outUv.whole.setMatchName(Tstring("uvCoord"));
    }
    bool setupDependencies(TdependencyMatrix& m) override {
        if (!TdependNodeVS::setupDependencies(m)) return false;
        affects(m, {&color.whole, &shift}, {&outColor.whole});
        return true;
    }
};
// outColor = color read at (u + shift, v) minus color read at (u, v): the
// colour input is computed on demand, twice, with the node's outUv standing
// in for the sample's uvCoord.
class TengineTestOffset : public TnodeClass<TengineTestOffset, TrenderNode, TengineTestOffsetVS> {
public:
    static constexpr TnodeClassInfo kInfo{"TengineTestOffset", 9105, "kEngineTestOffset", "engineTestOffset", "EOFF", "utility/test"};
    SN_COLOR_ATTRIBUTE(Color, color)
    SN_ATTRIBUTE(Shift, shift)
    SN_COLOR_ATTRIBUTE(OutColor, outColor)
    SN_PAIR_ATTRIBUTE(OutUv, outUv, U, V)
    TengineCounters counters;

    void analyse(TDNshadingEngine*, TSEnodeDescription* description, void*, TbitField64&) override;

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;
};
