// Literal kinds as the interpreter reads them, seen through what commands
// receive (the fake host records each argument with its type).

#include "ScriptTestSupport.h"

namespace {

const TscriptValue& arg(const FakeScriptHost& h, size_t call, size_t i) {
    return h.calls.at(call).args.at(i).value;
}

} // namespace

TEST_F(ScriptTest, NumberLiteralsKeepTheirKind) {
    ASSERT_TRUE(interp.run("setAttr 7 -7 0x1F 2.5 .5 2. 1e3 -1.5e-2 2147483648 -2147483648;", "t", false));
    const auto& a = host.calls.at(0).args;
    ASSERT_EQ(a.size(), 10u);
    EXPECT_EQ(a[0].value, TscriptValue(7));
    EXPECT_EQ(a[1].value, TscriptValue(-7));
    EXPECT_EQ(a[2].value, TscriptValue(31));
    EXPECT_EQ(a[3].value, TscriptValue(2.5));
    EXPECT_EQ(a[4].value, TscriptValue(0.5));
    EXPECT_EQ(a[5].value, TscriptValue(2.0));
    EXPECT_EQ(a[6].value, TscriptValue(1000.0));
    EXPECT_EQ(a[7].value, TscriptValue(-0.015));
    // Past the int range a literal stays a number, as a float.
    EXPECT_EQ(a[8].value, TscriptValue(2147483648.0));
    EXPECT_EQ(a[9].value, TscriptValue(INT_MIN));
    // The same literals in expressions.
    EXPECT_EQ(printed("print (0x10 + .25 + 2. + 1e1);"), "28.25");
    EXPECT_EQ(printed("print (-2147483648);"), "-2147483648");
}

TEST_F(ScriptTest, StringEscapes) {
    EXPECT_EQ(printed(R"(print "a\tb\nc\"d\\e";)"), "a\tb\nc\"d\\e");
    // Unknown escapes keep their backslash, so paths like C:\data survive.
    EXPECT_EQ(printed(R"(print "C:\data";)"), "C:\\data");
    // A backslash ending a line joins the next line to the string.
    EXPECT_EQ(printed("print \"ab\\\ncd\";"), "abcd");
    // A string may run over lines; the line count goes on after it.
    EXPECT_EQ(failure("print \"a\nb\";\nbogus;"), "test.tsc:3: unknown command or procedure 'bogus'");
}

TEST_F(ScriptTest, CommentsAndBoolWords) {
    EXPECT_EQ(printed("// line\nprint /* inline */ 1; /* over\nlines */ print 2; // end"), "12");
    ASSERT_TRUE(interp.run("currentTime -update false; setAttr on off yes no true;", "t", false));
    EXPECT_EQ(arg(host, 0, 1), TscriptValue(0));
    for (size_t i = 0; i < 5; ++i)
        EXPECT_EQ(arg(host, 1, i), TscriptValue(i % 2 == 0 ? 1 : 0)) << i;
    EXPECT_EQ(printed("print (true + yes + on);"), "3");
}

TEST_F(ScriptTest, VectorAndArrayLiterals) {
    ASSERT_TRUE(interp.run("move <<1, -2.5, 3>> {1, 2} {1, 2.5} {\"a\", 1} {<<1,2,3>>, 4};", "t", false));
    EXPECT_EQ(arg(host, 0, 0), TscriptValue(TscriptVector{1, -2.5, 3}));
    EXPECT_EQ(arg(host, 0, 1), TscriptValue(std::vector<int>{1, 2}));
    // An array takes the widest kind among its elements.
    EXPECT_EQ(arg(host, 0, 2), TscriptValue(std::vector<double>{1, 2.5}));
    EXPECT_EQ(arg(host, 0, 3), TscriptValue(std::vector<std::string>{"a", "1"}));
    EXPECT_EQ(arg(host, 0, 4), TscriptValue(std::vector<TscriptVector>{{1, 2, 3}, {4, 4, 4}}));
}

TEST_F(ScriptTest, BareWordsInCommandsAreWholeStrings) {
    ASSERT_TRUE(interp.run("setAttr pCube1.translate[3] |group1|shape node.compound.child ns:obj* 1abc -;",
                           "t", false));
    const auto& a = host.calls.at(0).args;
    ASSERT_EQ(a.size(), 6u);
    EXPECT_EQ(a[0].value, TscriptValue("pCube1.translate[3]"));
    EXPECT_EQ(a[1].value, TscriptValue("|group1|shape"));
    EXPECT_EQ(a[2].value, TscriptValue("node.compound.child"));
    EXPECT_EQ(a[3].value, TscriptValue("ns:obj*"));
    EXPECT_EQ(a[4].value, TscriptValue("1abc"));
    EXPECT_EQ(a[5].value, TscriptValue("-"));
    for (const auto& x : a)
        EXPECT_FALSE(x.isFlag);
}

TEST_F(ScriptTest, LexicalFaultsNameTheirLine) {
    EXPECT_EQ(failure("print 1;\nprint \"abc;"),
              "test.tsc:2: syntax error: unterminated string starting on line 2");
    EXPECT_EQ(failure("\n/* never closed"),
              "test.tsc:2: syntax error: unterminated comment starting on line 2");
    EXPECT_EQ(failure("int $a = 5x;"), "test.tsc:1: syntax error: bad number '5x'");
    EXPECT_EQ(failure("int $a = 1 # 2;"), "test.tsc:1: syntax error: unexpected '#'");
    EXPECT_EQ(failure("print $;"), "test.tsc:1: syntax error: expected a variable name after '$'");
}

TEST_F(ScriptTest, ByteOrderMarkAndInterpreterLineAreSkipped) {
    EXPECT_EQ(printed("\xEF\xBB\xBFprint 1;"), "1");
    // The "#!" line still counts as line 1.
    EXPECT_EQ(failure("#!/usr/bin/env motilane\nprint 1;\nbogus;"),
              "test.tsc:3: unknown command or procedure 'bogus'");
}
