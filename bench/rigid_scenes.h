#pragma once
// Named rigid-body scenes, shared by the motilane-rigid program, the
// benchmarks and the kernel tests.
#include <memory>
#include <string>
#include <vector>

#include "Tessarin/tessarin/body.h"
#include "Tessarin/tessarin/body_system.h"
#include "Tessarin/tessarin/influence.h"
#include "Tessarin/tessarin/shape.h"

namespace rigid_scenes {

struct Scene {
    std::string name;
    // Declared before the system so that the system goes first on destruction.
    std::vector<std::unique_ptr<tessarin::Shape>> shapes;
    std::vector<std::unique_ptr<tessarin::RigidBody>> bodies;
    std::unique_ptr<tessarin::UniformField> gravity;
    std::unique_ptr<tessarin::BodySystem> sys;

    tessarin::RigidBody* subject = nullptr;   // the sphere of drop, the cube of slide
    std::vector<tessarin::RigidBody*> movers; // the free bodies
    std::vector<triple> starts;               // their starting centres
    double size = 1;                          // cube size, for displacements in sizes
    int steps = 0;
    bool stalled = false; // a step advanced nothing

    // Advances to time t in steps of at most step_size.
    void advance_to(double t, double step_size = 0.03);
    // Largest displacement of a free body from its start, in sizes.
    double max_move() const;
};

// Makes "drop", "slide", "stack", "pyramid" or "pile" (count bodies: 100, 300;
// for a pyramid, a count below 10 gives that many layers instead of 10).
// Null for an unknown name.
std::unique_ptr<Scene> make_scene(const std::string& name, int count = 100);

// Builders used by the scenes and tests.
tessarin::RigidBody* add_box(Scene& s, const triple& centre, const triple& size, bool prescribed,
                             double friction, double bounce, const quaternion& q = quaternion());
tessarin::RigidBody* add_sphere(Scene& s, const triple& centre, double radius, bool prescribed,
                                double friction, double bounce);
std::unique_ptr<Scene> empty_scene(const std::string& name);

} // namespace rigid_scenes
