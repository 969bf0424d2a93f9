// The area light's callbacks against independent references: the form
// factor by brute-force quadrature over the quad, ray/triangle hits and a
// sampled nearest edge point for the highlight direction; its polygon and
// record through the host graph; its soft shadows against the exact visible
// fraction of the light behind a straight edge.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "lights/area_light.h"
#include "lights/form_factor.h"
#include "lights/light_at_point.h"
#include "lights/light_fixture.h"
#include "support/expect_near.h"

namespace {

constexpr double kPi = 3.14159265358979323846;

void place(TareaLightShape& light, const Tparallelogram& q) {
    T4dFltPoint corners[4];
    for (int i = 0; i < 4; ++i) corners[i] = asPoint4(q.v[i]);
    light.setPolygon(corners, 4);
}

struct TareaScene {
    TdependGraph graph;
    TareaLightShape* light = static_cast<TareaLightShape*>(graph.createNode("areaLight", "panel"));
};

// The light's queries at a point, in one place for the tables below.
struct Tanswers {
    float irradiance, fromOutside, attenuation, coverage;
};
Tanswers ask(TareaLightShape& light, const T3Float& p, const T3Float& n) {
    T4dFltVector any{0, 1, 0, 0};
    return {light.integrateLambertianReflectance(any, asPoint4(p), asVector4(n), true),
            light.integrateLambertianReflectance(any, asPoint4(p), asVector4(n), false),
            light.lightAttenuation(asPoint4(p), asVector4(n), false), light.hemisphereCoverage(any, asPoint4(p), asVector4(n), true)};
}

void expectNothing(const Tanswers& a) {
    EXPECT_EQ(a.irradiance, 0.0f);
    EXPECT_EQ(a.fromOutside, 0.0f);
    EXPECT_EQ(a.attenuation, 0.0f);
    EXPECT_EQ(a.coverage, 0.0f);
}

const Tparallelogram kPanel({0.3f, 1.5f, -4.0f}, {1.8f, 0.3f, 0.0f}, {-0.2f, 0.5f, 1.2f});

TEST(AreaLight, IrradianceIsTenPiTimesTheFormFactor) {
    struct Case {
        const char* name;
        T3Float offset;  // from the centre, in (e1, e2, front) units
        T3Float normal;  // in (e1, e2, front) units; normalised
    };
    const Case cases[] = {
        {"below the centre, facing it", {0, 0, 1.0f}, {0, 0, -1}},
        {"below the centre, tilted", {0, 0, 1.0f}, {0.4f, -0.3f, -1}},
        {"far below, facing up", {0.2f, 0.1f, 6.0f}, {0, 0, -1}},
        {"under a corner, close", {0.45f, 0.45f, 0.2f}, {0, 0, -1}},
        {"beside an edge, a little in front", {0.9f, 0, 0.3f}, {-1, 0, -0.5f}},
        {"beside, facing along the light", {-1.2f, 0.3f, 0.5f}, {1, 0, 0}},
        {"the horizon cuts the light", {0.3f, 0, 1.0f}, {1, 0, -0.2f}},
        {"facing away", {0, 0, 1.5f}, {0, 0, 1}},
    };
    TareaScene scene;
    place(*scene.light, kPanel);
    const T3Float side1 = normalize(kPanel.e1), side2 = normalize(cross(kPanel.front, side1));
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        T3Float p = kPanel.centre + kPanel.e1 * c.offset.x + kPanel.e2 * c.offset.y + kPanel.front * c.offset.z;
        T3Float n = normalize(side1 * c.normal.x + side2 * c.normal.y + kPanel.front * c.normal.z);
        double expected = quadratureIrradiance(kPanel, p, n);
        Tanswers a = ask(*scene.light, p, n);
        EXPECT_NEAR(a.irradiance, expected, 2e-4 * std::max(1.0, std::fabs(expected)));
        // Relations between the four queries at the same point.
        EXPECT_NEAR(a.coverage, a.irradiance / 6.2831855f, 1e-6f);
        bool allCornersBelow = true;
        for (const T3Float& v : kPanel.v) allCornersBelow = allCornersBelow && dot(v - p, n) < 0;
        EXPECT_EQ(a.fromOutside, allCornersBelow ? 0.0f : a.irradiance);
        EXPECT_EQ(a.attenuation, std::fabs(a.fromOutside));
    }
}

TEST(AreaLight, APointBehindTheLightGetsNothingFromAnyQuery) {
    TareaScene scene;
    place(*scene.light, kPanel);
    const T3Float offsets[] = {{0, 0, -0.5f}, {0.4f, -0.3f, -2}, {2, 1, -0.01f}, {-3, 0, -5}};
    const T3Float normals[] = {{0, 0, 1}, {0, 0, -1}, {1, 0, 0}, {0.3f, 0.8f, -0.5f}};
    for (const T3Float& o : offsets)
        for (const T3Float& nRaw : normals) {
            T3Float p = kPanel.centre + kPanel.e1 * o.x + kPanel.e2 * o.y + kPanel.front * o.z;
            // Turned towards the light as often as away from it.
            T3Float n = normalize(nRaw.z > 0 ? (kPanel.centre - p) : nRaw);
            expectNothing(ask(*scene.light, p, n));
        }
}

TEST(AreaLight, ACornerAtThePointStaysFinite) {
    // A point on a corner of a square, facing it, sees a quarter of the
    // hemisphere in the limit from the front: 10 pi / 4.
    TareaScene scene;
    const Tparallelogram square({0, 0, 0}, {2, 0, 0}, {0, 2, 0});
    place(*scene.light, square);
    struct Case {
        const char* name;
        T3Float shift;
    };
    const Case cases[] = {{"exactly", {0, 0, 0}}, {"within the threshold", {3e-6f, -2e-6f, 0}}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Tanswers a = ask(*scene.light, square.v[0] + c.shift, {0, 0, 1});
        EXPECT_NEAR(a.irradiance, 10 * kPi / 4, 1e-3);
        EXPECT_TRUE(std::isfinite(a.coverage));
        T4dFltVector d = scene.light->maxPhongSpecularDirection({0, 0, 1, 0}, asPoint4(square.v[0] + c.shift), {0, 0, 1, 0},
                                                                {0, 0, 1, 0}, nullptr);
        EXPECT_TRUE(std::isfinite(d.x) && std::isfinite(d.y) && std::isfinite(d.z));
    }
}

TEST(AreaLight, OtherVertexCountsSayWhichLightAndGiveNothing) {
    TareaScene scene;
    for (int count : {3, 0, 5}) {
        SCOPED_TRACE(count);
        T4dFltPoint corners[5] = {{0, 0, 0, 1}, {1, 0, 0, 1}, {1, 1, 0, 1}, {0, 1, 0, 1}, {0.5f, 2, 0, 1}};
        scene.light->setPolygon(corners, count);
        const std::string line = "Can not cope with light panel, has " + std::to_string(count) + " vertices\n";
        const T3Float p(0.5f, 0.5f, -1), n(0, 0, 1);
        testing::internal::CaptureStdout();
        Tanswers a = ask(*scene.light, p, n);
        T4dFltVector d = scene.light->maxPhongSpecularDirection({0.1f, 0.2f, 0.3f, 0}, asPoint4(p), {0, 0, 1, 0}, asVector4(n), nullptr);
        std::string out = testing::internal::GetCapturedStdout();
        expectNothing(a);
        EXPECT_EQ(d.x, 0.1f);  // the record's own direction, untouched
        EXPECT_EQ(d.z, 0.3f);
        std::string five;
        for (int i = 0; i < 5; ++i) five += line;
        EXPECT_EQ(out, five) << "one line per query";
    }
}

TEST(AreaLight, ASegmentIsLitFromItsMiddle) {
    TareaScene scene;
    T4dFltPoint ends[2] = {{-1, 2, 0, 1}, {3, 2, 0, 1}};
    scene.light->setPolygon(ends, 2);
    struct Case {
        T3Float point, normal;
    };
    const Case cases[] = {{{0, 0, 0}, {0, 1, 0}}, {{1, 0, 1}, {0.6f, 0.8f, 0}}, {{4, 5, -1}, {0, 1, 0}}};
    for (const Case& c : cases) {
        T3Float toMiddle = normalize(T3Float(1, 2, 0) - c.point);
        float cosine = dot(toMiddle, c.normal);
        Tanswers a = ask(*scene.light, c.point, c.normal);
        EXPECT_NEAR(a.irradiance, cosine, 1e-5f);
        EXPECT_NEAR(a.attenuation, std::fabs(cosine), 1e-5f);
        EXPECT_NEAR(a.coverage, cosine / 6.2831855f, 1e-6f);
    }
}

// --- the highlight direction

// Möller-Trumbore on the two triangles of the quad: the hit distance or -1.
float rayQuad(const Tparallelogram& q, const T3Float& o, const T3Float& d) {
    const int tris[2][3] = {{0, 1, 2}, {0, 2, 3}};
    for (const auto& t : tris) {
        T3Float a = q.v[t[0]], e1 = q.v[t[1]] - a, e2 = q.v[t[2]] - a;
        T3Float pv = cross(d, e2);
        float det = dot(e1, pv);
        if (std::fabs(det) < 1e-12f) continue;
        T3Float tv = o - a;
        float u = dot(tv, pv) / det;
        T3Float qv = cross(tv, e1);
        float v = dot(d, qv) / det;
        float dist = dot(e2, qv) / det;
        if (u >= 0 && v >= 0 && u + v <= 1 && dist > 0) return dist;
    }
    return -1;
}

// The point of the outline nearest to the ray (t >= 0), by sampling.
T3Float nearestOutlinePoint(const T3Float* v, int count, const T3Float& o, const T3Float& d) {
    T3Float best = v[0];
    double bestDistance = 1e30;
    const int edges = count == 2 ? 1 : count, steps = 20000;
    for (int e = 0; e < edges; ++e)
        for (int s = 0; s <= steps; ++s) {
            T3Float q = v[e] + (v[(e + 1) % count] - v[e]) * (float(s) / float(steps));
            float t = std::max(0.0f, dot(q - o, d));
            T3Float gap = q - (o + d * t);
            if (dot(gap, gap) < bestDistance) bestDistance = dot(gap, gap), best = q;
        }
    return best;
}

TEST(AreaLight, TheHighlightDirectionFollowsTheReflectedRay) {
    TareaScene scene;
    place(*scene.light, kPanel);
    const T3Float p = kPanel.centre + kPanel.front * 2.0f + kPanel.e1 * 0.2f;
    const T3Float toward = normalize(kPanel.centre - p);
    auto highlight = [&](const T3Float& reflection) {
        return asFloat3(scene.light->maxPhongSpecularDirection(asVector4(toward), asPoint4(p), asVector4(reflection), asVector4(toward),
                                                               nullptr));
    };
    struct Case {
        const char* name;
        T3Float reflection;
        bool hits;
    };
    const Case cases[] = {
        {"at the centre", toward, true},
        {"near a corner", normalize(kPanel.v[2] * 0.9f + kPanel.centre * 0.1f - p), true},
        {"just inside an edge", normalize(kPanel.v[0] * 0.52f + kPanel.v[1] * 0.46f + kPanel.centre * 0.02f - p), true},
        {"past an edge", normalize(kPanel.v[1] + kPanel.e1 * 0.3f - p), false},
        {"far off to one side", normalize(toward + kPanel.e2 * 2.0f), false},
        {"along the light's plane", normalize(kPanel.e1), false},
        {"away from the light", toward * -1.0f, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        float dist = rayQuad(kPanel, p, c.reflection);
        ASSERT_EQ(dist > 0, c.hits);
        T3Float expected = c.hits ? c.reflection : normalize(nearestOutlinePoint(kPanel.v, 4, p, c.reflection) - p);
        const T3Float got = highlight(c.reflection);
        EXPECT_NEAR(dot(got, expected), 1.0f, c.hits ? 1e-6f : 1e-5f);
        EXPECT_NEAR(length(got), 1.0f, 1e-5f);
    }
    // A segment: always towards its nearest point.
    T4dFltPoint ends[2] = {asPoint4(kPanel.v[0]), asPoint4(kPanel.v[2])};
    scene.light->setPolygon(ends, 2);
    const T3Float segment[2] = {kPanel.v[0], kPanel.v[2]};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        T3Float expected = normalize(nearestOutlinePoint(segment, 2, p, c.reflection) - p);
        EXPECT_NEAR(dot(highlight(c.reflection), expected), 1.0f, 1e-5f);
    }
}

// --- the polygon and the record through the host graph

TEST(AreaLight, ThePolygonIsTheUnitSquareThroughTheLightAndCameraMatrices) {
    TdependGraph graph;
    auto* light = placeLight<TareaLightShape>(graph, "areaLight", {1, 2, 3}, {-90, 0, 0}, {2, 0.5f, 1});
    const float intensity = 8;
    setValue(light, TlightShape::saIntensity(), intensity);
    light->setRateOfDecay(TnonAmbientLightShape::kQuadratic);
    TrenderLightShape::setWorldToCamera(Tmatrix::translation(0, 0, -5));

    // Turned to face down world -Y: local (x, y) goes to world (2x, 0, -0.5y).
    const T3Float camera(1, 2, -2);  // the centre in camera space
    TlightData d = TlightScene::at(light, camera + T3Float(0.5f, -3, 0.25f));
    TrenderLightShape::setWorldToCamera(Tmatrix());
    ASSERT_EQ(light->vertexCount(), 4);
    const T3Float corners[4] = {{-2, 0, 0.5f}, {2, 0, 0.5f}, {2, 0, -0.5f}, {-2, 0, -0.5f}};
    for (int i = 0; i < 4; ++i) expectNear(asFloat3(light->vertex(i)), camera + corners[i], "corner " + std::to_string(i), 1e-5f);
    // The record: towards the centre, decayed from the centre, the light as blind data.
    T3Float toCentre = T3Float(-0.5f, 3, -0.25f);
    float dist = length(toCentre);
    EXPECT_NEAR(dot(d.lightDirection, toCentre * (1 / dist)), 1.0f, 1e-6f);
    EXPECT_NEAR(d.lightIntensity.x, intensity / (dist * dist), 1e-5f);
    EXPECT_TRUE(d.lightDiffuse);
    EXPECT_TRUE(d.lightSpecular);
    EXPECT_FALSE(d.lightAmbient);
    EXPECT_EQ(d.lightBlindData, static_cast<void*>(static_cast<TlightCallbacks*>(light)));
    // Below the light the callback sees it; above, behind it, it does not.
    auto* callback = static_cast<TlightCallbacks*>(d.lightBlindData);
    EXPECT_GT(callback->integrateLambertianReflectance({}, asPoint4(camera + T3Float(0, -1, 0)), {0, 1, 0, 0}, true), 1.0f);
    EXPECT_EQ(callback->integrateLambertianReflectance({}, asPoint4(camera + T3Float(0, 1, 0)), {0, -1, 0, 0}, true), 0.0f);
}

// --- soft shadows

TEST(AreaLight, SoftShadowsSeeTheVisiblePartOfTheLightToOneStratum) {
    // A light of side `side` at height 4 facing down, an occluder edge at
    // height 1 along x = 0, points on the ground. From a point at x the line
    // over the edge meets the light's plane at x - 4x; the part of the light
    // beyond that is visible. Its strata run across the edge, so all but one
    // are wholly seen or wholly hidden.
    struct Case {
        float side;
        short rays;
    };
    const Case cases[] = {{2, 16}, {2, 64}, {0.5f, 64}, {3, 25}};
    const float hLight = 4, hEdge = 1;
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "side " << c.side << ", " << c.rays << " rays");
        TdependGraph graph;
        auto* light = placeLight<TareaLightShape>(graph, "areaLight", {0, hLight, 0}, {-90, 0, 0}, {c.side / 2, c.side / 2, 1});
        setValue(light, TlightShape::saUseRayTraceShadows(), true);
        setValue(light, TnonExtendedLightShape::saShadowRays(), c.rays);
        ToccluderTracer tracer;  // the edge along x = 0 at height 1
        tracer.axis = 1, tracer.height = hEdge, tracer.x1 = 0;
        TcurrentRaySamplerScope scope(&tracer);
        float worst = 0;
        for (int k = -20; k <= 20; ++k) {
            T3Float p(0.1f * float(k) + 0.013f, 0, 0.37f * float(k % 3));
            // The light's x seen through the edge: points of the light beyond it are visible.
            float through = p.x + (0 - p.x) * hLight / hEdge;
            float visible = std::clamp((c.side / 2 - through) / c.side, 0.0f, 1.0f);
            TlightData d = TlightScene::at(light, p);
            float seen = 1 - d.lightShadowFraction;
            worst = std::max(worst, std::fabs(seen - visible));
            EXPECT_NEAR(d.lightIntensity.x, seen, 1e-5f) << "black shadow colour: the light times what passes";
            // The same point gives the same answer: the rays depend on the point alone.
            EXPECT_EQ(TlightScene::at(light, p).lightShadowFraction, d.lightShadowFraction);
        }
        EXPECT_LE(worst, 1.0f / float(c.rays) + 1e-5f);
    }
}

TEST(AreaLight, TheEngineGivesTheScalarRecordsWithoutTouchingTheHeap) {
    // The light at z = 4 facing down -Z, points on z = 0 behind an edge at z = 1.
    TlitNetwork net;
    auto* light = net.addLight<TareaLightShape>("areaLight", T3Float(0.5f, 0, 4));
    setValue(light, TlightShape::saUseRayTraceShadows(), true);
    setValue(light, TnonExtendedLightShape::saShadowRays(), short(16));
    setValue(light, TlightShape::saIntensity(), 0.3f);
    net.useLights();
    ToccluderTracer tracer;
    tracer.x1 = 0;
    TcurrentRaySamplerScope scope(&tracer);
    std::vector<TsurfaceSample> in(64);
    for (unsigned i = 0; i < in.size(); ++i) {
        float t = float(i) / 63.0f;
        in[i].point = {4 * t - 2, 1 - 2 * t * t, 0};
        in[i].normal = normalize(T3Float(0.5f - t, 0.2f, 1));
    }
    std::vector<TlitNetwork::Result> out = net.shade(in);
    ASSERT_EQ(out.size(), in.size());
    for (unsigned i = 0; i < in.size(); ++i) {
        TlightData d = TlightScene::at(light, in[i].point);
        T3Float expected = d.lightIntensity * std::max(dot(in[i].normal, d.lightDirection), 0.0f);
        EXPECT_NEAR(out[i].color.x, expected.x, 1e-6f) << i;
        EXPECT_NEAR(out[i].info.y, d.lightShadowFraction, 1e-6f) << i;
    }
    EXPECT_GT(out.front().info.y, 0.5f) << "behind the edge";
    EXPECT_EQ(out.back().info.y, 0.0f) << "in the open";

    EXPECT_EQ(net.allocationsWhenShadedAgain(in), 0u);
}

}  // namespace
