#pragma once
// Blend of two colours by a weight; each colour computes only for the
// samples whose weight needs it.
#include "framework/settling_node.h"
#include "utilities/utility_node.h"

struct TdnVSBlendColors : TdependNodeVS {
    TattributeFloat blender{"blender", "b", TiffTag("BLND")};
    TcolorAttribute color1{"color1", "c1", TiffTag("COL1")};
    TcolorAttribute color2{"color2", "c2", TiffTag("COL2")};
    TcolorAttribute output{"output", "op", TiffTag("OUT3")};
    TdnVSBlendColors() {
        blender.setNativeDefaultData(0.5);
        blender.setSoftMin(0);
        blender.setSoftMax(1);
        color1.setDefault(1, 1, 1);
        makeOutput(output);
    }
    bool setupDependencies(TdependencyMatrix& m) override;
};

// output = color1 * b + color2 * (1 - b); at b of 1 only color1 is read,
// at 0 only color2.
class TdnBlendColors : public TnodeClass<TdnBlendColors, TsettlingNode<TdnBlendColors, TrenderNode>, TdnVSBlendColors> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnBlendColors", 451, "kBlendColors");
    SN_ATTRIBUTE(Blender, blender)
    SN_COLOR_ATTRIBUTE(Color1, color1)
    SN_COLOR_ATTRIBUTE(Color2, color2)
    SN_COLOR_ATTRIBUTE(Output, output)

    void analyse(TDNshadingEngine*, TSEnodeDescription* description, void*, TbitField64&) override;
    // The blender and each colour are settled per render when nothing drives them.
    template <class F>
    void forEachSettled(F&& f) {
        f(fBlender, attrBlender());
        f(fColor1, attrColor1());
        f(fColor2, attrColor2());
    }

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;

private:
    TsettledInput<float> fBlender;
    TsettledInput<T3Float> fColor1, fColor2;
};
