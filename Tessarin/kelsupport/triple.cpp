#include "Tessarin/kelsupport/triple.h"

#include <cctype>
#include <cmath>
#include <cstdio>
#include <istream>
#include <ostream>

#include "Tessarin/kelsupport/kelerror.h"
#include "Tessarin/kelsupport/matrix.h"

void triple::init(const mvector& v) {
    if (v.size() != 3) {
        kel::fatal("triple::init: illegal mvector size (%d)", v.size());
        return;
    }
    x = v[0];
    y = v[1];
    z = v[2];
}

triple triple::operator*(const matrix& m) const {
    if (m.rows() != 3 || m.cols() != 3) {
        kel::fatal("triple::operator*: matrix not 3 x 3");
        return {};
    }
    return {x * m(0, 0) + y * m(1, 0) + z * m(2, 0), x * m(0, 1) + y * m(1, 1) + z * m(2, 1),
            x * m(0, 2) + y * m(1, 2) + z * m(2, 2)};
}

triple operator*(const matrix& m, const triple& t) {
    if (m.rows() == 3 && m.cols() == 3)
        return {m(0, 0) * t.x + m(0, 1) * t.y + m(0, 2) * t.z, m(1, 0) * t.x + m(1, 1) * t.y + m(1, 2) * t.z,
                m(2, 0) * t.x + m(2, 1) * t.y + m(2, 2) * t.z};
    if (m.rows() == 4 && m.cols() == 4) {
        triple r{m(0, 0) * t.x + m(0, 1) * t.y + m(0, 2) * t.z + m(0, 3),
                 m(1, 0) * t.x + m(1, 1) * t.y + m(1, 2) * t.z + m(1, 3),
                 m(2, 0) * t.x + m(2, 1) * t.y + m(2, 2) * t.z + m(2, 3)};
        double w = m(3, 3);
        if (m(3, 0) != 0 || m(3, 1) != 0 || m(3, 2) != 0) w += m(3, 0) * t.x + m(3, 1) * t.y + m(3, 2) * t.z;
        if (w == 1) return r;
        if (w == 0) {
            kel::fatal("triple*: zero (3,3) entry in matrix");
            return r;
        }
        return r / w;
    }
    kel::fatal("triple*: cannot multiply triple by (%d, %d) matrix", m.rows(), m.cols());
    return {};
}

namespace {
double shown(double v) {
    return std::fabs(v) < 1e-10 ? 0.0 : v;
}

void print_numbers(std::ostream& os, const double* v, int n) {
    char buf[128];
    os << '(';
    for (int i = 0; i < n; ++i) {
        std::snprintf(buf, sizeof buf, "%g", shown(v[i]));
        os << buf;
        if (i + 1 < n) os << ", ";
    }
    os << ')';
}
} // namespace

std::ostream& operator<<(std::ostream& os, const triple& t) {
    const double v[3] = {t.x, t.y, t.z};
    print_numbers(os, v, 3);
    return os;
}

std::ostream& operator<<(std::ostream& os, const ftriple& t) {
    const double v[3] = {t.x, t.y, t.z};
    print_numbers(os, v, 3);
    return os;
}

// "(x, y, z)" with missing components read as 0, or three bare numbers.
std::istream& operator>>(std::istream& is, triple& t) {
    is >> std::ws;
    int c = is.peek();
    if (c == '(') {
        is.get();
        double v[3] = {0, 0, 0};
        for (int i = 0; i < 3; ++i) {
            is >> std::ws;
            c = is.peek();
            if (c == ')') break;
            if (c != ',') {
                if (!(is >> v[i])) return is;
                is >> std::ws;
                c = is.peek();
            }
            if (c == ',') {
                is.get();
                continue;
            }
            if (c == ')') break;
            is.setstate(std::ios::failbit);
            return is;
        }
        is >> std::ws;
        if (is.get() != ')') {
            is.setstate(std::ios::failbit);
            return is;
        }
        t = {v[0], v[1], v[2]};
        return is;
    }
    if (std::isdigit(c) || c == '-' || c == '+' || c == '.') {
        double a, b, d;
        if (is >> a >> b >> d) t = {a, b, d};
        return is;
    }
    is.setstate(std::ios::failbit);
    return is;
}
