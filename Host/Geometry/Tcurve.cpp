#include "Host/Geometry/Tcurve.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>

namespace {

// Clamped uniform knots of n points at degree p, without storing them: p+1 zeros, 1 .. n-p-1, p+1 times n-p.
inline double knotAt(int i, int n, int p) {
    return std::clamp(i - p, 0, n - p);
}

// de Boor on the p+1 points that act on span k: d[j] is point k-p+j, knot(i) the i-th knot.
template <class Knot> T4dDblVector deBoorLocal(T4dDblVector d[4], int k, int p, double t, Knot knot) {
    for (int r = 1; r <= p; ++r)
        for (int j = p; j >= r; --j) {
            const int i = k - p + j;
            const double den = knot(i + p + 1 - r) - knot(i);
            const double a = den > 0 ? (t - knot(i)) / den : 0;
            d[j] = d[j - 1] * (1 - a) + d[j] * a;
        }
    return d[p];
}

// 5-point Gauss-Legendre on [0, 1]: exact for polynomials up to degree 9.
constexpr double kGaussX[5] = {0.046910077030668, 0.230765344947158, 0.5, 0.769234655052842,
                               0.953089922969332};
constexpr double kGaussW[5] = {0.118463442528095, 0.239314335249683, 0.284444444444444, 0.239314335249683,
                               0.118463442528095};

} // namespace

Tcurve::Tcurve(int degree, std::vector<T4dDblVector> controlPoints) : cvs_(std::move(controlPoints)) {
    setDegree(degree);
}

void Tcurve::setDegree(int degree) {
    if (degree != 1 && degree != 3)
        throw std::invalid_argument("curve degree must be 1 or 3 (got " + std::to_string(degree) + ")");
    degree_ = degree;
}

int Tcurve::effectiveDegree() const {
    return std::max(0, std::min(degree_, numControlPoints() - 1));
}

std::vector<double> Tcurve::knots() const {
    const int n = numControlPoints(), p = effectiveDegree();
    std::vector<double> k;
    if (n == 0) return k;
    for (int i = 0; i < n + p + 1; ++i)
        k.push_back(knotAt(i, n, p));
    return k;
}

int Tcurve::numSpans() const {
    return cvs_.size() < 2 ? 0 : numControlPoints() - effectiveDegree();
}

std::vector<T4dDblVector> Tcurve::editPoints() const {
    std::vector<T4dDblVector> out;
    if (cvs_.empty()) return out;
    const int spans = numSpans();
    if (spans == 0) return {cvs_[0]};
    for (int i = 0; i <= spans; ++i)
        out.push_back(evaluate(double(i) / spans));
    return out;
}

T4dDblVector Tcurve::evaluate(double u) const {
    const int n = numControlPoints(), p = effectiveDegree();
    if (n == 0) return {};
    if (p == 0) return cvs_[0];
    if (std::isnan(u)) u = 0;
    const double t = std::clamp(u, 0.0, 1.0) * (n - p);
    // Span k holds knot(k) <= t < knot(k+1); the end of the curve belongs to the last span.
    const int k = std::clamp(static_cast<int>(t) + p, p, n - 1);
    T4dDblVector d[4];
    for (int j = 0; j <= p; ++j)
        d[j] = cvs_[k - p + j];
    return deBoorLocal(d, k, p, t, [n, p](int i) { return knotAt(i, n, p); });
}

T4dDblVector Tcurve::derivative(double u) const {
    const int n = numControlPoints(), p = effectiveDegree();
    if (n < 2 || p == 0) return {};
    if (std::isnan(u)) u = 0;
    const double spans = n - p;
    const double t = std::clamp(u, 0.0, 1.0) * spans;
    const int k = std::clamp(static_cast<int>(t) + p, p, n - 1);
    auto knot = [n, p](int i) { return knotAt(i, n, p); };
    // The derivative is a spline of degree p-1 over the knots without the outer two, with points
    // q[i] = p (P[i+1] - P[i]) / (knot(i+p+1) - knot(i+1)); span k becomes span k-1 there.
    T4dDblVector d[4];
    for (int j = 0; j < p; ++j) {
        const int i = k - p + j;
        const double den = knot(i + p + 1) - knot(i + 1);
        d[j] = den > 0 ? (cvs_[i + 1] - cvs_[i]) * (p / den) : T4dDblVector{};
    }
    const T4dDblVector dt = deBoorLocal(d, k - 1, p - 1, t, [&knot](int i) { return knot(i + 1); });
    return dt * spans;
}

std::vector<double> Tcurve::lengthTable(int& pieces) const {
    const int spans = std::max(1, numControlPoints() - effectiveDegree());
    // Several pieces per span keep the quadrature and the inversion accurate on tight bends.
    pieces = spans * 16;
    std::vector<double> table(pieces + 1, 0.0);
    for (int i = 0; i < pieces; ++i) {
        double sum = 0;
        for (int g = 0; g < 5; ++g)
            sum += kGaussW[g] * derivative((i + kGaussX[g]) / pieces).length();
        table[i + 1] = table[i] + sum / pieces;
    }
    return table;
}

double Tcurve::length() const {
    if (numControlPoints() < 2) return 0;
    int pieces;
    return lengthTable(pieces).back();
}

double Tcurve::parameterAtLength(double s) const {
    if (numControlPoints() < 2) return 0;
    int pieces;
    const std::vector<double> table = lengthTable(pieces);
    return parameterAtLength(s, table, pieces);
}

double Tcurve::parameterAtLength(double s, const std::vector<double>& table, int pieces) const {
    if (!(s > 0)) return 0;
    if (s >= table.back()) return 1;
    const int i = static_cast<int>(std::upper_bound(table.begin(), table.end(), s) - table.begin()) - 1;
    const double lo = double(i) / pieces, hi = double(i + 1) / pieces;
    const double l0 = table[i], l1 = table[i + 1];
    double u = l1 > l0 ? lo + (hi - lo) * (s - l0) / (l1 - l0) : lo;
    // Newton on the length inside the piece, kept inside it.
    for (int it = 0; it < 4; ++it) {
        double len = l0;
        const double w = u - lo;
        for (int g = 0; g < 5; ++g)
            len += kGaussW[g] * w * derivative(lo + kGaussX[g] * w).length();
        const double speed = derivative(u).length();
        if (!(speed > 1e-300)) break;
        u = std::clamp(u - (len - s) / speed, lo, hi);
    }
    return u;
}

std::vector<T4dDblVector> Tcurve::sampleEvenly(int n) const {
    std::vector<T4dDblVector> out;
    if (n <= 0 || cvs_.empty()) return out;
    out.reserve(n);
    if (n == 1) {
        out.push_back(evaluate(0));
        return out;
    }
    const double total = length();
    for (int i = 0; i < n; ++i) {
        if (i == 0)
            out.push_back(evaluate(0));
        else if (i == n - 1)
            out.push_back(evaluate(1));
        else
            out.push_back(evaluate(parameterAtLength(total * i / (n - 1))));
    }
    return out;
}

TboundingBox Tcurve::boundingBox() const {
    // The curve lies in the convex hull of its control points; their box holds it.
    TboundingBox b;
    for (const auto& p : cvs_)
        b.includePoint(p);
    return b;
}

void Tcurve::transform(const T4dDblMatrix& m) {
    for (auto& p : cvs_)
        p = m.transformPoint(p);
}
