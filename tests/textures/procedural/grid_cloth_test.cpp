// The grid and the cloth: closed-form points, the filtered grid's mean, the
// cloth with no gap, and both through the engine with each colour input
// computed only where it shows.
#include <gtest/gtest.h>

#include <cmath>

#include "support/expect_near.h"
#include "textures/cloth.h"
#include "textures/grid.h"
#include "textures/procedural/texture_test_nodes.h"

TEST(Grid, LinesFillerAndContrast) {
    struct {
        T2Float uv, size;
        float contrast, want;
    } cases[] = {
        {{0.5f, 0.5f}, {0, 0}, 1, 0},          // filler
        {{0.02f, 0.5f}, {0, 0}, 1, 1},         // on a u line (half width 0.05)
        {{0.5f, 0.97f}, {0, 0}, 1, 1},         // on a v line
        {{1.52f, -0.5f}, {0, 0}, 1, 0},        // wrapped into the filler
        {{0.5f, 0.5f}, {0, 0}, 0.4f, 0.3f},    // 0.5 - 0.4 * 0.5
        {{0.02f, 0.5f}, {0, 0}, 0, 0.5f},      // contrast 0: the mean
        // A box one cell wide sees the whole cell: filler share 0.9 * 0.9.
        {{0.5f, 0.5f}, {0.5f, 0.5f}, 1, 0.5f - (0.81f - 0.5f)},
        {{0.13f, 0.71f}, {0.5f, 0.5f}, 1, 0.5f - (0.81f - 0.5f)},
        // Half a box on the line at u = 0: a share of (0.05 - 0.025 ... ) by hand: the box [0.025, 0.075]
        // covers the line up to 0.05, so half of it is line.
        {{0.05f, 0.5f}, {0.025f, 0}, 1, 0.5f - (0.5f - 0.5f)},
    };
    for (auto& c : cases)
        EXPECT_NEAR(TdnGrid::sLineWeight(c.uv, c.size, 1, 0, c.contrast, 0.1f, 0.1f), c.want, 1e-5f)
            << c.uv.x << "," << c.uv.y << " size " << c.size.x;
}

TEST(Grid, FilteringKeepsTheMeanOfThePattern) {
    // The mean of the box-filtered value over a period equals the mean of the sharp one.
    for (float size : {0.01f, 0.05f, 0.2f}) {
        double sharp = 0, filtered = 0;
        const int n = 400;
        for (int i = 0; i < n; ++i) {
            float u = (float(i) + 0.5f) / n;
            sharp += TdnGrid::sLineWeight({u, 0.5f}, {0, 0}, 1, 0, 1, 0.1f, 0.1f);
            filtered += TdnGrid::sLineWeight({u, 0.5f}, {size, 0}, 1, 0, 1, 0.1f, 0.1f);
        }
        EXPECT_NEAR(sharp / n, 0.1, 0.01);
        EXPECT_NEAR(filtered / n, sharp / n, 0.01) << size;
    }
}

TEST(Cloth, WeaveAtKnownPoints) {
    TclothParams p;
    const float shade = 1.0f - (1.0f / 9.0f + 1.0f / 64.0f) * 0.75f;
    struct {
        float u, v;
        bool uThread;
        float shade;
    } cases[] = {
        {0.125f, 0.125f, true, shade}, {0.625f, 0.625f, true, shade},  // same half: the u thread
        {0.125f, 0.625f, false, shade}, {0.625f, 0.125f, false, shade},  // the v thread, roles swapped
        {0.45f, 0.45f, true, 0.0f},                                      // beyond both widths: the gap
        {1.125f, -0.875f, true, shade},                                  // periodic
    };
    for (auto& c : cases) {
        TclothSample s = TdnCloth::sWeave(p, c.u, c.v);
        EXPECT_EQ(s.uThread, c.uThread) << c.u << "," << c.v;
        EXPECT_NEAR(s.shade, c.shade, 1e-5f) << c.u << "," << c.v;
    }
}

TEST(Cloth, FullWidthsLeaveNoGapAndSpreadsStayInRange) {
    TclothParams full, narrow, spread;
    full.uWidth = full.vWidth = 1;
    spread.uWave = 0.2f;
    spread.vWave = 0.1f;
    spread.randomness = 0.5f;
    spread.widthSpread = 0.5f;
    spread.brightSpread = 1.0f;
    int gaps = 0;
    for (float u = -1.0f; u < 2.0f; u += 0.0173f)
        for (float v = -1.0f; v < 2.0f; v += 0.0191f) {
            EXPECT_GT(TdnCloth::sWeave(full, u, v).shade, 0.0f) << u << "," << v;
            gaps += TdnCloth::sWeave(narrow, u, v).shade == 0.0f;
            float t = TdnCloth::sWeave(spread, u, v).shade;
            EXPECT_GE(t, 0.0f) << u << "," << v;
            EXPECT_LE(t, 1.0f) << u << "," << v;
        }
    EXPECT_GT(gaps, 100) << "the default widths do leave gaps";
}

namespace {
// A texture with colour inputs fed by counting sources, shaded over a batch.
struct LazyCase {
    TtextureNetwork net;
    std::vector<TtexTestSource*> sources;
    std::vector<T2Float> uvs = spreadUvs();
    template <class T>
    T* texture(const char* type, std::initializer_list<const Tattribute*> inputs) {
        T* node = net.make<T>(type);
        for (const Tattribute* in : inputs) {
            sources.push_back(net.make<TtexTestSource>("texTestSource"));
            net.connect(sources.back(), TtexTestSource::saOutColor(), node, *in);
        }
        net.show(node, TdnTx2D::saOutColor());
        uvs[6] = uvs[7] = T2Float{-1e7f, -1e7f};
        return node;
    }
};
}  // namespace

TEST(Cloth, ThreadsAndGapComputeOnlyWhereTheyShow) {
    LazyCase lc;
    auto* cloth = lc.texture<TdnCloth>("cloth", {&TdnCloth::saGapColor(), &TdnCloth::saUColor(), &TdnCloth::saVColor()});
    const float uWave = 0.05f;
    setValue(cloth, TdnCloth::saUWave(), uWave);
    TtextureBatch batch = lc.net.shade(lc.uvs);
    TclothParams p;
    p.uWave = uWave;
    int want[3] = {0, 0, 0};
    for (unsigned i = 0; i < lc.uvs.size(); ++i) {
        if (i == 6 || i == 7) {
            EXPECT_EQ(batch.colour(i).x, 0.5f);
            continue;
        }
        TclothSample s = TdnCloth::sWeave(p, lc.uvs[i].x, lc.uvs[i].y);
        want[0] += 1.0f - s.shade >= 1e-5f;
        want[s.uThread ? 1 : 2] += s.shade >= 1e-5f;
        // Every source gives the colour of the sample's UV: the mix is that colour.
        expectNear(batch.colour(i), TtexTestSource::sColourAt(lc.uvs[i]), "sample " + std::to_string(i), 1e-5f);
    }
    for (int k = 0; k < 3; ++k) EXPECT_EQ(lc.sources[k]->samples, want[k]) << "input " << k;
    EXPECT_GT(want[1], 0) << "the case must show u threads";
    EXPECT_GT(want[2], 0) << "the case must show v threads";
}

TEST(Grid, BatchEqualsThePullAndSkipsHiddenInputs) {
    LazyCase lc;
    auto* grid = lc.texture<TdnGrid>("grid", {&TdnGrid::saLineColor(), &TdnGrid::saFillerColor()});
    setValue(grid, TdnGrid::saUWidth(), 0.3f);
    TtextureBatch batch = lc.net.shade(lc.uvs, T2Float{0.02f, 0.01f});
    int lines = 0, fillers = 0;
    for (unsigned i = 0; i < lc.uvs.size(); ++i) {
        if (i == 6 || i == 7) continue;
        float w = TdnGrid::sLineWeight(lc.uvs[i], {0.02f, 0.01f}, 1, 0, 1, 0.3f, 0.1f);
        lines += w >= 1e-5f;
        fillers += 1.0f - w >= 1e-5f;
    }
    EXPECT_EQ(lc.sources[0]->samples, lines);
    EXPECT_EQ(lc.sources[1]->samples, fillers);
    for (unsigned i = 0; i < lc.uvs.size(); ++i) {
        lc.sources[0]->setAttributeValue(&TtexTestSource::saUvCoord(), &lc.uvs[i]);
        lc.sources[1]->setAttributeValue(&TtexTestSource::saUvCoord(), &lc.uvs[i]);
        expectNear(batch.colour(i), pullTexture(grid, lc.uvs[i], T2Float{0.02f, 0.01f}).colour, "sample " + std::to_string(i));
    }
}
