#pragma once
// A per-sample choice between two colours by comparing two terms; each
// colour computes only for the samples that choose it.
#include "framework/settling_node.h"
#include "utilities/utility_node.h"

struct TdnVSCondition : TdependNodeVS {
    TattributeEnum operation{"operation", "op", TiffTag("OPER")};
    TattributeFloat firstTerm{"firstTerm", "ft", TiffTag("FRST")};
    TattributeFloat secondTerm{"secondTerm", "st", TiffTag("SCND")};
    TcolorAttribute colorIfTrue{"colorIfTrue", "ct", TiffTag("IN13")};
    TcolorAttribute colorIfFalse{"colorIfFalse", "cf", TiffTag("IN23")};
    TcolorAttribute outColor{"outColor", "oc", TiffTag("OUT3")};
    TdnVSCondition() {
        addFields(operation, {{"kEqual", "Equal"},
                              {"kNotEqual", "Not Equal"},
                              {"kGreaterThan", "Greater Than"},
                              {"kGreaterEqual", "Greater or Equal"},
                              {"kLessThan", "Less Than"},
                              {"kLessEqual", "Less or Equal"}});
        colorIfFalse.setDefault(1, 1, 1);
        makeOutput(outColor);
    }
    bool setupDependencies(TdependencyMatrix& m) override;
};

class TdnCondition : public TnodeClass<TdnCondition, TsettlingNode<TdnCondition, TrenderNode>, TdnVSCondition> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnCondition", 452, "kCondition");
    enum Operation : short { kEqual, kNotEqual, kGreaterThan, kGreaterEqual, kLessThan, kLessEqual };
    SN_ATTRIBUTE(Operation, operation)
    SN_ATTRIBUTE(FirstTerm, firstTerm)
    SN_ATTRIBUTE(SecondTerm, secondTerm)
    SN_COLOR_ATTRIBUTE(ColorIfTrue, colorIfTrue)
    SN_COLOR_ATTRIBUTE(ColorIfFalse, colorIfFalse)
    SN_COLOR_ATTRIBUTE(OutColor, outColor)

    // The comparison; "equal" allows 1e-05 either way.
    static bool sTest(short operation, float first, float second);
    void analyse(TDNshadingEngine*, TSEnodeDescription* description, void*, TbitField64&) override;
    // The operation and the second term are settled per render when nothing drives them.
    template <class F>
    void forEachSettled(F&& f) {
        f(fOperation, attrOperation());
        f(fSecondTerm, attrSecondTerm());
    }

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;

private:
    TsettledInput<short> fOperation;
    TsettledInput<float> fSecondTerm;
};
