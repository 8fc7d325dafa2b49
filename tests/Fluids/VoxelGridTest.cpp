#include <gtest/gtest.h>

#include "Fluids/Core/TfluidGrid.h"
#include "Host/Voxel/TfloatVoxelGrid.h"

TEST(VoxelGrid, GeometryAndIndexing) {
    TvoxelGrid g;
    g.setCenter(1.0f, 0.0f, 0.0f);
    g.create(4, 2, 2, 8.0, 2.0, 1.0);
    EXPECT_EQ(g.n, 16u);
    EXPECT_DOUBLE_EQ(g.dx, 2.0);
    EXPECT_DOUBLE_EQ(g.dz, 0.5);
    // Box x spans [-3, 5]; cell 1 is [-1, 1] with centre 0.
    const T3dFltPoint c = g.toGridCenter(1u, 0u, 1u);
    EXPECT_FLOAT_EQ(c.x, 0.0f);
    EXPECT_FLOAT_EQ(c.y, -0.5f);
    EXPECT_FLOAT_EQ(c.z, 0.25f);
    // Grid space: a cell centre has its index as coordinate.
    const T3dFltPoint s = g.toGridSpace(c);
    EXPECT_FLOAT_EQ(s.x, 1.0f);
    EXPECT_FLOAT_EQ(s.y, 0.0f);
    EXPECT_FLOAT_EQ(s.z, 1.0f);
    T3Int32 idx;
    ASSERT_TRUE(g.toGridIndex(T3dFltPoint(4.9f, 0.9f, -0.4f), idx));
    EXPECT_EQ(idx.x, 3);
    EXPECT_EQ(idx.y, 1);
    EXPECT_EQ(idx.z, 0);
    EXPECT_FALSE(g.toGridIndex(T3dFltPoint(5.1f, 0.0f, 0.0f), idx));
    EXPECT_FALSE(g.toGridIndex(T3dFltPoint(0.0f, -1.01f, 0.0f), idx));
}

TEST(VoxelGrid, BadIndexReadsZeroAndWritesAreIgnored) {
    TfloatVoxelGrid g;
    g.create(2, 2, 2, 1, 1, 1);
    g.setAllValues(3.0f);
    EXPECT_EQ(g.value(size_t(8)), 0.0f);
    EXPECT_EQ(g.value(2u, 0u, 0u), 0.0f);
    g.setValue(size_t(99), 7.0f);
    g.addValue(size_t(8), 7.0f);
    g[100] = 5.0f; // lands in a dummy
    EXPECT_DOUBLE_EQ(g.calcSum(), 24.0);
    EXPECT_DOUBLE_EQ(g.sum(), 24.0);
    // An unallocated grid reads 0 everywhere.
    TfloatVoxelGrid empty;
    EXPECT_EQ(empty.value(size_t(0)), 0.0f);
    EXPECT_FALSE(empty.allocated());
}

TEST(VoxelGrid, RangeFillAbsMaxAndExtendKeepContent) {
    TfloatVoxelGrid g;
    g.create(3, 1, 1, 3, 1, 1);
    g.setAllValues(-2.0f, 2.0f);
    EXPECT_FLOAT_EQ(g.value(size_t(0)), -2.0f);
    EXPECT_FLOAT_EQ(g.value(size_t(1)), 0.0f);
    EXPECT_FLOAT_EQ(g.value(size_t(2)), 2.0f);
    g.setValue(size_t(1), -3.5f);
    EXPECT_FLOAT_EQ(g.absMax(), 3.5f);
    // One cell on the low x side and one on the high y side: spacing kept,
    // content shifted by one in x, centre moved half a cell each way.
    g.extend(1, 0, 0, 1, 0, 0);
    EXPECT_EQ(g.nx, 4u);
    EXPECT_EQ(g.ny, 2u);
    EXPECT_DOUBLE_EQ(g.dx, 1.0);
    EXPECT_DOUBLE_EQ(g.width, 4.0);
    EXPECT_FLOAT_EQ(g.center[0], -0.5f);
    EXPECT_FLOAT_EQ(g.center[1], 0.5f);
    EXPECT_FLOAT_EQ(g.value(0u, 0u, 0u), 0.0f);
    EXPECT_FLOAT_EQ(g.value(1u, 0u, 0u), -2.0f);
    EXPECT_FLOAT_EQ(g.value(2u, 0u, 0u), -3.5f);
    EXPECT_FLOAT_EQ(g.value(3u, 0u, 0u), 2.0f);
    EXPECT_FLOAT_EQ(g.value(3u, 1u, 0u), 0.0f);
}

TEST(BuffGrid, SwapKeepsBothArraysAndClearZeroesBoth) {
    TbuffFloatFluidGrid g;
    g.create(2, 2, 1, 1, 1, 1);
    g.setAllValues(1.0f);
    const float* before = g.array();
    g.moveCurrentToPrevious();
    // A swap, not a copy: previous now holds the ones, current the old (zero) previous.
    EXPECT_EQ(g.prevArray(), before);
    EXPECT_EQ(g.array()[0], 0.0f);
    EXPECT_DOUBLE_EQ(g.sumPrevious(), 4.0);
    g.setAllValues(2.0f);
    g.clear();
    EXPECT_DOUBLE_EQ(g.calcSum(), 0.0);
    EXPECT_DOUBLE_EQ(g.sumPrevious(), 0.0);
    // A new count reallocates the previous array too.
    g.setSize(3, 3, 1, 1, 1, 1);
    g.prevArray()[8] = 1.0f;
    EXPECT_DOUBLE_EQ(g.sumPrevious(), 1.0);
    g.reset();
    EXPECT_FALSE(g.allocated());
    EXPECT_EQ(g.prevArray(), nullptr);
}

TEST(BuffGrid, WorkBlockOnlyGrowsAndKeepsContent) {
    float* a = TbuffFloatFluidGrid::work(16);
    a[3] = 42.0f;
    float* b = TbuffFloatFluidGrid::work(8); // smaller: same block, content kept
    EXPECT_EQ(a, b);
    EXPECT_EQ(b[3], 42.0f);
    float* c = TbuffFloatFluidGrid::work(1 << 20);
    EXPECT_EQ(c[3], 0.0f); // grown, hence zeroed
}

TEST(BuffGrid, ResampleInterpolatesAtNewCentres) {
    // A linear ramp stays a ramp at double resolution (interior cells).
    TbuffFloatFluidGrid g;
    g.create(4, 1, 1, 4, 1, 1);
    for (unsigned i = 0; i < 4; ++i)
        g.setValue(size_t(i), float(i));
    g.resample(nullptr, 8, 1, 1);
    ASSERT_EQ(g.n, 8u);
    // New centre x' = (i+0.5)*0.5 - 2; old grid space = x' + 2 - 0.5.
    for (unsigned i = 1; i < 7; ++i)
        EXPECT_NEAR(g.value(size_t(i)), (i + 0.5) * 0.5 - 0.5, 1e-6) << i;
    EXPECT_FLOAT_EQ(g.value(size_t(0)), 0.0f); // clamped at the border
}
