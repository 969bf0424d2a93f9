#include "volumes/sky_fog.h"

#include <algorithm>
#include <cmath>

#include "volumes/height_band.h"

namespace {

constexpr double kFourPi = 12.566370614359172;
constexpr double kDegrees = 3.14159265358979323846 / 180.0;
constexpr double kMostOpacity = 0.9999;        // opacities above this count as 0.9999
constexpr double kLeastTransmission = 0.0001;  // the transmission that opacity leaves
constexpr double kLeastWaterExtinction = 0.00001;
constexpr double kLevelSlope = 0.000001;      // below this a ray counts as parallel to the ground
constexpr double kLeastDensity = 0.000000001;  // the sky fog's test for an empty path
constexpr double kNoSunPath = 1000000;         // sun-side depth when the sun is not reached
constexpr double kSaturated = 15;              // 1 - exp(-x) is 1 in float beyond this

// Extinction per unit length of a medium of this opacity and density.
T3Double extinctionOf(const T3Double& opacity, double density) {
    T3Double e;
    for (int c = 0; c < 3; ++c) {
        const double x = opacity[c] < kMostOpacity ? 1 - opacity[c] : kLeastTransmission;
        e[c] = -std::log(x) * density;
    }
    return e;
}

double dotSun(const T4dDblVector& d, const T3Double& sun) { return d.x * sun.x + d.y * sun.y + d.z * sun.z; }

void setNoFog(T3Double& color, T3Double& transparency) {
    color = T3Double(0, 0, 0);
    transparency = T3Double(1, 1, 1);
}

// 1 - exp(-x), saturated at 1 where float no longer tells them apart.
double opacityOf(double x) { return x < kSaturated ? -std::expm1(-x) : 1.0; }

}  // namespace

double TskyFog::rayleigh(double c) { return (1 + c * c) * 0.75 / kFourPi; }

double TskyFog::henyeyScatter(double c, double g) {
    const double v = (g - c - c) * g + 1;
    return (1 - g * g) / (v * std::sqrt(v)) / kFourPi;
}

double TskyFog::applyBias(double x, double b) {
    if (b == 0) return x;
    if (b == -1) return 0;
    if (b == 1) return 1;
    const double a = 1 + b;
    const double q = a / (1 - (2 * b) * x / (b - 1));
    return (a * a - q * q) / (4 * b);
}

double TskyFog::dropoffFunc(const T4dDblPoint& point, double height, double radius, double bias) {
    if (bias == 1) return 1;
    const double h = 1 - (point.length() - radius) / height;
    if (h < 0) return 0;
    if (h > 1) return 1;
    return applyBias(h, bias);
}

double TskyFog::intSphere(const T4dDblPoint& p, const T4dDblVector& d, double radius) {
    const double a = dot3(d, d);
    const double b = 2 * dot3(p, d);
    const double c = p.x * p.x + p.y * p.y + p.z * p.z - radius * radius;
    const double disc = b * b - 4 * a * c;
    if (a == 0 || disc < 0) return -1;
    const double root = std::sqrt(disc);
    const double near = (-b - root) / (2 * a), far = (-b + root) / (2 * a);
    if (near >= 0) return near;
    if (far >= 0) return far;
    return -1;
}

double TskyFog::axisHeight(const T4dDblPoint& p) const {
    switch (fAxis) {
    case kAxisX: return p.x;
    case kAxisNegX: return -p.x;
    case kAxisNegY: return -p.y;
    case kAxisZ: return p.z;
    case kAxisNegZ: return -p.z;
    default: return p.y;
    }
}

double TskyFog::downwardSlope(const T4dDblVector& d) const {
    switch (fAxis) {
    case kAxisX: return -d.x;
    case kAxisNegX: return d.x;
    case kAxisNegY: return d.y;
    case kAxisZ: return -d.z;
    case kAxisNegZ: return d.z;
    default: return -d.y;
    }
}

double TskyFog::scatterWeight(const T4dDblVector& direction, double scatter) const {
    if (scatter >= 1) return 1;
    const double c = 0.5 + 0.5 * dotSun(direction, fSunDirection);
    return applyBias(c, 2 * scatter - 1);
}

void TskyFog::init() {
    if (fFogType == kSimpleHeightFog) return;
    for (int c = 0; c < 3; ++c) fSunLight[c] = fSunColor[c] * fSunIntensity;

    if (fFogType >= kSkyFog || fFogLightScatter < 1 || fAirLightScatter < 1) {
        const double s = std::sin(fSunElevation * kDegrees);
        const double r = 1 - (fSunElevation / 90) * (fSunElevation / 90);
        const double a = std::sin(fSunAzimuth * kDegrees) * r;
        const double b = -std::cos(fSunAzimuth * kDegrees) * r;
        T3Double d;
        switch (fAxis) {
        case kAxisX: d = {s, a, b}; break;
        case kAxisNegX: d = {s, -a, b}; break;  // deliberate: S keeps its sign on -X, unlike -Y
        case kAxisNegY: d = {a, -s, b}; break;
        case kAxisZ: d = {a, b, s}; break;
        case kAxisNegZ: d = {a, -b, s}; break;
        default: d = {a, s, b}; break;
        }
        const double length = std::sqrt(d.x * d.x + d.y * d.y + d.z * d.z);
        if (length > 0)
            for (int c = 0; c < 3; ++c) d[c] /= length;
        fSunDirection = d;
    }

    if (fFogType != kWater) {
        fFogExtinction = extinctionOf(fFogOpacity, fFogDensity);
        fAirExtinction = extinctionOf(fAirOpacity, fAirDensity);
        for (int c = 0; c < 3; ++c) {
            fTotalExtinction[c] = fFogExtinction[c] + fAirExtinction[c];
            fMeanFogColor[c] = fTotalExtinction[c] > 0 ? (fFogColor[c] * fFogExtinction[c] + fAirColor[c] * fAirExtinction[c]) *
                                                             fSunLight[c] / fTotalExtinction[c]
                                                       : 0;
        }
        if (fFogType < kWater) return;
    }
    fWaterExtinction = extinctionOf(fWaterOpacity, fWaterDensity);
    for (int c = 0; c < 3; ++c)
        fWaterHalfDistance[c] = -std::log(0.5) / std::max(fWaterExtinction[c], kLeastWaterExtinction);
}

bool TskyFog::hasSomeFog() const {
    // Water counts only for pure water fog; deliberate, the mixed types need fog or air.
    return fFogDensity > 0 || fAirDensity > 0 || (fFogType == kWater && fWaterDensity > 0);
}

void TskyFog::apply(const T3Double& color, const T3Double& transparency, T3Double& inOut) {
    for (int c = 0; c < 3; ++c) inOut[c] = transparency[c] * inOut[c] + color[c];
}

bool TskyFog::applyFog(const T4dDblPoint& point, const T4dDblVector& direction, double distance,
                       T3Double& inOut) const {
    if (!hasSomeFog()) return false;
    T3Double color, transparency;
    if (getFog(point, direction, distance, color, transparency)) apply(color, transparency, inOut);
    return true;
}

bool TskyFog::evaluateAir(int type, const T4dDblPoint& point, const T4dDblVector& direction, double distance,
                          T3Double& color, T3Double& transparency) const {
    switch (type) {
    case kConstantFog:
    case kWaterFog: return getUniformFog(point, direction, distance, color, transparency);
    case kAtmosFog:
    case kWaterAtmos: return getAtmosphericFog(point, direction, distance, color, transparency);
    default: return getSkyFog(point, direction, distance, color, transparency);
    }
}

bool TskyFog::getFog(const T4dDblPoint& pointIn, const T4dDblVector& direction, double distance, T3Double& color,
                     T3Double& transparency) const {
    if (!hasSomeFog()) return false;
    if (distance <= 0) {
        setNoFog(color, transparency);
        return false;
    }
    T4dDblPoint point = pointIn;
    if (fClip) {
        distance = std::min(distance, fFarClip);
        if (fNearClip > 0) {
            distance -= fNearClip;
            if (distance <= 0) {
                setNoFog(color, transparency);
                return false;
            }
            point = point + direction * fNearClip;
        }
    }

    switch (fFogType) {
    case kConstantFog:
    case kAtmosFog:
    case kSkyFog: evaluateAir(fFogType, point, direction, distance, color, transparency); return true;
    case kWater: {
        bool inWater;
        double waterDistance;
        return getUnderWaterFog(point, direction, distance, color, transparency, inWater, waterDistance);
    }
    case kSimpleHeightFog: return getToviFog(point, direction, distance, color, transparency);
    case kWaterFog:
    case kWaterAtmos:
    case kWaterSky: break;
    default: return false;
    }

    T3Double waterColor, waterTransparency;
    bool inWater = false;
    double w = 0;
    const bool wet = getUnderWaterFog(point, direction, distance, waterColor, waterTransparency, inWater, w);

    T3Double airColor(0, 0, 0), airTransparency(1, 1, 1);
    bool airDone = true;
    if (!wet)
        evaluateAir(fFogType, point, direction, distance, airColor, airTransparency);
    else if (!inWater && distance > w)
        evaluateAir(fFogType, point, direction, w, airColor, airTransparency);
    else if (inWater && w < distance)
        evaluateAir(fFogType, point + direction * w, direction, distance - w, airColor, airTransparency);
    else
        airDone = false;

    if (!wet) {
        color = airColor;
        transparency = airTransparency;
        return true;
    }
    for (int c = 0; c < 3; ++c) {
        color[c] = inWater ? airColor[c] * waterTransparency[c] + waterColor[c]
                           : waterColor[c] * airTransparency[c] + airColor[c];
        transparency[c] = waterTransparency[c] * airTransparency[c];
    }
    return wet || airDone;
}

void TskyFog::scatteredColor(const T4dDblVector& direction, const T3Double& transparency, T3Double& color) const {
    const double wf = scatterWeight(direction, fFogLightScatter);
    const double wa = scatterWeight(direction, fAirLightScatter);
    for (int c = 0; c < 3; ++c) {
        const double total = fTotalExtinction[c];
        color[c] = total > 0 ? (fFogColor[c] * fFogExtinction[c] * wf + fAirColor[c] * fAirExtinction[c] * wa) *
                                   fSunLight[c] / total
                             : fMeanFogColor[c];
        color[c] *= 1 - transparency[c];
    }
}

bool TskyFog::getUniformFog(const T4dDblPoint&, const T4dDblVector& direction, double distance, T3Double& color,
                            T3Double& transparency) const {
    for (int c = 0; c < 3; ++c)
        transparency[c] = fTotalExtinction[c] > 0 ? std::exp(-fTotalExtinction[c] * distance) : 1;
    scatteredColor(direction, transparency, color);
    return true;
}

bool TskyFog::getAtmosphericFog(const T4dDblPoint& point, const T4dDblVector& direction, double distance,
                                T3Double& color, T3Double& transparency) const {
    const double h = axisHeight(point), d = downwardSlope(direction), radius = fPlanetRadius;
    T3Double depth;
    struct Tlayer { double density; const T3Double* extinction; double minHeight, maxHeight, decay; };
    const Tlayer layers[2] = {{fAirDensity, &fAirExtinction, fAirMinHeight, fAirMaxHeight, fAirDecay},
                              {fFogDensity, &fFogExtinction, fFogMinHeight, fFogMaxHeight, fFogDecay}};
    for (const Tlayer& layer : layers) {
        if (layer.density == 0) continue;
        const double top = layer.maxHeight;
        const double dr = std::fabs(d) * radius;
        // Distance to the layer's top over a curved planet.
        double s = std::sqrt(dr * dr + (2 * radius + top) * top) - dr;
        const double y = h - layer.minHeight;
        if (y - d * s < 0) {  // the ray reaches the ground first
            if (d == 0) continue;
            s = y / d;
        }
        if (s <= 0) continue;
        const double length = std::min(distance, s);
        double integral;
        if (std::fabs(d) < kLevelSlope)
            integral = std::exp(-y / top) * length;
        else
            integral = top * (std::exp(length * d / top) - 1) / d * std::exp(-y / top);
        integral /= std::pow(0.5, layer.decay);
        for (int c = 0; c < 3; ++c) depth[c] += (*layer.extinction)[c] * integral;
    }
    for (int c = 0; c < 3; ++c) transparency[c] = std::exp(-depth[c]);
    scatteredColor(direction, transparency, color);
    return true;
}

bool TskyFog::getSkyFog(const T4dDblPoint& point, const T4dDblVector& direction, double distance, T3Double& color,
                        T3Double& transparency) const {
    const double radius = fPlanetRadius;
    const T4dDblPoint p(0, axisHeight(point) + radius - fAirMinHeight, 0);
    const double outer = radius + fAirMaxHeight;
    // A ray that misses the atmosphere has no path in it.
    const double path = std::max(0.0, std::min(distance, intSphere(p, direction, outer)));
    const T4dDblPoint middle = p + direction * (path / 2);

    const double biasFog = 2 * fFogDecay - 1, biasAir = 2 * fAirDecay - 1;
    const double densityFog = dropoffFunc(middle, fFogMaxHeight, radius, biasFog) * fFogDensity;
    const double densityAir = dropoffFunc(middle, fAirMaxHeight, radius, biasAir) * fAirDensity;

    const T4dDblVector sun(fSunDirection.x, fSunDirection.y, fSunDirection.z);
    const double u = intSphere(middle, sun, outer);
    double sunFog = kNoSunPath, sunAir = kNoSunPath;
    if (u >= 0) {
        const T4dDblPoint n = middle + sun * (u / 2);
        sunFog = biasFog * u * dropoffFunc(n, fFogMaxHeight, radius, biasFog);  // deliberate: the bias, not the density
        sunAir = fAirDensity * u * dropoffFunc(n, fAirMaxHeight, radius, biasAir);
    }

    const double c = dot3(direction, sun);
    const double airPhase = rayleigh(c);
    const double fogPhase = henyeyScatter(c, 1 - fFogLightScatter) * 0.5 + 0.5;
    for (int k = 0; k < 3; ++k) {
        transparency[k] = std::exp(-fFogExtinction[k] * path * densityFog) * std::exp(-fAirExtinction[k] * path * densityAir);
        const double g = std::exp(-fFogExtinction[k] * sunFog - fAirExtinction[k] * sunAir);
        color[k] = densityFog + densityAir > kLeastDensity
                       ? fSunLight[k] * g * (fFogColor[k] * fogPhase * densityFog + fAirColor[k] * airPhase * densityAir) /
                             (fAirExtinction[k] * densityAir + fFogExtinction[k] * densityFog)
                       : 0;
        color[k] *= 1 - transparency[k];
    }
    return true;
}

bool TskyFog::getUnderWaterFog(const T4dDblPoint& point, const T4dDblVector& direction, double distance,
                               T3Double& color, T3Double& transparency, bool& startsInWater,
                               double& distanceOut) const {
    const double surface = -fWaterMinDepth, bottom = -fWaterMaxDepth;
    const double start = axisHeight(point), end = axisHeight(point + direction * distance);
    double h0 = start, h1 = std::clamp(end, bottom, surface);
    startsInWater = true;
    if (h0 > surface) {
        startsInWater = false;
        h0 = surface;
    }
    if (h0 < bottom) h0 = bottom;

    // Length of the ray inside the water. A level ray is wholly in or wholly out.
    double length;
    if (start != end)
        length = (h0 - h1) * distance / (start - end);
    else
        length = start <= surface && start >= bottom ? distance : 0;
    if (!(length > 0)) {
        setNoFog(color, transparency);
        startsInWater = false;
        distanceOut = distance;
        return false;
    }
    distanceOut = startsInWater ? length : distance - length;

    for (int c = 0; c < 3; ++c) {
        color[c] = fWaterColor[c] * fSunLight[c];
        const double e = fWaterExtinction[c];
        if (e > 0) {
            transparency[c] = std::exp(-e * length);
            const double half = fWaterHalfDistance[c];
            const double a = h0 + fWaterMinDepth, b = h1 + fWaterMinDepth;
            const double x = length / 2 > half ? a + half * ((b - a) / 2) / (length / 2) : (a + b) / 2;
            color[c] *= std::pow(std::exp(x * e), fWaterLightDecay);
        } else {
            transparency[c] = 1;
        }
    }
    const double weight = fWaterLightScatter < 1 ? scatterWeight(direction, fWaterLightScatter) : 1;
    for (int c = 0; c < 3; ++c) color[c] *= weight * (1 - transparency[c]);
    return true;
}

bool TskyFog::getToviFog(const T4dDblPoint& point, const T4dDblVector& direction, double distance, T3Double& color,
                         T3Double& transparency) const {
    const double rho = fFogDensity;
    if (rho < 0) return false;
    const double thickness = 1 / rho;  // infinite for a density of 0, which leaves no opacity
    color = fFogColor;
    double length = distance, heightFactor = 0;

    if (fUseHeight) {
        const double high = fFogMaxHeight < fFogMinHeight ? kOpenBandTop : fFogMaxHeight;
        length = heightBandLength(point.y, direction.y, distance, fFogMinHeight, high, 0);
        if (!(length > 0)) {
            setNoFog(color, transparency);
            return false;
        }
        heightFactor = heightBandFactor(point.y, fFogMinHeight, high, fFogDecay);
    }

    double opacity = 1;
    if (thickness > 0) {
        double x = length / thickness;
        if (heightFactor > 0) x *= heightFactor;
        opacity = opacityOf(x);
    }
    for (int c = 0; c < 3; ++c) {
        transparency[c] = fColorBasedTransp ? 1 - color[c] * opacity : 1 - opacity;
        color[c] *= 1 - transparency[c];
    }
    return true;
}
