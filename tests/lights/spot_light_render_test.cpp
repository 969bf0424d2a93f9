// A spot light through the road users take: a scene file rendered by
// `shadenet render`, read back and compared at every pixel centre with the
// closed form of N.L times the cone's ramp and dropoff.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <string>

#include "support/scene_render.h"

namespace {
constexpr double kDeg = 3.14159265358979323846 / 180;
constexpr int kSize = 80;            // pixels, square
constexpr double kViewWidth = 8;     // scene units across the orthographic view
constexpr double kPixel = kViewWidth / kSize;

struct Tspot {
    double height, cone, penumbra, dropoff;  // angles in degrees
};

// A white Lambert floor at y = 0, the spot straight above it looking down,
// and an orthographic camera looking down, one box-filtered sample a pixel.
std::string sceneFor(const Tspot& s) {
    char text[2048];
    std::snprintf(text, sizeof text, R"({
  "nodes": [
    {"type": "transform", "name": "camXf", "attributes": {"translate": [0, 10, 0], "rotate": [-90, 0, 0]}},
    {"type": "camera", "name": "cam", "parent": "camXf", "attributes": {"orthographic": true, "orthographicWidth": %g}},
    {"type": "renderQuality", "name": "defaultRenderQuality", "attributes": {"pixelFilterType": "kBoxPixelFilter", "pixelFilterWidthX": 1}},
    {"type": "plane", "name": "floor", "attributes": {"width": 20, "height": 20}},
    {"type": "lambert", "name": "mat", "attributes": {"color": [1, 1, 1], "diffuse": 1}},
    {"type": "shadingEngine", "name": "matSG", "members": ["|floor"]},
    {"type": "transform", "name": "spotXf", "attributes": {"translate": [0, %g, 0], "rotate": [-90, 0, 0]}},
    {"type": "spotLight", "name": "spot", "parent": "spotXf",
     "attributes": {"coneAngle": %.9g, "penumbraAngle": %.9g, "dropoff": %g}}
  ],
  "connections": [["mat.outColor", "matSG.surfaceShader"]]
})",
                  kViewWidth, s.height, s.cone * kDeg, s.penumbra * kDeg, s.dropoff);
    return text;
}

// Distance on the floor from below the light to the centre of pixel (x, y).
double floorRadius(int x, int y) {
    double u = (x + 0.5) * kPixel - kViewWidth / 2, v = (y + 0.5) * kPixel - kViewWidth / 2;
    return std::hypot(u, v);
}
}  // namespace

TEST(SpotLightRender, PixelsFollowTheConeOnAFloorBelow) {
    const Tspot spots[] = {{4, 40, 0, 0}, {3, 60, 8, 3}, {5, 50, -10, 0}, {2.5, 70, 15, 1}};
    TtestTempDir dir;
    for (const Tspot& s : spots) {
        SCOPED_TRACE(std::to_string(s.cone) + " " + std::to_string(s.penumbra));
        const std::string size = std::to_string(kSize);
        TsceneRender r = renderSceneFile(dir, "spot", sceneFor(s), {"-q", "--threads", "1", "--spp", "1", "--resolution", size, size});
        ASSERT_EQ(r.run.status, 0) << r.run.err;
        const TtestImage& rendered = r.image;
        ASSERT_EQ(rendered.width, kSize);
        ASSERT_EQ(rendered.height, kSize);

        const double half = s.cone / 2, outer = (half + std::max(s.penumbra, 0.0)) * kDeg,
                     inner = (half + std::min(s.penumbra, 0.0)) * kDeg;
        double litRadius = 0;
        int inRamp = 0;
        for (int y = 0; y < kSize; ++y)
            for (int x = 0; x < kSize; ++x) {
                double r = floorRadius(x, y), theta = std::atan2(r, s.height);
                double c = std::cos(theta), co = std::cos(outer), ci = std::cos(inner);
                // Within a hair of a sharp edge the sample may fall either way.
                if (std::fabs(theta - outer) < 3e-4) continue;
                double ramp = c >= ci ? 1 : c <= co ? 0 : (c - co) / (ci - co);
                double want = c * std::pow(c, s.dropoff) * ramp;  // N.L is the cosine to the axis here
                float got = rendered.at(x, y);
                EXPECT_NEAR(got, want, 2e-3) << "pixel " << x << ", " << y;
                if (got > 0) litRadius = std::max(litRadius, r);
                inRamp += ramp > 0.05 && ramp < 0.95;
            }
        // The lit disc ends at h tan(outer) within a pixel.
        double edge = s.height * std::tan(outer);
        EXPECT_LE(litRadius, edge + 1e-3);
        EXPECT_GT(litRadius, edge - kPixel);
        if (s.penumbra != 0) {
            EXPECT_GT(inRamp, 50) << "pixels across the penumbra";
        }
    }
}
