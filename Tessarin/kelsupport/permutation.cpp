#include "Tessarin/kelsupport/permutation.h"

#include <utility>

#include "Tessarin/kelsupport/kelerror.h"
#include "Tessarin/kelsupport/matrix.h"

void permutation::declare(int n) {
    if (!p_.empty()) {
        kel::fatal("permutation::declare: nonnull permutation, size %d", size());
        return;
    }
    p_.resize(n > 0 ? n : 0);
    for (int i = 0; i < int(p_.size()); ++i)
        p_[i] = i;
}

void permutation::swap(int i, int j) {
    if (p_.empty()) {
        kel::fatal("permutation::swap: null permutation");
        return;
    }
    if (i < 0 || j < 0 || i >= size() || j >= size()) {
        kel::fatal("permuation::swap: (%d, %d) is illegal", i, j);
        return;
    }
    std::swap(p_[i], p_[j]);
}

permutation permutation::inverse() const {
    permutation r;
    if (p_.empty()) {
        kel::fatal("permuation::inverse: cannot invert null permutation");
        return r;
    }
    r.declare(size());
    for (int i = 0; i < size(); ++i)
        r.p_[p_[i]] = i;
    return r;
}

permutation& permutation::operator=(const permutation& o) {
    if (this == &o) return *this;
    if (o.p_.empty()) {
        kel::fatal("permutation=: null permutation copy");
        return *this;
    }
    if (!p_.empty() && size() != o.size()) {
        kel::fatal("permutation=: different sizes (%d and %d)", size(), o.size());
        return *this;
    }
    p_ = o.p_;
    return *this;
}

permutation& permutation::operator=(int c) {
    if (p_.empty()) {
        kel::fatal("permutation=: assignment to null-permutation by constant");
        return *this;
    }
    if (c != 1) {
        kel::fatal("permutation=: illegal non-unit constant permutation");
        return *this;
    }
    for (int i = 0; i < size(); ++i)
        p_[i] = i;
    return *this;
}

permutation permutation::operator*(const permutation& o) const {
    permutation r;
    if (size() != o.size()) {
        kel::fatal("permutation*: different sizes (%d and %d)", size(), o.size());
        return r;
    }
    r.declare(size());
    for (int i = 0; i < size(); ++i)
        r.p_[i] = p_[o.p_[i]];
    return r;
}

mvector permutation::operator*(const mvector& v) const {
    if (v.size() != size()) {
        kel::fatal("permutation*: cannot left-multiply %d element mvector by %d element permutation",
                   v.size(), size());
        return v;
    }
    mvector r(v.size());
    for (int i = 0; i < size(); ++i)
        r[i] = v[p_[i]];
    return r;
}

matrix permutation::operator*(const matrix& m) const {
    if (m.rows() != size()) {
        kel::fatal("permutation*: cannot left-multiply %d row matrix by a %d element permutation", m.rows(),
                   size());
        return m;
    }
    matrix r(m.rows(), m.cols());
    for (int i = 0; i < size(); ++i)
        for (int j = 0; j < m.cols(); ++j)
            r(i, j) = m(p_[i], j);
    return r;
}
