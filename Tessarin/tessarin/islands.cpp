#include <algorithm>
#include <cmath>
#include <vector>

#include "Tessarin/tessarin/body.h"
#include "Tessarin/tessarin/body_system.h"
#include "Tessarin/tessarin/constraint.h"
#include "Tessarin/tessarin/contact.h"
#include "Tessarin/tessarin/messages.h"
#include "Tessarin/tessarin/solver.h"

namespace tessarin {

namespace {
// The island's dense system lives in process-wide arrays that only grow.
std::vector<double> A_work;
mvector r_work, scale_work, x_work;

bool counts(const BodySystem& sys, const Constraint* c) {
    if (sys.task == TOLERANCE_CORRECTION && !c->position_level) return false;
    return c->is_active();
}
} // namespace

void BodySystem::gather_island(Constraint* seed, std::vector<Constraint*>& island, int& rows) {
    island.clear();
    rows = 0;
    seed->visited = true;
    island.push_back(seed);
    for (size_t k = 0; k < island.size(); ++k) {
        Constraint* c = island[k];
        c->index = rows;
        rows += c->dimension();
        for (Constraint* nb : c->neighbours)
            if (!nb->visited && counts(*this, nb)) {
                nb->visited = true;
                island.push_back(nb);
            }
    }
}

void BodySystem::solve_all_islands() {
    // Contacts take their velocity data (and sliding, impact) every evaluation.
    if (task == TASK_DYNAMICS || task == TASK_FIRST_ORDER)
        for (Constraint* c : active)
            c->refresh();
    for (Constraint* c : active) {
        c->visited = false;
        c->index = -1;
    }
    std::vector<Constraint*> island;
    for (Constraint* c : active) {
        if (c->visited || !counts(*this, c)) continue;
        int rows = 0;
        gather_island(c, island, rows);
        if (rows > 0) solve_island(island, rows);
        for (Constraint* k : island)
            k->index = -1;
    }
    if (task == TASK_IMPACT) apply_pending_impulses();
}

void BodySystem::apply_pending_impulses() {
    for (Body* b : bodies) {
        if (!b->impulse_pending) continue;
        if (auto* rb = dynamic_cast<RigidBody*>(b)) {
            rb->v += triple{b->applied_impulse[0], b->applied_impulse[1], b->applied_impulse[2]};
            rb->w += triple{b->applied_impulse[3], b->applied_impulse[4], b->applied_impulse[5]};
        }
        b->applied_impulse.zero();
        b->impulse_pending = false;
    }
}

namespace {

// A[i][j] for row i of c and row j of c2: the sum over shared bodies of J . M^-1 J.
double coupling(const Constraint* c, int i, const Constraint* c2, int j) {
    double s = 0;
    for (const RowPart& p : c->rows[size_t(i)].part) {
        if (!p.body) continue;
        for (const RowPart& q : c2->rows[size_t(j)].part)
            if (q.body == p.body)
                for (int k = 0; k < 6; ++k)
                    s += p.J[k] * q.MJ[k];
    }
    return s;
}

} // namespace

void BodySystem::solve_island(std::vector<Constraint*>& island, int n) {
    if (A_work.size() < size_t(n) * size_t(n)) A_work.resize(size_t(n) * size_t(n));
    matrix A(n, n, A_work.data());
    std::fill(A_work.begin(), A_work.begin() + ptrdiff_t(n) * n, 0.0);
    r_work.resize(n);
    scale_work.resize(n);
    x_work.resize(n);
    static std::vector<int> types;
    static std::vector<double> mus;
    types.resize(size_t(n));
    mus.resize(size_t(n));

    for (Constraint* c : island) {
        if (c->index == -1) {
            internal_error("BodySystem::build_constraint_system: index == -1");
            return;
        }
        const int dim = c->dimension();
        for (int i = 0; i < dim; ++i) {
            const int gi = c->index + i;
            // The own block is worked out once per pair of rows so that A stays
            // exactly symmetric, which lets the solver walk rows for columns.
            if (c->symmetric) {
                for (int j = 0; j <= i; ++j) {
                    const double v = coupling(c, i, c, j);
                    A(gi, c->index + j) = v;
                    A(c->index + j, gi) = v;
                }
            } else {
                for (int j = 0; j < dim; ++j)
                    A(gi, c->index + j) = coupling(c, i, c, j);
            }
            for (Constraint* c2 : c->neighbours) {
                if (c2->index == -1 || !counts(*this, c2)) continue;
                const bool sym = c->symmetric && c2->symmetric;
                if (sym && c2->index > c->index) continue;
                const int dim2 = c2->dimension();
                for (int j = 0; j < dim2; ++j) {
                    const int gj = c2->index + j;
                    double v = coupling(c, i, c2, j);
                    if (sym) {
                        A(gi, gj) = v;
                        A(gj, gi) = v;
                    } else {
                        A(gj, gi) = coupling(c2, j, c, i);
                    }
                }
            }
            scale_work[gi] = c->scale[i];
            types[size_t(gi)] = c->row_type(i);
            mus[size_t(gi)] = c->row_mu(i);
        }
        c->rhs(r_work.data() + c->index);
        if (task != TOLERANCE_CORRECTION && task != TASK_IMPACT) {
            for (int i = 0; i < dim; ++i)
                for (const RowPart& p : c->rows[size_t(i)].part) {
                    if (!p.body) continue;
                    const mvector& acc =
                        p.body->prescribed ? p.body->prescribed_accel : p.body->external_accel;
                    double s = 0;
                    for (int k = 0; k < 6; ++k)
                        s += p.J[k] * acc[k];
                    r_work[c->index + i] -= s;
                }
        }
    }

    // Force-free contacts: when most of a big island carries nothing, solve
    // without them first and keep that answer if they stay unloaded.
    if (task != TASK_IMPACT && task != TOLERANCE_CORRECTION) {
        int k = 0;
        for (Constraint* c : island) {
            auto* ct = dynamic_cast<Contact*>(c);
            if (ct && ct->state_valid && ct->force == 0) k += c->dimension();
        }
        if (k > 5 && k != n && n * 0.5 <= k && try_without_free(island, n, k)) return;
    }

    solve_constraint_force(*this, A, r_work, scale_work, &island, x_work, types.data(), mus.data());
    last_solve_path = last_solve().path;
    last_pivots = last_solve().pivots;
    for (Constraint* c : island)
        c->apply();
}

// Solves the island without its force-free contacts; true if they all still
// hold (relative normal acceleration less the target above -T), the answer is
// then applied.
bool BodySystem::try_without_free(std::vector<Constraint*>& island, int n, int k) {
    static std::vector<Constraint*> loaded, free_ones;
    loaded.clear();
    free_ones.clear();
    for (Constraint* c : island) {
        auto* ct = dynamic_cast<Contact*>(c);
        if (ct && ct->state_valid && ct->force == 0)
            free_ones.push_back(c);
        else
            loaded.push_back(c);
    }
    const int m = n - k;
    static std::vector<int> map, kept;
    map.assign(size_t(n), -1);
    kept.clear();
    for (Constraint* c : loaded)
        for (int i = 0; i < c->dimension(); ++i) {
            map[size_t(c->index + i)] = int(kept.size());
            kept.push_back(c->index + i);
        }
    // Every entry of the smaller system is written: no clearing.
    static std::vector<double> Asub;
    if (Asub.size() < size_t(m) * size_t(m)) Asub.resize(size_t(m) * size_t(m));
    mvector r(m), sc(m), x(m);
    static std::vector<int> ty;
    static std::vector<double> mu;
    ty.resize(size_t(m));
    mu.resize(size_t(m));
    for (int p = 0; p < m; ++p) {
        const int i = kept[size_t(p)];
        const double* from = A_work.data() + size_t(i) * size_t(n);
        double* to = Asub.data() + size_t(p) * size_t(m);
        for (int q = 0; q < m; ++q)
            to[q] = from[kept[size_t(q)]];
        r[p] = r_work[i];
        sc[p] = scale_work[i];
    }
    // Renumber the loaded constraints for the sub-solve.
    std::vector<int> saved;
    for (Constraint* c : loaded) {
        saved.push_back(c->index);
        c->index = map[size_t(c->index)];
    }
    for (Constraint* c : loaded)
        for (int i = 0; i < c->dimension(); ++i) {
            ty[size_t(c->index + i)] = c->row_type(i);
            mu[size_t(c->index + i)] = c->row_mu(i);
        }
    matrix As(m, m, Asub.data());
    solve_constraint_force(*this, As, r, sc, &loaded, x, ty.data(), mu.data());
    for (size_t q = 0; q < loaded.size(); ++q)
        loaded[q]->index = saved[q];
    // Check each free contact's normal row: A x restricted to loaded rows, less rhs.
    bool hold = true;
    for (Constraint* c : free_ones) {
        const int gi = c->index;
        const double* row = A_work.data() + size_t(gi) * size_t(n);
        double a = 0;
        for (int p = 0; p < m; ++p)
            a += row[kept[size_t(p)]] * x[p];
        a -= r_work[gi];
        if (a / scale_work[gi] <= -tolerance) {
            hold = false;
            break;
        }
    }
    if (!hold) return false;
    for (Constraint* c : loaded)
        c->apply();
    for (Constraint* c : free_ones) {
        for (int i = 0; i < c->dimension(); ++i)
            c->lambda[i] = 0;
    }
    last_solve_path = last_solve().path;
    return true;
}

} // namespace tessarin
