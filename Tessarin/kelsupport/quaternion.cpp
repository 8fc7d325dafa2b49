#include "Tessarin/kelsupport/quaternion.h"

#include <cmath>
#include <cstdio>
#include <ostream>

#include "Tessarin/kelsupport/kelerror.h"
#include "Tessarin/kelsupport/matrix.h"

quaternion::quaternion(const mvector& e) {
    if (e.size() != 3) {
        kel::fatal("quaternion::quaternion: bad mvector size %d", e.size());
        return;
    }
    double c1 = std::cos(e[0] / 2), s1 = std::sin(e[0] / 2);
    double c2 = std::cos(e[1] / 2), s2 = std::sin(e[1] / 2);
    double c3 = std::cos(e[2] / 2), s3 = std::sin(e[2] / 2);
    r = c1 * c2 * c3 - s1 * s2 * s3;
    i = s1 * c2 * c3 + c1 * s2 * s3;
    j = s1 * c2 * s3 - c1 * s2 * c3;
    k = c1 * c2 * s3 + s1 * s2 * c3;
}

// Staged so that the square root is always taken of a quantity well above zero;
// a half-turn lands in stage 2 or later.
quaternion::quaternion(const matrix& m) {
    if (m.rows() != m.cols()) {
        kel::fatal("quaternion(matrix): Non-square matrix");
        return;
    }
    if (m.rows() != 3 && m.rows() != 4) {
        kel::fatal("quaternion(matrix): Matrix must be 3x3 or 4x4");
        return;
    }
    const double eps = 1e-10;
    double w2 = (1 + m(0, 0) + m(1, 1) + m(2, 2)) / 4;
    if (w2 > eps) {
        r = std::sqrt(w2);
        double s = 1 / (4 * r);
        i = (m(2, 1) - m(1, 2)) * s;
        j = (m(0, 2) - m(2, 0)) * s;
        k = (m(1, 0) - m(0, 1)) * s;
        return;
    }
    r = 0;
    double x2 = -(m(1, 1) + m(2, 2)) / 2;
    if (x2 > eps) {
        i = std::sqrt(x2);
        double s = 1 / (2 * i);
        j = m(1, 0) * s;
        k = m(2, 0) * s;
        return;
    }
    i = 0;
    double y2 = (1 - m(2, 2)) / 2;
    if (y2 > eps) {
        j = std::sqrt(y2);
        k = m(2, 1) / (2 * j);
        return;
    }
    j = 0;
    k = 1;
}

void quaternion::normalise() {
    double n = std::sqrt(norm2());
    if (n > 0) {
        r /= n;
        i /= n;
        j /= n;
        k /= n;
    }
}

triple quaternion::rotate(const triple& v) const {
    // v' = v + 2 r (u x v) + 2 u x (u x v), u the vector part
    triple u{i, j, k};
    triple t = u.cross(v) * 2.0;
    return v + t * r + u.cross(t);
}

void quaternion::to_rows(double m[3][3]) const {
    double ii = i * i, jj = j * j, kk = k * k;
    double ij = i * j, ik = i * k, jk = j * k, ri = r * i, rj = r * j, rk = r * k;
    m[0][0] = 1 - 2 * (jj + kk);
    m[0][1] = 2 * (ij - rk);
    m[0][2] = 2 * (ik + rj);
    m[1][0] = 2 * (ij + rk);
    m[1][1] = 1 - 2 * (ii + kk);
    m[1][2] = 2 * (jk - ri);
    m[2][0] = 2 * (ik - rj);
    m[2][1] = 2 * (jk + ri);
    m[2][2] = 1 - 2 * (ii + jj);
}

matrix quaternion::to_matrix() const {
    double m[3][3];
    to_rows(m);
    matrix out(3, 3);
    for (int a = 0; a < 3; ++a)
        for (int b = 0; b < 3; ++b)
            out(a, b) = m[a][b];
    return out;
}

std::ostream& operator<<(std::ostream& os, const quaternion& q) {
    auto sh = [](double v) { return std::fabs(v) < 1e-10 ? 0.0 : v; };
    char buf[160];
    std::snprintf(buf, sizeof buf, "(%g, %g, %g, %g)", sh(q.r), sh(q.i), sh(q.j), sh(q.k));
    return os << buf;
}
