#include "Host/Script/TscriptEvaluator.h"

#include "Host/Script/TscriptParser.h"

#include <cstdlib>
#include <optional>

namespace {

bool looksLikeFlag(const TscriptValue& v) {
    if (v.type() != TscriptType::String) return false;
    const std::string& s = v.stringRef();
    return s.size() > 1 && s[0] == '-' &&
           ((s[1] >= 'a' && s[1] <= 'z') || (s[1] >= 'A' && s[1] <= 'Z') || s[1] == '_');
}

size_t arraySize(const TscriptValue& v) {
    switch (v.type()) {
    case TscriptType::IntArray:
        return v.intArray().size();
    case TscriptType::FloatArray:
        return v.floatArray().size();
    case TscriptType::StringArray:
        return v.stringArray().size();
    case TscriptType::VectorArray:
        return v.vectorArray().size();
    default:
        return 0;
    }
}

TscriptValue arrayElement(const TscriptValue& v, size_t i) {
    switch (v.type()) {
    case TscriptType::IntArray:
        return v.intArray()[i];
    case TscriptType::FloatArray:
        return v.floatArray()[i];
    case TscriptType::StringArray:
        return v.stringArray()[i];
    case TscriptType::VectorArray:
        return v.vectorArray()[i];
    default:
        return {};
    }
}

// `e` is already of the array's element type.
void setArrayElement(TscriptValue& a, size_t i, TscriptValue& e) {
    switch (a.type()) {
    case TscriptType::IntArray:
        if (i >= a.intArray().size()) a.intArray().resize(i + 1, 0);
        a.intArray()[i] = e.intRef();
        break;
    case TscriptType::FloatArray:
        if (i >= a.floatArray().size()) a.floatArray().resize(i + 1, 0.0);
        a.floatArray()[i] = e.floatRef();
        break;
    case TscriptType::StringArray:
        if (i >= a.stringArray().size()) a.stringArray().resize(i + 1);
        a.stringArray()[i] = e.stringRef();
        break;
    case TscriptType::VectorArray:
        if (i >= a.vectorArray().size()) a.vectorArray().resize(i + 1, TscriptVector{0, 0, 0});
        a.vectorArray()[i] = e.vectorRef();
        break;
    default:
        break;
    }
}

// Index messages name a variable as $name; an array that is not a variable
// (a call's result) goes by this name, which no variable can have.
const std::string kAnonymousArray = "";
std::string shownName(const std::string& var) {
    return var.empty() ? "the array" : "$" + var;
}

int componentIndex(const std::string& letter) {
    return letter == "x" ? 0 : letter == "y" ? 1 : 2;
}

std::string describeVar(const TscriptExpr& e) {
    if (e.kind == TscriptExprKind::Var) return " ($" + e.name + ")";
    if (e.kind == TscriptExprKind::Index && e.kids[0]->kind == TscriptExprKind::Var)
        return " ($" + e.kids[0]->name + "[...])";
    return "";
}

} // namespace

// ---------------------------------------------------------------- guards

void TscriptEvaluator::tooDeep(int line) {
    --fWalkDepth; // the guard that called this is not constructed
    fail(line, "script nested too deeply (calls within calls, or expressions within expressions)");
}

TscriptEvaluator::FrameGuard::~FrameGuard() {
    while (fE.fLocals.size() > fLocals)
        fE.fLocals.pop_back();
    fE.fFrames.resize(fFrames);
    fE.fScopes.resize(fScopes);
    ++fE.fStamp;
}

TscriptEvaluator::ScopeGuard::ScopeGuard(TscriptEvaluator& e) : fE(e), fLocals(e.fLocals.size()) {
    fE.fScopes.push_back(fLocals);
}

TscriptEvaluator::ScopeGuard::~ScopeGuard() {
    if (fE.fLocals.size() > fLocals) ++fE.fStamp;
    while (fE.fLocals.size() > fLocals)
        fE.fLocals.pop_back();
    fE.fScopes.pop_back();
}

// ---------------------------------------------------------------- entry points

namespace {
// Ids are never reused, so a tree cached by an interpreter since destroyed
// cannot be mistaken for one cached by a new interpreter at the same address.
std::atomic<std::uint64_t> gNextEvaluatorId{1};
} // namespace

TscriptEvaluator::TscriptEvaluator(TscriptHost& host) : fHost(host), fId(gNextEvaluatorId.fetch_add(1)) {
    seed(0);
}

bool TscriptEvaluator::run(std::string_view source, const std::string& fileName, bool echo) {
    if (fFrames.empty()) fSteps = 0;
    try {
        TscriptParser parser(source, fileName, 1);
        runUnit(parser.parse(), echo);
        return true;
    } catch (const TscriptError& e) {
        if (!e.reported()) fHost.error(e.where(), e.what());
    } catch (const TscriptFault& f) {
        fHost.error({fileName, fLine}, f.message);
    } catch (const std::bad_alloc&) {
        fHost.error({fileName, fLine}, "out of memory");
    } catch (const std::exception& e) {
        fHost.error({fileName, fLine}, e.what());
    }
    return false;
}

TscriptValue TscriptEvaluator::evaluate(std::string_view source, const TsourceLocation& where) {
    return execute(compile(source, where));
}

std::shared_ptr<TscriptUnit> TscriptEvaluator::compile(std::string_view source,
                                                       const TsourceLocation& where) {
    TscriptParser parser(source, where.file, where.line > 0 ? where.line : 1);
    return parser.parse();
}

TscriptValue TscriptEvaluator::execute(const std::shared_ptr<TscriptUnit>& unit) {
    if (fFrames.empty()) fSteps = 0;
    try {
        return runUnit(unit, false);
    } catch (const TscriptError&) {
        throw;
    } catch (const TscriptFault& f) {
        throw TscriptError(f.message, {unit->file, fLine});
    } catch (const std::bad_alloc&) {
        throw TscriptError("out of memory", {unit->file, fLine});
    } catch (const std::exception& e) {
        throw TscriptError(e.what(), {unit->file, fLine});
    }
}

TscriptValue TscriptEvaluator::runUnit(const std::shared_ptr<TscriptUnit>& unit, bool echo) {
    for (const auto& s : unit->top.stmts)
        if (s->kind == TscriptStmtKind::Proc && s->proc->global) {
            fGlobalProcs[s->proc->name] = ProcRef{unit, s->proc.get()};
            ++fProcStamp;
        }

    FrameGuard guard(*this);
    Frame frame;
    frame.base = fLocals.size();
    frame.scopeBase = fScopes.size();
    frame.unit = unit;
    fFrames.push_back(std::move(frame));
    ++fStamp;

    TscriptValue last;
    for (const auto& s : unit->top.stmts) {
        fLine = s->line;
        if (s->kind == TscriptStmtKind::Expr) {
            last = eval(*s->expr);
            if (echo && s->isCall && !last.isNone()) fHost.result(last);
            continue;
        }
        last = TscriptValue();
        if (exec(*s) == Flow::Return) return std::move(fReturnValue);
    }
    return last;
}

// ---------------------------------------------------------------- helpers

TsourceLocation TscriptEvaluator::where(int line) const {
    return {fFrames.empty() ? std::string() : fFrames.back().unit->file, line};
}

void TscriptEvaluator::fail(int line, const std::string& message) const {
    throw TscriptError(message, where(line));
}

void TscriptEvaluator::tick(int line) {
    if (fInterrupt && fInterrupt->load(std::memory_order_relaxed)) fail(line, "interrupted");
    if (fStepLimit && ++fSteps > fStepLimit)
        fail(line, "step limit of " + std::to_string(fStepLimit) + " reached");
}

void TscriptEvaluator::seed(int s) {
    unsigned u = static_cast<unsigned>(s);
    fRandState[0] = 0x330e;
    fRandState[1] = static_cast<unsigned short>(u & 0xffffu);
    fRandState[2] = static_cast<unsigned short>(u >> 16);
}

double TscriptEvaluator::random() {
    return erand48(fRandState);
}

TscriptValue* TscriptEvaluator::lookup(const std::string& name) {
    const Frame& f = fFrames.back();
    for (size_t i = fLocals.size(); i-- > f.base;) {
        LocalVar& v = fLocals[i];
        if (v.name == name) return v.alias ? v.alias : &v.value;
    }
    // Procs see the top level only through `global` declarations.
    if (!f.proc) {
        auto it = fGlobals.find(name);
        if (it != fGlobals.end()) return &it->second;
    }
    return nullptr;
}

TscriptValue* TscriptEvaluator::lookupCached(const TscriptExpr& var) {
    if (var.slotStamp != fStamp || var.cacheOwner != fId) {
        var.cacheOwner = fId;
        var.slot = lookup(var.name);
        var.slotStamp = fStamp;
    }
    return var.slot;
}

void TscriptEvaluator::setGlobal(const std::string& name, TscriptValue value) {
    fGlobals[name] = std::move(value);
    ++fStamp;
}

TscriptValue* TscriptEvaluator::variableOf(const TscriptExpr& e) {
    return e.kind == TscriptExprKind::Var ? lookupCached(e) : nullptr;
}

TscriptValue& TscriptEvaluator::variable(const TscriptExpr& var) {
    TscriptValue* v = lookupCached(var);
    if (!v) fail(var.line, "undeclared variable $" + var.name);
    return *v;
}

TscriptValue& TscriptEvaluator::declare(const std::string& name, TscriptType type, bool global, int line) {
    Frame& f = fFrames.back();
    bool noBlock = fScopes.size() == f.scopeBase;
    bool topLevel = !f.proc && noBlock;
    if (global || topLevel) {
        auto [it, inserted] = fGlobals.try_emplace(name, scriptZero(type));
        if (inserted) ++fStamp;
        if (!inserted && it->second.type() != type)
            fail(line, "$" + name + " is already declared as " + scriptTypeName(it->second.type()) +
                           ", not " + scriptTypeName(type));
        if (topLevel) return it->second;
        // A global brought into a block or proc: an alias in the current scope.
        size_t start = noBlock ? f.base : fScopes.back();
        for (size_t i = fLocals.size(); i-- > start;)
            if (fLocals[i].name == name) {
                if (fLocals[i].alias != &it->second)
                    fail(line, "$" + name + " is already declared here as a local variable");
                return it->second;
            }
        fLocals.push_back(LocalVar{name, TscriptValue(), &it->second});
        ++fStamp;
        return it->second;
    }
    size_t start = fScopes.back();
    for (size_t i = fLocals.size(); i-- > start;) {
        LocalVar& v = fLocals[i];
        if (v.name != name) continue;
        if (v.alias) fail(line, "$" + name + " is already declared here as a global");
        TscriptValue& slot = v.value;
        if (slot.type() != type)
            fail(line, "$" + name + " is already declared as " + scriptTypeName(slot.type()) + ", not " +
                           scriptTypeName(type));
        return slot;
    }
    fLocals.push_back(LocalVar{name, scriptZero(type), nullptr});
    ++fStamp;
    return fLocals.back().value;
}

bool TscriptEvaluator::findProc(const std::string& name, ProcRef& out) const {
    if (!fFrames.empty()) {
        // Procs that are not global are known in their own text only.
        const auto& local = fFrames.back().unit->localProcs;
        auto it = local.find(name);
        if (it != local.end()) {
            out = ProcRef{fFrames.back().unit, it->second};
            return true;
        }
    }
    auto it = fGlobalProcs.find(name);
    if (it == fGlobalProcs.end()) return false;
    out = it->second;
    return true;
}

bool TscriptEvaluator::hasProc(const std::string& name) const {
    if (fGlobalProcs.count(name)) return true;
    return !fFrames.empty() && fFrames.back().unit->localProcs.count(name);
}

bool TscriptEvaluator::hasCallable(const std::string& name) const {
    return hasProc(name) || findScriptBuiltin(name) || name == "catch" || name == "catchQuiet" ||
           fHost.hasCommand(name);
}

int TscriptEvaluator::indexValue(const TscriptExpr& idx, const std::string& varName) {
    TscriptTemp tmp;
    const TscriptValue& v = evalRef(idx, tmp);
    if (v.type() == TscriptType::Int && v.intRef() >= 0) return v.intRef();
    if (!v.isNumber())
        fail(idx.line,
             "the index of " + shownName(varName) + " must be a number, not " + scriptTypeArticle(v.type()));
    int i = v.asInt();
    if (i < 0) fail(idx.line, "negative index " + std::to_string(i) + " for " + shownName(varName));
    return i;
}

// ---------------------------------------------------------------- statements

TscriptEvaluator::Flow TscriptEvaluator::execStatements(const TscriptBlock& b) {
    for (const auto& s : b.stmts) {
        Flow f = exec(*s);
        if (f != Flow::Normal) return f;
    }
    return Flow::Normal;
}

TscriptEvaluator::Flow TscriptEvaluator::execBlock(const TscriptBlock& b, bool newScope) {
    if (!newScope) return execStatements(b);
    ScopeGuard scope(*this);
    return execStatements(b);
}

TscriptEvaluator::Flow TscriptEvaluator::execLoopBody(const TscriptBlock& b) {
    ScopeGuard scope(*this);
    return execStatements(b);
}

void TscriptEvaluator::execDecl(const TscriptStmt& s) {
    for (const auto& d : s.decls) {
        TscriptType type = d.isArray ? scriptArrayOf(s.declType) : s.declType;
        TscriptValue init;
        bool hasInit = false;
        if (d.init) {
            init = scriptConvertFor(eval(*d.init), type, [&] { return "$" + d.name; });
            hasInit = true;
        } else if (d.size) {
            int n = indexValue(*d.size, d.name);
            if (n > kMaxArrayIndex)
                fail(d.line, "array size " + std::to_string(n) + " is too large for $" + d.name);
            init = scriptZero(type);
            if (n > 0) {
                TscriptValue zero = scriptZero(s.declType);
                setArrayElement(init, static_cast<size_t>(n - 1), zero);
            }
            hasInit = true;
        }
        bool existedGlobal = s.globalDecl && fGlobals.count(d.name);
        TscriptValue& slot = declare(d.name, type, s.globalDecl, d.line);
        if (hasInit)
            slot = std::move(init);
        else if (!existedGlobal)
            slot = scriptZero(type);
    }
}

TscriptEvaluator::Flow TscriptEvaluator::exec(const TscriptStmt& s) {
    DepthGuard depth(*this, s.line);
    fLine = s.line;
    try {
        return execNode(s);
    } catch (const TscriptFault& f) {
        fail(s.line, f.message);
    }
}

TscriptEvaluator::Flow TscriptEvaluator::execNode(const TscriptStmt& s) {
    switch (s.kind) {
    case TscriptStmtKind::Empty:
    case TscriptStmtKind::Proc:
        return Flow::Normal;
    case TscriptStmtKind::Expr:
        // An assignment as a statement: its value is not wanted, so not copied.
        if (s.expr->kind == TscriptExprKind::Assign)
            evalAssign(*s.expr, false);
        else
            eval(*s.expr);
        return Flow::Normal;
    case TscriptStmtKind::Decl:
        execDecl(s);
        return Flow::Normal;
    case TscriptStmtKind::Block:
        return execBlock(s.body, true);
    case TscriptStmtKind::If:
        for (size_t i = 0; i < s.conds.size(); ++i) {
            if (scriptTruthAt(*s.conds[i])) return execBlock(s.bodies[i], true);
        }
        if (s.elseBody) return execBlock(*s.elseBody, true);
        return Flow::Normal;
    case TscriptStmtKind::While:
        while (true) {
            tick(s.line);
            if (!scriptTruthAt(*s.conds[0])) return Flow::Normal;
            Flow f = execLoopBody(s.bodies[0]);
            if (f == Flow::Break) return Flow::Normal;
            if (f == Flow::Return) return f;
        }
    case TscriptStmtKind::DoWhile:
        while (true) {
            tick(s.line);
            Flow f = execLoopBody(s.bodies[0]);
            if (f == Flow::Break) return Flow::Normal;
            if (f == Flow::Return) return f;
            if (!scriptTruthAt(*s.conds[0])) return Flow::Normal;
        }
    case TscriptStmtKind::For: {
        // A declared loop variable lives in the loop; one made by assignment
        // stays after it, like any assignment's.
        std::optional<ScopeGuard> scope;
        if (s.init && s.init->kind == TscriptStmtKind::Decl) scope.emplace(*this);
        if (s.init) exec(*s.init);
        while (true) {
            tick(s.line);
            if (s.conds[0] && !scriptTruthAt(*s.conds[0])) return Flow::Normal;
            Flow f = execLoopBody(s.bodies[0]);
            if (f == Flow::Break) return Flow::Normal;
            if (f == Flow::Return) return f;
            if (s.step) eval(*s.step);
        }
    }
    case TscriptStmtKind::ForIn: {
        TscriptValue items = eval(*s.expr);
        if (!items.isArray())
            fail(s.line, "'for ... in' needs an array, not " + scriptTypeArticle(items.type()));
        TscriptType elem = scriptElementOf(items.type());
        TscriptValue* var = lookup(s.loopVar);
        if (!var) var = &declare(s.loopVar, elem, false, s.line);
        if (var->isArray()) fail(s.line, "the loop variable $" + s.loopVar + " of 'for ... in' is an array");
        size_t n = arraySize(items);
        for (size_t i = 0; i < n; ++i) {
            tick(s.line);
            // Looked up again: the body may have been where it was declared.
            TscriptValue* slot = lookup(s.loopVar);
            if (!slot) fail(s.line, "undeclared variable $" + s.loopVar);
            *slot = scriptConvertFor(arrayElement(items, i), slot->type(), [&] { return "$" + s.loopVar; });
            Flow f = execLoopBody(s.bodies[0]);
            if (f == Flow::Break) break;
            if (f == Flow::Return) return f;
        }
        return Flow::Normal;
    }
    case TscriptStmtKind::Switch: {
        // The first case equal to the value, else default; then on through
        // the later cases until a break.
        TscriptValue value = eval(*s.expr);
        size_t start = s.body.stmts.size() + 1;
        for (size_t i = 0; i < s.conds.size() && start > s.body.stmts.size(); ++i)
            if (s.conds[i] && scriptTruth(scriptBinary(TscriptOp::Eq, value, eval(*s.conds[i]))))
                start = s.caseStarts[i];
        for (size_t i = 0; i < s.conds.size() && start > s.body.stmts.size(); ++i)
            if (!s.conds[i]) start = s.caseStarts[i];
        ScopeGuard scope(*this);
        for (size_t k = start; k < s.body.stmts.size(); ++k) {
            Flow f = exec(*s.body.stmts[k]);
            if (f == Flow::Break) return Flow::Normal;
            if (f != Flow::Normal) return f;
        }
        return Flow::Normal;
    }
    case TscriptStmtKind::Break:
        return Flow::Break;
    case TscriptStmtKind::Continue:
        return Flow::Continue;
    case TscriptStmtKind::Return:
        fReturnValue = s.expr ? eval(*s.expr) : TscriptValue();
        return Flow::Return;
    }
    return Flow::Normal;
}

// ---------------------------------------------------------------- expressions

const TscriptValue& TscriptEvaluator::evalRef(const TscriptExpr& e, TscriptTemp& tmp) {
    if (e.kind == TscriptExprKind::Var) return variable(e);
    if (e.kind == TscriptExprKind::Literal) return e.value;
    return tmp.emplace(eval(e));
}

TscriptValue TscriptEvaluator::eval(const TscriptExpr& e) {
    DepthGuard depth(*this, e.line);
    // Faults of operators and conversions get the line of the innermost node.
    try {
        return evalNode(e);
    } catch (const TscriptFault& f) {
        fail(e.line, f.message);
    }
}

TscriptValue TscriptEvaluator::evalNode(const TscriptExpr& e) {
    switch (e.kind) {
    case TscriptExprKind::Literal:
        return e.value;
    case TscriptExprKind::Var:
        return variable(e);
    case TscriptExprKind::Index:
        return evalIndex(e);
    case TscriptExprKind::Component:
        return evalComponent(e);
    case TscriptExprKind::Unary: {
        TscriptTemp tmp;
        const TscriptValue& a = evalRef(*e.kids[0], tmp);
        try {
            return scriptUnary(e.opCode, a);
        } catch (const TscriptFault& f) {
            fail(e.line, f.message);
        }
    }
    case TscriptExprKind::Binary: {
        const TscriptExpr& rhs = *e.kids[1];
        TscriptTemp ta, tb;
        // A right side that runs code may change a variable on the left, so
        // the left is copied then; otherwise it is read in place.
        bool pure = rhs.kind == TscriptExprKind::Literal || rhs.kind == TscriptExprKind::Var;
        const TscriptValue& a = pure ? evalRef(*e.kids[0], ta) : ta.emplace(eval(*e.kids[0]));
        const TscriptValue& b = evalRef(rhs, tb);
        TscriptValue sum;
        try {
            sum = scriptBinary(e.opCode, a, b);
        } catch (const TscriptFault& f) {
            fail(e.line, f.message);
        }
        // The rest of a chain of the same operator, from left to right.
        for (std::size_t i = 2; i < e.kids.size(); ++i) {
            TscriptTemp tk;
            const TscriptValue& k = evalRef(*e.kids[i], tk);
            try {
                sum = scriptBinary(e.opCode, sum, k);
            } catch (const TscriptFault& f) {
                fail(e.kids[i]->line, f.message);
            }
        }
        return sum;
    }
    case TscriptExprKind::Logical: {
        bool a = scriptTruthAt(*e.kids[0]);
        if (e.opCode == TscriptOp::And) return a ? TscriptValue(scriptTruthAt(*e.kids[1])) : TscriptValue(0);
        return a ? TscriptValue(1) : TscriptValue(scriptTruthAt(*e.kids[1]));
    }
    case TscriptExprKind::Ternary:
        return scriptTruthAt(*e.kids[0]) ? eval(*e.kids[1]) : eval(*e.kids[2]);
    case TscriptExprKind::Assign:
        return evalAssign(e, true);
    case TscriptExprKind::PreIncDec:
        return evalIncDec(e, false);
    case TscriptExprKind::PostIncDec:
        return evalIncDec(e, true);
    case TscriptExprKind::Call:
        return evalCall(e);
    case TscriptExprKind::VectorLit: {
        TscriptVector v{0, 0, 0};
        for (int i = 0; i < 3; ++i) {
            TscriptTemp tmp;
            const TscriptValue& c = evalRef(*e.kids[i], tmp);
            if (!c.isNumber())
                fail(e.line, "a vector component must be a number, not " + scriptTypeArticle(c.type()));
            v[i] = c.asFloat();
        }
        return v;
    }
    case TscriptExprKind::ArrayLit:
        return evalArrayLiteral(e);
    case TscriptExprKind::Cast: {
        TscriptTemp tmp;
        const TscriptValue& a = evalRef(*e.kids[0], tmp);
        if (a.isArray() || a.isNone())
            fail(e.line, std::string(scriptTypeName(e.castType)) + "(): cannot convert " +
                             scriptTypeArticle(a.type()));
        return scriptConvert(a, e.castType, "");
    }
    }
    return {};
}

bool TscriptEvaluator::scriptTruthAt(const TscriptExpr& e) {
    TscriptTemp tmp;
    const TscriptValue& v = evalRef(e, tmp);
    try {
        return scriptTruth(v);
    } catch (const TscriptFault& f) {
        fail(e.line, f.message);
    }
}

TscriptValue TscriptEvaluator::evalIndex(const TscriptExpr& e) {
    TscriptTemp tmp;
    const TscriptValue& base = evalRef(*e.kids[0], tmp);
    if (!base.isArray())
        fail(e.line, "cannot index " + scriptTypeArticle(base.type()) + describeVar(*e.kids[0]));
    const std::string& name = e.kids[0]->kind == TscriptExprKind::Var ? e.kids[0]->name : kAnonymousArray;
    int i = indexValue(*e.kids[1], name);
    size_t n = arraySize(base);
    if (static_cast<size_t>(i) >= n)
        fail(e.line, "index " + std::to_string(i) + " is out of range for " + shownName(name) + " (size " +
                         std::to_string(n) + ")");
    return arrayElement(base, static_cast<size_t>(i));
}

TscriptValue TscriptEvaluator::evalComponent(const TscriptExpr& e) {
    TscriptTemp tmp;
    const TscriptValue& base = evalRef(*e.kids[0], tmp);
    if (base.type() != TscriptType::Vector)
        fail(e.line, "'." + e.name + "' needs a vector, not " + scriptTypeArticle(base.type()) +
                         describeVar(*e.kids[0]));
    return base.vectorRef()[componentIndex(e.name)];
}

TscriptValue TscriptEvaluator::readLvalue(const TscriptExpr& e) {
    return eval(e);
}

void TscriptEvaluator::writeLvalue(const TscriptExpr& e, TscriptValue v, TscriptValue* stored) {
    if (e.kind == TscriptExprKind::Var) {
        TscriptValue* slot = lookupCached(e);
        if (!slot) {
            // Assigning to a new name declares it, with the type of the value.
            if (v.isNone()) fail(e.line, "cannot declare $" + e.name + " from a call that gives no value");
            slot = &declare(e.name, v.type(), false, e.line);
        }
        if (slot->type() == v.type())
            *slot = std::move(v);
        else
            *slot = scriptConvertFor(v, slot->type(), [&] { return "$" + e.name; });
        if (stored) *stored = *slot;
        return;
    }
    if (e.kind == TscriptExprKind::Index) {
        const TscriptExpr& var = *e.kids[0];
        TscriptValue& arr = variable(var);
        if (!arr.isArray()) fail(e.line, "cannot index " + scriptTypeArticle(arr.type()) + describeVar(var));
        int i = indexValue(*e.kids[1], var.name);
        if (i > kMaxArrayIndex) fail(e.line, "index " + std::to_string(i) + " is too large for $" + var.name);
        TscriptValue elem =
            scriptConvertFor(v, scriptElementOf(arr.type()), [&] { return "an element of $" + var.name; });
        // The index may have run code that redeclared nothing, but re-find to be safe.
        TscriptValue& target = variable(var);
        setArrayElement(target, static_cast<size_t>(i), elem);
        if (stored) *stored = std::move(elem);
        return;
    }
    // Component of a vector variable or of a vector array element.
    const TscriptExpr& base = *e.kids[0];
    if (!v.isNumber()) fail(e.line, "'." + e.name + "' takes a number, not " + scriptTypeArticle(v.type()));
    double c = v.asFloat();
    if (base.kind == TscriptExprKind::Var) {
        TscriptValue& slot = variable(base);
        if (slot.type() != TscriptType::Vector)
            fail(e.line, "'." + e.name + "' needs a vector, not " + scriptTypeArticle(slot.type()) +
                             describeVar(base));
        slot.vectorRef()[componentIndex(e.name)] = c;
    } else {
        const TscriptExpr& var = *base.kids[0];
        TscriptValue& arr = variable(var);
        if (arr.type() != TscriptType::VectorArray)
            fail(e.line, "'." + e.name + "' needs a vector, not an element of " +
                             scriptTypeArticle(arr.type()) + describeVar(var));
        int i = indexValue(*base.kids[1], var.name);
        auto& items = variable(var).vectorArray();
        if (static_cast<size_t>(i) >= items.size())
            fail(e.line, "index " + std::to_string(i) + " is out of range for $" + var.name + " (size " +
                             std::to_string(items.size()) + ")");
        items[static_cast<size_t>(i)][componentIndex(e.name)] = c;
    }
    if (stored) *stored = c;
}

TscriptValue TscriptEvaluator::evalAssign(const TscriptExpr& e, bool wantResult) {
    const TscriptExpr& target = *e.kids[0];
    TscriptValue v;
    if (e.opCode == TscriptOp::None) {
        v = eval(*e.kids[1]);
    } else if (target.kind == TscriptExprKind::Var) {
        // The right side first, then the variable is read in place.
        TscriptTemp tmp;
        const TscriptValue& rhs = evalRef(*e.kids[1], tmp);
        TscriptValue& slot = variable(target);
        if (e.opCode == TscriptOp::Add && slot.type() == TscriptType::String && !rhs.isArray() &&
            !rhs.isNone()) {
            // Appending in place keeps a loop of += linear.
            std::string more = rhs.asString();
            if (slot.stringRef().size() + more.size() > kMaxStringLength)
                fail(e.line, "string too long (over " + std::to_string(kMaxStringLength) + " bytes)");
            slot.stringRef() += more;
            return wantResult ? slot : TscriptValue();
        }
        v = scriptBinary(e.opCode, slot, rhs);
    } else {
        TscriptValue current = readLvalue(target);
        TscriptValue rhs = eval(*e.kids[1]);
        v = scriptBinary(e.opCode, current, rhs);
    }
    TscriptValue stored;
    writeLvalue(target, std::move(v), wantResult ? &stored : nullptr);
    return stored;
}

TscriptValue TscriptEvaluator::evalIncDec(const TscriptExpr& e, bool post) {
    const TscriptExpr& target = *e.kids[0];
    if (target.kind == TscriptExprKind::Var) {
        // The common loop step, done in place.
        TscriptValue& slot = variable(target);
        int step = e.opCode == TscriptOp::Inc ? 1 : -1;
        if (slot.type() == TscriptType::Int) {
            int old = slot.intRef();
            slot.intRef() = static_cast<int>(static_cast<unsigned>(old) + static_cast<unsigned>(step));
            return post ? old : slot.intRef();
        }
        if (slot.type() == TscriptType::Float) {
            double old = slot.floatRef();
            slot.floatRef() = old + step;
            return post ? old : slot.floatRef();
        }
    }
    TscriptValue old = readLvalue(target);
    if (!old.isNumber())
        fail(e.line, "'" + e.op + "' needs an int or a float, not " + scriptTypeArticle(old.type()) +
                         describeVar(target));
    TscriptValue next =
        scriptBinary(e.opCode == TscriptOp::Inc ? TscriptOp::Add : TscriptOp::Sub, old, TscriptValue(1));
    TscriptValue stored;
    writeLvalue(target, std::move(next), &stored);
    return post ? old : stored;
}

TscriptValue TscriptEvaluator::evalArrayLiteral(const TscriptExpr& e) {
    std::vector<TscriptValue> items;
    items.reserve(e.kids.size());
    // The element type is the widest present: int < float < vector, string above all.
    TscriptType widest = TscriptType::None;
    auto rank = [](TscriptType t) {
        switch (t) {
        case TscriptType::Int:
            return 1;
        case TscriptType::Float:
            return 2;
        case TscriptType::Vector:
            return 3;
        case TscriptType::String:
            return 4;
        default:
            return 0;
        }
    };
    for (const auto& k : e.kids) {
        items.push_back(eval(*k));
        TscriptType t = items.back().type();
        if (rank(t) == 0)
            fail(k->line, "an array element must be a number, string or vector, not " + scriptTypeArticle(t));
        if (rank(t) > rank(widest)) widest = t;
    }
    if (widest == TscriptType::Vector) {
        for (const auto& it : items)
            if (it.type() != TscriptType::Vector && !it.isNumber())
                fail(e.line, "cannot mix vectors and strings in an array");
    }
    if (widest == TscriptType::None)
        return std::vector<std::string>(); // {} converts to any array on assignment
    TscriptValue out = scriptZero(scriptArrayOf(widest));
    for (size_t i = 0; i < items.size(); ++i) {
        TscriptValue el = scriptConvert(items[i], widest, "an array element");
        setArrayElement(out, i, el);
    }
    return out;
}

// ---------------------------------------------------------------- calls

TscriptValue TscriptEvaluator::evalCall(const TscriptExpr& e) {
    tick(e.line);
    // A name that resolved to a built-in stays one until a global proc is
    // defined (procs come first, and may take a built-in's name).
    const TscriptBuiltin* builtin = nullptr;
    if (e.callStamp == fProcStamp && e.callTarget && e.cacheOwner == fId) {
        builtin = static_cast<const TscriptBuiltin*>(e.callTarget);
    } else {
        // A copy of the reference keeps the proc's text alive through the
        // call, even if the call redefines it.
        ProcRef proc;
        if (findProc(e.name, proc)) return callProc(proc, e);
        if (e.name == "catch" || e.name == "catchQuiet") return callCatch(e, e.name == "catchQuiet");
        builtin = findScriptBuiltin(e.name);
        e.callTarget = builtin;
        e.callStamp = fProcStamp;
        e.cacheOwner = fId;
    }
    if (builtin) return callBuiltin(*builtin, e);
    if (fHost.hasCommand(e.name)) return callCommand(e);
    fail(e.line, "unknown command or procedure '" + e.name + "'");
}

TscriptValue TscriptEvaluator::callBuiltin(const TscriptBuiltin& builtin, const TscriptExpr& e) {
    // Arguments that are variables are passed in place. A later argument
    // cannot move an earlier one's storage: locals live in a deque, globals
    // in a node map.
    constexpr size_t kInline = 4;
    const size_t n = e.args.size();
    TscriptTemp inlineTemps[kInline];
    const TscriptValue* inlineArgs[kInline];
    std::vector<TscriptTemp> heapTemps;
    std::vector<const TscriptValue*> heapArgs;
    TscriptTemp* temps = inlineTemps;
    const TscriptValue** args = inlineArgs;
    if (n > kInline) {
        heapTemps.resize(n);
        heapArgs.resize(n);
        temps = heapTemps.data();
        args = heapArgs.data();
    }
    for (size_t i = 0; i < n; ++i)
        args[i] = &evalRef(*e.args[i].expr, temps[i]);
    TscriptBuiltinCall call{*this, e.name, args, n, e.args, e.line};
    try {
        return builtin(call);
    } catch (const TscriptFault& f) {
        fail(e.line, f.message);
    }
}

TscriptValue TscriptEvaluator::callProc(const ProcRef& proc, const TscriptExpr& e) {
    const TscriptProcDef& def = *proc.def;
    if (e.args.size() != def.params.size())
        fail(e.line, "proc '" + def.name + "' takes " + std::to_string(def.params.size()) + " argument" +
                         (def.params.size() == 1 ? "" : "s") + ", given " + std::to_string(e.args.size()));
    // Arguments are worked out in the caller's frame, before the proc's opens.
    constexpr size_t kInline = 4;
    const size_t n = def.params.size();
    TscriptValue inlineValues[kInline];
    std::vector<TscriptValue> heapValues(n > kInline ? n : 0);
    TscriptValue* values = n > kInline ? heapValues.data() : inlineValues;
    for (size_t i = 0; i < n; ++i) {
        TscriptValue v = eval(*e.args[i].expr);
        if (v.type() == def.params[i].type) {
            values[i] = std::move(v);
            continue;
        }
        try {
            values[i] = scriptConvertFor(v, def.params[i].type, [&] {
                return "parameter $" + def.params[i].name + " of proc '" + def.name + "'";
            });
        } catch (const TscriptFault& f) {
            fail(e.line, f.message);
        }
    }
    if (fCallDepth >= kMaxCallDepth)
        fail(e.line, "procs nested too deeply (more than " + std::to_string(kMaxCallDepth) + " calls), in '" +
                         def.name + "'");
    ++fCallDepth;
    struct CallCount {
        int& n;
        ~CallCount() { --n; }
    } count{fCallDepth};

    FrameGuard guard(*this);
    Frame frame;
    frame.base = fLocals.size();
    frame.scopeBase = fScopes.size();
    fScopes.push_back(frame.base);
    frame.unit = proc.unit;
    frame.proc = &def;
    fFrames.push_back(std::move(frame));
    for (size_t i = 0; i < def.params.size(); ++i)
        fLocals.push_back(LocalVar{def.params[i].name, std::move(values[i]), nullptr});
    ++fStamp;

    Flow f = execStatements(def.body);
    if (def.returnType == TscriptType::None) return {};
    if (f != Flow::Return) return scriptZero(def.returnType);
    TscriptValue result = std::move(fReturnValue);
    fReturnValue = TscriptValue();
    if (result.type() == def.returnType) return result;
    try {
        return scriptConvertFor(result, def.returnType,
                                [&] { return "the result of proc '" + def.name + "'"; });
    } catch (const TscriptFault& fault) {
        fail(e.line, fault.message);
    }
}

TscriptValue TscriptEvaluator::callCommand(const TscriptExpr& e) {
    std::vector<TscriptArg> args;
    args.reserve(e.args.size());
    for (const auto& a : e.args) {
        TscriptArg arg;
        arg.value = eval(*a.expr);
        arg.isFlag = e.commandSyntax ? a.isFlag : looksLikeFlag(arg.value);
        args.push_back(std::move(arg));
    }
    try {
        return fHost.runCommand(e.name, args, where(e.line));
    } catch (const TscriptError&) {
        throw;
    } catch (const std::bad_alloc&) {
        fail(e.line, e.name + ": out of memory");
    } catch (const std::exception& x) {
        fail(e.line, e.name + ": " + x.what());
    }
}

TscriptValue TscriptEvaluator::callCatch(const TscriptExpr& e, bool quiet) {
    if (e.args.size() != 1)
        fail(e.line, e.name + ": expected 1 argument, given " + std::to_string(e.args.size()));
    // Guards unwind frames and scopes back to here when the argument fails.
    try {
        eval(*e.args[0].expr);
    } catch (const TscriptError& err) {
        if (!quiet && !err.reported()) fHost.error(err.where(), err.what());
        return 1;
    }
    return 0;
}
