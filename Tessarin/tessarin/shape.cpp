#include "Tessarin/tessarin/shape.h"

#include <cmath>
#include <map>
#include <utility>

#include "Tessarin/tessarin/body_system.h"
#include "Tessarin/tessarin/messages.h"

namespace tessarin {

Shape::~Shape() = default;

bool Shape::body_ok(const Body*) const {
    return true;
}

void Shape::set(Body* b) {
    if (!body_ok(b)) {
        user_error("Shape::set: illegal body type for shape");
        return;
    }
    body = b;
    stamp = 0;
    for (Shape* c : children)
        c->set(b);
}

void Shape::refresh() {
    if (!refresh_needed()) return;
    update_world();
    stamp = body ? body->keystamp : 0;
    if (body && body->system) {
        ++body->system->bounds_updated.step;
    }
}

void perpendicular_frame(const triple& n, triple& t1, triple& t2) {
    double ax = std::fabs(n.x), ay = std::fabs(n.y), az = std::fabs(n.z);
    triple axis = (ax <= ay && ax <= az) ? triple(1, 0, 0) : (ay <= az ? triple(0, 1, 0) : triple(0, 0, 1));
    t1 = axis - n * axis.dot(n);
    t1.normalise();
    t2 = n.cross(t1);
}

// ---------------------------------------------------------------- Polyhedron

int Polyhedron::add_vertex(const triple& p) {
    vertices.push_back({p, {}});
    return int(vertices.size()) - 1;
}

void Polyhedron::add_face(const std::vector<int>& loop) {
    Poly3dFace f;
    f.verts = loop;
    f.offset = 0;
    faces.push_back(f);
}

bool Polyhedron::process() {
    ok = true;
    convex = true;
    edges.clear();
    for (auto& v : vertices)
        v.edges.clear();
    // Directed edges are matched with their reverse through a table by vertex pair.
    std::map<std::pair<int, int>, int> table;
    std::map<std::pair<int, int>, int> uses;
    for (int fi = 0; fi < int(faces.size()); ++fi) {
        Poly3dFace& f = faces[fi];
        f.edges.clear();
        int n = int(f.verts.size());
        if (n < 3) {
            warning("Polyhedron::process: face with %d points", n);
            ok = false;
            continue;
        }
        for (int k = 0; k < n; ++k) {
            int a = f.verts[k], b = f.verts[(k + 1) % n];
            std::pair<int, int> key{std::min(a, b), std::max(a, b)};
            if (++uses[key] > 2) {
                const triple& pa = vertices[a].p;
                const triple& pb = vertices[b].p;
                warning("polyhedron: topology error -- edge occurred 3 (or more!) times");
                warning("extra edge is in face # %d of %d", fi, int(faces.size()));
                warning("vertices are (%g,%g,%g) and (%g,%g,%g)", pa.x, pa.y, pa.z, pb.x, pb.y, pb.z);
                ok = false;
                continue;
            }
            auto it = table.find(key);
            if (it == table.end()) {
                Poly3dEdge e;
                e.v[0] = a;
                e.v[1] = b;
                e.f[0] = fi;
                edges.push_back(e);
                int ei = int(edges.size()) - 1;
                table[key] = ei;
                vertices[a].edges.push_back(ei);
                vertices[b].edges.push_back(ei);
                f.edges.push_back(ei);
            } else {
                edges[it->second].f[1] = fi;
                f.edges.push_back(it->second);
            }
        }
        // Normal from the first two edges.
        triple e1 = vertices[f.verts[1]].p - vertices[f.verts[0]].p;
        triple e2 = vertices[f.verts[2]].p - vertices[f.verts[1]].p;
        if (e1.length2() < 1e-4 && e2.length2() < 1e-4) {
            warning("Polyhedron:: process: first 2 edges too short; face %d", fi);
            ok = false;
        }
        triple nrm = e1.cross(e2);
        double len = nrm.length();
        if (len < 1e-06) {
            warning("Polyhedron::process: bad normal from face %d", fi);
            ok = false;
            continue;
        }
        f.normal = nrm / len;
        f.offset = f.normal.dot(vertices[f.verts[0]].p);
    }
    for (const Poly3dFace& f : faces)
        for (const Poly3dVertex& v : vertices)
            if (f.normal.dot(v.p) - f.offset > 0.001) convex = false;
    return ok;
}

Polyhedron Polyhedron::box(const triple& lo, const triple& hi) {
    Polyhedron p;
    for (int i = 0; i < 8; ++i)
        p.add_vertex({(i & 1) ? hi.x : lo.x, (i & 2) ? hi.y : lo.y, (i & 4) ? hi.z : lo.z});
    // Counter-clockwise seen from outside.
    p.add_face({0, 4, 6, 2}); // -x
    p.add_face({1, 3, 7, 5}); // +x
    p.add_face({0, 1, 5, 4}); // -y
    p.add_face({2, 6, 7, 3}); // +y
    p.add_face({0, 2, 3, 1}); // -z
    p.add_face({4, 5, 7, 6}); // +z
    p.process();
    return p;
}

// ---------------------------------------------------------------- Poly3d

Poly3d::Poly3d(const Polyhedron& p) : AtomicShape(SHAPE_POLY3D), poly(p) {
    if (!poly.ok) poly.process();
    world_verts.resize(poly.vertices.size());
    world_normals.resize(poly.faces.size());
    world_offsets.resize(poly.faces.size());
}

bool Poly3d::body_ok(const Body* b) const {
    if (!dynamic_cast<const RigidBody*>(b) || b->velocity_dof() != 6) {
        user_error("Poly3d::body_ok: must be attached to Rigidbody");
        return false;
    }
    return true;
}

void Poly3d::update_world() {
    const RigidBody* rb = static_cast<const RigidBody*>(body);
    for (size_t i = 0; i < poly.vertices.size(); ++i)
        world_verts[i] = rb->to_world_point(poly.vertices[i].p);
    box3 b{world_verts[0], world_verts[0]};
    for (const triple& p : world_verts)
        for (int a = 0; a < 3; ++a) {
            b.lo[a] = std::fmin(b.lo[a], p[a]);
            b.hi[a] = std::fmax(b.hi[a], p[a]);
        }
    world_bound = b;
    for (size_t f = 0; f < poly.faces.size(); ++f) {
        world_normals[f] = rb->to_world_dir(poly.faces[f].normal);
        world_offsets[f] = world_normals[f].dot(world_verts[poly.faces[f].verts[0]]);
    }
}

int Poly3d::support(const triple& dir) const {
    int best = 0;
    double bd = -1e300;
    for (int i = 0; i < int(world_verts.size()); ++i) {
        double d = world_verts[i].dot(dir);
        if (d > bd) {
            bd = d;
            best = i;
        }
    }
    return best;
}

// Volume, first and second moments by the divergence theorem: each face is a
// fan of triangles, each triangle with the origin a signed tetrahedron.
void Poly3d::integrate(double& vol, triple& c, mat3& second) const {
    vol = 0;
    triple first;
    double cov[3][3] = {};
    for (const Poly3dFace& f : poly.faces) {
        const triple& a = poly.vertices[f.verts[0]].p;
        for (size_t k = 1; k + 1 < f.verts.size(); ++k) {
            const triple& b = poly.vertices[f.verts[k]].p;
            const triple& d = poly.vertices[f.verts[k + 1]].p;
            double v6 = a.dot(b.cross(d));
            double v = v6 / 6;
            vol += v;
            triple s = a + b + d;
            first += s * (v / 4);
            // Covariance of a tetrahedron with one corner at the origin.
            for (int i = 0; i < 3; ++i)
                for (int j = 0; j < 3; ++j)
                    cov[i][j] += v / 20 * (a[i] * a[j] + b[i] * b[j] + d[i] * d[j] + s[i] * s[j]);
        }
    }
    c = vol != 0 ? first / vol : triple();
    // Shift to the centroid, then turn the covariance into an inertia tensor.
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            cov[i][j] -= vol * c[i] * c[j];
    double tr = cov[0][0] + cov[1][1] + cov[2][2];
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            second.m[i][j] = (i == j ? tr : 0) - cov[i][j];
}

double Poly3d::volume() const {
    double v;
    triple c;
    mat3 m;
    integrate(v, c, m);
    return v;
}

triple Poly3d::centroid() const {
    double v;
    triple c;
    mat3 m;
    integrate(v, c, m);
    return c;
}

double Poly3d::moment2_scalar() const {
    internal_error("Poly3d::moment2: scalar moment for nonflat shape?");
    return 0;
}

mat3 Poly3d::moment2() const {
    double v;
    triple c;
    mat3 m;
    integrate(v, c, m);
    return m;
}

box3 Poly3d::local_bound() const {
    box3 b{poly.vertices[0].p, poly.vertices[0].p};
    for (const auto& v : poly.vertices)
        for (int a = 0; a < 3; ++a) {
            b.lo[a] = std::fmin(b.lo[a], v.p[a]);
            b.hi[a] = std::fmax(b.hi[a], v.p[a]);
        }
    return b;
}

int Poly3d::index_of(const Poly3dEdge* e) const {
    if (e >= poly.edges.data() && e < poly.edges.data() + poly.edges.size())
        return int(e - poly.edges.data());
    internal_error("Poly3d::index_of(Poly3dEdge *): cannot locate edge");
    return -1;
}

int Poly3d::index_of(const Poly3dVertex* v) const {
    if (v >= poly.vertices.data() && v < poly.vertices.data() + poly.vertices.size())
        return int(v - poly.vertices.data());
    internal_error("Poly3d::index_of(Poly3dVertex *): cannot locate vertex");
    return -1;
}

// ---------------------------------------------------------------- CSphere, CorPoint

bool CSphere::body_ok(const Body* b) const {
    if (!dynamic_cast<const RigidBody*>(b) || b->velocity_dof() != 6) {
        user_error("CSphere::body_ok: must be attached to Rigidbody");
        return false;
    }
    return true;
}

double CSphere::volume() const {
    return 4.0 / 3.0 * M_PI * radius * radius * radius;
}

double CSphere::moment2_scalar() const {
    internal_error("CSphere::moment2: scalar moment for nonflat shape?");
    return 0;
}

mat3 CSphere::moment2() const {
    mat3 m = mat3::zero();
    double i = 0.4 * volume() * radius * radius;
    m.m[0][0] = m.m[1][1] = m.m[2][2] = i;
    return m;
}

box3 CSphere::local_bound() const {
    triple r{radius, radius, radius};
    return {centre - r, centre + r};
}

void CSphere::update_world() {
    world_centre = body->to_world_point(centre);
    triple r{radius, radius, radius};
    world_bound = {world_centre - r, world_centre + r};
}

void CorPoint::update_world() {
    world_point = body->to_world_point(point);
    world_bound = {world_point, world_point};
}

// ---------------------------------------------------------------- MultiShape

MultiShape::~MultiShape() {
    if (body && body->system && body->system->bodies.contains(body))
        warning("MultiShape::~MultiShape: shape still in BodySystem");
}

void MultiShape::add(Shape* child) {
    child->parent = this;
    children.append(child);
    if (body) child->set(body);
}

double MultiShape::volume() const {
    double v = 0;
    for (Shape* c : children)
        v += c->volume();
    return v;
}

triple MultiShape::centroid() const {
    double v = 0;
    triple s;
    for (Shape* c : children) {
        double cv = c->volume();
        v += cv;
        s += c->centroid() * cv;
    }
    return v != 0 ? s / v : triple();
}

mat3 MultiShape::moment2() const {
    // Parallel axes: each child's tensor moved from its centroid to the whole's.
    triple g = centroid();
    mat3 m = mat3::zero();
    for (Shape* c : children) {
        mat3 ci = c->moment2();
        double cv = c->volume();
        triple d = c->centroid() - g;
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 3; ++j)
                m.m[i][j] += ci.m[i][j] + cv * ((i == j ? d.length2() : 0) - d[i] * d[j]);
    }
    return m;
}

double MultiShape::moment2_scalar() const {
    triple g = centroid();
    double m = 0;
    for (Shape* c : children)
        m += c->moment2_scalar() + c->volume() * (c->centroid() - g).length2();
    return m;
}

box3 MultiShape::local_bound() const {
    box3 b{{1e300, 1e300, 1e300}, {-1e300, -1e300, -1e300}};
    for (Shape* c : children) {
        box3 cb = c->local_bound();
        for (int a = 0; a < 3; ++a) {
            b.lo[a] = std::fmin(b.lo[a], cb.lo[a]);
            b.hi[a] = std::fmax(b.hi[a], cb.hi[a]);
        }
    }
    return b;
}

void MultiShape::refresh() {
    if (!refresh_needed()) return;
    box3 b{{1e300, 1e300, 1e300}, {-1e300, -1e300, -1e300}};
    for (Shape* c : children) {
        c->refresh();
        for (int a = 0; a < 3; ++a) {
            b.lo[a] = std::fmin(b.lo[a], c->world_bound.lo[a]);
            b.hi[a] = std::fmax(b.hi[a], c->world_bound.hi[a]);
        }
    }
    world_bound = b;
    stamp = body ? body->keystamp : 0;
}

void MultiShape::leaves(std::vector<Shape*>& out) {
    for (Shape* c : children) {
        if (c->is_atomic())
            out.push_back(c);
        else
            static_cast<MultiShape*>(c)->leaves(out);
    }
}

} // namespace tessarin
