// The glow buffer, its filters and its image passes, against closed forms,
// brute-force sums and a second convolution.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <atomic>
#include <random>
#include <thread>
#include <vector>

#include "framework/host/depend_graph.h"
#include "post/post_messages.h"
#include "post/shader_glow.h"
#include "short_image.h"

namespace {
// A fresh glow node whose settings the test edits before initShaderGlow.
struct TglowFixture : ::testing::Test {
    TdependGraph graph;
    TdnShaderGlow* node = nullptr;
    void SetUp() override {
        node = static_cast<TdnShaderGlow*>(graph.createNode(Tstring("shaderGlow"), Tstring("glow")));
        ASSERT_NE(node, nullptr);
        TdnShaderGlow::setConvolutionMode(TdnShaderGlow::kConvolveAuto);
    }
    void TearDown() override {
        TdnShaderGlow::endGlow();
        setPostMessageSink(nullptr);
    }
    template <class T>
    void set(const Tattribute& a, T value) {
        ASSERT_TRUE(node->setAttributeValue(&a, &value));
    }
};

// A params record with a filter of `width` taps.
QV_GlowParams paramsOf(int type, int width, float eccentricity, int filterSum) {
    QV_GlowParams p;
    p.type = type;
    p.intensity = 1;
    p.spread = 1;
    p.eccentricity = eccentricity;
    p.ringFrequency = 25;
    p.filterWidth = width;
    p.filterSum = filterSum;
    p.color = {255, 255, 255};
    return p;
}
}  // namespace

TEST(GlowNoise, TableFollowsItsSequenceAndPatternIsNeutralWithoutStarOrNoise) {
    TglowNoise n;
    unsigned state = 2413;
    for (int i = 0; i < 5; ++i) {
        EXPECT_DOUBLE_EQ(n.table()[size_t(i)], double(state) / 65535.0 * 2 - 1);
        state = (state * 25173u + 13849u) & 0xFFFFu;
    }
    EXPECT_EQ(n.radialGlowNoise(3, 4, 0, 5, 0, 1, 0), 1.0);
    // Period 1 in both coordinates.
    EXPECT_NEAR(n.noise(0.3, 0.7), n.noise(1.3, -0.3), 1e-12);
    // A star of 4 points is full along its rays and darkest between them.
    EXPECT_NEAR(n.radialGlowNoise(1, 0, 1, 4, 0, 1, 0), 1.0, 1e-6);
    EXPECT_NEAR(n.radialGlowNoise(-1, 0, 1, 4, 0, 1, 0), 1.0, 1e-4);  // the angle stops short of a full turn
    EXPECT_NEAR(n.radialGlowNoise(-1, -1, 1, 4, 0, 1, 0), 1 - std::fabs(std::sin(4 * 0.125 * 3.1415927)), 1e-6);
    // The noise closes at the seam: just either side of the wrap agree.
    const double below = n.radialGlowNoise(-1, 1e-7, 0, 4, 0.8, 3, 0);
    const double above = n.radialGlowNoise(-1, -1e-7, 0, 4, 0.8, 3, 0);
    EXPECT_NEAR(below, above, 1e-3);
}

TEST(ShaderGlowFilter, WeightsSumToTheNormalisationForEveryType) {
    struct Case {
        int type, width;
        float eccentricity, ring, star, noise;
    };
    const Case cases[] = {{1, 11, 0.1f, 0, 0, 0}, {2, 31, 0.5f, 0, 0, 0}, {3, 5, 1.0f, 0.5f, 0, 0},
                          {4, 21, 0.3f, 0, 0.5f, 0}, {5, 41, 0.2f, 2.0f, 0, 0.7f}, {1, 1, 0.1f, 0, 0, 0}};
    for (const Case& c : cases) {
        QV_GlowParams p = paramsOf(c.type, c.width, c.eccentricity, int(0.056689341f * float(c.width * c.width)) + 1);
        p.ringIntensity = c.ring;
        p.starLevel = c.star;
        p.radialNoise = c.noise;
        ASSERT_TRUE(TdnShaderGlow::initGlowFilter(p));
        double weights = 0, red = 0;
        for (int i = 0; i < c.width * c.width; ++i) weights += p.filter[i * 4 + 3], red += p.filter[i * 4];
        EXPECT_NEAR(weights, p.filterSum, 1e-4 * p.filterSum) << "type " << c.type << " width " << c.width;
        // Only the lens flare tints its taps.
        if (c.type != kLensGlow) EXPECT_NEAR(red, weights, 1e-4 * weights);
        else EXPECT_LT(red, weights);
        std::free(p.filter);
    }
}

TEST(ShaderGlowFilter, SingleCellGlowIsRadiallySymmetricAndFallsByTheLaw) {
    // One bright cell in the middle: with no noise a tap weighs 1 - r^e,
    // r the distance over (half + 1), so the glow at distance d over the
    // glow at the centre is that law whatever the normalisation.
    for (float eccentricity : {0.1f, 0.5f, 1.0f, 2.0f}) {
        QV_ShaderGlow sg;
        QV_GlowParams& p = sg.glow;
        p = paramsOf(kLinearGlow, 21, eccentricity, 25);
        p.intensity = 0.001f;  // far below the clamp at 255
        p.wide = p.high = 41;
        std::vector<QV_Rgb> cells(41 * 41);
        cells[20 * 41 + 20] = {200, 200, 200};
        p.array = cells.data();
        ASSERT_TRUE(TdnShaderGlow::shaderGlowEffect(&p, &sg, "s_TrenderNodeStrings.rGlowNormalization"));
        const float centre = cells[20 * 41 + 20].g;
        ASSERT_GT(centre, 0);
        for (int d = 1; d <= 10; ++d) {
            const double law = 1 - std::pow(d / 11.0, double(eccentricity));
            EXPECT_NEAR(cells[20 * 41 + 20 + d].g / centre, law, 1e-5) << "e " << eccentricity << " d " << d;
            EXPECT_NEAR(cells[(20 + d) * 41 + 20].g, cells[20 * 41 + 20 + d].g, 1e-5);
            EXPECT_NEAR(cells[(20 - d) * 41 + 20].g, cells[20 * 41 + 20 - d].g, 1e-5);
            EXPECT_NEAR(cells[(20 + d) * 41 + 20 + d].g, cells[(20 - d) * 41 + 20 - d].g, 1e-5);
        }
        EXPECT_EQ(cells[20 * 41 + 20 + 11].g, 0.0f);  // beyond the filter
        p.array = nullptr;
        std::free(p.filter);
    }
}

TEST(ShaderGlowFilter, FFTConvolutionMatchesTheDirectScatter) {
    std::mt19937 random(7);
    std::uniform_real_distribution<float> value(0, 255);
    for (int type : {kLinearGlow, kLensGlow, kRimGlow}) {
        const int wide = 57, high = 33;
        std::vector<QV_Rgb> input(size_t(wide) * high);
        for (QV_Rgb& c : input)
            if (random() % 3 == 0) c = {value(random), value(random), value(random)};
        std::vector<QV_Rgb> results[2];
        for (int mode = 0; mode < 2; ++mode) {
            QV_ShaderGlow sg;
            sg.glow = paramsOf(type, 25, 0.4f, 35);
            sg.glow.ringIntensity = 0.5f;
            sg.glow.intensity = 0.0005f;
            sg.glow.wide = wide, sg.glow.high = high;
            results[mode] = input;
            sg.glow.array = results[mode].data();
            TdnShaderGlow::setConvolutionMode(mode == 0 ? TdnShaderGlow::kConvolveDirect : TdnShaderGlow::kConvolveFFT);
            ASSERT_TRUE(TdnShaderGlow::shaderGlowEffect(&sg.glow, &sg, "s_TrenderNodeStrings.rGlowNormalization"));
            sg.glow.array = nullptr;
            std::free(sg.glow.filter);
        }
        TdnShaderGlow::setConvolutionMode(TdnShaderGlow::kConvolveAuto);
        float largest = 0;
        for (const QV_Rgb& c : results[0]) largest = std::max({largest, c.r, c.g, c.b});
        ASSERT_GT(largest, 1);
        ASSERT_LT(largest, 255);  // no clamp hides a difference
        for (size_t i = 0; i < input.size(); ++i) {
            EXPECT_NEAR(results[1][i].r, results[0][i].r, 1e-5 * largest) << "type " << type << " cell " << i;
            EXPECT_NEAR(results[1][i].b, results[0][i].b, 1e-5 * largest) << "type " << type << " cell " << i;
        }
    }
}

TEST_F(TglowFixture, ResolutionFollowsTheFourthRootAndWidthsAreOdd) {
    struct Case {
        float spread, quality;
        short realSize;
    };
    // The last case's width comes out even (round(100 * 0.01 * 10) = 10) before it is made odd.
    const Case cases[] = {{0.05f, 0.5f, 480}, {0.5f, 0.5f, 480}, {2.0f, 1.0f, 1080}, {8.0f, 0.2f, 1080}, {10.0f, 0.001f, 100}};
    double work[std::size(cases)];
    for (size_t i = 0; i < std::size(cases); ++i) {
        const Case& c = cases[i];
        set(TdnShaderGlow::saGlowType(), short(kLinearGlow));
        QV_GlowParams p;
        p.spread = c.spread;
        ASSERT_TRUE(node->initShaderGlow({0, 0, 1920, 1080}, c.realSize, false));
        TdnShaderGlow::initGlowParams(p, c.quality, 1920, 1080);
        const double s = c.spread;
        const double expected = std::clamp(std::pow(s * 300 * s * c.quality * 360000, 0.25) / (600 * s), 0.01, 1.0);
        EXPECT_NEAR(p.resolution, expected, 1e-6);
        long width = std::lround(c.realSize * double(p.resolution) * s);
        if (width % 2 == 0) ++width;
        EXPECT_EQ(p.filterWidth, width);
        EXPECT_EQ(p.filterWidth % 2, 1);
        EXPECT_EQ(p.wide, int(1920 * p.resolution) + 1);
        EXPECT_EQ(p.high, int(1080 * p.resolution) + 1);
        work[i] = double(p.wide) * p.high * p.filterWidth * p.filterWidth / c.quality;
    }
    // The promise of the fourth root: a cell costs about the same over spreads.
    EXPECT_NEAR(work[2] / work[3], 1.0, 0.35);
}

TEST_F(TglowFixture, DepositsSpreadAPixelOverCellsWithoutLosingIt) {
    set(TdnShaderGlow::saGlowType(), short(kLinearGlow));
    ASSERT_TRUE(node->initShaderGlow({0, 0, 200, 120}, 120, false));
    const double res = TdnShaderGlow::sSettings().glow.resolution;
    const int wide = TdnShaderGlow::sDepositWide(), high = TdnShaderGlow::sDepositHigh();
    auto total = [&] {
        double sum = 0;
        for (int i = 0; i < wide * high; ++i) sum += TdnShaderGlow::sDepositBuffer()[i].g;
        return sum;
    };
    const QV_Rgba colour{100, 50, 300, 0};  // blue is clamped to 255 before the splat
    std::mt19937 random(3);
    double expected = 0;
    for (int k = 0; k < 50; ++k) {
        const double x = std::uniform_real_distribution<double>(0, 190)(random), y = std::uniform_real_distribution<double>(0, 110)(random);
        ASSERT_TRUE(TdnShaderGlow::addShaderGlow(&colour, x, y));
        expected += 50 * res * res;
    }
    EXPECT_NEAR(total(), expected, 1e-3 * expected);
    double blue = 0;
    for (int i = 0; i < wide * high; ++i) blue += TdnShaderGlow::sDepositBuffer()[i].b;
    EXPECT_NEAR(blue, 50 * 255 * res * res, 1e-3 * blue);
    // Past the far corner, the last cell takes the full weight.
    const double before = TdnShaderGlow::sDepositBuffer()[wide * high - 1].r;
    ASSERT_TRUE(TdnShaderGlow::addShaderGlow(&colour, 1e6, 1e6));
    EXPECT_NEAR(TdnShaderGlow::sDepositBuffer()[wide * high - 1].r - before, 100 * res * res, 1e-3);
    // A null colour is black; before initialisation deposits do nothing.
    EXPECT_TRUE(TdnShaderGlow::addShaderGlow(nullptr, 5, 5));
    TdnShaderGlow::endGlow();
    EXPECT_FALSE(TdnShaderGlow::addShaderGlow(&colour, 5, 5));
}

TEST_F(TglowFixture, DepositsFromManyThreadsLoseNothing) {
    set(TdnShaderGlow::saGlowType(), short(kLinearGlow));
    ASSERT_TRUE(node->initShaderGlow({0, 0, 16, 16}, 16, false));
    const double res = TdnShaderGlow::sSettings().glow.resolution;
    // Few cells, so that threads keep meeting in the same one.
    constexpr int kThreads = 4, kEach = 200000;
    std::atomic<int> ready{0};
    std::vector<std::thread> team;
    for (int t = 0; t < kThreads; ++t)
        team.emplace_back([t, &ready] {
            std::mt19937 random{unsigned(t)};
            ready.fetch_add(1);
            while (ready.load() < kThreads) std::this_thread::yield();
            const QV_Rgba one{1, 0, 0, 0};
            for (int k = 0; k < kEach; ++k)
                TdnShaderGlow::addShaderGlow(&one, std::uniform_real_distribution<double>(0, 15)(random),
                                             std::uniform_real_distribution<double>(0, 15)(random));
        });
    for (std::thread& t : team) t.join();
    double sum = 0;
    for (int i = 0; i < TdnShaderGlow::sDepositWide() * TdnShaderGlow::sDepositHigh(); ++i) sum += TdnShaderGlow::sDepositBuffer()[i].r;
    EXPECT_NEAR(sum, kThreads * kEach * res * res, 1e-3 * kThreads * kEach * res * res);
}

TEST_F(TglowFixture, OverlayTakesTheColourOrBlendsThroughTransparency) {
    set(TdnShaderGlow::saGlowType(), short(kLinearGlow));
    ASSERT_TRUE(node->initShaderGlow({0, 0, 100, 100}, 100, false));
    const double res = TdnShaderGlow::sSettings().glow.resolution;
    const double x = 10 / res + 0.5 / res, y = 4 / res;
    ASSERT_TRUE(TdnShaderGlow::overlayShaderGlow({100.7, 300, -4}, {1, 1, 1}, x, y));
    const QV_Rgb& cell = TdnShaderGlow::sDepositBuffer()[4 * TdnShaderGlow::sDepositWide() + 10];
    EXPECT_EQ(cell.r, 100.0f);
    EXPECT_EQ(cell.g, 255.0f);
    EXPECT_EQ(cell.b, 0.0f);
    ASSERT_TRUE(TdnShaderGlow::overlayShaderGlow({10, 0, 5}, {0.5, 0.25, 1}, x, y));
    EXPECT_EQ(cell.r, 60.0f);
    EXPECT_EQ(cell.g, 63.0f);
    EXPECT_EQ(cell.b, 5.0f);
}

TEST(ShaderGlowBuffer, ClipClearsOnlyCellsBelowTheThresholdInEveryChannel) {
    struct Case {
        QV_Rgb cell;
        float threshold;
        bool kept;
    };
    // limit = 255 t; a channel c counts as 0.75 c + (r + g + b) / 12.
    const Case cases[] = {{{10, 10, 10}, 10 / 255.0f, true},  {{9, 9, 9}, 10 / 255.0f, false}, {{0, 0, 13}, 10 / 255.0f, true},
                          {{0, 0, 11}, 10 / 255.0f, false}, {{0.001f, 0, 0}, 0, true},      {{200, 0, 0}, 1, false}};
    for (const Case& c : cases) {
        QV_Rgb cell = c.cell;
        ASSERT_TRUE(TdnShaderGlow::clipGlowArray(c.threshold, 1, 1, &cell));
        EXPECT_EQ(cell.r != 0 || cell.g != 0 || cell.b != 0, c.kept) << c.cell.r << " " << c.cell.g << " " << c.cell.b;
    }
    EXPECT_FALSE(TdnShaderGlow::clipGlowArray(0.5f, 4, 4, nullptr));
    QV_Rgb none;
    EXPECT_TRUE(TdnShaderGlow::clipGlowArray(0.5f, 0, 0, &none));
}

TEST(ShaderGlowBuffer, ResizeDownKeepsAverages) {
    // A constant stays itself (after rounding). A ramp keeps its mean but for
    // the lag of the running box, which trails by (k - 1) / 2 source pixels.
    for (auto [sw, sh, dw, dh] : {std::array{40, 30, 20, 15}, std::array{64, 48, 13, 9}, std::array{10, 10, 10, 10}}) {
        std::vector<QV_Rgb> src(size_t(sw) * sh), dst(size_t(dw) * dh);
        for (int y = 0; y < sh; ++y)
            for (int x = 0; x < sw; ++x) src[size_t(y) * sw + x] = {100, float(x) * 200 / float(sw - 1), 300};
        ASSERT_TRUE(TdnShaderGlow::filterResizeDown(src.data(), sw, sh, dst.data(), dw, dh));
        double ramp = 0;
        for (const QV_Rgb& c : dst) {
            EXPECT_NEAR(c.r, 100, 1.0);
            EXPECT_EQ(c.b, 255.0f);  // clamped
            ramp += c.g;
        }
        const int k = std::min(int(1.99 * sw / dw), 32);
        const double lag = 200.0 / (sw - 1) * (k - 1) / 2;
        EXPECT_NEAR(ramp / double(dst.size()), 100 - lag, 1.5) << sw << "x" << sh << " to " << dw << "x" << dh;
    }
}

TEST(ShaderGlowBuffer, CellsBelowOneEmitNothing) {
    QV_ShaderGlow sg;
    sg.glow = paramsOf(kLinearGlow, 5, 0.5f, 10);
    sg.glow.wide = sg.glow.high = 9;
    std::vector<QV_Rgb> cells(81, QV_Rgb{0.99f, 0.5f, 0.2f});
    sg.glow.array = cells.data();
    ASSERT_TRUE(TdnShaderGlow::shaderGlowEffect(&sg.glow, &sg, "s_TrenderNodeStrings.rGlowNormalization"));
    for (const QV_Rgb& c : cells) EXPECT_EQ(c.r + c.g + c.b, 0.0f);
    sg.glow.array = nullptr;
    std::free(sg.glow.filter);
}

TEST_F(TglowFixture, EffectsThatAreOffTakeNoBufferAndAddNothing) {
    // Glow type 0 with a halo: deposits go to the halo, only its pass runs.
    set(TdnShaderGlow::saGlowType(), short(kNoGlow));
    set(TdnShaderGlow::saHaloType(), short(kLinearGlow));
    set(TdnShaderGlow::saHaloIntensity(), 1.0f);
    ASSERT_TRUE(node->initShaderGlow({0, 0, 64, 48}, 48, false));
    EXPECT_EQ(TdnShaderGlow::sDepositBuffer(), TdnShaderGlow::sSettings().halo.array);
    EXPECT_EQ(TdnShaderGlow::sSettings().glow.array, nullptr);
    const QV_Rgba white{255, 255, 255, 0};
    for (int y = 20; y < 28; ++y)
        for (int x = 28; x < 36; ++x) TdnShaderGlow::addShaderGlow(&white, x, y);
    ASSERT_TRUE(TdnShaderGlow::calculateGlow());
    EXPECT_EQ(TdnShaderGlow::sSettings().glow.array, nullptr);
    std::vector<unsigned char> image = shortImage(64, 48, 10);
    ASSERT_TRUE(TdnShaderGlow::addShaderGlowToArray({0, 0, 64, 48}, image.data(), false, kPostShortPixels));
    EXPECT_GT(postReadPixel(&image[(24 * 64 + 32) * 8], kPostShortPixels).g, 20);

    // Intensity 0 on both: nothing to do at all.
    set(TdnShaderGlow::saHaloIntensity(), 0.0f);
    EXPECT_FALSE(node->initShaderGlow({0, 0, 64, 48}, 48, false));
    EXPECT_FALSE(TdnShaderGlow::addShaderGlow(&white, 3, 3));

    // Glow at intensity 0 with its type on, halo on: only the halo's pass runs.
    set(TdnShaderGlow::saGlowType(), short(kLinearGlow));
    set(TdnShaderGlow::saGlowIntensity(), 0.0f);
    set(TdnShaderGlow::saHaloIntensity(), 1.0f);
    ASSERT_TRUE(node->initShaderGlow({0, 0, 64, 48}, 48, false));
    EXPECT_EQ(TdnShaderGlow::sDepositBuffer(), TdnShaderGlow::sSettings().halo.array);
    TdnShaderGlow::addShaderGlow(&white, 32, 24);
    ASSERT_TRUE(TdnShaderGlow::calculateGlow());
    EXPECT_EQ(TdnShaderGlow::sSettings().glow.array, nullptr);
}

TEST_F(TglowFixture, ThresholdZeroKeepsFaintCellsAndPrintingReportsEachStep) {
    std::vector<std::string> lines;
    setPostMessageSink([&](const std::string& line) { lines.push_back(line); });
    set(TdnShaderGlow::saHaloType(), short(kLinearGlow));
    set(TdnShaderGlow::saHaloIntensity(), 0.5f);
    set(TdnShaderGlow::saAutoExposure(), false);
    ASSERT_TRUE(node->initShaderGlow({0, 0, 320, 240}, 240, true));
    const QV_GlowParams& glow = TdnShaderGlow::sSettings().glow;
    const QV_GlowParams& halo = TdnShaderGlow::sSettings().halo;
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_EQ(lines[0], "Glow filter width: " + std::to_string(glow.filterWidth));
    EXPECT_EQ(lines[2], "Halo filter width: " + std::to_string(halo.filterWidth));
    // A cell of about 1.2: the faintest that still emits.
    const double res = glow.resolution;
    const QV_Rgba faint{float(1.2 / (res * res)), 0, 0, 0};
    TdnShaderGlow::addShaderGlow(&faint, 100, 100);
    ASSERT_TRUE(TdnShaderGlow::calculateGlow());
    ASSERT_EQ(lines.size(), 6u);
    // Without auto exposure the printed normalisation is the intensity.
    EXPECT_EQ(lines[4], "Glow normalization: 1");
    EXPECT_EQ(lines[5], "Halo normalization: 0.5");
    bool lit = false;
    for (int i = 0; i < glow.wide * glow.high; ++i) lit = lit || glow.array[i].r > 0;
    EXPECT_TRUE(lit);
}

TEST_F(TglowFixture, OldFilterNormalisesToFixedSums) {
    setenv("TOVI_USE_PRE_V45_SHADER_GLOW_FILTER", "1", 1);
    set(TdnShaderGlow::saHaloType(), short(kLinearGlow));
    set(TdnShaderGlow::saHaloIntensity(), 1.0f);
    const bool started = node->initShaderGlow({0, 0, 320, 240}, 240, false);
    unsetenv("TOVI_USE_PRE_V45_SHADER_GLOW_FILTER");
    ASSERT_TRUE(started);
    EXPECT_EQ(TdnShaderGlow::sSettings().glow.filterSum, 25);
    EXPECT_EQ(TdnShaderGlow::sSettings().halo.filterSum, 100);
}

TEST(ShaderGlowImagePass, OpacityFieldsAndBothPixelLayouts) {
    QV_GlowParams p = paramsOf(kLinearGlow, 1, 0, 1);
    p.resolution = 0.5f;
    p.wide = 5, p.high = 5;
    std::vector<QV_Rgb> cells(25);
    for (int y = 0; y < 5; ++y)
        for (int x = 0; x < 5; ++x) cells[size_t(y) * 5 + x] = {float(40 * y), 100, float(20 * x)};
    p.array = cells.data();
    const Trect rect{0, 0, 8, 8};
    // Bilinear between cells, added to the pixel; dither moves a channel by under 1.
    std::vector<unsigned char> image = shortImage(8, 8, 10);
    ASSERT_TRUE(TdnShaderGlow::glowArray(&p, image.data(), rect, false, kPostShortPixels, 0, 8, false));
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 8; ++x) {
            const QV_Rgba px = postReadPixel(&image[size_t(y * 8 + x) * 8], kPostShortPixels);
            // Pixel centres read the cells at (i + 0.5) * 0.5 - 0.5.
            EXPECT_NEAR(px.r, 10 + 40 * std::max(0.0, y * 0.5 - 0.25), 1.0);
            EXPECT_NEAR(px.b, 10 + 20 * std::max(0.0, x * 0.5 - 0.25), 1.0);
        }
    // Opacity driving o to 1 or more: the colour becomes the glow.
    p.opacity = 10;
    std::vector<unsigned char> bytes(8 * 8 * 4, 200);
    ASSERT_TRUE(TdnShaderGlow::glowArray(&p, bytes.data(), rect, false, kPostBytePixels, 0, 8, false));
    const QV_Rgba replaced = postReadPixel(&bytes[(4 * 8 + 2) * 4], kPostBytePixels);
    EXPECT_NEAR(replaced.g, 100, 1.0);
    EXPECT_NEAR(replaced.r, 70, 1.0);
    EXPECT_EQ(replaced.a, 255.0f);  // 200 + mean + mean o, clamped
    // Fields sample rows at twice the resolution: field row y is frame row 2y.
    p.opacity = 0;
    std::vector<unsigned char> frame = shortImage(8, 8, 0), field = shortImage(8, 4, 0);
    ASSERT_TRUE(TdnShaderGlow::glowArray(&p, frame.data(), rect, false, kPostShortPixels, 0, 8, false));
    ASSERT_TRUE(TdnShaderGlow::glowArray(&p, field.data(), rect, true, kPostShortPixels, 0, 8, false));
    for (int y = 0; y < 4; ++y)
        EXPECT_NEAR(postReadPixel(&field[size_t(y * 8 + 3) * 8], kPostShortPixels).r,
                    postReadPixel(&frame[size_t(2 * y * 8 + 3) * 8], kPostShortPixels).r, 2.0);
    // The scanline form writes the same row as the array form.
    std::vector<unsigned char> row = shortImage(8, 1, 0);
    ASSERT_TRUE(TdnShaderGlow::glowArray(&p, row.data(), rect, false, kPostShortPixels, 5, 6, true));
    for (int x = 0; x < 8; ++x)
        EXPECT_NEAR(postReadPixel(&row[size_t(x) * 8], kPostShortPixels).r, postReadPixel(&frame[size_t(5 * 8 + x) * 8], kPostShortPixels).r,
                    2.0);
    EXPECT_FALSE(TdnShaderGlow::glowArray(nullptr, row.data(), rect, false, kPostShortPixels, 0, 1, true));
}
