#pragma once
// The highlight shapes of the specular materials, as plain functions of
// directions and settings, so that each can be reasoned about (and tested)
// on its own. Directions are unit vectors in camera space: L towards the
// light, V the incoming ray (from the eye to the surface), N the normal, R
// the mirror of V about N. docs/materials.md gives the formulas.
#include "framework/host/math.h"

// Phong: exp(power log dot(L, R)); below an exponent of -10 the highlight
// keeps a floor instead of fading to 0. 0 when dot(L, R) is not positive.
inline constexpr float kPhongFloor = 0.0000454f;
inline constexpr double kPhongFloorExponent = -10.0;
float phongLobe(float cosineToMirror, float cosinePower);

// Blinn: a microfacet highlight of eccentricity e with masking and a
// Fresnel-like roll-off. Returns 0 where the product is not positive.
float blinnLobe(const T3Float& L, const T3Float& V, const T3Float& N, float eccentricity, float specularRollOff);
// The roll-off factor at the view angle, which scales the reflectivity.
float blinnViewRollOff(const T3Float& V, const T3Float& N, float specularRollOff);

// PhongE: a Phong lobe whose exponent comes from roughness and highlight
// size, and whose core is tinted towards the whiteness.
inline constexpr float kPhongEMinSize = 0.001f, kPhongEMaxSize = 0.1f;
inline constexpr float kPhongEMaxSharpness = 10.0f;
inline constexpr float kPhongENearZero = 0.00001f;
float phongELobe(float cosineToMirror, float roughness, float highlightSize);
T3Float phongETint(float lobe, const T3Float& whiteness);
// Values within kPhongENearZero of 0 become 0.
float roundNearZero(float v);

// Anisotropic: a Gaussian of the half vector's slope in a rotated tangent
// frame, times smooth shadowing and Fresnel (over its normal-incidence value)
// at the view angle.
struct TanisotropicFrame {
    T3Float u, v, n;  // orthonormal: tangent along spreadX, tangent along spreadY, normal
};
TanisotropicFrame anisotropicFrame(const T3Float& tangentU, const T3Float& tangentV, const T3Float& N, float angleDegrees);
float fresnel(float angle, float index);
float fresnel0(float index);
float smoothShadowing(float roughness, float cosine);
float anisotropicLobe(const T3Float& L, const T3Float& V, const TanisotropicFrame& frame, float spreadX, float spreadY,
                      float roughness, float fresnelIndex);
// The weight of the mirror reflection when the reflection follows the lobe.
float anisotropicReflectionWeight(const T3Float& V, const T3Float& N, float roughness, float fresnelIndex);

// Hair: a smoothstep of the difference of the angles that a and b make with
// the tangent t, raised to a power; 1 where the angles agree.
double hairSpecular(double power, const T3Float& a, const T3Float& b, const T3Float& t);
// The primary lobe along the tangent plus the broader scatter lobe along
// the tangent tilted towards the normal by `shiftDegrees`.
float hairLobe(const T3Float& L, const T3Float& V, const T3Float& tangent, const T3Float& N, float specularPower,
               float shiftDegrees, float scatterPower, float scatter);
