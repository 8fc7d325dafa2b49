#pragma once
#include <iosfwd>

#include "Tessarin/kelsupport/triple.h"

class matrix;
class mvector;

// Scalar first. No invariant: the owner normalises.
struct quaternion {
    double r = 1, i = 0, j = 0, k = 0;

    constexpr quaternion() = default;
    constexpr quaternion(double r_, double i_, double j_, double k_) : r(r_), i(i_), j(j_), k(k_) {}
    quaternion(double s, const triple& v) : r(s), i(v.x), j(v.y), k(v.z) {}
    // From Euler angles (a, b, c) in an mvector of 3.
    explicit quaternion(const mvector& euler);
    // From a 3x3 or 4x4 rotation matrix.
    explicit quaternion(const matrix& m);

    triple vec() const { return {i, j, k}; }
    quaternion operator*(const quaternion& o) const {
        return {r * o.r - i * o.i - j * o.j - k * o.k, r * o.i + i * o.r + j * o.k - k * o.j,
                r * o.j - i * o.k + j * o.r + k * o.i, r * o.k + i * o.j - j * o.i + k * o.r};
    }
    quaternion operator*(double s) const { return {r * s, i * s, j * s, k * s}; }
    quaternion operator+(const quaternion& o) const { return {r + o.r, i + o.i, j + o.j, k + o.k}; }
    quaternion conjugate() const { return {r, -i, -j, -k}; }
    double norm2() const { return r * r + i * i + j * j + k * k; }
    void normalise();
    // Rotates v by this unit quaternion.
    triple rotate(const triple& v) const;
    // The 3x3 rotation matrix of this unit quaternion.
    matrix to_matrix() const;
    void to_rows(double m[3][3]) const;
};

std::ostream& operator<<(std::ostream& os, const quaternion& q);
