#pragma once
// TdnFileTexture: an image on a surface. It resolves its file name (frame
// numbers, a block-ordered texture beside the image or in its place), shares
// the image's pyramid through the inventory, and filters it: a plain mip
// lookup, or the exact integral of a pixel filter over the pixel's footprint
// on the sample's triangle (footprint_filter.h). It can place itself, so a
// file texture needs no placement node. Every failure keeps the render going,
// with its message shown once.
#include <atomic>
#include <string>
#include <vector>

#include "framework/host/command_engine.h"

#include "textures/footprint_filter.h"
#include "textures/pyramid/hdr_exposure.h"
#include "textures/place_2d.h"
#include "textures/pyramid/file_texture_wrapper.h"
#include "textures/texture_2d.h"

class Tpyramid;

struct TdnVSFileTexture : TdependNodeVS {
    TattributeTyped fileTextureName{"fileTextureName", "ftn", TiffTag("FTNM"), TattributeTyped::Kind::kString};
    TattributeBoolean disableFileLoad{"disableFileLoad", "dfl", TiffTag("DFLD")};
    TattributeBoolean useFrameExtension{"useFrameExtension", "ufe", TiffTag("FTUS")};
    TattributeInt32 frameExtension{"frameExtension", "fe", TiffTag("FTFE")};
    TattributeInt32 frameOffset{"frameOffset", "io", TiffTag("FTFO")};
    TattributeBoolean useHardwareTextureCycling{"useHardwareTextureCycling", "uhc", TiffTag("FUHC")};
    TattributeInt32 startCycleExtension{"startCycleExtension", "sce", TiffTag("FSCE")};
    TattributeInt32 endCycleExtension{"endCycleExtension", "ece", TiffTag("FECE")};
    TattributeInt32 byCycleIncrement{"byCycleIncrement", "bci", TiffTag("FBCI")};
    TattributeBoolean forceSwatchGen{"forceSwatchGen", "fsg", TiffTag("FSWG")};
    TattributeEnum filterType{"filterType", "ft", TiffTag("FTFT")};
    TattributeFloat filterWidth{"filterWidth", "fw", TiffTag("FTFW")};
    TattributeBoolean preFilter{"preFilter", "pf", TiffTag("PFLT")};
    TattributeFloat preFilterRadius{"preFilterRadius", "pfr", TiffTag("PFRD")};
    TattributeBoolean miUseEllipticalFilter{"miUseEllipticalFilter", "uef", TiffTag("MUEF")};
    TattributeFloat miEllipticalMaxMinor{"miEllipticalMaxMinor", "emm", TiffTag("MEMM")};
    TattributeBoolean miOverrideConvertToOptim{"miOverrideConvertToOptim", "oco", TiffTag("MOCO")};
    TattributeBoolean miConvertToOptim{"miConvertToOptim", "cto", TiffTag("MCTO")};
    TattributeBoolean useCache{"useCache", "uca", TiffTag("FTUC")};
    TattributeBoolean useMaximumRes{"useMaximumRes", "umr", TiffTag("FTUM")};
    TpairAttribute coverage{"coverage", "c", TiffTag("CVRG"), "coverageU", "cu", TiffTag("CVRU"), "coverageV", "cv", TiffTag("CVRV")};
    TpairAttribute translateFrame{"translateFrame", "tf", TiffTag("TFR2"), "translateFrameU", "tfu", TiffTag("TFRU"),
                                  "translateFrameV", "tfv", TiffTag("TFRV")};
    TattributeDoubleAngle rotateFrame{"rotateFrame", "rf", TiffTag("RFRM")};
    TattributeBoolean doTransform{"doTransform", "dtf", TiffTag("DOTF")};
    TattributeBoolean mirrorU{"mirrorU", "mu", TiffTag("MIRU")};
    TattributeBoolean mirrorV{"mirrorV", "mv", TiffTag("MIRV")};
    TattributeBoolean stagger{"stagger", "s", TiffTag("STAG")};
    TattributeBoolean wrapU{"wrapU", "wu", TiffTag("WRPU")};
    TattributeBoolean wrapV{"wrapV", "wv", TiffTag("WRPV")};
    TpairAttribute repeatUV{"repeatUV", "re", TiffTag("REP2"), "repeatU", "reu", TiffTag("REPU"), "repeatV", "rev", TiffTag("REPV")};
    TpairAttribute offset{"offset", "of", TiffTag("OFST"), "offsetU", "ofu", TiffTag("OFSU"), "offsetV", "ofv", TiffTag("OFSV")};
    TattributeDoubleAngle rotateUV{"rotateUV", "ro", TiffTag("ROTA")};
    TpairAttribute noiseUV{"noiseUV", "n", TiffTag("NSE2"), "noiseU", "nu", TiffTag("NSEU"), "noiseV", "nv", TiffTag("NSEV")};
    TattributeBoolean blurPixelation{"blurPixelation", "blp", TiffTag("BLPI")};
    Tattribute3Float vertexCameraOne{"vertexCameraOne", "vc1", TiffTag("VXC1")};
    Tattribute3Float vertexCameraTwo{"vertexCameraTwo", "vc2", TiffTag("VXC2")};
    Tattribute3Float vertexCameraThree{"vertexCameraThree", "vc3", TiffTag("VXC3")};
    Tattribute2Float vertexUvOne{"vertexUvOne", "vt1", TiffTag("VXT1")};
    Tattribute2Float vertexUvTwo{"vertexUvTwo", "vt2", TiffTag("VXT2")};
    Tattribute2Float vertexUvThree{"vertexUvThree", "vt3", TiffTag("VXT3")};
    TattributeChar objectType{"objectType", "otp", TiffTag("OTPE")};
    TattributeInt32 rayDepth{"rayDepth", "rdp", TiffTag("RDPT")};
    TattributeInt32 primitiveId{"primitiveId", "pi", TiffTag("PRID")};
    Tattribute2Float pixelCenter{"pixelCenter", "pct", TiffTag("PCTR")};
    TattributeInt32 infoBits{"infoBits", "ib", TiffTag("INFO")};
    TattributeEnum hdrMapping{"hdrMapping", "hm", TiffTag("HDMP")};
    TattributeFloat hdrExposure{"hdrExposure", "he", TiffTag("HDEP")};
    TpairAttribute outSize{"outSize", "os", TiffTag("FTOS"), "outSizeX", "osx", TiffTag("FOSX"), "outSizeY", "osy", TiffTag("FOSY")};
    TattributeBoolean fileHasAlpha{"fileHasAlpha", "fha", TiffTag("FHAL")};
    TcolorAttribute outTransparency{"outTransparency", "ot", TiffTag("OTSP")};

    TdnVSFileTexture();
    bool setupDependencies(TdependencyMatrix& m) override;
};

class TdnFileTexture : public TnodeClass<TdnFileTexture, TdnTx2D, TdnVSFileTexture> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnFileTexture", 496, "kFileTexture");
    SN_ATTRIBUTE(FileTextureName, fileTextureName)
    SN_ATTRIBUTE(DisableFileLoad, disableFileLoad)
    SN_ATTRIBUTE(UseFrameExtension, useFrameExtension)
    SN_ATTRIBUTE(FrameExtension, frameExtension)
    SN_ATTRIBUTE(FrameOffset, frameOffset)
    SN_ATTRIBUTE(FilterType, filterType)
    SN_ATTRIBUTE(FilterWidth, filterWidth)
    SN_ATTRIBUTE(UseCache, useCache)
    SN_PAIR_ATTRIBUTE(Coverage, coverage, U, V)
    SN_PAIR_ATTRIBUTE(TranslateFrame, translateFrame, U, V)
    SN_ATTRIBUTE(RotateFrame, rotateFrame)
    SN_ATTRIBUTE(DoTransform, doTransform)
    SN_ATTRIBUTE(MirrorU, mirrorU)
    SN_ATTRIBUTE(MirrorV, mirrorV)
    SN_ATTRIBUTE(Stagger, stagger)
    SN_ATTRIBUTE(WrapU, wrapU)
    SN_ATTRIBUTE(WrapV, wrapV)
    SN_PAIR_ATTRIBUTE(RepeatUV, repeatUV, U, V)
    SN_PAIR_ATTRIBUTE(Offset, offset, U, V)
    SN_ATTRIBUTE(RotateUV, rotateUV)
    SN_PAIR_ATTRIBUTE(NoiseUV, noiseUV, U, V)
    SN_ATTRIBUTE(BlurPixelation, blurPixelation)
    SN_ATTRIBUTE(VertexCameraOne, vertexCameraOne)
    SN_ATTRIBUTE(VertexCameraTwo, vertexCameraTwo)
    SN_ATTRIBUTE(VertexCameraThree, vertexCameraThree)
    SN_ATTRIBUTE(VertexUvOne, vertexUvOne)
    SN_ATTRIBUTE(VertexUvTwo, vertexUvTwo)
    SN_ATTRIBUTE(VertexUvThree, vertexUvThree)
    SN_ATTRIBUTE(ObjectType, objectType)
    SN_ATTRIBUTE(RayDepth, rayDepth)
    SN_ATTRIBUTE(PrimitiveId, primitiveId)
    SN_ATTRIBUTE(PixelCenter, pixelCenter)
    SN_ATTRIBUTE(InfoBits, infoBits)
    SN_ATTRIBUTE(HdrMapping, hdrMapping)
    SN_ATTRIBUTE(HdrExposure, hdrExposure)
    SN_PAIR_ATTRIBUTE(OutSize, outSize, X, Y)
    SN_ATTRIBUTE(FileHasAlpha, fileHasAlpha)
    SN_COLOR_ATTRIBUTE(OutTransparency, outTransparency)

    // An objectType of a polygon surface sample: the only kind the
    // footprint filter reads.
    static constexpr char kPolygonSurface = 1;

    ~TdnFileTexture() override;

    void shadingNodeOnDemand(Tplug& plug, TdataBlock& block) override;

    // Finds or builds the pyramid of the current file; false without one.
    bool initTexture(Tplug& plug, TdataBlock& block);
    void freePyramids();
    Tpyramid* pyramid() const { return fPyramid; }
    int filterKind() const { return fFilterKind; }
    const TfilterRecord& filterRecord() const { return fFilter; }

    // The file name as stored, and as it resolves for the current frame
    // (and against the scene's folder).
    bool getRawFileTextureName(Tstring& name);
    bool getExactTextureName(Tstring& name);
    bool fileHasAlpha() const;
    bool hasBOTFile() const;
    bool useFrameExtension();
    bool disableFileLoad();
    // The warning a render gives for a file it cannot read, for other
    // readers of the file (the viewport's baked textures); once per node and text.
    void warnCannotRead(const Tstring& file, const Tstring& why);

    // Bump: the three UVs a bump lookup reads (the sample's, and one step
    // along u and along v, a step being the UV filter size but never less
    // than a texel of the image), and the height at one of them: the
    // luminance (0..1) under a 3 by 3 tent kernel on the level the width
    // picks, which keeps a linear ramp exact.
    static void getBumpValues(const Tpyramid& pyramid, const T2Float& uv, const T2Float& filterSize, T2Float points[3]);
    static float getBumpHeight(const TfileTextureWrapper& w, const T2Float& uv, float width);

    // "name.0007.png" at frame 12 is "name.0012.png": the last run of digits
    // in the file's name takes the frame, with at least as many digits as
    // it had. A name with no digits is returned as it is.
    static std::string sFrameFileName(const std::string& name, int frame);

    // The camera the footprint filter projects with; set by the renderer
    // before a render (an invalid one makes area filters read the mip road).
    static void setCamera(const TcameraInfoWrapper& camera);
    static const TcameraInfoWrapper& camera();
    // The folder relative file names are taken from ("" for the working one).
    static void setSceneDirectory(const std::string& directory);
    // Swatch renders use swatch pyramids.
    static void setSwatchMode(bool on);

    bool mapUVtoClr(TplugArray&, T4dDblVectorArray* colours, TdoubleArray* alphas, const TdoubleArray& u,
                    const TdoubleArray& v) override {
        return mapUVtoClrByCompute(u, v, colours, alphas);
    }

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;

private:
    // Shows a keyed message once per node and text.
    void displayOnce(TstringId id, std::initializer_list<Tstring> args);
    Tplace2dParams placement(TdataBlock& block);
    // Reads, once per render, what feeds uvCoord (fFootprintKnown, fUvStretch).
    void settleUvSource();

    Tpyramid* fPyramid = nullptr;
    std::string fPyramidFile;  // the resolved name the pyramid was made for
    int fFilterKind = kFilterQuadratic;
    TfilterRecord fFilter;
    // What the triangle's UVs go through before uvCoord: the exact
    // footprint is known only through placements of fixed settings, whose
    // stretch it then applies.
    bool fFootprintKnown = true;
    T2Float fUvStretch{1, 1};
    std::vector<std::string> fShown;  // messages shown, by key and text
};
