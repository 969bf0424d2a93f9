// The noise texture as a picture: no straight seams along the lattice lines of
// its noise, no large areas held at the output bounds, and a mean near the
// middle of the range for every type at its default settings.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "textures/noise/billow_texture.h"
#include "textures/noise/noise.h"
#include "textures/noise_texture.h"
#include "textures/procedural/texture_checks.h"

namespace {
struct Tcase {
    short type, falloff;
    const char* name;
};
const Tcase kCases[] = {
    {TdnNoise::kPerlinNoise, 2, "perlin"}, {TdnNoise::kBillow, 0, "billow linear"},
    {TdnNoise::kBillow, 1, "billow smooth"}, {TdnNoise::kBillow, 2, "billow fast"},
    {TdnNoise::kBillow, 3, "billow bubble"}, {TdnNoise::kWave, 2, "wave"},
    {TdnNoise::kWispy, 2, "wispy"}, {TdnNoise::kSpaceTime, 2, "space-time"},
};

// The largest step between neighbouring samples along rows of u and columns
// of v, `n` samples per unit.
float largestStep(const TnoiseParams& p, int n) {
    float worst = 0.0f;
    for (int line = 0; line < 12; ++line) {
        const float across = 0.037f + 0.083f * float(line);
        float prevU = TdnNoise::sValue(p, 0.0f, across), prevV = TdnNoise::sValue(p, across, 0.0f);
        for (int i = 1; i <= n; ++i) {
            const float t = float(i) / float(n);
            const float u = TdnNoise::sValue(p, t, across), v = TdnNoise::sValue(p, across, t);
            worst = std::max({worst, std::fabs(u - prevU), std::fabs(v - prevV)});
            prevU = u;
            prevV = v;
        }
    }
    return worst;
}
}  // namespace

TEST(NoiseSeams, NeighbouringSamplesDifferByLittleEverywhere) {
    // At 4000 samples per unit the steepest octave (32 billow cells or 64
    // value-noise cells per unit at the defaults) moves by a few hundredths per
    // step; a cut-off blob or a lattice seam jumps by a tenth or more.
    for (const Tcase& c : kCases) {
        // Bubble blobs have a rim that falls by a factor of ten: steep,
        // though not a seam.
        if (c.falloff == 3) continue;
        const float worst = largestStep(noiseOf(c.type, c.falloff), 4000);
        EXPECT_LT(worst, 0.05f) << c.name;
        // Halving the step halves a smooth step; a jump would stay.
        EXPECT_LT(largestStep(noiseOf(c.type, c.falloff), 8000), 0.65f * worst + 1e-3f) << c.name;
    }
}

TEST(NoiseSeams, ValueNoiseIsContinuousAcrossItsLatticeLines) {
    // The value noise has 32 cells per unit and the texture reads it at
    // u * frequency / 16, so its lines lie at u = k * 0.5 / frequency.
    TnoiseParams p = noiseOf(TdnNoise::kPerlinNoise);
    p.depthMax = 1;  // one octave: the lines are exactly where said
    for (float frequency : {4.0f, 8.0f, 13.0f}) {
        p.frequency = frequency;
        for (int k = -6; k <= 6; ++k) {
            const float line = (float(k) * 0.5f - 0.32f) / frequency;  // less the first octave's offset, 0.02
            for (float across : {0.11f, 0.47f, 0.83f}) {
                const float e = 2e-4f / frequency;
                EXPECT_NEAR(TdnNoise::sValue(p, line - e, across), TdnNoise::sValue(p, line + e, across), 2e-3f)
                    << frequency << " k=" << k;
            }
        }
    }
}

TEST(NoiseSeams, BillowBlobsCrossTheirGridLinesOnBothSidesOfZero) {
    // Straight at the noise: 20 cells per unit, lines at c = k / 20, for
    // negative and positive cell positions alike.
    TbillowTexture tex;
    tex.setFalloff(TbillowTexture::kFalloffFast);
    const struct {
        float density, randomness;
    } settings[] = {{1.0f, 1.0f}, {1.5f, 0.5f}, {0.6f, 0.9f}};
    for (const auto& s : settings) {
        tex.setDensity(s.density);
        tex.setRandomness(s.randomness);
        int lit = 0;
        for (int k = -25; k <= 25; ++k) {
            const float line = float(k) / 20.0f, e = 1e-5f;
            for (int j = 0; j < 40; ++j) {
                const float across = 0.013f + 0.0249f * float(j);
                const float a = tex.getNoise2(line - e, across, 0.0f, 0), b = tex.getNoise2(line + e, across, 0.0f, 0);
                EXPECT_NEAR(a, b, 5e-3f) << "u line " << k << " at v " << across;
                const float c = tex.getNoise2(across, line - e, 0.0f, 0), d = tex.getNoise2(across, line + e, 0.0f, 0);
                EXPECT_NEAR(c, d, 5e-3f) << "v line " << k << " at u " << across;
                lit += a > 0.0f;
            }
        }
        EXPECT_GT(lit, 500) << "blobs lie across the lines to be compared";
    }
}

TEST(NoiseRange, FewSamplesAtTheBoundsTheMeanNearTheMiddleAndEachTypeItsOwn) {
    std::vector<Tstats> seen;
    for (const Tcase& c : kCases) {
        const TnoiseParams p = noiseOf(c.type, c.falloff);
        int atTop = 0, atBottom = 0, count = 0;
        Tstats s = statsOver(
            [&](float u, float v) {
                const float x = TdnNoise::sValue(p, u, v);
                atTop += x >= 1.0f;
                atBottom += x <= 0.0f;
                ++count;
                return x;
            },
            96, -1.0f, 3.0f);
        EXPECT_LT(float(atTop) / float(count), 0.06f) << c.name << ": held at white";
        EXPECT_LT(float(atBottom) / float(count), 0.06f) << c.name << ": held at black";
        EXPECT_NEAR(s.mean, 0.5, 0.08) << c.name;
        EXPECT_GE(s.min, 0.0f) << c.name;
        EXPECT_LE(s.max, 1.0f) << c.name;
        EXPECT_GT(s.variance, 0.005) << c.name << ": a pattern, not a flat grey";
        seen.push_back(s);
    }
    // No two settings make the same picture (wispy smears the plain noise).
    for (size_t i = 0; i < seen.size(); ++i)
        for (size_t j = 0; j < i; ++j)
            EXPECT_FALSE(seen[i].mean == seen[j].mean && seen[i].variance == seen[j].variance) << kCases[i].name << " and " << kCases[j].name;
}

TEST(NoiseRange, BillowMeanFollowsTheAmplitudeAndThreshold) {
    // The billow sum is scaled to a mean of amplitude / 2 before the threshold.
    for (float amplitude : {0.3f, 0.6f}) {
        for (float threshold : {0.0f, 0.2f}) {
            TnoiseParams p = noiseOf(TdnNoise::kBillow);
            p.amplitude = amplitude;
            p.threshold = threshold;
            Tstats s = statsOver([&](float u, float v) { return TdnNoise::sValue(p, u, v); }, 80, -1.0f, 3.0f);
            EXPECT_NEAR(s.mean, amplitude * 0.5f + threshold, 0.05) << amplitude << " " << threshold;
        }
    }
}

TEST(NoiseRange, BillowMeanAgreesWithTheMeasuredBlobSum) {
    // The closed form against an average of the blob sum over whole units.
    const struct {
        float density, randomness;
        short falloff;
    } cases[] = {{1.0f, 1.0f, 0}, {1.0f, 1.0f, 1}, {1.0f, 1.0f, 2}, {1.0f, 1.0f, 3},
                 {0.5f, 0.8f, 2}, {1.4f, 0.4f, 0}, {2.0f, 0.0f, 3}, {0.3f, 1.0f, 1}};
    for (const auto& c : cases) {
        TbillowTexture tex;
        tex.setDensity(c.density);
        tex.setRandomness(c.randomness);
        tex.setSpottyness(0.0f);
        tex.setFalloff(TbillowTexture::FalloffType(c.falloff));
        double sum = 0;
        const int n = 400;  // 20 samples per cell across one period
        for (int j = 0; j < n; ++j)
            for (int i = 0; i < n; ++i)
                sum += tex.getNoise2((float(i) + 0.5f) / float(n), (float(j) + 0.37f) / float(n), 0.0f, 0);
        const double measured = sum / (double(n) * n);
        const float predicted = TdnNoise::sBillowMean(c.density, c.randomness, c.falloff);
        EXPECT_NEAR(measured, predicted, 0.06 * predicted) << c.density << " " << c.randomness << " " << c.falloff;
    }
}

TEST(NoiseRange, ValueIsTheRawValueHeldAtZero) {
    // A loud fractal reaches below 0 before the hold, and every sample is the
    // raw value held to 0 to 1.
    TnoiseParams p = noiseOf(TdnNoise::kPerlinNoise);
    p.amplitude = 3.0f;
    int below = 0;
    for (int j = 0; j < 40; ++j)
        for (int i = 0; i < 40; ++i) {
            const float u = 0.025f * float(i), v = 0.025f * float(j);
            const float raw = TdnNoise::sRawValue(p, u, v), held = TdnNoise::sValue(p, u, v);
            below += raw < 0.0f;
            EXPECT_EQ(held, std::clamp(raw, 0.0f, 1.0f)) << u << "," << v;
        }
    EXPECT_GT(below, 20) << "the hold is exercised";
}
