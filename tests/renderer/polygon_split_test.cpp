// Polygons of mesh files split into triangles: every corner used, the
// triangles in the polygon's winding and adding up to its area, so that they
// cover it without overlap; convex polygons as fans; and a bound on the work.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "renderer/polygon_split.h"

namespace {
struct Tshape {
    std::string name;
    std::vector<T3Float> corners;  // in the xy plane, counter-clockwise seen from +z
    double area;                   // in closed form, before the corners are rounded to floats
};

// n corners on the unit circle: area n/2 sin(2 pi / n).
Tshape regular(int n) {
    Tshape s{std::to_string(n) + "-gon", {}, n / 2.0 * std::sin(2 * M_PI / n)};
    for (int i = 0; i < n; ++i) s.corners.push_back({float(std::cos(2 * M_PI * i / n)), float(std::sin(2 * M_PI * i / n)), 0});
    return s;
}

// n corners alternately at radius 1 and `inner`: n/2 spikes, area
// n/2 * inner * sin(2 pi / n).
Tshape star(int n, double inner) {
    Tshape s{std::to_string(n) + "-corner star", {}, n / 2.0 * inner * std::sin(2 * M_PI / n)};
    for (int i = 0; i < n; ++i) {
        const double r = i % 2 ? inner : 1, a = 2 * M_PI * i / n;
        s.corners.push_back({float(r * std::cos(a)), float(r * std::sin(a)), 0});
    }
    return s;
}

// A 2 x 1 bar with `teeth` teeth of height 1 on top, each half as wide as
// its slot of 2 / teeth: area 2 + teeth * (1 / teeth) = 3.
Tshape comb(int teeth) {
    Tshape s{std::to_string(teeth) + "-tooth comb", {}, 3};
    const double slot = 2.0 / teeth;
    for (int k = 0; k < teeth; ++k) {
        const double x = -1 + slot * k;
        for (double cx : {x, x + slot / 4}) s.corners.push_back({float(cx), 0, 0});
        s.corners.push_back({float(x + slot / 4), 1, 0});
        s.corners.push_back({float(x + 3 * slot / 4), 1, 0});
        s.corners.push_back({float(x + 3 * slot / 4), 0, 0});
    }
    for (auto [x, y] : {std::pair{1.0, 0.0}, {1.0, -1.0}, {-1.0, -1.0}}) s.corners.push_back({float(x), float(y), 0});
    // Drawn left to right along the top: clockwise, so turned round.
    std::reverse(s.corners.begin(), s.corners.end());
    return s;
}

Tshape fromPoints(const std::string& name, std::vector<std::pair<double, double>> points, double area) {
    Tshape s{name, {}, area};
    for (auto [x, y] : points) s.corners.push_back({float(x), float(y), 0});
    return s;
}

// The area of the polygon with its float corners, by the shoelace formula.
double shoelace(const std::vector<T3Float>& corners) {
    double twice = 0;
    for (size_t i = 0; i < corners.size(); ++i) {
        const T3Float &p = corners[i], &q = corners[(i + 1) % corners.size()];
        twice += double(p.x) * q.y - double(q.x) * p.y;
    }
    return twice / 2;
}

// Twice the area of each triangle along `up`, in doubles: the triangles must
// all face that way (none folded over) and add up to the polygon's area.
void expectCover(const Tshape& s, const std::vector<T3Float>& corners, const std::vector<uint32_t>& triangles, const T3Float& up) {
    const size_t n = corners.size();
    ASSERT_EQ(triangles.size(), 3 * (n - 2));
    std::vector<int> used(n, 0);
    double area = 0;
    for (size_t t = 0; t < triangles.size(); t += 3) {
        for (int k = 0; k < 3; ++k) {
            ASSERT_LT(triangles[t + size_t(k)], n);
            ++used[triangles[t + size_t(k)]];
        }
        const T3Float &a = corners[triangles[t]], &b = corners[triangles[t + 1]], &c = corners[triangles[t + 2]];
        const double e1[3] = {double(b.x) - a.x, double(b.y) - a.y, double(b.z) - a.z};
        const double e2[3] = {double(c.x) - a.x, double(c.y) - a.y, double(c.z) - a.z};
        const double facing = (e1[1] * e2[2] - e1[2] * e2[1]) * up.x + (e1[2] * e2[0] - e1[0] * e2[2]) * up.y +
                              (e1[0] * e2[1] - e1[1] * e2[0]) * up.z;
        // A corner within the rounding of floats of the line of its
        // neighbours is cut as straight, either way.
        EXPECT_GE(facing, -1e-6) << "triangle " << t / 3 << " is folded over";
        area += facing / 2;
    }
    for (size_t i = 0; i < n; ++i) EXPECT_GT(used[i], 0) << "corner " << i << " is in no triangle";
    EXPECT_NEAR(area, shoelace(s.corners), 1e-6 * s.area);
    EXPECT_NEAR(area, s.area, 1e-4 * s.area);
}
}  // namespace

TEST(PolygonSplit, TrianglesCoverThePolygonExactlyOnceInItsWinding) {
    std::vector<Tshape> shapes = {
        fromPoints("square", {{0, 0}, {1, 0}, {1, 1}, {0, 1}}, 1),
        fromPoints("square with corners on its sides", {{0, 0}, {0.5, 0}, {1, 0}, {1, 0.5}, {1, 1}, {0, 1}}, 1),
        fromPoints("L", {{0, 0}, {2, 0}, {2, 1}, {1, 1}, {1, 2}, {0, 2}}, 3),
        fromPoints("U", {{0, 0}, {3, 0}, {3, 2}, {2, 2}, {2, 1}, {1, 1}, {1, 2}, {0, 2}}, 5),
        // A square hole joined to the outline by a cut: corners repeated.
        fromPoints("square with a hole", {{0, 0}, {4, 0}, {4, 4}, {0, 4}, {0, 0}, {1, 1}, {1, 3}, {3, 3}, {3, 1}, {1, 1}}, 12),
        regular(5),
        regular(100000),
        star(10, 0.4),
        star(20000, 0.5),
        comb(7),
        comb(40000),
    };
    for (const Tshape& s : shapes) {
        SCOPED_TRACE(s.name);
        std::vector<uint32_t> triangles;
        EXPECT_TRUE(splitPolygon(s.corners.data(), s.corners.size(), triangles));
        {
            SCOPED_TRACE("as given");
            expectCover(s, s.corners, triangles, T3Float(0, 0, 1));
        }

        // The same polygon clockwise, seen from -z.
        std::vector<T3Float> reversed(s.corners.rbegin(), s.corners.rend());
        triangles.clear();
        EXPECT_TRUE(splitPolygon(reversed.data(), reversed.size(), triangles));
        {
            SCOPED_TRACE("clockwise");
            expectCover(s, reversed, triangles, T3Float(0, 0, -1));
        }

        // Turned out of the xy plane: 30 degrees about x, then 50 about y.
        const double a = 30 * M_PI / 180, b = 50 * M_PI / 180;
        std::vector<T3Float> turned;
        for (const T3Float& p : s.corners) {
            const double y = p.y * std::cos(a), z = p.y * std::sin(a);
            turned.push_back({float(p.x * std::cos(b) + z * std::sin(b)), float(y), float(-p.x * std::sin(b) + z * std::cos(b))});
        }
        const T3Float up(float(std::cos(a) * std::sin(b)), float(-std::sin(a)), float(std::cos(a) * std::cos(b)));
        triangles.clear();
        EXPECT_TRUE(splitPolygon(turned.data(), turned.size(), triangles));
        SCOPED_TRACE("turned");
        expectCover(s, turned, triangles, up);
    }
}

TEST(PolygonSplit, AConvexPolygonIsAFan) {
    struct Case {
        Tshape shape;
        bool convex;
    };
    const Case cases[] = {
        {regular(3), true},
        {regular(6), true},
        // Its float corners stand off the circle by their rounding.
        {regular(200000), true},
        {fromPoints("square with corners on its sides", {{0, 0}, {0.5, 0}, {1, 0}, {1, 1}, {0, 1}}, 1), true},
        {fromPoints("L", {{0, 0}, {2, 0}, {2, 1}, {1, 1}, {1, 2}, {0, 2}}, 3), false},
        {star(10, 0.4), false},
        // Five points joined every second one: every turn is to the left,
        // but the outline goes round twice.
        {fromPoints("pentagram", {{1, 0}, {-0.809, 0.588}, {0.309, -0.951}, {0.309, 0.951}, {-0.809, -0.588}}, 0), false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.shape.name);
        EXPECT_EQ(isConvexPolygon(c.shape.corners.data(), c.shape.corners.size()), c.convex);
        if (!c.convex) continue;
        std::vector<uint32_t> triangles;
        EXPECT_TRUE(splitPolygon(c.shape.corners.data(), c.shape.corners.size(), triangles));
        ASSERT_EQ(triangles.size(), 3 * (c.shape.corners.size() - 2));
        for (size_t t = 0; t < triangles.size() / 3; ++t) {
            EXPECT_EQ(triangles[3 * t], 0u);
            EXPECT_EQ(triangles[3 * t + 1], t + 1);
            EXPECT_EQ(triangles[3 * t + 2], t + 2);
        }
    }
}

TEST(PolygonSplit, PastItsWorkBoundAPolygonIsFinishedAsAFan) {
    // A band wound round as a spiral has few ears at a time: each one is
    // searched for along the band.
    std::vector<T3Float> spiral;
    const int half = 3000;
    for (int side = 0; side < 2; ++side)
        for (int k = 0; k < half; ++k) {
            const int i = side ? half - 1 - k : k;
            const double angle = 0.02 * i, radius = 0.2 + 0.8 * i / half - (side ? 0.002 : 0);
            spiral.push_back({float(radius * std::cos(angle)), float(radius * std::sin(angle)), 0});
        }
    std::vector<uint32_t> exact, bounded;
    EXPECT_TRUE(splitPolygon(spiral.data(), spiral.size(), exact));
    EXPECT_FALSE(splitPolygon(spiral.data(), spiral.size(), bounded, 10 * spiral.size()));
    // Either way every corner is used, in n - 2 triangles.
    for (const std::vector<uint32_t>* triangles : {&exact, &bounded}) {
        ASSERT_EQ(triangles->size(), 3 * (spiral.size() - 2));
        std::vector<int> used(spiral.size(), 0);
        for (uint32_t i : *triangles) {
            ASSERT_LT(i, spiral.size());
            ++used[i];
        }
        EXPECT_EQ(std::count(used.begin(), used.end(), 0), 0);
    }
    // The exact split covers the band once: its area by the shoelace formula.
    double shoelace = 0, covered = 0;
    for (size_t i = 0; i < spiral.size(); ++i) {
        const T3Float& p = spiral[i];
        const T3Float& q = spiral[(i + 1) % spiral.size()];
        shoelace += (double(p.x) * q.y - double(q.x) * p.y) / 2;
    }
    for (size_t t = 0; t < exact.size(); t += 3) {
        const T3Float &a = spiral[exact[t]], &b = spiral[exact[t + 1]], &c = spiral[exact[t + 2]];
        const double twice = (double(b.x) - a.x) * (double(c.y) - a.y) - (double(b.y) - a.y) * (double(c.x) - a.x);
        EXPECT_GE(twice, -1e-12);
        covered += twice / 2;
    }
    EXPECT_NEAR(covered, shoelace, 1e-6 * std::fabs(shoelace));
}
