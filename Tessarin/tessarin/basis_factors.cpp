#include "Tessarin/tessarin/basis_factors.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace tessarin {

namespace {

// Four partial sums keep the adds independent, so the loop runs at the speed
// of the loads instead of the latency of one running sum.
inline double dot(const double* a, const double* b, int n) {
    double s0 = 0, s1 = 0, s2 = 0, s3 = 0;
    int j = 0;
    for (; j + 4 <= n; j += 4) {
        s0 += a[j] * b[j];
        s1 += a[j + 1] * b[j + 1];
        s2 += a[j + 2] * b[j + 2];
        s3 += a[j + 3] * b[j + 3];
    }
    for (; j < n; ++j)
        s0 += a[j] * b[j];
    return (s0 + s1) + (s2 + s3);
}

// Rows of the factor times a vector that is mostly zero: the columns and rows
// of the basis come from contacts, which touch few others, so gathering the
// nonzero entries reads a fraction of each row of Q. Below this share of
// nonzeros the gather beats the streaming product.
constexpr int sparse_share = 4;

// Writes the positions of v's nonzero entries to nz; returns their count, or
// -1 as soon as there are too many for the gather to pay.
int nonzeros(const double* v, int n, int* nz) {
    const int most = n / sparse_share;
    int m = 0;
    for (int j = 0; j < n; ++j)
        if (v[j] != 0) {
            if (m == most) return -1;
            nz[m++] = j;
        }
    return m;
}

// out[i] = row i of the k rows at base (stride cap) times v, for i < k.
void times_rows(const double* base, std::size_t cap, int k, const double* v, double* out, int* nz) {
    const int m = nonzeros(v, k, nz);
    if (m < 0) {
        for (int i = 0; i < k; ++i)
            out[i] = dot(base + std::size_t(i) * cap, v, k);
        return;
    }
    for (int i = 0; i < k; ++i) {
        const double* qi = base + std::size_t(i) * cap;
        double s0 = 0, s1 = 0;
        int p = 0;
        for (; p + 2 <= m; p += 2) {
            s0 += qi[nz[p]] * v[nz[p]];
            s1 += qi[nz[p + 1]] * v[nz[p + 1]];
        }
        if (p < m) s0 += qi[nz[p]] * v[nz[p]];
        out[i] = s0 + s1;
    }
}

} // namespace

void BasisFactors::grow(int n) {
    if (n <= cap_) return;
    int cap = std::max(n, cap_ * 2);
    std::vector<double> q2(size_t(cap) * size_t(cap)), r2(size_t(cap) * size_t(cap));
    for (int i = 0; i < k_; ++i) {
        std::copy(q(i), q(i) + k_, q2.data() + size_t(i) * size_t(cap));
        std::copy(r(i), r(i) + k_, r2.data() + size_t(i) * size_t(cap));
    }
    q_.swap(q2);
    r_.swap(r2);
    cap_ = cap;
    t_.resize(size_t(cap));
    nz_.resize(size_t(cap));
}

void BasisFactors::reserve(int n) {
    grow(n);
}

void BasisFactors::copy_from(const BasisFactors& o) {
    grow(o.k_);
    k_ = o.k_;
    for (int i = 0; i < k_; ++i) {
        std::copy(o.q(i), o.q(i) + k_, q(i));
        std::copy(o.r(i), o.r(i) + k_, r(i));
    }
}

void BasisFactors::swap(BasisFactors& o) noexcept {
    std::swap(k_, o.k_);
    std::swap(cap_, o.cap_);
    q_.swap(o.q_);
    r_.swap(o.r_);
    t_.swap(o.t_);
    nz_.swap(o.nz_);
}

// Rows a and b of R both start at column c (earlier entries zero); the lead of
// b is made zero. The larger lead becomes the pivot row a, swapping when need be.
void BasisFactors::eliminate(int a, int b, int c, int w, int qw) {
    double* ra = r(a);
    double* rb = r(b);
    double p = ra[c], v = rb[c];
    if (v == 0) return;
    if (std::fabs(v) <= 2.22e-16 * std::fabs(p)) {
        rb[c] = 0;
        return;
    }
    double* qa = q(a);
    double* qb = q(b);
    double m;
    if (std::fabs(p) < std::fabs(v)) {
        if (std::fabs(v) > tiny) {
            std::swap_ranges(ra + c, ra + w, rb + c);
            std::swap_ranges(qa, qa + qw, qb);
            m = -p / v;
        } else {
            ra[c] = 0;
            m = 0;
        }
    } else {
        m = std::fabs(p) > tiny ? -v / p : 0;
    }
    rb[c] = 0;
    if (m == 0) return;
    for (int j = c + 1; j < w; ++j)
        rb[j] += m * ra[j];
    for (int j = 0; j < qw; ++j)
        qb[j] += m * qa[j];
}

double BasisFactors::add(const double* col, const double* row, double d) {
    const int k = k_;
    grow(k + 1);
    // The new column of R is Q col; the new row of B goes in below as a spike.
    double* t = t_.data();
    times_rows(q_.data(), std::size_t(cap_), k, col, t, nz_.data());
    for (int i = 0; i < k; ++i)
        r(i)[k] = t[i];
    double* rk = r(k);
    std::copy(row, row + k, rk);
    rk[k] = d;
    double* qk = q(k);
    for (int j = 0; j < k; ++j) {
        qk[j] = 0;
        q(j)[k] = 0;
    }
    qk[k] = 1;
    k_ = k + 1;
    // Row k against each row above it, left to right.
    for (int c = 0; c < k; ++c)
        eliminate(c, k, c, k + 1, k + 1);
    return r(k)[k];
}

void BasisFactors::remove(int p) {
    const int k = k_;
    if (p < 0 || p >= k) return;
    // Without column p, R is upper Hessenberg from column p on: bring each
    // subdiagonal entry back to zero, row i+1 against row i. Row i is zero
    // left of column i, so its shift starts at column i-1 at the earliest.
    for (int i = 0; i < k; ++i) {
        double* ri = r(i);
        const int from = std::max(p, i - 1);
        std::copy(ri + from + 1, ri + k, ri + from);
        ri[k - 1] = 0;
    }
    for (int i = p; i + 1 < k; ++i)
        eliminate(i, i + 1, i, k - 1, k);
    // Now Q B' = R' with B' lacking column p and R's last row zero: the last
    // row of Q is a left null vector of B'. It takes column p of Q out of the
    // other rows without touching R, which drops row p of B; the same pass
    // closes the gap column p leaves.
    const double* z = q(k - 1);
    const double zp = z[p];
    for (int i = 0; i + 1 < k; ++i) {
        double* qi = q(i);
        const double m = zp != 0 ? qi[p] / zp : 0;
        if (m == 0) {
            std::copy(qi + p + 1, qi + k, qi + p);
            continue;
        }
        // The last row of R is zero, so R is unchanged.
        for (int j = 0; j < p; ++j)
            qi[j] -= m * z[j];
        for (int j = p; j + 1 < k; ++j)
            qi[j] = qi[j + 1] - m * z[j + 1];
    }
    k_ = k - 1;
}

int BasisFactors::solve(const double* rhs, double* x, const double* prev) const {
    const int k = k_;
    double* t = t_.data();
    times_rows(q_.data(), std::size_t(cap_), k, rhs, t, nz_.data());
    int count = 0;
    for (int i = k - 1; i >= 0; --i) {
        const double* ri = r(i);
        const double s = t[i] - dot(ri + i + 1, x + i + 1, k - i - 1);
        if (std::fabs(ri[i]) <= singular) {
            x[i] = prev ? prev[i] : 0;
            ++count;
        } else {
            x[i] = s / ri[i];
        }
    }
    return count;
}

} // namespace tessarin
