// The solid textures against independent references: the wood tables
// against a 48-bit generator written here, patterns against closed forms at
// settings where they reduce to one, the edge cases' clamps, and the batch's
// first pass (outside points, the edge blend) through the shading engine.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "support/alloc_counter.h"
#include "support/set_value.h"
#include "textures/brownian.h"
#include "textures/cloud.h"
#include "textures/crater.h"
#include "textures/granite.h"
#include "textures/marble.h"
#include "textures/noise/noise.h"
#include "textures/procedural/texture_test_nodes.h"
#include "textures/snow.h"
#include "textures/solid_cells.h"
#include "textures/solid_fractal.h"
#include "textures/stucco.h"
#include "textures/volume_noise.h"
#include "textures/wood.h"

namespace {
// The 48-bit congruential generator: x' = (a x + c) mod 2^48, read as x' / 2^48.
struct Tlcg48 {
    uint64_t x;
    double next() {
        x = (0x5DEECE66DULL * x + 0xBULL) & ((1ULL << 48) - 1);
        return double(x) / double(1ULL << 48);
    }
};
// The state srand48(1) sets: the seed in the high 32 bits, 0x330E below.
Tlcg48 seededOne() { return Tlcg48{(uint64_t(1) << 16) | 0x330E}; }

// The wood tables as the generator makes them, written from the rules.
struct TreferenceWood {
    std::vector<float> start, end, grain;
    TreferenceWood(float layerSize, float randomness, float age, float grainSpacing) {
        Tlcg48 g = seededOne();
        float ls = layerSize < 0.005f ? 0.005f : layerSize;
        float a = age < 1e-06f ? 1e-06f : age;
        int n = int(10.0f / ls);
        start.assign(size_t(n) + 1, 0.0f);
        end.assign(size_t(n) + 1, 0.0f);
        end[0] = 0.001f;
        for (int i = 1; i <= n; ++i) {
            float t = (1.0f + float(g.next()) * randomness) * (ls * 512.0f) * (1.0f - std::exp(-float(i) / a));
            if (std::fabs(t) <= 1e-05f) t = 0.001f;
            start[size_t(i)] = end[size_t(i) - 1];
            end[size_t(i)] = end[size_t(i) - 1] + t;
        }
        grain.assign(256 * 256, 0.0f);
        float s = grainSpacing > 0.0f ? grainSpacing : 0.0f;
        int m = int(1.0f / (s > 1e-05f ? s : 1e-05f));
        if (m > 256) m = 256;
        for (int i = 0; i < m; ++i)
            for (int j = 0; j < m; ++j) {
                float x = (float(g.next()) + float(i)) * 256.0f / float(m);
                float y = (float(g.next()) + float(j)) * 256.0f / float(m);
                int ix = int(x), iy = int(y);
                if (ix < 0 || ix > 254 || iy < 0 || iy > 254) continue;
                float fx = x - float(ix), fy = y - float(iy);
                const float w[4] = {(1 - fx) * (1 - fy), fx * (1 - fy), (1 - fx) * fy, fx * fy};
                const int at[4] = {iy * 256 + ix, iy * 256 + ix + 1, (iy + 1) * 256 + ix, (iy + 1) * 256 + ix + 1};
                for (int k = 0; k < 4; ++k) grain[size_t(at[k])] = std::min(grain[size_t(at[k])] + w[k], 1.0f);
            }
    }
};

std::unique_ptr<TwoodTables> woodTables(float layerSize, float randomness, float age, float grainSpacing) {
    auto t = std::make_unique<TwoodTables>();
    t->build(TwoodTableParams{layerSize, randomness, age, grainSpacing});
    return t;
}
}  // namespace

// The last two cases are out of range (the thinnest layer, no age, no or a
// negative grain spacing): the reference clamps them as the rules say.
TEST(WoodTables, FollowAnIndependent48BitGenerator) {
    // The generator written here is the C library's erand48 step.
    unsigned short libc[3] = {0x330E, 1, 0};
    Tlcg48 mine = seededOne();
    for (int i = 0; i < 1000; ++i) ASSERT_EQ(mine.next(), erand48(libc)) << "draw " << i;

    struct Tcase {
        float layerSize, randomness, age, grainSpacing;
    } cases[] = {{0.05f, 0.5f, 20.0f, 0.01f}, {0.2f, 1.0f, 3.0f, 0.05f}, {0.001f, 0.0f, 0.0f, 0.0f}, {0.5f, 0.25f, 100.0f, -1.0f}};
    for (const Tcase& c : cases) {
        SCOPED_TRACE(::testing::Message() << "layerSize " << c.layerSize << " age " << c.age << " spacing " << c.grainSpacing);
        TreferenceWood want(c.layerSize, c.randomness, c.age, c.grainSpacing);
        auto got = woodTables(c.layerSize, c.randomness, c.age, c.grainSpacing);
        ASSERT_EQ(size_t(got->rings) + 1, want.end.size());
        for (size_t i = 0; i < want.end.size(); ++i) {
            ASSERT_FLOAT_EQ(got->start[i], want.start[i]) << "ring " << i;
            ASSERT_FLOAT_EQ(got->end[i], want.end[i]) << "ring " << i;
        }
        double dots = 0;
        for (size_t k = 0; k < want.grain.size(); ++k) {
            ASSERT_NEAR(got->grain[k], want.grain[k], 1e-6f) << "texel " << k;
            dots += got->grain[k];
        }
        EXPECT_GT(dots, 100.0) << "the grain has dots";
    }
}

TEST(Wood, RingColourFollowsTheRingLaw) {
    auto t = woodTables(0.05f, 0.5f, 20.0f, 0.01f);
    TwoodParams m;
    m.grainContrast = 0.0f;
    // A footprint too small to widen the span: one ring index per sample.
    const float w = 1e-4f;
    auto ringOf = [&](float k) {
        int j = 0;
        while (j < t->rings && t->end[j] < k) ++j;
        return j;
    };
    for (int k : {0, 3, 40, 41, 200, 250}) {
        // On the x axis from the centre, half a unit of radius past k.
        T3Float p(0.5f + (float(k) + 0.5f) / 512.0f, 0.5f, 0.3f);
        int j = ringOf(float(k));
        float want = std::exp(-((float(k) - t->start[j]) / (t->end[j] - t->start[j])) / m.veinSpread);
        TwoodWeights got = TdnWood::sWeights(*t, m, p, w);
        EXPECT_NEAR(got.filler, want, 1e-4f) << "k " << k;
        EXPECT_NEAR(got.filler + got.vein, 1.0f, 1e-6f);
    }
    // A centre far off: every radius is past index 9999, which reads the
    // last ring whatever its end.
    m.center = T2Float{5000.0f, 0.5f};
    int last = t->rings;
    float want = std::exp(-((9999.0f - t->start[last]) / (t->end[last] - t->start[last])) / m.veinSpread);
    TwoodWeights far = TdnWood::sWeights(*t, m, T3Float(0.5f, 0.5f, 0), w);
    EXPECT_NEAR(far.filler, want, 1e-5f);
    // The grain at a dot of the table, at full contrast.
    m = TwoodParams{};
    m.grainContrast = 1.0f;
    int best = 0;
    for (int k = 0; k < 255 * 256; ++k)
        if (k % 256 < 255 && t->grain[k] > t->grain[best]) best = k;
    T3Float dot((float(best % 256)) / 255.0f, (float(best / 256)) / 255.0f, 0.0f);
    EXPECT_NEAR(TdnWood::sWeights(*t, m, dot, w).grain, t->grain[best], 1e-4f);
}

TEST(SolidLevels, FootprintAndOctaveCountFollowTheirLaws) {
    // Facing the camera on its axis: d = |n . p| = z, so w = z angle s det.
    EXPECT_NEAR(TdnTx3D::sPixelFootprint({0, 0, -5}, {0, 0, 1}, 0.002f, 2.0f, 8.0f, 1.0f, 0.0f), 5 * 0.002f * 16, 1e-6f);
    EXPECT_NEAR(TdnTx3D::sPixelFootprint({0, 0, -5}, {0, 0, 1}, 0.002f, 1.0f, 1.0f, 2.0f, 0.5f, 0.5f), 2.5f * 0.002f * 2 + 0.5f,
                1e-6f);
    EXPECT_EQ(TdnTx3D::sPixelFootprint({0, 0, -5}, {1, 0, 0}, 0.002f, 1, 1, 1, 0), 1e10f) << "edge on";
    EXPECT_EQ(TdnTx3D::sPixelFootprint({0, 0, -5}, {0, 0, 1}, 0.002f, 1, 1, 0, 0), 1e-08f) << "floored";
    float scale, det;
    TfltMatrix placement = TfltMatrix::scaling(2, 3, 0.5f);
    TdnTx3D::sPlacementScale(placement, scale, det);
    EXPECT_FLOAT_EQ(scale, 3.0f);
    EXPECT_FLOAT_EQ(det, 3.0f);

    struct Tcase {
        float w;
        T2Float depth;
        float levels;
    } cases[] = {{1.0f, {0, 0}, 0.0f},   {0.25f, {0, 0}, 2.0f},   {0.25f, {3, 5}, 3.0f},
                 {1e-3f, {3, 5}, 5.0f},  {1e-8f, {0, 0}, 24.0f},  {4.0f, {0, 0}, 0.0f}};
    for (const Tcase& c : cases)
        EXPECT_NEAR(TdnTx3D::sLevels(c.w, c.depth), c.levels, 1e-3f) << c.w << " " << c.depth.x << "-" << c.depth.y;
}

TEST(SolidPatterns, ReduceToClosedFormsAtSimpleSettings) {
    const T3Float p(0.37f, 0.61f, -0.23f);
    // Marble with no octaves (a footprint of 1) bands the height alone.
    TmarbleParams marble;
    for (float y : {0.02f, 0.26f, 0.5f, 0.93f}) {
        float t = y - std::floor(y);
        t = 2.0f * (t >= 0.5f ? 1.0f - t : t);
        float want = t < marble.veinWidth ? 1.0f : std::exp(-(t - marble.veinWidth) / marble.diffusion) * (1 - marble.contrast);
        EXPECT_NEAR(TdnMarble::sVeinWeight(marble, {0.4f, y, 0.1f}, 1.0f), want, 1e-5f) << y;
    }
    TmarbleParams sharp = marble, floor = marble;
    sharp.diffusion = 0.0f;
    floor.diffusion = 0.01f;
    EXPECT_EQ(TdnMarble::sVeinWeight(sharp, p, 0.01f), TdnMarble::sVeinWeight(floor, p, 0.01f)) << "diffusion 0 acts as 0.01";

    // Brownian: at w = 2^-2.5 two whole octaves and half of a third, each
    // lacunarity times finer and lacunarity^-increment weaker.
    TbrownianParams b;
    b.octaves = 5;
    auto g = [](T3Float q) { return Tnoise::gNoise3(q.x, q.y, q.z); };
    float sum = g(p) + g(p * 4.0f) * std::pow(4.0f, -0.1f) + 0.5f * g(p * 16.0f) * std::pow(16.0f, -0.1f);
    EXPECT_NEAR(TdnBrownian::sValue(b, p, std::pow(2.0f, -2.5f)), sum * 0.5f + 0.5f, 1e-4f);
    b.octaves = 1;
    EXPECT_NEAR(TdnBrownian::sValue(b, p, 1e-6f), g(p) * 0.5f + 0.5f, 1e-5f) << "octaves cap the count";
    b.octaves = 5;
    for (float lacunarity : {0.0f, -1.0f}) {
        b.lacunarity = lacunarity;
        EXPECT_NEAR(TdnBrownian::sValue(b, p, 1e-6f), g(p) * 0.5f + 0.5f, 1e-5f) << "lacunarity " << lacunarity << ": no finite weight past the first octave";
    }

    // Solid fractal held to one level: one noise lookup at p / 32.
    TsolidFractalParams s;
    TdnSolidFractal::sDepthToLevels({0, 1}, s.fractal);
    s.fractal.amplitude = 0.8f;
    s.fractal.threshold = 0.1f;
    float n = Tnoise::noise3(p.x / 32, p.y / 32, p.z / 32);
    EXPECT_NEAR(TdnSolidFractal::sValue(s, p, 1e-6f), 0.1f + (0.8f * n + 1) * 0.5f, 1e-5f);
    // A ratio of 1e30: the second octave weighs 0.8e30 and the third
    // overflows, so the sum stops after two and the value saturates.
    TsolidFractalParams steep = s;
    TdnSolidFractal::sDepthToLevels({0, 4}, steep.fractal);
    steep.fractal.ratio = 1e30f;
    const float r = steep.fractal.frequencyRatio;
    const float n1 = Tnoise::noise3(p.x / 32 * r + 0.1f, p.y / 32 * r + 0.03f, p.z / 32 * r + 0.13f);
    const float want = std::min(0.1f + (0.8f * n + 0.8e30f * n1 + 1) * 0.5f, 1.0f);
    EXPECT_NEAR(TdnSolidFractal::sValue(steep, p, 1e-6f), want, 1e-5f * std::max(1.0f, std::fabs(want)));
    s.fractal.animated = true;
    s.fractal.time = 0.3f;
    n = Tnoise::noise4(p.x / 32, p.y / 32, p.z / 32, 0.3f, TdnSolidFractal::kTimePeriod);
    EXPECT_NEAR(TdnSolidFractal::sValue(s, p, 1e-6f), 0.1f + (0.8f * n + 1) * 0.5f, 1e-5f);

    // Snow on a normal tilted up by an angle a: up component sin a.
    for (float a : {-0.3f, 0.2f, 0.7f, 1.5f}) {
        T3Float normal(0, std::sin(a) * 3.0f, std::cos(a) * 3.0f);  // any length
        float s = std::sin(a) - 0.5f;
        float want = s > 0 ? 0.8f * (1 - std::exp(-s * 5.0f)) : 0.0f;
        EXPECT_NEAR(TdnSnow::sAmount(TfltMatrix(), normal, 0.5f, 5.0f, 0.8f), want, 2e-3f) << a;
    }
    for (float x = 1e-4f; x < 1e4f; x *= 1.7f) EXPECT_NEAR(TdnSnow::sFastInverseSqrt(x) * std::sqrt(x), 1.0f, 2e-3f) << x;
}

TEST(SolidPatterns, CloudOpacityAndGraniteTones) {
    struct Tcase {
        float x, threshold, range, opacity;
    } cases[] = {
        {0.2f, 0.9f, 0.5f, 0.0f},                                // y = 1.4: clear
        {0.7f, 0.2f, 0.0f, 1.0f},                                // a zero range: y far below -10
        {0.5f, 0.5f, 0.5f, 1.0f - std::exp(-1.0f)},              // y = 0
        {0.3f, 0.8f, 0.5f, 1.0f - 0.367879f * std::exp(1.0f)},   // y = 1: just clear
    };
    for (const Tcase& c : cases) EXPECT_NEAR(TdnCloud::sOpacity(c.x, c.threshold, c.range), c.opacity, 1e-5f) << c.x;
    struct Ttone {
        float tone, mix;
        int colour;
    } tones[] = {{0.1f, 0.5f, 0}, {0.3f, 0.5f, 1}, {0.6f, 0.5f, 2}, {0.99f, 1.0f, 1}, {0.0f, 0.0f, 2}};
    for (const Ttone& t : tones) EXPECT_EQ(TdnGranite::sColourOfTone(t.tone, t.mix), t.colour) << t.tone << " " << t.mix;
    EXPECT_EQ(TdnVolumeNoise::sNoisePoint({1, 2, 3}, {1, 1, 1}, {0, 2, -0.5f}).y, 0.5f);
    EXPECT_EQ(TdnVolumeNoise::sNoisePoint({1, 2, 3}, {0, 1, 1}, {0, 2, -0.5f}).x, 1e5f) << "scale 0 acts as 1e-05";
}

TEST(SolidBump, GradientReturnsToTheSamplePointsSpace) {
    // A height linear in placement space, a = (1, -2, 0.5), under a
    // placement with shear: the gradient in p is the derivative of
    // a . (p M), found here by differences of the composed function.
    TfltMatrix m = TfltMatrix::scaling(2, 0.5f, 3);
    m.m[1][0] = 0.7f;
    m.m[2][1] = -0.4f;
    const T3Float a(1, -2, 0.5f), p(0.3f, 0.1f, -0.2f);
    T3Float g = TdnTx3D::sGradient([&](const T3Float& q) { return dot(a, q); }, m.transformPoint(p), 1e-3f, m);
    auto composed = [&](const T3Float& x) { return dot(a, m.transformPoint(x)); };
    for (int axis = 0; axis < 3; ++axis) {
        T3Float e;
        e[axis] = 1e-3f;
        EXPECT_NEAR(g[axis], (composed(p + e) - composed(p - e)) / 2e-3f, 1e-2f) << axis;
    }

    const T3Float n(0, 0, 1);
    EXPECT_EQ(TdnTx3D::sBumpNormal(n, {0.3f, 0.2f, 9.0f}, 0.0f).x, 0.0f) << "no depth, no tilt";
    T3Float bent = TdnTx3D::sBumpNormal(n, {0.3f, 0.0f, 9.0f}, 1.0f);
    EXPECT_NEAR(length(bent), 1.0f, 1e-6f);
    EXPECT_NEAR(bent.x / bent.z, -0.3f, 1e-6f) << "tilted against the tangential slope only";
    // Crater relief: the floor sinks below the rim.
    EXPECT_GT(TdnCrater::sRadius(1.0f), TdnCrater::sRadius(0.0f));
    EXPECT_EQ(TdnCrater::sRadius(-5.0f), 0.05f);
}

namespace {
// A batch of samples at given placed points (placement and eye-to-world
// are the identity): camera point and object point alike, facing +z.
struct TsolidBatch : TtestSamples {
    TsolidBatch(TDNshadingEngine* group, const std::vector<T3Float>& points) : TtestSamples(group, points.size()) {
        for (size_t i = 0; i < points.size(); ++i) {
            Tsample& s = (*this)[i];
            const T3Float& p = points[i];
            if (s.hasItem(kItemRefPointCamera)) s.setRefPointCamera(p);
            if (s.hasItem(kItemRefPointObj)) s.setRefPointObj(p);
            if (s.hasItem(kItemPointCamera)) s.setPointCamera(p);
            if (s.hasItem(kItemNormalCamera)) s.setNormalCamera(T3Float(0, 0, 1));
        }
    }
    const T3Float& colour(unsigned i) const { return *samples[i]->outColor(); }
};

// The colours the network's program gives at `points`, in one batch.
std::vector<T3Float> shadePoints(TtextureNetwork& net, const std::vector<T3Float>& points) {
    TshadingOpus* opus = net.analyse();
    EXPECT_NE(opus, nullptr);
    std::vector<T3Float> out;
    if (!opus) return out;
    TsolidBatch batch(net.group, points);
    opus->shade(unsigned(points.size()), batch.samples.data());
    for (unsigned i = 0; i < points.size(); ++i) out.push_back(batch.colour(i));
    return out;
}

// One marble rendered once per setting: the settings are read once per
// render, so each render must follow its own, not the one before.
struct TmarbleRenders {
    TtextureNetwork net;
    TdnMarble* marble = net.make<TdnMarble>("marble");
    TmarbleRenders() {
        setValue(marble, TdnTx3D::saDefaultColor(), T3Float(0.9f, 0.1f, 0.3f));
        net.show(marble, TdnTx3D::saOutColor());
    }
    std::vector<T3Float> shade(bool wrap, float blend, const std::vector<T3Float>& points) {
        setValue(marble, TdnTx3D::saWrap(), wrap);
        setValue(marble, TdnTx3D::saBlend(), blend);
        std::vector<T3Float> out = shadePoints(net, points);
        net.session.reset();  // the render ends
        return out;
    }
};
}  // namespace

TEST(SolidBatch, OutsidePointsAndTheEdgeBlendThroughTheEngine) {
    // Inside the box at several depths, near its faces, and outside it.
    std::vector<T3Float> points;
    for (int i = 0; i < 40; ++i) {
        float t = float(i) / 39.0f;
        points.push_back(T3Float(-0.98f + 1.96f * t, 0.37f * std::sin(7.0f * t), -0.5f + 0.45f * std::cos(3.0f * t)));
    }
    for (int i = 0; i < 7; ++i) points.push_back(T3Float(0.2f, 1.05f + 0.3f * float(i), -0.5f));
    TmarbleRenders renders;
    const std::vector<T3Float> plain = renders.shade(true, 0.0f, points);  // wrap on: no blend, nothing outside
    const std::vector<T3Float> blended = renders.shade(false, 0.45f, points);
    ASSERT_EQ(plain.size(), points.size());
    ASSERT_EQ(blended.size(), points.size());
    const T3Float fallback(0.9f, 0.1f, 0.3f);
    unsigned partly = 0;
    for (unsigned i = 0; i < points.size(); ++i) {
        const T3Float& p = points[i];
        bool outside = std::fabs(p.x) > 1 || std::fabs(p.y) > 1 || std::fabs(p.z) > 1;
        float b = outside ? 1.0f : TdnTx3D::sComputeBlend(p, 0.45f);
        // The blend as a closed form: the product of raised cosines per axis.
        if (!outside) {
            float product = 1.0f;
            for (float x : {p.x, p.y, p.z}) {
                float t = std::min((1 - std::fabs(x)) / 0.45f, 1.0f);
                product *= (std::cos(float(M_PI) * (t + 1)) + 1) * 0.5f;
            }
            ASSERT_NEAR(b, 1.0f - product, 1e-5f);
        }
        partly += b > 0.05f && b < 0.95f;
        for (int c = 0; c < 3; ++c)
            EXPECT_NEAR(blended[i][c], fallback[c] * b + plain[i][c] * (1 - b), 2e-5f) << "point " << i << " channel " << c;
    }
    EXPECT_GT(partly, 5u) << "the points cross the blend band";
}

TEST(SolidBatch, ShadingAllocatesNothing) {
    // Points inside the box and out of it, on a batch of every solid type.
    std::vector<T3Float> points;
    for (int i = 0; i < 64; ++i) points.push_back(T3Float(-1.3f + 0.04f * float(i), 0.3f * std::sin(float(i)), -0.4f));
    // The noise library makes its gradient table at the first call in the
    // process, once: not a cost of shading.
    Tnoise::gNoise3(0.5f, 0.5f, 0.5f);
    for (const char* type : {"brownian", "cloud", "crater", "granite", "leather", "marble", "rock", "snow", "solidFractal",
                             "stucco", "volumeNoise", "wood"}) {
        TtextureNetwork net;
        TdependNode* texture = net.graph.createNode(type);
        ASSERT_NE(texture, nullptr) << type;
        setValue(texture, TdnTx3D::saWrap(), false);
        setValue(texture, TdnTx3D::saBlend(), 0.3f);
        setValue(texture, TdnTx3D::saDefaultColor(), T3Float(0.9f, 0.1f, 0.3f));
        net.show(texture, TdnTx3D::saOutColor());
        TshadingOpus* opus = net.analyse();
        ASSERT_NE(opus, nullptr) << type;
        TsolidBatch batch(net.group, points);
        TallocationCounter counter;  // the first shade of the render too
        batch.shade(opus);
        EXPECT_EQ(counter.allocations(), 0u) << type;
        EXPECT_EQ(batch.colour(0).y, 0.1f) << type << ": outside the box, the default colour";
        EXPECT_NE(batch.colour(32).y, 0.1f) << type << ": inside, the texture";
    }
}

TEST(SolidCells, NearestCentresMatchASearchOfEveryCell) {
    // Every cell of the repeating grid and its images in the neighbouring
    // repeats, against the 27-cell search.
    const float pitch = 0.7f, randomness = 0.8f;
    const int n = TsolidCells::kCells;
    for (int k = 0; k < 40; ++k) {
        T3Float p(-1.3f + 0.071f * float(k), 0.9f * std::sin(float(k)), 0.37f * float(k % 7) - 1.0f);
        float g[3];
        for (int a = 0; a < 3; ++a) g[a] = (p[a] / pitch - std::floor(p[a] / pitch)) * float(n);
        float best = 1e30f, second = 1e30f;
        unsigned bestKey = 0;
        for (int z = 0; z < n; ++z)
            for (int y = 0; y < n; ++y)
                for (int x = 0; x < n; ++x) {
                    unsigned key = unsigned((z * n + y) * n + x) * TsolidCells::kEntriesPerCell;
                    T3Float centre = T3Float(float(x), float(y), float(z)) + Tnoise::valuesInNoiseTable(key) * (randomness * 0.5f) +
                                     T3Float(0.5f, 0.5f, 0.5f);
                    for (int iz = -1; iz <= 1; ++iz)
                        for (int iy = -1; iy <= 1; ++iy)
                            for (int ix = -1; ix <= 1; ++ix) {
                                T3Float d = T3Float(g[0], g[1], g[2]) - centre - T3Float(float(ix * n), float(iy * n), float(iz * n));
                                float l = length(d);
                                if (l < best) {
                                    second = best;
                                    best = l;
                                    bestKey = key;
                                } else if (l < second) {
                                    second = l;
                                }
                            }
                }
        TcellSample c = TsolidCells::sNearest(p, pitch, randomness);
        EXPECT_NEAR(c.nearest, best, 1e-4f) << k;
        EXPECT_NEAR(c.second, second, 1e-4f) << k;
        EXPECT_EQ(c.key, bestKey) << k;
    }
}

TEST(SolidBatch, BumpOutputsThroughTheEngine) {
    std::vector<T3Float> points;
    for (int i = 0; i < 24; ++i) points.push_back(T3Float(-0.9f + 0.075f * float(i), 0.2f * std::cos(float(i)), -0.3f));
    auto shadeNormal = [&](const char* type, const Tattribute& depth, float value) {
        TtextureNetwork net;
        TdependNode* texture = net.graph.createNode(type);
        setValue(texture, depth, value);
        if (std::string(type) == "stucco") {
            // A smooth, broad relief, whose slope a difference of any small
            // step finds.
            setValue(texture, TdnStucco::saNormalMelt(), 1.0f);
            setValue(texture, TdnStucco::saShaker(), 2.0f);
        }
        net.connect(texture, *texture->attribute(Tstring("outNormal")), net.surface, TtestPassThroughSurface::saColor());
        return shadePoints(net, points);
    };
    // Stucco: the offset is -depth * kBumpScale / shaker times the relief's
    // slope, here by differences of its own, finer step.
    std::vector<T3Float> flat = shadeNormal("stucco", TdnStucco::saNormalDepth(), 0.0f);
    std::vector<T3Float> deep = shadeNormal("stucco", TdnStucco::saNormalDepth(), 2.0f);
    ASSERT_EQ(deep.size(), points.size());
    float steepest = 0.0f;
    for (unsigned i = 0; i < points.size(); ++i) {
        EXPECT_EQ(length(flat[i]), 0.0f) << i;
        for (int a = 0; a < 3; ++a) {
            T3Float e;
            e[a] = 2e-4f;
            float slope = (TdnStucco::sHeight(points[i] + e, 2.0f, 1.0f) - TdnStucco::sHeight(points[i] - e, 2.0f, 1.0f)) / 4e-4f;
            float want = -2.0f * TdnStucco::kBumpScale / 2.0f * slope;
            EXPECT_NEAR(deep[i][a], want, 0.002f + 0.05f * std::fabs(want)) << i << " axis " << a;
        }
        steepest = std::max(steepest, length(deep[i]));
    }
    EXPECT_GT(steepest, 0.01f) << "the relief shows";
    // Crater: the normal itself at no depth, a unit normal bent somewhere.
    std::vector<T3Float> straight = shadeNormal("crater", TdnCrater::saNormDepth(), 0.0f);
    std::vector<T3Float> bent = shadeNormal("crater", TdnCrater::saNormDepth(), 5.0f);
    ASSERT_EQ(bent.size(), points.size());
    unsigned tilted = 0;
    for (unsigned i = 0; i < points.size(); ++i) {
        EXPECT_EQ(straight[i].z, 1.0f) << i;
        EXPECT_NEAR(length(bent[i]), 1.0f, 1e-5f) << i;
        tilted += bent[i].z < 0.999f;
    }
    EXPECT_GT(tilted, 0u);
}
