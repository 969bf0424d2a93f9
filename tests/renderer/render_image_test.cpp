// Rendered images against closed forms: a sphere's points and normals per
// pixel, mesh UVs and normals, and uniform views: the background,
// reconstruction and transparency.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <functional>

#include "renderer/render_fixture.h"
#include "renderer/renderer_test_surface.h"
#include "support/expect_near.h"
#include "support/temp_dir.h"

namespace {
// Distance along `d` from the origin to a sphere, or -1; `margin` is the
// discriminant's distance from a grazing hit.
float hitSphere(const T3Float& d, const T3Float& centre, float radius, float& margin) {
    float b = dot(d, centre);
    float disc = b * b - (dot(centre, centre) - radius * radius);
    margin = std::fabs(disc);
    return disc < 0 ? -1 : b - std::sqrt(disc);
}
}  // namespace

TEST(RenderImage, SphereNormalsAndPointsMatchTheClosedFormAtEveryPixel) {
    struct Case {
        const char* name;
        int mode;
        T3Float centre;  // world; the camera sits at z = 5
        float radius;
    };
    const Case cases[] = {
        {"camera-space normal", TrendererTestSurface::kNormal, {-0.5f, 0.25f, -1}, 1.0f},
        {"camera-space point", TrendererTestSurface::kPoint, {0.3f, 0.2f, 0.5f}, 0.8f},
    };
    const int w = 80, h = 60;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        char xf[160];
        std::snprintf(xf, sizeof xf, R"({"type": "transform", "name": "ballXf", "attributes": {"translate": [%g, %g, %g]}})",
                      c.centre.x, c.centre.y, c.centre.z);
        std::string nodes = std::string(xf) + R"(, {"type": "sphere", "name": "ball", "parent": "ballXf", "attributes": {"radius": )" +
                            std::to_string(c.radius) + "}}, " + testGroup("surf", c.mode, R"("|ballXf|ball")") + ", " + kBoxFilter;
        TrenderRun run = renderText(sceneText(nodes, testConnection("surf")), renderOptions(w, h));
        ASSERT_TRUE(run.ok) << run.error;
        ASSERT_TRUE(run.warnings.empty());
        T3Float centre = c.centre - T3Float(0, 0, 5);
        int hits = 0;
        for (int py = 0; py < h; ++py)
            for (int px = 0; px < w; ++px) {
                T3Float d = defaultCameraRay(px, py, w, h);
                float margin;
                float t = hitSphere(d, centre, c.radius, margin);
                if (margin < 0.02f) continue;  // the silhouette may fall either way
                if (t < 0) {
                    EXPECT_EQ(run.image.pixel(px, py)[3], 0.0f) << px << "," << py;
                    continue;
                }
                ++hits;
                T3Float p = d * t;
                expectNear(rgb(run.image, px, py), c.mode == TrendererTestSurface::kNormal ? normalize(p - centre) : p,
                           std::to_string(px) + "," + std::to_string(py), 2e-4f);
                EXPECT_EQ(run.image.pixel(px, py)[3], 1.0f);
            }
        EXPECT_GT(hits, 200);
    }
}

TEST(RenderImage, AUniformViewRendersUniformToTheImagesEdges) {
    // Nothing in view gives the background, opaque as a coloured backdrop
    // is; a card filling the view gives its colour through any normalised
    // filter, at the image's edges too; a half-transparent red card shows
    // a green wall behind it, or the blue backdrop, which is part of the
    // picture and opaque.
    const char* backdrop = R"({"type": "camera", "name": "cam", "parent": "camXf", "attributes": {"backgroundColor": [0.2, 0.3, 0.4]}})";
    const char* blue = R"({"type": "camera", "name": "cam", "parent": "camXf", "attributes": {"backgroundColor": [0, 0, 1]}})";
    const std::string aside = R"({"type": "transform", "name": "far", "attributes": {"translate": [40, 0, 0]}}, {"type": "sphere", "name": "ball", "parent": "far"}, )" +
                              testGroup("surf", TrendererTestSurface::kFlat, R"("|far|ball")");
    const std::string card = R"({"type": "transform", "name": "wall", "attributes": {"rotate": [90, 0, 0]}}, {"type": "plane", "name": "card", "parent": "wall", "attributes": {"width": 100, "height": 100}}, )" +
                             testGroup("surf", TrendererTestSurface::kFlat, R"("|wall|card")", R"("color": [0.25, 0.5, 0.75])");
    const std::string glass = R"({"type": "transform", "name": "front", "attributes": {"rotate": [90, 0, 0], "translate": [0, 0, 1]}}, {"type": "plane", "name": "card", "parent": "front", "attributes": {"width": 100, "height": 100}}, )" +
                              testGroup("surf", TrendererTestSurface::kFlat, R"("|front|card")", R"("color": [0.5, 0, 0], "transparency": [0.5, 0.5, 0.5])") + ", " + kBoxFilter;
    const std::string wall = R"({"type": "transform", "name": "back", "attributes": {"rotate": [90, 0, 0], "translate": [0, 0, -2]}}, {"type": "plane", "name": "wallShape", "parent": "back", "attributes": {"width": 100, "height": 100}}, )" +
                             testGroup("paint", TrendererTestSurface::kFlat, R"("|back|wallShape")", R"("color": [0, 0.8, 0])");
    struct Case {
        std::string name, nodes;
        const char* camera;
        int spp;
        T3Float colour;
        std::string links = testConnection("surf");
    };
    std::vector<Case> cases = {{"background, 1 spp", aside, backdrop, 1, {0.2f, 0.3f, 0.4f}},
                               {"background, 4 spp", aside, backdrop, 4, {0.2f, 0.3f, 0.4f}},
                               {"glass before a wall", glass + ", " + wall, blue, 1, {0.5f, 0.4f, 0}, testConnection("surf") + ", " + testConnection("paint")},
                               {"glass before nothing", glass, blue, 1, {0.5f, 0, 0.5f}}};
    for (const char* filter : {"kBoxPixelFilter", "kTrianglePixelFilter", "kGaussianPixelFilter", "kQuadraticBSplinePixelFilter"})
        cases.push_back({filter,
                         card + R"(, {"type": "renderQuality", "name": "defaultRenderQuality", "attributes": {"pixelFilterType": ")" + filter +
                             R"(", "pixelFilterWidthX": 3}})",
                         "", 4, {0.25f, 0.5f, 0.75f}});
    // Wider than any image: the filter stops at its widest, 64 pixels.
    cases.push_back({"box 1e30 pixels wide",
                     card + R"(, {"type": "renderQuality", "name": "defaultRenderQuality", "attributes": {"pixelFilterType": "kBoxPixelFilter", "pixelFilterWidthX": 1e30}})",
                     "", 1, {0.25f, 0.5f, 0.75f}});
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        TrenderRun run = renderText(sceneText(c.nodes, c.links, c.camera), renderOptions(20, 14, 2, c.spp));
        ASSERT_TRUE(run.ok) << run.error;
        for (int y = 0; y < 14; ++y)
            for (int x = 0; x < 20; ++x) {
                expectNear(rgb(run.image, x, y), c.colour, std::to_string(x) + "," + std::to_string(y), 1e-5f);
                EXPECT_NEAR(run.image.pixel(x, y)[3], 1.0f, 1e-6f);
            }
    }
}

TEST(RenderImage, ObjMeshesWithAndWithoutNormalsAndUvs) {
    TtestTempDir dir;
    const std::string positions = "v -1 -1 0\nv 1 -1 0\nv 1 1 0\nv -1 1 0\n";
    struct Case {
        const char* name;
        std::string obj;
        int mode;
        bool smooth;
    };
    const Case cases[] = {
        {"uvs", positions + "vt 0 0\nvt 1 0\nvt 1 1\nvt 0 1\nf 1/1 2/2 3/3\nf 1/1 3/3 4/4\n", TrendererTestSurface::kUv, false},
        {"no uvs: barycentrics", positions + "f 1 2 3\nf 1 3 4\n", TrendererTestSurface::kUv, false},
        {"normals", positions + "vn -0.6 0 0.8\nvn 0.6 0 0.8\nvn 0 0.6 0.8\nvn 0 -0.6 0.8\nf 1//1 2//2 3//3\nf 1//1 3//3 4//4\n",
         TrendererTestSurface::kNormal, false},
        {"no normals: facets", positions + "f 1 2 3\nf 1 3 4\n", TrendererTestSurface::kNormal, false},
        {"no normals, smoothed", positions + "f 1 2 3\nf 1 3 4\n", TrendererTestSurface::kNormal, true},
        {"a zero and an infinite normal: facets", positions + "vn 0 0 0\nvn 0 0 1e999\nf 1//1 2//1 3//1\nf 1//2 3//2 4//2\n",
         TrendererTestSurface::kNormal, false},
    };
    const T3Float normals[4] = {{-0.6f, 0, 0.8f}, {0.6f, 0, 0.8f}, {0, 0.6f, 0.8f}, {0, -0.6f, 0.8f}};
    const int w = 40, h = 40;
    const float orthoWidth = 4;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        writeFile(dir.file("quad.obj"), c.obj);
        std::string nodes = std::string(R"({"type": "mesh", "name": "quad", "attributes": {"fileName": "quad.obj", "smoothNormals": )") +
                            (c.smooth ? "true" : "false") + "}}, " + testGroup("surf", c.mode, R"("quad")") + ", " + kBoxFilter;
        TrenderRun run = renderText(sceneText(nodes, testConnection("surf"), orthoCamera(int(orthoWidth))), renderOptions(w, h), dir.file("scene.json"));
        ASSERT_TRUE(run.ok) << run.error;
        for (int py = 0; py < h; ++py)
            for (int px = 0; px < w; ++px) {
                float x = (2 * (float(px) + 0.5f) / float(w) - 1) * orthoWidth / 2;
                float y = (1 - 2 * (float(py) + 0.5f) / float(h)) * orthoWidth / 2;
                if (std::fabs(x) > 0.99f || std::fabs(y) > 0.99f || std::fabs(x - y) < 0.02f) {
                    if (std::fabs(x) > 1.01f || std::fabs(y) > 1.01f) {
                        EXPECT_EQ(run.image.pixel(px, py)[3], 0.0f);
                    }
                    continue;
                }
                // The quad splits along its diagonal into (1 2 3) and (1 3 4).
                bool first = x > y;
                float bu = first ? (x - y) / 2 : (x + 1) / 2, bv = first ? (y + 1) / 2 : (y - x) / 2;
                int i0 = 0, i1 = first ? 1 : 2, i2 = first ? 2 : 3;
                T3Float want;
                if (c.name == cases[0].name) want = {(x + 1) / 2, (y + 1) / 2, 0};
                else if (c.name == cases[1].name) want = {bu, bv, 0};
                else if (c.name == cases[2].name)
                    want = normalize(normals[i0] * (1 - bu - bv) + normals[i1] * bu + normals[i2] * bv);
                else want = {0, 0, 1};
                expectNear(rgb(run.image, px, py), want, std::to_string(px) + "," + std::to_string(py), 1e-4f);
            }
    }
}

// A solid texture counts the detail it draws from the angle one pixel spans,
// which the render sets from its camera and width unless the input is
// driven: a marble left alone renders as one fed the camera's angle, 2 tan(w
// / 2) / width, and not as one fed the stored default.
TEST(RenderImage, SolidTexturesFilterToTheRendersPixel) {
    const int width = 48;
    const float cameraAngle = 2 * (36.0f / 70.0f) / float(width);
    auto render = [&](float fedAngle) {
        char feed[160] = "";
        if (fedAngle > 0)
            std::snprintf(feed, sizeof feed, R"(, {"type": "multiplyDivide", "name": "angle", "attributes": {"input1": [%.9g, 0, 0]}})",
                          double(fedAngle));
        std::string nodes = R"({"type": "transform", "name": "ballXf"}, {"type": "sphere", "name": "ball", "parent": "ballXf"},
            {"type": "marble", "name": "veins", "attributes": {"veinWidth": 0.05, "depth": [0, 20]}},
            {"type": "lambert", "name": "ink", "attributes": {"color": [0, 0, 0], "diffuse": 0}},
            {"type": "shadingEngine", "name": "inkSG", "members": ["|ballXf|ball"]})" + std::string(feed);
        std::string links = R"(["veins.outColor", "ink.incandescence"], ["ink.outColor", "inkSG.surfaceShader"])";
        if (fedAngle > 0) links += R"(, ["angle.outputX", "veins.xPixelAngle"])";
        TrenderRun run = renderText(sceneText(nodes, links), renderOptions(width, width));
        EXPECT_TRUE(run.ok) << run.error;
        return run;
    };
    auto largestDifference = [](const TrenderRun& a, const TrenderRun& b) {
        float worst = 0;
        for (size_t i = 0; i < a.image.data().size(); ++i) worst = std::max(worst, std::fabs(a.image.data()[i] - b.image.data()[i]));
        return worst;
    };
    TrenderRun own = render(0), camera = render(cameraAngle), stored = render(0.002053f);
    EXPECT_LT(largestDifference(own, camera), 1e-6f);
    EXPECT_GT(largestDifference(own, stored), 0.02f);
}

TEST(RenderImage, ObjPolygonsOfManyCornersCoverTheirOutline) {
    // Faces of one polygon each in the plane z = 0, seen from +z by an
    // orthographic camera 4 units wide: a pixel is covered (alpha 1) where
    // its centre lies inside the outline.
    TtestTempDir dir;
    struct Case {
        const char* name;
        std::vector<std::pair<double, double>> outline;
        std::function<int(double x, double y)> inside;  // 1 in, 0 out, -1 too near the edge to tell
    };
    // Five teeth on a bar: the teeth stand on x from -0.9 + 0.4 k to -0.7 + 0.4 k.
    std::vector<std::pair<double, double>> comb = {{-1, -1}, {1, -1}, {1, 0}};
    for (int k = 4; k >= 0; --k) {
        const double left = -0.9 + 0.4 * k, right = left + 0.2;
        for (auto corner : {std::pair{right + 0.1, 0.0}, {right, 0.0}, {right, 1.0}, {left, 1.0}, {left, 0.0}})
            if (corner.first < 1) comb.push_back(corner);
    }
    comb.push_back({-1, 0});
    auto inComb = [](double x, double y) {
        if (std::fabs(x) >= 1 || y <= -1 || y >= 1) return 0;
        if (y < 0) return 1;
        const double across = std::fmod(x + 1, 0.4);
        return across > 0.1 && across < 0.3 ? 1 : 0;
    };
    // Spikes too fine for the pixels between radius 0.5 and 1.
    std::vector<std::pair<double, double>> star, circle;
    const int corners = 100000;
    for (int i = 0; i < corners; ++i) {
        const double a = 2 * M_PI * i / corners, r = i % 2 ? 0.5 : 1;
        star.push_back({r * std::cos(a), r * std::sin(a)});
        circle.push_back({std::cos(a), std::sin(a)});
    }
    auto inRadius = [](double inner) {
        return [inner](double x, double y) {
            const double r = std::hypot(x, y);
            return r < inner - 0.02 ? 1 : r > 1.02 ? 0 : -1;
        };
    };
    const Case cases[] = {
        {"comb", comb, inComb},
        {"star of 100000 corners", star, inRadius(0.5)},
        {"circle of 100000 corners", circle, inRadius(1)},
    };
    const int size = 40;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::string obj, face = "f";
        for (size_t i = 0; i < c.outline.size(); ++i) {
            obj += "v " + std::to_string(c.outline[i].first) + " " + std::to_string(c.outline[i].second) + " 0\n";
            face += " " + std::to_string(i + 1);
        }
        writeFile(dir.file("outline.obj"), obj + face + "\n");
        const std::string nodes = R"({"type": "mesh", "name": "outline", "attributes": {"fileName": "outline.obj"}}, )" +
                                  testGroup("surf", TrendererTestSurface::kFlat, R"("outline")") + ", " + kBoxFilter;
        TrenderRun run = renderText(sceneText(nodes, testConnection("surf"), orthoCamera(4)), renderOptions(size, size), dir.file("scene.json"));
        ASSERT_TRUE(run.ok) << run.error;
        for (int py = 0; py < size; ++py)
            for (int px = 0; px < size; ++px) {
                const double x = (2 * (px + 0.5) / size - 1) * 2, y = (1 - 2 * (py + 0.5) / size) * 2;
                const int inside = c.inside(x, y);
                if (inside < 0) continue;
                ASSERT_EQ(run.image.pixel(px, py)[3], float(inside)) << px << "," << py;
            }
    }
}

TEST(RenderImage, SolidTexturesStayInTheWorldWhenTheCameraMoves) {
    // An orthographic camera moved along its view sees every surface point
    // at the same pixel: a marble that sits in the world renders the same
    // image, where one left in camera space would shift its veins by the
    // move. The texture's own matrixEyeToWorld is back after the render.
    auto scene = [](float cameraZ) {
        return R"({"nodes": [{"type": "transform", "name": "camXf", "attributes": {"translate": [0, 0, )" +
               std::to_string(cameraZ) + R"(]}},
            {"type": "camera", "name": "cam", "parent": "camXf", "attributes": {"orthographic": true, "orthographicWidth": 3}},
            {"type": "transform", "name": "ballXf"}, {"type": "sphere", "name": "ball", "parent": "ballXf"},
            {"type": "marble", "name": "veins", "attributes": {"veinWidth": 0.3, "filter": 0}},
            {"type": "lambert", "name": "ink", "attributes": {"color": [0, 0, 0], "diffuse": 0}},
            {"type": "shadingEngine", "name": "inkSG", "members": ["|ballXf|ball"]}],
          "connections": [["veins.outColor", "ink.incandescence"], ["ink.outColor", "inkSG.surfaceShader"]]})";
    };
    std::vector<TframeBuffer> images;
    for (float z : {5.0f, 9.0f}) {
        TdependGraph graph;
        TsceneLoader loader;
        ASSERT_TRUE(loader.loadText(scene(z), "scene.json", graph));
        Trenderer renderer;
        TframeBuffer image;
        std::string error;
        ASSERT_TRUE(renderer.render(graph, "scene.json", renderOptions(48, 48), image, error)) << error;
        TdependNode* veins = graph.findNode(Tstring("veins"));
        ASSERT_NE(veins, nullptr);
        TfltMatrix held;
        ASSERT_TRUE(veins->getAttributeValue(veins->attribute(Tstring("matrixEyeToWorld")), &held));
        EXPECT_TRUE(held == TfltMatrix()) << "the stored matrix is put back";
        images.push_back(std::move(image));
    }
    float lo = 1e30f, hi = -1e30f, worst = 0;
    for (int y = 0; y < 48; ++y)
        for (int x = 0; x < 48; ++x) {
            const float *a = images[0].pixel(x, y), *b = images[1].pixel(x, y);
            if (a[3] == 0) continue;
            lo = std::min(lo, a[0]), hi = std::max(hi, a[0]);
            for (int c = 0; c < 3; ++c) worst = std::max(worst, std::fabs(a[c] - b[c]));
        }
    EXPECT_GT(hi - lo, 0.2f) << "the veins show on the ball";
    EXPECT_LT(worst, 0.01f) << "float rounding of the two camera spaces only";
}
