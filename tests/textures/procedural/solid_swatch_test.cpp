// The solid textures through the program, as a user meets them: each
// swatch is its own picture, the same on every run and for any number of
// threads, and a scene file renders the closed form of the snow at known
// pixels.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "support/scene_render.h"

namespace {
// In the order of the contact sheet, so that neighbours there are compared.
const char* const kSolidTypes[] = {"brownian", "cloud", "crater", "granite", "leather", "marble",
                                   "rock",     "snow",  "solidFractal", "stucco", "volumeNoise", "wood"};

TtestImage swatch(const TtestTempDir& dir, const std::string& type, int threads) {
    const std::string file = dir.file(type + "-" + std::to_string(threads) + ".exr");
    TprogramRun r = runProgram(SHADENET_CLI, {"swatch", type, "-o", file, "--size", "24", "--spp", "1", "--threads",
                                              std::to_string(threads)});
    EXPECT_EQ(r.status, 0) << type << ": " << r.err;
    return readTestImage(file);
}

double meanDifference(const TtestImage& a, const TtestImage& b) {
    double sum = 0;
    for (size_t i = 0; i < a.pixels.size(); ++i) sum += std::fabs(a.pixels[i] - b.pixels[i]);
    return sum / double(a.pixels.size());
}
}  // namespace

TEST(SolidSwatches, EachIsItsOwnPictureOnEveryRunAndThreadCount) {
    TtestTempDir dir;
    std::vector<TtestImage> images;
    for (const char* type : kSolidTypes) {
        SCOPED_TRACE(type);
        TtestImage one = swatch(dir, type, 1), again = swatch(dir, type, 1), three = swatch(dir, type, 3);
        ASSERT_EQ(one.width, 24);
        ASSERT_EQ(one.pixels.size(), three.pixels.size());
        ASSERT_EQ(one.pixels.size(), again.pixels.size());
        // Bit for bit: no sample depends on which thread shades it or on
        // what ran before it.
        EXPECT_EQ(one.pixels, again.pixels);
        EXPECT_EQ(one.pixels, three.pixels);
        images.push_back(std::move(one));
    }
    for (size_t i = 1; i < images.size(); ++i)
        EXPECT_GT(meanDifference(images[i - 1], images[i]), 0.02) << kSolidTypes[i - 1] << " and " << kSolidTypes[i];
}

TEST(SolidSwatches, ASceneFileRendersTheSnowClosedForm) {
    // An orthographic camera on +z; a card turned 60 degrees about x, so
    // that its camera normal is (0, 0.5, 0.87): an up component of 0.5.
    // Snow then lies at thickness (1 - exp(-(0.5 - threshold) decay)).
    TtestTempDir dir;
    const std::string scene = R"({"nodes": [
        {"type": "transform", "name": "camXf", "attributes": {"translate": [0, 0, 5]}},
        {"type": "camera", "name": "cam", "parent": "camXf", "attributes": {"orthographic": true, "orthographicWidth": 4}},
        {"type": "transform", "name": "cardXf", "attributes": {"rotate": [60, 0, 0]}},
        {"type": "plane", "name": "card", "parent": "cardXf", "attributes": {"width": 2, "height": 2}},
        {"type": "snow", "name": "snow", "attributes": {"threshold": 0.2, "depthDecay": 5, "thickness": 0.9,
                                                        "surfaceColor": [0.2, 0.4, 0.6]}},
        {"type": "shadingEngine", "name": "snowSG", "members": ["|cardXf|card"]}],
      "connections": [["snow.outColor", "snowSG.surfaceShader"]]})";
    TsceneRender r = renderSceneFile(dir, "snow", scene, {"--resolution", "16", "16", "--spp", "1", "-q"});
    ASSERT_EQ(r.run.status, 0) << r.run.err;
    const TtestImage& got = r.image;
    ASSERT_EQ(got.width, 16);
    const float v = 0.9f * (1.0f - std::exp(-(0.5f - 0.2f) * 5.0f));
    const float surface[3] = {0.2f, 0.4f, 0.6f};
    // The card spans x -1 to 1 and y -0.5 to 0.5 in view: pixels 4 to 11
    // across and 6 to 9 down; the pixel filter reaches one pixel in.
    for (int y = 7; y <= 8; ++y)
        for (int x = 5; x <= 10; ++x)
            for (int c = 0; c < 3; ++c) EXPECT_NEAR(got.at(x, y, c), v + surface[c] * (1 - v), 2e-3f) << x << "," << y;
    // Beyond the card: the background, not snow.
    EXPECT_LT(got.at(1, 1, 0), 0.5f * v);
}
