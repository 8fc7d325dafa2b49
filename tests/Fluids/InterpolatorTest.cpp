#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <vector>

#include "Fluids/Core/TgridInterpolator.h"

namespace {

// A 3D grid of unit cells whose box starts at the origin, so that cell i's
// centre is at x = i + 0.5.
TbuffFloatFluidGrid unitGrid(unsigned nx, unsigned ny, unsigned nz) {
    TbuffFloatFluidGrid g;
    g.setCenter(nx * 0.5f, ny * 0.5f, nz * 0.5f);
    g.create(nx, ny, nz, nx, ny, nz);
    return g;
}

T3dFltPoint at(double gx, double gy, double gz) {
    return {float(gx + 0.5), float(gy + 0.5), float(gz + 0.5)};
}

} // namespace

TEST(Interpolators, LinearReturnsTheCellAtItsCentreAndTheMeanBetween) {
    TbuffFloatFluidGrid g = unitGrid(4, 3, 5);
    srand48(7);
    for (size_t c = 0; c < g.n; ++c)
        g.setValue(c, float(drand48() * 10 - 5));
    TlinearGridInterpolator lin;
    for (unsigned k = 0; k < 5; ++k)
        for (unsigned j = 0; j < 3; ++j)
            for (unsigned i = 0; i < 4; ++i)
                EXPECT_EQ(lin.interpScalar(g, nullptr, at(i, j, k), g.array()), g.value(i, j, k));
    // Halfway between two cells along x: their mean (to float rounding).
    const float mid = lin.interpScalar(g, nullptr, at(1.5, 2, 3), g.array());
    EXPECT_NEAR(mid, 0.5 * (g.value(1u, 2u, 3u) + g.value(2u, 2u, 3u)), 1e-6);
}

TEST(Interpolators, QuadraticAtACentreWeighsOneEighthThreeQuartersOneEighth) {
    // A separable field f = X[i] * Y[j] * Z[k]: the spline is a product of the
    // per-axis rule 0.125 a + 0.75 b + 0.125 c.
    const unsigned n = 5;
    TbuffFloatFluidGrid g = unitGrid(n, n, n);
    const double X[5] = {1, 4, 2, 8, 3}, Y[5] = {2, -1, 5, 0.5, 1}, Z[5] = {3, 1, 2, 7, -2};
    for (unsigned k = 0; k < n; ++k)
        for (unsigned j = 0; j < n; ++j)
            for (unsigned i = 0; i < n; ++i)
                g.setValue(i, j, k, float(X[i] * Y[j] * Z[k]));
    TquadraticGridInterpolator q;
    auto rule = [](const double* a, int m) { return 0.125 * a[m - 1] + 0.75 * a[m] + 0.125 * a[m + 1]; };
    for (int k = 1; k < 4; ++k)
        for (int j = 1; j < 4; ++j)
            for (int i = 1; i < 4; ++i) {
                const double expect = rule(X, i) * rule(Y, j) * rule(Z, k);
                // Values up to ~100 stored as floats: float rounding of the result.
                EXPECT_NEAR(q.interpScalar(g, nullptr, at(i, j, k), g.array()), expect,
                            1e-4 * std::fabs(expect) + 1e-5);
            }
    // It smooths: a lone spike is not reproduced.
    TbuffFloatFluidGrid s = unitGrid(3, 3, 3);
    s.setValue(1u, 1u, 1u, 1.0f);
    EXPECT_NEAR(q.interpScalar(s, nullptr, at(1, 1, 1), s.array()), 0.75 * 0.75 * 0.75, 1e-7);
}

TEST(Interpolators, HermiteKeepsConstantsAndNeverOvershootsAStep) {
    ThermiteGridInterpolator h;
    TbuffFloatFluidGrid c = unitGrid(6, 6, 6);
    c.setAllValues(2.5f);
    srand48(3);
    for (int t = 0; t < 200; ++t) {
        const T3dFltPoint p(float(drand48() * 8 - 1), float(drand48() * 8 - 1), float(drand48() * 8 - 1));
        EXPECT_EQ(h.interpScalar(c, nullptr, p, c.array()), 2.5f);
    }
    // A step along x, and along y in 2D: every sample stays within [0, 1] and
    // the profile is monotone.
    TbuffFloatFluidGrid s = unitGrid(10, 4, 4);
    for (unsigned k = 0; k < 4; ++k)
        for (unsigned j = 0; j < 4; ++j)
            for (unsigned i = 5; i < 10; ++i)
                s.setValue(i, j, k, 1.0f);
    float last = -1.0f;
    for (double x = 0; x <= 9; x += 0.05) {
        const float v = h.interpScalar(s, nullptr, at(x, 1.3, 2.7), s.array());
        EXPECT_GE(v, 0.0f) << x;
        EXPECT_LE(v, 1.0f) << x;
        EXPECT_GE(v, last) << x;
        last = v;
    }
    // A linear sampler reaches 0.5 halfway across the step; so does the Hermite rule by symmetry.
    EXPECT_NEAR(h.interpScalar(s, nullptr, at(4.5, 1, 1), s.array()), 0.5, 1e-6);
}

TEST(Interpolators, WrappingReadsTheFarSideAndOtherBoundsRepeatTheBorder) {
    TbuffFloatFluidGrid g = unitGrid(4, 1, 1);
    for (unsigned i = 0; i < 4; ++i)
        g.setValue(size_t(i), float(10 * (i + 1))); // 10 20 30 40
    TlinearGridInterpolator lin;
    // Half a cell past the last centre: clamped reads the border ...
    EXPECT_FLOAT_EQ(lin.interpScalar(g, nullptr, at(3.5, 0, 0), g.array()), 40.0f);
    EXPECT_FLOAT_EQ(lin.interpScalar(g, nullptr, at(-1.5, 0, 0), g.array()), 10.0f);
    // ... wrapped mixes the last cell with the first, and a whole cell past reads cell 0.
    g.setBounds(kBoundWrapping, kBoundBoth, kBoundBoth);
    EXPECT_FLOAT_EQ(lin.interpScalar(g, nullptr, at(3.5, 0, 0), g.array()), 25.0f);
    EXPECT_FLOAT_EQ(lin.interpScalar(g, nullptr, at(4.0, 0, 0), g.array()), 10.0f);
    EXPECT_FLOAT_EQ(lin.interpScalar(g, nullptr, at(-1.0, 0, 0), g.array()), 40.0f);
    ThermiteGridInterpolator h;
    EXPECT_FLOAT_EQ(h.interpScalar(g, nullptr, at(5.0, 0, 0), g.array()), 20.0f);
    TquadraticGridInterpolator q;
    // Wrapped spline at cell 0: 0.125*40 + 0.75*10 + 0.125*20.
    EXPECT_NEAR(q.interpScalar(g, nullptr, at(0, 0, 0), g.array()), 15.0, 1e-5);
}

TEST(Interpolators, ComponentsAreToldByResolutionAndSampledOnFaces) {
    // Fluid 4x3x2 of unit cells from the origin; U on x faces, V on y faces.
    TvoxelGrid fluid;
    fluid.setCenter(2.0f, 1.5f, 1.0f);
    fluid.create(4, 3, 2, 4, 3, 2);
    TbuffFloatFluidGrid U, V, P;
    U.setCenter(2.0f, 1.5f, 1.0f);
    U.create(5, 3, 2, 5, 3, 2);
    V.setCenter(2.0f, 1.5f, 1.0f);
    V.create(4, 4, 2, 4, 4, 2);
    P.setCenter(2.0f, 1.5f, 1.0f);
    P.create(4, 3, 2, 4, 3, 2);
    for (size_t c = 0; c < U.n; ++c)
        U.setValue(c, float(c));
    for (size_t c = 0; c < V.n; ++c)
        V.setValue(c, float(1000 + c));
    TlinearGridInterpolator lin;
    const T3dFltVector fr(0, 0, 0);
    // U face (2,1,1) stands at x = 2, y = 1.5, z = 1.5.
    EXPECT_EQ(lin.interpVectorComponent(fluid, nullptr, T3dFltPoint(2.0f, 1.5f, 1.5f), fr, U, nullptr),
              U.value(2u, 1u, 1u));
    // V face (3,2,0) at x = 3.5, y = 2, z = 0.5.
    EXPECT_EQ(lin.interpVectorComponent(fluid, nullptr, T3dFltPoint(3.5f, 2.0f, 0.5f), fr, V, nullptr),
              V.value(3u, 2u, 0u));
    // At a cell centre, U is the mean of the cell's two faces.
    EXPECT_FLOAT_EQ(lin.interpVectorComponent(fluid, nullptr, T3dFltPoint(1.5f, 0.5f, 0.5f), fr, U, nullptr),
                    0.5f * (U.value(1u, 0u, 0u) + U.value(2u, 0u, 0u)));
    // A grid of the fluid's own resolution is no component.
    EXPECT_EQ(lin.interpVectorComponent(fluid, nullptr, T3dFltPoint(1, 1, 1), fr, P, nullptr), 0.0f);
    // A supplied array is read instead of the grid's own.
    std::vector<float> other(U.n, 3.0f);
    EXPECT_EQ(lin.interpVectorComponent(fluid, nullptr, T3dFltPoint(2.0f, 1.5f, 1.5f), fr, U, other.data()),
              3.0f);
}

TEST(Interpolators, HermiteZeroesSamplesInsideObstacles) {
    TbuffFloatFluidGrid g = unitGrid(6, 6, 6);
    g.setAllValues(1.0f);
    std::vector<unsigned char> occ(g.n, 0);
    occ[g.index(3, 3, 3)] = 1;
    ThermiteGridInterpolator h;
    // At the blocked cell's centre a scalar reads 0; far away it is untouched.
    EXPECT_EQ(h.interpScalar(g, occ.data(), at(3, 3, 3), g.array()), 0.0f);
    EXPECT_EQ(h.interpScalar(g, occ.data(), at(0.5, 0.2, 0.7), g.array()), 1.0f);
    // Next to it, on the free side, the reflected samples keep a constant (friction 0 for scalars).
    EXPECT_NEAR(h.interpScalar(g, occ.data(), at(2.2, 3, 3), g.array()), 1.0, 1e-6);
    // Without occupation the same point reads the constant too.
    EXPECT_EQ(h.interpScalar(g, nullptr, at(3, 3, 3), g.array()), 1.0f);
}

TEST(Interpolators, TwoDimensionalFormsAndNames) {
    TbuffFloatFluidGrid g;
    g.setCenter(1.5f, 1.0f, 0.5f);
    g.create(3, 2, 1, 3, 2, 1);
    for (size_t c = 0; c < g.n; ++c)
        g.setValue(c, float(c * c));
    TlinearGridInterpolator lin;
    ThermiteGridInterpolator h;
    for (unsigned j = 0; j < 2; ++j)
        for (unsigned i = 0; i < 3; ++i) {
            const T2dFltPoint p(i + 0.5f, j + 0.5f);
            EXPECT_EQ(lin.interpScalar(g, nullptr, p, g.array()), g.value(i, j, 0u));
            EXPECT_EQ(h.interpScalar(g, nullptr, p, g.array()), g.value(i, j, 0u));
        }
    EXPECT_STREQ(TgridInterpolator::classInterpolatorName(), "none");
    EXPECT_STREQ(lin.interpolatorName(), "linear");
    EXPECT_STREQ(TquadraticGridInterpolator().interpolatorName(), "quadratic");
    EXPECT_STREQ(h.interpolatorName(), "hermite");
    EXPECT_STREQ(TbndLinearGridInterpolator().interpolatorName(), "linear (w. bounds)");
    // Attribute values: 2 picks hermite for the solver, 3 quadratic for rendering.
    TgridInterpolator* a = newGridInterpolator(2);
    TgridInterpolator* b = newGridInterpolator(0);
    TgridInterpolator* c = newRenderInterpolator(3);
    TgridInterpolator* d = newRenderInterpolator(2);
    EXPECT_STREQ(a->interpolatorName(), "hermite");
    EXPECT_STREQ(b->interpolatorName(), "linear");
    EXPECT_STREQ(c->interpolatorName(), "quadratic");
    EXPECT_STREQ(d->interpolatorName(), "linear");
    for (TgridInterpolator* x : {a, b, c, d})
        delete x;
}

TEST(Interpolators, BoundedLinearStopsAtObstacles) {
    TbuffFloatFluidGrid g = unitGrid(4, 1, 1);
    for (unsigned i = 0; i < 4; ++i)
        g.setValue(size_t(i), float(i + 1));
    std::vector<unsigned char> occ(g.n, 0);
    occ[2] = 1;
    TbndLinearGridInterpolator b;
    // Nearer the free cell 1 than the blocked cell 2: the free value alone.
    EXPECT_FLOAT_EQ(b.interpScalar(g, occ.data(), T3dFltPoint(1.8f, 0.5f, 0.5f), g.array()), 2.0f);
    // Nearer the blocked cell: 0.
    EXPECT_FLOAT_EQ(b.interpScalar(g, occ.data(), T3dFltPoint(2.2f, 0.5f, 0.5f), g.array()), 0.0f);
    // Without obstacles it is plain linear.
    EXPECT_FLOAT_EQ(b.interpScalar(g, nullptr, T3dFltPoint(2.0f, 0.5f, 0.5f), g.array()), 2.5f);
}
