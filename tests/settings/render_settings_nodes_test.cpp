// The render settings nodes: their names, the default nodes of a graph, and
// the copy of their settings into the snapshot a render reads.
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "framework/host/command_engine.h"
#include "framework/host/depend_graph.h"
#include "settings/image_format.h"
#include "settings/render_globals.h"
#include "settings/render_quality.h"
#include "settings/resolution.h"

namespace {

// Scene files find attributes by either name: a name or tag taken twice in
// a class would hide a setting (the list refuses a second name silently).
void expectUniqueNames(TdependNode& node, const TdependNodeVS& vs) {
    for (const Tattribute* a : vs.ownAttributes()) {
        EXPECT_EQ(node.attribute(a->longName()), a) << a->longName().str();
        EXPECT_EQ(node.attribute(a->shortName()), a) << a->shortName().str();
    }
    std::set<uint32_t> tags;
    for (unsigned i = vs.attributes().inheritedCount(); i < node.staticAttributeCount(); ++i)
        EXPECT_TRUE(tags.insert(node.attribute(i)->tag().value()).second) << node.attribute(i)->tag().asString();
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

TEST_F(RenderSettingsNodes, NamesAreUniqueAndImageFormatsFollowTheFormatTable) {
    expectUniqueNames(globals(), TdnRenderGlobals::sVsData());
    expectUniqueNames(*fGraph.findNode("defaultRenderQuality"), TdnRenderQuality::sVsData());
    expectUniqueNames(*fGraph.findNode("defaultResolution"), TdnResolution::sVsData());
    auto* formats = dynamic_cast<const TattributeEnum*>(&TdnRenderGlobals::saImageFormat());
    ASSERT_NE(formats, nullptr);
    ASSERT_EQ(formats->fields().size(), TimageFormats::sAll().size());
    for (const TattributeEnum::Field& f : formats->fields()) {
        const TimageFormatInfo* info = TimageFormats::sFind(f.value);
        ASSERT_NE(info, nullptr);
        EXPECT_EQ(f.name.str(), info->key);
    }
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
