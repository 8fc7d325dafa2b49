// Procs: parameters, return types, recursion, visibility, eval.

#include "ScriptTestSupport.h"

TEST_F(ScriptTest, RecursionAndReturnTypes) {
    EXPECT_EQ(printed("proc int fact(int $n) { if ($n <= 1) return 1; return $n * fact($n - 1); }\n"
                      "print fact(10);"),
              "3628800");
    // fib(20) = 6765 by the usual recurrence.
    EXPECT_EQ(
        printed("proc int fib(int $n) { return $n < 2 ? $n : fib($n - 1) + fib($n - 2); }\nprint (fib(20));"),
        "6765");
    // The result converts to the declared type; falling off the end gives zero.
    EXPECT_EQ(printed("proc int half(float $x) { return $x / 2; }\nprint (half(7));"), "3");
    EXPECT_EQ(printed("proc float nothingBack() { }\nprint (nothingBack() + 1);"), "1");
    EXPECT_EQ(
        printed(
            "proc string[] pair(string $a) { return {$a, $a + $a}; }\nstring $p[] = pair(\"q\"); print $p;"),
        "q\nqq\n");
    EXPECT_EQ(printed("proc vector up() { return <<0, 1, 0>>; }\nprint (up() * 3);"), "0 3 0");
}

TEST_F(ScriptTest, ParametersAreCopiesAndConvert) {
    EXPECT_EQ(
        printed("proc touch(int $a[]) { $a[0] = 99; }\nint $keep[] = {1}; touch($keep); print $keep[0];"),
        "1");
    EXPECT_EQ(printed("proc string twice(string $s) { return $s + $s; }\nprint (twice(4));"), "44");
    EXPECT_EQ(printed("proc int count(float $xs[]) { return size($xs); }\nprint (count({1, 2, 3}));"), "3");
}

TEST_F(ScriptTest, ProcsMayBeCalledBeforeTheirDefinitionInTheSameText) {
    EXPECT_EQ(printed("print (later(2));\nproc int later(int $x) { return $x * 21; }"), "42");
}

TEST_F(ScriptTest, GlobalProcsOutliveTheirTextLocalOnesDoNot) {
    ASSERT_TRUE(interp.run("global proc int triple(int $x) { return helper($x) * 3; }\n"
                           "proc int helper(int $x) { return $x + 1; }",
                           "scene.tsc", false));
    EXPECT_TRUE(interp.hasProc("triple"));
    // A later eval reaches the global proc, which still reaches its own text's helper.
    EXPECT_EQ(interp.evaluate("triple(4)", {"event", 1}), TscriptValue(15));
    EXPECT_EQ(interp.evaluate("int $r = triple(1); $r + 1;", {"event", 1}), TscriptValue(7));
    try {
        interp.evaluate("helper(1);", {"event", 3});
        FAIL() << "a non-global proc of another text was called";
    } catch (const TscriptError& e) {
        EXPECT_EQ(std::string(e.what()), "unknown command or procedure 'helper'");
        EXPECT_EQ(e.where().file, "event");
        EXPECT_EQ(e.where().line, 3);
        EXPECT_FALSE(e.reported());
    }
}

TEST_F(ScriptTest, RedefiningAGlobalProcReplacesIt) {
    ASSERT_TRUE(interp.run("global proc int v() { return 1; }", "a", false));
    ASSERT_TRUE(interp.run("global proc int v() { return 2; }", "b", false));
    EXPECT_EQ(interp.evaluate("v()", {"x", 1}), TscriptValue(2));
    // A proc that redefines itself while running finishes its old body.
    ASSERT_TRUE(interp.run("global proc int w() { eval \"global proc int w() { return 20; }\"; return 10; }",
                           "c", false));
    EXPECT_EQ(interp.evaluate("w()", {"x", 1}), TscriptValue(10));
    EXPECT_EQ(interp.evaluate("w()", {"x", 1}), TscriptValue(20));
}

TEST_F(ScriptTest, EvalRunsAtTheTopLevel) {
    EXPECT_EQ(printed("eval \"print 5\"; eval(\"print\", 6); print (eval(\"1 + 2\"));"), "563");
    // Inside a proc, eval cannot see the proc's locals.
    EXPECT_EQ(failure("proc p() {\n  int $local = 1;\n  eval \"print $local\";\n}\np;"),
              "test.tsc:3: undeclared variable $local");
    // Evaluate gives the last statement's value or a top-level return's.
    EXPECT_EQ(interp.evaluate("return 4; print 5;", {"x", 1}), TscriptValue(4));
    EXPECT_EQ(interp.evaluate("int $z = 3;", {"x", 1}), TscriptValue());
}

TEST_F(ScriptTest, DeepRecursionIsAnErrorNotACrash) {
    std::string err = failure("proc down(int $n) { down($n + 1); }\ndown(0);");
    EXPECT_EQ(err, "test.tsc:1: procs nested too deeply (more than 256 calls), in 'down'");
    // The interpreter is whole afterwards.
    EXPECT_EQ(
        printed("proc int depth(int $n) { return $n == 0 ? 0 : 1 + depth($n - 1); }\nprint (depth(200));"),
        "200");
    // eval within eval counts too.
    EXPECT_FALSE(interp.run("global proc again() { eval \"again\"; }\nagain;", "t", false));
}

TEST_F(ScriptTest, CompiledTextsRunAgainWithFreshValues) {
    auto code = interp.compile("$total += $step; $total * 2;", {"expr", 1});
    interp.setGlobal("total", 0.5);
    for (int i = 1; i <= 3; ++i) {
        interp.setGlobal("step", i);
        interp.execute(*code);
    }
    // 0.5 + 1 + 2 + 3 = 6.5, and the last statement's value is twice that.
    EXPECT_EQ(global("total"), TscriptValue(6.5));
    EXPECT_EQ(interp.execute(*code), TscriptValue(2 * (6.5 + 3)));
    try {
        interp.compile("\n$x = ;", {"expr", 10});
        FAIL() << "a syntax error compiled";
    } catch (const TscriptError& e) {
        EXPECT_EQ(e.where().line, 11);
        EXPECT_EQ(std::string(e.what()), "syntax error: unexpected ';'");
    }
}

TEST_F(ScriptTest, TopLevelReturnEndsTheTextQuietly) {
    EXPECT_EQ(printed("print 1;\nif (1) { return; }\nprint 2;"), "1");
    EXPECT_TRUE(host.errors.empty());
}

TEST_F(ScriptTest, SameTextSameOutputInAFreshInterpreter) {
    const std::string text =
        "seed(5); string $out = \"\";\n"
        "for ($i = 0; $i < 50; $i++) $out += rand(1) + \" \" + noise($i * 0.37) + \" \" + "
        "sphrand(1) + \";\";\n"
        "print $out;";
    std::string first = printed(text);
    FakeScriptHost otherHost;
    TscriptInterpreter other(otherHost);
    ASSERT_TRUE(other.run(text, "again", false));
    EXPECT_EQ(otherHost.out, first);
    EXPECT_GT(first.size(), 1000u);
}

TEST_F(ScriptTest, ACompiledTextRunsInAnotherInterpreterWithItsVariables) {
    // Variable and call caches in the tree belong to one interpreter; another
    // one running the same tree must find its own variables.
    auto code = interp.compile("$v * 2;", {"expr", 1});
    interp.setGlobal("v", 3);
    EXPECT_EQ(interp.execute(*code), TscriptValue(6));
    FakeScriptHost otherHost;
    TscriptInterpreter other(otherHost);
    other.setGlobal("v", 10);
    EXPECT_EQ(other.execute(*code), TscriptValue(20));
    EXPECT_EQ(interp.execute(*code), TscriptValue(6));
}
