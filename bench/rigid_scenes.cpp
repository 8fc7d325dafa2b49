#include "rigid_scenes.h"

#include <algorithm>
#include <cmath>

using namespace tessarin;

namespace rigid_scenes {

std::unique_ptr<Scene> empty_scene(const std::string& name) {
    auto s = std::make_unique<Scene>();
    s->name = name;
    s->sys = std::make_unique<BodySystem>();
    BodySystem& sys = *s->sys;
    sys.dimension = 3;
    sys.dynamics = true;
    sys.friction_on = true;
    sys.restitution_on = true;
    s->gravity = std::make_unique<UniformField>(&sys, triple(0, -9.8, 0));
    sys.add(*s->gravity);
    return s;
}

RigidBody* add_box(Scene& s, const triple& centre, const triple& size, bool prescribed, double friction,
                   double bounce, const quaternion& q) {
    auto shape = std::make_unique<Poly3d>(Polyhedron::box(size * -0.5, size * 0.5));
    auto body = std::make_unique<RigidBody>(s.sys.get());
    body->set_geometry(shape.get());
    body->compute_inertials(1.0);
    body->place(centre, q);
    body->prescribed = prescribed;
    body->bounciness = bounce;
    body->dynamic_friction = body->static_friction = friction;
    RigidBody* b = body.get();
    s.sys->add(*b);
    if (!prescribed) {
        s.movers.push_back(b);
        s.starts.push_back(centre);
    }
    s.shapes.push_back(std::move(shape));
    s.bodies.push_back(std::move(body));
    return b;
}

RigidBody* add_sphere(Scene& s, const triple& centre, double radius, bool prescribed, double friction,
                      double bounce) {
    auto shape = std::make_unique<CSphere>(triple(), radius);
    auto body = std::make_unique<RigidBody>(s.sys.get());
    body->set_geometry(shape.get());
    body->compute_inertials(1.0);
    body->place(centre, quaternion());
    body->prescribed = prescribed;
    body->bounciness = bounce;
    body->dynamic_friction = body->static_friction = friction;
    RigidBody* b = body.get();
    s.sys->add(*b);
    if (!prescribed) {
        s.movers.push_back(b);
        s.starts.push_back(centre);
    }
    s.shapes.push_back(std::move(shape));
    s.bodies.push_back(std::move(body));
    return b;
}

void Scene::advance_to(double t, double step_size) {
    int guard = 0;
    while (sys->time < t - 1e-9) {
        double got = sys->step_forward(std::min(step_size, t - sys->time));
        ++steps;
        if (got <= 0 || ++guard > 100000) {
            stalled = true;
            break;
        }
    }
}

double Scene::max_move() const {
    double m = 0;
    for (size_t i = 0; i < movers.size(); ++i)
        m = std::max(m, (movers[i]->to_world_point({}) - starts[i]).length());
    return m / size;
}

namespace {

void ground(Scene& s, double friction, double bounce) {
    add_box(s, {0, -0.5, 0}, {40, 1, 40}, true, friction, bounce);
}

// Deterministic jitter in [-1, 1).
double jitter(unsigned& state) {
    state = state * 1664525u + 1013904223u;
    return double(state >> 8) / double(1u << 24) * 2 - 1;
}

} // namespace

std::unique_ptr<Scene> make_scene(const std::string& name, int count) {
    // count: bodies of a pile; layers of a pyramid below 10.
    auto s = empty_scene(name);
    if (name == "drop") {
        add_box(*s, {0, -0.5, 0}, {4, 1, 4}, true, 0, 0.5);
        s->subject = add_sphere(*s, {0, 10, 0}, 0.5, false, 0, 0.5);
    } else if (name == "slide") {
        ground(*s, 0.5, 0);
        s->subject = add_box(*s, {0, 0.5, 0}, {1, 1, 1}, false, 0.5, 0);
        s->subject->set_velocity({5, 0, 0}, {});
    } else if (name == "stack") {
        ground(*s, 0.5, 0);
        for (int i = 0; i < 5; ++i)
            add_box(*s, {0, 0.5 + i, 0}, {1, 1, 1}, false, 0.5, 0);
    } else if (name == "pyramid") {
        ground(*s, 0.5, 0);
        const double gap = 0.05, pitch = 1 + gap;
        const int layers = count > 0 && count < 10 ? count : 10;
        for (int layer = 0; layer < layers; ++layer) {
            int n = layers - layer;
            double x0 = -(n - 1) * pitch / 2;
            for (int i = 0; i < n; ++i)
                add_box(*s, {x0 + i * pitch, 0.5 + layer, 0}, {1, 1, 1}, false, 0.5, 0);
        }
    } else if (name == "pile") {
        // An open box: floor and four walls, all prescribed.
        const double inner = 5, wall = 0.5, height = 3;
        add_box(*s, {0, -0.5, 0}, {inner + 2 * wall, 1, inner + 2 * wall}, true, 0.5, 0.2);
        add_box(*s, {-(inner + wall) / 2, height / 2, 0}, {wall, height, inner}, true, 0.5, 0.2);
        add_box(*s, {(inner + wall) / 2, height / 2, 0}, {wall, height, inner}, true, 0.5, 0.2);
        add_box(*s, {0, height / 2, -(inner + wall) / 2}, {inner + 2 * wall, height, wall}, true, 0.5, 0.2);
        add_box(*s, {0, height / 2, (inner + wall) / 2}, {inner + 2 * wall, height, wall}, true, 0.5, 0.2);
        s->size = 0.5;
        unsigned seed = 12345;
        const int per_row = 6;
        const double pitch = 0.75;
        for (int k = 0; k < count; ++k) {
            int layer = k / (per_row * per_row), cell = k % (per_row * per_row);
            double x = (cell % per_row - (per_row - 1) / 2.0) * pitch + 0.05 * jitter(seed);
            double z = (cell / per_row - (per_row - 1) / 2.0) * pitch + 0.05 * jitter(seed);
            double y = 1.0 + layer * pitch;
            if (k % 2 == 0) {
                quaternion q(std::cos(0.3 * jitter(seed)), 0.2 * jitter(seed), 0.2 * jitter(seed),
                             0.2 * jitter(seed));
                q.normalise();
                add_box(*s, {x, y, z}, {0.5, 0.5, 0.5}, false, 0.5, 0.2, q);
            } else {
                add_sphere(*s, {x, y, z}, 0.25, false, 0.5, 0.2);
            }
        }
    } else {
        return nullptr;
    }
    return s;
}

} // namespace rigid_scenes
