// Transport and the whole step: mass, open sides, dt 0, thresholds, and the
// agreement of the paths with and without an occupation grid.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <memory>
#include <vector>

#include "FluidTestUtil.h"
#include "Fluids/Core/TnsGridSolver.h"

using fluidtest::hashFloats;
using fluidtest::makeFluid;

namespace {

TnsGridSolver& nsSolver(Tfluid& f) {
    return *static_cast<TnsGridSolver*>(f.solver());
}

// A blob of density and a swirling, projected velocity.
void fillBlobAndSwirl(Tfluid& f) {
    TbuffFloatFluidGrid& d = f.densityGrid();
    for (unsigned k = 0; k < f.nz; ++k)
        for (unsigned j = 0; j < f.ny; ++j)
            for (unsigned i = 0; i < f.nx; ++i) {
                const double x = i - 0.5 * f.nx, y = j - 0.5 * f.ny, z = f.is2d() ? 0.0 : k - 0.5 * f.nz;
                d.setValue(i, j, k, float(std::exp(-(x * x + y * y + z * z) / 8.0)));
            }
    TvelocityGrid& v = f.velocityGrid();
    for (unsigned k = 0; k < v.gridU().nz; ++k)
        for (unsigned j = 0; j < v.gridU().ny; ++j)
            for (unsigned i = 0; i < v.gridU().nx; ++i)
                v.gridU().setValue(i, j, k, float(std::sin(0.7 * j + 0.3 * k) * 3));
    for (unsigned k = 0; k < v.gridV().nz; ++k)
        for (unsigned j = 0; j < v.gridV().ny; ++j)
            for (unsigned i = 0; i < v.gridV().nx; ++i)
                v.gridV().setValue(i, j, k, float(std::cos(0.5 * i) * 2));
}

} // namespace

TEST(SolverStep, UniformVelocityShiftsAScalarByWholeCells) {
    // u = 1 cell/s for dt = 1 s on a wrapped axis: the midpoint trace lands on
    // the next cell's centre exactly, so linear sampling returns the neighbour.
    std::unique_ptr<Tfluid> f(makeFluid(8, 3, 3));
    f->setBounds(kBoundWrapping, kBoundBoth, kBoundBoth);
    f->velocityGrid().setAllValues(T4dFltVector(1, 0, 0));
    TbuffFloatFluidGrid& d = f->densityGrid();
    for (size_t c = 0; c < d.n; ++c)
        d.setValue(c, float(c % 8));
    nsSolver(*f).transport_scalar3d(*f, d, f->velocityGrid(), 1.0, false, false);
    for (unsigned k = 0; k < 3; ++k)
        for (unsigned j = 0; j < 3; ++j)
            for (unsigned i = 0; i < 8; ++i)
                EXPECT_EQ(d.value(i, j, k), float((i + 7) % 8)) << i;
    // The velocity scale multiplies the tracing speed: 2 cells per step.
    f->setVelocityScale(2, 1, 1);
    nsSolver(*f).transport_scalar3d(*f, d, f->velocityGrid(), 1.0, false, false);
    for (unsigned i = 0; i < 8; ++i)
        EXPECT_EQ(d.value(i, 1u, 1u), float((i + 5) % 8)) << i;
    // A gradient method moves by the analytic field: "Constant" at the scale.
    f->setVelocityMethod(kMethodConstant);
    f->setVelocityScale(-1, 0, 0);
    nsSolver(*f).transport_scalar3d(*f, d, f->velocityGrid(), 1.0, false, false);
    for (unsigned i = 0; i < 8; ++i)
        EXPECT_EQ(d.value(i, 1u, 1u), float((i + 6) % 8)) << i;
}

TEST(SolverStep, ClosedWallsConserveMassThroughTransport) {
    for (bool is2d : {false, true}) {
        std::unique_ptr<Tfluid> f(is2d ? makeFluid(24, 20, 1, true) : makeFluid(12, 10, 8));
        fillBlobAndSwirl(*f);
        TbuffFloatFluidGrid& d = f->densityGrid();
        const double before = d.calcSum();
        if (is2d)
            nsSolver(*f).transport_scalar2d(*f, d, f->velocityGrid(), 0.4, true, true);
        else
            nsSolver(*f).transport_scalar3d(*f, d, f->velocityGrid(), 0.4, true, true);
        // Rescaled sum in float cells: a few float epsilons of the total.
        EXPECT_NEAR(d.calcSum(), before, 1e-5 * before) << is2d;
        // The same step without the rescale loses or gains mass: the check above is not idle.
        fillBlobAndSwirl(*f);
        if (is2d)
            nsSolver(*f).transport_scalar2d(*f, d, f->velocityGrid(), 0.4, false, true);
        else
            nsSolver(*f).transport_scalar3d(*f, d, f->velocityGrid(), 0.4, false, true);
        EXPECT_GT(std::fabs(d.calcSum() - before), 2e-4 * before) << is2d;
        // A uniform field stays uniform and keeps its sum.
        d.setAllValues(0.5f);
        if (is2d)
            nsSolver(*f).transport_scalar2d(*f, d, f->velocityGrid(), 0.4, true, true);
        else
            nsSolver(*f).transport_scalar3d(*f, d, f->velocityGrid(), 0.4, true, true);
        EXPECT_NEAR(d.calcSum(), 0.5 * double(d.n), 1e-6 * d.n);
    }
}

TEST(SolverStep, AnOpenAxisZeroesItsBorderCellsAndSkipsConservation) {
    std::unique_ptr<Tfluid> f(makeFluid(6, 5, 4));
    f->setBounds(kBoundHigh, kBoundBoth, kBoundBoth); // wall on the high x side only: low x open
    TbuffFloatFluidGrid& d = f->densityGrid();
    d.setAllValues(1.0f);
    nsSolver(*f).transport_scalar3d(*f, d, f->velocityGrid(), 0.1, true, true);
    for (unsigned k = 0; k < 4; ++k)
        for (unsigned j = 0; j < 5; ++j) {
            EXPECT_EQ(d.value(0u, j, k), 0.0f);
            EXPECT_EQ(d.value(5u, j, k), 1.0f);
        }
    EXPECT_DOUBLE_EQ(d.calcSum(), 100.0); // 120 cells less the 20 cleared; no rescale
    f->setBounds(kBoundNone, kBoundBoth, kBoundBoth);
    d.setAllValues(1.0f);
    nsSolver(*f).transport_scalar3d(*f, d, f->velocityGrid(), 0.1, true, true);
    EXPECT_EQ(d.value(5u, 2u, 2u), 0.0f);
    EXPECT_DOUBLE_EQ(d.calcSum(), 80.0);
    // Colour-like channels (outsideIsZero off) keep their borders.
    d.setAllValues(1.0f);
    nsSolver(*f).transport_scalar3d(*f, d, f->velocityGrid(), 0.1, true, false);
    EXPECT_DOUBLE_EQ(d.calcSum(), 120.0);
}

TEST(SolverStep, ZeroTimeStepMovesNothingAndSkipsVelocity) {
    std::unique_ptr<Tfluid> f(makeFluid(10, 9, 8));
    fillBlobAndSwirl(*f);
    f->setDensityDissipation(0.5f);
    f->setVelocitySwirl(2.0f);
    f->setDamp(0.1f);
    f->forceGrid().setValueV(f->index(3, 3, 3), 5.0f);
    TvelocityGrid& v = f->velocityGrid();
    const uint64_t dens = hashFloats(f->densityGrid().array(), f->densityGrid().n);
    const uint64_t u = hashFloats(v.arrayU(), v.gridU().n), w = hashFloats(v.arrayW(), v.gridW().n);
    f->update(0.0);
    EXPECT_EQ(hashFloats(f->densityGrid().array(), f->densityGrid().n), dens);
    EXPECT_EQ(hashFloats(v.arrayU(), v.gridU().n), u);
    EXPECT_EQ(hashFloats(v.arrayW(), v.gridW().n), w);
    EXPECT_EQ(f->internalTime(), 0.0);
}

TEST(SolverStep, ViscosityRunsOnlyAboveItsThreshold) {
    auto run = [](float reynolds) {
        std::unique_ptr<Tfluid> f(makeFluid(8, 8, 8));
        f->setVelocityAdvect(false);
        f->setVelocityProject(false);
        f->setReynolds(reynolds);
        srand48(21);
        TvelocityGrid& v = f->velocityGrid();
        for (TbuffFloatFluidGrid* g : {&v.gridU(), &v.gridV(), &v.gridW()})
            for (size_t c = 0; c < g->n; ++c)
                g->array()[c] = float(drand48() - 0.5);
        TnsGridSolver::clearBoundaryVelocities3d(*f, v, 0.0f);
        const uint64_t before = hashFloats(v.arrayU(), v.gridU().n);
        const double spread = v.gridU().absMax();
        TvelocitySolverParms parms(0.1, reynolds, 0, 0, 0, false, false);
        nsSolver(*f).solveVelocity(f.get(), v, f->forceGrid(), &parms);
        return std::make_pair(hashFloats(v.arrayU(), v.gridU().n) != before, v.gridU().absMax() / spread);
    };
    // Viscosity 0 gives reynolds ~1e5: 1/r < 1e-4, no solve.
    Tfluid probe;
    probe.setViscosity(0.0f);
    EXPECT_FALSE(run(probe.reynolds()).first);
    EXPECT_FALSE(run(10001.0f).first);
    EXPECT_TRUE(run(10000.0f).first); // 1/r = 1e-4 exactly: solved
    // A viscous solve smooths: the largest value drops.
    const auto thick = run(1.0f);
    EXPECT_TRUE(thick.first);
    EXPECT_LT(thick.second, 0.9);
    // Viscosity 1 gives reynolds 0, clamped to 1e-4 in the solve: still finite.
    probe.setViscosity(1.0f);
    EXPECT_EQ(probe.reynolds(), 0.0f);
    const auto clamped = run(0.0f);
    EXPECT_TRUE(std::isfinite(clamped.second));
}

TEST(SolverStep, ConfinementNeedsPositiveSwirl) {
    auto run = [](float swirl, bool is2d) {
        std::unique_ptr<Tfluid> f(is2d ? makeFluid(12, 12, 1, true) : makeFluid(10, 10, 10));
        fillBlobAndSwirl(*f);
        TvelocitySolverParms parms(0.1, 1e5, 0, swirl, 0, false, false);
        nsSolver(*f).solveVelocity(f.get(), f->velocityGrid(), f->forceGrid(), &parms);
        TvelocityGrid& v = f->velocityGrid();
        return hashFloats(v.arrayU(), v.gridU().n, hashFloats(v.arrayV(), v.gridV().n));
    };
    for (bool is2d : {false, true}) {
        EXPECT_EQ(run(0.0f, is2d), run(-1.0f, is2d));
        EXPECT_NE(run(0.0f, is2d), run(2.0f, is2d));
    }
    // A uniform flow has no vorticity: confinement adds nothing.
    std::unique_ptr<Tfluid> f(makeFluid(6, 6, 6));
    f->velocityGrid().setAllValues(T4dFltVector(1, 2, 3));
    TnsGridSolver::confine3d(*f, f->velocityGrid(), 5.0f, 0.1f);
    EXPECT_EQ(f->velocityGrid().gridU().value(3u, 3u, 3u), 1.0f);
    EXPECT_EQ(f->velocityGrid().gridW().value(2u, 3u, 3u), 3.0f);
}

TEST(SolverStep, ConfinementPushesAlongTheVorticityGradient) {
    // 2D shear U = s*y: vorticity wz = -s everywhere inside, so |w| is flat and
    // there is no force; a bump of |w| in the middle gives a force on its flanks
    // of F = (Ny*wz*dx*swirl, -Nx*wz*dy*swirl).
    std::unique_ptr<Tfluid> f(makeFluid(9, 9, 1, true));
    TvelocityGrid& v = f->velocityGrid();
    // V = c * x^2 around the centre column: D(V,x) = 2c (x), |wz| grows away from the centre.
    for (unsigned j = 0; j < 10; ++j)
        for (unsigned i = 0; i < 9; ++i)
            v.gridV().setValue(i, j, 0u, float(0.1 * (double(i) - 4) * (double(i) - 4)));
    const float before = v.gridU().value(6u, 4u, 0u);
    TnsGridSolver::confine2d(*f, v, 1.0f, 1.0f);
    // At cell (5,4): wz = 0.2*(5-4) = 0.2 > 0, |w| grows with x, so N = (1, 0):
    // F = (0, -1 * 0.2 * 1 * 1); U unchanged, V gets 0.5*dt*Fy on both faces.
    EXPECT_EQ(v.gridU().value(6u, 4u, 0u), before);
    EXPECT_NEAR(v.gridV().value(5u, 4u, 0u), 0.1 + 2 * 0.5 * -0.2, 1e-6);
}

TEST(SolverStep, FastAndGuardedPathsAgreeOnAnEmptyOccupation) {
    for (bool is2d : {false, true})
        for (int kind : {0, 2}) {
            auto run = [&](bool withOcc) {
                std::unique_ptr<Tfluid> f(is2d ? makeFluid(16, 14, 1, true) : makeFluid(12, 11, 10));
                f->setInterpolator(newGridInterpolator(kind));
                f->setTemperatureMethod(kMethodGrid);
                f->setBuoyancy(3.0f);
                f->setDensityBuoyancy(0.5f);
                f->setVelocitySwirl(1.5f);
                f->setViscosity(0.01f);
                f->setDensityDiffusion(0.05f);
                f->setVelocityFriction(0.2f);
                f->setTurbulence(0.5f);
                f->setTemperatureTurbulence(0.2f);
                if (withOcc) f->createOccupation();
                fillBlobAndSwirl(*f);
                f->temperatureGrid().setValue(f->index(5, 2, 0), 2.0f);
                srand48(99);
                for (int s = 0; s < 3; ++s) {
                    f->clearForces();
                    f->update(1.0 / 24);
                }
                TvelocityGrid& v = f->velocityGrid();
                uint64_t h = hashFloats(f->densityGrid().array(), f->densityGrid().n);
                h = hashFloats(f->temperatureGrid().array(), f->temperatureGrid().n, h);
                h = hashFloats(v.arrayU(), v.gridU().n, h);
                h = hashFloats(v.arrayV(), v.gridV().n, h);
                h = hashFloats(v.arrayW(), v.gridW().n, h);
                return hashFloats(v.pressureGrid().array(), v.pressureGrid().n, h);
            };
            EXPECT_EQ(run(false), run(true)) << (is2d ? "2D " : "3D ") << kind;
        }
}

TEST(SolverStep, ObstaclesStayEmptyAndBlockTheFlow) {
    std::unique_ptr<Tfluid> f(makeFluid(12, 12, 12));
    f->setInterpolator(newGridInterpolator(2));
    f->createOccupation();
    for (unsigned k = 4; k < 8; ++k)
        for (unsigned j = 4; j < 8; ++j)
            for (unsigned i = 4; i < 8; ++i)
                f->setOccupiedValue(f->index(i, j, k), true);
    f->setDensityBuoyancy(1.0f);
    fillBlobAndSwirl(*f);
    for (int s = 0; s < 4; ++s) {
        f->clearForces();
        f->update(1.0 / 24);
    }
    TvelocityGrid& v = f->velocityGrid();
    // Faces of blocked cells carry no flow; the scalar inside is the blend of free neighbours (only inner
    // cells keep 0).
    EXPECT_EQ(v.gridU().value(5u, 5u, 5u), 0.0f);
    EXPECT_EQ(v.gridV().value(6u, 8u, 6u), 0.0f);
    EXPECT_EQ(v.gridW().value(7u, 6u, 4u), 0.0f);
    EXPECT_EQ(f->densityGrid().value(5u, 5u, 5u), 0.0f);
    for (size_t c = 0; c < f->n; ++c)
        ASSERT_TRUE(std::isfinite(f->densityGrid().value(c)));
}

TEST(SolverStep, TwoDimensionalFluidStepsAndKeepsItsThirdComponent) {
    std::unique_ptr<Tfluid> f(makeFluid(20, 20, 1, true));
    EXPECT_EQ(f->velocityGrid().gridW().nz, 2u);
    f->setDensityBuoyancy(1.0f);
    fillBlobAndSwirl(*f);
    const double before = f->densityGrid().calcSum();
    for (int s = 0; s < 5; ++s) {
        f->clearForces();
        f->update(1.0 / 24);
    }
    EXPECT_NEAR(f->densityGrid().calcSum(), before, 1e-4 * before);
    EXPECT_EQ(f->velocityGrid().gridW().absMax(), 0.0f);
}

TEST(SolverStep, TracingFollowsTheMidpointRule) {
    // advect: vel1 at p, m = p + dt/2 vel1, vel2 at m, result p + dt vel2,
    // each component through interpVectorComponent times the velocity scale.
    // The solver's copy of that arithmetic is compiled in another unit, where
    // the optimiser may vectorise it: equal to within a couple of float ulps.
    auto near = [](float got, double want) { EXPECT_NEAR(got, want, 3e-7 * std::fabs(want) + 1e-7); };
    for (bool is2d : {false, true})
        for (int kind : {0, 2}) {
            std::unique_ptr<Tfluid> f(is2d ? makeFluid(9, 8, 1, true) : makeFluid(7, 6, 5));
            f->setInterpolator(newGridInterpolator(kind));
            f->setVelocityScale(1.5f, 0.5f, 2.0f);
            fillBlobAndSwirl(*f);
            TvelocityGrid& v = f->velocityGrid();
            srand48(4);
            for (size_t c = 0; c < v.gridW().n; ++c)
                v.gridW().array()[c] = float(drand48() - 0.5);
            const TgridInterpolator& in = *f->interpolator();
            const double dt = -0.3;
            const float* scale = v.velocityScale;
            for (int t = 0; t < 20; ++t) {
                const float px = float(drand48() * 8 - 4), py = float(drand48() * 8 - 4),
                            pz = float(drand48() * 6 - 3);
                if (is2d) {
                    const T2dFltPoint p(px, py);
                    auto vel = [&](const T2dFltPoint& q, double o[2]) {
                        o[0] = double(in.interpVectorComponent(*f, nullptr, q, T2dFltVector(0, 0), v.gridU(),
                                                               nullptr)) *
                               scale[0];
                        o[1] = double(in.interpVectorComponent(*f, nullptr, q, T2dFltVector(0, 0), v.gridV(),
                                                               nullptr)) *
                               scale[1];
                    };
                    double a[2], b[2];
                    vel(p, a);
                    vel(T2dFltPoint(float(p.x + 0.5 * dt * a[0]), float(p.y + 0.5 * dt * a[1])), b);
                    const T2dFltPoint r = nsSolver(*f).advect(*f, v, p, dt, 0.0f);
                    near(r.x, p.x + dt * b[0]);
                    near(r.y, p.y + dt * b[1]);
                } else {
                    const T3dFltPoint p(px, py, pz);
                    const T3dFltVector fr(0, 0, 0);
                    auto vel = [&](const T3dFltPoint& q, double o[3]) {
                        o[0] = double(in.interpVectorComponent(*f, nullptr, q, fr, v.gridU(), nullptr)) *
                               scale[0];
                        o[1] = double(in.interpVectorComponent(*f, nullptr, q, fr, v.gridV(), nullptr)) *
                               scale[1];
                        o[2] = double(in.interpVectorComponent(*f, nullptr, q, fr, v.gridW(), nullptr)) *
                               scale[2];
                    };
                    double a[3], b[3];
                    vel(p, a);
                    vel(T3dFltPoint(float(p.x + 0.5 * dt * a[0]), float(p.y + 0.5 * dt * a[1]),
                                    float(p.z + 0.5 * dt * a[2])),
                        b);
                    const T3dFltPoint r = nsSolver(*f).advect(*f, v, p, dt, 0.0f);
                    near(r.x, p.x + dt * b[0]);
                    near(r.y, p.y + dt * b[1]);
                    near(r.z, p.z + dt * b[2]);
                }
            }
        }
}
