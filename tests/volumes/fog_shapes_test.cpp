// The fog shapes' ray intervals against a brute-force walk along the ray
// with the shapes' inside tests, and the drop-off shapes against what they
// must agree on.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "volumes/fog_shapes.h"
#include "volumes/volume_fog.h"

namespace {
struct Tshape {
    const char* name;
    TfogInterval interval;
    bool (*inside)(const T3Float&);
};
const Tshape kShapes[] = {
    {"sphere", &TrenderSphereShape::interval, [](const T3Float& p) { return dot(p, p) <= 1; }},
    {"box", &TrenderBoxShape::interval,
     [](const T3Float& p) { return std::fabs(p.x) <= 1 && std::fabs(p.y) <= 1 && std::fabs(p.z) <= 1; }},
    {"cone", &TrenderConeShape::interval,
     [](const T3Float& p) { return p.z <= 0 && p.z >= -1 && p.x * p.x + p.y * p.y <= 0.25f * p.z * p.z; }},
};
}  // namespace

// For random rays (unnormalised directions, as a scaled transform gives),
// the interval is where the walk finds the ray inside, to the walk's step.
TEST(FogShapes, IntervalsMatchABruteForceWalk) {
    std::mt19937 random(7);
    std::uniform_real_distribution<float> place(-2.5f, 2.5f), spread(-1.5f, 1.5f);
    constexpr int kSteps = 4000;
    for (const Tshape& shape : kShapes) {
        SCOPED_TRACE(shape.name);
        int hits = 0;
        for (int r = 0; r < 400; ++r) {
            const T3Float o(place(random), place(random), place(random));
            // Aim near the shape so that most rays cross it.
            const T3Float target(spread(random) * 0.6f, spread(random) * 0.6f, shape.interval == &TrenderConeShape::interval ? -0.6f : 0.0f);
            const T3Float d = (target - o) * (0.5f + 0.5f * std::fabs(spread(random)));
            const float tMax = 4;
            float first = -1, last = -1;
            for (int k = 0; k <= kSteps; ++k) {
                const float t = tMax * float(k) / kSteps;
                if (!shape.inside(o + d * t)) continue;
                if (first < 0) first = t;
                last = t;
            }
            float enter = 0, leave = 0;
            const bool found = shape.interval(o, d, tMax, enter, leave);
            const float step = tMax / kSteps;
            if (first < 0 || last - first < 2 * step) {
                // Missed, or grazed by less than the walk resolves.
                EXPECT_TRUE(!found || leave - enter < 3 * step) << "ray " << r;
                continue;
            }
            ++hits;
            ASSERT_TRUE(found) << "ray " << r;
            EXPECT_NEAR(enter, first, 1.5f * step) << "ray " << r;
            EXPECT_NEAR(leave, last, 1.5f * step) << "ray " << r;
        }
        EXPECT_GT(hits, 100);
    }
}

// Drop-offs: none inside a shape turned off; the cube and sphere fades
// agree along an axis, where both see one coordinate; every fade is 1 at
// the centre of its shape (on the cones' axis, for the cones) and 0 on or
// beyond its edge; the light cone with axial drop-off 0.5 fades linearly
// towards the base.
TEST(FogShapes, DropoffShapesAgreeWhereTheyMust) {
    using V = TdnVolumeFog;
    for (float edge : {0.0f, 0.3f, 0.8f}) {
        SCOPED_TRACE(edge);
        EXPECT_EQ(V::dropoff(V::kOff, {2, 2, 2}, edge, 0), 1.0f);
        for (float x = -1.2f; x <= 1.2f; x += 0.05f) {
            EXPECT_NEAR(V::dropoff(V::kCubeFade, {x, 0, 0}, edge, 1), V::dropoff(V::kSphereFade, {x, 0, 0}, edge, 1), 1e-6f) << x;
            EXPECT_NEAR(V::dropoff(V::kCubeFade, {0, 0, x}, edge, 1), V::dropoff(V::kSphereFade, {0, x, 0}, edge, 1), 1e-6f) << x;
        }
        EXPECT_EQ(V::dropoff(V::kSphereFade, {0, 0, 0}, edge, 1), 1.0f);
        EXPECT_EQ(V::dropoff(V::kSphereFade, {0.6f, 0.8f, 0}, edge, 1), 0.0f);
        EXPECT_EQ(V::dropoff(V::kCubeFade, {0.2f, 1.01f, 0.1f}, edge, 1), 0.0f);
        EXPECT_EQ(V::dropoff(V::kLightConeFade, {0, 0, -0.5f}, edge, 1), 1.0f);
        EXPECT_EQ(V::dropoff(V::kLightConeFade, {0.25f, 0, -0.5f}, edge, 1), 0.0f);  // on the cone's wall
    }
    for (float z : {0.1f, 0.4f, 0.9f}) EXPECT_NEAR(V::dropoff(V::kLightConeFade, {0, 0, -z}, 1, 0.5f), 1 - z, 1e-6f) << z;
}
