#include "lights/light_link_scene.h"

#include <gtest/gtest.h>

#include "lights/render_info.h"

SN_REGISTER_NODE_CLASS(TlinkTestLight)
SN_REGISTER_NODE_CLASS(TlinkTestShape)

TlinkScene::TlinkScene() { fGraph.createDefaultNodes(); }

TlinkTestLight* TlinkScene::light(const std::string& name, bool byDefault) {
    auto* t = static_cast<TdagNode*>(fGraph.createNode("transform", name + "T"));
    auto* l = static_cast<TlinkTestLight*>(fGraph.createNode("linkTestLight", name));
    EXPECT_TRUE(t && l && t->addChild(l)) << name;
    if (byDefault) defaultLightSet()->addMember(pathOf(l));
    return l;
}

TlinkTestShape* TlinkScene::object(const std::string& name) {
    auto* t = static_cast<TdagNode*>(fGraph.createNode("transform", name + "T"));
    auto* s = static_cast<TlinkTestShape*>(fGraph.createNode("linkTestShape", name));
    EXPECT_TRUE(t && s && t->addChild(s)) << name;
    return s;
}

TDNshadingEngine* TlinkScene::group(const std::string& name, const std::vector<TdagNode*>& objects, bool defaultLights) {
    auto* g = static_cast<TDNshadingEngine*>(fGraph.createNode("shadingEngine", name));
    for (TdagNode* o : objects) EXPECT_TRUE(g->addMember(pathOf(o)));
    if (defaultLights) {
        g->setNodeFlag(TrenderInfo::kLinkToDefaultLightsFlag, true);
        TDGcommand command;
        EXPECT_TRUE(TrenderInfo::linkShadingGroupToDefaultLightSet(g, command));
    }
    return g;
}

TobjectSet* TlinkScene::set(const std::string& name, const std::vector<TdagNode*>& members) {
    auto* s = static_cast<TobjectSet*>(fGraph.createNode("objectSet", name));
    for (TdagNode* m : members) EXPECT_TRUE(s->addMember(pathOf(m)));
    return s;
}

TobjectSet* TlinkScene::defaultLightSet() {
    return static_cast<TobjectSet*>(fGraph.findNode(TDNshadingEngine::kDefaultLightSet));
}

TdnLightLink* TlinkScene::linker() { return static_cast<TdnLightLink*>(fGraph.findNode("lightLinker1")); }

TdnRenderGlobals* TlinkScene::globals() {
    return static_cast<TdnRenderGlobals*>(fGraph.findNode(TDNshadingEngine::kDefaultRenderGlobals));
}

void TlinkScene::pair(const Tattribute& compound, TdependNode* light, TdependNode* object) {
    TdnLightLink* l = linker();
    ASSERT_TRUE(l->connectPair(&compound, l->firstFreeIndexStartingFrom(0, &compound), light, object));
}

void TlinkScene::setShadowSwitches(bool obeyLightLinking, bool obeyShadowLinking) {
    ASSERT_TRUE(globals()->setAttributeValue(&TdnRenderGlobals::saShadowsObeyLightLinking(), &obeyLightLinking));
    ASSERT_TRUE(globals()->setAttributeValue(&TdnRenderGlobals::saShadowsObeyShadowLinking(), &obeyShadowLinking));
}

std::vector<std::string> TlinkScene::litNames(const TDNshadingEngine& group, unsigned index, bool shadow) {
    std::vector<std::string> out;
    for (TdependNode* l : shadow ? group.shadowLights() : group.lights())
        if (shadow ? group.shadowedBy(index, l) : group.litBy(index, l)) out.push_back(l->name().str());
    return out;
}
