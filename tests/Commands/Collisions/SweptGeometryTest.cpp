// Moving points against moving triangles: the hit polynomial and its solvers,
// edge allowances, weights, the bounce, and the boxes in front of it all.

#include "Commands/Collisions/TdataSweptGeometry.h"
#include "Commands/Collisions/TdynSweptGeometry.h"
#include "Commands/Collisions/TdynSweptSolve.h"
#include "Host/Data/TdataArrays.h"
#include "Host/Data/TdataGeometry.h"
#include "Host/Geometry/TpolyPrimitives.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

namespace {

// Corners in the y = 0 plane, wound so that the normal is +y.
const T4dDblVector K0{0, 0, 0}, K1{0, 0, 3}, K2{3, 0, 0};

TdynSweptTriangle stillTriangle(const T4dDblVector& a = K0, const T4dDblVector& b = K1,
                                const T4dDblVector& c = K2) {
    TdynSweptTriangle t;
    const T4dDblVector v[3] = {a, b, c};
    t.setVertices(v, v);
    return t;
}

TdynSweptPoint movingPoint(const T4dDblVector& from, const T4dDblVector& to, double dt = 1.0) {
    TdynSweptPoint p;
    p.set(from, to, (to - from) / dt);
    return p;
}

std::vector<double> sorted(const double* r, int n) {
    std::vector<double> v(r, r + n);
    std::sort(v.begin(), v.end());
    return v;
}

} // namespace

// ---- solvers ----

TEST(SweptSolve, QuadraticRootsInTheirOrderAndTheDoubleRoot) {
    double r[3];
    // (t - 0.25)(t - 0.75): sqrt(D) - h first.
    ASSERT_EQ(TdynSweptSolve::solveQuadratic(0.1875, -1, 1, r), 2);
    EXPECT_DOUBLE_EQ(r[0], 0.75);
    EXPECT_DOUBLE_EQ(r[1], 0.25);
    ASSERT_EQ(TdynSweptSolve::solveQuadratic(0.25, -1, 1, r), 1); // (t - 0.5)^2
    EXPECT_DOUBLE_EQ(r[0], 0.5);
    EXPECT_EQ(TdynSweptSolve::solveQuadratic(1, 0, 1, r), 0); // t^2 + 1
}

TEST(SweptSolve, CubicThreeOneAndTripleRoots) {
    double r[3];
    // (t - 0.2)(t - 0.5)(t - 0.9) = t^3 - 1.6 t^2 + 0.73 t - 0.09. The truncated thirds in the
    // solver cost about 1e-12; 1e-9 leaves room without hiding a wrong branch.
    ASSERT_EQ(TdynSweptSolve::solveCubic(-0.09, 0.73, -1.6, 1, r), 3);
    const std::vector<double> three = sorted(r, 3);
    EXPECT_NEAR(three[0], 0.2, 1e-9);
    EXPECT_NEAR(three[1], 0.5, 1e-9);
    EXPECT_NEAR(three[2], 0.9, 1e-9);
    // (t - 0.5)(t^2 + 1) = t^3 - 0.5 t^2 + t - 0.5, scaled by 4 to check the normalisation.
    ASSERT_EQ(TdynSweptSolve::solveCubic(-2, 4, -2, 4, r), 1);
    EXPECT_NEAR(r[0], 0.5, 1e-9);
    // (t - 0.5)^3: D and R vanish together.
    ASSERT_EQ(TdynSweptSolve::solveCubic(-0.125, 0.75, -1.5, 1, r), 1);
    EXPECT_NEAR(r[0], 0.5, 1e-9);
}

TEST(SweptSolve, CoefficientsAtOrBelowTheToleranceDropTheDegree) {
    double r[3];
    // A cubic term of 5e-9 is no cubic: the quadratic's two roots come back.
    ASSERT_EQ(TdynSweptSolve::solvePolynomial(0.1875, -1, 1, 5e-9, r), 2);
    EXPECT_DOUBLE_EQ(r[1], 0.25);
    ASSERT_EQ(TdynSweptSolve::solvePolynomial(9, -36, 0, 0, r), 1);
    EXPECT_DOUBLE_EQ(r[0], 0.25);
    // Only the constant left: the single root 0, for the edge test to decide.
    ASSERT_EQ(TdynSweptSolve::solvePolynomial(2, 1e-9, 0, 0, r), 1);
    EXPECT_EQ(r[0], 0);
    EXPECT_EQ(TdynSweptSolve::solvePolynomial(1e-9, 1e-9, 1e-9, 1e-9, r), 0);
}

// ---- one triangle, one point ----

TEST(SweptTriangle, StillTriangleAndPointThroughItsMiddleGiveOneLinearRoot) {
    const TdynSweptTriangle tri = stillTriangle();
    TdynSweptPoint p = movingPoint({1, 1, 1}, {1, -3, 1});
    double c[4];
    tri.hitPolynomial(p.position0(), p.position1(), c);
    // Worked by hand: x0 = (0, 9, 0), q0 = (-2, 1, 1), q1 = (0, -4, 0).
    EXPECT_EQ(c[3], 0);
    EXPECT_EQ(c[2], 0);
    EXPECT_DOUBLE_EQ(c[1], -36);
    EXPECT_DOUBLE_EQ(c[0], 9);
    EXPECT_DOUBLE_EQ(tri.earliestHit(p), 0.25);
    ASSERT_TRUE(tri.intersectsPoint(p, 0));
    EXPECT_DOUBLE_EQ(p.candidateTime(), 0.25);
    // Started after the hit: not this step's.
    EXPECT_FALSE(tri.intersectsPoint(p, 0.5));
}

TEST(SweptTriangle, StartingOnThePlaneAndMovingAwayHitsAtZero) {
    const TdynSweptTriangle tri = stillTriangle();
    TdynSweptPoint p = movingPoint({1, 0, 1}, {1, 2, 1});
    ASSERT_TRUE(tri.intersectsPoint(p, 0));
    EXPECT_EQ(p.candidateTime(), 0);
    // What the restart offset of a bounced point is for: from 1e-7 on the same hit is gone.
    EXPECT_FALSE(tri.intersectsPoint(p, 1e-7));
}

TEST(SweptTriangle, EdgesPassByTheAllowanceOnly) {
    const TdynSweptTriangle tri = stillTriangle();
    // Points on the slanted edge from corner 1 to corner 2 (x + z = 3), where rounding puts them a few
    // ulps either side; and points pushed out across it by less and by more than the 1e-10 allowance.
    const T4dDblVector out = T4dDblVector{1, 0, 1}.normal();
    for (int k = 1; k < 30; ++k) {
        const double x = 0.1 * k;
        TdynSweptPoint on = movingPoint({x, 1, 3 - x}, {x, -1, 3 - x});
        EXPECT_DOUBLE_EQ(tri.earliestHit(on), 0.5) << x;
        const T4dDblVector near = T4dDblVector{x, 0, 3 - x} + out * 5e-11;
        TdynSweptPoint justOut = movingPoint(near + T4dDblVector{0, 1, 0}, near - T4dDblVector{0, 1, 0});
        EXPECT_DOUBLE_EQ(tri.earliestHit(justOut), 0.5) << x;
        const T4dDblVector far = T4dDblVector{x, 0, 3 - x} + out * 1e-8;
        TdynSweptPoint outside = movingPoint(far + T4dDblVector{0, 1, 0}, far - T4dDblVector{0, 1, 0});
        EXPECT_EQ(tri.earliestHit(outside), DBL_MAX) << x;
    }
}

TEST(SweptTriangle, MovingTogetherInThePlaneGivesNoHit) {
    TdynSweptTriangle tri;
    const T4dDblVector shift{1, 0, 0};
    const T4dDblVector start[3] = {K0, K1, K2};
    const T4dDblVector end[3] = {K0 + shift, K1 + shift, K2 + shift};
    tri.setVertices(start, end);
    tri.setMoving(true);
    TdynSweptPoint p = movingPoint({1, 0, 1}, {2, 0, 1});
    double c[4];
    tri.hitPolynomial(p.position0(), p.position1(), c);
    for (double ci : c)
        EXPECT_LE(std::fabs(ci), TdynSweptSolve::kCoefficientTolerance);
    EXPECT_EQ(tri.earliestHit(p), DBL_MAX);
}

TEST(SweptTriangle, RootsPastTheStepEndAreFoundButNotCounted) {
    // The triangle rises from y = -2.1 at 2 a step; a point rising more slowly from -0.5 is caught at
    // t = 1.05: inside the solver's window, outside the step.
    TdynSweptTriangle tri;
    const T4dDblVector s[3] = {K0 + T4dDblVector{0, -2.1, 0}, K1 + T4dDblVector{0, -2.1, 0},
                               K2 + T4dDblVector{0, -2.1, 0}};
    const T4dDblVector e[3] = {K0 + T4dDblVector{0, -0.1, 0}, K1 + T4dDblVector{0, -0.1, 0},
                               K2 + T4dDblVector{0, -0.1, 0}};
    tri.setVertices(s, e);
    tri.setMoving(true);
    auto caughtAt = [](double t) {
        // y = -0.5 + b t meets -2.1 + 2 t at t.
        const double b = (-2.1 + 2 * t + 0.5) / t;
        return movingPoint({1, -0.5, 1}, {1, -0.5 + b, 1});
    };
    TdynSweptPoint late = caughtAt(1.05);
    EXPECT_NEAR(tri.earliestHit(late), 1.05, 1e-12);
    EXPECT_FALSE(tri.intersectsPoint(late, 0));
    // Within 1e-10 of the end still counts.
    TdynSweptPoint edge = caughtAt(1 + 5e-11);
    EXPECT_TRUE(tri.intersectsPoint(edge, 0));
    TdynSweptPoint beyond = caughtAt(1 + 1e-8);
    EXPECT_FALSE(tri.intersectsPoint(beyond, 0));
}

namespace {
// Plane condition evaluated straight from the corners at time t, independent of the cached vectors.
double planeSide(const TdynSweptTriangle& tri, const TdynSweptPoint& p, double t) {
    const T4dDblVector k0 = tri.vertex(0, t), k1 = tri.vertex(1, t), k2 = tri.vertex(2, t);
    return (p.positionAt(t) - k2).dot((k2 - k1).cross(k0 - k1));
}
// Inside by areas: the three sub-triangles' normals all agree with the whole's.
bool insideByAreas(const TdynSweptTriangle& tri, const T4dDblVector& q, double t) {
    const T4dDblVector a = tri.vertex(0, t), b = tri.vertex(1, t), c = tri.vertex(2, t);
    const T4dDblVector n = (b - a).cross(c - a);
    return (b - a).cross(q - a).dot(n) >= 0 && (c - b).cross(q - b).dot(n) >= 0 &&
           (a - c).cross(q - c).dot(n) >= 0;
}
} // namespace

TEST(SweptTriangle, EarliestRootInsideTheTriangleAgreesWithAScanOverTheStep) {
    // Tumbling, stretching triangles against moving points; a fine scan of the plane condition with
    // bisection finds every crossing, and the earliest inside the triangle is the one wanted. Among
    // them are cases of three real roots where an earlier root falls outside the edges.
    std::mt19937 rng(7);
    std::uniform_real_distribution<double> u(-1, 1);
    auto rv = [&] { return T4dDblVector{u(rng), u(rng), u(rng)}; };
    int checked = 0, threeRoots = 0, skippedRoot = 0;
    for (int trial = 0; trial < 3000; ++trial) {
        TdynSweptTriangle tri;
        T4dDblVector s[3], e[3];
        for (int i = 0; i < 3; ++i) {
            s[i] = rv() * 2;
            e[i] = rv() * 2;
        }
        tri.setVertices(s, e);
        tri.setMoving(true);
        TdynSweptPoint p = movingPoint(rv(), rv());
        double c[4], roots[3];
        tri.hitPolynomial(p.position0(), p.position1(), c);
        const int n = TdynSweptSolve::solvePolynomial(c[0], c[1], c[2], c[3], roots);
        int inWindow = 0;
        for (int k = 0; k < n; ++k)
            inWindow += roots[k] >= 0 && roots[k] < 1.1;

        double expected = DBL_MAX;
        bool earlierOutside = false;
        const int steps = 4400;
        double prevT = 0, prevF = planeSide(tri, p, 0);
        for (int k = 1; k <= steps && expected == DBL_MAX; ++k) {
            const double t = 1.1 * k / steps;
            const double f = planeSide(tri, p, t);
            if ((prevF < 0) != (f < 0)) {
                double lo = prevT, hi = t, flo = prevF;
                for (int it = 0; it < 60; ++it) {
                    const double mid = 0.5 * (lo + hi);
                    const double fm = planeSide(tri, p, mid);
                    if ((flo < 0) == (fm < 0)) {
                        lo = mid;
                        flo = fm;
                    } else {
                        hi = mid;
                    }
                }
                const double root = 0.5 * (lo + hi);
                if (insideByAreas(tri, p.positionAt(root), root))
                    expected = root;
                else
                    earlierOutside = true;
            }
            prevT = t;
            prevF = f;
        }
        // Crossings that graze an edge or the window's end are left to the tolerances, not this scan.
        const double got = tri.earliestHit(p);
        if (expected != DBL_MAX && (expected < 1e-3 || expected > 1.1 - 1e-3)) continue;
        if (expected != DBL_MAX) {
            bool nearEdge = false;
            const TdynBoundary& b = tri.boundary(expected);
            for (const TdynPlaneEquation& pl : b.planes)
                nearEdge |= std::fabs(pl.signedDistance(p.positionAt(expected))) < 1e-6;
            if (nearEdge) continue;
        }
        ++checked;
        threeRoots += inWindow == 3;
        skippedRoot += inWindow == 3 && earlierOutside && expected != DBL_MAX;
        // The solver's truncated constants (a third to 12 digits, pi/3 to 9) cost up to a few 1e-6 of
        // a step when the cubic term is small beside the others; the scan itself is good to 1e-12.
        if (expected == DBL_MAX)
            EXPECT_EQ(got, DBL_MAX) << trial;
        else
            EXPECT_NEAR(got, expected, 2e-5) << trial;
    }
    EXPECT_GT(checked, 2500);
    EXPECT_GT(threeRoots, 0);
    EXPECT_GT(skippedRoot, 0);
}

TEST(SweptTriangle, WeightsAreExactInsideAndClampedOutside) {
    // Two layouts: one takes the first formula (edge 1 has a component on the first kept axis), one
    // the second, and a steep triangle that drops x instead of y.
    const TdynSweptTriangle layouts[] = {stillTriangle(), stillTriangle(K0, K2, K1),
                                         stillTriangle({0, 0, 0}, {0.1, 3, 0}, {0.2, 0, 3})};
    for (const TdynSweptTriangle& tri : layouts) {
        const double w[3] = {0.2, 0.3, 0.5};
        double got[3];
        tri.linearCombinationFromPoint(tri.linearCombination(w, 1), 1, got);
        for (int i = 0; i < 3; ++i)
            EXPECT_NEAR(got[i], w[i], 1e-12);
        // Off the plane, the projection decides.
        tri.linearCombinationFromPoint(tri.linearCombination(w, 1) + tri.normal(1) * 4, 1, got);
        EXPECT_NEAR(got[2], 0.5, 1e-12);
        for (double a = -2; a <= 5; a += 0.25)
            for (double b = -2; b <= 5; b += 0.25) {
                const T4dDblVector q = tri.vertex(0, 1) + (tri.vertex(1, 1) - tri.vertex(0, 1)) * a * 0.4 +
                                       (tri.vertex(2, 1) - tri.vertex(0, 1)) * b * 0.4;
                tri.linearCombinationFromPoint(q, 1, got);
                EXPECT_NEAR(got[0] + got[1] + got[2], 1.0, 1e-12);
                for (int i = 0; i < 3; ++i) {
                    EXPECT_GE(got[i], 0.0);
                    EXPECT_LE(got[i], 1.0);
                }
            }
    }
    // Beyond the edge opposite corner 0 nothing is left for corner 0.
    double got[3];
    const TdynSweptTriangle tri = stillTriangle();
    tri.linearCombinationFromPoint({2.5, 0, 2.5}, 1, got);
    EXPECT_EQ(got[0], 0);
}

TEST(SweptTriangle, RandomWeightsFoldIntoTheTriangle) {
    double w[3];
    TdynSweptTriangle::randomPointWeight(0.25, 0.5, w);
    EXPECT_DOUBLE_EQ(w[0], 0.25);
    TdynSweptTriangle::randomPointWeight(0.75, 0.5, w); // folded: 0.25, 0.5
    EXPECT_DOUBLE_EQ(w[1], 0.25);
    EXPECT_DOUBLE_EQ(w[2], 0.5);
    EXPECT_DOUBLE_EQ(w[0], 0.25);
}

TEST(SweptTriangle, SurfaceVelocityIsDisplacementOverTheStep) {
    TdynSweptTriangle tri;
    const T4dDblVector up{0, 2, 0};
    const T4dDblVector s[3] = {K0, K1, K2};
    const T4dDblVector e[3] = {K0 + up, K1 + up * 2, K2 + up};
    tri.setVertices(s, e);
    tri.setMoving(true);
    // Corner 1 rises twice as fast: the velocity follows the weights.
    const double w[3] = {0.5, 0.5, 0};
    const T4dDblVector v = tri.pointVelocity(tri.linearCombination(w, 0.5), 0.5, 0.5);
    EXPECT_NEAR(v.y, (0.5 * 2 + 0.5 * 4) / 0.5, 1e-12);
    EXPECT_EQ(tri.pointVelocity(tri.linearCombination(w, 0.5), 0.5, 0), T4dDblVector{});
    tri.setMoving(false);
    EXPECT_EQ(tri.pointVelocity(tri.linearCombination(w, 1), 1, 0.5), T4dDblVector{});
}

// ---- geometry and the bounce ----

namespace {
std::unique_ptr<TdynSweptGeometry> planeGeometry(double size, int sx, int sy, const T4dDblMatrix& m = {}) {
    auto g = std::make_unique<TdynSweptGeometry>();
    g->createFromMesh(makePolyPlane(size, size, sx, sy), m);
    return g;
}
} // namespace

TEST(SweptGeometry, AStillPlaneReflectsWithResilienceAndFriction) {
    auto g = planeGeometry(10, 1, 1);
    ASSERT_EQ(g->kind, TdynSweptGeometry::kTriangles);
    EXPECT_DOUBLE_EQ(g->area, 100);
    const double dt = 0.5;
    TdynSweptPoint p;
    const T4dDblVector v{3, -4, 0};
    p.set({0, 1, 0}, T4dDblVector{0, 1, 0} + v * dt, v);
    ASSERT_TRUE(g->intersectsWithPoint(p, dt, 0, 0.5, 0.2, nullptr));
    ASSERT_EQ(p.hits().size(), 1u);
    const TdynSweptHit& h = p.firstHit();
    EXPECT_DOUBLE_EQ(h.time, 0.5);
    EXPECT_TRUE(h.normal.isEquivalent({0, 1, 0}, 1e-15));
    // The plane's uvs are affine in x and z: u = (x + 5) / 10, v = (5 - z) / 10 at (0.75, 0, 0).
    EXPECT_NEAR(h.u, 0.575, 1e-12);
    EXPECT_NEAR(h.v, 0.5, 1e-12);
    p.respond(dt);
    // Normal part -4 times -0.5, tangent part 3 times 0.8.
    EXPECT_TRUE(p.velocity().isEquivalent({2.4, 2, 0}, 1e-12));
    // Restarted 0.01 above the hit, a quarter second either side of it.
    EXPECT_TRUE(p.position1().isEquivalent({0.75 + 0.6, 0.01 + 0.5, 0}, 1e-12));
    EXPECT_TRUE(p.position0().isEquivalent({0.75 - 0.6, 0.01 - 0.5, 0}, 1e-12));
    EXPECT_TRUE(p.hasChanged());
}

TEST(SweptGeometry, ARisingPlaneGivesItsVelocityToTheBounce) {
    auto g = planeGeometry(10, 1, 1);
    g->saveLastState();
    g->rebuild(makeData<TdataMesh>(makePolyPlane(10, 10, 1, 1)), T4dDblMatrix::translation({0, 0.5, 0}));
    g->markMoving(true);
    g->refreshBoundingBox();
    const double dt = 0.5; // the plane rises at 1 a second
    TdynSweptPoint p;
    p.set({0, 1, 0}, {0, 0, 0}, {0, -2, 0});
    ASSERT_TRUE(g->intersectsWithPoint(p, dt, 0, 1.0, 0.0, nullptr));
    // y = 0.5 t meets y = 1 - t at t = 2/3.
    EXPECT_NEAR(p.hitTime(), 2.0 / 3.0, 1e-12);
    EXPECT_TRUE(p.firstHit().surfaceVelocity.isEquivalent({0, 1, 0}, 1e-12));
    p.respond(dt);
    // -3 relative to the surface becomes +3: 4 in the world.
    EXPECT_TRUE(p.velocity().isEquivalent({0, 4, 0}, 1e-12));
    // A rigid frame moving with the surface takes its motion back out.
    TdynSweptPoint q;
    q.set({0, 1, 0}, {0, 0, 0}, {0, -2, 0});
    ASSERT_TRUE(g->intersectsWithPoint(q, dt, 0, 1.0, 0.0, nullptr));
    const T4dDblMatrix before, after = T4dDblMatrix::translation({0, 0.5, 0});
    q.respond(dt, &before, &after);
    EXPECT_TRUE(q.velocity().isEquivalent({0, 3, 0}, 1e-12));
}

TEST(SweptGeometry, FrictionActsRelativeToASlidingSurface) {
    // A belt sliding along x at 1 a second; a point dropping onto it.
    auto g = planeGeometry(10, 1, 1);
    g->saveLastState();
    g->rebuild(makeData<TdataMesh>(makePolyPlane(10, 10, 1, 1)), T4dDblMatrix::translation({1, 0, 0}));
    g->markMoving(true);
    g->refreshBoundingBox();
    for (double f : {0.0, 0.25, 1.0}) {
        TdynSweptPoint p;
        p.set({0, 1, 0}, {0, -1, 0}, {0, -2, 0});
        ASSERT_TRUE(g->intersectsWithPoint(p, 1, 0, 0.0, f, nullptr));
        EXPECT_TRUE(p.firstHit().surfaceVelocity.isEquivalent({1, 0, 0}, 1e-12));
        p.respond(1);
        // No bounce; of the sliding difference -1 along x, 1 - f is kept: f of the belt's speed taken up.
        EXPECT_TRUE(p.velocity().isEquivalent({f, 0, 0}, 1e-12)) << f;
    }
}

TEST(SweptGeometry, TheEarliestOfSeveralHitsWins) {
    // Two quads, the lower (y = -1) listed first.
    TpolyMesh m;
    for (double y : {-1.0, 0.0}) {
        const int a = m.addPoint({-1, y, 1}), b = m.addPoint({1, y, 1}), c = m.addPoint({1, y, -1}),
                  d = m.addPoint({-1, y, -1});
        m.addFace({a, b, c, d});
    }
    TdynSweptGeometry g;
    g.createFromMesh(m, {});
    TdynSweptPoint p;
    p.set({0.3, 1, 0.2}, {0.3, -3, 0.2}, {0, -4, 0});
    ASSERT_TRUE(g.intersectsWithPoint(p, 1, 0, 1, 0, nullptr));
    EXPECT_DOUBLE_EQ(p.hitTime(), 0.25);
    ASSERT_EQ(p.hits().size(), 1u);
    // Another geometry hit later does not displace it; one hit at the same time joins it.
    auto lower = planeGeometry(4, 1, 1, T4dDblMatrix::translation({0, -2, 0}));
    auto* other = reinterpret_cast<Tshape*>(&g);
    EXPECT_TRUE(lower->intersectsWithPoint(p, 1, 0, 1, 0, other));
    EXPECT_DOUBLE_EQ(p.hitTime(), 0.25);
    auto same = planeGeometry(4, 1, 1);
    EXPECT_TRUE(same->intersectsWithPoint(p, 1, 0, 1, 0, other));
    EXPECT_EQ(p.hits().size(), 2u);
}

TEST(SweptGeometry, AHitOnASharedEdgeCountsOnce) {
    // The diagonal of the quad is shared by its two triangles.
    auto g = planeGeometry(2, 1, 1);
    TdynSweptPoint p;
    p.set({0, 1, 0}, {0, -1, 0}, {0, -2, 0});
    ASSERT_TRUE(g->intersectsWithPoint(p, 1, 0, 1, 0, nullptr));
    EXPECT_EQ(p.hits().size(), 1u);
}

TEST(SweptGeometry, TwoLevelBoxesSkipFarTriangles) {
    // 250 triangles in a strip along x; runs of 100 cover 50 units each, the last holds 50.
    auto g = std::make_unique<TdynSweptGeometry>();
    g->createFromMesh(makePolyPlane(250, 1, 125, 1), {});
    ASSERT_EQ(g->triangleCount(), 250);
    ASSERT_EQ(g->subBoundingBoxCount(), 3);
    EXPECT_DOUBLE_EQ(g->subBoundingBox(2)->min[0], 75);
    auto drop = [&](double x) {
        TdynSweptPoint p;
        p.set({x, 1, 0.1}, {x, -1, 0.1}, {0, -2, 0});
        const bool hit = g->intersectsWithPoint(p, 1, 0, 1, 0, nullptr);
        return std::make_pair(hit, g->trianglesVisited());
    };
    EXPECT_EQ(drop(-100.3), std::make_pair(true, 100));
    EXPECT_EQ(drop(110.3), std::make_pair(true, 50));
    EXPECT_EQ(drop(300), std::make_pair(false, 0));
    // Points off the whole box cost nothing beyond it.
    TdynSweptPoint above;
    above.set({0, 5, 0}, {0, 4, 0}, {0, -1, 0});
    EXPECT_FALSE(g->intersectsWithPoint(above, 1, 0, 1, 0, nullptr));
    EXPECT_EQ(g->trianglesVisited(), 0);
}

TEST(SweptGeometry, LayoutChangesAreTellingAndElementsGoBackToTheFreeLists) {
    TdynSweptGeometry g;
    const Tdata plane = makeData<TdataMesh>(makePolyPlane(2, 2, 2, 2));
    g.create(plane, {});
    EXPECT_EQ(g.triangleCount(), 8);
    EXPECT_FALSE(g.hasChanged(plane));
    TpolyMesh moved = makePolyPlane(2, 2, 2, 2);
    moved.points[4].y = 1;
    EXPECT_FALSE(g.hasChanged(makeData<TdataMesh>(moved)));
    EXPECT_TRUE(g.hasChanged(makeData<TdataMesh>(makePolyPlane(2, 2, 3, 2))));
    EXPECT_TRUE(g.hasChanged(makeData<TdataCurve>(Tcurve(1, {{0, 0, 0}, {1, 0, 0}}))));
    // A rebuild of the same layout moves the end state only.
    ASSERT_TRUE(g.rebuild(makeData<TdataMesh>(moved), {}));
    EXPECT_EQ(g.triangleCount(), 8);
    const std::size_t freeBefore = TdynSweptTriangle::freeListSize();
    g.clear();
    EXPECT_EQ(TdynSweptTriangle::freeListSize(), freeBefore + 8);
    g.create(plane, {});
    EXPECT_EQ(TdynSweptTriangle::freeListSize(), freeBefore);
}

TEST(SweptGeometry, CurvesBecomeEvenLines) {
    TdynSweptGeometry g;
    ASSERT_EQ(g.createFromCurve(Tcurve(1, {{0, 0, 0}, {4, 0, 0}}), T4dDblMatrix::translation({0, 0, 1})),
              TdynSweptGeometry::kLines);
    ASSERT_EQ(g.lineCount(), 10);
    EXPECT_NEAR(g.length, 4, 1e-12);
    for (const TdynSweptLine* l : g.lines) {
        EXPECT_NEAR(l->length(1), 0.4, 1e-9);
        EXPECT_EQ(l->vertex(0, 1).z, 1);
        EXPECT_TRUE(l->normal(1).isEquivalent({0, 1, 0}));
    }
    EXPECT_NEAR(g.lines.back()->parameter(1), 1, 1e-12);
    // Nothing to hit on lines, and an unknown letter leaves the geometry empty.
    TdynSweptPoint p;
    p.set({1, 1, 1}, {1, -1, 1}, {0, -2, 0});
    EXPECT_FALSE(g.intersectsWithPoint(p, 1, 0, 1, 0, nullptr));
    EXPECT_EQ(g.create(makeData<TdataDoubleArray>(), {}), TdynSweptGeometry::kEmpty);
    EXPECT_EQ(g.area, 0);
}

TEST(SweptGeometry, LettersShareTheirGeometryByCount) {
    Tdata a = makeData<TdataSweptGeometry>();
    TdynSweptGeometry* g = sweptGeometryOf(a);
    ASSERT_NE(g, nullptr);
    EXPECT_EQ(g->count(), 1);
    {
        Tdata b = a;
        b.makeWriter(); // a copy of the letter holds the same geometry
        EXPECT_EQ(sweptGeometryOf(b), g);
        EXPECT_EQ(g->count(), 2);
    }
    EXPECT_EQ(g->count(), 1);
}

TEST(SweptGeometry, TheBoxedWalkFindsWhatEveryTriangleFinds) {
    // A rippled 1,250-triangle mesh rising through the step and points raining through it: the walk
    // behind the boxes must find the same earliest time as asking every triangle, the last partial
    // run included.
    auto rippled = [](double lift) {
        TpolyMesh m = makePolyPlane(20, 20, 25, 25);
        for (T4dDblVector& p : m.points)
            p.y = 0.4 * std::sin(0.9 * p.x + lift) * std::cos(0.7 * p.z) + lift;
        return makeData<TdataMesh>(m);
    };
    TdynSweptGeometry g;
    g.create(rippled(0), {});
    g.saveLastState();
    ASSERT_TRUE(g.rebuild(rippled(0.3), {}));
    g.markMoving(true);
    g.refreshBoundingBox();
    ASSERT_EQ(g.subBoundingBoxCount(), 13);
    std::mt19937 rng(11);
    std::uniform_real_distribution<double> u(-1, 1);
    int hits = 0;
    for (int i = 0; i < 2000; ++i) {
        const T4dDblVector a{u(rng) * 10, 0.8 + 0.5 * u(rng), u(rng) * 10};
        const T4dDblVector b = a + T4dDblVector{u(rng), -1.5 + u(rng), u(rng)};
        TdynSweptPoint p = movingPoint(a, b);
        double expected = DBL_MAX;
        for (const TdynSweptTriangle* t : g.triangles) {
            TdynSweptPoint q = movingPoint(a, b);
            if (t->intersectsPoint(q, 0)) expected = std::min(expected, q.candidateTime());
        }
        const bool hit = g.intersectsWithPoint(p, 1, 0, 1, 0, nullptr);
        EXPECT_EQ(hit, expected != DBL_MAX) << i;
        if (hit) {
            EXPECT_EQ(p.hitTime(), expected) << i;
            ++hits;
        }
    }
    EXPECT_GT(hits, 1000);
}
