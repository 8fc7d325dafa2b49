#pragma once

#include <vector>

#include "Host/Math/T4dDblMatrix.h"
#include "Host/Math/TboundingBox.h"

// Open curve of degree 1 (a polyline through its control points) or 3 (a uniform cubic B-spline with
// clamped ends, so it starts at the first and ends at the last control point). The parameter u runs from
// 0 to 1 over the whole curve. With fewer than four control points a cubic drops to the highest degree
// its points allow (two points: a line, three: a parabola), still through both ends.
class Tcurve {
public:
    Tcurve() = default;
    // Throws std::invalid_argument for a degree other than 1 or 3.
    Tcurve(int degree, std::vector<T4dDblVector> controlPoints);

    bool operator==(const Tcurve&) const = default;

    int degree() const { return degree_; }
    void setDegree(int degree);
    // Degree used for evaluation, lowered when there are too few control points.
    int effectiveDegree() const;

    const std::vector<T4dDblVector>& controlPoints() const { return cvs_; }
    std::vector<T4dDblVector>& controlPoints() { return cvs_; }
    int numControlPoints() const { return static_cast<int>(cvs_.size()); }
    // Knot vector in the curve's own span (0 to numSpans()), clamped at both ends.
    std::vector<double> knots() const;
    int numSpans() const;
    // Points on the curve at its distinct knots, start and end included: numSpans() + 1 of them.
    std::vector<T4dDblVector> editPoints() const;
    // The point at a parameter in knot units, 0 to numSpans(), as curve parameters are usually given.
    T4dDblVector pointAtParam(double t) const { return evaluate(numSpans() > 0 ? t / numSpans() : 0); }

    // u is clamped to [0, 1]; an empty curve gives the origin.
    T4dDblVector evaluate(double u) const;
    // dC/du.
    T4dDblVector derivative(double u) const;
    // Unit direction of travel; zero where the curve stands still.
    T4dDblVector tangent(double u) const { return derivative(u).normal(); }

    double length() const;
    // Parameter at which the arc length from the start reaches s (clamped to the curve).
    double parameterAtLength(double s) const;
    // n points at even arc-length spacing, the first and last at the ends (n = 1: the start).
    std::vector<T4dDblVector> sampleEvenly(int n) const;

    TboundingBox boundingBox() const;
    void transform(const T4dDblMatrix& m);

private:
    // Arc length at the end of each of `pieces` equal parameter pieces, starting with 0.
    std::vector<double> lengthTable(int& pieces) const;
    double parameterAtLength(double s, const std::vector<double>& table, int pieces) const;
    int degree_ = 3;
    std::vector<T4dDblVector> cvs_;
};
