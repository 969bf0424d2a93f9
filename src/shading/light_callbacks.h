#pragma once
// What a material may ask of a light whose record carries it as blind data:
// a light with extent (an area light) integrates itself instead of being
// treated as a point. The base answers are those of a point light, so a
// light overrides only what its shape changes. A light stores
// static_cast<TlightCallbacks*>(light) in lightBlindData.
#include "framework/host/math.h"

using T4dFltPoint = T4dFltVector;

class TlightCallbacks {
public:
    virtual ~TlightCallbacks() = default;
    // The cosine-weighted coverage of the surface by the light.
    virtual float integrateLambertianReflectance(const T4dFltVector& lightDir, const T4dFltPoint&, const T4dFltVector& normal,
                                                 bool /*fromSurface*/) {
        return lightDir.x * normal.x + lightDir.y * normal.y + lightDir.z * normal.z;
    }
    // The direction within the light that gives the brightest highlight.
    virtual T4dFltVector maxPhongSpecularDirection(const T4dFltVector& lightDir, const T4dFltPoint&, const T4dFltVector& /*reflection*/,
                                                   const T4dFltVector& /*normal*/, const T4dFltVector* /*view*/) {
        return lightDir;
    }
    virtual float lightAttenuation(const T4dFltPoint&, const T4dFltVector&, bool /*fromSurface*/) { return 1.0f; }
    // How much of the light lies towards `direction`.
    virtual float hemisphereCoverage(const T4dFltVector& lightDir, const T4dFltPoint&, const T4dFltVector& direction,
                                     bool /*fromSurface*/) {
        return lightDir.x * direction.x + lightDir.y * direction.y + lightDir.z * direction.z;
    }
};

inline T4dFltVector asVector4(const T3Float& v) { return {v.x, v.y, v.z, 0.0f}; }
inline T4dFltPoint asPoint4(const T3Float& p) { return {p.x, p.y, p.z, 1.0f}; }
inline T3Float asFloat3(const T4dFltVector& v) { return {v.x, v.y, v.z}; }
