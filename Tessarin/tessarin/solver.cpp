#include "Tessarin/tessarin/solver.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

#include "Tessarin/tessarin/basis_factors.h"
#include "Tessarin/tessarin/body.h"
#include "Tessarin/tessarin/body_system.h"
#include "Tessarin/tessarin/constraint.h"
#include "Tessarin/tessarin/messages.h"

namespace tessarin {

namespace {

const double inf = std::numeric_limits<double>::infinity();
SolveReport report;
SolverTotals totals;

// Process-wide work arrays; they grow and are never given back, so a solve
// allocates nothing once the largest island has been seen.
struct Work {
    std::vector<double> a, dx, da, col, row, u, w, rhs, body;
    std::vector<int> old_states, basis, pos, sig, out;
    BasisFactors fac; // Q B = R of the basis matrix

    void size_to(int n) {
        if (int(a.size()) < n) {
            a.resize(size_t(n));
            dx.resize(size_t(n));
            da.resize(size_t(n));
            col.resize(size_t(n));
            row.resize(size_t(n));
            u.resize(size_t(n));
            w.resize(size_t(n));
            rhs.resize(size_t(n));
            body.resize(size_t(n) * 12); // two bodies a row at most
            old_states.resize(size_t(n));
            pos.resize(size_t(n));
            sig.resize(size_t(n));
        }
        basis.reserve(size_t(n));
    }
} work;

// Basis factors left by recent solves, with what they were built from, one
// per island size (a pile has many islands). When a warm start brings the same
// rows and basis, the factors are taken as they stand (same matrix: bodies at
// rest) or refined against the new matrix (bodies that moved a little).
struct BasisCache {
    bool valid = false;
    int n = -1;
    long used = 0;
    std::vector<double> A, mu;
    BasisFactors fac;
    std::vector<int> type, basis, sig;
};
BasisCache caches[4];
long cache_clock = 0;

// The pivoting solve proper. One instance per call; all memory is in 'work'.
class Inductive {
public:
    Inductive(BodySystem& sys, LcpSystem& s, double* x, int* states)
        : sys_(sys), s_(s), n_(s.n), x_(x), st_(states), T_(sys.tolerance) {}

    bool run(bool warm);

private:
    int normal_of(int i) const { return s_.type[i] == ROW_FRICTION1 ? i - 1 : i - 2; }
    bool is_friction(int i) const { return s_.type[i] >= ROW_FRICTION1; }
    double A(int i, int j) const { return s_.A[size_t(i) * size_t(n_) + size_t(j)]; }
    int coupling(int j) const;
    double colc(int j, int k) const;
    double badness(int i) const;
    int next_violated(int d) const;
    bool add_to_basis(int i);
    void take_from_basis(int i);
    void rebasis();
    void solve_basis(const double* rhs_full, double* out) const;
    void expand(double* v, bool clear_others) const;
    void times_A(const double* v, double* out) const;
    void compute_a();
    double max_step(int d);
    bool attempt_warm();
    bool cache_matches();
    bool cache_exact() const;
    void rebuild_basis();
    bool refine(const double* rhs);
    void remember();
    bool pivot_loop(bool from_warm);

    BodySystem& sys_;
    LcpSystem& s_;
    int n_;
    double* x_;
    int* st_;
    double T_;
    double eps_ = 0;
    bool exact_ = true; // the basis factors belong to this matrix
    BasisCache* hit_ = nullptr;
};

int Inductive::coupling(int j) const {
    int sig = 0;
    for (int k = 1; k <= 2 && j + k < n_; ++k) {
        int f = j + k;
        if (!is_friction(f) || normal_of(f) != j) break;
        if (st_[f] == ST_UPPER) sig |= 1 << (2 * k);
        if (st_[f] == ST_LOWER) sig |= 2 << (2 * k);
    }
    return sig;
}

// Column j of the coupled matrix at row k: a normal row carries the columns of
// its friction followers that sit on the cone (+mu or -mu times theirs).
double Inductive::colc(int j, int k) const {
    double v = A(k, j);
    for (int m = 1; m <= 2 && j + m < n_; ++m) {
        int f = j + m;
        if (!is_friction(f) || normal_of(f) != j) break;
        if (st_[f] == ST_UPPER) v += s_.mu[f] * A(k, f);
        if (st_[f] == ST_LOWER) v -= s_.mu[f] * A(k, f);
    }
    return v;
}

double Inductive::badness(int i) const {
    const double s = s_.scale[i];
    const double v = work.a[size_t(i)] / s;
    switch (s_.type[i]) {
    case ROW_BILATERAL:
        return 0;
    case ROW_UNILATERAL:
        return v < -eps_ ? v : 0;
    case ROW_FRICTION1:
    case ROW_FRICTION2: {
        const double mu = s_.mu[i];
        const double n = x_[normal_of(i)];
        const double c = n * s * mu - std::fabs(x_[i] * s);
        if (c < -0.001) return c;
        if (n * s >= 0.01 && std::fabs(v) >= eps_) {
            double r = work.a[size_t(i)] >= 0 ? (mu * n + x_[i]) * (-s) : (x_[i] - mu * n) * s;
            return r < -0.01 ? r : 0;
        }
        return 0;
    }
    default:
        internal_error("badness: illegal type");
        return 0;
    }
}

int Inductive::next_violated(int d) const {
    if (d != -1 && (st_[d] == ST_OVER || st_[d] == ST_EDGE || st_[d] == ST_DRIVE)) return d;
    // Normal rows first: a friction row's limits move with its normal force, so
    // driving friction before the normal forces have settled makes rows cycle
    // between the basis and the cone. Friction badness is a force, normal
    // badness an acceleration, so the two are not ranked against each other.
    double best = -0.05 * T_;
    int pick = -1;
    for (int pass = 0; pass < 2 && pick < 0; ++pass)
        for (int i = 0; i < n_; ++i) {
            if (st_[i] == ST_GIVEN_UP || is_friction(i) != (pass == 1)) continue;
            double b = badness(i);
            if (b < best) {
                best = b;
                pick = i;
            }
        }
    return pick;
}

// Borders the factors with the row's column and row; a last diagonal of at
// most 0.001 in magnitude means the row depends on the basis.
bool Inductive::add_to_basis(int i) {
    if (work.pos[size_t(i)] >= 0) {
        internal_error("add_to_basis: constraint %d already in basis", i);
        return false;
    }
    const int k = int(work.basis.size());
    double* c = work.col.data();
    double* r = work.row.data();
    for (int p = 0; p < k; ++p) {
        int bp = work.basis[size_t(p)];
        c[p] = colc(i, bp);
        r[p] = colc(bp, i);
    }
    const double piv = work.fac.add(c, r, colc(i, i));
    work.basis.push_back(i);
    work.pos[size_t(i)] = k;
    work.sig[size_t(i)] = coupling(i);
    if (std::fabs(piv) <= BasisFactors::singular) {
        take_from_basis(i);
        st_[i] = ST_FREE;
        ++report.refused;
        ++totals.refused;
        return false;
    }
    return true;
}

void Inductive::take_from_basis(int i) {
    const int p = work.pos[size_t(i)];
    if (p < 0) {
        internal_error("take_from_basis: constraint %d not in basis", i);
        return;
    }
    const int k = int(work.basis.size());
    work.fac.remove(p);
    work.basis.erase(work.basis.begin() + p);
    work.pos[size_t(i)] = -1;
    for (int a = p; a < k - 1; ++a)
        work.pos[size_t(work.basis[size_t(a)])] = a;
}

void Inductive::rebasis() {
    for (int p = int(work.basis.size()) - 1; p >= 0; --p) {
        int j = work.basis[size_t(p)];
        if (st_[j] != ST_BASIS || coupling(j) != work.sig[size_t(j)]) take_from_basis(j);
    }
    for (int i = 0; i < n_; ++i)
        if (st_[i] == ST_BASIS && work.pos[size_t(i)] < 0) add_to_basis(i);
}

// out_B = B^-1 rhs_B, written at the basis rows of out.
void Inductive::solve_basis(const double* rhs_full, double* out) const {
    const int k = int(work.basis.size());
    double* in = work.u.data();
    double* sol = work.w.data();
    for (int p = 0; p < k; ++p)
        in[p] = rhs_full[work.basis[size_t(p)]];
    work.fac.solve(in, sol);
    for (int p = 0; p < k; ++p)
        out[work.basis[size_t(p)]] = sol[p];
}

// Friction rows on the cone follow their normal row.
void Inductive::expand(double* v, bool clear_others) const {
    for (int i = 0; i < n_; ++i) {
        if (is_friction(i) && (st_[i] == ST_UPPER || st_[i] == ST_LOWER)) {
            v[i] = (st_[i] == ST_UPPER ? 1 : -1) * s_.mu[i] * v[normal_of(i)];
        } else if (clear_others && work.pos[size_t(i)] < 0) {
            v[i] = 0;
        }
    }
}

// out = A v, through the bodies when the system has them.
void Inductive::times_A(const double* v, double* out) const {
    if (s_.part_slot) {
        double* w = work.body.data();
        std::fill(w, w + 6 * s_.slots, 0.0);
        for (int j = 0; j < n_; ++j) {
            const double vj = v[j];
            if (vj == 0) continue;
            for (int p = 0; p < 2; ++p) {
                const int b = s_.part_slot[2 * j + p];
                if (b < 0) continue;
                const double* mj = s_.part_MJ[2 * j + p];
                double* wb = w + 6 * b;
                for (int k = 0; k < 6; ++k)
                    wb[k] += vj * mj[k];
            }
        }
        for (int i = 0; i < n_; ++i) {
            double sum = 0;
            for (int p = 0; p < 2; ++p) {
                const int b = s_.part_slot[2 * i + p];
                if (b < 0) continue;
                const double* ji = s_.part_J[2 * i + p];
                const double* wb = w + 6 * b;
                for (int k = 0; k < 6; ++k)
                    sum += ji[k] * wb[k];
            }
            out[i] = sum;
        }
        return;
    }
    for (int i = 0; i < n_; ++i)
        out[i] = 0;
    if (s_.symmetric) {
        // Row j is column j: walk rows, which lie contiguous.
        for (int j = 0; j < n_; ++j) {
            const double vj = v[j];
            if (vj == 0) continue;
            const double* aj = s_.A + size_t(j) * size_t(n_);
            for (int i = 0; i < n_; ++i)
                out[i] += aj[i] * vj;
        }
    } else {
        for (int i = 0; i < n_; ++i) {
            const double* ai = s_.A + size_t(i) * size_t(n_);
            double sum = 0;
            for (int j = 0; j < n_; ++j)
                sum += ai[j] * v[j];
            out[i] = sum;
        }
    }
}

void Inductive::compute_a() {
    double* a = work.a.data();
    times_A(x_, a);
    for (int i = 0; i < n_; ++i)
        a[i] += s_.b[i];
}

double Inductive::max_step(int d) {
    double s = inf;
    int lim_row = -1, lim_state = 0;
    bool zero = false;
    auto limit = [&](double t, int row, int ns, bool inclusive) {
        if (t >= 0 && (t < s || (inclusive && t <= s))) {
            s = t;
            lim_row = row;
            lim_state = ns;
        }
    };
    auto at_zero = [&](int row, int ns) {
        s = 0;
        lim_row = row;
        lim_state = ns;
        zero = true;
    };

    for (int i = 0; i < n_ && !zero; ++i) {
        const int type = s_.type[i];
        const int st = st_[i];
        if (type == ROW_BILATERAL || st == ST_FREE) continue;
        const double sc = s_.scale[i];
        if (type == ROW_UNILATERAL) {
            double f = x_[i] * sc, df = work.dx[size_t(i)] * sc;
            double v = work.a[size_t(i)] / sc, dv = work.da[size_t(i)] / sc;
            if (st == ST_DRIVE) {
                if (v >= 0) {
                    at_zero(i, ST_BASIS);
                } else if (dv > 1e-05) {
                    limit(-v / dv, i, ST_BASIS, false);
                } else if (v > -2 * T_) {
                    at_zero(i, ST_GIVEN_UP);
                }
            } else if (st == ST_BASIS) {
                if (f < -0.001) {
                    at_zero(i, ST_FREE);
                } else if (f <= 1e-05 && df < -1e-05) {
                    at_zero(i, work.old_states[size_t(i)] == ST_BLOCKED ? ST_FREE : ST_BLOCKED);
                } else if (f > 1e-05 && df < -1e-05) {
                    limit(-f / df, i, ST_BLOCKED, false);
                }
            } else if (st == ST_BLOCKED) {
                if (dv < -1e-05) {
                    if (v < eps_)
                        at_zero(i, ST_BASIS);
                    else
                        limit(-v / dv, i, ST_BASIS, false);
                }
            }
            continue;
        }
        // Friction: the +mu side, then the -mu side with signs turned.
        const int nr = normal_of(i);
        const double fn = x_[nr] * s_.scale[nr], dfn = work.dx[size_t(nr)] * s_.scale[nr];
        const double mu = s_.mu[i];
        for (int pass = 0; pass < 2 && !zero; ++pass) {
            const double sgn = pass == 0 ? 1 : -1;
            const int sg = pass == 0 ? ST_UPPER : ST_LOWER;
            double fi = sgn * x_[i] * sc, dfi = sgn * work.dx[size_t(i)] * sc;
            double v = sgn * work.a[size_t(i)] / sc, dv = sgn * work.da[size_t(i)] / sc;
            double c = mu * fn - fi, dc = dfi - mu * dfn;
            double t = std::fabs(dc) > 1e-05 ? c / dc : inf;
            if (st == ST_OVER || st == ST_EDGE || st == ST_DRIVE) {
                double g = mu * fn - std::fabs(fi);
                if (std::fabs(c) <= 1e-4) {
                    if (std::fabs(v) <= 1e-4) {
                        at_zero(i, ST_BASIS);
                        break;
                    }
                    if (fi * v < 0) {
                        at_zero(i, sg);
                        break;
                    }
                } else if (g > 1e-4 && std::fabs(v) < 1e-4) {
                    at_zero(i, ST_BASIS);
                    break;
                }
            }
            switch (st) {
            case ST_BASIS:
                if (c > 0)
                    limit(t, i, sg, false);
                else if (dc >= 0)
                    at_zero(i, sg);
                break;
            case ST_DRIVE:
                if (std::fabs(dv) > 1e-05 && v * dv < 0) limit(-v / dv, i, ST_BASIS, true);
                limit(t, i, sg, false);
                break;
            case ST_OVER:
                limit(t, i, sg, false);
                break;
            case ST_EDGE:
                if (c > 0.01) limit(t, i, sg, true);
                if (std::fabs(dv) > 1e-05 && v * dv < 0) limit(-v / dv, i, ST_BASIS, false);
                break;
            case ST_UPPER:
            case ST_LOWER:
                if (st != sg) break;
                if (std::fabs(v) < 1e-05 && dv >= 1e-05) {
                    at_zero(i, work.old_states[size_t(i)] == ST_BASIS ? ST_FREE : ST_BASIS);
                } else if (std::fabs(v) >= 1e-05 && std::fabs(dv) > 1e-05 && v * dv < 0) {
                    limit(-v / dv, i, ST_BASIS, false);
                }
                break;
            default:
                break;
            }
        }
    }

    if (!zero && s == inf) {
        if (std::fabs(badness(d)) < 1e-05) {
            if (is_friction(d)) {
                double m = s_.mu[d] * x_[normal_of(d)] - std::fabs(x_[d]);
                if (m <= 1e-4)
                    at_zero(d, x_[d] <= 0 ? ST_LOWER : ST_UPPER);
                else
                    at_zero(d, ST_BASIS);
            } else {
                at_zero(d, ST_BASIS);
            }
        } else {
            // Unbounded: this row cannot be driven further in this solve.
            st_[d] = ST_GIVEN_UP;
            return 0;
        }
    }

    const int before = st_[lim_row];
    // The old state is the one a row had before its last change, so that a row
    // flipping back and forth between two states is caught (2 -> 1 -> 2 goes to 5).
    if (before != lim_state) work.old_states[size_t(lim_row)] = before;
    st_[lim_row] = lim_state;
    if (s > 0)
        for (int i = 0; i < n_; ++i)
            if (st_[i] == ST_GIVEN_UP) st_[i] = ST_FREE;
    if (!is_friction(lim_row) && before == ST_BASIS && lim_state != ST_BASIS)
        for (int m = 1; m <= 2 && lim_row + m < n_; ++m) {
            int f = lim_row + m;
            if (!is_friction(f) || normal_of(f) != lim_row) break;
            st_[f] = ST_FREE;
        }
    return s;
}

// Same rows, coupling and basis as cached factors; the matrix may differ.
bool Inductive::cache_matches() {
    int in_basis = 0;
    for (int i = 0; i < n_; ++i)
        if (st_[i] == ST_BASIS) ++in_basis;
    for (BasisCache& c : caches) {
        if (!c.valid || c.n != n_ || in_basis != int(c.basis.size())) continue;
        if (std::memcmp(c.mu.data(), s_.mu, sizeof(double) * size_t(n_)) != 0) continue;
        if (std::memcmp(c.type.data(), s_.type, sizeof(int) * size_t(n_)) != 0) continue;
        bool same = true;
        for (size_t p = 0; p < c.basis.size() && same; ++p) {
            int i = c.basis[p];
            same = st_[i] == ST_BASIS && coupling(i) == c.sig[p];
        }
        if (!same) continue;
        hit_ = &c;
        c.used = ++cache_clock;
        return true;
    }
    return false;
}

bool Inductive::cache_exact() const {
    return std::memcmp(hit_->A.data(), s_.A, sizeof(double) * size_t(n_) * size_t(n_)) == 0;
}

void Inductive::rebuild_basis() {
    work.basis.clear();
    work.fac.clear();
    for (int i = 0; i < n_; ++i)
        work.pos[size_t(i)] = -1;
    for (int i = 0; i < n_; ++i)
        if (st_[i] == ST_BASIS && !add_to_basis(i)) st_[i] = ST_FREE;
    exact_ = true;
}

// x_B = B^-1 rhs with factors made for a nearby matrix: iterative refinement
// against the current matrix. False if it does not settle.
bool Inductive::refine(const double* rhs) {
    const int k = int(work.basis.size());
    double* res = work.col.data();
    double* corr = work.u.data();
    double scale = 0;
    for (int p = 0; p < k; ++p)
        scale = std::max(scale, std::fabs(rhs[work.basis[size_t(p)]]));
    for (int it = 0; it < 8; ++it) {
        double worst = 0;
        for (int p = 0; p < k; ++p) {
            const int row = work.basis[size_t(p)];
            double v = rhs[row];
            for (int q = 0; q < k; ++q) {
                const int j = work.basis[size_t(q)];
                v -= colc(j, row) * x_[j];
            }
            res[p] = v;
            worst = std::max(worst, std::fabs(v));
        }
        if (worst <= 1e-11 * (1 + scale)) return true;
        work.fac.solve(res, corr);
        for (int p = 0; p < k; ++p)
            x_[work.basis[size_t(p)]] += corr[p];
    }
    return false;
}

void Inductive::remember() {
    for (int p = 0; p < int(work.basis.size()); ++p)
        if (st_[work.basis[size_t(p)]] != ST_BASIS) return;
    int in_basis = 0;
    for (int i = 0; i < n_; ++i)
        if (st_[i] == ST_BASIS) ++in_basis;
    if (in_basis != int(work.basis.size())) return;
    // The entry of this size, else the least recently used.
    BasisCache* c = nullptr;
    for (BasisCache& e : caches)
        if (e.valid && e.n == n_) c = &e;
    if (!c) {
        c = &caches[0];
        for (BasisCache& e : caches)
            if (!e.valid || e.used < c->used) c = &e;
    }
    c->valid = true;
    c->n = n_;
    c->used = ++cache_clock;
    c->A.assign(s_.A, s_.A + size_t(n_) * size_t(n_));
    c->mu.assign(s_.mu, s_.mu + n_);
    c->type.assign(s_.type, s_.type + n_);
    c->basis = work.basis;
    const size_t k = work.basis.size();
    c->sig.resize(k);
    for (size_t p = 0; p < k; ++p)
        c->sig[p] = coupling(work.basis[p]);
    // Every solve starts its factors afresh (cleared, rebuilt or copied from a
    // cache), so the working ones can be handed over instead of copied.
    c->fac.swap(work.fac);
}

bool Inductive::attempt_warm() {
    if (st_[0] == ST_FAILED) return false;
    for (int i = 0; i < n_; ++i)
        work.pos[size_t(i)] = -1;
    bool adopted = false;
    if (cache_matches()) {
        // Bodies that moved little: the last factors, refined, still solve the basis.
        work.basis = hit_->basis;
        const size_t k = work.basis.size();
        for (size_t p = 0; p < k; ++p) {
            work.pos[size_t(work.basis[p])] = int(p);
            work.sig[size_t(work.basis[p])] = hit_->sig[p];
        }
        work.fac.copy_from(hit_->fac);
        adopted = true;
        exact_ = cache_exact();
    } else {
        rebuild_basis();
    }
    if (work.basis.empty()) return false;
    // Rows outside the basis keep their force, except friction on the cone of a
    // basis row, which the coupled columns carry; their columns move to the right.
    double* rhs = work.rhs.data();
    double* keep = work.dx.data();
    for (int j = 0; j < n_; ++j) {
        bool coupled = is_friction(j) && (st_[j] == ST_UPPER || st_[j] == ST_LOWER) &&
                       work.pos[size_t(normal_of(j))] >= 0;
        keep[j] = (work.pos[size_t(j)] < 0 && !coupled) ? x_[j] : 0;
    }
    for (int k = 0; k < n_; ++k) {
        if (work.pos[size_t(k)] < 0) continue;
        double v = -s_.b[k];
        for (int j = 0; j < n_; ++j)
            if (keep[j] != 0) v -= A(k, j) * keep[j];
        rhs[k] = v;
    }
    solve_basis(rhs, x_);
    if (adopted && !exact_) {
        if (refine(rhs)) {
            ++totals.cache_hits;
        } else {
            rebuild_basis();
            solve_basis(rhs, x_);
        }
    } else if (adopted) {
        ++totals.cache_hits;
    }
    expand(x_, false);
    compute_a();
    const bool start = sys_.at_step_start;
    for (int i = 0; i < n_; ++i) {
        const double sc = s_.scale[i];
        const double v = work.a[size_t(i)] / sc, f = x_[i] * sc;
        if (s_.type[i] == ROW_UNILATERAL) {
            if (start ? (f < -0.025 || v < -eps_) : (v < -0.5 * T_ || f < -5)) return false;
        } else if (is_friction(i)) {
            const double ns = x_[normal_of(i)] * s_.scale[normal_of(i)];
            if (start && std::fabs(f) - s_.mu[i] * ns > 0.05) return false;
            if (work.pos[size_t(i)] < 0 && ns >= 0.01 && v * f >= 0 &&
                std::fabs(v) > (start ? 0.25 * T_ : 0.5 * T_))
                return false;
        }
    }
    return true;
}

bool Inductive::pivot_loop(bool from_warm) {
    const bool impact = sys_.task == TASK_IMPACT;
    eps_ = impact ? 0.05 * T_ : 0.25 * T_;
    double big = 0;
    for (int i = 0; i < n_; ++i)
        big = std::max(big, std::fabs(s_.b[i]) / s_.scale[i]);
    if (big < 0.5 * T_) eps_ = 0.025 * T_;

    if (from_warm) {
        // Keep the warm basis, less the rows it would have pull: rows with a
        // negative force leave it, the most negative first.
        for (int i = 0; i < n_; ++i) {
            bool coupled = is_friction(i) && (st_[i] == ST_UPPER || st_[i] == ST_LOWER) &&
                           work.pos[size_t(normal_of(i))] >= 0;
            if (work.pos[size_t(i)] < 0 && !coupled) st_[i] = ST_FREE;
        }
        for (;;) {
            for (int i = 0; i < n_; ++i)
                x_[i] = 0;
            double* rhs = work.rhs.data();
            for (int i = 0; i < n_; ++i)
                rhs[i] = -s_.b[i];
            solve_basis(rhs, x_);
            expand(x_, true);
            int worst = -1;
            double most = -1e-05;
            for (int p = 0; p < int(work.basis.size()); ++p) {
                int i = work.basis[size_t(p)];
                if (s_.type[i] != ROW_UNILATERAL) continue;
                double f = x_[i] * s_.scale[i];
                if (f < most) {
                    most = f;
                    worst = i;
                }
            }
            if (worst < 0) break;
            // Every row at least half as bad as the worst leaves in this round:
            // one re-solve per round instead of one per row.
            work.out.clear();
            for (int p = 0; p < int(work.basis.size()); ++p) {
                int i = work.basis[size_t(p)];
                if (s_.type[i] == ROW_UNILATERAL && x_[i] * s_.scale[i] <= 0.5 * most) work.out.push_back(i);
            }
            for (int w : work.out) {
                take_from_basis(w);
                st_[w] = ST_FREE;
                for (int m = 1; m <= 2 && w + m < n_; ++m) {
                    int f = w + m;
                    if (!is_friction(f) || normal_of(f) != w) break;
                    if (work.pos[size_t(f)] >= 0) take_from_basis(f);
                    st_[f] = ST_FREE;
                }
            }
        }
    } else {
        work.basis.clear();
        work.fac.clear();
        for (int i = 0; i < n_; ++i)
            work.pos[size_t(i)] = -1;
        for (int i = 0; i < n_; ++i) {
            if (s_.type[i] == ROW_BILATERAL)
                st_[i] = add_to_basis(i) ? ST_BASIS : ST_FREE;
            else
                st_[i] = ST_FREE;
        }
        for (int i = 0; i < n_; ++i)
            x_[i] = 0;
        if (!work.basis.empty()) {
            double* rhs = work.rhs.data();
            for (int i = 0; i < n_; ++i)
                rhs[i] = -s_.b[i];
            solve_basis(rhs, x_);
            expand(x_, true);
        }
    }
    for (int i = 0; i < n_; ++i)
        work.old_states[size_t(i)] = st_[i];
    compute_a();

    int d = next_violated(-1);
    int driving = -1, count = 0, total = 0;
    while (d != -1) {
        if (s_.type[d] == ROW_BILATERAL) {
            internal_error("induction: can't work on BILATERAL constraint");
            return true;
        }
        if (!is_friction(d)) {
            st_[d] = ST_DRIVE;
        } else {
            const double sc = s_.scale[d];
            const double c = s_.mu[d] * x_[normal_of(d)] * sc - std::fabs(x_[d] * sc);
            st_[d] = c > 1e-4 ? ST_DRIVE : (c >= -1e-4 ? ST_EDGE : ST_OVER);
        }
        // The count is per driving row: a big island legitimately needs many
        // pivots in all, but one row needing this many is cycling. Cycling among
        // rows is caught by a bound on the whole: each row enters and leaves a
        // few times at most in a healthy solve.
        if (d != driving) {
            driving = d;
            count = 0;
        }
        if (++count > 200 || ++total > 2 * n_ + 200) return false;
        ++report.pivots;
        ++totals.pivots;
        rebasis();

        double* dx = work.dx.data();
        for (int i = 0; i < n_; ++i)
            dx[i] = 0;
        if (!work.basis.empty()) {
            double* rhs = work.rhs.data();
            for (int p = 0; p < int(work.basis.size()); ++p) {
                int k = work.basis[size_t(p)];
                rhs[k] = -colc(d, k);
            }
            solve_basis(rhs, dx);
        }
        dx[d] = 1;
        expand(dx, false);
        bool negate = st_[d] == ST_OVER ? x_[d] > 0 : work.a[size_t(d)] > 0;
        if (negate)
            for (int i = 0; i < n_; ++i)
                dx[i] = -dx[i];
        double* da = work.da.data();
        times_A(dx, da);
        double step = max_step(d);
        if (step != 0)
            for (int i = 0; i < n_; ++i) {
                x_[i] += step * dx[i];
                work.a[size_t(i)] += step * da[i];
            }
        d = next_violated(d);
    }
    return true;
}

bool Inductive::run(bool warm) {
    work.size_to(n_);
    eps_ = 0.25 * T_;
    bool from_warm = false;
    if (warm && st_[0] != ST_FAILED) {
        ++totals.warm_tried;
        if (attempt_warm()) {
            ++totals.warm_ok;
            report.warm_used = true;
            // A refined answer leaves the factors as they were, matching the cached matrix.
            if (exact_) remember();
            return true;
        }
        // The failed warm start's basis is still a good place to pivot from, once
        // its factors are exact again.
        if (!exact_) rebuild_basis();
        from_warm = !work.basis.empty();
    }
    if (!pivot_loop(from_warm)) return false;
    rebasis();
    remember();
    return true;
}

bool retrying = false;

} // namespace

SolveReport& last_solve() {
    return report;
}

SolverTotals& solver_totals() {
    return totals;
}

bool inductive_solve(BodySystem& sys, LcpSystem& s, bool warm, double* x, int* states) {
    if (s.n > 2048) {
        user_error("inductive_solve: too many constraints (%d)", s.n);
        for (int i = 0; i < s.n; ++i)
            x[i] = 0;
        return false;
    }
    if (s.n == 0) return true;
    ++totals.solves;
    if (s.A[0] < 0) warning("inductive_solve: m(0,0) = %g: FIX THIS!! [%d]", s.A[0], s.n);
    Inductive solve(sys, s, x, states);
    if (solve.run(warm)) return true;

    // Fail path: drop friction and try once more from cold.
    report.failed = true;
    ++totals.failures;
    if (!retrying) {
        retrying = true;
        report.retried = true;
        for (int i = 0; i < s.n; ++i)
            s.mu[i] = 0;
        Inductive again(sys, s, x, states);
        if (!again.run(false)) {
            for (int i = 0; i < s.n; ++i)
                if (std::fabs(x[i]) > 1e6) {
                    for (int j = 0; j < s.n; ++j)
                        x[j] = 0;
                    break;
                }
        }
        retrying = false;
    } else {
        for (int i = 0; i < s.n; ++i)
            if (std::fabs(x[i]) > 1e6) {
                for (int j = 0; j < s.n; ++j)
                    x[j] = 0;
                break;
            }
    }
    for (int i = 0; i < s.n; ++i)
        states[i] = ST_FAILED;
    return false;
}

namespace {

// The check of a direct candidate, row by row.
bool candidate_ok(const BodySystem& sys, int n, const double* A, const double* r, const double* scale,
                  const int* type, const double* x, bool residual_zero) {
    const bool strict = sys.at_step_start || sys.task == TASK_IMPACT;
    for (int i = 0; i < n; ++i) {
        double a = 0;
        if (!residual_zero) {
            for (int j = 0; j < n; ++j)
                a += A[i * n + j] * x[j];
            a -= r[i];
        }
        const double s = scale[i];
        if (type[i] == ROW_BILATERAL) {
            if (std::fabs(a / s) > 1e-05) return false;
        } else {
            if (x[i] * s < -0.025) return false;
            if (a / s < (strict ? -0.001 : -0.01)) return false;
        }
    }
    return true;
}

} // namespace

void solve_constraint_force(BodySystem& sys, const matrix& Am, const mvector& r, const mvector& scale,
                            const std::vector<Constraint*>* list, mvector& x, const int* types,
                            const double* mus) {
    const int n = r.size();
    report = SolveReport();
    static std::vector<int> type, states;
    static std::vector<double> mu, bneg;
    type.resize(size_t(n));
    states.resize(size_t(n));
    mu.resize(size_t(n));
    bneg.resize(size_t(n));
    bool any_friction = false, all_satisfied = true, any_valid = false;
    for (int i = 0; i < n; ++i) {
        type[size_t(i)] = types ? types[i] : ROW_UNILATERAL;
        mu[size_t(i)] = mus ? mus[i] : 0;
        states[size_t(i)] = ST_FREE;
    }
    if (list) {
        for (Constraint* c : *list) {
            const int dim = c->dimension();
            // A constraint new to the island starts free; the others seed the warm start.
            if (c->state_valid) any_valid = true;
            for (int k = 0; k < dim; ++k) {
                const int i = c->index + k;
                type[size_t(i)] = c->row_type(k);
                mu[size_t(i)] = c->row_mu(k);
                states[size_t(i)] = c->state_valid ? c->states[size_t(k)] : int(ST_FREE);
                x[i] = c->state_valid ? c->lambda[k] : 0;
            }
        }
    }
    for (int i = 0; i < n; ++i) {
        const int t = type[size_t(i)];
        const double q = r[i] / scale[i];
        if (t >= ROW_FRICTION1) any_friction = true;
        if (t == ROW_BILATERAL ? std::fabs(q) > 1e-4 : (t == ROW_UNILATERAL && q > 1e-4))
            all_satisfied = false;
    }
    sys.rows_solved.step += n;
    const double* A = Am.data();
    const bool no_store = sys.task == TASK_IMPACT || sys.task == TOLERANCE_CORRECTION;

    auto store = [&](bool with_states) {
        if (!list) return;
        for (Constraint* c : *list) {
            const int dim = c->dimension();
            for (int k = 0; k < dim; ++k) {
                c->lambda[k] = x[c->index + k];
                if (with_states) c->states[size_t(k)] = states[size_t(c->index + k)];
            }
            if (with_states) c->state_valid = true;
        }
    };

    if (n < 3 && !any_friction) {
        if (n == 1) {
            report.path = 1;
            double v = A[0] > 0 ? r[0] / A[0] : 0;
            if (type[0] != ROW_BILATERAL && r[0] <= 0) v = 0;
            x[0] = v;
        } else if (n == 2) {
            report.path = 2;
            struct candidate {
                double x[2];
                bool zero_residual;
                int id;
            } cands[4];
            int count = 0;
            const double det = A[0] * A[3] - A[2] * A[1];
            if (std::fabs(det) > 1e-08)
                cands[count++] = {
                    {(A[3] * r[0] - A[1] * r[1]) / det, (A[0] * r[1] - A[2] * r[0]) / det}, true, 0};
            cands[count++] = {{A[0] != 0 ? r[0] / A[0] : 0, 0}, false, 1};
            cands[count++] = {{0, A[3] != 0 ? r[1] / A[3] : 0}, false, 2};
            cands[count++] = {{0, 0}, false, 3};
            x[0] = x[1] = 0;
            for (int c = 0; c < count; ++c) {
                if (candidate_ok(sys, 2, A, r.data(), scale.data(), type.data(), cands[c].x,
                                 cands[c].zero_residual)) {
                    x[0] = cands[c].x[0];
                    x[1] = cands[c].x[1];
                    report.candidate = cands[c].id;
                    break;
                }
            }
        }
        store(false);
        return;
    }

    if (all_satisfied && sys.task != TASK_IMPACT) {
        report.path = 4;
        for (int i = 0; i < n; ++i)
            x[i] = 0;
        store(!no_store);
        return;
    }
    report.path = n > 2048 ? 5 : 3;
    for (int i = 0; i < n; ++i)
        bneg[size_t(i)] = -r[i];
    LcpSystem s;
    s.n = n;
    s.A = A;
    s.b = bneg.data();
    s.scale = scale.data();
    s.type = type.data();
    s.mu = mu.data();
    // The rows' bodies, for products with A in body space.
    static std::vector<int> part_slot;
    static std::vector<const double*> part_J, part_MJ;
    static std::vector<Body*> slotted;
    if (list) {
        part_slot.assign(size_t(2 * n), -1);
        part_J.assign(size_t(2 * n), nullptr);
        part_MJ.assign(size_t(2 * n), nullptr);
        slotted.clear();
        for (Constraint* c : *list) {
            const int dim = c->dimension();
            for (int k = 0; k < dim; ++k) {
                const int i = c->index + k;
                int used = 0;
                for (const RowPart& p : c->rows[size_t(k)].part) {
                    if (!p.body || p.body->prescribed) continue;
                    if (p.body->solve_slot < 0) {
                        p.body->solve_slot = int(slotted.size());
                        slotted.push_back(p.body);
                    }
                    part_slot[size_t(2 * i + used)] = p.body->solve_slot;
                    part_J[size_t(2 * i + used)] = p.J;
                    part_MJ[size_t(2 * i + used)] = p.MJ;
                    ++used;
                }
            }
        }
        for (Body* b : slotted)
            b->solve_slot = -1;
        s.slots = int(slotted.size());
        s.part_slot = part_slot.data();
        s.part_J = part_J.data();
        s.part_MJ = part_MJ.data();
    }
    // Without the bodies, products walk the matrix, by rows when it is symmetric.
    if (!s.part_slot) {
        s.symmetric = true;
        for (int i = 0; i < n && s.symmetric; ++i)
            for (int j = 0; j < i; ++j)
                if (A[i * n + j] != A[j * n + i]) {
                    s.symmetric = false;
                    break;
                }
    }
    const bool warm = any_valid && !no_store;
    if (!warm)
        for (int i = 0; i < n; ++i)
            x[i] = 0;
    inductive_solve(sys, s, warm, x.data(), states.data());
    store(!no_store);
}

} // namespace tessarin
