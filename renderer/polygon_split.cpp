#include "renderer/polygon_split.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

struct Tpoint {
    double x, y;
    friend bool operator==(const Tpoint& a, const Tpoint& b) { return a.x == b.x && a.y == b.y; }
};

// Twice the signed area of abc: above 0 when c lies to the left of ab.
double turn(const Tpoint& a, const Tpoint& b, const Tpoint& c) {
    return (b.x - a.x) * (c.y - a.y) - (b.y - a.y) * (c.x - a.x);
}

// The corners in the plane the polygon faces most, going round it
// counter-clockwise. False when the polygon has no area seen from any side.
bool flatten(const T3Float* corners, size_t count, std::vector<Tpoint>& points) {
    // Newell's normal: each axis is twice the area seen along that axis.
    double normal[3] = {0, 0, 0};
    for (size_t i = 0; i < count; ++i) {
        const T3Float& a = corners[i];
        const T3Float& b = corners[i + 1 == count ? 0 : i + 1];
        normal[0] += (double(a.y) - b.y) * (double(a.z) + b.z);
        normal[1] += (double(a.z) - b.z) * (double(a.x) + b.x);
        normal[2] += (double(a.x) - b.x) * (double(a.y) + b.y);
    }
    int axis = 0;
    for (int k = 1; k < 3; ++k)
        if (std::fabs(normal[k]) > std::fabs(normal[axis])) axis = k;
    if (!(std::fabs(normal[axis]) > 0)) return false;
    const int u = (axis + 1) % 3, v = (axis + 2) % 3;
    const double flip = normal[axis] > 0 ? 1 : -1;
    points.resize(count);
    for (size_t i = 0; i < count; ++i) points[i] = {corners[i][u], flip * corners[i][v]};
    return true;
}

// How far a corner may stand off the line of its neighbours and still count
// as straight: the rounding of the file's float coordinates. A fine circle is
// convex only up to that rounding.
double roundingOf(const std::vector<Tpoint>& p) {
    double size = 0;
    for (const Tpoint& q : p) size = std::max({size, std::fabs(q.x), std::fabs(q.y)});
    return 4 * std::numeric_limits<float>::epsilon() * size;
}

// Which way b turns coming from a and going on to c: 1 left, -1 right, 0
// straight within `rounding`.
int turnAt(const Tpoint& a, const Tpoint& b, const Tpoint& c, double rounding) {
    const double cross = turn(a, b, c);
    const double straight = rounding * (std::hypot(b.x - a.x, b.y - a.y) + std::hypot(c.x - b.x, c.y - b.y));
    return cross > straight ? 1 : cross < -straight ? -1 : 0;
}

// No corner turns right, and the turns add up to one way round rather than
// two or more (a star drawn in one stroke turns left at every corner).
bool convex(const std::vector<Tpoint>& p) {
    const size_t n = p.size();
    const double rounding = roundingOf(p);
    double winding = 0;
    for (size_t i = 0; i < n; ++i) {
        const Tpoint& a = p[i == 0 ? n - 1 : i - 1];
        const Tpoint& b = p[i];
        const Tpoint& c = p[i + 1 == n ? 0 : i + 1];
        const double cross = turn(a, b, c);
        if (turnAt(a, b, c, rounding) < 0) return false;
        const double along = (b.x - a.x) * (c.x - b.x) + (b.y - a.y) * (c.y - b.y);
        if (cross != 0 || along != 0) winding += std::atan2(cross, along);
    }
    // One way round is 2 pi; the next possible total is 4 pi.
    return winding < 3 * M_PI;
}

void fan(uint32_t first, const std::vector<uint32_t>& next, size_t count, std::vector<uint32_t>& triangles) {
    uint32_t b = next[first];
    for (size_t k = 2; k < count; ++k) {
        const uint32_t c = next[b];
        triangles.insert(triangles.end(), {first, b, c});
        b = c;
    }
}

// Ear clipping. Only corners that turn right can lie inside an ear, and
// clipping an ear never makes a corner turn right, so those corners are
// gathered once into a grid, and an ear is tested against the cells its
// bounding box covers. A straight corner is cut at once, as a triangle of
// no area: a long straight run would otherwise be fanned from one corner,
// every triangle of the fan looking through the whole grid.
class TearClipper {
public:
    TearClipper(const std::vector<Tpoint>& points, uint64_t workLimit) : fPoints(points), fLimit(workLimit) {}

    bool run(std::vector<uint32_t>& triangles) {
        const size_t n = fPoints.size();
        fPrev.resize(n);
        fNext.resize(n);
        for (size_t i = 0; i < n; ++i) {
            fPrev[i] = uint32_t(i == 0 ? n - 1 : i - 1);
            fNext[i] = uint32_t(i + 1 == n ? 0 : i + 1);
        }
        fRounding = roundingOf(fPoints);
        fTurn.resize(n);
        fBlocking.resize(n);
        for (size_t i = 0; i < n; ++i) {
            fTurn[i] = int8_t(turnOf(uint32_t(i)));
            fBlocking[i] = fTurn[i] < 0;
        }
        buildGrid();

        size_t remaining = n, stalled = 0;
        uint32_t at = 0;
        while (remaining > 3) {
            if (fWork > fLimit) {
                fan(at, fNext, remaining, triangles);
                return false;
            }
            ++fWork;
            // A polygon that crosses itself may have no ear left: one corner
            // is cut anyway so that the loop ends.
            if (fTurn[at] == 0 || (fTurn[at] > 0 && isEar(at)) || stalled >= remaining) {
                const uint32_t a = fPrev[at], c = fNext[at];
                triangles.insert(triangles.end(), {a, at, c});
                fNext[a] = c;
                fPrev[c] = a;
                fBlocking[at] = false;
                for (uint32_t k : {a, c}) {
                    fTurn[k] = int8_t(turnOf(k));
                    fBlocking[k] = fBlocking[k] && fTurn[k] < 0;
                }
                --remaining;
                stalled = 0;
                // On past the next corner: cutting the ear beside the last
                // one would fan out from one corner in ever larger triangles,
                // each looking through more of the grid.
                at = fNext[c];
            } else {
                at = fNext[at];
                ++stalled;
            }
        }
        triangles.insert(triangles.end(), {fPrev[at], at, fNext[at]});
        return true;
    }

private:
    int turnOf(uint32_t i) const { return turnAt(fPoints[fPrev[i]], fPoints[i], fPoints[fNext[i]], fRounding); }

    int cellX(double x) const { return std::clamp(int((x - fLowX) * fScaleX), 0, fSide - 1); }
    int cellY(double y) const { return std::clamp(int((y - fLowY) * fScaleY), 0, fSide - 1); }

    void buildGrid() {
        double highX = fPoints[0].x, highY = fPoints[0].y;
        fLowX = fPoints[0].x, fLowY = fPoints[0].y;
        size_t count = 0;
        for (size_t i = 0; i < fPoints.size(); ++i) {
            fLowX = std::min(fLowX, fPoints[i].x), highX = std::max(highX, fPoints[i].x);
            fLowY = std::min(fLowY, fPoints[i].y), highY = std::max(highY, fPoints[i].y);
            count += fBlocking[i];
        }
        // About one blocking corner a cell.
        fSide = std::max(1, int(std::ceil(std::sqrt(double(count)))));
        fScaleX = highX > fLowX ? fSide / (highX - fLowX) : 0;
        fScaleY = highY > fLowY ? fSide / (highY - fLowY) : 0;
        fCellStart.assign(size_t(fSide) * fSide + 1, 0);
        for (size_t i = 0; i < fPoints.size(); ++i)
            if (fBlocking[i]) ++fCellStart[cellOf(fPoints[i]) + 1];
        for (size_t c = 1; c < fCellStart.size(); ++c) fCellStart[c] += fCellStart[c - 1];
        fCellItems.resize(count);
        std::vector<uint32_t> fill(fCellStart.begin(), fCellStart.end() - 1);
        for (size_t i = 0; i < fPoints.size(); ++i)
            if (fBlocking[i]) fCellItems[fill[cellOf(fPoints[i])]++] = uint32_t(i);
    }
    size_t cellOf(const Tpoint& q) const { return size_t(cellY(q.y)) * size_t(fSide) + size_t(cellX(q.x)); }

    // The cells of row y that the triangle reaches, widened by a millionth of
    // a cell for the rounding: a long thin ear across the grid crosses few of
    // the cells of its bounding box.
    void rowSpan(int y, const Tpoint& a, const Tpoint& b, const Tpoint& c, int& x0, int& x1) const {
        if (fScaleY == 0) {
            x0 = cellX(std::min({a.x, b.x, c.x})), x1 = cellX(std::max({a.x, b.x, c.x}));
            return;
        }
        const double rowSlack = 1e-6 / fScaleY;
        const double low = fLowY + y / fScaleY - rowSlack, high = fLowY + (y + 1) / fScaleY + rowSlack;
        double left = std::numeric_limits<double>::infinity(), right = -left;
        auto take = [&](const Tpoint& p, const Tpoint& q) {
            double t0 = 0, t1 = 1;
            if (p.y == q.y) {
                if (p.y < low || p.y > high) return;
            } else {
                t0 = (low - p.y) / (q.y - p.y), t1 = (high - p.y) / (q.y - p.y);
                if (t0 > t1) std::swap(t0, t1);
                t0 = std::max(t0, 0.0), t1 = std::min(t1, 1.0);
                if (t0 > t1) return;
            }
            for (double t : {t0, t1}) {
                const double x = p.x + t * (q.x - p.x);
                left = std::min(left, x), right = std::max(right, x);
            }
        };
        take(a, b), take(b, c), take(c, a);
        if (left > right) {
            x0 = 1, x1 = 0;
            return;
        }
        const double slack = fScaleX > 0 ? 1e-6 / fScaleX : 0;
        x0 = cellX(left - slack), x1 = cellX(right + slack);
    }

    bool isEar(uint32_t i) {
        const uint32_t ia = fPrev[i], ic = fNext[i];
        const Tpoint &a = fPoints[ia], &b = fPoints[i], &c = fPoints[ic];
        const double slack = fScaleY > 0 ? 1e-6 / fScaleY : 0;
        const int y0 = cellY(std::min({a.y, b.y, c.y}) - slack), y1 = cellY(std::max({a.y, b.y, c.y}) + slack);
        for (int y = y0; y <= y1; ++y) {
            int x0, x1;
            rowSpan(y, a, b, c, x0, x1);
            fWork += 4;  // the span costs about as much as a few corner tests
            for (int x = x0; x <= x1; ++x) {
                const size_t cell = size_t(y) * size_t(fSide) + size_t(x);
                ++fWork;
                for (uint32_t k = fCellStart[cell]; k < fCellStart[cell + 1]; ++k) {
                    const uint32_t j = fCellItems[k];
                    ++fWork;
                    if (!fBlocking[j] || j == ia || j == ic) continue;
                    const Tpoint& q = fPoints[j];
                    // A corner repeated where the ear's corners are (a hole
                    // joined to the outline by a cut) does not block it.
                    if (q == a || q == b || q == c) continue;
                    if (turn(a, b, q) >= 0 && turn(b, c, q) >= 0 && turn(c, a, q) >= 0) return false;
                }
            }
        }
        return true;
    }

    const std::vector<Tpoint>& fPoints;
    std::vector<uint32_t> fPrev, fNext;
    std::vector<int8_t> fTurn;    // of each corner with its present neighbours
    std::vector<bool> fBlocking;  // turns right, and not yet cut
    double fRounding = 0;
    double fLowX = 0, fLowY = 0, fScaleX = 0, fScaleY = 0;
    int fSide = 1;
    std::vector<uint32_t> fCellStart, fCellItems;
    uint64_t fWork = 0;
    const uint64_t fLimit;
};

}  // namespace

bool isConvexPolygon(const T3Float* corners, size_t count) {
    std::vector<Tpoint> points;
    return count >= 3 && flatten(corners, count, points) && convex(points);
}

bool splitPolygon(const T3Float* corners, size_t count, std::vector<uint32_t>& triangles, uint64_t workLimit) {
    if (count < 3) return true;
    std::vector<Tpoint> points;
    if (count == 3 || !flatten(corners, count, points) || convex(points)) {
        // Convex, or without area: the fan is exact.
        std::vector<uint32_t> next(count);
        for (size_t i = 0; i < count; ++i) next[i] = uint32_t(i + 1 == count ? 0 : i + 1);
        fan(0, next, count, triangles);
        return true;
    }
    return TearClipper(points, workLimit).run(triangles);
}
