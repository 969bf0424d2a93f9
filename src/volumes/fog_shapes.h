#pragma once
// The shapes fog fills. TenvFogShape fills all of space: a ray's interval
// in it is the ray's own. The bounded ones are unit shapes placed by the
// transforms above them: a sphere of radius 1, the cube from -1 to 1, and a
// cone with its apex at the origin opening down -Z to a base of radius 0.5
// at z = -1 (the unit shape of the cone drop-offs). A member of a shading
// group whose volumeShader is connected renders as fog.
#include "framework/host/dag.h"
#include "framework/host/double_math.h"
#include "framework/host/math.h"
#include "framework/node_registry.h"

// The part of a ray inside a unit shape, in the shape's object space, for
// t in [0, tMax]: false when none of it is inside.
using TfogInterval = bool (*)(const T3Float& origin, const T3Float& direction, float tMax, float& enter, float& leave);

class TenvFogShape : public TnodeClass<TenvFogShape, TdagNode, TdependNodeVS> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TenvFogShape", 524, "kEnvFog");
    // Unbounded: every coordinate from -huge to huge.
    static void boundingBox(T3Double& low, T3Double& high);
    // The ray's given start and end (four doubles each) are the interval.
    static bool intersect(const double* point, const double* endPoint, double* hitPoint, double* hitEnd);
    static bool intersectionInterval(const double* point, const double* endPoint, double* enter, double* leave);
};

class TrenderSphereShape : public TnodeClass<TrenderSphereShape, TdagNode, TdependNodeVS> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TrenderSphereShape", 525, "kRenderSphere");
    static bool interval(const T3Float& origin, const T3Float& direction, float tMax, float& enter, float& leave);
};

class TrenderBoxShape : public TnodeClass<TrenderBoxShape, TdagNode, TdependNodeVS> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TrenderBoxShape", 526, "kRenderBox");
    static bool interval(const T3Float& origin, const T3Float& direction, float tMax, float& enter, float& leave);
};

class TrenderConeShape : public TnodeClass<TrenderConeShape, TdagNode, TdependNodeVS> {
public:
    static constexpr TnodeClassInfo kInfo = renderNodeInfo("TrenderConeShape", 527, "kRenderCone");
    static bool interval(const T3Float& origin, const T3Float& direction, float tMax, float& enter, float& leave);
};

// The interval function of a fog shape node, or null for a node that is
// not a bounded fog shape.
TfogInterval fogIntervalOf(const TdependNode* node);
