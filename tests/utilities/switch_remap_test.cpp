// The single, double, triple and quad switches pick each object's element (or the
// default) through both roads, and an element can vary per sample; the
// colour remaps work per channel, directly and in HSV.
#include <algorithm>
#include <cmath>
#include <functional>

#include "framework/host/dag.h"
#include "framework/render_utilities.h"
#include "shading/render_bases.h"
#include "utilities/remap.h"
#include "utilities/switches.h"
#include "utilities/utility_fixture.h"

namespace {
// How one switch class is wired to the probe and read back: `floats` values
// per element, their place in the probe's results.
struct TswitchCase {
    const char* type;
    const Tattribute* value;
    const Tattribute* fallback;
    unsigned floats;
    std::function<void(TutilityNetwork&, TdependNode*)> wire;
    std::function<float(const TprobeResult&, unsigned)> read;
    bool drivenB = false;  // B's element follows the sample's point
};

std::vector<TswitchCase> switchCases() {
    std::vector<TswitchCase> cases = {
        {"singleShadingSwitch", &TdnSingleSwitch::saInValue(), &TdnSingleSwitch::saDefault(), 1,
         [](TutilityNetwork& net, TdependNode* sw) { net.toColor(sw, TdnSingleSwitch::saOutput()); },
         [](const TprobeResult& r, unsigned) { return r.color.x; }},
        {"doubleShadingSwitch", &TdnDoubleSwitch::saInValue(), &TdnDoubleSwitch::saDefault(), 2,
         [](TutilityNetwork& net, TdependNode* sw) {
             net.connect(sw, *sw->attribute(Tstring("outComp1")), net.probe, TtestPassThroughSurface::saColorR());
             net.connect(sw, *sw->attribute(Tstring("outComp2")), net.probe, TtestPassThroughSurface::saColorG());
         },
         [](const TprobeResult& r, unsigned k) { return k == 0 ? r.color.x : r.color.y; }},
        {"tripleShadingSwitch", &TdnTripleSwitch::saInValue(), &TdnTripleSwitch::saDefault(), 3,
         [](TutilityNetwork& net, TdependNode* sw) { net.toColor(sw, TdnTripleSwitch::saOutput()); },
         [](const TprobeResult& r, unsigned k) { return r.color[int(k)]; }},
        {"quadShadingSwitch", &TdnQuadSwitch::saInValue(), &TdnQuadSwitch::saDefault(), 4,
         [](TutilityNetwork& net, TdependNode* sw) {
             net.toColor(sw, *sw->attribute(Tstring("outTriple")));
             net.toTransparency(sw, *sw->attribute(Tstring("outSingle")));
         },
         [](const TprobeResult& r, unsigned k) { return k < 3 ? r.color[int(k)] : r.transparency.x; }},
    };
    cases.push_back(cases[2]);
    cases.back().drivenB = true;
    return cases;
}

float elementValue(unsigned element, unsigned k) { return 0.1f * float(element + 1) + 0.01f * float(k); }

// What a renderer hands the engine as a sample's object: a render group
// that knows the path of the shape it renders.
struct TshapeGroup : TrenderGroupBase {
    TdagPath path;
    unsigned objectNumber() const override { return 0; }
    const TgeoManagerBase* geometryManager() const override { return nullptr; }
    bool receiveShadows() const override { return true; }
    const TdagPath* dagPath() const override { return &path; }
};

// A sphere under its own transform, and the group that renders it.
struct TshapeUnderTransform {
    TdagNode* transform;
    TdagNode* shape;
    TshapeGroup group;
    explicit TshapeUnderTransform(TutilityNetwork& net)
        : transform(static_cast<TdagNode*>(net.make("transform"))), shape(static_cast<TdagNode*>(net.make("sphere"))) {
        transform->addChild(shape);
        group.path = TdagPath({transform, shape});
    }
};
}  // namespace

TEST(ShadingSwitches, EveryKindPicksPerObjectAndAnElementMayVaryPerSample) {
    for (const TswitchCase& c : switchCases()) {
        SCOPED_TRACE(std::string(c.type) + (c.drivenB ? ", B's element driven per sample" : ""));
        TutilityNetwork net;
        TdependNode* sw = net.make(c.type);
        // A is connected by its shape, B by its transform; the stranger not.
        TshapeUnderTransform a(net), b(net), stranger(net);
        const unsigned at[2] = {0, 3};
        for (unsigned e : at) {
            float bytes[4];
            for (unsigned k = 0; k < c.floats; ++k) bytes[k] = elementValue(e, k);
            ASSERT_TRUE(sw->setAttributeValue(c.value, bytes, e));
        }
        if (c.drivenB) net.connect(net.source(), TutilityTestSource::saOutA(), sw, *c.value, int(at[1]));
        float fallback[4] = {0.25f, 0.5f, 0.75f, 0.125f};
        ASSERT_TRUE(sw->setAttributeValue(c.fallback, fallback));
        const Tattribute* shape = sw->attribute(Tstring("inShape"));
        net.connect(a.shape, TdependNode::saMessage(), sw, *shape, int(at[0]));
        net.connect(b.transform, TdependNode::saMessage(), sw, *shape, int(at[1]));
        c.wire(net, sw);
        auto in = rampSamples(64);
        TrenderGroupBase* objects[3] = {&a.group, &stranger.group, &b.group};
        for (unsigned i = 0; i < in.size(); ++i) in[i].object = objects[(i / 3) % 3];
        auto out = shadeBothWays(net, in);
        ASSERT_EQ(out.size(), in.size());
        for (unsigned i = 0; i < in.size(); ++i)
            for (unsigned k = 0; k < c.floats; ++k) {
                const float ofB = c.drivenB ? in[i].point[int(k)] : elementValue(at[1], k);
                float expected = in[i].object == &a.group   ? elementValue(at[0], k)
                                 : in[i].object == &b.group ? ofB
                                                            : fallback[k];
                EXPECT_EQ(c.read(out[i], k), expected) << "sample " << i << " value " << k;
            }
    }
}

TEST(ColorRemaps, RemapColorAndRemapHsvFollowTheirCurvesPerChannel) {
    // Each channel's curve: (0, 0) linear to (1, gain); the input range
    // [0, 2] maps onto [0, 1] first, the output onto [0.5, 1.5].
    const float gains[3] = {1.0f, 0.5f, 0.25f};
    for (const char* type : {"remapColor", "remapHsv"}) {
        SCOPED_TRACE(type);
        const bool hsv = std::string(type) == "remapHsv";
        TutilityNetwork net;
        TdependNode* node = net.make(type);
        net.connect(net.source(), TutilityTestSource::saOutA(), node, *node->attribute(Tstring("color")));
        net.set(node, *node->attribute(Tstring("inputMax")), 2.0f);
        net.set(node, *node->attribute(Tstring("outputMin")), 0.5f);
        net.set(node, *node->attribute(Tstring("outputMax")), 1.5f);
        const char* curves[3] = {hsv ? "hue" : "red", hsv ? "saturation" : "green", hsv ? "value" : "blue"};
        for (int c = 0; c < 3; ++c) {
            std::string base = curves[c];
            const Tattribute* position = node->attribute(Tstring(base + "_Position"));
            const Tattribute* value = node->attribute(Tstring(base + "_FloatValue"));
            ASSERT_NE(position, nullptr) << base;
            ASSERT_NE(value, nullptr) << base;
            const float p[2] = {0, 1}, v[2] = {0, gains[c]};
            for (unsigned e = 0; e < 2; ++e) {
                ASSERT_TRUE(node->setAttributeValue(position, &p[e], e));
                ASSERT_TRUE(node->setAttributeValue(value, &v[e], e));
            }
        }
        net.toColor(node, *node->attribute(Tstring("outColor")));
        auto in = rampSamples(32);
        auto out = shadeBothWays(net, in);
        ASSERT_EQ(out.size(), in.size());
        for (unsigned i = 0; i < in.size(); ++i) {
            T3Float x = in[i].point;
            if (hsv) {
                x = TrenderUtilities::RGBtoHSV(x);
                x.x /= 360.0f;
            }
            T3Float r;
            for (int c = 0; c < 3; ++c) r[c] = 0.5f + std::clamp(x[c] / 2.0f, 0.0f, 1.0f) * gains[c];
            if (hsv) {
                r.x *= 360.0f;
                r = TrenderUtilities::HSVtoRGB(r);
            }
            for (int c = 0; c < 3; ++c) EXPECT_NEAR(out[i].color[c], r[c], 2e-5f) << "sample " << i << " channel " << c;
        }
    }
}
