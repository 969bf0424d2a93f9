// Depth-map shadows through the road users take: scene files rendered by
// `shadenet render`, compared with ray-traced shadows of the same scene, and
// maps written by one render and reused by the next; and soft ray-traced
// shadows of a light of huge radius.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <string>

#include "support/scene_render.h"

namespace {
constexpr int kSize = 96;

// A floor, a ball, a box and a tilted disc under one light, seen by an
// orthographic camera from above and in front, one sample per pixel.
std::string shadowScene(const std::string& light, const std::string& shadowAttributes) {
    return R"({"format": "shadenet-scene", "version": 1, "nodes": [
  {"type": "transform", "name": "camXf", "attributes": {"translate": [0, 6, 8], "rotate": [-36, 0, 0]}},
  {"type": "camera", "name": "cam", "parent": "camXf", "attributes": {"orthographic": true, "orthographicWidth": 6}},
  {"type": "resolution", "name": "defaultResolution", "attributes": {"width": )" + std::to_string(kSize) + R"(, "height": )" +
           std::to_string(kSize) + R"(}},
  {"type": "renderQuality", "name": "defaultRenderQuality", "attributes": {"pixelFilterType": "kBoxPixelFilter", "pixelFilterWidthX": 1}},
  )" + light + R"(, "attributes": {"intensity": 1, )" + shadowAttributes + R"(}},
  {"type": "transform", "name": "floorXf", "attributes": {"translate": [0, -1, 0]}},
  {"type": "plane", "name": "floor", "parent": "floorXf", "attributes": {"width": 8, "height": 8}},
  {"type": "transform", "name": "ballXf", "attributes": {"translate": [-1.2, 0, 0]}},
  {"type": "sphere", "name": "ball", "parent": "ballXf"},
  {"type": "transform", "name": "crateXf", "attributes": {"translate": [1.5, -0.4, -0.6], "rotate": [0, 30, 0]}},
  {"type": "box", "name": "crate", "parent": "crateXf", "attributes": {"size": [1.2, 1.2, 1.2]}},
  {"type": "transform", "name": "coinXf", "attributes": {"translate": [0.4, 1.2, 1.4], "rotate": [60, 0, 0]}},
  {"type": "disc", "name": "coin", "parent": "coinXf", "attributes": {"radius": 0.5}},
  {"type": "lambert", "name": "mat", "attributes": {"color": [0.8, 0.8, 0.8], "diffuse": 1}},
  {"type": "shadingEngine", "name": "matSG", "members": ["|floorXf|floor", "|ballXf|ball", "|crateXf|crate", "|coinXf|coin"]}
], "connections": [["mat.outColor", "matSG.surfaceShader"]]})";
}

const char* kSun = R"({"type": "transform", "name": "lightXf", "attributes": {"rotate": [-55, 35, 0]}},
  {"type": "directionalLight", "name": "key", "parent": "lightXf")";
const char* kLamp = R"({"type": "transform", "name": "lightXf", "attributes": {"translate": [-2, 3, 1.5]}},
  {"type": "pointLight", "name": "key", "parent": "lightXf")";
// Aimed at the middle of the scene, its cone wide enough for every object.
const char* kSpot = R"({"type": "transform", "name": "lightXf", "attributes": {"translate": [-2, 4, 1.5], "rotate": [-61, -53, 0]}},
  {"type": "spotLight", "name": "key", "parent": "lightXf")";

// Renders `scene` (written into `dir` as `name`) to an EXR and reads it back.
TtestImage render(const TtestTempDir& dir, const std::string& name, const std::string& scene, std::string& err) {
    TsceneRender r = renderSceneFile(dir, name, scene, {"-q", "--threads", "2"});
    err = r.run.err;
    return r.image;
}

// Pixels whose colour differs by more than `tolerance` in any channel.
double differingShare(const TtestImage& a, const TtestImage& b, float tolerance) {
    int differing = 0;
    for (int y = 0; y < a.height; ++y)
        for (int x = 0; x < a.width; ++x)
            for (int c = 0; c < 3; ++c)
                if (std::fabs(a.at(x, y, c) - b.at(x, y, c)) > tolerance) {
                    ++differing;
                    break;
                }
    return double(differing) / double(a.width * a.height);
}

// The share of pixels darker than a lit floor could be: some shadow must show.
double shadowedShare(const TtestImage& a) {
    int dark = 0;
    for (int y = 0; y < a.height; ++y)
        for (int x = 0; x < a.width; ++x)
            if (a.at(x, y, 3) > 0 && a.at(x, y, 0) < 0.05f) ++dark;
    return double(dark) / double(a.width * a.height);
}
}  // namespace

TEST(DepthMapRender, DepthMapShadowsAgreeWithRayTracedOnes) {
    struct Case {
        const char* name;
        const char* light;
        std::string settings;  // the light's own, before the shadow switch
    };
    const Case cases[] = {{"directional", kSun, ""}, {"point", kLamp, ""}, {"spot", kSpot, R"("coneAngle": 1.9, "penumbraAngle": 0.1, )"}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        TtestTempDir dir;
        std::string err;
        TtestImage traced = render(dir, "traced", shadowScene(c.light, c.settings + R"("useRayTraceShadows": true)"), err);
        ASSERT_EQ(traced.width, kSize) << err;
        TtestImage mapped = render(dir, "mapped", shadowScene(c.light, c.settings + R"("useDepthMapShadows": true)"), err);
        ASSERT_EQ(mapped.width, kSize) << err;
        TtestImage unshadowed = render(dir, "plain", shadowScene(c.light, c.settings + R"("useRayTraceShadows": false)"), err);
        ASSERT_EQ(unshadowed.width, kSize) << err;
        EXPECT_GT(shadowedShare(traced), 0.03) << "the scene has shadows to compare";
        EXPECT_LE(differingShare(mapped, traced, 0.05f), 0.02);
        EXPECT_GT(differingShare(mapped, unshadowed, 0.05f), 0.03) << "the maps shadow at all";
    }
}

TEST(DepthMapRender, WrittenMapsRenderTheIdenticalImageWhenReused) {
    struct Case {
        const char* name;
        const char* light;
        const char* midDistance;
        int files;
    };
    const Case cases[] = {{"directional, mid-distance pair", kSun, "true", 2}, {"point, six faces", kLamp, "false", 6}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        TtestTempDir dir;
        std::string err;
        const std::string common = std::string(R"("useDepthMapShadows": true, "dmapResolution": 256, "dmapFilterSize": 2, "useMidDistDmap": )") +
                                   c.midDistance;
        TtestImage written = render(dir, "write", shadowScene(c.light, common + R"(, "writeDmap": true)"), err);
        ASSERT_EQ(written.width, kSize) << err;
        int files = 0;
        for (const auto& entry : std::filesystem::directory_iterator(dir.path()))
            if (entry.path().extension() == ".iff") ++files;
        EXPECT_EQ(files, c.files);
        EXPECT_TRUE(std::filesystem::exists(dir.path() / (std::string("depthmap_key") + (c.files == 6 ? "_zn" : "") + ".iff")));

        TtestImage reused = render(dir, "reuse", shadowScene(c.light, common + R"(, "reuseDmap": true)"), err);
        ASSERT_EQ(reused.width, kSize) << err;
        EXPECT_EQ(err.find("Warning"), std::string::npos) << err;
        // The maps came from the files, not from a new render that happens to match.
        size_t reads = 0;
        for (size_t at = err.find("Reading shadow map"); at != std::string::npos; at = err.find("Reading shadow map", at + 1)) ++reads;
        EXPECT_EQ(reads, size_t(c.files)) << err;
        EXPECT_EQ(reused.pixels, written.pixels);
    }
}

// With nothing between the lights and an open floor, soft shadows of any
// radius let all the light through, as hard ones do. A radius of 1e30 aimed
// shadow rays whose length overflowed a float, and the tracer aborted.
TEST(SoftShadowRender, AHugeLightRadiusLightsAnOpenFloorAsAHardShadowDoes) {
    auto scene = [](const std::string& soft) {
        return R"({"format": "shadenet-scene", "version": 1, "nodes": [
  {"type": "transform", "name": "camXf", "attributes": {"translate": [0, 6, 0], "rotate": [-90, 0, 0]}},
  {"type": "camera", "name": "cam", "parent": "camXf", "attributes": {"orthographic": true, "orthographicWidth": 4}},
  {"type": "resolution", "name": "defaultResolution", "attributes": {"width": 16, "height": 16}},
  {"type": "renderQuality", "name": "defaultRenderQuality", "attributes": {"pixelFilterType": "kBoxPixelFilter", "pixelFilterWidthX": 1}},
  {"type": "transform", "name": "lampXf", "attributes": {"translate": [1, 3, 0]}},
  {"type": "pointLight", "name": "lamp", "parent": "lampXf", "attributes": {"useRayTraceShadows": true, "shadowRays": 4)" + soft + R"(}},
  {"type": "ambientLight", "name": "fill", "attributes": {"intensity": 0.5, "ambientShade": 1, "useRayTraceShadows": true, "shadowRays": 4)" +
               (soft.empty() ? "" : R"(, "castSoftShadows": true, "shadowRadius": 1e30)") + R"(}},
  {"type": "plane", "name": "floor", "attributes": {"width": 8, "height": 8}},
  {"type": "lambert", "name": "mat", "attributes": {"color": [0.8, 0.8, 0.8], "diffuse": 1}},
  {"type": "shadingEngine", "name": "matSG", "members": ["floor"]}
], "connections": [["mat.outColor", "matSG.surfaceShader"]]})";
    };
    TtestTempDir dir;
    std::string err;
    const TtestImage hard = render(dir, "hard", scene(""), err);
    ASSERT_EQ(hard.width, 16) << err;
    const TtestImage soft = render(dir, "soft", scene(R"(, "castSoftShadows": true, "lightRadius": 1e30)"), err);
    ASSERT_EQ(soft.width, 16) << err;
    for (int y = 0; y < 16; ++y)
        for (int x = 0; x < 16; ++x) {
            ASSERT_GT(hard.at(x, y, 0), 0.05f) << "the floor is lit at " << x << "," << y;
            for (int c = 0; c < 3; ++c) EXPECT_NEAR(soft.at(x, y, c), hard.at(x, y, c), 1e-5f) << x << "," << y;
        }
}
