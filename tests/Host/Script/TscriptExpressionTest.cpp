// Operators: precedence, the int/float rules, joining, vectors, logic.

#include "ScriptTestSupport.h"

TEST_F(ScriptTest, Precedence) {
    EXPECT_EQ(printed("print (1 + 2 * 3 - 8 / 4);"), "5"); // 1 + 6 - 2
    EXPECT_EQ(printed("print ((1 + 2) * 3);"), "9");
    EXPECT_EQ(printed("print (2 - 3 - 4);"), "-5");                   // left to right
    EXPECT_EQ(printed("print (-2 * -3 + 10 % 4);"), "8");             // 6 + 2
    EXPECT_EQ(printed("print (1 + 1 == 2 && 3 < 2 || 1 > 0);"), "1"); // (T && F) || T
    EXPECT_EQ(printed("print (!0 + 1);"), "2");
    EXPECT_EQ(printed("print (0 ? 1 : 2 ? 3 : 4);"), "3"); // ?: groups to the right
    EXPECT_EQ(printed("int $a; int $b; $a = $b = 4; print ($a + $b);"), "8");
}

TEST_F(ScriptTest, IntAndFloatArithmetic) {
    EXPECT_EQ(printed("print (7 / 2);"), "3");
    EXPECT_EQ(printed("print (-7 / 2);"), "-3"); // truncates toward zero
    EXPECT_EQ(printed("print (7 / 2.0);"), "3.5");
    EXPECT_EQ(printed("print (-7 % 3);"), "-1");
    EXPECT_EQ(printed("print (7.5 % 2);"), "1.5");
    EXPECT_EQ(printed("print (0.1 + 0.2);"), "0.30000000000000004");
    // Ints wrap rather than fault.
    EXPECT_EQ(printed("print (2147483647 + 1);"), "-2147483648");
    EXPECT_EQ(printed("int $m = -2147483647 - 1; print ($m / -1 + \" \" + $m % -1);"), "-2147483648 0");
    // Float division by zero follows the machine: infinity.
    EXPECT_EQ(printed("print (1 / 0.0);"), "inf");
    // A float stored in an int truncates; an int stored in a float stays exact.
    EXPECT_EQ(printed("int $i = 3.99; float $f = 7; print ($i + \" \" + $f / 2);"), "3 3.5");
}

TEST_F(ScriptTest, StringJoiningAndComparison) {
    EXPECT_EQ(printed("print (\"a\" + 1 + 2);"), "a12"); // left to right: text first
    EXPECT_EQ(printed("print (1 + 2 + \"a\");"), "3a");
    EXPECT_EQ(printed("print (\"v=\" + <<1, 0.5, 0>>);"), "v=1 0.5 0");
    EXPECT_EQ(printed("print (\"x\" + 0.1);"), "x0.1");
    EXPECT_EQ(printed("string $s = \"ab\"; $s += \"c\"; print $s;"), "abc");
    EXPECT_EQ(printed("print ((\"abc\" == \"abc\") + (\"a\" < \"b\") + (\"b\" != \"b\"));"), "2");
    EXPECT_EQ(printed("print (\"5\" == 5);"), "1");
}

TEST_F(ScriptTest, VectorArithmetic) {
    EXPECT_EQ(printed("print (<<1, 2, 3>> + <<4, 5, 6>>);"), "5 7 9");
    EXPECT_EQ(printed("print (<<1, 2, 3>> - 1);"), "0 1 2");
    EXPECT_EQ(printed("print (<<1, 2, 3>> * 2);"), "2 4 6");
    EXPECT_EQ(printed("print (2 * <<1, 2, 3>>);"), "2 4 6");
    EXPECT_EQ(printed("print (<<1, 2, 3>> / 2);"), "0.5 1 1.5");
    // * of two vectors is the dot product, ^ the cross product.
    EXPECT_EQ(printed("print (<<1, 2, 3>> * <<4, 5, 6>>);"), "32");
    EXPECT_EQ(printed("print (<<1, 0, 0>> ^ <<0, 1, 0>>);"), "0 0 1");
    EXPECT_EQ(printed("print (-<<1, -2, 0>>);"), "-1 2 -0");
    EXPECT_EQ(printed("vector $v = <<1, 2, 3>>; $v.y = 7; print ($v.x + $v.y + $v.z);"), "11");
    EXPECT_EQ(printed("print (<<1, 2, 3>> == <<1, 2, 3>>);"), "1");
    EXPECT_EQ(printed("vector $v = 2; print $v;"), "2 2 2");
}

TEST_F(ScriptTest, LogicShortCircuits) {
    // The right side of && and || runs only when needed: setAttr records each run.
    host.results["setAttr"] = 1;
    ASSERT_TRUE(
        interp.run("int $r = 0 && `setAttr a`; $r = 1 || `setAttr b`; $r = 1 && `setAttr c`;", "t", false));
    ASSERT_EQ(host.calls.size(), 1u);
    EXPECT_EQ(host.calls[0].argText(), "c");
    EXPECT_EQ(printed("print (\"\" || 0.0);"), "0");
    EXPECT_EQ(printed("print (!\"x\");"), "0");
}

TEST_F(ScriptTest, IncrementDecrementAndCompoundAssignment) {
    EXPECT_EQ(printed("int $i = 5; int $a = $i++; int $b = ++$i; print ($a + \" \" + $b + \" \" + $i);"),
              "5 7 7");
    EXPECT_EQ(printed("float $f = 0.5; $f--; print $f;"), "-0.5");
    EXPECT_EQ(printed("int $x = 10; $x += 5; $x -= 3; $x *= 2; $x /= 5; print $x;"), "4"); // ((10+5-3)*2)/5
    EXPECT_EQ(printed("int $arr[] = {1, 2}; $arr[1] += 10; $arr[0]++; print ($arr[0] + \",\" + $arr[1]);"),
              "2,12");
    EXPECT_EQ(printed("vector $v = <<1, 1, 1>>; $v *= 3; print $v;"), "3 3 3");
}

TEST_F(ScriptTest, ConversionsByName) {
    EXPECT_EQ(printed("print (int(2.7) + float(\"0.5\"));"), "2.5");
    EXPECT_EQ(printed("print (string(3) + string(1.5));"), "31.5");
    EXPECT_EQ(printed("print (vector(\"1 2 3\") + 1);"), "2 3 4");
}
