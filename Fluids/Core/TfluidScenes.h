#pragma once
// Ready-made fluid scenes shared by the plume program, the benchmarks and the tests.
#include <memory>

#include "Fluids/Core/Tfluid.h"

// A smoke plume: a closed box of res^3 cells, 10 units a side, with a sphere
// at the bottom that injects heat and density. Temperature lifts the smoke,
// swirl 2 keeps it curling; the solver is Navier-Stokes with the linear
// interpolator and its fixed 20 conjugate-gradient iterations.
struct TplumeScene {
    static constexpr double kFrameSeconds = 1.0 / 24;
    static constexpr double kBoxSize = 10.0;

    explicit TplumeScene(unsigned res);

    // One frame the way a fluid container runs it: clear forces, step, clear
    // the input rates, emit the rates for the next frame.
    void step();
    // Heat and density input rates (per second) inside the source sphere.
    void emit();

    std::unique_ptr<Tfluid> fluid;
    double heatRate = 8.0;
    double densityRate = 4.0;
    double sourceRadius = 1.2;              // units
    double sourceHeight = -0.35 * kBoxSize; // centre y, local space
};
