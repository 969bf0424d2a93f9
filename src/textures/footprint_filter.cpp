#include "textures/footprint_filter.h"

#include <algorithm>
#include <cmath>

#include "textures/pyramid/file_texture_cache.h"
#include "textures/pyramid/file_texture_wrapper.h"
#include "textures/pyramid/pyramid.h"

namespace {

// The polynomial constants per kind, in units of v = width / 2.
constexpr double kQuadraticC1 = 0.13353305908064206, kQuadraticC2 = -0.00396246174831872;
constexpr double kQuadraticInner = 1.6757963290210718;
constexpr double kQuarticC1 = 0.1448168791499609, kQuarticC2 = -0.04101177126294722,
                 kQuarticC3 = 0.0029036072866592327;
constexpr double kQuarticInner = 1.8791235215701592;
constexpr float kOuterOverInner = 1.5f;
// The Gaussian's square reaches 1.5 sigma each way.
constexpr float kGaussianHalfSide = 1.5f;
// A footprint longer than this many times its width is widened: the cost of
// a lookup stays bounded at grazing angles.
constexpr float kMaxAnisotropy = 16.0f;
// Texels per axis and level the integral visits at most; wider spans step
// down a level.
constexpr int kMaxSpan = 64;
// The level is chosen so that about this many of its texels lie across the
// footprint's narrow side: with one, the integral sees whole coarse texels
// and aliases; four measured best for its cost (see docs/textures.md).
constexpr float kTexelsAcross = 4.0f;
// Level blends this close to one level snap to it.
constexpr float kSnapLow = 0.1f, kSnapHigh = 0.9f;
// blurPixelation: below this magnification (texels across the footprint)
// the smooth bilinear value takes over, fully at the lower bound.
constexpr float kBlurStart = 0.8f, kBlurFull = 0.6f;

// Symmetric 12-point triangle rule, exact for polynomials up to degree 6
// (r^6 is the filter's highest term): barycentrics and weights.
struct TtriPoint {
    double a, b, c, w;
};
constexpr double kA1 = 0.249286745170910, kA2 = 0.501426509658179, kW1 = 0.116786275726379;
constexpr double kB1 = 0.063089014491502, kB2 = 0.873821971016996, kW2 = 0.050844906370207;
constexpr double kC1 = 0.053145049844817, kC2 = 0.310352451033784, kC3 = 0.636502499121399, kW3 = 0.082851075618374;
constexpr TtriPoint kRule[12] = {
    {kA2, kA1, kA1, kW1}, {kA1, kA2, kA1, kW1}, {kA1, kA1, kA2, kW1}, {kB2, kB1, kB1, kW2},
    {kB1, kB2, kB1, kW2}, {kB1, kB1, kB2, kW2}, {kC1, kC2, kC3, kW3}, {kC1, kC3, kC2, kW3},
    {kC2, kC1, kC3, kW3}, {kC2, kC3, kC1, kW3}, {kC3, kC1, kC2, kW3}, {kC3, kC2, kC1, kW3},
};
// Symmetric 6-point rule, exact up to degree 4: enough without an r^6 term.
constexpr double kD1 = 0.445948490915965, kD2 = 0.108103018168070, kWd = 0.223381589678011;
constexpr double kE1 = 0.091576213509771, kE2 = 0.816847572980459, kWe = 0.109951743655322;
constexpr TtriPoint kRule4[6] = {{kD2, kD1, kD1, kWd}, {kD1, kD2, kD1, kWd}, {kD1, kD1, kD2, kWd},
                                 {kE2, kE1, kE1, kWe}, {kE1, kE2, kE1, kWe}, {kE1, kE1, kE2, kWe}};

// exp(-s k) - 1 for s in 0..1 as a1 s + a2 s^2 + a3 s^3, least squares.
void fitExponential(double k, double a[3]) {
    // Gram matrix of s, s^2, s^3 on 0..1 and the right side by Simpson.
    double g[3][3], r[3] = {0, 0, 0};
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) g[i][j] = 1.0 / double(i + j + 3);
    const int n = 400;
    for (int m = 0; m <= n; ++m) {
        double s = double(m) / n, wgt = (m == 0 || m == n) ? 1 : (m % 2 ? 4 : 2);
        double f = std::exp(-k * s) - 1.0;
        r[0] += wgt * f * s;
        r[1] += wgt * f * s * s;
        r[2] += wgt * f * s * s * s;
    }
    for (double& x : r) x /= 3.0 * n;
    auto det3 = [](double m[3][3]) {
        return m[0][0] * (m[1][1] * m[2][2] - m[1][2] * m[2][1]) - m[0][1] * (m[1][0] * m[2][2] - m[1][2] * m[2][0]) +
               m[0][2] * (m[1][0] * m[2][1] - m[1][1] * m[2][0]);
    };
    double d = det3(g);
    for (int c = 0; c < 3; ++c) {
        double m[3][3];
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 3; ++j) m[i][j] = j == c ? r[i] : g[i][j];
        a[c] = det3(m) / d;
    }
}

}  // namespace

TfilterRecord makeFilterRecord(int kind, float width) {
    TfilterRecord f;
    f.kind = kind;
    f.width = std::clamp(width, 0.35f, 1.05f);
    const double v = 0.5 * f.width, v2 = v * v;
    switch (kind) {
        case kFilterQuadratic:
            f.c1 = float(kQuadraticC1 / v2);
            f.c2 = float(kQuadraticC2 / (v2 * v2));
            f.innerRadius = float(v * kQuadraticInner);
            f.outerRadius = f.innerRadius * kOuterOverInner;
            break;
        case kFilterQuartic:
            f.c1 = float(kQuarticC1 / v2);
            f.c2 = float(kQuarticC2 / (v2 * v2));
            f.c3 = float(kQuarticC3 / (v2 * v2 * v2));
            f.innerRadius = float(v * kQuarticInner);
            f.outerRadius = f.innerRadius * kOuterOverInner;
            break;
        case kFilterGaussian: {
            // r^2 runs from 0 at the centre to 2 h^2 at the square's corner.
            const double h = kGaussianHalfSide * v, top = 2.0 * h * h;
            double a[3];
            fitExponential(top / (2.0 * v2), a);
            f.c1 = float(a[0] / top);
            f.c2 = float(a[1] / (top * top));
            f.c3 = float(a[2] / (top * top * top));
            break;
        }
        default:
            break;
    }
    return f;
}

float filterHalfSide(const TfilterRecord& f) {
    switch (f.kind) {
        case kFilterQuadratic:
        case kFilterQuartic:
            return f.innerRadius;
        case kFilterGaussian:
            return kGaussianHalfSide * 0.5f * f.width;
        default:
            return 0.5f;
    }
}

unsigned makeOutCodes(const T2Float& p, float h) {
    return (p.x >= -h ? kInsideLeft : 0u) | (p.x <= h ? kInsideRight : 0u) | (p.y >= -h ? kInsideBottom : 0u) |
           (p.y <= h ? kInsideTop : 0u);
}

namespace {
template <int kAxis>
int lineClip(const T2Float* in, int n, float edge, float side, T2Float* out) {
    auto coord = [](const T2Float& p) { return kAxis == 0 ? p.x : p.y; };
    int m = 0;
    for (int i = 0; i < n; ++i) {
        const T2Float& a = in[i == 0 ? n - 1 : i - 1];
        const T2Float& b = in[i];
        const float da = (coord(a) - edge) * side, db = (coord(b) - edge) * side;
        if ((da >= 0) != (db >= 0)) {
            const float t = da / (da - db);
            T2Float c{a.x + (b.x - a.x) * t, a.y + (b.y - a.y) * t};
            // The crossing lies on the edge exactly, whatever the rounding.
            (kAxis == 0 ? c.x : c.y) = edge;
            out[m++] = c;
        }
        if (db >= 0) out[m++] = b;
    }
    return m;
}
}  // namespace

int xLineClip(const T2Float* in, int n, float edge, float side, T2Float* out) { return lineClip<0>(in, n, edge, side, out); }
int yLineClip(const T2Float* in, int n, float edge, float side, T2Float* out) { return lineClip<1>(in, n, edge, side, out); }

double intArea(const TfilterRecord& f, int n, const T2Float* poly) {
    if (n < 3) return 0.0;
    const bool quadraticOnly = f.c2 == 0.0f && f.c3 == 0.0f;
    const TtriPoint* rule = f.c3 == 0.0f ? kRule4 : kRule;
    const int points = f.c3 == 0.0f ? 6 : 12;
    const double x0 = poly[n - 1].x, y0 = poly[n - 1].y;
    double total = 0.0, signedArea = 0.0;
    for (int i = 0; i + 2 < n; ++i) {
        const double x1 = poly[i].x, y1 = poly[i].y, x2 = poly[i + 1].x, y2 = poly[i + 1].y;
        const double cross = (x1 - x0) * (y2 - y0) - (x2 - x0) * (y1 - y0);
        signedArea += cross;
        double mean;
        if (quadraticOnly) {
            // The mean of r^2 over a triangle is S / 6.
            const double s = x0 * x0 + y0 * y0 + x1 * x1 + y1 * y1 + (x0 + x2) * (x2 + x1) + (y0 + y2) * (y2 + y1);
            mean = 1.0 + f.c1 * s / 6.0;
        } else {
            mean = 0.0;
            for (int k = 0; k < points; ++k) {
                const TtriPoint& q = rule[k];
                const double x = q.a * x0 + q.b * x1 + q.c * x2, y = q.a * y0 + q.b * y1 + q.c * y2;
                const double r2 = x * x + y * y;
                mean += q.w * (1.0 + r2 * (f.c1 + r2 * (f.c2 + r2 * f.c3)));
            }
        }
        total += 0.5 * cross * mean;
    }
    return signedArea < 0 ? -total : total;
}

float getWeight(const TfilterRecord& f, int n, const T2Float* poly) {
    const float h = filterHalfSide(f);
    unsigned all = kInsideAll, any = 0;
    for (int i = 0; i < n; ++i) {
        const unsigned code = makeOutCodes(poly[i], h);
        all &= code;
        any |= code;
    }
    if (all == kInsideAll) return float(intArea(f, n, poly));
    if (any != kInsideAll) return 0.0f;  // every vertex beyond one edge
    T2Float a[kMaxPolygon + 8], b[kMaxPolygon + 8];
    int m = xLineClip(poly, n, -h, 1.0f, a);
    m = xLineClip(a, m, h, -1.0f, b);
    m = yLineClip(b, m, -h, 1.0f, a);
    m = yLineClip(a, m, h, -1.0f, b);
    return m > 2 ? float(intArea(f, m, b)) : 0.0f;
}

bool initTextureTransfMaps(const TfootprintTriangle& t, TplaneMap& map) {
    const T3Float e1 = t.camera[1] - t.camera[0], e2 = t.camera[2] - t.camera[0];
    T3Float n = cross(e1, e2);
    const float len = length(n);
    const float scale = std::max(length(e1), length(e2));
    if (!(len > 1e-12f * scale * scale) || !std::isfinite(len)) return false;
    n = n * (1.0f / len);
    map.a = n.x, map.b = n.y, map.c = n.z;
    map.d = dot(n, t.camera[0]);
    // UV = uv0 + (alpha, beta) . (duv1, duv2) where P - P0 = alpha e1 + beta e2;
    // alpha and beta come from the dual basis of e1, e2 in the plane.
    const float d11 = dot(e1, e1), d12 = dot(e1, e2), d22 = dot(e2, e2);
    const float det = d11 * d22 - d12 * d12;
    const T2Float du1{t.uv[1].x - t.uv[0].x, t.uv[1].y - t.uv[0].y}, du2{t.uv[2].x - t.uv[0].x, t.uv[2].y - t.uv[0].y};
    const float uvArea = du1.x * du2.y - du1.y * du2.x;
    if (!(std::fabs(uvArea) > 1e-12f) || !(det > 0)) return false;
    const T3Float g1 = (e1 * d22 - e2 * d12) * (1.0f / det);  // alpha = g1 . (P - P0)
    const T3Float g2 = (e2 * d11 - e1 * d12) * (1.0f / det);  // beta = g2 . (P - P0)
    const T3Float gu = g1 * du1.x + g2 * du2.x, gv = g1 * du1.y + g2 * du2.y;
    map.u[0] = gu.x, map.u[1] = gu.y, map.u[2] = gu.z, map.u[3] = t.uv[0].x - dot(gu, t.camera[0]);
    map.v[0] = gv.x, map.v[1] = gv.y, map.v[2] = gv.z, map.v[3] = t.uv[0].y - dot(gv, t.camera[0]);
    return true;
}

namespace {

struct Thomogeneous {
    float x, y, w;
};

// The texel polygon, clipped to w >= near, divided through.
int clipToNearMapToNPF(const Thomogeneous* in, int n, float nearW, T2Float* out) {
    int m = 0;
    for (int i = 0; i < n; ++i) {
        const Thomogeneous& a = in[i == 0 ? n - 1 : i - 1];
        const Thomogeneous& b = in[i];
        const float da = a.w - nearW, db = b.w - nearW;
        if ((da >= 0) != (db >= 0)) {
            const float t = da / (da - db);
            const float x = a.x + (b.x - a.x) * t, y = a.y + (b.y - a.y) * t;
            out[m++] = {x / nearW, y / nearW};
        }
        if (db >= 0) out[m++] = {b.x / b.w, b.y / b.w};
    }
    return m;
}

int wrapIndex(int i, int n, bool wrap) {
    if (wrap) {
        i %= n;
        return i < 0 ? i + n : i;
    }
    return std::clamp(i, 0, n - 1);
}

// Everything one level's integral needs: the homogeneous pixel-frame image
// of a texture UV is base + du * (u - u0) + dv * (v - v0).
struct Tprojection {
    Thomogeneous base, du, dv;
    T2Float uv0;
    float nearW;
    bool perspective;
    Thomogeneous at(float u, float v) const {
        const float a = u - uv0.x, b = v - uv0.y;
        return {base.x + du.x * a + dv.x * b, base.y + du.y * a + dv.y * b, base.w + du.w * a + dv.w * b};
    }
};

struct TlevelSum {
    float colour[4] = {0, 0, 0, 0};
    float total = 0;
};

bool filterInterval(const TfileTextureWrapper& w, TfileTextureCache& cache, const TfilterRecord& filter,
                    const Tprojection& proj, int level, T2Float lo, T2Float hi, TlevelSum& sum) {
    Tpyramid& p = *w.pyramid;
    const int lw = p.levelWidth(level), lh = p.levelHeight(level);
    // Texel i covers [i - 0.5, i + 0.5) in u * width: pixel i lies at i.
    const int i0 = int(std::floor(lo.x * lw + 0.5f)), i1 = int(std::floor(hi.x * lw + 0.5f));
    const int j0 = int(std::floor(lo.y * lh + 0.5f)), j1 = int(std::floor(hi.y * lh + 0.5f));
    if (i1 - i0 + 1 > kMaxSpan || j1 - j0 + 1 > kMaxSpan) return false;
    const int channels = p.channels();
    Thomogeneous rowA[kMaxSpan + 1], rowB[kMaxSpan + 1];
    Thomogeneous* below = rowA;
    Thomogeneous* above = rowB;
    auto fillRow = [&](Thomogeneous* row, int j) {
        const float v = (float(j) - 0.5f) / float(lh);
        for (int i = i0; i <= i1 + 1; ++i) row[i - i0] = proj.at((float(i) - 0.5f) / float(lw), v);
    };
    fillRow(below, j0);
    for (int j = j0; j <= j1; ++j) {
        fillRow(above, j + 1);
        const int ty = wrapIndex(j, lh, w.wrapV);
        for (int i = i0; i <= i1; ++i) {
            const int k = i - i0;
            const Thomogeneous quad[4] = {below[k], below[k + 1], above[k + 1], above[k]};
            T2Float poly[kMaxPolygon];
            int n;
            if (quad[0].w >= proj.nearW && quad[1].w >= proj.nearW && quad[2].w >= proj.nearW &&
                quad[3].w >= proj.nearW) {
                for (int c = 0; c < 4; ++c) poly[c] = {quad[c].x / quad[c].w, quad[c].y / quad[c].w};
                n = 4;
            } else {
                n = clipToNearMapToNPF(quad, 4, proj.nearW, poly);
            }
            if (n < 3) continue;
            const float weight = getWeight(filter, n, poly);
            if (!(weight > 0.0f)) continue;
            const uint8_t* texel = p.texel(cache, level, wrapIndex(i, lw, w.wrapU), ty);
            if (channels == 1) {
                sum.colour[0] += weight * texel[0];
            } else {
                for (int c = 0; c < channels; ++c) sum.colour[c] += weight * texel[c];
            }
            sum.total += weight;
        }
        std::swap(below, above);
    }
    return true;
}

void readLevel(const TfileTextureWrapper& w, int level, const T2Float& uv, T3Float& colour, float& alpha) {
    Tpyramid& p = *w.pyramid;
    if (p.channels() == 1) {
        const float value = p.levelVal(w, level, uv.x, uv.y);
        colour = {value, value, value};
        alpha = value / 255.0f;
    } else {
        p.levelCol(w, level, uv.x, uv.y, colour, alpha);
    }
}

}  // namespace

TfootprintResult filterFootprint(const TfileTextureWrapper& w, const TfilterRecord& filter,
                                 const TcameraInfoWrapper& camera, const TfootprintQuery& q, T3Float& colour,
                                 float& alpha) {
    if (!w.pyramid || !camera.valid()) return TfootprintResult::kFallback;
    Tpyramid& p = *w.pyramid;
    TplaneMap map;
    if (!initTextureTransfMaps(q.triangle, map)) return TfootprintResult::kFallback;
    if (!(q.uvScale.x != 0.0f && q.uvScale.y != 0.0f)) return TfootprintResult::kFallback;

    // The point of the plane seen through a pixel-frame position.
    auto hitPlane = [&](float px, float py, T3Float& point) {
        const float sx = (px - camera.centreX) * camera.scale, sy = (py - camera.centreY) * camera.scale;
        if (camera.perspective) {
            const float den = map.a * sx + map.b * sy - map.c;
            if (den == 0.0f) return false;
            const float t = map.d / den;
            if (!(t > 0.0f) || !std::isfinite(t)) return false;
            point = T3Float(sx, sy, -1.0f) * t;
        } else {
            if (map.c == 0.0f) return false;
            point = T3Float(sx, sy, (map.d - map.a * sx - map.b * sy) / map.c);
        }
        return true;
    };
    auto rawUv = [&](const T3Float& pt) {
        return T2Float{map.u[0] * pt.x + map.u[1] * pt.y + map.u[2] * pt.z + map.u[3],
                       map.v[0] * pt.x + map.v[1] * pt.y + map.v[2] * pt.z + map.v[3]};
    };
    T3Float centre;
    if (!hitPlane(q.pixelCenter.x, q.pixelCenter.y, centre)) return TfootprintResult::kFallback;
    const T2Float rawCentre = rawUv(centre);
    auto toTexture = [&](const T2Float& raw) {
        return T2Float{q.uv.x + q.uvScale.x * (raw.x - rawCentre.x), q.uv.y + q.uvScale.y * (raw.y - rawCentre.y)};
    };

    // The texture-space box of the filter square.
    const float h = filterHalfSide(filter);
    T2Float lo{1e30f, 1e30f}, hi{-1e30f, -1e30f};
    const float zigzag[4][2] = {{-1, -1}, {1, -1}, {1, 1}, {-1, 1}};
    for (const auto& corner : zigzag) {
        T3Float pt;
        if (!hitPlane(q.pixelCenter.x + corner[0] * h, q.pixelCenter.y + corner[1] * h, pt))
            return TfootprintResult::kFallback;
        const T2Float t = toTexture(rawUv(pt));
        lo = {std::min(lo.x, t.x), std::min(lo.y, t.y)};
        hi = {std::max(hi.x, t.x), std::max(hi.y, t.y)};
    }
    const float du = hi.x - lo.x, dv = hi.y - lo.y;
    if (!std::isfinite(du) || !std::isfinite(dv)) return TfootprintResult::kFallback;
    const float minExtent = std::min(du, dv), maxExtent = std::max(du, dv);
    float width = q.filterOffset + q.filter * minExtent;
    width = std::max({width, minExtent * 0.125f, maxExtent / kMaxAnisotropy});

    const int top = p.getMaxLevel();
    if (width >= 1.0f) {
        // The footprint covers the whole image: its mean, the 1 by 1 level.
        readLevel(w, 0, q.uv, colour, alpha);
        return TfootprintResult::kFiltered;
    }

    // Levels and their weights.
    const int side = p.largestSide();
    width /= kTexelsAcross;
    const float r = width <= 1.0f / float(side) ? float(side + 1) : 1.0f / width;
    int levels[2] = {top, top};
    float weights[2] = {1.0f, 0.0f};
    if (!(r >= float(side) || top == 0)) {
        int l = top - 1;
        while (l > 0 && float(Tpyramid::fsNumRows[l]) > r) --l;
        const float rows = float(Tpyramid::fsNumRows[l]);
        const float next = l + 1 == top ? float(side) : float(Tpyramid::fsNumRows[l + 1]);
        float t = std::clamp((r - rows) / (next - rows), 0.0f, 1.0f);
        if (t < kSnapLow) t = 0.0f;
        if (t > kSnapHigh) t = 1.0f;
        levels[0] = l, levels[1] = l + 1;
        weights[0] = 1.0f - t, weights[1] = t;
    }

    // A magnified texture: the bilinear value at the centre hides the texels.
    const float magnification = std::min(du * float(p.width()), dv * float(p.height()));
    float smoothShare = 0.0f;
    T3Float smooth;
    float smoothAlpha = 1.0f;
    if (q.blurPixelation && magnification < kBlurStart) {
        readLevel(w, top, q.uv, smooth, smoothAlpha);
        if (magnification <= kBlurFull) {
            colour = smooth;
            alpha = smoothAlpha;
            return TfootprintResult::kFiltered;
        }
        smoothShare = (kBlurStart - magnification) / (kBlurStart - kBlurFull);
    }

    // The homogeneous pixel-frame image of a texture UV. A texture UV goes
    // back to the triangle's UV, to camera space on the plane, and into the
    // frame of this pixel (its centre at the origin, one unit a pixel).
    Tprojection proj;
    {
        // Camera-space derivatives of the point along texture u and v: the
        // inverse of the plane map's 2 by 3 part restricted to the plane.
        const T3Float gu{map.u[0], map.u[1], map.u[2]}, gv{map.v[0], map.v[1], map.v[2]};
        const float guu = dot(gu, gu), guv = dot(gu, gv), gvv = dot(gv, gv);
        const float det = guu * gvv - guv * guv;
        if (!(det > 0.0f)) return TfootprintResult::kFallback;
        // dP/du_raw and dP/dv_raw: the vectors in the plane with gu . x = 1, gv . x = 0 and the reverse.
        const T3Float dPdu = (gu * gvv - gv * guv) * (1.0f / det), dPdv = (gv * guu - gu * guv) * (1.0f / det);
        const T3Float dPdtu = dPdu * (1.0f / q.uvScale.x), dPdtv = dPdv * (1.0f / q.uvScale.y);
        const float ox = (q.pixelCenter.x - camera.centreX), oy = (q.pixelCenter.y - camera.centreY);
        const float inv = 1.0f / camera.scale;
        auto frame = [&](const T3Float& v, bool point) -> Thomogeneous {
            if (camera.perspective) {
                const float wv = -v.z;
                return {v.x * inv - ox * wv, v.y * inv - oy * wv, wv};
            }
            return {v.x * inv - (point ? ox : 0.0f), v.y * inv - (point ? oy : 0.0f), point ? 1.0f : 0.0f};
        };
        proj.base = frame(centre, true);
        proj.du = frame(dPdtu, false);
        proj.dv = frame(dPdtv, false);
        proj.uv0 = q.uv;
        proj.perspective = camera.perspective;
        proj.nearW = camera.perspective ? camera.nearPlane : 0.5f;
    }

    TfileTextureCache& cache = w.cache ? *w.cache : TfileTextureCache::threadCache();
    float out[4] = {0, 0, 0, 0};
    for (int k = 0; k < 2; ++k) {
        if (weights[k] <= 0.0f) continue;
        TlevelSum sum;
        int level = levels[k];
        while (!filterInterval(w, cache, filter, proj, level, lo, hi, sum) && level > 0) {
            sum = TlevelSum();
            --level;
        }
        float c[4];
        if (sum.total > 0.0f) {
            const float inv = 1.0f / sum.total;
            for (int i = 0; i < 4; ++i) c[i] = sum.colour[i] * inv;
        } else {
            // Nothing of the footprint falls on a texel with weight: the
            // level's bilinear value.
            T3Float lc;
            float la;
            readLevel(w, level, q.uv, lc, la);
            c[0] = lc.x, c[1] = lc.y, c[2] = lc.z, c[3] = la * 255.0f;
        }
        if (p.channels() == 1) c[1] = c[2] = c[3] = c[0];
        if (p.channels() == 3) c[3] = 255.0f;
        for (int i = 0; i < 4; ++i) out[i] += weights[k] * c[i];
    }
    colour = {out[0], out[1], out[2]};
    alpha = out[3] / 255.0f;
    if (smoothShare > 0.0f) {
        colour = colour * (1.0f - smoothShare) + smooth * smoothShare;
        alpha = alpha * (1.0f - smoothShare) + smoothAlpha * smoothShare;
    }
    return TfootprintResult::kFiltered;
}
