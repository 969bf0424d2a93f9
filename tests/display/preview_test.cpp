// The preview through the command a user runs: the showcase drawn by OpenGL
// against the same scene ray traced, object by object, through the masks the
// preview writes of its own objects.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <map>
#include <vector>

#include "framework/host/depend_graph.h"
#include "renderer/gl_preview.h"
#include "scene/scene_loader.h"
#include "support/program_run.h"
#include "support/temp_dir.h"
#include "support/test_image.h"

namespace {
// Sums of an object's pixels in the preview and in the render.
struct Tsums {
    double preview[3] = {0, 0, 0}, render[3] = {0, 0, 0};
    long count = 0;
};
}  // namespace

// The showcase (every object, the chrome ball's reflections included), the
// viewport example (a frame covering part of a poster, a mirrored file
// repeat, a layered texture, a solid texture) and the solid textures.
TEST(PreviewCommand, ScenesMatchTheRenderPerObject) {
    const struct {
        const char* scene;
        unsigned objects;
    } cases[] = {
        {"showcase.json", 8},
        // Objects 4 and 5 share a shading switch that gives each its own
        // colour, in the render as in the preview.
        {"viewport.json", 6},
        // Six solid textures baked over their objects' UVs.
        {"solid-textures.json", 7},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.scene);
        TtestTempDir dir;
        const std::string scene = std::string(SHADENET_SOURCE_DIR) + "/examples/" + c.scene;
        const std::string preview = dir.file("preview.png"), ids = dir.file("ids.png"), render = dir.file("render.png");
        TprogramRun p = runProgram(SHADENET_CLI, {"preview", scene, "-o", preview, "--object-ids", ids});
        ASSERT_EQ(p.status, 0) << p.err;
        TprogramRun r = runProgram(SHADENET_CLI, {"render", scene, "-o", render, "-q", "--spp", "1", "--no-post"});
        ASSERT_EQ(r.status, 0) << r.err;
        TtestImage a = readTestImage(preview), b = readTestImage(render), id = readTestImage(ids);
        ASSERT_EQ(a.width, 640);
        ASSERT_EQ(a.height, 400);
        ASSERT_EQ(b.width, a.width);
        ASSERT_EQ(id.width, a.width);

        // Pixels well inside an object only: the tessellated spheres' rims
        // and the edges' antialiasing differ by design.
        std::map<int, Tsums> sums;
        auto idAt = [&](int x, int y) { return int(std::lround(id.at(x, y, 0) * 255)); };
        for (int y = 2; y < a.height - 2; ++y)
            for (int x = 2; x < a.width - 2; ++x) {
                int k = idAt(x, y);
                if (k == 0 || idAt(x - 2, y) != k || idAt(x + 2, y) != k || idAt(x, y - 2) != k || idAt(x, y + 2) != k) continue;
                for (int ch = 0; ch < 3; ++ch) sums[k].preview[ch] += a.at(x, y, ch), sums[k].render[ch] += b.at(x, y, ch);
                ++sums[k].count;
            }
        EXPECT_EQ(sums.size(), c.objects);
        for (auto& [k, m] : sums) {
            double pa[3], pb[3], diff = 0, norm = 0;
            for (int ch = 0; ch < 3; ++ch) {
                pa[ch] = m.preview[ch] / double(m.count);
                pb[ch] = m.render[ch] / double(m.count);
                diff += (pa[ch] - pb[ch]) * (pa[ch] - pb[ch]);
                norm += pb[ch] * pb[ch];
            }
            std::printf("%s object %d: %ld pixels, relative difference %.3f\n", c.scene, k, m.count, std::sqrt(diff / norm));
            EXPECT_LT(std::sqrt(diff / norm), 0.10) << "object " << k << " over " << m.count << " pixels: preview (" << pa[0] << ", "
                                                    << pa[1] << ", " << pa[2] << ") render (" << pb[0] << ", " << pb[1] << ", "
                                                    << pb[2] << ")";
        }
    }
}

namespace {
// A room of five coloured walls at distance 6 around a mirror ball at the
// origin (no wall towards -z: the background shows there), a white marker
// ball up and towards +x, the camera at z = 3 looking down -z without
// rotation, so that camera and world axes agree.
std::string mirrorRoomScene() {
    struct Twall {
        const char* name;
        float translate[3], rotate[3], colour[3];
    } walls[] = {{"px", {6, 0, 0}, {0, 0, 90}, {0.8f, 0.1f, 0.1f}},  {"nx", {-6, 0, 0}, {0, 0, 90}, {0.1f, 0.8f, 0.1f}},
                 {"py", {0, 6, 0}, {0, 0, 0}, {0.1f, 0.1f, 0.8f}},   {"ny", {0, -6, 0}, {0, 0, 0}, {0.8f, 0.8f, 0.1f}},
                 {"pz", {0, 0, 6}, {90, 0, 0}, {0.1f, 0.8f, 0.8f}}};
    auto triple = [](const float* v) {
        return std::string("[") + std::to_string(v[0]) + ", " + std::to_string(v[1]) + ", " + std::to_string(v[2]) + "]";
    };
    std::string nodes, links;
    auto shaded = [&](const std::string& name, const std::string& shape, const std::string& transformAttributes,
                      const std::string& material) {
        nodes += R"({"type": "transform", "name": ")" + name + R"(Xf", "attributes": {)" + transformAttributes + "}},\n";
        nodes += R"({"type": ")" + shape + R"(", "name": ")" + name + R"(", "parent": ")" + name + "Xf\"" +
                 (shape == "plane" ? R"(, "attributes": {"width": 12, "height": 12})" : "") + "},\n";
        nodes += material + ",\n";
        nodes += R"({"type": "shadingEngine", "name": ")" + name + R"(SG", "members": ["|)" + name + "Xf|" + name + "\"]},\n";
        links += R"(, [")" + name + R"(Mat.outColor", ")" + name + R"(SG.surfaceShader"])";
    };
    for (const Twall& w : walls)
        shaded(w.name, "plane", "\"translate\": " + triple(w.translate) + ", \"rotate\": " + triple(w.rotate),
               R"({"type": "lambert", "name": ")" + std::string(w.name) + R"(Mat", "attributes": {"color": [0, 0, 0], "incandescence": )" +
                   triple(w.colour) + "}}");
    shaded("marker", "sphere", R"("translate": [4, 2, 0], "scale": [0.8, 0.8, 0.8])",
           R"({"type": "lambert", "name": "markerMat", "attributes": {"color": [0, 0, 0], "incandescence": [0.9, 0.9, 0.9]}})");
    shaded("mirror", "sphere", R"("translate": [0, 0, 0])",
           R"({"type": "phong", "name": "mirrorMat", "attributes": {"color": [0, 0, 0], "specularColor": [1, 1, 1], "reflectivity": 1}})");
    return R"({"format": "shadenet-scene", "version": 1, "nodes": [
{"type": "transform", "name": "camXf", "attributes": {"translate": [0, 0, 3]}},
{"type": "camera", "name": "cam", "parent": "camXf", "attributes": {"backgroundColor": [0.2, 0.3, 0.4]}},
{"type": "resolution", "name": "defaultResolution", "attributes": {"width": 64, "height": 64}},
{"type": "renderQuality", "name": "defaultRenderQuality", "attributes": {"enableRaytracing": true, "reflections": 1}},
)" + nodes.substr(0, nodes.size() - 2) + R"(], "connections": [)" + links.substr(2) + "]}";
}
}  // namespace

// The mirror ball's cube map, read back face by face: each face's middle
// shows the wall in that direction (the background where there is none),
// and the marker lands where OpenGL looks up its direction, which fixes
// every face's orientation.
TEST(PreviewCubeMap, FacesShowTheSceneInTheirDirections) {
    TtestTempDir dir;
    const std::string scene = dir.file("room.json");
    std::ofstream(scene) << mirrorRoomScene();
    TdependGraph graph;
    TsceneLoader loader;
    ASSERT_TRUE(loader.load(scene, graph)) << (loader.errors().empty() ? "" : loader.errors().front().text());
    TglPreview preview;
    std::string error;
    ASSERT_TRUE(preview.build(graph, scene, TpreviewOptions(), error)) << error;
    const TglTextureObject* cube = nullptr;
    for (const auto& object : preview.scene().objects())
        if (object->path.fullPathName() == "|mirrorXf|mirror") cube = preview.environmentMap(object->index);
    ASSERT_NE(cube, nullptr);
    ASSERT_TRUE(cube->isCube());
    const int n = cube->width();
    std::vector<float> faces[6];
    for (int f = 0; f < 6; ++f) ASSERT_TRUE(cube->getCubeFace(f, faces[f])) << "face " << f;
    auto texel = [&](int face, float s, float t) {
        const float* p = &faces[face][(size_t(t * n) * n + size_t(s * n)) * 4];
        return T3Float{p[0], p[1], p[2]};
    };
    auto near = [](const T3Float& a, const T3Float& b) { return std::fabs(a.x - b.x) + std::fabs(a.y - b.y) + std::fabs(a.z - b.z) < 0.02f; };
    // Faces in OpenGL's order: +x, -x, +y, -y, +z, -z.
    const T3Float middle[6] = {{0.8f, 0.1f, 0.1f}, {0.1f, 0.8f, 0.1f}, {0.1f, 0.1f, 0.8f},
                               {0.8f, 0.8f, 0.1f}, {0.1f, 0.8f, 0.8f}, {0.2f, 0.3f, 0.4f}};
    for (int f = 0; f < 6; ++f) {
        T3Float c = texel(f, 0.5f, 0.5f);
        EXPECT_TRUE(near(c, middle[f])) << "face " << f << " shows (" << c.x << ", " << c.y << ", " << c.z << ")";
    }
    // The marker's direction (2, 1, 0) leaves through +x at s = (-z / x + 1) / 2
    // = 0.5 and t = (-y / x + 1) / 2 = 0.25; t = 0.75 mirrors it.
    const T3Float white{0.9f, 0.9f, 0.9f};
    EXPECT_TRUE(near(texel(0, 0.5f, 0.25f), white));
    EXPECT_TRUE(near(texel(0, 0.5f, 0.75f), middle[0]));
    // Seen from +y looking down, the marker is at s = (x / y + 1) / 2 = 1
    // (off the face) and not anywhere in the face's middle band.
    EXPECT_TRUE(near(texel(2, 0.5f, 0.5f), middle[2]));
}

// A texture the preview cannot read is drawn untextured, and said so as a
// render says it.
TEST(PreviewCommand, AnUnreadableTextureIsNamedInAWarning) {
    TtestTempDir dir;
    const std::string scene = dir.file("scene.json");
    std::ofstream(scene) << R"({"nodes": [
        {"type": "transform", "name": "camXf", "attributes": {"translate": [0, 10, 0], "rotate": [-90, 0, 0]}},
        {"type": "camera", "name": "cam", "parent": "camXf", "attributes": {"orthographic": true, "orthographicWidth": 4}},
        {"type": "transform", "name": "floorXf"},
        {"type": "plane", "name": "floor", "parent": "floorXf", "attributes": {"width": 4, "height": 4}},
        {"type": "file", "name": "photo", "attributes": {"fileTextureName": "lost.png"}},
        {"type": "lambert", "name": "mat"},
        {"type": "shadingEngine", "name": "floorSG", "members": ["|floorXf|floor"]},
        {"type": "ambientLight", "name": "fill"}],
      "connections": [["photo.outColor", "mat.color"], ["mat.outColor", "floorSG.surfaceShader"]]})";
    const TprogramRun p = runProgram(SHADENET_CLI, {"preview", scene, "-o", dir.file("preview.png"), "--resolution", "16", "16"});
    EXPECT_EQ(p.status, 0) << p.err;
    EXPECT_NE(p.err.find("shadenet preview: warning: File texture photo cannot read " + dir.file("lost.png")), std::string::npos)
        << p.err;
}
