#pragma once
// A node class for the scene tests with one attribute of every kind a scene
// file holds: numbers of each width, a boolean, an enumeration, a string,
// matrices, a colour, a compound with a compound child, multis of plain and
// compound values, a computed output, a value that is not stored and a port.
#include "framework/host/attribute_groups.h"
#include "framework/host/node_class.h"

struct TsceneTestNodeVS : TdependNodeVS {
    TattributeFloat gain{"gain", "g", TiffTag("SGAN")};
    TattributeDouble weight{"weight", "w", TiffTag("SWGT")};
    TattributeInt16 steps{"steps", "st", TiffTag("SSTP")};
    TattributeInt32 seed{"seed", "sd", TiffTag("SSED")};
    TattributeChar level{"level", "lv", TiffTag("SLVL")};
    TattributeBoolean enabled{"enabled", "en", TiffTag("SENA")};
    TattributeEnum mode{"mode", "md", TiffTag("SMOD")};
    TattributeTyped fileName{"fileName", "fn", TiffTag("SFIL"), TattributeTyped::Kind::kString};
    TattributeMatrix placement{"placement", "pm", TiffTag("SPLM")};
    TattributeFltMatrix uvMatrix{"uvMatrix", "uvm", TiffTag("SUVM")};
    TcolorAttribute color{"color", "c", TiffTag("SCOL")};
    TattributeFloat values{"values", "vals", TiffTag("SVAL")};
    TcolorAttribute ramp{"ramp", "rp", TiffTag("SRMP")};
    TattributeCompound layer{"layer", "ly", TiffTag("SLAY")};
    TcolorAttribute layerColor{"layerColor", "lc", TiffTag("SLCO")};
    TattributeBoolean layerVisible{"layerVisible", "lvi", TiffTag("SLVI")};
    TattributeFloat layerOpacity{"layerOpacity", "lop", TiffTag("SLOP")};
    Tattribute2Float offset{"offset", "of", TiffTag("SOFF")};
    TattributeFloat outValue{"outValue", "ov", TiffTag("SOUT")};
    TattributeFloat scratch{"scratch", "scr", TiffTag("SSCR")};
    TattributeTyped input{"input", "in", TiffTag("SINP")};

    TsceneTestNodeVS() {
        gain.setNativeDefaultData(1.0);
        enabled.setNativeDefaultData(1.0);
        mode.addField("add", "Add", 0);
        mode.addField("multiply", "Multiply", 3);
        mode.addField("screen", "Screen", 7);
        mode.setNativeDefaultData(3.0);
        fileName.setNativeDefaultData(Tstring("default.png"));
        color.setDefault(0.5f, 0.25f, 1.0f);
        values.setMulti(true);
        ramp.whole.setMulti(true);
        layerColor.whole.setParent(&layer);
        layerVisible.setParent(&layer);
        layerOpacity.setParent(&layer);
        layerVisible.setNativeDefaultData(1.0);
        layerOpacity.setNativeDefaultData(1.0);
        outValue.setFlag(kAttrWritable, false);
        scratch.setFlag(kAttrStorable, false);
        input.setFlag(kAttrStorable, false);
    }
    bool setupDependencies(TdependencyMatrix& m) override {
        if (!TdependNodeVS::setupDependencies(m)) return false;
        affects(m, {&gain, &weight}, {&outValue});
        return true;
    }
};

class TsceneTestNode : public TnodeClass<TsceneTestNode, TdependNode, TsceneTestNodeVS> {
public:
    static constexpr TnodeClassInfo kInfo{"TsceneTestNode", 9101, "kSceneTestNode", "sceneTestNode", "STST", "utility/test"};
    SN_ATTRIBUTE(Gain, gain)
    SN_ATTRIBUTE(Weight, weight)
    SN_ATTRIBUTE(Steps, steps)
    SN_ATTRIBUTE(Seed, seed)
    SN_ATTRIBUTE(Level, level)
    SN_ATTRIBUTE(Enabled, enabled)
    SN_ATTRIBUTE(Mode, mode)
    SN_ATTRIBUTE(FileName, fileName)
    SN_ATTRIBUTE(Placement, placement)
    SN_ATTRIBUTE(UvMatrix, uvMatrix)
    SN_COLOR_ATTRIBUTE(Color, color)
    SN_ATTRIBUTE(Values, values)
    SN_COLOR_ATTRIBUTE(Ramp, ramp)
    SN_ATTRIBUTE(Layer, layer)
    SN_COLOR_ATTRIBUTE(LayerColor, layerColor)
    SN_ATTRIBUTE(LayerVisible, layerVisible)
    SN_ATTRIBUTE(LayerOpacity, layerOpacity)
    SN_ATTRIBUTE(Offset, offset)
    SN_ATTRIBUTE(OutValue, outValue)
    SN_ATTRIBUTE(Scratch, scratch)
    SN_ATTRIBUTE(Input, input)

    // outValue = gain * weight
    bool computePlug(const Tplug& plug, TdataBlock& block) override;
};

// A scene file of one such node named "n" holding `attributes` (JSON members).
#include <string>
inline std::string sceneTestNodeFile(const std::string& attributes) {
    return R"({"nodes": [{"type": "sceneTestNode", "name": "n", "attributes": {)" + attributes + "}}]}";
}
