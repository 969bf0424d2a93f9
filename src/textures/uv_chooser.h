#pragma once
// TdnUvChooser: picks which of a shape's UV sets a placement reads. The
// shape's own set arrives as the sample's uvCoord and vertex UVs; another
// set arrives through the st inputs, connected from the shape. The names
// of the sets the chooser stands for are kept in uvSets. The choice is
// resolved once per render (at analysis) and copied per sample.
#include "framework/host/attribute_groups.h"
#include "framework/host/node_class.h"
#include "framework/node_registry.h"
#include "framework/render_node.h"

struct TdnVSUvChooser : TdependNodeVS {
    TpairAttribute stCoord{"stCoord", "st", TiffTag("STPT"), "sCoord", "s", TiffTag("SPNT"), "tCoord", "t", TiffTag("TPNT")};
    Tattribute2Float vertexStOne{"vertexStOne", "vs1", TiffTag("VXS1")};
    Tattribute2Float vertexStTwo{"vertexStTwo", "vs2", TiffTag("VXS2")};
    Tattribute2Float vertexStThree{"vertexStThree", "vs3", TiffTag("VXS3")};
    TattributeTyped uvSets{"uvSets", "uvs", TiffTag("UVST"), TattributeTyped::Kind::kString};
    TpairAttribute uvCoord{"uvCoord", "uv", TiffTag("UVPT"), "uCoord", "u", TiffTag("UPNT"), "vCoord", "v", TiffTag("VPNT")};
    Tattribute2Float vertexUvOne{"vertexUvOne", "vt1", TiffTag("VXT1")};
    Tattribute2Float vertexUvTwo{"vertexUvTwo", "vt2", TiffTag("VXT2")};
    Tattribute2Float vertexUvThree{"vertexUvThree", "vt3", TiffTag("VXT3")};
    Tattribute3Float vertexCameraOne{"vertexCameraOne", "vc1", TiffTag("VXC1")};
    TattributeInt32 infoBits{"infoBits", "ib", TiffTag("INFO")};
    TpairAttribute outUv{"outUv", "ouv", TiffTag("OUV2"), "outU", "ou", TiffTag("OUTU"), "outV", "ov", TiffTag("OUTV")};
    Tattribute2Float outVertexUvOne{"outVertexUvOne", "ov1", TiffTag("OVT1")};
    Tattribute2Float outVertexUvTwo{"outVertexUvTwo", "ov2", TiffTag("OVT2")};
    Tattribute2Float outVertexUvThree{"outVertexUvThree", "ov3", TiffTag("OVT3")};
    Tattribute3Float outVertexCameraOne{"outVertexCameraOne", "oc1", TiffTag("OVC1")};
    TdnVSUvChooser();
    bool setupDependencies(TdependencyMatrix& m) override;
};

class TdnUvChooser : public TnodeClass<TdnUvChooser, TrenderNode, TdnVSUvChooser> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnUvChooser", 784, "kUvChooser");
    enum Source : int { kUnresolved = -1, kShapeSet = 0, kConnectedSet = 1 };

    SN_PAIR_ATTRIBUTE(StCoord, stCoord, S, T)
    SN_ATTRIBUTE(VertexStOne, vertexStOne)
    SN_ATTRIBUTE(VertexStTwo, vertexStTwo)
    SN_ATTRIBUTE(VertexStThree, vertexStThree)
    SN_ATTRIBUTE(UvSets, uvSets)
    SN_PAIR_ATTRIBUTE(UvCoord, uvCoord, U, V)
    SN_ATTRIBUTE(VertexUvOne, vertexUvOne)
    SN_ATTRIBUTE(VertexUvTwo, vertexUvTwo)
    SN_ATTRIBUTE(VertexUvThree, vertexUvThree)
    SN_ATTRIBUTE(VertexCameraOne, vertexCameraOne)
    SN_ATTRIBUTE(InfoBits, infoBits)
    SN_PAIR_ATTRIBUTE(OutUv, outUv, U, V)
    SN_ATTRIBUTE(OutVertexUvOne, outVertexUvOne)
    SN_ATTRIBUTE(OutVertexUvTwo, outVertexUvTwo)
    SN_ATTRIBUTE(OutVertexUvThree, outVertexUvThree)
    SN_ATTRIBUTE(OutVertexCameraOne, outVertexCameraOne)

    // Whether a shape's other UV set reaches this chooser: the st inputs
    // are connected.
    bool isShapeConnected() const;
    // The source the outputs copy from; resolved on first use in a render.
    Source source();

    void analyse(TDNshadingEngine*, TSEnodeDescription*, void*, TbitField64&) override { fSource = resolve(); }
    void shadingNodeInit(TframeSampleData*) override { fSource = resolve(); }
    void endOfRender(TDNshadingEngine* group) override;

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;

private:
    Source resolve() const { return isShapeConnected() ? kConnectedSet : kShapeSet; }
    Source fSource = kUnresolved;
};
