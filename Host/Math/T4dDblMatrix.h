#pragma once

#include <cstddef>

#include "Host/Math/T4dDblVector.h"

// 4x4 double matrix for row vectors: a point is [x y z 1] * M, the translation sits in m[3][0..2],
// and A * B applies A first, then B.
struct T4dDblMatrix {
    double m[4][4] = {{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}, {0, 0, 0, 1}};

    constexpr T4dDblMatrix() = default;
    explicit T4dDblMatrix(const double a[4][4]);

    static T4dDblMatrix translation(const T4dDblVector& t);
    static T4dDblMatrix scaling(const T4dDblVector& s);
    static T4dDblMatrix scaling(double s) { return scaling(T4dDblVector{s, s, s}); }

    double* operator[](int row) { return m[row]; }
    const double* operator[](int row) const { return m[row]; }

    T4dDblMatrix operator*(const T4dDblMatrix& o) const;
    T4dDblMatrix& operator*=(const T4dDblMatrix& o) { return *this = *this * o; }

    // General inverse; a singular matrix gives the identity (and ok = false).
    T4dDblMatrix inverse() const;
    T4dDblMatrix inverse(bool& ok) const;
    T4dDblMatrix transpose() const;
    double determinant() const;

    // [x y z 1] * M, divided by w when w is not 1 (nor 0). Inline: it runs once per point in array loops.
    T4dDblVector transformPoint(const T4dDblVector& v) const {
        const double x = v.x * m[0][0] + v.y * m[1][0] + v.z * m[2][0] + m[3][0];
        const double y = v.x * m[0][1] + v.y * m[1][1] + v.z * m[2][1] + m[3][1];
        const double z = v.x * m[0][2] + v.y * m[1][2] + v.z * m[2][2] + m[3][2];
        const double w = v.x * m[0][3] + v.y * m[1][3] + v.z * m[2][3] + m[3][3];
        if (w != 1.0 && w != 0.0) return {x / w, y / w, z / w};
        return {x, y, z};
    }
    // [x y z 0] * M: directions ignore the translation.
    T4dDblVector transformVector(const T4dDblVector& v) const {
        return {v.x * m[0][0] + v.y * m[1][0] + v.z * m[2][0], v.x * m[0][1] + v.y * m[1][1] + v.z * m[2][1],
                v.x * m[0][2] + v.y * m[1][2] + v.z * m[2][2]};
    }

    // Whole arrays (in may equal out). Checks once whether the last column is (0 0 0 1) and then skips w.
    void transformPoints(const T4dDblVector* in, T4dDblVector* out, std::size_t n) const;
    void transformVectors(const T4dDblVector* in, T4dDblVector* out, std::size_t n) const;
    bool isAffine() const { return m[0][3] == 0 && m[1][3] == 0 && m[2][3] == 0 && m[3][3] == 1; }

    T4dDblVector getTranslation() const { return {m[3][0], m[3][1], m[3][2]}; }
    void setTranslation(const T4dDblVector& t) {
        m[3][0] = t.x;
        m[3][1] = t.y;
        m[3][2] = t.z;
    }

    bool operator==(const T4dDblMatrix& o) const;
    bool operator!=(const T4dDblMatrix& o) const { return !(*this == o); }
    bool isEquivalent(const T4dDblMatrix& o, double tol = 1e-10) const;
    bool isIdentity(double tol = 1e-10) const { return isEquivalent(T4dDblMatrix{}, tol); }
};

inline T4dDblVector operator*(const T4dDblVector& v, const T4dDblMatrix& mat) {
    return mat.transformPoint(v);
}
