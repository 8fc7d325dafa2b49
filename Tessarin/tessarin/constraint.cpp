#include "Tessarin/tessarin/constraint.h"

#include "Tessarin/tessarin/body.h"
#include "Tessarin/tessarin/body_system.h"
#include "Tessarin/tessarin/messages.h"

namespace tessarin {

Constraint::Constraint(BodySystem* sys, int max_rows, int bc)
    : system(sys), rows(size_t(max_rows)), body_count(bc), lambda(max_rows), scale(max_rows),
      states(size_t(max_rows), 5) {
    for (int i = 0; i < max_rows; ++i)
        scale[i] = 1;
}

Constraint::~Constraint() = default;

double Constraint::effective_tolerance() const {
    return tolerance > 0 ? tolerance : system->tolerance;
}

double Constraint::dot_row(int i, const Body* b, const double* g) const {
    double s = 0;
    for (const RowPart& p : rows[size_t(i)].part)
        if (p.body == b)
            for (int k = 0; k < 6; ++k)
                s += p.J[k] * g[k];
    return s;
}

int Constraint::row_type(int i) const {
    switch (kind()) {
    case 1:
        return ROW_BILATERAL;
    case 2:
        return ROW_UNILATERAL;
    case 3:
        return i == 0 ? ROW_UNILATERAL : ROW_FRICTION1;
    case 4:
        return i == 0 ? ROW_UNILATERAL : (i == 1 ? ROW_FRICTION1 : ROW_FRICTION2);
    default:
        internal_error("solve_constraint_force: bad constraint kind");
        return ROW_UNILATERAL;
    }
}

void Constraint::build_row(int i, Body* b1, Body* b2, const double* d, const double* p1, const double* p2) {
    ConstraintRow& row = rows[size_t(i)];
    triple dir{d[0], d[1], d[2]};
    row.part[0].body = b1;
    b1->apply_at_point(triple{p1[0], p1[1], p1[2]}, dir, row.part[0].J);
    b1->accelerate(row.part[0].J, row.part[0].MJ);
    row.part[1].body = b2;
    b2->apply_at_point(triple{p2[0], p2[1], p2[2]}, -dir, row.part[1].J);
    b2->accelerate(row.part[1].J, row.part[1].MJ);
}

void Constraint::apply() {
    if (index == -1) {
        internal_error("Constraint::apply: index == -1");
        return;
    }
    const bool impact = system->task == TASK_IMPACT;
    const int n = dimension();
    for (int i = 0; i < n; ++i) {
        double l = lambda[i];
        if (l == 0) continue;
        for (RowPart& p : rows[size_t(i)].part) {
            if (!p.body) continue;
            mvector& target = impact ? p.body->applied_impulse : p.body->constraint_accel;
            for (int k = 0; k < 6; ++k)
                target[k] += l * p.MJ[k];
            if (impact) p.body->impulse_pending = true;
        }
    }
}

} // namespace tessarin
