// The render pre-flight: each class of problem found where it lies, scenes
// the tracer cannot take refused before it sees them, and objects hidden by
// a zero scale left out of an image that is otherwise the same.
#include <gtest/gtest.h>

#include <cmath>

#include "framework/host/depend_graph.h"
#include "renderer/render_fixture.h"
#include "renderer/renderer_test_surface.h"
#include "renderer/scene_check.h"
#include "renderer/triangle_mesh.h"
#include "scene/scene_loader.h"
#include "support/temp_dir.h"

namespace {
// An orthographic camera 4 units wide over a 16 x 16 image with a one-pixel
// box filter: pixel (x, y) is the sample at its centre. A flat red ball on
// the left (x = -1), a flat green ball on the right (x = +1), a light.
constexpr int kSize = 16;
const T3Float kBackground(0.1f, 0.2f, 0.3f);

std::string twoBalls(const std::string& leftTransform, const std::string& extraNodes = "", const std::string& leftRadius = "0.8") {
    return R"({"nodes": [
      {"type": "transform", "name": "camXf", "attributes": {"translate": [0, 0, 10]}},
      {"type": "camera", "name": "cam", "parent": "camXf", "attributes": {"orthographic": true, "orthographicWidth": 4, "backgroundColor": [0.1, 0.2, 0.3]}},
      {"type": "renderQuality", "name": "defaultRenderQuality", "attributes": {"pixelFilterType": "kBoxPixelFilter", "pixelFilterWidthX": 1}},
      {"type": "transform", "name": "holder"},
      {"type": "transform", "name": "leftXf", "parent": "holder", "attributes": {"translate": [-1, 0, 0])" +
           (leftTransform.empty() ? "" : ", " + leftTransform) + R"(}},
      {"type": "sphere", "name": "left", "parent": "leftXf", "attributes": {"radius": )" + leftRadius + R"(}},
      {"type": "transform", "name": "rightXf", "attributes": {"translate": [1, 0, 0]}},
      {"type": "sphere", "name": "right", "parent": "rightXf", "attributes": {"radius": 0.8}},
      {"type": "rendererTestSurface", "name": "red", "attributes": {"mode": 4, "color": [1, 0, 0]}},
      {"type": "shadingEngine", "name": "redSG", "members": ["|holder|leftXf|left"]},
      {"type": "rendererTestSurface", "name": "green", "attributes": {"mode": 4, "color": [0, 1, 0]}},
      {"type": "shadingEngine", "name": "greenSG", "members": ["|rightXf|right"]},
      {"type": "transform", "name": "sunXf"},
      {"type": "directionalLight", "name": "sun", "parent": "sunXf"})" +
           extraNodes + R"(
    ], "connections": [["red.outColor", "redSG.surfaceShader"], ["green.outColor", "greenSG.surfaceShader"]]})";
}

// Loads `text` and runs the check on it.
std::vector<TsceneIssue> issuesOf(const std::string& text, const TsceneCheckOptions& options = {}) {
    TdependGraph graph;
    TsceneLoader loader;
    EXPECT_TRUE(loader.loadText(text, "scene.json", graph)) << (loader.errors().empty() ? "" : loader.errors()[0].text());
    TsceneCheck check;
    check.run(graph, "scene.json", options);
    return check.issues();
}
}  // namespace

TEST(SceneCheck, ZeroScaleHidesAnObjectAndChangesNothingElse) {
    // The reference: the same scene with the left ball left out by the
    // ordinary road, its transform's visibility.
    TrenderRun reference = renderText(twoBalls("\"visibility\": false"), renderOptions(kSize, kSize));
    ASSERT_TRUE(reference.ok) << reference.error;
    // Left ball centre (x = -1 is pixel 4) shows the background; right ball's is green.
    EXPECT_EQ(rgb(reference.image, 4, 8), kBackground);
    EXPECT_EQ(rgb(reference.image, 11, 8), T3Float(0, 1, 0));

    struct Case {
        const char* name;
        std::string leftTransform, leftRadius = "0.8";
        bool flatParent = false;  // the ball's parent's parent flattened instead
    };
    const Case cases[] = {
        {"X flattened", R"("scale": [0, 1, 1])"},
        {"Y flattened", R"("scale": [1, 0, 1])"},
        {"Z flattened", R"("scale": [1, 1, 0])"},
        {"all axes", R"("scale": [0, 0, 0])"},
        {"flattened and turned", R"("scale": [0, 1, 1], "rotate": [30, 45, 10])"},
        {"zero radius", "", "0"},
        {"a flattened parent hides everything under it", "", "0.8", true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::string text = twoBalls(c.leftTransform, "", c.leftRadius);
        if (c.flatParent) text.replace(text.find(R"("name": "holder"})"), 17, R"("name": "holder", "attributes": {"scale": [1, 1, 0]}})");
        TrenderRun run = renderText(text, renderOptions(kSize, kSize));
        ASSERT_TRUE(run.ok) << run.error;
        for (int y = 0; y < kSize; ++y)
            for (int x = 0; x < kSize; ++x)
                for (int k = 0; k < 4; ++k) ASSERT_EQ(run.image.pixel(x, y)[k], reference.image.pixel(x, y)[k]) << x << " " << y;
    }

    // A tiny but whole scale still draws the ball (red at its centre).
    TrenderRun tiny = renderText(twoBalls(R"("scale": [1e-4, 1e-4, 1e-4])", "", "8000"), renderOptions(kSize, kSize));
    ASSERT_TRUE(tiny.ok) << tiny.error;
    EXPECT_EQ(rgb(tiny.image, 4, 8), T3Float(1, 0, 0));
}

TEST(SceneCheck, FindsEachClassOfProblemOnTheNodeAndAttributeAtFault) {
    using K = TsceneIssue::Kind;
    struct Case {
        const char* name;
        std::string from, to;  // a text replacement in the good scene
        K kind;
        std::string node, attribute, message;
    };
    const Case cases[] = {
        {"NaN translation", R"("translate": [-1, 0, 0])", R"("translate": ["nan", 0, 0])", K::kError, "leftXf", "translateX", "is NaN"},
        {"overflowing translation", R"("translate": [-1, 0, 0])", R"("translate": [1e39, 0, 0])", K::kError, "leftXf", "translateX", "is infinite"},
        {"far translation", R"("translate": [-1, 0, 0])", R"("translate": [1e30, 0, 0])", K::kError, "left", "", "reaches 1e+30 units"},
        {"shape too small beside the scene", R"("translate": [-1, 0, 0])", R"("translate": [-1, 0, 0], "scale": [1e-30, 1e-30, 1e-30])", K::kError, "left", "", "'|holder|leftXf|left' is scaled too small beside the rest of the scene"},
        {"infinite rotation", R"("translate": [-1, 0, 0])", R"("rotate": [0, "-inf", 0])", K::kError, "leftXf", "rotateY", "is infinite"},
        {"zero-scale camera", R"("translate": [0, 0, 10])", R"("translate": [0, 0, 10], "scale": [0, 0, 0])", K::kError, "camXf", "scale", "no view"},
        {"camera too small beside the scene", R"("translate": [0, 0, 10])", R"("translate": [0, 0, 10], "scale": [1e-30, 1e-30, 1e-30])", K::kError, "cam", "", "camera '|camXf|cam' is scaled too small beside the rest of the scene"},
        {"far camera", R"("translate": [0, 0, 10])", R"("translate": [0, 0, 1e16])", K::kError, "cam", "", "reaches 1e+16 units"},
        {"zero ortho width", R"("orthographicWidth": 4)", R"("orthographicWidth": 0)", K::kError, "cam", "orthographicWidth", "must be above 0"},
        {"negative focal length", R"("orthographic": true)", R"("orthographic": false, "focalLength": -35)", K::kError, "cam", "focalLength", "must be above 0"},
        {"view of almost 180 degrees", R"("orthographic": true)", R"("orthographic": false, "focalLength": 1e-30)", K::kError, "cam", "focalLength", "wider than 179.9999 degrees"},
        {"NaN film aperture", R"("orthographic": true)", R"("orthographic": false, "horizontalFilmAperture": "nan")", K::kError, "cam", "horizontalFilmAperture", "is NaN"},
        {"near above far", R"("orthographicWidth": 4)", R"("orthographicWidth": 4, "nearClipPlane": 50, "farClipPlane": 20)", K::kError, "cam", "nearClipPlane", "must lie before the far clip plane"},
        {"negative near", R"("orthographicWidth": 4)", R"("orthographicWidth": 4, "nearClipPlane": -0.5)", K::kError, "cam", "nearClipPlane", "0 or more"},
        {"NaN colour", R"("color": [1, 0, 0])", R"("color": [1, "nan", 0])", K::kError, "red", "colorG", "a colour must be a finite number"},
        {"infinite light colour", R"("name": "sun", "parent": "sunXf")", R"("name": "sun", "parent": "sunXf", "attributes": {"color": ["inf", 1, 1]})", K::kError, "sun", "colorR", "is infinite"},
        {"negative radius", R"("parent": "leftXf", "attributes": {"radius": 0.8})", R"("parent": "leftXf", "attributes": {"radius": -2})", K::kError, "left", "radius", "0 or more, not -2"},
        {"infinite radius", R"("parent": "leftXf", "attributes": {"radius": 0.8})", R"("parent": "leftXf", "attributes": {"radius": "inf"})", K::kError, "left", "radius", "is infinite"},
        {"resolution beyond memory", R"({"type": "transform", "name": "holder"})", R"({"type": "resolution", "name": "defaultResolution", "attributes": {"width": 2000000, "height": 2000000}}, {"type": "transform", "name": "holder"})", K::kError, "defaultResolution", "", "GiB of memory"},
        {"empty resolution", R"({"type": "transform", "name": "holder"})", R"({"type": "resolution", "name": "defaultResolution", "attributes": {"height": 0}}, {"type": "transform", "name": "holder"})", K::kError, "defaultResolution", "height", "is empty"},
        {"no renderable camera", R"("orthographic": true)", R"("renderable": false, "orthographic": true)", K::kError, "", "", "no renderable camera"},
        {"mesh without a file", R"({"type": "transform", "name": "holder"})", R"({"type": "mesh", "name": "m", "parent": "holder"}, {"type": "transform", "name": "holder"})", K::kError, "m", "fileName", "names no file"},
        {"missing mesh file", R"({"type": "transform", "name": "holder"})", R"({"type": "mesh", "name": "m", "parent": "holder", "attributes": {"fileName": "gone.obj"}}, {"type": "transform", "name": "holder"})", K::kError, "m", "fileName", "gone.obj: mesh file not found"},
        {"no lights", R"({"type": "directionalLight", "name": "sun", "parent": "sunXf"})", R"({"type": "transform", "name": "noSun", "parent": "sunXf"})", K::kWarning, "", "", "no lights"},
        {"object in no group", R"("members": ["|rightXf|right"])", R"("members": [])", K::kWarning, "right", "", "'|rightXf|right' is in no shading group"},
        {"group without material", R"(["green.outColor", "greenSG.surfaceShader"])", R"(["green.outColor", "green.color"])", K::kWarning, "greenSG", "surfaceShader", "has no material"},
        {"NaN shading value", R"("mode": 4, "color": [0, 1, 0])", R"("mode": 4, "color": [0, 1, 0], "transparency": [0, 0, 0]}}, {"type": "lambert", "name": "stray", "attributes": {"diffuse": "nan")", K::kWarning, "stray", "diffuse", "is NaN"},
        {"NaN in a float pair without children", R"("mode": 4, "color": [0, 1, 0])", R"("mode": 4, "color": [0, 1, 0], "transparency": [0, 0, 0]}}, {"type": "water", "name": "stray", "attributes": {"windUV": [1, "nan"])", K::kWarning, "stray", "windUV", "is NaN"},
    };
    const std::string good = twoBalls("");
    EXPECT_TRUE(issuesOf(good).empty()) << issuesOf(good)[0].text();
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::string text = good;
        size_t at = text.find(c.from);
        ASSERT_NE(at, std::string::npos);
        text.replace(at, c.from.size(), c.to);
        std::vector<TsceneIssue> issues = issuesOf(text);
        ASSERT_EQ(issues.size(), 1u) << (issues.empty() ? "no issue" : issues[0].text() + " / " + issues.back().text());
        const TsceneIssue& issue = issues[0];
        EXPECT_EQ(issue.kind, c.kind);
        EXPECT_EQ(issue.node, c.node);
        EXPECT_EQ(issue.attribute, c.attribute);
        EXPECT_NE(issue.message.find(c.message), std::string::npos) << issue.text();

        // A render refuses exactly the errors, naming the same place, and
        // leaves the image untouched.
        if (c.kind == K::kError && c.node != "m") {
            TrenderRun run = renderText(text, renderOptions(kSize, kSize));
            EXPECT_FALSE(run.ok);
            EXPECT_NE(run.error.find(issue.text()), std::string::npos) << run.error;
            EXPECT_EQ(run.image.width(), 0);
        }
    }
}

TEST(SceneCheck, ALoopIsReportedWhereTheEngineCutsIt) {
    // red.color <- blendA <- blendB <- blendA: the walk from the material
    // enters blendA, then blendB, and comes back to blendA through blendB's
    // color1, so that is where the loop is cut.
    std::string text = twoBalls("", R"(, {"type": "blendColors", "name": "blendA"}, {"type": "blendColors", "name": "blendB"})");
    text.replace(text.rfind("]]}"), 3,
                 R"(], ["blendA.output", "red.color"], ["blendB.output", "blendA.color1"], ["blendA.output", "blendB.color1"]]})");
    std::vector<TsceneIssue> issues = issuesOf(text);
    ASSERT_EQ(issues.size(), 1u);
    EXPECT_EQ(issues[0].kind, TsceneIssue::Kind::kWarning);
    EXPECT_EQ(issues[0].node, "redSG");
    EXPECT_NE(issues[0].message.find("('blendA' -> 'blendB' -> 'blendA')"), std::string::npos) << issues[0].message;
    EXPECT_NE(issues[0].message.find("where 'blendA.output' feeds 'blendB.color1'"), std::string::npos) << issues[0].message;
    // And it renders.
    EXPECT_TRUE(renderText(text, renderOptions(kSize, kSize)).ok);
}

TEST(SceneCheck, AValueThatPlacesAnObjectAndDependsOnItselfIsAnError) {
    struct Case {
        const char* name;
        std::string nodes, connections;
        std::string node, attribute, loop;  // no node: not a loop
    };
    const std::string md = R"(, {"type": "multiplyDivide", "name": "md"})";
    const std::string solid = R"(, {"type": "place3dTexture", "name": "p", "parent": "holder"}, {"type": "marble", "name": "marble"})";
    const Case cases[] = {
        {"two values of a transform feed each other", "",
         R"(["rightXf.translateX", "rightXf.translateY"], ["rightXf.translateY", "rightXf.translateX"])", "rightXf", "translateX",
         "('rightXf.translateX' -> 'rightXf.translateY' -> 'rightXf.translateX')"},
        {"a transform's value through another node", md, R"(["rightXf.translate", "md.input1"], ["md.output", "rightXf.translate"])",
         "rightXf", "translate", "('rightXf.translate' -> 'md.input1' -> 'md.output' -> 'rightXf.translate')"},
        {"one value of a compound through another node", md, R"(["rightXf.translate", "md.input1"], ["md.outputX", "rightXf.translateY"])",
         "rightXf", "translateY", "('rightXf.translateY' -> 'rightXf.translate' -> 'md.input1' -> 'md.outputX' -> 'rightXf.translateY')"},
        {"a placement's matrix fed back into its translation", solid,
         R"(["p.worldInverseMatrix", "marble.placementMatrix"], ["marble.outColor", "p.translate"])", "p", "translate",
         "('p.translate' -> 'p.worldInverseMatrix' -> 'marble.placementMatrix' -> 'marble.outColor' -> 'p.translate')"},
        {"a placement's matrix fed back into the transform above it", solid,
         R"(["p.worldInverseMatrix", "marble.placementMatrix"], ["marble.outColor", "holder.rotate"])", "holder", "rotate",
         "('holder.rotate' -> 'p.worldInverseMatrix' -> 'marble.placementMatrix' -> 'marble.outColor' -> 'holder.rotate')"},
        // Not loops: one value of a transform feeding another, and a
        // placement feeding a transform that is not above it.
        {"one value feeds another", "", R"(["rightXf.translateX", "rightXf.translateY"])", "", "", ""},
        {"a placement feeds a transform beside it", solid,
         R"(["p.worldInverseMatrix", "marble.placementMatrix"], ["marble.outColor", "rightXf.rotate"])", "", "", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::string text = twoBalls("", c.nodes);
        text.replace(text.rfind("]]}"), 3, "], " + c.connections + "]}");
        std::vector<TsceneIssue> issues = issuesOf(text);
        TrenderRun run = renderText(text, renderOptions(kSize, kSize));
        if (c.node.empty()) {
            EXPECT_TRUE(issues.empty()) << issues[0].text();
            EXPECT_TRUE(run.ok) << run.error;
            continue;
        }
        ASSERT_EQ(issues.size(), 1u) << issues.size() << (issues.empty() ? "" : ": " + issues[0].text());
        EXPECT_EQ(issues[0].kind, TsceneIssue::Kind::kError);
        EXPECT_EQ(issues[0].node, c.node);
        EXPECT_EQ(issues[0].attribute, c.attribute);
        EXPECT_EQ(issues[0].message, "its value depends on itself through a loop of connections " + c.loop +
                                         ": it cannot be evaluated; break one of the connections");
        // The render refuses it with the same words.
        EXPECT_FALSE(run.ok);
        EXPECT_NE(run.error.find(issues[0].text()), std::string::npos) << run.error;
    }
}

TEST(SceneCheck, MeshProblemsAreFoundByReadingTheFile) {
    TtestTempDir dir;
    writeFile(dir.file("far.obj"), "v 0 0 0\nv 2e15 0 0\nv 0 1 0\nf 1 2 3\n");
    writeFile(dir.file("index.obj"), "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 9\n");
    writeFile(dir.file("empty.obj"), "");
    writeFile(dir.file("points.obj"), "v 0 0 0\n");
    writeFile(dir.file("wide.obj"), "v -1e6 0 -1e6\nv 1e6 0 -1e6\nv 0 0 1e6\nf 1 2 3\n");
    writeFile(dir.file("words.obj"), "v 0 0 0\nv a b c\nv 0 1 0\nf 1 2 3\n");
    writeFile(dir.file("short.obj"), "v 0 0 0\nv 1 0\nv 0 1 0\nf 1 2 3\n");
    writeFile(dir.file("huge.obj"), "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 99999999999999999999999\n");
    writeFile(dir.file("wraps.obj"), "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 4294967297 2 3\n");  // 2^32 + 1
    writeFile(dir.file("back.obj"), "v 0 0 0\nv 1 0 0\nf 1 2 -3\nv 0 1 0\n");
    writeFile(dir.file("uv.obj"), "v 0 0 0\nv 1 0 0\nv 0 1 0\nvt 0 0\nvt 1 0\nf 1/1 2/2 3/3\n");
    struct Case {
        std::string file, message, leftTransform = "";
    };
    const Case cases[] = {
        {"far.obj", "reaches 2e+15 units"},
        {"index.obj", "index.obj:4: face corner '9' names vertex 9, but the file has 3 vertices: valid numbers are 1 to 3, "
                      "or -1 to -3 counting back from the face"},
        {"words.obj", "words.obj:2: 'a' is not a number; a vertex is 'v x y z'"},
        {"short.obj", "short.obj:2: a vertex takes 3 numbers ('v x y z'); this one has 2"},
        {"huge.obj", "huge.obj:4: face corner '99999999999999999999999' names vertex 99999999999999999999999, but the file has 3 vertices"},
        {"wraps.obj", "wraps.obj:4: face corner '4294967297' names vertex 4294967297, but the file has 3 vertices"},
        // Counting back goes from the face, before the vertex that follows it.
        {"back.obj", "back.obj:3: face corner '-3' names vertex -3, but only 2 vertices come before it: counting back reaches -1 to -2"},
        {"uv.obj", "uv.obj:6: face corner '3/3' names texture coordinate 3, but the file has 2 texture coordinates"},
        {"empty.obj", "the mesh has no faces"},
        {"points.obj", "the mesh has no faces"},
        // Only the mesh's own extent makes the ball too small for its space.
        {"wide.obj", "'|holder|leftXf|left' is scaled too small", R"("scale": [1e-12, 1e-12, 1e-12])"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.file);
        std::string text =
            twoBalls(c.leftTransform, R"(, {"type": "mesh", "name": "m", "parent": "holder", "attributes": {"fileName": ")" + c.file + "\"}}");
        text.replace(text.find(R"("members": ["|holder|leftXf|left"])"), 34, R"("members": ["|holder|leftXf|left", "|holder|m"])");
        TdependGraph graph;
        TsceneLoader loader;
        ASSERT_TRUE(loader.loadText(text, dir.file("scene.json"), graph));
        TsceneCheck check;
        EXPECT_FALSE(check.run(graph, dir.file("scene.json"), {}));
        EXPECT_NE(check.errorText().find(c.message), std::string::npos) << check.errorText();
        // The render reads the file itself and refuses it the same way.
        Trenderer renderer;
        TframeBuffer image;
        std::string error;
        EXPECT_FALSE(renderer.render(graph, dir.file("scene.json"), renderOptions(kSize, kSize), image, error));
        EXPECT_NE(error.find(c.message), std::string::npos) << error;
    }
}

TEST(SceneCheck, FrameMemoryAgainstTheClosedForm) {
    const uint64_t perPixel = TsceneCheck::kBytesPerPixel;
    struct Case {
        int64_t width, height;
        uint64_t machine;
        bool fits;
    };
    const Case cases[] = {
        {1000, 1000, 1000 * 1000 * perPixel, true},        // exactly enough
        {1000, 1001, 1000 * 1000 * perPixel, false},       // one row too many
        {1, 1, perPixel, true},
        {int64_t(1) << 31, int64_t(1) << 31, ~uint64_t(0), false},  // past 64 bits of bytes
    };
    for (const Case& c : cases) {
        std::string problem = frameMemoryProblem(c.width, c.height, c.machine);
        EXPECT_EQ(problem.empty(), c.fits) << c.width << "x" << c.height << ": " << problem;
        if (!c.fits) {
            EXPECT_NE(problem.find(std::to_string(c.width) + "x" + std::to_string(c.height) + " frame needs"), std::string::npos);
        }
    }
    // 4 GiB needed against 2 GiB present, in the message's own units.
    EXPECT_NE(frameMemoryProblem(32768, 4096, uint64_t(2) << 30).find("needs 4.0 GiB of memory (32 bytes a pixel); this machine has 2.0 GiB"),
              std::string::npos);
    EXPECT_GT(machineMemoryBytes(), 0u);
}

// Zero scales, flat and turned, and a tiny whole one are rendered above; here
// the limits the render cannot show at its scale, and a flattening that
// leaves no zero row for a careless determinant to find.
TEST(SceneCheck, DegenerateAndFarTransforms) {
    EXPECT_TRUE(isDegenerateTransform(Tmatrix::scaling(1, 1, 1e-13))) << "a thin sliver";
    EXPECT_FALSE(isDegenerateTransform(Tmatrix::scaling(1e-9, 1e-9, 1e-9))) << "tiny but whole";
    EXPECT_FALSE(isDegenerateTransform(Tmatrix::translation(1e20, 0, 0))) << "far but whole";
    // Flattened between two turns, so that no row, column or diagonal entry is zero.
    Tmatrix turnZ, turnX;
    const double c = std::cos(0.5), s = std::sin(0.5);
    turnZ.m[0][0] = c, turnZ.m[0][1] = s, turnZ.m[1][0] = -s, turnZ.m[1][1] = c;
    turnX.m[1][1] = c, turnX.m[1][2] = s, turnX.m[2][1] = -s, turnX.m[2][2] = c;
    EXPECT_TRUE(isDegenerateTransform(turnX * turnZ * Tmatrix::scaling(1, 0, 1) * turnZ * turnX)) << "flattened between two turns";

    const T3Float lo(-1, -1, -1), hi(1, 1, 1);
    EXPECT_EQ(reachProblem(Tmatrix::translation(1e14, 0, 0), lo, hi), "");
    EXPECT_NE(reachProblem(Tmatrix::translation(0, 0, -TsceneCheck::kMaxCoordinate), lo, hi), "");  // its far side is past
    EXPECT_NE(reachProblem(Tmatrix::scaling(2e15, 1, 1), lo, hi), "");
    Tmatrix nan = Tmatrix::translation(std::nan(""), 0, 0);
    EXPECT_NE(reachProblem(nan, lo, hi), "");
}
