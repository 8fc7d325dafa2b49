#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>

#include "Host/Geometry/Tcurve.h"
#include "Host/Geometry/TgeometryIterator.h"

namespace {

void expectNear(const T4dDblVector& a, const T4dDblVector& b, double tol) {
    EXPECT_NEAR(a.x, b.x, tol);
    EXPECT_NEAR(a.y, b.y, tol);
    EXPECT_NEAR(a.z, b.z, tol);
}

TEST(Tcurve, LinearIsAPolylineWithEvenParameterPerSegment) {
    const Tcurve c(1, {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}});
    EXPECT_EQ(c.evaluate(0), T4dDblVector(0, 0, 0));
    EXPECT_EQ(c.evaluate(0.5), T4dDblVector(1, 0, 0));
    EXPECT_EQ(c.evaluate(0.25), T4dDblVector(0.5, 0, 0));
    EXPECT_EQ(c.evaluate(1), T4dDblVector(1, 1, 0));
    // Outside [0, 1] clamps.
    EXPECT_EQ(c.evaluate(-3), T4dDblVector(0, 0, 0));
    EXPECT_EQ(c.evaluate(7), T4dDblVector(1, 1, 0));
    // Per unit u each segment is crossed in half the range: speed 2.
    EXPECT_EQ(c.derivative(0.2), T4dDblVector(2, 0, 0));
    EXPECT_EQ(c.tangent(0.7), T4dDblVector(0, 1, 0));
    EXPECT_NEAR(c.length(), 2.0, 1e-14);
    const auto s = c.sampleEvenly(5);
    ASSERT_EQ(s.size(), 5u);
    const T4dDblVector expected[] = {{0, 0, 0}, {0.5, 0, 0}, {1, 0, 0}, {1, 0.5, 0}, {1, 1, 0}};
    for (int i = 0; i < 5; ++i)
        expectNear(s[i], expected[i], 1e-12);
}

TEST(Tcurve, CubicIsClampedAndMatchesBezierForms) {
    const T4dDblVector P[] = {{0, 0, 0}, {1, 2, 0}, {3, 2, 1}, {4, 0, -1}};
    const Tcurve c(3, {P[0], P[1], P[2], P[3]});
    EXPECT_EQ(c.effectiveDegree(), 3);
    expectNear(c.evaluate(0), P[0], 0);
    expectNear(c.evaluate(1), P[3], 1e-15);
    // Four points with clamped knots are one Bezier segment: (P0 + 3 P1 + 3 P2 + P3) / 8 at the middle,
    // and end slopes 3 (P1 - P0), 3 (P3 - P2).
    expectNear(c.evaluate(0.5), (P[0] + 3 * P[1] + 3 * P[2] + P[3]) / 8, 1e-15);
    expectNear(c.derivative(0), 3 * (P[1] - P[0]), 1e-14);
    expectNear(c.derivative(1), 3 * (P[3] - P[2]), 1e-14);

    // Fewer points lower the degree: three points give the quadratic Bezier, two a line.
    const Tcurve q(3, {P[0], P[1], P[2]});
    EXPECT_EQ(q.effectiveDegree(), 2);
    expectNear(q.evaluate(0.5), (P[0] + 2 * P[1] + P[2]) / 4, 1e-15);
    const Tcurve l(3, {P[0], P[3]});
    expectNear(l.evaluate(0.25), P[0] + (P[3] - P[0]) * 0.25, 1e-15);
    // One point or none.
    EXPECT_EQ(Tcurve(3, {P[2]}).evaluate(0.3), P[2]);
    EXPECT_EQ(Tcurve(3, {P[2]}).length(), 0.0);
    EXPECT_EQ(Tcurve().evaluate(0.3), T4dDblVector());
    EXPECT_TRUE(Tcurve().sampleEvenly(4).empty());
}

TEST(Tcurve, LongCubicIsSmoothWithMatchingDerivative) {
    const Tcurve c(3, {{0, 0, 0}, {1, 3, 0}, {2, -1, 1}, {4, 0, 2}, {5, 2, 0}, {7, 1, -1}, {8, 0, 0}});
    const std::vector<double> k = c.knots();
    const std::vector<double> expectedKnots{0, 0, 0, 0, 1, 2, 3, 4, 4, 4, 4};
    EXPECT_EQ(k, expectedKnots);
    expectNear(c.evaluate(1), {8, 0, 0}, 1e-15);
    EXPECT_EQ(c.numSpans(), 4);
    // Edit points at the knots; the second is the B-spline's knot point (P1 / 4 + 7 P2 / 12 + P3 / 6) of
    // a clamped start, the middle one the uniform (P2 + 4 P3 + P4) / 6.
    const auto ep = c.editPoints();
    ASSERT_EQ(ep.size(), 5u);
    expectNear(ep[1], T4dDblVector(1, 3, 0) / 4 + T4dDblVector(2, -1, 1) * 7 / 12 + T4dDblVector(4, 0, 2) / 6,
               1e-14);
    expectNear(ep[2], (T4dDblVector(2, -1, 1) + 4 * T4dDblVector(4, 0, 2) + T4dDblVector(5, 2, 0)) / 6,
               1e-14);
    expectNear(c.pointAtParam(2), ep[2], 0);
    // Central differences agree with the analytic derivative to O(h^2); h = 1e-5 gives ~1e-8 error.
    const double h = 1e-5;
    for (double u : {0.1, 0.25, 0.3333, 0.5, 0.75, 0.9}) {
        const T4dDblVector fd = (c.evaluate(u + h) - c.evaluate(u - h)) / (2 * h);
        expectNear(c.derivative(u), fd, 1e-6);
    }
    // At the knots (u = 0.25, 0.5, 0.75) a cubic B-spline is C2: the one-sided second differences agree.
    // One-sided quotients differ by about e times the third derivative (~2000 here) plus rounding
    // (1e-16 * 10 / e); a slope break in the second derivative would show as a difference of order 10.
    for (double u : {0.25, 0.5, 0.75}) {
        const double e = 1e-6;
        const T4dDblVector left = (c.derivative(u) - c.derivative(u - e)) / e;
        const T4dDblVector right = (c.derivative(u + e) - c.derivative(u)) / e;
        expectNear(left, right, 1e-2);
    }
}

TEST(Tcurve, ArcLengthAndEvenSampling) {
    // Collinear evenly spaced points: the clamped cubic is not uniform in u, but its length is exact and
    // even samples land on the integers.
    std::vector<T4dDblVector> line;
    for (int i = 0; i <= 6; ++i)
        line.push_back({double(i), 0, 0});
    const Tcurve straight(3, line);
    EXPECT_NEAR(straight.length(), 6.0, 1e-12);
    const auto s = straight.sampleEvenly(7);
    for (int i = 0; i <= 6; ++i)
        expectNear(s[i], {double(i), 0, 0}, 1e-9);
    EXPECT_NE(straight.evaluate(1.0 / 6).x, 1.0); // the parameter is not arc length

    // A bent curve against a fine polyline (its chord error is below 1e-9 at 200000 pieces).
    const Tcurve bent(3, {{0, 0, 0}, {0, 2, 0}, {2, 2, 0}, {2, 0, 1}, {4, 0, 1}});
    double poly = 0;
    const int N = 200000;
    for (int i = 0; i < N; ++i)
        poly += (bent.evaluate(double(i + 1) / N) - bent.evaluate(double(i) / N)).length();
    EXPECT_NEAR(bent.length(), poly, 1e-7 * poly);
    const int n = 2001;
    const auto e = bent.sampleEvenly(n);
    ASSERT_EQ(e.size(), size_t(n));
    expectNear(e.front(), {0, 0, 0}, 0);
    expectNear(e.back(), {4, 0, 1}, 1e-15);
    // Short equal arcs have nearly equal chords: chord = arc (1 - arc^2 curvature^2 / 24), under 1e-5 of
    // the arc here for curvatures up to 30.
    const double step = bent.length() / (n - 1);
    for (int i = 0; i + 1 < n; ++i)
        EXPECT_NEAR((e[i + 1] - e[i]).length(), step, 2e-4 * step) << i;
    EXPECT_NEAR(bent.parameterAtLength(0), 0.0, 0);
    EXPECT_EQ(bent.parameterAtLength(1e9), 1.0);
}

TEST(Tcurve, DegreeCheckBoxAndIterator) {
    try {
        Tcurve bad(2, {{0, 0, 0}, {1, 1, 1}});
        FAIL() << "no exception";
    } catch (const std::invalid_argument& e) {
        EXPECT_NE(std::string(e.what()).find("degree must be 1 or 3 (got 2)"), std::string::npos) << e.what();
    }
    Tcurve c(1, {{0, 0, 0}, {2, 1, -1}});
    EXPECT_THROW(c.setDegree(5), std::invalid_argument);
    EXPECT_EQ(c.degree(), 1);
    EXPECT_EQ(c.boundingBox().min, T4dDblVector(0, 0, -1));
    c.transform(T4dDblMatrix::translation({1, 1, 1}));
    EXPECT_EQ(c.evaluate(1), T4dDblVector(3, 2, 0));

    TgeometryIterator it(c);
    int n = 0;
    for (; !it.isDone(); it.next())
        ++n;
    EXPECT_EQ(n, 2);
}

} // namespace
