// The area light on the road users take: scene files rendered by
// `shadenet render` with an orthographic camera looking straight down, one
// sample at each pixel's centre, read back and compared with the form factor
// (Lambert and Phong call the light back) and with the penumbra width of
// similar triangles (soft ray-traced shadows).
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "lights/form_factor.h"
#include "support/scene_render.h"

namespace {

// The camera: 160 x 120 pixels over 8 x 6 units of the ground (y = 0),
// image right along +X, image down along +Z.
constexpr int kW = 160, kH = 120;
constexpr float kPixel = 8.0f / float(kW);
constexpr double kPi = 3.14159265358979323846;

T3Float groundAt(float px, float py) {
    return {(px + 0.5f) * kPixel - 0.5f * kPixel * float(kW), 0, (py + 0.5f) * kPixel - 0.5f * kPixel * float(kH)};
}

std::string format(const char* text, double a = 0, double b = 0, double c = 0, double d = 0, double e = 0) {
    char out[1024];
    std::snprintf(out, sizeof out, text, a, b, c, d, e);
    return out;
}

// Renders `nodes` under the camera to an EXR through the program and reads it back.
TtestImage render(const TtestTempDir& dir, const std::string& name, const std::string& nodes, const std::string& connections) {
    const std::string scene = R"({"nodes": [
        {"type": "transform", "name": "camXf", "attributes": {"translate": [0, 10, 0], "rotate": [-90, 0, 0]}},
        {"type": "camera", "name": "cam", "parent": "camXf", "attributes": {"orthographic": true, "orthographicWidth": 8}},
        {"type": "renderQuality", "name": "defaultRenderQuality",
         "attributes": {"pixelFilterType": "kBoxPixelFilter", "pixelFilterWidthX": 1, "enableRaytracing": true}},
        {"type": "transform", "name": "floorXf"},
        {"type": "plane", "name": "floor", "parent": "floorXf", "attributes": {"width": 20, "height": 20}},
        )" + nodes + R"(], "connections": [)" + connections + "]}";
    TsceneRender r = renderSceneFile(dir, name, scene, {"--resolution", "160", "120", "--spp", "1", "--threads", "2", "-q"});
    EXPECT_EQ(r.run.status, 0) << r.run.err;
    return r.image;
}

// A light under a transform at `centre`, turned to shine straight down, its
// square scaled to `sizeX` by `sizeZ`.
std::string lightNodes(const char* type, const T3Float& centre, float sizeX, float sizeZ, const std::string& attributes) {
    return format(R"({"type": "transform", "name": "lampXf", "attributes": {"translate": [%g, %g, %g], "rotate": [-90, 0, 0], )", centre.x,
                  centre.y, centre.z) +
           format(R"("scale": [%g, %g, 1]}}, )", sizeX / 2, sizeZ / 2) + R"({"type": ")" + type +
           R"(", "name": "lamp", "parent": "lampXf", "attributes": {)" + attributes + "}}";
}

// The same light as the parallelogram of the reference (world space).
Tparallelogram lightQuad(const T3Float& centre, float sizeX, float sizeZ) { return {centre, {sizeX, 0, 0}, {0, 0, -sizeZ}}; }

TEST(AreaLightRender, LambertAndPhongGetTheFormFactorAndAPointLightDoesNot) {
    TtestTempDir dir;
    const T3Float centre(0.6f, 3, -0.4f), color(0.8f, 0.6f, 0.4f);
    const float sizeX = 2.4f, sizeZ = 1.6f, intensity = 0.05f, diffuse = 0.9f, specular = 0.5f;
    const std::string surface = format(R"("color": [%g, %g, %g], "diffuse": %g)", color.x, color.y, color.z, diffuse);
    const std::string lit = format(R"("intensity": %g)", intensity);
    // The floor in a material of `type` with `more` attributes, under a light of `light` type.
    auto renderFloor = [&](const std::string& type, const std::string& more, const char* light) {
        return render(dir, type + light,
                      R"({"type": "shadingEngine", "name": "floorSG", "members": ["|floorXf|floor"]}, {"type": ")" + type +
                          R"(", "name": "mat", "attributes": {)" + surface + more + "}}, " + lightNodes(light, centre, sizeX, sizeZ, lit),
                      R"(["mat.outColor", "floorSG.surfaceShader"])");
    };
    const TtestImage lambert = renderFloor("lambert", "", "areaLight"), point = renderFloor("lambert", "", "pointLight");
    const TtestImage phong = renderFloor(
        "phong", format(R"(, "reflectivity": 0, "cosinePower": 20, "specularColor": [%g, %g, %g])", specular, specular, specular), "areaLight");
    for (const TtestImage* image : {&lambert, &phong, &point}) ASSERT_EQ(image->width, kW);

    const Tparallelogram quad = lightQuad(centre, sizeX, sizeZ);
    struct Case {
        const char* name;
        int px, py;
        bool underTheLight;  // the view's mirror ray meets the light
    };
    const Case cases[] = {
        {"below the centre", 91, 51, true}, {"below a corner", 114, 67, true}, {"below an edge", 70, 55, true},
        {"beside the light", 30, 20, false}, {"far off", 2, 118, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const T3Float p = groundAt(float(c.px), float(c.py)), up(0, 1, 0);
        const double irradiance = quadratureIrradiance(quad, p, up);
        for (int ch = 0; ch < 3; ++ch) {
            const double expected = color[ch] * intensity * diffuse * irradiance;
            EXPECT_NEAR(lambert.at(c.px, c.py, ch), expected, 1e-4 * std::max(1.0, expected)) << "channel " << ch;
            // A point light at the centre: the plain cosine, no integral.
            const T3Float toCentre = normalize(centre - p);
            EXPECT_NEAR(point.at(c.px, c.py, ch), color[ch] * intensity * diffuse * toCentre.y, 1e-4);
            EXPECT_GT(std::fabs(lambert.at(c.px, c.py, ch) - point.at(c.px, c.py, ch)), 0.2 * point.at(c.px, c.py, ch));
            // Phong adds the light's attenuation with a lobe of 1 where the
            // mirror ray meets the light, and less elsewhere.
            const double highlight = phong.at(c.px, c.py, ch) - lambert.at(c.px, c.py, ch);
            if (c.underTheLight)
                EXPECT_NEAR(highlight, specular * intensity * irradiance, 1e-4 * std::max(1.0, irradiance));
            else
                EXPECT_LT(highlight, specular * intensity * irradiance * 0.9);
        }
    }
}

// The width of the penumbra in the first row band, from the visible fraction
// (shadowed over unshadowed) crossing 0.1 and 0.9 going out from the umbra
// at `from` towards `step`; a linear ramp spans 0.8 of its width between them.
double penumbraWidth(const TtestImage& shadowed, const TtestImage& open, int from, int step) {
    auto visible = [&](int x) {
        double s = 0, o = 0;
        for (int y = 40; y < 80; ++y) s += shadowed.at(x, y), o += open.at(x, y);
        return s / o;
    };
    double low = -1, high = -1;
    for (int x = from; x + step >= 0 && x + step < kW && high < 0; x += step) {
        double a = visible(x), b = visible(x + step);
        // Crossing between pixel centres x and x + step: interpolate linearly.
        if (low < 0 && a < 0.1 && b >= 0.1) low = x + step * (0.1 - a) / (b - a);
        if (high < 0 && a < 0.9 && b >= 0.9) high = x + step * (0.9 - a) / (b - a);
    }
    if (low < 0 || high < 0) return -1;
    return std::fabs(high - low) / 0.8 * kPixel;
}

TEST(AreaLightRender, ThePenumbraWidensWithTheLightBySimilarTriangles) {
    // A long strip one unit above the ground, hidden from the camera, under
    // a square light four units up: the penumbra of its edges is
    // s * h / (H - h) wide.
    TtestTempDir dir;
    const float hLight = 4, hStrip = 1;
    const std::string scene =
        R"({"type": "transform", "name": "stripXf", "attributes": {"translate": [0, 1, 0]}},
           {"type": "plane", "name": "strip", "parent": "stripXf", "attributes": {"width": 2, "height": 12, "primaryVisibility": false}},
           {"type": "lambert", "name": "grey", "attributes": {"color": [1, 1, 1], "diffuse": 1}},
           {"type": "shadingEngine", "name": "greySG", "members": ["|floorXf|floor", "|stripXf|strip"]}, )";
    for (float side : {1.0f, 3.0f}) {
        SCOPED_TRACE(testing::Message() << "light side " << side);
        TtestImage images[2];
        for (bool shadows : {false, true})
            images[shadows] = render(dir, shadows ? "shadowed" : "open",
                                     scene + lightNodes("areaLight", {0, hLight, 0}, side, side,
                                                        std::string(R"("intensity": 0.2, "shadowRays": 64, "useRayTraceShadows": )") +
                                                            (shadows ? "true" : "false")),
                                     R"(["grey.outColor", "greySG.surfaceShader"])");
        ASSERT_EQ(images[0].width, kW);
        ASSERT_EQ(images[1].width, kW);
        const double predicted = side * hStrip / (hLight - hStrip);
        EXPECT_NEAR(penumbraWidth(images[1], images[0], kW / 2, 1), predicted, 2 * kPixel) << "right edge";
        EXPECT_NEAR(penumbraWidth(images[1], images[0], kW / 2 - 1, -1), predicted, 2 * kPixel) << "left edge";
        // The middle of the shadow is the umbra: no part of the light is seen.
        EXPECT_EQ(images[1].at(kW / 2, kH / 2), 0.0f);
    }
}

}  // namespace
