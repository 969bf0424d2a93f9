#pragma once
// Remapping through painted curves: a value to a value and a colour, a
// colour per channel, and a colour per HSV channel.
#include <string>

#include "utilities/utility_node.h"

// One key of a curve as read from its multi: position, value (one channel
// for a float curve, three for a colour curve) and interpolation to the next.
struct TcurveKey {
    enum Interp : short { kNone, kLinear, kSmooth, kSpline };
    float position;
    T3Float value;
    short interp;
};

// Up to kMaxKeys keys, sorted by position.
struct TcurveKeys {
    static constexpr unsigned kMaxKeys = 64;
    TcurveKey keys[kMaxKeys];
    unsigned count = 0;
    void sort();
    // The curve at t, channel by channel; with no keys the curve is t itself.
    float evaluate(float t, int channel) const;
    T3Float evaluate3(float t) const { return {evaluate(t, 0), evaluate(t, 1), evaluate(t, 2)}; }
};

// A float curve: multi `name` of `name_Position`, `name_FloatValue`, `name_Interp`.
struct TfloatCurveAttribute {
    TfloatCurveAttribute(const char* name, const char* shortName, TiffTag tag);
    // With the children's tags given, where the derived ones would repeat a tag of the node.
    TfloatCurveAttribute(const char* name, const char* shortName, TiffTag tag, TiffTag positionTag, TiffTag valueTag, TiffTag interpTag);
    TattributeCompound whole;
    TattributeFloat position;
    TattributeFloat floatValue;
    TattributeEnum interp;
    // The keys as sample `sample` sees them; returns whether they may differ
    // from sample to sample (an element is driven per sample).
    bool read(TdataBlock& block, TcurveKeys& keys, unsigned sample = 0) const;
};

// A colour curve: multi `name` of `name_Position`, `name_Color`, `name_Interp`.
struct TcolorCurveAttribute {
    TcolorCurveAttribute(const char* name, const char* shortName, TiffTag tag);
    // With the children's tags given, where the derived ones would repeat a tag of the node.
    TcolorCurveAttribute(const char* name, const char* shortName, TiffTag tag, TiffTag positionTag, TiffTag colorTag, TiffTag interpTag);
    TattributeCompound whole;
    TattributeFloat position;
    TcolorAttribute color;
    TattributeEnum interp;
    // The keys as sample `sample` sees them; returns whether they may differ
    // from sample to sample (an element is driven per sample).
    bool read(TdataBlock& block, TcurveKeys& keys, unsigned sample = 0) const;
};

// The input and output ranges every remap node has.
struct TremapRange {
    TattributeFloat inputMin{"inputMin", "imn", TiffTag("IMIN")};
    TattributeFloat inputMax{"inputMax", "imx", TiffTag("IMAX")};
    TattributeFloat outputMin{"outputMin", "omn", TiffTag("OMIN")};
    TattributeFloat outputMax{"outputMax", "omx", TiffTag("OMAX")};
    TremapRange() {
        inputMax.setNativeDefaultData(1.0);
        outputMax.setNativeDefaultData(1.0);
    }
    // Where x lies in inputMin .. inputMax; equal bounds give a step at them.
    static float sParameter(float x, float inMin, float inMax) {
        return inMax != inMin ? (x - inMin) / (inMax - inMin) : (x >= inMin ? 1.0f : 0.0f);
    }
    static float sOutput(float curve, float outMin, float outMax) { return outMin + curve * (outMax - outMin); }
};

struct TdnVSRemapValue : TdependNodeVS {
    TattributeFloat inputValue{"inputValue", "i", TiffTag("INPV")};
    TremapRange range;
    TfloatCurveAttribute value{"value", "vl", TiffTag("VALU")};
    TcolorCurveAttribute color{"color", "cl", TiffTag("COLO")};
    TattributeFloat outValue{"outValue", "ov", TiffTag("OUTV")};
    TcolorAttribute outColor{"outColor", "oc", TiffTag("OUTC")};
    TdnVSRemapValue() {
        makeOutput(outValue);
        makeOutput(outColor);
    }
    bool setupDependencies(TdependencyMatrix& m) override;
};
class TdnRemapValue : public TnodeClass<TdnRemapValue, TrenderNode, TdnVSRemapValue> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnRemapValue", 475, "kRemapValue");
    SN_ATTRIBUTE(InputValue, inputValue)
    SN_ATTRIBUTE(InputMin, range.inputMin)
    SN_ATTRIBUTE(InputMax, range.inputMax)
    SN_ATTRIBUTE(OutputMin, range.outputMin)
    SN_ATTRIBUTE(OutputMax, range.outputMax)
    SN_ATTRIBUTE(Value, value.whole)
    SN_ATTRIBUTE(ValuePosition, value.position)
    SN_ATTRIBUTE(ValueFloatValue, value.floatValue)
    SN_ATTRIBUTE(ValueInterp, value.interp)
    SN_ATTRIBUTE(Color, color.whole)
    SN_ATTRIBUTE(ColorPosition, color.position)
    SN_ATTRIBUTE(ColorColor, color.color.whole)
    SN_ATTRIBUTE(ColorInterp, color.interp)
    SN_ATTRIBUTE(OutValue, outValue)
    SN_COLOR_ATTRIBUTE(OutColor, outColor)

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;
};

struct TdnVSRemapColor : TdependNodeVS {
    TcolorAttribute color{"color", "cl", TiffTag("COLO")};
    TremapRange range;
    TfloatCurveAttribute red{"red", "r", TiffTag("REDC")};
    TfloatCurveAttribute green{"green", "g", TiffTag("GRNC")};
    TfloatCurveAttribute blue{"blue", "b", TiffTag("BLUC")};
    TcolorAttribute outColor{"outColor", "oc", TiffTag("OUTC")};
    TdnVSRemapColor() {
        color.setDefault(0.5f, 0.5f, 0.5f);
        makeOutput(outColor);
    }
    bool setupDependencies(TdependencyMatrix& m) override;
};
class TdnRemapColor : public TnodeClass<TdnRemapColor, TrenderNode, TdnVSRemapColor> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnRemapColor", 476, "kRemapColor");
    SN_COLOR_ATTRIBUTE(Color, color)
    SN_ATTRIBUTE(InputMin, range.inputMin)
    SN_ATTRIBUTE(InputMax, range.inputMax)
    SN_ATTRIBUTE(OutputMin, range.outputMin)
    SN_ATTRIBUTE(OutputMax, range.outputMax)
    SN_ATTRIBUTE(Red, red.whole)
    SN_ATTRIBUTE(RedPosition, red.position)
    SN_ATTRIBUTE(RedFloatValue, red.floatValue)
    SN_ATTRIBUTE(RedInterp, red.interp)
    SN_ATTRIBUTE(Green, green.whole)
    SN_ATTRIBUTE(Blue, blue.whole)
    SN_COLOR_ATTRIBUTE(OutColor, outColor)

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;
};

struct TdnVSRemapHsv : TdependNodeVS {
    TcolorAttribute color{"color", "cl", TiffTag("COLO")};
    TremapRange range;
    TfloatCurveAttribute hue{"hue", "h", TiffTag("HUEC")};
    TfloatCurveAttribute saturation{"saturation", "s", TiffTag("SATC")};
    TfloatCurveAttribute value{"value", "v", TiffTag("VALC")};
    TcolorAttribute outColor{"outColor", "oc", TiffTag("OUTC")};
    TdnVSRemapHsv() {
        color.setDefault(0.5f, 0.5f, 0.5f);
        makeOutput(outColor);
    }
    bool setupDependencies(TdependencyMatrix& m) override;
};
// Hue enters its curve as a fraction of a turn (0 to 1) and leaves it so.
class TdnRemapHsv : public TnodeClass<TdnRemapHsv, TrenderNode, TdnVSRemapHsv> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnRemapHsv", 477, "kRemapHsv");
    SN_COLOR_ATTRIBUTE(Color, color)
    SN_ATTRIBUTE(InputMin, range.inputMin)
    SN_ATTRIBUTE(InputMax, range.inputMax)
    SN_ATTRIBUTE(OutputMin, range.outputMin)
    SN_ATTRIBUTE(OutputMax, range.outputMax)
    SN_ATTRIBUTE(Hue, hue.whole)
    SN_ATTRIBUTE(HuePosition, hue.position)
    SN_ATTRIBUTE(HueFloatValue, hue.floatValue)
    SN_ATTRIBUTE(HueInterp, hue.interp)
    SN_ATTRIBUTE(Saturation, saturation.whole)
    SN_ATTRIBUTE(Value, value.whole)
    SN_COLOR_ATTRIBUTE(OutColor, outColor)

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;
};
