// Declarations, arrays, scopes and loops.

#include "ScriptTestSupport.h"

TEST_F(ScriptTest, DeclarationsStartAtZeroOrTheirInitialiser) {
    EXPECT_EQ(printed("int $i; float $f; string $s; vector $v; int $a[];\n"
                      "print ($i + \"|\" + $f + \"|\" + $s + \"|\" + $v + \"|\" + size($a));"),
              "0|0||0 0 0|0");
    EXPECT_EQ(printed("int $p = 1, $q, $r[] = {7, 8};\nprint ($p + \" \" + $q + \" \" + $r[1]);"), "1 0 8");
    EXPECT_EQ(printed("float $sized[3]; print (size($sized));"), "3");
    // Assigning to a new name declares it with the value's type.
    EXPECT_EQ(printed("$n = 2.5; $n = 3; print ($n / 2);"), "1.5");
}

TEST_F(ScriptTest, ArraysGrowByAssignmentPastTheEnd) {
    EXPECT_EQ(printed("int $a[]; $a[3] = 9; print (size($a) + \":\" + $a[0] + $a[1] + $a[2] + $a[3]);"),
              "4:0009");
    EXPECT_EQ(printed("string $s[]; $s[size($s)] = \"x\"; $s[size($s)] = \"y\"; print $s;"), "x\ny\n");
    EXPECT_EQ(printed("vector $v[]; $v[1] = <<1, 2, 3>>; $v[1].z = 9; print $v[1];"), "1 2 9");
    // Arrays assign by value: changing the copy leaves the original.
    EXPECT_EQ(printed("int $x[] = {1}; int $y[] = $x; $y[0] = 5; print ($x[0] + \"\" + $y[0]);"), "15");
    // Element kinds convert on the way in.
    EXPECT_EQ(printed("float $fa[] = {1, 2}; int $ia[] = $fa; $ia[2] = 3.9; print $ia;"), "1\n2\n3\n");
    EXPECT_EQ(printed("int $cleared[] = {1, 2}; clear($cleared); print (size($cleared));"), "0");
}

TEST_F(ScriptTest, BlocksHaveTheirOwnScope) {
    EXPECT_EQ(printed("int $x = 1; { int $x = 2; print $x; { $x = 3; print $x; } print $x; } print $x;"),
              "2331");
    // Declared inside a block, gone after it.
    EXPECT_EQ(failure("{ int $inner = 1; }\nprint $inner;"), "test.tsc:2: undeclared variable $inner");
    // Each turn of a loop starts a fresh scope.
    EXPECT_EQ(printed("for ($i = 0; $i < 3; $i++) { int $fresh; $fresh += $i; print $fresh; }"), "012");
    // A loop variable made by assignment stays; one declared in the loop does not.
    EXPECT_EQ(printed("for ($k = 0; $k < 2; ++$k); print $k;"), "2");
    EXPECT_EQ(failure("for (int $m = 0; $m < 2; ++$m);\nprint $m;"), "test.tsc:2: undeclared variable $m");
}

TEST_F(ScriptTest, TopLevelVariablesAreGlobalsProcsSeeThroughGlobalDeclarations) {
    interp.setGlobal("$argv", std::vector<std::string>{"a", "bb"});
    EXPECT_EQ(printed("print (size($argv) + $argv[1]);"), "2bb");
    EXPECT_EQ(printed("global proc useArgs() { global string $argv[]; print $argv[0]; }\nuseArgs;"), "a");
    EXPECT_EQ(failure("int $top = 1;\nproc peek() { print $top; }\npeek;"),
              "test.tsc:2: undeclared variable $top");
    // A global set inside a proc is the one the top level reads.
    EXPECT_EQ(
        printed(
            "global int $count;\nproc bump() { global int $count; $count += 2; }\nbump; bump; print $count;"),
        "4");
    EXPECT_EQ(global("count"), TscriptValue(4));
    // Top-level variables persist into later texts, as the program's -c after its script.
    EXPECT_EQ(printed("print $count;"), "4");
}

TEST_F(ScriptTest, LoopsOfEveryKind) {
    EXPECT_EQ(
        printed("int $i = 0; while ($i < 5) { $i++; if ($i == 2) continue; if ($i == 4) break; print $i; }"),
        "13");
    EXPECT_EQ(printed("int $d = 0; do { print $d; $d++; } while ($d < 0);"), "0"); // the body runs once
    EXPECT_EQ(printed("for ($s in {\"x\", \"y\", \"z\"}) { if ($s == \"y\") continue; print $s; }"), "xz");
    EXPECT_EQ(
        printed("int $sum = 0; for ($e in {1, 2, 3, 4}) { if ($e > 3) break; $sum += $e; } print $sum;"),
        "6");
    // The array of for-in is read once: growing it inside the loop adds no turns.
    EXPECT_EQ(printed("int $g[] = {1, 2}; int $turns = 0; for ($e2 in $g) { $g[size($g)] = 0; $turns++; }"
                      "print ($turns + \" \" + size($g));"),
              "2 4");
    // Nested loops: break leaves the inner one only.
    EXPECT_EQ(
        printed(
            "for ($a = 0; $a < 2; $a++) for ($b = 0; $b < 5; $b++) { if ($b == 2) break; print ($a + \"\" + "
            "$b + \" \"); }"),
        "00 01 10 11 ");
}

TEST_F(ScriptTest, IfElseChains) {
    const char* classify = "proc string classify(int $n) {\n"
                           "  if ($n < 0) return \"neg\";\n"
                           "  else if ($n == 0) return \"zero\";\n"
                           "  else if ($n < 10) return \"small\";\n"
                           "  else return \"big\";\n"
                           "}\n"
                           "print (classify(-1) + classify(0) + classify(5) + classify(50));";
    EXPECT_EQ(printed(classify), "negzerosmallbig");
    // A long else-if chain is a list, not a tower of nested statements.
    std::string chain = "int $v = 399; int $hit = -1;\nif ($v == 0) $hit = 0;";
    for (int i = 1; i < 400; ++i)
        chain += " else if ($v == " + std::to_string(i) + ") $hit = " + std::to_string(i) + ";";
    chain += " print $hit;";
    EXPECT_EQ(printed(chain), "399");
}

TEST_F(ScriptTest, SwitchFallsThroughUntilBreak) {
    const char* pick = "proc string pick(int $n) {\n"
                       "  string $r = \"\";\n"
                       "  switch ($n) {\n"
                       "    case 1: $r += \"one\"; break;\n"
                       "    case 2: $r += \"two\";\n" // falls into 3
                       "    case 1 + 2: $r += \"three\"; break;\n"
                       "    default: $r += \"other\";\n"
                       "  }\n"
                       "  return $r;\n"
                       "}\n"
                       "print (pick(1) + \",\" + pick(2) + \",\" + pick(3) + \",\" + pick(9));";
    EXPECT_EQ(printed(pick), "one,twothree,three,other");
    EXPECT_EQ(printed("switch (\"b\") { case \"a\": print 1; case \"b\": print 2; }"), "2");
    EXPECT_EQ(printed("switch (5) { case 1: print 1; }"), "");
    // continue inside a switch goes to the enclosing loop.
    EXPECT_EQ(printed("for ($i = 0; $i < 4; $i++) { switch ($i % 2) { case 0: continue; } print $i; }"),
              "13");
    EXPECT_EQ(failure("switch (1) { print 1; }"),
              "test.tsc:1: syntax error: expected 'case' or 'default' in 'switch', found 'print'");
    EXPECT_EQ(failure("switch (1) { case 1: continue; }"),
              "test.tsc:1: syntax error: 'continue' outside a loop");
}
