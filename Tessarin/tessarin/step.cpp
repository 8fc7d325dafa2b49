#include <algorithm>
#include <cmath>
#include <limits>

#include "Tessarin/tessarin/body.h"
#include "Tessarin/tessarin/body_system.h"
#include "Tessarin/tessarin/bounds.h"
#include "Tessarin/tessarin/constraint.h"
#include "Tessarin/tessarin/contact.h"
#include "Tessarin/tessarin/influence.h"
#include "Tessarin/tessarin/messages.h"
#include "Tessarin/tessarin/separator.h"

namespace tessarin {

void BodySystem::rebuild() {
    reindex();
    just_rebuilt = true;
    clash_allowed = true;
    gather_state(y);
    set_bodies(y, true);
    broad_->invalidate();
    clash_found = false;
    task = TASK_NONE;
    update_separators();
    delete_unseen_contacts();
    clash_found = false;
    clash_allowed = false;
    dirty = false;
    bump_stamp();
}

void BodySystem::build_active_list() {
    active.clear();
    for (Body* b : bodies)
        b->constraints.clear();
    auto attach = [&](Constraint* c) {
        active.append(c);
        c->neighbours.clear();
        for (Body* b : c->bodies)
            b->constraints.append(c);
    };
    for (Constraint* c : constraints)
        attach(c);
    for (Constraint* c : barrier_constraints)
        attach(c);
    for (Contact* c : contacts)
        attach(c);
    // Constraints sharing a body that responds are neighbours; a prescribed
    // body does not couple what touches it.
    for (Constraint* c : active) {
        for (Body* b : c->bodies) {
            if (b->prescribed) continue;
            for (Constraint* c2 : b->constraints) {
                if (c2 == c) continue;
                if (std::find(c->neighbours.begin(), c->neighbours.end(), c2) == c->neighbours.end())
                    c->neighbours.push_back(c2);
            }
        }
    }
}

void BodySystem::tolerance_correction() {
    task = TOLERANCE_CORRECTION;
    prepare_constraints();
    sum_forces();
    solve_all_islands();
    dy.zero();
    bool refused = false;
    for (Body* b : bodies) {
        if (auto* rb = dynamic_cast<RigidBody*>(b)) {
            rb->correction(dy);
            // A displacement that is not a number or larger than the band is refused.
            for (int i = 0; i < 3; ++i) {
                double v = dy[rb->state_index + i];
                if (!std::isfinite(v) || std::fabs(v) > 2 * tolerance) refused = true;
            }
        }
    }
    if (refused) {
        set_bodies(y, true);
        return;
    }
    if (probe_only) return;
    y += dy;
    set_bodies(y, false);
    checking_only = true;
    clash_found = false;
    update_separators();
    if (clash_found) {
        y -= dy;
        set_bodies(y, true);
    }
    checking_only = false;
    clash_found = false;
}

void BodySystem::resolve_impacts() {
    bool any = false;
    std::vector<Constraint*> island;
    for (int pass = 0; pass < 10; ++pass) {
        for (Constraint* c : active) {
            c->visited = false;
            c->index = -1;
            c->refresh();
        }
        bool solved = false;
        for (Constraint* c : active) {
            if (c->visited || !c->is_active()) continue;
            int rows = 0;
            gather_island(c, island, rows);
            if (rows > 0) {
                solve_island(island, rows);
                solved = true;
            }
            for (Constraint* k : island)
                k->index = -1;
            apply_pending_impulses();
        }
        if (!solved) break;
        any = true;
    }
    if (!any) return;
    for (Contact* c : contacts)
        c->force = 0;
    for (Body* b : bodies) {
        auto* rb = dynamic_cast<RigidBody*>(b);
        if (!rb) continue;
        double* s = y.data() + rb->state_index;
        if (rb->state_dof() == 6) { // a plane body: (x, y, angle, vx, vy, w)
            s[3] = rb->v.x, s[4] = rb->v.y, s[5] = rb->w.z;
            continue;
        }
        if (rb->state_dof() != 13) continue;
        s[7] = rb->v.x, s[8] = rb->v.y, s[9] = rb->v.z;
        s[10] = rb->w.x, s[11] = rb->w.y, s[12] = rb->w.z;
    }
}

double BodySystem::find_collision(double h) {
    if (just_rebuilt) {
        clash_allowed = true;
        return h;
    }
    double hi = h;
    const double tiny = 1e-6 * h;
    if (!clash) {
        internal_error("find_collision: hit = 0");
        return h;
    }
    while (hi > 0) {
        if (hi <= 1e-4 * h || (abort_query && abort_query())) break;
        double est = hi / 2;
        if (clash->measurable() && clash->d0 > 0) est = hi * clash->d0 / (clash->d0 - clash->d1);
        if (!(est >= tiny && est <= hi - tiny)) est = hi / 2;
        ode.interpolate(est, y_eval);
        set_bodies(y_eval, false);
        double dist =
            clash->measurable() ? clash->evaluate_distance() : -std::numeric_limits<double>::infinity();
        if (clash->d0 <= 0 || dist >= -clash->tolerance) {
            // Clear of this clash here: look at every pair at this time.
            checking_only = true;
            clash_found = false;
            Separator* copy = clash;
            clash = nullptr;
            excluded = nullptr;
            update_separators();
            if (!clash_found) {
                delete copy;
                delete clash;
                clash = nullptr;
                checking_only = false;
                return est;
            }
            if (!clash) {
                internal_error("find_collision: 2nd col, no clash");
                clash = copy;
            } else {
                delete copy;
            }
        } else {
            clash->d1 = dist;
        }
        hi = est;
    }
    // The search could not separate the pair: take the whole step and let it be.
    checking_only = false;
    ode.interpolate(h, y_eval);
    set_bodies(y_eval, false);
    clash_allowed = true;
    return h;
}

void BodySystem::set_state_at(double t) {
    ode.interpolate(t - step_start, y_eval);
    y = y_eval;
    set_bodies(y, false);
    time = t;
}

double BodySystem::step_forward(double dt) {
    // 1
    rows_solved.step = separators_tested.step = bounds_updated.step = 0;
    // 2
    for (Body* b : bodies)
        if (b->prescribed) {
            double t = b->next_event_time(time);
            if (t > time && t < time + dt) dt = t - time;
        }
    // 3
    if (dirty) {
        // A plane body in a 3D system would get contact rows out of its plane
        // that nothing can push against: refuse before anything moves.
        for (Body* b : bodies)
            if (dimension == 3 && b->velocity_dof() == 3) {
                user_error("BodySystem::step_forward: plane body %s in a 3D system", b->display_name());
                return 0;
            }
        rebuild();
    }
    // 4
    ++step_count;
    build_active_list();
    // 5
    if (worst_separation < -0.75 * tolerance) tolerance_correction();
    // 6
    if (dynamics) {
        task = TASK_IMPACT;
        prepare_constraints();
        sum_forces();
        resolve_impacts();
        task = TASK_DYNAMICS;
    } else {
        task = TASK_FIRST_ORDER;
    }
    prepare_constraints();
    // 7
    y_start = y;
    step_start = time;
    double h = dt;
    if (next_h_ > 0) h = std::min(h, next_h_);
    next_h_ = 0;
    if (!ode.establish_path(*this, h)) {
        task = TASK_NONE;
        return 0;
    }
    h = ode.h_taken;
    // 8
    just_rebuilt = false;
    delete clash;
    clash = nullptr;
    clash_found = false;
    update_separators();
    // 9
    double advanced = h;
    if (clash_found) {
        for (Contact* c : contacts)
            c->seen = true;
        double t_star = find_collision(h);
        time = time - h + t_star;
        if (t_star < h) {
            ode.interpolate(t_star, y);
            set_bodies(y, false);
        } else {
            y = current;
        }
        bump_stamp();
        checking_only = false;
        clash_found = false;
        delete clash;
        clash = nullptr;
        update_separators();
        double next = std::max(1.9 * t_star, 0.01 * dt);
        if (ode.h_next > 0) next = std::min(next, ode.h_next);
        next_h_ = std::max(next, 2e-05);
        advanced = t_star;
    }
    // 10
    clash_allowed = false;
    delete_unseen_contacts();
    // 11
    rows_solved.total += rows_solved.step;
    separators_tested.total += separators_tested.step;
    bounds_updated.total += bounds_updated.step;
    task = TASK_NONE;
    return advanced;
}

} // namespace tessarin
