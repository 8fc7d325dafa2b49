#include <gtest/gtest.h>

#include <set>
#include <vector>

#include "Fluids/Core/Tfluid.h"
#include "Fluids/Core/TvoxelTraversal.h"

namespace {
Tfluid box(unsigned nx, unsigned ny, unsigned nz) {
    Tfluid f;
    f.setSize(nx, ny, nz, nx, ny, nz);
    return f;
}
int manhattan(const TvoxelTraversal& w, uint32_t a, uint32_t b) {
    unsigned i, j, k, p, q, r;
    w.voxelId(a, i, j, k);
    w.voxelId(b, p, q, r);
    return std::abs(int(i) - int(p)) + std::abs(int(j) - int(q)) + std::abs(int(k) - int(r));
}
} // namespace

TEST(VoxelTraversal, BreadthFirstOverTheBoxVisitsEachVoxelOnce) {
    Tfluid f = box(4, 3, 2);
    TsurfaceVoxelTraversal walk(f, 0, 3, 0, 2, 0, 1);
    const uint32_t seed = walk.voxelId(1, 1, 0);
    walk.reset(seed);
    std::vector<uint32_t> order;
    for (uint32_t v = walk.voxel(); !walk.isDone(); v = walk.next())
        order.push_back(v);
    ASSERT_EQ(order.size(), 24u);
    EXPECT_EQ(order.front(), seed);
    EXPECT_EQ(std::set<uint32_t>(order.begin(), order.end()).size(), 24u);
    // Breadth first: distance from the seed never decreases along the walk.
    for (size_t q = 1; q < order.size(); ++q)
        EXPECT_GE(manhattan(walk, seed, order[q]), manhattan(walk, seed, order[q - 1]));
    EXPECT_EQ(walk.next(), TvoxelTraversal::kNoVoxel);
    unsigned i, j, k;
    walk.voxelId(walk.voxelId(3, 2, 1), i, j, k);
    EXPECT_EQ(i + 10 * j + 100 * k, 3u + 20u + 100u);
}

TEST(VoxelTraversal, BoundsFlagsAndRejectionLimitTheWalk) {
    Tfluid f = box(5, 5, 1);
    // A sub-box of 3 x 2.
    TsurfaceVoxelTraversal walk(f, 1, 3, 2, 3, 0, 0);
    walk.reset(walk.voxelId(2, 2, 0));
    int n = 0;
    for (; !walk.isDone(); walk.next())
        ++n;
    EXPECT_EQ(n, 6);
    // Flags: only a plus-shaped region around the centre.
    std::vector<unsigned char> flags(25, 0);
    for (auto [i, j] : {std::pair{2, 2}, {1, 2}, {3, 2}, {2, 1}, {2, 3}})
        flags[size_t(i + 5 * j)] = 1;
    TsurfaceVoxelTraversal plus(f, 0, 4, 0, 4, 0, 0);
    plus.setFlags(flags.data());
    plus.reset(plus.voxelId(2, 2, 0));
    n = 0;
    for (; !plus.isDone(); plus.next())
        ++n;
    EXPECT_EQ(n, 5);
    // A row 0..4; rejecting voxel 2 stops the walk from passing through it.
    Tfluid row = box(5, 1, 1);
    TsurfaceVoxelTraversal line(row, 0, 4, 0, 0, 0, 0);
    line.reset(0);
    std::vector<uint32_t> seen;
    for (; !line.isDone(); line.next()) {
        seen.push_back(line.voxel());
        if (line.voxel() == 2) line.rejectCurrentVoxel();
    }
    EXPECT_EQ(seen, (std::vector<uint32_t>{0, 1, 2}));
    EXPECT_TRUE(line.isVoxelVisited(2));
    EXPECT_FALSE(line.isVoxelVisited(3));
    // A seed outside the fluid is an empty walk.
    line.reset(99);
    EXPECT_TRUE(line.isDone());
}

TEST(VoxelTraversal, UvIsThePositionAcrossTheViewPlane) {
    Tfluid f = box(4, 2, 8);
    TsurfaceVoxelTraversal walk(f, 0, 3, 0, 1, 0, 7, 1); // looking along y: plane x, z
    walk.reset(walk.voxelId(3, 1, 2));
    float uv[2];
    walk.uv(uv);
    EXPECT_FLOAT_EQ(uv[0], 3.5f / 4);
    EXPECT_FLOAT_EQ(uv[1], 2.5f / 8);
}
