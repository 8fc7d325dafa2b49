#include "Tessarin/tessarin/separator.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "Tessarin/tessarin/body_system.h"
#include "Tessarin/tessarin/contact.h"
#include "Tessarin/tessarin/messages.h"
#include "Tessarin/tessarin/separator2d.h"
#include "Tessarin/tessarin/shape.h"

namespace tessarin {

namespace {

const double inf = std::numeric_limits<double>::infinity();

// World centre, radius and local centre of a sphere or a point.
void round_shape(const Shape* s, triple& world, double& r, triple& local) {
    if (s->shape_type == SHAPE_SPHERE) {
        const CSphere* c = static_cast<const CSphere*>(s);
        world = c->world_centre;
        r = c->radius;
        local = c->centre;
    } else {
        const CorPoint* p = static_cast<const CorPoint*>(s);
        world = p->world_point;
        r = 0;
        local = p->point;
    }
}

} // namespace

Separator::Separator(BodySystem* sys, Shape* a, Shape* b) : Obstacle(sys), shape1(a), shape2(b) {
    body1 = a->body;
    body2 = b->body;
    tolerance = sys->tolerance;
}

Separator::~Separator() {
    drop_contacts();
}

void Separator::drop_contacts() {
    for (Contact* c : contacts) {
        c->owner = nullptr;
        system->remove_contact(c);
    }
    contacts.clear();
}

bool Separator::listed() const {
    return system->overlap_table.find(shape1, shape2);
}

bool Separator::refit(bool& clear, double& distance) {
    if (!valid) return false;
    double d = evaluate_distance();
    if (d > tolerance) {
        clear = true;
        distance = d;
        return true;
    }
    return false;
}

Contact* Separator::find_same(const triple& p1, const triple& p2, const triple& n) const {
    for (Contact* c : contacts)
        if (c->same_as(p1, p2, n)) return c;
    return nullptr;
}

void Separator::keep(Contact* c) {
    c->seen = true;
    if (c->owner == this) return;
    c->owner = this;
    contacts.push_back(c);
    system->register_contact(c);
}

// ---------------------------------------------------------------- spheres and points

Separator* SphereSphereSeparator::clone() const {
    auto* s = new SphereSphereSeparator(*this);
    s->contacts.clear();
    return s;
}

Separator* PointSphereSeparator::clone() const {
    auto* s = new PointSphereSeparator(*this);
    s->contacts.clear();
    return s;
}

double SphereSphereSeparator::evaluate_distance() {
    shape1->refresh();
    shape2->refresh();
    triple c1, c2, l;
    double r1, r2;
    round_shape(shape1, c1, r1, l);
    round_shape(shape2, c2, r2, l);
    return (c1 - c2).length() - (r1 + r2);
}

bool SphereSphereSeparator::fit(bool& clear, double& distance) {
    distance = evaluate_distance();
    clear = distance > tolerance;
    if (distance < -tolerance) return false;
    valid = true;
    return true;
}

void SphereSphereSeparator::make_contact() {
    triple c1, c2, l1, l2;
    double r1, r2;
    round_shape(shape1, c1, r1, l1);
    round_shape(shape2, c2, r2, l2);
    if (!contacts.empty()) {
        keep(contacts.front());
        return;
    }
    Contact* c = shape1->shape_type == SHAPE_POINT
                     ? new PointSphereContact(system, body1, body2, l1, r1, l2, r2)
                     : new SphereSphereContact(system, body1, body2, l1, r1, l2, r2);
    keep(c);
}

Separator* PointPointSeparator::clone() const {
    auto* s = new PointPointSeparator(*this);
    s->contacts.clear();
    return s;
}

double PointPointSeparator::evaluate_distance() {
    internal_error("PointPointSeparator::evaluate_distance: called");
    return inf;
}

bool PointPointSeparator::fit(bool& clear, double& distance) {
    // Two points never touch.
    distance = inf;
    clear = true;
    valid = true;
    return true;
}

// ---------------------------------------------------------------- sphere and polyhedron

Separator* SpherePoly3dSeparator::clone() const {
    auto* s = new SpherePoly3dSeparator(*this);
    s->contacts.clear();
    return s;
}

Separator* PointPoly3dSeparator::clone() const {
    auto* s = new PointPoly3dSeparator(*this);
    s->contacts.clear();
    return s;
}

double SpherePoly3dSeparator::closest(const triple& c, int& feat, int& index, triple& q) const {
    const Poly3d* p = static_cast<const Poly3d*>(shape2);
    const auto& faces = p->poly.faces;
    int best_face = 0;
    double best_plane = -inf;
    for (int f = 0; f < int(faces.size()); ++f) {
        double dp = p->world_normals[size_t(f)].dot(c) - p->world_offsets[size_t(f)];
        if (dp > best_plane) {
            best_plane = dp;
            best_face = f;
        }
    }
    if (best_plane <= 0) {
        feat = 0;
        index = best_face;
        q = c - p->world_normals[size_t(best_face)] * best_plane;
        return best_plane;
    }
    double best = inf;
    for (int f = 0; f < int(faces.size()); ++f) {
        const triple& n = p->world_normals[size_t(f)];
        double dp = n.dot(c) - p->world_offsets[size_t(f)];
        if (dp <= 0) continue;
        triple proj = c - n * dp;
        const auto& vs = faces[size_t(f)].verts;
        bool inside = true;
        for (size_t k = 0; k < vs.size() && inside; ++k) {
            const triple& a = p->world_verts[size_t(vs[k])];
            const triple& b = p->world_verts[size_t(vs[(k + 1) % vs.size()])];
            if ((b - a).cross(proj - a).dot(n) < -1e-12) inside = false;
        }
        if (inside) {
            if (dp < best) {
                best = dp;
                feat = 0;
                index = f;
                q = proj;
            }
            continue;
        }
        for (size_t k = 0; k < vs.size(); ++k) {
            const triple& a = p->world_verts[size_t(vs[k])];
            const triple& b = p->world_verts[size_t(vs[(k + 1) % vs.size()])];
            triple ab = b - a;
            double t = std::clamp((c - a).dot(ab) / std::max(ab.length2(), 1e-300), 0.0, 1.0);
            triple cand = a + ab * t;
            double d = (c - cand).length();
            if (d < best) {
                best = d;
                q = cand;
                if (t <= 0 || t >= 1) {
                    feat = 2;
                    index = t <= 0 ? vs[k] : vs[(k + 1) % vs.size()];
                } else {
                    feat = 1;
                    if (k >= faces[size_t(f)].edges.size()) {
                        internal_error(
                            "partition(spherepoly3ds): edge in convex polyhedron without adjoining face");
                        index = 0;
                    } else {
                        index = faces[size_t(f)].edges[k];
                    }
                }
            }
        }
    }
    return best;
}

double SpherePoly3dSeparator::walk_from(const triple& c, int& feat, int& index, triple& q) const {
    const Poly3d* p = static_cast<const Poly3d*>(shape2);
    const auto& V = p->world_verts;
    const auto& E = p->poly.edges;
    const auto& F = p->poly.faces;
    for (int guard = 0; guard < 64; ++guard) {
        if (feat == 2) {
            // A vertex holds c unless c lies ahead of it along an edge.
            const triple& v = V[size_t(index)];
            int next = -1;
            double best = 0;
            for (int e : p->poly.vertices[size_t(index)].edges) {
                const int w = E[size_t(e)].v[0] == index ? E[size_t(e)].v[1] : E[size_t(e)].v[0];
                const triple d = V[size_t(w)] - v;
                const double ahead = (c - v).dot(d) / d.length();
                if (ahead > best) {
                    best = ahead;
                    next = e;
                }
            }
            if (next < 0) {
                q = v;
                return (c - v).length();
            }
            feat = 1;
            index = next;
        } else if (feat == 1) {
            // An edge: past an end goes to that vertex, over the line into a
            // face's side goes to the face.
            const Poly3dEdge& ed = E[size_t(index)];
            const triple& a = V[size_t(ed.v[0])];
            const triple d = V[size_t(ed.v[1])] - a;
            const double t = (c - a).dot(d) / d.length2();
            if (t <= 0 || t >= 1) {
                feat = 2;
                index = t <= 0 ? ed.v[0] : ed.v[1];
                continue;
            }
            int next = -1;
            double best = 0;
            for (int f : ed.f) {
                if (f < 0) continue;
                triple u = p->world_normals[size_t(f)].cross(d);
                for (int vi : F[size_t(f)].verts)
                    if (vi != ed.v[0] && vi != ed.v[1]) {
                        if (u.dot(V[size_t(vi)] - a) < 0) u = -u;
                        break;
                    }
                const double into = (c - a).dot(u) / u.length();
                if (into > best) {
                    best = into;
                    next = f;
                }
            }
            if (next < 0) {
                q = a + d * t;
                return (c - q).length();
            }
            feat = 0;
            index = next;
        } else {
            // A face holds c if c is above it and inside every edge.
            const triple& n = p->world_normals[size_t(index)];
            const double dp = n.dot(c) - p->world_offsets[size_t(index)];
            if (dp < 0) return -inf;
            const triple proj = c - n * dp;
            const auto& vs = F[size_t(index)].verts;
            int next = -1;
            double worst = -1e-12;
            for (size_t k = 0; k < vs.size(); ++k) {
                const triple& a = V[size_t(vs[k])];
                const triple& b = V[size_t(vs[(k + 1) % vs.size()])];
                const double side = (b - a).cross(proj - a).dot(n) / (b - a).length();
                if (side < worst) {
                    worst = side;
                    next = int(k);
                }
            }
            if (next < 0) {
                q = proj;
                return dp;
            }
            feat = 1;
            index = F[size_t(index)].edges[size_t(next)];
        }
    }
    return -inf;
}

double SpherePoly3dSeparator::measure(const triple& c, int& feat, int& index, triple& q) const {
    if (valid) {
        int f = feat, i = index;
        const double d = walk_from(c, f, i, q);
        if (d > -inf) {
            feat = f;
            index = i;
            return d;
        }
    }
    return closest(c, feat, index, q);
}

double SpherePoly3dSeparator::evaluate_distance() {
    if (!valid) {
        internal_error(shape1->shape_type == SHAPE_POINT
                           ? "PointPoly3dSeparator:: evaluate_distance, but previously_defined == false"
                           : "SpherePoly3dSeparator:: evaluate_distance, but previously_defined == false");
        return inf;
    }
    shape1->refresh();
    shape2->refresh();
    triple c, l, q;
    double r;
    round_shape(shape1, c, r, l);
    int f = feature, i = feature_index;
    return measure(c, f, i, q) - r;
}

bool SpherePoly3dSeparator::fit(bool& clear, double& distance) {
    shape1->refresh();
    shape2->refresh();
    triple c, l, q;
    double r;
    round_shape(shape1, c, r, l);
    distance = measure(c, feature, feature_index, q) - r;
    clear = distance > tolerance;
    if (distance < -tolerance) return false;
    valid = true;
    return true;
}

void SpherePoly3dSeparator::make_contact() {
    triple c, l, q;
    double r;
    round_shape(shape1, c, r, l);
    auto feat = SpherePoly3dContact::Feature(feature);
    Poly3d* poly = static_cast<Poly3d*>(shape2);
    if (!contacts.empty()) {
        auto* k = static_cast<SpherePoly3dContact*>(contacts.front());
        k->feature = feat;
        k->feature_index = feature_index;
        k->recompute_geometry();
        keep(k);
        return;
    }
    Contact* k = shape1->shape_type == SHAPE_POINT
                     ? new PointPoly3dContact(system, body1, body2, l, r, poly, feat, feature_index)
                     : new SpherePoly3dContact(system, body1, body2, l, r, poly, feat, feature_index);
    keep(k);
}

// ---------------------------------------------------------------- two polyhedra

Separator* Poly3dPoly3dSeparator::clone() const {
    auto* s = new Poly3dPoly3dSeparator(*this);
    s->contacts.clear();
    return s;
}

double Poly3dPoly3dSeparator::face_distance(bool first_owns, int face, int& vertex) const {
    const Poly3d* owner = static_cast<const Poly3d*>(first_owns ? shape1 : shape2);
    const Poly3d* other = static_cast<const Poly3d*>(first_owns ? shape2 : shape1);
    const triple& n = owner->world_normals[size_t(face)];
    double off = owner->world_offsets[size_t(face)];
    double best = inf;
    for (int v = 0; v < int(other->world_verts.size()); ++v) {
        double d = n.dot(other->world_verts[size_t(v)]) - off;
        if (d < best) {
            best = d;
            vertex = v;
        }
    }
    return best;
}

namespace {
void projection(const Poly3d* p, const triple& n, double& lo, double& hi) {
    lo = inf;
    hi = -inf;
    for (const triple& v : p->world_verts) {
        double d = n.dot(v);
        lo = std::min(lo, d);
        hi = std::max(hi, d);
    }
}

triple mean_vertex(const Poly3d* p) {
    triple s;
    for (const triple& v : p->world_verts)
        s += v;
    return s / double(p->world_verts.size());
}
} // namespace

// Separation along the cross product of two edges, oriented from shape1 to
// shape2 (sgn gives the orientation used).
double Poly3dPoly3dSeparator::edge_distance(int e1, int e2, double& sgn) const {
    const Poly3d* a = static_cast<const Poly3d*>(shape1);
    const Poly3d* b = static_cast<const Poly3d*>(shape2);
    const Poly3dEdge& ea = a->poly.edges[size_t(e1)];
    const Poly3dEdge& eb = b->poly.edges[size_t(e2)];
    triple da = a->world_verts[size_t(ea.v[1])] - a->world_verts[size_t(ea.v[0])];
    triple db = b->world_verts[size_t(eb.v[1])] - b->world_verts[size_t(eb.v[0])];
    triple n = da.cross(db);
    double len = n.length();
    if (len < 1e-6 * da.length() * db.length()) return -inf;
    n = n / len;
    if (sgn == 0) sgn = n.dot(mean_vertex(b) - mean_vertex(a)) >= 0 ? 1 : -1;
    n = n * sgn;
    double alo, ahi, blo, bhi;
    projection(a, n, alo, ahi);
    projection(b, n, blo, bhi);
    // Only edges on the facing supports witness this axis.
    const double slack = 1e-9 * (1 + std::fabs(ahi) + std::fabs(blo));
    if (n.dot(a->world_verts[size_t(ea.v[0])]) < ahi - slack ||
        n.dot(b->world_verts[size_t(eb.v[0])]) > blo + slack)
        return -inf;
    return blo - ahi;
}

double Poly3dPoly3dSeparator::current_distance() const {
    if (kind == 2) {
        double s = side;
        return edge_distance(feature1, feature2, s);
    }
    int v = 0;
    double d = face_on_first ? face_distance(true, feature1, v) : face_distance(false, feature2, v);
    return outside ? d : -d;
}

double Poly3dPoly3dSeparator::evaluate_distance() {
    if (!valid) {
        internal_error("Poly3dPoly3dSeparator:: evaluate_distance, but previously_defined == false");
        return inf;
    }
    shape1->refresh();
    shape2->refresh();
    return current_distance();
}

void Poly3dPoly3dSeparator::walk() {
    const Poly3d* a = static_cast<const Poly3d*>(shape1);
    const Poly3d* b = static_cast<const Poly3d*>(shape2);
    walk_tests = 0;
    // An edge pair that has turned off its supports measures -inf: any
    // neighbour is better.
    double cur = current_distance();
    for (int guard = 0; guard < 256; ++guard) {
        int bk = 0, bf1 = 0, bf2 = 0;
        bool bfirst = false;
        // A step must gain more than rounding, so the walk cannot circle.
        double bside = 0, best = std::isfinite(cur) ? cur + 1e-12 * (1 + std::fabs(cur)) : -inf;
        auto try_face = [&](bool first_owns, int f) {
            int v = 0;
            ++walk_tests;
            double d = face_distance(first_owns, f, v);
            if (d > best) {
                best = d;
                bk = 1;
                bfirst = first_owns;
                bf1 = first_owns ? f : v;
                bf2 = first_owns ? v : f;
            }
        };
        auto try_edges = [&](int e1, int e2) {
            double s = 0;
            ++walk_tests;
            double d = edge_distance(e1, e2, s);
            if (d > best) {
                best = d;
                bk = 2;
                bf1 = e1;
                bf2 = e2;
                bside = s;
            }
        };
        if (kind == 2) {
            const Poly3dEdge& ea = a->poly.edges[size_t(feature1)];
            const Poly3dEdge& eb = b->poly.edges[size_t(feature2)];
            for (int f : ea.f)
                if (f >= 0) try_face(true, f);
            for (int f : eb.f)
                if (f >= 0) try_face(false, f);
            for (int v : ea.v)
                for (int e : a->poly.vertices[size_t(v)].edges)
                    if (e != feature1) try_edges(e, feature2);
            for (int v : eb.v)
                for (int e : b->poly.vertices[size_t(v)].edges)
                    if (e != feature2) try_edges(feature1, e);
        } else {
            const Poly3d* owner = face_on_first ? a : b;
            const Poly3d* other = face_on_first ? b : a;
            const int face = face_on_first ? feature1 : feature2;
            const int vert = face_on_first ? feature2 : feature1;
            const Poly3dFace& fc = owner->poly.faces[size_t(face)];
            for (int e : fc.edges) {
                const Poly3dEdge& ed = owner->poly.edges[size_t(e)];
                int g = ed.f[0] == face ? ed.f[1] : ed.f[0];
                if (g >= 0) try_face(face_on_first, g);
            }
            for (int e : other->poly.vertices[size_t(vert)].edges)
                for (int f : other->poly.edges[size_t(e)].f)
                    if (f >= 0) try_face(!face_on_first, f);
            for (int e : fc.edges)
                for (int e2 : other->poly.vertices[size_t(vert)].edges) {
                    if (face_on_first)
                        try_edges(e, e2);
                    else
                        try_edges(e2, e);
                }
        }
        if (bk == 0) return;
        kind = bk;
        outside = true;
        if (bk == 1) face_on_first = bfirst;
        feature1 = bf1;
        feature2 = bf2;
        if (bk == 2) side = bside;
        cur = best;
    }
}

bool Poly3dPoly3dSeparator::first_witness(double& distance) {
    const Poly3d* a = static_cast<const Poly3d*>(shape1);
    const Poly3d* b = static_cast<const Poly3d*>(shape2);
    const double T = tolerance;
    double most = -inf;
    int v = 0;
    outside = true;
    for (int pass = 0; pass < 2; ++pass) {
        const bool first_owns = pass == 1;
        const Poly3d* owner = first_owns ? a : b;
        for (int f = 0; f < int(owner->poly.faces.size()); ++f) {
            double d = face_distance(first_owns, f, v);
            most = std::max(most, d);
            if (d >= -T) {
                kind = 1;
                face_on_first = first_owns;
                feature1 = first_owns ? f : v;
                feature2 = first_owns ? v : f;
                distance = d;
                return true;
            }
        }
    }
    for (int i = 0; i < int(a->poly.edges.size()); ++i)
        for (int j = 0; j < int(b->poly.edges.size()); ++j) {
            double s = 0;
            double d = edge_distance(i, j, s);
            most = std::max(most, d);
            if (d >= -T) {
                kind = 2;
                feature1 = i;
                feature2 = j;
                side = s;
                distance = d;
                return true;
            }
        }
    distance = most;
    return false;
}

double Poly3dPoly3dSeparator::best_witness() {
    const Poly3d* a = static_cast<const Poly3d*>(shape1);
    const Poly3d* b = static_cast<const Poly3d*>(shape2);
    double best = -inf;
    int v = 0;
    outside = true;
    for (int f = 0; f < int(a->poly.faces.size()); ++f) {
        double d = face_distance(true, f, v);
        if (d > best) {
            best = d;
            kind = 1;
            face_on_first = true;
            feature1 = f;
            feature2 = v;
        }
    }
    for (int f = 0; f < int(b->poly.faces.size()); ++f) {
        double d = face_distance(false, f, v);
        if (d > best) {
            best = d;
            kind = 1;
            face_on_first = false;
            feature2 = f;
            feature1 = v;
        }
    }
    // An edge pair must beat the faces by a tenth of the band: near a tie the
    // face gives the steadier contacts.
    const double face_best = best;
    for (int i = 0; i < int(a->poly.edges.size()); ++i)
        for (int j = 0; j < int(b->poly.edges.size()); ++j) {
            double s = 0;
            double d = edge_distance(i, j, s);
            if (d > best && d > face_best + 0.1 * tolerance) {
                best = d;
                kind = 2;
                feature1 = i;
                feature2 = j;
                side = s;
            }
        }
    return best;
}

// The stored witness, walked to its best neighbour; true only when it shows
// the pair clear, which is constant work for a pair that turns a little.
bool Poly3dPoly3dSeparator::refit(bool& clear, double& distance) {
    if (!valid) return false;
    shape1->refresh();
    shape2->refresh();
    walk();
    double d = current_distance();
    if (d > tolerance) {
        clear = true;
        distance = d;
        return true;
    }
    return false;
}

// The first witness within the band, walked to the best one near it. A pair
// that ends within the band gets every face and edge pair looked at: its
// contacts come from the features, and a walk can stop short between two
// nearly parallel faces.
bool Poly3dPoly3dSeparator::fit(bool& clear, double& distance) {
    shape1->refresh();
    shape2->refresh();
    double d = 0;
    const bool found = first_witness(d);
    if (found) {
        walk();
        d = current_distance();
        if (d <= tolerance) d = best_witness();
    } else {
        // Overlapping: the deepest witness still measures, for the search
        // that brackets the clash.
        d = best_witness();
    }
    distance = d;
    clear = d > tolerance;
    if (!found || d < -tolerance) return false;
    valid = true;
    return true;
}

void Poly3dPoly3dSeparator::make_contact() {
    const Poly3d* a = static_cast<const Poly3d*>(shape1);
    const Poly3d* b = static_cast<const Poly3d*>(shape2);
    const RigidBody* r1 = static_cast<const RigidBody*>(body1);
    const RigidBody* r2 = static_cast<const RigidBody*>(body2);
    const double T = tolerance;

    if (kind == 2) {
        const Poly3dEdge& ea = a->poly.edges[size_t(feature1)];
        const Poly3dEdge& eb = b->poly.edges[size_t(feature2)];
        triple a0 = a->world_verts[size_t(ea.v[0])], a1 = a->world_verts[size_t(ea.v[1])];
        triple b0 = b->world_verts[size_t(eb.v[0])], b1 = b->world_verts[size_t(eb.v[1])];
        triple da = a1 - a0, db = b1 - b0, w0 = a0 - b0;
        double aa = da.dot(da), ab = da.dot(db), bb = db.dot(db), d = da.dot(w0), e = db.dot(w0);
        double den = aa * bb - ab * ab;
        if (den < 1e-12) return;
        double s = (ab * e - bb * d) / den, t = (aa * e - ab * d) / den;
        // The crossing must lie within both edges.
        if (s < -1e-12 || s > 1 + 1e-12 || t < -1e-12 || t > 1 + 1e-12) return;
        triple p1 = a0 + da * s, p2 = b0 + db * t;
        triple n = da.cross(db).normalised() * -side;
        Contact* c = find_same(p1, p2, n);
        auto* k = c ? static_cast<Poly3dPoly3dContact*>(c) : new Poly3dPoly3dContact(system, body1, body2);
        k->edge_mode = true;
        k->e1a = a->poly.vertices[size_t(ea.v[0])].p;
        k->e1b = a->poly.vertices[size_t(ea.v[1])].p;
        k->e2a = b->poly.vertices[size_t(eb.v[0])].p;
        k->e2b = b->poly.vertices[size_t(eb.v[1])].p;
        k->edge_sign = -side;
        k->recompute_geometry();
        keep(k);
        return;
    }

    // Face and vertex: clip the other body's most opposed face against the
    // reference face's sides; every clipped point within the band is a contact.
    const Poly3d* owner = face_on_first ? a : b;
    const Poly3d* other = face_on_first ? b : a;
    const RigidBody* other_body = face_on_first ? r2 : r1;
    const int face = face_on_first ? feature1 : feature2;
    const Poly3dFace& ref = owner->poly.faces[size_t(face)];
    const triple nf = owner->world_normals[size_t(face)];
    const double off = owner->world_offsets[size_t(face)];

    int inc = 0;
    double most = inf;
    for (int f = 0; f < int(other->poly.faces.size()); ++f) {
        double d = other->world_normals[size_t(f)].dot(nf);
        if (d < most) {
            most = d;
            inc = f;
        }
    }
    triple poly_buf[2][64];
    int count = 0;
    for (int vi : other->poly.faces[size_t(inc)].verts)
        if (count < 64) poly_buf[0][count++] = other->world_verts[size_t(vi)];
    int cur = 0;
    const auto& rv = ref.verts;
    for (size_t k = 0; k < rv.size() && count > 0; ++k) {
        const triple& pa = owner->world_verts[size_t(rv[k])];
        const triple& pb = owner->world_verts[size_t(rv[(k + 1) % rv.size()])];
        triple side_n = (pb - pa).cross(nf);
        int out = 0;
        for (int i = 0; i < count; ++i) {
            const triple& p = poly_buf[cur][i];
            const triple& q = poly_buf[cur][(i + 1) % count];
            double dp = side_n.dot(p - pa), dq = side_n.dot(q - pa);
            if (dp <= 0 && out < 64) poly_buf[1 - cur][out++] = p;
            if ((dp < 0 && dq > 0) || (dp > 0 && dq < 0)) {
                double t = dp / (dp - dq);
                if (out < 64) poly_buf[1 - cur][out++] = p + (q - p) * t;
            }
        }
        cur = 1 - cur;
        count = out;
    }
    const RigidBody* owner_body = face_on_first ? r1 : r2;
    // Clipping a slightly turned face leaves points a hair apart near the
    // corners; a second contact there is only a dependent row, so points
    // closer than the band to one already taken are dropped.
    triple taken[64];
    int n_taken = 0;
    for (int i = 0; i < count; ++i) {
        const triple& p = poly_buf[cur][i];
        double depth = nf.dot(p) - off;
        if (depth > T) continue;
        bool near = false;
        for (int j = 0; j < n_taken && !near; ++j)
            near = (taken[j] - p).length() < T;
        if (near) continue;
        taken[n_taken++] = p;
        triple proj = p - nf * depth;
        triple n = face_on_first ? -nf : nf;
        triple p1 = face_on_first ? proj : p, p2 = face_on_first ? p : proj;
        Contact* c = find_same(p1, p2, n);
        auto* k = c ? static_cast<Poly3dPoly3dContact*>(c) : new Poly3dPoly3dContact(system, body1, body2);
        k->edge_mode = false;
        k->face_on_body1 = face_on_first;
        k->face_normal_local = ref.normal;
        k->face_offset_local = ref.offset;
        k->local_point = other_body->to_local_point(p);
        (void)owner_body;
        k->recompute_geometry();
        keep(k);
    }
}

// ---------------------------------------------------------------- selection

Separator* new_separator(BodySystem& sys, Shape* a, Shape* b) {
    int ta = a->shape_type, tb = b->shape_type;
    auto is = [&](int x, int y) { return (ta == x && tb == y) || (ta == y && tb == x); };
    // Order the pair as the table has it.
    auto first_is = [&](int x) {
        if (ta != x) std::swap(a, b);
    };
    if (is(SHAPE_POLY3D, SHAPE_POLY3D)) return new Poly3dPoly3dSeparator(&sys, a, b);
    if (is(SHAPE_SPHERE, SHAPE_POLY3D)) {
        first_is(SHAPE_SPHERE);
        return new SpherePoly3dSeparator(&sys, a, b);
    }
    if (is(SHAPE_POINT, SHAPE_POLY3D)) {
        first_is(SHAPE_POINT);
        return new PointPoly3dSeparator(&sys, a, b);
    }
    if (is(SHAPE_SPHERE, SHAPE_SPHERE)) return new SphereSphereSeparator(&sys, a, b);
    if (is(SHAPE_POINT, SHAPE_SPHERE)) {
        first_is(SHAPE_POINT);
        return new PointSphereSeparator(&sys, a, b);
    }
    if (is(SHAPE_POINT, SHAPE_POINT)) return new PointPointSeparator(&sys, a, b);
    if (is(SHAPE_POLY2D, SHAPE_POLY2D)) return new Poly2dPoly2dSeparator(&sys, a, b);
    if (is(SHAPE_POINT, SHAPE_POLY2D)) {
        first_is(SHAPE_POINT);
        return new PointPoly2dSeparator(&sys, a, b);
    }
    internal_error("new_separator: bad types");
    return nullptr;
}

} // namespace tessarin
