#include "Tessarin/kelsupport/mvector.h"

#include <cmath>
#include <cstring>
#include <istream>
#include <ostream>
#include <vector>

#include "Tessarin/kelsupport/kelerror.h"
#include "Tessarin/kelsupport/matrix.h"
#include "Tessarin/kelsupport/permutation.h"

namespace {
// The one parked buffer of heap vectors.
double* parked = nullptr;
int parked_n = 0;
} // namespace

const double* mvector::parked_buffer() {
    return parked;
}
int mvector::parked_size() {
    return parked_n;
}

void mvector::free_parked() {
    delete[] parked;
    parked = nullptr;
    parked_n = 0;
}

void mvector::allocate(int n) {
    n_ = n;
    own_ = true;
    if (n <= inline_room) {
        p_ = n > 0 ? local_ : nullptr;
    } else if (parked && parked_n == n) {
        p_ = parked;
        parked = nullptr;
        parked_n = 0;
    } else {
        p_ = new double[n];
    }
    if (p_) std::memset(p_, 0, sizeof(double) * n);
}

void mvector::release() {
    if (own_ && p_ && p_ != local_) {
        if (!parked) {
            parked = p_;
            parked_n = n_;
        } else {
            delete[] p_;
        }
    }
    p_ = nullptr;
    n_ = 0;
    own_ = true;
}

mvector::mvector(int n) {
    allocate(n > 0 ? n : 0);
}

mvector::mvector(int n, double* external) : n_(n), p_(external), own_(false) {}

mvector::mvector(const mvector& o) {
    allocate(o.n_);
    if (n_) std::memcpy(p_, o.p_, sizeof(double) * n_);
}

mvector::mvector(mvector&& o) noexcept {
    if (o.own_ && o.p_ == o.local_) {
        n_ = o.n_;
        p_ = n_ ? local_ : nullptr;
        std::memcpy(local_, o.local_, sizeof local_);
    } else {
        n_ = o.n_;
        p_ = o.p_;
        own_ = o.own_;
    }
    o.p_ = nullptr;
    o.n_ = 0;
    o.own_ = true;
}

mvector::~mvector() {
    release();
}

mvector& mvector::operator=(const mvector& o) {
    if (this == &o) return *this;
    if (n_ == 0 && own_) {
        allocate(o.n_);
    } else if (n_ != o.n_) {
        kel::fatal("mvector=: different sizes (%d and %d)", n_, o.n_);
        return *this;
    }
    if (n_) std::memmove(p_, o.p_, sizeof(double) * n_);
    return *this;
}

mvector& mvector::operator=(double c) {
    if (n_ == 0) {
        kel::fatal("mvector=: assignment to null-vector with constant");
        return *this;
    }
    if (c != 0) {
        kel::fatal("mvector=: illegal non-zero constant mvector");
        return *this;
    }
    zero();
    return *this;
}

void mvector::declare(int n) {
    if (n_ != 0) {
        kel::fatal("mvector-declare: can't redefine %d-vector", n_);
        return;
    }
    allocate(n);
}

void mvector::resize(int n) {
    if (n == n_) return;
    release();
    allocate(n);
}

void mvector::view(int n, double* external) {
    release();
    n_ = n;
    p_ = external;
    own_ = false;
}

void mvector::zero() {
    if (n_) std::memset(p_, 0, sizeof(double) * n_);
}

double mvector::length() const {
    return std::sqrt(*this * *this);
}

mvector mvector::operator+(const mvector& o) const {
    if (n_ != o.n_) {
        kel::fatal("mvector+: different sizes (%d and %d)", n_, o.n_);
        return *this;
    }
    mvector r(n_);
    for (int i = 0; i < n_; ++i)
        r.p_[i] = p_[i] + o.p_[i];
    return r;
}

mvector mvector::operator-(const mvector& o) const {
    if (n_ != o.n_) {
        kel::fatal("mvector-: different sizes (%d and %d)", n_, o.n_);
        return *this;
    }
    mvector r(n_);
    for (int i = 0; i < n_; ++i)
        r.p_[i] = p_[i] - o.p_[i];
    return r;
}

mvector mvector::operator-() const {
    mvector r(n_);
    for (int i = 0; i < n_; ++i)
        r.p_[i] = -p_[i];
    return r;
}

mvector mvector::operator*(double s) const {
    mvector r(n_);
    for (int i = 0; i < n_; ++i)
        r.p_[i] = p_[i] * s;
    return r;
}

mvector& mvector::operator+=(const mvector& o) {
    if (n_ != o.n_) {
        kel::fatal("mvector+: different sizes (%d and %d)", n_, o.n_);
        return *this;
    }
    for (int i = 0; i < n_; ++i)
        p_[i] += o.p_[i];
    return *this;
}

mvector& mvector::operator-=(const mvector& o) {
    if (n_ != o.n_) {
        kel::fatal("mvector-: different sizes (%d and %d)", n_, o.n_);
        return *this;
    }
    for (int i = 0; i < n_; ++i)
        p_[i] -= o.p_[i];
    return *this;
}

mvector& mvector::operator*=(double s) {
    for (int i = 0; i < n_; ++i)
        p_[i] *= s;
    return *this;
}

bool mvector::operator==(const mvector& o) const {
    if (n_ != o.n_) return false;
    for (int i = 0; i < n_; ++i)
        if (p_[i] != o.p_[i]) return false;
    return true;
}

bool mvector::operator==(double c) const {
    if (c != 0) {
        kel::fatal("mvector==: illegal non-zero constant mvector");
        return false;
    }
    if (n_ == 0) {
        kel::fatal("mvector==: applied to null-vector");
        return false;
    }
    for (int i = 0; i < n_; ++i)
        if (p_[i] != 0) return false;
    return true;
}

double mvector::operator*(const mvector& o) const {
    if (n_ != o.n_) {
        kel::fatal("mvector*: different sizes (%d and %d)", n_, o.n_);
        return 0;
    }
    double s = 0;
    for (int i = 0; i < n_; ++i)
        s += p_[i] * o.p_[i];
    return s;
}

mvector mvector::operator^(const mvector& o) const {
    if (n_ != 3 || o.n_ != 3) {
        kel::fatal("mvector^: Sorry, only cross products in R3 for now!");
        return mvector(3);
    }
    mvector r(3);
    r[0] = p_[1] * o.p_[2] - p_[2] * o.p_[1];
    r[1] = p_[2] * o.p_[0] - p_[0] * o.p_[2];
    r[2] = p_[0] * o.p_[1] - p_[1] * o.p_[0];
    return r;
}

mvector mvector::operator*(const matrix& m) const {
    if (m.rows() != n_) {
        kel::fatal("mvector*: cannot right-multiply %d element mvector by %d-row matrix", n_, m.rows());
        return mvector(m.cols());
    }
    mvector r(m.cols());
    for (int i = 0; i < n_; ++i)
        for (int j = 0; j < m.cols(); ++j)
            r.p_[j] += p_[i] * m(i, j);
    return r;
}

mvector mvector::operator*(const permutation& p) const {
    if (p.size() != n_) {
        kel::fatal("mvector*: cannot right multiply %d element mvector by a %d element permutation", n_,
                   p.size());
        return *this;
    }
    // Row vector times a permutation matrix: element i moves to position p[i].
    mvector r(n_);
    for (int i = 0; i < n_; ++i)
        r.p_[p[i]] = p_[i];
    return r;
}

void mvector::axpy(double a, const mvector& x, const mvector& y) {
    if (x.n_ != y.n_ || (n_ != x.n_ && !(n_ == 0 && own_))) {
        kel::fatal("mvector::axpy: size mismatch");
        return;
    }
    if (n_ == 0) allocate(x.n_);
    for (int i = 0; i < n_; ++i)
        p_[i] = a * x.p_[i] + y.p_[i];
}

void mvector::ax(double a, const mvector& x) {
    if (n_ != x.n_ && !(n_ == 0 && own_)) {
        kel::fatal("mvector::ax: size mismatch");
        return;
    }
    if (n_ == 0) allocate(x.n_);
    for (int i = 0; i < n_; ++i)
        p_[i] = a * x.p_[i];
}

std::ostream& operator<<(std::ostream& os, const mvector& v) {
    os << '[';
    for (int i = 0; i < v.size(); ++i)
        os << (i ? " " : "") << (std::fabs(v[i]) < 1e-10 ? 0.0 : v[i]);
    return os << ']';
}

// "[a b c]"; a sized vector wants exactly its size, a null one takes what it reads.
std::istream& operator>>(std::istream& is, mvector& v) {
    is >> std::ws;
    if (is.get() != '[') {
        is.setstate(std::ios::failbit);
        return is;
    }
    std::vector<double> vals;
    for (;;) {
        is >> std::ws;
        if (is.peek() == ']') {
            is.get();
            break;
        }
        double d;
        if (!(is >> d)) return is;
        if (!v.null() && int(vals.size()) == v.size()) {
            kel::fatal("mvector>>: too many elements");
            is.setstate(std::ios::failbit);
            return is;
        }
        vals.push_back(d);
    }
    if (v.null()) {
        v.declare(int(vals.size()));
    } else if (int(vals.size()) != v.size()) {
        kel::fatal("mvector>>: expected mvector of size %d", v.size());
        is.setstate(std::ios::failbit);
        return is;
    }
    for (int i = 0; i < int(vals.size()); ++i)
        v[i] = vals[i];
    return is;
}
