#include "Host/Script/TscriptValue.h"

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <cstdlib>

TEST(TscriptValue, NumbersPrintInTheShortestFormThatReadsBack) {
    EXPECT_EQ(formatScriptNumber(5.0), "5");
    EXPECT_EQ(formatScriptNumber(0.1), "0.1");
    EXPECT_EQ(formatScriptNumber(1e-7), "1e-07");
    EXPECT_EQ(formatScriptNumber(-2.5), "-2.5");
    EXPECT_EQ(formatScriptNumber(1.0 / 3.0), "0.3333333333333333");
    // Every double survives a round trip through its text.
    for (double v : {0.1 + 0.2, 1e300, -4.9e-324, 123456789.125})
        EXPECT_EQ(std::strtod(formatScriptNumber(v).c_str(), nullptr), v);
}

TEST(TscriptValue, EchoTextOfEveryKind) {
    EXPECT_EQ(TscriptValue().toString(), "");
    EXPECT_EQ(TscriptValue(-3).toString(), "-3");
    EXPECT_EQ(TscriptValue(2.0).toString(), "2");
    EXPECT_EQ(TscriptValue("a b").toString(), "a b");
    EXPECT_EQ(TscriptValue(TscriptVector{1, 0.5, -2}).toString(), "1 0.5 -2");
    EXPECT_EQ(TscriptValue(std::vector<int>{1, 2, 3}).toString(), "1 2 3");
    EXPECT_EQ(TscriptValue(std::vector<double>{0.25, 4}).toString(), "0.25 4");
    EXPECT_EQ(TscriptValue(std::vector<std::string>{"a", "b"}).toString(), "a b");
    EXPECT_EQ(TscriptValue(std::vector<TscriptVector>{{1, 2, 3}, {4, 5, 6}}).toString(), "1 2 3 4 5 6");
    EXPECT_EQ(TscriptValue(std::vector<int>{}).toString(), "");
}

TEST(TscriptValue, ScalarConversions) {
    // Floats truncate toward zero and saturate instead of overflowing.
    EXPECT_EQ(TscriptValue(2.9).asInt(), 2);
    EXPECT_EQ(TscriptValue(-2.9).asInt(), -2);
    EXPECT_EQ(TscriptValue(1e20).asInt(), INT_MAX);
    EXPECT_EQ(TscriptValue(-1e20).asInt(), INT_MIN);
    EXPECT_EQ(TscriptValue(std::nan("")).asInt(), 0);
    // Strings convert when the whole text is a number, else to 0.
    EXPECT_EQ(TscriptValue(" 42 ").asInt(), 42);
    EXPECT_DOUBLE_EQ(TscriptValue("2.5e1").asFloat(), 25.0);
    EXPECT_EQ(TscriptValue("12abc").asInt(), 0);
    EXPECT_EQ(TscriptValue("").asFloat(), 0.0);
    // A vector converts to a number by its length: |(3,4,0)| = 5.
    EXPECT_DOUBLE_EQ(TscriptValue(TscriptVector{3, 4, 0}).asFloat(), 5.0);
    EXPECT_EQ(TscriptValue(TscriptVector{3, 4, 0}).asString(), "3 4 0");
    // Vectors read back from their own text; a number fills all three.
    EXPECT_EQ(TscriptValue("1 -2 0.5").asVector(), (TscriptVector{1, -2, 0.5}));
    EXPECT_EQ(TscriptValue(2).asVector(), (TscriptVector{2, 2, 2}));
    EXPECT_EQ(TscriptValue("1 2").asVector(), (TscriptVector{0, 0, 0}));
    EXPECT_EQ(TscriptValue("1 2 3 4").asVector(), (TscriptVector{0, 0, 0}));
}

TEST(TscriptValue, BoolConstructsAnInt) {
    TscriptValue t(true);
    EXPECT_EQ(t.type(), TscriptType::Int);
    EXPECT_EQ(t.asInt(), 1);
}
