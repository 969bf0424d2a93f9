#pragma once
// Double-precision value types of the host: an RGB or XYZ triple and
// homogeneous points and vectors.
#include <cmath>

struct T3Double {
    double x = 0, y = 0, z = 0;
    constexpr T3Double() = default;
    constexpr T3Double(double a, double b, double c) : x(a), y(b), z(c) {}
    double& operator[](int i) { return (&x)[i]; }
    double operator[](int i) const { return (&x)[i]; }
    friend bool operator==(const T3Double& a, const T3Double& b) { return a.x == b.x && a.y == b.y && a.z == b.z; }
};

struct T4dDblVector {
    double x = 0, y = 0, z = 0, w = 0;
    constexpr T4dDblVector() = default;
    constexpr T4dDblVector(double a, double b, double c, double d = 0) : x(a), y(b), z(c), w(d) {}
    double operator[](int i) const { return (&x)[i]; }
    double length() const { return std::sqrt(x * x + y * y + z * z); }
};

struct T4dDblPoint {
    double x = 0, y = 0, z = 0, w = 1;
    constexpr T4dDblPoint() = default;
    constexpr T4dDblPoint(double a, double b, double c, double d = 1) : x(a), y(b), z(c), w(d) {}
    double operator[](int i) const { return (&x)[i]; }
    T4dDblPoint operator+(const T4dDblVector& v) const { return {x + v.x, y + v.y, z + v.z, w}; }
    // Distance from the origin, of the three spatial coordinates.
    double length() const { return std::sqrt(x * x + y * y + z * z); }
};

inline T4dDblVector operator*(const T4dDblVector& v, double s) { return {v.x * s, v.y * s, v.z * s, v.w}; }
inline double dot3(const T4dDblVector& a, const T4dDblVector& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
inline double dot3(const T4dDblPoint& a, const T4dDblVector& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
