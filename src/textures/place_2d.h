#pragma once
// TdnPlace2dTx: turns a surface UV into a texture UV. Noise, the frame
// (rotation, coverage, translation, wrap), repeat and offset, then stagger,
// mirror and the rotation of the UV. A sample that falls outside the frame
// gets kOutsideUv in both coordinates, which the texture turns into its
// default colour.
#include "framework/host/attribute_groups.h"
#include "framework/host/node_class.h"
#include "framework/node_registry.h"
#include "framework/render_node.h"
#include "framework/settling_node.h"

struct TdnVSPlace2dTx : TdependNodeVS {
    TpairAttribute uvCoord{"uvCoord", "uv", TiffTag("UVPT"), "uCoord", "u", TiffTag("UPNT"), "vCoord", "v", TiffTag("VPNT")};
    Tattribute2Float vertexUvOne{"vertexUvOne", "vt1", TiffTag("VXT1")};
    Tattribute2Float vertexUvTwo{"vertexUvTwo", "vt2", TiffTag("VXT2")};
    Tattribute2Float vertexUvThree{"vertexUvThree", "vt3", TiffTag("VXT3")};
    Tattribute3Float vertexCameraOne{"vertexCameraOne", "vc1", TiffTag("VXC1")};
    TpairAttribute uvFilterSize{"uvFilterSize", "fs", TiffTag("FSZE"), "uvFilterSizeX", "fsx", TiffTag("FSZX"),
                                "uvFilterSizeY", "fsy", TiffTag("FSZY")};
    TpairAttribute coverage{"coverage", "c", TiffTag("CVRG"), "coverageU", "cu", TiffTag("CVRU"), "coverageV", "cv", TiffTag("CVRV")};
    TpairAttribute translateFrame{"translateFrame", "tf", TiffTag("TFR2"), "translateFrameU", "tfu", TiffTag("TFRU"),
                                  "translateFrameV", "tfv", TiffTag("TFRV")};
    TattributeDoubleAngle rotateFrame{"rotateFrame", "rf", TiffTag("RFRM")};
    TattributeBoolean mirrorU{"mirrorU", "mu", TiffTag("MIRU")};
    TattributeBoolean mirrorV{"mirrorV", "mv", TiffTag("MIRV")};
    TattributeBoolean stagger{"stagger", "s", TiffTag("STAG")};
    TattributeBoolean wrapU{"wrapU", "wu", TiffTag("WRPU")};
    TattributeBoolean wrapV{"wrapV", "wv", TiffTag("WRPV")};
    TpairAttribute repeatUV{"repeatUV", "re", TiffTag("REP2"), "repeatU", "reu", TiffTag("REPU"), "repeatV", "rev", TiffTag("REPV")};
    TpairAttribute offset{"offset", "of", TiffTag("OFST"), "offsetU", "ofu", TiffTag("OFSU"), "offsetV", "ofv", TiffTag("OFSV")};
    TattributeDoubleAngle rotateUV{"rotateUV", "r", TiffTag("ROTA")};
    TpairAttribute noiseUV{"noiseUV", "n", TiffTag("NSE2"), "noiseU", "nu", TiffTag("NSEU"), "noiseV", "nv", TiffTag("NSEV")};
    TattributeBoolean fast{"fast", "fa", TiffTag("FAST")};
    TpairAttribute outUV{"outUV", "o", TiffTag("OUUV"), "outU", "ou", TiffTag("OUTU"), "outV", "ov", TiffTag("OUTV")};
    TpairAttribute outUvFilterSize{"outUvFilterSize", "ofs", TiffTag("OFSZ"), "outUvFilterSizeX", "ofsx", TiffTag("OFSX"),
                                   "outUvFilterSizeY", "ofsy", TiffTag("OFSY")};
    TattributeBoolean doTransform{"doTransform", "do", TiffTag("DOTR")};

    TdnVSPlace2dTx();
    bool setupDependencies(TdependencyMatrix& m) override;
};

// The placement values one sample is mapped with.
struct Tplace2dParams {
    T2Float coverage{1, 1}, translate{0, 0}, repeat{1, 1}, offset{0, 0}, noise{0, 0};
    double rotateFrame = 0, rotateUV = 0;
    bool mirrorU = false, mirrorV = false, stagger = false, wrapU = true, wrapV = true;
};

class TdnPlace2dTx : public TnodeClass<TdnPlace2dTx, TsettlingNode<TdnPlace2dTx, TrenderNode>, TdnVSPlace2dTx> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnPlace2dTx", 484, "kPlace2dTexture");
    // 1 in a coordinate becomes the float just below it that the frame keeps
    // inside; the bits are part of the behaviour.
    static constexpr uint32_t kAlmostOneBits = 0x3F7FF972;
    // The filter width of a unit repeat over a unit coverage, for baking.
    static constexpr float kBakeFilterScale = 0.002604f;

    SN_PAIR_ATTRIBUTE(UvCoord, uvCoord, U, V)
    SN_ATTRIBUTE(VertexUvOne, vertexUvOne)
    SN_ATTRIBUTE(VertexUvTwo, vertexUvTwo)
    SN_ATTRIBUTE(VertexUvThree, vertexUvThree)
    SN_ATTRIBUTE(VertexCameraOne, vertexCameraOne)
    SN_PAIR_ATTRIBUTE(UvFilterSize, uvFilterSize, X, Y)
    SN_PAIR_ATTRIBUTE(Coverage, coverage, U, V)
    SN_PAIR_ATTRIBUTE(TranslateFrame, translateFrame, U, V)
    SN_ATTRIBUTE(RotateFrame, rotateFrame)
    SN_ATTRIBUTE(MirrorU, mirrorU)
    SN_ATTRIBUTE(MirrorV, mirrorV)
    SN_ATTRIBUTE(Stagger, stagger)
    SN_ATTRIBUTE(WrapU, wrapU)
    SN_ATTRIBUTE(WrapV, wrapV)
    SN_PAIR_ATTRIBUTE(RepeatUV, repeatUV, U, V)
    SN_PAIR_ATTRIBUTE(Offset, offset, U, V)
    SN_ATTRIBUTE(RotateUV, rotateUV)
    SN_PAIR_ATTRIBUTE(NoiseUV, noiseUV, U, V)
    SN_ATTRIBUTE(Fast, fast)
    SN_PAIR_ATTRIBUTE(OutUV, outUV, U, V)
    SN_PAIR_ATTRIBUTE(OutUvFilterSize, outUvFilterSize, X, Y)
    SN_ATTRIBUTE(DoTransform, doTransform)

    // Maps one UV; false, with both outputs at kOutsideUv, for a sample
    // outside the frame. A sample already outside, or a coverage of 0,
    // passes through unchanged (and counts as inside).
    static bool sMapUV(const Tplace2dParams& p, float u, float v, float& outU, float& outV);
    // Maps lists of UVs, and gives the filter width of the mapping.
    void mapToTxUV(const TdoubleArray& u, const TdoubleArray& v, TdoubleArray& outU, TdoubleArray& outV, T2Float& filter);
    // False only for a placement that leaves every UV where it is.
    static bool computeDoTransform(const Tplace2dParams& p);
    // How far a step along u, and one along v, of the incoming UV carries the
    // outgoing one, away from the frame's edges and without noise.
    static T2Float sStretch(const Tplace2dParams& p);
    // Whether any input of the placement (not the UV) is driven.
    bool placementDriven() const;
    // The placement's values as stored on the node.
    Tplace2dParams params();

    // Accessors.
    double rotateFrame() { return params().rotateFrame; }
    T2Float getRepeatUV() { return params().repeat; }
    T2Float getOffsetUV() { return params().offset; }
    bool getWrapU() { return params().wrapU; }
    bool getWrapV() { return params().wrapV; }

    // A placement nothing drives is read and decided once per render: the
    // on-demand step (before the first compute) takes the values the
    // program holds and makes the identity test.
    template <class F>
    void forEachSettled(F&& f) {
        f(fPlacement, settledRoots(attrCoverage(), attrTranslateFrame(), attrRepeatUV(), attrOffset(), attrNoiseUV(),
                                   attrRotateFrame(), attrRotateUV(), attrMirrorU(), attrMirrorV(), attrStagger(), attrWrapU(),
                                   attrWrapV()));
    }
    void shadingNodeOnDemand(Tplug& plug, TdataBlock& block) override;

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;

private:
    static void setOutside(float& u, float& v);
    // outUV of a batch under one placement; `transform` false passes the UV through.
    void mapBatch(const Tplace2dParams& p, bool transform, TdataBlock& block, unsigned first, unsigned count);

    // What the on-demand step settles: with fPlacement.settled, the batch
    // reads the UV (or the filter size) alone.
    TsettledGroup fPlacement;
    bool fTransform = false;
    Tplace2dParams fParams;
    T2Float fFilterScale;
};
