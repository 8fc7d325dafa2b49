// Random texts must never crash or hang the interpreter: each run returns,
// true or false. Seeded, so a failure repeats.

#include "FakeScriptHost.h"
#include "Host/Script/TscriptInterpreter.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>

namespace {

constexpr int kTexts = 10000;

const char* const kTokens[] = {
    "int",      "float",    "string",    "vector",  "global",   "proc",     "return", "if",    "else",
    "for",      "in",       "while",     "do",      "break",    "continue", "$a",     "$b",    "$i",
    "$s",       "$v",       "$arr",      "$argv",   "0",        "1",        "-1",     "2.5",   "1e3",
    "0x10",     "\"txt\"",  "\"-r\"",    "\"\\n\"", "<<",       ">>",       "{",      "}",     "(",
    ")",        "[",        "]",         ";",       ";",        ";",        ",",      "=",     "+=",
    "-=",       "*=",       "/=",        "+",       "-",        "*",        "/",      "%",     "^",
    "==",       "!=",       "<",         "<=",      ">",        ">=",       "&&",     "||",    "!",
    "?",        ":",        "++",        "--",      ".",        "x",        "`",      "-r",    "-5",
    "setAttr",  "move",     "ls",        "failing", "print",    "size",     "eval",   "catch", "rand",
    "sqrt",     "tokenize", "substring", "clamp",   "noise",    "mag",      "f",      "g",     "a.b[2]",
    "|grp|obj", "//",       "/*",        "*/",      "\n",       "true",     "switch", "case",  "default",
    "case 1:",  "gmatch",   "sort",      "sphrand", "\"a[!b*\""};

// Small pieces of real script, so that some random texts get far.
const char* const kPieces[] = {
    "int $i = 0; ",
    "string $arr[] = {\"a\", \"b\"}; ",
    "for ($i = 0; $i < 3; $i++) { ",
    "while ($i < 10) { $i++; ",
    "} ",
    "proc int f(int $n) { return $n < 1 ? 0 : f($n - 1); } ",
    "global proc g(string $s[]) { print (size($s)); } ",
    "setAttr -r a.b (1 + 2) `ls`; ",
    "vector $v = <<1, 2, 3>>; $v.x = 4; ",
    "eval \"int $e = 1\"; ",
    "$arr[5] = \"z\"; ",
    "if ($i > 1) print \"x\"; else ",
    "switch ($i) { case 1: print 1; break; default: ",
    "for ($s in $arr) ",
};

class FuzzHost : public FakeScriptHost {
public:
    FuzzHost() {
        results["ls"] = std::vector<std::string>{"p", "q"};
        results["move"] = 1.5;
    }
    TscriptValue runCommand(const std::string& name, const std::vector<TscriptArg>& args,
                            const TsourceLocation& where) override {
        if (calls.size() > 1000) calls.clear(); // keep memory flat over thousands of runs
        return FakeScriptHost::runCommand(name, args, where);
    }
};

int runAll(const std::vector<std::string>& texts) {
    FuzzHost host;
    TscriptInterpreter interp(host);
    // Random loops may never end; the limit hands control back.
    interp.setStepLimit(5000);
    int ok = 0;
    for (const auto& t : texts) {
        ok += interp.run(t, "fuzz", (ok & 1) != 0) ? 1 : 0;
        if (host.out.size() > 100000) host.out.clear();
        host.errors.clear();
    }
    return ok;
}

} // namespace

TEST(TscriptFuzz, RandomTokenSequencesReturn) {
    std::mt19937 rng(20261121u);
    std::vector<std::string> texts;
    const size_t nTokens = sizeof kTokens / sizeof kTokens[0];
    const size_t nPieces = sizeof kPieces / sizeof kPieces[0];
    for (int n = 0; n < kTexts; ++n) {
        std::string text;
        int len = 1 + static_cast<int>(rng() % 40);
        for (int i = 0; i < len; ++i) {
            if (rng() % 6 == 0)
                text += kPieces[rng() % nPieces];
            else
                text += kTokens[rng() % nTokens];
            if (rng() % 4) text += ' ';
        }
        texts.push_back(std::move(text));
    }
    int ok = runAll(texts);
    // Some random texts are valid and most are not: both paths were taken.
    EXPECT_GT(ok, 0);
    EXPECT_LT(ok, kTexts);
}

TEST(TscriptFuzz, RandomBytesReturn) {
    std::mt19937 rng(7u);
    std::vector<std::string> texts;
    for (int n = 0; n < kTexts; ++n) {
        std::string text(rng() % 64, '\0');
        for (char& c : text) {
            // Mostly printable, some control and high bytes, some NULs.
            unsigned r = rng() % 100;
            c = static_cast<char>(r < 85 ? 32 + rng() % 95 : r < 95 ? rng() % 32 : 128 + rng() % 128);
        }
        texts.push_back(std::move(text));
    }
    int ok = runAll(texts);
    EXPECT_LT(ok, kTexts);
}

TEST(TscriptFuzz, MutatedValidScriptsReturn) {
    // A whole valid script, then copies with bytes dropped, doubled or swapped:
    // these get deep into the parser and evaluator before they go wrong.
    const std::string base =
        "proc int f(int $n) { return $n < 1 ? 0 : 1 + f($n - 1); }\n"
        "global proc g(string $s[]) { print (size($s) + \"\\n\"); }\n"
        "int $i = 0; string $arr[] = {\"a\", \"b\"};\n"
        "for ($i = 0; $i < 3; $i++) { while ($i < 10) { $i++; if ($i % 2) continue; } }\n"
        "vector $v = <<1, 2, 3>>; $v.x = f(4); $arr[5] = \"z\" + $v;\n"
        "setAttr -r a.b (1 + 2) `ls` $arr[1]; eval \"int $e = 1\";\n"
        "for ($s in $arr) if ($s == \"a\") g($arr); else print $s;\n"
        "float $x = rand(1) * sqrt(2) + noise(<<1, 2, 3>>);\n";
    ASSERT_TRUE(runAll({base}) == 1);
    std::mt19937 rng(99u);
    std::vector<std::string> texts;
    for (int n = 0; n < kTexts; ++n) {
        std::string t = base;
        int edits = 1 + static_cast<int>(rng() % 4);
        for (int k = 0; k < edits && !t.empty(); ++k) {
            size_t at = rng() % t.size();
            switch (rng() % 3) {
            case 0:
                t.erase(at, 1 + rng() % 3);
                break;
            case 1:
                t.insert(at, t.substr(rng() % t.size(), 1 + rng() % 6));
                break;
            default:
                std::swap(t[at], t[rng() % t.size()]);
                break;
            }
        }
        texts.push_back(std::move(t));
    }
    int ok = runAll(texts);
    EXPECT_GT(ok, 0);
    EXPECT_LT(ok, kTexts);
}

TEST(TscriptFuzz, DeepNestingIsRefusedNotOverflowed) {
    FakeScriptHost host;
    TscriptInterpreter interp(host);
    auto refused = [&](const std::string& text) {
        host.errors.clear();
        EXPECT_FALSE(interp.run(text, "deep", false));
        ASSERT_EQ(host.errors.size(), 1u);
        EXPECT_NE(host.errors[0].find("nested too deeply"), std::string::npos) << host.errors[0];
    };
    for (const std::string open : {"(", "{", "-", "!", "++", "<<", "`print (", "$a[", "size("}) {
        std::string text = "print(";
        for (int i = 0; i < 5000; ++i)
            text += open;
        refused(text + "1");
    }
    // A chain of one operator is not nesting: any length runs, left to right.
    std::string chain = "print (1";
    for (int i = 0; i < 5000; ++i)
        chain += " + 1";
    host.out.clear();
    EXPECT_TRUE(interp.run(chain + " - 1 - 1 * 2);", "deep", false));
    EXPECT_EQ(host.out, "4998");
    std::string words = "print (\"a\"";
    for (int i = 0; i < 300; ++i)
        words += " + " + std::to_string(i % 10);
    host.out.clear();
    EXPECT_TRUE(interp.run(words + ");", "deep", false));
    EXPECT_EQ(host.out.size(), 301u);
    EXPECT_EQ(host.out.substr(0, 5), "a0123");
    std::string indexes = "int $a[]; print ($a";
    for (int i = 0; i < 5000; ++i)
        indexes += "[0]";
    refused(indexes + ");");
    std::string blocks;
    for (int i = 0; i < 5000; ++i)
        blocks += "if (1) {";
    refused(blocks);
    // After all that, a plain text runs.
    host.out.clear();
    EXPECT_TRUE(interp.run("print 1;", "deep", false));
    EXPECT_EQ(host.out, "1");
}
