#pragma once
// TdnRenderGlobals: what to render and how to write it. The node holds the
// settings; setCommonRenderGlobals copies them into the snapshot a render
// reads, so the render never reads the graph.
#include "framework/host/node_class.h"
#include "framework/node_registry.h"
#include "settings/render_globals_data.h"
#include "settings/settings_attributes.h"

struct TdnVSRenderGlobals : TdependNodeVS {
    SN_SETTING(TattributeInt32, macCodec, "macc")
    SN_SETTING(TattributeInt16, macDepth, "macd")
    SN_SETTING(TattributeInt32, macQual, "macq")
    SN_SETTING(TattributeInt16, comFrrt, "mcfr")
    SN_SETTING(TattributeBoolean, renderAll, "ra")
    SN_SETTING(TattributeBoolean, ignoreFilmGate, "ifg")
    SN_SETTING(TattributeMessage, quality, "qual")
    SN_SETTING(TattributeMessage, resolution, "res")
    SN_SETTING(TattributeBoolean, clipFinalShadedColor, "clip")
    SN_SETTING(TattributeBoolean, enableDepthMaps, "edm")
    SN_SETTING(TattributeBoolean, enableDefaultLight, "edl")
    TattributeTyped currentRenderer{"currentRenderer", "ren", settingsTag("ren"), TattributeTyped::Kind::kString};
    SN_SETTING(TattributeBoolean, enableStrokeRender, "esr")
    SN_SETTING(TattributeBoolean, onlyRenderStrokes, "ors")
    TattributeTyped strokesDepthFile{"strokesDepthFile", "sdf", settingsTag("sdf"), TattributeTyped::Kind::kString};
    SN_SETTING(TattributeEnum, imageFormat, "outf")
    TattributeTyped imfPluginKey{"imfPluginKey", "imfkey", settingsTag("imfkey"), TattributeTyped::Kind::kString};
    SN_SETTING(TattributeFloat, gammaCorrection, "gama")
    SN_SETTING(TattributeInt32, topRegion, "top")
    SN_SETTING(TattributeInt32, leftRegion, "left")
    SN_SETTING(TattributeInt32, bottomRegion, "bot")
    SN_SETTING(TattributeInt32, rightRegion, "rght")
    SN_SETTING(TattributeBoolean, useRenderRegion, "urr")
    SN_SETTING(TattributeBoolean, animation, "an")
    SN_SETTING(TattributeEnum, animationRange, "ar")
    SN_SETTING(TattributeFloat, startFrame, "fs")
    SN_SETTING(TattributeFloat, endFrame, "ef")
    SN_SETTING(TattributeFloat, byFrame, "bf")
    SN_SETTING(TattributeFloat, byFrameStep, "bfs")
    SN_SETTING(TattributeBoolean, modifyExtension, "me")
    SN_SETTING(TattributeFloat, startExtension, "se")
    SN_SETTING(TattributeFloat, byExtension, "be")
    SN_SETTING(TattributeInt32, extensionPadding, "ep")
    SN_SETTING(TattributeEnum, fieldExtControl, "fec")
    SN_SETTING(TattributeEnum, outFormatControl, "ofc")
    TattributeTyped oddFieldExt{"oddFieldExt", "ofe", settingsTag("ofe"), TattributeTyped::Kind::kString};
    TattributeTyped evenFieldExt{"evenFieldExt", "efe", settingsTag("efe"), TattributeTyped::Kind::kString};
    TattributeTyped outFormatExt{"outFormatExt", "oft", settingsTag("oft"), TattributeTyped::Kind::kString};
    SN_SETTING(TattributeBoolean, useToviFileName, "utfn")
    SN_SETTING(TattributeBoolean, useFrameExt, "ufe")
    SN_SETTING(TattributeBoolean, putFrameBeforeExt, "pff")
    SN_SETTING(TattributeEnum, periodInExt, "peie")
    TattributeTyped imageFilePrefix{"imageFilePrefix", "ifp", settingsTag("ifp"), TattributeTyped::Kind::kString};
    TattributeTyped renderVersion{"renderVersion", "rv", settingsTag("rv"), TattributeTyped::Kind::kString};
    SN_SETTING(TattributeBoolean, composite, "comp")
    SN_SETTING(TattributeFloat, compositeThreshold, "cth")
    SN_SETTING(TattributeBoolean, shadowsObeyLightLinking, "soll")
    SN_SETTING(TattributeBoolean, shadowsObeyShadowLinking, "sosl")
    SN_SETTING(TattributeInt32, recursionDepth, "rd")
    SN_SETTING(TattributeInt32, leafPrimitives, "lp")
    SN_SETTING(TattributeFloat, subdivisionPower, "sp")
    SN_SETTING(TattributeInt32, subdivisionHashSize, "shs")
    SN_SETTING(TattributeBoolean, logRenderPerformance, "lpr")
    SN_SETTING(TattributeInt32, geometryVector, "gv")
    SN_SETTING(TattributeInt32, shadingVector, "sv")
    SN_SETTING(TattributeInt32, maximumMemory, "mm")
    SN_SETTING(TattributeInt32, numCpusToUse, "npu")
    SN_SETTING(TattributeInt32, interruptFrequency, "itf")
    SN_SETTING(TattributeBoolean, shadowPass, "shp")
    SN_SETTING(TattributeBoolean, iprShadowPass, "isp")
    SN_SETTING(TattributeBoolean, useFileCache, "uf")
    SN_SETTING(TattributeBoolean, optimizeInstances, "oi")
    SN_SETTING(TattributeBoolean, reuseTessellations, "rut")
    SN_SETTING(TattributeBoolean, matteOpacityUsesTransparency, "mot")
    SN_SETTING(TattributeBoolean, motionBlur, "mb")
    SN_SETTING(TattributeFloat, motionBlurByFrame, "mbf")
    SN_SETTING(TattributeBoolean, fogGeometry, "fg")
    SN_SETTING(TattributeBoolean, applyFogInPost, "afp")
    SN_SETTING(TattributeInt32, postFogBlur, "pfb")
    TattributeTyped preScript{"preScript", "pram", settingsTag("pram"), TattributeTyped::Kind::kString};
    TattributeTyped postScript{"postScript", "poam", settingsTag("poam"), TattributeTyped::Kind::kString};
    TattributeTyped preRenderLayerScript{"preRenderLayerScript", "prlm", settingsTag("prlm"), TattributeTyped::Kind::kString};
    TattributeTyped postRenderLayerScript{"postRenderLayerScript", "polm", settingsTag("polm"), TattributeTyped::Kind::kString};
    TattributeTyped preRenderScript{"preRenderScript", "prm", settingsTag("prm"), TattributeTyped::Kind::kString};
    TattributeTyped postRenderScript{"postRenderScript", "pom", settingsTag("pom"), TattributeTyped::Kind::kString};
    TattributeTyped preFurRenderScript{"preFurRenderScript", "pfrm", settingsTag("pfrm"), TattributeTyped::Kind::kString};
    TattributeTyped postFurRenderScript{"postFurRenderScript", "pfom", settingsTag("pfom"), TattributeTyped::Kind::kString};
    SN_SETTING(TattributeBoolean, createIprFile, "cif")
    SN_SETTING(TattributeFloat, blurLength, "bll")
    SN_SETTING(TattributeFloat, blurSharpness, "bls")
    SN_SETTING(TattributeInt32, smoothValue, "smv")
    SN_SETTING(TattributeBoolean, useBlur2DMemoryCap, "ubc")
    SN_SETTING(TattributeInt32, blur2DMemoryCap, "mbc")
    SN_SETTING(TattributeEnum, motionBlurType, "mbt")
    SN_SETTING(TattributeBoolean, useDisplacementBoundingBox, "udbx")
    SN_SETTING(TattributeBoolean, smoothColor, "smc")
    SN_SETTING(TattributeBoolean, keepMotionVector, "kmv")
    SN_SETTING(TattributeBoolean, iprRenderShading, "isl")
    SN_SETTING(TattributeBoolean, iprRenderShadowMaps, "ism")
    SN_SETTING(TattributeBoolean, iprRenderMotionBlur, "imb")
    TattributeTyped rendercallback{"rendercallback", "rcb", settingsTag("rcb"), TattributeTyped::Kind::kString};
    SN_SETTING(TattributeBoolean, renderLayerEnable, "rlen")
    SN_SETTING(TattributeBoolean, forceTileSize, "frts")
    SN_SETTING(TattributeInt32, tileWidth, "tlwd")
    SN_SETTING(TattributeInt32, tileHeight, "tlht")
    SN_SETTING(TattributeBoolean, jitterFinalColor, "jfc")
    SN_SETTING(TattributeBoolean, raysSeeBackground, "rsb")
    SN_SETTING(TattributeBoolean, oversamplePaintEffects, "ope")
    SN_SETTING(TattributeBoolean, oversamplePfxPostFilter, "oppf")
    TattributeTyped hyperShadeBinList{"hyperShadeBinList", "hbl", settingsTag("hbl"), TattributeTyped::Kind::kString};

    TdnVSRenderGlobals();
};

class TdnRenderGlobals : public TnodeClass<TdnRenderGlobals, TdependNode, TdnVSRenderGlobals> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TdnRenderGlobals", 516, "kRenderGlobals");
    static constexpr const char* kDefaultRenderer = "toviSoftware";

    // Values of animationRange, fieldExtControl, outFormatControl, periodInExt, motionBlurType.
    enum { kUseGlobals = 0, kUseStartEnd = 1 };
    enum { kDefaultFieldExt = 0, kNoFieldExt = 1, kArbFieldExt = 2 };
    enum { kDefaultOutputExt = 0, kNoOutputExt = 1, kArbOutputExt = 2 };
    enum { kNothingInExt = 0, kPeriodInExt = 1, kUnderscoreInExt = 2 };
    enum { kUseMotionBlur2D = 0, kUseMotionBlur3D = 1 };


    SN_ATTRIBUTE(ImageFormat, imageFormat)
    SN_ATTRIBUTE(ImageFilePrefix, imageFilePrefix)
    SN_ATTRIBUTE(Animation, animation)
    SN_ATTRIBUTE(ExtensionPadding, extensionPadding)
    SN_ATTRIBUTE(OutFormatControl, outFormatControl)
    SN_ATTRIBUTE(PutFrameBeforeExt, putFrameBeforeExt)
    SN_ATTRIBUTE(PeriodInExt, periodInExt)
    SN_ATTRIBUTE(CurrentRenderer, currentRenderer)
    SN_ATTRIBUTE(ShadowsObeyLightLinking, shadowsObeyLightLinking)
    SN_ATTRIBUTE(ShadowsObeyShadowLinking, shadowsObeyShadowLinking)

    // How shadows follow links: 0 neither light nor shadow links, 1 shadow
    // links only, 2 light links only. Any other value changes nothing. A
    // connection on either switch is broken first.
    enum TshadowLinkMode : int { kShadowsIgnoreLinks = 0, kShadowsObeyShadowLinks = 1, kShadowsObeyLightLinks = 2 };
    void setShadowLinkMode(TshadowLinkMode mode);

    // The extension of the chosen format, in lower case.
    Tstring fileFormatExtension();
    // The label of the chosen format; its number goes to `format` when given.
    Tstring fileFormatString(short* format);
    Tstring imageFilePrefix() { return text(fsVs->imageFilePrefix); }
    Tstring currentRenderer() { return text(fsVs->currentRenderer); }
    Tstring hyperShadeBinList() { return text(fsVs->hyperShadeBinList); }
    Tstring preScriptstring() { return text(fsVs->preScript); }
    Tstring postScriptstring() { return text(fsVs->postScript); }
    Tstring preRenderLayerScriptstring() { return text(fsVs->preRenderLayerScript); }
    Tstring postRenderLayerScriptstring() { return text(fsVs->postRenderLayerScript); }
    Tstring preRenderScriptstring() { return text(fsVs->preRenderScript); }
    Tstring postRenderScriptstring() { return text(fsVs->postRenderScript); }
    Tstring preFurRenderScriptstring() { return text(fsVs->preFurRenderScript); }
    Tstring postFurRenderScriptstring() { return text(fsVs->postFurRenderScript); }
    // The memory a render may use, in megabytes (maximumMemory; 0 if negative).
    unsigned getMemoryCostRender();

    // Copies the naming and frame settings into `data` and rebuilds its
    // patterns. The naming scheme follows from animation, putFrameBeforeExt,
    // periodInExt and outFormatControl.
    void setCommonRenderGlobals(TcommonRenderGlobalsData& data);

private:
    Tstring text(const Tattribute& a);
    double number(const Tattribute& a);
};
