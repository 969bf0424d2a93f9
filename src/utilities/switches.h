#pragma once
// Shading switches: per sample, the value of the `input` element whose
// `inShape` is connected to the sample's object, or `default` when none is.
// The sample's object arrives in the hidden `objectId`: the render group
// (TrenderGroupBase) that shades it, whose path names the shape and its
// transforms. A scalar pull uses whatever group that attribute holds.
#include "utilities/utility_node.h"

struct TdnVSBaseSwitch : TdependNodeVS {
    TattributeAddr objectId{"objectId", "oid", TiffTag("OBJI")};
    TdnVSBaseSwitch() {
        objectId.setFlag(kAttrHidden, true);
        objectId.setFlag(kAttrStorable, false);
    }
};

class TdnBaseSwitch : public TnodeClass<TdnBaseSwitch, TrenderNode, TdnVSBaseSwitch> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnBaseSwitch", 480, "kBaseShadingSwitch", true);
    SN_ATTRIBUTE(ObjectId, objectId)
    // Index of the element of `input` whose `inShape` comes from the shape
    // of `group` (a TrenderGroupBase), or else from the nearest of its
    // transforms; -1 for none.
    int elementFor(const Tattribute& input, const Tattribute& shape, const void* group) const;

protected:
    // Copies into `output`, per run of samples of one object, the chosen
    // element's `value` (a child of `input`) or `fallback`; only the chosen
    // element is read for a run.
    bool switchRuns(TdataBlock& block, const Tattribute& input, const Tattribute& shape, const Tattribute& value,
                    const Tattribute& fallback, const Tattribute& output, unsigned first, unsigned count);
};

struct TdnVSSingleSwitch : TdependNodeVS {
    TattributeCompound input{"input", "i", TiffTag("INPT")};
    TattributeFloat inSingle{"inSingle", "it", TiffTag("INPC")};
    TattributeMessage inShape{"inShape", "is", TiffTag("INPS")};
    TattributeFloat fallback{"default", "def", TiffTag("DFLT")};
    TattributeFloat output{"output", "out", TiffTag("OUTP")};
    TdnVSSingleSwitch();
    bool setupDependencies(TdependencyMatrix& m) override;
};

struct TdnVSDoubleSwitch : TdependNodeVS {
    TattributeCompound input{"input", "i", TiffTag("INPT")};
    TpairAttribute inDouble{"inDouble", "idl", TiffTag("INPD"), "inComp1", "ic1", TiffTag("INP1"), "inComp2", "ic2", TiffTag("INP2")};
    TattributeMessage inShape{"inShape", "is", TiffTag("INPS")};
    TpairAttribute fallback{"default", "def", TiffTag("DFLT"), "defComp1", "dc1", TiffTag("DFL1"), "defComp2", "dc2", TiffTag("DFL2")};
    TpairAttribute output{"output", "out", TiffTag("OUTP"), "outComp1", "oc1", TiffTag("OUT1"), "outComp2", "oc2", TiffTag("OUT2")};
    TdnVSDoubleSwitch();
    bool setupDependencies(TdependencyMatrix& m) override;
};

struct TdnVSTripleSwitch : TdependNodeVS {
    TattributeCompound input{"input", "i", TiffTag("INPT")};
    TcolorAttribute inTriple{"inTriple", "it", TiffTag("INPC")};
    TattributeMessage inShape{"inShape", "is", TiffTag("INPS")};
    TcolorAttribute fallback{"default", "def", TiffTag("DFLT")};
    TcolorAttribute output{"output", "out", TiffTag("OUTP")};
    TdnVSTripleSwitch();
    bool setupDependencies(TdependencyMatrix& m) override;
};

struct TdnVSQuadSwitch : TdependNodeVS {
    TattributeCompound input{"input", "i", TiffTag("INPT")};
    TattributeCompound inQuad{"inQuad", "iq", TiffTag("IQUA")};
    TcolorAttribute inTriple{"inTriple", "itr", TiffTag("ITRI")};
    TattributeFloat inSingle{"inSingle", "isi", TiffTag("ISIN")};
    TattributeMessage inShape{"inShape", "is", TiffTag("INPS")};
    TattributeCompound fallback{"default", "def", TiffTag("DFLT")};
    TcolorAttribute defTriple{"defTriple", "dtr", TiffTag("DTRI")};
    TattributeFloat defSingle{"defSingle", "dsi", TiffTag("DSIN")};
    TattributeCompound output{"output", "out", TiffTag("OUTP")};
    TcolorAttribute outTriple{"outTriple", "otr", TiffTag("OTRI")};
    TattributeFloat outSingle{"outSingle", "osi", TiffTag("OSIN")};
    TdnVSQuadSwitch();
    bool setupDependencies(TdependencyMatrix& m) override;
};

// One switch class: its value attribute, default and output, and the compute
// that hands them to switchRuns.
#define SN_SWITCH_CLASS(Class, Vs, Api, ApiName, valueMember, defaultMember, outputMember)                              \
    class Class : public TnodeClass<Class, TdnBaseSwitch, Vs> {                                                         \
    public:                                                                                                             \
        static constexpr TnodeClassInfo kInfo = renderNodeInfo(#Class, Api, ApiName);                                   \
        SN_ATTRIBUTE(Input, input)                                                                                      \
        SN_ATTRIBUTE(InShape, inShape)                                                                                  \
        SN_ATTRIBUTE(InValue, valueMember)                                                                              \
        SN_ATTRIBUTE(Default, defaultMember)                                                                            \
        SN_ATTRIBUTE(Output, outputMember)                                                                              \
                                                                                                                        \
    protected:                                                                                                          \
        bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override {         \
            if (plug.attribute()->rootParent() != &attrOutput())                                                        \
                return TdnBaseSwitch::vectorComputePlug(plug, block, first, count);                                     \
            return switchRuns(block, attrInput(), attrInShape(), attrInValue(), attrDefault(), attrOutput(), first, count); \
        }                                                                                                               \
    };

SN_SWITCH_CLASS(TdnSingleSwitch, TdnVSSingleSwitch, 481, "kSingleShadingSwitch", inSingle, fallback, output)
SN_SWITCH_CLASS(TdnDoubleSwitch, TdnVSDoubleSwitch, 482, "kDoubleShadingSwitch", inDouble.whole, fallback.whole, output.whole)
SN_SWITCH_CLASS(TdnTripleSwitch, TdnVSTripleSwitch, 483, "kTripleShadingSwitch", inTriple.whole, fallback.whole, output.whole)
SN_SWITCH_CLASS(TdnQuadSwitch, TdnVSQuadSwitch, 479, "kQuadShadingSwitch", inQuad, fallback, output)
#undef SN_SWITCH_CLASS
