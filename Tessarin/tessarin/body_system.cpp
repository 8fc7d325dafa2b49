#include "Tessarin/tessarin/body_system.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "Tessarin/tessarin/body.h"
#include "Tessarin/tessarin/bounds.h"
#include "Tessarin/tessarin/constraint.h"
#include "Tessarin/tessarin/contact.h"
#include "Tessarin/tessarin/influence.h"
#include "Tessarin/tessarin/messages.h"
#include "Tessarin/tessarin/separator.h"
#include "Tessarin/tessarin/shape.h"

namespace tessarin {

namespace {
// Entry of allow_table: a whole-body flag and shape pairs.
struct AllowEntry {
    bool whole = false;
    std::vector<std::pair<Shape*, Shape*>> shapes;
};

bool under(const Shape* s, const Shape* top) {
    for (; s; s = s->parent)
        if (s == top) return true;
    return false;
}
} // namespace

BodySystem::BodySystem() : broad_(new BroadPhase(*this)) {}

BodySystem::~BodySystem() {
    delete clash;
    clash = nullptr;
    broad_->clear();
    delete broad_;
    for (Contact* c : contacts)
        delete c;
    contacts.clear();
    // Body-pair entries own the counts that the shape-pair entries point at.
    std::vector<int*> counts;
    overlap_table.for_each(
        [&](const void*, const void*, void* v) { counts.push_back(static_cast<int*>(v)); });
    std::sort(counts.begin(), counts.end());
    counts.erase(std::unique(counts.begin(), counts.end()), counts.end());
    for (int* c : counts)
        delete c;
    allow_table.for_each([](const void*, const void*, void* v) { delete static_cast<AllowEntry*>(v); });
}

// ---------------------------------------------------------------- membership

void BodySystem::add(Body& b) {
    if (bodies.contains(&b)) {
        user_error("BodySystem::add: body already added");
        return;
    }
    b.system = this;
    bodies.append(&b);
    if (b.geometry) broad_->add_shape(b.geometry);
    dirty = true;
}

void BodySystem::add(Constraint& c) {
    if (constraints.contains(&c)) {
        user_error("BodySystem::add: constraint already added");
        return;
    }
    if (!c.initialised) {
        user_error("BodySystem::add: constraint not init'd");
        return;
    }
    if (c.tolerance <= 0) c.tolerance = tolerance;
    constraints.append(&c);
    dirty = true;
}

void BodySystem::add(Barrier& b) {
    if (barriers.contains(&b)) {
        user_error("BodySystem::add: barrier already added");
        return;
    }
    if (!b.initialised) {
        user_error("BodySystem::add(Barrier &): barrier not init'd");
        return;
    }
    if (b.tolerance <= 0) b.tolerance = tolerance;
    barriers.append(&b);
    if (b.constraint) barrier_constraints.append(b.constraint);
    dirty = true;
}

void BodySystem::add(Influence& i) {
    influences.append(&i);
    dirty = true;
}

void BodySystem::remove(Body& b) {
    if (!bodies.contains(&b)) {
        user_error("BodySystem::remove: body not in system");
        return;
    }
    broad_->remove_body(&b);
    delete_contacts_of(&b);
    std::vector<Constraint*> gone;
    for (Constraint* c : constraints)
        if (c->bodies.contains(&b)) gone.push_back(c);
    for (Constraint* c : gone)
        constraints.remove(c);
    bodies.remove(&b);
    if (clash) {
        delete clash;
        clash = nullptr;
    }
    dirty = true;
}

void BodySystem::remove(Constraint& c) {
    if (!constraints.contains(&c)) {
        user_error("BodySystem::remove: constraint not in system");
        return;
    }
    constraints.remove(&c);
    dirty = true;
}

void BodySystem::remove(Barrier& b) {
    if (!barriers.contains(&b)) {
        user_error("BodySystem::remove: barrier not in system");
        return;
    }
    barriers.remove(&b);
    if (b.constraint && barrier_constraints.contains(b.constraint)) barrier_constraints.remove(b.constraint);
    dirty = true;
}

void BodySystem::remove(Influence& i) {
    if (!influences.contains(&i)) {
        user_error("BodySystem::remove: influence not in system");
        return;
    }
    influences.remove(&i);
    dirty = true;
}

void BodySystem::delete_contacts_of(Body* b) {
    std::vector<Contact*> gone;
    for (Contact* c : contacts)
        if (c->body1 == b || c->body2 == b) gone.push_back(c);
    for (Contact* c : gone)
        remove_contact(c);
}

void BodySystem::register_contact(Contact* c) {
    contacts.append(c);
}

void BodySystem::remove_contact(Contact* c) {
    if (c->owner) {
        auto& v = c->owner->contacts;
        v.erase(std::remove(v.begin(), v.end(), c), v.end());
    }
    if (contacts.contains(c)) contacts.remove(c);
    if (active.contains(c)) active.remove(c);
    for (Body* b : c->bodies)
        if (b->constraints.contains(c)) b->constraints.remove(c);
    delete c;
}

void BodySystem::delete_unseen_contacts() {
    std::vector<Contact*> gone;
    for (Contact* c : contacts)
        if (!c->seen) gone.push_back(c);
    for (Contact* c : gone)
        remove_contact(c);
}

// ---------------------------------------------------------------- allowed pairs

void BodySystem::allow_pair(Body* a, Body* b) {
    auto* e = static_cast<AllowEntry*>(allow_table.lookup(a, b));
    if (!e) {
        e = new AllowEntry;
        allow_table.insert(a, b, e);
    }
    e->whole = true;
    dirty = true;
}

void BodySystem::allow_shapes(Shape* a, Shape* b) {
    auto* e = static_cast<AllowEntry*>(allow_table.lookup(a->body, b->body));
    if (!e) {
        e = new AllowEntry;
        allow_table.insert(a->body, b->body, e);
    }
    e->shapes.push_back({a, b});
    dirty = true;
}

void BodySystem::disallow_pair(Body* a, Body* b) {
    delete static_cast<AllowEntry*>(allow_table.remove(a, b));
    dirty = true;
}

bool BodySystem::allowed(Shape* a, Shape* b) const {
    if (allow_table.size() == 0) return false;
    auto* e = static_cast<AllowEntry*>(allow_table.lookup(a->body, b->body));
    if (!e) return false;
    if (e->whole) return true;
    for (auto& p : e->shapes)
        if ((under(a, p.first) && under(b, p.second)) || (under(a, p.second) && under(b, p.first)))
            return true;
    return false;
}

// ---------------------------------------------------------------- state

void BodySystem::reindex() {
    int n = 0;
    for (Body* b : bodies) {
        b->state_index = n;
        n += b->state_dof();
    }
    y.resize(n);
    y_eval.resize(n);
    y_end.resize(n);
    dy.resize(n);
    y_start.resize(n);
    current.resize(n);
}

void BodySystem::gather_state(mvector& into) const {
    for (Body* b : bodies)
        b->get_state(into);
}

void BodySystem::set_bodies(mvector& from, bool force_update) {
    bump_stamp();
    for (Body* b : bodies)
        b->set_state(from, force_update);
    if (&from != &current) current = from;
}

double BodySystem::distance_at(Separator& s, mvector& state) {
    static mvector keep;
    keep.resize(current.size());
    keep = current;
    set_bodies(state, false);
    double d = s.evaluate_distance();
    set_bodies(keep, false);
    return d;
}

double BodySystem::error_measure(const mvector& err) const {
    // Geometry only: positions against a tenth of the band, orientations so that
    // the body's surface moves by no more than that. Velocity errors show up as
    // position errors in the steps that follow; measured here they would hold
    // every step with a contact change to a few milliseconds.
    double e = 0;
    const double allowed = 0.1 * tolerance;
    for (Body* b : bodies) {
        const double* s = err.data() + b->state_index;
        if (b->velocity_dof() == 3) { // a plane body: x, y and the angle
            double r = 1;
            if (auto* rb = dynamic_cast<const RigidBody*>(b))
                r = std::max(0.5 * (rb->local_box.hi - rb->local_box.lo).length(), 1e-3);
            e = std::max(
                {e, std::fabs(s[0]) / allowed, std::fabs(s[1]) / allowed, r * std::fabs(s[2]) / allowed});
            continue;
        }
        for (int i = 0; i < 3; ++i)
            e = std::max(e, std::fabs(s[i]) / allowed);
        double r = 1;
        if (auto* rb = dynamic_cast<const RigidBody*>(b))
            r = std::max(0.5 * (rb->local_box.hi - rb->local_box.lo).length(), 1e-3);
        for (int i = 3; i < 7; ++i)
            e = std::max(e, 2 * r * std::fabs(s[i]) / allowed);
    }
    return e;
}

// ---------------------------------------------------------------- forces and derivatives

void BodySystem::prepare_constraints() {
    for (Constraint* c : active) {
        if (task == TOLERANCE_CORRECTION && !c->position_level) continue;
        c->prepare();
    }
}

void BodySystem::sum_forces() {
    for (Body* b : bodies)
        b->sum_forces();
    if (task == TOLERANCE_CORRECTION) return;
    for (Influence* i : influences)
        i->apply();
}

void BodySystem::derivative(double t, mvector& state, mvector& rate) {
    time = t;
    if (!at_step_start) {
        set_bodies(state, false);
        prepare_constraints();
    }
    sum_forces();
    solve_all_islands();
    for (Body* b : bodies)
        b->dydt(state, rate);
}

// ---------------------------------------------------------------- separators

void BodySystem::note_interpenetration(Shape* a, Shape* b) {
    if (overlap_table.find(a, b)) return;
    auto* count = static_cast<int*>(overlap_table.lookup(a->body, b->body));
    if (!count) {
        count = new int(0);
        overlap_table.insert(a->body, b->body, count);
        if (clash_callback) clash_callback(a, b, 1);
    }
    ++*count;
    overlap_table.insert(a, b, count);
}

void BodySystem::forget_interpenetration(Shape* a, Shape* b) {
    auto* count = static_cast<int*>(overlap_table.remove(a, b));
    if (!count) return;
    if (--*count <= 0) {
        overlap_table.remove(a->body, b->body);
        delete count;
        if (clash_callback) clash_callback(a, b, 0);
    }
}

void BodySystem::contact_pass(Overlap& o) {
    Separator*& sep = o.separator;
    if (sep && sep == excluded) return;
    if (!sep) {
        sep = new_separator(*this, o.a, o.b);
        if (!sep) return;
    } else if (sep->valid && sep->stamp1 == sep->shape1->body->keystamp &&
               sep->stamp2 == sep->shape2->body->keystamp && sep->stamp1 != 0) {
        // Nothing moved: the witness and its contacts stand.
        if (!checking_only)
            for (Contact* c : sep->contacts)
                c->seen = true;
        if (sep->last_distance <= sep->tolerance)
            worst_separation = std::min(worst_separation, sep->last_distance);
        return;
    }
    ++separators_tested.step;
    bool clear = false;
    double d = 0;
    bool ok;
    if (!sep->valid) {
        ok = sep->fit(clear, d);
    } else {
        ok = sep->refit(clear, d);
        if (!ok) {
            sep->advance();
            ok = sep->fit(clear, d);
            if (!ok) ok = sep->retry(clear, d);
        }
    }
    if (!ok) {
        // Pairs known to interpenetrate are left to come apart on their own.
        if (sep->listed()) {
            sep->stamp1 = sep->stamp2 = 0;
            return;
        }
        found_clash(*sep);
        if (clash_allowed) note_interpenetration(sep->shape1, sep->shape2);
        sep->stamp1 = 0;
        return;
    }
    if (sep->listed()) forget_interpenetration(sep->shape1, sep->shape2);
    sep->last_distance = d;
    sep->stamp1 = sep->shape1->body->keystamp;
    sep->stamp2 = sep->shape2->body->keystamp;
    if (!clear) worst_separation = std::min(worst_separation, d);
    if (checking_only) {
        sep->stamp1 = 0;
        return;
    }
    if (!clear) sep->make_contact();
}

void BodySystem::update_separators() {
    if (!checking_only)
        for (Contact* c : contacts)
            c->seen = false;
    worst_separation = 0;
    if (use_bounds) broad_->run();
    for (Barrier* b : barriers) {
        if (clash_found) break;
        b->check();
    }
}

void BodySystem::found_clash(Separator& s) {
    if (task == TOLERANCE_CORRECTION) {
        clash_found = true;
        return;
    }
    if (clash_allowed) {
        if (dirty) {
            warning(
                "Obstacle::found_clash: Starting configuration has interpenetration\nOffending bodies are: ");
            if (s.body1) warning(" %s\n", s.body1->display_name());
            if (s.body2) warning(" %s\n", s.body2->display_name());
            dirty = false;
        }
        return;
    }
    if (clash && clash->rank <= s.rank) return;
    if (s.measurable()) {
        s.d1 = s.evaluate_distance();
        s.d0 = distance_at(s, y_start);
        const double T = s.tolerance;
        if (s.d0 < -0.8 * T && s.d0 >= -T) {
            // A pair that keeps starting deep in its band gets a wider band rather
            // than stalling the integrator.
            if (++s.hits >= 2) {
                s.tolerance *= 2;
                s.hits = 0;
            }
        } else {
            s.hits = 0;
        }
    }
    delete clash;
    clash = s.clone();
    excluded_original = &s;
    if (s.rank < 1) clash_found = true;
}

} // namespace tessarin
