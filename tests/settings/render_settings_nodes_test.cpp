// The render settings nodes: their tables, the default nodes of a graph, and
// the copy of their settings into the snapshot a render reads.
#include <gtest/gtest.h>

#include <set>
#include <sstream>
#include <string>

#include "framework/host/command_engine.h"
#include "framework/host/depend_graph.h"
#include "settings/image_format.h"
#include "settings/render_globals.h"
#include "settings/render_quality.h"
#include "settings/resolution.h"

namespace {

// "long short" pairs, blank-separated, as scene files name them.
void expectNames(TdependNode& node, const char* pairs) {
    std::istringstream in(pairs);
    std::string longName, shortName;
    unsigned count = 0;
    while (in >> longName >> shortName) {
        const Tattribute* byLong = node.attribute(Tstring(longName));
        ASSERT_NE(byLong, nullptr) << longName;
        EXPECT_EQ(node.attribute(Tstring(shortName)), byLong) << longName << " / " << shortName;
        EXPECT_EQ(byLong->shortName().str(), shortName);
        ++count;
    }
    // Nothing declared beyond the list, and names and tags are unique.
    EXPECT_EQ(node.staticAttributeCount() - node.vsData().attributes().inheritedCount(), count);
    std::set<std::string> names;
    std::set<uint32_t> tags;
    for (unsigned i = node.vsData().attributes().inheritedCount(); i < node.staticAttributeCount(); ++i) {
        const Tattribute* a = node.attribute(i);
        EXPECT_TRUE(names.insert(a->longName().str()).second) << a->longName().str();
        EXPECT_TRUE(names.insert(a->shortName().str()).second) << a->shortName().str();
        EXPECT_TRUE(tags.insert(a->tag().value()).second) << a->tag().asString();
        EXPECT_LE(a->shortName().length(), 6u);
    }
}

void expectFields(const Tattribute* a, std::initializer_list<std::pair<const char*, const char*>> labelKeys) {
    auto* e = dynamic_cast<const TattributeEnum*>(a);
    ASSERT_NE(e, nullptr);
    ASSERT_EQ(e->fields().size(), labelKeys.size()) << a->longName().str();
    unsigned i = 0;
    for (auto [label, key] : labelKeys) {
        EXPECT_EQ(e->fields()[i].label.str(), label);
        EXPECT_EQ(e->fields()[i].name.str(), key);
        ++i;
    }
}

template <class T>
void set(TdependNode& node, const Tattribute& a, T value) {
    ASSERT_TRUE(node.setAttributeValue(&a, &value)) << a.longName().str();
}

class RenderSettingsNodes : public ::testing::Test {
protected:
    RenderSettingsNodes() { fGraph.createDefaultNodes(); }
    TdnRenderGlobals& globals() { return *static_cast<TdnRenderGlobals*>(fGraph.findNode("defaultRenderGlobals")); }
    TcommandCapture fQuiet;
    TdependGraph fGraph;
};

}  // namespace

TEST_F(RenderSettingsNodes, EveryGraphHasOneOfEach) {
    struct Tcase {
        const char* name;
        Tmetaclass* meta;
    };
    const Tcase cases[] = {{"defaultRenderGlobals", TdnRenderGlobals::sMetaclass()},
                           {"defaultRenderQuality", TdnRenderQuality::sMetaclass()},
                           {"defaultResolution", TdnResolution::sMetaclass()}};
    const unsigned before = fGraph.nodeCount();
    fGraph.createDefaultNodes();  // twice: still one of each
    EXPECT_EQ(fGraph.nodeCount(), before);
    for (const Tcase& c : cases) {
        TdependNode* node = fGraph.findNode(c.name);
        ASSERT_NE(node, nullptr) << c.name;
        EXPECT_TRUE(node->typeof()->istype(c.meta)) << c.name;
        EXPECT_FALSE(node->isMpSafe()) << c.name;
    }
}

TEST_F(RenderSettingsNodes, AttributeNamesAsScenesWriteThem) {
    expectNames(globals(),
                "macCodec macc macDepth macd macQual macq comFrrt mcfr renderAll ra ignoreFilmGate ifg quality qual "
                "resolution res clipFinalShadedColor clip enableDepthMaps edm enableDefaultLight edl currentRenderer "
                "ren enableStrokeRender esr onlyRenderStrokes ors strokesDepthFile sdf imageFormat outf imfPluginKey "
                "imfkey gammaCorrection gama topRegion top leftRegion left bottomRegion bot rightRegion rght "
                "useRenderRegion urr animation an animationRange ar startFrame fs endFrame ef byFrame bf byFrameStep "
                "bfs modifyExtension me startExtension se byExtension be extensionPadding ep fieldExtControl fec "
                "outFormatControl ofc oddFieldExt ofe evenFieldExt efe outFormatExt oft useToviFileName utfn "
                "useFrameExt ufe putFrameBeforeExt pff periodInExt peie imageFilePrefix ifp renderVersion rv "
                "composite comp compositeThreshold cth shadowsObeyLightLinking soll shadowsObeyShadowLinking sosl "
                "recursionDepth rd leafPrimitives lp subdivisionPower sp subdivisionHashSize shs "
                "logRenderPerformance lpr geometryVector gv shadingVector sv maximumMemory mm numCpusToUse npu "
                "interruptFrequency itf shadowPass shp iprShadowPass isp useFileCache uf optimizeInstances oi "
                "reuseTessellations rut matteOpacityUsesTransparency mot motionBlur mb motionBlurByFrame mbf "
                "fogGeometry fg applyFogInPost afp postFogBlur pfb preScript pram postScript poam "
                "preRenderLayerScript prlm postRenderLayerScript polm preRenderScript prm postRenderScript pom "
                "preFurRenderScript pfrm postFurRenderScript pfom createIprFile cif blurLength bll blurSharpness bls "
                "smoothValue smv useBlur2DMemoryCap ubc blur2DMemoryCap mbc motionBlurType mbt "
                "useDisplacementBoundingBox udbx smoothColor smc keepMotionVector kmv iprRenderShading isl "
                "iprRenderShadowMaps ism iprRenderMotionBlur imb rendercallback rcb renderLayerEnable rlen "
                "forceTileSize frts tileWidth tlwd tileHeight tlht jitterFinalColor jfc raysSeeBackground rsb "
                "oversamplePaintEffects ope oversamplePfxPostFilter oppf hyperShadeBinList hbl");
    expectNames(*fGraph.findNode("defaultRenderQuality"),
                "reflections rfl refractions rfr shadows sl rayTraceBias rtb edgeAntiAliasing eaa renderSample rsdn "
                "useMultiPixelFilter ufil pixelFilterType pft pixelFilterWidthX pfwx pixelFilterWidthY pfwy "
                "plugInFilterWeight pifw shadingSamples ss maxShadingSamples mss visibilitySamples mvs "
                "maxVisibilitySamples mvm volumeSamples vs particleSamples pss enableRaytracing ert redThreshold rct "
                "greenThreshold gct blueThreshold bct coverageThreshold cct");
    expectNames(*fGraph.findNode("defaultResolution"),
                "width w height h pixelAspect pa aspectLock al deviceAspectRatio dar lockDeviceAspectRatio ldar "
                "dotsPerInch dpi oddFieldFirst off fields fld zerothScanline zsl imageSizeUnits isu "
                "pixelDensityUnits pdu");
}

TEST_F(RenderSettingsNodes, EnumerationEntriesInOrder) {
    // The image formats carry their numbers and keys.
    auto* formats = dynamic_cast<const TattributeEnum*>(&TdnRenderGlobals::saImageFormat());
    ASSERT_NE(formats, nullptr);
    ASSERT_EQ(formats->fields().size(), TimageFormats::sAll().size());
    for (const TattributeEnum::Field& f : formats->fields()) {
        const TimageFormatInfo* info = TimageFormats::sFind(f.value);
        ASSERT_NE(info, nullptr);
        EXPECT_EQ(f.name.str(), info->key);
    }
    EXPECT_EQ(formats->fields().front().label.str(), "GIF");
    EXPECT_EQ(formats->fields().back().name.str(), "kSWFT");

    const TdnVSRenderGlobals& g = TdnRenderGlobals::sVsData();
    expectFields(&g.animationRange, {{"Render Settings", "kUseGlobals"}, {"Start/End", "kUseStartEnd"}});
    expectFields(&g.periodInExt, {{"No Period or Underscore in Extension", "kNothingInExt"},
                                  {"Period in Extension", "kPeriodInExt"},
                                  {"Underscore in Extension", "kUnderscoreInExt"}});
    expectFields(&TdnRenderQuality::saEdgeAntiAliasing(), {{"Highest Quality", "kHighestAA"},
                                                           {"High Quality", "kHighAA"},
                                                           {"Medium Quality", "kMediumAA"},
                                                           {"Low Quality", "kLowAA"}});
    expectFields(&TdnResolution::saFields(), {{"None", "kNoFields"},
                                              {"Odd", "kOddFields"},
                                              {"Even", "kEvenFields"},
                                              {"Both, Interlaced", "kAllFields"},
                                              {"Both, Separate", "kAllFieldsSeparate"}});
}

TEST_F(RenderSettingsNodes, DefaultsDescribeAStillIffImage) {
    TdnRenderGlobals& g = globals();
    EXPECT_EQ(g.currentRenderer().str(), "toviSoftware");
    short format = -1;
    EXPECT_EQ(g.fileFormatString(&format).str(), "Tovi IFF");
    EXPECT_EQ(format, TimageFormats::kIFF);
    EXPECT_EQ(g.fileFormatExtension().str(), "iff");
    TcommonRenderGlobalsData data;
    g.setCommonRenderGlobals(data);
    EXPECT_FALSE(data.isAnimated());
    EXPECT_EQ(data.getImageName(kPathRelative, TanimTime(1), "persp", "", nullptr, "shot").str(), "shot.iff");
}

TEST_F(RenderSettingsNodes, SettingsChooseTheNamingScheme) {
    const TdnVSRenderGlobals& vs = TdnRenderGlobals::sVsData();
    struct Tcase {
        bool animated;
        bool frameBeforeExtension;
        short period;
        short outputExtension;
        const char* expected;
    };
    using G = TdnRenderGlobals;
    const Tcase cases[] = {
        {false, true, G::kPeriodInExt, G::kDefaultOutputExt, "shot.png"},
        {false, true, G::kPeriodInExt, G::kNoOutputExt, "shot"},
        {true, true, G::kPeriodInExt, G::kDefaultOutputExt, "shot.012.png"},
        {true, true, G::kUnderscoreInExt, G::kDefaultOutputExt, "shot_012.png"},
        {true, true, G::kNothingInExt, G::kDefaultOutputExt, "shot012.png"},
        {true, false, G::kPeriodInExt, G::kDefaultOutputExt, "shot.png.012"},
        {true, true, G::kPeriodInExt, G::kNoOutputExt, "shot.012"},
        {true, true, G::kPeriodInExt, G::kArbOutputExt, "shot.012.raw"},
    };
    for (const Tcase& c : cases) {
        TdnRenderGlobals& g = globals();
        set(g, vs.animation, c.animated);
        set(g, vs.putFrameBeforeExt, c.frameBeforeExtension);
        set(g, vs.periodInExt, c.period);
        set(g, vs.outFormatControl, c.outputExtension);
        set(g, vs.outFormatExt, Tstring("raw"));
        set(g, vs.imageFormat, short(TimageFormats::kPNG));
        set(g, vs.extensionPadding, int32_t(3));
        TcommonRenderGlobalsData data;
        g.setCommonRenderGlobals(data);
        EXPECT_EQ(data.getImageName(kPathRelative, TanimTime(12), "persp", "", nullptr, "shot").str(), c.expected);
    }
}

TEST_F(RenderSettingsNodes, PrefixFramesAndMoviesReachTheNames) {
    const TdnVSRenderGlobals& vs = TdnRenderGlobals::sVsData();
    TdnRenderGlobals& g = globals();
    set(g, vs.imageFilePrefix, Tstring("<Camera>/<Scene>_<Version>"));
    set(g, vs.renderVersion, Tstring("v2"));
    set(g, vs.animation, true);
    set(g, vs.extensionPadding, int32_t(4));
    set(g, vs.modifyExtension, true);
    set(g, vs.startExtension, 101.0f);
    TcommonRenderGlobalsData data;
    g.setCommonRenderGlobals(data);
    // Frame 1 is the start frame and is renumbered to 101.
    EXPECT_EQ(data.getImageName(kPathImages, TanimTime(1), "cam:left", "", nullptr, "shot").str(),
              "images/cam_left/shot_v2.0101.iff");

    set(g, vs.imageFormat, short(TimageFormats::kAVI));
    g.setCommonRenderGlobals(data);
    EXPECT_TRUE(data.isMultiframeFormat());
    EXPECT_EQ(g.fileFormatExtension().str(), "avi");
    EXPECT_EQ(data.getImageName(kPathRelative, TanimTime(1), "persp", "", nullptr, "shot").str(),
              "persp/shot_v2.0101.avi");

    set(g, vs.maximumMemory, int32_t(-5));
    EXPECT_EQ(g.getMemoryCostRender(), 0u);
    set(g, vs.maximumMemory, int32_t(1024));
    EXPECT_EQ(g.getMemoryCostRender(), 1024u);
}
