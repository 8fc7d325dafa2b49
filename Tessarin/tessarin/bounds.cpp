#include "Tessarin/tessarin/bounds.h"

#include <algorithm>

#include "Tessarin/tessarin/body_system.h"
#include "Tessarin/tessarin/separator.h"

namespace tessarin {

BroadPhase::BroadPhase(BodySystem& sys) : sys_(sys) {}

BroadPhase::~BroadPhase() {
    clear();
}

void BroadPhase::clear() {
    for (Overlap* o : overlaps_) {
        delete o->separator;
        delete o;
    }
    overlaps_.clear();
    table_.clear();
    shapes_.clear();
    for (auto& a : axis_)
        a.clear();
    sorted_ = false;
}

void BroadPhase::add_shape(Shape* s) {
    if (!s->is_atomic()) {
        std::vector<Shape*> leaves;
        static_cast<MultiShape*>(s)->leaves(leaves);
        for (Shape* l : leaves)
            add_shape(l);
        return;
    }
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
    for (int k = 0; k < 3; ++k)
        if (a->world_bound.lo[k] - margin_ > b->world_bound.hi[k] + margin_ ||
            b->world_bound.lo[k] - margin_ > a->world_bound.hi[k] + margin_)
            return false;
    return true;
}

void BroadPhase::make_overlap(Shape* a, Shape* b) {
    if (table_.find(a, b) || !candidate(a, b)) return;
    Overlap* o = new Overlap{a, b, sys_.tolerance, nullptr, int(overlaps_.size())};
    overlaps_.push_back(o);
    table_.insert(a, b, o);
}

void BroadPhase::delete_overlap(Overlap* o) {
    table_.remove(o->a, o->b);
    if (sys_.overlap_table.find(o->a, o->b)) sys_.forget_interpenetration(o->a, o->b);
    if (o->separator == sys_.excluded) sys_.excluded = nullptr;
    if (o->separator == sys_.excluded_original) sys_.excluded_original = nullptr;
    delete o->separator;
    Overlap* last = overlaps_.back();
    overlaps_[size_t(o->slot)] = last;
    last->slot = o->slot;
    overlaps_.pop_back();
    delete o;
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
        std::sort(a.begin(), a.end(), [](const bound& p, const bound& q) {
            if (p.value != q.value) return p.value < q.value;
            return p.is_min && !q.is_min; // touching boxes count as overlapping
        });
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
        while (j > 0 &&
               (a[j - 1].value > e.value || (a[j - 1].value == e.value && e.is_min && !a[j - 1].is_min))) {
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
        for (int k = 0; k < 3; ++k)
            insertion_sort(k);
    for (int i = int(overlaps_.size()) - 1; i >= 0; --i) {
        if (i >= int(overlaps_.size())) continue;
        Overlap* o = overlaps_[size_t(i)];
        if (o->a->body->prescribed && o->b->body->prescribed) continue;
        if (!boxes_overlap(o->a, o->b)) {
            delete_overlap(o);
            continue;
        }
        sys_.contact_pass(*o);
    }
}

} // namespace tessarin
