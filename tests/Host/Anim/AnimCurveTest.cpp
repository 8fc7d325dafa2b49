#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <stdexcept>

#include "Host/Anim/TanimCurve.h"

namespace {

using TT = TtangentType;

TEST(TanimCurve, KeysStaySortedAndReplaceAtSameTime) {
    TanimCurve c;
    EXPECT_EQ(c.evaluate(3.0), 0.0);
    EXPECT_EQ(c.setKey(2.0, 20.0), 0);
    EXPECT_EQ(c.setKey(0.5, 5.0), 0);
    EXPECT_EQ(c.setKey(1.0, 10.0), 1);
    ASSERT_EQ(c.keyCount(), 3);
    EXPECT_EQ(c.key(0).time, 0.5);
    EXPECT_EQ(c.key(1).time, 1.0);
    EXPECT_EQ(c.key(2).time, 2.0);

    // Same time (within far less than a tick) replaces value and tangents.
    EXPECT_EQ(c.setKey(1.0 + 1e-9, -1.0, TT::kStepped), 1);
    ASSERT_EQ(c.keyCount(), 3);
    EXPECT_EQ(c.key(1).value, -1.0);
    EXPECT_EQ(c.key(1).outTangent, TT::kStepped);
    EXPECT_EQ(c.key(1).time, 1.0);
    // One tick apart is a separate key.
    EXPECT_EQ(c.setKey(1.0 + 1.0 / 6000, 7.0), 2);
    EXPECT_EQ(c.keyCount(), 4);

    EXPECT_EQ(c.findKey(2.0), 3);
    EXPECT_EQ(c.findKey(1.5), -1);
    EXPECT_TRUE(c.removeKeyAtTime(1.0 + 1.0 / 6000));
    EXPECT_FALSE(c.removeKeyAtTime(1.5));
    EXPECT_TRUE(c.removeKey(0));
    EXPECT_FALSE(c.removeKey(5));
    EXPECT_FALSE(c.removeKey(-1));
    ASSERT_EQ(c.keyCount(), 2);
    EXPECT_EQ(c.key(0).value, -1.0);
    EXPECT_EQ(c.key(1).value, 20.0);
}

TEST(TanimCurve, ConstantOutsideTheKeys) {
    TanimCurve c;
    c.setKey(1.0, 3.0);
    EXPECT_EQ(c.evaluate(-100.0), 3.0);
    EXPECT_EQ(c.evaluate(100.0), 3.0);
    c.setKey(2.0, 5.0, TT::kLinear);
    EXPECT_EQ(c.evaluate(0.0), 3.0);
    EXPECT_EQ(c.evaluate(1.0), 3.0);
    EXPECT_EQ(c.evaluate(2.0), 5.0);
    EXPECT_EQ(c.evaluate(1e9), 5.0);
}

TEST(TanimCurve, LinearIsExactAtMidpoints) {
    TanimCurve c;
    c.setKey(0.0, 0.0, TT::kLinear);
    c.setKey(2.0, 10.0, TT::kLinear);
    c.setKey(3.0, 4.0, TT::kLinear);
    EXPECT_EQ(c.evaluate(1.0), 5.0);
    EXPECT_EQ(c.evaluate(0.5), 2.5);
    EXPECT_EQ(c.evaluate(2.5), 7.0);
    EXPECT_EQ(c.evaluate(2.75), 5.5);
    EXPECT_EQ(c.outSlope(0), 5.0);
    EXPECT_EQ(c.inSlope(2), -6.0);
}

TEST(TanimCurve, SteppedHoldsUntilTheNextKey) {
    TanimCurve c;
    c.setKey(0.0, 1.0, TT::kStepped);
    c.setKey(1.0, 2.0, TT::kStepped);
    c.setKey(2.0, 3.0, TT::kLinear);
    EXPECT_EQ(c.evaluate(0.0), 1.0);
    EXPECT_EQ(c.evaluate(0.999), 1.0);
    EXPECT_EQ(c.evaluate(1.0), 2.0);
    EXPECT_EQ(c.evaluate(1.999), 2.0);
    EXPECT_EQ(c.evaluate(2.0), 3.0);
    // A stepped in-tangent on the later key holds as well.
    c.setTangentTypes(1, TT::kLinear, TT::kLinear);
    c.setTangentTypes(2, TT::kStepped, TT::kLinear);
    EXPECT_EQ(c.evaluate(1.5), 2.0);
    EXPECT_EQ(c.evaluate(0.5), 1.0);
}

TEST(TanimCurve, SmoothMatchesHandComputedHermite) {
    // Two smooth keys: flat ends, so the curve is 3s^2 - 2s^3.
    TanimCurve two;
    two.setKey(0.0, 0.0);
    two.setKey(1.0, 1.0);
    EXPECT_NEAR(two.evaluate(0.25), 3.0 / 16 - 2.0 / 64, 1e-15);
    EXPECT_NEAR(two.evaluate(0.5), 0.5, 1e-15);

    // Keys (0,0), (1,1), (3,5): the middle slope is (5-0)/(3-0) = 5/3. First segment at s = 1/2:
    // h01 = 1/2, h11 = -1/8, so 1/2 - (1/8)(5/3) = 7/24.
    TanimCurve c;
    c.setKey(0.0, 0.0);
    c.setKey(1.0, 1.0);
    c.setKey(3.0, 5.0);
    EXPECT_DOUBLE_EQ(c.inSlope(1), 5.0 / 3);
    EXPECT_DOUBLE_EQ(c.outSlope(1), 5.0 / 3);
    EXPECT_NEAR(c.evaluate(0.5), 7.0 / 24, 1e-15);
    // Second segment, h = 2, s = 1/2: 1/2 + h10*h*m0 + 5/2 = 3 + (1/8)*2*(5/3) = 3 + 5/12.
    EXPECT_NEAR(c.evaluate(2.0), 3.0 + 5.0 / 12, 1e-14);
}

TEST(TanimCurve, SmoothPassesThroughKeysWithContinuousSlope) {
    TanimCurve c;
    const double t[] = {0.0, 0.4, 1.5, 2.0, 3.7};
    const double v[] = {1.0, -2.0, 0.5, 4.0, 3.0};
    for (int i = 4; i >= 0; --i)
        c.setKey(t[i], v[i]);
    const double h = 1e-6;
    for (int i = 0; i < 5; ++i) {
        EXPECT_NEAR(c.evaluate(t[i]), v[i], 1e-14) << "key " << i;
        if (i == 0 || i == 4) continue;
        // One-sided difference quotients agree to O(h) when the slope is continuous.
        const double left = (c.evaluate(t[i]) - c.evaluate(t[i] - h)) / h;
        const double right = (c.evaluate(t[i] + h) - c.evaluate(t[i])) / h;
        EXPECT_NEAR(left, right, 1e-4) << "key " << i;
        EXPECT_NEAR(right, (v[i + 1] - v[i - 1]) / (t[i + 1] - t[i - 1]), 1e-4) << "key " << i;
    }
    // Flat where the curve meets the held end values.
    EXPECT_NEAR((c.evaluate(h) - c.evaluate(0)) / h, 0.0, 1e-4);
}

TEST(TanimCurve, BadKeysAreRefusedWithAMessage) {
    TanimCurve c;
    const double nan = std::numeric_limits<double>::quiet_NaN();
    try {
        c.setKey(nan, 1.0);
        FAIL() << "no exception";
    } catch (const std::invalid_argument& e) {
        EXPECT_NE(std::string(e.what()).find("time"), std::string::npos) << e.what();
    }
    try {
        c.setKey(2.0, std::numeric_limits<double>::infinity());
        FAIL() << "no exception";
    } catch (const std::invalid_argument& e) {
        EXPECT_NE(std::string(e.what()).find("value"), std::string::npos) << e.what();
    }
    EXPECT_TRUE(c.isEmpty());
    c.setKey(1.0, 2.0);
    EXPECT_EQ(c.evaluate(nan), 2.0);
    EXPECT_FALSE(c.setTangentTypes(3, TT::kLinear, TT::kLinear));
}

} // namespace
