// User sample data: a node reserves a value in every sample, filled before
// each batch by a per-object fill object or copied from another field, and
// the node's input reads it.
#include <gtest/gtest.h>

#include <atomic>

#include "framework/host/dag.h"
#include "framework/host/node_class.h"
#include "shading/engine_fixture.h"
#include "shading/render_thread.h"
#include "shading/sample_manager.h"
#include "shading/user_sample_data.h"
#include "support/alloc_counter.h"

namespace {
// Writes base + object number + sample index into the field.
struct TtestFill : TuserSampleFill {
    explicit TtestFill(float b) : base(b) {}
    void fill(unsigned count, Tsample** samples, unsigned field, unsigned size, unsigned) const override {
        for (unsigned i = 0; i < count; ++i) {
            float v = base + float(i);
            EXPECT_EQ(size, sizeof v);
            samples[i]->setUserSampleData(field, size, &v);
        }
        ++fills;
    }
    void release() const override { ++releases; }
    float base;
    mutable std::atomic<int> fills{0}, releases{0};
};

// A surface whose red comes from a user item that copies "shadowAttenuation".
struct TengineTestUserVS : TdependNodeVS {
    TattributeFloat weight{"weight", "w", TiffTag("EUSW")};
    TcolorAttribute outColor{"outColor", "oc", TiffTag("EUSO")};
    TengineTestUserVS() { outColor.setFlag(kAttrWritable, false); }
    bool setupDependencies(TdependencyMatrix& m) override {
        if (!TdependNodeVS::setupDependencies(m)) return false;
        affects(m, {&weight}, {&outColor.whole});
        return true;
    }
};
class TengineTestUser : public TnodeClass<TengineTestUser, TrenderNode, TengineTestUserVS> {
public:
    static constexpr TnodeClassInfo kInfo{"TengineTestUser", 9106, "kEngineTestUser", "engineTestUser", "EUSR", "shader/surface"};
    SN_ATTRIBUTE(Weight, weight)
    SN_COLOR_ATTRIBUTE(OutColor, outColor)
    const TuserSampleFill* const* fills = nullptr;
    unsigned fillCount = 0;
    unsigned field = 0;
    void analyse(TDNshadingEngine* group, TSEnodeDescription* d, void*, TbitField64&) override {
        field = group->defineUserSampleData(d, &attrWeight(), sizeof(float), kItemShadowAttenuation, fills, fillCount);
    }

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override {
        if (plug.attribute()->rootParent() != &attrOutColor()) return TrenderNode::vectorComputePlug(plug, block, first, count);
        TdataHandle w = block.inputValue(attrWeight(), first, count);
        TdataHandle out = block.outputValue(attrOutColor(), first, count);
        for (unsigned i = first; i < first + count; ++i) out.asFloat3(i) = T3Float(w.asFloat(i), 2 * w.asFloat(i), 0);
        block.setClean(attrOutColor());
        return true;
    }
};
SN_REGISTER_NODE_CLASS(TengineTestUser)
}  // namespace

// Lit, the node feeds a Lambert under a point light: the layout made again
// to carry what the light reads keeps the user entries.
TEST(UserSampleData, LayoutSizesAndFieldIndex) {
    for (bool lit : {false, true}) {
        SCOPED_TRACE(lit ? "lit" : "unlit");
        TengineNetwork net;
        auto* node = net.make<TengineTestUser>("engineTestUser");
        if (lit) {
            TdependNode* lambert = net.make<TdependNode>("lambert");
            net.connect(node, TengineTestUser::saOutColor(), lambert, *lambert->attribute(Tstring("color")));
            net.toSurfaceShader(lambert, *lambert->attribute(Tstring("outColor")));
            TdependNode* light = net.make<TdependNode>("pointLight");
            net.make<Ttransform>("transform")->addChild(static_cast<TdagNode*>(light));
            net.group->setLightTables({light}, {}, {light}, {});
        } else {
            net.toSurfaceShader(node, TengineTestUser::saOutColor());
        }
        TshadingOpus* opus = net.analyse();
        ASSERT_NE(opus, nullptr);
        ASSERT_TRUE(opus->userSampleData());
        EXPECT_EQ(node->field, kFirstUserField + 1);  // after the illumination slot
        EXPECT_EQ(opus->sizeOffset(), 2u);
        EXPECT_EQ(opus->userSampleSize(), 4u);
        const unsigned* table = opus->fieldOffsetTable();
        EXPECT_EQ(table, net.group->fieldOffsetTable(kSurfaceColorTransparency));
        EXPECT_EQ(table[kItemLightData] != 0, lit);
        // The slot follows the items, the item follows the slot, the total ends it.
        EXPECT_GE(table[kFirstUserField], table[kSampleItemCount]);
        // Each user entry starts pointer-aligned after the one before it.
        EXPECT_EQ(table[kFirstUserField + 1], (table[kFirstUserField] + kIlluminationSlotSize + 7) / 8 * 8);
        EXPECT_EQ(table[kFirstUserField + 2], table[kFirstUserField + 1] + 4);
        EXPECT_GE(net.group->sampleSize(kSurfaceColorTransparency), table[kFirstUserField + 2]);
        EXPECT_NE(table[kItemShadowAttenuation], 0u);  // the source field is laid out too
    }
}

TEST(UserSampleData, CopiedFromItsSourceOrWrittenByTheObjectsFill) {
    TtestFill fillForOne(100.0f);
    const TuserSampleFill* fills[2] = {nullptr, &fillForOne};  // object 0 has none
    struct {
        int object;  // -1: no render group
        bool fromFill;
    } cases[] = {{-1, false}, {0, false}, {1, true}, {5, false}};
    for (auto& c : cases) {
        SCOPED_TRACE(c.object);
        TengineNetwork net;
        auto* node = net.make<TengineTestUser>("engineTestUser");
        node->fills = fills;
        node->fillCount = 2;
        net.toSurfaceShader(node, TengineTestUser::saOutColor());
        TshadingOpus* opus = net.analyse();
        ASSERT_NE(opus, nullptr);
        TtestRenderGroup renderGroup(c.object < 0 ? 0 : unsigned(c.object));
        TsampleBatch batch{};
        batch.renderGroup = &renderGroup;
        TtestSamples samples(net.group, 9);
        for (unsigned i = 0; i < samples.size(); ++i) {
            if (c.object >= 0) samples.samples[i]->reset(net.group->fieldOffsetTable(kSurfaceColorTransparency), nullptr, &batch);
            samples.samples[i]->setShadowAttenuation(0.5f + float(i));
        }
        int before = fillForOne.fills;
        {
            TallocationCounter counter;
            samples.shade(opus);
            EXPECT_EQ(counter.allocations(), 0u);
        }
        EXPECT_EQ(fillForOne.fills - before, c.fromFill ? 1 : 0);
        for (unsigned i = 0; i < samples.size(); ++i) {
            float expected = c.fromFill ? 100.0f + float(i) : 0.5f + float(i);
            EXPECT_EQ(samples.samples[i]->outColor()->x, expected) << i;
            EXPECT_EQ(samples.samples[i]->outColor()->y, 2 * expected) << i;
        }
    }
    // Each analysis held the fill objects once; deleting the programs gave them back.
    EXPECT_EQ(fillForOne.releases, 4);
}

TEST(UserSampleData, ThroughTheSampleManagerEachObjectGetsItsFill) {
    // Two objects in batches of their own: object 1 has a fill, object 0 copies.
    TtestFill fillForOne(100.0f);
    const TuserSampleFill* fills[2] = {nullptr, &fillForOne};
    TengineNetwork net;
    auto* node = net.make<TengineTestUser>("engineTestUser");
    node->fills = fills;
    node->fillCount = 2;
    net.toSurfaceShader(node, TengineTestUser::saOutColor());
    struct Raster : TbaseDeepRaster {
        std::vector<std::pair<unsigned, float>> seen;  // object, red
        void receiveSamples(TSEoption, TrenderGroupBase* group, Tsample** samples, unsigned count) override {
            for (unsigned i = 0; i < count; ++i) seen.push_back({group->objectNumber(), samples[i]->outColor()->x});
        }
    } raster;
    {
        TframeConstants constants;
        constants.setDeepRaster(&raster);
        TrenderThreadBase thread(&constants);
        thread.initShadingGroup(net.group);
        TtestRenderGroup zero(0), one(1);
        thread.startSampling(net.group, kSurfaceColorTransparency, &zero, nullptr);
        TsampleManager& manager = *thread.sampleManager();
        for (TtestRenderGroup* g : {&zero, &one, &zero, &one}) {
            std::vector<Tsample*> samples(32, nullptr);
            manager.allocateSamples(net.group, kSurfaceColorTransparency, g, 32, samples.data());
            for (unsigned i = 0; i < 32; ++i) {
                ASSERT_NE(samples[i], nullptr);
                samples[i]->setShadowAttenuation(-float(i));
            }
            manager.dispatchSamples(32, samples.data());
        }
        TrenderThreadBase::resetShadingGroups();
    }
    ASSERT_EQ(raster.seen.size(), 128u);
    for (unsigned k = 0; k < raster.seen.size(); ++k) {
        auto [object, red] = raster.seen[k];
        unsigned i = k % 64;  // index within its batch
        EXPECT_EQ(red, object == 1 ? 100.0f + float(i) : -float(i % 32)) << k;
    }
    EXPECT_EQ(fillForOne.fills, 1);
}
