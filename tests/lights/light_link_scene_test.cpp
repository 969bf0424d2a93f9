// Light linking on whole scenes: lights and objects in the host graph, links
// in the link node, and the per-object answers of litBy and shadowedBy.
#include <gtest/gtest.h>

#include "lights/light_link_scene.h"
#include "lights/light_visibility.h"
#include "lights/render_info.h"
#include "scene/scene_loader.h"

namespace {

using Names = std::vector<std::string>;

class LightLinkScene : public ::testing::Test {
protected:
    LightLinkScene() {
        key = s.light("key");
        fill = s.light("fill");
        ball = s.object("ball");
        cube = s.object("cube");
        cone = s.object("cone");
    }
    TDNshadingEngine* groupOfAll(bool defaultLights = true) { return s.group("paintSG", {ball, cube, cone}, defaultLights); }

    TlinkScene s;
    TlinkTestLight *key, *fill;
    TlinkTestShape *ball, *cube, *cone;
};

TEST_F(LightLinkScene, DefaultLightSetLightsEveryObject) {
    TDNshadingEngine* g = groupOfAll();
    g->collectLights();
    ASSERT_EQ(g->lights().size(), 2u);
    for (unsigned o = 0; o < 3; ++o) EXPECT_EQ(TlinkScene::litNames(*g, o), (Names{"key", "fill"})) << o;
    EXPECT_EQ(g->collectedLightCount(false), 2);
    EXPECT_FALSE(g->litBy(3, key));  // no such object
    EXPECT_FALSE(g->litBy(0, ball));  // not a light
}

TEST_F(LightLinkScene, GroupWithoutLinksHasNoLights) {
    TDNshadingEngine* g = groupOfAll(false);
    g->collectLights();
    EXPECT_TRUE(g->lights().empty());
    EXPECT_FALSE(g->litBy(0, key));
    EXPECT_EQ(g->collectedLightCount(false), 0);
}

TEST_F(LightLinkScene, SameLightOnTheGroupAndAnObjectStandsOnceForTheGroup) {
    TDNshadingEngine* g = groupOfAll();
    s.link(key, cube);
    g->collectLights();
    EXPECT_EQ(g->lights().size(), 2u);
    EXPECT_EQ(g->collectedLightCount(false), 2);
    for (unsigned o = 0; o < 3; ++o) EXPECT_TRUE(g->litBy(o, key)) << o;
}

TEST_F(LightLinkScene, LightOnTwoObjectsCountsOnceAndSkipsTheThird) {
    TlinkTestLight* spot = s.light("spot", false);
    TDNshadingEngine* g = groupOfAll();
    s.link(spot, ball);
    s.link(spot, cone);
    g->collectLights();
    EXPECT_EQ(g->collectedLightCount(false), 3);
    EXPECT_EQ(g->lights().size(), 3u);
    EXPECT_TRUE(g->litBy(0, spot));
    EXPECT_FALSE(g->litBy(1, spot));
    EXPECT_TRUE(g->litBy(2, spot));
}

TEST_F(LightLinkScene, IgnoreThroughASetDoesNotUndoADirectLink) {
    TlinkTestLight* spot = s.light("spot", false);
    TDNshadingEngine* g = groupOfAll();
    TobjectSet* round = s.set("roundThings", {ball, cone});
    s.link(spot, ball);
    s.ignore(spot, round);
    g->collectLights();
    EXPECT_TRUE(g->litBy(0, spot));
    EXPECT_FALSE(g->litBy(2, spot));
}

TEST_F(LightLinkScene, GroupIgnoreRemovesALinkThroughASet) {
    TlinkTestLight* spot = s.light("spot", false);
    TDNshadingEngine* g = groupOfAll();
    TobjectSet* round = s.set("roundThings", {ball, cone});
    s.link(spot, round);
    s.ignore(spot, g);
    g->collectLights();
    for (unsigned o = 0; o < 3; ++o) EXPECT_FALSE(g->litBy(o, spot)) << o;
    EXPECT_EQ(g->collectedLightCount(false), 2);
}

TEST_F(LightLinkScene, LinkThroughASetReachesItsMembersOnly) {
    TlinkTestLight* spot = s.light("spot", false);
    TDNshadingEngine* g = groupOfAll();
    s.link(spot, s.set("roundThings", {ball, cone}));
    g->collectLights();
    EXPECT_EQ(TlinkScene::litNames(*g, 0), (Names{"key", "fill", "spot"}));
    EXPECT_EQ(TlinkScene::litNames(*g, 1), (Names{"key", "fill"}));
    EXPECT_EQ(TlinkScene::litNames(*g, 2), (Names{"key", "fill", "spot"}));
    EXPECT_EQ(g->collectedLightCount(false), 3);
}

// The ignore rows again, now through the scene's links.
TEST_F(LightLinkScene, GroupIgnoreRemovesADefaultLight) {
    TDNshadingEngine* g = groupOfAll();
    s.ignore(fill, g);
    g->collectLights();
    for (unsigned o = 0; o < 3; ++o) EXPECT_EQ(TlinkScene::litNames(*g, o), (Names{"key"})) << o;
    EXPECT_EQ(g->collectedLightCount(false), 1);
}

TEST_F(LightLinkScene, ObjectIgnoreLeavesAGroupLight) {
    TDNshadingEngine* g = groupOfAll();
    s.ignore(fill, cube);
    g->collectLights();
    EXPECT_TRUE(g->litBy(1, fill));
}

TEST_F(LightLinkScene, DirectLinkSurvivesAGroupIgnore) {
    TDNshadingEngine* g = groupOfAll();
    s.ignore(fill, g);
    s.link(fill, cube);
    g->collectLights();
    EXPECT_FALSE(g->litBy(0, fill));
    EXPECT_TRUE(g->litBy(1, fill));
    EXPECT_FALSE(g->litBy(2, fill));
}

TEST_F(LightLinkScene, DirectIgnoreRemovesADirectLinkOfTheSameObject) {
    TlinkTestLight* spot = s.light("spot", false);
    TDNshadingEngine* g = groupOfAll();
    s.link(spot, ball);
    s.link(spot, cube);
    s.ignore(spot, cube);
    g->collectLights();
    EXPECT_TRUE(g->litBy(0, spot));
    EXPECT_FALSE(g->litBy(1, spot));
}

TEST_F(LightLinkScene, LinkToAParentTransformReachesTheShape) {
    TlinkTestLight* spot = s.light("spot", false);
    TDNshadingEngine* g = groupOfAll();
    s.link(spot, s.transformOf(cube));
    g->collectLights();
    EXPECT_FALSE(g->litBy(0, spot));
    EXPECT_TRUE(g->litBy(1, spot));
}

TEST_F(LightLinkScene, SetOfLightsLinkedToAnObject) {
    TlinkTestLight* a = s.light("a", false);
    TlinkTestLight* b = s.light("b", false);
    TDNshadingEngine* g = groupOfAll();
    s.link(s.set("rig", {a, b}), cone);
    g->collectLights();
    EXPECT_EQ(TlinkScene::litNames(*g, 2), (Names{"key", "fill", "a", "b"}));
    EXPECT_EQ(TlinkScene::litNames(*g, 0), (Names{"key", "fill"}));
}

TEST_F(LightLinkScene, HiddenLightIsSkipped) {
    bool off = false;
    ASSERT_TRUE(s.transformOf(fill)->setAttributeValue(&Ttransform::saVisibility(), &off));
    TlinkTestLight* spot = s.light("spot", false);
    ASSERT_TRUE(s.transformOf(spot)->setAttributeValue(&Ttransform::saVisibility(), &off));
    TDNshadingEngine* g = groupOfAll();
    s.link(spot, ball);
    g->collectLights();
    EXPECT_EQ(TlinkScene::litNames(*g, 0), (Names{"key"}));
    EXPECT_EQ(g->collectedLightCount(false), 1);
}

TEST_F(LightLinkScene, LightOutsideTheRenderLayerIsSkipped) {
    TDNshadingEngine* g = groupOfAll();
    auto previous = TdagPathUtils::setRenderLayerFilter(
        [](const TdagPath& path) { return path.node()->name().str() != "key"; });
    g->collectLights();
    TdagPathUtils::setRenderLayerFilter(previous);
    EXPECT_EQ(TlinkScene::litNames(*g, 0), (Names{"fill"}));
}

TEST_F(LightLinkScene, LightDataConnectedToTheGroupLightsEveryObject) {
    TlinkTestLight* spot = s.light("spot", false);
    TDNshadingEngine* g = groupOfAll(false);
    ASSERT_EQ(s.graph().connect(Tplug(spot, &TlightShape::saLightData()), Tplug(g, &TDNshadingEngine::saLinkedLights(), 0)),
              TconnectStatus::kOk);
    g->collectLights();
    for (unsigned o = 0; o < 3; ++o) EXPECT_EQ(TlinkScene::litNames(*g, o), (Names{"spot"})) << o;
}

TEST_F(LightLinkScene, LightDataOnTheIgnorePortRemovesTheLight) {
    TDNshadingEngine* g = groupOfAll();
    ASSERT_EQ(s.graph().connect(Tplug(key, &TlightShape::saLightData()), Tplug(g, &TDNshadingEngine::saIgnoredLights(), 0)),
              TconnectStatus::kOk);
    g->collectLights();
    EXPECT_EQ(TlinkScene::litNames(*g, 1), (Names{"fill"}));
}

TEST_F(LightLinkScene, RecollectingGivesTheSameTables) {
    TlinkTestLight* spot = s.light("spot", false);
    TDNshadingEngine* g = groupOfAll();
    s.link(spot, cube);
    g->collectLights();
    const std::vector<TdependNode*> first = g->lights();
    g->collectLights();
    EXPECT_EQ(g->lights(), first);
    EXPECT_TRUE(g->litBy(1, spot));
    EXPECT_FALSE(g->litBy(0, spot));
}

TEST_F(LightLinkScene, LinkingToTheDefaultSetNeedsTheGroupFlag) {
    TDNshadingEngine* g = groupOfAll(false);
    TDGcommand command;
    EXPECT_FALSE(TrenderInfo::linkShadingGroupToDefaultLightSet(g, command));
    EXPECT_EQ(s.linker()->firstUsedIndexStartingFrom(0, &TdnLightLink::saLink()), -1);
    g->setNodeFlag(TrenderInfo::kLinkToDefaultLightsFlag, true);
    // Index 0 holds another pair and index 1 half of one: the link goes to 2.
    TlinkTestLight* spot = s.light("spot", false);
    s.link(spot, ball);
    ASSERT_EQ(s.graph().connect(Tplug(spot, &TdependNode::saMessage()), Tplug(s.linker(), &TdnLightLink::saLight(), 1)),
              TconnectStatus::kOk);
    EXPECT_TRUE(TrenderInfo::linkShadingGroupToDefaultLightSet(g, command));
    EXPECT_EQ(s.linker()->lightAt(&TdnLightLink::saLink(), 2), s.defaultLightSet());
    EXPECT_EQ(s.linker()->objectAt(&TdnLightLink::saLink(), 2), g);
    // A second call adds no second pair.
    EXPECT_TRUE(TrenderInfo::linkShadingGroupToDefaultLightSet(g, command));
    EXPECT_EQ(s.linker()->firstUsedIndexStartingFrom(3, &TdnLightLink::saLink()), -1);
    g->collectLights();
    EXPECT_EQ(TlinkScene::litNames(*g, 1), (Names{"key", "fill"}));
    EXPECT_EQ(TlinkScene::litNames(*g, 0), (Names{"key", "fill", "spot"}));
}

// Shadows: the switches of the render globals decide which links count.
class ShadowLinkScene : public LightLinkScene {
protected:
    ShadowLinkScene() {
        spot = s.light("spot", false);
        g = groupOfAll();
        s.link(spot, cube);         // spot lights the cube only
        s.shadowLink(key, ball);    // key's shadows fall on the ball only
        s.shadowLink(spot, ball);   // spot is shadow-linked where it does not light
    }
    TlinkTestLight* spot;
    TDNshadingEngine* g;
};

TEST_F(ShadowLinkScene, ObeyingLightLinksShadowsWhatIsLit) {
    s.setShadowSwitches(true, false);
    g->collectLights();
    for (unsigned o = 0; o < 3; ++o) EXPECT_EQ(TlinkScene::litNames(*g, o, true), TlinkScene::litNames(*g, o)) << o;
    EXPECT_TRUE(g->shadowedBy(1, spot));
    EXPECT_FALSE(g->shadowedBy(0, spot));
}

TEST_F(ShadowLinkScene, ObeyingShadowLinksUsesOnlyThem) {
    s.setShadowSwitches(false, true);
    g->collectLights();
    EXPECT_EQ(TlinkScene::litNames(*g, 0, true), (Names{"key", "spot"}));
    EXPECT_TRUE(TlinkScene::litNames(*g, 1, true).empty());
    EXPECT_TRUE(TlinkScene::litNames(*g, 2, true).empty());
    EXPECT_EQ(g->collectedLightCount(true), 2);
    // The light table is untouched by shadow links.
    EXPECT_EQ(TlinkScene::litNames(*g, 0), (Names{"key", "fill"}));
}

TEST_F(ShadowLinkScene, ObeyingBothNeedsALightAndAShadowLink) {
    s.setShadowSwitches(true, true);
    g->collectLights();
    EXPECT_TRUE(g->shadowedBy(0, key));
    EXPECT_FALSE(g->shadowedBy(0, spot));  // shadow-linked but does not light the ball
    EXPECT_FALSE(g->shadowedBy(1, spot));  // lights the cube but is not shadow-linked to it
}

TEST_F(ShadowLinkScene, ObeyingNeitherShadowsEveryObjectByEveryLight) {
    s.setShadowSwitches(false, false);
    g->collectLights();
    for (unsigned o = 0; o < 3; ++o) EXPECT_EQ(TlinkScene::litNames(*g, o, true), (Names{"key", "fill", "spot"})) << o;
}

TEST_F(ShadowLinkScene, ShadowIgnoreRemovesAShadowLink) {
    s.setShadowSwitches(false, true);
    s.shadowIgnore(key, ball);
    g->collectLights();
    EXPECT_EQ(TlinkScene::litNames(*g, 0, true), (Names{"spot"}));
}

TEST_F(ShadowLinkScene, ModesSetThroughTheGlobalsGiveTheSameTables) {
    struct Case {
        TdnRenderGlobals::TshadowLinkMode mode;
        bool light, shadow;
    };
    const Case cases[] = {{TdnRenderGlobals::kShadowsIgnoreLinks, false, false},
                          {TdnRenderGlobals::kShadowsObeyShadowLinks, false, true},
                          {TdnRenderGlobals::kShadowsObeyLightLinks, true, false}};
    for (const Case& c : cases) {
        s.globals()->setShadowLinkMode(c.mode);
        g->collectLights();
        std::vector<Names> byMode;
        for (unsigned o = 0; o < 3; ++o) byMode.push_back(TlinkScene::litNames(*g, o, true));
        s.setShadowSwitches(c.light, c.shadow);
        g->collectLights();
        for (unsigned o = 0; o < 3; ++o) EXPECT_EQ(TlinkScene::litNames(*g, o, true), byMode[o]) << int(c.mode) << " " << o;
    }
}

TEST_F(LightLinkScene, MapLightsReportsShadowNeeds) {
    TlinkTestLight* spot = s.light("spot", false);
    TDNshadingEngine* g = groupOfAll();
    s.link(spot, cone);
    bool on = true;
    ASSERT_TRUE(spot->setAttributeValue(&TlinkTestLight::saUseDepthMapShadows(), &on));
    ASSERT_TRUE(fill->setAttributeValue(&TlightShape::saUseRayTraceShadows(), &on));
    g->collectLights();
    struct Case {
        const TdagNode* shape;
        unsigned before, after;
    };
    const unsigned D = TDNshadingEngine::kNeedsDepthMaps, R = TDNshadingEngine::kNeedsRayTracedShadows;
    const Case cases[] = {
        {ball, 0, R},           // key and fill
        {cone, 0, D | R},       // and spot
        {nullptr, 0, D | R},    // every light of the group
        {ball, 1, 1 | R},       // other bits stay
        {ball, D, D | R},
    };
    for (const Case& c : cases) {
        unsigned mask = c.before;
        g->mapLights(mask, c.shape);
        EXPECT_EQ(mask, c.after) << (c.shape ? c.shape->name().str() : "all") << " " << c.before;
    }
    bool off = false;
    ASSERT_TRUE(fill->setAttributeValue(&TlightShape::saUseRayTraceShadows(), &off));
    unsigned mask = 0;
    g->mapLights(mask, ball);
    EXPECT_EQ(mask, 0u);
}

TEST_F(LightLinkScene, MapLightsOnAnEmptyGroupChangesNothing) {
    TDNshadingEngine* g = groupOfAll(false);
    g->collectLights();
    unsigned mask = 0x40;
    g->mapLights(mask, ball);
    EXPECT_EQ(mask, 0x40u);
}

// The example of the user documentation, with the test light type.
TEST(LightLinkSceneFile, LinksMadeInAFileDecideTheLighting) {
    const char* text = R"({
  "format": "shadenet-scene",
  "nodes": [
    {"type": "transform", "name": "keyT"},
    {"type": "linkTestLight", "name": "key", "parent": "keyT"},
    {"type": "transform", "name": "rimT"},
    {"type": "linkTestLight", "name": "rim", "parent": "rimT"},
    {"type": "objectSet", "name": "defaultLightSet", "members": ["|keyT|key"]},
    {"type": "lightLinker", "name": "lightLinker1"},
    {"type": "transform", "name": "cup"},
    {"type": "transform", "name": "saucer"},
    {"type": "shadingEngine", "name": "porcelainSG", "members": ["|cup", "|saucer"]}
  ],
  "connections": [
    ["defaultLightSet.message", "lightLinker1.link[0].light"],
    ["porcelainSG.message", "lightLinker1.link[0].object"],
    ["rim.message", "lightLinker1.lnk[1].llnk"],
    ["cup.message", "lightLinker1.link[1].object"],
    ["key.message", "lightLinker1.ignore[0].lightIgnored"],
    ["saucer.message", "lightLinker1.ignore[0].objectIgnored"]
  ]
})";
    TdependGraph graph;
    TsceneLoader loader;
    ASSERT_TRUE(loader.loadText(text, "links.json", graph)) << (loader.errors().empty() ? "" : loader.errors()[0].message);
    auto* group = static_cast<TDNshadingEngine*>(graph.findNode("porcelainSG"));
    group->collectLights();
    EXPECT_EQ(TlinkScene::litNames(*group, 0), (Names{"key", "rim"}));
    EXPECT_EQ(TlinkScene::litNames(*group, 1), (Names{"key"}));
}

}  // namespace
