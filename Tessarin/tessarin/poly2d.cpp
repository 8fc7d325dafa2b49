#include "Tessarin/tessarin/poly2d.h"

#include <algorithm>
#include <cmath>

#include "Tessarin/tessarin/body2d.h"
#include "Tessarin/tessarin/messages.h"

namespace tessarin {

Poly2d::Poly2d(const std::vector<triple>& points) : AtomicShape(SHAPE_POLY2D) {
    const int n = int(points.size());
    if (n < 3) {
        user_error("Poly2d: polygon with %d points", n);
        return;
    }
    std::vector<triple> p(points);
    for (triple& q : p)
        q.z = 0;
    double twice = 0;
    for (int i = 0; i < n; ++i) {
        const triple& a = p[size_t(i)];
        const triple& b = p[size_t((i + 1) % n)];
        twice += a.x * b.y - b.x * a.y;
    }
    if (std::fabs(twice) < 1e-12) {
        user_error("Poly2d: polygon of zero area");
        return;
    }
    if (twice < 0) std::reverse(p.begin(), p.end());
    for (int i = 0; i < n; ++i) {
        const triple& a = p[size_t((i + n - 1) % n)];
        const triple& b = p[size_t(i)];
        const triple& c = p[size_t((i + 1) % n)];
        const double turn = (b.x - a.x) * (c.y - b.y) - (b.y - a.y) * (c.x - b.x);
        if (turn <= 0) {
            user_error("Poly2d: polygon not convex at vertex %d", i);
            return;
        }
    }
    verts = p;
    // Area, first and polar second moments as sums over the triangles with the origin.
    double a2 = 0, cx = 0, cy = 0, j = 0;
    for (int i = 0; i < n; ++i) {
        const triple& a = verts[size_t(i)];
        const triple& b = verts[size_t((i + 1) % n)];
        const double cr = a.x * b.y - b.x * a.y;
        a2 += cr;
        cx += (a.x + b.x) * cr;
        cy += (a.y + b.y) * cr;
        j += cr * (a.x * a.x + a.x * b.x + b.x * b.x + a.y * a.y + a.y * b.y + b.y * b.y);
        triple e = b - a;
        triple nrm = triple{e.y, -e.x, 0} / e.length();
        normals.push_back(nrm);
        offsets.push_back(nrm.dot(a));
    }
    area_ = 0.5 * a2;
    centroid_ = {cx / (3 * a2), cy / (3 * a2), 0};
    polar_ = j / 12 - area_ * (centroid_.x * centroid_.x + centroid_.y * centroid_.y);
    world_verts = verts;
    world_normals = normals;
    world_offsets = offsets;
    ok = true;
}

Poly2d* Poly2d::box(double lox, double loy, double hix, double hiy) {
    return new Poly2d({{lox, loy, 0}, {hix, loy, 0}, {hix, hiy, 0}, {lox, hiy, 0}});
}

bool Poly2d::body_ok(const Body* b) const {
    if (!dynamic_cast<const RigidBody2d*>(b)) {
        user_error("Poly2d::body_ok: must be attached to RigidBody2d");
        return false;
    }
    return true;
}

double Poly2d::volume() const {
    return area_;
}

triple Poly2d::centroid() const {
    return centroid_;
}

double Poly2d::polar_moment() const {
    return polar_;
}

mat3 Poly2d::moment2() const {
    internal_error("Poly2d::moment2: 3 x 3 moment for flat shape?");
    mat3 m = mat3::zero();
    m.m[2][2] = polar_;
    return m;
}

box3 Poly2d::local_bound() const {
    if (verts.empty()) return {};
    box3 b{verts[0], verts[0]};
    for (const triple& p : verts)
        for (int a = 0; a < 2; ++a) {
            b.lo[a] = std::fmin(b.lo[a], p[a]);
            b.hi[a] = std::fmax(b.hi[a], p[a]);
        }
    return b;
}

int Poly2d::support(const triple& dir) const {
    int best = 0;
    double bd = -1e300;
    for (int i = 0; i < int(world_verts.size()); ++i) {
        const double d = world_verts[size_t(i)].x * dir.x + world_verts[size_t(i)].y * dir.y;
        if (d > bd) {
            bd = d;
            best = i;
        }
    }
    return best;
}

void Poly2d::update_world() {
    if (verts.empty()) return;
    const RigidBody2d* rb = static_cast<const RigidBody2d*>(body);
    for (size_t i = 0; i < verts.size(); ++i) {
        world_verts[i] = rb->to_world_point(verts[i]);
        world_verts[i].z = 0;
    }
    box3 b{world_verts[0], world_verts[0]};
    for (const triple& p : world_verts)
        for (int a = 0; a < 2; ++a) {
            b.lo[a] = std::fmin(b.lo[a], p[a]);
            b.hi[a] = std::fmax(b.hi[a], p[a]);
        }
    world_bound = b;
    for (size_t e = 0; e < verts.size(); ++e) {
        world_normals[e] = rb->to_world_dir(normals[e]);
        world_normals[e].z = 0;
        world_offsets[e] = world_normals[e].dot(world_verts[e]);
    }
}

} // namespace tessarin
