#pragma once
// Small node classes for the framework tests: a render node that adds and
// scales, with a compound input, an array input and computed outputs.
#include <atomic>

#include "framework/host/attribute_groups.h"
#include "framework/host/node_class.h"
#include "framework/render_node.h"

struct TtestAdderVS : TdependNodeVS {
    TattributeFloat a{"inputA", "ia", TiffTag("INPA")};
    TattributeFloat b{"inputB", "ib", TiffTag("INPB")};
    TcolorAttribute color{"color", "c", TiffTag("COL3")};
    TattributeFloat gain{"gain", "g", TiffTag("GAIN")};
    TattributeFloat values{"values", "vals", TiffTag("VALS")};
    TattributeEnum mode{"mode", "md", TiffTag("MODE")};
    TattributeFloat sum{"sum", "sm", TiffTag("SUMO")};
    TcolorAttribute outColor{"outColor", "oc", TiffTag("OCOL")};
    TattributeFloat total{"total", "tt", TiffTag("TOTL")};
    TtestAdderVS() {
        gain.setNativeDefaultData(2.0);
        gain.setSoftMin(0);
        gain.setSoftMax(10);
        gain.setDisconnectOption(1);
        color.setDefault(0.5f, 0.25f, 1.0f);
        values.setMulti(true);
        mode.addField("add", 0);
        mode.addField("subtract", 1);
        for (Tattribute* o : std::initializer_list<Tattribute*>{&sum, &outColor.whole, &total}) o->setFlag(kAttrWritable, false);
    }
    bool setupDependencies(TdependencyMatrix& m) override {
        if (!TdependNodeVS::setupDependencies(m)) return false;
        affects(m, {&a, &b, &mode}, {&sum});
        affects(m, {&color.whole, &gain}, {&outColor.whole});
        affects(m, {&values}, {&total});
        return true;
    }
};

class TtestAdder : public TnodeClass<TtestAdder, TrenderNode, TtestAdderVS> {
public:
    static constexpr TnodeClassInfo kInfo{"TtestAdder", 9001, "kTestAdder", "testAdder", "TADD", "utility/test"};
    SN_ATTRIBUTE(A, a)
    SN_ATTRIBUTE(B, b)
    SN_COLOR_ATTRIBUTE(Color, color)
    SN_ATTRIBUTE(Gain, gain)
    SN_ATTRIBUTE(Values, values)
    SN_ATTRIBUTE(Mode, mode)
    SN_ATTRIBUTE(Sum, sum)
    SN_COLOR_ATTRIBUTE(OutColor, outColor)
    SN_ATTRIBUTE(Total, total)

    std::atomic<int> computeCount{0};
    std::atomic<int> onDemandCount{0};
    std::atomic<int> initCount{0};
    std::atomic<int> endCount{0};
    bool clearStateAtEnd = true;

    void shadingNodeInit(TframeSampleData*) override { ++initCount; }
    void shadingNodeOnDemand(Tplug&, TdataBlock&) override { ++onDemandCount; }
    void endOfRender(TDNshadingEngine* group) override {
        ++endCount;
        if (clearStateAtEnd) TshadingNode::endOfRender(group);
    }

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;
};

// A second, unrelated class, for metaclass tests.
struct TtestOtherVS : TdependNodeVS {
    TattributeFloat value{"value", "v", TiffTag("VALU")};
    TattributeInt32 count{"count", "cnt", TiffTag("CONT")};
    TattributeMessage message2{"link", "lk", TiffTag("LINK")};
};
class TtestOther : public TnodeClass<TtestOther, TdependNode, TtestOtherVS> {
public:
    static constexpr TnodeClassInfo kInfo{"TtestOther", 9002, "kTestOther", "testOther", "TOTH"};
    SN_ATTRIBUTE(Value, value)
    SN_ATTRIBUTE(Count, count)
};

// Derives from the adder: attributes of the base come first.
struct TtestDerivedVS : TdependNodeVS {
    TattributeFloat extra{"extra", "ex", TiffTag("EXTR")};
    TattributeTyped label{"label", "lb", TiffTag("LABL"), TattributeTyped::Kind::kString};
};
class TtestDerived : public TnodeClass<TtestDerived, TtestAdder, TtestDerivedVS> {
public:
    static constexpr TnodeClassInfo kInfo{"TtestDerived", 9003, "kTestDerived", "testDerived", "TDER"};
    SN_ATTRIBUTE(Extra, extra)
    SN_ATTRIBUTE(Label, label)
};
