// Bulge, fractal and noise: closed forms where there are some, and the
// invariants of each pattern (range, period, determinism, the effect of the
// filter), then the engine's batch against the scalar pull.
#include <gtest/gtest.h>

#include <cmath>

#include "textures/bulge.h"
#include "textures/checker.h"
#include "textures/fractal.h"
#include "textures/noise/noise.h"
#include "textures/noise_texture.h"
#include "textures/procedural/texture_checks.h"

TEST(Bulge, WaveIsAParabolicHumpThenTrough) {
    struct {
        float x, want;
    } cases[] = {{0, 0}, {0.25f, 1}, {0.5f, 0}, {0.75f, -1}, {0.125f, 0.75f}, {0.625f, -0.75f}, {1.25f, 1}, {-0.75f, 1}, {-0.25f, -1}};
    for (auto& c : cases) EXPECT_NEAR(TdnBulge::sWave(c.x), c.want, 1e-6f) << c.x;
}

TEST(Bulge, SquaresPeakAtTheirCentreAndVanishInTheLines) {
    struct {
        float u, v, uw, vw, want;
    } cases[] = {
        // One square per unit, centred at (0.5, 0.5): both humps at their top.
        {0.5f, 0.5f, 0.1f, 0.1f, 1},
        {1.5f, -0.5f, 0.1f, 0.1f, 1},
        {0.5f, 0.5f, 0.3f, 0.0f, 1},
        // In the lines (2u within a width of the unit's edge) the value is 0.
        {0.02f, 0.5f, 0.1f, 0.1f, 0},
        {0.5f, 0.98f, 0.1f, 0.1f, 0},
        {0.0f, 0.5f, 0.1f, 0.1f, 0},
        {1.0f, 0.5f, 0.1f, 0.1f, 0},
        // A width of 1 leaves no square at all.
        {0.5f, 0.5f, 1.0f, 0.1f, 0},
    };
    for (auto& c : cases) EXPECT_NEAR(TdnBulge::sValue(c.u, c.v, c.uw, c.vw), c.want, 1e-5f) << c.u << "," << c.v;
    // Off centre the value is the product of the two humps.
    float u = 0.2f, v = 0.3f, w = 0.2f;
    float hu = TdnBulge::sWave((2 * u - w) / (1 - w) * 0.25f), hv = TdnBulge::sWave((2 * v - w) / (1 - w) * 0.25f);
    EXPECT_NEAR(TdnBulge::sValue(u, v, w, w), hu * hv, 1e-6f);
    EXPECT_LT(TdnBulge::sValue(u, v, w, w), 1.0f);
}

namespace {
float fractalAt(const TfractalParams& p, float u, float v, float fw = 0) { return TdnFractal::sValue(p, u, v, fw); }
}  // namespace

TEST(Fractal, LevelsFollowTheFilterWidth) {
    TfractalParams p;
    struct {
        float fw, ratio, want;
    } cases[] = {
        {0.0f, 2, 9},                                         // no filter: held at levelMax
        {1.0f, 2, 1},                                         // x = 0.5: one octave
        {1.0f / 256.0f, 2, -std::log(0.125f) / 0.6931f},      // x = 1/8: three octaves
        {1.0f / 256.0f, 3, -std::log(0.125f) / std::log(3.0f)},
        {0.25f, 1.0f, -std::log(0.5f) / std::log(1.01f)},     // ratios near 1 use 1.01
    };
    for (auto& c : cases) {
        p.frequencyRatio = c.ratio;
        p.levelMax = 9;
        EXPECT_NEAR(TdnFractal::sLevels(p, c.fw), std::min(c.want, 9.0f), 1e-4f) << c.fw << " ratio " << c.ratio;
    }
    p.frequencyRatio = 2;
    p.levelMin = 4;
    EXPECT_FLOAT_EQ(TdnFractal::sLevels(p, 1.0f), 4.0f) << "held up to levelMin";
}

TEST(Fractal, OneOctaveIsTheNoiseItselfAndOnlyLaterOctavesTellTheLookupsApart) {
    // Levels held at exactly 1: value = (noise2 * amplitude + 1) / 2 + threshold.
    TfractalParams p;
    p.levelMax = 1;
    p.amplitude = 0.8f;
    p.threshold = 0.1f;
    for (bool old : {false, true}) {
        TdnFractal::oldFractal = old;
        for (float u = 0.05f; u < 1; u += 0.11f)
            for (float v = 0.03f; v < 1; v += 0.13f) {
                float want = std::min(0.1f + (Tnoise::noise2(u, v) * 0.8f + 1.0f) * 0.5f, 1.0f);
                EXPECT_NEAR(fractalAt(p, u, v), want, 1e-6f) << u << "," << v << " old " << old;
            }
    }
    TdnFractal::oldFractal = true;
    const float old = fractalAt(TfractalParams{}, 0.31f, 0.57f);
    TdnFractal::oldFractal = false;
    EXPECT_NE(fractalAt(TfractalParams{}, 0.31f, 0.57f), old);
}

TEST(Fractal, BiasEndsAndMidpoints) {
    for (float v : {-0.9f, -0.3f, 0.0f, 0.4f, 1.0f}) {
        EXPECT_EQ(TdnFractal::sBias(v, 0.0f), v);
        EXPECT_EQ(TdnFractal::sBias(v, -1.0f), 0.0f);
        EXPECT_EQ(TdnFractal::sBias(v, 1.0f), v < 0 ? -1.0f : 1.0f);
    }
    for (float b : {-0.7f, -0.2f, 0.3f, 0.8f}) {
        EXPECT_NEAR(TdnFractal::sBias(0.0f, b), 0.0f, 1e-6f) << b;
        EXPECT_NEAR(TdnFractal::sBias(1.0f, b), 1.0f, 1e-5f) << b;
        EXPECT_NEAR(TdnFractal::sBias(-1.0f, b), -1.0f, 1e-5f) << b;
        // Odd, and pushed out by a positive bias, in by a negative one.
        EXPECT_NEAR(TdnFractal::sBias(-0.5f, b), -TdnFractal::sBias(0.5f, b), 1e-6f);
        EXPECT_GT((TdnFractal::sBias(0.5f, b) - 0.5f) * b, 0.0f) << b;
    }
}

TEST(Fractal, BoundedByTheSumOfAmplitudes) {
    struct {
        const char* name;
        TfractalParams p;
    } cases[] = {{"default", {}}, {"inflected", {}}, {"biased", {}}, {"rough", {}}};
    cases[1].p.inflection = true;
    cases[2].p.bias = 0.6f;
    cases[3].p.ratio = 0.95f;
    cases[3].p.threshold = 0.2f;
    for (auto& c : cases) {
        float total = 0, a = c.p.amplitude;
        for (int i = 0; i <= 9; ++i, a *= c.p.ratio) total += a;
        Tstats s = statsOver([&](float u, float v) { return fractalAt(c.p, u, v); }, 40, -0.5f, 2.0f);
        EXPECT_LE(s.max, 1.0f) << c.name;
        EXPECT_GE(s.min, c.p.threshold + (1 - total) * 0.5f) << c.name;
        EXPECT_GT(s.variance, 1e-4) << c.name << ": the pattern is not flat";
    }
}

TEST(Fractal, PeriodicForAWholeFrequencyRatio) {
    for (bool old : {false, true}) {
        TdnFractal::oldFractal = old;
        TfractalParams p;
        for (float u = 0.02f; u < 1; u += 0.093f)
            for (float v = 0.04f; v < 1; v += 0.087f) {
                float here = fractalAt(p, u, v);
                EXPECT_NEAR(here, fractalAt(p, u + 1, v), 2e-4f) << u << "," << v << " old " << old;
                EXPECT_NEAR(here, fractalAt(p, u, v - 2), 2e-4f) << u << "," << v << " old " << old;
            }
    }
    TdnFractal::oldFractal = false;
}

TEST(Fractal, WiderFilterLowersTheContrast) {
    TfractalParams p;
    double previous = 1e9;
    for (float fw : {0.0f, 0.002f, 0.01f, 0.05f}) {
        Tstats s = statsOver([&](float u, float v) { return fractalAt(p, u, v, fw); }, 64);
        EXPECT_LT(s.variance, previous) << "filter " << fw;
        previous = s.variance;
    }
}

TEST(Fractal, TimeMovesOnlyTheAnimatedForm) {
    TfractalParams still, moving;
    moving.animated = true;
    TfractalParams later = still;
    later.time = 3.5f;
    TfractalParams movedLater = moving;
    movedLater.time = 3.5f;
    int changed = 0;
    for (float u = 0.05f; u < 1; u += 0.1f) {
        EXPECT_EQ(fractalAt(still, u, 0.3f), fractalAt(later, u, 0.3f));
        changed += fractalAt(moving, u, 0.3f) != fractalAt(movedLater, u, 0.3f);
    }
    EXPECT_GT(changed, 5);
}

TEST(Noise, FrequencyScalesTheUvAndZeroIsOnePoint) {
    for (short type : {TdnNoise::kPerlinNoise, TdnNoise::kBillow, TdnNoise::kWave}) {
        // Twice the frequency at half the UV is the same point of the noise.
        TnoiseParams a = noiseOf(type), b = noiseOf(type), zero = noiseOf(type);
        a.frequency = 4;
        b.frequency = 8;
        for (float u = 0.1f; u < 2; u += 0.17f)
            for (float v = 0.2f; v < 2; v += 0.23f)
                EXPECT_NEAR(TdnNoise::sValue(a, u, v), TdnNoise::sValue(b, u * 0.5f, v * 0.5f), 2e-4f) << type << " " << u << "," << v;
        zero.frequency = 0;
        Tstats s = statsOver([&](float u, float v) { return TdnNoise::sValue(zero, u, v); }, 12, -3.0f, 7.0f);
        EXPECT_EQ(s.min, s.max) << type << ": frequency 0";
    }
}

// Range, contrast and the distinctness of every type are checked in
// noise_seams_test; here what the fractal sum's settings do.
TEST(Noise, TheThresholdLiftsTheFloorAndDepthAddsOctaves) {
    // The fractal form sums at most amplitude * (1 + ratio + ...) about the middle.
    TnoiseParams p = noiseOf(TdnNoise::kPerlinNoise);
    p.threshold = 0.25f;
    Tstats s = statsOver([&](float u, float v) { return TdnNoise::sValue(p, u, v); }, 40);
    float total = 1 + 0.707f + 0.707f * 0.707f;
    EXPECT_GE(s.min, 0.25f + 0.5f - 0.5f * total);
    TnoiseParams one = noiseOf(TdnNoise::kPerlinNoise), four = one;
    one.depthMax = 1;
    four.depthMax = 4;
    Tstats a = statsOver([&](float u, float v) { return TdnNoise::sValue(one, u, v); }, 64);
    Tstats b = statsOver([&](float u, float v) { return TdnNoise::sValue(four, u, v); }, 64);
    EXPECT_GT(b.variance, a.variance);
}

TEST(ValueTextures, BatchEqualsTheScalarPull) {
    struct {
        const char* type;
        const Tattribute* attribute;
        float value;
    } cases[] = {
        {"bulge", &TdnBulge::saUWidth(), 0.2f},
        {"fractal", &TdnFractal::saBias(), 0.3f},
        {"noise", &TdnNoise::saFrequency(), 5.0f},
        {"checker", &TdnChecker::saContrast(), 0.8f},
    };
    for (auto& c : cases) {
        TtextureNetwork net;
        TdependNode* node = net.make<TdependNode>(c.type);
        ASSERT_NE(node, nullptr) << c.type;
        setValue(node, *c.attribute, c.value);
        setValue(node, TdnTx2D::saColorOffset(), T3Float(0.125f, 0.125f, 0.125f));
        net.show(node, TdnTx2D::saOutColor());
        expectBatchEqualsPull(net, node, batchUvs(), T2Float{0.004f, 0.002f}, c.type);
        TtexResult outside = pullTexture(node, {-1e7f, -1e7f});
        EXPECT_NEAR(outside.colour.x, 0.5f + 0.125f, 1e-6f) << c.type << ": outside is the default colour";
    }
}

TEST(ValueTextures, BakedColoursAreThePulledOnes) {
    TdependGraph graph;
    auto* fractal = static_cast<TdnFractal*>(graph.createNode("fractal"));
    TdoubleArray u{0.1, 0.6, 2.3}, v{0.2, 0.9, -0.4};
    T4dDblVectorArray colours;
    TdoubleArray alphas;
    TplugArray plugs;
    ASSERT_TRUE(fractal->mapUVtoClr(plugs, &colours, &alphas, u, v));
    ASSERT_EQ(colours.length(), 3u);
    for (unsigned i = 0; i < 3; ++i) {
        float want = TdnFractal::sValue(TfractalParams{}, float(u[i]), float(v[i]), 0);
        EXPECT_NEAR(colours[i].x, want, 1e-6) << i;
        EXPECT_NEAR(alphas[i], want, 1e-6) << i;
        EXPECT_NEAR(colours[i].w, 1.0 - want, 1e-6) << i;
    }
    TdoubleArray shorter{0.5};
    EXPECT_FALSE(fractal->mapUVtoClr(plugs, &colours, &alphas, u, shorter));
}
