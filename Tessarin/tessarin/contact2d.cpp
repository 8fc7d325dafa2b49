#include "Tessarin/tessarin/contact2d.h"

#include "Tessarin/tessarin/body2d.h"
#include "Tessarin/tessarin/poly2d.h"

namespace tessarin {

Poly2dPoly2dContact::Poly2dPoly2dContact(BodySystem* sys, Body* b1, Body* b2) : Contact(sys, b1, b2) {}

void Poly2dPoly2dContact::recompute_geometry() {
    const RigidBody* owner = static_cast<const RigidBody*>(edge_on_body1 ? body1 : body2);
    const RigidBody* other = static_cast<const RigidBody*>(edge_on_body1 ? body2 : body1);
    const triple ne = owner->to_world_dir(edge_normal_local);
    const triple on = owner->to_world_point(edge_normal_local * edge_offset_local);
    const triple p = other->to_world_point(local_point);
    const triple proj = p - ne * ne.dot(p - on);
    if (edge_on_body1) {
        normal = -ne;
        point1 = proj;
        point2 = p;
    } else {
        normal = ne;
        point1 = p;
        point2 = proj;
    }
    point = (point1 + point2) * 0.5;
    dn = owner->w.cross(normal);
}

PointPoly2dContact::PointPoly2dContact(BodySystem* sys, Body* b1, Body* b2, const triple& lp, const Poly2d* p,
                                       Feature f, int index)
    : Contact(sys, b1, b2), local_point(lp), poly(p), feature(f), feature_index(index) {
    recompute_geometry();
}

void PointPoly2dContact::recompute_geometry() {
    const RigidBody* pb = static_cast<const RigidBody*>(body2);
    const triple c = body1->to_world_point(local_point);
    triple q;
    if (feature == EDGE) {
        normal = pb->to_world_dir(poly->normals[size_t(feature_index)]);
        const triple on = pb->to_world_point(poly->verts[size_t(feature_index)]);
        q = c - normal * normal.dot(c - on);
        dn = pb->w.cross(normal);
    } else {
        q = pb->to_world_point(poly->verts[size_t(feature_index)]);
        const triple d = c - q;
        const double len = d.length();
        if (len > 1e-12) normal = d / len;
        const triple vrel = body1->point_velocity(c) - body2->point_velocity(q);
        dn = len > 1e-12 ? (vrel - normal * vrel.dot(normal)) / len : triple();
    }
    point1 = c;
    point2 = q;
    point = q;
}

} // namespace tessarin
