#include <gtest/gtest.h>

#include <cmath>

#include "FluidTestUtil.h"
#include "Fluids/Core/TfluidScenes.h"

namespace {
double centreOfMassY(const Tfluid& f) {
    const float* d = f.densityGrid().array();
    double total = 0, moment = 0;
    for (unsigned k = 0; k < f.nz; ++k)
        for (unsigned j = 0; j < f.ny; ++j)
            for (unsigned i = 0; i < f.nx; ++i) {
                total += d[f.index(i, j, k)];
                moment += double(d[f.index(i, j, k)]) * j;
            }
    return total > 0 ? moment / total : 0.0;
}
} // namespace

TEST(PlumeScene, RisesStaysFiniteAndRepeatsExactly) {
    TplumeScene a(16), b(16);
    double early = 0;
    for (int s = 1; s <= 36; ++s) {
        a.step();
        b.step();
        if (s == 6) early = centreOfMassY(*a.fluid);
    }
    // The source sits low (cell ~2.4); hot smoke climbs well above it.
    EXPECT_GT(centreOfMassY(*a.fluid), early + 2.0);
    const TbuffFloatFluidGrid& d = a.fluid->densityGrid();
    for (size_t c = 0; c < d.n; ++c)
        ASSERT_TRUE(std::isfinite(d.value(c)));
    TvelocityGrid& va = a.fluid->velocityGrid();
    TvelocityGrid& vb = b.fluid->velocityGrid();
    EXPECT_EQ(fluidtest::hashFloats(d.array(), d.n),
              fluidtest::hashFloats(b.fluid->densityGrid().array(), d.n));
    EXPECT_EQ(fluidtest::hashFloats(va.arrayV(), va.gridV().n),
              fluidtest::hashFloats(vb.arrayV(), vb.gridV().n));
}
