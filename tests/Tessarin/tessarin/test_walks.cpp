#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "Tessarin/tessarin/separator.h"
#include "Tessarin/tessarin/shape.h"
#include "bench/rigid_scenes.h"

using namespace tessarin;
using rigid_scenes::Scene;

namespace {

struct Lcg {
    unsigned s = 99;
    double next() { // [-1, 1)
        s = s * 1664525u + 1013904223u;
        return double(s >> 8) / double(1u << 24) * 2 - 1;
    }
    quaternion turn() {
        quaternion q(next(), next(), next(), next());
        q.normalise();
        return q;
    }
};

// The separating-axis answer by brute force, written apart from the separator:
// the largest gap between the two vertex sets along every face normal and
// every cross product of edge directions.
double axis_gap(const Poly3d& a, const Poly3d& b) {
    std::vector<triple> axes = a.world_normals;
    axes.insert(axes.end(), b.world_normals.begin(), b.world_normals.end());
    for (const Poly3dEdge& ea : a.poly.edges)
        for (const Poly3dEdge& eb : b.poly.edges) {
            triple da = a.world_verts[size_t(ea.v[1])] - a.world_verts[size_t(ea.v[0])];
            triple db = b.world_verts[size_t(eb.v[1])] - b.world_verts[size_t(eb.v[0])];
            triple n = da.cross(db);
            if (n.length() > 1e-6 * da.length() * db.length()) axes.push_back(n.normalised());
        }
    double best = -1e300;
    for (const triple& n : axes) {
        double alo = 1e300, ahi = -1e300, blo = 1e300, bhi = -1e300;
        for (const triple& v : a.world_verts) {
            alo = std::min(alo, n.dot(v));
            ahi = std::max(ahi, n.dot(v));
        }
        for (const triple& v : b.world_verts) {
            blo = std::min(blo, n.dot(v));
            bhi = std::max(bhi, n.dot(v));
        }
        best = std::max({best, blo - ahi, alo - bhi});
    }
    return best;
}

struct Pair {
    std::unique_ptr<Scene> s = rigid_scenes::empty_scene("walk");
    RigidBody* ra;
    RigidBody* rb;
    Poly3d* a;
    Poly3d* b;
    Pair(const triple& size_a, const triple& size_b) {
        ra = rigid_scenes::add_box(*s, {}, size_a, false, 0, 0);
        rb = rigid_scenes::add_box(*s, {3, 0, 0}, size_b, false, 0, 0);
        a = static_cast<Poly3d*>(s->shapes[0].get());
        b = static_cast<Poly3d*>(s->shapes[1].get());
    }
    void refresh() {
        a->refresh();
        b->refresh();
    }
};

} // namespace

// Boxes of unlike sizes in random turns, set apart along random directions by
// 0.05 to 1.5 (well clear of the 0.02 band): the first witness within the band
// is walked to the same gap as the brute-force axis search. The gap is a
// difference of dot products of unit vectors with points within a few units,
// so 1e-12 is rounding.
TEST(SeparatorWalk, FitWalksToTheLargestSeparation) {
    Lcg rnd;
    int from_other_feature = 0;
    for (int trial = 0; trial < 300; ++trial) {
        Pair p({1 + 0.8 * rnd.next(), 1 + 0.8 * rnd.next(), 1 + 0.8 * rnd.next()},
               {1 + 0.8 * rnd.next(), 1 + 0.8 * rnd.next(), 1 + 0.8 * rnd.next()});
        p.ra->place({}, rnd.turn());
        triple dir = triple{rnd.next(), rnd.next(), rnd.next()}.normalised();
        const double gap = 0.8 + 0.75 * rnd.next();
        // Slide b in along dir until the brute-force gap is the one wanted.
        const quaternion qb = rnd.turn();
        double lo = 0, hi = 10;
        for (int it = 0; it < 80; ++it) {
            double mid = (lo + hi) / 2;
            p.rb->place(dir * mid, qb);
            p.refresh();
            (axis_gap(*p.a, *p.b) < gap ? lo : hi) = mid;
        }
        p.rb->place(dir * hi, qb);
        p.refresh();
        const double want = axis_gap(*p.a, *p.b);
        ASSERT_GT(want, 0.05);

        Poly3dPoly3dSeparator sep(p.s->sys.get(), p.a, p.b);
        sep.tolerance = 0.02;
        double first = 0;
        ASSERT_TRUE(sep.first_witness(first));
        bool clear = false;
        double d = 0;
        ASSERT_TRUE(sep.fit(clear, d));
        EXPECT_TRUE(clear);
        EXPECT_NEAR(d, want, 1e-12) << "trial " << trial;
        EXPECT_NEAR(sep.evaluate_distance(), d, 1e-12);
        if (first < want - 1e-9) ++from_other_feature;
    }
    // The walk had real work: most first witnesses were not the best ones.
    EXPECT_GT(from_other_feature, 150);
}

// A clear pair that turns a little between passes: refit walks from the stored
// features to the new best witness without a full search, looking at a handful
// of neighbours instead of all 12 faces and 144 edge pairs of two boxes.
TEST(SeparatorWalk, RefitFollowsATurningPairCheaply) {
    Pair p({1, 1, 1}, {1, 1, 1});
    Poly3dPoly3dSeparator sep(p.s->sys.get(), p.a, p.b);
    sep.tolerance = 0.02;
    p.rb->place({1.6, 0.3, 0.2}, quaternion());
    bool clear = false;
    double d = 0;
    ASSERT_TRUE(sep.fit(clear, d));
    int most_tests = 0, kinds_seen = 0, last_kind = sep.kind;
    for (int step = 1; step <= 200; ++step) {
        // b spins about a tilted axis and circles a, staying clear.
        const double t = step * 0.02;
        quaternion q(std::cos(t), std::sin(t) * 0.6, std::sin(t) * 0.8, 0);
        p.rb->place({1.9 * std::cos(t), 0.3, 1.9 * std::sin(t)}, q);
        p.refresh();
        const double want = axis_gap(*p.a, *p.b);
        if (want <= 0.02) continue;
        ASSERT_TRUE(sep.refit(clear, d)) << "step " << step << " want " << want << " walked " << sep.evaluate_distance() << " kind " << sep.kind;
        EXPECT_NEAR(d, want, 1e-12) << "step " << step;
        most_tests = std::max(most_tests, sep.walk_tests);
        if (sep.kind != last_kind) ++kinds_seen;
        last_kind = sep.kind;
    }
    EXPECT_LT(most_tests, 156);
    // The pair went through face and edge witnesses on the way round.
    EXPECT_GT(kinds_seen, 0);
}

// A sphere wandering round a turned box: once fitted, the separator walks from
// its last feature to the one holding the centre. Each distance must match a
// fresh separator's full partition, and the feature must be the same kind; the
// distance is a length of a few units, so 1e-12 is rounding.
TEST(SeparatorWalk, SphereWalksToTheClosestFeature) {
    auto s = rigid_scenes::empty_scene("sphere walk");
    Lcg rnd;
    RigidBody* box = rigid_scenes::add_box(*s, {}, {1.5, 1, 0.7}, true, 0, 0);
    box->place({}, rnd.turn());
    RigidBody* ball = rigid_scenes::add_sphere(*s, {2, 0, 0}, 0.25, false, 0, 0);
    Shape* poly = s->shapes[0].get();
    Shape* sphere = s->shapes[1].get();
    SpherePoly3dSeparator walker(s->sys.get(), sphere, poly);
    walker.tolerance = 0.02;
    bool clear = false;
    double d = 0;
    triple at{2, 0, 0};
    int kinds[3] = {0, 0, 0}, changes = 0, last = -1;
    for (int step = 0; step < 2000; ++step) {
        // A random walk on a shell 0.3 to 1.5 out from the box's centre.
        at += triple{rnd.next(), rnd.next(), rnd.next()} * 0.08;
        const double len = at.length();
        if (len < 1.3) at = at * (1.3 / len);
        if (len > 2.5) at = at * (2.5 / len);
        ball->place(at, quaternion());
        sphere->refresh();
        poly->refresh();
        SpherePoly3dSeparator fresh(s->sys.get(), sphere, poly);
        fresh.tolerance = 0.02;
        bool fclear = false;
        double fd = 0;
        fresh.fit(fclear, fd);
        if (step > 0) {
            // The walk alone, from the last feature, without the partition to fall back on.
            int f = walker.feature, i = walker.feature_index;
            triple q;
            const double walked = walker.walk_from(static_cast<CSphere*>(sphere)->world_centre, f, i, q);
            ASSERT_NEAR(walked - 0.25, fd, 1e-12) << "step " << step;
        }
        walker.fit(clear, d);
        ASSERT_NEAR(d, fd, 1e-12) << "step " << step;
        ASSERT_EQ(walker.feature, fresh.feature) << "step " << step;
        ++kinds[walker.feature];
        if (walker.feature * 100 + walker.feature_index != last) ++changes;
        last = walker.feature * 100 + walker.feature_index;
    }
    // The walk went through faces, edges and vertices, many times over.
    EXPECT_GT(kinds[0], 0);
    EXPECT_GT(kinds[1], 0);
    EXPECT_GT(kinds[2], 0);
    EXPECT_GT(changes, 50);
}
