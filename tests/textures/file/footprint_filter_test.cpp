// The footprint filter: the exact polynomial integral against slicing
// quadrature, the clip against the filter square, the record constants, and
// whole lookups against brute-force supersampling of the texels.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <random>
#include <vector>

#include "textures/file_texture.h"
#include "textures/footprint_filter.h"
#include "textures/pyramid/file_texture_cache.h"
#include "textures/pyramid/file_texture_wrapper.h"
#include "textures/pyramid/pyramid.h"
#include "../pyramid/pyramid_test_support.h"

namespace {

constexpr int kKinds[] = {kFilterBox, kFilterQuadratic, kFilterQuartic, kFilterGaussian};

// A random convex polygon: 3 to 8 points on an ellipse, in angle order.
std::vector<T2Float> randomConvex(std::mt19937& rng, float scale) {
    std::uniform_real_distribution<float> unit(0, 1);
    const int n = 3 + int(rng() % 6);
    std::vector<float> angles(static_cast<size_t>(n));
    for (float& a : angles) a = unit(rng) * 6.2831853f;
    std::sort(angles.begin(), angles.end());
    const float cx = (unit(rng) - 0.5f) * scale, cy = (unit(rng) - 0.5f) * scale;
    const float rx = scale * (0.2f + unit(rng)), ry = scale * (0.2f + unit(rng));
    std::vector<T2Float> p;
    for (float a : angles) p.push_back({cx + rx * std::cos(a), cy + ry * std::sin(a)});
    if (rng() % 2) std::reverse(p.begin(), p.end());  // either orientation
    return p;
}

// The integral by slices: composite Simpson across x between the vertices'
// x values, each slice integrated along y by Simpson between the polygon's
// lower and upper edges. Nothing shared with the fan and cubature.
double sliceIntegral(const TfilterRecord& f, const std::vector<T2Float>& poly) {
    std::vector<double> xs;
    for (const T2Float& p : poly) xs.push_back(p.x);
    std::sort(xs.begin(), xs.end());
    auto span = [&](double x, double& lo, double& hi) {
        lo = 1e30, hi = -1e30;
        const size_t n = poly.size();
        for (size_t i = 0; i < n; ++i) {
            const T2Float& a = poly[i];
            const T2Float& b = poly[(i + 1) % n];
            const double x0 = std::min(a.x, b.x), x1 = std::max(a.x, b.x);
            if (x < x0 || x > x1 || x1 == x0) continue;
            const double y = a.y + (b.y - a.y) * (x - a.x) / (double(b.x) - a.x);
            lo = std::min(lo, y), hi = std::max(hi, y);
        }
        return hi > lo;
    };
    auto column = [&](double x) {
        double lo, hi;
        if (!span(x, lo, hi)) return 0.0;
        const int m = 64;
        double sum = 0, h = (hi - lo) / m;
        for (int k = 0; k <= m; ++k) {
            const double y = lo + k * h, r2 = x * x + y * y;
            const double value = 1 + r2 * (f.c1 + r2 * (f.c2 + r2 * f.c3));
            sum += value * ((k == 0 || k == m) ? 1 : (k % 2 ? 4 : 2));
        }
        return sum * h / 3;
    };
    double total = 0;
    for (size_t s = 0; s + 1 < xs.size(); ++s) {
        const double a = xs[s], b = xs[s + 1];
        if (b - a < 1e-12) continue;
        const int m = 256;
        const double h = (b - a) / m;
        double sum = 0;
        for (int k = 0; k <= m; ++k) {
            // Nudged inwards at the ends, where a slice may have no height.
            const double x = std::clamp(a + k * h, a + 1e-9 * (b - a), b - 1e-9 * (b - a));
            sum += column(x) * ((k == 0 || k == m) ? 1 : (k % 2 ? 4 : 2));
        }
        total += sum * h / 3;
    }
    return total;
}

std::vector<T2Float> square(float cx, float cy, float half) {
    return {{cx - half, cy - half}, {cx + half, cy - half}, {cx + half, cy + half}, {cx - half, cy + half}};
}

}  // namespace

TEST(FootprintFilter, IntAreaIsTheExactIntegralOverConvexPolygons) {
    std::mt19937 rng(17);
    for (int kind : kKinds)
        for (float width : {0.35f, 0.707f, 1.05f}) {
            const TfilterRecord f = makeFilterRecord(kind, width);
            for (int trial = 0; trial < 25; ++trial) {
                const std::vector<T2Float> poly = randomConvex(rng, filterHalfSide(f) * 1.5f);
                const double exact = intArea(f, int(poly.size()), poly.data());
                const double reference = sliceIntegral(f, poly);
                SCOPED_TRACE(testing::Message() << "kind " << kind << " width " << width << " trial " << trial);
                EXPECT_LT(std::fabs(exact - reference), 1e-4 * std::fabs(reference));
            }
        }
}

TEST(FootprintFilter, RecordConstantsStayFiniteAndWeightsPositiveAcrossTheWidthRange) {
    for (int kind : kKinds)
        for (float width : {0.35f, 1.05f}) {
            const TfilterRecord f = makeFilterRecord(kind, width);
            SCOPED_TRACE(testing::Message() << "kind " << kind << " width " << width);
            for (float c : {f.width, f.innerRadius, f.outerRadius}) EXPECT_TRUE(std::isfinite(c));
            // Over the whole square, corners included, the filter weighs positively.
            const float h = filterHalfSide(f);
            for (float x = -h; x <= h * 1.0001f; x += h / 16)
                for (float y = -h; y <= h * 1.0001f; y += h / 16) EXPECT_GT(filterValue(f, x * x + y * y), 0.0f);
        }
    // The Gaussian's polynomial follows exp(-r^2 / (2 sigma^2)) over its square.
    for (float width : {0.35f, 0.707f, 1.05f}) {
        const TfilterRecord f = makeFilterRecord(kFilterGaussian, width);
        const float sigma = width / 2, h = filterHalfSide(f);
        float worst = 0;
        for (float r2 = 0; r2 <= 2 * h * h; r2 += h * h / 64)
            worst = std::max(worst, std::fabs(filterValue(f, r2) - std::exp(-r2 / (2 * sigma * sigma))));
        EXPECT_LT(worst, 0.01f) << width;
    }
    // The table's quadratic row at v = 0.25.
    const TfilterRecord q = makeFilterRecord(kFilterQuadratic, 0.5f);
    EXPECT_NEAR(q.c1, 0.13353305908064206 / 0.0625, 1e-5);
    EXPECT_NEAR(q.innerRadius, 0.25 * 1.6757963290210718, 1e-6);
    EXPECT_NEAR(q.outerRadius, q.innerRadius * 1.5, 1e-6);
}

TEST(FootprintFilter, GetWeightClipsToTheFilterSquare) {
    // Box: the weight is the overlap area with the pixel [-0.5, 0.5]^2.
    const TfilterRecord box = makeFilterRecord(kFilterBox, 0.707f);
    struct Tcase {
        const char* what;
        float cx, cy, half, area;
    } cases[] = {
        {"inside", 0.1f, -0.1f, 0.2f, 0.16f},      {"cut by the left edge", -0.5f, 0, 0.2f, 0.08f},
        {"cut by the right edge", 0.5f, 0, 0.2f, 0.08f}, {"cut by the bottom edge", 0, -0.5f, 0.2f, 0.08f},
        {"cut by the top edge", 0, 0.5f, 0.2f, 0.08f},    {"over a corner", 0.5f, 0.5f, 0.2f, 0.04f},
        {"around the square", 0, 0, 3.0f, 1.0f},          {"beyond the left edge", -0.8f, 0, 0.2f, 0},
        {"beyond the right edge", 0.8f, 0, 0.2f, 0},      {"beyond the bottom edge", 0, -0.8f, 0.2f, 0},
        {"beyond the top edge", 0, 0.8f, 0.2f, 0},
    };
    for (const Tcase& c : cases) {
        const std::vector<T2Float> s = square(c.cx, c.cy, c.half);
        EXPECT_NEAR(getWeight(box, 4, s.data()), c.area, 1e-6) << c.what;
    }
    // A polynomial kind: the clipped integral equals the slices of the
    // polygon cut to the square by hand.
    const TfilterRecord quartic = makeFilterRecord(kFilterQuartic, 0.9f);
    const float h = filterHalfSide(quartic);
    for (const Tcase& c : cases) {
        const float cx = c.cx * 2 * h, cy = c.cy * 2 * h, half = c.half * 2 * h;
        const float x0 = std::max(cx - half, -h), x1 = std::min(cx + half, h);
        const float y0 = std::max(cy - half, -h), y1 = std::min(cy + half, h);
        const double expected = (x1 > x0 && y1 > y0) ? sliceIntegral(quartic, {{x0, y0}, {x1, y0}, {x1, y1}, {x0, y1}}) : 0.0;
        const std::vector<T2Float> s = square(cx, cy, half);
        EXPECT_NEAR(getWeight(quartic, 4, s.data()), expected, 1e-4 * std::max(1.0, expected)) << c.what;
    }
}

namespace {

// A square image on a triangle pair facing an orthographic or perspective
// camera, and brute-force references.
struct TfootprintScene {
    TpixelMap image;
    std::unique_ptr<TpyramidNonSwatch> pyramid;
    TfileTextureCache cache;
    TfileTextureWrapper wrapper;

    explicit TfootprintScene(const TpixelMap& map) : image(map) {
        pyramid = buildPyramid(map);
        pyramid->resetCacheFlags(1);
        wrapper.pyramid = pyramid.get();
        wrapper.cache = &cache;
    }
    // Texel (x, y) of the top level, rows upwards.
    float texel(int x, int y, int c) const {
        x = (x % image.width() + image.width()) % image.width();
        y = (y % image.height() + image.height()) % image.height();
        return image.getPixel(x, image.height() - 1 - y, c);
    }
};

// A triangle with the unit UV corners (0, 0), (1, 0), (0, 1).
TfootprintTriangle unitUvTriangle(const T3Float& a, const T3Float& b, const T3Float& c) {
    TfootprintTriangle t;
    t.camera[0] = a, t.camera[1] = b, t.camera[2] = c;
    t.uv[0] = {0, 0}, t.uv[1] = {1, 0}, t.uv[2] = {0, 1};
    return t;
}

TcameraInfoWrapper cameraOf(bool perspective, float scale, float centre) {
    TcameraInfoWrapper c;
    c.perspective = perspective;
    c.scale = scale;
    c.centreX = c.centreY = centre;
    return c;
}

TfootprintQuery queryAt(const TfootprintTriangle& t, T2Float pixel, const TplaneMap& map, const TcameraInfoWrapper& cam) {
    TfootprintQuery q;
    q.triangle = t;
    q.pixelCenter = pixel;
    q.blurPixelation = false;
    const float sx = (pixel.x - cam.centreX) * cam.scale, sy = (pixel.y - cam.centreY) * cam.scale;
    T3Float p;
    if (cam.perspective) {
        const float tt = map.d / (map.a * sx + map.b * sy - map.c);
        p = T3Float(sx, sy, -1) * tt;
    } else {
        p = T3Float(sx, sy, (map.d - map.a * sx - map.b * sy) / map.c);
    }
    q.uv = {map.u[0] * p.x + map.u[1] * p.y + map.u[2] * p.z + map.u[3],
            map.v[0] * p.x + map.v[1] * p.y + map.v[2] * p.z + map.v[3]};
    return q;
}

}  // namespace

// With a box filter at the image's own level, the result is the mean of the
// box-shaped texels over the pixel: brute-force supersampling of the pixel,
// each point through the camera and the plane to its texel, is the reference.
// A tilted plane under a perspective camera exercises the projective map.
TEST(FootprintFilter, BoxFilterAtTheTopLevelIsThePixelMeanOfTheTexels) {
    TfootprintScene scene(noiseImage(32, 32, 3, 5));
    const TcameraInfoWrapper cam = cameraOf(true, 0.01f, 50);
    // A plane tilted away, its UV square spanning a few world units.
    const TfootprintTriangle t = unitUvTriangle({-1, -1, -3}, {1, -1, -4}, {-1, 1, -3.5f});
    TplaneMap map;
    ASSERT_TRUE(initTextureTransfMaps(t, map));
    const TfilterRecord box = makeFilterRecord(kFilterBox, 0.707f);
    auto uvOf = [&](float px, float py) {
        return queryAt(t, {px, py}, map, cam).uv;
    };
    for (T2Float pixel : {T2Float{50.5f, 50.5f}, T2Float{41.5f, 62.5f}, T2Float{58.5f, 38.5f}}) {
        TfootprintQuery q = queryAt(t, pixel, map, cam);
        q.filter = 0.01f;  // keeps the footprint at the image's own level
        T3Float colour;
        float alpha;
        ASSERT_EQ(filterFootprint(scene.wrapper, box, cam, q, colour, alpha), TfootprintResult::kFiltered);
        const int n = 400;
        double sum[3] = {0, 0, 0};
        for (int j = 0; j < n; ++j)
            for (int i = 0; i < n; ++i) {
                const T2Float uv = uvOf(pixel.x - 0.5f + (i + 0.5f) / n, pixel.y - 0.5f + (j + 0.5f) / n);
                // Texel k covers [k - 0.5, k + 0.5) in u * side.
                const int x = int(std::floor(uv.x * 32 + 0.5f)), y = int(std::floor(uv.y * 32 + 0.5f));
                for (int c = 0; c < 3; ++c) sum[c] += scene.texel(x, y, c);
            }
        for (int c = 0; c < 3; ++c) EXPECT_NEAR(colour[c], sum[c] / (n * n), 0.6) << pixel.x << " " << pixel.y << " " << c;
    }
}

TEST(FootprintFilter, EdgeCasesTakeTheirOwnRoads) {
    TfootprintScene scene(photoLikeImage(64, 64, 3, 9));
    const TcameraInfoWrapper ortho = cameraOf(false, 1.0f / 64, 32);  // one texel of the top level per pixel
    const TfootprintTriangle t = unitUvTriangle({-0.5f, -0.5f, -2}, {0.5f, -0.5f, -2}, {-0.5f, 0.5f, -2});
    TplaneMap map;
    ASSERT_TRUE(initTextureTransfMaps(t, map));
    const TfilterRecord filter = makeFilterRecord(kFilterQuadratic, 0.707f);
    T3Float colour;
    float alpha;

    // A degenerate triangle has no plane: the caller's mip road.
    TfootprintTriangle flat = t;
    flat.camera[2] = flat.camera[0] * 0.5f + flat.camera[1] * 0.5f;
    TplaneMap unused;
    EXPECT_FALSE(initTextureTransfMaps(flat, unused));
    TfootprintQuery q = queryAt(t, {10.5f, 20.5f}, map, ortho);
    q.triangle = flat;
    EXPECT_EQ(filterFootprint(scene.wrapper, filter, ortho, q, colour, alpha), TfootprintResult::kFallback);
    // So does a triangle whose UVs have no area.
    q.triangle = t;
    q.triangle.uv[2] = {0.5f, 0};
    EXPECT_EQ(filterFootprint(scene.wrapper, filter, ortho, q, colour, alpha), TfootprintResult::kFallback);

    // A footprint larger than the texture gives the mean of the image: the
    // 1 by 1 level.
    TcameraInfoWrapper wide = ortho;
    wide.scale = 2.0f;  // one pixel spans two repeats
    q = queryAt(t, {32.5f, 32.5f}, map, wide);
    ASSERT_EQ(filterFootprint(scene.wrapper, filter, wide, q, colour, alpha), TfootprintResult::kFiltered);
    const uint8_t* top = scene.pyramid->texel(scene.cache, 0, 0, 0);
    double mean = 0;
    for (int y = 0; y < 64; ++y)
        for (int x = 0; x < 64; ++x) mean += scene.image.getPixel(x, y, 1);
    mean /= 64 * 64;
    EXPECT_NEAR(colour.y, top[1], 1e-3);
    EXPECT_NEAR(colour.y, mean, 1.5);

    // A magnified texture with blurPixelation reads the bilinear value at the
    // sample's UV.
    TcameraInfoWrapper close = ortho;
    close.scale = 1.0f / 640;  // a tenth of a texel per pixel
    q = queryAt(t, {30.5f, 40.5f}, map, close);
    q.blurPixelation = true;
    ASSERT_EQ(filterFootprint(scene.wrapper, filter, close, q, colour, alpha), TfootprintResult::kFiltered);
    T3Float bilinear;
    float bilinearAlpha;
    scene.pyramid->levelCol(scene.wrapper, scene.pyramid->getMaxLevel(), q.uv.x, q.uv.y, bilinear, bilinearAlpha);
    for (int c = 0; c < 3; ++c) EXPECT_FLOAT_EQ(colour[c], bilinear[c]);
}

// Bump heights on a ramp that rises along u: the tent kernel keeps a linear
// ramp exact, so the height is the ramp at the UV and the steps of the three
// bump points differ by the slope times the step.
TEST(FileTextureBump, HeightsFollowALinearRampExactly) {
    TpixelMap ramp(64, 64, 1);
    for (int y = 0; y < 64; ++y)
        for (int x = 0; x < 64; ++x) ramp.setPixel(x, y, 0, uint8_t(40 + 2 * x));
    TfootprintScene scene(ramp);
    for (T2Float uv : {T2Float{0.3f, 0.4f}, T2Float{0.55f, 0.8f}}) {
        for (T2Float size : {T2Float{0.001f, 0.001f}, T2Float{0.05f, 0.02f}}) {
            T2Float points[3];
            TdnFileTexture::getBumpValues(*scene.pyramid, uv, size, points);
            EXPECT_EQ(points[0].x, uv.x);
            EXPECT_NEAR(points[1].x - uv.x, std::max(size.x, 1.0f / 64), 1e-6);
            EXPECT_NEAR(points[2].y - uv.y, std::max(size.y, 1.0f / 64), 1e-6);
            // At the top level the ramp is 40 + 2 x with pixel x at u * 64.
            const float h0 = TdnFileTexture::getBumpHeight(scene.wrapper, points[0], 0.0f);
            const float hu = TdnFileTexture::getBumpHeight(scene.wrapper, points[1], 0.0f);
            const float hv = TdnFileTexture::getBumpHeight(scene.wrapper, points[2], 0.0f);
            EXPECT_NEAR(h0, (40 + 2 * 64 * uv.x) / 255, 1e-4);
            EXPECT_NEAR(hu - h0, 2 * 64 * (points[1].x - uv.x) / 255, 1e-4);
            EXPECT_NEAR(hv, h0, 1e-4);
        }
    }
}
