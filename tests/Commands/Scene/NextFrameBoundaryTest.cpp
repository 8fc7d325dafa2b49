// The frame grid at 24 fps: one frame is 250 ticks. Expected values are worked
// by hand from the rule's steps.

#include "Commands/Scene/TdynStatic.h"

#include <gtest/gtest.h>

namespace {

TanimTime ticks(std::int64_t n) {
    return TanimTime::fromTicks(n);
}

class NextFrameBoundary : public ::testing::Test {
protected:
    void SetUp() override { TtimeUnit::setCurrent(kFilm); }
};

TEST_F(NextFrameBoundary, OversampleOneMovesUpToTheNextFrame) {
    EXPECT_EQ(TdynStatic::nextFrameBoundary(ticks(1000), 1), ticks(1000)); // on the grid: unchanged
    EXPECT_EQ(TdynStatic::nextFrameBoundary(ticks(0), 1), ticks(0));
    // 1100 / 250 = 4.4: r = 0.4 frame = 100 ticks; 1100 - 100 + 250.
    EXPECT_EQ(TdynStatic::nextFrameBoundary(ticks(1100), 1), ticks(1250));
    // Before zero the fraction is negative: -0.4 frame, so 100 ticks are added.
    EXPECT_EQ(TdynStatic::nextFrameBoundary(ticks(-100), 1), ticks(0));
    EXPECT_EQ(TdynStatic::nextFrameBoundary(ticks(-1000), 1), ticks(-1000));
    // -1100 / 250 = -4.4 -> -1000.
    EXPECT_EQ(TdynStatic::nextFrameBoundary(ticks(-1100), 1), ticks(-1000));
}

TEST_F(NextFrameBoundary, OversampleBelowOneCountsAsOne) {
    EXPECT_EQ(TdynStatic::nextFrameBoundary(ticks(1100), 0), ticks(1250));
    EXPECT_EQ(TdynStatic::nextFrameBoundary(ticks(1100), -3), ticks(1250));
}

TEST_F(NextFrameBoundary, OversampleTwoReadsTheStepFractionAsAFrameFraction) {
    // step = 125. On the sub-step grid: unchanged.
    EXPECT_EQ(TdynStatic::nextFrameBoundary(ticks(1125), 2), ticks(1125));
    // 1100 / 125 = 8.8: r = 0.8 frame = 200 ticks; 1100 - 200 + 125 = 1025, not 1125.
    EXPECT_EQ(TdynStatic::nextFrameBoundary(ticks(1100), 2), ticks(1025));
    // 1050 / 125 = 8.4: r = 0.4 frame = 100 ticks; 1050 - 100 + 125.
    EXPECT_EQ(TdynStatic::nextFrameBoundary(ticks(1050), 2), ticks(1075));
    // -1050 / 125 = -8.4: r = -100 ticks; -1050 + 100.
    EXPECT_EQ(TdynStatic::nextFrameBoundary(ticks(-1050), 2), ticks(-950));
}

TEST_F(NextFrameBoundary, OversampleThreeTruncatesTheStep) {
    // step = 250 / 3 truncated = 83 ticks.
    EXPECT_EQ(TdynStatic::nextFrameBoundary(ticks(166), 3), ticks(166)); // 2 steps exactly
    // 100 / 83 = 1.2048...: r = 0.2048 frame = 51.2 -> 51 ticks; 100 - 51 + 83.
    EXPECT_EQ(TdynStatic::nextFrameBoundary(ticks(100), 3), ticks(132));
    // -100 / 83 = -1.2048...: r = -51 ticks; -100 + 51.
    EXPECT_EQ(TdynStatic::nextFrameBoundary(ticks(-100), 3), ticks(-49));
}

TEST_F(NextFrameBoundary, AFractionWithinTinyOfOneCountsAsZero) {
    // 249.9999999999 / 250 has a fraction within 1e-10 of 1 only for times a
    // tick cannot hold; with whole ticks the nearest is 249, well away from 1.
    EXPECT_EQ(TdynStatic::nextFrameBoundary(ticks(249), 1), ticks(250));
    EXPECT_EQ(TdynStatic::nextFrameBoundary(ticks(251), 1), ticks(500));
}

TEST_F(NextFrameBoundary, FollowsTheCurrentFrameUnit) {
    TtimeUnit::setCurrent(kNtsc); // 200 ticks a frame
    EXPECT_EQ(TdynStatic::nextFrameBoundary(ticks(1100), 1), ticks(1200));
    TtimeUnit::setCurrent(kFilm);
}

} // namespace
