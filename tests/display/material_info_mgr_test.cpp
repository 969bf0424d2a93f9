// Which factory fills a material's record: the classification's first, the
// type name's second, none when neither is registered.
#include <gtest/gtest.h>

#include "display/material_info.h"
#include "framework/host/depend_graph.h"

namespace {
// Each factory writes its own shininess, so the record tells which one ran.
template <int kShininess>
struct TmarkFactory : TmaterialInfoFactory {
    using TmaterialInfoFactory::TmaterialInfoFactory;
    bool computeMaterial(TmaterialInputData& data) override {
        data.shininess = kShininess;
        return true;
    }
    static TmaterialInfoFactory* create(TdependNode* node) { return new TmarkFactory(node); }
};

float shininessOf(TdependGraph& g, const char* type) {
    TdependNode* material = g.createNode(type);
    TdependNode* group = g.createNode("shadingEngine");
    Tplug out, in;
    g.findPlug(material->name().str() + ".outColor", out);
    g.findPlug(group->name().str() + ".surfaceShader", in);
    EXPECT_EQ(g.connect(out, in), TconnectStatus::kOk);
    TmaterialInfo info(group);
    return info.data().shininess;
}
}  // namespace

TEST(MaterialInfoMgr, ClassificationBeforeTypeNameThenTheStandardReading) {
    TdependGraph g;
    ASSERT_TRUE(TmaterialInfoMgr::registerMaterialInfoGen("byType", {TmarkFactory<3>::create}));
    ASSERT_TRUE(TmaterialInfoMgr::registerMaterialInfoGen("byClass", {TmarkFactory<5>::create}));
    EXPECT_FALSE(TmaterialInfoMgr::registerMaterialInfoGen("byType", {TmarkFactory<7>::create})) << "a name is taken once";
    ASSERT_TRUE(TmaterialInfoMgr::registerNodeMaterialInfo("blinn", "byType"));
    EXPECT_EQ(shininessOf(g, "blinn"), 3.0f);
    ASSERT_TRUE(TmaterialInfoMgr::registerNodeMaterialInfo("shader/surface", "byClass"));
    EXPECT_EQ(shininessOf(g, "blinn"), 5.0f) << "the classification wins";
    EXPECT_EQ(shininessOf(g, "lambert"), 5.0f);
    // A classification bound to a generator that is gone falls back to the type.
    ASSERT_TRUE(TmaterialInfoMgr::unregisterMaterialInfoGen("byClass"));
    EXPECT_EQ(shininessOf(g, "blinn"), 3.0f);
    ASSERT_TRUE(TmaterialInfoMgr::unregisterMaterialInfoGen("byType"));
    EXPECT_FALSE(TmaterialInfoMgr::unregisterMaterialInfoGen("byType"));
    // Without a factory a Lambert has no highlight: shininess 0.
    EXPECT_EQ(shininessOf(g, "lambert"), 0.0f);
}
