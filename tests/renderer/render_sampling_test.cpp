// How camera samples become pixels: each sample keeps its own lighting
// whatever the tiles and batches, and shadow edges are antialiased like
// geometry edges.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>

#include "renderer/render_fixture.h"

namespace {
constexpr int kSide = 40;
constexpr float kViewWidth = 4.0f;  // orthographic, centred on the camera at z = 5

// World x, y of a raster position (pixels from the top left).
float worldX(float x) { return (2 * x / kSide - 1) * kViewWidth / 2; }
float worldY(float y) { return (1 - 2 * y / kSide) * kViewWidth / 2; }

// A white Lambert sphere (diffuse 1) of radius 1 at kCentre, covering part of
// the view, and a point light at kLamp with quadratic decay.
const T3Float kCentre(0.4f, -0.3f, 0.0f);
const T3Float kLamp(2.5f, 2.0f, 2.5f);
constexpr float kIntensity = 6.0f;

std::string litSphereScene() {
    char text[1024];
    std::snprintf(text, sizeof text,
                  R"({"type": "transform", "name": "ballXf", "attributes": {"translate": [%g, %g, %g]}},
                     {"type": "sphere", "name": "ball", "parent": "ballXf"},
                     {"type": "lambert", "name": "white", "attributes": {"color": [1, 1, 1], "diffuse": 1}},
                     {"type": "shadingEngine", "name": "whiteSG", "members": ["|ballXf|ball"]},
                     {"type": "transform", "name": "lampXf", "attributes": {"translate": [%g, %g, %g]}},
                     {"type": "pointLight", "name": "lamp", "parent": "lampXf", "attributes": {"intensity": %g, "decayRate": 2}}, )",
                  kCentre.x, kCentre.y, kCentre.z, kLamp.x, kLamp.y, kLamp.z, kIntensity);
    return sceneText(std::string(text) + kBoxFilter, R"(["white.outColor", "whiteSG.surfaceShader"])", orthoCamera(4));
}

// I N.L / d^2 where the view ray through world (x, y) meets the sphere;
// negative off the sphere.
float closedForm(float x, float y) {
    float dx = x - kCentre.x, dy = y - kCentre.y, r2 = dx * dx + dy * dy;
    if (r2 >= 1) return -1;
    T3Float n(dx, dy, std::sqrt(1 - r2));
    T3Float toLight = kLamp - (kCentre + n);
    float d = length(toLight);
    return kIntensity * std::max(0.0f, dot(n, toLight) / d) / (d * d);
}

TrenderOptions ortho(int spp, int tileSize) {
    TrenderOptions o;
    o.width = o.height = kSide, o.samplesPerPixel = spp, o.tileSize = tileSize, o.threads = 1;
    return o;
}

}  // namespace

// Every sphere pixel against the closed form: at 1 spp the pixel is its
// centre's value; at 4 spp an average of points inside the pixel, so it lies
// between the least and the greatest value over the pixel. Tiles of 7 and 12
// split 40 unevenly, so pixels, tiles and batches of 64 never line up.
TEST(RenderSampling, EverySpherePixelHasItsOwnLighting) {
    struct Case {
        int spp, tileSize;
    };
    for (const Case& c : {Case{1, 7}, Case{1, 12}, Case{4, 7}, Case{4, 12}}) {
        SCOPED_TRACE(testing::Message() << c.spp << " spp, tiles of " << c.tileSize);
        TrenderRun run = renderText(litSphereScene(), ortho(c.spp, c.tileSize));
        ASSERT_TRUE(run.ok) << run.error;
        int checked = 0, wrong = 0;
        for (int py = 0; py < kSide; ++py)
            for (int px = 0; px < kSide; ++px) {
                float got = run.image.pixel(px, py)[0];
                if (c.spp == 1) {
                    float expected = closedForm(worldX(px + 0.5f), worldY(py + 0.5f));
                    if (expected < 0) continue;
                    ++checked;
                    if (std::fabs(got - expected) > 1e-3f) {
                        ++wrong;
                        ADD_FAILURE() << "pixel " << px << "," << py << ": " << got << ", closed form " << expected;
                    }
                    continue;
                }
                // Over a fine grid of the pixel; skip pixels the silhouette crosses.
                constexpr int kGrid = 16;
                float lo = 1e30f, hi = -1e30f;
                bool inside = true;
                for (int j = 0; j <= kGrid && inside; ++j)
                    for (int i = 0; i <= kGrid && inside; ++i) {
                        float v = closedForm(worldX(px + float(i) / kGrid), worldY(py + float(j) / kGrid));
                        inside = v >= 0;
                        lo = std::min(lo, v), hi = std::max(hi, v);
                    }
                if (!inside) continue;
                ++checked;
                if (got < lo - 1e-3f || got > hi + 1e-3f) {
                    ++wrong;
                    ADD_FAILURE() << "pixel " << px << "," << py << ": " << got << " outside [" << lo << ", " << hi << "]";
                }
            }
        EXPECT_GT(checked, 250);  // the sphere covers part of the view: about a fifth
        EXPECT_EQ(wrong, 0);
    }
}

namespace {
// A white floor facing the camera and a directional light behind the
// camera. An unseen square at z = 1 shadows the floor left of a straight
// edge about x = -1; a black card that casts no shadow covers it right of
// an edge about x = +1. Both squares are turned 17 degrees in their plane,
// so each edge slants across all rows.
std::string edgeScene() {
    return sceneText(
        R"({"type": "transform", "name": "floorXf", "attributes": {"rotate": [90, 0, 0]}},
           {"type": "plane", "name": "floor", "parent": "floorXf", "attributes": {"width": 20, "height": 20}},
           {"type": "lambert", "name": "grey", "attributes": {"color": [1, 1, 1], "diffuse": 1}},
           {"type": "shadingEngine", "name": "greySG", "members": ["|floorXf|floor"]},
           {"type": "transform", "name": "blockXf", "attributes": {"translate": [-6.23, 0, 1], "rotate": [90, 0, 0]}},
           {"type": "transform", "name": "blockTurn", "parent": "blockXf", "attributes": {"rotate": [0, 17, 0]}},
           {"type": "plane", "name": "block", "parent": "blockTurn", "attributes": {"width": 10, "height": 10, "primaryVisibility": false}},
           {"type": "transform", "name": "cardXf", "attributes": {"translate": [6.23, 0, 2], "rotate": [90, 0, 0]}},
           {"type": "transform", "name": "cardTurn", "parent": "cardXf", "attributes": {"rotate": [0, 17, 0]}},
           {"type": "plane", "name": "card", "parent": "cardTurn", "attributes": {"width": 10, "height": 10, "castsShadows": false}},
           {"type": "lambert", "name": "black", "attributes": {"color": [0, 0, 0]}},
           {"type": "shadingEngine", "name": "blackSG", "members": ["|cardXf|cardTurn|card", "|blockXf|blockTurn|block"]},
           {"type": "transform", "name": "sunXf"},
           {"type": "directionalLight", "name": "sun", "parent": "sunXf", "attributes": {"useRayTraceShadows": true}}, )" +
            std::string(kBoxFilter),
        R"(["grey.outColor", "greySG.surfaceShader"], ["black.outColor", "blackSG.surfaceShader"])", orthoCamera(4));
}

// Pixels strictly between 0 and the floor's lit value in the columns
// [x0, x1): the steps of an edge that crosses them.
int intermediatePixels(const TframeBuffer& image, int x0, int x1, float lit) {
    int n = 0;
    for (int y = 0; y < image.height(); ++y)
        for (int x = x0; x < x1; ++x) {
            float v = image.pixel(x, y)[0];
            n += v > 0.02f * lit && v < 0.98f * lit;
        }
    return n;
}
}  // namespace

// The left half of the image holds a shadow edge, the right half a geometry
// edge of the same slant. At 16 spp both cross about one pixel per row, and
// each such pixel is partly covered: the shadow edge must show as many
// intermediate values as the geometry edge, not stair steps.
TEST(RenderSampling, ShadowEdgesAreAntialiasedLikeGeometryEdges) {
    TrenderRun run = renderText(edgeScene(), ortho(16, 16));
    ASSERT_TRUE(run.ok) << run.error;
    // The floor in the open faces the light: cosine 1, white, diffuse 1.
    const float lit = run.image.pixel(kSide / 2, kSide / 2)[0];
    ASSERT_NEAR(lit, 1.0f, 1e-3f);
    int shadow = intermediatePixels(run.image, 0, kSide / 2, lit);
    int geometry = intermediatePixels(run.image, kSide / 2, kSide, lit);
    // Both edges cross all 40 rows.
    EXPECT_GE(geometry, kSide * 3 / 4);
    EXPECT_GE(shadow, geometry * 3 / 4) << "shadow edge " << shadow << " intermediate pixels, geometry edge " << geometry;
}
