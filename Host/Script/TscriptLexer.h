#pragma once
// Turns script text into tokens. The language has two lexical modes: the
// ordinary one for expressions and statements, and the argument mode of
// command syntax, where `-word` is a flag and any run of plain characters
// (`pCube1.translate[0]`, `|group|shape`) is one string. The parser picks
// the mode, so the lexer scans on demand from any position.

#include <cstddef>
#include <string>
#include <string_view>

enum class TscriptTok {
    End,
    Ident,    // name or keyword
    Var,      // $name (text holds the name without '$')
    Int,      // integer literal
    Float,    // floating literal
    String,   // "..." with escapes resolved
    Op,       // operator or punctuation (text holds it)
    Backtick, // `
    Flag,     // argument mode: -word (text keeps the '-')
    Word,     // argument mode: a bare word
    Error     // text holds the message
};

struct TscriptToken {
    TscriptTok kind = TscriptTok::End;
    std::string text;
    int line = 1;
    size_t begin = 0; // byte offset of the token's first character
    bool spaceBefore = false;
    int intValue = 0;
    double floatValue = 0.0;

    bool is(TscriptTok k, std::string_view t) const { return kind == k && text == t; }
    bool isOp(std::string_view t) const { return is(TscriptTok::Op, t); }
};

class TscriptLexer {
public:
    TscriptLexer(std::string_view source, int firstLine);

    TscriptToken next();    // ordinary mode
    TscriptToken nextArg(); // command argument mode
    // Resumes scanning at a token start seen before.
    void seek(size_t pos, int line) {
        fPos = pos;
        fLine = line;
    }
    // True when `word` is a plain name followed at once by '(' (a call).
    bool atCallOpen(const TscriptToken& word) const;
    // Describes a token for messages: 'x', end of input ...
    static std::string describe(const TscriptToken& t);

private:
    // Skips blanks and comments; false with `error` set on an unclosed comment.
    bool skipSpace(bool& sawSpace, std::string& error);
    TscriptToken make(TscriptTok kind, size_t begin, int line, bool space) const;
    TscriptToken scanString(size_t begin, int line, bool space);
    TscriptToken scanNumber(size_t begin, int line, bool space);
    bool atWordStop(size_t pos) const;

    std::string_view fSrc;
    size_t fPos = 0;
    int fLine = 1;
};

// Reads `text` as a whole integer or floating literal (optionally signed).
// Gives Int, Float, or End when it does not read as a number.
TscriptTok readScriptNumber(std::string_view text, int& intValue, double& floatValue);
