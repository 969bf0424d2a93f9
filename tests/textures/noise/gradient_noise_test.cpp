// Gradient noise: its table against the C library's generator, and the
// lattice properties that follow from a gradient at each corner.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <random>

#include "textures/noise/noise.h"

TEST(GradientNoise, TableComesFromDrand48SeededWithOne) {
    const T3Float* g = Tnoise::sGradientTable();
    srand48(1);
    for (int i = 0; i < Tnoise::kTableSize; ++i) {
        double z = 1.0 - 2.0 * drand48();
        double r = std::sqrt(1.0 - z * z);
        double a = 2.0 * M_PI * drand48();
        ASSERT_NEAR(g[i].x, r * std::cos(a), 1e-7) << i;
        ASSERT_NEAR(g[i].y, r * std::sin(a), 1e-7) << i;
        ASSERT_NEAR(g[i].z, z, 1e-7) << i;
    }
    // Making the table left the C library's own sequence alone.
    srand48(99);
    double before = drand48();
    srand48(99);
    Tnoise::initGradientNoiseTable();
    EXPECT_EQ(drand48(), before);
}

TEST(GradientNoise, VanishesOnTheLatticeWithTheCornersGradient) {
    const T3Float* g = Tnoise::sGradientTable();
    const uint8_t* p = Tnoise::fsPermutation;
    const int corners[][3] = {{0, 0, 0}, {3, 7, 1}, {-1, -5, 2}, {255, 128, 17}, {-300, 40, -2}};
    const float h = 1e-4f;
    for (const auto& c : corners) {
        float x = float(c[0]), y = float(c[1]), z = float(c[2]);
        EXPECT_EQ(Tnoise::gNoise3(x, y, z), 0.0f);
        const T3Float& grad = g[p[(p[(p[c[2] & 255] + c[1]) & 255] + c[0]) & 255]];
        // The fade is flat at the corners, so the slope there is the corner's
        // gradient. The steps are the ones float arithmetic really took.
        auto slope = [](float c, float h, auto at) { return (at(c + h) - at(c - h)) / ((c + h) - (c - h)); };
        EXPECT_NEAR(slope(x, h, [&](float v) { return Tnoise::gNoise3(v, y, z); }), grad.x, 1e-3);
        EXPECT_NEAR(slope(y, h, [&](float v) { return Tnoise::gNoise3(x, v, z); }), grad.y, 1e-3);
        EXPECT_NEAR(slope(z, h, [&](float v) { return Tnoise::gNoise3(x, y, v); }), grad.z, 1e-3);
        // gLattice is one corner's term.
        EXPECT_NEAR(Tnoise::gLattice(c[0], c[1], c[2], 0.25f, -0.5f, 0.125f),
                    grad.x * 0.25f - grad.y * 0.5f + grad.z * 0.125f, 1e-7);
    }
}

TEST(GradientNoise, RepeatsEvery256AndStaysBounded) {
    std::mt19937 rng(7);
    std::uniform_real_distribution<float> coord(-4.0f, 4.0f);
    float spread = 0;
    for (int n = 0; n < 5000; ++n) {
        // Multiples of 1/1024 keep the shifted coordinates exact.
        float x = std::round(coord(rng) * 1024) / 1024, y = std::round(coord(rng) * 1024) / 1024;
        float z = std::round(coord(rng) * 1024) / 1024;
        float v = Tnoise::gNoise3(x, y, z);
        ASSERT_EQ(Tnoise::gNoise3(x + 256, y, z), v);
        ASSERT_EQ(Tnoise::gNoise3(x, y - 512, z), v);
        ASSERT_LE(std::fabs(v), 1.0f);
        spread = std::max(spread, std::fabs(v));
    }
    EXPECT_GT(spread, 0.3f);
}
