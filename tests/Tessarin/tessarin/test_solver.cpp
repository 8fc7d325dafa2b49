#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "Tessarin/tessarin/body_system.h"
#include "Tessarin/tessarin/constraint.h"
#include "Tessarin/tessarin/solver.h"
#include "report_capture.h"

using namespace tessarin;

namespace {

// A bare system for the solver: tolerance 0.02, dynamics task, mid-step.
struct Rig {
    BodySystem sys;
    Rig() { sys.task = TASK_DYNAMICS; }
    SolveReport solve(const std::vector<double>& A, const std::vector<double>& r,
                      const std::vector<int>& types, const std::vector<double>& mus, std::vector<double>& x) {
        const int n = int(r.size());
        std::vector<double> a = A;
        matrix M(n, n, a.data());
        mvector rv(n), sc(n), xv(n);
        for (int i = 0; i < n; ++i) {
            rv[i] = r[size_t(i)];
            sc[i] = 1;
        }
        solve_constraint_force(sys, M, rv, sc, nullptr, xv, types.data(), mus.data());
        x.assign(xv.data(), xv.data() + n);
        return last_solve();
    }
};

} // namespace

TEST(SolverDirect, OneFrictionlessRow) {
    Rig rig;
    std::vector<double> x;
    auto rep = rig.solve({2}, {3}, {ROW_UNILATERAL}, {0}, x);
    EXPECT_EQ(rep.path, 1);
    EXPECT_EQ(rep.pivots, 0);
    EXPECT_DOUBLE_EQ(x[0], 1.5);
    // A row that needs no push takes no force.
    rep = rig.solve({2}, {-3}, {ROW_UNILATERAL}, {0}, x);
    EXPECT_EQ(x[0], 0);
}

TEST(SolverDirect, TwoParallelRowsTakeTheSingleRowCandidate) {
    Rig rig;
    std::vector<double> x;
    // Two contacts on parallel normals: A is singular (|det| below 1e-8); row 0
    // alone carries the load and leaves row 1 satisfied.
    auto rep = rig.solve({1, 1, 1, 1}, {2, 1}, {ROW_UNILATERAL, ROW_UNILATERAL}, {0, 0}, x);
    EXPECT_EQ(rep.path, 2);
    EXPECT_EQ(rep.candidate, 1);
    EXPECT_DOUBLE_EQ(x[0], 2);
    EXPECT_EQ(x[1], 0);
    // With the larger need on row 1, row 0 alone would leave row 1 short: row 1 wins.
    rep = rig.solve({1, 1, 1, 1}, {1, 2}, {ROW_UNILATERAL, ROW_UNILATERAL}, {0, 0}, x);
    EXPECT_EQ(rep.candidate, 2);
    EXPECT_DOUBLE_EQ(x[1], 2);
    // Independent rows: both at once.
    rep = rig.solve({2, 0, 0, 4}, {2, 2}, {ROW_UNILATERAL, ROW_UNILATERAL}, {0, 0}, x);
    EXPECT_EQ(rep.candidate, 0);
    EXPECT_DOUBLE_EQ(x[0], 1);
    EXPECT_DOUBLE_EQ(x[1], 0.5);
}

TEST(SolverShortcuts, AllSatisfiedReturnsZeroWithoutPivoting) {
    Rig rig;
    std::vector<double> x;
    std::vector<double> A(9, 0.0);
    for (int i = 0; i < 3; ++i)
        A[size_t(i * 4)] = 1;
    auto rep = rig.solve(A, {-1, 0, 5e-5}, {ROW_UNILATERAL, ROW_UNILATERAL, ROW_UNILATERAL}, {0, 0, 0}, x);
    EXPECT_EQ(rep.path, 4);
    EXPECT_EQ(rep.pivots, 0);
    for (double v : x)
        EXPECT_EQ(v, 0);
}

TEST(SolverShortcuts, TooManyRowsIsAUserErrorWithZeroForces) {
    report_capture cap;
    Rig rig;
    const int n = 2049;
    std::vector<double> A(size_t(n) * n, 0.0), r(size_t(n), 1.0), mus(size_t(n), 0.0), x;
    for (int i = 0; i < n; ++i)
        A[size_t(i) * n + i] = 1;
    std::vector<int> types(size_t(n), ROW_UNILATERAL);
    rig.solve(A, r, types, mus, x);
    EXPECT_EQ(report_capture::user.back(), "<user error> inductive_solve: too many constraints (2049)");
    for (double v : x)
        ASSERT_EQ(v, 0);
}

TEST(SolverPivoting, ComplementarityOnACoupledSystem) {
    Rig rig;
    std::vector<double> x;
    // Symmetric positive definite A; row 2 needs no push and is pulled away.
    std::vector<double> A = {2, 0.5, 0.3, 0.5, 1.5, 0.4, 0.3, 0.4, 1};
    std::vector<double> r = {1, 2, -3};
    auto rep = rig.solve(A, r, {ROW_UNILATERAL, ROW_UNILATERAL, ROW_UNILATERAL}, {0, 0, 0}, x);
    EXPECT_EQ(rep.path, 3);
    // Rows 0 and 1 in the basis: [2 .5; .5 1.5] x = [1 2] -> x = (0.1818.., 1.2727..).
    EXPECT_NEAR(x[0], 2.0 / 11, 1e-12);
    EXPECT_NEAR(x[1], 14.0 / 11, 1e-12);
    EXPECT_EQ(x[2], 0);
    double a2 = A[6] * x[0] + A[7] * x[1] - r[2];
    EXPECT_GT(a2, 0);
}

TEST(SolverPivoting, IdenticalRowsSecondIsRefused) {
    Rig rig;
    std::vector<double> x;
    // Rows 0 and 1 are the same joint row twice; both are offered to the basis
    // at the start and the second is dependent (pivot 0). Row 2 is a contact.
    std::vector<double> A = {1, 1, 0, 1, 1, 0, 0, 0, 1};
    auto rep = rig.solve(A, {1, 1, 1}, {ROW_BILATERAL, ROW_BILATERAL, ROW_UNILATERAL}, {0, 0, 0}, x);
    EXPECT_EQ(rep.path, 3);
    EXPECT_EQ(rep.refused, 1);
    // The first of the equal rows keeps the load.
    EXPECT_NEAR(x[0], 1, 1e-12);
    EXPECT_EQ(x[1], 0);
    EXPECT_NEAR(x[2], 1, 1e-12);
}

TEST(SolverPivoting, FrictionStopsAtTheCone) {
    Rig rig;
    std::vector<double> x;
    // One contact: normal row with a push of 1, a tangential push of 2, mu 0.5.
    // Uncoupled unit rows: the normal force is 1 and friction is capped at 0.5.
    std::vector<double> A = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    auto rep = rig.solve(A, {1, 2, 0}, {ROW_UNILATERAL, ROW_FRICTION1, ROW_FRICTION2}, {0, 0.5, 0.5}, x);
    EXPECT_EQ(rep.path, 3);
    EXPECT_NEAR(x[0], 1, 1e-9);
    EXPECT_NEAR(x[1], 0.5, 1e-9);
    EXPECT_NEAR(x[2], 0, 1e-9);
    // Inside the cone friction takes what it needs.
    rep = rig.solve(A, {1, 0.2, -0.1}, {ROW_UNILATERAL, ROW_FRICTION1, ROW_FRICTION2}, {0, 0.5, 0.5}, x);
    EXPECT_NEAR(x[1], 0.2, 1e-9);
    EXPECT_NEAR(x[2], -0.1, 1e-9);
}

// A row whose driving blocks 250 others one at a time exceeds the 200 pivots a
// row may take: friction is dropped for a cold retry, and all states become 10
// so that the next solve does not warm-start from them.
TEST(SolverPivoting, FailPathDropsFrictionAndMarksStates) {
    Rig rig;
    const int m = 250, n = m + 1 + 2;
    std::vector<double> A(size_t(n) * n, 0.0), r(size_t(n), 0.0), mus(size_t(n), 0.0);
    std::vector<int> types(size_t(n), ROW_UNILATERAL);
    for (int i = 0; i < n; ++i)
        A[size_t(i) * n + i] = 1;
    // Rows 1..m enter first (row 0's large scale makes its violation look
    // small); driving row 0 afterwards pushes each of them out in turn, since
    // they need forces 1..2.5 and give way at x0 = r_j / c.
    const double c = 0.05;
    for (int j = 1; j <= m; ++j) {
        A[size_t(j)] = A[size_t(j) * n] = c;
        r[size_t(j)] = 1 + 1.5 * j / m;
    }
    r[0] = 100;
    // Row m gets two friction rows after it, as a contact would have.
    types[size_t(m + 1)] = ROW_FRICTION1;
    types[size_t(m + 2)] = ROW_FRICTION2;
    mus[size_t(m + 1)] = mus[size_t(m + 2)] = 0.5;
    r[size_t(m + 1)] = 0.3;
    std::vector<double> a = A;
    matrix M(n, n, a.data());
    mvector rv(n), sc(n), xv(n);
    for (int i = 0; i < n; ++i) {
        rv[i] = r[size_t(i)];
        sc[i] = 1;
    }
    sc[0] = 1000;
    std::vector<int> states(size_t(n), ST_FREE);
    std::vector<double> mu = mus;
    std::vector<double> bneg(static_cast<size_t>(n), 0.0);
    for (int i = 0; i < n; ++i)
        bneg[size_t(i)] = -r[size_t(i)];
    LcpSystem s;
    s.n = n;
    s.A = a.data();
    s.b = bneg.data();
    s.scale = sc.data();
    s.type = types.data();
    s.mu = mu.data();
    s.symmetric = true;
    last_solve() = SolveReport();
    bool ok = inductive_solve(rig.sys, s, false, xv.data(), states.data());
    EXPECT_FALSE(ok);
    EXPECT_TRUE(last_solve().failed);
    EXPECT_TRUE(last_solve().retried);
    EXPECT_EQ(mu[size_t(m + 1)], 0); // friction dropped for the retry
    for (int st : states)
        ASSERT_EQ(st, ST_FAILED);
    // The next solve asked to warm-start may not: it pivots from cold.
    last_solve() = SolveReport();
    std::vector<double> small_a = {1, 0, 0, 1, 0, 0, 0, 0, 1};
    std::vector<double> small_b = {-1, -1, -1}, small_s = {1, 1, 1}, small_mu = {0, 0, 0};
    std::vector<int> small_t = {ROW_UNILATERAL, ROW_UNILATERAL, ROW_UNILATERAL};
    std::vector<int> small_st = {ST_FAILED, ST_FAILED, ST_FAILED};
    double small_x[3] = {0, 0, 0};
    LcpSystem t;
    t.n = 3;
    t.A = small_a.data();
    t.b = small_b.data();
    t.scale = small_s.data();
    t.type = small_t.data();
    t.mu = small_mu.data();
    EXPECT_TRUE(inductive_solve(rig.sys, t, true, small_x, small_st.data()));
    EXPECT_FALSE(last_solve().warm_used);
    EXPECT_NEAR(small_x[2], 1, 1e-12);
}

TEST(SolverPivoting, WarmStartReusesTheLastAnswer) {
    Rig rig;
    std::vector<double> A = {2, 0.5, 0.3, 0.5, 1.5, 0.4, 0.3, 0.4, 1};
    std::vector<double> b = {-1, -2, 3}, sc = {1, 1, 1}, mu = {0, 0, 0};
    std::vector<int> ty = {ROW_UNILATERAL, ROW_UNILATERAL, ROW_UNILATERAL};
    std::vector<int> st = {ST_FREE, ST_FREE, ST_FREE};
    double x[3] = {0, 0, 0};
    LcpSystem s;
    s.n = 3;
    s.A = A.data();
    s.b = b.data();
    s.scale = sc.data();
    s.type = ty.data();
    s.mu = mu.data();
    s.symmetric = true;
    ASSERT_TRUE(inductive_solve(rig.sys, s, false, x, st.data()));
    EXPECT_EQ(st[0], ST_BASIS);
    EXPECT_EQ(st[1], ST_BASIS);
    // A slightly different push: the same active set solves it with no pivot.
    b[0] = -1.1;
    last_solve() = SolveReport();
    ASSERT_TRUE(inductive_solve(rig.sys, s, true, x, st.data()));
    EXPECT_TRUE(last_solve().warm_used);
    EXPECT_EQ(last_solve().pivots, 0);
    EXPECT_NEAR(2 * x[0] + 0.5 * x[1], 1.1, 1e-12);
}

// The same contacts given as a dense matrix and in body space (J and M^-1 J per
// body) must pivot alike: a ring of four bodies, each row touching two of
// them (one row on a single body), normal rows with two friction rows each.
// The dense A is assembled here as J M^-1 J^T; the two answers agree to
// rounding (1e-10 against forces of order 1).
TEST(SolverPivoting, BodySpaceProductsMatchTheDenseMatrix) {
    Rig rig;
    const int contacts = 6, n = 3 * contacts, bodies = 4;
    unsigned seed = 5;
    auto rnd = [&] {
        seed = seed * 1664525u + 1013904223u;
        return double(seed >> 8) / double(1u << 24) * 2 - 1;
    };
    std::vector<double> J(size_t(n) * 12, 0.0), MJ(size_t(n) * 12, 0.0);
    std::vector<int> slot(size_t(n) * 2, -1);
    const double inv_m[bodies] = {1.0, 0.5, 2.0, 1.0};
    for (int i = 0; i < n; ++i) {
        const int c = i / 3;
        slot[size_t(2 * i)] = c % bodies;
        if (c != 5) slot[size_t(2 * i + 1)] = (c + 1) % bodies;
        for (int p = 0; p < 2; ++p)
            for (int k = 0; k < 6; ++k) {
                double v = rnd();
                if (k == 1 && i % 3 == 0) v += p == 0 ? 3 : -3; // normals mostly along y
                J[size_t(12 * i + 6 * p + k)] = v;
                MJ[size_t(12 * i + 6 * p + k)] = v * inv_m[slot[size_t(2 * i + p)] < 0 ? 0 : slot[size_t(2 * i + p)]];
            }
    }
    std::vector<double> A(size_t(n) * size_t(n), 0.0);
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j)
            for (int p = 0; p < 2; ++p)
                for (int q = 0; q < 2; ++q)
                    if (slot[size_t(2 * i + p)] >= 0 && slot[size_t(2 * i + p)] == slot[size_t(2 * j + q)])
                        for (int k = 0; k < 6; ++k)
                            A[size_t(i * n + j)] += J[size_t(12 * i + 6 * p + k)] * MJ[size_t(12 * j + 6 * q + k)];
    std::vector<const double*> pJ(size_t(2 * n)), pMJ(size_t(2 * n));
    for (int i = 0; i < 2 * n; ++i) {
        pJ[size_t(i)] = J.data() + 6 * i;
        pMJ[size_t(i)] = MJ.data() + 6 * i;
    }
    std::vector<int> types(static_cast<size_t>(n));
    std::vector<double> b(static_cast<size_t>(n)), sc(static_cast<size_t>(n), 1.0), mu0(static_cast<size_t>(n), 0.0);
    for (int i = 0; i < n; ++i) {
        types[size_t(i)] = i % 3 == 0 ? ROW_UNILATERAL : (i % 3 == 1 ? ROW_FRICTION1 : ROW_FRICTION2);
        mu0[size_t(i)] = i % 3 == 0 ? 0 : 0.5;
        b[size_t(i)] = i % 3 == 0 ? -2 - rnd() : 0.5 * rnd(); // every normal row wants a push
    }
    std::vector<double> answers[2];
    for (int body_space = 0; body_space < 2; ++body_space) {
        std::vector<double> mu = mu0, x(size_t(n), 0.0);
        std::vector<int> states(size_t(n), ST_FREE);
        LcpSystem s;
        s.n = n;
        s.A = A.data();
        s.b = b.data();
        s.scale = sc.data();
        s.type = types.data();
        s.mu = mu.data();
        s.symmetric = false;
        if (body_space) {
            s.slots = bodies;
            s.part_slot = slot.data();
            s.part_J = pJ.data();
            s.part_MJ = pMJ.data();
        }
        last_solve() = SolveReport();
        ASSERT_TRUE(inductive_solve(rig.sys, s, false, x.data(), states.data()));
        EXPECT_GT(last_solve().pivots, contacts - 1);
        answers[body_space] = x;
        // Complementarity on the normal rows, in the dense matrix's terms.
        for (int i = 0; i < n; i += 3) {
            double a = b[size_t(i)];
            for (int j = 0; j < n; ++j)
                a += A[size_t(i * n + j)] * x[size_t(j)];
            EXPECT_GE(x[size_t(i)], -1e-9);
            EXPECT_GE(a, -0.25 * rig.sys.tolerance - 1e-9);
        }
    }
    for (int i = 0; i < n; ++i)
        EXPECT_NEAR(answers[0][size_t(i)], answers[1][size_t(i)], 1e-10) << "row " << i;
}
