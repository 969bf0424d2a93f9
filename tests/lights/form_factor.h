#pragma once
// Independent references for the area light: a parallelogram light and its
// form factor by brute-force quadrature.
#include "framework/host/math.h"

// A parallelogram light: v1 = v0 + e1, v2 = v1 + e2, v3 = v0 + e2. It shines
// to the side opposite e1 x e2, as the light's own square does.
struct Tparallelogram {
    T3Float v[4];
    T3Float e1, e2, centre, front;
    Tparallelogram(const T3Float& c, const T3Float& a, const T3Float& b);
};

// 10 pi times the form factor of `q` from `p` with normal `n`, by the
// midpoint rule over a grid of the quad: 10 times the sum of
// cos(theta_p) cos(theta_l) / r^2 dA. Signed in the surface's cosine, as the
// contour integral is.
double quadratureIrradiance(const Tparallelogram& q, const T3Float& p, const T3Float& n, int grid = 300);
