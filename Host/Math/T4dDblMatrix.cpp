#include "Host/Math/T4dDblMatrix.h"

#include <cmath>

T4dDblMatrix::T4dDblMatrix(const double a[4][4]) {
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c)
            m[r][c] = a[r][c];
}

T4dDblMatrix T4dDblMatrix::translation(const T4dDblVector& t) {
    T4dDblMatrix r;
    r.setTranslation(t);
    return r;
}

T4dDblMatrix T4dDblMatrix::scaling(const T4dDblVector& s) {
    T4dDblMatrix r;
    r.m[0][0] = s.x;
    r.m[1][1] = s.y;
    r.m[2][2] = s.z;
    return r;
}

T4dDblMatrix T4dDblMatrix::operator*(const T4dDblMatrix& o) const {
    T4dDblMatrix r;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) {
            double s = 0;
            for (int k = 0; k < 4; ++k)
                s += m[i][k] * o.m[k][j];
            r.m[i][j] = s;
        }
    return r;
}

T4dDblMatrix T4dDblMatrix::transpose() const {
    T4dDblMatrix r;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            r.m[i][j] = m[j][i];
    return r;
}

T4dDblMatrix T4dDblMatrix::inverse() const {
    bool ok;
    return inverse(ok);
}

// Gauss-Jordan with partial pivoting; a pivot this small relative to the matrix scale means singular.
T4dDblMatrix T4dDblMatrix::inverse(bool& ok) const {
    double a[4][8];
    double scale = 0;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j) {
            a[i][j] = m[i][j];
            a[i][j + 4] = (i == j) ? 1.0 : 0.0;
            scale = std::fmax(scale, std::fabs(m[i][j]));
        }
    ok = false;
    if (!(scale > 0) || !std::isfinite(scale)) return T4dDblMatrix{};
    const double eps = scale * 1e-14;
    for (int col = 0; col < 4; ++col) {
        int piv = col;
        for (int r = col + 1; r < 4; ++r)
            if (std::fabs(a[r][col]) > std::fabs(a[piv][col])) piv = r;
        if (std::fabs(a[piv][col]) <= eps) return T4dDblMatrix{};
        if (piv != col)
            for (int j = 0; j < 8; ++j)
                std::swap(a[piv][j], a[col][j]);
        const double inv = 1.0 / a[col][col];
        for (int j = 0; j < 8; ++j)
            a[col][j] *= inv;
        for (int r = 0; r < 4; ++r) {
            if (r == col) continue;
            const double f = a[r][col];
            if (f == 0) continue;
            for (int j = 0; j < 8; ++j)
                a[r][j] -= f * a[col][j];
        }
    }
    T4dDblMatrix r;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            r.m[i][j] = a[i][j + 4];
    ok = true;
    return r;
}

double T4dDblMatrix::determinant() const {
    double a[4][4];
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            a[i][j] = m[i][j];
    double det = 1;
    for (int col = 0; col < 4; ++col) {
        int piv = col;
        for (int r = col + 1; r < 4; ++r)
            if (std::fabs(a[r][col]) > std::fabs(a[piv][col])) piv = r;
        if (a[piv][col] == 0) return 0;
        if (piv != col) {
            for (int j = 0; j < 4; ++j)
                std::swap(a[piv][j], a[col][j]);
            det = -det;
        }
        det *= a[col][col];
        for (int r = col + 1; r < 4; ++r) {
            const double f = a[r][col] / a[col][col];
            for (int j = col; j < 4; ++j)
                a[r][j] -= f * a[col][j];
        }
    }
    return det;
}

void T4dDblMatrix::transformPoints(const T4dDblVector* in, T4dDblVector* out, std::size_t n) const {
    if (!isAffine()) {
        for (std::size_t i = 0; i < n; ++i)
            out[i] = transformPoint(in[i]);
        return;
    }
    // Local copies: the compiler cannot know that out does not alias the matrix.
    const double a00 = m[0][0], a01 = m[0][1], a02 = m[0][2], a10 = m[1][0], a11 = m[1][1], a12 = m[1][2];
    const double a20 = m[2][0], a21 = m[2][1], a22 = m[2][2], t0 = m[3][0], t1 = m[3][1], t2 = m[3][2];
    for (std::size_t i = 0; i < n; ++i) {
        const double x = in[i].x, y = in[i].y, z = in[i].z;
        out[i] = {x * a00 + y * a10 + z * a20 + t0, x * a01 + y * a11 + z * a21 + t1,
                  x * a02 + y * a12 + z * a22 + t2};
    }
}

void T4dDblMatrix::transformVectors(const T4dDblVector* in, T4dDblVector* out, std::size_t n) const {
    const double a00 = m[0][0], a01 = m[0][1], a02 = m[0][2], a10 = m[1][0], a11 = m[1][1], a12 = m[1][2];
    const double a20 = m[2][0], a21 = m[2][1], a22 = m[2][2];
    for (std::size_t i = 0; i < n; ++i) {
        const double x = in[i].x, y = in[i].y, z = in[i].z;
        out[i] = {x * a00 + y * a10 + z * a20, x * a01 + y * a11 + z * a21, x * a02 + y * a12 + z * a22};
    }
}

bool T4dDblMatrix::operator==(const T4dDblMatrix& o) const {
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            if (m[i][j] != o.m[i][j]) return false;
    return true;
}

bool T4dDblMatrix::isEquivalent(const T4dDblMatrix& o, double tol) const {
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            if (std::fabs(m[i][j] - o.m[i][j]) > tol) return false;
    return true;
}
