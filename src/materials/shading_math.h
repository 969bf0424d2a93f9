#pragma once
// Small per-channel arithmetic the materials share.
#include <cmath>

#include "framework/host/math.h"
#include "shading/ray_sampler.h"

inline T3Float mul(const T3Float& a, const T3Float& b) { return {a.x * b.x, a.y * b.y, a.z * b.z}; }
inline T3Float mul(const T3Float& a, const Tspectrum& b) { return {a.x * b.r(), a.y * b.g(), a.z * b.b()}; }
inline T3Float oneMinus(const T3Float& a) { return {1.0f - a.x, 1.0f - a.y, 1.0f - a.z}; }
inline T3Float splat(float v) { return {v, v, v}; }

// Unit length when the vector is long enough to normalise safely.
inline T3Float unitOrSelf(const T3Float& v) {
    float len2 = dot(v, v);
    return len2 > 1e-20f ? v * (1.0f / std::sqrt(len2)) : v;
}

// The mirror of v about n: v + 2 (-dot(v, n)) n.
inline T3Float mirror(const T3Float& v, const T3Float& n) { return v + n * (-2.0f * dot(v, n)); }
