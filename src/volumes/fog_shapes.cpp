#include "volumes/fog_shapes.h"

#include <algorithm>
#include <cfloat>
#include <cmath>

SN_REGISTER_NODE_CLASS(TenvFogShape)
SN_REGISTER_NODE_CLASS(TrenderSphereShape)
SN_REGISTER_NODE_CLASS(TrenderBoxShape)
SN_REGISTER_NODE_CLASS(TrenderConeShape)

namespace {
// Clips [enter, leave] to [0, tMax]; false when nothing is left.
bool clipToRay(float tMax, float& enter, float& leave) {
    enter = std::max(enter, 0.0f);
    leave = std::min(leave, tMax);
    return enter < leave;
}

// Where a*t^2 + b*t + c <= 0 meets [lo, hi]: one piece, or for a < 0 the
// two outer pieces, of which `keep` picks the one inside the shape.
template <class Keep>
bool quadraticInside(double a, double b, double c, double lo, double hi, Keep keep, double& enter, double& leave) {
    auto piece = [&](double from, double to) {
        from = std::max(from, lo);
        to = std::min(to, hi);
        if (!(from < to) || !keep(0.5 * (from + to))) return false;
        enter = from, leave = to;
        return true;
    };
    if (std::fabs(a) < 1e-12) {
        if (std::fabs(b) < 1e-12) return c <= 0 && piece(lo, hi);
        const double root = -c / b;
        return b > 0 ? piece(lo, root) : piece(root, hi);
    }
    const double disc = b * b - 4 * a * c;
    if (disc < 0) return a < 0 && piece(lo, hi);
    const double q = std::sqrt(disc);
    double r0 = (-b - q) / (2 * a), r1 = (-b + q) / (2 * a);
    if (r0 > r1) std::swap(r0, r1);
    if (a > 0) return piece(r0, r1);
    return piece(lo, r0) || piece(r1, hi);
}
}  // namespace

void TenvFogShape::boundingBox(T3Double& low, T3Double& high) {
    low = {-DBL_MAX, -DBL_MAX, -DBL_MAX};
    high = {DBL_MAX, DBL_MAX, DBL_MAX};
}

bool TenvFogShape::intersect(const double* point, const double* endPoint, double* hitPoint, double* hitEnd) {
    std::copy(point, point + 4, hitPoint);
    std::copy(endPoint, endPoint + 4, hitEnd);
    return true;
}

bool TenvFogShape::intersectionInterval(const double* point, const double* endPoint, double* enter, double* leave) {
    return intersect(point, endPoint, enter, leave);
}

bool TrenderSphereShape::interval(const T3Float& o, const T3Float& d, float tMax, float& enter, float& leave) {
    const double a = dot(d, d), b = 2.0 * dot(o, d), c = double(dot(o, o)) - 1.0;
    const double disc = b * b - 4 * a * c;
    if (a <= 0 || disc <= 0) return false;
    const double q = std::sqrt(disc);
    enter = float((-b - q) / (2 * a));
    leave = float((-b + q) / (2 * a));
    return clipToRay(tMax, enter, leave);
}

bool TrenderBoxShape::interval(const T3Float& o, const T3Float& d, float tMax, float& enter, float& leave) {
    float lo = 0, hi = tMax;
    for (int axis = 0; axis < 3; ++axis) {
        const float origin = (&o.x)[axis], direction = (&d.x)[axis];
        if (direction == 0) {
            if (origin < -1 || origin > 1) return false;
            continue;
        }
        float t0 = (-1 - origin) / direction, t1 = (1 - origin) / direction;
        if (t0 > t1) std::swap(t0, t1);
        lo = std::max(lo, t0);
        hi = std::min(hi, t1);
    }
    enter = lo, leave = hi;
    return enter < leave;
}

bool TrenderConeShape::interval(const T3Float& o, const T3Float& d, float tMax, float& enter, float& leave) {
    // The slab -1 <= z <= 0 first.
    double lo = 0, hi = tMax;
    if (d.z == 0) {
        if (o.z < -1 || o.z > 0) return false;
    } else {
        double t0 = (-1.0 - o.z) / d.z, t1 = (0.0 - o.z) / d.z;
        if (t0 > t1) std::swap(t0, t1);
        lo = std::max(lo, t0);
        hi = std::min(hi, t1);
    }
    if (!(lo < hi)) return false;
    // Inside the lower nappe: x^2 + y^2 <= z^2 / 4 with z <= 0.
    const double a = double(d.x) * d.x + double(d.y) * d.y - 0.25 * d.z * d.z;
    const double b = 2.0 * (double(o.x) * d.x + double(o.y) * d.y - 0.25 * o.z * d.z);
    const double c = double(o.x) * o.x + double(o.y) * o.y - 0.25 * o.z * o.z;
    auto below = [&](double t) { return o.z + t * d.z <= 0; };
    double from = 0, to = 0;
    if (!quadraticInside(a, b, c, lo, hi, below, from, to)) return false;
    enter = float(from), leave = float(to);
    return enter < leave;
}

TfogInterval fogIntervalOf(const TdependNode* node) {
    if (!node) return nullptr;
    if (node->typeof()->istype(TrenderSphereShape::sMetaclass())) return &TrenderSphereShape::interval;
    if (node->typeof()->istype(TrenderBoxShape::sMetaclass())) return &TrenderBoxShape::interval;
    if (node->typeof()->istype(TrenderConeShape::sMetaclass())) return &TrenderConeShape::interval;
    return nullptr;
}
