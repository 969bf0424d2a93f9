// Fog through the road users take: scene files rendered by `shadenet
// render` (orthographic camera, one box-filtered sample at each pixel's
// centre), read back and compared with closed forms of Beer-Lambert
// attenuation along each pixel's ray.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "support/scene_render.h"

namespace {
constexpr double kDeg = 3.14159265358979323846 / 180;
constexpr int kSize = 24;         // pixels, square
constexpr double kViewWidth = 8;  // scene units across the orthographic view

// Renders `scene` and reads the image back; fails the test when either fails.
TtestImage render(const TtestTempDir& dir, const std::string& scene, std::vector<std::string> options = {}) {
    const std::string size = std::to_string(kSize);
    options.insert(options.begin(), {"-q", "--threads", "2", "--spp", "1", "--resolution", size, size});
    TsceneRender r = renderSceneFile(dir, "fog", scene, options);
    EXPECT_EQ(r.run.status, 0) << r.run.err;
    return r.image;
}

// Scene units of a pixel centre across the view, from its left or top edge.
double across(int pixel) { return (pixel + 0.5) * kViewWidth / kSize - kViewWidth / 2; }

// The camera, box filter and a self-lit floor of brightness `floor` under
// the transform `floorXf`; then `more` nodes and connections.
std::string sceneText(const std::string& camera, const std::string& floorXf, double floor, const std::string& more,
                      const std::string& connections) {
    char text[4096];
    std::snprintf(text, sizeof text, R"({
  "nodes": [
    %s,
    {"type": "renderQuality", "name": "defaultRenderQuality", "attributes": {"pixelFilterType": "kBoxPixelFilter", "pixelFilterWidthX": 1, "enableRaytracing": true}},
    {"type": "transform", "name": "floorXf", "attributes": %s},
    {"type": "plane", "name": "floor", "parent": "floorXf", "attributes": {"width": 40, "height": 40}},
    {"type": "lambert", "name": "floorMat", "attributes": {"color": [0, 0, 0], "incandescence": [%g, %g, %g]}},
    {"type": "shadingEngine", "name": "floorSG", "members": ["|floorXf|floor"]}%s
  ],
  "connections": [["floorMat.outColor", "floorSG.surfaceShader"]%s]
})",
                  camera.c_str(), floorXf.c_str(), floor, floor, floor, more.c_str(), connections.c_str());
    return text;
}

// Looking straight down from y = 10.
const std::string kTopCamera =
    R"({"type": "transform", "name": "camXf", "attributes": {"translate": [0, 10, 0], "rotate": [-90, 0, 0]}},
    {"type": "camera", "name": "cam", "parent": "camXf", "attributes": {"orthographic": true, "orthographicWidth": 8, "farClipPlane": 1000}})";
}  // namespace

// A uniform environment fog between the eye and a floor tilted about Z:
// each pixel's ray is fogged over its own distance d to the floor.
//   simple: opacity o = 1 - exp(-d / s) (1 where s <= 0); the fog's colour is
//     light * colour * o from a distant light; its transparency 1 - o, or
//     with colorBasedTransparency 1 - that colour per channel;
//   physical uniform: transparency exp(-(-ln(1 - opacity) * density) d) and
//     no colour without a sun;
//   Fog Near/Far: only the part of the ray between the two distances from
//     the eye counts, the eye's distance being |pointCamera|;
//   height band: only the part of the ray between heights 0 and 5 counts
//     (the eye lies above the band, so no blend ramp applies).
TEST(FogRender, EnvironmentFogOverATiltedFloorFollowsBeerLambert) {
    struct Case {
        const char* what;
        double tilt, saturation;
        bool byColor, physical, nearFar;
        double light;
        bool band = false;
    };
    const Case cases[] = {
        {"plain", 30, 10, false, false, false, 0},     {"steeper", 50, 4, false, false, false, 0},
        {"lit", 20, 6, false, false, false, 0.8},      {"colour based", 20, 6, true, false, false, 0.8},
        {"saturated", 0, 0, false, false, false, 0.8}, {"near far", 30, 3, false, false, true, 0},
        {"physical", 30, 0, false, true, false, 0},    {"height band", 30, 4, false, false, false, 0, true},
    };
    const double color[3] = {1, 0.5, 0.25}, floor = 0.9, nearD = 9.5, farD = 11;
    const double sigmaPhysical = -std::log(1 - 0.4) * 0.2;  // opacity 0.4, density 0.2
    TtestTempDir dir;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        char fog[1024];
        std::snprintf(fog, sizeof fog, R"(,
    {"type": "transform", "name": "hazeXf"},
    {"type": "environmentFog", "name": "haze", "parent": "hazeXf"},
    {"type": "envFog", "name": "hazeFog", "attributes": {"color": [%g, %g, %g], "saturationDistance": %g,
      "colorBasedTransparency": %s, "physicalFog": %s, "fogDensity": 0.2, "fogOpacity": [0.4, 0.4, 0.4], "sunIntensity": 0,
      "distanceClipPlanes": %d, "fogNearDistance": %g, "fogFarDistance": %g, "useHeight": %s, "minHeight": 0, "maxHeight": 5}},
    {"type": "shadingEngine", "name": "hazeSG", "members": ["|hazeXf|haze"]},
    {"type": "transform", "name": "sunXf", "attributes": {"rotate": [-60, 20, 0]}},
    {"type": "directionalLight", "name": "sun", "parent": "sunXf", "attributes": {"intensity": %g}})",
                      color[0], color[1], color[2], c.saturation, c.byColor ? "true" : "false", c.physical ? "true" : "false",
                      c.nearFar ? 1 : 0, nearD, farD, c.band ? "true" : "false", c.light);
        const std::string floorXf = "{\"rotate\": [0, 0, " + std::to_string(c.tilt) + "]}";
        const TtestImage image = render(dir, sceneText(kTopCamera, floorXf, floor, fog, R"(, ["hazeFog.outColor", "hazeSG.volumeShader"])"));
        ASSERT_EQ(image.width, kSize);
        for (int y = 0; y < kSize; ++y)
            for (int x = 0; x < kSize; ++x) {
                const double px = across(x), pz = across(y);
                const double d = 10 - px * std::tan(c.tilt * kDeg);  // eye plane to floor, straight down
                double expected[3];
                if (c.physical) {
                    for (double& e : expected) e = floor * std::exp(-sigmaPhysical * d);
                } else {
                    double thickness = d;
                    if (c.nearFar) {
                        const double lateral = std::hypot(px, pz);
                        const double from = std::max(lateral, nearD), to = std::min(std::hypot(lateral, d), farD);
                        thickness = std::max(to - from, 0.0);
                    }
                    if (c.band) thickness = std::max(std::min(d, 10.0) - 5, 0.0);
                    const double o = c.saturation > 0 ? 1 - std::exp(-thickness / c.saturation) : 1;
                    for (int k = 0; k < 3; ++k) {
                        const double fogColor = c.light * color[k] * o;
                        const double transparency = c.byColor ? 1 - fogColor : 1 - o;
                        expected[k] = fogColor + transparency * floor;
                    }
                }
                for (int k = 0; k < 3; ++k)
                    ASSERT_NEAR(image.at(x, y, k), expected[k], 0.01 * expected[k] + 1e-4) << "pixel " << x << " " << y << " channel " << k;
            }
    }
}

// A volume fog sphere of radius R over a self-lit floor, seen from above:
// a ray at distance r from the centre crosses a chord of 2 sqrt(R^2 - r^2)
// and keeps T^(density * chord) of the floor; rays that miss keep all of it.
TEST(FogRender, VolumeFogSphereFollowsTheChordLength) {
    struct Case {
        double radius, transparency, density;
    };
    const Case cases[] = {{1.5, 0.5, 1}, {3.2, 0.8, 0.6}};
    const double floor = 0.8;
    TtestTempDir dir;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.radius);
        char fog[1024];
        std::snprintf(fog, sizeof fog, R"(,
    {"type": "transform", "name": "ballXf", "attributes": {"scale": [%g, %g, %g]}},
    {"type": "renderSphere", "name": "ball", "parent": "ballXf"},
    {"type": "volumeFog", "name": "ballFog", "attributes": {"color": [0, 0, 0], "transparency": [%g, %g, %g], "density": %g,
      "dropoffShape": "Off"}},
    {"type": "shadingEngine", "name": "ballSG", "members": ["|ballXf|ball"]})",
                      c.radius, c.radius, c.radius, c.transparency, c.transparency, c.transparency, c.density);
        const TtestImage image =
            render(dir, sceneText(kTopCamera, R"({"translate": [0, -4, 0]})", floor, fog, R"(, ["ballFog.outColor", "ballSG.volumeShader"])"));
        ASSERT_EQ(image.width, kSize);
        int inside = 0;
        for (int y = 0; y < kSize; ++y)
            for (int x = 0; x < kSize; ++x) {
                const double r = std::hypot(across(x), across(y));
                // The chord changes fastest at the rim: pixels within a pixel of it are left out.
                if (std::fabs(r - c.radius) < kViewWidth / kSize) continue;
                const double chord = r < c.radius ? 2 * std::sqrt(c.radius * c.radius - r * r) : 0;
                const double expected = floor * std::pow(c.transparency, c.density * chord);
                inside += chord > 0;
                for (int k = 0; k < 3; ++k) ASSERT_NEAR(image.at(x, y, k), expected, 0.01 * expected) << "pixel " << x << " " << y;
            }
        EXPECT_GT(inside, 20);  // through the centre and well off it
    }
}

// Reflected rays are fogged too. A mirror tilted 45 degrees under the
// downward view reflects each ray sideways to a self-lit wall at x = -6;
// from the eye plane (y = 10) down to the mirror (y = x) and across to the
// wall every path is 16 long, so fog scales every mirrored pixel by
// exp(-16 / s) against the same render without fog, whatever the mirror
// keeps of what it reflects.
TEST(FogRender, ReflectedRaysAreFoggedAlongTheirWholePath) {
    const double saturation = 20;
    auto scene = [&](bool fog) {
        std::string more = R"(,
    {"type": "transform", "name": "mirrorXf", "attributes": {"rotate": [0, 0, 45]}},
    {"type": "plane", "name": "mirror", "parent": "mirrorXf", "attributes": {"width": 12, "height": 12}},
    {"type": "phong", "name": "mirrorMat", "attributes": {"color": [0, 0, 0], "diffuse": 0, "specularColor": [1, 1, 1],
      "reflectivity": 0.8}},
    {"type": "shadingEngine", "name": "mirrorSG", "members": ["|mirrorXf|mirror"]})";
        std::string connections = R"(, ["mirrorMat.outColor", "mirrorSG.surfaceShader"])";
        if (fog) {
            more += R"(,
    {"type": "transform", "name": "hazeXf"},
    {"type": "environmentFog", "name": "haze", "parent": "hazeXf"},
    {"type": "envFog", "name": "hazeFog", "attributes": {"saturationDistance": )" + std::to_string(saturation) + R"(}},
    {"type": "shadingEngine", "name": "hazeSG", "members": ["|hazeXf|haze"]})";
            connections += R"(, ["hazeFog.outColor", "hazeSG.volumeShader"])";
        }
        // The floor stands up as the wall at x = -6, facing the mirror.
        return sceneText(kTopCamera, R"({"translate": [-6, 0, 0], "rotate": [0, 0, -90]})", 0.9, more, connections);
    };
    TtestTempDir dir;
    const TtestImage clear = render(dir, scene(false));
    const TtestImage fogged = render(dir, scene(true));
    ASSERT_EQ(clear.width, kSize);
    ASSERT_EQ(fogged.width, kSize);
    const double kept = std::exp(-16 / saturation);
    int mirrored = 0;
    for (int y = 0; y < kSize; ++y)
        for (int x = 0; x < kSize; ++x) {
            if (clear.at(x, y, 0) < 0.05f) continue;  // the mirror shows nothing here
            ++mirrored;
            for (int k = 0; k < 3; ++k)
                EXPECT_NEAR(fogged.at(x, y, k), clear.at(x, y, k) * kept, 0.01 * clear.at(x, y, k)) << "pixel " << x << " " << y;
        }
    EXPECT_GT(mirrored, kSize * kSize / 2);
}

namespace {
constexpr double kBeamHeight = 3.5, kBeamLength = 6, kBeamHalfAngle = 20;  // apex height, depth, half angle in degrees

// A spot light pointing down with its fog in a cone that matches its own,
// seen from the side against black, with `more` nodes.
TtestImage renderBeam(const TtestTempDir& dir, const std::string& spotAttributes, const std::string& more,
                      const std::vector<std::string>& options = {}) {
    const double radius = kBeamLength * std::tan(kBeamHalfAngle * kDeg);
    char fog[2048];
    std::snprintf(fog, sizeof fog, R"(,
    {"type": "transform", "name": "spotXf", "attributes": {"translate": [0, %g, 0], "rotate": [-90, 0, 0]}},
    {"type": "spotLight", "name": "spot", "parent": "spotXf", "attributes": {"coneAngle": %.9g, "intensity": 2%s}},
    {"type": "transform", "name": "beamXf", "parent": "spotXf", "attributes": {"scale": [%.9g, %.9g, %g]}},
    {"type": "renderCone", "name": "beam", "parent": "beamXf"},
    {"type": "lightFog", "name": "beamFog", "attributes": {"density": 0.5}},
    {"type": "shadingEngine", "name": "beamSG", "members": ["|spotXf|beamXf|beam"]}%s)",
                  kBeamHeight, 2 * kBeamHalfAngle * kDeg, spotAttributes.c_str(), 2 * radius, 2 * radius, kBeamLength, more.c_str());
    const std::string sideCamera =
        R"({"type": "transform", "name": "camXf", "attributes": {"translate": [0, 0, 10]}},
    {"type": "camera", "name": "cam", "parent": "camXf", "attributes": {"orthographic": true, "orthographicWidth": 8}})";
    // The floor is moved out of sight: only the fog can show.
    return render(dir, sceneText(sideCamera, R"({"translate": [0, 0, -100], "scale": [0, 0, 0]})", 0, fog,
                                 R"(, ["beamFog.outColor", "beamSG.volumeShader"], ["beam.message", "spot.fogGeometry"])"),
                  options);
}

// Whether the side view's ray through pixel (x, y) crosses the beam well
// inside (1), well outside (-1) or near its edge (0).
int beamSide(int x, int y) {
    const double px = across(x), depth = kBeamHeight + across(y);
    const double reach = depth * std::tan(kBeamHalfAngle * kDeg), margin = kViewWidth / kSize;
    if (depth > margin && depth < kBeamLength - margin && std::fabs(px) < reach - margin) return 1;
    if (depth < -margin || std::fabs(px) > reach + margin) return -1;
    return 0;
}
}  // namespace

// A pixel whose ray crosses the cone shows fog, one whose ray misses it
// shows none at all. A plate hidden from the camera shadows the far half
// (z < 0) of the beam below it. Each ray of the side view crosses the beam
// along z, symmetric about the axis, so of the points sampled along its
// interval exactly half lie in shadow: the fog keeps 1 - min(1, 0.5 * fogShadowIntensity) of its
// light there, and all of it above the plate. The specular-only pass holds
// no light fog: the fog answers the light's diffuse and ambient terms, which
// that pass leaves out.
TEST(FogRender, SpotLightFogLiesInTheConeOutOfTheSpecularPassAndTakesShadowsByFogShadowIntensity) {
    const double plate = 1.5;  // height of the plate
    const std::string plateNodes = R"(,
    {"type": "transform", "name": "plateXf", "attributes": {"translate": [0, 1.5, -5]}},
    {"type": "plane", "name": "plate", "parent": "plateXf", "attributes": {"width": 20, "height": 10, "primaryVisibility": false}},
    {"type": "shadingEngine", "name": "plateSG", "members": ["|plateXf|plate"]})";
    TtestTempDir dir;
    const TtestImage open = renderBeam(dir, ", \"useRayTraceShadows\": true", "", {"--pass", "specular"});
    ASSERT_EQ(open.width, kSize);
    const auto at = std::find(open.channelNames.begin(), open.channelNames.end(), "specular.R");
    ASSERT_NE(at, open.channelNames.end());
    const int specular = int(at - open.channelNames.begin());
    int lit = 0, dark = 0;
    for (int y = 0; y < kSize; ++y)
        for (int x = 0; x < kSize; ++x) {
            const int side = beamSide(x, y);
            if (side > 0) {
                EXPECT_GT(open.at(x, y, 0), 0.005f) << "pixel " << x << " " << y << " inside the cone";
                EXPECT_EQ(open.at(x, y, specular), 0.0f) << "pixel " << x << " " << y << " in the specular pass";
            } else if (side < 0) {
                EXPECT_EQ(open.at(x, y, 0), 0.0f) << "pixel " << x << " " << y << " outside the cone";
            }
            lit += side > 0;
            dark += side < 0;
        }
    EXPECT_GT(lit, 30);
    EXPECT_GT(dark, 100);
    for (int strength : {1, 2}) {
        SCOPED_TRACE(strength);
        const std::string attributes = ", \"useRayTraceShadows\": true, \"volumeShadowSamples\": 8, \"fogShadowIntensity\": " +
                                       std::to_string(strength);
        const TtestImage shaded = renderBeam(dir, attributes, plateNodes);
        ASSERT_EQ(shaded.width, kSize);
        const double kept = 1 - std::min(1.0, 0.5 * strength);
        int below = 0;
        for (int y = 0; y < kSize; ++y)
            for (int x = 0; x < kSize; ++x) {
                if (beamSide(x, y) <= 0) continue;
                const double height = -across(y), margin = kViewWidth / kSize;
                if (std::fabs(height - plate) < margin) continue;
                const double expected = open.at(x, y, 0) * (height < plate ? kept : 1.0);
                below += height < plate;
                EXPECT_NEAR(shaded.at(x, y, 0), expected, 0.01 * open.at(x, y, 0) + 1e-6) << "pixel " << x << " " << y;
            }
        EXPECT_GT(below, 10);
    }
}
