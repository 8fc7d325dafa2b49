// Reaction, dissipation, buoyancy, turbulence and colour propagation.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <memory>

#include "FluidTestUtil.h"
#include "Host/Time/TanimTime.h"

using fluidtest::makeFluid;

namespace {
std::unique_ptr<Tfluid> burningFluid() {
    std::unique_ptr<Tfluid> f(makeFluid(4, 1, 1));
    f->setTemperatureMethod(kMethodGrid);
    f->setReactionMethod(kMethodGrid);
    f->setReactionSpeed(0.05f);
    f->setMinReactionTemp(0.2f);
    f->setMaxReactionTemp(1.0f);
    f->setReactionHeat(3.0f);
    return f;
}
} // namespace

TEST(FluidSources, FuelBurnsAtItsRateNeverBelowZeroAndHeatsPerUnitBurnt) {
    TtimeUnit::setCurrent(kFilm); // one frame = 1/24 s, so rate = dt * speed * 24
    std::unique_ptr<Tfluid> f = burningFluid();
    float* fuel = f->reactionGrid().array();
    float* T = f->temperatureGrid().array();
    // Cells: hot with plenty, hot with little, half-way hot, below ignition.
    const float fuel0[4] = {2.0f, 0.5f, 1.0f, 1.0f};
    const float T0[4] = {1.5f, 1.5f, 0.6f, 0.2f};
    for (int c = 0; c < 4; ++c) {
        fuel[c] = fuel0[c];
        T[c] = T0[c];
    }
    const double dt = 1.0;
    f->computeReactionGrid(dt, fuel, T);
    const double rate = dt * 0.05 * 24;                                // 1.2
    const double burn[4] = {rate, 0.5, (0.6 - 0.2) * rate / 0.8, 0.0}; // capped; partial; none at T <= min
    for (int c = 0; c < 4; ++c) {
        EXPECT_NEAR(fuel[c], fuel0[c] - burn[c], 1e-6) << c;
        EXPECT_GE(fuel[c], 0.0f);
        EXPECT_NEAR(T[c], T0[c] + burn[c] * 3.0, 1e-6) << c;
    }
    // Speed 0: nothing burns, nothing heats.
    f->setReactionSpeed(0.0f);
    const float before = T[0];
    f->computeReactionGrid(dt, fuel, T);
    EXPECT_EQ(T[0], before);
    // Equal ignition and full-rate temperatures: above them, full rate and no division.
    f->setReactionSpeed(0.05f);
    f->setMinReactionTemp(1.0f);
    f->setMaxReactionTemp(1.0f);
    fuel[0] = 5.0f;
    f->computeReactionGrid(dt, fuel, T);
    EXPECT_NEAR(fuel[0], 5.0 - rate, 1e-6);
    // Reaction runs inside update, before the solve.
    f->setMinReactionTemp(0.0f);
    fuel[1] = 1.0f;
    T[1] = 2.0f;
    f->update(1.0 / 24); // rate 0.05
    EXPECT_NEAR(f->reactionGrid().value(size_t(1)), 0.95, 1e-5);
}

TEST(FluidSources, DissipationDividesByOnePlusRateTimesDt) {
    std::unique_ptr<Tfluid> f(makeFluid(3, 3, 3));
    TbuffFloatFluidGrid& d = f->densityGrid();
    d.setAllValues(2.0f);
    f->setDensityDirty(false);
    f->dissipateScalar(d, 0.5, 3.0);
    EXPECT_FLOAT_EQ(d.value(size_t(5)), float(2.0 / (1 + 1.5)));
    EXPECT_TRUE(f->densityDirty());
    f->dissipateScalar(d, 0.0, 3.0); // dt 0: untouched
    f->dissipateScalar(d, 0.5, 0.0); // rate 0: untouched
    EXPECT_FLOAT_EQ(d.value(size_t(5)), 0.8f);
}

TEST(FluidSources, BuoyancyLiftsHotAndDenseCellsAlongLocalY) {
    std::unique_ptr<Tfluid> f(makeFluid(5, 5, 5));
    f->setTemperatureMethod(kMethodGrid);
    f->temperatureGrid().setValue(2u, 1u, 3u, 0.5f);
    f->densityGrid().setValue(1u, 1u, 1u, 0.25f);
    f->setBuoyancy(4.0f);
    f->addBuoyancy(true);
    T3floatFluidGrid& F = f->forceGrid();
    EXPECT_FLOAT_EQ(F.valueV(f->index(2, 1, 3)), 2.0f);
    EXPECT_EQ(F.absMaxU(), 0.0f);
    EXPECT_EQ(F.absMaxW(), 0.0f);
    // Density: densityBuoyancy * 2 * gravity; gravity scales only this term.
    f->setDensityBuoyancy(1.0f);
    f->setGravity(3.0f);
    f->addBuoyancy(false);
    EXPECT_FLOAT_EQ(F.valueV(f->index(1, 1, 1)), 0.25f * 6.0f);
    EXPECT_FLOAT_EQ(F.valueV(f->index(2, 1, 3)), 2.0f);
    // Negative buoyancy sinks; tiny strengths do nothing.
    f->clearForces();
    f->setBuoyancy(-1.0f);
    f->addBuoyancy(true);
    EXPECT_FLOAT_EQ(F.valueV(f->index(2, 1, 3)), -0.5f);
    f->clearForces();
    f->setBuoyancy(1e-4f);
    f->addBuoyancy(true);
    EXPECT_EQ(F.absMaxV(), 0.0f);
    // Through a step, the lift turns into upward velocity above the hot cell.
    std::unique_ptr<Tfluid> g(makeFluid(8, 8, 8));
    g->setTemperatureMethod(kMethodGrid);
    g->setBuoyancy(5.0f);
    g->temperatureGrid().setValue(4u, 3u, 4u, 1.0f);
    g->clearForces();
    g->update(0.1);
    EXPECT_GT(g->velocityGrid().gridV().value(4u, 4u, 4u), 0.0f);
}

TEST(FluidSources, TemperatureTurbulenceDriftsTowardsThePositiveDiagonal) {
    std::unique_ptr<Tfluid> f(makeFluid(6, 6, 6));
    f->setTemperatureMethod(kMethodGrid);
    f->temperatureGrid().setAllValues(1.0f);
    f->setTemperatureTurbulence(0.5f);
    srand48(1);
    f->addTurbulence();
    TvelocityGrid& v = f->velocityGrid();
    for (TbuffFloatFluidGrid* g : {&v.gridU(), &v.gridV(), &v.gridW()}) {
        float lo = 1, hi = 0;
        for (size_t c = 0; c < g->n; ++c) {
            lo = std::min(lo, g->array()[c]);
            hi = std::max(hi, g->array()[c]);
        }
        EXPECT_GE(lo, 0.0f);
        EXPECT_GT(hi, 0.0f);
        EXPECT_LT(hi, 1.0f + 1e-6f); // at most two pushes of up to 0.5 on a face
    }
    // The same seed repeats the same field exactly.
    std::unique_ptr<Tfluid> g(makeFluid(6, 6, 6));
    g->setTemperatureMethod(kMethodGrid);
    g->temperatureGrid().setAllValues(1.0f);
    g->setTemperatureTurbulence(0.5f);
    srand48(1);
    g->addTurbulence();
    EXPECT_EQ(fluidtest::hashFloats(v.arrayU(), v.gridU().n),
              fluidtest::hashFloats(g->velocityGrid().arrayU(), v.gridU().n));
}

TEST(FluidSources, InternalTurbulencePushesWhereThereIsDensity) {
    std::unique_ptr<Tfluid> f(makeFluid(4, 4, 4));
    f->setTurbulence(1.0f);
    f->setInternalTurbRes(8);
    srand48(2);
    f->setUseInternalTurbulence(true);
    ASSERT_TRUE(f->velocityTurbulence().created());
    EXPECT_EQ(f->velocityTurbulence().cells(), 64u);
    // No density anywhere: no push.
    f->addInternalTurb();
    EXPECT_EQ(f->velocityGrid().gridU().absMax(), 0.0f);
    // Density in the first cell: its push is the table's first entry times
    // density * turbulence, and cells after it without density repeat it.
    f->densityGrid().setValue(size_t(0), 2.0f);
    f->addInternalTurb();
    const float tx = f->velocityTurbulence().x()[0];
    EXPECT_FLOAT_EQ(f->velocityGrid().gridU().value(0u, 0u, 0u), 2.0f * tx);
    EXPECT_FLOAT_EQ(f->velocityGrid().gridU().value(2u, 0u, 0u),
                    2.0f * tx * 2); // cells 0 and 1 both push face 1 .. 2
}

TEST(FluidSources, ColourBlendsIntoEmptyCellsFromTheFirstNeighbourInOrder) {
    std::unique_ptr<Tfluid> f(makeFluid(3, 3, 3));
    f->setColorMethod(kMethodGrid);
    TbuffFloatFluidGrid& d = f->densityGrid();
    TbuffFloatFluidGrid& red = f->colorGrid().redGrid();
    d.setAllValues(1.0f);
    d.setValue(1u, 1u, 1u, 0.0f);
    // Corners come first, i-1 before i+1, then j, then k: (0,0,0) wins over (0,0,2) and any face.
    red.setValue(0u, 0u, 0u, 1.0f);
    red.setValue(0u, 0u, 2u, 0.5f);
    red.setValue(0u, 1u, 1u, 0.25f);
    red.setValue(1u, 1u, 1u, 0.5f);
    f->propagateColorToZeroDensityRegions();
    EXPECT_FLOAT_EQ(red.value(1u, 1u, 1u), 0.2f * 1.0f + 0.8f * 0.5f);
    // Without dense corners, face neighbours in the order i-1, j-1, k-1, i+1 ...
    std::unique_ptr<Tfluid> g(makeFluid(3, 3, 3));
    g->setColorMethod(kMethodGrid);
    TbuffFloatFluidGrid& gd = g->densityGrid();
    TbuffFloatFluidGrid& gr = g->colorGrid().redGrid();
    gd.setAllValues(1.0f);
    for (int c : {0, 2})
        for (int b : {0, 2})
            for (int a : {0, 2})
                gd.setValue(unsigned(a), unsigned(b), unsigned(c), 0.0f);
    gd.setValue(1u, 1u, 1u, 0.0f);
    gd.setValue(0u, 1u, 1u, 0.0f); // i-1 is empty, so j-1 gives the colour
    gr.setValue(1u, 0u, 1u, 1.0f);
    gr.setValue(1u, 1u, 0u, 0.5f);
    g->propagateColorToZeroDensityRegions();
    EXPECT_FLOAT_EQ(gr.value(1u, 1u, 1u), 0.2f);
    // Only empty cells change: a dense cell keeps its colour.
    EXPECT_FLOAT_EQ(gr.value(1u, 0u, 1u), 1.0f);
    // One layer: its four in-plane corners come before the faces.
    std::unique_ptr<Tfluid> h(makeFluid(3, 3, 1, true));
    h->setColorMethod(kMethodGrid);
    h->densityGrid().setAllValues(1.0f);
    h->densityGrid().setValue(1u, 1u, 0u, 0.0f);
    h->colorGrid().redGrid().setValue(0u, 2u, 0u, 1.0f);
    h->colorGrid().redGrid().setValue(0u, 1u, 0u, 0.5f);
    h->propagateColorToZeroDensityRegions();
    EXPECT_FLOAT_EQ(h->colorGrid().redGrid().value(1u, 1u, 0u), 0.0f); // corner (0,0) first: colour 0
    h->colorGrid().redGrid().setValue(1u, 1u, 0u, 0.0f);
    h->densityGrid().setValue(0u, 0u, 0u, 0.0f); // now (0,2) is the first dense corner
    h->propagateColorToZeroDensityRegions();
    EXPECT_FLOAT_EQ(h->colorGrid().redGrid().value(1u, 1u, 0u), 0.2f);
}
