// Renders as a whole: the same image whatever the thread count, however
// often it is rendered and wherever the engine's frames live, regions that
// agree with the full image, and every class of bad input reported, not
// crashed on.
#include <gtest/gtest.h>

#include <cstring>

#include "renderer/render_fixture.h"
#include "renderer/renderer_test_surface.h"
#include "support/temp_dir.h"

namespace {
// Every kind of shape, instancing, a mesh, a floor lit by a real light, and a
// triangle filter wider than a pixel so that tiles share samples along their
// borders.
std::string busyScene(const std::string& dir) {
    writeFile(dir + "/tri.obj", "v -1 0 0\nv 1 0 0\nv 0 1.5 0\nvt 0 0\nvt 1 0\nvt 0.5 1\nf 1/1 2/2 3/3\n");
    std::string nodes =
        R"({"type": "transform", "name": "a", "attributes": {"translate": [-1.2, 0.3, 0], "scale": [1, 0.6, 1]}},
           {"type": "sphere", "name": "ball", "parent": ["a", "b"]},
           {"type": "transform", "name": "b", "attributes": {"translate": [1.3, -0.4, -1]}},
           {"type": "transform", "name": "floorXf", "attributes": {"translate": [0, -1.2, 0]}},
           {"type": "plane", "name": "floor", "parent": "floorXf", "attributes": {"width": 8, "height": 8}},
           {"type": "transform", "name": "crate", "attributes": {"translate": [0, 0, -1.5], "rotate": [20, 35, 0]}},
           {"type": "box", "name": "crateShape", "parent": "crate", "attributes": {"size": [0.8, 0.8, 0.8]}},
           {"type": "transform", "name": "discXf", "attributes": {"translate": [0.4, 1.1, 0.5], "rotate": [70, 0, 0]}},
           {"type": "disc", "name": "coin", "parent": "discXf", "attributes": {"radius": 0.4}},
           {"type": "mesh", "name": "tri", "attributes": {"fileName": "tri.obj"}},
           {"type": "lambert", "name": "clay"}, {"type": "shadingEngine", "name": "claySG", "members": ["|floorXf|floor"]},
           {"type": "transform", "name": "lampXf", "attributes": {"translate": [2, 3, 2]}}, {"type": "pointLight", "name": "lamp", "parent": "lampXf"},
           {"type": "renderQuality", "name": "defaultRenderQuality", "attributes": {"pixelFilterType": "kTrianglePixelFilter", "pixelFilterWidthX": 2.5}}, )" +
        testGroup("lit", TrendererTestSurface::kLambert, R"("|a|ball", "|b|ball", "|discXf|coin")",
                  R"("lightDirection": [0.3, 0.8, 0.5], "color": [0.9, 0.7, 0.5])") +
        ", " + testGroup("uv", TrendererTestSurface::kUv, R"("|crate|crateShape", "tri")");
    return sceneText(nodes, testConnection("lit") + ", " + testConnection("uv") + R"(, ["clay.outColor", "claySG.surfaceShader"])");
}

TrenderOptions options(int threads, int spp = 3) {
    TrenderOptions o;
    o.width = 61, o.height = 45, o.threads = threads, o.samplesPerPixel = spp, o.tileSize = 8;
    return o;
}

bool sameBits(const TframeBuffer& a, const TframeBuffer& b) {
    return a.width() == b.width() && a.height() == b.height() &&
           std::memcmp(a.data().data(), b.data().data(), a.data().size() * sizeof(float)) == 0;
}

unsigned coveredPixels(const TframeBuffer& image) {
    unsigned n = 0;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x) n += image.pixel(x, y)[3] > 0;
    return n;
}
}  // namespace

TEST(RenderRun, TheSameImageWhateverTheThreadsHoweverOftenRenderedAndInAnyRegion) {
    TtestTempDir dir;
    std::string text = busyScene(dir.path().string());
    TrenderRun one = renderText(text, options(1), dir.file("scene.json"));
    TrenderRun two = renderText(text, options(2), dir.file("scene.json"));
    TrenderRun again = renderText(text, options(2), dir.file("scene.json"));
    ASSERT_TRUE(one.ok && two.ok && again.ok) << one.error << two.error << again.error;
    // The scene covers much of the frame, so equality is not of two empty images.
    EXPECT_GT(coveredPixels(one.image), 61u * 45u / 2);
    EXPECT_TRUE(sameBits(one.image, two.image)) << "one and two threads";
    EXPECT_TRUE(sameBits(two.image, again.image)) << "a second render in the same process";
    // The threads keep the programs' frames from batch to batch; frames made
    // per batch on the stack give the same bits.
    EXPECT_GT(two.statistics.framesReused, 10 * two.statistics.framesMade);
    TrenderOptions onTheStack = options(2);
    onTheStack.keepShadingFrames = false;
    TrenderRun stack = renderText(text, onTheStack, dir.file("scene.json"));
    ASSERT_TRUE(stack.ok) << stack.error;
    EXPECT_EQ(stack.statistics.framesReused, 0u);
    EXPECT_TRUE(sameBits(stack.image, two.image)) << "frames on the stack";
    // And a change shows: fewer samples per pixel give another image.
    TrenderRun other = renderText(text, options(2, 1), dir.file("scene.json"));
    ASSERT_TRUE(other.ok);
    EXPECT_FALSE(sameBits(two.image, other.image));

    // A region matches the full image inside and is empty outside.
    const TframeBuffer& full = two.image;
    struct Region {
        int x0, y0, x1, y1;
    };
    // Corners off the tiles of 8, one reaching the image's corner, one pixel.
    for (const Region& r : {Region{13, 7, 40, 30}, Region{17, 9, 61, 45}, Region{1, 1, 2, 2}}) {
        SCOPED_TRACE(testing::Message() << r.x0 << " " << r.y0 << " " << r.x1 << " " << r.y1);
        TrenderOptions o = options(2);
        o.useRegion = true;
        o.regionX0 = r.x0, o.regionY0 = r.y0, o.regionX1 = r.x1, o.regionY1 = r.y1;
        TrenderRun part = renderText(text, o, dir.file("scene.json"));
        ASSERT_TRUE(part.ok) << part.error;
        int inside = 0, wrong = 0;
        for (int y = 0; y < 45; ++y)
            for (int x = 0; x < 61; ++x) {
                const bool in = x >= r.x0 && x < r.x1 && y >= r.y0 && y < r.y1;
                const float* p = part.image.pixel(x, y);
                const float* f = full.pixel(x, y);
                for (int c = 0; c < 4; ++c) wrong += in ? p[c] != f[c] : p[c] != 0.0f;
                inside += in && f[3] > 0;
            }
        EXPECT_EQ(wrong, 0);
        if (r.x1 - r.x0 > 1) {
            EXPECT_GT(inside, 100);
        }
    }
}

TEST(RenderRun, BadInputIsReportedWithTheFileName) {
    TtestTempDir dir;
    std::string scene = dir.file("bad.json");
    struct Case {
        const char* name;
        std::string text;
        std::string expected;  // in the error
    };
    const Case cases[] = {
        {"malformed JSON", "{\"nodes\": [", "bad.json:"},
        {"unknown type", sceneText(R"({"type": "teapot", "name": "t"})"), "unknown node type 'teapot'"},
        {"missing mesh", sceneText(R"({"type": "mesh", "name": "m", "attributes": {"fileName": "meshes/gone.obj"}})"),
         "meshes/gone.obj: mesh file not found"},
        {"mesh without a file name", sceneText(R"({"type": "mesh", "name": "m"})"), "node 'm' attribute 'fileName': the mesh names no file"},
        {"no camera", R"({"nodes": [{"type": "sphere", "name": "s"}]})", "the scene has no renderable camera"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        writeFile(scene, c.text);
        TframeBuffer image;
        std::string error;
        EXPECT_FALSE(renderSceneFile(scene, renderOptions(8, 8), image, error));
        EXPECT_NE(error.find(scene.substr(scene.find_last_of('/') + 1)), std::string::npos) << error;
        EXPECT_NE(error.find(c.expected), std::string::npos) << error;
    }
    // A region outside the image is refused too.
    writeFile(scene, sceneText(""));
    TrenderOptions o = renderOptions(8, 8);
    o.useRegion = true, o.regionX0 = 20, o.regionY0 = 0, o.regionX1 = 30, o.regionY1 = 4;
    TframeBuffer image;
    std::string error;
    EXPECT_FALSE(renderSceneFile(scene, o, image, error));
    EXPECT_NE(error.find("holds no pixel"), std::string::npos) << error;
}

TEST(RenderRun, AGroupThatCannotShadeDrawsTheDefaultColourWithOneWarning) {
    // "emptySG" has no surface shader; its two members still draw.
    std::string nodes = R"({"type": "transform", "name": "l", "attributes": {"translate": [-1, 0, 0]}},
        {"type": "transform", "name": "r", "attributes": {"translate": [1, 0, 0]}},
        {"type": "sphere", "name": "ball", "parent": ["l", "r"], "attributes": {"radius": 0.8}},
        {"type": "shadingEngine", "name": "emptySG", "members": ["|l|ball", "|r|ball"]})";
    TrenderRun run = renderText(sceneText(nodes), renderOptions(40, 30, 2));
    ASSERT_TRUE(run.ok) << run.error;
    ASSERT_EQ(run.warnings.size(), 1u);
    EXPECT_NE(run.warnings[0].find("emptySG"), std::string::npos);
    // Both balls are there, in a neutral grey that faces the camera most
    // brightly at the centre of each.
    for (int x : {10, 30}) {
        const float* p = run.image.pixel(x, 15);
        EXPECT_EQ(p[3], 1.0f);
        EXPECT_EQ(p[0], p[1]);
        EXPECT_EQ(p[1], p[2]);
        EXPECT_GT(p[0], 0.3f);
        EXPECT_LE(p[0], 0.5f);
    }
}
