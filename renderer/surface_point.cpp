#include "renderer/surface_point.h"

#include <cmath>
#include <numbers>

#include "renderer/render_scene.h"
#include "shading/sample.h"

namespace {
constexpr float kPi = std::numbers::pi_v<float>;

T3Float toCameraNormal(const TrenderObject& object, const T3Float& n) { return normalize(object.normalToCamera.transformVector(n)); }

// Any unit vector orthogonal to `n`.
T3Float orthogonalTo(const T3Float& n) {
    T3Float a = std::fabs(n.x) < 0.9f ? T3Float(1, 0, 0) : T3Float(0, 1, 0);
    return normalize(cross(a, n));
}

// Solves dP = a * dPdu + b * dPdv in the least-squares sense.
T2Float uvDelta(const T3Float& dP, const T3Float& dPdu, const T3Float& dPdv) {
    float uu = dot(dPdu, dPdu), uv = dot(dPdu, dPdv), vv = dot(dPdv, dPdv);
    float det = uu * vv - uv * uv;
    if (std::fabs(det) < 1e-20f) return {0, 0};
    float ru = dot(dPdu, dP), rv = dot(dPdv, dP);
    return {(vv * ru - uv * rv) / det, (uu * rv - uv * ru) / det};
}

void setFootprint(TsurfacePoint& p, const T3Float& dPdx, const T3Float& dPdy) {
    p.filterSize = {std::fabs(dPdx.x) + std::fabs(dPdy.x), std::fabs(dPdx.y) + std::fabs(dPdy.y),
                    std::fabs(dPdx.z) + std::fabs(dPdy.z)};
    T2Float dx = uvDelta(dPdx, p.dPdu, p.dPdv), dy = uvDelta(dPdy, p.dPdu, p.dPdv);
    p.uvFilterSize = {std::fabs(dx.x) + std::fabs(dy.x), std::fabs(dx.y) + std::fabs(dy.y)};
}
}  // namespace

void evaluateSurface(const TrenderObject& object, const TrenderCamera& camera, unsigned primitive, float bu, float bv,
                     const T3Float& origin, const T3Float& direction, float t, TsurfacePoint& out) {
    out.object = &object;
    out.primitive = int32_t(primitive);
    out.triangle = false;
    T3Float hitWorld = origin + direction * t;
    T3Float p = object.worldToObject.transformPoint(hitWorld);
    T3Float ng, n, dPdu, dPdv;
    T2Float uv{0, 0};
    switch (object.kind) {
        case TshapeKind::kSphere: {
            float r = object.radius;
            T3Float dir = normalize(p);
            p = dir * r;  // back onto the surface: the hit's rounding would show in the normal
            ng = n = dir;
            float phi = std::atan2(p.x, p.z);
            float theta = std::asin(std::fmax(-1.0f, std::fmin(1.0f, dir.y)));
            uv = {0.5f + phi / (2 * kPi), 0.5f + theta / kPi};
            dPdu = T3Float(p.z, 0, -p.x) * (2 * kPi);
            dPdv = T3Float(-p.y * std::sin(phi), r * std::cos(theta), -p.y * std::cos(phi)) * kPi;
            break;
        }
        case TshapeKind::kDisc: {
            float r = object.radius;
            p.y = 0;
            ng = n = {0, 1, 0};
            uv = {0.5f + p.x / (2 * r), 0.5f - p.z / (2 * r)};
            dPdu = {2 * r, 0, 0};
            dPdv = {0, 0, -2 * r};
            break;
        }
        case TshapeKind::kTriangles: {
            const TtriangleMesh& mesh = *object.mesh;
            const uint32_t* idx = &mesh.indices[3 * size_t(primitive)];
            const T3Float& p0 = mesh.positions[idx[0]];
            const T3Float& p1 = mesh.positions[idx[1]];
            const T3Float& p2 = mesh.positions[idx[2]];
            float b0 = 1 - bu - bv;
            p = p0 * b0 + p1 * bu + p2 * bv;
            ng = normalize(cross(p1 - p0, p2 - p0));
            n = mesh.hasNormals() ? normalize(mesh.normals[idx[0]] * b0 + mesh.normals[idx[1]] * bu + mesh.normals[idx[2]] * bv)
                                  : ng;
            T2Float t0{0, 0}, t1{1, 0}, t2{0, 1};
            if (mesh.hasUvs()) t0 = mesh.uvs[idx[0]], t1 = mesh.uvs[idx[1]], t2 = mesh.uvs[idx[2]];
            uv = {t0.x * b0 + t1.x * bu + t2.x * bv, t0.y * b0 + t1.y * bu + t2.y * bv};
            // Position derivatives from the UV layout of the triangle.
            T3Float e1 = p1 - p0, e2 = p2 - p0;
            float du1 = t1.x - t0.x, dv1 = t1.y - t0.y, du2 = t2.x - t0.x, dv2 = t2.y - t0.y;
            float det = du1 * dv2 - dv1 * du2;
            if (std::fabs(det) > 1e-12f) {
                float inv = 1 / det;
                dPdu = (e1 * dv2 - e2 * dv1) * inv;
                dPdv = (e2 * du1 - e1 * du2) * inv;
            } else {
                dPdu = e1;
                dPdv = e2;
            }
            out.triangle = true;
            const T3Float* corners[3] = {&p0, &p1, &p2};
            for (int k = 0; k < 3; ++k) {
                out.vertexCamera[k] = object.objectToCamera.transformPoint(*corners[k]);
                out.vertexUv[k] = mesh.hasUvs() ? mesh.uvs[idx[k]] : (k == 0 ? t0 : k == 1 ? t1 : t2);
            }
            break;
        }
    }

    out.pointObject = p;
    out.pointWorld = object.objectToWorld.transformPoint(p);
    out.pointCamera = object.objectToCamera.transformPoint(p);
    out.rayOrigin = camera.worldToCamera.transformPoint(origin);
    out.rayDirection = normalize(camera.worldToCamera.transformVector(direction));
    out.distance = length(out.pointCamera - out.rayOrigin);
    out.uv = uv;
    out.triangleNormal = toCameraNormal(object, ng);
    out.normal = toCameraNormal(object, n);
    // Surfaces are two-sided: the normals face the ray's origin.
    out.flipped = dot(out.triangleNormal, out.rayDirection) > 0;
    if (out.flipped) {
        out.triangleNormal = out.triangleNormal * -1.0f;
        out.normal = out.normal * -1.0f;
    }
    out.dPdu = object.objectToCamera.transformVector(dPdu);
    out.dPdv = object.objectToCamera.transformVector(dPdv);
    T3Float tu = out.dPdu - out.normal * dot(out.normal, out.dPdu);
    out.tangentU = length(tu) > 1e-12f ? normalize(tu) : orthogonalTo(out.normal);
    T3Float tv = out.dPdv - out.normal * dot(out.normal, out.dPdv) - out.tangentU * dot(out.tangentU, out.dPdv);
    out.tangentV = length(tv) > 1e-12f ? normalize(tv) : normalize(cross(out.normal, out.tangentU));
}

void applyRayDifferentials(TsurfacePoint& point, const T3Float& originX, const T3Float& directionX, const T3Float& originY,
                           const T3Float& directionY) {
    // Each neighbour ray meets the tangent plane of the hit.
    auto onPlane = [&](const T3Float& o, const T3Float& d) {
        float facing = dot(point.triangleNormal, d);
        if (std::fabs(facing) < 1e-8f) return point.pointCamera;
        float t = dot(point.triangleNormal, point.pointCamera - o) / facing;
        return o + d * t;
    };
    setFootprint(point, onPlane(originX, directionX) - point.pointCamera, onPlane(originY, directionY) - point.pointCamera);
}

void applyFootprint(TsurfacePoint& point, float width) { setFootprint(point, point.tangentU * width, point.tangentV * width); }

void fillSample(Tsample& s, const TsurfacePoint& p) {
    s.setPointCamera(p.pointCamera);
    s.setPointObj(p.pointObject);
    s.setPointWorld(p.pointWorld);
    // Nothing deforms here: the reference points are the points.
    s.setRefPointCamera(p.pointCamera);
    s.setRefPointObj(p.pointObject);
    s.setRefPointWorld(p.pointWorld);
    s.setUvCoord(p.uv);
    s.setNormalCamera(p.normal);
    s.setTriangleNormalCamera(p.triangleNormal);
    s.setTangentUCamera(p.tangentU);
    s.setTangentVCamera(p.tangentV);
    s.setFilterSize(p.filterSize);
    s.setUvFilterSize(p.uvFilterSize);
    s.setRayOrigin(p.rayOrigin);
    s.setRayDirection(p.rayDirection);
    s.setRayDepth(p.rayDepth);
    s.setPixelCenter(p.pixelCenter);
    if (p.triangle) {
        s.setVertexCameraOne(p.vertexCamera[0]);
        s.setVertexCameraTwo(p.vertexCamera[1]);
        s.setVertexCameraThree(p.vertexCamera[2]);
        s.setVertexUvOne(p.vertexUv[0]);
        s.setVertexUvTwo(p.vertexUv[1]);
        s.setVertexUvThree(p.vertexUv[2]);
    }
    s.setPrimitiveId(p.primitive);
    // 1 marks a polygon surface: the one kind a file texture's footprint filter reads.
    s.setObjectType(p.triangle ? char(1) : char(0));
    s.setMediumRefractiveIndex(p.refractiveIndex);
    s.setFlippedNormal(p.flipped);
    s.setIlluminationIndex(p.illuminationIndex);
    if (p.object) {
        s.setRayInstance(p.object->instance);
        if (s.hasItem(kItemMatrixObjectToWorld)) s.setMatrixObjectToWorld(p.object->objectToWorldF);
        if (s.hasItem(kItemMatrixWorldToObject)) s.setMatrixWorldToObject(p.object->worldToObjectF);
    }
}
