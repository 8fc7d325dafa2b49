#pragma once
#include <cmath>
#include <iosfwd>

class matrix;
class mvector;

// A 3-vector of doubles; a value type.
struct triple {
    double x = 0, y = 0, z = 0;

    constexpr triple() = default;
    constexpr triple(double a, double b, double c) : x(a), y(b), z(c) {}

    double& operator[](int i) { return i == 0 ? x : (i == 1 ? y : z); }
    double operator[](int i) const { return i == 0 ? x : (i == 1 ? y : z); }

    triple operator+(const triple& o) const { return {x + o.x, y + o.y, z + o.z}; }
    triple operator-(const triple& o) const { return {x - o.x, y - o.y, z - o.z}; }
    triple operator-() const { return {-x, -y, -z}; }
    triple operator*(double s) const { return {x * s, y * s, z * s}; }
    triple operator/(double s) const { return {x / s, y / s, z / s}; }
    triple& operator+=(const triple& o) {
        x += o.x;
        y += o.y;
        z += o.z;
        return *this;
    }
    triple& operator-=(const triple& o) {
        x -= o.x;
        y -= o.y;
        z -= o.z;
        return *this;
    }
    triple& operator*=(double s) {
        x *= s;
        y *= s;
        z *= s;
        return *this;
    }
    bool operator==(const triple& o) const { return x == o.x && y == o.y && z == o.z; }

    double dot(const triple& o) const { return x * o.x + y * o.y + z * o.z; }
    triple cross(const triple& o) const { return {y * o.z - z * o.y, z * o.x - x * o.z, x * o.y - y * o.x}; }
    double length2() const { return dot(*this); }
    double length() const { return std::sqrt(length2()); }
    // Normalises in place and returns the old length; a zero triple stays zero.
    double normalise() {
        double l = length();
        if (l > 0) *this *= 1.0 / l;
        return l;
    }
    triple normalised() const {
        triple t = *this;
        t.normalise();
        return t;
    }

    // Fills from an mvector of size 3; any other size is reported and leaves it as it is.
    void init(const mvector& v);

    // Row vector times a 3x3 matrix.
    triple operator*(const matrix& m) const;
};

inline triple operator*(double s, const triple& t) {
    return t * s;
}
inline double dot(const triple& a, const triple& b) {
    return a.dot(b);
}
inline triple cross(const triple& a, const triple& b) {
    return a.cross(b);
}

// Matrix times triple: 3x3 as usual; 4x4 acts on the point with the translation
// in the fourth column and divides by the homogeneous weight.
triple operator*(const matrix& m, const triple& t);

std::ostream& operator<<(std::ostream& os, const triple& t);
std::istream& operator>>(std::istream& is, triple& t);

// The same in single precision.
struct ftriple {
    float x = 0, y = 0, z = 0;

    constexpr ftriple() = default;
    constexpr ftriple(float a, float b, float c) : x(a), y(b), z(c) {}
    explicit ftriple(const triple& t) : x(float(t.x)), y(float(t.y)), z(float(t.z)) {}
    explicit operator triple() const { return {x, y, z}; }

    float& operator[](int i) { return i == 0 ? x : (i == 1 ? y : z); }
    float operator[](int i) const { return i == 0 ? x : (i == 1 ? y : z); }
    ftriple operator+(const ftriple& o) const { return {x + o.x, y + o.y, z + o.z}; }
    ftriple operator-(const ftriple& o) const { return {x - o.x, y - o.y, z - o.z}; }
    ftriple operator-() const { return {-x, -y, -z}; }
    ftriple operator*(float s) const { return {x * s, y * s, z * s}; }
    ftriple operator/(float s) const { return {x / s, y / s, z / s}; }
    ftriple& operator+=(const ftriple& o) {
        x += o.x;
        y += o.y;
        z += o.z;
        return *this;
    }
    ftriple& operator-=(const ftriple& o) {
        x -= o.x;
        y -= o.y;
        z -= o.z;
        return *this;
    }
    bool operator==(const ftriple& o) const { return x == o.x && y == o.y && z == o.z; }
    float dot(const ftriple& o) const { return x * o.x + y * o.y + z * o.z; }
    ftriple cross(const ftriple& o) const {
        return {y * o.z - z * o.y, z * o.x - x * o.z, x * o.y - y * o.x};
    }
    float length() const { return std::sqrt(dot(*this)); }
    float normalise() {
        float l = length();
        if (l > 0) {
            x /= l;
            y /= l;
            z /= l;
        }
        return l;
    }
};

std::ostream& operator<<(std::ostream& os, const ftriple& t);
