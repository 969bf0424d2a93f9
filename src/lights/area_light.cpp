#include "lights/area_light.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "framework/scratch_array.h"
#include "shading/shading_types.h"

SN_REGISTER_NODE_CLASS(TareaLightShape)

namespace {
constexpr float kCornerThreshold = 0.00001f;  // a corner nearer than this stays unnormalised
constexpr float kSquaredThreshold = 1e-20f;
constexpr float kTwoPi = 6.2831855f;

// The local square, wound so that (v1 - v0) x (v2 - v1) points away from the
// lit side (+Z): seen from a lit point the contour sum is then positive.
constexpr T3Float kSquare[4] = {{-1, -1, 0}, {1, -1, 0}, {1, 1, 0}, {-1, 1, 0}};

T3Float xyz(const T4dFltVector& v) { return {v.x, v.y, v.z}; }

// The point of segment [a, b] nearest to the ray from `origin` along
// `direction` (t >= 0): where a highlight that misses the light comes closest.
T3Float segmentPointNearestRay(const T3Float& a, const T3Float& b, const T3Float& origin, const T3Float& direction) {
    T3Float d1 = b - a, r = a - origin;
    float aa = dot(d1, d1), e = dot(direction, direction);
    if (e <= kSquaredThreshold) {
        float s = aa > kSquaredThreshold ? std::clamp(-dot(d1, r) / aa, 0.0f, 1.0f) : 0.0f;
        return a + d1 * s;
    }
    float f = dot(direction, r);
    if (aa <= kSquaredThreshold) return a;
    float c = dot(d1, r), bb = dot(d1, direction);
    float denom = aa * e - bb * bb;
    float s = denom > 0 ? std::clamp((bb * f - c * e) / denom, 0.0f, 1.0f) : 0.0f;
    float t = (bb * s + f) / e;
    if (t < 0) s = std::clamp(-c / aa, 0.0f, 1.0f);
    return a + d1 * s;
}

float squaredDistanceToRay(const T3Float& q, const T3Float& origin, const T3Float& direction) {
    float e = dot(direction, direction);
    float t = e > kSquaredThreshold ? std::max(dot(q - origin, direction) / e, 0.0f) : 0.0f;
    T3Float d = q - (origin + direction * t);
    return dot(d, d);
}

// Van der Corput in base 2: the second coordinate of a Hammersley set.
float radicalInverse(uint32_t i) {
    i = (i << 16) | (i >> 16);
    i = ((i & 0x55555555u) << 1) | ((i & 0xAAAAAAAAu) >> 1);
    i = ((i & 0x33333333u) << 2) | ((i & 0xCCCCCCCCu) >> 2);
    i = ((i & 0x0F0F0F0Fu) << 4) | ((i & 0xF0F0F0F0u) >> 4);
    i = ((i & 0x00FF00FFu) << 8) | ((i & 0xFF00FF00u) >> 8);
    return float(i) * (1.0f / 4294967296.0f);
}

// Two numbers in [0, 1) that depend on the point alone, so that a point's
// shadow rays are the same whatever thread, tile or batch shades it.
void pointHash(const T3Float& p, float& u, float& v) {
    uint32_t bits[3];
    std::memcpy(bits, &p, sizeof bits);
    uint64_t h = 0x9E3779B97F4A7C15ull;
    for (uint32_t b : bits) {
        h ^= b;
        h *= 0xBF58476D1CE4E5B9ull;
        h ^= h >> 31;
    }
    h *= 0x94D049BB133111EBull;
    h ^= h >> 29;
    u = float(uint32_t(h) >> 8) * (1.0f / 16777216.0f);
    v = float(uint32_t(h >> 32) >> 8) * (1.0f / 16777216.0f);
}

float fraction(float x) { return x - std::floor(x); }
}  // namespace

// ---------------------------------------------------------------- the polygon

void TareaLightShape::prepareExtendedLight(const T4dFltMatrix& lightToCamera) {
    T4dFltPoint corners[4];
    for (int i = 0; i < 4; ++i) corners[i] = asPoint4(lightToCamera.transformPoint(kSquare[i]));
    setPolygon(corners, 4);
}

void TareaLightShape::setPolygon(const T4dFltPoint* vertices, int count) {
    fVertexCount = count;
    int kept = std::clamp(count, 0, kMaxVertices);
    T3Float sum;
    for (int i = 0; i < kept; ++i) {
        fVertices[i] = vertices[i];
        sum = sum + xyz(vertices[i]);
    }
    fCentre = kept ? sum * (1.0f / float(kept)) : T3Float();
    // Fixed for the frame, so worked out here rather than at every point.
    fNormal = T3Float();
    if (kept >= 3) {
        T3Float a = fastNormalize(xyz(vertices[1]) - xyz(vertices[0]));
        T3Float b = fastNormalize(xyz(vertices[2]) - xyz(vertices[1]));
        fNormal = fastNormalize(cross(a, b));
    }
}

void TareaLightShape::shadingNodeOnDemand(Tplug& plug, TdataBlock& block) {
    TnonExtendedLightShape::shadingNodeOnDemand(plug, block);
    prepareExtendedLight(convertMatrix<float>(fWorld * worldToCamera()));
}

bool TareaLightShape::canCope() const {
    if (fVertexCount == 2 || fVertexCount == 4) return true;
    std::printf("Can not cope with light %s, has %d vertices\n", name().asC(), fVertexCount);
    return false;
}

T3Float TareaLightShape::polygonPoint(float s, float t) const {
    T3Float v0 = xyz(fVertices[0]), v1 = xyz(fVertices[1]);
    T3Float bottom = v0 + (v1 - v0) * s;
    if (fVertexCount != 4) return bottom;
    T3Float v3 = xyz(fVertices[3]), v2 = xyz(fVertices[2]);
    T3Float top = v3 + (v2 - v3) * s;
    return bottom + (top - bottom) * t;
}

// ---------------------------------------------------------------- the callbacks

float TareaLightShape::contourSum(const T3Float& point, const T3Float& axis, bool fromSurface) const {
    T3Float u[4];
    for (int i = 0; i < 4; ++i) {
        u[i] = xyz(fVertices[i]) - point;
        float l = length(u[i]);
        // A corner at the point itself stays as it is: its edges then add nothing.
        if (l > kCornerThreshold) u[i] = u[i] * (1.0f / l);
    }
    if (dot(fNormal, u[0]) < 0) return 0;  // behind the light
    if (!fromSurface && dot(u[0], axis) < 0 && dot(u[1], axis) < 0 && dot(u[2], axis) < 0 && dot(u[3], axis) < 0) return 0;
    float sum = 0;
    for (int i = 0; i < 4; ++i) {
        int j = (i + 1) & 3;
        float c = std::clamp(dot(u[i], u[j]), -1.0f, 1.0f);
        double theta = std::fabs(std::acos(double(c)));
        T3Float n = fastNormalize(cross(u[i], u[j]));
        sum += float(theta * 0.5 * double(dot(n, axis)) * double(kStrength));
    }
    return sum;
}

float TareaLightShape::integrateLambertianReflectance(const T4dFltVector&, const T4dFltPoint& point, const T4dFltVector& normal,
                                                      bool fromSurface) {
    if (!canCope()) return 0;
    if (fVertexCount == 2) return dot(fastNormalize(fCentre - xyz(point)), xyz(normal));
    return contourSum(xyz(point), xyz(normal), fromSurface);
}

float TareaLightShape::lightAttenuation(const T4dFltPoint& point, const T4dFltVector& normal, bool fromSurface) {
    if (!canCope()) return 0;
    if (fVertexCount == 2) return std::fabs(dot(fastNormalize(fCentre - xyz(point)), xyz(normal)));
    return std::fabs(contourSum(xyz(point), xyz(normal), fromSurface));
}

float TareaLightShape::hemisphereCoverage(const T4dFltVector&, const T4dFltPoint& point, const T4dFltVector& direction,
                                          bool fromSurface) {
    if (!canCope()) return 0;
    if (fVertexCount == 2) return dot(fastNormalize(fCentre - xyz(point)), xyz(direction)) / kTwoPi;
    return contourSum(xyz(point), xyz(direction), fromSurface) / kTwoPi;
}

T4dFltVector TareaLightShape::maxPhongSpecularDirection(const T4dFltVector& lightDir, const T4dFltPoint& point,
                                                        const T4dFltVector& reflection, const T4dFltVector&, const T4dFltVector*) {
    if (!canCope()) return lightDir;
    const T3Float p = xyz(point), r = xyz(reflection);
    if (fVertexCount == 4) {
        // The reflected ray against the plane of the quad, then inside every edge.
        const T3Float v0 = xyz(fVertices[0]);
        T3Float n = cross(xyz(fVertices[1]) - v0, xyz(fVertices[2]) - xyz(fVertices[1]));
        double facing = double(dot(n, r));
        double t = facing != 0 ? double(dot(n, v0 - p)) / facing : -1.0;
        if (t > 0) {
            T3Float hit = p + r * float(t);
            bool inside = true;
            for (int i = 0; i < 4 && inside; ++i) {
                T3Float vi = xyz(fVertices[i]), vj = xyz(fVertices[(i + 1) & 3]);
                inside = dot(cross(vj - vi, hit - vi), n) >= 0;
            }
            if (inside) return asVector4(fastNormalize(hit - p, kSquaredThreshold));
        }
    }
    // A miss: towards the point of the edges that the ray passes nearest.
    const int edges = fVertexCount == 4 ? 4 : 1;
    T3Float best = xyz(fVertices[0]);
    float bestDistance = INFINITY;
    for (int i = 0; i < edges; ++i) {
        T3Float q = segmentPointNearestRay(xyz(fVertices[i]), xyz(fVertices[(i + 1) % fVertexCount]), p, r);
        float d = squaredDistanceToRay(q, p, r);
        if (d < bestDistance) bestDistance = d, best = q;
    }
    return asVector4(fastNormalize(best - p, kSquaredThreshold));
}

// ---------------------------------------------------------------- records and shadows

bool TareaLightShape::vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) {
    const Tattribute* a = plug.attribute()->rootParent();
    if (a != &TlightShape::saLightData()) return TnonExtendedLightShape::vectorComputePlug(plug, block, first, count);
    TdataHandle intensityIn = block.inputValue(TlightShape::saIntensity(), first, count);
    TdataHandle points = block.inputValue(attrPointCamera(), first, count);
    TdataHandle decay = block.inputValue(attrDecayRate(), first, count);
    TdataHandle infoBits = block.inputValue(TlightShape::saInfoBits(), first, count);
    TdataHandle receive = block.inputValue(attrReceiveShadows(), first, count);

    bool doShadow = batchCastsShadows(0, infoBits.asInt(first), receive.asBool(first));
    for (unsigned start = first; start < first + count; start += kBatchSize) {
        unsigned n = std::min(first + count - start, kBatchSize);
        float intensity[kBatchSize], distance[kBatchSize];
        TscratchArray<T3Float, kBatchSize> toLight;
        for (unsigned k = 0; k < n; ++k) {
            unsigned i = start + k;
            const float dist = directionToLight(fCentre, points.asFloat3(i), toLight[k]);
            distance[k] = dist;
            intensity[k] = intensityIn.asFloat(i) * decayFactor(decay.asShort(i), dist);
        }
        finishRecords(block, start, n, toLight, distance, intensity, doShadow, 0, false);
    }
    block.setClean(TlightShape::saLightData());
    return true;
}

void TareaLightShape::computeRtShadow(unsigned count, const T3Float* points, const T3Float*, const float*, float, bool, unsigned wanted,
                                      const bool* skip, T3Float* passed) {
    for (unsigned i = 0; i < count; ++i) passed[i] = {1, 1, 1};
    if (!threadRaySampler() || !count || (fVertexCount != 2 && fVertexCount != 4)) return;
    // The caller read the shadow ray count before shading began.
    const unsigned rays = std::clamp<unsigned>(wanted, 1u, kMaxShadowSamples);
    const float strata = 1.0f / float(rays);
    for (unsigned first = 0; first < count; first += kBatchSize) {
        const unsigned n = std::min(count - first, kBatchSize);
        float offsetS[kBatchSize], offsetT[kBatchSize], distance[kBatchSize];
        TscratchArray<T3Float, kBatchSize> direction, through, sum;
        for (unsigned k = 0; k < n; ++k) {
            pointHash(points[first + k], offsetS[k], offsetT[k]);
            sum[k] = {0, 0, 0};
        }
        // A Hammersley set over the polygon, turned by each point's own offset:
        // one ray in each of `rays` strata along s, and well spread along t.
        for (unsigned r = 0; r < rays; ++r) {
            float s0 = float(r) * strata, t0 = radicalInverse(r);
            for (unsigned k = 0; k < n; ++k) {
                T3Float target = polygonPoint(s0 + offsetS[k] * strata, fraction(t0 + offsetT[k]));
                distance[k] = directionToLight(target, points[first + k], direction[k]);
            }
            // One straight ray per point, through the point light's road.
            TrenderLightShape::computeRtShadow(n, points + first, direction, distance, 0, false, 1, skip ? skip + first : nullptr,
                                               through);
            for (unsigned k = 0; k < n; ++k) sum[k] = sum[k] + through[k];
        }
        for (unsigned k = 0; k < n; ++k) passed[first + k] = sum[k] * strata;
    }
}
