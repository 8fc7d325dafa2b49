#include "Fluids/Core/TspringGridSolver.h"

#include <algorithm>
#include <cmath>

#include "Fluids/Core/Tfluid.h"

void TspringGridSolver::solve(Tfluid& f, double dt) {
    if (!(dt > 0) || !f.hasDensityGrid() || !fluidUsesGrid(f.densityMethod())) return;
    TbuffFloatFluidGrid& g = f.densityGrid();
    float* h = g.array();
    float* v = g.prevArray();
    if (!h || !v) return;
    const int X = int(g.nx), Y = int(g.ny), Z = f.is2d() ? 1 : int(g.nz);
    const int axes = (X > 1) + (Y > 1) + (Z > 1);
    const double k = stiffness > 0 ? stiffness : 0.0;
    const int steps = std::max(1, int(std::ceil(dt * std::sqrt(2.0 * std::max(axes, 1) * k))));
    const double h1 = dt / steps;
    const unsigned char* occ = f.occupation();
    const float* matter =
        f.matterGrid().allocated() && f.matterGrid().n == g.n ? f.matterGrid().array() : nullptr;
    const int bx = g.bounds[0], by = g.bounds[1], bz = g.bounds[2];
    float* acc = TbuffFloatFluidGrid::work(g.n);
    for (int s = 0; s < steps; ++s) {
        for (int kk = 0; kk < Z; ++kk)
            for (int j = 0; j < Y; ++j)
                for (int i = 0; i < X; ++i) {
                    const size_t c = g.index(unsigned(i), unsigned(j), unsigned(kk));
                    const double hc = h[c];
                    double lap = 0;
                    auto add = [&](int a, int b, int d) {
                        lap += double(h[g.index(unsigned(a), unsigned(b), unsigned(d))]) - hc;
                    };
                    if (X > 1) {
                        add(boundedIndex(i - 1, X, bx), j, kk);
                        add(boundedIndex(i + 1, X, bx), j, kk);
                    }
                    if (Y > 1) {
                        add(i, boundedIndex(j - 1, Y, by), kk);
                        add(i, boundedIndex(j + 1, Y, by), kk);
                    }
                    if (Z > 1) {
                        add(i, j, boundedIndex(kk - 1, Z, bz));
                        add(i, j, boundedIndex(kk + 1, Z, bz));
                    }
                    acc[c] = float(k * lap - damping * v[c] + (matter ? matter[c] : 0.0f));
                }
        for (size_t c = 0; c < g.n; ++c) {
            if (occ && occ[c]) {
                v[c] = 0.0f;
                h[c] = 0.0f;
                continue;
            }
            v[c] = float(v[c] + acc[c] * h1);
            h[c] = float(h[c] + v[c] * h1);
        }
    }
    f.setDensityDirty(true);
}
