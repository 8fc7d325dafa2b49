#pragma once
#include <vector>

#include "Tessarin/kelsupport/basepairtable.h"
#include "Tessarin/tessarin/shape.h"

namespace tessarin {

class BodySystem;
class Separator;

// A pair of shapes whose boxes overlap on every axis.
struct Overlap {
    Shape* a;
    Shape* b;
    double tolerance;
    Separator* separator = nullptr;
    int slot = -1; // place in the overlap list
};

// Sweep and prune over the atomic shapes: one sorted array of box ends per
// axis, insertion-sorted each pass so that coherent motion costs little.
class BroadPhase {
public:
    explicit BroadPhase(BodySystem& sys);
    ~BroadPhase();

    void add_shape(Shape* s);
    void remove_body(Body* b);
    void clear();
    // Marks the arrays for a full sort on the next pass (after a rebuild).
    void invalidate() { sorted_ = false; }
    // Updates bounds and order, makes new overlaps, then walks every overlap.
    void run();
    Overlap* find(Shape* a, Shape* b) const;
    const std::vector<Overlap*>& overlaps() const { return overlaps_; }
    int shape_count() const { return int(shapes_.size()); }
    bool candidate(Shape* a, Shape* b) const;

private:
    bool boxes_overlap(const Shape* a, const Shape* b) const;
    void make_overlap(Shape* a, Shape* b);
    void delete_overlap(Overlap* o);
    void update_values();
    void full_sort();
    void insertion_sort(int axis);

    BodySystem& sys_;
    std::vector<Shape*> shapes_;
    std::vector<bound> axis_[3];
    std::vector<Overlap*> overlaps_;
    basepairtable table_{337};
    bool sorted_ = false;
    double margin_ = 0;
};

} // namespace tessarin
