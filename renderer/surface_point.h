#pragma once
// A ray's hit turned into everything a sample can hold: positions in the
// three spaces, normals, tangents, UVs and their filter sizes, the triangle
// corners, and the ray itself, in camera space.
#include <cstdint>

#include "framework/host/math.h"

class TrenderObject;
struct TrenderCamera;
class Tsample;

struct TsurfacePoint {
    const TrenderObject* object = nullptr;
    int32_t primitive = 0;
    float distance = 0;  // along the ray, camera-space units
    T3Float pointCamera, pointObject, pointWorld;
    T3Float normal, triangleNormal;  // camera space, towards the ray's origin
    T3Float tangentU, tangentV;      // camera space, unit, orthogonal to `normal`
    T3Float dPdu, dPdv;              // camera space
    T3Float rayOrigin, rayDirection;  // camera space; direction unit length
    T2Float uv, uvFilterSize, pixelCenter;
    T3Float filterSize;
    bool flipped = false;
    bool triangle = false;
    T3Float vertexCamera[3];
    T2Float vertexUv[3];
    int32_t rayDepth = 0;
    int16_t illuminationIndex = -1;
    float refractiveIndex = 1;
};

// Evaluates `object` at a hit found by tracing the world-space ray
// (`origin`, `direction`) to `t`; `bu`, `bv` are the tracer's barycentrics.
void evaluateSurface(const TrenderObject& object, const TrenderCamera& camera, unsigned primitive, float bu, float bv,
                     const T3Float& origin, const T3Float& direction, float t, TsurfacePoint& out);

// The footprint of a pixel on the surface, from the two neighbouring rays
// (camera space), sets filterSize and uvFilterSize.
void applyRayDifferentials(TsurfacePoint& point, const T3Float& originX, const T3Float& directionX, const T3Float& originY,
                           const T3Float& directionY);
// The same for a ray without neighbours: a footprint `width` across.
void applyFootprint(TsurfacePoint& point, float width);

// Stores every item the point knows into the sample; the record keeps those
// its program needs.
void fillSample(Tsample& sample, const TsurfacePoint& point);
