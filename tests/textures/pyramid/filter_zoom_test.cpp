// The cubic resampler: the filter's closed forms and what resampling keeps.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "textures/pyramid/filter_zoom.h"

TEST(FilterZoom, KernelHasTheMitchellNetravaliValuesAndIntegratesToOne) {
    // B = C = 1/3: k(0) = 8/9, k(1) = 1/18, k(2) = 0.
    EXPECT_NEAR(TfilterZoom::kernel(0), 8.0 / 9.0, 1e-12);
    EXPECT_NEAR(TfilterZoom::kernel(1), 1.0 / 18.0, 1e-12);
    EXPECT_NEAR(TfilterZoom::kernel(-1), 1.0 / 18.0, 1e-12);
    EXPECT_NEAR(TfilterZoom::kernel(2), 0, 1e-12);
    EXPECT_EQ(TfilterZoom::kernel(2.5), 0);
    EXPECT_NEAR(TfilterZoom::filterInteg(0), 0.5, 1e-12);
    EXPECT_NEAR(TfilterZoom::filterInteg(2), 1.0, 1e-12);
    EXPECT_EQ(TfilterZoom::filterInteg(-3), 0.0);
    // The integral's slope is the kernel, on both pieces.
    for (double x : {-1.7, -0.6, 0.2, 0.9, 1.3, 1.95}) {
        double h = 1e-6;
        double slope = (TfilterZoom::filterInteg(x + h) - TfilterZoom::filterInteg(x - h)) / (2 * h);
        EXPECT_NEAR(slope, TfilterZoom::kernel(x), 1e-6) << x;
    }
}

TEST(FilterZoom, InteriorWeightsSumTo4096AndSpansStayInTheImage) {
    struct Tcase {
        int source, target;
    } cases[] = {{300, 256}, {1000, 64}, {100, 2000}, {3, 4}, {5, 1}};
    for (auto [source, target] : cases) {
        auto filt = TfilterZoom::makeFilt(source, target);
        ASSERT_EQ(int(filt.size()), target);
        for (int i = 0; i < target; ++i) {
            const auto& f = filt[size_t(i)];
            EXPECT_GE(f.first, 0);
            EXPECT_LE(f.first + int(f.weights.size()), source);
            EXPECT_GT(f.total, 0);
            int sum = 0;
            for (auto w : f.weights) sum += w;
            EXPECT_EQ(sum, f.total);
            // Away from the edges nothing is clipped: the weights are a
            // partition of unity, off by at most the rounding of each weight.
            double reach = target < source ? 2.0 * source / target + 1 : 3;
            double centre = (i + 0.5) * source / target;
            if (centre > reach && centre < source - reach) {
                EXPECT_NEAR(f.total, 4096, double(f.weights.size())) << source << "->" << target << " at " << i;
            }
        }
    }
}

TEST(FilterZoom, ConstantImagesStayConstantAndRampsStayMonotonic) {
    const int sizes[][4] = {{300, 200, 256, 256}, {100, 7, 100, 100}, {2000, 100, 64, 64}, {5, 3, 16, 16}};
    for (auto s : sizes) {
        for (int ch : {1, 3}) {
            std::vector<uint8_t> flat(size_t(s[0]) * s[1] * ch, 77), out(size_t(s[2]) * s[3] * ch);
            filterZoom(ch, s[0], s[1], s[2], s[3], flat.data(), out.data());
            for (uint8_t v : out) ASSERT_EQ(v, 77) << s[0] << "x" << s[1];
        }
        std::vector<uint8_t> ramp(size_t(s[0]) * s[1]), out(size_t(s[2]) * s[3]);
        for (int y = 0; y < s[1]; ++y)
            for (int x = 0; x < s[0]; ++x) ramp[size_t(y) * s[0] + x] = uint8_t(255 * x / std::max(1, s[0] - 1));
        filterZoom(1, s[0], s[1], s[2], s[3], ramp.data(), out.data());
        // Compare inner columns only: the cubic rings slightly near the ends.
        for (int y = 0; y < s[3]; ++y)
            for (int x = s[2] / 8 + 1; x < s[2] - s[2] / 8; ++x)
                ASSERT_GE(out[size_t(y) * s[2] + x] + 1, out[size_t(y) * s[2] + x - 1]) << x;
    }
}

TEST(FilterZoom, AnAxisThatKeepsItsSizeIsCopied) {
    // 64 x 8 to 64 x 64: every target row's columns are a blend of the same
    // columns only, so a pattern that varies in x alone comes out unchanged.
    std::vector<uint8_t> src(64 * 8), out(64 * 64);
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 64; ++x) src[size_t(y) * 64 + x] = uint8_t((x * 37) & 255);
    filterZoom(1, 64, 8, 64, 64, src.data(), out.data());
    for (int y = 0; y < 64; ++y)
        for (int x = 0; x < 64; ++x) ASSERT_EQ(out[size_t(y) * 64 + x], src[size_t(x)]) << x << "," << y;
}
