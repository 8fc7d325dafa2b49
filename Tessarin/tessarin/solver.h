#pragma once
#include <vector>

#include "Tessarin/kelsupport/matrix.h"
#include "Tessarin/kelsupport/mvector.h"

namespace tessarin {

class BodySystem;
class Constraint;

// Row states of the pivoting solve; they are kept with a constraint between solves.
enum RowState {
    ST_BASIS = 1,
    ST_BLOCKED = 2,
    ST_UPPER = 3, // friction at +mu of its normal force
    ST_LOWER = 4, // friction at -mu
    ST_FREE = 5,
    ST_OVER = 6, // driving friction over the cone
    ST_EDGE = 7, // driving friction at the cone
    ST_DRIVE = 8,
    ST_GIVEN_UP = 9,
    ST_FAILED = 10,
};

// One island's linear complementarity problem. A is n by n row-major; b is
// minus the right-hand side, so a = A x + b is each row's acceleration.
struct LcpSystem {
    int n = 0;
    const double* A = nullptr;
    const double* b = nullptr;
    const double* scale = nullptr;
    const int* type = nullptr;
    double* mu = nullptr;
    bool symmetric = false; // A equals its transpose
    // When the rows come from constraints, A = J M^-1 J^T in body space: per
    // row two parts, each a body slot (-1 for none) with its J and M^-1 J
    // (6 each). Products with A then cost a few operations per row.
    int slots = 0;
    const int* part_slot = nullptr;
    const double* const* part_J = nullptr;
    const double* const* part_MJ = nullptr;
};

// What the last solve did, for statistics and tests.
struct SolveReport {
    int path = 0; // 1 one row, 2 two rows enumerated, 3 pivoting, 4 all satisfied, 5 too many rows
    int pivots = 0;
    int candidate = -1; // two rows: 0 both, 1 row 0 alone, 2 row 1 alone, 3 neither
    int refused = 0;    // rows add_to_basis turned down
    bool warm_used = false;
    bool failed = false;  // the 200-pivot fail path was taken
    bool retried = false; // ... and the frictionless retry ran
};

SolveReport& last_solve();

// Running totals over all solves, for statistics.
struct SolverTotals {
    long solves = 0, warm_tried = 0, warm_ok = 0, cache_hits = 0, pivots = 0, failures = 0, refused = 0;
};
SolverTotals& solver_totals();

// Pivoting solve of the system; x is the result, states persist for warm starts.
// Returns false when the solve failed (states are then all ST_FAILED).
bool inductive_solve(BodySystem& sys, LcpSystem& s, bool warm, double* x, int* states);

// Direct paths for small frictionless systems, the all-satisfied shortcut, and
// the pivoting solve otherwise. r is the right-hand side (not negated). The
// constraints, when given, supply warm states and receive lambda and states.
void solve_constraint_force(BodySystem& sys, const matrix& A, const mvector& r, const mvector& scale,
                            const std::vector<Constraint*>* list, mvector& x, const int* types = nullptr,
                            const double* mus = nullptr);

} // namespace tessarin
