#pragma once

#include <cmath>

// Three-component double vector, the host's point and direction type.
struct T4dDblVector {
    double x = 0, y = 0, z = 0;

    constexpr T4dDblVector() = default;
    constexpr T4dDblVector(double ax, double ay, double az) : x(ax), y(ay), z(az) {}

    // The zero vector: arrays are cleared with it.
    static const T4dDblVector identity;

    constexpr double& operator[](int i) { return i == 0 ? x : (i == 1 ? y : z); }
    constexpr double operator[](int i) const { return i == 0 ? x : (i == 1 ? y : z); }

    constexpr T4dDblVector operator+(const T4dDblVector& o) const { return {x + o.x, y + o.y, z + o.z}; }
    constexpr T4dDblVector operator-(const T4dDblVector& o) const { return {x - o.x, y - o.y, z - o.z}; }
    constexpr T4dDblVector operator-() const { return {-x, -y, -z}; }
    constexpr T4dDblVector operator*(double s) const { return {x * s, y * s, z * s}; }
    constexpr T4dDblVector operator/(double s) const { return {x / s, y / s, z / s}; }

    constexpr T4dDblVector& operator+=(const T4dDblVector& o) {
        x += o.x;
        y += o.y;
        z += o.z;
        return *this;
    }
    constexpr T4dDblVector& operator-=(const T4dDblVector& o) {
        x -= o.x;
        y -= o.y;
        z -= o.z;
        return *this;
    }
    constexpr T4dDblVector& operator*=(double s) {
        x *= s;
        y *= s;
        z *= s;
        return *this;
    }
    constexpr T4dDblVector& operator/=(double s) {
        x /= s;
        y /= s;
        z /= s;
        return *this;
    }

    constexpr bool operator==(const T4dDblVector& o) const { return x == o.x && y == o.y && z == o.z; }
    constexpr bool operator!=(const T4dDblVector& o) const { return !(*this == o); }

    constexpr double dot(const T4dDblVector& o) const { return x * o.x + y * o.y + z * o.z; }
    constexpr T4dDblVector cross(const T4dDblVector& o) const {
        return {y * o.z - z * o.y, z * o.x - x * o.z, x * o.y - y * o.x};
    }
    constexpr double lengthSquared() const { return x * x + y * y + z * z; }
    double length() const { return std::sqrt(lengthSquared()); }

    // Unit copy; the zero vector stays zero rather than turning into NaNs.
    T4dDblVector normal() const {
        const double len = length();
        return len > 0 ? T4dDblVector{x / len, y / len, z / len} : T4dDblVector{};
    }
    // In place; a zero vector stays zero. Returns the length it had.
    double normalizeIt() {
        const double len = length();
        if (len > 0) *this /= len;
        return len;
    }
    double distanceTo(const T4dDblVector& o) const { return (*this - o).length(); }
    bool isEquivalent(const T4dDblVector& o, double tol = 1e-10) const {
        return std::fabs(x - o.x) <= tol && std::fabs(y - o.y) <= tol && std::fabs(z - o.z) <= tol;
    }
};

inline constexpr T4dDblVector operator*(double s, const T4dDblVector& v) {
    return v * s;
}

inline const T4dDblVector T4dDblVector::identity{};

// Points and vectors share one type; the name says which is meant.
using T4dDblPoint = T4dDblVector;
