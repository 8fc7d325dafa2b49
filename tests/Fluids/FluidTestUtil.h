#pragma once
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>

#include "Fluids/Core/Tfluid.h"

namespace fluidtest {

// A fluid of unit-size cells centred on the origin, with a grid for density
// and velocity and the Navier-Stokes solver.
inline Tfluid* makeFluid(unsigned nx, unsigned ny, unsigned nz, bool is2d = false) {
    auto* f = new Tfluid;
    f->setIs2d(is2d);
    f->setSize(nx, ny, nz, nx, ny, nz);
    f->setDensityMethod(kMethodGrid);
    f->setVelocityMethod(kMethodGrid);
    f->setBounds(kBoundBoth, kBoundBoth, kBoundBoth);
    f->setViscosity(0.0f);
    f->setSolver("Navier-Stokes");
    return f;
}

// FNV-1a over the bytes of an array, to compare whole grids.
inline uint64_t hashFloats(const float* a, size_t n, uint64_t h = 1469598103934665603ull) {
    const auto* b = reinterpret_cast<const unsigned char*>(a);
    for (size_t i = 0; i < n * sizeof(float); ++i) {
        h ^= b[i];
        h *= 1099511628211ull;
    }
    return h;
}

// Divergence of the velocity over the cells of a fluid, in 1/s: the largest
// absolute value over all cells (max), over cells off the border (interior),
// and the root mean square (rms).
struct Divergence {
    double max = 0, interior = 0, rms = 0;
};

inline Divergence divergence(Tfluid& f) {
    Divergence out;
    TvelocityGrid& v = f.velocityGrid();
    const float *U = v.arrayU(), *V = v.arrayV(), *W = v.arrayW();
    const unsigned nx = f.nx, ny = f.ny, nz = f.nz;
    double sum2 = 0;
    for (unsigned k = 0; k < nz; ++k)
        for (unsigned j = 0; j < ny; ++j)
            for (unsigned i = 0; i < nx; ++i) {
                double d = (double(U[v.gridU().index(i + 1, j, k)]) - U[v.gridU().index(i, j, k)]) / f.dx +
                           (double(V[v.gridV().index(i, j + 1, k)]) - V[v.gridV().index(i, j, k)]) / f.dy;
                if (!f.is2d())
                    d += (double(W[v.gridW().index(i, j, k + 1)]) - W[v.gridW().index(i, j, k)]) / f.dz;
                const double a = std::fabs(d);
                out.max = std::max(out.max, a);
                const bool border =
                    i == 0 || j == 0 || i == nx - 1 || j == ny - 1 || (!f.is2d() && (k == 0 || k == nz - 1));
                if (!border) out.interior = std::max(out.interior, a);
                sum2 += d * d;
            }
    out.rms = std::sqrt(sum2 / double(f.n));
    return out;
}

// Largest absolute divergence over the cells of a fluid, in 1/s.
inline double maxDivergence(Tfluid& f) {
    TvelocityGrid& v = f.velocityGrid();
    const float *U = v.arrayU(), *V = v.arrayV(), *W = v.arrayW();
    double m = 0;
    const unsigned nx = f.nx, ny = f.ny, nz = f.nz;
    for (unsigned k = 0; k < nz; ++k)
        for (unsigned j = 0; j < ny; ++j)
            for (unsigned i = 0; i < nx; ++i) {
                double d = (double(U[v.gridU().index(i + 1, j, k)]) - U[v.gridU().index(i, j, k)]) / f.dx +
                           (double(V[v.gridV().index(i, j + 1, k)]) - V[v.gridV().index(i, j, k)]) / f.dy;
                if (!f.is2d())
                    d += (double(W[v.gridW().index(i, j, k + 1)]) - W[v.gridW().index(i, j, k)]) / f.dz;
                m = std::max(m, std::fabs(d));
            }
    return m;
}

} // namespace fluidtest
