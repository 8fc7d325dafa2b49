// The solver's loops share work among threads by a fixed split and add sums in
// a fixed order: a plume must give the same bytes with any thread count.

#include <gtest/gtest.h>

#include "FluidTestUtil.h"
#include "Fluids/Core/TfluidScenes.h"
#include "Fluids/Core/TfluidThreads.h"

namespace {

struct PlumeBytes {
    std::uint64_t density, temperature, u, v, w, pressure;
    bool operator==(const PlumeBytes&) const = default;
};

PlumeBytes plumeAfter(unsigned res, int steps, int threads) {
    TfluidThreads::setCount(threads);
    TplumeScene scene(res);
    for (int s = 0; s < steps; ++s)
        scene.step();
    TfluidThreads::setCount(0);
    Tfluid& f = *scene.fluid;
    TvelocityGrid& vel = f.velocityGrid();
    return {fluidtest::hashFloats(f.densityGrid().array(), f.densityGrid().n),
            fluidtest::hashFloats(f.temperatureGrid().array(), f.temperatureGrid().n),
            fluidtest::hashFloats(vel.arrayU(), vel.gridU().n),
            fluidtest::hashFloats(vel.arrayV(), vel.gridV().n),
            fluidtest::hashFloats(vel.arrayW(), vel.gridW().n),
            fluidtest::hashFloats(vel.pressureGrid().array(), vel.pressureGrid().n)};
}

TEST(SolverThreads, APlumeGivesTheSameBytesWithOneTwoAndThreeThreads) {
    const PlumeBytes one = plumeAfter(32, 10, 1);
    EXPECT_EQ(plumeAfter(32, 10, 2), one);
    // An odd count splits planes unevenly: still the same bytes.
    EXPECT_EQ(plumeAfter(32, 10, 3), one);
}

TEST(SolverThreads, BlockSumsDoNotDependOnTheThreadCount) {
    // Values whose float sum depends on the order of adding.
    std::vector<double> v(100000);
    for (std::size_t i = 0; i < v.size(); ++i)
        v[i] = (i % 7 == 0 ? 1e8 : 1.0) * (i % 2 ? -1.0 : 1.0) + 1e-3 * double(i);
    auto sum = [&](int threads) {
        TfluidThreads::setCount(threads);
        const double s = TfluidThreads::sumBlocks(v.size(), [&](std::size_t lo, std::size_t hi) {
            double t = 0;
            for (std::size_t i = lo; i < hi; ++i)
                t += v[i];
            return t;
        });
        TfluidThreads::setCount(0);
        return s;
    };
    const double one = sum(1);
    EXPECT_EQ(sum(2), one);
    EXPECT_EQ(sum(5), one);
    // And a range split covers every element exactly once.
    std::vector<int> hits(1001, 0);
    TfluidThreads::setCount(4);
    TfluidThreads::forRange(hits.size(), [&](std::size_t lo, std::size_t hi) {
        for (std::size_t i = lo; i < hi; ++i)
            ++hits[i];
    });
    TfluidThreads::setCount(0);
    for (int h : hits)
        ASSERT_EQ(h, 1);
}

} // namespace
