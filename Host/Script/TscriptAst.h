#pragma once
// The syntax tree the parser builds and the interpreter walks.

#include "Host/Script/TscriptValue.h"

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

struct TscriptExpr;
struct TscriptStmt;
using TscriptExprPtr = std::unique_ptr<TscriptExpr>;
using TscriptStmtPtr = std::unique_ptr<TscriptStmt>;

enum class TscriptExprKind {
    Literal,   // value
    Var,       // name
    Index,     // a[0]
    Component, // a.x (name holds the letter)
    Unary,     // op a: "-", "!", "+"
    Binary,    // a op b
    Logical,   // a && b, a || b (short-circuit)
    Ternary,   // a ? b : c
    Assign,    // a op b, op one of = += -= *= /=; a is an lvalue
    PreIncDec, // ++a / --a (op "++" or "--")
    PostIncDec,
    Call,      // name(args) or command syntax or `cmd args`
    VectorLit, // <<a, b, c>>
    ArrayLit,  // {a, b, ...}
    Cast       // int(a), float(a), string(a), vector(a); castType says which
};

// Operators, decided once at parse time.
enum class TscriptOp : unsigned char {
    None,
    Add,
    Sub,
    Mul,
    Div,
    Mod,
    Cross,
    Eq,
    Ne,
    Lt,
    Le,
    Gt,
    Ge,
    And,
    Or,
    Not,
    Neg,
    Plus,
    Inc,
    Dec
};
TscriptOp scriptOpCode(const std::string& text); // "+=" gives Add, "=" None
const char* scriptOpText(TscriptOp op);

struct TscriptBuiltinEntry;

struct TscriptArgExpr {
    TscriptExprPtr expr;
    bool isFlag = false; // a literal -word of command syntax
};

struct TscriptExpr {
    TscriptExprKind kind = TscriptExprKind::Literal;
    int line = 0;
    int depth = 1;  // height of the tree below, for the nesting guard
    std::string op; // operator text
    TscriptOp opCode = TscriptOp::None;
    std::string name;   // variable, component letter or called name
    TscriptValue value; // Literal
    TscriptType castType = TscriptType::None;
    std::vector<TscriptExprPtr> kids;
    std::vector<TscriptArgExpr> args; // Call
    bool commandSyntax = false;       // Call written as `name arg arg` or in backticks

    // Filled by the interpreter: where a variable was last found, valid while
    // its scope stamp matches; what a call name resolved to, valid while no
    // global proc was (re)defined.
    mutable TscriptValue* slot = nullptr;
    mutable std::uint64_t slotStamp = 0;
    mutable const void* callTarget = nullptr;
    mutable std::uint64_t callStamp = 0;
    mutable std::uint64_t cacheOwner = 0; // id of the interpreter the caches belong to
};

enum class TscriptStmtKind {
    Empty,
    Expr,    // expression or command call; expr
    Decl,    // declarations; decls
    Block,   // body
    If,      // conds[i] with bodies[i]; elseBody may be null
    While,   // conds[0], bodies[0]
    DoWhile, // bodies[0], conds[0]
    For,     // init, conds[0] (may be null), step, bodies[0]
    ForIn,   // loopVar, expr (the array), bodies[0]
    Break,
    Continue,
    Return, // expr may be null
    Proc,   // a definition, registered before the text runs
    Switch  // expr; conds[i] (null for default) starts at body.stmts[caseStarts[i]]
};

struct TscriptDeclarator {
    std::string name;
    bool isArray = false;
    TscriptExprPtr size; // int $a[5]
    TscriptExprPtr init; // may be null
    int line = 0;
};

struct TscriptBlock {
    std::vector<TscriptStmtPtr> stmts;
};

struct TscriptParam {
    std::string name;
    TscriptType type = TscriptType::None;
};

struct TscriptProcDef {
    std::string name;
    bool global = false;
    TscriptType returnType = TscriptType::None;
    std::vector<TscriptParam> params;
    TscriptBlock body;
    int line = 0;
};

struct TscriptStmt {
    TscriptStmtKind kind = TscriptStmtKind::Empty;
    int line = 0;
    TscriptExprPtr expr;
    // Decl
    TscriptType declType = TscriptType::None; // the scalar type; arrays per declarator
    bool globalDecl = false;
    std::vector<TscriptDeclarator> decls;
    // Control flow
    std::vector<TscriptExprPtr> conds;
    std::vector<TscriptBlock> bodies; // If: one per cond; loops: one
    std::unique_ptr<TscriptBlock> elseBody;
    TscriptStmtPtr init;            // For: a declaration or expression, may be null
    TscriptExprPtr step;            // For, may be null
    std::string loopVar;            // ForIn
    std::vector<size_t> caseStarts; // Switch
    // Proc
    std::unique_ptr<TscriptProcDef> proc;
    // Block
    TscriptBlock body;
    // The statement is a call whose result echoes at the top level.
    bool isCall = false;
};

// One parsed text: a script file, a -c text or an eval string. Procs defined
// in it point back at it, so it stays alive while any of them can be called.
struct TscriptUnit {
    std::string file;
    TscriptBlock top;
    std::unordered_map<std::string, const TscriptProcDef*> localProcs;
};

// The array type whose elements have the scalar type `t`, and back.
TscriptType scriptArrayOf(TscriptType t);
TscriptType scriptElementOf(TscriptType t);
const char* scriptTypeName(TscriptType t);    // "int", "float[]" ...
std::string scriptTypeArticle(TscriptType t); // "an int", "a string[]" ...
