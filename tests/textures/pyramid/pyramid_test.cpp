// Pyramids: level tables, stretching, the levels built from an
// image, and lookups against direct computation.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>

#include "pyramid_test_support.h"
#include "support/temp_dir.h"
#include "textures/pyramid/file_texture_cache.h"
#include "textures/pyramid/pyramid.h"

TEST(PyramidLevels, TablesFollowTheirClosedForms) {
    uint32_t pixels = 0, blocks = 0;
    for (int n = 0; n < Tpyramid::kLevels; ++n) {
        EXPECT_EQ(Tpyramid::fsNumRows[n], 1 << n);
        EXPECT_EQ(Tpyramid::fsSpaceRequired[n], ((1u << (2 * n)) - 1) / 3) << n;  // sum of 4^k, k < n
        EXPECT_EQ(Tpyramid::fsNumBlocks[n], blocks) << n;
        EXPECT_EQ(Tpyramid::fsSpaceRequired[n], pixels);
        int side = 1 << n;
        blocks += side <= 32 ? 1 : uint32_t((side / 32) * (side / 32));
        pixels += uint32_t(side * side);
    }
}

TEST(PyramidLevels, ConstructionStretchesLongThinImagesOnly) {
    struct Tcase {
        int w, h;
        bool keep;
        int topW, topH, mode, maxLevel;
        float aspect;
    } cases[] = {
        {1, 1, false, 1, 1, 0, 0, 1},
        {2000, 100, false, 2000, 2000, 2, 11, 20},
        {100, 2000, false, 2000, 2000, 1, 11, 20},
        {256, 128, false, 256, 128, 0, 8, 1},     // aspect exactly 2, power-of-two side
        {200, 100, false, 200, 200, 2, 8, 2},     // aspect 2, side not a power of two
        {1024, 500, false, 1024, 500, 0, 10, 1},  // 2.048: below 2.1
        {1024, 480, false, 1024, 1024, 2, 10, 1024.0f / 480},
        {300, 200, false, 300, 200, 0, 9, 1},     // below 2: kept
        {2000, 100, true, 2000, 100, 0, 11, 1},   // keepSize
        {8192, 8192, false, 8192, 8192, 0, 13, 1},
    };
    for (const Tcase& c : cases) {
        TpyramidNonSwatch p("id", "f", c.w, c.h, 3, 1, c.keep);
        EXPECT_EQ(p.width(), c.topW) << c.w << "x" << c.h;
        EXPECT_EQ(p.height(), c.topH) << c.w << "x" << c.h;
        EXPECT_EQ(p.stretchMode(), c.mode) << c.w << "x" << c.h;
        EXPECT_EQ(p.getMaxLevel(), c.maxLevel) << c.w << "x" << c.h;
        EXPECT_FLOAT_EQ(p.aspect(), c.aspect) << c.w << "x" << c.h;
        EXPECT_EQ(p.memoryBytes(), size_t(3) * (size_t(c.topW) * c.topH + Tpyramid::fsSpaceRequired[c.maxLevel]));
        EXPECT_EQ(p.isSquare(), c.topW == c.topH && c.topW == (1 << c.maxLevel));
    }
}

TEST(PyramidBuild, BoxLevelsAverageTheLevelAboveAndASharpTopSurvives) {
    // A 64x64 image made of 2x2 cells of one colour: level 5 is exactly the
    // cells, and each lower level is the rounded mean of four pixels above.
    TpixelMap map(64, 64, 3);
    for (int y = 0; y < 64; ++y)
        for (int x = 0; x < 64; ++x)
            for (int c = 0; c < 3; ++c) map.setPixel(x, y, c, uint8_t(((x / 2) * 7 + (y / 2) * 13 + c * 50) & 255));
    auto p = buildPyramid(map);
    ASSERT_EQ(p->getMaxLevel(), 6);
    TpixelMap top, five;
    ASSERT_TRUE(p->extractLevel(6, top));
    EXPECT_EQ(std::vector<uint8_t>(top.pixels(), top.pixels() + top.byteCount()),
              std::vector<uint8_t>(map.pixels(), map.pixels() + map.byteCount()));
    ASSERT_TRUE(p->extractLevel(5, five));
    for (int y = 0; y < 32; ++y)
        for (int x = 0; x < 32; ++x)
            for (int c = 0; c < 3; ++c) ASSERT_EQ(five.getPixel(x, y, c), map.getPixel(2 * x, 2 * y, c));
    // Level 0 of a constant image is that constant, through cubic and boxes alike.
    TpixelMap flat(300, 77, 4);
    for (size_t i = 0; i < flat.byteCount(); ++i) flat.pixels()[i] = uint8_t(40 + i % 4);
    auto q = buildPyramid(flat);
    for (int level = 0; level < q->getMaxLevel(); ++level) {
        TpixelMap m;
        ASSERT_TRUE(q->extractLevel(level, m));
        for (int c = 0; c < 4; ++c) EXPECT_EQ(m.getPixel(0, 0, c), 40 + c) << level;
    }
}

TEST(PyramidBuild, StretchedImagesRepeatTheirRowsUpTheSquareTop) {
    TpixelMap map(2000, 100, 1);
    for (int y = 0; y < 100; ++y)
        for (int x = 0; x < 2000; ++x) map.setPixel(x, y, 0, uint8_t(x * 255 / 1999));
    auto p = buildPyramid(map);
    TpixelMap top;
    ASSERT_TRUE(p->extractLevel(p->getMaxLevel(), top));
    ASSERT_EQ(top.height(), 2000);
    // Stretching in y only: every row is the original row.
    for (int y = 0; y < 2000; y += 97)
        for (int x = 0; x < 2000; x += 13) ASSERT_EQ(top.getPixel(x, y, 0), map.getPixel(x, 0, 0)) << x << "," << y;
}

namespace {
// Bilinear straight from an image with rows from the top, v upwards.
float directBilinear(const TpixelMap& m, float u, float v, int c, bool wrap) {
    auto axis = [&](float x, int n, int& i0, int& i1, float& f) {
        if (x >= n - 1) {
            i0 = n - 1;
            i1 = wrap ? 0 : n - 1;
            f = std::min(x - (n - 1), 1.0f);
        } else {
            i0 = int(x);
            i1 = i0 + 1;
            f = x - i0;
        }
    };
    int x0, x1, y0, y1;
    float fx, fy;
    axis(u * m.width(), m.width(), x0, x1, fx);
    axis(v * m.height(), m.height(), y0, y1, fy);
    auto at = [&](int x, int y) { return float(m.getPixel(x, m.height() - 1 - y, c)); };
    return (1 - fy) * ((1 - fx) * at(x0, y0) + fx * at(x1, y0)) + fy * ((1 - fx) * at(x0, y1) + fx * at(x1, y1));
}
}  // namespace

TEST(PyramidLookup, GetMapColorMatchesADirectComputation) {
    // In memory, and from a BOT file through the block cache: a size that
    // leaves narrow edge blocks (4 and 6 pixels), so that lookups straddle
    // block seams, wrap across the image edge and read short rows.
    auto map = photoLikeImage(100, 70, 4, 1);
    auto p = buildPyramid(map, true);
    TtestTempDir dir;
    std::unique_ptr<Tpyramid> bot = botPyramid(map, dir.file("lookup.bot"), true);
    ASSERT_TRUE(bot);
    TfileTextureCache cache;
    std::mt19937 rng(9);
    std::uniform_real_distribution<float> uv(0, 1);
    for (Tpyramid* pyramid : {static_cast<Tpyramid*>(p.get()), bot.get()}) {
        TfileTextureWrapper w;
        w.pyramid = pyramid;
        w.cache = &cache;
        for (bool wrap : {true, false}) {
            w.wrapU = w.wrapV = wrap;
            for (int i = 0; i < 1000; ++i) {
                float u = uv(rng), v = uv(rng);
                T3Float colour;
                float alpha;
                pyramid->getMapColor(w, u, v, colour, false, alpha, 0.001f);  // fine: the top level
                for (int c = 0; c < 3; ++c)
                    ASSERT_NEAR(colour[c], directBilinear(map, u, v, c, wrap), 1e-3) << u << "," << v << " BOT " << (pyramid == bot.get());
                ASSERT_NEAR(alpha, directBilinear(map, u, v, 3, wrap) / 255, 1e-5);
            }
        }
    }
    map = photoLikeImage(96, 64, 4, 1);
    p = buildPyramid(map);
    TfileTextureWrapper w;
    w.pyramid = p.get();
    // Exactly on a pixel there is no blending; u = 1 wraps to the first column.
    w.wrapU = w.wrapV = true;
    T3Float colour;
    float alpha;
    p->getMapColor(w, 5.0f / 96, 7.0f / 64, colour, true, alpha, 0);
    EXPECT_EQ(colour[1], map.getPixel(5, 63 - 7, 1));
    p->getMapColor(w, 1.0f, 7.0f / 64, colour, true, alpha, 0);
    EXPECT_EQ(colour[0], map.getPixel(0, 63 - 7, 0));
    w.wrapU = false;
    p->getMapColor(w, 1.0f, 7.0f / 64, colour, true, alpha, 0);
    EXPECT_EQ(colour[0], map.getPixel(95, 63 - 7, 0));
}

TEST(PyramidLookup, FilterWidthPicksAndBlendsLevels) {
    // Each level a flat colour: the result tells which levels were read.
    auto map = noiseImage(64, 64, 3, 4);
    auto p = buildPyramid(map);
    TfileTextureWrapper w;
    T3Float c0, cl, ch, got;
    float a;
    auto levelColour = [&](int level) {
        T3Float c;
        float al;
        p->levelCol(w, level, 0.3f, 0.6f, c, al);
        return c;
    };
    // width >= 1: level 0, the mean.
    p->getMapColor(w, 0.3f, 0.6f, got, false, a, 1.0f);
    c0 = levelColour(0);
    EXPECT_EQ(got, c0);
    // res = 1 / width = 16 exactly: level 4 alone (t = 0).
    p->getMapColor(w, 0.3f, 0.6f, got, false, a, 1.0f / 16);
    EXPECT_NEAR(got[0], levelColour(4)[0], 1e-4);
    // res = 24: halfway between levels 4 and 5.
    p->getMapColor(w, 0.3f, 0.6f, got, false, a, 1.0f / 24);
    cl = levelColour(4);
    ch = levelColour(5);
    for (int c = 0; c < 3; ++c) EXPECT_NEAR(got[c], 0.5f * (cl[c] + ch[c]), 1e-3);
    // forceTop and the no-filter flag read the top level.
    p->getMapColor(w, 0.3f, 0.6f, got, true, a, 1.0f / 24);
    EXPECT_EQ(got, levelColour(6));
    w.noFilter = true;
    p->getMapColor(w, 0.3f, 0.6f, got, false, a, 1.0f);
    int x = int(std::lround(63 * 0.3f)), y = int(std::lround(63 * 0.6f));
    EXPECT_EQ(got[2], map.getPixel(x, 63 - y, 2));
}

TEST(PyramidLookup, OneChannelSpreadsToColourAndAlphaAndOneByOneHasOneLevel) {
    TpixelMap grey(8, 8, 1);
    for (int i = 0; i < 64; ++i) grey.pixels()[i] = uint8_t(i * 4);
    auto p = buildPyramid(grey);
    TfileTextureWrapper w;
    T3Float colour;
    float alpha;
    p->getMapColor(w, 3.0f / 8, 2.0f / 8, colour, true, alpha, 0);
    float expect = grey.getPixel(3, 7 - 2, 0);
    EXPECT_EQ(colour, T3Float(expect, expect, expect));
    EXPECT_FLOAT_EQ(alpha, expect / 255);

    TpixelMap one(1, 1, 3);
    one.setPixel(0, 0, 1, 200);
    p = buildPyramid(one);
    EXPECT_EQ(p->totalBlockCount(), 1);
    for (float width : {0.0f, 0.5f, 2.0f}) {
        p->getMapColor(w, 0.7f, 0.2f, colour, false, alpha, width);
        EXPECT_EQ(colour[1], 200) << width;
        EXPECT_EQ(alpha, 1) << width;
    }
}
