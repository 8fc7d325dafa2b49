// Built-in functions against values worked out by hand.

#include "ScriptTestSupport.h"

#include <cmath>
#include <cstdlib>

namespace {

double number(TscriptInterpreter& in, const std::string& text) {
    TscriptValue v = in.evaluate(text, {"t", 1});
    EXPECT_TRUE(v.isNumber()) << text;
    return v.asFloat();
}

} // namespace

TEST_F(ScriptTest, MathBuiltins) {
    // Exact in binary, so compared exactly.
    EXPECT_EQ(number(interp, "sqrt(2.25)"), 1.5);
    EXPECT_EQ(number(interp, "pow(2, 10)"), 1024.0);
    EXPECT_EQ(number(interp, "floor(-1.5) + ceil(1.2)"), 0.0);
    EXPECT_EQ(number(interp, "abs(-3) + abs(-0.5)"), 3.5);
    EXPECT_EQ(interp.evaluate("abs(-3)", {"t", 1}).type(), TscriptType::Int);
    EXPECT_EQ(interp.evaluate("min(3, 7)", {"t", 1}), TscriptValue(3));
    EXPECT_EQ(interp.evaluate("max(3, 7.5)", {"t", 1}), TscriptValue(7.5));
    EXPECT_EQ(interp.evaluate("max(<<1, 5, 0>>, <<2, 0, 0>>)", {"t", 1}),
              TscriptValue(TscriptVector{2, 5, 0}));
    EXPECT_EQ(interp.evaluate("clamp(0, 10, 12)", {"t", 1}), TscriptValue(10));
    EXPECT_EQ(interp.evaluate("clamp(0.0, 1.0, -2)", {"t", 1}), TscriptValue(0.0));
    // Library functions: within a few ulps of the closed forms.
    EXPECT_NEAR(number(interp, "atan2(1, 1)"), M_PI / 4, 1e-15);
    EXPECT_NEAR(number(interp, "sin(deg_to_rad(30))"), 0.5, 1e-15);
    EXPECT_NEAR(number(interp, "exp(log(5))"), 5.0, 1e-14);
    EXPECT_NEAR(number(interp, "cos(0) + tan(0)"), 1.0, 0.0);
    // smoothstep(0, 2, 0.5): t = 1/4, 3t^2 - 2t^3 = 3/16 - 1/32 = 5/32.
    EXPECT_EQ(number(interp, "smoothstep(0, 2, 0.5)"), 5.0 / 32.0);
    EXPECT_EQ(number(interp, "smoothstep(0, 1, -1) + smoothstep(0, 1, 3)"), 1.0);
}

TEST_F(ScriptTest, VectorBuiltins) {
    EXPECT_EQ(number(interp, "mag(<<3, 4, 12>>)"), 13.0);
    EXPECT_EQ(interp.evaluate("unit(<<0, 0, -4>>)", {"t", 1}), TscriptValue(TscriptVector{0, 0, -1}));
    EXPECT_EQ(interp.evaluate("unit(<<0, 0, 0>>)", {"t", 1}), TscriptValue(TscriptVector{0, 0, 0}));
    EXPECT_EQ(interp.evaluate("cross(<<0, 1, 0>>, <<0, 0, 1>>)", {"t", 1}),
              TscriptValue(TscriptVector{1, 0, 0}));
    EXPECT_EQ(number(interp, "dot(<<1, 2, 3>>, <<-1, 0, 2>>)"), 5.0);
    EXPECT_NEAR(number(interp, "angle(<<1, 0, 0>>, <<1, 1, 0>>)"), M_PI / 4, 1e-15);
}

TEST_F(ScriptTest, StringBuiltins) {
    EXPECT_EQ(printed("string $parts[]; int $n = tokenize(\"a  b,c\", \" ,\", $parts);"
                      "print ($n + \":\" + $parts[0] + $parts[1] + $parts[2]);"),
              "3:abc");
    EXPECT_EQ(printed("string $w[] = tokenize(\" x y \"); print (size($w) + $w[1]);"), "2y");
    // substring counts from 1 and includes both ends; ends outside are clipped.
    EXPECT_EQ(printed("print (substring(\"motion\", 2, 4) + \"|\" + substring(\"ab\", 0, 9) + \"|\" + "
                      "substring(\"ab\", 2, 1));"),
              "oti|ab|");
    EXPECT_EQ(
        printed(
            "print (strcmp(\"a\", \"b\") + \" \" + strcmp(\"b\", \"b\") + \" \" + strcmp(\"c\", \"b\"));"),
        "-1 0 1");
    EXPECT_EQ(printed("print (size(\"four\") + toupper(\"aB\") + tolower(\"Cd\") + strip(\"  e \"));"),
              "4ABcde");
    EXPECT_EQ(printed("print (startsWith(\"pCube1\", \"pCube\") + endsWith(\"a.tx\", \".ty\"));"), "1");
    EXPECT_EQ(printed("print (stringArrayCount(\"a\", {\"a\", \"b\", \"a\"}));"), "2");
    EXPECT_EQ(printed("print (exists(\"print\") + exists(\"setAttr\") + exists(\"nope\"));"), "2");
}

TEST_F(ScriptTest, RandRepeatsFromItsSeed) {
    // seed(s) starts the erand48 stream at {0x330e, s & 0xffff, s >> 16}.
    unsigned short state[3] = {0x330e, 7, 0};
    double first = erand48(state), second = erand48(state);
    EXPECT_EQ(number(interp, "seed(7); rand(1)"), first);
    EXPECT_EQ(number(interp, "rand(10, 20)"), 10 + 10 * second);
    // Another interpreter gives the same stream from the same seed.
    FakeScriptHost otherHost;
    TscriptInterpreter other(otherHost);
    EXPECT_EQ(number(other, "seed(7); rand(1)"), first);
    // Bounds hold over many draws, vectors draw per component.
    EXPECT_EQ(printed("int $bad = 0; for ($i = 0; $i < 2000; $i++) { float $r = rand(-2, 3);"
                      " if ($r < -2 || $r >= 3) $bad++; vector $v = rand(<<1, 10, 100>>);"
                      " if ($v.x >= 1 || $v.y >= 10 || $v.z >= 100 || $v.x < 0) $bad++; } print $bad;"),
              "0");
}

TEST_F(ScriptTest, NoiseIsSmoothBoundedAndZeroOnTheLattice) {
    // Gradient noise vanishes at lattice points.
    EXPECT_EQ(number(interp, "noise(3.0)"), 0.0);
    EXPECT_EQ(number(interp, "noise(<<-2, 5, 7>>)"), 0.0);
    double maxAbs = 0, maxStep = 0;
    const double h = 1e-4;
    for (int i = 0; i < 400; ++i) {
        double x = -20.0 + i * 0.1037;
        std::string at = "<<" + std::to_string(x) + ", " + std::to_string(0.5 * x) + ", 1.25>>";
        double a = number(interp, "noise(" + at + ")");
        double b = number(interp, "noise(" + at + " + <<" + std::to_string(h) + ", 0, 0>>)");
        double c = number(interp, "noise(" + std::to_string(x) + ")");
        maxAbs = std::max({maxAbs, std::fabs(a), std::fabs(c)});
        maxStep = std::max(maxStep, std::fabs(b - a));
        ASSERT_LE(std::fabs(a), 1.0);
        ASSERT_LE(std::fabs(c), 1.0);
    }
    // Not flat, and continuous: the slope of this noise stays below about 3,
    // so a step of 1e-4 moves it by well under 1e-3.
    EXPECT_GT(maxAbs, 0.2);
    EXPECT_LT(maxStep, 1e-3);
    // Same point, same value, and far-away or non-finite points stay finite.
    EXPECT_EQ(number(interp, "noise(<<1.3, 2.7, 0.2>>)"), number(interp, "noise(<<1.3, 2.7, 0.2>>)"));
    EXPECT_TRUE(std::isfinite(number(interp, "noise(<<1e300, -1e300, 3>>)")));
    EXPECT_EQ(number(interp, "noise(1 / 0.0)"), 0.0);
    EXPECT_EQ(interp.evaluate("dnoise(<<0, 0, 0>>)", {"t", 1}).type(), TscriptType::Vector);
}

TEST_F(ScriptTest, PrintShowsArraysOneElementALine) {
    EXPECT_EQ(printed("print {1.5, 2};"), "1.5\n2\n");
    EXPECT_EQ(printed("print <<1, 2, 3>>;"), "1 2 3");
    EXPECT_EQ(printed("print 0.1;"), "0.1");
}

TEST_F(ScriptTest, GlobMatching) {
    const std::pair<const char*, int> cases[] = {
        {"gmatch(\"pCube12\", \"pCube*\")", 1},
        {"gmatch(\"pCube12\", \"pCube?\")", 0},
        {"gmatch(\"pCube12\", \"p*1?\")", 1},
        {"gmatch(\"ab\", \"*a*b*\")", 1},
        {"gmatch(\"abc\", \"a[a-c]c\")", 1},
        {"gmatch(\"abc\", \"a[!b]c\")", 0},
        {"gmatch(\"\", \"*\")", 1},
        {"gmatch(\"x\", \"\")", 0},
        {"gmatch(\"a]\", \"a[]]\")", 1},
        {"gmatch(\"aaaaaaaaaaaaaaaaaaaaaaab\", \"*a*a*a*a*a*c\")", 0},
    };
    for (const auto& [text, want] : cases)
        EXPECT_EQ(interp.evaluate(text, {"t", 1}), TscriptValue(want)) << text;
}

TEST_F(ScriptTest, ArrayAndTextHelpers) {
    EXPECT_EQ(printed("print (substituteAllString(\"a.b.c\", \".\", \"::\"));"), "a::b::c");
    EXPECT_EQ(printed("print (stringArrayToString({\"x\", \"y\", \"z\"}, \", \"));"), "x, y, z");
    EXPECT_EQ(printed("print (sort({3, 1, 2}));"), "1\n2\n3\n");
    EXPECT_EQ(printed("print (sort({\"b\", \"a\"}));"), "a\nb\n");
    EXPECT_EQ(printed("print (sort({<<1, 2, 0>>, <<1, 1, 5>>}));"), "1 1 5\n1 2 0\n");
}

TEST_F(ScriptTest, SphereAndGaussDraws) {
    // Every sphrand point lies in the ball; over many draws the mean of
    // gauss(2) is near 0 and its variance near 4 (standard error of the
    // variance at n = 4000 is about 4 * sqrt(2 / 4000) = 0.09).
    EXPECT_EQ(printed("seed(11); int $out = 0; float $sum = 0, $sq = 0; int $n = 4000;\n"
                      "for ($i = 0; $i < $n; $i++) { if (mag(sphrand(2)) > 2) $out++;"
                      " float $g = gauss(2); $sum += $g; $sq += $g * $g; }\n"
                      "float $mean = $sum / $n; float $var = $sq / $n - $mean * $mean;\n"
                      "print ($out + \" \" + (abs($mean) < 0.15) + \" \" + (abs($var - 4) < 0.4));"),
              "0 1 1");
}
