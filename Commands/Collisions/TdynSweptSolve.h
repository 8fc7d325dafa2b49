#pragma once
// The hit-time polynomial of a moving point against a moving triangle and the
// small solvers it needs. Their tolerances are part of the behaviour: they
// decide which grazing hits count, so they are kept exactly as they are.

class TdynSweptSolve {
public:
    // Roots of c3 t^3 + c2 t^2 + c1 t + c0 in the order they are found, at most three. Each coefficient
    // in turn, from the highest, counts when its absolute value is above 1e-08; with only c0 left the
    // result is the single root 0 (the boundary test decides it), and with nothing left there is no root.
    static int solvePolynomial(double c0, double c1, double c2, double c3, double roots[3]);
    // c2 t^2 + c1 t + c0, c2 not zero: one root when the discriminant is within 1e-09 of 0.
    static int solveQuadratic(double c0, double c1, double c2, double roots[2]);
    // c3 t^3 + ... + c0, c3 not zero, by the trigonometric or Cardano form.
    static int solveCubic(double c0, double c1, double c2, double c3, double roots[3]);

    static constexpr double kCoefficientTolerance = 1e-08;
    static constexpr double kDiscriminantTolerance = 1e-09;
};
