#pragma once
// The area light: a square, -1 to 1 in its local XY plane, shining down its
// local -Z axis. Its record carries the light itself as blind data, and
// materials call back into it for the exact irradiance of the polygon
// (integrateLambertianReflectance) and the best highlight direction
// (maxPhongSpecularDirection). Ray-traced shadows sample the polygon, so a
// shadow has a penumbra as wide as the light's size makes it.
#include "lights/render_light.h"

using T4dFltMatrix = TfltMatrix;

class TareaLightShape : public TnodeClass<TareaLightShape, TnonExtendedLightShape, TdependNodeVS> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TareaLightShape", 307, "kAreaLight");
    // Room for the polygon; only 2 (a segment) and 4 (a quad) are lit.
    static constexpr int kMaxVertices = 8;
    // The contour integral is scaled by this: a strength of the light, not a normalisation.
    static constexpr float kStrength = 10.0f;
    // Shadow rays per sample are capped here (the attribute is `shadowRays`).
    static constexpr unsigned kMaxShadowSamples = 256;

    // Fills the polygon in camera space for a frame: the local unit square
    // through `lightToCamera`.
    void prepareExtendedLight(const T4dFltMatrix& lightToCamera);
    // Sets the polygon directly (camera space); prepareExtendedLight replaces it.
    void setPolygon(const T4dFltPoint* vertices, int count);
    int vertexCount() const { return fVertexCount; }
    const T4dFltPoint& vertex(int i) const { return fVertices[i]; }
    // The average of the vertices: where the record's direction and decay point.
    const T3Float& centre() const { return fCentre; }

    void shadingNodeOnDemand(Tplug& plug, TdataBlock& block) override;

    float integrateLambertianReflectance(const T4dFltVector& lightDir, const T4dFltPoint& point, const T4dFltVector& normal,
                                         bool fromSurface) override;
    T4dFltVector maxPhongSpecularDirection(const T4dFltVector& lightDir, const T4dFltPoint& point, const T4dFltVector& reflection,
                                           const T4dFltVector& normal, const T4dFltVector* view) override;
    float lightAttenuation(const T4dFltPoint& point, const T4dFltVector& normal, bool fromSurface) override;
    float hemisphereCoverage(const T4dFltVector& lightDir, const T4dFltPoint& point, const T4dFltVector& direction,
                             bool fromSurface) override;

protected:
    bool vectorComputePlug(const Tplug& plug, TdataBlock& block, unsigned first, unsigned count) override;
    // Soft shadows: `shadowRays` rays per point to stratified points of the
    // polygon. The caller's direction, distance, radius and count are those
    // of a point light and are not used.
    void computeRtShadow(unsigned count, const T3Float* points, const T3Float* toLight, const float* distance, float radius,
                         bool angular, unsigned rays, const bool* skip, T3Float* passed) override;

private:
    // The contour sum of the quad seen from `point` against `axis`; 0 when
    // the point is behind the light or (unless `fromSurface`) every corner
    // lies below `axis`.
    float contourSum(const T3Float& point, const T3Float& axis, bool fromSurface) const;
    // False, after the message, for a polygon this light cannot integrate.
    bool canCope() const;
    // The point of the polygon at (s, t) in [0, 1)^2.
    T3Float polygonPoint(float s, float t) const;

    T4dFltPoint fVertices[kMaxVertices];
    int fVertexCount = 0;
    T3Float fCentre;
    T3Float fNormal;  // (v1 - v0) x (v2 - v1), unit: away from the lit side
};
