#pragma once
// Builds the syntax tree of one text. Throws TscriptError on the first fault.

#include "Host/Script/TscriptAst.h"
#include "Host/Script/TscriptHost.h"
#include "Host/Script/TscriptLexer.h"

#include <memory>
#include <optional>
#include <string_view>

class TscriptParser {
public:
    // Deeper nesting than this (blocks, parentheses, operator chains) is an
    // error rather than a risk to the stack.
    static constexpr int kMaxNesting = 256;

    TscriptParser(std::string_view source, std::string file, int firstLine);
    std::shared_ptr<TscriptUnit> parse();

private:
    struct NestGuard {
        explicit NestGuard(TscriptParser& p);
        ~NestGuard() { --fP.fNesting; }
        TscriptParser& fP;
    };

    // Tokens
    void advance();
    const TscriptToken& peek();
    void seek(size_t pos, int line);
    void resumeArgsAtCurrent();
    [[noreturn]] void fail(const std::string& message) const;
    [[noreturn]] void failAt(int line, const std::string& message) const;
    [[noreturn]] void unexpected(const std::string& context) const;
    void expectOp(std::string_view op, const std::string& context);
    void endStatement(const std::string& after);
    TsourceLocation here(int line) const { return {fUnit->file, line}; }

    // Statements
    TscriptStmtPtr parseStatement();
    void parseBody(TscriptBlock& into);
    TscriptStmtPtr parseBlockStmt();
    TscriptStmtPtr parseIf();
    TscriptStmtPtr parseWhile();
    TscriptStmtPtr parseDoWhile();
    TscriptStmtPtr parseFor();
    TscriptStmtPtr parseReturn();
    TscriptStmtPtr parseSwitch();
    TscriptStmtPtr parseDeclaration(bool global);
    TscriptStmtPtr parseProc(bool global);
    TscriptStmtPtr parseCommandStatement();
    TscriptStmtPtr parseExprStatement();
    bool typeKeyword(const TscriptToken& t, TscriptType& type) const;

    // Expressions
    TscriptExprPtr parseExpr();
    TscriptExprPtr parseAssign();
    TscriptExprPtr parseTernary();
    TscriptExprPtr parseBinaryLevel(int level);
    TscriptExprPtr parseUnary();
    TscriptExprPtr parsePostfix(TscriptExprPtr base);
    TscriptExprPtr parsePrimary();
    TscriptExprPtr parseCallArgs(std::string name, int line);
    TscriptExprPtr parseBacktick();
    TscriptExprPtr parseVectorLiteral();
    TscriptExprPtr parseArrayLiteral();
    // Command syntax: arguments up to ';' (or the closing backtick).
    TscriptExprPtr parseCommandArgs(const TscriptToken& name, bool inBacktick);

    TscriptExprPtr node(TscriptExprKind kind, int line, std::vector<TscriptExprPtr> kids = {});
    static bool isLvalue(const TscriptExpr& e);

    TscriptLexer fLex;
    TscriptToken fCur;
    std::optional<TscriptToken> fPeek;
    std::shared_ptr<TscriptUnit> fUnit;
    bool fResumed = false;
    bool fResumeSpace = false;
    int fNesting = 0;
    int fBlockDepth = 0;
    int fLoopDepth = 0;
    int fSwitchDepth = 0;
    const TscriptProcDef* fProc = nullptr; // the proc being parsed
};
