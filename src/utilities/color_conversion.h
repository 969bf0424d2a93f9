#pragma once
// Colour conversions: HSV to RGB, RGB to HSV (hue in degrees), luminance.
#include "utilities/utility_node.h"

struct TdnVSHsvToRgb : TdependNodeVS {
    TtripleAttribute inHsv{"inHsv", "i", TiffTag("INC3"), "RGB"};
    TtripleAttribute outRgb{"outRgb", "o", TiffTag("OUT3"), "RGB"};
    TdnVSHsvToRgb() { makeOutput(outRgb); }
    bool setupDependencies(TdependencyMatrix& m) override;
};
class TdnHsvToRgb : public TnodeClass<TdnHsvToRgb, TrenderNode, TdnVSHsvToRgb> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnHsvToRgb", 460, "kHsvToRgb");
    SN_COLOR_ATTRIBUTE(InHsv, inHsv)
    SN_COLOR_ATTRIBUTE(OutRgb, outRgb)

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;
};

struct TdnVSRgbToHsv : TdependNodeVS {
    TtripleAttribute inRgb{"inRgb", "i", TiffTag("INC3"), "RGB"};
    TtripleAttribute outHsv{"outHsv", "o", TiffTag("OUT3"), "RGB"};
    TdnVSRgbToHsv() { makeOutput(outHsv); }
    bool setupDependencies(TdependencyMatrix& m) override;
};
class TdnRgbToHsv : public TnodeClass<TdnRgbToHsv, TrenderNode, TdnVSRgbToHsv> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnRgbToHsv", 461, "kRgbToHsv");
    SN_COLOR_ATTRIBUTE(InRgb, inRgb)
    SN_COLOR_ATTRIBUTE(OutHsv, outHsv)

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;
};

struct TdnVSLuminance : TdependNodeVS {
    TcolorAttribute value{"value", "v", TiffTag("VALU")};
    TattributeFloat outValue{"outValue", "o", TiffTag("OUTV")};
    TdnVSLuminance() { makeOutput(outValue); }
    bool setupDependencies(TdependencyMatrix& m) override;
};
class TdnLuminance : public TnodeClass<TdnLuminance, TrenderNode, TdnVSLuminance> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnLuminance", 462, "kLuminance");
    SN_COLOR_ATTRIBUTE(Value, value)
    SN_ATTRIBUTE(OutValue, outValue)

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;
};
