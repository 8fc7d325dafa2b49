#pragma once
// The tree walker behind TscriptInterpreter. Internal to Host/Script.

#include "Host/Script/TscriptAst.h"
#include "Host/Script/TscriptHost.h"

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

// A fault found below the evaluator (an operator, a built-in), which the
// evaluator turns into a TscriptError at the node's line.
struct TscriptFault {
    std::string message;
};

class TscriptEvaluator;

// Room for a value worked out on the way; empty (and free to destroy) when
// the value could be read in place.
using TscriptTemp = std::optional<TscriptValue>;

// What a built-in sees of its call.
struct TscriptBuiltinCall {
    TscriptEvaluator& eval;
    const std::string& name;
    const TscriptValue* const* args;
    size_t n;
    const std::vector<TscriptArgExpr>& exprs;
    int line;

    TsourceLocation where() const;
    size_t count() const { return n; }
    const TscriptValue& operator[](size_t i) const { return *args[i]; }
    [[noreturn]] void fail(const std::string& message) const { throw TscriptFault{name + ": " + message}; }
    void expectCount(size_t lo, size_t hi) const;
    double number(size_t i) const;                                 // Int or Float
    int integer(size_t i) const;                                   // Int or Float, truncated
    const std::string& text(size_t i) const;                       // String
    TscriptVector vector(size_t i, bool allowNumber = true) const; // a number fills all three
};

using TscriptBuiltin = TscriptValue (*)(TscriptBuiltinCall&);
const TscriptBuiltin* findScriptBuiltin(const std::string& name);

// Operators on values; throw TscriptFault.
TscriptValue scriptBinary(TscriptOp op, const TscriptValue& a, const TscriptValue& b);
TscriptValue scriptUnary(TscriptOp op, const TscriptValue& a);
bool scriptTruth(const TscriptValue& v);
// Converts for storing into a variable of `type`; `what` names the target.
TscriptValue scriptConvert(const TscriptValue& v, TscriptType type, const std::string& what);
TscriptValue scriptZero(TscriptType type);
// The same, naming the target only when it fails (`what` is called then), so
// that conversions on hot paths build no text.
template <typename What> TscriptValue scriptConvertFor(const TscriptValue& v, TscriptType type, What&& what) {
    if (v.type() == type) return v;
    if (!v.isNone() && v.isArray() != (type >= TscriptType::IntArray)) return scriptConvert(v, type, what());
    return scriptConvert(v, type, std::string());
}

// A smooth gradient noise around zero, within [-1, 1].
double scriptNoise1(double x);
double scriptNoise3(double x, double y, double z);

class TscriptEvaluator {
public:
    static constexpr int kMaxCallDepth = 256;
    // Native recursion of the walker (statements, expressions, calls).
    static constexpr int kMaxWalkDepth = 3000; // about 1.5 MB of stack
    // Arrays do not grow past this by assignment (a typo should not eat memory).
    static constexpr int kMaxArrayIndex = 1 << 24;
    // Nor do strings grow past this by joining.
    static constexpr size_t kMaxStringLength = size_t(1) << 26;

    explicit TscriptEvaluator(TscriptHost& host);

    bool run(std::string_view source, const std::string& fileName, bool echo);
    TscriptValue evaluate(std::string_view source, const TsourceLocation& where);
    std::shared_ptr<TscriptUnit> compile(std::string_view source, const TsourceLocation& where);
    TscriptValue execute(const std::shared_ptr<TscriptUnit>& unit);

    TscriptHost& host() { return fHost; }
    const std::unordered_map<std::string, TscriptValue>& globals() const { return fGlobals; }
    void setGlobal(const std::string& name, TscriptValue value);
    bool hasProc(const std::string& name) const;
    bool hasCallable(const std::string& name) const;
    void setInterruptFlag(const std::atomic<bool>* flag) { fInterrupt = flag; }
    void setStepLimit(std::uint64_t steps) { fStepLimit = steps; }

    // Random stream of rand() and seed().
    void seed(int s);
    double random();

    // For built-ins that write into a variable argument (tokenize, clear).
    TscriptValue* variableOf(const TscriptExpr& e);

private:
    enum class Flow { Normal, Break, Continue, Return };

    struct LocalVar {
        std::string name;
        TscriptValue value;
        TscriptValue* alias = nullptr; // a global brought in by `global`
    };
    struct Frame {
        size_t base = 0;      // first local of the frame
        size_t scopeBase = 0; // first of its entries in fScopes
        std::shared_ptr<TscriptUnit> unit;
        const TscriptProcDef* proc = nullptr;
    };
    struct ProcRef {
        std::shared_ptr<TscriptUnit> unit;
        const TscriptProcDef* def = nullptr;
    };
    struct DepthGuard {
        DepthGuard(TscriptEvaluator& e, int line) : fE(e) {
            if (++fE.fWalkDepth > kMaxWalkDepth) fE.tooDeep(line);
        }
        ~DepthGuard() { --fE.fWalkDepth; }
        TscriptEvaluator& fE;
    };
    struct FrameGuard {
        explicit FrameGuard(TscriptEvaluator& e)
            : fE(e), fLocals(e.fLocals.size()), fFrames(e.fFrames.size()), fScopes(e.fScopes.size()) {}
        ~FrameGuard();
        TscriptEvaluator& fE;
        size_t fLocals, fFrames, fScopes;
    };
    struct ScopeGuard {
        explicit ScopeGuard(TscriptEvaluator& e);
        ~ScopeGuard();
        TscriptEvaluator& fE;
        size_t fLocals;
    };

    TscriptValue runUnit(const std::shared_ptr<TscriptUnit>& unit, bool echo);
    Flow exec(const TscriptStmt& s);
    Flow execNode(const TscriptStmt& s);
    Flow execBlock(const TscriptBlock& b, bool newScope);
    Flow execStatements(const TscriptBlock& b);
    Flow execLoopBody(const TscriptBlock& b);
    void execDecl(const TscriptStmt& s);

    TscriptValue eval(const TscriptExpr& e);
    TscriptValue evalNode(const TscriptExpr& e);
    // A reference to a variable's storage when `e` is a variable, otherwise
    // the value computed into `tmp`: reads of arrays copy nothing.
    const TscriptValue& evalRef(const TscriptExpr& e, TscriptTemp& tmp);
    TscriptValue evalIndex(const TscriptExpr& e);
    TscriptValue evalComponent(const TscriptExpr& e);
    TscriptValue evalAssign(const TscriptExpr& e, bool wantResult);
    TscriptValue evalIncDec(const TscriptExpr& e, bool post);
    TscriptValue evalCall(const TscriptExpr& e);
    TscriptValue callProc(const ProcRef& proc, const TscriptExpr& e);
    TscriptValue callCommand(const TscriptExpr& e);
    TscriptValue callBuiltin(const TscriptBuiltin& builtin, const TscriptExpr& e);
    TscriptValue callCatch(const TscriptExpr& e, bool quiet);
    TscriptValue evalArrayLiteral(const TscriptExpr& e);

    // Storage of an lvalue, its element or component; grows arrays when `grow`.
    TscriptValue readLvalue(const TscriptExpr& e);
    void writeLvalue(const TscriptExpr& e, TscriptValue v, TscriptValue* stored);
    TscriptValue& variable(const TscriptExpr& var);                     // undeclared is an error
    int indexValue(const TscriptExpr& idx, const std::string& varName); // name without '$'

    TscriptValue* lookup(const std::string& name);
    TscriptValue* lookupCached(const TscriptExpr& var);
    TscriptValue& declare(const std::string& name, TscriptType type, bool global, int line);
    bool findProc(const std::string& name, ProcRef& out) const;
    bool scriptTruthAt(const TscriptExpr& e);
    void tick(int line);
    [[noreturn]] void tooDeep(int line);

public:
    TsourceLocation where(int line) const;

private:
    [[noreturn]] void fail(int line, const std::string& message) const;

    TscriptHost& fHost;
    const std::uint64_t fId;
    std::unordered_map<std::string, TscriptValue> fGlobals;
    std::deque<LocalVar> fLocals;
    std::vector<Frame> fFrames;
    std::vector<size_t> fScopes; // first local of each open block, all frames
    std::unordered_map<std::string, ProcRef> fGlobalProcs;
    TscriptValue fReturnValue;
    unsigned short fRandState[3] = {0, 0, 0};
    int fCallDepth = 0;
    int fWalkDepth = 0;
    const std::atomic<bool>* fInterrupt = nullptr;
    std::uint64_t fStepLimit = 0;
    std::uint64_t fSteps = 0;
    // Changes whenever the set of visible variables may change (frames,
    // scopes, declarations), so a variable node's cached slot goes stale.
    std::uint64_t fStamp = 1;
    std::uint64_t fProcStamp = 1; // changes when a global proc is defined
    int fLine = 0;                // of the statement running, for faults from below
};
