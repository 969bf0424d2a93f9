// Light linking on whole scenes: lights and objects in the host graph, links
// in the link node, and the per-object answers of litBy and shadowedBy.
#include <gtest/gtest.h>

#include <functional>

#include "lights/light_link_scene.h"
#include "lights/light_visibility.h"
#include "lights/render_info.h"
#include "scene/scene_loader.h"
#include "support/set_value.h"

namespace {

using Names = std::vector<std::string>;

// Two lights in the default set and one group of three objects.
struct TthreeObjects {
    TthreeObjects() {
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

class LightLinkScene : public ::testing::Test, public TthreeObjects {};

// The same, with spot, a and b in no set, made before the group.
struct TlinkCaseScene : TthreeObjects {
    TlinkTestLight* spot = s.light("spot", false);
    TlinkTestLight* a = s.light("a", false);
    TlinkTestLight* b = s.light("b", false);
};

// A scene's links, the lights of each object and the count the group keeps.
struct LinkCase {
    const char* name;
    bool defaultLights;
    std::function<void(TlinkCaseScene&, TDNshadingEngine*)> links;
    Names lit[3];
    int count;
};

TEST(LightLinkScenes, EachRuleOnAWholeScene) {
    using F = TlinkCaseScene;
    using G = TDNshadingEngine;
    const Names kf{"key", "fill"}, kfs{"key", "fill", "spot"}, k{"key"};
    auto hide = [](F& f, TdagNode* light) {
        setValue(f.s.transformOf(light), Ttransform::saVisibility(), false);
    };
    auto connect = [](F& f, TdependNode* light, G* g, const Tattribute& port) {
        ASSERT_EQ(f.s.graph().connect(Tplug(light, &TlightShape::saLightData()), Tplug(g, &port, 0)), TconnectStatus::kOk);
    };
    const LinkCase cases[] = {
        {"the default light set lights every object", true, [](F&, G*) {}, {kf, kf, kf}, 2},
        {"a group without links has no lights", false, [](F&, G*) {}, {{}, {}, {}}, 0},
        {"the same light on the group and an object stands once", true, [](F& f, G*) { f.s.link(f.key, f.cube); }, {kf, kf, kf}, 2},
        {"a light on two objects counts once and skips the third", true,
         [](F& f, G*) { f.s.link(f.spot, f.ball), f.s.link(f.spot, f.cone); }, {kfs, kf, kfs}, 3},
        {"an ignore through a set does not undo a direct link", true,
         [](F& f, G*) { f.s.link(f.spot, f.ball), f.s.ignore(f.spot, f.s.set("round", {f.ball, f.cone})); }, {kfs, kf, kf}, 3},
        {"a group ignore removes a link through a set", true,
         [](F& f, G* g) { f.s.link(f.spot, f.s.set("round", {f.ball, f.cone})), f.s.ignore(f.spot, g); }, {kf, kf, kf}, 2},
        {"a link through a set reaches its members only", true,
         [](F& f, G*) { f.s.link(f.spot, f.s.set("round", {f.ball, f.cone})); }, {kfs, kf, kfs}, 3},
        {"a group ignore removes a default light", true, [](F& f, G* g) { f.s.ignore(f.fill, g); }, {k, k, k}, 1},
        {"an object ignore leaves a group light", true, [](F& f, G*) { f.s.ignore(f.fill, f.cube); }, {kf, kf, kf}, 2},
        {"a direct link survives a group ignore", true, [](F& f, G* g) { f.s.ignore(f.fill, g), f.s.link(f.fill, f.cube); },
         {k, kf, k}, 2},
        {"a direct ignore removes a direct link of the same object", true,
         [](F& f, G*) { f.s.link(f.spot, f.ball), f.s.link(f.spot, f.cube), f.s.ignore(f.spot, f.cube); }, {kfs, kf, kf}, 3},
        {"a link to a parent transform reaches the shape", true, [](F& f, G*) { f.s.link(f.spot, f.s.transformOf(f.cube)); },
         {kf, kfs, kf}, 3},
        {"a set of lights linked to an object", true, [](F& f, G*) { f.s.link(f.s.set("rig", {f.a, f.b}), f.cone); },
         {kf, kf, {"key", "fill", "a", "b"}}, 4},
        {"a hidden light is skipped", true, [&](F& f, G*) { hide(f, f.fill), hide(f, f.spot), f.s.link(f.spot, f.ball); }, {k, k, k},
         1},
        {"light data connected to the group lights every object", false,
         [&](F& f, G* g) { connect(f, f.spot, g, G::saLinkedLights()); }, {{"spot"}, {"spot"}, {"spot"}}, 1},
        {"light data on the ignore port removes the light", true, [&](F& f, G* g) { connect(f, f.key, g, G::saIgnoredLights()); },
         {{"fill"}, {"fill"}, {"fill"}}, 1},
    };
    for (const LinkCase& c : cases) {
        SCOPED_TRACE(c.name);
        TlinkCaseScene f;
        G* g = f.groupOfAll(c.defaultLights);
        c.links(f, g);
        g->collectLights();
        for (unsigned o = 0; o < 3; ++o) EXPECT_EQ(TlinkScene::litNames(*g, o), c.lit[o]) << "object " << o;
        EXPECT_EQ(g->collectedLightCount(false), c.count);
        EXPECT_FALSE(g->litBy(3, f.key)) << "no such object";
        EXPECT_FALSE(g->litBy(0, f.ball)) << "not a light";
        // Collecting again gives the same tables.
        const std::vector<TdependNode*> first = g->lights();
        g->collectLights();
        EXPECT_EQ(g->lights(), first);
        EXPECT_EQ(TlinkScene::litNames(*g, 1), c.lit[1]);
    }
}

TEST_F(LightLinkScene, LightOutsideTheRenderLayerIsSkipped) {
    TDNshadingEngine* g = groupOfAll();
    auto previous = TdagPathUtils::setRenderLayerFilter(
        [](const TdagPath& path) { return path.node()->name().str() != "key"; });
    g->collectLights();
    TdagPathUtils::setRenderLayerFilter(previous);
    EXPECT_EQ(TlinkScene::litNames(*g, 0), (Names{"fill"}));
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
TEST_F(LightLinkScene, TheSwitchesDecideWhichLinksCastShadows) {
    TlinkTestLight* spot = s.light("spot", false);
    TDNshadingEngine* g = groupOfAll();
    s.link(spot, cube);        // spot lights the cube only
    s.shadowLink(key, ball);   // key's shadows fall on the ball only
    s.shadowLink(spot, ball);  // spot is shadow-linked where it does not light
    // Lit: the ball and the cone by key and fill, the cube by all three.
    const Names all{"key", "fill", "spot"}, kf{"key", "fill"};
    struct Case {
        const char* name;
        bool light, shadow, ignoreKeyOnBall;
        Names shadowed[3];
        int count;
    };
    const Case cases[] = {
        {"obeying light links shadows what is lit", true, false, false, {kf, all, kf}, 3},
        {"obeying shadow links uses only them", false, true, false, {{"key", "spot"}, {}, {}}, 2},
        // The count is the shadow links' (key and spot); light links only
        // narrow what each object is shadowed by.
        {"obeying both needs a light and a shadow link", true, true, false, {{"key"}, {}, {}}, 2},
        {"obeying neither shadows every object by every light", false, false, false, {all, all, all}, 3},
        {"a shadow ignore removes a shadow link", false, true, true, {{"spot"}, {}, {}}, 1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        s.setShadowSwitches(c.light, c.shadow);
        if (c.ignoreKeyOnBall) s.shadowIgnore(key, ball);
        g->collectLights();
        for (unsigned o = 0; o < 3; ++o) EXPECT_EQ(TlinkScene::litNames(*g, o, true), c.shadowed[o]) << o;
        EXPECT_EQ(g->collectedLightCount(true), c.count);
        // The light table is untouched by shadow links.
        EXPECT_EQ(TlinkScene::litNames(*g, 0), kf);
        EXPECT_EQ(TlinkScene::litNames(*g, 1), all);
    }
}

TEST_F(LightLinkScene, MapLightsReportsShadowNeeds) {
    TlinkTestLight* spot = s.light("spot", false);
    TDNshadingEngine* g = groupOfAll();
    s.link(spot, cone);
    setValue(spot, TlinkTestLight::saUseDepthMapShadows(), true);
    setValue(fill, TlightShape::saUseRayTraceShadows(), true);
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
    setValue(fill, TlightShape::saUseRayTraceShadows(), false);
    unsigned mask = 0;
    g->mapLights(mask, ball);
    EXPECT_EQ(mask, 0u);
    // A group with no lights leaves every bit as it was.
    TlinkTestShape* lonely = s.object("lonely");
    TDNshadingEngine* empty = s.group("emptySG", {lonely}, false);
    empty->collectLights();
    mask = 0x40;
    empty->mapLights(mask, lonely);
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
