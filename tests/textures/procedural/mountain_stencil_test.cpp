// Mountain and stencil: the two textures of this family with colour inputs
// beside the pattern. Their arithmetic against independent computations,
// and their inputs computed only where they show.
#include <gtest/gtest.h>

#include <cmath>

#include "framework/render_utilities.h"
#include "textures/mountain.h"
#include "textures/noise/noise.h"
#include "textures/procedural/texture_checks.h"
#include "textures/stencil.h"

namespace {
// The height sum written out again with the lattice function itself, in
// double precision, for a whole number of octaves.
double heightByHand(double u, double v, double amplitude, double roughness, int octaves) {
    double h = 0, s = 1, ou = 0, ov = 0, a = amplitude;
    for (int i = 0; i < octaves; ++i) {
        float d[3];
        Tnoise::DNoise2(u * s + ou, v * s + ov, d);
        h += d[2] * a;
        s *= 2;
        ou += 0.1;
        ov += 0.03;
        a *= roughness;
    }
    return h;
}
}  // namespace

TEST(Mountain, LevelsAndHeight) {
    EXPECT_NEAR(TdnMountain::sLevels(1.0f, 20), 1.0f, 1e-4f);
    EXPECT_NEAR(TdnMountain::sLevels(1.0f / 256.0f, 20), 3.0f, 1e-3f);
    EXPECT_FLOAT_EQ(TdnMountain::sLevels(0.0f, 5.5f), 5.5f) << "held at depthMax";
    for (float u : {0.13f, 0.52f, 0.91f}) {
        float h, gx, gy;
        // L = 3 exactly: three whole octaves, the fourth weighted by 0.
        TdnMountain::sHeight(u, 0.37f, 0.9f, 0.6f, 3.0f, h, gx, gy);
        EXPECT_NEAR(h, heightByHand(u, 0.37f, 0.9, 0.6, 3), 1e-5) << u;
        // A fractional level adds that share of the next octave.
        float h2, gx2, gy2;
        TdnMountain::sHeight(u, 0.37f, 0.9f, 0.6f, 3.25f, h2, gx2, gy2);
        double next = heightByHand(u, 0.37f, 0.9, 0.6, 4) - heightByHand(u, 0.37f, 0.9, 0.6, 3);
        EXPECT_NEAR(h2 - h, 0.25 * next, 1e-5) << u;
        // One octave is the lattice and its slopes scaled by the amplitude.
        TdnMountain::sHeight(u, 0.37f, 0.4f, 0.5f, 1.0f, h, gx, gy);
        float d[3];
        Tnoise::DNoise2(u, 0.37f, d);
        EXPECT_FLOAT_EQ(h, d[2] * 0.4f);
        EXPECT_FLOAT_EQ(gx, d[0] * 0.4f);
        EXPECT_FLOAT_EQ(gy, d[1] * 0.4f);
    }
    float h, gx, gy;
    TdnMountain::sHeight(0.3f, 0.6f, 1.0f, 0.5f, 0.0f, h, gx, gy);
    EXPECT_EQ(h, 0.0f) << "no level at all";
    EXPECT_EQ(gx, 0.0f);
}

TEST(Mountain, SnowFollowsAltitudeAndSlope) {
    TmountainParams p;
    int snow = 0, rock = 0;
    for (float u = 0.01f; u < 1; u += 0.043f)
        for (float v = 0.02f; v < 1; v += 0.047f) {
            TmountainSample s = TdnMountain::sSample(p, u, v, 0.001f);
            ASSERT_TRUE(s.snow == 0.0f || s.snow == 1.0f) << "a boundary of 1 is a hard edge";
            EXPECT_GE(s.shade, 0.0f);
            EXPECT_LE(s.shade, 1.0f);
            snow += s.snow == 1.0f;
            rock += s.snow == 0.0f;
        }
    EXPECT_GT(snow, 0);
    EXPECT_GT(rock, 0);
    // No slope limit and a snow line above every peak: rock everywhere;
    // a huge slope allowance: snow everywhere.
    TmountainParams bare = p, white = p;
    bare.snowSlope = -1000;
    white.snowSlope = 1000;
    for (float u = 0.05f; u < 1; u += 0.1f) {
        EXPECT_EQ(TdnMountain::sSample(bare, u, 0.4f, 0.001f).snow, 0.0f);
        EXPECT_EQ(TdnMountain::sSample(white, u, 0.4f, 0.001f).snow, 1.0f);
    }
    // A soft boundary gives partial snow somewhere.
    TmountainParams soft = p;
    soft.boundary = 0.2f;
    int partial = 0;
    for (float u = 0.01f; u < 1; u += 0.021f) {
        float s = TdnMountain::sSample(soft, u, 0.45f, 0.001f).snow;
        partial += s > 0.0f && s < 1.0f;
    }
    EXPECT_GT(partial, 0);
}

TEST(Mountain, WiderFilterLowersTheContrast) {
    TmountainParams p;
    double previous = 1e9;
    for (float fw : {0.0005f, 0.005f, 0.05f}) {
        Tstats s = statsOver([&](float u, float v) { return TdnMountain::sSample(p, u, v, fw).shade; }, 48);
        EXPECT_LT(s.variance, previous) << fw;
        previous = s.variance;
    }
}

TEST(Mountain, SnowAndRockComputeOnlyWhereTheyShow) {
    TtextureNetwork net;
    auto* mountain = net.make<TdnMountain>("mountain");
    auto* snowSource = net.make<TtexTestSource>("texTestSource");
    auto* rockSource = net.make<TtexTestSource>("texTestSource");
    net.connect(snowSource, TtexTestSource::saOutColor(), mountain, TdnMountain::saSnowColor());
    net.connect(rockSource, TtexTestSource::saOutColor(), mountain, TdnMountain::saRockColor());
    net.show(mountain, TdnTx2D::saOutColor());
    std::vector<T2Float> uvs = batchUvs();
    T2Float size{0.002f, 0.002f};
    TtextureBatch batch = net.shade(uvs, size);
    TmountainParams p;
    int snow = 0, rock = 0;
    for (unsigned i = 0; i < uvs.size(); ++i) {
        if (isOutsideUv(uvs[i])) {
            EXPECT_EQ(batch.colour(i).x, 0.5f);
            continue;
        }
        TmountainSample s = TdnMountain::sSample(p, uvs[i].x, uvs[i].y, 0.002f);
        snow += s.snow * s.shade >= 1e-5f;
        rock += (1 - s.snow) * s.shade >= 1e-5f;
        // Both sources give the sample's own colour: the mix is it times the shade.
        expectNear(batch.colour(i), TtexTestSource::sColourAt(uvs[i]) * s.shade, "sample " + std::to_string(i), 1e-5f);
    }
    EXPECT_EQ(snowSource->samples, snow);
    EXPECT_EQ(rockSource->samples, rock);
    EXPECT_GT(snow, 0);
    EXPECT_GT(rock, 0);
    EXPECT_LT(snow + rock, int(uvs.size()) * 2) << "each sample reads one of the two";
}

TEST(Stencil, EdgeFallsToZeroAtTheBorder) {
    EXPECT_EQ(TdnStencil::sEdge(0.0f, 0.5f, 0.0f), 1.0f) << "no edge blend";
    struct {
        float u, v, e, want;
    } cases[] = {
        {0.5f, 0.5f, 0.4f, 1},
        {0.0f, 0.5f, 0.4f, 0},
        {0.5f, 1.0f, 0.4f, 0},
        // (1 - |2u - 1|) / e = 0.5: the cosine fall-off is halfway.
        {0.1f, 0.5f, 0.4f, 0.5f},
        {0.1f, 0.9f, 0.4f, 0.25f},
        // Past e / 2 from the border it is flat at 1.
        {0.25f, 0.5f, 0.4f, 1},
    };
    for (auto& c : cases) EXPECT_NEAR(TdnStencil::sEdge(c.u, c.v, c.e), c.want, 1e-5f) << c.u << "," << c.v;
}

TEST(Stencil, KeyCutsColoursNearTheKey) {
    TstencilKey key;
    key.colorKey = T3Float(0.1f, 0.8f, 0.2f);
    key.hueRange = key.saturationRange = key.valueRange = 0.5f;
    key.threshold = 0.5f;
    EXPECT_EQ(TdnStencil::sKeep(key.colorKey, key), 0.0f) << "the key colour itself is cut";
    EXPECT_EQ(TdnStencil::sKeep(T3Float(0.8f, 0.1f, 0.7f), key), 1.0f) << "a far colour is kept";
    key.positiveKey = true;
    EXPECT_EQ(TdnStencil::sKeep(key.colorKey, key), 1.0f);
    EXPECT_EQ(TdnStencil::sKeep(T3Float(0.8f, 0.1f, 0.7f), key), 0.0f);
    // A colour differing only in value by a quarter range: likeness 0.75 x (hue, sat equal) -> at or above the threshold.
    key.positiveKey = false;
    T3Float hsv = TrenderUtilities::RGBtoHSV(key.colorKey);
    hsv.z -= 0.125f;
    EXPECT_EQ(TdnStencil::sKeep(TrenderUtilities::HSVtoRGB(hsv), key), 0.0f);
    // Differing by 0.3 in value, 0.6 of the range: likeness 0.4, below the
    // threshold 0.5 -> kept 1 - 0.4 / 0.5.
    hsv.z -= 0.175f;
    EXPECT_NEAR(TdnStencil::sKeep(TrenderUtilities::HSVtoRGB(hsv), key), 1.0f - 0.4f / 0.5f, 1e-4f);
    // Tiny ranges count as 0.004: a small difference is already a full range.
    key.valueRange = 0.0f;
    EXPECT_EQ(TdnStencil::sKeep(TrenderUtilities::HSVtoRGB(hsv), key), 1.0f);
}

TEST(Stencil, ImageComputesOnlyWhereTheMaskLetsItShow) {
    struct {
        const char* name;
        float mask, edge;
        bool key;
    } cases[] = {{"plain", 0.0f, 0.0f, false}, {"edge", 0.0f, 0.3f, false}, {"masked out", 1.0f, 0.0f, false},
                 {"keyed", 0.25f, 0.3f, true}};
    for (auto& c : cases) {
        TtextureNetwork net;
        auto* stencil = net.make<TdnStencil>("stencil");
        auto* image = net.make<TtexTestSource>("texTestSource");
        net.connect(image, TtexTestSource::saOutColor(), stencil, TdnStencil::saImage());
        setValue(stencil, TdnStencil::saMask(), c.mask);
        setValue(stencil, TdnStencil::saEdgeBlend(), c.edge);
        setValue(stencil, TdnStencil::saKeyMasking(), c.key);
        std::vector<T2Float> uvs = batchUvs();
        // The key is the image's colour at one sample: it and its like are cut.
        const T3Float key = TtexTestSource::sColourAt(uvs[20]), fallback(0.2f, 0.4f, 0.6f);
        setValue(stencil, TdnStencil::saColorKey(), key);
        setValue(stencil, TdnTx2D::saDefaultColor(), fallback);
        net.show(stencil, TdnTx2D::saOutColor());
        TtextureBatch batch = net.shade(uvs);
        int need = 0, kept = 0;
        for (unsigned i = 0; i < uvs.size(); ++i) {
            if (isOutsideUv(uvs[i])) continue;
            float m = (1 - c.mask) * TdnStencil::sEdge(uvs[i].x, uvs[i].y, c.edge);
            need += m >= 1e-5f;
            T3Float img = TtexTestSource::sColourAt(uvs[i]);
            if (c.key) {
                TstencilKey k;
                k.colorKey = key;
                m *= TdnStencil::sKeep(img, k);
            }
            kept += m >= 1e-5f;
            T3Float want = fallback * (1 - m) + (m >= 1e-5f ? img * m : T3Float());
            expectNear(batch.colour(i), want, std::string(c.name) + " " + std::to_string(i), 1e-5f);
        }
        EXPECT_EQ(image->samples, need) << c.name << ": the key reads the image once, where the mask leaves it a chance";
        if (c.key) {
            EXPECT_LT(kept, need) << c.name << ": the case must key some samples out";
        }
    }
}
