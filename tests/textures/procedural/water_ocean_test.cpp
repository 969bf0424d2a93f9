// Water and ocean: wave lists and spectra checked by their invariants
// (amplitudes, bounds, symmetry, scale), the ocean's curves in closed form,
// and both through the engine against the scalar pull.
#include <gtest/gtest.h>

#include <cmath>

#include "textures/ocean.h"
#include "textures/procedural/texture_checks.h"
#include "textures/water.h"

TEST(Water, WaveListSumsToOneAndFollowsTheWind) {
    for (short n : {1, 8, 32}) {
        TwaveListKey key;
        key.count = n;
        key.wind = T2Float{0, 3};
        key.fast = false;
        TwaveList list;
        TdnWater::sMakeWaveList(key, list);
        ASSERT_EQ(list.count, unsigned(n));
        float total = 0;
        for (unsigned k = 0; k < list.count; ++k) {
            total += list.amplitude[k];
            EXPECT_NEAR(std::hypot(list.direction[k].x, list.direction[k].y), 1.0f, 1e-5f);
            // Within 45 degrees of the wind (straight up in v).
            EXPECT_GE(list.direction[k].y, std::cos(0.7853982f) - 1e-5f) << k;
            if (k > 0) {
                EXPECT_LE(list.amplitude[k], list.amplitude[k - 1]) << "smoothness damps the higher waves";
                EXPECT_GT(list.frequency[k], list.frequency[k - 1]);
            }
        }
        EXPECT_NEAR(total, 1.0f, 1e-5f);
        TwaveList again;
        TdnWater::sMakeWaveList(key, again);
        for (unsigned k = 0; k < list.count; ++k) EXPECT_EQ(list.phase[k], again.phase[k]) << "the list is the same every time";
    }
    TwaveListKey none;
    none.count = 0;
    TwaveList empty;
    TdnWater::sMakeWaveList(none, empty);
    EXPECT_EQ(empty.count, 0u);
    EXPECT_EQ(TdnWater::sWaves(empty, 0.3f, 0.4f, 0, 1), 0.0f);
}

// Below 0 the sub-frequency counts as 0: every wave at the base frequency,
// with equal shares of the amplitude.
TEST(Water, ANegativeSubFrequencyCountsAsZero) {
    TwaveListKey key;
    key.count = 4;
    key.subFrequency = -1.0f;
    key.fast = false;
    TwaveList list;
    TdnWater::sMakeWaveList(key, list);
    ASSERT_EQ(list.count, 4u);
    for (unsigned k = 0; k < list.count; ++k) {
        EXPECT_EQ(list.frequency[k], key.frequency) << k;
        EXPECT_NEAR(list.amplitude[k], 0.25f, 1e-6f) << k;
    }
}

// Coordinates whose wave phase leaves the float range (a repeat of 1e38)
// give calm water, height 0, on both textures rather than a NaN.
TEST(Water, AndOceanLieCalmWhereThePhaseOverflows) {
    TwaveListKey key;
    key.count = 8;
    TwaveList list;
    TdnWater::sMakeWaveList(key, list);
    ToceanCurve none;
    ToceanWaves sea;
    sea.build(ToceanParams{}, none, none, none);
    for (float u : {3e38f, -3e38f}) {
        EXPECT_EQ(TdnWater::sWaves(list, u, 0.5f, 0, 1), 0.0f) << u;
        EXPECT_EQ(sea.height(u, 0.5f), 0.0f) << u;
    }
    EXPECT_EQ(TdnWater::sWaves(list, 0.5f, 0.5f, 1e30f, 1e30f), 0.0f) << "a time and speed whose product overflows";
}

TEST(Water, FastDropsOnlyNegligibleWaves) {
    TwaveListKey key;
    key.count = 64;
    key.subFrequency = 1.0f;
    key.smoothness = 3.0f;
    TwaveList slow, fast;
    key.fast = false;
    TdnWater::sMakeWaveList(key, slow);
    key.fast = true;
    TdnWater::sMakeWaveList(key, fast);
    EXPECT_LT(fast.count, slow.count);
    for (float u = 0.05f; u < 1; u += 0.1f)
        EXPECT_NEAR(TdnWater::sWaves(fast, u, 0.3f, 0, 1), TdnWater::sWaves(slow, u, 0.3f, 0, 1), 0.01f);
}

TEST(Water, WavesTravelWithTime) {
    // Moving time by dt and the point by dt * velocity along a wave's own
    // direction leaves a single wave unchanged.
    TwaveListKey key;
    key.count = 1;
    TwaveList list;
    TdnWater::sMakeWaveList(key, list);
    T2Float d = list.direction[0];
    for (float t : {0.3f, 1.7f}) {
        float u = 0.21f, v = 0.64f, velocity = 0.8f;
        float moved = TdnWater::sWaves(list, u + d.x * t * velocity, v + d.y * t * velocity, t, velocity);
        EXPECT_NEAR(moved, TdnWater::sWaves(list, u, v, 0, velocity), 1e-4f) << t;
    }
}

TEST(Water, RippleIsAPacketAroundItsRing) {
    TrippleParams p;
    p.time = 0.3f;  // the ring at radius 0.3
    p.spreadRate = 0.01f;  // width 0.005 + 0.003
    p.origin = T2Float{0.5f, 0.5f};
    // Far from the ring the packet is skipped: exactly 0.
    EXPECT_EQ(TdnWater::sRipple(p, 0.5f, 0.5f), 0.0f);
    EXPECT_EQ(TdnWater::sRipple(p, 0.5f, 1.9f), 0.0f);
    // On the ring: amplitude * fade * cos of the phase.
    float r = 0.3f;
    float fade = 0.3f / (0.3f + 0.3f);
    float want = 0.05f * fade * std::cos((r * 25.0f - 2.5f * 0.3f) * 6.2831855f);
    EXPECT_NEAR(TdnWater::sRipple(p, 0.5f + r, 0.5f), want, 1e-5f);
    // Round: the same at every angle.
    for (float a = 0.1f; a < 6.2f; a += 0.7f) {
        float rr = 0.27f;
        EXPECT_NEAR(TdnWater::sRipple(p, 0.5f + rr * std::cos(a), 0.5f + rr * std::sin(a)), TdnWater::sRipple(p, 0.5f + rr, 0.5f), 1e-5f);
    }
    p.dropSize = 0;
    EXPECT_EQ(TdnWater::sRipple(p, 0.8f, 0.5f), 0.0f) << "no drop, no ripple";
}

TEST(Water, ReflectionMirrorsTheRippleInTheWall) {
    TrippleParams p;
    p.time = 0.15f;
    p.spreadStart = 0.001f;
    p.spreadRate = 0.02f;
    p.origin = T2Float{0.2f, 0.5f};
    p.reflectionBox = true;
    p.boxMin = T2Float{0, 0};
    p.boxMax = T2Float{1, 1};
    // Mirrored about u = 0 the field is the same, as long as the images in
    // the far wall are too far to show (exactly 0 here).
    for (float d = 0.01f; d < 0.2f; d += 0.017f)
        for (float v = 0.4f; v < 0.6f; v += 0.05f) EXPECT_NEAR(TdnWater::sRipple(p, d, v), TdnWater::sRipple(p, -d, v), 1e-6f) << d;
    TrippleParams open = p;
    open.reflectionBox = false;
    EXPECT_NE(TdnWater::sRipple(p, 0.03f, 0.5f), TdnWater::sRipple(open, 0.03f, 0.5f)) << "the reflected ring adds in";
}

TEST(Water, ColourIsHalfMinusTheHeightAndBounded) {
    TtextureNetwork net;
    auto* water = net.make<TdnWater>("water");
    net.show(water, TdnTx2D::saOutColor());
    TwaveListKey key;
    TwaveList list;
    TdnWater::sMakeWaveList(key, list);
    TrippleParams ripple;
    for (float u = -0.5f; u < 1.5f; u += 0.13f)
        for (float v = -0.5f; v < 1.5f; v += 0.17f) {
            TtexResult r = pullTexture(water, {u, v});
            float want = 0.5f - (0.05f * TdnWater::sWaves(list, u, v, 0, 1) + TdnWater::sRipple(ripple, u, v));
            EXPECT_NEAR(r.colour.x, want, 1e-5f) << u << "," << v;
            EXPECT_NEAR(r.alpha, want, 1e-5f);
            EXPECT_LE(std::fabs(r.colour.x - 0.5f), 0.05f + 0.05f + 1e-5f);
        }
    setValue(water, TdnWater::saNumberOfWaves(), short(3));
    key.count = 3;
    TdnWater::sMakeWaveList(key, list);
    TtexResult r = pullTexture(water, {0.3f, 0.8f});
    EXPECT_NEAR(r.colour.x, 0.5f - 0.05f * TdnWater::sWaves(list, 0.3f, 0.8f, 0, 1) - TdnWater::sRipple(ripple, 0.3f, 0.8f), 1e-5f)
        << "an edit after the first compute makes a new list";
    expectBatchEqualsPull(net, water, batchUvs(), {}, "water");
}

TEST(OceanCurve, KeysAndInterpolations) {
    EXPECT_EQ(ToceanCurve{}.at(0.3f, 7.0f), 7.0f) << "an empty curve gives the fallback";
    struct {
        short interp;
        float at05, at035;
    } cases[] = {
        {ToceanCurve::kNone, 0.0f, 0.0f},
        {ToceanCurve::kLinear, 1.0f, 0.5f},
        {ToceanCurve::kSmooth, 1.0f, (1 - std::cos(0.25f * 3.1415927f)) * 0.5f * 2},
        // Two keys, the end keys repeated: tangents of half the rise at
        // both ends, so value / 2 = (t + 3t^2 - 2t^3) / 2 at t = 0.25.
        {ToceanCurve::kSpline, 1.0f, 0.25f + 3 * 0.0625f - 2 * 0.015625f},
    };
    for (auto& k : cases) {
        // Added out of order: the curve keeps its keys sorted.
        ToceanCurve d;
        d.add(0.8f, 2.0f, k.interp);
        d.add(0.2f, 0.0f, k.interp);
        EXPECT_EQ(d.at(0.0f, 7), 0.0f) << k.interp;
        EXPECT_EQ(d.at(1.0f, 7), 2.0f) << k.interp;
        EXPECT_NEAR(d.at(0.5f, 7), k.at05, 1e-5f) << k.interp;
        EXPECT_NEAR(d.at(0.35f, 7), k.at035, 1e-5f) << k.interp;
    }
    ToceanCurve s;
    for (float x : {0.0f, 0.3f, 0.7f, 1.0f}) s.add(x, x * x, ToceanCurve::kSpline);
    for (float x : {0.0f, 0.3f, 0.7f, 1.0f}) EXPECT_NEAR(s.at(x, 7), x * x, 1e-6f) << "the spline passes through its keys";
}

TEST(Ocean, HeightIsNormalisedAndScaleIsAUnit) {
    ToceanCurve none;
    ToceanParams p;
    ToceanWaves a, b;
    a.build(p, none, none, none);
    ToceanParams q = p;
    q.scale = 2 * p.scale;
    b.build(q, none, none, none);
    EXPECT_EQ(a.count, 3u * ToceanWaves::kWavesPerBand);
    Tstats s = statsOver([&](float u, float v) { return a.height(u, v); }, 40);
    EXPECT_GE(s.min, -1.0f);
    EXPECT_LE(s.max, 1.0f);
    EXPECT_GT(s.variance, 1e-3);
    for (float u = 0.1f; u < 1; u += 0.2f) EXPECT_NEAR(a.height(u, 0.4f), b.height(u * 0.5f, 0.2f), 1e-4f) << u;
    ToceanWaves again;
    again.build(p, none, none, none);
    for (float u = 0.1f; u < 1; u += 0.2f) EXPECT_EQ(a.height(u, 0.7f), again.height(u, 0.7f)) << "the same sea every time";
    // Time moves the waves.
    ToceanParams later = p;
    later.time = 2.0f;
    ToceanWaves moved;
    moved.build(later, none, none, none);
    EXPECT_NE(a.height(0.3f, 0.3f), moved.height(0.3f, 0.3f));
}

TEST(Ocean, PeakingSharpensCrestsAndHeightCurveFlattens) {
    ToceanCurve none, peaked, flat;
    peaked.add(0.0f, 2.0f, ToceanCurve::kLinear);
    flat.add(0.0f, 0.0f, ToceanCurve::kLinear);
    ToceanParams p;
    p.numFrequencies = 1;
    ToceanWaves plain, sharp, still;
    plain.build(p, none, none, none);
    sharp.build(p, none, none, peaked);
    still.build(p, flat, none, none);
    Tstats a = statsOver([&](float u, float v) { return plain.height(u, v); }, 48);
    Tstats b = statsOver([&](float u, float v) { return sharp.height(u, v); }, 48);
    EXPECT_LT(b.mean, a.mean) << "narrow crests, broad troughs";
    EXPECT_EQ(still.height(0.3f, 0.2f), 0.0f) << "no height anywhere";
}

TEST(Ocean, FoamAndColourModes) {
    EXPECT_EQ(ToceanWaves::foam(0.9f, 0.0f, 0.51f), 0.0f) << "no emission, no foam";
    EXPECT_EQ(ToceanWaves::foam(0.4f, 1.0f, 0.51f), 0.0f) << "below the threshold";
    EXPECT_NEAR(ToceanWaves::foam(0.755f, 1.0f, 0.51f), 0.5f, 1e-5f);
    EXPECT_EQ(ToceanWaves::foam(1.0f, 5.0f, 0.51f), 1.0f) << "held at 1";
    EXPECT_EQ(TdnOcean::sShown(TdnOcean::kWaveHeight, 0.6f, 0.5f), 0.6f);
    EXPECT_EQ(TdnOcean::sShown(TdnOcean::kFoam, 0.6f, 0.5f), 0.5f);
    EXPECT_NEAR(TdnOcean::sShown(TdnOcean::kFoamOnWaves, 0.6f, 0.5f), 0.8f, 1e-6f);
}

TEST(Ocean, NodeReadsItsCurvesAndMatchesTheBatch) {
    TtextureNetwork net;
    auto* ocean = net.make<TdnOcean>("ocean");
    const float pos = 0.0f, value = 0.5f, emission = 2.0f;
    const short mode = TdnOcean::kFoamOnWaves;
    ocean->setAttributeValue(&TdnOcean::saWaveHeightPosition(), &pos, 0);
    ocean->setAttributeValue(&TdnOcean::saWaveHeightFloatValue(), &value, 0);
    setValue(ocean, TdnOcean::saFoamEmission(), emission);
    setValue(ocean, TdnOcean::saColorMode(), mode);
    net.show(ocean, TdnTx2D::saOutColor());
    ToceanCurve height, none;
    height.add(0.0f, 0.5f, ToceanCurve::kLinear);
    ToceanWaves waves;
    waves.build(ToceanParams{}, height, none, none);
    for (float u = 0.05f; u < 1; u += 0.15f) {
        TtexResult r = pullTexture(ocean, {u, 0.35f});
        float h01 = (waves.height(u, 0.35f) + 1) * 0.5f;
        float foam = ToceanWaves::foam(h01, emission, 0.51f);
        EXPECT_NEAR(r.colour.x, TdnOcean::sShown(mode, h01, foam), 1e-5f) << u;
        float outFoam = -1;
        ocean->getAttributeValue(&TdnOcean::saOutFoam(), &outFoam);
        EXPECT_NEAR(outFoam, foam, 1e-5f);
    }
    expectBatchEqualsPull(net, ocean, batchUvs(), {}, "ocean");
}
