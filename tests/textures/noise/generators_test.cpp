// The generators: the 16-bit rule in its two forms, the re-entrant 48-bit step and the
// shared random list (read from many threads in threads_test).
#include <gtest/gtest.h>

#include <cstdlib>

#include "textures/noise/noise.h"

TEST(NoiseGenerators, FloatAndDoubleFormsStepTheSixteenBitRuleAlike) {
    // The sequence from the initial seed is pinned by the old random table's
    // values in random_table_test; here both forms divide by 65535.
    const int starts[] = {0, 1, 2413, 65535, 123456789, -7};
    for (int s : starts) {
        int a = s, b = s;
        for (int i = 0; i < 100; ++i) {
            float f = Tnoise::nFrand(a);
            double d = Tnoise::nDrand(b);
            ASSERT_EQ(a, b);
            ASSERT_GE(a, 0);
            ASSERT_LE(a, 0xFFFF);
            ASSERT_EQ(f, float(a) / 65535.0f);
            ASSERT_EQ(d, double(a) / 65535.0);
        }
    }
}

TEST(NoiseGenerators, Erand48MatchesTheCLibrary) {
    const unsigned short starts[][3] = {{0x330E, 1, 0}, {0, 0, 0}, {0xFFFF, 0xFFFF, 0xFFFF}, {0x1234, 0xABCD, 0x0042}};
    for (const auto& start : starts) {
        unsigned short ours[3] = {start[0], start[1], start[2]};
        unsigned short libc[3] = {start[0], start[1], start[2]};
        for (int i = 0; i < 2000; ++i) {
            double a = Tnoise::erand48_r(ours);
            double b = erand48(libc);
            ASSERT_EQ(a, b) << "step " << i;
            ASSERT_EQ(ours[0], libc[0]);
            ASSERT_EQ(ours[1], libc[1]);
            ASSERT_EQ(ours[2], libc[2]);
        }
    }
    // nextRE is the same step on 32-bit words and ignores bits above 16.
    uint32_t words[3] = {0x330E | 0xABC0000u, 5, 0x10000u};
    unsigned short shorts[3] = {0x330E, 5, 0};
    for (int i = 0; i < 100; ++i) {
        Tnoise::nextRE(words);
        Tnoise::erand48_r(shorts);
        ASSERT_EQ(words[0], shorts[0]);
        ASSERT_EQ(words[1], shorts[1]);
        ASSERT_EQ(words[2], shorts[2]);
    }
}

TEST(NoiseGenerators, RandomListWrapsAfterItsLength) {
    const float* list = Tnoise::sRandomList();
    for (int i = 0; i < Tnoise::kRandomListSize; ++i) {
        ASSERT_GE(list[i], 0.0f);
        ASSERT_LT(list[i], 1.0f);
    }
    Tnoise::initNoiseState();
    EXPECT_EQ(Tnoise::rRand(), list[1]);  // the index moves before the read
    EXPECT_EQ(Tnoise::rRand(), list[2]);
    for (int i = 3; i < Tnoise::kRandomListSize; ++i) Tnoise::rRand();
    EXPECT_EQ(Tnoise::rRand(), list[0]);  // wrapped
    EXPECT_EQ(Tnoise::rRand(), list[1]);
    Tnoise::initNoiseState();
    EXPECT_EQ(Tnoise::rRand(), list[1]);
}

TEST(NoiseGenerators, InstancesAreCountedAndFillTheNoise3Pointer) {
    int before = Tnoise::sInstanceCount();
    {
        Tnoise a, b;
        EXPECT_EQ(Tnoise::sInstanceCount(), before + 2);
        EXPECT_EQ(Tnoise::noise3(0.3f, 0.7f, 0.1f), Tnoise::computeNoise3(0.3f, 0.7f, 0.1f));
        Tnoise::purge();  // does nothing: tables stay
    }
    EXPECT_EQ(Tnoise::sInstanceCount(), before);
    EXPECT_EQ(Tnoise::noise3(0.3f, 0.7f, 0.1f), Tnoise::computeNoise3(0.3f, 0.7f, 0.1f));
}

// The random list continues the C library's drand48() stream from where the
// table makers would have left it. Each case runs in a fresh process (the list
// is made once per process), and the reference is the C library itself.
namespace {
bool listMatchesDrand48() {
    const float* list = Tnoise::sRandomList();
    for (int i = 0; i < Tnoise::kRandomListSize; ++i)
        if (list[i] != float(drand48())) return false;
    return true;
}
}  // namespace

TEST(NoiseGeneratorsDeathTest, RandomListContinuesTheDrand48Stream) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    // Made first: the C library's own default state, untouched by anyone.
    EXPECT_EXIT(std::exit(listMatchesDrand48() ? 0 : 1), ::testing::ExitedWithCode(0), "");
    // Made after the gradient table: srand48(1) and two draws per entry.
    EXPECT_EXIT(
        {
            Tnoise::sGradientTable();
            srand48(1);
            for (int i = 0; i < 2 * 65535; ++i) drand48();
            std::exit(listMatchesDrand48() ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
}
