#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <random>

#include "Host/Math/T4dDblMatrix.h"
#include "Host/Math/TboundingBox.h"
#include "Host/Math/TxformMatrix.h"

namespace {

// Products of a handful of exact doubles stay within a few ulps; 1e-12 leaves room for sin/cos rounding.
constexpr double kTol = 1e-12;

void expectNear(const T4dDblVector& a, const T4dDblVector& b, double tol = kTol) {
    EXPECT_NEAR(a.x, b.x, tol);
    EXPECT_NEAR(a.y, b.y, tol);
    EXPECT_NEAR(a.z, b.z, tol);
}

T4dDblMatrix fromRows(std::initializer_list<std::initializer_list<double>> rows) {
    T4dDblMatrix m;
    int r = 0;
    for (auto row : rows) {
        int c = 0;
        for (double v : row)
            m.m[r][c++] = v;
        ++r;
    }
    return m;
}

TEST(T4dDblVector, ArithmeticAndProducts) {
    const T4dDblVector a{1, 2, 3}, b{4, -5, 6};
    EXPECT_EQ(a + b, T4dDblVector(5, -3, 9));
    EXPECT_EQ(a - b, T4dDblVector(-3, 7, -3));
    EXPECT_EQ(-a, T4dDblVector(-1, -2, -3));
    EXPECT_EQ(2.0 * a, a * 2.0);
    EXPECT_EQ(a / 2.0, T4dDblVector(0.5, 1, 1.5));
    EXPECT_DOUBLE_EQ(a.dot(b), 4 - 10 + 18);
    // (2*6 - 3*-5, 3*4 - 1*6, 1*-5 - 2*4)
    EXPECT_EQ(a.cross(b), T4dDblVector(27, 6, -13));
    EXPECT_DOUBLE_EQ(a.cross(b).dot(a), 0.0);
    EXPECT_DOUBLE_EQ(T4dDblVector(3, 4, 12).length(), 13.0);
    EXPECT_DOUBLE_EQ(T4dDblVector(3, 4, 12).lengthSquared(), 169.0);
    EXPECT_DOUBLE_EQ(a.distanceTo(a + T4dDblVector(0, 3, 4)), 5.0);

    T4dDblVector c = a;
    c += b;
    c -= a;
    c *= 3;
    c /= 3;
    EXPECT_EQ(c, b);
    c[1] = 7;
    EXPECT_EQ(c.y, 7);
    EXPECT_EQ(static_cast<const T4dDblVector&>(c)[2], 6);
    EXPECT_NE(c, b);
}

TEST(T4dDblVector, NormalAndIdentity) {
    EXPECT_EQ(T4dDblVector::identity, T4dDblVector(0, 0, 0));
    expectNear(T4dDblVector(0, 3, 4).normal(), {0, 0.6, 0.8});
    // Zero must not turn into NaNs.
    EXPECT_EQ(T4dDblVector().normal(), T4dDblVector());
    T4dDblVector v{0, 0, -2};
    EXPECT_DOUBLE_EQ(v.normalizeIt(), 2.0);
    EXPECT_EQ(v, T4dDblVector(0, 0, -1));
    T4dDblVector z;
    EXPECT_EQ(z.normalizeIt(), 0.0);
    EXPECT_EQ(z, T4dDblVector());
}

TEST(T4dDblMatrix, RowVectorConventionAndProductOrder) {
    const T4dDblMatrix t = T4dDblMatrix::translation({1, 2, 3});
    const T4dDblMatrix s = T4dDblMatrix::scaling({2, 3, 4});
    EXPECT_EQ(t.m[3][0], 1);
    EXPECT_EQ(t.m[3][2], 3);
    // t then s: (1+1)*2, (1+2)*3, (1+3)*4.
    EXPECT_EQ(T4dDblVector(1, 1, 1) * (t * s), T4dDblVector(4, 9, 16));
    // s then t.
    EXPECT_EQ(T4dDblVector(1, 1, 1) * (s * t), T4dDblVector(3, 5, 7));
    // Directions ignore translation.
    EXPECT_EQ((t * s).transformVector({1, 1, 1}), T4dDblVector(2, 3, 4));
    EXPECT_EQ((t * s).getTranslation(), T4dDblVector(2, 6, 12));

    T4dDblMatrix m;
    m.setTranslation({5, 6, 7});
    EXPECT_EQ(m, T4dDblMatrix::translation({5, 6, 7}));
    EXPECT_TRUE(T4dDblMatrix().isIdentity());
}

TEST(T4dDblMatrix, ProjectiveDivideByW) {
    // w = 1 + x: the point (1,2,3) gives w = 2.
    T4dDblMatrix m;
    m.m[0][3] = 1;
    EXPECT_FALSE(m.isAffine());
    EXPECT_EQ(m.transformPoint({1, 2, 3}), T4dDblVector(0.5, 1, 1.5));
    // The array form takes the same path when the matrix is projective.
    T4dDblVector pts[2] = {{1, 2, 3}, {0, 0, 0}};
    m.transformPoints(pts, pts, 2);
    EXPECT_EQ(pts[0], T4dDblVector(0.5, 1, 1.5));
}

TEST(T4dDblMatrix, ArrayTransformsMatchSinglePoints) {
    const T4dDblMatrix a =
        TxformMatrix::rotationMatrix({10, 20, 30}, 2) * T4dDblMatrix::translation({1, -2, 3});
    ASSERT_TRUE(a.isAffine());
    std::vector<T4dDblVector> in, out(5), dirs(5);
    for (int i = 0; i < 5; ++i)
        in.push_back({i * 1.5, -i * 0.5, i * i * 0.25});
    a.transformPoints(in.data(), out.data(), in.size());
    a.transformVectors(in.data(), dirs.data(), in.size());
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(out[i], a.transformPoint(in[i]));
        EXPECT_EQ(dirs[i], a.transformVector(in[i]));
    }
    // In place.
    a.transformPoints(in.data(), in.data(), in.size());
    EXPECT_EQ(in, out);
}

TEST(T4dDblMatrix, InverseTransposeAndDeterminant) {
    const T4dDblMatrix a = fromRows({{2, 1, 0, 0}, {0, 3, 1, 0}, {1, 0, 4, 0}, {5, -2, 7, 1}});
    bool ok = false;
    const T4dDblMatrix inv = a.inverse(ok);
    EXPECT_TRUE(ok);
    EXPECT_TRUE((a * inv).isEquivalent(T4dDblMatrix{}, 1e-14));
    EXPECT_TRUE((inv * a).isEquivalent(T4dDblMatrix{}, 1e-14));
    // Upper 3x3 determinant by cofactors: 2*(12-0) - 1*(0-1) + 0 = 25.
    EXPECT_NEAR(a.determinant(), 25.0, 1e-12);

    // A general (projective) matrix with a zero on the first pivot needs row exchanges.
    const T4dDblMatrix p = fromRows({{0, 1, 2, 1}, {1, 0, 3, 0}, {4, -3, 8, 2}, {1, 1, 1, 1}});
    const T4dDblMatrix pinv = p.inverse(ok);
    EXPECT_TRUE(ok);
    EXPECT_TRUE((p * pinv).isEquivalent(T4dDblMatrix{}, 1e-13));

    const T4dDblMatrix tr = p.transpose();
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            EXPECT_EQ(tr.m[i][j], p.m[j][i]);
}

TEST(T4dDblMatrix, SingularInverseIsIdentityAndFlagged) {
    T4dDblMatrix flat = T4dDblMatrix::scaling({1, 0, 1});
    bool ok = true;
    EXPECT_EQ(flat.inverse(ok), T4dDblMatrix{});
    EXPECT_FALSE(ok);
    EXPECT_EQ(flat.determinant(), 0.0);
    // Two equal rows.
    const T4dDblMatrix twin = fromRows({{1, 2, 3, 0}, {1, 2, 3, 0}, {0, 0, 1, 0}, {0, 0, 0, 1}});
    twin.inverse(ok);
    EXPECT_FALSE(ok);
    // A tiny but regular matrix is not singular: the test is relative to its scale.
    T4dDblMatrix tiny = T4dDblMatrix::scaling(1e-9);
    tiny.m[3][3] = 1e-9;
    const T4dDblMatrix tinv = tiny.inverse(ok);
    EXPECT_TRUE(ok);
    EXPECT_NEAR(tinv.m[0][0], 1e9, 1e-3);
}

TEST(TboundingBox, IncludeExpandContain) {
    TboundingBox b;
    EXPECT_TRUE(b.isEmpty());
    EXPECT_FALSE(b.contains({0, 0, 0}));
    b.includePoint({1, 2, 3});
    EXPECT_FALSE(b.isEmpty());
    EXPECT_TRUE(b.contains({1, 2, 3}));
    b.includePoint({-1, 4, 0});
    EXPECT_EQ(b.min, T4dDblVector(-1, 2, 0));
    EXPECT_EQ(b.max, T4dDblVector(1, 4, 3));
    EXPECT_EQ(b.center(), T4dDblVector(0, 3, 1.5));
    b.expandFromCenter(0.5);
    EXPECT_EQ(b.size(), T4dDblVector(3, 3, 4));
    EXPECT_TRUE(b.contains({1.5, 4.5, -0.5}));
    EXPECT_FALSE(b.contains({1.6, 3, 1}));

    TboundingBox r;
    r.setRange({1, -1, 5}, {-1, 1, 2});
    EXPECT_EQ(r.min, T4dDblVector(-1, -1, 2));
    EXPECT_EQ(r.max, T4dDblVector(1, 1, 5));

    // A quarter turn about z of the unit cube [0,1]^3 spans x in [-1,0].
    const TboundingBox unit({0, 0, 0}, {1, 1, 1});
    const TboundingBox turned = unit.transformed(TxformMatrix::rotationMatrix({0, 0, 90}, 0));
    expectNear(turned.min, {-1, 0, 0});
    expectNear(turned.max, {0, 1, 1});
}

TEST(TxformMatrix, SingleAxisRotationsAreRightHanded) {
    // +90 about x takes y to z, about y takes z to x, about z takes x to y.
    expectNear(T4dDblVector(0, 1, 0) * TxformMatrix::rotationMatrix({90, 0, 0}, 0), {0, 0, 1});
    expectNear(T4dDblVector(0, 0, 1) * TxformMatrix::rotationMatrix({0, 90, 0}, 0), {1, 0, 0});
    expectNear(T4dDblVector(1, 0, 0) * TxformMatrix::rotationMatrix({0, 0, 90}, 0), {0, 1, 0});
}

TEST(TxformMatrix, RotateOrderAppliesFirstAxisFirst) {
    // x then y (order xyz): x axis -> (x 90) -> x -> (y 90) -> -z.
    const T4dDblVector r{90, 90, 0};
    expectNear(T4dDblVector(1, 0, 0) * TxformMatrix::rotationMatrix(r, TxformMatrix::kXYZ), {0, 0, -1});
    // y then x (order yxz): x -> (y 90) -> -z -> (x 90) -> y.
    expectNear(T4dDblVector(1, 0, 0) * TxformMatrix::rotationMatrix(r, TxformMatrix::kYXZ), {0, 1, 0});
    // Orders out of range read as xyz.
    EXPECT_TRUE(TxformMatrix::rotationMatrix({10, 20, 30}, 9)
                    .isEquivalent(TxformMatrix::rotationMatrix({10, 20, 30}, 0), 0));
}

TEST(TxformMatrix, ComposesPartsInTheUsualOrder) {
    TxformMatrix x;
    x.setTranslation({10, 0, 0});
    x.setRotation({0, 0, 90});
    x.setScale({2, 1, 1});
    // Scale, then rotate, then translate: (1,0,0) -> (2,0,0) -> (0,2,0) -> (10,2,0).
    expectNear(T4dDblVector(1, 0, 0) * x.asMatrix(), {10, 2, 0});

    // Pivots: scaling about (1,0,0) leaves it in place; rotating about (0,1,0) too.
    TxformMatrix p;
    p.setScale({3, 3, 3});
    p.setScalePivot({1, 0, 0});
    expectNear(T4dDblVector(1, 0, 0) * p.asMatrix(), {1, 0, 0});
    expectNear(T4dDblVector(2, 0, 0) * p.asMatrix(), {4, 0, 0});
    p = TxformMatrix{};
    p.setRotation({0, 0, 90});
    p.setRotatePivot({0, 1, 0});
    expectNear(T4dDblVector(0, 1, 0) * p.asMatrix(), {0, 1, 0});
    // (1,1,0): relative (1,0,0) turns to (0,1,0), back by the pivot: (0,2,0).
    expectNear(T4dDblVector(1, 1, 0) * p.asMatrix(), {0, 2, 0});
    p.setRotatePivotTranslation({0, 0, 5});
    p.setScalePivotTranslation({1, 0, 0});
    // The scale pivot translation moves before the rotation: (1,1,0) -> (2,1,0) -> rel (2,0,0) -> (0,2,0)
    // -> (0,3,0), then +5 z.
    expectNear(T4dDblVector(1, 1, 0) * p.asMatrix(), {0, 3, 5});

    // Shear xy adds y to x, xz adds z to x, yz adds z to y.
    TxformMatrix s;
    s.setShear({0.5, 0.25, 2});
    expectNear(T4dDblVector(1, 2, 4) * s.asMatrix(), {1 + 0.5 * 2 + 0.25 * 4, 2 + 2 * 4, 4});

    // Full hand-computed matrix: scale 2 then rotate 90 about y then translate (1,2,3).
    TxformMatrix f;
    f.setScale({2, 2, 2});
    f.setRotation({0, 90, 0});
    f.setTranslation({1, 2, 3});
    const T4dDblMatrix expected = fromRows({{0, 0, -2, 0}, {0, 2, 0, 0}, {2, 0, 0, 0}, {1, 2, 3, 1}});
    EXPECT_TRUE(f.asMatrix().isEquivalent(expected, kTol));
    EXPECT_TRUE((f.asMatrix() * f.inverse()).isEquivalent(T4dDblMatrix{}, kTol));

    x.translateBy({1, 1, 1});
    x.scaleBy({0.5, 2, 3});
    EXPECT_EQ(x.translation(), T4dDblVector(11, 1, 1));
    EXPECT_EQ(x.scale(), T4dDblVector(1, 2, 3));
}

TEST(TxformMatrix, DecomposeRecoversPartsForEveryOrder) {
    const T4dDblVector angles[] = {{30, -45, 60}, {-170, 10, 95}, {5, 89, -20}, {0, 0, 0}};
    for (int order = 0; order < 6; ++order) {
        for (const auto& a : angles) {
            TxformMatrix x;
            x.setRotateOrder(order);
            x.setRotation(a);
            x.setScale({1.5, 0.5, 3});
            x.setShear({0.2, -0.3, 0.4});
            x.setTranslation({-4, 5, 6});
            const T4dDblMatrix m = x.asMatrix();
            TxformMatrix d(m, order);
            SCOPED_TRACE(testing::Message()
                         << "order " << order << " angles " << a.x << " " << a.y << " " << a.z);
            // With the middle angle inside (-90, 90) the angles come back as given (1e-9 degrees covers
            // atan2 rounding); otherwise the equivalent set does, which the matrix check below covers.
            const int midAxis = (order == 0 || order == 5) ? 1 : (order == 1 || order == 3) ? 2 : 0;
            if (std::fabs(a[midAxis]) < 90) expectNear(d.rotation(), a, 1e-9);
            for (int k = 0; k < 3; ++k) {
                EXPECT_GT(d.rotation()[k], -180 - 1e-9);
                EXPECT_LE(d.rotation()[k], 180 + 1e-9);
            }
            expectNear(d.scale(), x.scale(), 1e-12);
            expectNear(d.shear(), x.shear(), 1e-12);
            expectNear(d.translation(), x.translation(), 0);
            EXPECT_TRUE(d.asMatrix().isEquivalent(m, 1e-12));
        }
    }
}

TEST(TxformMatrix, NearestAnglesKeepCountingThroughTurns) {
    // A spin about z in 10 degree steps through two turns, tilted 30 about x: read back frame by frame,
    // the angles continue instead of wrapping at 180.
    T4dDblVector prev{30, 0, 0};
    for (int step = 1; step <= 72; ++step) {
        const T4dDblVector want{30, 0, 10.0 * step};
        const T4dDblVector got =
            TxformMatrix::eulerFromRotationNear(TxformMatrix::rotationMatrix(want, 0), 0, prev);
        expectNear(got, want, 1e-9);
        prev = got;
    }
    // The second set of angles is the nearer one here: (0, 170, 0) turned to (180, 10, 180) and back.
    for (int order = 0; order < 6; ++order) {
        T4dDblVector a{0, 0, 0};
        const int mid = (order == 0 || order == 5) ? 1 : (order == 1 || order == 3) ? 2 : 0;
        a[mid] = 170;
        const T4dDblMatrix r = TxformMatrix::rotationMatrix(a, order);
        const T4dDblVector got = TxformMatrix::eulerFromRotationNear(r, order, a);
        expectNear(got, a, 1e-9);
        EXPECT_TRUE(TxformMatrix::rotationMatrix(got, order).isEquivalent(r, 1e-12));
    }
}

TEST(TxformMatrix, DecomposeGimbalLockAndMirror) {
    // Middle angle at 90 degrees: angles are not unique, but the matrix must come back.
    for (int order = 0; order < 6; ++order) {
        for (double mid : {90.0, -90.0}) {
            T4dDblVector a{25, 25, 25};
            const int midAxis = (order == 0 || order == 5) ? 1 : (order == 1 || order == 3) ? 2 : 0;
            a[midAxis] = mid;
            const T4dDblMatrix r = TxformMatrix::rotationMatrix(a, order);
            const T4dDblVector back = TxformMatrix::eulerFromRotation(r, order);
            SCOPED_TRACE(testing::Message() << "order " << order << " mid " << mid);
            EXPECT_TRUE(TxformMatrix::rotationMatrix(back, order).isEquivalent(r, 1e-12));
        }
    }
    // A mirror goes into a negative x scale.
    const T4dDblMatrix mirror = T4dDblMatrix::scaling({1, -2, 1});
    TxformMatrix d(mirror);
    EXPECT_LT(d.scale().x, 0);
    EXPECT_TRUE(d.asMatrix().isEquivalent(mirror, 1e-12));

    // Arbitrary affine matrices, mirrored or not, come back whole from their parts in every order.
    std::mt19937 gen(7);
    std::uniform_real_distribution<double> coeff(-2, 2);
    for (int k = 0; k < 60; ++k) {
        T4dDblMatrix a;
        for (int r = 0; r < 4; ++r)
            for (int c = 0; c < 3; ++c)
                a.m[r][c] = coeff(gen);
        const int order = k % 6;
        TxformMatrix parts;
        ASSERT_TRUE(parts.decompose(a, order));
        EXPECT_TRUE(parts.asMatrix().isEquivalent(a, 1e-11)) << "matrix " << k;
        EXPECT_EQ(parts.scale().x < 0, a.determinant() < 0);
    }

    // Singular: false, translation kept, rest default.
    T4dDblMatrix flat = T4dDblMatrix::scaling({1, 0, 1});
    flat.setTranslation({1, 2, 3});
    TxformMatrix f;
    EXPECT_FALSE(f.decompose(flat));
    EXPECT_EQ(f.translation(), T4dDblVector(1, 2, 3));
    EXPECT_EQ(f.scale(), T4dDblVector(1, 1, 1));
}

} // namespace
