#include "materials/specular_lobes.h"

#include <algorithm>
#include <cmath>

#include "materials/shading_math.h"

namespace {
constexpr double kPi = 3.14159265358979323846;
float degrees(float d) { return float(double(d) * kPi / 180.0); }
}  // namespace

float phongLobe(float cosineToMirror, float cosinePower) {
    if (!(cosineToMirror > 0)) return 0;
    double t = std::log(double(cosineToMirror)) * double(cosinePower);
    return t < kPhongFloorExponent ? kPhongFloor : float(std::exp(t));
}

float blinnLobe(const T3Float& L, const T3Float& V, const T3Float& N, float eccentricity, float specularRollOff) {
    const T3Float E = V * -1.0f;  // towards the eye
    const T3Float H = unitOrSelf(L + E);
    float nh = dot(N, H), ne = dot(N, E), nl = dot(N, L), eh = dot(E, H);
    if (ne <= 0 || eh <= 0 || nh <= 0) return 0;
    float e2 = eccentricity * eccentricity;
    float d = e2 / ((e2 - 1.0f) * nh * nh + 1.0f);
    float D = d * d;
    float G = std::min({1.0f, 2.0f * nh * ne / eh, 2.0f * nh * nl / eh}) / ne;
    float x = 1.0f - eh;
    float F = x * x * x + (1.0f - x * x * x) * specularRollOff;
    float lobe = D * G * F;
    return lobe > 0 ? lobe : 0;
}

float blinnViewRollOff(const T3Float& V, const T3Float& N, float specularRollOff) {
    float x = 1.0f - std::fabs(dot(V, N));
    return x * x * x + (1.0f - x * x * x) * specularRollOff;
}

float roundNearZero(float v) { return std::fabs(v) < kPhongENearZero ? 0.0f : v; }

float phongELobe(float cosineToMirror, float roughness, float highlightSize) {
    if (!(cosineToMirror > 0)) return 0;
    float size = std::clamp(highlightSize * kPhongEMaxSize, kPhongEMinSize, kPhongEMaxSize);
    float sharpness = std::min(1.0f / std::max(roughness, 1.0f / kPhongEMaxSharpness), kPhongEMaxSharpness);
    double exponent = double(sharpness) / double(size);
    return roundNearZero(float(std::exp(std::log(double(cosineToMirror)) * exponent)));
}

T3Float phongETint(float lobe, const T3Float& whiteness) {
    // Monotone in the lobe for any whiteness in [0, 1], so the tint never
    // moves the peak; the core reaches halfway to the whiteness.
    T3Float t;
    for (int c = 0; c < 3; ++c) t[c] = lobe * (1.0f - 0.5f * lobe * (1.0f - whiteness[c]));
    return t;
}

TanisotropicFrame anisotropicFrame(const T3Float& tangentU, const T3Float& tangentV, const T3Float& N, float angleDegrees) {
    T3Float n = unitOrSelf(N);
    // Gram-Schmidt: the tangent in the surface plane, then the second from the cross product.
    T3Float u = unitOrSelf(tangentU - n * dot(tangentU, n));
    if (dot(u, u) < 0.5f) u = unitOrSelf(tangentV - n * dot(tangentV, n));
    T3Float v = cross(n, u);
    if (dot(v, tangentV) < 0) v = v * -1.0f;
    float a = degrees(angleDegrees), c = std::cos(a), s = std::sin(a);
    return {u * c + v * s, v * c - u * s, n};
}

float fresnel(float angle, float index) {
    double c = std::cos(double(angle)), n2 = double(index) * double(index);
    double g = std::sqrt(std::max(n2 - 1.0 + c * c, 0.0));
    double a = (n2 * c - g) / (n2 * c + g), b = (c - g) / (c + g);
    return float((a * a + b * b) * 0.5);
}

float fresnel0(float index) {
    float r = (index - 1.0f) / (index + 1.0f);
    return r * r;
}

float smoothShadowing(float roughness, float cosine) {
    if (cosine <= 0) return 0;
    float c2 = std::min(cosine * cosine, 1.0f);
    if (c2 >= 1.0f) return 1.0f;
    // 0.25 / roughness scales the squared cotangent: rough surfaces shadow
    // more of the grazing range.
    return 1.0f - float(std::exp(-(0.25 / double(roughness)) * double(c2 / (1.0f - c2))));
}

float anisotropicLobe(const T3Float& L, const T3Float& V, const TanisotropicFrame& f, float spreadX, float spreadY,
                      float roughness, float fresnelIndex) {
    const T3Float E = V * -1.0f;
    if (dot(f.n, L) <= 0 || dot(f.n, E) <= 0) return 0;
    const T3Float H = unitOrSelf(L + E);
    float hn = dot(H, f.n);
    if (hn <= 0) return 0;
    float hx = dot(H, f.u), hy = dot(H, f.v);
    float w2 = (spreadX * hx * hx + spreadY * hy * hy) / (hn * hn * roughness * roughness);
    // Shadowing and Fresnel are taken at the view, so that only the slope
    // term moves with the light and the highlight stays centred on the mirror.
    return float(std::exp(-double(w2))) * anisotropicReflectionWeight(V, f.n, roughness, fresnelIndex);
}

float anisotropicReflectionWeight(const T3Float& V, const T3Float& N, float roughness, float fresnelIndex) {
    float ne = std::clamp(-dot(unitOrSelf(N), V), -1.0f, 1.0f);
    if (ne <= 0) return 0;
    float s = smoothShadowing(roughness, ne);
    if (fresnelIndex <= 1.0001f) {
        // Both Fresnel terms vanish at an index of 1, the bottom of its
        // range, where 0 / 0 would blacken the surface with NaN. Their ratio
        // tends to ((2c^2 - 1)^2 + 1) / 2c^4 as the index tends to 1.
        const double c2 = double(ne) * double(ne), d = 2 * c2 - 1;
        return s * s * float((d * d + 1) / (2 * c2 * c2));
    }
    return s * s * fresnel(std::acos(ne), fresnelIndex) / fresnel0(fresnelIndex);
}

double hairSpecular(double power, const T3Float& a, const T3Float& b, const T3Float& t) {
    double u = 1.0 - (1.0 - std::fabs(double(dot(a, t)) - double(dot(b, t))) * 0.5);
    return std::pow(1.0 + (-3.0 + 2.0 * u) * u * u, power);
}

float hairLobe(const T3Float& L, const T3Float& V, const T3Float& tangent, const T3Float& N, float specularPower,
               float shiftDegrees, float scatterPower, float scatter) {
    T3Float t = unitOrSelf(tangent);
    double primary = hairSpecular(specularPower, L, V, t);
    float a = degrees(shiftDegrees);
    T3Float shifted = unitOrSelf(t * std::cos(a) + unitOrSelf(N) * std::sin(a));
    double secondary = double(scatter) * hairSpecular(scatterPower, L, V, shifted);
    return float(primary + secondary);
}
