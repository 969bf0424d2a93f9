// What the render command writes, read back as another program would: 8-
// and 16-bit files hold the display encoding asked for, with unassociated
// alpha, and say which encoding it is; float files hold the scene-linear,
// premultiplied values of the EXR.
#include <gtest/gtest.h>

#include <OpenImageIO/imageio.h>

#include <cmath>
#include <fstream>

#include "support/program_run.h"
#include "support/temp_dir.h"
#include "support/test_image.h"

namespace {
// A ball of one flat, unlit colour (incandescence only) on the default
// black backdrop, seen by an orthographic camera; four samples a pixel make
// its rim partly covered.
constexpr float kFlat[3] = {0.6f, 0.3f, 0.1f};
const char* kBallScene = R"({"nodes": [
  {"type": "transform", "name": "camXf", "attributes": {"translate": [0, 0, 5]}},
  {"type": "camera", "name": "cam", "parent": "camXf", "attributes": {"orthographic": true, "orthographicWidth": 3}},
  {"type": "sphere", "name": "ball"},
  {"type": "lambert", "name": "flat", "attributes": {"color": [0, 0, 0], "diffuse": 0, "incandescence": [0.6, 0.3, 0.1]}},
  {"type": "shadingEngine", "name": "flatSG", "members": ["ball"]}],
 "connections": [["flat.outColor", "flatSG.surfaceShader"]]})";

// A file's stored values, without the premultiplication the image library
// applies to unassociated files by default, and the encoding it names.
struct Tpixels : TtestImage {
    std::string colourSpace;
    const float* at(int x, int y) const { return &pixels[(size_t(y) * size_t(width) + size_t(x)) * size_t(channels)]; }
};

Tpixels readRaw(const std::string& path) {
    OIIO::ImageSpec header;
    // Braced initialisers run in order: the header is read before it is asked.
    return Tpixels{readTestImage(path, &header, true), header.get_string_attribute("oiio:ColorSpace")};
}

// The sRGB curve, written out here rather than taken from the code under test.
float srgb(float linear) {
    linear = std::clamp(linear, 0.0f, 1.0f);
    return linear <= 0.0031308f ? 12.92f * linear : 1.055f * std::pow(linear, 1 / 2.4f) - 0.055f;
}
float gamma22(float linear) { return std::pow(linear, 1 / 2.2f); }
float unchanged(float linear) { return linear; }
}  // namespace

// The colour space or view asked for by name decides the curve, and the
// file names it.
TEST(ColourOutput, IntegerFilesHoldTheExrThroughTheChosenCurveAndFloatFilesTheExrItself) {
    TtestTempDir dir;
    const std::string scene = dir.file("ball.json");
    std::ofstream(scene) << kBallScene;
    const std::vector<std::string> common = {"render", scene, "--resolution", "40", "40", "--spp", "4", "-q", "-o"};
    auto render = [&](const std::string& name, std::vector<std::string> extra = {}) {
        std::vector<std::string> args = common;
        args.push_back(dir.file(name));
        args.insert(args.end(), extra.begin(), extra.end());
        TprogramRun r = shadenet(args);
        EXPECT_EQ(r.status, 0) << r.err;
        return readRaw(dir.file(name));
    };
    const Tpixels exr = render("ball.exr");
    ASSERT_EQ(exr.width, 40);
    ASSERT_EQ(exr.channels, 4);

    struct Tcase {
        const char* file;
        std::vector<std::string> extra;
        float step;  // one code value of the file; 0 for floats
        float (*encode)(float);
        const char* colourSpace;  // the name an integer file carries
    };
    const Tcase cases[] = {
        {"ball.png", {}, 1 / 255.0f, srgb, "sRGB"},
        {"ball16.png", {"--bits", "16"}, 1 / 65535.0f, srgb, "sRGB"},
        {"ball8.tif", {"--bits", "8"}, 1 / 255.0f, srgb, "sRGB"},
        {"ball16.tif", {}, 1 / 65535.0f, srgb, "sRGB"},
        {"ballf.tif", {"--bits", "32"}, 0, nullptr, nullptr},
        {"gamma.png", {"--colorspace", "Gamma 2.2"}, 1 / 255.0f, gamma22, "Gamma 2.2"},
        {"raw.png", {"--view", "Raw"}, 1 / 255.0f, unchanged, "Raw"},
        {"linear.png", {"--colorspace", "Linear"}, 1 / 255.0f, unchanged, "Linear"},
    };
    for (const Tcase& c : cases) {
        SCOPED_TRACE(c.file);
        const Tpixels image = render(c.file, c.extra);
        ASSERT_EQ(image.width, 40);
        ASSERT_EQ(image.channels, 4);
        if (c.step) EXPECT_EQ(image.colourSpace, c.colourSpace);
        else EXPECT_NE(image.colourSpace, "sRGB");
        int rim = 0;
        for (int y = 0; y < 40; ++y)
            for (int x = 0; x < 40; ++x) {
                const float* e = exr.at(x, y);
                const float* p = image.at(x, y);
                if (!c.step) {
                    for (int k = 0; k < 4; ++k) EXPECT_NEAR(p[k], e[k], 1e-6f) << x << "," << y;
                    continue;
                }
                // The display curve's approximation in the colour library
                // stays far inside one code value even at 16 bits.
                const float tolerance = std::max(c.step, 2e-4f);
                EXPECT_NEAR(p[3], e[3], c.step / 2 + 1e-6f) << x << "," << y;
                if (e[3] < 0.01f) continue;
                for (int k = 0; k < 3; ++k) {
                    EXPECT_NEAR(p[k], c.encode(e[k] / e[3]), tolerance) << x << "," << y << " channel " << k;
                    // No fringe: unassociated, the rim has the ball's own colour.
                    EXPECT_NEAR(p[k], c.encode(kFlat[k]), tolerance) << x << "," << y << " channel " << k;
                }
                rim += e[3] < 0.99f;
            }
        if (c.step) {
            EXPECT_GT(rim, 20) << "the rim was not partly covered; the test saw no fringe pixels";
        }
    }
}

TEST(ColourOutput, WhatTheConfigurationLacksIsRefusedBeforeAnythingRenders) {
    TtestTempDir dir;
    const std::string scene = dir.file("ball.json");
    std::ofstream(scene) << kBallScene;
    // Names it lacks are refused with what it has.
    const std::string file = dir.file("x.png");
    TprogramRun space = shadenet({"render", scene, "-q", "-o", file, "--colorspace", "ACEScg"});
    EXPECT_EQ(space.status, 2);
    EXPECT_NE(space.err.find("no colour space 'ACEScg'; it has 'Linear', 'sRGB', 'Gamma 2.2', 'Raw'"), std::string::npos) << space.err;
    TprogramRun view = shadenet({"render", scene, "-q", "-o", file, "--view", "Film"});
    EXPECT_EQ(view.status, 2);
    EXPECT_NE(view.err.find("no view 'Film' for the display 'sRGB'; it has 'Standard', 'Raw'"), std::string::npos) << view.err;
    // So is a configuration that cannot be read, by its path.
    const std::string config = dir.file("missing.ocio");
    TprogramRun unreadable = runProgram(SHADENET_CLI, {"render", scene, "-q", "-o", file}, {}, {{"OCIO", config}});
    EXPECT_EQ(unreadable.status, 2);
    EXPECT_NE(unreadable.err.find("the colour configuration (" + config + ")"), std::string::npos) << unreadable.err;
    EXPECT_FALSE(std::filesystem::exists(file));
}
