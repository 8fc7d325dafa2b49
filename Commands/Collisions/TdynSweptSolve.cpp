#include "Commands/Collisions/TdynSweptSolve.h"

#include <cmath>

int TdynSweptSolve::solvePolynomial(double c0, double c1, double c2, double c3, double roots[3]) {
    if (std::fabs(c3) > kCoefficientTolerance) return solveCubic(c0, c1, c2, c3, roots);
    if (std::fabs(c2) > kCoefficientTolerance) return solveQuadratic(c0, c1, c2, roots);
    if (std::fabs(c1) > kCoefficientTolerance) {
        roots[0] = -c0 / c1;
        return 1;
    }
    if (std::fabs(c0) > kCoefficientTolerance) {
        // Not a true root: the point is off the plane all step. The edge test on the
        // start position decides, which is what lets grazing starts count.
        roots[0] = 0;
        return 1;
    }
    return 0; // moving within the plane all step: no hit
}

int TdynSweptSolve::solveQuadratic(double c0, double c1, double c2, double roots[2]) {
    const double h = c1 / (2 * c2);
    const double d = h * h - c0 / c2;
    if (std::fabs(d) <= kDiscriminantTolerance) {
        roots[0] = -h;
        return 1;
    }
    if (d > 0) {
        const double s = std::sqrt(d);
        roots[0] = s - h;
        roots[1] = -(s + h);
        return 2;
    }
    return 0;
}

int TdynSweptSolve::solveCubic(double c0, double c1, double c2, double c3, double roots[3]) {
    // Depressed cubic t = y - B/3 with y^3 + 3Q y + 2R = 0; the constants are the
    // truncated thirds and 2/27 the results have always been computed with.
    const double k = 1 / c3;
    const double b = c2 * k;
    const double q = (-0.333333333333 * b * b + c1 * k) * 0.333333333333;
    const double r = (c0 * k - 0.333333333333 * b * c1 * k + 0.0740740740741 * b * b * b) * 0.5;
    const double d = r * r + q * q * q;
    int n = 0;
    if (std::fabs(d) <= kDiscriminantTolerance) {
        if (std::fabs(r) > kDiscriminantTolerance) {
            const double c = std::cbrt(-r);
            roots[0] = 2 * c;
            roots[1] = -c;
            n = 2;
        } else {
            roots[0] = 0;
            n = 1;
        }
    } else if (d > 0) {
        const double s = std::sqrt(d);
        roots[0] = std::cbrt(s - r) - std::cbrt(s + r);
        n = 1;
    } else {
        const double th = std::acos(-r / std::sqrt(-q * q * q)) * 0.333333333333;
        const double m = 2 * std::sqrt(-q);
        roots[0] = m * std::cos(th);
        roots[1] = -m * std::cos(1.04719755 + th);
        roots[2] = -m * std::cos(th - 1.04719755);
        n = 3;
    }
    const double shift = b * 0.333333333333;
    for (int i = 0; i < n; ++i)
        roots[i] -= shift;
    return n;
}
