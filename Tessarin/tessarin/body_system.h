#pragma once
#include <vector>

#include "Tessarin/kelsupport/basellist.h"
#include "Tessarin/kelsupport/basepairtable.h"
#include "Tessarin/kelsupport/mvector.h"
#include "Tessarin/tessarin/entity.h"
#include "Tessarin/tessarin/ode_package.h"

namespace tessarin {

class Body;
class RigidBody;
class Shape;
class Constraint;
class Contact;
class Barrier;
class Influence;
class Obstacle;
class Separator;
class BroadPhase;
struct Overlap;

// Per-step and total statistic.
struct StepCounter {
    int step = 0;
    long total = 0;
};

class BodySystem {
public:
    BodySystem();
    ~BodySystem();
    BodySystem(const BodySystem&) = delete;
    BodySystem& operator=(const BodySystem&) = delete;

    // Callbacks.
    void (*clash_callback)(Shape*, Shape*, int starting) = nullptr;
    void (*contact_callback)(Body*, Body*, int made) = nullptr;
    void (*material_callback)(Body*, Body*, double& restitution, double& mu_dynamic,
                              double& mu_static) = nullptr;
    void (*impulse_callback)(Body*, Body*, const double* point, const double* normal,
                             double impulse) = nullptr;
    bool (*abort_query)() = nullptr;
    void (*abort_report)(const char*) = nullptr;
    // May veto a pair in the broad phase: false keeps the pair out.
    bool (*pair_filter)(Shape*, Shape*) = nullptr;

    StepCounter rows_solved, separators_tested, bounds_updated;

    llist<Body> bodies;
    llist<Influence> influences;
    llist<Obstacle> obstacles;
    llist<Constraint> constraints;         // added
    llist<Constraint> barrier_constraints; // owned by barriers
    llist<Barrier> barriers;
    llist<Constraint> active; // rebuilt every step
    llist<Contact> contacts;

    mvector y, y_eval, y_end, dy, y_start;
    Separator* clash = nullptr; // a copy of the obstacle that hit first
    Task task = TASK_NONE;
    OdePackage ode;
    double tolerance = 0.02;
    int evaluation_stamp = 1;
    double time = 0, step_start = 0;
    int step_count = 0;
    double worst_separation = 0;
    int dimension = 2;
    bool dynamics = false;
    bool probe_only = false;
    bool restitution_on = true;
    bool use_bounds = true;
    bool friction_on = false;
    bool at_step_start = false;
    bool clash_found = false;
    bool checking_only = false;
    bool clash_allowed = false;
    bool just_rebuilt = true;
    bool dirty = true;
    bool keep_small_velocities = false;
    bool use_link_trees = false;
    // Rate (1/s) at which a sticking contact's tangential velocity is driven to
    // zero. At 1/s a creep below the sliding threshold would sit inside the
    // solver's dead zone for ever; one nominal step (1/0.03 s) removes it.
    double tangential_gain = 1 / 0.03;
    // Time (s) over which a resting contact's depth is brought back to zero.
    double stabiliser_time = 0.3;
    llist<void> link_trees;

    // Interpenetrating pairs seen at their first meeting, by atomic shape pair
    // and by body pair (with a count); and pairs allowed to pass through.
    basepairtable overlap_table{337};
    basepairtable allow_table{137};

    void add(Body& b);
    void add(Constraint& c);
    void add(Barrier& b);
    void add(Influence& i);
    void remove(Body& b);
    void remove(Constraint& c);
    void remove(Barrier& b);
    void remove(Influence& i);

    // Advances by at most dt; returns the time taken, 0 on failure.
    double step_forward(double dt);
    void set_state_at(double t);
    void set_time(double t) { time = t; }

    void allow_pair(Body* a, Body* b);
    void allow_shapes(Shape* a, Shape* b);
    void disallow_pair(Body* a, Body* b);
    bool allowed(Shape* a, Shape* b) const;

    // --- used by the parts of the kernel ---
    void bump_stamp() { ++evaluation_stamp; }
    void reindex();
    void gather_state(mvector& into) const;
    // Sets every body from a state vector (the vector may be changed by rest thresholds).
    void set_bodies(mvector& from, bool force_update);
    // The derivative at (t, state) into rate.
    void derivative(double t, mvector& state, mvector& rate);
    void prepare_constraints();
    void sum_forces();
    void solve_all_islands();
    void resolve_impacts();
    double find_collision(double h);
    void update_separators();
    void found_clash(Separator& s);
    void delete_unseen_contacts();
    void remove_contact(Contact* c);
    void register_contact(Contact* c);
    // The body error measure of the adaptive controller: 1 is just acceptable.
    double error_measure(const mvector& err) const;
    BroadPhase& broad_phase() { return *broad_; }
    // The contact pass of one overlapping atomic pair.
    void contact_pass(Overlap& o);
    // Interpenetrating pairs: entered when first seen overlapping, removed when clear.
    void note_interpenetration(Shape* a, Shape* b);
    void forget_interpenetration(Shape* a, Shape* b);
    // Distance a separator measures with the bodies at another state.
    double distance_at(Separator& s, mvector& state);
    // The last state the bodies were set from.
    mvector current;
    // The separator being searched for, which the checking pass leaves out.
    const Separator* excluded = nullptr;
    // The separator the current clash was copied from.
    Separator* excluded_original = nullptr;
    // Counts of the last solve, for tests and statistics.
    int last_solve_path = 0; // 1 direct single row, 2 two-row enumeration, 3 inductive, 4 all satisfied
    int last_pivots = 0;

private:
    void rebuild();
    void build_active_list();
    void tolerance_correction();
    void solve_island(std::vector<Constraint*>& island, int rows);
    void gather_island(Constraint* seed, std::vector<Constraint*>& island, int& rows);
    void apply_pending_impulses();
    bool try_without_free(std::vector<Constraint*>& island, int n, int k);
    double next_h_ = 0;
    void delete_contacts_of(Body* b);

    BroadPhase* broad_;
};

} // namespace tessarin
