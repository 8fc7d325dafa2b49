// The fluid object: methods, grids held, settings, point queries, solvers, copies.
#include <gtest/gtest.h>

#include <memory>

#include "FluidTestUtil.h"
#include "Fluids/Core/TdataFluid.h"
#include "Fluids/Core/TspringGridSolver.h"

using fluidtest::makeFluid;

TEST(FluidObject, MethodsHoldGridsOnlyWhileTheyNeedThem) {
    Tfluid f;
    f.setSize(4, 3, 2, 4, 3, 2);
    EXPECT_FALSE(f.hasDensityGrid());
    f.setDensityMethod(kMethodGrid);
    EXPECT_TRUE(f.hasDensityGrid());
    EXPECT_TRUE(f.usesDensityGrid());
    f.setDensityMethod(kMethodGridRead);
    EXPECT_TRUE(f.hasDensityGrid());
    // Constant with scale 0 reads 0 everywhere and holds no grid.
    f.setDensityMethod(kMethodConstant);
    f.setDensityScale(0.0f);
    EXPECT_FALSE(f.hasDensityGrid());
    EXPECT_TRUE(f.densityIsConstant());
    EXPECT_EQ(f.getDensityAtPoint(T3dFltPoint(0.3f, -1.0f, 0.2f)), 0.0f);
    f.setDensityScale(2.0f);
    EXPECT_EQ(f.getDensityAtPoint(T3dFltPoint(0.3f, -1.0f, 0.2f)), 2.0f);
    // Gradients on the point normalised to the box: x = -1 of width 4 is -0.25.
    f.setDensityMethod(kMethodXGradient);
    EXPECT_FLOAT_EQ(f.getDensityAtPoint(T3dFltPoint(-1.0f, 0, 0)), 2.0f * 0.75f);
    f.setDensityMethod(kMethodNegYGradient);
    EXPECT_FLOAT_EQ(f.getDensityAtPoint(T3dFltPoint(0, 1.5f, 0)), 2.0f * 1.0f);
    f.setDensityMethod(kMethodCenterGradient);
    EXPECT_FLOAT_EQ(f.getDensityAtPoint(T3dFltPoint(1.2f, 0, 0.8f)), 2.0f * 0.5f);
    f.setDensityMethod(20);
    EXPECT_TRUE(f.usesDensityFunctions());
    // Velocity grids come with the force grid; a 2D fluid still holds W.
    f.setVelocityMethod(kMethodGrid);
    EXPECT_TRUE(f.hasVelocityGrid());
    EXPECT_TRUE(f.hasForceGrid());
    f.setVelocityMethod(kMethodYGradient);
    EXPECT_FALSE(f.hasVelocityGrid());
    EXPECT_EQ(f.velocityGrid().width, 4.0); // the box is still copied in
    Tfluid flat;
    flat.setIs2d(true);
    flat.setSize(5, 4, 1, 5, 4, 1);
    flat.setVelocityMethod(kMethodGrid);
    EXPECT_EQ(flat.velocityGrid().gridW().n, 5u * 4u * 2u);
}

TEST(FluidObject, SettingsWriteThroughToTheVelocityGrid) {
    Tfluid f;
    f.setViscosity(1.0f);
    EXPECT_EQ(f.reynolds(), 0.0f);
    f.setViscosity(0.25f);
    EXPECT_FLOAT_EQ(f.reynolds(), 3.0f);
    f.setViscosity(-3.0f); // below 1e-5 counts as 1e-5
    EXPECT_FLOAT_EQ(f.velocityGrid().reynolds, (1 - 1e-5f) / 1e-5f);
    f.setVelocitySwirl(2.0f);
    f.setVelocityFriction(0.3f);
    f.setTurbulence(0.7f);
    f.setTurbulenceFrequency(3.0f);
    f.setVelocityScale(1, 2, 3);
    const TvelocityGrid& v = f.velocityGrid();
    EXPECT_EQ(v.swirl, 2.0f);
    EXPECT_EQ(v.friction, 0.3f);
    EXPECT_EQ(v.turbulence, 0.7f);
    EXPECT_EQ(v.turbulenceFrequency, 3.0f);
    EXPECT_EQ(v.velocityScale[2], 3.0f);
}

TEST(FluidObject, PointQueriesUseCellsOrTheRenderInterpolator) {
    std::unique_ptr<Tfluid> f(makeFluid(4, 4, 4));
    f->setDensityScale(2.0f);
    for (size_t c = 0; c < f->n; ++c)
        f->setDensityValue(c, float(c));
    const unsigned cell = 21;
    EXPECT_EQ(f->getDensityAtPoint(T3dFltPoint(100, 100, 100), &cell), 42.0f);
    // Cell (1,1,1) has centre (-1.5+1, ...) = (-0.5, -0.5, -0.5) in local space.
    EXPECT_EQ(f->getDensityAtPoint(T3dFltPoint(-0.5f, -0.5f, -0.5f)),
              2.0f * f->getDensityValue(f->index(1, 1, 1)));
    // Outside the box the border repeats.
    EXPECT_EQ(f->getDensityAtPoint(T3dFltPoint(-9.0f, -1.5f, -1.5f)), 0.0f);
    EXPECT_EQ(f->getDensityAtPoint(T3dFltPoint(9.0f, 1.5f, 1.5f)), 2.0f * 63);
    f->setZeroCentered(true);
    EXPECT_EQ(f->getDensityAtPoint(T3dFltPoint(0, 0, 0), &cell), 42.5f);
    // Velocity at a point scales the interpolated components.
    f->velocityGrid().setAllValues(T4dFltVector(1, -2, 0.5f));
    f->setVelocityScale(2, 1, 1);
    const T4dFltVector v = f->getVelocityAtPoint(T3dFltPoint(0.1f, 0.2f, 0.3f));
    EXPECT_FLOAT_EQ(v.x, 2.0f);
    EXPECT_FLOAT_EQ(v.y, -2.0f);
    EXPECT_FLOAT_EQ(f->getSpeedAtPoint(T3dFltPoint(0.1f, 0.2f, 0.3f)), std::sqrt(4.0f + 4.0f + 0.25f));
    // Cell value accessors on a face grid.
    T4dFltVector lower;
    f->velocityGrid().setValueLowerFace(T4dFltVector(7, 8, 9), 3, 0, 0);
    f->getVelocityValueLowerFace(3, 0, 0, lower);
    EXPECT_EQ(lower.x, 7.0f);
    EXPECT_EQ(f->velocityGrid().gridU().value(4u, 0u, 0u), 7.0f);  // last face along x follows
    EXPECT_EQ(f->velocityGrid().gridV().value(3u, 1u, 0u), -2.0f); // not the last along y
}

TEST(FluidObject, SolversComeFromTheRegistryAndShareTheInterpolator) {
    const auto names = TsolverRegistry::getAllSolvers();
    EXPECT_NE(std::find(names.begin(), names.end(), "Navier-Stokes"), names.end());
    EXPECT_NE(std::find(names.begin(), names.end(), "spring"), names.end());
    Tfluid f;
    EXPECT_FALSE(f.setSolver("no such solver"));
    EXPECT_EQ(f.solver(), nullptr);
    ASSERT_TRUE(f.setSolver("Navier-Stokes"));
    TgridSolver* s = f.solver();
    EXPECT_EQ(s->interpolator(), f.interpolator());
    EXPECT_TRUE(f.setSolver("Navier-Stokes"));
    EXPECT_EQ(f.solver(), s); // same name: kept
    TgridInterpolator* h = newGridInterpolator(2);
    f.setInterpolator(h);
    EXPECT_EQ(s->interpolator(), h);
    EXPECT_EQ(h->refCount(), 2); // the fluid and its solver
    ASSERT_TRUE(f.setSolver("spring"));
    EXPECT_STREQ(f.solver()->solverName(), "spring");
    EXPECT_EQ(h->refCount(), 2);
    f.removeSolver();
    EXPECT_EQ(f.solver(), nullptr);
    EXPECT_EQ(h->refCount(), 1);
}

TEST(FluidObject, CopiesAreDeepAndLettersCloneTheirFluid) {
    std::unique_ptr<Tfluid> f(makeFluid(3, 3, 3));
    f->setDensityValue(4, 1.5f);
    f->createOccupation();
    f->setOccupiedValue(2, true);
    std::unique_ptr<Tfluid> g(f->copy());
    g->setDensityValue(4, 9.0f);
    g->setOccupiedValue(2, false);
    EXPECT_EQ(f->getDensityValue(4), 1.5f);
    EXPECT_TRUE(f->getOccupiedValue(2));
    EXPECT_EQ(g->solver(), f->solver()); // solvers hold no state: shared
    EXPECT_EQ(f->solver()->refCount(), 2);
    TdataFluid letter(*f);
    std::unique_ptr<TdataFluid> clone(letter.copy());
    clone->fluid().setDensityValue(4, 3.0f);
    EXPECT_EQ(letter.constFluid().getDensityValue(4), 1.5f);
    EXPECT_STREQ(letter.apiTypeString(), "fluid");
    letter.reset();
    EXPECT_FALSE(letter.constFluid().hasDensityGrid());
}

TEST(FluidObject, ResizingKeepsOrResamplesContent) {
    std::unique_ptr<Tfluid> f(makeFluid(4, 4, 4));
    f->densityGrid().setAllValues(0.5f);
    f->createOccupation();
    f->resample(8, 6, 4);
    EXPECT_EQ(f->densityGrid().n, 8u * 6u * 4u);
    EXPECT_EQ(f->velocityGrid().gridU().nx, 9u);
    EXPECT_EQ(f->velocityGrid().gridU().dx, f->dx);
    EXPECT_FLOAT_EQ(f->densityGrid().value(5u, 3u, 2u), 0.5f); // a constant survives resampling
    ASSERT_NE(f->occupation(), nullptr);
    f->extend(1, 0, 0, 0, 0, 2);
    EXPECT_EQ(f->nx, 9u);
    EXPECT_EQ(f->nz, 6u);
    EXPECT_FLOAT_EQ(f->densityGrid().value(0u, 0u, 0u), 0.0f); // new cells are empty
    EXPECT_FLOAT_EQ(f->densityGrid().value(1u, 0u, 0u), 0.5f);
    f->setBounds(kBoundWrapping, kBoundNone, kBoundLow);
    EXPECT_EQ(f->velocityGrid().gridV().bounds[0], kBoundWrapping);
    EXPECT_EQ(f->densityGrid().bounds[2], kBoundLow);
    f->reset();
    EXPECT_FALSE(f->hasDensityGrid());
    EXPECT_EQ(f->occupation(), nullptr);
    // A U field equal to its face's x position stays so on the new faces
    // (interior; the end faces repeat the border).
    std::unique_ptr<Tfluid> g(makeFluid(4, 2, 2));
    TbuffFloatFluidGrid& U = g->velocityGrid().gridU();
    for (unsigned k = 0; k < 2; ++k)
        for (unsigned j = 0; j < 2; ++j)
            for (unsigned i = 0; i <= 4; ++i)
                U.setValue(i, j, k, float(i * g->dx + g->originX()));
    g->resample(8, 2, 2);
    TbuffFloatFluidGrid& R = g->velocityGrid().gridU();
    ASSERT_EQ(R.nx, 9u);
    for (unsigned i = 1; i < 8; ++i)
        EXPECT_NEAR(R.value(i, 1u, 1u), i * g->dx + g->originX(), 1e-6) << i;
}

TEST(SpringSolver, RipplesSpreadSymmetricallyKeepTheLevelAndFade) {
    std::unique_ptr<Tfluid> f(makeFluid(21, 21, 1, true));
    ASSERT_TRUE(f->setSolver("spring"));
    f->setZeroCentered(true);
    auto* s = static_cast<TspringGridSolver*>(f->solver());
    TbuffFloatFluidGrid& h = f->densityGrid();
    // A flat surface stays flat and reads 0.5.
    f->update(0.1);
    EXPECT_EQ(h.absMax(), 0.0f);
    EXPECT_EQ(f->getDensityAtPoint(T3dFltPoint(0, 0, 0)), 0.5f);
    // A bump: free (clamped) edges make the mesh's net force zero, so with no
    // damping the mean level stays put and the shape stays mirror symmetric.
    s->damping = 0.0;
    h.clear(); // displacement and the speeds kept beside it
    h.setValue(10u, 10u, 0u, 1.0f);
    for (int i = 0; i < 10; ++i)
        f->update(1.0 / 24);
    EXPECT_NEAR(h.calcSum(), 1.0, 1e-4);    // float sums over 441 cells
    EXPECT_NE(h.value(13u, 10u, 0u), 0.0f); // the ripple has travelled
    for (unsigned j = 0; j < 21; ++j)
        for (unsigned i = 0; i < 21; ++i) {
            EXPECT_NEAR(h.value(i, j, 0u), h.value(20 - i, j, 0u), 1e-6);
            EXPECT_NEAR(h.value(i, j, 0u), h.value(j, i, 0u), 1e-6);
        }
    // With damping the motion fades.
    s->damping = 4.0;
    const float early = h.absMax();
    for (int i = 0; i < 96; ++i)
        f->update(1.0 / 24);
    EXPECT_LT(h.absMax(), 0.1f * early);
    for (size_t c = 0; c < h.n; ++c)
        ASSERT_TRUE(std::isfinite(h.value(c)));
}
