#include <gtest/gtest.h>

#include <cmath>

#include "Tessarin/tessarin/bounds.h"
#include "Tessarin/tessarin/contact.h"
#include "Tessarin/tessarin/separator.h"
#include "Tessarin/tessarin/shape.h"
#include "bench/rigid_scenes.h"
#include "report_capture.h"

using namespace tessarin;
using rigid_scenes::Scene;

TEST(PolyhedronMass, BoxAndTetrahedronByFaceIntegrals) {
    Poly3d box(Polyhedron::box({1, 2, 3}, {2, 4, 6})); // 1 x 2 x 3, offset
    EXPECT_NEAR(box.volume(), 6, 1e-12);
    triple c = box.centroid();
    EXPECT_NEAR(c.x, 1.5, 1e-12);
    EXPECT_NEAR(c.y, 3, 1e-12);
    EXPECT_NEAR(c.z, 4.5, 1e-12);
    mat3 I = box.moment2(); // unit density: m = 6, I_xx = m/12 (4 + 9)
    EXPECT_NEAR(I.m[0][0], 6.0 / 12 * 13, 1e-11);
    EXPECT_NEAR(I.m[1][1], 6.0 / 12 * 10, 1e-11);
    EXPECT_NEAR(I.m[2][2], 6.0 / 12 * 5, 1e-11);
    EXPECT_NEAR(I.m[0][1], 0, 1e-11);

    // Unit corner tetrahedron: V = 1/6, centroid (1/4, 1/4, 1/4).
    Polyhedron t;
    t.add_vertex({0, 0, 0});
    t.add_vertex({1, 0, 0});
    t.add_vertex({0, 1, 0});
    t.add_vertex({0, 0, 1});
    t.add_face({0, 2, 1});
    t.add_face({0, 1, 3});
    t.add_face({0, 3, 2});
    t.add_face({1, 2, 3});
    ASSERT_TRUE(t.process());
    EXPECT_TRUE(t.convex);
    Poly3d tet(t);
    EXPECT_NEAR(tet.volume(), 1.0 / 6, 1e-12);
    EXPECT_NEAR(tet.centroid().y, 0.25, 1e-12);
    // Products of inertia of this tetrahedron about its centroid: -V/80 (off-diagonal
    // covariance V/20 * 1/... ), the textbook value is I_xy = +1/120 - V/16 = -1/480.
    EXPECT_NEAR(tet.moment2().m[0][1], 1.0 / 480, 1e-12);
}

TEST(PolyhedronProcess, FaultsAreReported) {
    report_capture cap;
    Polyhedron p = Polyhedron::box({0, 0, 0}, {1, 1, 1});
    p.add_face({0, 1});
    EXPECT_FALSE(p.process());
    EXPECT_TRUE(
        report_capture::has(report_capture::warnings, "<warning> Polyhedron::process: face with 2 points"));
    Polyhedron q = Polyhedron::box({0, 0, 0}, {1, 1, 1});
    q.add_face({0, 4, 6, 2}); // the -x face once more: its edges now occur 3 times
    q.process();
    EXPECT_TRUE(
        report_capture::has(report_capture::warnings,
                            "<warning> polyhedron: topology error -- edge occurred 3 (or more!) times"));
    // A dent: one corner pushed inside makes the mesh not convex.
    Polyhedron d = Polyhedron::box({0, 0, 0}, {1, 1, 1});
    d.vertices[7].p = {0.6, 0.6, 0.6};
    d.process();
    EXPECT_FALSE(d.convex);
}

TEST(MultiShapeMass, ParallelAxesOfTwoCubes) {
    MultiShape m;
    Poly3d a(Polyhedron::box({0, 0, 0}, {1, 1, 1})), b(Polyhedron::box({1, 0, 0}, {2, 1, 1}));
    m.add(&a);
    m.add(&b);
    EXPECT_NEAR(m.volume(), 2, 1e-12);
    EXPECT_NEAR(m.centroid().x, 1, 1e-12);
    mat3 I = m.moment2(); // a 2 x 1 x 1 box of mass 2
    EXPECT_NEAR(I.m[0][0], 2.0 / 12 * 2, 1e-12);
    EXPECT_NEAR(I.m[1][1], 2.0 / 12 * 5, 1e-12);
}

TEST(Frame, PerpendicularFrameIsOrthonormal) {
    for (triple n : {triple(0, 1, 0), triple(1, 2, 3).normalised(), triple(-0.9, 0.1, 0.2).normalised()}) {
        triple t1, t2;
        perpendicular_frame(n, t1, t2);
        EXPECT_NEAR(t1.length(), 1, 1e-14);
        EXPECT_NEAR(t2.length(), 1, 1e-14);
        EXPECT_NEAR(t1.dot(n), 0, 1e-14);
        EXPECT_NEAR(t2.dot(t1), 0, 1e-14);
        EXPECT_NEAR((n.cross(t1) - t2).length(), 0, 1e-14);
    }
}

namespace {
std::unique_ptr<Scene> two_boxes(double gap, int layer1 = 0, int layer2 = 0) {
    auto s = rigid_scenes::empty_scene("two");
    s->gravity->a = {};
    RigidBody* a = rigid_scenes::add_box(*s, {0, 0, 0}, {1, 1, 1}, false, 0, 0);
    RigidBody* b = rigid_scenes::add_box(*s, {1 + gap, 0, 0}, {1, 1, 1}, false, 0, 0);
    a->collision_layer = layer1;
    b->collision_layer = layer2;
    return s;
}
} // namespace

TEST(BroadPhase, OverlapOnlyWhileBoxesMeet) {
    auto far = two_boxes(3);
    far->sys->step_forward(0.01);
    EXPECT_EQ(far->sys->broad_phase().overlaps().size(), 0u);
    // Moving together: the insertion sort finds the pair once the boxes meet
    // (they hit at t = 0.3 and move on together).
    far->movers[1]->set_velocity({-10, 0, 0}, {});
    far->sys->dirty = true;
    far->advance_to(0.29, 0.01);
    EXPECT_EQ(far->sys->broad_phase().overlaps().size(), 0u);
    far->advance_to(0.32, 0.01);
    EXPECT_EQ(far->sys->broad_phase().overlaps().size(), 1u);

    auto touching = two_boxes(0.005);
    touching->sys->step_forward(0.01);
    ASSERT_EQ(touching->sys->broad_phase().overlaps().size(), 1u);
    // Face on face: four contacts, one per corner of the shared square.
    EXPECT_EQ(touching->sys->contacts.size(), 4);
}

// A checking pass runs while the step's constraint lists hold the contacts:
// a pair whose boxes have parted keeps its separator and contacts until the
// next full pass.
TEST(BroadPhase, CheckingPassKeepsPartedPairsForTheNextFullPass) {
    auto s = two_boxes(0.005);
    s->sys->step_forward(0.001);
    ASSERT_EQ(s->sys->contacts.size(), 4);
    s->movers[1]->place({10, 0, 0}, quaternion());
    s->sys->checking_only = true;
    s->sys->update_separators();
    EXPECT_EQ(s->sys->broad_phase().overlaps().size(), 1u);
    EXPECT_EQ(s->sys->contacts.size(), 4);
    s->sys->checking_only = false;
    s->sys->update_separators();
    EXPECT_EQ(s->sys->broad_phase().overlaps().size(), 0u);
    EXPECT_EQ(s->sys->contacts.size(), 0);
}

TEST(BroadPhase, LayersAndAllowedPairs) {
    auto s12 = two_boxes(0.005, 1, 2);
    s12->sys->step_forward(0.01);
    EXPECT_EQ(s12->sys->broad_phase().overlaps().size(), 0u);
    auto s1m = two_boxes(0.005, 1, -1);
    s1m->sys->step_forward(0.01);
    EXPECT_EQ(s1m->sys->broad_phase().overlaps().size(), 1u);
    auto allowed = two_boxes(-0.3); // even overlapping
    allowed->sys->allow_pair(allowed->movers[0], allowed->movers[1]);
    allowed->sys->step_forward(0.01);
    EXPECT_EQ(allowed->sys->broad_phase().overlaps().size(), 0u);
    EXPECT_EQ(allowed->sys->contacts.size(), 0);
}

TEST(Separators, DistancesAndContactKinds) {
    report_capture cap;
    auto s = rigid_scenes::empty_scene("seps");
    s->gravity->a = {};
    RigidBody* box = rigid_scenes::add_box(*s, {0, -0.5, 0}, {4, 1, 4}, true, 0, 0);
    RigidBody* ball = rigid_scenes::add_sphere(*s, {0.3, 0.505, 0.2}, 0.5, false, 0, 0);
    RigidBody* ball2 = rigid_scenes::add_sphere(*s, {5, 0.5, 0}, 0.5, false, 0, 0);
    RigidBody* ball3 = rigid_scenes::add_sphere(*s, {6.01, 0.5, 0}, 0.5, false, 0, 0);
    s->sys->step_forward(1e-4);
    // The sphere 5 mm above the box: one sphere-face contact, normal up.
    int sphere_box = 0, sphere_sphere = 0;
    for (Contact* c : s->sys->contacts) {
        if (auto* k = dynamic_cast<SpherePoly3dContact*>(c)) {
            ++sphere_box;
            EXPECT_EQ(k->feature, SpherePoly3dContact::FACE);
            EXPECT_NEAR(k->normal.y, 1, 1e-12);
            EXPECT_NEAR(k->distance, 0.005, 1e-6);
            EXPECT_EQ(c->body1, ball);
            EXPECT_EQ(c->body2, box);
        }
        if (dynamic_cast<SphereSphereContact*>(c)) {
            ++sphere_sphere;
            EXPECT_NEAR(c->distance, 0.01, 1e-9);
            // From body2 to body1.
            EXPECT_NEAR(
                (c->normal - (ball2->x - ball3->x).normalised() * (c->body1 == ball2 ? 1 : -1)).length(), 0,
                1e-12);
        }
    }
    EXPECT_EQ(sphere_box, 1);
    EXPECT_EQ(sphere_sphere, 1);
    // Sphere against an edge and a corner of the box.
    Poly3d cube(Polyhedron::box({-0.5, -0.5, -0.5}, {0.5, 0.5, 0.5}));
    CSphere sph({0, 0, 0}, 0.25);
    RigidBody cb, sb;
    cb.set_geometry(&cube);
    sb.set_geometry(&sph);
    sb.place({1, 1, 0}, quaternion());
    cube.refresh();
    sph.refresh();
    SpherePoly3dSeparator sep(s->sys.get(), &sph, &cube);
    bool clear;
    double d;
    EXPECT_TRUE(sep.fit(clear, d));
    EXPECT_NEAR(d, std::sqrt(0.5) - 0.25, 1e-12);
    EXPECT_EQ(sep.feature, 1); // edge
    sb.place({1, 1, 1}, quaternion());
    sph.refresh();
    sep.fit(clear, d);
    EXPECT_NEAR(d, std::sqrt(0.75) - 0.25, 1e-12);
    EXPECT_EQ(sep.feature, 2); // vertex
    // A point with a point has no distance to measure.
    CorPoint p1({0, 0, 0}), p2({0, 0, 0});
    PointPointSeparator pp(s->sys.get(), &p1, &p2);
    pp.evaluate_distance();
    EXPECT_EQ(report_capture::internal.back(),
              "<internal error> PointPointSeparator::evaluate_distance: called");
    MultiShape ms;
    EXPECT_EQ(new_separator(*s->sys, &ms, &p1), nullptr);
    EXPECT_EQ(report_capture::internal.back(), "<internal error> new_separator: bad types");
}

TEST(Separators, OffsetCubeAndEdgeCrossing) {
    // A cube half over the edge of another: the clipped face gives four points
    // on the shared half, two of them on the lower cube's edge.
    auto s = rigid_scenes::empty_scene("offset");
    s->gravity->a = {};
    rigid_scenes::add_box(*s, {0, 0, 0}, {1, 1, 1}, true, 0, 0);
    rigid_scenes::add_box(*s, {0.5, 1.005, 0}, {1, 1, 1}, false, 0, 0);
    s->sys->step_forward(1e-4);
    ASSERT_EQ(s->sys->contacts.size(), 4);
    double minx = 1e9, maxx = -1e9;
    for (Contact* c : s->sys->contacts) {
        minx = std::min(minx, c->point.x);
        maxx = std::max(maxx, c->point.x);
        EXPECT_NEAR(std::fabs(c->normal.y), 1, 1e-12);
    }
    EXPECT_NEAR(minx, 0, 1e-9);
    EXPECT_NEAR(maxx, 0.5, 1e-9);

    // Two bars crossed at right angles, edge on edge.
    auto e = rigid_scenes::empty_scene("cross");
    e->gravity->a = {};
    quaternion q45(std::cos(M_PI / 8), std::sin(M_PI / 8), 0, 0); // 45 degrees about x
    rigid_scenes::add_box(*e, {0, 0, 0}, {3, 1, 1}, true, 0, 0, q45);
    // Its top edge runs along x at height sqrt(0.5); the other bar's bottom edge
    // runs along z just above it.
    quaternion qz = quaternion(std::cos(M_PI / 4), 0, std::sin(M_PI / 4), 0) * q45;
    rigid_scenes::add_box(*e, {0, 2 * std::sqrt(0.5) + 0.005, 0}, {3, 1, 1}, false, 0, 0, qz);
    e->sys->step_forward(1e-4);
    ASSERT_EQ(e->sys->contacts.size(), 1);
    Contact* c = e->sys->contacts.head();
    EXPECT_TRUE(static_cast<Poly3dPoly3dContact*>(c)->edge_mode);
    EXPECT_NEAR(std::fabs(c->normal.y), 1, 1e-9);
    EXPECT_NEAR(c->distance, 0.005, 1e-9);
}

TEST(Stamps, UnmovedBodiesAreNotRefreshed) {
    auto s = rigid_scenes::make_scene("stack");
    s->advance_to(0.5);
    long bounds_before = s->sys->bounds_updated.total;
    long seps_before = s->sys->separators_tested.total;
    s->advance_to(1.0);
    EXPECT_EQ(s->sys->bounds_updated.total, bounds_before);
    EXPECT_EQ(s->sys->separators_tested.total, seps_before);
}

// A dumbbell: one prescribed body whose shape is a MultiShape of two unit cubes
// centred at x = -1.5 and 1.5, and a free unit cube moved about it. The top
// level pairs the dumbbell with the cube as soon as their boxes meet; a pair of
// parts, with its separator, exists only where a part's box meets the cube's.
TEST(BroadPhase, TreeBelowAMultiShape) {
    auto s = rigid_scenes::empty_scene("tree");
    s->gravity->a = {};
    auto p1 = std::make_unique<Poly3d>(Polyhedron::box({-2, -0.5, -0.5}, {-1, 0.5, 0.5}));
    auto p2 = std::make_unique<Poly3d>(Polyhedron::box({1, -0.5, -0.5}, {2, 0.5, 0.5}));
    auto bell = std::make_unique<RigidBody>(s->sys.get());
    auto multi = std::make_unique<MultiShape>();
    multi->add(p1.get());
    multi->add(p2.get());
    bell->set_geometry(multi.get());
    bell->compute_inertials(1.0);
    bell->place({}, quaternion());
    bell->prescribed = true;
    s->sys->add(*bell);
    RigidBody* cube = rigid_scenes::add_box(*s, {0, 0, 0}, {1, 1, 1}, false, 0, 0);
    Shape* cs = s->shapes.back().get();
    BroadPhase& bp = s->sys->broad_phase();
    auto move_to = [&](double x) {
        cube->place({x, 0, 0}, quaternion());
        cube->set_velocity({}, {});
        s->sys->dirty = true;
        s->sys->step_forward(0.001);
    };

    // Between the parts, 0.5 clear of each: only the top-level pair.
    move_to(0);
    EXPECT_EQ(bp.overlaps().size(), 1u);
    EXPECT_EQ(bp.overlap_count(), 1);
    EXPECT_TRUE(bp.find(multi.get(), cs));
    EXPECT_FALSE(bp.find(p1.get(), cs));
    EXPECT_EQ(s->sys->contacts.size(), 0);

    // 0.005 from the first part's face: its pair and four face contacts; the
    // second part stays out of it.
    move_to(-0.495);
    EXPECT_EQ(bp.overlap_count(), 2);
    Overlap* near = bp.find(p1.get(), cs);
    ASSERT_TRUE(near);
    EXPECT_EQ(near->parent, bp.find(multi.get(), cs));
    EXPECT_TRUE(near->separator);
    EXPECT_FALSE(bp.find(p2.get(), cs));
    EXPECT_EQ(s->sys->contacts.size(), 4);
    for (Contact* c : s->sys->contacts)
        EXPECT_NEAR(std::fabs(c->normal.x), 1, 1e-12);

    // Across to the second part: the first pair goes, the second comes.
    move_to(0.495);
    EXPECT_FALSE(bp.find(p1.get(), cs));
    EXPECT_TRUE(bp.find(p2.get(), cs));
    EXPECT_EQ(s->sys->contacts.size(), 4);

    // The second part allowed through the cube: no pair below the top, no contacts.
    s->sys->allow_shapes(p2.get(), cs);
    move_to(0.495);
    EXPECT_EQ(bp.overlap_count(), 1);
    EXPECT_EQ(s->sys->contacts.size(), 0);

    // Far away: the whole subtree goes.
    move_to(10);
    EXPECT_EQ(bp.overlap_count(), 0);
    EXPECT_FALSE(bp.find(multi.get(), cs));
    s->sys->remove(*bell);
}
