#pragma once
#include <vector>

#include "Tessarin/kelsupport/basellist.h"
#include "Tessarin/kelsupport/mvector.h"
#include "Tessarin/tessarin/entity.h"

namespace tessarin {

class Body;
class BodySystem;

// One body's part of a row: the wrench of a unit constraint force (J) and the
// generalised acceleration it gives (M^-1 J). A's entries are dot products of
// these, so no mass matrix is ever formed.
struct RowPart {
    Body* body = nullptr;
    double J[6] = {};
    double MJ[6] = {};
};

struct ConstraintRow {
    RowPart part[2];
};

// Row types in the island system.
enum RowType { ROW_BILATERAL = 0, ROW_UNILATERAL = 1, ROW_FRICTION1 = 2, ROW_FRICTION2 = 3 };

class Constraint : public Keystamp, public EntityHook {
public:
    explicit Constraint(BodySystem* sys, int max_rows, int body_count = 2);
    ~Constraint() override;

    BodySystem* system;
    std::vector<ConstraintRow> rows;
    int body_count;
    llist<Body> bodies;
    std::vector<Constraint*> neighbours;
    mvector lambda, scale;
    std::vector<int> states;
    bool state_valid = false;
    int index = -1;
    bool visited = false;
    double stabilising = 1;
    bool position_level = true;
    bool symmetric = true;
    double tolerance = 0;
    void* link_node = nullptr;
    bool active = false;
    bool initialised = true;

    // J of row i for body b, dotted with a generalised 6-vector.
    virtual double dot_row(int i, const Body* b, const double* g) const;
    virtual int kind() const = 0;
    virtual int dimension() const = 0;
    virtual void prepare() = 0;
    virtual void refresh() = 0;
    // Right-hand side of each row, already scaled, into r (dimension() values).
    virtual void rhs(double* r) = 0;
    virtual void scale_rows() = 0; // self_scale
    virtual bool is_active() const { return active; }

    // Adds lambda times M^-1 of each row to the bodies (velocity change in the
    // impact task), and records what the kind of constraint keeps.
    virtual void apply();
    // Row type and friction coefficient of row i.
    virtual int row_type(int i) const;
    virtual double row_mu(int i) const { return 0; }
    double effective_tolerance() const;

protected:
    // Fills row i for direction d at points p1 (body1) and p2 (body2), body2 taking -d.
    void build_row(int i, Body* b1, Body* b2, const double* d, const double* p1, const double* p2);
};

} // namespace tessarin
