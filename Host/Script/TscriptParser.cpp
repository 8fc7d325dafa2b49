#include "Host/Script/TscriptParser.h"

#include <algorithm>

namespace {

const std::string kSyntax = "syntax error: ";

// Words that read as numbers wherever they appear.
bool boolWord(const std::string& w, int& value) {
    if (w == "true" || w == "on" || w == "yes") {
        value = 1;
        return true;
    }
    if (w == "false" || w == "off" || w == "no") {
        value = 0;
        return true;
    }
    return false;
}

bool isAssignOp(const TscriptToken& t) {
    return t.kind == TscriptTok::Op &&
           (t.text == "=" || t.text == "+=" || t.text == "-=" || t.text == "*=" || t.text == "/=");
}

// Binary levels from loosest to tightest.
const std::vector<std::vector<std::string>> kLevels = {
    {"||"}, {"&&"}, {"==", "!="}, {"<", "<=", ">", ">="}, {"+", "-"}, {"*", "/", "%", "^"}};

} // namespace

TscriptType scriptArrayOf(TscriptType t) {
    switch (t) {
    case TscriptType::Int:
        return TscriptType::IntArray;
    case TscriptType::Float:
        return TscriptType::FloatArray;
    case TscriptType::String:
        return TscriptType::StringArray;
    case TscriptType::Vector:
        return TscriptType::VectorArray;
    default:
        return t;
    }
}

TscriptType scriptElementOf(TscriptType t) {
    switch (t) {
    case TscriptType::IntArray:
        return TscriptType::Int;
    case TscriptType::FloatArray:
        return TscriptType::Float;
    case TscriptType::StringArray:
        return TscriptType::String;
    case TscriptType::VectorArray:
        return TscriptType::Vector;
    default:
        return t;
    }
}

const char* scriptTypeName(TscriptType t) {
    switch (t) {
    case TscriptType::None:
        return "nothing";
    case TscriptType::Int:
        return "int";
    case TscriptType::Float:
        return "float";
    case TscriptType::String:
        return "string";
    case TscriptType::Vector:
        return "vector";
    case TscriptType::IntArray:
        return "int[]";
    case TscriptType::FloatArray:
        return "float[]";
    case TscriptType::StringArray:
        return "string[]";
    case TscriptType::VectorArray:
        return "vector[]";
    }
    return "?";
}

std::string scriptTypeArticle(TscriptType t) {
    switch (t) {
    case TscriptType::None:
        return "nothing";
    case TscriptType::Int:
    case TscriptType::IntArray:
        return std::string("an ") + scriptTypeName(t);
    default:
        return std::string("a ") + scriptTypeName(t);
    }
}

TscriptOp scriptOpCode(const std::string& t) {
    static const std::pair<const char*, TscriptOp> codes[] = {
        {"+", TscriptOp::Add},  {"-", TscriptOp::Sub},   {"*", TscriptOp::Mul},  {"/", TscriptOp::Div},
        {"%", TscriptOp::Mod},  {"^", TscriptOp::Cross}, {"==", TscriptOp::Eq},  {"!=", TscriptOp::Ne},
        {"<", TscriptOp::Lt},   {"<=", TscriptOp::Le},   {">", TscriptOp::Gt},   {">=", TscriptOp::Ge},
        {"&&", TscriptOp::And}, {"||", TscriptOp::Or},   {"!", TscriptOp::Not},  {"++", TscriptOp::Inc},
        {"--", TscriptOp::Dec}, {"+=", TscriptOp::Add},  {"-=", TscriptOp::Sub}, {"*=", TscriptOp::Mul},
        {"/=", TscriptOp::Div}};
    for (const auto& [text, code] : codes)
        if (t == text) return code;
    return TscriptOp::None;
}

const char* scriptOpText(TscriptOp op) {
    switch (op) {
    case TscriptOp::Add:
    case TscriptOp::Plus:
        return "+";
    case TscriptOp::Sub:
    case TscriptOp::Neg:
        return "-";
    case TscriptOp::Mul:
        return "*";
    case TscriptOp::Div:
        return "/";
    case TscriptOp::Mod:
        return "%";
    case TscriptOp::Cross:
        return "^";
    case TscriptOp::Eq:
        return "==";
    case TscriptOp::Ne:
        return "!=";
    case TscriptOp::Lt:
        return "<";
    case TscriptOp::Le:
        return "<=";
    case TscriptOp::Gt:
        return ">";
    case TscriptOp::Ge:
        return ">=";
    case TscriptOp::And:
        return "&&";
    case TscriptOp::Or:
        return "||";
    case TscriptOp::Not:
        return "!";
    case TscriptOp::Inc:
        return "++";
    case TscriptOp::Dec:
        return "--";
    default:
        return "=";
    }
}

TscriptParser::NestGuard::NestGuard(TscriptParser& p) : fP(p) {
    if (++fP.fNesting > kMaxNesting) {
        --fP.fNesting;
        fP.fail(kSyntax + "nested too deeply (more than " + std::to_string(kMaxNesting) + " levels)");
    }
}

TscriptParser::TscriptParser(std::string_view source, std::string file, int firstLine)
    : fLex(source, firstLine), fUnit(std::make_shared<TscriptUnit>()) {
    fUnit->file = std::move(file);
}

// ---------------------------------------------------------------- tokens

void TscriptParser::advance() {
    if (fPeek) {
        fCur = std::move(*fPeek);
        fPeek.reset();
    } else {
        fCur = fLex.next();
    }
}

const TscriptToken& TscriptParser::peek() {
    if (!fPeek) fPeek = fLex.next();
    return *fPeek;
}

void TscriptParser::seek(size_t pos, int line) {
    fPeek.reset();
    fLex.seek(pos, line);
}

// After an ordinary-mode construct inside command arguments, the token that
// follows it must be read again in argument mode.
void TscriptParser::resumeArgsAtCurrent() {
    fResumeSpace = fCur.spaceBefore;
    fResumed = true;
    seek(fCur.begin, fCur.line);
}

void TscriptParser::fail(const std::string& message) const {
    // A lexical fault at the current token says more than "unexpected".
    if (fCur.kind == TscriptTok::Error) throw TscriptError(kSyntax + fCur.text, here(fCur.line));
    throw TscriptError(message, here(fCur.line));
}

void TscriptParser::failAt(int line, const std::string& message) const {
    throw TscriptError(message, here(line));
}

void TscriptParser::unexpected(const std::string& context) const {
    fail(kSyntax + "unexpected " + TscriptLexer::describe(fCur) + context);
}

void TscriptParser::expectOp(std::string_view op, const std::string& context) {
    if (!fCur.isOp(op))
        fail(kSyntax + "expected '" + std::string(op) + "' " + context + ", found " +
             TscriptLexer::describe(fCur));
    advance();
}

void TscriptParser::endStatement(const std::string& after) {
    if (fCur.isOp(";")) {
        advance();
        return;
    }
    // The last statement of a text may go without its ';'.
    if (fCur.kind == TscriptTok::End && fBlockDepth == 0) return;
    fail(kSyntax + "expected ';' after " + after);
}

bool TscriptParser::typeKeyword(const TscriptToken& t, TscriptType& type) const {
    if (t.kind != TscriptTok::Ident) return false;
    if (t.text == "int")
        type = TscriptType::Int;
    else if (t.text == "float")
        type = TscriptType::Float;
    else if (t.text == "string")
        type = TscriptType::String;
    else if (t.text == "vector")
        type = TscriptType::Vector;
    else
        return false;
    return true;
}

TscriptExprPtr TscriptParser::node(TscriptExprKind kind, int line, std::vector<TscriptExprPtr> kids) {
    auto e = std::make_unique<TscriptExpr>();
    e->kind = kind;
    e->line = line;
    int depth = 0;
    for (auto& k : kids)
        depth = std::max(depth, k->depth);
    e->depth = depth + 1;
    if (e->depth > kMaxNesting)
        failAt(line, kSyntax + "expression nested too deeply (more than " + std::to_string(kMaxNesting) +
                         " levels)");
    e->kids = std::move(kids);
    return e;
}

bool TscriptParser::isLvalue(const TscriptExpr& e) {
    switch (e.kind) {
    case TscriptExprKind::Var:
        return true;
    case TscriptExprKind::Index:
        return e.kids[0]->kind == TscriptExprKind::Var;
    case TscriptExprKind::Component:
        return isLvalue(*e.kids[0]);
    default:
        return false;
    }
}

// ---------------------------------------------------------------- statements

std::shared_ptr<TscriptUnit> TscriptParser::parse() {
    advance();
    while (fCur.kind != TscriptTok::End) {
        TscriptStmtPtr s = parseStatement();
        if (s->kind == TscriptStmtKind::Proc) {
            const TscriptProcDef* def = s->proc.get();
            if (!def->global) fUnit->localProcs[def->name] = def;
        }
        fUnit->top.stmts.push_back(std::move(s));
    }
    return fUnit;
}

TscriptStmtPtr TscriptParser::parseStatement() {
    NestGuard guard(*this);
    if (fCur.isOp(";")) {
        auto s = std::make_unique<TscriptStmt>();
        s->line = fCur.line;
        advance();
        return s;
    }
    if (fCur.isOp("{")) return parseBlockStmt();
    if (fCur.kind == TscriptTok::Ident) {
        const std::string& w = fCur.text;
        TscriptType type;
        if (w == "if") return parseIf();
        if (w == "while") return parseWhile();
        if (w == "do") return parseDoWhile();
        if (w == "for") return parseFor();
        if (w == "return") return parseReturn();
        if (w == "switch") return parseSwitch();
        if (w == "case" || w == "default") fail(kSyntax + "'" + w + "' outside a 'switch'");
        if (w == "break" || w == "continue") {
            auto s = std::make_unique<TscriptStmt>();
            s->kind = w == "break" ? TscriptStmtKind::Break : TscriptStmtKind::Continue;
            s->line = fCur.line;
            if (fLoopDepth == 0 && (w == "continue" || fSwitchDepth == 0))
                fail(kSyntax + "'" + w + "' outside a loop" + (w == "break" ? " or switch" : ""));
            std::string word = w;
            advance();
            endStatement("'" + word + "'");
            return s;
        }
        if (w == "else") fail(kSyntax + "'else' without 'if'");
        if (w == "proc") return parseProc(false);
        if (w == "global") {
            const TscriptToken& n = peek();
            if (n.is(TscriptTok::Ident, "proc")) {
                advance();
                return parseProc(true);
            }
            TscriptType t;
            if (typeKeyword(n, t)) {
                advance();
                return parseDeclaration(true);
            }
            advance();
            fail(kSyntax + "expected 'proc' or a type after 'global'");
        }
        if (typeKeyword(fCur, type) && peek().kind == TscriptTok::Var) return parseDeclaration(false);
        int dummy;
        const TscriptToken& n = peek();
        bool functionSyntax = n.isOp("(") && !n.spaceBefore;
        if (!functionSyntax && !boolWord(w, dummy) && !(typeKeyword(fCur, type) && n.isOp("(")))
            return parseCommandStatement();
    }
    return parseExprStatement();
}

TscriptStmtPtr TscriptParser::parseExprStatement() {
    auto s = std::make_unique<TscriptStmt>();
    s->kind = TscriptStmtKind::Expr;
    s->line = fCur.line;
    s->expr = parseExpr();
    s->isCall = s->expr->kind == TscriptExprKind::Call;
    endStatement(s->isCall ? "call of '" + s->expr->name + "'" : "expression");
    return s;
}

TscriptStmtPtr TscriptParser::parseCommandStatement() {
    TscriptToken name = fCur;
    seek(name.begin + name.text.size(), name.line);
    auto s = std::make_unique<TscriptStmt>();
    s->kind = TscriptStmtKind::Expr;
    s->line = name.line;
    s->expr = parseCommandArgs(name, false);
    s->isCall = true;
    return s;
}

TscriptExprPtr TscriptParser::parseCommandArgs(const TscriptToken& name, bool inBacktick) {
    auto call = node(TscriptExprKind::Call, name.line);
    call->name = name.text;
    call->commandSyntax = true;
    const std::string after = "command '" + name.text + "'";
    while (true) {
        fCur = fLex.nextArg();
        if (fResumed) {
            // Scanning restarted at the token, so the blank before it was not seen again.
            fCur.spaceBefore = fResumeSpace;
            fResumed = false;
        }
        const TscriptToken t = fCur;
        if (t.isOp(";")) {
            if (inBacktick) fail(kSyntax + "expected '`' to close " + after + ", found ';'");
            advance();
            return call;
        }
        if (t.kind == TscriptTok::End) {
            if (inBacktick) failAt(name.line, kSyntax + "missing '`' after " + after);
            if (fBlockDepth == 0) return call;
            fail(kSyntax + "expected ';' after " + after);
        }
        if (t.kind == TscriptTok::Backtick && inBacktick) return call; // the caller reads on from here
        if (t.kind == TscriptTok::Error) fail("");
        if (t.isOp(")") || t.isOp("}") || t.isOp(",")) fail(kSyntax + "expected ';' after " + after);
        if (!t.spaceBefore)
            fail(kSyntax + "unexpected " + TscriptLexer::describe(t) + " right after an argument of '" +
                 name.text + "': separate arguments with blanks, or join text with (a + b)");

        TscriptArgExpr arg;
        int line = t.line;
        switch (t.kind) {
        case TscriptTok::Flag:
            arg.isFlag = true;
            arg.expr = node(TscriptExprKind::Literal, line);
            arg.expr->value = t.text;
            break;
        case TscriptTok::Int:
            arg.expr = node(TscriptExprKind::Literal, line);
            arg.expr->value = t.intValue;
            break;
        case TscriptTok::Float:
            arg.expr = node(TscriptExprKind::Literal, line);
            arg.expr->value = t.floatValue;
            break;
        case TscriptTok::Word: {
            if (fLex.atCallOpen(t)) {
                // `print sqrt(2);`: a function call among command arguments.
                seek(t.begin, t.line);
                advance();
                advance();
                arg.expr = parseCallArgs(t.text, line);
                resumeArgsAtCurrent();
                break;
            }
            arg.expr = node(TscriptExprKind::Literal, line);
            int b;
            if (boolWord(t.text, b))
                arg.expr->value = b;
            else
                arg.expr->value = t.text;
            break;
        }
        case TscriptTok::String:
            arg.expr = node(TscriptExprKind::Literal, line);
            arg.expr->value = t.text;
            break;
        case TscriptTok::Var: {
            // $var with optional [index]; read in ordinary mode.
            seek(t.begin, t.line);
            advance();
            auto v = node(TscriptExprKind::Var, line);
            v->name = fCur.text;
            advance();
            while (fCur.isOp("[") && !fCur.spaceBefore) {
                advance();
                auto idx = parseExpr();
                expectOp("]", "after an index");
                std::vector<TscriptExprPtr> kids;
                kids.push_back(std::move(v));
                kids.push_back(std::move(idx));
                v = node(TscriptExprKind::Index, line, std::move(kids));
            }
            arg.expr = std::move(v);
            resumeArgsAtCurrent();
            break;
        }
        case TscriptTok::Backtick:
            seek(t.begin, t.line);
            advance();
            arg.expr = parseBacktick();
            resumeArgsAtCurrent();
            break;
        case TscriptTok::Op:
            if (t.text == "(") {
                seek(t.begin, t.line);
                advance();
                advance();
                std::vector<TscriptExprPtr> list;
                if (fCur.isOp(")")) fail(kSyntax + "empty '()' in the arguments of '" + name.text + "'");
                list.push_back(parseExpr());
                while (fCur.isOp(",")) {
                    advance();
                    list.push_back(parseExpr());
                }
                expectOp(")", "to close '(' in the arguments of '" + name.text + "'");
                if (list.size() > 1) {
                    // `name (a, b);` is function syntax with a blank before '('.
                    bool last = fCur.isOp(";") || fCur.kind == TscriptTok::End ||
                                (inBacktick && fCur.kind == TscriptTok::Backtick);
                    if (!call->args.empty() || !last)
                        failAt(line,
                               kSyntax + "a list in parentheses is not an argument of '" + name.text + "'");
                    for (auto& e : list)
                        call->args.push_back({std::move(e), false});
                    call->commandSyntax = false;
                    resumeArgsAtCurrent();
                    continue;
                }
                arg.expr = std::move(list[0]);
                resumeArgsAtCurrent();
                break;
            }
            if (t.text == "<<" || t.text == "{") {
                seek(t.begin, t.line);
                advance();
                arg.expr = t.text == "<<" ? parseVectorLiteral() : parseArrayLiteral();
                resumeArgsAtCurrent();
                break;
            }
            fail(kSyntax + "unexpected " + TscriptLexer::describe(t) + " in the arguments of '" + name.text +
                 "'");
        default:
            fail(kSyntax + "unexpected " + TscriptLexer::describe(t) + " in the arguments of '" + name.text +
                 "'");
        }
        call->depth = std::max(call->depth, arg.expr->depth + 1);
        call->args.push_back(std::move(arg));
    }
}

TscriptExprPtr TscriptParser::parseBacktick() {
    NestGuard guard(*this);
    int line = fCur.line;
    advance(); // the opening backtick
    if (fCur.kind != TscriptTok::Ident)
        fail(kSyntax + "expected a command name after '`', found " + TscriptLexer::describe(fCur));
    TscriptToken name = fCur;
    TscriptExprPtr call;
    const TscriptToken& n = peek();
    if (n.isOp("(") && !n.spaceBefore) {
        advance();
        call = parseCallArgs(name.text, name.line);
        if (fCur.kind != TscriptTok::Backtick)
            fail(kSyntax + "expected '`' after the call of '" + name.text + "'");
    } else {
        seek(name.begin + name.text.size(), name.line);
        call = parseCommandArgs(name, true);
    }
    call->line = line;
    advance(); // past the closing backtick
    return call;
}

void TscriptParser::parseBody(TscriptBlock& into) {
    // A braced body is the block itself, so it gets one scope, not two.
    if (fCur.isOp("{")) {
        TscriptStmtPtr b = parseBlockStmt();
        into = std::move(b->body);
        return;
    }
    into.stmts.push_back(parseStatement());
}

TscriptStmtPtr TscriptParser::parseBlockStmt() {
    NestGuard guard(*this);
    auto s = std::make_unique<TscriptStmt>();
    s->kind = TscriptStmtKind::Block;
    s->line = fCur.line;
    advance();
    ++fBlockDepth;
    while (!fCur.isOp("}")) {
        if (fCur.kind == TscriptTok::End)
            fail(kSyntax + "missing '}' to close the block opened on line " + std::to_string(s->line));
        s->body.stmts.push_back(parseStatement());
    }
    --fBlockDepth;
    advance();
    return s;
}

TscriptStmtPtr TscriptParser::parseIf() {
    auto s = std::make_unique<TscriptStmt>();
    s->kind = TscriptStmtKind::If;
    s->line = fCur.line;
    // else-if chains are collected in a loop, so a long chain nests nothing.
    while (true) {
        advance(); // 'if'
        expectOp("(", "after 'if'");
        s->conds.push_back(parseExpr());
        expectOp(")", "after the condition of 'if'");
        s->bodies.emplace_back();
        parseBody(s->bodies.back());
        if (!fCur.is(TscriptTok::Ident, "else")) return s;
        advance();
        if (fCur.is(TscriptTok::Ident, "if")) continue;
        s->elseBody = std::make_unique<TscriptBlock>();
        parseBody(*s->elseBody);
        return s;
    }
}

TscriptStmtPtr TscriptParser::parseWhile() {
    auto s = std::make_unique<TscriptStmt>();
    s->kind = TscriptStmtKind::While;
    s->line = fCur.line;
    advance();
    expectOp("(", "after 'while'");
    s->conds.push_back(parseExpr());
    expectOp(")", "after the condition of 'while'");
    s->bodies.emplace_back();
    ++fLoopDepth;
    parseBody(s->bodies.back());
    --fLoopDepth;
    return s;
}

TscriptStmtPtr TscriptParser::parseDoWhile() {
    auto s = std::make_unique<TscriptStmt>();
    s->kind = TscriptStmtKind::DoWhile;
    s->line = fCur.line;
    advance();
    s->bodies.emplace_back();
    ++fLoopDepth;
    parseBody(s->bodies.back());
    --fLoopDepth;
    if (!fCur.is(TscriptTok::Ident, "while")) fail(kSyntax + "expected 'while' after the body of 'do'");
    advance();
    expectOp("(", "after 'while'");
    s->conds.push_back(parseExpr());
    expectOp(")", "after the condition of 'while'");
    endStatement("'do ... while'");
    return s;
}

TscriptStmtPtr TscriptParser::parseFor() {
    auto s = std::make_unique<TscriptStmt>();
    s->line = fCur.line;
    advance();
    expectOp("(", "after 'for'");
    if (fCur.kind == TscriptTok::Var && peek().is(TscriptTok::Ident, "in")) {
        s->kind = TscriptStmtKind::ForIn;
        s->loopVar = fCur.text;
        advance();
        advance();
        s->expr = parseExpr();
        expectOp(")", "after the array of 'for ... in'");
    } else {
        s->kind = TscriptStmtKind::For;
        TscriptType type;
        if (typeKeyword(fCur, type) && peek().kind == TscriptTok::Var) {
            // The declaration ends at the first ';', which it consumes.
            ++fBlockDepth;
            s->init = parseDeclaration(false);
            --fBlockDepth;
        } else {
            if (!fCur.isOp(";")) {
                s->init = std::make_unique<TscriptStmt>();
                s->init->kind = TscriptStmtKind::Expr;
                s->init->line = fCur.line;
                s->init->expr = parseExpr();
            }
            expectOp(";", "after the start of 'for'");
        }
        s->conds.push_back(fCur.isOp(";") ? nullptr : parseExpr());
        expectOp(";", "after the condition of 'for'");
        if (!fCur.isOp(")")) s->step = parseExpr();
        expectOp(")", "after the step of 'for'");
    }
    s->bodies.emplace_back();
    ++fLoopDepth;
    parseBody(s->bodies.back());
    --fLoopDepth;
    return s;
}

TscriptStmtPtr TscriptParser::parseSwitch() {
    NestGuard guard(*this);
    auto s = std::make_unique<TscriptStmt>();
    s->kind = TscriptStmtKind::Switch;
    s->line = fCur.line;
    advance();
    expectOp("(", "after 'switch'");
    s->expr = parseExpr();
    expectOp(")", "after the value of 'switch'");
    int open = fCur.line;
    expectOp("{", "to open the body of 'switch'");
    ++fBlockDepth;
    ++fSwitchDepth;
    bool sawDefault = false;
    while (!fCur.isOp("}")) {
        if (fCur.kind == TscriptTok::End)
            fail(kSyntax + "missing '}' to close the 'switch' opened on line " + std::to_string(open));
        if (fCur.is(TscriptTok::Ident, "case")) {
            advance();
            s->conds.push_back(parseTernary());
            expectOp(":", "after the value of 'case'");
            s->caseStarts.push_back(s->body.stmts.size());
        } else if (fCur.is(TscriptTok::Ident, "default")) {
            if (sawDefault) fail(kSyntax + "two 'default' labels in one 'switch'");
            sawDefault = true;
            advance();
            expectOp(":", "after 'default'");
            s->conds.push_back(nullptr);
            s->caseStarts.push_back(s->body.stmts.size());
        } else {
            if (s->conds.empty())
                fail(kSyntax + "expected 'case' or 'default' in 'switch', found " +
                     TscriptLexer::describe(fCur));
            s->body.stmts.push_back(parseStatement());
        }
    }
    --fSwitchDepth;
    --fBlockDepth;
    advance();
    return s;
}

TscriptStmtPtr TscriptParser::parseReturn() {
    auto s = std::make_unique<TscriptStmt>();
    s->kind = TscriptStmtKind::Return;
    s->line = fCur.line;
    advance();
    bool hasValue = !(fCur.isOp(";") || fCur.kind == TscriptTok::End || fCur.isOp("}"));
    if (hasValue) s->expr = parseExpr();
    if (fProc) {
        if (hasValue && fProc->returnType == TscriptType::None)
            failAt(s->line, kSyntax + "proc '" + fProc->name + "' has no return type but returns a value");
        if (!hasValue && fProc->returnType != TscriptType::None)
            failAt(s->line, kSyntax + "proc '" + fProc->name + "' must return " +
                                scriptTypeArticle(fProc->returnType));
    }
    endStatement("'return'");
    return s;
}

TscriptStmtPtr TscriptParser::parseDeclaration(bool global) {
    auto s = std::make_unique<TscriptStmt>();
    s->kind = TscriptStmtKind::Decl;
    s->line = fCur.line;
    s->globalDecl = global;
    typeKeyword(fCur, s->declType);
    std::string typeWord = fCur.text;
    advance();
    while (true) {
        if (fCur.kind != TscriptTok::Var)
            fail(kSyntax + "expected a variable name after '" + typeWord + "', found " +
                 TscriptLexer::describe(fCur));
        TscriptDeclarator d;
        d.name = fCur.text;
        d.line = fCur.line;
        advance();
        if (fCur.isOp("[")) {
            d.isArray = true;
            advance();
            if (!fCur.isOp("]")) d.size = parseExpr();
            expectOp("]", "after the size of array $" + d.name);
        }
        if (fCur.isOp("=")) {
            advance();
            d.init = parseAssign();
        }
        s->decls.push_back(std::move(d));
        if (!fCur.isOp(",")) break;
        advance();
    }
    endStatement("the declaration of $" + s->decls.back().name);
    return s;
}

TscriptStmtPtr TscriptParser::parseProc(bool global) {
    auto s = std::make_unique<TscriptStmt>();
    s->kind = TscriptStmtKind::Proc;
    s->line = fCur.line;
    if (fBlockDepth > 0 || fProc) fail(kSyntax + "procs are defined at the top level only");
    advance(); // 'proc'
    auto def = std::make_unique<TscriptProcDef>();
    def->global = global;
    def->line = s->line;
    TscriptType type;
    if (typeKeyword(fCur, type) && (peek().kind == TscriptTok::Ident || peek().isOp("["))) {
        advance();
        if (fCur.isOp("[")) {
            advance();
            expectOp("]", "after the array return type");
            type = scriptArrayOf(type);
        }
        def->returnType = type;
    }
    if (fCur.kind != TscriptTok::Ident)
        fail(kSyntax + "expected a proc name, found " + TscriptLexer::describe(fCur));
    def->name = fCur.text;
    advance();
    expectOp("(", "after the name of proc '" + def->name + "'");
    while (!fCur.isOp(")")) {
        if (!def->params.empty()) expectOp(",", "between the parameters of proc '" + def->name + "'");
        TscriptParam p;
        if (!typeKeyword(fCur, p.type))
            fail(kSyntax + "expected a parameter type in proc '" + def->name + "', found " +
                 TscriptLexer::describe(fCur));
        advance();
        if (fCur.kind != TscriptTok::Var)
            fail(kSyntax + "expected a parameter name in proc '" + def->name + "', found " +
                 TscriptLexer::describe(fCur));
        p.name = fCur.text;
        advance();
        if (fCur.isOp("[")) {
            advance();
            expectOp("]", "after '[' of parameter $" + p.name);
            p.type = scriptArrayOf(p.type);
        }
        for (const auto& q : def->params)
            if (q.name == p.name)
                fail(kSyntax + "parameter $" + p.name + " appears twice in proc '" + def->name + "'");
        def->params.push_back(std::move(p));
    }
    advance();
    if (!fCur.isOp("{")) fail(kSyntax + "expected '{' to open the body of proc '" + def->name + "'");
    fProc = def.get();
    int loops = fLoopDepth, switches = fSwitchDepth;
    fLoopDepth = 0;
    fSwitchDepth = 0;
    TscriptStmtPtr body = parseBlockStmt();
    fLoopDepth = loops;
    fSwitchDepth = switches;
    fProc = nullptr;
    def->body = std::move(body->body);
    s->proc = std::move(def);
    return s;
}

// ---------------------------------------------------------------- expressions

TscriptExprPtr TscriptParser::parseExpr() {
    NestGuard guard(*this);
    return parseAssign();
}

TscriptExprPtr TscriptParser::parseAssign() {
    TscriptExprPtr lhs = parseTernary();
    if (!isAssignOp(fCur)) return lhs;
    int line = fCur.line;
    std::string op = fCur.text;
    if (!isLvalue(*lhs)) fail(kSyntax + "the left side of '" + op + "' is not a variable");
    advance();
    NestGuard guard(*this);
    TscriptExprPtr rhs = parseAssign();
    std::vector<TscriptExprPtr> kids;
    kids.push_back(std::move(lhs));
    kids.push_back(std::move(rhs));
    auto e = node(TscriptExprKind::Assign, line, std::move(kids));
    e->op = op;
    e->opCode = scriptOpCode(op);
    return e;
}

TscriptExprPtr TscriptParser::parseTernary() {
    TscriptExprPtr c = parseBinaryLevel(0);
    if (!fCur.isOp("?")) return c;
    int line = fCur.line;
    advance();
    NestGuard guard(*this);
    TscriptExprPtr a = parseAssign();
    expectOp(":", "in '? :'");
    TscriptExprPtr b = parseTernary();
    std::vector<TscriptExprPtr> kids;
    kids.push_back(std::move(c));
    kids.push_back(std::move(a));
    kids.push_back(std::move(b));
    return node(TscriptExprKind::Ternary, line, std::move(kids));
}

TscriptExprPtr TscriptParser::parseBinaryLevel(int level) {
    if (level == static_cast<int>(kLevels.size())) return parseUnary();
    TscriptExprPtr lhs = parseBinaryLevel(level + 1);
    bool chain = false; // lhs is a node this loop made
    while (fCur.kind == TscriptTok::Op) {
        const auto& ops = kLevels[level];
        if (std::find(ops.begin(), ops.end(), fCur.text) == ops.end()) break;
        int line = fCur.line;
        std::string op = fCur.text;
        advance();
        TscriptExprPtr rhs = parseBinaryLevel(level + 1);
        // a + b + c ... is one chain, worked from left to right, not a nesting as deep as it is long.
        if (chain && lhs->kind == TscriptExprKind::Binary && lhs->op == op) {
            lhs->depth = std::max(lhs->depth, rhs->depth + 1);
            lhs->kids.push_back(std::move(rhs));
            continue;
        }
        chain = true;
        std::vector<TscriptExprPtr> kids;
        kids.push_back(std::move(lhs));
        kids.push_back(std::move(rhs));
        lhs = node(op == "&&" || op == "||" ? TscriptExprKind::Logical : TscriptExprKind::Binary, line,
                   std::move(kids));
        lhs->op = op;
        lhs->opCode = scriptOpCode(op);
    }
    return lhs;
}

TscriptExprPtr TscriptParser::parseUnary() {
    if (fCur.isOp("-") || fCur.isOp("!") || fCur.isOp("+") || fCur.isOp("++") || fCur.isOp("--")) {
        NestGuard guard(*this);
        int line = fCur.line;
        std::string op = fCur.text;
        advance();
        TscriptExprPtr operand = parseUnary();
        if (op == "++" || op == "--") {
            if (!isLvalue(*operand)) failAt(line, kSyntax + "'" + op + "' needs a variable");
            std::vector<TscriptExprPtr> kids;
            kids.push_back(std::move(operand));
            auto e = node(TscriptExprKind::PreIncDec, line, std::move(kids));
            e->op = op;
            e->opCode = scriptOpCode(op);
            return e;
        }
        // Fold a sign into a number literal, so -2147483648 stays an int.
        if (op == "-" && operand->kind == TscriptExprKind::Literal && operand->value.isNumber()) {
            if (operand->value.type() == TscriptType::Int)
                operand->value = static_cast<int>(0u - static_cast<unsigned>(operand->value.intRef()));
            else
                operand->value = -operand->value.floatRef();
            return operand;
        }
        std::vector<TscriptExprPtr> kids;
        kids.push_back(std::move(operand));
        auto e = node(TscriptExprKind::Unary, line, std::move(kids));
        e->op = op;
        e->opCode = op == "-" ? TscriptOp::Neg : op == "+" ? TscriptOp::Plus : TscriptOp::Not;
        return e;
    }
    return parsePostfix(parsePrimary());
}

TscriptExprPtr TscriptParser::parsePostfix(TscriptExprPtr base) {
    while (true) {
        int line = fCur.line;
        if (fCur.isOp("[")) {
            advance();
            TscriptExprPtr idx = parseExpr();
            expectOp("]", "after an index");
            std::vector<TscriptExprPtr> kids;
            kids.push_back(std::move(base));
            kids.push_back(std::move(idx));
            base = node(TscriptExprKind::Index, line, std::move(kids));
        } else if (fCur.isOp(".") && isLvalue(*base) && base->kind != TscriptExprKind::Component) {
            advance();
            if (fCur.kind != TscriptTok::Ident || (fCur.text != "x" && fCur.text != "y" && fCur.text != "z"))
                fail(kSyntax + "expected x, y or z after '.'");
            std::vector<TscriptExprPtr> kids;
            kids.push_back(std::move(base));
            base = node(TscriptExprKind::Component, line, std::move(kids));
            base->name = fCur.text;
            advance();
        } else if (fCur.isOp("++") || fCur.isOp("--")) {
            if (!isLvalue(*base)) fail(kSyntax + "'" + fCur.text + "' needs a variable");
            std::vector<TscriptExprPtr> kids;
            kids.push_back(std::move(base));
            base = node(TscriptExprKind::PostIncDec, line, std::move(kids));
            base->op = fCur.text;
            base->opCode = scriptOpCode(fCur.text);
            advance();
        } else {
            return base;
        }
    }
}

TscriptExprPtr TscriptParser::parseCallArgs(std::string name, int line) {
    // fCur is '('.
    auto call = node(TscriptExprKind::Call, line);
    call->name = std::move(name);
    advance();
    while (!fCur.isOp(")")) {
        if (!call->args.empty()) expectOp(",", "between the arguments of '" + call->name + "'");
        TscriptArgExpr a;
        a.expr = parseExpr();
        call->depth = std::max(call->depth, a.expr->depth + 1);
        call->args.push_back(std::move(a));
    }
    advance();
    return call;
}

TscriptExprPtr TscriptParser::parseVectorLiteral() {
    NestGuard guard(*this);
    int line = fCur.line;
    advance(); // <<
    std::vector<TscriptExprPtr> kids;
    kids.push_back(parseTernary());
    for (int i = 0; i < 2; ++i) {
        expectOp(",", "between the components of a vector");
        kids.push_back(parseTernary());
    }
    expectOp(">>", "after the third component of a vector");
    return node(TscriptExprKind::VectorLit, line, std::move(kids));
}

TscriptExprPtr TscriptParser::parseArrayLiteral() {
    NestGuard guard(*this);
    int line = fCur.line;
    advance(); // {
    std::vector<TscriptExprPtr> kids;
    while (!fCur.isOp("}")) {
        if (!kids.empty()) expectOp(",", "between the elements of an array");
        kids.push_back(parseAssign());
    }
    advance();
    return node(TscriptExprKind::ArrayLit, line, std::move(kids));
}

TscriptExprPtr TscriptParser::parsePrimary() {
    int line = fCur.line;
    switch (fCur.kind) {
    case TscriptTok::Int: {
        auto e = node(TscriptExprKind::Literal, line);
        e->value = fCur.intValue;
        advance();
        return e;
    }
    case TscriptTok::Float: {
        auto e = node(TscriptExprKind::Literal, line);
        e->value = fCur.floatValue;
        advance();
        return e;
    }
    case TscriptTok::String: {
        auto e = node(TscriptExprKind::Literal, line);
        e->value = fCur.text;
        advance();
        return e;
    }
    case TscriptTok::Var: {
        auto e = node(TscriptExprKind::Var, line);
        e->name = fCur.text;
        advance();
        return e;
    }
    case TscriptTok::Backtick:
        return parseBacktick();
    case TscriptTok::Op:
        if (fCur.text == "(") {
            NestGuard guard(*this);
            advance();
            TscriptExprPtr e = parseAssign();
            expectOp(")", "to close '('");
            return e;
        }
        if (fCur.text == "<<") return parseVectorLiteral();
        if (fCur.text == "{") return parseArrayLiteral();
        break;
    case TscriptTok::Ident: {
        int b;
        if (boolWord(fCur.text, b)) {
            auto e = node(TscriptExprKind::Literal, line);
            e->value = b;
            advance();
            return e;
        }
        std::string name = fCur.text;
        TscriptType type;
        bool cast = typeKeyword(fCur, type);
        advance();
        if (!fCur.isOp("("))
            failAt(line, kSyntax + "unexpected word '" + name + "' in an expression: quote strings (\"" +
                             name + "\"), call commands as " + name + "(...) or `" + name + " ...`");
        if (cast) {
            advance();
            std::vector<TscriptExprPtr> kids;
            kids.push_back(parseExpr());
            expectOp(")", "after the argument of '" + name + "'");
            auto e = node(TscriptExprKind::Cast, line, std::move(kids));
            e->castType = type;
            return e;
        }
        NestGuard guard(*this);
        return parseCallArgs(name, line);
    }
    default:
        break;
    }
    unexpected(fCur.kind == TscriptTok::End ? " (the text ends inside an expression)" : "");
}
