// The 2D placement: each step of the mapping on its own, the outside
// convention, the filter scale, doTransform, and the placement feeding a
// texture through the engine.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <numbers>

#include "textures/checker.h"
#include "textures/noise/noise.h"
#include "textures/place_2d.h"
#include "support/expect_near.h"
#include "textures/procedural/texture_test_nodes.h"

namespace {
struct Mapped {
    bool inside;
    float u, v;
};
Mapped mapUV(const Tplace2dParams& p, float u, float v) {
    Mapped m{};
    m.inside = TdnPlace2dTx::sMapUV(p, u, v, m.u, m.v);
    return m;
}
// The node's inputs set to `p` (those the engine tests change).
void setPlacement(TdependNode* place, const Tplace2dParams& p) {
    place->setAttributeValue(&TdnPlace2dTx::saCoverage(), &p.coverage);
    place->setAttributeValue(&TdnPlace2dTx::saRepeatUV(), &p.repeat);
    place->setAttributeValue(&TdnPlace2dTx::saOffset(), &p.offset);
    place->setAttributeValue(&TdnPlace2dTx::saRotateUV(), &p.rotateUV);
    place->setAttributeValue(&TdnPlace2dTx::saWrapU(), &p.wrapU);
    place->setAttributeValue(&TdnPlace2dTx::saMirrorV(), &p.mirrorV);
}
}  // namespace

TEST(Place2d, EachStepOfTheMapping) {
    const double half = std::numbers::pi / 2;
    auto with = [](auto change) {
        Tplace2dParams p;
        change(p);
        return p;
    };
    struct {
        const char* name;
        Tplace2dParams p;
        T2Float in;
        bool inside;
        T2Float out;
    } cases[] = {
        {"identity", {}, {0.3f, 0.6f}, true, {0.3f, 0.6f}},
        {"wrap keeps far points", {}, {2.3f, -1.6f}, true, {2.3f, -1.6f}},
        {"translate", with([](auto& p) { p.translate = {0.25f, -0.5f}; }), {0.5f, 0.2f}, true, {0.25f, 0.7f}},
        {"translate past the edge, wrap off", with([](auto& p) { p.translate = {0.25f, 0}; p.wrapU = false; }), {0.1f, 0.2f}, false, {}},
        {"coverage 0.5 wrap off", with([](auto& p) { p.coverage = {0.5f, 1}; p.wrapU = false; }), {0.25f, 0.2f}, true, {0.5f, 0.2f}},
        {"coverage 0.5 wrap off beyond", with([](auto& p) { p.coverage = {0.5f, 1}; p.wrapU = false; }), {0.75f, 0.2f}, false, {}},
        {"coverage 0.5 wrap on, next period", with([](auto& p) { p.coverage = {0.5f, 0.5f}; }), {2.25f, -0.875f}, true, {0.5f, 0.25f}},
        {"coverage 0.5 wrap on, translated", with([](auto& p) { p.coverage = {0.5f, 1}; p.translate = {0.75f, 0}; }), {0.125f, 0.3f},
         true, {0.75f, 0.3f}},
        {"coverage 2", with([](auto& p) { p.coverage = {2, 4}; }), {0.5f, 1.0f}, true, {0.25f, 0.249975f}},
        {"repeat and offset", with([](auto& p) { p.repeat = {3, 0.5f}; p.offset = {0.1f, -0.2f}; }), {0.5f, 0.4f}, true, {1.6f, 0.0f}},
        {"stagger on an odd row", with([](auto& p) { p.repeat = {2, 2}; p.stagger = true; }), {0.2f, 0.6f}, true, {0.9f, 1.2f}},
        {"stagger on an even row", with([](auto& p) { p.repeat = {2, 2}; p.stagger = true; }), {0.2f, 0.4f}, true, {0.4f, 0.8f}},
        {"mirror U on an odd tile", with([](auto& p) { p.repeat = {2, 2}; p.mirrorU = true; }), {0.7f, 0.7f}, true, {1.6f, 1.4f}},
        {"mirror V on an odd tile", with([](auto& p) { p.repeat = {2, 2}; p.mirrorV = true; }), {0.7f, 0.7f}, true, {1.4f, 1.6f}},
        {"mirror on an even tile", with([](auto& p) { p.repeat = {2, 2}; p.mirrorU = true; }), {0.2f, 0.2f}, true, {0.4f, 0.4f}},
        {"rotate UV a quarter", with([&](auto& p) { p.rotateUV = half; }), {0.75f, 0.5f}, true, {0.5f, 0.75f}},
        {"rotate frame a half", with([](auto& p) { p.rotateFrame = std::numbers::pi; }), {0.2f, 0.3f}, true, {0.8f, 0.7f}},
        {"rotate frame then cut", with([](auto& p) { p.rotateFrame = std::numbers::pi; p.wrapU = false; }), {1.2f, 0.3f}, false, {}},
        // With wrap off 1 becomes the float just below it and stays inside.
        {"u = 1, wrap off", with([](auto& p) { p.wrapU = p.wrapV = false; }), {1, 1}, true, {0.9999f, 0.9999f}},
        {"just past 1, wrap off", with([](auto& p) { p.wrapU = p.wrapV = false; }), {1.0001f, 0.5f}, false, {}},
        {"just below 0, wrap off", with([](auto& p) { p.wrapU = p.wrapV = false; }), {0.5f, -0.0001f}, false, {}},
        {"coverage 0 passes through", with([](auto& p) { p.coverage = {0, 1}; p.repeat = {3, 3}; p.offset = {0.2f, 0.2f}; }),
         {5, -2}, true, {5, -2}},
        {"an outside sample stays outside", with([](auto& p) { p.repeat = {2, 2}; }), {-1e7f, -1e7f}, true, {-1e7f, -1e7f}},
        {"one coordinate at -1e7 is mapped like any other", with([](auto& p) { p.repeat = {1, 2}; }), {-1e7f, 0.3f}, true,
         {-1e7f, 0.6f}},
        {"repeat and offset past the float range", with([](auto& p) { p.repeat = {3e38f, 1}; p.offset = {3e38f, 0}; }),
         {0.5f, 0.5f}, false, {}},
        {"rotate UV past the float range", with([&](auto& p) { p.repeat = {3e38f, 3e38f}; p.rotateUV = half / 2; }),
         {0.9f, 0.9f}, false, {}},
    };
    EXPECT_EQ(std::bit_cast<float>(TdnPlace2dTx::kAlmostOneBits), 0.9999f);
    for (auto& c : cases) {
        Mapped m = mapUV(c.p, c.in.x, c.in.y);
        EXPECT_EQ(m.inside, c.inside) << c.name;
        if (!c.inside) {
            EXPECT_EQ(m.u, -10000000.0f) << c.name;
            EXPECT_EQ(m.v, -10000000.0f) << c.name;
            continue;
        }
        EXPECT_NEAR(m.u, c.out.x, 2e-6f * std::max(1.0f, std::fabs(c.out.x))) << c.name;
        EXPECT_NEAR(m.v, c.out.y, 2e-6f) << c.name;
    }
}

TEST(Place2d, HalfCoverageWithWrapRepeatsEveryUnitWithGaps) {
    Tplace2dParams p;
    p.coverage = {0.5f, 1};
    p.translate = {0.1f, 0};
    for (float u = -2.0f; u < 2.0f; u += 0.0137f) {
        Mapped a = mapUV(p, u, 0.5f), b = mapUV(p, u + 1.0f, 0.5f);
        float x = u - std::floor(u);
        // Inside where the translated frame [0.1, 0.6] covers the fraction of u.
        bool expectInside = x >= 0.1f - 1e-5f && x <= 0.6f + 1e-5f;
        if (std::fabs(x - 0.1f) < 1e-3f || std::fabs(x - 0.6f) < 1e-3f) continue;  // rounding at the frame's edges
        EXPECT_EQ(a.inside, expectInside) << u;
        EXPECT_EQ(a.inside, b.inside) << u;
        if (a.inside) {
            EXPECT_NEAR(a.u, (x - 0.1f) / 0.5f, 1e-4f) << u;
            EXPECT_NEAR(a.u, b.u, 1e-4f) << u;
        }
    }
}

TEST(Place2d, NoiseMovesTheLookupByTheTwoNoiseValues) {
    Tplace2dParams p;
    p.noise = {0.2f, 0.1f};
    p.wrapU = p.wrapV = false;
    p.coverage = {4, 4};
    p.translate = {-2, -2};
    for (T2Float in : {T2Float{0.1f, 0.2f}, T2Float{0.7f, 0.35f}, T2Float{0.4f, 0.9f}}) {
        Mapped m = mapUV(p, in.x, in.y);
        float u = in.x + 0.2f * Tnoise::noise2(in.x, in.y);
        float v = in.y + 0.1f * Tnoise::noise2(in.x + 0.5f, in.y + 0.5f);
        EXPECT_NEAR(m.u, (u + 2) / 4, 1e-6f);
        EXPECT_NEAR(m.v, (v + 2) / 4, 1e-6f);
    }
    p.noise = {1e-6f, -1e-6f};
    Mapped still = mapUV(p, 0.3f, 0.3f);
    EXPECT_FLOAT_EQ(still.u, (0.3f + 2) / 4) << "noise below 1e-5 is off";
}

TEST(Place2d, DoTransformIsOffOnlyForTheIdentity) {
    EXPECT_FALSE(TdnPlace2dTx::computeDoTransform({}));
    struct {
        const char* name;
        void (*change)(Tplace2dParams&);
        bool expected;
    } cases[] = {
        {"coverage", [](Tplace2dParams& p) { p.coverage.x = 0.5f; }, true},
        {"repeat", [](Tplace2dParams& p) { p.repeat.y = 2; }, true},
        {"mirror", [](Tplace2dParams& p) { p.mirrorV = true; }, true},
        {"stagger", [](Tplace2dParams& p) { p.stagger = true; }, true},
        {"wrap off", [](Tplace2dParams& p) { p.wrapU = false; }, true},
        {"rotate frame", [](Tplace2dParams& p) { p.rotateFrame = 1e-9; }, true},
        {"rotate UV below 1e-10", [](Tplace2dParams& p) { p.rotateUV = 1e-11; }, false},
        {"translate", [](Tplace2dParams& p) { p.translate.y = 2e-5f; }, true},
        {"translate below 1e-5", [](Tplace2dParams& p) { p.translate.y = 5e-6f; }, false},
        {"offset", [](Tplace2dParams& p) { p.offset.x = -1e-4f; }, true},
        {"noise", [](Tplace2dParams& p) { p.noise.x = 0.1f; }, true},
    };
    for (auto& c : cases) {
        Tplace2dParams p;
        c.change(p);
        EXPECT_EQ(TdnPlace2dTx::computeDoTransform(p), c.expected) << c.name;
    }
    TdependGraph graph;
    auto* place = static_cast<TdnPlace2dTx*>(graph.createNode("place2dTexture"));
    bool value = true;
    place->getAttributeValue(&TdnPlace2dTx::saDoTransform(), &value);
    EXPECT_FALSE(value);
    setValue(place, TdnPlace2dTx::saRepeatUV(), T2Float{2, 1});
    place->getAttributeValue(&TdnPlace2dTx::saDoTransform(), &value);
    EXPECT_TRUE(value) << "an edit is seen through the graph";
}

TEST(Place2d, FilterScalesByRepeatOverCoverage) {
    TdependGraph graph;
    auto* place = static_cast<TdnPlace2dTx*>(graph.createNode("place2dTexture"));
    setValue(place, TdnPlace2dTx::saCoverage(), T2Float{0.5f, 0});
    setValue(place, TdnPlace2dTx::saRepeatUV(), T2Float{3, 2});
    TdoubleArray u{0.1, 0.2}, v{0.3, 0.4}, ou, ov;
    T2Float filter;
    place->mapToTxUV(u, v, ou, ov, filter);
    EXPECT_FLOAT_EQ(filter.x, 3.0f / 0.5f * 0.002604f);
    EXPECT_FLOAT_EQ(filter.y, 2.0f * 1000000.0f * 0.002604f);
    ASSERT_EQ(ou.length(), 2u);
    EXPECT_EQ(ou[0], double(0.1f)) << "coverage 0 in v: no transform at all";
    EXPECT_EQ(ov[1], double(0.4f));

    T2Float out;
    setValue(place, TdnPlace2dTx::saUvFilterSize(), T2Float{0.01f, 0.02f});
    place->getAttributeValue(&TdnPlace2dTx::saOutUvFilterSize(), &out);
    EXPECT_FLOAT_EQ(out.x, 0.01f * 6.0f);
    EXPECT_FLOAT_EQ(out.y, 0.02f * 2.0f * 1000000.0f);
}

TEST(Place2d, FeedsATextureThroughTheEngine) {
    TtextureNetwork net;
    auto* place = net.make<TdnPlace2dTx>("place2dTexture");
    auto* checker = net.make<TdnChecker>("checker");
    auto* source = net.make<TtexTestSource>("texTestSource");
    net.connect(place, TdnPlace2dTx::saOutUV(), checker, TdnTx2D::saUvCoord());
    net.connect(place, TdnPlace2dTx::saOutUvFilterSize(), checker, TdnTx2D::saUvFilterSize());
    net.connect(source, TtexTestSource::saOutColor(), checker, TdnChecker::saColor1());
    Tplace2dParams p;
    p.coverage = {0.5f, 0.8f};
    p.wrapU = false;
    p.repeat = {3, 2};
    p.rotateUV = 0.3;
    setPlacement(place, p);
    const T3Float fallback(0.1f, 0.2f, 0.3f);
    setValue(checker, TdnTx2D::saDefaultColor(), fallback);
    net.show(checker, TdnTx2D::saOutColor());
    std::vector<T2Float> uvs = spreadUvs();
    TtextureBatch batch = net.shade(uvs);
    const int computedByBatch = source->samples;
    int outside = 0, needFirst = 0;
    for (unsigned i = 0; i < uvs.size(); ++i) {
        Mapped m = mapUV(p, uvs[i].x, uvs[i].y);
        T3Float want = fallback;
        if (m.inside) {
            float w1 = TdnChecker::sColor1Weight({m.u, m.v}, {}, 1, 0, 1);
            needFirst += w1 >= 1e-5f;
            want = TtexTestSource::sColourAt(uvs[i]) * w1;
        } else {
            ++outside;
        }
        expectNear(batch.colour(i), want, "sample " + std::to_string(i), 1e-5f);
        // The host graph's scalar pull gives the same colour.
        place->setAttributeValue(&TdnPlace2dTx::saUvCoord(), &uvs[i]);
        source->setAttributeValue(&TtexTestSource::saUvCoord(), &uvs[i]);
        T3Float pulled;
        checker->getAttributeValue(&TdnTx2D::saOutColor(), &pulled);
        expectNear(pulled, batch.colour(i), "pulled " + std::to_string(i));
    }
    EXPECT_GT(outside, 8) << "the case must put samples outside";
    EXPECT_EQ(computedByBatch, needFirst) << "the input is not computed outside or where color2 shows";
}

TEST(Place2d, ThroughTheEngineAParameterDrivenPerSampleMapsSampleBySample) {
    // Repeat driven by a source that outputs the sample's own uv; the
    // constant placements, the identity among them, are in the next test.
    TtextureNetwork net;
    auto* place = net.make<TdnPlace2dTx>("place2dTexture");
    auto* reader = net.make<TtexTestSource>("texTestSource");
    auto* driver = net.make<TtexTestSource>("texTestSource");
    net.connect(place, TdnPlace2dTx::saOutUV(), reader, TtexTestSource::saUvCoord());
    net.connect(driver, TtexTestSource::saOutColorR(), place, TdnPlace2dTx::saRepeatUVU());
    net.show(reader, TtexTestSource::saOutColor());
    std::vector<T2Float> uvs = spreadUvs();
    TtextureBatch batch = net.shade(uvs);
    for (unsigned i = 0; i < uvs.size(); ++i) {
        Tplace2dParams p;
        p.repeat = {uvs[i].x, 1.0f};  // the driver's red is the sample's u
        Mapped m = mapUV(p, uvs[i].x, uvs[i].y);
        T3Float want = m.inside ? TtexTestSource::sColourAt({m.u, m.v}) : TtexTestSource::sColourAt({kOutsideUv, kOutsideUv});
        expectNear(batch.colour(i), want, "sample " + std::to_string(i), 1e-5f);
    }
}

TEST(Place2d, ASettledPlacementIsReadAgainForEachRender) {
    // Nothing drives the placement, so each render reads it once: three
    // renders of one node with the values changed in between must each
    // map (and scale the filter size) by their own values. The middle
    // render is the identity, which hands the sample's uv on unchanged.
    Tplace2dParams renders[3];
    renders[0].coverage = {0.5f, 0.8f};
    renders[0].repeat = {3, 2};
    renders[0].rotateUV = 0.3;
    renders[0].wrapU = false;
    renders[2].repeat = {1.5f, 4};
    renders[2].offset = {0.2f, 0.1f};
    renders[2].mirrorV = true;
    const T2Float filterSize{0.01f, 0.03f};
    for (bool filter : {false, true}) {
        SCOPED_TRACE(filter ? "outUvFilterSize" : "outUV");
        TtextureNetwork net;
        auto* place = net.make<TdnPlace2dTx>("place2dTexture");
        auto* reader = net.make<TtexTestSource>("texTestSource");
        net.connect(place, filter ? TdnPlace2dTx::saOutUvFilterSize() : TdnPlace2dTx::saOutUV(), reader, TtexTestSource::saUvCoord());
        net.show(reader, TtexTestSource::saOutColor());
        for (unsigned r = 0; r < 3; ++r) {
            const Tplace2dParams* p = &renders[r];
            setPlacement(place, *p);
            net.session.reset();  // the next render
            std::vector<T2Float> uvs = spreadUvs();
            TtextureBatch batch = net.shade(uvs, filterSize);
            for (unsigned i = 0; i < uvs.size(); ++i) {
                T2Float want;
                if (filter) {
                    want = {filterSize.x * (p->repeat.x / p->coverage.x), filterSize.y * (p->repeat.y / p->coverage.y)};
                } else {
                    const Mapped m = mapUV(*p, uvs[i].x, uvs[i].y);
                    want = m.inside ? T2Float{m.u, m.v} : T2Float{kOutsideUv, kOutsideUv};
                }
                EXPECT_EQ(batch.colour(i).x, want.x) << "render " << r << " sample " << i;
                EXPECT_EQ(batch.colour(i).y, want.y) << "render " << r << " sample " << i;
            }
        }
    }
}
