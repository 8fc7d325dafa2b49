#pragma once
// Height-field solver ("spring"): the density grid holds the displacement of a
// mesh of unit masses joined by springs to their face neighbours, so ripples
// travel, reflect at walls and fade. The fluid reads the grid back zero
// centred (value + 0.5), so a flat surface sits at 0.5.
//
// Per cell, with h the displacement and v its speed:
//   a = stiffness * sum over neighbours (h_n - h) - damping * v + matter
//   v += a * dt;  h += v * dt              (semi-implicit Euler)
// The step is split into substeps that keep dt * sqrt(2 * axes * stiffness)
// below 1, well inside the explicit stability limit of 2. Neighbours follow the
// fluid's bounds: clamped (a free edge) or wrapped. Occupied cells are pinned at
// 0. The speed lives in the density grid's previous array, which this solver
// alone uses, so the state stays inside the fluid (copies and caches keep it).
// Stiffness is per second squared, damping per second, both per unit spacing of
// cells: the mesh does not depend on the box size.
#include "Fluids/Core/TgridSolver.h"

class TspringGridSolver : public TgridSolver {
public:
    static const char* classSolverName() { return "spring"; }
    const char* solverName() const override { return classSolverName(); }
    static TgridSolver* creatorFunc() { return new TspringGridSolver; }

    void solve(Tfluid& fluid, double dt) override;

    double stiffness = 400.0;
    double damping = 0.5;
};
