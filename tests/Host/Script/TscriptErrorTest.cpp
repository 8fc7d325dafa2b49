// Every kind of fault stops the text with one message naming file and line,
// and leaves what ran before done.

#include "ScriptTestSupport.h"

TEST_F(ScriptTest, SyntaxErrorsNameWhatWasExpected) {
    EXPECT_EQ(failure("setAttr a.b 1\n}"), "test.tsc:2: syntax error: expected ';' after command 'setAttr'");
    EXPECT_EQ(failure("if (1) { setAttr a.b 1 }"),
              "test.tsc:1: syntax error: expected ';' after command 'setAttr'");
    EXPECT_EQ(failure("int $a = 1\nint $b;"),
              "test.tsc:2: syntax error: expected ';' after the declaration of $a");
    EXPECT_EQ(failure("print (1 + );"), "test.tsc:1: syntax error: unexpected ')'");
    EXPECT_EQ(failure("if (1 {"),
              "test.tsc:1: syntax error: expected ')' after the condition of 'if', found '{'");
    EXPECT_EQ(failure("\n{\nprint 1;\n"),
              "test.tsc:4: syntax error: missing '}' to close the block opened on line 2");
    EXPECT_EQ(failure("break;"), "test.tsc:1: syntax error: 'break' outside a loop or switch");
    EXPECT_EQ(failure("} "), "test.tsc:1: syntax error: unexpected '}'");
    EXPECT_EQ(failure("else print 1;"), "test.tsc:1: syntax error: 'else' without 'if'");
    EXPECT_EQ(failure("int $x = y;"),
              "test.tsc:1: syntax error: unexpected word 'y' in an expression: quote strings "
              "(\"y\"), call commands as y(...) or `y ...`");
    EXPECT_EQ(failure("3 = 4;"), "test.tsc:1: syntax error: the left side of '=' is not a variable");
    EXPECT_EQ(failure("{ proc p() {} }"),
              "test.tsc:1: syntax error: procs are defined at the top level only");
    EXPECT_EQ(failure("proc int f() { return; }"), "test.tsc:1: syntax error: proc 'f' must return an int");
    EXPECT_EQ(failure("proc f() { return 1; }"),
              "test.tsc:1: syntax error: proc 'f' has no return type but returns a value");
    EXPECT_EQ(
        failure("string $n; setAttr $n.tx 1;"),
        "test.tsc:1: syntax error: unexpected '.tx' right after an argument of 'setAttr': separate arguments "
        "with blanks, or join text with (a + b)");
    EXPECT_EQ(failure("print `ls"), "test.tsc:1: syntax error: missing '`' after command 'ls'");
    EXPECT_EQ(failure("vector $v = <<1, 2>>;"),
              "test.tsc:1: syntax error: expected ',' between the components of a vector, found '>>'");
}

TEST_F(ScriptTest, ASyntaxErrorRunsNothing) {
    EXPECT_EQ(failure("setAttr a.b 1;\nsetAttr a.b 2 )"),
              "test.tsc:2: syntax error: expected ';' after command 'setAttr'");
    EXPECT_TRUE(host.calls.empty());
}

TEST_F(ScriptTest, RuntimeErrorsStopTheTextAndKeepWhatRan) {
    EXPECT_EQ(failure("setAttr a.b 1;\nprint $foo;\nsetAttr a.b 2;"), "test.tsc:2: undeclared variable $foo");
    ASSERT_EQ(host.calls.size(), 1u);
    EXPECT_EQ(host.calls[0].argText(), "a.b 1");
    // A command that reported its own error is not reported twice.
    EXPECT_EQ(failure("print \"x\";\nfailing;\nprint \"y\";"), "test.tsc:2: failing: it failed");
    EXPECT_EQ(host.out, "x");
}

TEST_F(ScriptTest, RuntimeErrorMessages) {
    EXPECT_EQ(failure("\n\nfooBar 1 2;"), "test.tsc:3: unknown command or procedure 'fooBar'");
    EXPECT_EQ(failure("float $f = 1;\n$f[0] = 2;"), "test.tsc:2: cannot index a float ($f)");
    EXPECT_EQ(failure("float $g = 1;\nprint ($g[0]);"), "test.tsc:2: cannot index a float ($g)");
    EXPECT_EQ(failure("int $a[] = {1};\nprint ($a[3]);"),
              "test.tsc:2: index 3 is out of range for $a (size 1)");
    EXPECT_EQ(failure("int $b[];\n$b[-1] = 1;"), "test.tsc:2: negative index -1 for $b");
    EXPECT_EQ(failure("print (tokenize(\"a b\")[5]);"),
              "test.tsc:1: index 5 is out of range for the array (size 2)");
    EXPECT_EQ(failure("int $c[];\n$c[100000000] = 1;"), "test.tsc:2: index 100000000 is too large for $c");
    EXPECT_EQ(failure("int $d[];\n$d[\"x\"] = 1;"),
              "test.tsc:2: the index of $d must be a number, not a string");
    EXPECT_EQ(failure("print (1 / 0);"), "test.tsc:1: integer division by zero");
    EXPECT_EQ(failure("print (5 % 0);"), "test.tsc:1: integer modulo by zero");
    EXPECT_EQ(failure("print (\"a\" - 1);"), "test.tsc:1: operator '-' cannot take a string");
    EXPECT_EQ(failure("int $e[];\nprint ($e + 1);"), "test.tsc:2: operator '+' cannot take an int[]");
    EXPECT_EQ(failure("print (2 ^ 3);"),
              "test.tsc:1: operator '^' is the cross product of two vectors; use pow() for powers");
    EXPECT_EQ(failure("print (<<1,0,0>> < <<0,1,0>>);"),
              "test.tsc:1: operator '<' cannot compare vectors; compare mag() of them");
    EXPECT_EQ(failure("int $f2[];\nif ($f2) print 1;"), "test.tsc:2: cannot use an int[] as a condition");
    EXPECT_EQ(failure("if (`setAttr`) print 1;"),
              "test.tsc:1: a call that gives no value cannot be a condition");
    EXPECT_EQ(failure("int $g2 = {1};"), "test.tsc:1: cannot convert an int[] to int for $g2");
    EXPECT_EQ(failure("int $h;\nstring $h;"), "test.tsc:2: $h is already declared as int, not string");
    EXPECT_EQ(failure("proc p() {\n  global int $gh;\n  int $gh;\n}\np;"),
              "test.tsc:3: $gh is already declared here as a global");
    EXPECT_EQ(failure("global float $gf;\nproc q() { global int $gf; }\nq;"),
              "test.tsc:2: $gf is already declared as float, not int");
    EXPECT_EQ(failure("string $s = \"a\";\n$s++;"),
              "test.tsc:2: '++' needs an int or a float, not a string ($s)");
    EXPECT_EQ(failure("$none = `setAttr`;"),
              "test.tsc:1: cannot declare $none from a call that gives no value");
    EXPECT_EQ(failure("for ($x in 5) print 1;"), "test.tsc:1: 'for ... in' needs an array, not an int");
    EXPECT_EQ(failure("proc two(int $a, int $b) {}\ntwo(1);"),
              "test.tsc:2: proc 'two' takes 2 arguments, given 1");
    EXPECT_EQ(failure("proc arr(int $a[]) {}\narr(1);"),
              "test.tsc:2: cannot convert an int to int[] for parameter $a of proc 'arr'");
    EXPECT_EQ(failure("vector $v = <<1, \"a\", 2>>;"),
              "test.tsc:1: a vector component must be a number, not a string");
    EXPECT_EQ(failure("float $fl = 1;\nprint ($fl.x);"),
              "test.tsc:2: '.x' needs a vector, not a float ($fl)");
}

TEST_F(ScriptTest, BuiltinArgumentErrorsNameTheBuiltin) {
    EXPECT_EQ(failure("print (sqrt(\"a\"));"),
              "test.tsc:1: sqrt: argument 1 must be a number, given a string");
    EXPECT_EQ(failure("print (sqrt(1, 2));"), "test.tsc:1: sqrt: expected 1 argument, given 2");
    EXPECT_EQ(failure("print (clamp(1, 2));"), "test.tsc:1: clamp: expected 3 arguments, given 2");
    EXPECT_EQ(failure("print (mag(2));"), "test.tsc:1: mag: argument 1 must be a vector, given an int");
    EXPECT_EQ(failure("print (size(2.5));"),
              "test.tsc:1: size: expected a string or an array, given a float");
    EXPECT_EQ(failure("print (rand());"), "test.tsc:1: rand: expected 1 to 2 arguments, given 0");
    EXPECT_EQ(failure("print (substring(\"abc\", \"x\", 2));"),
              "test.tsc:1: substring: argument 2 must be a number, given a string");
}

TEST_F(ScriptTest, ErrorsInsideProcsAndEvalPointAtTheirOwnLines) {
    EXPECT_EQ(failure("proc bad() {\n  int $x = 1;\n  print $y;\n}\nbad;"),
              "test.tsc:3: undeclared variable $y");
    EXPECT_EQ(failure("\neval \"print 1;\\nprint $nope;\";"), "test.tsc:3: undeclared variable $nope");
    EXPECT_EQ(failure("\n\neval \"print (\";"),
              "test.tsc:3: syntax error: unexpected end of input (the text ends "
              "inside an expression)");
}

TEST_F(ScriptTest, CatchStopsAnErrorFromStoppingTheText) {
    EXPECT_EQ(printed("int $r = catch(`fooBar`); print $r; print (catchQuiet(1 + 1));"), "10");
    ASSERT_EQ(host.errors.size(), 1u);
    EXPECT_EQ(host.errors[0], "test.tsc:1: unknown command or procedure 'fooBar'");
    // After a caught error inside a proc, scopes and depth are back where they were.
    EXPECT_EQ(printed("proc boom(int $n) { int $inside = $n; if ($n == 0) print $missing; boom($n - 1); }\n"
                      "catchQuiet(boom(10)); int $after = 1; print $after;"),
              "1");
}

TEST_F(ScriptTest, ScriptsRaiseTheirOwnWarningsAndErrors) {
    EXPECT_EQ(failure("warning \"low\" 2;\nprint \"a\";\nerror (\"bad \" + 3);\nprint \"b\";"),
              "test.tsc:3: bad 3");
    EXPECT_EQ(host.warnings, (std::vector<std::string>{"low 2"}));
    EXPECT_EQ(host.out, "a");
}

TEST_F(ScriptTest, InterruptAndStepLimitStopEndlessLoops) {
    std::atomic<bool> stop{true};
    interp.setInterruptFlag(&stop);
    EXPECT_EQ(failure("while (1) ;"), "test.tsc:1: interrupted");
    stop = false;
    EXPECT_EQ(printed("int $n = 0; while ($n < 100) $n++; print $n;"), "100");
    interp.setInterruptFlag(nullptr);
    interp.setStepLimit(1000);
    EXPECT_EQ(failure("\nfor (;;) { }"), "test.tsc:2: step limit of 1000 reached");
    // Calls count as steps too: each r(0) makes 511 calls.
    EXPECT_EQ(failure("proc r(int $d) { if ($d < 8) { r($d + 1); r($d + 1); } }\nr(0);\nr(0);"),
              "test.tsc:1: step limit of 1000 reached");
    // The count starts again with each text.
    EXPECT_EQ(printed("int $m = 0; while ($m < 900) $m++; print $m;"), "900");
}

TEST_F(ScriptTest, RunawayGrowthIsAnErrorNotAnExhaustedMachine) {
    // 2^26 bytes is the cap: doubling "ab" 26 times crosses it.
    EXPECT_EQ(failure("string $s = \"ab\";\nwhile (1) $s += $s;"),
              "test.tsc:2: string too long (over 67108864 bytes)");
}
