// Lit materials through the whole renderer: scene lights collected per
// object, a Lambert against its closed form, light links, ray-traced shadows
// (through transparent surfaces too) and the pass without them, and
// reflections.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <string>

#include "renderer/render_fixture.h"
#include "support/expect_near.h"

namespace {
constexpr int kW = 80, kH = 60;

std::string quality(bool rayTracing) {
    return std::string(R"({"type": "renderQuality", "name": "defaultRenderQuality", "attributes": {"pixelFilterType": "kBoxPixelFilter", "pixelFilterWidthX": 1, "enableRaytracing": )") +
           (rayTracing ? "true" : "false") + R"(, "reflections": 2, "refractions": 2}})";
}

// The pixel that sees a world point of the fixture's camera (at z = 5).
void pixelOf(const T3Float& world, int& px, int& py) {
    T3Float c = world - T3Float(0, 0, 5);
    float nx = c.x / -c.z / kDefaultTanHalfWidth, ny = c.y / -c.z / (kDefaultTanHalfWidth * float(kH) / float(kW));
    px = int(std::floor((nx + 1) / 2 * float(kW)));
    py = int(std::floor((1 - ny) / 2 * float(kH)));
}

std::string node(const char* format, double a = 0, double b = 0, double c = 0) {
    char text[512];
    std::snprintf(text, sizeof text, format, a, b, c);
    return text;
}

TrenderRun render(const std::string& nodes, const std::string& connections) {
    return renderText(sceneText(nodes, connections), renderOptions(kW, kH));
}
}  // namespace

// colour * intensity * (diffuse * max(0, N.L)) from the distant light, plus
// colour * ambientColor and colour * the ambient light's intensity. With no
// link node every light lights the sphere, but for a second distant light
// under a hidden transform, which would light the visible side.
TEST(RenderLighting, LambertSphereUnderADirectionalLightMatchesTheClosedForm) {
    struct Case {
        const char* name;
        float rotateX, rotateY;  // of the light's transform; it shines down its -Z
        T3Float color;
        float diffuse, intensity, ambientLight;
        T3Float ambientColor;
    };
    const Case cases[] = {
        {"from above and in front", -45, 0, {0.6f, 0.5f, 0.4f}, 0.8f, 1.0f, 0.0f, {0, 0, 0}},
        {"from the right, with ambient terms", 0, 60, {0.9f, 0.3f, 0.2f}, 0.5f, 1.5f, 0.2f, {0.1f, 0.05f, 0.0f}},
        {"from below", 60, 0, {0.2f, 0.7f, 0.9f}, 1.0f, 0.7f, 0.1f, {0, 0, 0.2f}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        // The direction towards the light: the transform's +Z axis.
        const float rx = c.rotateX * 3.14159265f / 180, ry = c.rotateY * 3.14159265f / 180;
        T3Float toLight = c.rotateY != 0 ? T3Float(std::sin(ry), 0, std::cos(ry)) : T3Float(0, -std::sin(rx), std::cos(rx));
        std::string nodes =
            R"({"type": "sphere", "name": "ball", "parent": "ballXf"}, {"type": "transform", "name": "ballXf"}, )" +
            node(R"({"type": "lambert", "name": "mat", "attributes": {"color": [%g, %g, %g], )", c.color.x, c.color.y, c.color.z) +
            node(R"("diffuse": %g, "ambientColor": [%g, %g, )", c.diffuse, c.ambientColor.x, c.ambientColor.y) +
            node(R"(%g]}}, {"type": "shadingEngine", "name": "matSG", "members": ["|ballXf|ball"]}, )", c.ambientColor.z) +
            node(R"({"type": "transform", "name": "sunXf", "attributes": {"rotate": [%g, %g, 0]}}, )", c.rotateX, c.rotateY) +
            node(R"({"type": "directionalLight", "name": "sun", "parent": "sunXf", "attributes": {"intensity": %g}}, )",
                 c.intensity) +
            node(R"({"type": "ambientLight", "name": "fill", "attributes": {"intensity": %g, "ambientShade": 0}}, )",
                 c.ambientLight) +
            R"({"type": "transform", "name": "hiddenXf", "attributes": {"rotate": [0, 30, 0], "visibility": false}},
               {"type": "directionalLight", "name": "hidden", "parent": "hiddenXf", "attributes": {"intensity": 0.6}}, )" +
            quality(false);
        TrenderRun run = render(nodes, R"(["mat.outColor", "matSG.surfaceShader"])");
        ASSERT_TRUE(run.ok) << run.error;
        ASSERT_TRUE(run.warnings.empty()) << run.warnings[0];
        const T3Float centre(0, 0, -5);  // camera space
        int checked = 0, lit = 0;
        for (int py = 0; py < kH; py += 3)
            for (int px = 0; px < kW; px += 3) {
                T3Float d = defaultCameraRay(px, py, kW, kH);
                float b = dot(d, centre), disc = b * b - (dot(centre, centre) - 1);
                if (disc < 0.05f) continue;  // background or too near the silhouette
                T3Float n = normalize(d * (b - std::sqrt(disc)) - centre);
                float cosine = std::max(0.0f, dot(n, toLight));
                const float direct = c.intensity * c.diffuse * cosine + c.ambientLight;
                const T3Float expected(c.color.x * (direct + c.ambientColor.x), c.color.y * (direct + c.ambientColor.y),
                                       c.color.z * (direct + c.ambientColor.z));
                expectNear(rgb(run.image, px, py), expected, std::to_string(px) + "," + std::to_string(py), 0.01f);
                ++checked;
                lit += cosine > 0.3f ? 1 : 0;
            }
        EXPECT_GT(checked, 40);
        EXPECT_GT(lit, 5);  // the light does reach the visible side
    }
}

namespace {
// Two grey spheres, left and right; `key` lights both through the default
// light set, `rim` (if `withRim`) is linked by `rimLink`.
struct TlinkScene {
    TrenderRun run;
    T3Float left, right;
};

TlinkScene renderLinked(bool sameGroup, bool withRim, const std::string& rimLinkObject) {
    std::string nodes =
        R"({"type": "transform", "name": "leftXf", "attributes": {"translate": [-1.3, 0, 0]}}, {"type": "sphere", "name": "left", "parent": "leftXf"},
           {"type": "transform", "name": "rightXf", "attributes": {"translate": [1.3, 0, 0]}}, {"type": "sphere", "name": "right", "parent": "rightXf"},
           {"type": "lambert", "name": "grey"}, {"type": "lambert", "name": "grey2"},
           {"type": "transform", "name": "keyXf", "attributes": {"rotate": [-20, 0, 0]}}, {"type": "directionalLight", "name": "key", "parent": "keyXf", "attributes": {"intensity": 0.5}},
           {"type": "transform", "name": "rimXf", "attributes": {"translate": [0, 0, 3]}}, {"type": "pointLight", "name": "rim", "parent": "rimXf", "attributes": {"intensity": 0.8}},
           {"type": "objectSet", "name": "defaultLightSet", "members": ["|keyXf|key"]},
           {"type": "lightLinker", "name": "lightLinker1"}, )" +
        quality(false);
    std::string connections = R"(["grey.outColor", "leftSG.surfaceShader"], ["defaultLightSet.message", "lightLinker1.link[0].light"],
                                 ["leftSG.message", "lightLinker1.link[0].object"])";
    if (sameGroup) {
        nodes += R"(, {"type": "shadingEngine", "name": "leftSG", "members": ["|leftXf|left", "|rightXf|right"]})";
    } else {
        nodes += R"(, {"type": "shadingEngine", "name": "leftSG", "members": ["|leftXf|left"]},
                    {"type": "shadingEngine", "name": "rightSG", "members": ["|rightXf|right"]})";
        connections += R"(, ["grey2.outColor", "rightSG.surfaceShader"], ["defaultLightSet.message", "lightLinker1.link[1].light"],
                          ["rightSG.message", "lightLinker1.link[1].object"])";
    }
    if (withRim)
        connections += R"(, ["rim.message", "lightLinker1.link[2].light"], [")" + rimLinkObject + R"(.message", "lightLinker1.link[2].object"])";
    TlinkScene s;
    s.run = render(nodes, connections);
    int px, py;
    pixelOf({-1.3f, 0, 1}, px, py);
    s.left = rgb(s.run.image, px, py);
    pixelOf({1.3f, 0, 1}, px, py);
    s.right = rgb(s.run.image, px, py);
    return s;
}
}  // namespace

TEST(RenderLighting, ALightLinkedToOneObjectLightsOnlyThatObject) {
    struct Case {
        const char* name;
        bool sameGroup;
        const char* linkedTo;
        bool leftGains, rightGains;
    };
    const Case cases[] = {
        // Both spheres in one group: the link picks its row of the group's
        // per-object table, so the order of the objects matters.
        {"one group, linked to the left shape", true, "left", true, false},
        {"one group, linked to the right transform", true, "rightXf", false, true},
        {"two groups, linked to the right group", false, "rightSG", false, true},
        {"two groups, linked to the left shape", false, "left", true, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        TlinkScene without = renderLinked(c.sameGroup, false, c.linkedTo);
        TlinkScene with = renderLinked(c.sameGroup, true, c.linkedTo);
        ASSERT_TRUE(without.run.ok) << without.run.error;
        ASSERT_TRUE(with.run.ok) << with.run.error;
        // The key light reaches both spheres alike in every render.
        EXPECT_GT(without.left.x, 0.1f);
        EXPECT_NEAR(without.left.x, without.right.x, 0.01f);
        float leftGain = with.left.x - without.left.x, rightGain = with.right.x - without.right.x;
        if (c.leftGains) EXPECT_GT(leftGain, 0.1f);
        else EXPECT_NEAR(leftGain, 0.0f, 1e-4f);
        if (c.rightGains) EXPECT_GT(rightGain, 0.1f);
        else EXPECT_NEAR(rightGain, 0.0f, 1e-4f);
    }
}

namespace {
// A sphere over a floor, lit by a point light up and to the left: its shadow
// falls around (1, -1, 0).
TrenderRun renderShadowScene(bool rayTraceShadows, bool rayTracing, const TrenderOptions& options = renderOptions(kW, kH)) {
    std::string nodes =
        R"({"type": "transform", "name": "ballXf"}, {"type": "sphere", "name": "ball", "parent": "ballXf", "attributes": {"radius": 0.5}},
           {"type": "transform", "name": "floorXf", "attributes": {"translate": [0, -1, 0]}}, {"type": "plane", "name": "floor", "parent": "floorXf", "attributes": {"width": 30, "height": 30}},
           {"type": "lambert", "name": "grey"}, {"type": "shadingEngine", "name": "greySG", "members": ["|ballXf|ball", "|floorXf|floor"]},
           {"type": "transform", "name": "lampXf", "attributes": {"translate": [-3, 3, 0]}},
           {"type": "pointLight", "name": "lamp", "parent": "lampXf", "attributes": {"useRayTraceShadows": )" +
        std::string(rayTraceShadows ? "true" : "false") + "}}, " + quality(rayTracing);
    return renderText(sceneText(nodes, R"(["grey.outColor", "greySG.surfaceShader"])"), options);
}
}  // namespace

// The engine's pass without shadows, rendered beside the shadowed beauty on
// two threads, must be the scene whose light casts none.
TEST(RenderLighting, RayTracedShadowDarkensTheFloorBehindASphereAndTheNoShadowsPassLeavesItOut) {
    TrenderOptions withPass = renderOptions(kW, kH, 2);
    withPass.passes = {"noShadows"};
    TrenderRun plain = renderShadowScene(false, true);
    TrenderRun shadowed = renderShadowScene(true, true, withPass);
    ASSERT_TRUE(plain.ok) << plain.error;
    ASSERT_TRUE(shadowed.ok) << shadowed.error;
    int sx, sy, ox, oy;
    pixelOf({1, -1, 0}, sx, sy);      // in the shadow
    pixelOf({-1.5f, -1, 1}, ox, oy);  // in the open
    T3Float lit = rgb(plain.image, sx, sy), dark = rgb(shadowed.image, sx, sy);
    // Without shadows the point sees the light (Lambert grey, cosine about 0.5).
    EXPECT_GT(lit.x, 0.1f);
    // No ambient light: the shadow is black.
    EXPECT_LT(dark.x, 0.05f * lit.x);
    // Away from the shadow nothing changes.
    EXPECT_GT(rgb(plain.image, ox, oy).x, 0.1f);
    EXPECT_NEAR(rgb(shadowed.image, ox, oy).x, rgb(plain.image, ox, oy).x, 1e-4f);
    // And the sphere itself is lit alike in both.
    int bx, by;
    pixelOf({-0.2f, 0.2f, 0.4f}, bx, by);
    EXPECT_NEAR(rgb(shadowed.image, bx, by).x, rgb(plain.image, bx, by).x, 1e-4f);

    const TimageLayer* pass = shadowed.image.layer("noShadows");
    ASSERT_NE(pass, nullptr);
    ASSERT_EQ(pass->pixels.size(), plain.image.data().size());
    for (size_t i = 0; i < pass->pixels.size(); ++i) EXPECT_NEAR(pass->pixels[i], plain.image.data()[i], 1e-5f) << i;
}

namespace {
// A transparent occluder over a floor at y = -1, under a point light at
// (0, 3, 0): a square card edge-on to the camera at y = 0, two units wide,
// or a ball of radius 0.5 at the origin. A floor point (x, -1, z) sees the
// light through the card at (3x/4, 0, 3z/4), where the card's uv is
// ((3x/4 + 1) / 2, (1 - 3z/4) / 2).
const char* const kCard = R"({"type": "plane", "name": "shape", "parent": "shapeXf", "attributes": {"width": 2, "height": 2}})";
const char* const kBall = R"({"type": "sphere", "name": "shape", "parent": "shapeXf", "attributes": {"radius": 0.5}})";

TrenderRun renderOccluderShadow(bool shadows, const char* shape, const std::string& glass, const std::string& connections = "") {
    std::string nodes =
        R"({"type": "transform", "name": "shapeXf"}, )" + std::string(shape) + R"(,
           {"type": "lambert", "name": "glass", "attributes": {)" + glass + R"(}},
           {"type": "shadingEngine", "name": "glassSG", "members": ["|shapeXf|shape"]},
           {"type": "transform", "name": "floorXf", "attributes": {"translate": [0, -1, 0]}}, {"type": "plane", "name": "floor", "parent": "floorXf", "attributes": {"width": 30, "height": 30}},
           {"type": "lambert", "name": "grey"}, {"type": "shadingEngine", "name": "greySG", "members": ["|floorXf|floor"]},
           {"type": "checker", "name": "cells"},
           {"type": "transform", "name": "lampXf", "attributes": {"translate": [0, 3, 0]}},
           {"type": "pointLight", "name": "lamp", "parent": "lampXf", "attributes": {"useRayTraceShadows": )" +
        std::string(shadows ? "true" : "false") + "}}, " + quality(true);
    return renderText(sceneText(nodes, R"(["grey.outColor", "greySG.surfaceShader"], ["glass.outColor", "glassSG.surfaceShader"])" +
                                           connections),
                      renderOptions(kW, kH));
}
}  // namespace

// A shadow ray shades the transparency of each surface it passes: the floor
// keeps that fraction of its light, channel by channel, once for the card
// and once for each side of the ball, whether the transparency is a value or
// a texture read at the card's own uv. A refracting ball tints alike, since
// a shadow ray goes straight on. shadowAttenuation a darkens light that
// crosses aslant, by 1 - a (1 - cosine).
TEST(RenderLighting, TransparentOccludersLetTheirTransparencyThroughTheRayTracedShadow) {
    TrenderRun open = renderOccluderShadow(false, kCard, "");
    ASSERT_TRUE(open.ok) << open.error;
    auto throughOccluder = [&](const TrenderRun& run, float x, float z) {
        int px, py;
        pixelOf({x, -1, z}, px, py);
        T3Float lit = rgb(open.image, px, py), seen = rgb(run.image, px, py);
        EXPECT_GT(lit.x, 0.05f) << x << "," << z << " is lit without shadows";
        return T3Float(seen.x / lit.x, seen.y / lit.y, seen.z / lit.z);
    };
    const std::string tint = R"("transparency": [0.25, 0.5, 1])", square = R"(, "shadowAttenuation": 0)";
    const T3Float t(0.25f, 0.5f, 1);
    // From (1.2, -1, 0) the light is 1.2 across and 4 up.
    const float aslant = 1 - 0.5f * (1 - 4 / std::sqrt(1.2f * 1.2f + 16));
    struct Case {
        const char* shape;
        std::string glass;
        float x;
        T3Float through;
    } cases[] = {
        {kCard, tint + square, 0, t},
        {kCard, tint + square, 1.2f, t},
        {kCard, tint, 1.2f, t * aslant},
        {kBall, tint + square, 0, {0.0625f, 0.25f, 1}},
        {kBall, tint + square + R"(, "refractions": true, "refractiveIndex": 1.5)", 0, {0.0625f, 0.25f, 1}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.shape) + c.glass + " at " + std::to_string(c.x));
        TrenderRun run = renderOccluderShadow(true, c.shape, c.glass);
        ASSERT_TRUE(run.ok) << run.error;
        expectNear(throughOccluder(run, c.x, 0), c.through, "behind the occluder", 2e-3f);
        expectNear(throughOccluder(run, 2.5f, 0.2f), T3Float(1, 1, 1), "beside it", 1e-5f);
    }
    // Shading what a shadow ray passes runs no light program, which would
    // trace shadow rays of its own: a clear card costs the rays an opaque one does.
    TrenderRun opaque = renderOccluderShadow(true, kCard, R"("transparency": [0, 0, 0])");
    TrenderRun clear = renderOccluderShadow(true, kCard, tint);
    ASSERT_TRUE(opaque.ok && clear.ok) << opaque.error << clear.error;
    EXPECT_GT(opaque.statistics.shadowRays, 0u);
    EXPECT_EQ(clear.statistics.shadowRays, opaque.statistics.shadowRays);
    // A checker of 2 by 2 white and black cells: the floor under the centres
    // of opposite cells alike, lit fully or not at all.
    TrenderRun cells = renderOccluderShadow(true, kCard, R"("shadowAttenuation": 0)", R"(, ["cells.outColor", "glass.transparency"])");
    ASSERT_TRUE(cells.ok) << cells.error;
    const float c = 2.0f / 3;  // a cell centre, u or v of 0.25 or 0.75
    T3Float a = throughOccluder(cells, -c, c), b = throughOccluder(cells, c, -c);
    T3Float d = throughOccluder(cells, c, c), e = throughOccluder(cells, -c, -c);
    expectNear(a, b, "one diagonal", 1e-3f);
    expectNear(d, e, "the other diagonal", 1e-3f);
    EXPECT_NEAR(std::max(a.x, d.x), 1, 1e-3f);
    EXPECT_NEAR(std::min(a.x, d.x), 0, 1e-3f);
}

namespace {
// A Blinn sphere facing the camera, a red glowing wall behind the camera
// that only a reflection can show.
TrenderRun renderMirrorScene(float reflectivity, bool rayTracing) {
    std::string nodes =
        R"({"type": "transform", "name": "ballXf"}, {"type": "sphere", "name": "ball", "parent": "ballXf"},
           {"type": "transform", "name": "wallXf", "attributes": {"translate": [0, 0, 9], "rotate": [90, 0, 0]}},
           {"type": "plane", "name": "wall", "parent": "wallXf", "attributes": {"width": 40, "height": 40}},
           {"type": "lambert", "name": "red", "attributes": {"color": [0, 0, 0], "incandescence": [1, 0, 0]}},
           {"type": "shadingEngine", "name": "redSG", "members": ["|wallXf|wall"]},
           {"type": "transform", "name": "sunXf", "attributes": {"rotate": [-30, 20, 0]}}, {"type": "directionalLight", "name": "sun", "parent": "sunXf"},
           {"type": "shadingEngine", "name": "shinySG", "members": ["|ballXf|ball"]}, )" +
        node(R"({"type": "blinn", "name": "shiny", "attributes": {"color": [0.2, 0.3, 0.4], "reflectivity": %g, "specularColor": [1, 1, 1], "reflectedColor": [0, 0.5, 0]}}, )",
             reflectivity) +
        quality(rayTracing);
    return render(nodes, R"(["red.outColor", "redSG.surfaceShader"], ["shiny.outColor", "shinySG.surfaceShader"])");
}
}  // namespace

TEST(RenderLighting, AReflectiveBlinnShowsTheColourOfItsNeighbour) {
    TrenderRun matte = renderMirrorScene(0, true);
    TrenderRun half = renderMirrorScene(0.4f, true);
    TrenderRun mirror = renderMirrorScene(0.8f, true);
    TrenderRun untraced = renderMirrorScene(0.8f, false);
    for (const TrenderRun* r : {&matte, &half, &mirror, &untraced}) ASSERT_TRUE(r->ok) << r->error;
    int px, py;
    pixelOf({0.1f, -0.1f, 1}, px, py);  // near the sphere's centre: rays go back at the wall
    T3Float m = rgb(matte.image, px, py), h = rgb(half.image, px, py), f = rgb(mirror.image, px, py);
    // The red of the wall arrives, growing with the reflectivity ...
    EXPECT_GT(h.x - m.x, 0.1f);
    EXPECT_GT(f.x - h.x, 0.1f);
    // ... and only the red: the wall has no green or blue to give.
    EXPECT_NEAR(f.y, m.y, 0.01f);
    EXPECT_NEAR(f.z, m.z, 0.01f);
    // Without ray tracing no ray is formed: reflectedColor (0, 0.5, 0)
    // stands in for the wall's (1, 0, 0), weighed alike.
    T3Float u = rgb(untraced.image, px, py);
    EXPECT_NEAR(u.x, m.x, 0.01f);
    EXPECT_NEAR(u.y - m.y, 0.5f * (f.x - m.x), 0.01f);
}

// What a material prepares once per render must come from the node as the
// file sets it: a lambert lit from behind at cosine -0.1 shows translucence
// 0.5 scaled by the fade that translucenceDepth sets (threshold depth * -11.5,
// fading in over min(0.15 - threshold, 1) of cosine).
TEST(RenderLighting, TranslucenceDepthOfTheFileReachesTheRender) {
    const float cosine = -0.1f, translucence = 0.5f;
    for (float depth : {0.0f, 0.01f, 0.05f, 0.3f}) {
        SCOPED_TRACE(testing::Message() << "translucenceDepth " << depth);
        float threshold = depth * -11.5f, range = std::min(0.15f - threshold, 1.0f);
        float expected = cosine > threshold ? translucence : 0.0f;
        if (cosine > threshold && cosine < threshold + range) expected *= (cosine - threshold) / range;
        // The light's transform turns its +Z (towards the light) to (0, -sin a, cos a).
        float angle = std::acos(cosine) * 180.0f / 3.14159265f;
        std::string nodes =
            R"({"type": "transform", "name": "cardXf", "attributes": {"rotate": [90, 0, 0]}},
               {"type": "plane", "name": "card", "parent": "cardXf", "attributes": {"width": 20, "height": 20}},
               {"type": "shadingEngine", "name": "matSG", "members": ["|cardXf|card"]}, )" +
            node(R"({"type": "lambert", "name": "mat", "attributes": {"color": [1, 1, 1], "diffuse": 0, "translucence": %g, "translucenceDepth": %g, "translucenceFocus": 0}}, )",
                 translucence, depth) +
            node(R"({"type": "transform", "name": "sunXf", "attributes": {"rotate": [%g, 0, 0]}}, )", angle) +
            R"({"type": "directionalLight", "name": "sun", "parent": "sunXf"}, )" + quality(false);
        TrenderRun run = render(nodes, R"(["mat.outColor", "matSG.surfaceShader"])");
        ASSERT_TRUE(run.ok) << run.error;
        for (auto [x, y] : {std::pair{kW / 2, kH / 2}, std::pair{3, 4}, std::pair{kW - 5, kH - 2}})
            EXPECT_NEAR(rgb(run.image, x, y).x, expected, 2e-4f) << x << "," << y;
    }
}
