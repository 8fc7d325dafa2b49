#include "Tessarin/tessarin/bounds.h"

#include <algorithm>

#include "Tessarin/tessarin/body_system.h"
#include "Tessarin/tessarin/separator.h"

namespace tessarin {

BroadPhase::BroadPhase(BodySystem& sys) : sys_(sys) {}

BroadPhase::~BroadPhase() {
    clear();
}

namespace {
// Frees a subtree without touching its shapes, which may be gone already.
void free_tree(Overlap* o) {
    for (Overlap* c : o->children)
        free_tree(c);
    delete o->separator;
    delete o->sweep;
    delete o;
}
} // namespace

void BroadPhase::clear() {
    for (Overlap* o : overlaps_)
        free_tree(o);
    overlaps_.clear();
    count_ = 0;
    table_.clear();
    shapes_.clear();
    for (auto& a : axis_)
        a.clear();
    sorted_ = false;
}

namespace {
bool before(const bound& p, const bound& q) {
    if (p.value != q.value) return p.value < q.value;
    return p.is_min && !q.is_min; // touching boxes count as overlapping
}

// Plane systems test two axes; flat shapes have an empty z extent anyway.
bool meet(const Shape* a, const Shape* b, double margin, int axes = 3) {
    for (int k = 0; k < axes; ++k)
        if (a->world_bound.lo[k] - margin > b->world_bound.hi[k] + margin ||
            b->world_bound.lo[k] - margin > a->world_bound.hi[k] + margin)
            return false;
    return true;
}
} // namespace

void Bound::add(Shape* s, int side) {
    for (auto& a : axis) {
        a.push_back({true, 0, s});
        a.push_back({false, 0, s});
    }
    if (side == 1) side1.push_back(s);
    sorted = false;
}

void Bound::pairs(double margin, std::vector<std::pair<Shape*, Shape*>>& out) {
    out.clear();
    for (int k = 0; k < 3; ++k) {
        auto& a = axis[k];
        for (bound& e : a)
            e.value = e.is_min ? e.shape->world_bound.lo[k] - margin : e.shape->world_bound.hi[k] + margin;
        if (!sorted) {
            std::sort(a.begin(), a.end(), before);
            continue;
        }
        for (size_t i = 1; i < a.size(); ++i) {
            bound e = a[i];
            size_t j = i;
            while (j > 0 && before(e, a[j - 1])) {
                a[j] = a[j - 1];
                --j;
            }
            a[j] = e;
        }
    }
    sorted = true;
    auto on_side1 = [&](const Shape* s) { return std::find(side1.begin(), side1.end(), s) != side1.end(); };
    // Sweep of the first axis with an active list; the sides are small.
    std::vector<Shape*> active;
    for (const bound& e : axis[0]) {
        if (e.is_min) {
            const bool s1 = on_side1(e.shape);
            for (Shape* o : active)
                if (on_side1(o) != s1 && meet(o, e.shape, margin))
                    out.push_back(s1 ? std::make_pair(o, e.shape) : std::make_pair(e.shape, o));
            active.push_back(e.shape);
        } else {
            active.erase(std::find(active.begin(), active.end(), e.shape));
        }
    }
}

void BroadPhase::add_shape(Shape* s) {
    s->sweep_index = int(shapes_.size());
    shapes_.push_back(s);
    for (auto& a : axis_) {
        a.push_back({true, 0, s});
        a.push_back({false, 0, s});
    }
    sorted_ = false;
}

void BroadPhase::remove_body(Body* b) {
    for (int i = int(overlaps_.size()) - 1; i >= 0; --i) {
        Overlap* o = overlaps_[size_t(i)];
        if (o->a->body == b || o->b->body == b) delete_overlap(o);
    }
    shapes_.erase(std::remove_if(shapes_.begin(), shapes_.end(), [b](Shape* s) { return s->body == b; }),
                  shapes_.end());
    for (auto& a : axis_)
        a.erase(std::remove_if(a.begin(), a.end(), [b](const bound& e) { return e.shape->body == b; }),
                a.end());
    for (int i = 0; i < int(shapes_.size()); ++i)
        shapes_[size_t(i)]->sweep_index = i;
}

bool BroadPhase::candidate(Shape* a, Shape* b) const {
    Body* ba = a->body;
    Body* bb = b->body;
    if (ba == bb) return false;
    if (ba->prescribed && bb->prescribed) return false;
    int la = ba->collision_layer, lb = bb->collision_layer;
    if (la != lb && la >= 0 && lb >= 0) return false;
    if (sys_.allowed(a, b)) return false;
    if (sys_.pair_filter && !sys_.pair_filter(a, b)) return false;
    return true;
}

bool BroadPhase::boxes_overlap(const Shape* a, const Shape* b) const {
    return meet(a, b, margin_, sys_.dimension == 2 ? 2 : 3);
}

Overlap* BroadPhase::make_overlap(Shape* a, Shape* b, Overlap* parent) {
    if (table_.find(a, b) || !candidate(a, b)) return nullptr;
    Overlap* o = new Overlap;
    o->a = a;
    o->b = b;
    o->tolerance = sys_.tolerance;
    o->parent = parent;
    if (parent) {
        parent->children.push_back(o);
    } else {
        o->slot = int(overlaps_.size());
        overlaps_.push_back(o);
    }
    if (!a->is_atomic() || !b->is_atomic()) {
        // The children of a MultiShape against the other side, or the
        // children of both when both are.
        o->sweep = new Bound;
        if (!a->is_atomic())
            for (Shape* c : a->children)
                o->sweep->add(c, 0);
        else
            o->sweep->add(a, 0);
        if (!b->is_atomic())
            for (Shape* c : b->children)
                o->sweep->add(c, 1);
        else
            o->sweep->add(b, 1);
    }
    table_.insert(a, b, o);
    ++count_;
    return o;
}

void BroadPhase::delete_overlap(Overlap* o) {
    while (!o->children.empty())
        delete_overlap(o->children.back());
    table_.remove(o->a, o->b);
    if (sys_.overlap_table.find(o->a, o->b)) sys_.forget_interpenetration(o->a, o->b);
    if (o->separator == sys_.excluded) sys_.excluded = nullptr;
    if (o->separator == sys_.excluded_original) sys_.excluded_original = nullptr;
    delete o->separator;
    delete o->sweep;
    if (o->parent) {
        auto& kids = o->parent->children;
        kids.erase(std::find(kids.begin(), kids.end(), o));
    } else {
        Overlap* last = overlaps_.back();
        overlaps_[size_t(o->slot)] = last;
        last->slot = o->slot;
        overlaps_.pop_back();
    }
    --count_;
    delete o;
}

void BroadPhase::walk(Overlap* o) {
    if (!o->sweep) {
        sys_.contact_pass(*o);
        return;
    }
    o->sweep->pairs(margin_, found_);
    // found_ is reused further down: take the new pairs first.
    for (auto& pr : found_)
        make_overlap(pr.first, pr.second, o);
    for (int i = int(o->children.size()) - 1; i >= 0; --i) {
        if (i >= int(o->children.size())) continue;
        Overlap* c = o->children[size_t(i)];
        if (!boxes_overlap(c->a, c->b) || !candidate(c->a, c->b)) {
            if (!sys_.checking_only) delete_overlap(c);
            continue;
        }
        walk(c);
    }
}

Overlap* BroadPhase::find(Shape* a, Shape* b) const {
    return static_cast<Overlap*>(table_.lookup(a, b));
}

void BroadPhase::update_values() {
    for (auto& a : axis_)
        for (bound& e : a) {
            const box3& bx = e.shape->world_bound;
            int k = int(&a - axis_);
            e.value = e.is_min ? bx.lo[k] - margin_ : bx.hi[k] + margin_;
        }
}

void BroadPhase::full_sort() {
    for (auto& a : axis_)
        std::sort(a.begin(), a.end(), before);
    // All pairs from one sweep of the first axis with an active list.
    std::vector<Shape*> active;
    for (const bound& e : axis_[0]) {
        if (e.is_min) {
            for (Shape* s : active)
                if (boxes_overlap(s, e.shape)) make_overlap(s, e.shape);
            active.push_back(e.shape);
        } else {
            active.erase(std::find(active.begin(), active.end(), e.shape));
        }
    }
    sorted_ = true;
}

void BroadPhase::insertion_sort(int k) {
    auto& a = axis_[k];
    for (size_t i = 1; i < a.size(); ++i) {
        bound e = a[i];
        size_t j = i;
        while (j > 0 && before(e, a[j - 1])) {
            // A min passing a max to the left: the two have begun to overlap on this axis.
            if (e.is_min && !a[j - 1].is_min && boxes_overlap(e.shape, a[j - 1].shape))
                make_overlap(e.shape, a[j - 1].shape);
            a[j] = a[j - 1];
            --j;
        }
        a[j] = e;
    }
}

void BroadPhase::run() {
    margin_ = sys_.tolerance * 0.5;
    for (Shape* s : shapes_)
        s->refresh();
    update_values();
    if (!sorted_)
        full_sort();
    else
        for (int k = 0, axes = sys_.dimension == 2 ? 2 : 3; k < axes; ++k)
            insertion_sort(k);
    for (int i = int(overlaps_.size()) - 1; i >= 0; --i) {
        if (i >= int(overlaps_.size())) continue;
        Overlap* o = overlaps_[size_t(i)];
        if (o->a->body->prescribed && o->b->body->prescribed) continue;
        // Boxes apart, or a pair allowed through or vetoed since it was made.
        // A checking pass runs while the step's constraint lists hold the
        // pair's contacts: it leaves the pair for the next full pass.
        if (!boxes_overlap(o->a, o->b) || !candidate(o->a, o->b)) {
            if (!sys_.checking_only) delete_overlap(o);
            continue;
        }
        walk(o);
    }
}

} // namespace tessarin
