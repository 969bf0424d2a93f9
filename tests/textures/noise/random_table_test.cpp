// The random tables: the fixed default list, the old congruential form, the
// choice between them at load, and the reads that index them.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <set>

#include "textures/noise/noise.h"

TEST(NoiseRandomTable, DefaultFormHasItsStatedShapeAndIsUniformAndUncorrelated) {
    const float* t = Tnoise::sDefaultRandomTable();
    // Chi-square over 64 equal bins: 63 degrees of freedom, so a fair table
    // stays far below 120 (p < 1e-5); a skewed or clumped list does not.
    constexpr int kBins = 64;
    int counts[kBins] = {};
    std::set<float> distinct;
    double sum = 0.0;
    float lo = 2.0f, hi = -2.0f;
    for (int i = 0; i < Tnoise::kTableSize; ++i) {
        distinct.insert(t[i]);
        sum += t[i];
        lo = std::min(lo, t[i]);
        hi = std::max(hi, t[i]);
        counts[std::min(int((t[i] + 1.0f) * 0.5f * kBins), kBins - 1)]++;
    }
    EXPECT_EQ(distinct.size(), 64503u);
    EXPECT_FLOAT_EQ(lo, -0.999965f);
    EXPECT_FLOAT_EQ(hi, 0.999958f);
    EXPECT_NEAR(sum / Tnoise::kTableSize, 0.0, 1e-3);
    const struct { int index; float value; } cases[] = {
        {0, -0.510765f}, {1, -0.892593f}, {2, 0.324582f}, {3, 0.514013f},      {4, 0.676386f},
        {5, 0.963623f},  {6, 0.370413f},  {7, 0.416452f}, {65533, 0.714905f}, {65534, 0.728414f},
    };
    for (const auto& c : cases) EXPECT_NEAR(t[c.index], c.value, 5e-7) << c.index;

    const double expected = double(Tnoise::kTableSize) / kBins;
    double chi2 = 0.0;
    for (int c : counts) chi2 += (c - expected) * (c - expected) / expected;
    EXPECT_LT(chi2, 120.0);
    // Neighbours are independent: the lag-1 and lattice-row (lag-32)
    // correlations of 65535 fair values stay within a few 1/256.
    for (int lag : {1, 32, 1024}) {
        double s = 0.0;
        for (int i = 0; i + lag < Tnoise::kTableSize; ++i) s += double(t[i]) * t[i + lag];
        double corr = s / (Tnoise::kTableSize - lag) / (1.0 / 3.0);
        EXPECT_LT(std::fabs(corr), 0.02) << "lag " << lag;
    }
}

TEST(NoiseRandomTable, BothFormsHaveZerosAroundThem) {
    for (const float* t : {Tnoise::sDefaultRandomTable(), Tnoise::sOldRandomTable()}) {
        EXPECT_EQ(t[-2], 0.0f);
        EXPECT_EQ(t[-1], 0.0f);
        for (int i = 0; i < 3; ++i) EXPECT_EQ(t[Tnoise::kTableSize + i], 0.0f);
    }
}

TEST(NoiseRandomTable, OldFormFollowsTheSixteenBitRule) {
    const float* t = Tnoise::sOldRandomTable();
    const float first[] = {-0.864927f, -0.440085f, -0.063462f, 0.527153f};
    for (int i = 0; i < 4; ++i) EXPECT_NEAR(t[i], first[i], 5e-7) << i;

    // The first seed is the rule applied once to initialSeedValue, so the
    // whole table is 2 nDrand - 1 from there.
    int seed = Tnoise::initialSeedValue();
    for (int i = 0; i < Tnoise::kTableSize; ++i) {
        double expected = 2.0 * Tnoise::nDrand(seed) - 1.0;
        ASSERT_NEAR(t[i], expected, 1e-7) << i;
    }
    // The 16-bit rule has full period: 65535 steps do not bring it back to
    // the start, the 65536th does.
    EXPECT_NE(seed, Tnoise::initialSeedValue());
    Tnoise::nFrand(seed);
    EXPECT_EQ(seed, Tnoise::initialSeedValue());
}

TEST(NoiseRandomTable, FormIsChosenAtLoadByEnvironment) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");  // re-run the program, so load happens again
    // Unset: the default form.
    unsetenv("TOVI_RENDERER_OLD_RANDOM_TABLE");
    EXPECT_EXIT(std::exit(Tnoise::fsTable == Tnoise::sDefaultRandomTable() ? 0 : 1), testing::ExitedWithCode(0), "");
    const struct { const char* value; bool old; } cases[] = {{"1", true}, {"7", true}, {"0", false}, {"no", false}};
    for (const auto& c : cases) {
        setenv("TOVI_RENDERER_OLD_RANDOM_TABLE", c.value, 1);
        const float* want = c.old ? Tnoise::sOldRandomTable() : Tnoise::sDefaultRandomTable();
        EXPECT_EXIT(std::exit(Tnoise::fsTable == want && Tnoise::randomNoise(0) == double(want[0]) ? 0 : 1),
                    testing::ExitedWithCode(0), "")
            << c.value;
    }
    unsetenv("TOVI_RENDERER_OLD_RANDOM_TABLE");
}

TEST(NoiseRandomTable, IndexedReadsWrapAsEachPromises) {
    const float* t = Tnoise::fsTable;
    // randomNoise: absolute value, then remainder.
    const int symmetric[] = {0, 5, 65534, 65535, 65536, 200000, 2147483647};
    for (int i : symmetric) {
        EXPECT_EQ(Tnoise::randomNoise(-i), Tnoise::randomNoise(i)) << i;
        EXPECT_EQ(Tnoise::randomNoise(i), double(t[unsigned(i) % 65535u])) << i;
    }
    EXPECT_EQ(Tnoise::randomNoise(-2147483647 - 1), double(t[2147483648u % 65535u]));

    // fastRandomNoiseFloat: remainder only from 65535 up.
    const struct { int i; int slot; } fast[] = {{0, 0}, {65534, 65534}, {65535, 0}, {65535 + 7, 7}, {3 * 65535 + 9, 9}};
    for (const auto& c : fast) EXPECT_EQ(Tnoise::fastRandomNoiseFloat(c.i), t[c.slot]) << c.i;
    EXPECT_EQ(Tnoise::reallyFastRandomNoiseFloat(65535), 0.0f);  // unchecked: reads the zeros behind

    // valuesInNoiseTable: three in a row, wrapping past the end.
    const struct { unsigned i; int a, b, c; } triples[] = {
        {0, 0, 1, 2},
        {65532, 65532, 65533, 65534},
        {65533, 65533, 65534, 0},
        {65534, 65534, 0, 1},
        {65535, 0, 1, 2},
        {65535 * 2 + 65534, 65534, 0, 1},
        {unsigned(-3), 65533, 65534, 0},  // 2^32 - 3 is -2 modulo 65535
    };
    for (const auto& c : triples) {
        T3Float v = Tnoise::valuesInNoiseTable(c.i);
        EXPECT_EQ(v.x, t[c.a]) << c.i;
        EXPECT_EQ(v.y, t[c.b]) << c.i;
        EXPECT_EQ(v.z, t[c.c]) << c.i;
    }
    // -2 and -1 are not reduced; they read the guard zeros in front.
    T3Float m1 = Tnoise::valuesInNoiseTable(unsigned(-1));
    EXPECT_EQ(m1.x, 0.0f);
    EXPECT_EQ(m1.y, t[0]);
    EXPECT_EQ(m1.z, t[1]);
}
