// The link node's own operations, the light list nodes, the editing-side
// lists and the shadow link mode of the render globals.
#include <gtest/gtest.h>

#include "lights/light_link_scene.h"
#include "lights/light_list.h"
#include "support/set_value.h"

namespace {

class LightLinkNode : public ::testing::Test {
protected:
    LightLinkNode() {
        for (const char* name : {"a", "b", "c", "d"}) lights.push_back(s.light(name, false));
        for (const char* name : {"x", "y", "z"}) objects.push_back(s.object(name));
        link = s.linker();
    }
    // One side only of element `index`.
    void half(const Tattribute& side, TdependNode* node, int index) {
        ASSERT_EQ(s.graph().connect(Tplug(node, &TdependNode::saMessage()), Tplug(link, &side, index)), TconnectStatus::kOk);
    }
    void full(const Tattribute& compound, int index, TdependNode* light, TdependNode* object) {
        ASSERT_TRUE(link->connectPair(&compound, index, light, object));
    }
    // Every complete pair of a compound as (light, object) names.
    std::vector<std::pair<std::string, std::string>> pairs(TdnLightLink* l, const Tattribute& compound) {
        std::vector<std::pair<std::string, std::string>> out;
        for (int i = l->firstUsedIndexStartingFrom(0, &compound); i >= 0; i = l->firstUsedIndexStartingFrom(i + 1, &compound)) {
            TdependNode* light = l->lightAt(&compound, i);
            TdependNode* object = l->objectAt(&compound, i);
            out.emplace_back(light ? light->name().str() : "-", object ? object->name().str() : "-");
        }
        return out;
    }

    TlinkScene s;
    std::vector<TlinkTestLight*> lights;
    std::vector<TlinkTestShape*> objects;
    TdnLightLink* link;
};

TEST_F(LightLinkNode, FreeAndUsedIndexSearch) {
    const Tattribute& L = TdnLightLink::saLink();
    full(L, 0, lights[0], objects[0]);
    full(L, 1, lights[1], objects[1]);
    full(L, 3, lights[2], objects[2]);
    half(TdnLightLink::saLight(), lights[3], 5);    // light side only
    half(TdnLightLink::saObject(), objects[0], 6);  // object side only
    full(TdnLightLink::saIgnore(), 2, lights[0], objects[0]);  // another compound
    struct Case {
        int start, free, used;
    };
    const Case cases[] = {{0, 2, 0}, {-3, 2, 0}, {2, 2, 3}, {3, 4, 3}, {4, 4, 5}, {5, 7, 5}, {6, 7, 6}, {7, 7, -1}, {40, 40, -1}};
    for (const Case& c : cases) {
        EXPECT_EQ(link->firstFreeIndexStartingFrom(c.start, &L), c.free) << c.start;
        EXPECT_EQ(link->firstUsedIndexStartingFrom(c.start, &L), c.used) << c.start;
    }
    const Tattribute& I = TdnLightLink::saIgnore();
    EXPECT_EQ(link->firstFreeIndexStartingFrom(0, &I), 0);
    EXPECT_EQ(link->firstFreeIndexStartingFrom(2, &I), 3);
    EXPECT_EQ(link->firstUsedIndexStartingFrom(0, &I), 2);
    EXPECT_EQ(link->firstUsedIndexStartingFrom(0, &TdnLightLink::saShadowLink()), -1);
    // A child attribute is not one of the four compounds.
    EXPECT_EQ(link->firstFreeIndexStartingFrom(0, &TdnLightLink::saLight()), -1);
    // The list refuses a name taken twice without a word: every one is there.
    for (const Tattribute* a : TdnLightLink::sVsData().ownAttributes()) {
        EXPECT_EQ(link->attribute(a->longName()), a) << a->longName().str();
        EXPECT_EQ(link->attribute(a->shortName()), a) << a->shortName().str();
    }
    Tplug p;
    ASSERT_TRUE(s.graph().findPlug("lightLinker1.shadowLink[4].shadowObject", p));
    EXPECT_EQ(p.index(), 4);
}

TEST_F(LightLinkNode, CleanUpRemovesHalfPairsOfEveryCompound) {
    EXPECT_FALSE(link->shouldBeWritten()) << "an empty link node is not written";
    half(TdnLightLink::saObjectIgnored(), objects[1], 0);
    EXPECT_TRUE(link->shouldBeWritten()) << "half a pair is written";
    full(TdnLightLink::saLink(), 0, lights[0], objects[0]);
    half(TdnLightLink::saLight(), lights[1], 1);
    full(TdnLightLink::saIgnore(), 1, lights[2], objects[2]);
    half(TdnLightLink::saShadowLight(), lights[3], 2);
    full(TdnLightLink::saShadowIgnore(), 0, lights[3], objects[0]);
    half(TdnLightLink::saShadowObjectIgnored(), objects[2], 3);
    link->cleanUp();
    using P = std::vector<std::pair<std::string, std::string>>;
    EXPECT_EQ(pairs(link, TdnLightLink::saLink()), (P{{"a", "x"}}));
    EXPECT_EQ(pairs(link, TdnLightLink::saIgnore()), (P{{"c", "z"}}));
    EXPECT_EQ(pairs(link, TdnLightLink::saShadowLink()), P{});
    EXPECT_EQ(pairs(link, TdnLightLink::saShadowIgnore()), (P{{"d", "x"}}));
    EXPECT_TRUE(link->shouldBeWritten());
}

TEST_F(LightLinkNode, AssimilateMovesCompletePairsToFreeIndices) {
    TDNshadingEngine* g = s.group("sg", {objects[0], objects[1], objects[2]}, false);
    auto* other = static_cast<TdnLightLink*>(s.graph().createNode("lightLinker", "imported"));
    full(TdnLightLink::saLink(), 0, lights[0], objects[0]);
    ASSERT_TRUE(other->connectPair(&TdnLightLink::saLink(), 0, lights[1], objects[1]));
    ASSERT_TRUE(other->connectPair(&TdnLightLink::saLink(), 4, lights[2], objects[2]));
    ASSERT_TRUE(other->connectPair(&TdnLightLink::saShadowIgnore(), 1, lights[3], objects[0]));
    ASSERT_EQ(s.graph().connect(Tplug(lights[3], &TdependNode::saMessage()), Tplug(other, &TdnLightLink::saLight(), 7)),
              TconnectStatus::kOk);

    // What the group sees before, with the links spread over two nodes...
    g->collectLights();
    std::vector<std::vector<std::string>> before;
    for (unsigned o = 0; o < 3; ++o) before.push_back(TlinkScene::litNames(*g, o));

    link->assimilate(other);
    using P = std::vector<std::pair<std::string, std::string>>;
    EXPECT_EQ(pairs(link, TdnLightLink::saLink()), (P{{"a", "x"}, {"b", "y"}, {"c", "z"}}));
    EXPECT_EQ(link->lightAt(&TdnLightLink::saLink(), 1), lights[1]);
    EXPECT_EQ(pairs(link, TdnLightLink::saShadowIgnore()), (P{{"d", "x"}}));
    // The half pair stays behind; the complete ones left.
    EXPECT_EQ(pairs(other, TdnLightLink::saLink()), (P{{"d", "-"}}));
    EXPECT_EQ(pairs(other, TdnLightLink::saShadowIgnore()), P{});

    // ...is what it sees after, with all of them on one.
    g->collectLights();
    for (unsigned o = 0; o < 3; ++o) EXPECT_EQ(TlinkScene::litNames(*g, o), before[o]) << o;
    EXPECT_EQ(before[1], (std::vector<std::string>{"b"}));
}

TEST_F(LightLinkNode, ClientsHearOfChangesByKindOfObject) {
    TDNshadingEngine* g = s.group("sg", {objects[0]}, false);
    std::vector<std::string> groups, others;
    link->setRelationshipClients([&](TdnLightLink&, TdependNode* o) { groups.push_back(o->name().str()); },
                                 [&](TdnLightLink&, TdependNode* o) { others.push_back(o->name().str()); });
    const unsigned before = link->relationshipChanges();
    full(TdnLightLink::saLink(), 0, lights[0], g);
    full(TdnLightLink::saIgnore(), 0, lights[1], objects[1]);
    EXPECT_FALSE(groups.empty());
    EXPECT_TRUE(std::all_of(groups.begin(), groups.end(), [](auto& n) { return n == "sg"; }));
    EXPECT_FALSE(others.empty());
    EXPECT_TRUE(std::all_of(others.begin(), others.end(), [](auto& n) { return n == "y"; }));
    EXPECT_GT(link->relationshipChanges(), before);

    groups.clear();
    others.clear();
    TobjectSet* set = s.set("things", {objects[2]});
    link->setMembershipChanged(set);  // not named by any pair
    EXPECT_TRUE(others.empty());
    full(TdnLightLink::saLink(), 1, lights[2], set);
    others.clear();
    link->setMembershipChanged(set);
    EXPECT_EQ(others, (std::vector<std::string>{"things"}));
    link->serverDeleted(g);
    EXPECT_EQ(groups, (std::vector<std::string>{"sg"}));
}

TEST(LightListNode, ListsConnectedLightsInIndexOrder) {
    TlinkScene s;
    auto* list = static_cast<TdnLightList*>(s.graph().createNode("lightList", "list"));
    ASSERT_NE(list, nullptr);
    TlinkTestLight* a = s.light("a");
    TlinkTestLight* b = s.light("b");
    TlinkTestLight* c = s.light("c");
    auto connect = [&](TdependNode* light, int index) {
        ASSERT_EQ(s.graph().connect(Tplug(light, &TdependNode::saMessage()), Tplug(list, &TdnLightList::saLights(), index)),
                  TconnectStatus::kOk);
    };
    EXPECT_EQ(list->numLights(), 0u);
    connect(c, 5);
    connect(a, 0);
    connect(b, 2);
    TDNarray out{list};  // appended to, not replaced
    list->lightList(out);
    ASSERT_EQ(out.length(), 4u);
    EXPECT_EQ(out[0], list);
    EXPECT_EQ(out[1], a);
    EXPECT_EQ(out[2], b);
    EXPECT_EQ(out[3], c);
    EXPECT_EQ(list->numLights(), 3u);
    ASSERT_EQ(s.graph().disconnect(Tplug(b, &TdependNode::saMessage()), Tplug(list, &TdnLightList::saLights(), 2)),
              TconnectStatus::kOk);
    EXPECT_EQ(list->numLights(), 2u);
}

class RenderListTest : public ::testing::Test {
protected:
    RenderListTest() {
        a = s.light("a", false);
        b = s.light("b", false);
        c = s.light("c", false);
        // A second instance of b: the list takes its first path.
        auto* extra = static_cast<TdagNode*>(s.graph().createNode("transform", "extraT"));
        extra->addChild(b);
        setValue(c, TlinkTestLight::saExclusive(), true);
    }
    std::vector<std::string> names(const TdagPathArray& paths) {
        std::vector<std::string> out;
        for (const TdagPath& p : paths) out.push_back(p.fullPathName());
        return out;
    }
    TlinkScene s;
    TlinkTestLight *a, *b, *c;
};

TEST_F(RenderListTest, GetListAppliesExclusionsThenAdditionsToTheDefaultList) {
    TlightList list(&s.graph());
    TdagPathArray defaults;
    list.getDefaultList(defaults);
    EXPECT_EQ(names(defaults), (std::vector<std::string>{"|aT|a", "|bT|b"})) << "the first path of each non-exclusive light";
    std::vector<TlightListModifiedMsg> heard;
    list.setListener([&](const TlightListModifiedMsg& m) { heard.push_back(m); });
    const TdagPath cPath = s.pathOf(c);
    const TdagPath bSecond = b->allPaths()[1];
    EXPECT_TRUE(list.removeFromList(s.pathOf(a)));
    EXPECT_FALSE(list.removeFromList(s.pathOf(a)));  // already out
    EXPECT_TRUE(list.addToList(cPath));
    EXPECT_FALSE(list.addToList(cPath));
    EXPECT_FALSE(list.addToList(s.pathOf(b)));  // in the default list already
    EXPECT_TRUE(list.addToList(bSecond));
    ASSERT_EQ(heard.size(), 3u);
    EXPECT_EQ(heard[0].kind, TlightListModifiedMsg::kRemoved);
    EXPECT_EQ(heard[1].kind, TlightListModifiedMsg::kAdded);
    EXPECT_TRUE(heard[1].path == cPath);

    TdagPathArray out{s.pathOf(a)};  // cleared first
    list.getList(out);
    EXPECT_EQ(names(out), (std::vector<std::string>{"|bT|b", "|cT|c", "|extraT|b"}));

    list.setUseDefaultList(false);
    EXPECT_FALSE(list.useDefaultList());
    list.getList(out);
    EXPECT_EQ(names(out), (std::vector<std::string>{"|cT|c", "|extraT|b"}));

    // Adding back an excluded light undoes the exclusion.
    list.setUseDefaultList(true);
    EXPECT_TRUE(list.addToList(s.pathOf(a)));
    list.getList(out);
    EXPECT_EQ(names(out), (std::vector<std::string>{"|aT|a", "|bT|b", "|cT|c", "|extraT|b"}));
    EXPECT_TRUE(list.exclusions().empty());
}

TEST(RenderListBase, NoDefaultsMeansOnlyAdditions) {
    TlinkScene s;
    TlinkTestShape* x = s.object("x");
    TrenderList list;
    TdagPathArray out;
    list.getList(out);
    EXPECT_TRUE(out.empty());
    EXPECT_FALSE(list.removeFromList(s.pathOf(x)));
    EXPECT_TRUE(list.addToList(s.pathOf(x)));
    list.getList(out);
    ASSERT_EQ(out.size(), 1u);
    EXPECT_TRUE(list.removeFromList(s.pathOf(x)));
    list.getList(out);
    EXPECT_TRUE(out.empty());
}

TEST(ShadowLinkMode, ModesSetBothSwitchesAndOthersChangeNothing) {
    struct Case {
        int mode;
        bool startLight, startShadow, light, shadow;
    };
    // Each known mode starts from the opposite of its result, so no case
    // passes by leaving things alone.
    const Case cases[] = {{0, true, true, false, false},   {1, true, false, false, true},   {2, false, true, true, false},
                          {3, false, true, false, true},   {-1, true, false, true, false},  {17, false, true, false, true},
                          {17, true, false, true, false}};
    for (const Case& c : cases) {
        TlinkScene s;
        TdnRenderGlobals* g = s.globals();
        s.setShadowSwitches(c.startLight, c.startShadow);
        g->setShadowLinkMode(TdnRenderGlobals::TshadowLinkMode(c.mode));
        bool light = !c.light, shadow = !c.shadow;
        g->getAttributeValue(&TdnRenderGlobals::saShadowsObeyLightLinking(), &light);
        g->getAttributeValue(&TdnRenderGlobals::saShadowsObeyShadowLinking(), &shadow);
        EXPECT_EQ(light, c.light) << c.mode;
        EXPECT_EQ(shadow, c.shadow) << c.mode;
    }
}

TEST(ShadowLinkMode, AWriteOverridesAConnection) {
    TlinkScene s;
    TdnRenderGlobals* g = s.globals();
    auto* driver = static_cast<TdnRenderGlobals*>(s.graph().createNode("renderGlobals", "driver"));
    setValue(driver, TdnRenderGlobals::saShadowsObeyShadowLinking(), true);
    ASSERT_EQ(s.graph().connect(Tplug(driver, &TdnRenderGlobals::saShadowsObeyShadowLinking()),
                                Tplug(g, &TdnRenderGlobals::saShadowsObeyLightLinking())),
              TconnectStatus::kOk);
    g->setShadowLinkMode(TdnRenderGlobals::kShadowsIgnoreLinks);
    EXPECT_EQ(g->sourceOf(Tplug(g, &TdnRenderGlobals::saShadowsObeyLightLinking())), nullptr);
    bool light = true;
    g->getAttributeValue(&TdnRenderGlobals::saShadowsObeyLightLinking(), &light);
    EXPECT_FALSE(light);
}

}  // namespace
