#pragma once
// Splitting a polygon of a mesh file into triangles. A convex polygon, the
// common case, is a fan found in one pass. Any other is cut ear by ear, with
// the corners that can block an ear kept in a grid so that each ear looks
// only near itself; the work is bounded, and a polygon that would take
// longer is finished as a fan instead.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "framework/host/math.h"

// The steps the ear search may take on a polygon of `count` corners: at
// least a fraction of a second's worth, enough for a spiral band of some tens
// of thousands of corners, where ears are few at a time; and for more
// corners, a few times what outlines of hundreds of thousands of corners
// with a large share of concave ones need.
inline uint64_t polygonSplitWorkLimit(size_t count) {
    constexpr uint64_t kAtLeast = uint64_t(1) << 26, kPerCorner = 1024;
    return std::max<uint64_t>(kAtLeast, kPerCorner * count);
}

// Convex in the plane that fits it best: every corner turns the same way
// and the outline goes round once. Corners in a straight line count as
// convex.
bool isConvexPolygon(const T3Float* corners, size_t count);

// Appends the triangles of the polygon to `triangles` as triples of corner
// numbers (0 to count - 1), count - 2 of them, each in the polygon's own
// winding. False when the polygon ran past `workLimit` steps of the ear
// search and its remainder was fanned: the triangles then cover it, but may
// overlap and reach outside where it is concave.
bool splitPolygon(const T3Float* corners, size_t count, std::vector<uint32_t>& triangles, uint64_t workLimit);
inline bool splitPolygon(const T3Float* corners, size_t count, std::vector<uint32_t>& triangles) {
    return splitPolygon(corners, count, triangles, polygonSplitWorkLimit(count));
}
