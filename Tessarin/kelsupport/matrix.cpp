#include "Tessarin/kelsupport/matrix.h"

#include <cmath>
#include <cstring>
#include <istream>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include "Tessarin/kelsupport/kelerror.h"
#include "Tessarin/kelsupport/permutation.h"

void matrix::allocate(int rows, int cols) {
    r_ = rows;
    c_ = cols;
    own_ = true;
    int n = rows * cols;
    p_ = n == 0 ? nullptr : (n <= inline_room ? local_ : new double[n]);
    if (p_) std::memset(p_, 0, sizeof(double) * n);
}

void matrix::release() {
    if (own_ && p_ && p_ != local_) delete[] p_;
    p_ = nullptr;
    r_ = c_ = 0;
    own_ = true;
}

matrix::matrix(int rows, int cols) {
    allocate(rows > 0 ? rows : 0, cols > 0 ? cols : 0);
}

matrix::matrix(int rows, int cols, double* external) : r_(rows), c_(cols), p_(external), own_(false) {}

matrix::matrix(const matrix& o) {
    allocate(o.r_, o.c_);
    if (p_) std::memcpy(p_, o.p_, sizeof(double) * r_ * c_);
}

matrix::matrix(matrix&& o) noexcept {
    r_ = o.r_;
    c_ = o.c_;
    own_ = o.own_;
    if (o.own_ && o.p_ == o.local_) {
        p_ = local_;
        std::memcpy(local_, o.local_, sizeof local_);
    } else {
        p_ = o.p_;
    }
    o.p_ = nullptr;
    o.r_ = o.c_ = 0;
    o.own_ = true;
}

matrix::~matrix() {
    release();
}

matrix& matrix::operator=(const matrix& o) {
    if (this == &o) return *this;
    if (null() && own_) {
        allocate(o.r_, o.c_);
    } else if (r_ != o.r_ || c_ != o.c_) {
        kel::fatal("matrix=: different sizes (%d,%d and %d,%d)", r_, c_, o.r_, o.c_);
        return *this;
    }
    if (p_) std::memmove(p_, o.p_, sizeof(double) * r_ * c_);
    return *this;
}

matrix& matrix::operator=(double c) {
    if (null()) {
        kel::fatal("matrix=: assignment to null-matrix with constant");
        return *this;
    }
    if (c != 0 && c != 1 && c != -1) {
        kel::fatal("matrix=: illegal constant matrix (value %d)", int(c));
        return *this;
    }
    if (c != 0 && r_ != c_) {
        if (c == -1)
            kel::fatal("matrix=: assigment of -I to non-square matrix");
        else
            kel::fatal("matrix=: illegal constant matrix (value %d)", int(c));
        return *this;
    }
    zero();
    for (int i = 0; c != 0 && i < r_; ++i)
        (*this)(i, i) = c;
    return *this;
}

void matrix::declare(int rows, int cols) {
    if (!null()) {
        kel::fatal("matrix-declare: Cannot redefine %d by %d matrix", r_, c_);
        return;
    }
    allocate(rows, cols);
}

void matrix::resize(int rows, int cols) {
    if (!own_) {
        r_ = rows;
        c_ = cols;
        return;
    }
    if (rows == r_ && cols == c_) return;
    release();
    allocate(rows, cols);
}

void matrix::wrap(int rows, int cols, double* external) {
    release();
    r_ = rows;
    c_ = cols;
    p_ = external;
    own_ = false;
}

void matrix::zero() {
    if (p_) std::memset(p_, 0, sizeof(double) * r_ * c_);
}

matrix matrix::operator+(const matrix& o) const {
    if (r_ != o.r_ || c_ != o.c_) {
        kel::fatal("matrix+: different sizes (%d,%d and %d,%d)", r_, c_, o.r_, o.c_);
        return *this;
    }
    matrix m(r_, c_);
    for (int i = 0; i < r_ * c_; ++i)
        m.p_[i] = p_[i] + o.p_[i];
    return m;
}

matrix matrix::operator-(const matrix& o) const {
    if (r_ != o.r_ || c_ != o.c_) {
        kel::fatal("matrix-: different sizes (%d,%d and %d,%d)", r_, c_, o.r_, o.c_);
        return *this;
    }
    matrix m(r_, c_);
    for (int i = 0; i < r_ * c_; ++i)
        m.p_[i] = p_[i] - o.p_[i];
    return m;
}

matrix& matrix::operator+=(const matrix& o) {
    if (r_ != o.r_ || c_ != o.c_) {
        kel::fatal("matrix+=: different sizes (%d,%d and %d,%d)", r_, c_, o.r_, o.c_);
        return *this;
    }
    for (int i = 0; i < r_ * c_; ++i)
        p_[i] += o.p_[i];
    return *this;
}

matrix& matrix::operator-=(const matrix& o) {
    if (r_ != o.r_ || c_ != o.c_) {
        kel::fatal("matrix-=: different sizes (%d,%d and %d,%d)", r_, c_, o.r_, o.c_);
        return *this;
    }
    for (int i = 0; i < r_ * c_; ++i)
        p_[i] -= o.p_[i];
    return *this;
}

matrix matrix::operator*(const matrix& o) const {
    if (c_ != o.r_) {
        kel::fatal("matrix*: incompatible sizes (%d,%d and %d,%d)", r_, c_, o.r_, o.c_);
        return matrix(r_, o.c_);
    }
    matrix m(r_, o.c_);
    for (int i = 0; i < r_; ++i)
        for (int k = 0; k < c_; ++k) {
            double a = (*this)(i, k);
            if (a == 0) continue;
            for (int j = 0; j < o.c_; ++j)
                m(i, j) += a * o(k, j);
        }
    return m;
}

mvector matrix::operator*(const mvector& v) const {
    if (c_ != v.size()) {
        kel::fatal("mvector*: cannot left-multiply %d element mvector by %d-column matrix", v.size(), c_);
        return mvector(r_);
    }
    mvector out(r_);
    for (int i = 0; i < r_; ++i) {
        double s = 0;
        for (int j = 0; j < c_; ++j)
            s += (*this)(i, j) * v[j];
        out[i] = s;
    }
    return out;
}

matrix matrix::operator*(double s) const {
    matrix m(*this);
    for (int i = 0; i < r_ * c_; ++i)
        m.p_[i] *= s;
    return m;
}

matrix matrix::operator*(const permutation& p) const {
    if (p.size() != c_) {
        kel::fatal("matrix*: cannot right-multiply %d column matrix by a %d element permutation", c_,
                   p.size());
        return *this;
    }
    // Column j of the result is column p[j] of this.
    matrix m(r_, c_);
    for (int i = 0; i < r_; ++i)
        for (int j = 0; j < c_; ++j)
            m(i, j) = (*this)(i, p[j]);
    return m;
}

bool matrix::operator==(const matrix& o) const {
    if (r_ != o.r_ || c_ != o.c_) return false;
    for (int i = 0; i < r_ * c_; ++i)
        if (p_[i] != o.p_[i]) return false;
    return true;
}

bool matrix::operator==(double c) const {
    if (null()) {
        kel::fatal("matrix==: applied to null-matrix");
        return false;
    }
    if (c != 0 && c != 1) {
        kel::fatal("matrix==: illegal constant matrix (value %d)", int(c));
        return false;
    }
    for (int i = 0; i < r_; ++i)
        for (int j = 0; j < c_; ++j)
            if ((*this)(i, j) != (c == 1 && i == j ? 1.0 : 0.0)) return false;
    return true;
}

matrix matrix::transpose() const {
    matrix m(c_, r_);
    for (int i = 0; i < r_; ++i)
        for (int j = 0; j < c_; ++j)
            m(j, i) = (*this)(i, j);
    return m;
}

namespace {
const double singular_limit = 1e-30;
}

matrix matrix::inverse() const {
    if (r_ != c_) {
        kel::fatal("matrix^: non-square matrix [%d X %d]", r_, c_);
        return *this;
    }
    int n = r_;
    matrix inv(n, n);
    if (n == 1) {
        if (std::fabs(p_[0]) < singular_limit) {
            kel::warning("matrix::inverse:: singular matrix");
            return inv;
        }
        inv(0, 0) = 1 / p_[0];
        return inv;
    }
    if (n == 2) {
        double d = p_[0] * p_[3] - p_[1] * p_[2];
        if (std::fabs(d) < singular_limit) {
            kel::warning("matrix::inverse:: singular matrix");
            return inv;
        }
        inv(0, 0) = p_[3] / d;
        inv(0, 1) = -p_[1] / d;
        inv(1, 0) = -p_[2] / d;
        inv(1, 1) = p_[0] / d;
        return inv;
    }
    // Gauss-Jordan with partial pivoting; the pivot row is scaled before the swap.
    matrix a(*this);
    inv = 1.0;
    for (int c = 0; c < n; ++c) {
        int best = c;
        for (int i = c + 1; i < n; ++i)
            if (std::fabs(a(i, c)) > std::fabs(a(best, c))) best = i;
        double piv = a(best, c);
        if (std::fabs(piv) < singular_limit) {
            kel::warning("matrix::inverse:: singular matrix");
            continue;
        }
        double rp = 1 / piv;
        for (int j = 0; j < n; ++j) {
            a(best, j) *= rp;
            inv(best, j) *= rp;
        }
        if (best != c)
            for (int j = 0; j < n; ++j) {
                std::swap(a(best, j), a(c, j));
                std::swap(inv(best, j), inv(c, j));
            }
        for (int i = 0; i < n; ++i) {
            if (i == c) continue;
            double f = a(i, c);
            if (f == 0) continue;
            for (int j = 0; j < n; ++j) {
                a(i, j) -= f * a(c, j);
                inv(i, j) -= f * inv(c, j);
            }
        }
    }
    return inv;
}

double matrix::determinant() const {
    if (r_ != c_) {
        kel::fatal("matrix-abs: non-square matrix [%d X %d]", r_, c_);
        return 0;
    }
    const matrix& m = *this;
    switch (r_) {
    case 0:
        return 1;
    case 1:
        return m(0, 0);
    case 2:
        return m(0, 0) * m(1, 1) - m(0, 1) * m(1, 0);
    case 3:
        return m(0, 0) * (m(1, 1) * m(2, 2) - m(1, 2) * m(2, 1)) -
               m(0, 1) * (m(1, 0) * m(2, 2) - m(1, 2) * m(2, 0)) +
               m(0, 2) * (m(1, 0) * m(2, 1) - m(1, 1) * m(2, 0));
    default:
        break;
    }
    int n = r_;
    matrix a(*this);
    double det = 1;
    for (int c = 0; c < n; ++c) {
        int best = c;
        for (int i = c + 1; i < n; ++i)
            if (std::fabs(a(i, c)) > std::fabs(a(best, c))) best = i;
        if (std::fabs(a(best, c)) < singular_limit) return 0;
        if (best != c) {
            for (int j = 0; j < n; ++j)
                std::swap(a(best, j), a(c, j));
            det = -det;
        }
        det *= a(c, c);
        for (int i = c + 1; i < n; ++i) {
            double f = a(i, c) / a(c, c);
            for (int j = c; j < n; ++j)
                a(i, j) -= f * a(c, j);
        }
    }
    return det;
}

matrix matrix::operator^(int e) const {
    if (e == T) return transpose();
    if (e == 1) return *this;
    if (e == -1) return inverse();
    kel::fatal("matrix^: Sorry, non-unitary powers not yet allowed!");
    return *this;
}

matrix unity(int n) {
    if (n <= 0) {
        kel::fatal("unity: unity matrix of order 0 illegal");
        return matrix();
    }
    matrix m(n, n);
    for (int i = 0; i < n; ++i)
        m(i, i) = 1;
    return m;
}

std::ostream& operator<<(std::ostream& os, const matrix& m) {
    for (int i = 0; i < m.rows(); ++i) {
        for (int j = 0; j < m.cols(); ++j) {
            double v = m(i, j);
            os << (j ? " " : "") << (std::fabs(v) < 1e-10 ? 0.0 : v);
        }
        os << '\n';
    }
    return os;
}

std::istream& operator>>(std::istream& is, matrix& m) {
    std::vector<std::vector<double>> rows;
    std::string line;
    while (std::getline(is, line)) {
        std::istringstream ls(line);
        std::vector<double> row;
        double d;
        while (ls >> d)
            row.push_back(d);
        if (row.empty()) {
            if (rows.empty()) continue;
            break;
        }
        if (!m.null() && int(rows.size()) == m.rows()) {
            kel::fatal("matrix>>: too many rows");
            is.setstate(std::ios::failbit);
            return is;
        }
        int want = m.null() ? int(rows.empty() ? row.size() : rows[0].size()) : m.cols();
        if (int(row.size()) != want) {
            if (m.null())
                kel::fatal("matrix>>: expected %d-column matrix", want);
            else
                kel::fatal("matrix>>: expected %d elements on row %d", want, int(rows.size()));
            is.setstate(std::ios::failbit);
            return is;
        }
        rows.push_back(row);
    }
    if (!m.null() && int(rows.size()) != m.rows()) {
        kel::fatal("matrix>>: expected matrix of %d rows", m.rows());
        is.setstate(std::ios::failbit);
        return is;
    }
    if (m.null() && !rows.empty()) m.declare(int(rows.size()), int(rows[0].size()));
    for (int i = 0; i < int(rows.size()); ++i)
        for (int j = 0; j < int(rows[i].size()); ++j)
            m(i, j) = rows[i][j];
    if (!rows.empty()) is.clear(is.rdstate() & ~std::ios::failbit);
    return is;
}
