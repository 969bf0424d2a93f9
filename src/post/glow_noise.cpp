#include "post/glow_noise.h"

#include <cmath>

namespace {
// Width of the angle over which the pattern closes at the seam.
constexpr double kSeam = 0.1;

double frac(double v) { return v - std::floor(v); }

// Twice the quadratic B-spline through a, b, c at t.
double spline(double a, double b, double c, double t) {
    const double ab = a - b;
    return ((ab - b + c) * t - ab - ab) * t + a + b;
}
}  // namespace

TglowNoise::TglowNoise() : fTable(kTableSize) {
    unsigned state = kSeed;
    for (double& v : fTable) {
        v = double(state) / 65535.0 * 2 - 1;
        state = (state * 25173u + 13849u) & 0xFFFFu;
    }
}

double TglowNoise::noise(double x, double y) const {
    const double u = frac(x) * kLattice, v = frac(y) * kLattice;
    const int ix = int(u), iy = int(v);
    const double tx = u - ix, ty = v - iy;
    double rows[3];
    for (int k = 0; k < 3; ++k) {
        const int row = iy - 1 + k;
        rows[k] = spline(lattice(ix - 1, row), lattice(ix, row), lattice(ix + 1, row), tx);
    }
    return spline(rows[0], rows[1], rows[2], ty) * 0.25;
}

double TglowNoise::radialGlowNoise(double x, double y, double star, double points, double noiseLevel, double frequency,
                                   double rotation) const {
    if (noiseLevel == 0 && star == 0) return 1;
    double a = (x == 0 && y == 0) ? 0 : std::atan2(y, x) / 6.283185307179586 + 0.5;
    const double whole = std::trunc(rotation);
    a += (std::fmod(whole, 360.0) + (rotation - whole)) / 360.0;
    if (a > 1) a -= 1;
    if (a < 0) a += 1;
    a = std::min(a, 0.999995);
    const double s = star == 0 ? 1.0 : std::max(0.0, 1 - std::fabs(std::sin(points * a * 3.1415927)) * star);
    if (noiseLevel == 0) return s;
    const double m = a * frequency;
    double v = noise(m, m) + 0.5;
    if (a < kSeam) {
        // Just below the seam the angle reads as a full turn more, so that
        // the pattern meets itself where a wraps from 1 to 0.
        const double w = a / kSeam;
        const double m2 = (a + 1) * frequency;
        v = v * w + (noise(m2, m2) + 0.5) * (1 - w);
    }
    const double d = 1 - noiseLevel * v;
    return s * d * d;
}
