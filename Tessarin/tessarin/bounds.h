#pragma once
#include <utility>
#include <vector>

#include "Tessarin/kelsupport/basepairtable.h"
#include "Tessarin/tessarin/shape.h"

namespace tessarin {

class BodySystem;
class Separator;

// Sorted box ends of a set of shapes, one array per axis, kept in order by
// insertion sorting from one pass to the next. Shapes are on side 0 or 1;
// only pairs across the sides are asked for.
struct Bound {
    std::vector<bound> axis[3];
    std::vector<Shape*> side1;
    bool sorted = false;

    void add(Shape* s, int side);
    // Pairs across the sides whose boxes, widened by margin, meet on all axes.
    void pairs(double margin, std::vector<std::pair<Shape*, Shape*>>& out);
};

// A pair of shapes whose boxes overlap on every axis: a node of the bounding
// tree. Two atomic shapes carry a separator; a pair with a MultiShape carries
// the sweep of its children against the other side, and the overlaps found
// there as its children.
struct Overlap {
    Shape* a;
    Shape* b;
    double tolerance;
    Separator* separator = nullptr;
    int slot = -1; // place in the root list; -1 below the root
    Overlap* parent = nullptr;
    Bound* sweep = nullptr;
    std::vector<Overlap*> children;
};

// Sweep and prune over the shapes the bodies carry: one sorted array of box
// ends per axis, insertion-sorted each pass so that coherent motion costs
// little. A pair with a MultiShape is resolved further down the tree.
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
    // The overlap of two shapes at any depth of the tree.
    Overlap* find(Shape* a, Shape* b) const;
    // The top-level overlaps.
    const std::vector<Overlap*>& overlaps() const { return overlaps_; }
    // Overlaps at every depth.
    int overlap_count() const { return count_; }
    int shape_count() const { return int(shapes_.size()); }
    bool candidate(Shape* a, Shape* b) const;

private:
    bool boxes_overlap(const Shape* a, const Shape* b) const;
    Overlap* make_overlap(Shape* a, Shape* b, Overlap* parent = nullptr);
    void delete_overlap(Overlap* o);
    // Runs the contact pass of an atomic pair, or the sweep below a pair with a MultiShape.
    void walk(Overlap* o);
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
    int count_ = 0;
    std::vector<std::pair<Shape*, Shape*>> found_;
};

} // namespace tessarin
