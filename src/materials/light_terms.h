#pragma once
// The per-light terms a diffuse surface sums, shared by Lambert and the ramp
// shader: the light's cosine (a light with extent integrates itself), the
// focused translucence that lights the far side, and the shadow pass's
// intensity-weighted shadowed fraction.
#include <algorithm>
#include <cmath>

#include "framework/host/math.h"
#include "shading/light_callbacks.h"
#include "shading/light_data.h"

inline constexpr float kFocusLimit = 1.00001f;     // keeps focus 1 a finite, very narrow lobe
inline constexpr float kTranslucenceFade = 0.15f;  // cosine range over which translucence fades in
inline constexpr float kTranslucenceDepthScale = -11.5f;
inline constexpr float kShadowSumFloor = 0.00001f;  // below it the shadow pass does not divide

inline TlightCallbacks* callbacksOf(const TlightData& d) { return static_cast<TlightCallbacks*>(d.lightBlindData); }

// dot(L, N), or the light's own integral when it has extent.
inline float lightCosine(const TlightData& d, const T3Float& point, const T3Float& normal) {
    TlightCallbacks* callback = callbacksOf(d);
    return callback ? callback->integrateLambertianReflectance(asVector4(d.lightDirection), asPoint4(point), asVector4(normal), true)
                    : dot(d.lightDirection, normal);
}

// The cosine range above the threshold over which translucence fades in.
inline float translucenceRange(float threshold) { return std::min(kTranslucenceFade - threshold, 1.0f); }

// Translucence t of one light at `cosine`: 0 unless the cosine lies above
// the threshold; a non-zero focus narrows it towards the view direction v.
inline float translucenceTerm(const TlightData& d, const T3Float& point, const T3Float& view, float t, float focus, float cosine,
                              float threshold, float range) {
    if (t == 0 || !(cosine > threshold)) return 0;
    if (focus != 0) {
        TlightCallbacks* callback = callbacksOf(d);
        float toward = callback ? callback->hemisphereCoverage(asVector4(d.lightDirection), asPoint4(point), asVector4(view), true)
                                : dot(d.lightDirection, view);
        float x = std::clamp((toward + 1.0f) * 0.5f, 0.0f, 1.0f);
        t *= float(std::pow(double(x), double(focus / (kFocusLimit - focus))));
    }
    if (cosine < threshold + range) t *= (cosine - threshold) / range;
    return t;
}

// The shadow pass: intensity of the diffuse lights, and the shadowed part of
// the intensity of those that face the surface (each scaled by `weight`).
struct TshadowSums {
    float intensity = 0, shadowed = 0;
    void add(const TlightData& d, float cosine, float weight = 1.0f) {
        intensity += d.preShadowIntensity;
        if (cosine > 0) shadowed += d.preShadowIntensity * d.lightShadowFraction * weight;
    }
    float fraction() const { return intensity > kShadowSumFloor ? shadowed / intensity : shadowed; }
};
