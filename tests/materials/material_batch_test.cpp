// Every surface family: its attributes are found by both names and keep
// their own tags; it shades a full batch without touching the heap, gives
// the same colours when the batch is shaded again, and the same colours one
// sample at a time through the same program.
#include <functional>
#include <set>

#include "materials/material_fixture.h"
#include "materials/specular.h"

TEST(MaterialBatch, NoHeapTheSameAgainAndOneByOne) {
    struct Row {
        const char* type;
        bool traces;  // the set-up sends rays
        std::function<void(TmaterialNetwork&)> setUp;
    } rows[] = {
        {"lambert", true,
         [](TmaterialNetwork& net) {
             net.set(TdnLambert::saTransparency(), T3Float(0.3f, 0.3f, 0.3f));
             net.set(TdnLambert::saRtRefractedColor(), true);
             net.set(TdnLambert::saTranslucenceCoeff(), 0.3f);
         }},
        {"blinn", true,
         [](TmaterialNetwork& net) {
             net.set(TdnReflect::saReflectivity(), 0.5f);
             net.set(TdnReflect::saReflectionLimit(), short(5));
         }},
        {"rampShader", false,
         [](TmaterialNetwork& net) {
             net.set("specularity", 0.5f);
             net.set("translucence", 0.3f);
             for (int k = 0; k < 2; ++k) {
                 net.set("color_Position", float(k), k);
                 net.set("color_Color", T3Float(1.0f - float(k), float(k), 0), k);
             }
         }},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.type);
        TtestRaySampler sampler;
        TmaterialNetwork net(row.type);
        net.setRaySampler(&sampler);
        row.setUp(net);
        for (unsigned k = 0; k < 4; ++k)
            net.setLight(k, pointLightRecord(T3Float(float(k) - 1.5f, 3, 1), T3Float(1, 0.5f, 0.25f), 2, int(k), T3Float(0, 0, -5)));
        std::vector<TmaterialSample> in(kBatchSize);
        for (unsigned i = 0; i < kBatchSize; ++i) {
            float t = float(i) / kBatchSize;
            in[i].normal = normalize(T3Float(t - 0.5f, 0.3f, 1));
            in[i].direction = normalize(T3Float(0.2f, -t, -1));
        }
        EXPECT_EQ(net.allocationsWhenShadedAgain(in), 0u);
        EXPECT_EQ(sampler.traced > 0, row.traces);
        TshadingOpus* opus = net.analyse();
        ASSERT_NE(opus, nullptr);
        TtestSamples batch = net.makeBatch(in);
        batch.shade(opus);
        std::vector<T3Float> batched;
        for (Tsample* s : batch.samples) batched.push_back(*s->outColor());
        batch.shade(opus);
        for (unsigned i = 0; i < kBatchSize; ++i) EXPECT_TRUE(*batch[i].outColor() == batched[i]) << i << ": again, the same";
        for (unsigned i = 0; i < kBatchSize; i += 9) {
            opus->shade(1, &batch.samples[i]);
            expectNear3(*batch[i].outColor(), batched[i], 1e-6f, "alone");
        }
    }
}

// Scene files find attributes by either name and files key stored values by
// tag: the list refuses a name taken twice silently, which would hide a
// setting, and a tag taken twice would mix two values up.
TEST(MaterialClasses, EveryAttributeIsListedUnderBothNamesAndNoTagRepeats) {
    for (const char* type : {"lambert", "phong", "phongE", "blinn", "anisotropic", "hairTubeShader", "rampShader"}) {
        SCOPED_TRACE(type);
        TdependGraph graph;
        TdependNode* node = graph.createNode(type);
        ASSERT_NE(node, nullptr);
        for (const TdependNodeVS* vs = &node->vsData(); vs; vs = vs->fBaseDescription ? vs->fBaseDescription() : nullptr)
            for (const Tattribute* a : vs->ownAttributes()) {
                EXPECT_EQ(node->attribute(a->longName()), a) << a->longName().str();
                EXPECT_EQ(node->attribute(a->shortName()), a) << a->shortName().str();
            }
        const TattributeList& list = node->vsData().attributes();
        std::set<uint32_t> tags;
        for (unsigned i = 0; i < list.length(); ++i) EXPECT_TRUE(tags.insert(list[i]->tag().value()).second) << list[i]->longName().asC();
    }
}
