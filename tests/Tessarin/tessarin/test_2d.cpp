#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <vector>

#include "Tessarin/tessarin/body2d.h"
#include "Tessarin/tessarin/body_system.h"
#include "Tessarin/tessarin/contact2d.h"
#include "Tessarin/tessarin/influence.h"
#include "Tessarin/tessarin/poly2d.h"
#include "Tessarin/tessarin/separator2d.h"
#include "report_capture.h"

using namespace tessarin;

namespace {

// A plane world with gravity along -y; owns its bodies and shapes.
struct World2d {
    BodySystem sys;
    std::unique_ptr<UniformField> gravity;
    // Shapes go before their bodies, which leave the system first.
    std::vector<std::unique_ptr<RigidBody2d>> bodies;
    std::vector<std::unique_ptr<Shape>> shapes;

    World2d() {
        sys.dimension = 2;
        sys.dynamics = true;
        sys.friction_on = true;
        sys.restitution_on = true;
        gravity = std::make_unique<UniformField>(&sys, triple(0, -9.8, 0));
        sys.add(*gravity);
    }
    ~World2d() {
        for (auto& b : bodies)
            if (sys.bodies.contains(b.get())) sys.remove(*b);
    }
    RigidBody2d* add(Shape* shape, double x, double y, double angle, bool prescribed, double friction,
                     double bounce, bool join = true) {
        shapes.emplace_back(shape);
        auto b = std::make_unique<RigidBody2d>(&sys);
        b->set_geometry(shape);
        if (shape->shape_type != SHAPE_POINT) b->compute_inertials2d(1.0);
        b->place2d(x, y, angle);
        b->prescribed = prescribed;
        b->bounciness = bounce;
        b->dynamic_friction = b->static_friction = friction;
        if (join) sys.add(*b);
        bodies.push_back(std::move(b));
        return bodies.back().get();
    }
    RigidBody2d* box(double cx, double cy, double w, double h, bool prescribed, double friction,
                     double bounce) {
        return add(Poly2d::box(-w / 2, -h / 2, w / 2, h / 2), cx, cy, 0, prescribed, friction, bounce);
    }
    // Steps at most 0.03 s at a time up to t; false if the system stalls.
    bool run_to(double t) {
        while (sys.time < t - 1e-9)
            if (sys.step_forward(std::min(0.03, t - sys.time)) <= 0) return false;
        return true;
    }
};

// A random convex polygon: 3 to 8 points on a circle at sorted random angles.
std::vector<triple> random_polygon(unsigned& seed, double radius) {
    auto uni = [&seed] {
        seed = seed * 1664525u + 1013904223u;
        return double(seed >> 8) / double(1u << 24);
    };
    int n = 3 + int(uni() * 6);
    std::vector<double> angles;
    for (int i = 0; i < n; ++i)
        angles.push_back(uni() * 2 * M_PI);
    std::sort(angles.begin(), angles.end());
    std::vector<triple> p;
    for (size_t i = 0; i < angles.size(); ++i)
        if (i == 0 || angles[i] - angles[i - 1] > 0.05)
            p.push_back({radius * std::cos(angles[i]), radius * std::sin(angles[i]), 0});
    if (p.size() < 3) p = {{radius, 0, 0}, {-radius / 2, radius, 0}, {-radius / 2, -radius, 0}};
    return p;
}

// Gap between the projections of two point sets on direction d (negative when they overlap).
double gap(const std::vector<triple>& a, const std::vector<triple>& b, double dx, double dy) {
    double amax = -1e300, bmin = 1e300;
    for (const triple& p : a)
        amax = std::max(amax, p.x * dx + p.y * dy);
    for (const triple& p : b)
        bmin = std::min(bmin, p.x * dx + p.y * dy);
    return bmin - amax;
}

} // namespace

// Closed forms: a w x h rectangle has area w h, centre at its middle and polar
// moment A (w^2 + h^2) / 12; a right triangle with legs b, h has its centroid at
// (b/3, h/3) and polar moment A (b^2 + h^2) / 18 about it. Sums of a few
// products: 1e-12 relative.
TEST(Poly2dGeometry, AreaCentroidAndPolarMomentMatchClosedForms) {
    Poly2d rect({{1, 2, 0}, {4, 2, 0}, {4, 7, 0}, {1, 7, 0}});
    ASSERT_TRUE(rect.ok);
    EXPECT_NEAR(rect.volume(), 15, 1e-12);
    EXPECT_NEAR(rect.centroid().x, 2.5, 1e-12);
    EXPECT_NEAR(rect.centroid().y, 4.5, 1e-12);
    EXPECT_NEAR(rect.polar_moment(), 15 * (9 + 25) / 12.0, 1e-10);

    // Clockwise input is turned around.
    Poly2d tri({{0, 0, 0}, {0, 3, 0}, {2, 0, 0}});
    ASSERT_TRUE(tri.ok);
    EXPECT_NEAR(tri.volume(), 3, 1e-12);
    EXPECT_NEAR(tri.centroid().x, 2.0 / 3, 1e-12);
    EXPECT_NEAR(tri.centroid().y, 1.0, 1e-12);
    EXPECT_NEAR(tri.polar_moment(), 3 * (4 + 9) / 18.0, 1e-12);

    // A body takes mass = area * density and scales the moment with it; the box form agrees.
    BodySystem sys;
    RigidBody2d b(&sys), c(&sys);
    b.set_geometry(&rect);
    b.compute_inertials2d(2.0);
    EXPECT_NEAR(b.mass, 30, 1e-12);
    EXPECT_NEAR(b.inertia, 30 * 34 / 12.0, 1e-10);
    c.compute_inertials({1, 2, 0}, {4, 7, 0}, 2.0); // the solid name takes the flat form
    EXPECT_NEAR(c.inertia, b.inertia, 1e-10);
    EXPECT_NEAR(c.centre_local.y, 4.5, 1e-12);
    // Keeping the surface in place moves the centre of mass with the centroid.
    RigidBody2d d(&sys);
    d.set_geometry(&rect);
    const triple corner = d.to_world_point({1, 2, 0});
    d.compute_inertials(1.0, 0, true);
    EXPECT_NEAR((d.to_world_point({1, 2, 0}) - corner).length(), 0, 1e-12);
    EXPECT_NEAR(d.x.x, corner.x + 1.5, 1e-12);
}

// An L of two rectangles, [0,2]x[0,1] and [0,1]x[1,3]: area 4, centroid
// (0.75, 1.25); each part has J = 2 (w^2 + h^2) / 12 = 5/6 and sits 0.625^(1/2)
// from the whole's centroid, so J = 5/3 + 2 * 2 * 0.625 = 25/6. Dropped on the
// ground, long leg down, it rests flat with its bottom on the ground.
TEST(Poly2dGeometry, ConcaveBodyFromTwoPolygons) {
    World2d w;
    w.box(0, -0.5, 40, 1, true, 0.5, 0);
    auto* l = new MultiShape;
    for (Poly2d* part : {Poly2d::box(0, 0, 2, 1), Poly2d::box(0, 1, 1, 3)}) {
        l->add(part);
        w.shapes.emplace_back(part);
    }
    EXPECT_NEAR(l->volume(), 4, 1e-12);
    EXPECT_NEAR(l->centroid().x, 0.75, 1e-12);
    EXPECT_NEAR(l->centroid().y, 1.25, 1e-12);
    EXPECT_NEAR(l->moment2_scalar(), 25.0 / 6, 1e-12);
    RigidBody2d* body = w.add(l, 0, 1, 0, false, 0.5, 0);
    EXPECT_NEAR(body->inertia, 25.0 / 6, 1e-12);
    ASSERT_TRUE(w.run_to(3));
    EXPECT_NEAR(body->to_world_point({0, 0, 0}).y, 0, w.sys.tolerance);
    EXPECT_NEAR(body->angle, 0, 1e-3);
    EXPECT_EQ(body->v.length(), 0);
}

TEST(Poly2dGeometry, BadPolygonsAndBodiesAreReported) {
    report_capture rc;
    Poly2d two({{0, 0, 0}, {1, 0, 0}});
    EXPECT_FALSE(two.ok);
    EXPECT_TRUE(report_capture::has(rc.user, "<user error> Poly2d: polygon with 2 points"));
    Poly2d dent({{0, 0, 0}, {2, 0, 0}, {1, 0.5, 0}, {2, 2, 0}, {0, 2, 0}});
    EXPECT_FALSE(dent.ok);
    EXPECT_TRUE(report_capture::has(rc.user, "<user error> Poly2d: polygon not convex at vertex 2"));

    BodySystem sys;
    RigidBody b3(&sys);
    RigidBody2d b2(&sys);
    Poly2d sq({{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}});
    sq.set(&b3);
    EXPECT_EQ(sq.body, nullptr);
    EXPECT_TRUE(
        report_capture::has(rc.user, "<user error> Poly2d::body_ok: must be attached to RigidBody2d"));
    Poly3d cube(Polyhedron::box({0, 0, 0}, {1, 1, 1}));
    cube.set(&b2);
    EXPECT_EQ(cube.body, nullptr);
    EXPECT_TRUE(report_capture::has(rc.user, "<user error> Poly3d::body_ok: must be attached to Rigidbody"));
    // A plane body in a 3D system is refused before anything moves.
    {
        World2d w;
        w.sys.dimension = 3;
        RigidBody2d* b = w.box(0, 1, 1, 1, false, 0, 0);
        b->name = "tile";
        EXPECT_EQ(w.sys.step_forward(0.03), 0);
        EXPECT_TRUE(report_capture::has(
            rc.user, "<user error> BodySystem::step_forward: plane body tile in a 3D system"));
        EXPECT_EQ(b->x.y, 1);
    }
    sq.moment2();
    EXPECT_TRUE(
        report_capture::has(rc.internal, "<internal error> Poly2d::moment2: 3 x 3 moment for flat shape?"));
    EXPECT_EQ(cube.moment2_scalar(), 0);
    EXPECT_TRUE(report_capture::has(rc.internal,
                                    "<internal error> Poly3d::moment2: scalar moment for nonflat shape?"));
    CSphere ball({0, 0, 0}, 1);
    EXPECT_EQ(ball.moment2_scalar(), 0);
    EXPECT_TRUE(report_capture::has(rc.internal,
                                    "<internal error> CSphere::moment2: scalar moment for nonflat shape?"));
}

// Over random pairs the separator's distance is the best separation along the
// edge normals of both polygons, computed here from the world vertices alone;
// a dense sweep of directions never beats it when the pair overlaps, and never
// disagrees about whether the pair overlaps.
TEST(Poly2dSeparators, AgreeWithBruteForceAxisSearch) {
    World2d w;
    unsigned seed = 7;
    int overlapping = 0, apart = 0;
    for (int trial = 0; trial < 300; ++trial) {
        auto* a = w.add(new Poly2d(random_polygon(seed, 1.0)), 0, 0, 0.1 * trial, false, 0, 0, false);
        double dx = (trial % 17) * 0.17 - 1.4, dy = (trial % 13) * 0.19 - 1.1;
        auto* b = w.add(new Poly2d(random_polygon(seed, 0.8)), dx, dy, 0.37 * trial, false, 0, 0, false);
        Poly2dPoly2dSeparator s(&w.sys, a->geometry, b->geometry);
        s.tolerance = 1e9; // every witness qualifies: fit returns the best one
        bool clear = false;
        double d = 0;
        ASSERT_TRUE(s.fit(clear, d));
        const auto& pa = static_cast<Poly2d*>(a->geometry)->world_verts;
        const auto& pb = static_cast<Poly2d*>(b->geometry)->world_verts;
        double edges = -1e300;
        for (const auto* poly : {&pa, &pb})
            for (size_t i = 0; i < poly->size(); ++i) {
                const triple e = (*poly)[(i + 1) % poly->size()] - (*poly)[i];
                const double len = e.length();
                // Outward normal of edge i, then the gap of the other set beyond it.
                const double nx = e.y / len, ny = -e.x / len;
                edges = std::max(edges, poly == &pa ? gap(pa, pb, nx, ny) : gap(pb, pa, nx, ny));
            }
        EXPECT_NEAR(d, edges, 1e-12) << "trial " << trial;
        EXPECT_NEAR(s.evaluate_distance(), d, 1e-12) << "trial " << trial;
        double dense = -1e300;
        for (int k = 0; k < 7200; ++k) {
            const double t = k * M_PI / 3600;
            dense = std::max(dense, gap(pa, pb, std::cos(t), std::sin(t)));
        }
        if (d < 0) {
            ++overlapping;
            EXPECT_LE(dense, d + 1e-12) << "trial " << trial;
            EXPECT_LT(dense, 0) << "trial " << trial;
        } else {
            ++apart;
            // Sampling every pi/3600 misses the best direction by at most half a
            // step; the gap moves by at most |p| dtheta, |p| < 4 here: 5e-3.
            EXPECT_GE(dense, d - 5e-3) << "trial " << trial;
            if (d > 5e-3) {
                EXPECT_GT(dense, 0) << "trial " << trial;
            }
        }
    }
    // Both outcomes were exercised.
    EXPECT_GT(overlapping, 30);
    EXPECT_GT(apart, 30);

    // With the system's band, a deep overlap gives no witness.
    auto* a = w.add(Poly2d::box(-1, -1, 1, 1), 0, 0, 0, false, 0, 0, false);
    auto* b = w.add(Poly2d::box(-1, -1, 1, 1), 0.5, 0.2, 0.3, false, 0, 0, false);
    Poly2dPoly2dSeparator s(&w.sys, a->geometry, b->geometry);
    bool clear = true;
    double d = 0;
    EXPECT_FALSE(s.fit(clear, d));
    EXPECT_LT(d, -w.sys.tolerance);
    report_capture rc;
    s.evaluate_distance();
    EXPECT_TRUE(report_capture::has(
        rc.internal,
        "<internal error> Poly2dPoly2dSeparator:: evaluate_distance, but previously_defined == false"));
}

// The walk behind refit: from the top edge of the right square (separation -1)
// it steps to that square's left edge, which shows the gap of 0.5. Over random
// pairs turned a little after a fit, the walk never loses separation, and
// refit, when it calls the pair clear, agrees with a fresh fit.
TEST(Poly2dSeparators, WalkAndRefitFollowTheBestWitness) {
    World2d w;
    auto* a = w.add(Poly2d::box(0, 0, 1, 1), 0, 0, 0, false, 0, 0, false);
    auto* b = w.add(Poly2d::box(0, 0, 1, 1), 1.5, 0, 0, false, 0, 0, false);
    Poly2dPoly2dSeparator s(&w.sys, a->geometry, b->geometry);
    bool clear = false;
    double d = 0;
    ASSERT_TRUE(s.fit(clear, d));
    EXPECT_NEAR(d, 0.5, 1e-12);
    s.edge_on_first = false;
    s.feature2 = 2; // top edge of the right square
    s.feature1 = 0;
    EXPECT_NEAR(s.current_distance(), -1, 1e-12);
    s.walk();
    EXPECT_NEAR(s.current_distance(), 0.5, 1e-12);
    EXPECT_FALSE(s.edge_on_first);
    EXPECT_EQ(s.feature2, 3);

    unsigned seed = 99;
    int clear_refits = 0;
    for (int trial = 0; trial < 200; ++trial) {
        auto* p = w.add(new Poly2d(random_polygon(seed, 1.0)), 0, 0, 0.2 * trial, false, 0, 0, false);
        const double x = 1.2 + (trial % 11) * 0.1, y = (trial % 7) * 0.2 - 0.6;
        auto* q = w.add(new Poly2d(random_polygon(seed, 0.8)), x, y, 0.3 * trial, false, 0, 0, false);
        Poly2dPoly2dSeparator sep(&w.sys, p->geometry, q->geometry);
        sep.tolerance = 0.02;
        if (!sep.fit(clear, d)) continue;
        q->place2d(x - 0.05, y + 0.03, 0.3 * trial + 0.08);
        q->geometry->refresh();
        const double before = sep.current_distance();
        sep.walk();
        EXPECT_GE(sep.current_distance(), before) << "trial " << trial;
        bool rc = false;
        double rd = 0;
        const bool refit_clear = sep.refit(rc, rd);
        Poly2dPoly2dSeparator fresh(&w.sys, p->geometry, q->geometry);
        fresh.tolerance = 0.02;
        double fd = 0;
        bool fc = false;
        fresh.fit(fc, fd);
        if (refit_clear) {
            ++clear_refits;
            EXPECT_TRUE(fc) << "trial " << trial;
            EXPECT_LE(rd, fd + 1e-12) << "trial " << trial;
        }
    }
    EXPECT_GT(clear_refits, 50);
}

// A point against the unit square [0,1]^2: (1.3, 1.4) is 0.5 from the corner,
// (0.5, -0.2) 0.2 below the bottom edge, (0.5, 0.9) 0.1 inside the top edge.
TEST(Poly2dSeparators, PointAgainstPolygonFindsTheClosestFeature) {
    World2d w;
    auto* sq = w.add(Poly2d::box(0, 0, 1, 1), 0, 0, 0, true, 0, 0, false);
    struct Case {
        double x, y, d;
        bool vertex;
        triple n;
    } cases[] = {{1.3, 1.4, 0.5, true, {0.6, 0.8, 0}},
                 {0.5, -0.2, 0.2, false, {0, -1, 0}},
                 {0.5, 0.9, -0.1, false, {0, 1, 0}},
                 {-0.01, 0.5, 0.01, false, {-1, 0, 0}}};
    for (const Case& c : cases) {
        CorPoint pt({0, 0, 0});
        RigidBody2d holder(&w.sys);
        holder.set_geometry(&pt);
        holder.place2d(c.x, c.y, 0);
        PointPoly2dSeparator s(&w.sys, &pt, sq->geometry);
        s.tolerance = 1; // all cases within the band
        bool clear = true;
        double d = 0;
        ASSERT_TRUE(s.fit(clear, d));
        EXPECT_NEAR(d, c.d, 1e-12) << c.x << "," << c.y;
        EXPECT_EQ(s.at_vertex, c.vertex) << c.x << "," << c.y;
        s.make_contact();
        ASSERT_EQ(s.contacts.size(), 1u);
        Contact* k = s.contacts[0];
        k->prepare();
        EXPECT_NEAR(k->distance, c.d, 1e-12);
        EXPECT_NEAR((k->normal - c.n).length(), 0, 1e-12) << c.x << "," << c.y;
        // The plane contact's tangent is the normal turned a quarter clockwise.
        EXPECT_NEAR((k->t1 - triple(k->normal.y, -k->normal.x, 0)).length(), 0, 1e-15);
        w.sys.friction_on = true;
        k->mu_static = 0.5;
        k->prepare();
        EXPECT_EQ(k->kind(), 3);
        EXPECT_EQ(k->dimension(), 2);
    }
}

// A unit box dropped with its bottom 9.5 m above a prescribed ground,
// restitution 0.5: the first apex is e^2 = 0.25 of the fall (10 %), later apexes
// shrink, and the box ends at rest on the ground within the band, keeping its
// keystamp once still.
TEST(Scenes2d, DroppedBoxBouncesAndComesToRest) {
    World2d w;
    w.box(0, -0.5, 20, 1, true, 0, 0.5);
    RigidBody2d* box = w.box(0, 10, 1, 1, false, 0, 0.5);
    std::vector<double> apexes;
    double prev_v = 0, lowest = 1e9;
    for (int k = 1; k <= 24 * 12; ++k) {
        ASSERT_TRUE(w.run_to(k / 24.0)) << "stalled at frame " << k;
        if (prev_v > 0 && box->v.y <= 0) apexes.push_back(box->x.y);
        prev_v = box->v.y;
        lowest = std::min(lowest, box->x.y);
    }
    ASSERT_GE(apexes.size(), 2u);
    EXPECT_NEAR((apexes[0] - 0.5) / 9.5, 0.25, 0.025);
    for (size_t i = 1; i < apexes.size(); ++i)
        EXPECT_LT(apexes[i], apexes[i - 1]);
    const double T = w.sys.tolerance;
    EXPECT_GT(lowest, 0.5 - T);
    EXPECT_NEAR(box->x.y, 0.5, T);
    EXPECT_NEAR(box->angle, 0, 1e-3); // it lands flat and stays flat
    const int stamp = box->keystamp;
    const triple at = box->x;
    ASSERT_TRUE(w.run_to(w.sys.time + 2));
    EXPECT_LT((box->x - at).length(), 1e-3);
    EXPECT_EQ(box->v.length(), 0);
    EXPECT_EQ(box->keystamp, stamp);
}

// A unit box at 5 m/s with mu 0.5 on a prescribed ground stops after
// v^2 / (2 mu g) = 25 / 9.8 = 2.551 m, within 5 %, without tipping. Its two
// corner contacts ride along with it: a handful are made over the whole slide,
// not a new pair every few band widths.
TEST(Scenes2d, SlidingBoxStopsAtTheFrictionDistance) {
    static int made;
    made = 0;
    World2d w;
    w.sys.contact_callback = [](Body*, Body*, int on) { made += on; };
    w.box(0, -0.5, 40, 1, true, 0.5, 0);
    RigidBody2d* box = w.box(0, 0.5, 1, 1, false, 0.5, 0);
    box->set_velocity2d(5, 0, 0);
    double tilt = 0;
    for (int k = 1; k <= 72; ++k) {
        ASSERT_TRUE(w.run_to(k / 24.0)) << "stalled at frame " << k;
        tilt = std::max(tilt, std::fabs(box->angle));
    }
    const double want = 25 / (2 * 0.5 * 9.8);
    EXPECT_NEAR(box->x.x, want, 0.05 * want);
    EXPECT_EQ(box->v.length(), 0);
    EXPECT_LT(tilt, 0.01);
    EXPECT_NEAR(box->x.y, 0.5, w.sys.tolerance);
    EXPECT_LE(made, 4);
}

// Landings that need the spin: a box tilted by 0.5 rad hits on a corner, tips
// and settles on a face (angle a multiple of pi/2, centre 0.5 up); a point body
// rests on the ground's top edge; a stack of five boxes stands for 10 s with no
// box moving more than 2 % of its size. Positions within the band T.
TEST(Scenes2d, CornerLandingPointAndStackSettle) {
    {
        World2d w;
        w.box(0, -0.5, 40, 1, true, 0.5, 0.3);
        RigidBody2d* box = w.add(Poly2d::box(-0.5, -0.5, 0.5, 0.5), 0, 3, 0.5, false, 0.5, 0.3);
        ASSERT_TRUE(w.run_to(8));
        const double quarter = box->angle / (M_PI / 2);
        EXPECT_NEAR(quarter, std::round(quarter), 1e-3);
        EXPECT_NE(std::round(quarter), 0); // it tipped over
        EXPECT_NEAR(box->x.y, 0.5, w.sys.tolerance);
        // Settled: it neither drifts nor turns over the next 4 s.
        const triple at = box->x;
        const double turned = box->angle;
        ASSERT_TRUE(w.run_to(12));
        EXPECT_LT((box->x - at).length(), 1e-3);
        EXPECT_NEAR(box->angle, turned, 1e-3);
    }
    {
        World2d w;
        w.box(0, -0.5, 40, 1, true, 0.5, 0.3);
        auto* pt = w.add(new CorPoint({0, 0, 0}), 0, 3, 0, false, 0.5, 0.3, false);
        pt->mass = pt->inv_mass = 1;
        w.sys.add(*pt);
        ASSERT_TRUE(w.run_to(6));
        EXPECT_NEAR(pt->x.y, 0, w.sys.tolerance);
        EXPECT_EQ(pt->v.length(), 0);
    }
    {
        World2d w;
        w.box(0, -0.5, 40, 1, true, 0.5, 0);
        std::vector<RigidBody2d*> stack;
        for (int i = 0; i < 5; ++i)
            stack.push_back(w.box(0, 0.5 + i, 1, 1, false, 0.5, 0));
        ASSERT_TRUE(w.run_to(10));
        for (int i = 0; i < 5; ++i) {
            EXPECT_LT((stack[size_t(i)]->x - triple(0, 0.5 + i, 0)).length(), 0.02) << "box " << i;
            EXPECT_LT(std::fabs(stack[size_t(i)]->angle), 0.02) << "box " << i;
        }
    }
}

// The drag of a plane body: with the target at the grabbed point the pull is 0
// and only the spin term -0.5 w acts, so the angular acceleration is -0.5 w / I.
TEST(Bodies2d, MouseSpringDampsTheSpinOfAPlaneBody) {
    World2d w;
    RigidBody2d* b = w.box(1, 2, 2, 1, false, 0, 0); // I = 2 (4 + 1) / 12
    b->set_velocity2d(0, 0, 3);
    MouseSpring drag(&w.sys, b, {0, 0, 0}, b->to_world_point({0, 0, 0}), 0, 10);
    b->external_accel.zero();
    drag.apply();
    EXPECT_NEAR(b->external_accel[5], -0.5 * 3 / (2 * 5 / 12.0), 1e-12);
    // State slice: x, y, angle, vx, vy, w; the rest threshold zeroes tiny speeds.
    mvector y(6);
    b->state_index = 0;
    y[0] = 1.5, y[1] = 2, y[2] = 0.25, y[3] = 1e-7, y[4] = 0, y[5] = 0.5;
    b->set_state(y, false);
    EXPECT_EQ(b->angle, 0.25);
    EXPECT_EQ(y[3], 0);
    EXPECT_EQ(b->w.z, 0.5);
    EXPECT_NEAR(b->to_world_point({1, 0, 0}).y, 2 + std::sin(0.25), 1e-12);
}

// The same scene twice gives the same bytes: a tumbling box among three others
// after 3 s. First order: with no dynamics the state is (x, y, angle) and the
// box only moves while pushed, stopping on the ground within the band.
TEST(Scenes2d, RepeatableAndFirstOrder) {
    auto run = [] {
        World2d w;
        w.box(0, -0.5, 40, 1, true, 0.5, 0.3);
        for (int i = 0; i < 3; ++i)
            w.add(Poly2d::box(-0.5, -0.3, 0.5, 0.3), 0.4 * i, 1 + 1.2 * i, 0.3 * i + 0.2, false, 0.5, 0.3);
        EXPECT_TRUE(w.run_to(3));
        std::vector<double> out;
        for (auto& b : w.bodies)
            for (double v : {b->x.x, b->x.y, b->angle, b->v.x, b->v.y, b->w.z})
                out.push_back(v);
        return out;
    };
    const std::vector<double> a = run(), b = run();
    ASSERT_EQ(a.size(), b.size());
    EXPECT_EQ(std::memcmp(a.data(), b.data(), a.size() * sizeof(double)), 0);

    World2d w;
    w.sys.dynamics = false;
    w.box(0, -0.5, 40, 1, true, 0.5, 0);
    RigidBody2d* box = w.box(0, 2, 1, 1, false, 0.5, 0);
    EXPECT_EQ(box->state_dof(), 3);
    ASSERT_TRUE(w.run_to(0.1));
    EXPECT_NEAR(box->x.y, 2 - 9.8 * 0.1, 1e-9); // velocity = applied acceleration
    ASSERT_TRUE(w.run_to(1));
    EXPECT_NEAR(box->x.y, 0.5, w.sys.tolerance);
    EXPECT_NEAR(box->x.x, 0, 1e-12);
}
