#include "lights/form_factor.h"

Tparallelogram::Tparallelogram(const T3Float& c, const T3Float& a, const T3Float& b) : e1(a), e2(b), centre(c) {
    v[0] = c - a * 0.5f - b * 0.5f;
    v[1] = v[0] + a;
    v[2] = v[1] + b;
    v[3] = v[0] + b;
    front = normalize(cross(a, b)) * -1.0f;
}

double quadratureIrradiance(const Tparallelogram& q, const T3Float& p, const T3Float& n, int grid) {
    const double dA = double(length(cross(q.e1, q.e2))) / (double(grid) * grid);
    double sum = 0;
    for (int i = 0; i < grid; ++i)
        for (int j = 0; j < grid; ++j) {
            T3Float x = q.v[0] + q.e1 * ((float(i) + 0.5f) / float(grid)) + q.e2 * ((float(j) + 0.5f) / float(grid));
            double rx = x.x - p.x, ry = x.y - p.y, rz = x.z - p.z;
            double r2 = rx * rx + ry * ry + rz * rz;
            double cosP = (rx * n.x + ry * n.y + rz * n.z) / std::sqrt(r2);
            double cosL = -(rx * q.front.x + ry * q.front.y + rz * q.front.z) / std::sqrt(r2);
            sum += cosP * cosL / r2 * dA;
        }
    return 10.0 * sum;  // 10 pi times (sum / pi)
}
