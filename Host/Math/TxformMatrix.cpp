#include "Host/Math/TxformMatrix.h"

#include <cmath>
#include <numbers>

namespace {

constexpr double kDegToRad = std::numbers::pi / 180.0;
constexpr double kRadToDeg = 180.0 / std::numbers::pi;

// Axis sequences of the rotate orders, first applied axis first.
constexpr int kOrderAxes[6][3] = {{0, 1, 2}, {1, 2, 0}, {2, 0, 1}, {0, 2, 1}, {1, 0, 2}, {2, 1, 0}};

int clampOrder(int order) {
    return (order >= 0 && order <= 5) ? order : 0;
}

// Right-handed rotation about one axis for row vectors.
T4dDblMatrix axisRotation(int axis, double radians) {
    T4dDblMatrix r;
    const double c = std::cos(radians), s = std::sin(radians);
    const int j = (axis + 1) % 3, k = (axis + 2) % 3;
    r.m[j][j] = c;
    r.m[j][k] = s;
    r.m[k][j] = -s;
    r.m[k][k] = c;
    return r;
}

} // namespace

T4dDblMatrix TxformMatrix::rotationMatrix(const T4dDblVector& degrees, int rotateOrder) {
    const int* axes = kOrderAxes[clampOrder(rotateOrder)];
    return axisRotation(axes[0], degrees[axes[0]] * kDegToRad) *
           axisRotation(axes[1], degrees[axes[1]] * kDegToRad) *
           axisRotation(axes[2], degrees[axes[2]] * kDegToRad);
}

T4dDblVector TxformMatrix::eulerFromRotation(const T4dDblMatrix& r, int rotateOrder) {
    const int* axes = kOrderAxes[clampOrder(rotateOrder)];
    const int i = axes[0], j = axes[1], k = axes[2];
    const bool even = j == (i + 1) % 3;
    // Work on the column-vector form C = transpose(r) = Ck(c) Cj(b) Ci(a).
    auto C = [&r](int row, int col) { return r.m[col][row]; };
    const double sign = even ? 1.0 : -1.0;
    const double cb = std::hypot(C(i, i), C(j, i));
    double a, b, c;
    b = std::atan2(-sign * C(k, i), cb);
    if (cb > 1e-12) {
        a = std::atan2(sign * C(k, j), C(k, k));
        c = std::atan2(sign * C(j, i), C(i, i));
    } else {
        // Gimbal lock: the first and last axes line up, so put all of that turn into the first.
        a = std::atan2(-sign * C(j, k), C(j, j));
        c = 0;
    }
    T4dDblVector out;
    out[i] = a * kRadToDeg;
    out[j] = b * kRadToDeg;
    out[k] = c * kRadToDeg;
    return out;
}

T4dDblVector TxformMatrix::eulerFromRotationNear(const T4dDblMatrix& r, int rotateOrder,
                                                 const T4dDblVector& previous) {
    const int* axes = kOrderAxes[clampOrder(rotateOrder)];
    const T4dDblVector base = eulerFromRotation(r, rotateOrder);
    // Every rotation has a second set: first and last angle turned by 180, the middle one mirrored.
    T4dDblVector other = base;
    other[axes[0]] += 180;
    other[axes[1]] = 180 - base[axes[1]];
    other[axes[2]] += 180;
    auto near = [&previous](T4dDblVector a, double& cost) {
        cost = 0;
        for (int k = 0; k < 3; ++k) {
            a[k] += 360 * std::round((previous[k] - a[k]) / 360);
            cost += std::fabs(a[k] - previous[k]);
        }
        return a;
    };
    double c0, c1;
    const T4dDblVector a0 = near(base, c0), a1 = near(other, c1);
    return c1 < c0 ? a1 : a0;
}

T4dDblMatrix TxformMatrix::asMatrix() const {
    T4dDblMatrix shearM;
    shearM.m[1][0] = shear_.x; // xy
    shearM.m[2][0] = shear_.y; // xz
    shearM.m[2][1] = shear_.z; // yz
    return T4dDblMatrix::translation(-scalePivot_) * T4dDblMatrix::scaling(scale_) * shearM *
           T4dDblMatrix::translation(scalePivot_ + scalePivotTranslate_ - rotatePivot_) *
           rotationMatrix(rotate_, order_) *
           T4dDblMatrix::translation(rotatePivot_ + rotatePivotTranslate_ + translate_);
}

bool TxformMatrix::decompose(const T4dDblMatrix& m, int rotateOrder) {
    *this = TxformMatrix{};
    order_ = clampOrder(rotateOrder);
    translate_ = m.getTranslation();

    T4dDblVector row[3] = {{m.m[0][0], m.m[0][1], m.m[0][2]},
                           {m.m[1][0], m.m[1][1], m.m[1][2]},
                           {m.m[2][0], m.m[2][1], m.m[2][2]}};
    const double det = row[0].dot(row[1].cross(row[2]));
    const double size = row[0].lengthSquared() + row[1].lengthSquared() + row[2].lengthSquared();
    if (!(std::fabs(det) > 1e-14 * size * std::sqrt(size)) || !std::isfinite(det)) return false;
    // A mirror goes into the x scale, leaving a proper rotation.
    const bool mirrored = det < 0;
    if (mirrored) row[0] = -row[0];

    // Gram-Schmidt in row order matches scale * shear * rotation.
    const double sx = row[0].length();
    const T4dDblVector r0 = row[0] / sx;
    const double p10 = row[1].dot(r0);
    T4dDblVector u1 = row[1] - r0 * p10;
    const double sy = u1.length();
    const T4dDblVector r1 = u1 / sy;
    const double p20 = row[2].dot(r0), p21 = row[2].dot(r1);
    T4dDblVector u2 = row[2] - r0 * p20 - r1 * p21;
    const double sz = u2.length();
    const T4dDblVector r2 = u2 / sz;

    scale_ = {mirrored ? -sx : sx, sy, sz};
    shear_ = {p10 / sy, p20 / sz, p21 / sz};

    T4dDblMatrix rot;
    const T4dDblVector* rows[3] = {&r0, &r1, &r2};
    for (int a = 0; a < 3; ++a)
        for (int b = 0; b < 3; ++b)
            rot.m[a][b] = (*rows[a])[b];
    rotate_ = eulerFromRotation(rot, order_);
    return true;
}
