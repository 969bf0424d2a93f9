// The checker: its weights in closed form, filtering towards the mean, the
// common colour steps of every 2D texture (outside, effects, alpha), and the
// same numbers through the engine over a batch with lazily computed inputs.
#include <gtest/gtest.h>

#include <cmath>

#include "support/expect_near.h"
#include "support/set_value.h"
#include "textures/checker.h"
#include "textures/procedural/texture_test_nodes.h"

namespace {
const T3Float kColor1(0.2f, 0.4f, 0.6f), kColor2(0.9f, 0.1f, 0.3f);
struct CheckerNode {
    TtextureNetwork net;
    TdnChecker* checker = net.make<TdnChecker>("checker");
    CheckerNode() {
        setValue(checker, TdnChecker::saColor1(), kColor1);
        setValue(checker, TdnChecker::saColor2(), kColor2);
    }
};

T3Float mix(float w1) { return kColor1 * w1 + kColor2 * (1.0f - w1); }
}  // namespace

TEST(Checker, WeightsInClosedForm) {
    struct {
        T2Float uv, size;
        float filter, offset, contrast, want;
    } cases[] = {
        {{0.25f, 0.25f}, {0, 0}, 1, 0, 1, 1},     {{0.75f, 0.25f}, {0, 0}, 1, 0, 1, 0},      {{0.75f, 0.75f}, {0, 0}, 1, 0, 1, 1},
        {{0.25f, 0.75f}, {0, 0}, 1, 0, 1, 0},     {{1.25f, -0.75f}, {0, 0}, 1, 0, 1, 1},     {{0.25f, 0.25f}, {0, 0}, 1, 0, 0.5f, 0.75f},
        // Contrast 0 is the equal mix, inside a cell and by an edge.
        {{0.25f, 0.25f}, {0.01f, 0.02f}, 1, 0, 0, 0.5f}, {{0.49f, 0.9f}, {0.01f, 0.02f}, 1, 0, 0, 0.5f},
        // Near the edge u = 0.5: du = 0.02 against fu = 0.1 keeps a fifth of the contrast.
        {{0.49f, 0.25f}, {0.05f, 0.05f}, 1, 0, 1, 0.6f},
        // A negative filter counts as 0: the offset alone widens the same edge blend.
        {{0.49f, 0.25f}, {0.4f, 0.4f}, -3, 0.05f, 1, 0.6f},
        // A filter above one cell: c = (0.5 / 1.2) * (2 - 1.2).
        {{0.25f, 0.25f}, {0.6f, 0.6f}, 1, 0, 1, (1.0f + 0.5f / 1.2f * 0.8f) * 0.5f},
        // fu reaches 2, by the size or by the offset alone: the equal mix.
        {{0.25f, 0.25f}, {1.0f, 0.0f}, 1, 0, 1, 0.5f},     {{0.1f, 0.9f}, {0.0f, 3.0f}, 1, 0, 1, 0.5f},
        {{0.3f, 0.8f}, {0, 0}, 1, 1.0f, 1, 0.5f},
    };
    for (auto& c : cases)
        EXPECT_NEAR(TdnChecker::sColor1Weight(c.uv, c.size, c.filter, c.offset, c.contrast), c.want, 1e-5f)
            << c.uv.x << "," << c.uv.y << " size " << c.size.x << "," << c.size.y << " offset " << c.offset;
    EXPECT_FLOAT_EQ(TdnTx2D::filteredSize({0.4f, 0.2f}, -3.0f, 0.05f), 0.05f);
    EXPECT_FLOAT_EQ(TdnTx2D::filteredSize({0.4f, 0.2f}, 2.0f, -1.0f), 0.2f);
}

TEST(Checker, HalfAPeriodAwaySwapsTheColours) {
    // Shifting u by 0.5 crosses into the other colour's cell, filtered or not.
    for (float size : {0.0f, 0.03f, 0.2f, 0.7f})
        for (float u = 0.013f; u < 0.5f; u += 0.041f)
            for (float v = 0.007f; v < 1.0f; v += 0.053f) {
                float a = TdnChecker::sColor1Weight({u, v}, {size, size}, 1, 0, 1);
                float b = TdnChecker::sColor1Weight({u + 0.5f, v}, {size, size}, 1, 0, 1);
                EXPECT_NEAR(a + b, 1.0f, 1e-5f) << u << "," << v << " size " << size;
                EXPECT_GE(a, 0.0f);
                EXPECT_LE(a, 1.0f);
            }
}

TEST(Texture2d, ColourEffectsAndAlphaThroughThePullAndTheEngine) {
    // At (0.25, 0.25) with no filter the checker shows color1 with alpha 1.
    struct {
        const char* name;
        bool invert, alphaIsLuminance;
        T3Float gain, offset;
        float alphaGain, alphaOffset;
        T3Float colour;
        float alpha;
    } cases[] = {
        {"plain", false, false, {1, 1, 1}, {0, 0, 0}, 1, 0, kColor1, 1},
        {"invert", true, false, {1, 1, 1}, {0, 0, 0}, 1, 0, {0.8f, 0.6f, 0.4f}, 0},
        {"gain and offset", false, false, {2, 0.5f, 1}, {0.1f, 0, -0.1f}, 0.5f, 0.25f, {0.5f, 0.2f, 0.5f}, 0.75f},
        {"invert before gain", true, false, {2, 0.5f, 1}, {0.1f, 0, -0.1f}, 0.5f, 0.25f, {1.7f, 0.3f, 0.3f}, 0.25f},
        {"alpha is luminance", false, true, {1, 1, 1}, {0, 0, 0}, 1, 0, kColor1, 0.3f * 0.2f + 0.59f * 0.4f + 0.11f * 0.6f},
        {"luminance then invert", true, true, {1, 1, 1}, {0, 0, 0}, 1, 0, {0.8f, 0.6f, 0.4f},
         1.0f - (0.3f * 0.2f + 0.59f * 0.4f + 0.11f * 0.6f)},
        {"no clamp", false, false, {-1, 3, 1}, {0, 0, 2}, -2, 0, {-0.2f, 1.2f, 2.6f}, -2},
    };
    // One network rendered once per case: the effects are read once per
    // render, so each render must follow its own values, not the last one's.
    CheckerNode n;
    n.net.show(n.checker, TdnTx2D::saOutColor());
    for (auto& c : cases) {
        setValue(n.checker, TdnTx2D::saInvert(), c.invert);
        setValue(n.checker, TdnTx2D::saAlphaIsLuminance(), c.alphaIsLuminance);
        setValue(n.checker, TdnTx2D::saColorGain(), c.gain);
        setValue(n.checker, TdnTx2D::saColorOffset(), c.offset);
        setValue(n.checker, TdnTx2D::saAlphaGain(), c.alphaGain);
        setValue(n.checker, TdnTx2D::saAlphaOffset(), c.alphaOffset);
        TtexResult r = pullTexture(n.checker, {0.25f, 0.25f});
        expectNear(r.colour, c.colour, c.name);
        EXPECT_NEAR(r.alpha, c.alpha, 1e-6f) << c.name;

        std::vector<T2Float> uvs;
        for (unsigned i = 0; i < kBatchSize; ++i) uvs.push_back(T2Float{0.01f + 0.007f * float(i), 0.49f - 0.007f * float(i)});
        TtextureBatch batch = n.net.shade(uvs);
        for (unsigned i = 0; i < kBatchSize; ++i) expectNear(batch.colour(i), c.colour, c.name);
        n.net.session.reset();  // the render ends
    }
}

TEST(Texture2d, OutsideSamplesTakeTheDefaultColourThenTheEffects) {
    struct {
        T2Float uv;
        bool outside;
    } cases[] = {{{-1e7f, -1e7f}, true}, {{-2e7f, -1.5e7f}, true}, {{-1e7f, 0.25f}, false}, {{0.25f, -1e7f}, false}};
    for (auto& c : cases) {
        CheckerNode n;
        T3Float fallback(0.1f, 0.7f, 0.4f);
        setValue(n.checker, TdnTx2D::saDefaultColor(), fallback);
        setValue(n.checker, TdnTx2D::saColorOffset(), T3Float(0.5f, 0, 0));
        setValue(n.checker, TdnTx2D::saAlphaOffset(), 0.125f);
        TtexResult r = pullTexture(n.checker, c.uv);
        if (c.outside) {
            expectNear(r.colour, T3Float(0.6f, 0.7f, 0.4f), "outside");
            EXPECT_NEAR(r.alpha, 0.3f * 0.1f + 0.59f * 0.7f + 0.11f * 0.4f + 0.125f, 1e-6f);
        } else {
            // A single coordinate at -1e7 is an ordinary (if far) point of the pattern.
            float w1 = TdnChecker::sColor1Weight(c.uv, {0, 0}, 1, 0, 1);
            expectNear(r.colour, mix(w1) + T3Float(0.5f, 0, 0), "inside");
            EXPECT_NEAR(r.alpha, w1 + 0.125f, 1e-6f);
        }
    }
}

namespace {
// Runs of consecutive samples for which `need` holds.
template <class F>
int runsOf(unsigned count, F need) {
    int runs = 0;
    for (unsigned i = 0; i < count; ++i)
        if (need(i) && (i == 0 || !need(i - 1))) ++runs;
    return runs;
}
}  // namespace

TEST(Checker, InputsComputeOnlyWhereTheirWeightShowsAndInside) {
    struct {
        const char* name;
        T2Float size;
        float contrast;
    } cases[] = {{"sharp", {0, 0}, 1}, {"filtered", {0.04f, 0.03f}, 1}, {"low contrast", {0, 0}, 0.4f}};
    for (auto& c : cases) {
        CheckerNode n;
        auto* first = n.net.make<TtexTestSource>("texTestSource");
        auto* second = n.net.make<TtexTestSource>("texTestSource");
        n.net.connect(first, TtexTestSource::saOutColor(), n.checker, TdnChecker::saColor1());
        n.net.connect(second, TtexTestSource::saOutColor(), n.checker, TdnChecker::saColor2());
        setValue(n.checker, TdnChecker::saContrast(), c.contrast);
        n.net.show(n.checker, TdnTx2D::saOutColor());
        std::vector<T2Float> uvs = spreadUvs();
        for (unsigned i : {3u, 4u, 40u}) uvs[i] = T2Float{-1e7f, -1e7f};
        TtextureBatch batch = n.net.shade(uvs, c.size);
        auto weight = [&](unsigned i) { return TdnChecker::sColor1Weight(uvs[i], c.size, 1, 0, c.contrast); };
        auto inside = [&](unsigned i) { return !(uvs[i].x <= -1e7f && uvs[i].y <= -1e7f); };
        auto needFirst = [&](unsigned i) { return inside(i) && weight(i) >= 1e-5f; };
        auto needSecond = [&](unsigned i) { return inside(i) && 1.0f - weight(i) >= 1e-5f; };
        int firstSamples = 0, secondSamples = 0;
        for (unsigned i = 0; i < kBatchSize; ++i) {
            firstSamples += needFirst(i);
            secondSamples += needSecond(i);
        }
        EXPECT_EQ(first->samples, firstSamples) << c.name;
        EXPECT_EQ(second->samples, secondSamples) << c.name;
        EXPECT_EQ(first->computes, runsOf(kBatchSize, needFirst)) << c.name;
        EXPECT_EQ(second->computes, runsOf(kBatchSize, needSecond)) << c.name;
        EXPECT_LT(firstSamples + secondSamples, 2 * int(kBatchSize)) << c.name << ": the case must leave inputs unread";
        for (unsigned i = 0; i < kBatchSize; ++i) {
            if (!inside(i)) {
                expectNear(batch.colour(i), T3Float(0.5f, 0.5f, 0.5f), "outside");
                continue;
            }
            float w = weight(i);
            T3Float want = T3Float();
            if (w >= 1e-5f) want = want + TtexTestSource::sColourAt(uvs[i]) * w;
            if (1.0f - w >= 1e-5f) want = want + TtexTestSource::sColourAt(uvs[i]) * (1.0f - w);
            expectNear(batch.colour(i), want, c.name);
        }
    }
}
