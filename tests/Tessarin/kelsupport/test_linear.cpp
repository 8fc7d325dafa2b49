#include <gtest/gtest.h>

#include <cmath>
#include <sstream>

#include "Tessarin/kelsupport/decomp.h"
#include "Tessarin/kelsupport/matrix.h"
#include "Tessarin/kelsupport/permutation.h"
#include "capture.h"

namespace {
matrix make(int r, int c, std::initializer_list<double> v) {
    matrix m(r, c);
    int k = 0;
    for (double x : v)
        m.data()[k++] = x;
    return m;
}

double max_abs_diff(const matrix& a, const matrix& b) {
    double d = 0;
    for (int i = 0; i < a.rows(); ++i)
        for (int j = 0; j < a.cols(); ++j)
            d = std::fmax(d, std::fabs(a(i, j) - b(i, j)));
    return d;
}
} // namespace

TEST(MatrixInverse, SmallAndLargeOrders) {
    message_capture cap;
    matrix two = make(2, 2, {4, 7, 2, 6}); // det 10
    matrix inv2 = two.inverse();
    EXPECT_DOUBLE_EQ(inv2(0, 0), 0.6);
    EXPECT_DOUBLE_EQ(inv2(0, 1), -0.7);
    // A 4x4 needing row swaps (zero leading pivot).
    matrix a = make(4, 4, {0, 2, 1, 0, 1, 0, 0, 3, 2, 1, 0, 0, 0, 0, 5, 1});
    matrix prod = a * a.inverse();
    EXPECT_LT(max_abs_diff(prod, unity(4)), 1e-14);
    EXPECT_TRUE(cap.warnings.empty());
    matrix sing = make(3, 3, {1, 2, 3, 2, 4, 6, 0, 0, 1});
    (void)sing.inverse();
    ASSERT_FALSE(cap.warnings.empty());
    EXPECT_EQ(cap.warnings.back(), "matrix::inverse:: singular matrix");
    (void)(a ^ 2 * 0); // transpose marker is legal
    (void)(a ^ 3);
    EXPECT_EQ(cap.last_fatal(), "matrix^: Sorry, non-unitary powers not yet allowed!");
}

TEST(MatrixDeterminant, ClosedFormsAndPivoting) {
    EXPECT_DOUBLE_EQ(make(3, 3, {2, 0, 1, 1, 3, 2, 1, 1, 2}).determinant(), 6);
    // 4x4: det = -(product) after one swap; upper triangular after swapping rows 0 and 1.
    matrix a = make(4, 4, {0, 3, 1, 2, 2, 1, 0, 4, 0, 0, 5, 1, 0, 0, 0, 7});
    EXPECT_NEAR(a.determinant(), -(2 * 3 * 5 * 7), 1e-12);
    matrix s = make(4, 4, {1, 2, 3, 4, 2, 4, 6, 8, 0, 1, 0, 1, 1, 0, 1, 0});
    EXPECT_EQ(s.determinant(), 0);
}

TEST(MatrixMisc, ConstantsAndSizes) {
    message_capture cap;
    matrix m(2, 3);
    m = 1.0;
    EXPECT_EQ(cap.last_fatal(), "matrix=: illegal constant matrix (value 1)");
    m = -1.0;
    EXPECT_EQ(cap.last_fatal(), "matrix=: assigment of -I to non-square matrix");
    matrix n(3, 3);
    (void)(m * m);
    EXPECT_EQ(cap.last_fatal(), "matrix*: incompatible sizes (2,3 and 2,3)");
    m.declare(4, 4);
    EXPECT_EQ(cap.last_fatal(), "matrix-declare: Cannot redefine 2 by 3 matrix");
    (void)unity(0);
    EXPECT_EQ(cap.last_fatal(), "unity: unity matrix of order 0 illegal");
    n = 1.0;
    EXPECT_TRUE(n == 1.0);
    double ext[4] = {1, 2, 3, 4};
    matrix w(2, 2, ext);
    w(1, 1) = 9;
    EXPECT_EQ(ext[3], 9);
    std::istringstream in("1 2\n3 4\n\n");
    matrix r;
    in >> r;
    EXPECT_EQ(r.rows(), 2);
    EXPECT_EQ(r(1, 0), 3);
    matrix r3(3, 2);
    std::istringstream in2("1 2\n3 4 5\n");
    in2 >> r3;
    EXPECT_EQ(cap.last_fatal(), "matrix>>: expected 2 elements on row 1");
}

TEST(Permutation, AlgebraAndMessages) {
    message_capture cap;
    permutation p(3);
    p.swap(0, 2);
    mvector v(3);
    v[0] = 10, v[1] = 20, v[2] = 30;
    mvector pv = p * v;
    EXPECT_EQ(pv[0], 30);
    EXPECT_EQ(pv[2], 10);
    permutation q(3);
    q.swap(0, 1);
    permutation pq = p * q;
    mvector a = pq * v, b = p * (q * v);
    // (P Q) v differs from P (Q v) in general; our composition is P[Q[i]].
    EXPECT_EQ(a[0], v[p[q[0]]]);
    permutation inv = pq.inverse();
    mvector back = inv * (pq * v);
    EXPECT_TRUE(back == v);
    (void)b;
    p.swap(0, 5);
    EXPECT_EQ(cap.last_fatal(), "permuation::swap: (0, 5) is illegal");
    permutation null;
    null.swap(0, 1);
    EXPECT_EQ(cap.last_fatal(), "permutation::swap: null permutation");
    p.declare(2);
    EXPECT_EQ(cap.last_fatal(), "permutation::declare: nonnull permutation, size 3");
    (void)(permutation(2) * v);
    EXPECT_EQ(cap.last_fatal(),
              "permutation*: cannot left-multiply 3 element mvector by 2 element permutation");
}

TEST(Decompositions, LuReconstructsWithPivots) {
    matrix a = make(3, 3, {1e-3, 2, 3, 4, 5, 6, 7, 8, 10});
    matrix l, u;
    permutation p, q;
    int rank = lu_decomp(a, l, u, p, q, 1e-9);
    EXPECT_EQ(rank, 3);
    // p a q should equal l u.
    matrix paq = (p * a) * q;
    EXPECT_LT(max_abs_diff(paq, l * u), 1e-12);
    // A rank-2 matrix stops early.
    matrix b = make(3, 3, {1, 2, 3, 2, 4, 6, 1, 0, 1});
    matrix l2, u2;
    permutation p2, q2;
    EXPECT_EQ(lu_decomp(b, l2, u2, p2, q2, 1e-9), 2);
}

TEST(Decompositions, QrRankAndReconstruction) {
    matrix a = make(3, 3, {2, -1, 0, -1, 2, -1, 0, -1, 2});
    matrix r, q;
    permutation p;
    EXPECT_EQ(qr_decomp(a, r, q, p, 1e-10), 3);
    matrix qap = (q * a) * p;
    EXPECT_LT(max_abs_diff(qap, r), 1e-12);
    EXPECT_LT(max_abs_diff(q * q.transpose(), unity(3)), 1e-14);

    // Column 1 is zero: two stages, then the zero column's norm is below the
    // tolerance and the rank is 2.
    matrix z = make(3, 3, {1, 0, 2, 3, 0, 1, 0, 0, 4});
    matrix rz, qz;
    permutation pz;
    EXPECT_EQ(qr_decomp(z, rz, qz, pz, 1e-8), 2);
    EXPECT_EQ(pz[2], 1); // the zero column went last
    for (int i = 0; i < 3; ++i)
        EXPECT_NEAR(rz(i, 2), 0, 1e-15);
    // The stages taken still give q z p = r.
    EXPECT_LT(max_abs_diff((qz * z) * pz, rz), 1e-12);
    message_capture cap;
    matrix wrong(2, 2), qq;
    permutation pp;
    qr_decomp(z, wrong, qq, pp, 1e-8);
    EXPECT_EQ(cap.last_fatal(), "qr_decomp: r-matrix of size (2,2) illegal");
}

// Early exit: the first column whose best entry reaches the tolerance is used,
// not the largest entry of the whole matrix.
TEST(Decompositions, LuTakesTheFirstAdequateColumn) {
    matrix a = make(2, 2, {0.5, 100, 0.2, 1});
    matrix l, u;
    permutation p, q;
    EXPECT_EQ(lu_decomp(a, l, u, p, q, 0.1), 2);
    EXPECT_EQ(q[0], 0); // column 0 qualifies (0.5 >= 0.1) though 100 is larger
    EXPECT_EQ(p[0], 0); // and its best row is row 0
    // With a tolerance above column 0's entries, column 1 is taken first.
    matrix l2, u2;
    permutation p2, q2;
    EXPECT_EQ(lu_decomp(a, l2, u2, p2, q2, 1.0), 1);
    EXPECT_EQ(q2[0], 1);
    EXPECT_EQ(u2(0, 0), 100);
}

TEST(MatrixMisc, TransposeMarkerAndVectorProducts) {
    matrix a = make(2, 3, {1, 2, 3, 4, 5, 6});
    matrix t = a ^ matrix::T;
    EXPECT_EQ(t.rows(), 3);
    EXPECT_EQ(t(2, 1), 6);
    mvector v(3);
    v[0] = 1, v[1] = 0, v[2] = -1;
    mvector av = a * v;
    EXPECT_EQ(av[0], -2);
    EXPECT_EQ(av[1], -2);
    mvector w(2);
    w[0] = 1, w[1] = 1;
    mvector wa = w * a;
    EXPECT_EQ(wa[2], 9);
    message_capture cap;
    (void)(v * a);
    EXPECT_EQ(cap.last_fatal(), "mvector*: cannot right-multiply 3 element mvector by 2-row matrix");
}
