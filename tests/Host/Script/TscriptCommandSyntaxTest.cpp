// Command syntax against function syntax, flags, backticks and the echo.

#include "ScriptTestSupport.h"

TEST_F(ScriptTest, FlagsAreWordsAfterADashNegativeNumbersAreNumbers) {
    ASSERT_TRUE(interp.run("move -r 0 -5 0;\nmove -relative -.5 -x_y -1e2;", "t", false));
    ASSERT_EQ(host.calls.size(), 2u);
    EXPECT_EQ(host.calls[0].argText(), "[-r] 0 -5 0");
    EXPECT_EQ(host.calls[0].args[2].value.type(), TscriptType::Int);
    EXPECT_EQ(host.calls[1].argText(), "[-relative] -0.5 [-x_y] -100");
    EXPECT_EQ(host.calls[1].line, 2);
}

TEST_F(ScriptTest, FunctionSyntaxCallsCommandsAndMarksDashStringsAsFlags) {
    ASSERT_TRUE(interp.run("string $f = \"-r\"; move(\"-r\", 1, -2, $f, \"-5\", \"-\");", "t", false));
    ASSERT_EQ(host.calls.size(), 1u);
    // "-5" and "-" are not flag words; a variable holding "-r" is, in function syntax.
    EXPECT_EQ(host.calls[0].argText(), "[-r] 1 -2 [-r] -5 -");
    // In command syntax only a literal -word is a flag.
    ASSERT_TRUE(interp.run("move $f \"-r\";", "t", false));
    EXPECT_EQ(host.calls[1].argText(), "-r -r");
}

TEST_F(ScriptTest, ExpressionsAndVariablesAsCommandArguments) {
    ASSERT_TRUE(interp.run("string $n = \"ball\"; int $a[] = {4, 5};\n"
                           "setAttr ($n + \".tx\") (1 + 2) $a[1] $a `ls` <<1, 2, 3>>;",
                           "t", false));
    const auto& a = host.calls.back().args;
    ASSERT_EQ(a.size(), 6u);
    EXPECT_EQ(a[0].value, TscriptValue("ball.tx"));
    EXPECT_EQ(a[1].value, TscriptValue(3));
    EXPECT_EQ(a[2].value, TscriptValue(5));
    EXPECT_EQ(a[3].value, TscriptValue(std::vector<int>{4, 5}));
    EXPECT_TRUE(a[4].value.isNone()); // ls has no canned result here
    EXPECT_EQ(a[5].value, TscriptValue(TscriptVector{1, 2, 3}));
}

TEST_F(ScriptTest, BlankBeforeParenthesesStillCallsWithAList) {
    // `max (1, 2)` is a call with a blank; `print (1)` an argument in parentheses.
    EXPECT_EQ(printed("print (max (1, 2)); print (3);"), "23");
    ASSERT_TRUE(interp.run("move (1, 2);", "t", false));
    EXPECT_EQ(host.calls.back().argText(), "1 2");
}

TEST_F(ScriptTest, BackticksGiveACommandsResult) {
    host.results["getAttr"] = 2.5;
    host.results["ls"] = std::vector<std::string>{"a", "b"};
    EXPECT_EQ(printed("float $x = `getAttr ball.tx` * 2; print $x;"), "5");
    EXPECT_EQ(printed("string $all[] = `ls -type mesh`; print (size($all) + $all[1]);"), "2b");
    EXPECT_EQ(host.calls.back().argText(), "[-type] mesh");
    // Function syntax inside backticks, and a backtick inside parentheses inside one.
    EXPECT_EQ(printed("print (`getAttr(\"a.b\")` + `getAttr (`ls`)`);"), "5");
    EXPECT_EQ(host.calls.back().argText(), "a b");
}

TEST_F(ScriptTest, EchoShowsTopLevelCallResultsOnly) {
    host.results["getAttr"] = 1.5;
    host.results["ls"] = std::vector<std::string>{"x", "y"};
    ASSERT_TRUE(interp.run("getAttr a.b;\n"
                           "setAttr a.b 1;\n"            // gives nothing: no echo
                           "float $v = `getAttr a.b`;\n" // not a call statement
                           "if (1) { getAttr a.b; }\n"   // not top level
                           "ls;\n"
                           "size(\"abc\");\n"
                           "proc int seven() { getAttr a.b; return 7; }\n"
                           "seven;\n",
                           "t", true));
    EXPECT_EQ(host.echoed, (std::vector<std::string>{"1.5", "x y", "3", "7"}));
    host.echoed.clear();
    ASSERT_TRUE(interp.run("getAttr a.b;", "t", false));
    EXPECT_TRUE(host.echoed.empty());
}

TEST_F(ScriptTest, LastStatementMayOmitItsSemicolon) {
    EXPECT_EQ(printed("print 1; print 2"), "12");
    ASSERT_TRUE(interp.run("setAttr a.b 3", "t", false));
    EXPECT_EQ(host.calls.back().argText(), "a.b 3");
}

TEST_F(ScriptTest, ProcsAndBuiltinsTakeCommandSyntax) {
    EXPECT_EQ(printed("proc show(string $a, int $b) { print ($a + \"=\" + ($b + 1)); }\nshow -x 41;"),
              "-x=42");
    EXPECT_EQ(printed("print -5;"), "-5");
    // A name directly followed by '(' among arguments is a call.
    EXPECT_EQ(printed("print sqrt(16);"), "4");
    ASSERT_TRUE(interp.run("move -r max(1, 2) abs(-3) word (4);", "t", false));
    EXPECT_EQ(host.calls.back().argText(), "[-r] 2 3 word 4");
}
