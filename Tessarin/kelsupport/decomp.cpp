#include "Tessarin/kelsupport/decomp.h"

#include <cmath>
#include <utility>
#include <vector>

#include "Tessarin/kelsupport/kelerror.h"

namespace {

void swap_rows(matrix& m, int a, int b) {
    if (a == b) return;
    for (int j = 0; j < m.cols(); ++j)
        std::swap(m(a, j), m(b, j));
}

void swap_cols(matrix& m, int a, int b) {
    if (a == b) return;
    for (int i = 0; i < m.rows(); ++i)
        std::swap(m(i, a), m(i, b));
}

} // namespace

int lu_decomp(const matrix& a, matrix& l, matrix& u, permutation& p, permutation& q, double tolerance) {
    const int m = a.rows(), n = a.cols();
    if (p.null()) p.declare(m);
    if (q.null()) q.declare(n);
    if (l.null()) l.declare(m, m);
    if (u.null()) u.declare(m, n);
    if (p.size() != m) {
        kel::fatal("lu_decomp: p-permutation size %d illegal", p.size());
        return 0;
    }
    if (q.size() != n) {
        kel::fatal("lu_decomp: q-permutation size %d illegal", q.size());
        return 0;
    }
    if (l.rows() != m || l.cols() != m) {
        kel::fatal("lu_decomp: l-matrix of size (%d,%d) illegal", l.rows(), l.cols());
        return 0;
    }
    if (u.rows() != m || u.cols() != n) {
        kel::fatal("lu_decomp: u-matrix of size (%d,%d) illegal", u.rows(), u.cols());
        return 0;
    }
    p = 1;
    q = 1;
    u = a;
    l = 1.0;
    const int stages = m < n ? m : n;
    int rank = 0;
    for (int k = 0; k < stages; ++k) {
        // Complete pivoting, but the first column whose best entry is adequate wins.
        int bi = -1, bj = -1;
        double best = 0;
        for (int j = k; j < n; ++j) {
            for (int i = k; i < m; ++i) {
                double v = std::fabs(u(i, j));
                if (v > best) {
                    best = v;
                    bi = i;
                    bj = j;
                }
            }
            if (best >= tolerance) break;
        }
        if (bi < 0 || best < tolerance) return rank;
        swap_rows(u, k, bi);
        p.swap(k, bi);
        // Multipliers found so far travel with their rows.
        for (int j = 0; j < k; ++j)
            std::swap(l(k, j), l(bi, j));
        swap_cols(u, k, bj);
        q.swap(k, bj);
        double piv = u(k, k);
        for (int i = k + 1; i < m; ++i) {
            double f = u(i, k) / piv;
            l(i, k) = f;
            u(i, k) = 0;
            if (f == 0) continue;
            for (int j = k + 1; j < n; ++j)
                u(i, j) -= f * u(k, j);
        }
        ++rank;
    }
    return rank;
}

int qr_decomp(const matrix& a, matrix& r, matrix& q, permutation& p, double tolerance) {
    const int m = a.rows(), n = a.cols();
    if (r.null()) r.declare(m, n);
    if (q.null()) q.declare(m, m);
    if (p.null()) p.declare(n);
    if (r.rows() != m || r.cols() != n) {
        kel::fatal("qr_decomp: r-matrix of size (%d,%d) illegal", r.rows(), r.cols());
        return 0;
    }
    if (q.rows() != m || q.cols() != m) {
        kel::fatal("lu_decomp: q-matrix of size (%d,%d) illegal", q.rows(), q.cols());
        return 0;
    }
    if (p.size() != n) {
        kel::fatal("lu_decomp: bad p-permutation size %d ", p.size());
        return 0;
    }
    r = a;
    q = 1.0;
    p = 1;
    std::vector<double> norm2(n, 0.0), v(m);
    for (int j = 0; j < n; ++j)
        for (int i = 0; i < m; ++i)
            norm2[j] += r(i, j) * r(i, j);

    const int stages = m < n ? m : n;
    int rank = 0;
    for (int k = 0; k < stages; ++k) {
        int bj = k;
        for (int j = k + 1; j < n; ++j)
            if (norm2[j] > norm2[bj]) bj = j;
        if (std::sqrt(std::fabs(norm2[bj])) < tolerance) return rank;
        swap_cols(r, k, bj);
        p.swap(k, bj);
        std::swap(norm2[k], norm2[bj]);

        // Scale by the largest element so the norm cannot overflow.
        double big = 0;
        for (int i = k; i < m; ++i)
            big = std::fmax(big, std::fabs(r(i, k)));
        if (big == 0) return rank;
        double s2 = 0;
        for (int i = k; i < m; ++i) {
            v[i] = r(i, k) / big;
            s2 += v[i] * v[i];
        }
        double nrm = std::sqrt(s2);
        // sign(0) is 0 on purpose: a zero leading element stays as it is.
        double sg = v[k] > 0 ? 1.0 : (v[k] < 0 ? -1.0 : 0.0);
        v[k] += sg * nrm;
        double vv = 0;
        for (int i = k; i < m; ++i)
            vv += v[i] * v[i];
        if (vv > 0) {
            // H = I - 2 v v^T / (v^T v), applied to r and accumulated into q.
            for (int j = k; j < n; ++j) {
                double d = 0;
                for (int i = k; i < m; ++i)
                    d += v[i] * r(i, j);
                d *= 2 / vv;
                for (int i = k; i < m; ++i)
                    r(i, j) -= d * v[i];
            }
            for (int j = 0; j < m; ++j) {
                double d = 0;
                for (int i = k; i < m; ++i)
                    d += v[i] * q(i, j);
                d *= 2 / vv;
                for (int i = k; i < m; ++i)
                    q(i, j) -= d * v[i];
            }
        }
        for (int i = k + 1; i < m; ++i)
            r(i, k) = 0;
        // Down-date the remaining norms rather than recomputing them.
        for (int j = k + 1; j < n; ++j)
            norm2[j] -= r(k, j) * r(k, j);
        ++rank;
    }
    return rank;
}
