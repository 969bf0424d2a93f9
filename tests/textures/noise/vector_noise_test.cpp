// The four-dimensional vector field: its spectrum, the transform back, the
// packed table and its lookups. That every build makes the same table is
// checked against the raced build in threads_test.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <random>

#include "textures/noise/vector_noise_4d.h"

namespace {

using Tfield = T4dVectorNoise::Tfield;
constexpr int N = T4dVectorNoise::kGridSize;

int mirrorOf(int x, int y, int z, int t) {
    return T4dVectorNoise::sIndex((N - x) % N, (N - y) % N, (N - z) % N, (N - t) % N);
}

T3Float decoded(int x, int y, int z, int t) {
    const T4dVectorNoise::Tcell& c = T4dVectorNoise::table()[T4dVectorNoise::sIndex(x, y, z, t)];
    float k = float(c.length) * T4dVectorNoise::tableScale() / 255.0f / 127.0f;
    return T3Float(c.direction[0] * k, c.direction[1] * k, c.direction[2] * k);
}

float distance(const T3Float& a, const T3Float& b) { return length(a - b); }

}  // namespace

TEST(VectorNoise, SpectrumIsHermitianAndTransverse) {
    Tfield field[3];
    T4dVectorNoise::fillSpectrum(field);
    double energy = 0;
    int zeroShell = 0;
    for (int t = 0; t < N; ++t)
        for (int z = 0; z < N; ++z)
            for (int y = 0; y < N; ++y)
                for (int x = 0; x < N; ++x) {
                    const int here = T4dVectorNoise::sIndex(x, y, z, t), mirror = mirrorOf(x, y, z, t);
                    std::complex<double> along = 0;
                    double size = 0;
                    const int k[3] = {T4dVectorNoise::sFrequency(x), T4dVectorNoise::sFrequency(y),
                                      T4dVectorNoise::sFrequency(z)};
                    for (int m = 0; m < 3; ++m) {
                        ASSERT_EQ(field[m][mirror], std::conj(field[m][here]));
                        along += double(k[m]) * std::complex<double>(field[m][here]);
                        size += std::norm(field[m][here]);
                    }
                    // No component along the frequency: the field has no divergence.
                    // On the planes of index 8 the frequency's sign is ambiguous
                    // (+8 and -8 are one cell), so only the mirror pairing holds there.
                    const bool nyquist = x == N / 2 || y == N / 2 || z == N / 2;
                    if (!nyquist) {
                        ASSERT_LE(std::abs(along), 1e-5 * std::sqrt(size) * 14) << x << y << z << t;
                    }
                    energy += size;
                    if (k[0] == 0 && k[1] == 0 && k[2] == 0) zeroShell += size == 0;
                }
    EXPECT_GT(energy, 0);
    EXPECT_EQ(zeroShell, N);  // no energy below the smallest spatial frequency
}

TEST(VectorNoise, TransformedFieldIsRealAndItsPackedCellsRoundTripIt) {
    Tfield field[3];
    T4dVectorNoise::fillSpectrum(field);
    ASSERT_TRUE(T4dVectorNoise::inverseTransform(field));
    double largestReal = 0, largestImag = 0;
    for (const auto& component : field)
        for (const auto& v : component) {
            largestReal = std::max(largestReal, double(std::fabs(v.real())));
            largestImag = std::max(largestImag, double(std::fabs(v.imag())));
        }
    EXPECT_GT(largestReal, 0);
    EXPECT_LT(largestImag, 1e-5 * largestReal);
    auto cells = std::make_unique<T4dVectorNoise::Tcell[]>(T4dVectorNoise::kCellCount);
    const float scale = T4dVectorNoise::pack(field, cells.get());
    int longest = 0;
    for (int i = 0; i < T4dVectorNoise::kCellCount; ++i) {
        const auto& c = cells[i];
        T3Float v(field[0][i].real(), field[1][i].real(), field[2][i].real());
        float k = float(c.length) * scale / 255.0f / 127.0f;
        T3Float back(c.direction[0] * k, c.direction[1] * k, c.direction[2] * k);
        // Half a step of the length byte plus the direction's rounding.
        ASSERT_LE(distance(v, back), scale * (0.5f / 255.0f + 1.5f / 127.0f)) << i;
        longest = std::max<int>(longest, c.length);
    }
    EXPECT_EQ(longest, 255);  // the largest vector sets the scale
}

TEST(VectorNoise, LookupsTileWithPeriodSixteenCells) {
    std::mt19937 rng(4);
    std::uniform_real_distribution<float> coord(-3.0f, 3.0f);
    auto dyadic = [&] { return std::round(coord(rng) * 256.0f) / 256.0f; };
    for (int i = 0; i < 300; ++i) {
        T3Float p(dyadic(), dyadic(), dyadic());
        float t = dyadic();
        // 16 cells of 1/8 are 2 units.
        for (auto* lookup : {&T4dVectorNoise::getNoise, &T4dVectorNoise::getNoiseSmooth,
                             &T4dVectorNoise::getNoiseSmoothTime}) {
            T3Float v = lookup(p, t);
            ASSERT_EQ(lookup(p + T3Float(2, 0, 0), t), v);
            ASSERT_EQ(lookup(p + T3Float(0, -4, 0), t), v);
            ASSERT_EQ(lookup(p + T3Float(0, 0, 6), t), v);
            ASSERT_EQ(lookup(p, t - 2), v);
        }
    }
}

TEST(VectorNoise, LinearLookupHitsCellsAndCrossesTheSeamSmoothly) {
    T4dVectorNoise::initTable();
    ASSERT_NE(T4dVectorNoise::table(), nullptr);
    // Grid point (i - 8) / 8 is cell i.
    const int cells[][4] = {{0, 0, 0, 0}, {8, 8, 8, 8}, {15, 3, 9, 1}, {1, 15, 0, 12}};
    for (const auto& c : cells) {
        T3Float p((c[0] - 8) / 8.0f, (c[1] - 8) / 8.0f, (c[2] - 8) / 8.0f);
        T3Float got = T4dVectorNoise::getNoise(p, (c[3] - 8) / 8.0f);
        EXPECT_LT(distance(got, decoded(c[0], c[1], c[2], c[3])), 1e-6f);
        // Halfway to the next x cell (wrapping 15 to 0) is the mean of the two.
        T3Float mid = T4dVectorNoise::getNoise(p + T3Float(1 / 16.0f, 0, 0), (c[3] - 8) / 8.0f);
        T3Float mean = (decoded(c[0], c[1], c[2], c[3]) + decoded((c[0] + 1) % N, c[1], c[2], c[3])) * 0.5f;
        EXPECT_LT(distance(mid, mean), 1e-6f);
    }
    // The seam of the tile at p = 1 is like any other cell boundary.
    const float scale = T4dVectorNoise::tableScale();
    for (float y : {0.1f, -0.6f})
        EXPECT_LT(distance(T4dVectorNoise::getNoise({1.0f - 1e-5f, y, 0.3f}, 0.2f),
                           T4dVectorNoise::getNoise({1.0f, y, 0.3f}, 0.2f)),
                  1e-3f * scale);
}

TEST(VectorNoise, SmoothLookupsHaveNoKinkAtCellBoundaries) {
    // One-sided slopes along x at a cell boundary: the linear lookup bends
    // there, the cubic ones do not.
    const float h = 1e-3f / 8;  // a thousandth of a cell
    int kinks = 0;
    for (int i = 0; i < 16; ++i) {
        T3Float p((i - 8) / 8.0f, 0.37f, -0.21f);
        const float t = 0.43f;
        auto slopes = [&](T3Float (*lookup)(T3Float, float)) {
            T3Float at = lookup(p, t);
            T3Float right = (lookup(p + T3Float(h, 0, 0), t) - at) * (1 / h);
            T3Float left = (at - lookup(p - T3Float(h, 0, 0), t)) * (1 / h);
            return distance(right, left) / (length(right) + length(left) + 1e-6f);
        };
        kinks += slopes(&T4dVectorNoise::getNoise) > 0.05f;
        EXPECT_LT(slopes(&T4dVectorNoise::getNoiseSmooth), 0.02f) << i;
        EXPECT_LT(slopes(&T4dVectorNoise::getNoiseSmoothTime), 0.02f) << i;
    }
    EXPECT_GT(kinks, 8);
}
