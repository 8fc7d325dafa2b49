#include "Tessarin/tessarin/separator2d.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "Tessarin/tessarin/body2d.h"
#include "Tessarin/tessarin/body_system.h"
#include "Tessarin/tessarin/contact2d.h"
#include "Tessarin/tessarin/messages.h"
#include "Tessarin/tessarin/poly2d.h"

namespace tessarin {

namespace {
const double inf = std::numeric_limits<double>::infinity();
}

// ---------------------------------------------------------------- polygon pairs

Separator* Poly2dPoly2dSeparator::clone() const {
    auto* s = new Poly2dPoly2dSeparator(*this);
    s->contacts.clear();
    return s;
}

double Poly2dPoly2dSeparator::edge_distance(const Poly2d* owner, int e, const Poly2d* other, int& vertex) {
    const triple& n = owner->world_normals[size_t(e)];
    vertex = other->support(-n);
    return n.dot(other->world_verts[size_t(vertex)]) - owner->world_offsets[size_t(e)];
}

double Poly2dPoly2dSeparator::current_distance() const {
    const Poly2d* a = static_cast<const Poly2d*>(shape1);
    const Poly2d* b = static_cast<const Poly2d*>(shape2);
    // The other's extreme vertex is found afresh: a stored one that has turned
    // away from the edge would overstate the gap.
    int v = 0;
    if (edge_on_first) return edge_distance(a, feature1, b, v);
    return edge_distance(b, feature2, a, v);
}

double Poly2dPoly2dSeparator::evaluate_distance() {
    if (!valid) {
        internal_error("Poly2dPoly2dSeparator:: evaluate_distance, but previously_defined == false");
        return inf;
    }
    shape1->refresh();
    shape2->refresh();
    return current_distance();
}

bool Poly2dPoly2dSeparator::fit(bool& clear, double& distance) {
    shape1->refresh();
    shape2->refresh();
    const Poly2d* a = static_cast<const Poly2d*>(shape1);
    const Poly2d* b = static_cast<const Poly2d*>(shape2);
    if (!a->ok || !b->ok) {
        // An empty polygon touches nothing.
        valid = false;
        clear = true;
        distance = inf;
        return true;
    }
    // Edges of the second shape against the first, then the other way; the
    // largest separation wins, the first found on ties.
    double best = -inf;
    for (int pass = 0; pass < 2; ++pass) {
        const bool first_owns = pass == 1;
        const Poly2d* owner = first_owns ? a : b;
        const Poly2d* other = first_owns ? b : a;
        for (int e = 0; e < owner->size(); ++e) {
            int v = 0;
            const double d = edge_distance(owner, e, other, v);
            if (d > best) {
                best = d;
                edge_on_first = first_owns;
                feature1 = first_owns ? e : v;
                feature2 = first_owns ? v : e;
            }
        }
    }
    distance = best;
    clear = best > tolerance;
    if (best < -tolerance) return false;
    valid = true;
    return true;
}

void Poly2dPoly2dSeparator::walk() {
    const Poly2d* a = static_cast<const Poly2d*>(shape1);
    const Poly2d* b = static_cast<const Poly2d*>(shape2);
    walk_tests = 0;
    {
        // The stored edge keeps its place; its vertex is the other's extreme one now.
        int v = 0;
        if (edge_on_first)
            edge_distance(a, feature1, b, v), feature2 = v;
        else
            edge_distance(b, feature2, a, v), feature1 = v;
    }
    double cur = current_distance();
    for (int guard = 0; guard < 64; ++guard) {
        const Poly2d* owner = edge_on_first ? a : b;
        const Poly2d* other = edge_on_first ? b : a;
        const int e = edge_on_first ? feature1 : feature2;
        const int vert = edge_on_first ? feature2 : feature1;
        const int n = owner->size(), m = other->size();
        // A step must gain more than rounding, so the walk cannot circle.
        double best = cur + 1e-12 * (1 + std::fabs(cur));
        bool moved = false, best_first = edge_on_first;
        int best_edge = e, best_vert = vert;
        auto consider = [&](bool first_owns, int edge) {
            const Poly2d* o = first_owns ? a : b;
            const Poly2d* t = first_owns ? b : a;
            int v = 0;
            ++walk_tests;
            const double d = edge_distance(o, edge, t, v);
            if (d > best) {
                best = d;
                moved = true;
                best_first = first_owns;
                best_edge = edge;
                best_vert = v;
            }
        };
        consider(edge_on_first, (e + 1) % n);
        consider(edge_on_first, (e + n - 1) % n);
        consider(!edge_on_first, vert);
        consider(!edge_on_first, (vert + m - 1) % m);
        if (!moved) return;
        edge_on_first = best_first;
        feature1 = best_first ? best_edge : best_vert;
        feature2 = best_first ? best_vert : best_edge;
        cur = best;
    }
}

// The stored witness walked to its best neighbour; true only when it shows the
// pair clear, which is constant work for a pair that turns a little.
bool Poly2dPoly2dSeparator::refit(bool& clear, double& distance) {
    if (!valid) return false;
    shape1->refresh();
    shape2->refresh();
    walk();
    const double d = current_distance();
    if (d <= tolerance) return false;
    clear = true;
    distance = d;
    return true;
}

void Poly2dPoly2dSeparator::make_contact() {
    const Poly2d* a = static_cast<const Poly2d*>(shape1);
    const Poly2d* b = static_cast<const Poly2d*>(shape2);
    if (!valid || !a->ok || !b->ok) return;
    const double T = tolerance;
    bool first = edge_on_first;
    int e = edge_on_first ? feature1 : feature2;
    {
        // Two facing edges measure alike; the longer one is the reference, so
        // the contact points are the shorter edge's corners and move with their
        // body. Points clipped out of a long edge by a short one would stay
        // behind on the long edge's body, and a sliding pair would shed its
        // contacts, and their force estimates, every few band widths.
        const Poly2d* o = first ? a : b;
        const Poly2d* t = first ? b : a;
        const triple& eo0 = o->world_verts[size_t(e)];
        const double len = (o->world_verts[size_t((e + 1) % o->size())] - eo0).length();
        int v = 0;
        const double d = edge_distance(o, e, t, v);
        for (int f = 0; f < t->size(); ++f) {
            if (t->world_normals[size_t(f)].dot(o->world_normals[size_t(e)]) > -0.999) continue;
            const double lf =
                (t->world_verts[size_t((f + 1) % t->size())] - t->world_verts[size_t(f)]).length();
            int w = 0;
            if (lf > len * (1 + 1e-9) && edge_distance(t, f, o, w) >= d - 0.1 * T) {
                first = !first;
                e = f;
                break;
            }
        }
    }
    const Poly2d* owner = first ? a : b;
    const Poly2d* other = first ? b : a;
    const RigidBody* other_body = static_cast<const RigidBody*>(first ? body2 : body1);
    const triple nf = owner->world_normals[size_t(e)];
    const double off = owner->world_offsets[size_t(e)];

    // The other polygon's most opposed edge, clipped to the reference edge's span.
    int inc = 0;
    double most = inf;
    for (int f = 0; f < other->size(); ++f) {
        const double d = other->world_normals[size_t(f)].dot(nf);
        if (d < most) {
            most = d;
            inc = f;
        }
    }
    const triple& ra = owner->world_verts[size_t(e)];
    const triple& rb = owner->world_verts[size_t((e + 1) % owner->size())];
    const triple t = rb - ra;
    const double t_lo = 0, t_hi = t.dot(t);
    triple p = other->world_verts[size_t(inc)];
    triple q = other->world_verts[size_t((inc + 1) % other->size())];
    const double sp = t.dot(p - ra), sq = t.dot(q - ra);
    if (std::fabs(sq - sp) > 1e-300) {
        const triple pq = q - p;
        const double u0 = std::clamp((t_lo - sp) / (sq - sp), 0.0, 1.0);
        const double u1 = std::clamp((t_hi - sp) / (sq - sp), 0.0, 1.0);
        const triple c0 = p + pq * std::min(u0, u1), c1 = p + pq * std::max(u0, u1);
        p = c0;
        q = c1;
    }
    triple points[2] = {p, q};
    int n_taken = 0;
    triple taken[2];
    for (const triple& c : points) {
        const double s = t.dot(c - ra);
        if (s < t_lo - 1e-9 * t_hi || s > t_hi * (1 + 1e-9)) continue; // incident edge beside the span
        const double depth = nf.dot(c) - off;
        if (depth > T) continue;
        // A second point within the band of one taken is only a dependent row.
        if (n_taken == 1 && (taken[0] - c).length() < T) continue;
        taken[n_taken++] = c;
        const triple proj = c - nf * depth;
        const triple n = first ? -nf : nf;
        const triple p1 = first ? proj : c, p2 = first ? c : proj;
        Contact* found = find_same(p1, p2, n);
        auto* k =
            found ? static_cast<Poly2dPoly2dContact*>(found) : new Poly2dPoly2dContact(system, body1, body2);
        k->edge_on_body1 = first;
        k->edge_normal_local = owner->normals[size_t(e)];
        k->edge_offset_local = owner->offsets[size_t(e)];
        k->local_point = other_body->to_local_point(c);
        k->recompute_geometry();
        keep(k);
    }
}

// ---------------------------------------------------------------- point and polygon

Separator* PointPoly2dSeparator::clone() const {
    auto* s = new PointPoly2dSeparator(*this);
    s->contacts.clear();
    return s;
}

double PointPoly2dSeparator::closest(const Poly2d* p, const triple& c, bool& vertex, int& index) {
    const int n = p->size();
    double best_plane = -inf;
    int best_edge = 0;
    for (int e = 0; e < n; ++e) {
        const double d = p->world_normals[size_t(e)].dot(c) - p->world_offsets[size_t(e)];
        if (d > best_plane) {
            best_plane = d;
            best_edge = e;
        }
    }
    vertex = false;
    index = best_edge;
    if (best_plane <= 0) return best_plane; // inside: the nearest edge line
    // Outside: the nearest point of the boundary, on an edge or at a corner.
    double best = inf;
    for (int e = 0; e < n; ++e) {
        const triple& a = p->world_verts[size_t(e)];
        const triple ab = p->world_verts[size_t((e + 1) % n)] - a;
        const double s = (c - a).dot(ab) / ab.length2();
        bool at_v = false;
        int idx = e;
        triple q;
        if (s <= 0) {
            q = a, at_v = true;
        } else if (s >= 1) {
            q = a + ab, at_v = true, idx = (e + 1) % n;
        } else {
            q = a + ab * s;
        }
        const double d = (c - q).length();
        if (d < best) {
            best = d;
            vertex = at_v;
            index = idx;
        }
    }
    return best;
}

double PointPoly2dSeparator::evaluate_distance() {
    if (!valid) {
        internal_error("PointPoly2dSeparator:: evaluate_distance, but previously_defined == false");
        return inf;
    }
    shape1->refresh();
    shape2->refresh();
    bool v;
    int i;
    return closest(static_cast<const Poly2d*>(shape2), static_cast<const CorPoint*>(shape1)->world_point, v,
                   i);
}

bool PointPoly2dSeparator::fit(bool& clear, double& distance) {
    shape1->refresh();
    shape2->refresh();
    const Poly2d* p = static_cast<const Poly2d*>(shape2);
    if (!p->ok) {
        valid = false;
        clear = true;
        distance = inf;
        return true;
    }
    const double d = closest(p, static_cast<const CorPoint*>(shape1)->world_point, at_vertex, feature);
    distance = d;
    clear = d > tolerance;
    if (d < -tolerance) return false;
    valid = true;
    return true;
}

void PointPoly2dSeparator::make_contact() {
    const Poly2d* p = static_cast<const Poly2d*>(shape2);
    if (!valid || !p->ok) return;
    const CorPoint* pt = static_cast<const CorPoint*>(shape1);
    const auto f = at_vertex ? PointPoly2dContact::VERTEX : PointPoly2dContact::EDGE;
    // A contact on the same feature is kept; one on another feature is replaced.
    for (Contact* c : contacts) {
        auto* k = static_cast<PointPoly2dContact*>(c);
        if (k->feature == f && k->feature_index == feature) {
            k->recompute_geometry();
            keep(k);
            return;
        }
    }
    auto* k = new PointPoly2dContact(system, body1, body2, pt->point, p, f, feature);
    keep(k);
}

} // namespace tessarin
