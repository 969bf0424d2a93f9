// Value noise on the 32-cell unit lattice: the spline against B-spline
// weights, periodicity, over-range coordinates, noise1's first cell, noise4's
// time cells and the derivative form of noise2.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include "textures/noise/noise.h"

namespace {

// Uniform quadratic B-spline weights at fraction f: a second road to the
// nested form the library evaluates.
void weights(double f, double w[3]) {
    w[0] = 0.5 * (1 - f) * (1 - f);
    w[1] = 0.5 + f - f * f;
    w[2] = 0.5 * f * f;
}

struct Cell {
    int i;     // middle lattice index, 0..31
    double f;  // fraction
};

Cell cellOf(double c) {
    double p = (c - std::floor(c)) * 32.0;
    int i = int(p);
    return {i & 31, p - i};
}

double table(int x, int y, int z) { return Tnoise::fsTable[(x & 31) | ((y & 31) << 5) | ((z & 31) << 10)]; }

double referenceNoise2(double x, double y) {
    Cell cx = cellOf(x), cy = cellOf(y);
    double wx[3], wy[3], sum = 0;
    weights(cx.f, wx);
    weights(cy.f, wy);
    for (int b = 0; b < 3; ++b)
        for (int a = 0; a < 3; ++a) sum += wx[a] * wy[b] * table(cx.i + a - 1, cy.i + b - 1, 0);
    return sum;
}

double referenceNoise3(double x, double y, double z) {
    Cell cx = cellOf(x), cy = cellOf(y), cz = cellOf(z);
    double wx[3], wy[3], wz[3], sum = 0;
    weights(cx.f, wx);
    weights(cy.f, wy);
    weights(cz.f, wz);
    for (int c = 0; c < 3; ++c)
        for (int b = 0; b < 3; ++b)
            for (int a = 0; a < 3; ++a)
                sum += wx[a] * wy[b] * wz[c] * table(cx.i + a - 1, cy.i + b - 1, cz.i + c - 1);
    return sum;
}

}  // namespace

// Matching the spline of the table values, the noise is also continuous
// and within the range of the table.
TEST(ValueNoise, MatchesBSplineWeightsOfTheTable) {
    std::mt19937 rng(11);
    std::uniform_real_distribution<float> coord(-3.0f, 3.0f);
    for (int n = 0; n < 2000; ++n) {
        float x = coord(rng), y = coord(rng), z = coord(rng);
        ASSERT_NEAR(Tnoise::noise2(x, y), referenceNoise2(x, y), 2e-5) << x << " " << y;
        ASSERT_NEAR(Tnoise::noise3(x, y, z), referenceNoise3(x, y, z), 2e-5) << x << " " << y << " " << z;
    }
    // On the lattice, where a cell starts, more tightly.
    for (int ix : {0, 1, 17, 31})
        for (int iy : {0, 5, 31}) {
            float x = ix / 32.0f, y = iy / 32.0f;
            EXPECT_NEAR(Tnoise::noise2(x, y), referenceNoise2(x, y), 1e-6) << ix << " " << iy;
            EXPECT_NEAR(Tnoise::noise3(x, y, 7 / 32.0f), referenceNoise3(x, y, 7 / 32.0), 1e-6) << ix << " " << iy;
        }
}

TEST(ValueNoise, RepeatsWithPeriodOne) {
    // Dyadic points, so that adding whole units is exact.
    const float points[][3] = {{0.125f, 0.5f, 0.75f}, {0.015625f, 0.984375f, 0.3046875f}, {0.0f, 0.0f, 0.0f}};
    const int shifts[] = {1, -1, 3, -7, 100};
    for (const auto& p : points)
        for (int s : shifts) {
            EXPECT_EQ(Tnoise::noise2(p[0] + s, p[1]), Tnoise::noise2(p[0], p[1]));
            EXPECT_EQ(Tnoise::noise2(p[0], p[1] + s), Tnoise::noise2(p[0], p[1]));
            EXPECT_EQ(Tnoise::noise3(p[0] + s, p[1], p[2]), Tnoise::noise3(p[0], p[1], p[2]));
            EXPECT_EQ(Tnoise::noise3(p[0], p[1], p[2] + s), Tnoise::noise3(p[0], p[1], p[2]));
            EXPECT_EQ(Tnoise::noise4(p[0], p[1] + s, p[2], 0.25f, 10), Tnoise::noise4(p[0], p[1], p[2], 0.25f, 10));
            EXPECT_EQ(Tnoise::noise1(p[0] + s), Tnoise::noise1(p[0]));
        }
}

TEST(ValueNoise, OverRangeCoordinatesFollowTheirFunction) {
    const float inf = std::numeric_limits<float>::infinity();
    const float y = 0.3f, z = 0.55f;
    for (float big : {1.0001e9f, 1e10f, 3e38f, inf}) {
        // noise2 clamps to 1e9, the others read as at 0.
        EXPECT_EQ(Tnoise::noise2(big, y), Tnoise::noise2(1e9f, y)) << big;
        EXPECT_EQ(Tnoise::noise2(y, big), Tnoise::noise2(y, 1e9f)) << big;
        EXPECT_EQ(Tnoise::noise3(big, y, z), Tnoise::noise3(0.0f, y, z)) << big;
        EXPECT_EQ(Tnoise::noise3(y, z, big), Tnoise::noise3(y, z, 0.0f)) << big;
        EXPECT_EQ(Tnoise::noise1(big), Tnoise::noise1(0.0f)) << big;
        EXPECT_EQ(Tnoise::noise4(big, y, z, 0.3f, 5), Tnoise::noise4(0.0f, y, z, 0.3f, 5)) << big;
        EXPECT_EQ(Tnoise::gNoise3(y, big, z), Tnoise::gNoise3(y, 0.0f, z)) << big;
    }
    // In double precision the difference shows: 1e10 + 0.5 is not whole.
    float a[3], b[3], c[3];
    Tnoise::DNoise2(1e10 + 0.5, 0.3, a);
    Tnoise::DNoise2(0.0, 0.3, b);
    Tnoise::DNoise2(0.5, 0.3, c);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(a[i], b[i]);
    EXPECT_NE(a[2], c[2]);
    // Far below zero, NaN and minus infinity give finite values, not stray reads.
    for (float odd : {-1e10f, -inf, std::numeric_limits<float>::quiet_NaN()}) {
        EXPECT_TRUE(std::isfinite(Tnoise::noise2(odd, y)));
        EXPECT_TRUE(std::isfinite(Tnoise::noise3(odd, y, z)));
        EXPECT_TRUE(std::isfinite(Tnoise::gNoise3(odd, y, z)));
    }
}

TEST(ValueNoise, Noise1ExtrapolatesInTheFirstCellAtAQuarterScale) {
    const float* t = Tnoise::fsTable;
    auto q = [](double a, double b, double c, double f) {
        return (1 - f) * (1 - f) * a + (1 + 2 * f - 2 * f * f) * b + f * f * c;  // doubled weights
    };
    const struct { float x; int i; double f; } cases[] = {
        {0.0f, 1, -1.0},           // first cell: i is 1, f runs from -1
        {0.5f / 32, 1, -0.5},      //
        {2.0f + 0.25f / 32, 1, -0.75},
        {1.5f / 32, 1, 0.5},       // second cell: ordinary
        {31.5f / 32, 31, 0.5},     // last cell reads entry 32: no wrap
        {-0.25f / 32, 31, 0.75},   // just below a whole number
    };
    for (const auto& c : cases)
        EXPECT_NEAR(Tnoise::noise1(c.x), 0.25 * q(t[c.i - 1], t[c.i], t[c.i + 1], c.f), 1e-6) << c.x;
    // So noise1 jumps at whole numbers, unlike the others.
    EXPECT_GT(std::fabs(Tnoise::noise1(1.0f) - Tnoise::noise1(1.0f - 1e-6f)), 1e-3);
}

TEST(ValueNoise, Noise4RunsThroughTimeCellsUpToItsCap) {
    const float* t = Tnoise::fsTable;
    // At a lattice point and a time-cell boundary every corner value is
    // frac(a R) + frac(b R), so the result is their mean over 8 corners.
    auto frac = [](float v) { return v - std::trunc(v); };
    const int period = 64;
    for (int step : {0, 5, 63}) {
        float a = (t[step] + 1) * 21568.16f, b = (t[step + 1] + 1) * 21568.16f;
        double sum = 0;
        for (int dz = -1; dz <= 0; ++dz)
            for (int dy = -1; dy <= 0; ++dy)
                for (int dx = -1; dx <= 0; ++dx) {
                    float r = float(table(3 + dx, 9 + dy, 20 + dz)) + 2.0f;
                    sum += frac(a * r) + frac(b * r);
                }
        EXPECT_NEAR(Tnoise::noise4(3 / 32.0f, 9 / 32.0f, 20 / 32.0f, step / 64.0f, period), sum / 8 - 1, 1e-5) << step;
    }
    // Continuous across a time-cell boundary, periodic over whole t.
    const float x = 0.31f, y = 0.72f, z = 0.05f;
    EXPECT_NEAR(Tnoise::noise4(x, y, z, 5 / 64.0f - 1e-6f, period), Tnoise::noise4(x, y, z, 5 / 64.0f, period), 2e-3);
    EXPECT_EQ(Tnoise::noise4(x, y, z, 2.375f, period), Tnoise::noise4(x, y, z, 0.375f, period));
    // Periods above 60000 act as 60000; below it they differ.
    int differ = 0;
    for (float time : {0.1f, 0.37f, 0.999f, 0.5f}) {
        float capped = Tnoise::noise4(x, y, z, time, 60000);
        EXPECT_EQ(Tnoise::noise4(x, y, z, time, 70000), capped);
        EXPECT_EQ(Tnoise::noise4(x, y, z, time, 2147483647), capped);
        differ += Tnoise::noise4(x, y, z, time, 59999) != capped;
        EXPECT_LE(std::fabs(capped), 1.0f);
    }
    EXPECT_GT(differ, 0);
    // No time steps: time changes nothing.
    EXPECT_EQ(Tnoise::noise4(x, y, z, 0.2f, 0), Tnoise::noise4(x, y, z, 0.9f, 0));
}

TEST(ValueNoise, DNoise2GivesTheSlopesOfNoise2) {
    std::mt19937 rng(5);
    std::uniform_real_distribution<double> coord(-1.0, 1.0);
    const double h = 1e-6;
    for (int n = 0; n < 500; ++n) {
        double x = coord(rng), y = coord(rng);
        float out[3];
        Tnoise::DNoise2(x, y, out);
        // noise2 is a quarter of the spline at 32 cells a unit: d/dx = 16 out[0].
        double dx = (referenceNoise2(x + h, y) - referenceNoise2(x - h, y)) / (2 * h);
        double dy = (referenceNoise2(x, y + h) - referenceNoise2(x, y - h)) / (2 * h);
        ASSERT_NEAR(16.0 * out[0], dx, 1e-3 * (1 + std::fabs(dx))) << x << " " << y;
        ASSERT_NEAR(16.0 * out[1], dy, 1e-3 * (1 + std::fabs(dy))) << x << " " << y;
        // On a lattice row the third result is the noise2 value.
        double row = std::floor(y * 32) / 32;
        Tnoise::DNoise2(x, row, out);
        ASSERT_NEAR(out[2], referenceNoise2(x, row), 1e-5);
    }
}
