#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "Tessarin/tessarin/basis_factors.h"

using namespace tessarin;

namespace {

// Deterministic numbers in [-1, 1).
struct Lcg {
    unsigned s = 2024;
    double next() {
        s = s * 1664525u + 1013904223u;
        return double(s >> 8) / double(1u << 24) * 2 - 1;
    }
};

// Plain Gaussian elimination with partial pivoting on a copy: the reference.
std::vector<double> fresh_solve(std::vector<double> B, std::vector<double> b, int k) {
    for (int c = 0; c < k; ++c) {
        int piv = c;
        for (int i = c + 1; i < k; ++i)
            if (std::fabs(B[size_t(i * k + c)]) > std::fabs(B[size_t(piv * k + c)])) piv = i;
        for (int j = 0; j < k; ++j)
            std::swap(B[size_t(c * k + j)], B[size_t(piv * k + j)]);
        std::swap(b[size_t(c)], b[size_t(piv)]);
        for (int i = c + 1; i < k; ++i) {
            double m = B[size_t(i * k + c)] / B[size_t(c * k + c)];
            for (int j = c; j < k; ++j)
                B[size_t(i * k + j)] -= m * B[size_t(c * k + j)];
            b[size_t(i)] -= m * b[size_t(c)];
        }
    }
    std::vector<double> x(static_cast<size_t>(k));
    for (int i = k - 1; i >= 0; --i) {
        double s = b[size_t(i)];
        for (int j = i + 1; j < k; ++j)
            s -= B[size_t(i * k + j)] * x[size_t(j)];
        x[size_t(i)] = s / B[size_t(i * k + i)];
    }
    return x;
}

// A basis drawn from the rows and columns of a full matrix M, as the solver does.
struct Basis {
    int n;
    std::vector<double> M;
    std::vector<int> order;
    BasisFactors f;

    double m(int i, int j) const { return M[size_t(i * n + j)]; }

    double add(int i) {
        std::vector<double> col, row;
        for (int b : order) {
            col.push_back(m(b, i));
            row.push_back(m(i, b));
        }
        order.push_back(i);
        return f.add(col.data(), row.data(), m(i, i));
    }
    void remove_at(int p) {
        f.remove(p);
        order.erase(order.begin() + p);
    }
    // Largest difference from a fresh elimination of the same basis, relative
    // to the largest unknown. With 'few' > 0 the right-hand side has at most
    // that many nonzeros, at random places.
    double error(Lcg& rnd, int few = 0) const {
        const int k = int(order.size());
        std::vector<double> B(static_cast<size_t>(k * k)), b(static_cast<size_t>(k)), x(static_cast<size_t>(k));
        for (int p = 0; p < k; ++p) {
            for (int q = 0; q < k; ++q)
                B[size_t(p * k + q)] = m(order[size_t(p)], order[size_t(q)]);
            b[size_t(p)] = few > 0 ? 0 : rnd.next();
        }
        for (int c = 0; c < few; ++c)
            b[size_t(int((rnd.next() + 1) / 2 * k) % k)] = rnd.next();
        EXPECT_EQ(f.solve(b.data(), x.data()), 0);
        std::vector<double> ref = fresh_solve(B, b, k);
        double worst = 0, big = 1e-300;
        for (int p = 0; p < k; ++p) {
            worst = std::max(worst, std::fabs(x[size_t(p)] - ref[size_t(p)]));
            big = std::max(big, std::fabs(ref[size_t(p)]));
        }
        return worst / big;
    }
};

// With 'density' below 1 an entry off the diagonal is nonzero with that
// chance, as in a contact system where each row couples with a few others.
Basis make_basis(int n, bool symmetric, double diagonal, double density = 1) {
    Lcg rnd;
    Basis b{n, std::vector<double>(size_t(n * n)), {}, {}};
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j) {
            const double v = rnd.next();
            if (density >= 1 || (rnd.next() + 1) / 2 < density) b.M[size_t(i * n + j)] = v;
        }
    if (symmetric)
        for (int i = 0; i < n; ++i)
            for (int j = 0; j < i; ++j)
                b.M[size_t(i * n + j)] = b.M[size_t(j * n + i)];
    for (int i = 0; i < n; ++i)
        b.M[size_t(i * n + i)] += diagonal;
    return b;
}

} // namespace

// Every principal block of a diagonally dominant matrix is well conditioned
// (condition number a few units), so the updated factors must agree with a
// fresh elimination to rounding, about 1e-14 relative, however long the
// history; 1e-10 leaves room for growth over thousands of updates, 1e-9 for
// the unwinding down to an empty basis.
TEST(BasisFactors, LongAddRemoveSequencesSolveLikeAFreshFactorisation) {
    for (bool symmetric : {true, false}) {
        const int n = 60;
        Basis b = make_basis(n, symmetric, 8.0);
        Lcg pick{77};
        double worst = 0, least = 1e300;
        for (int step = 0; step < 3000; ++step) {
            const int k = int(b.order.size());
            bool grow = k == 0 || (k < n && (pick.next() > -0.1 || k < 10));
            if (grow) {
                int i;
                do
                    i = int((pick.next() + 1) / 2 * n) % n;
                while (std::find(b.order.begin(), b.order.end(), i) != b.order.end());
                least = std::min(least, std::fabs(b.add(i)));
            } else {
                b.remove_at(int((pick.next() + 1) / 2 * k) % k);
            }
            ASSERT_EQ(b.f.size(), int(b.order.size()));
            if (step % 50 == 0 && !b.order.empty()) worst = std::max(worst, b.error(pick));
        }
        EXPECT_LT(worst, 1e-10) << (symmetric ? "symmetric" : "unsymmetric");
        // No independent row may look dependent: the last diagonal is not the
        // Schur complement once rows have swapped, but stays far above 0.001.
        EXPECT_GT(least, 100 * BasisFactors::singular);
        // Removing from the front, the back and the middle down to nothing.
        while (!b.order.empty()) {
            const int k = int(b.order.size());
            b.remove_at(k % 3 == 0 ? 0 : (k % 3 == 1 ? k - 1 : k / 2));
            if (!b.order.empty()) {
                EXPECT_LT(b.error(pick), 1e-9);
            }
        }
        EXPECT_EQ(b.f.size(), 0);
    }
}

// Contact-like systems: sparse columns and rows enter the basis and sparse
// right-hand sides are solved, so the products that gather only the nonzero
// entries run; a dense right-hand side on the same factors takes the full
// products. Both must agree with a fresh elimination as in the dense case.
TEST(BasisFactors, SparseColumnsAndRightHandSidesSolveLikeAFreshFactorisation) {
    for (bool symmetric : {true, false}) {
        const int n = 120;
        Basis b = make_basis(n, symmetric, 3.0, 0.03);
        Lcg pick{91};
        double worst_sparse = 0, worst_dense = 0;
        for (int step = 0; step < 1500; ++step) {
            const int k = int(b.order.size());
            if (k == 0 || (k < n && (pick.next() > -0.2 || k < 20))) {
                int i;
                do
                    i = int((pick.next() + 1) / 2 * n) % n;
                while (std::find(b.order.begin(), b.order.end(), i) != b.order.end());
                b.add(i);
            } else {
                b.remove_at(int((pick.next() + 1) / 2 * k) % k);
            }
            if (step % 25 == 0 && b.order.size() >= 8) {
                worst_sparse = std::max(worst_sparse, b.error(pick, 1));
                worst_sparse = std::max(worst_sparse, b.error(pick, 3));
                worst_dense = std::max(worst_dense, b.error(pick));
            }
        }
        EXPECT_LT(worst_sparse, 1e-10) << (symmetric ? "symmetric" : "unsymmetric");
        EXPECT_LT(worst_dense, 1e-10) << (symmetric ? "symmetric" : "unsymmetric");
    }
}

// A row equal to one already in the basis leaves a last diagonal of zero (to
// rounding), which the solver reads as a dependent row; taking it out again
// restores factors that solve the old basis.
TEST(BasisFactors, DependentRowGivesAZeroPivotAndComesOutCleanly) {
    const int n = 8;
    Basis b = make_basis(n, true, 4.0);
    // Row and column 7 copy row and column 2.
    for (int j = 0; j < n; ++j) {
        b.M[size_t(7 * n + j)] = b.M[size_t(2 * n + j)];
        b.M[size_t(j * n + 7)] = b.M[size_t(j * n + 2)];
    }
    for (int i : {0, 2, 4, 5})
        EXPECT_GT(std::fabs(b.add(i)), BasisFactors::singular);
    EXPECT_LT(std::fabs(b.add(7)), 1e-12);
    b.remove_at(4);
    Lcg rnd;
    EXPECT_LT(b.error(rnd), 1e-12);
    // A combination of two basis rows is as dependent as a copy.
    for (int j = 0; j < n; ++j)
        b.M[size_t(6 * n + j)] = b.M[size_t(0 * n + j)] - 0.5 * b.M[size_t(4 * n + j)];
    for (int j = 0; j < n; ++j)
        b.M[size_t(j * n + 6)] = b.M[size_t(j * n + 0)] - 0.5 * b.M[size_t(j * n + 4)];
    EXPECT_LT(std::fabs(b.add(6)), 1e-12);
}

// An unknown whose diagonal is at most 0.001 takes 0, or the value given.
TEST(BasisFactors, SingularUnknownTakesZeroOrItsPreviousValue) {
    BasisFactors f;
    // B = diag(2, 0.0005, 4): triangular already, so the diagonal is B's own.
    const double none[2] = {0, 0};
    f.add(none, none, 2);
    f.add(none, none, 0.0005);
    f.add(none, none, 4);
    const double rhs[3] = {2, 1, 8};
    double x[3] = {-1, -1, -1};
    EXPECT_EQ(f.solve(rhs, x), 1);
    EXPECT_DOUBLE_EQ(x[0], 1);
    EXPECT_EQ(x[1], 0);
    EXPECT_DOUBLE_EQ(x[2], 2);
    const double prev[3] = {9, 7, 9};
    EXPECT_EQ(f.solve(rhs, x, prev), 1);
    EXPECT_EQ(x[1], 7);
    EXPECT_DOUBLE_EQ(x[0], 1);
}
