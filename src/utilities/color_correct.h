#pragma once
// Per-channel corrections: clamp, contrast, gamma, reverse and set range.
#include "framework/settling_node.h"
#include "utilities/utility_node.h"

struct TdnVSClampColor : TdependNodeVS {
    TcolorAttribute min{"min", "mn", TiffTag("MIN3")};
    TcolorAttribute max{"max", "mx", TiffTag("MAX3")};
    TcolorAttribute input{"input", "ip", TiffTag("INP3")};
    TcolorAttribute output{"output", "op", TiffTag("OUT3")};
    TdnVSClampColor() { makeOutput(output); }
    bool setupDependencies(TdependencyMatrix& m) override;
};
// Each channel of input held between min and max.
class TdnClampColor : public TnodeClass<TdnClampColor, TsettlingNode<TdnClampColor, TrenderNode>, TdnVSClampColor> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnClampColor", 463, "kClamp");
    SN_COLOR_ATTRIBUTE(Min, min)
    SN_COLOR_ATTRIBUTE(Max, max)
    SN_COLOR_ATTRIBUTE(Input, input)
    SN_COLOR_ATTRIBUTE(Output, output)

    // The bounds are settled per render when nothing drives them.
    template <class F>
    void forEachSettled(F&& f) {
        f(fMin, attrMin());
        f(fMax, attrMax());
    }

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;

private:
    TsettledInput<T3Float> fMin, fMax;
};

struct TdnVSContrast : TdependNodeVS {
    TvectorAttribute value{"value", "v", TiffTag("VALU")};
    TvectorAttribute contrast{"contrast", "c", TiffTag("CONT")};
    TvectorAttribute bias{"bias", "b", TiffTag("BIAS")};
    TvectorAttribute outValue{"outValue", "o", TiffTag("OUTV")};
    TdnVSContrast() {
        contrast.setDefault(2, 2, 2);
        bias.setDefault(0.5f, 0.5f, 0.5f);
        makeOutput(outValue);
    }
    bool setupDependencies(TdependencyMatrix& m) override;
};
// A bias curve then an S-curve of the given contrast around 0.5, per channel.
class TdnContrast : public TnodeClass<TdnContrast, TrenderNode, TdnVSContrast> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnContrast", 464, "kContrast");
    SN_VECTOR_ATTRIBUTE(Value, value)
    SN_VECTOR_ATTRIBUTE(Contrast, contrast)
    SN_VECTOR_ATTRIBUTE(Bias, bias)
    SN_VECTOR_ATTRIBUTE(OutValue, outValue)
    static float sContrast(float value, float contrast, float bias);

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;
};

struct TdnVSGammaCorrect : TdependNodeVS {
    TvectorAttribute value{"value", "v", TiffTag("VALU")};
    TvectorAttribute gamma{"gamma", "g", TiffTag("GAMM")};
    TvectorAttribute outValue{"outValue", "o", TiffTag("OUTV")};
    TdnVSGammaCorrect() {
        gamma.setDefault(1, 1, 1);
        makeOutput(outValue);
    }
    bool setupDependencies(TdependencyMatrix& m) override;
};
// pow(max(value, 0), 1 / gamma) per channel; a gamma of 0 passes the value.
class TdnGammaCorrect : public TnodeClass<TdnGammaCorrect, TrenderNode, TdnVSGammaCorrect> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnGammaCorrect", 465, "kGammaCorrect");
    SN_VECTOR_ATTRIBUTE(Value, value)
    SN_VECTOR_ATTRIBUTE(Gamma, gamma)
    SN_VECTOR_ATTRIBUTE(OutValue, outValue)
    static float sGamma(float value, float gamma);

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;
};

struct TdnVSReverse : TdependNodeVS {
    TvectorAttribute input{"input", "i", TiffTag("INP3")};
    TvectorAttribute output{"output", "o", TiffTag("OUT3")};
    TdnVSReverse() { makeOutput(output); }
    bool setupDependencies(TdependencyMatrix& m) override;
};
// 1 minus each channel.
class TdnReverse : public TnodeClass<TdnReverse, TrenderNode, TdnVSReverse> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnReverse", 466, "kReverse");
    SN_VECTOR_ATTRIBUTE(Input, input)
    SN_VECTOR_ATTRIBUTE(Output, output)

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;
};

struct TdnVSSetRange : TdependNodeVS {
    TvectorAttribute value{"value", "v", TiffTag("VALU")};
    TvectorAttribute min{"min", "n", TiffTag("MINI")};
    TvectorAttribute max{"max", "m", TiffTag("MAXI")};
    TvectorAttribute oldMin{"oldMin", "on", TiffTag("OMN3")};
    TvectorAttribute oldMax{"oldMax", "om", TiffTag("OMX3")};
    TvectorAttribute outValue{"outValue", "o", TiffTag("OUTV")};
    TdnVSSetRange() { makeOutput(outValue); }
    bool setupDependencies(TdependencyMatrix& m) override;
};
// Maps value from oldMin .. oldMax onto min .. max, per channel, clamped.
class TdnSetRange : public TnodeClass<TdnSetRange, TrenderNode, TdnVSSetRange> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnSetRange", 467, "kSetRange");
    SN_VECTOR_ATTRIBUTE(Value, value)
    SN_VECTOR_ATTRIBUTE(Min, min)
    SN_VECTOR_ATTRIBUTE(Max, max)
    SN_VECTOR_ATTRIBUTE(OldMin, oldMin)
    SN_VECTOR_ATTRIBUTE(OldMax, oldMax)
    SN_VECTOR_ATTRIBUTE(OutValue, outValue)
    static float sSetRange(float value, float min, float max, float oldMin, float oldMax);

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;
};
