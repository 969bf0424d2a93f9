// The fractal summers: the octave loop, the final rule, the scale guard and
// each subclass's noise.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "textures/noise/billow_texture.h"
#include "textures/noise/cos_texture.h"
#include "textures/noise/noise.h"
#include "textures/noise/perlin_texture.h"

namespace {

// A summer whose octave noise records nothing and returns a known function,
// to see the loop and final rule on their own.
class TlinearTexture : public TvolumeTexture {
protected:
    float getNoise(float x, float y, float z, float time, short h) const override {
        return 0.1f * x - 0.2f * y + 0.05f * z + 0.01f * time + 0.03f * h;
    }
    float getNoise2(float u, float v, float time, short h) const override { return getNoise(u, v, 0, time, h); }
};

class TperlinProbe : public TperlinTexture {
public:
    using TperlinTexture::getNoise;
    using TperlinTexture::getNoise2;
};

class TcosProbe : public TcosTexture {
public:
    using TcosTexture::getNoise;
};

}  // namespace

TEST(VolumeTexture, OctaveLoopScalesFrequencyAmplitudeAndTime) {
    const struct { short harmonics; float ratio, ampRatio, gain, threshold; bool absolute; } cases[] = {
        {1, 0.5f, 0.5f, 1.0f, 0.0f, false}, {4, 0.5f, 0.7f, 0.8f, 0.1f, false},
        {3, 0.25f, 0.5f, 1.2f, -0.2f, true}, {5, 0.0f, 0.5f, 1.0f, 0.0f, false},  // ratio 0: factor 1e5
    };
    const float x = 0.3f, y = -0.4f, z = 0.9f, time = 0.6f;
    for (const auto& c : cases) {
        TlinearTexture tex;
        tex.setHarmonics(c.harmonics);
        tex.setRatio(c.ratio);
        tex.setAmpRatio(c.ampRatio);
        tex.setGain(c.gain);
        tex.setThreshold(c.threshold);
        tex.setAbsolute(c.absolute);
        tex.setFrequency(2.0f);
        tex.setScale({0.5f, 2.0f, 1.0f});
        tex.setOrigin({1.0f, 0.0f, -1.0f});
        // Hand-written: coordinates times 2 over the scale plus the origin,
        // then octave h at rf^h with time at sqrt(rf)^h and amplitude gain * a^h.
        double rf = c.ratio > 1e-5f ? 1.0 / c.ratio : 100000.0;
        double px = x * 2 / 0.5 + 1, py = y * 2 / 2.0, pz = z * 2 / 1.0 - 1, pt = time, amp = c.gain, sum = 0;
        for (int h = 0; h < c.harmonics; ++h) {
            double n = 0.1 * px - 0.2 * py + 0.05 * pz + 0.01 * pt + 0.03 * h;
            sum += (c.absolute ? std::fabs(n) : n) * amp;
            amp *= c.ampRatio;
            px *= rf, py *= rf, pz *= rf, pt *= std::sqrt(rf);
        }
        double want = c.absolute ? std::min(1.0, c.threshold + sum) : std::min(1.0, c.threshold + 0.5 + 0.5 * sum);
        EXPECT_NEAR(tex.getValue(x, y, z, time), want, 1e-4 * (1 + std::fabs(want))) << c.harmonics;
    }
}

TEST(VolumeTexture, NoHarmonicsLeavesTheFinalRuleOnly) {
    const struct { float threshold; bool absolute; float want; } cases[] = {
        {0.0f, false, 0.5f}, {0.3f, false, 0.8f}, {0.7f, false, 1.0f}, {-2.0f, false, -1.5f},
        {0.0f, true, 0.0f},  {0.3f, true, 0.3f},  {1.5f, true, 1.0f},  {-2.0f, true, -2.0f},
    };
    for (const auto& c : cases) {
        TperlinTexture perlin;
        TcosTexture waves;
        TlinearTexture linear;
        for (TvolumeTexture* tex : {static_cast<TvolumeTexture*>(&perlin), static_cast<TvolumeTexture*>(&waves),
                                    static_cast<TvolumeTexture*>(&linear)}) {
            tex->setHarmonics(0);
            tex->setThreshold(c.threshold);
            tex->setAbsolute(c.absolute);
            EXPECT_EQ(tex->getValue(0.3f, 0.2f, 0.1f, 0.0f), c.want);
            EXPECT_EQ(tex->getValue2(0.3f, 0.2f, 0.0f), c.want);
        }
    }
    // The plain base has no noise at all: every harmonic adds 0.
    TvolumeTexture base;
    base.setHarmonics(6);
    EXPECT_EQ(base.getValue(0.3f, 0.2f, 0.1f, 1.0f), 0.5f);
}

TEST(VolumeTexture, ZeroScaleActsAsTheSmallestScale) {
    TperlinTexture zero, tiny;
    zero.setScale({0.0f, 2.0f, 0.0f});
    tiny.setScale({1e-05f, 2.0f, 1e-05f});
    zero.setHarmonics(3);
    tiny.setHarmonics(3);
    for (float x : {0.0f, 1e-7f, 3e-6f})
        EXPECT_EQ(zero.getValue(x, 0.25f, x, 0.5f), tiny.getValue(x, 0.25f, x, 0.5f)) << x;
    EXPECT_TRUE(std::isfinite(zero.getValue(1.0f, 0.25f, 1.0f, 0.5f)));
}

TEST(VolumeTexture, ImplodePullsPointsTowardsTheCentre) {
    TvolumeTexture tex;
    tex.setImplodeCenter({1.0f, 1.0f, 1.0f});
    const struct { float implode, d, want; } cases[] = {
        {0.5f, 4.0f, 2.0f},    // d^(1 - 0.5)
        {0.0f, 4.0f, 4.0f},    // off
        {5e-6f, 4.0f, 4.0f},   // within the dead zone
        {-1.0f, 3.0f, 9.0f},   // pushes out
        {1.0f, 0.25f, 1.0f},   // everything to unit distance
    };
    for (const auto& c : cases) {
        tex.setImplode(c.implode);
        float x = 1.0f + c.d * 0.6f, y = 1.0f, z = 1.0f + c.d * 0.8f;
        tex.applyImplode(x, y, z);
        EXPECT_NEAR(std::hypot(x - 1.0f, z - 1.0f), c.want, 1e-5) << c.implode;
        EXPECT_NEAR((x - 1.0f) * 0.8f, (z - 1.0f) * 0.6f, 1e-5);  // direction kept
        float u = 1.0f + c.d, v = 1.0f;
        tex.applyImplode(u, v);
        EXPECT_NEAR(u - 1.0f, c.want, 1e-5);
    }
    // At the centre nothing moves.
    tex.setImplode(0.5f);
    float x = 1.0f, y = 1.0f, z = 1.0f;
    tex.applyImplode(x, y, z);
    EXPECT_EQ(T3Float(x, y, z), T3Float(1.0f, 1.0f, 1.0f));
}

TEST(PerlinTexture, OctavesMoveAlongTheirDirectionsWithTime) {
    TperlinProbe tex;
    for (short h : {0, 1, 7}) {
        T3Float d = TperlinTexture::sOctaveDirection(h, 3);
        EXPECT_NEAR(length(d), 1.0f, 1e-6);
        // The direction is the normalised table entries from 10h.
        T3Float raw(float(Tnoise::randomNoise(10 * h)), float(Tnoise::randomNoise(10 * h + 1)),
                    float(Tnoise::randomNoise(10 * h + 2)));
        EXPECT_NEAR(dot(d, raw), length(raw), 1e-5);
        float s = 3.0f * 0.0625f + h * 0.5f;
        EXPECT_EQ(tex.getNoise(0.1f, 0.2f, 0.3f, 3.0f, h),
                  Tnoise::noise3(0.1f + d.x * s, 0.2f + d.y * s, 0.3f + d.z * s));
    }
    tex.setAnimated(true);
    tex.setTimeSteps(12);
    EXPECT_EQ(tex.getNoise(0.1f, 0.2f, 0.3f, 0.4f, 2), Tnoise::noise4(0.1f, 0.2f, 0.3f, 0.4f, 12));
    EXPECT_EQ(tex.getNoise2(0.1f, 0.2f, 0.4f, 2), Tnoise::noise3(0.1f, 0.2f, 0.4f * 0.1f));
}

TEST(PerlinTexture, OneOctaveIsTheOffsetNoiseAtASixteenthOfTheFrequency) {
    TperlinTexture tex;
    tex.setHarmonics(1);
    tex.setFrequency(2.0f);
    const float x = 1.5f, y = -0.7f, z = 3.2f;
    float n = Tnoise::noise3(x * 0.125f + 0.02f, y * 0.125f + 0.3f, z * 0.125f + 0.01f);
    EXPECT_NEAR(tex.getValue(x, y, z, 0.0f), std::min(1.0f, 0.5f + 0.5f * n), 1e-6);
    // Smearing changes the pattern but stays within the same range.
    tex.setDoSmear(true);
    tex.setHarmonics(4);
    std::mt19937 rng(2);
    std::uniform_real_distribution<float> coord(-10.0f, 10.0f);
    for (int i = 0; i < 500; ++i) {
        float v = tex.getValue(coord(rng), coord(rng), coord(rng), 0.5f);
        ASSERT_GE(v, -1.0f);
        ASSERT_LE(v, 1.0f);
    }
}

TEST(CosTexture, WavesAreUnitPlaneWavesAndNoWavesIsZeroOverN) {
    TcosProbe tex;
    tex.setNWaves(0);
    EXPECT_TRUE(std::isnan(tex.getNoise(0.1f, 0.2f, 0.3f, 0.0f, 0)));  // 0 / 0
    tex.setNWaves(-2);
    float negative = tex.getNoise(0.1f, 0.2f, 0.3f, 0.0f, 0);
    EXPECT_EQ(negative, 0.0f);
    EXPECT_TRUE(std::signbit(negative));  // 0 / -2

    // One wave: cos of its phase at the origin, and a period of 1 along
    // its own direction.
    tex.setNWaves(1);
    T3Float raw(float(Tnoise::randomNoise(50)), float(Tnoise::randomNoise(51)), float(Tnoise::randomNoise(52)));
    T3Float d = normalize(raw);
    float phase = float(Tnoise::randomNoise(53));
    EXPECT_NEAR(tex.getNoise(0, 0, 0, 0, 1), std::cos(float(M_PI) * phase), 1e-5);
    EXPECT_NEAR(tex.getNoise(d.x, d.y, d.z, 0, 1), tex.getNoise(0, 0, 0, 0, 1), 1e-5);
    EXPECT_NEAR(tex.getNoise(0, 0, 0, 2.0f, 1), tex.getNoise(0, 0, 0, 0, 1), 1e-5);  // time: pi t
    // Many waves average to within [-1, 1].
    tex.setNWaves(9);
    for (float x : {0.0f, 0.37f, -4.2f}) EXPECT_LE(std::fabs(tex.getNoise(x, 1.1f, -x, 0.3f, 2)), 1.0f + 1e-6f);
}

TEST(BillowTexture, TunedNoiseEqualsThePlainOne) {
    std::mt19937 rng(9);
    std::uniform_real_distribution<float> coord(-2.0f, 2.0f);
    const struct { float density, randomness, sizeRand, spottyness; TbillowTexture::FalloffType falloff; } cases[] = {
        {1.0f, 1.0f, 0.0f, 0.1f, TbillowTexture::kFalloffLinear},
        {0.6f, 0.5f, 0.8f, 0.0f, TbillowTexture::kFalloffSmooth},
        {2.0f, 0.2f, 0.3f, 0.9f, TbillowTexture::kFalloffFast},
        {1.5f, 1.0f, 1.0f, 0.5f, TbillowTexture::kFalloffBubble},
    };
    for (const auto& c : cases) {
        TbillowTexture tex;
        tex.setDensity(c.density);
        tex.setRandomness(c.randomness);
        tex.setSizeRand(c.sizeRand);
        tex.setSpottyness(c.spottyness);
        tex.setFalloff(c.falloff);
        int nonZero = 0;
        for (int i = 0; i < 3000; ++i) {
            float x = coord(rng), y = coord(rng), z = coord(rng), t = coord(rng);
            float plain = tex.getNoise(x, y, z, t, 0);
            ASSERT_EQ(tex.getNoiseFastX86(x, y, z, t, 0), plain) << x << " " << y << " " << z;
            nonZero += plain != 0.0f;
        }
        EXPECT_GT(nonZero, 300) << c.falloff;  // blobs are there to be found
    }
}

TEST(BillowTexture, BlobsFollowTheirFalloffAndTheGrid) {
    TbillowTexture tex;
    tex.setRandomness(0.0f);  // every blob at its cell centre
    tex.setSpottyness(0.0f);
    tex.setDensity(0.5f);     // reach: d2 = dist^2 * 4 < 1, so half a cell
    // Point in cell 3 at (0.5 + e, 0.5): only its own blob reaches, with d2 = 4 e^2.
    const struct { TbillowTexture::FalloffType falloff; float e, want; } cases[] = {
        {TbillowTexture::kFalloffLinear, 0.25f, 0.5f},      // 1 - sqrt(0.25)
        {TbillowTexture::kFalloffSmooth, 0.25f, 0.5f},      // r = 0.5: 0.25 * -2 + 1
        {TbillowTexture::kFalloffFast, 0.25f, 0.75f},       // 1 - 0.25
        {TbillowTexture::kFalloffBubble, 0.25f, 0.275f},    // 0.25 * 1.1
        {TbillowTexture::kFalloffBubble, 0.48f, 1.0f - (0.9216f * 1.1f - 1.0f) * 10.0f},
        {TbillowTexture::kFalloffLinear, 0.5f, 0.0f},       // at the edge of reach
    };
    for (const auto& c : cases) {
        tex.setFalloff(c.falloff);
        float u = (3.5f + c.e) / 20.0f, v = 7.5f / 20.0f;
        EXPECT_NEAR(tex.getNoise2(u, v, 0.0f, 0), c.want, 1e-5) << c.falloff << " " << c.e;
        EXPECT_NEAR(tex.getNoise2(u + 1.0f, v - 2.0f, 0.0f, 0), tex.getNoise2(u, v, 0.0f, 0), 1e-5);  // period 1
    }
    // Density too small for blobs: nothing.
    tex.setDensity(0.00005f);
    EXPECT_EQ(tex.getNoise2(0.175f, 0.375f, 0.0f, 0), 0.0f);
    // The octave mean is divided by the weights, so gain 1 with one octave
    // gives the noise itself plus the threshold.
    tex.setDensity(0.5f);
    tex.setFalloff(TbillowTexture::kFalloffFast);
    tex.setHarmonics(1);
    tex.setThreshold(0.1f);
    float n = tex.getNoise2(3.75f / 20 + 0.021f, 7.5f / 20 + 0.33f, 0.0f, 0);
    EXPECT_NEAR(tex.getValue2(3.75f, 7.5f, 0.0f), std::min(1.0f, n + 0.1f), 1e-5);
    tex.setHarmonics(0);
    EXPECT_EQ(tex.getValue2(3.75f, 7.5f, 0.0f), 0.1f);
}
