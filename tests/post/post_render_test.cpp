// Glow and a light's effects through the program users run: scene files
// rendered with and without post effects, read back and compared.
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "support/scene_render.h"

namespace {
constexpr int kSide = 40;  // pixels; the orthographic view is 4 units wide

// An orthographic camera at z = 5, one box-filtered sample per pixel, then `nodes`.
std::string scene(const std::string& nodes, const std::string& connections) {
    return R"({"nodes": [
      {"type": "transform", "name": "camXf", "attributes": {"translate": [0, 0, 5]}},
      {"type": "camera", "name": "cam", "parent": "camXf", "attributes": {"orthographic": true, "orthographicWidth": 4}},
      {"type": "resolution", "name": "defaultResolution", "attributes": {"width": 40, "height": 40}},
      {"type": "renderQuality", "name": "defaultRenderQuality", "attributes": {"pixelFilterType": "kBoxPixelFilter", "pixelFilterWidthX": 1}},
      )" + nodes + R"(], "connections": [)" + connections + "]}";
}

// A sphere of radius 0.5 at the origin lit by nothing, glowing by its incandescence.
const std::string kEmber = R"(
      {"type": "transform", "name": "emberXf"},
      {"type": "sphere", "name": "ember", "parent": "emberXf", "attributes": {"radius": 0.5}},
      {"type": "lambert", "name": "emberMat", "attributes": {"color": [0, 0, 0], "incandescence": [0.8, 0.8, 0.8], "glowIntensity": 1}},
      {"type": "shadingEngine", "name": "emberSG", "members": ["|emberXf|ember"]})";
const std::string kEmberLink = R"(["emberMat.outColor", "emberSG.surfaceShader"])";
// A plain glow at a fixed exposure.
const std::string kGlow = R"(, {"type": "shaderGlow", "name": "glow",
      "attributes": {"glowType": "Linear", "haloType": "None", "glowSpread": 1.3, "autoExposure": false, "glowIntensity": 0.2}})";

// A light at (1.05, 0.55, 2) with a plain glow; it projects to the centre of pixel (30, 14).
const std::string kLamp = R"(
      {"type": "transform", "name": "lampXf", "attributes": {"translate": [1.05, 0.55, 2]}},
      {"type": "pointLight", "name": "lamp", "parent": "lampXf"},
      {"type": "opticalFX", "name": "lampFX", "attributes": {"glowType": "Linear", "haloType": "None", "glowIntensity": 0.5}})";
const std::string kLampLink = R"(["lampFX.message", "lamp.lightGlow"])";

struct Trendered {
    TtestImage post, plain;
};

Trendered renderBoth(const TtestTempDir& dir, const std::string& text, const std::string& extension = "png") {
    Trendered r;
    for (bool post : {true, false}) {
        std::vector<std::string> args = {"--quiet", "--spp", "1"};
        if (!post) args.push_back("--no-post");
        const TsceneRender run = renderSceneFile(dir, post ? "post" : "plain", text, args, extension);
        EXPECT_EQ(run.run.status, 0) << run.run.err;
        (post ? r.post : r.plain) = run.image;
    }
    return r;
}
}  // namespace

TEST(PostRender, GlowSpreadsAroundAGlowingObjectAndNoPostLeavesItOut) {
    TtestTempDir dir;
    const Trendered r = renderBoth(dir, scene(kEmber + kGlow, kEmberLink));
    ASSERT_EQ(r.post.width, kSide);
    ASSERT_EQ(r.plain.width, kSide);
    // Without post effects: the incandescence on the sphere, black around it;
    // a PNG holds it through the sRGB curve.
    const float encoded = 1.055f * std::pow(0.8f, 1 / 2.4f) - 0.055f;
    EXPECT_NEAR(r.plain.at(20, 20, 0), encoded, 1.0f / 255);
    EXPECT_EQ(r.plain.at(20, 28, 0), 0.0f);
    // With them: light beyond the sphere's edge (5 pixels), the same on
    // every side, falling outward.
    const float right = r.post.at(27, 20, 1), left = r.post.at(12, 20, 1), up = r.post.at(20, 12, 1), down = r.post.at(20, 27, 1);
    EXPECT_GT(right, 4.0f / 255);
    for (float v : {left, up, down}) EXPECT_NEAR(v, right, 0.2f * right);
    EXPECT_LT(r.post.at(33, 20, 1), right);
    EXPECT_LT(r.post.at(0, 0, 1), r.post.at(33, 20, 1));
    // One thread or several, small tiles or not: the same glow.
    const TprogramRun single = runProgram(SHADENET_CLI, {"render", dir.file("post.json"), "-o", dir.file("single.png"), "--quiet",
                                                         "--spp", "1", "--threads", "1"});
    ASSERT_EQ(single.status, 0) << single.err;
    EXPECT_EQ(readTestImage(dir.file("single.png")).pixels, r.post.pixels);
}

// A region render leaves everything outside the region empty, glow and the
// lights' effects included, so that its tiles can be laid over each other.
TEST(PostRender, ARegionRenderKeepsPostEffectsInsideTheRegion) {
    TtestTempDir dir;
    // A PNG holds the whole frame, transparent outside the region.
    const TsceneRender run = renderSceneFile(dir, "region", scene(kEmber + kGlow + "," + kLamp, kEmberLink + "," + kLampLink),
                                             {"--quiet", "--spp", "1", "--region", "7", "9", "27", "29"}, "png");
    ASSERT_EQ(run.run.status, 0) << run.run.err;
    const TtestImage& r = run.image;
    ASSERT_EQ(r.width, kSide);
    int glowing = 0;
    for (int y = 0; y < kSide; ++y)
        for (int x = 0; x < kSide; ++x) {
            const bool inside = x >= 7 && x < 27 && y >= 9 && y < 29;
            if (!inside) {
                for (int c = 0; c < 4; ++c) EXPECT_EQ(r.at(x, y, c), 0.0f) << x << " " << y << " channel " << c;
            }
            glowing += inside && r.at(x, y, 1) > 0 && (x < 14 || x >= 26);  // beside the ember, lit only by its glow
        }
    EXPECT_GT(glowing, 0);
}

// An EXR holds the image with the post effects and, as a second layer, the
// image before them, which is the --no-post render.
TEST(PostRender, ALightsGlowCentresOnItsProjectionOverTheImageAnExrKeepsAsASecondLayer) {
    TtestTempDir dir;
    const Trendered open = renderBoth(dir, scene(kLamp, kLampLink), "exr");
    ASSERT_EQ(open.post.channels, 8);
    ASSERT_EQ(open.plain.channels, 4);
    int bestX = -1, bestY = -1;
    float best = 0;
    for (int y = 0; y < kSide; ++y)
        for (int x = 0; x < kSide; ++x) {
            for (int c = 0; c < 4; ++c) EXPECT_EQ(open.post.at(x, y, 4 + c), open.plain.at(x, y, c)) << x << "," << y;
            const float added = open.post.at(x, y, 0) - open.plain.at(x, y, 0);
            if (added > best) best = added, bestX = x, bestY = y;
        }
    EXPECT_GT(best, 0.5f);
    EXPECT_NEAR(bestX, 30, 1);
    EXPECT_NEAR(bestY, 14, 1);
    // A ball across the sight line from the camera to the light: nothing added.
    const std::string blocker = R"(,
      {"type": "transform", "name": "blockXf", "attributes": {"translate": [0.525, 0.275, 3.5]}},
      {"type": "sphere", "name": "block", "parent": "blockXf", "attributes": {"radius": 0.4}})";
    const Trendered hidden = renderBoth(dir, scene(kLamp + blocker, kLampLink), "exr");
    ASSERT_EQ(hidden.post.channels, 8);
    for (int y = 0; y < kSide; ++y)
        for (int x = 0; x < kSide; ++x)
            for (int c = 0; c < 4; ++c) EXPECT_EQ(hidden.post.at(x, y, c), hidden.plain.at(x, y, c)) << x << "," << y;
}
