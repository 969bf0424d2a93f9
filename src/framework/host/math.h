#pragma once
// Small value types of the host: float pairs and triples, points, vectors and
// 4x4 matrices (row vectors, translation in the last row).
#include <cmath>
#include <cstring>

struct T2Float {
    float x = 0, y = 0;
    friend bool operator==(const T2Float& a, const T2Float& b) { return a.x == b.x && a.y == b.y; }
};

struct T3Float {
    float x = 0, y = 0, z = 0;
    constexpr T3Float() = default;
    constexpr T3Float(float a, float b, float c) : x(a), y(b), z(c) {}
    float& operator[](int i) { return (&x)[i]; }
    float operator[](int i) const { return (&x)[i]; }
    T3Float operator+(const T3Float& o) const { return {x + o.x, y + o.y, z + o.z}; }
    T3Float operator-(const T3Float& o) const { return {x - o.x, y - o.y, z - o.z}; }
    T3Float operator*(float s) const { return {x * s, y * s, z * s}; }
    friend bool operator==(const T3Float& a, const T3Float& b) { return a.x == b.x && a.y == b.y && a.z == b.z; }
};

inline float dot(const T3Float& a, const T3Float& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
inline T3Float cross(const T3Float& a, const T3Float& b) {
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
inline float length(const T3Float& a) { return std::sqrt(dot(a, a)); }
inline T3Float normalize(const T3Float& a) {
    float l = length(a);
    return l > 0 ? a * (1.0f / l) : a;
}

using T3dFltPoint = T3Float;
using T3dFltVector = T3Float;

struct T4dFltVector {
    float x = 0, y = 0, z = 0, w = 0;
};

struct T2Int32 {
    int x = 0, y = 0;
};

// 4x4 matrix; points transform as row vectors: p' = p * M.
template <typename Real>
struct TmatrixOf {
    Real m[4][4];

    TmatrixOf() { setIdentity(); }
    void setIdentity() {
        std::memset(m, 0, sizeof m);
        for (int i = 0; i < 4; ++i) m[i][i] = 1;
    }
    static TmatrixOf identity() { return {}; }
    static TmatrixOf translation(Real x, Real y, Real z) {
        TmatrixOf r;
        r.m[3][0] = x; r.m[3][1] = y; r.m[3][2] = z;
        return r;
    }
    static TmatrixOf scaling(Real x, Real y, Real z) {
        TmatrixOf r;
        r.m[0][0] = x; r.m[1][1] = y; r.m[2][2] = z;
        return r;
    }
    TmatrixOf operator*(const TmatrixOf& o) const {
        TmatrixOf r;
        for (int i = 0; i < 4; ++i)
            for (int j = 0; j < 4; ++j) {
                Real s = 0;
                for (int k = 0; k < 4; ++k) s += m[i][k] * o.m[k][j];
                r.m[i][j] = s;
            }
        return r;
    }
    T3Float transformPoint(const T3Float& p) const {
        Real x = p.x * m[0][0] + p.y * m[1][0] + p.z * m[2][0] + m[3][0];
        Real y = p.x * m[0][1] + p.y * m[1][1] + p.z * m[2][1] + m[3][1];
        Real z = p.x * m[0][2] + p.y * m[1][2] + p.z * m[2][2] + m[3][2];
        Real w = p.x * m[0][3] + p.y * m[1][3] + p.z * m[2][3] + m[3][3];
        if (w != 0 && w != 1) { x /= w; y /= w; z /= w; }
        return {float(x), float(y), float(z)};
    }
    T3Float transformVector(const T3Float& v) const {
        return {float(v.x * m[0][0] + v.y * m[1][0] + v.z * m[2][0]),
                float(v.x * m[0][1] + v.y * m[1][1] + v.z * m[2][1]),
                float(v.x * m[0][2] + v.y * m[1][2] + v.z * m[2][2])};
    }
    // General inverse by Gauss-Jordan with partial pivoting; identity when singular.
    TmatrixOf inverse() const {
        double a[4][8];
        for (int i = 0; i < 4; ++i)
            for (int j = 0; j < 4; ++j) {
                a[i][j] = double(m[i][j]);
                a[i][j + 4] = i == j ? 1.0 : 0.0;
            }
        for (int c = 0; c < 4; ++c) {
            int p = c;
            for (int r = c + 1; r < 4; ++r) if (std::fabs(a[r][c]) > std::fabs(a[p][c])) p = r;
            if (std::fabs(a[p][c]) < 1e-300) return TmatrixOf();
            if (p != c) for (int j = 0; j < 8; ++j) std::swap(a[p][j], a[c][j]);
            double inv = 1.0 / a[c][c];
            for (int j = 0; j < 8; ++j) a[c][j] *= inv;
            for (int r = 0; r < 4; ++r) {
                if (r == c) continue;
                double f = a[r][c];
                if (f != 0) for (int j = 0; j < 8; ++j) a[r][j] -= f * a[c][j];
            }
        }
        TmatrixOf r;
        for (int i = 0; i < 4; ++i)
            for (int j = 0; j < 4; ++j) r.m[i][j] = Real(a[i][j + 4]);
        return r;
    }
    double determinant() const {
        const auto& a = m;
        double s0 = a[0][0] * a[1][1] - a[1][0] * a[0][1], s1 = a[0][0] * a[1][2] - a[1][0] * a[0][2];
        double s2 = a[0][0] * a[1][3] - a[1][0] * a[0][3], s3 = a[0][1] * a[1][2] - a[1][1] * a[0][2];
        double s4 = a[0][1] * a[1][3] - a[1][1] * a[0][3], s5 = a[0][2] * a[1][3] - a[1][2] * a[0][3];
        double c5 = a[2][2] * a[3][3] - a[3][2] * a[2][3], c4 = a[2][1] * a[3][3] - a[3][1] * a[2][3];
        double c3 = a[2][1] * a[3][2] - a[3][1] * a[2][2], c2 = a[2][0] * a[3][3] - a[3][0] * a[2][3];
        double c1 = a[2][0] * a[3][2] - a[3][0] * a[2][2], c0 = a[2][0] * a[3][1] - a[3][0] * a[2][1];
        return s0 * c5 - s1 * c4 + s2 * c3 + s3 * c2 - s4 * c1 + s5 * c0;
    }
    friend bool operator==(const TmatrixOf& a, const TmatrixOf& b) { return std::memcmp(a.m, b.m, sizeof a.m) == 0; }
};

using Tmatrix = TmatrixOf<double>;
using TfltMatrix = TmatrixOf<float>;

template <typename To, typename From>
TmatrixOf<To> convertMatrix(const TmatrixOf<From>& from) {
    TmatrixOf<To> r;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) r.m[i][j] = To(from.m[i][j]);
    return r;
}
