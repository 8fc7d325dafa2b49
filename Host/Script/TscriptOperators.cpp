// Operators and conversions of script values.

#include "Host/Script/TscriptEvaluator.h"

#include <climits>
#include <cmath>

namespace {

[[noreturn]] void fault(const std::string& message) { throw TscriptFault{message}; }

std::string cannotTake(const std::string& op, TscriptType t) {
    if (t == TscriptType::None)
        return "operator '" + op + "' cannot take nothing (a call that gives no value)";
    return "operator '" + op + "' cannot take " + scriptTypeArticle(t);
}

// Ints wrap around like the machine's, without undefined behaviour.
int wrapAdd(int a, int b) { return static_cast<int>(static_cast<unsigned>(a) + static_cast<unsigned>(b)); }
int wrapSub(int a, int b) { return static_cast<int>(static_cast<unsigned>(a) - static_cast<unsigned>(b)); }
int wrapMul(int a, int b) { return static_cast<int>(static_cast<unsigned>(a) * static_cast<unsigned>(b)); }

TscriptValue intArith(char op, int a, int b) {
    switch (op) {
    case '+': return wrapAdd(a, b);
    case '-': return wrapSub(a, b);
    case '*': return wrapMul(a, b);
    case '/':
        if (b == 0)
            fault("integer division by zero");
        if (a == INT_MIN && b == -1)
            return INT_MIN;
        return a / b;
    case '%':
        if (b == 0)
            fault("integer modulo by zero");
        if (b == -1)
            return 0;
        return a % b;
    }
    return 0;
}

double floatArith(char op, double a, double b) {
    switch (op) {
    case '+': return a + b;
    case '-': return a - b;
    case '*': return a * b;
    case '/': return a / b;
    case '%': return std::fmod(a, b);
    }
    return 0;
}

TscriptValue vectorArith(const std::string& op, const TscriptValue& a, const TscriptValue& b) {
    bool va = a.type() == TscriptType::Vector, vb = b.type() == TscriptType::Vector;
    TscriptVector x = a.asVector(), y = b.asVector();
    if (op == "^") {
        if (!va || !vb)
            fault("operator '^' is the cross product of two vectors; use pow() for powers");
        return TscriptVector{x[1] * y[2] - x[2] * y[1], x[2] * y[0] - x[0] * y[2], x[0] * y[1] - x[1] * y[0]};
    }
    if (op == "*" && va && vb)
        return x[0] * y[0] + x[1] * y[1] + x[2] * y[2]; // dot product
    if (op == "%")
        fault(cannotTake(op, TscriptType::Vector));
    TscriptVector r;
    for (int i = 0; i < 3; ++i)
        r[i] = floatArith(op[0], x[i], y[i]);
    return r;
}

int compareValues(const std::string& op, const TscriptValue& a, const TscriptValue& b) {
    if (a.type() == TscriptType::String && b.type() == TscriptType::String)
        return a.stringRef().compare(b.stringRef());
    if (a.type() == TscriptType::Vector || b.type() == TscriptType::Vector)
        fault("operator '" + op + "' cannot compare vectors; compare mag() of them");
    if (a.type() == TscriptType::Int && b.type() == TscriptType::Int)
        return a.intRef() < b.intRef() ? -1 : a.intRef() > b.intRef() ? 1 : 0;
    double x = a.asFloat(), y = b.asFloat();
    // NaN compares unequal both ways, as in C.
    return x < y ? -1 : x > y ? 1 : (x == y ? 0 : 2);
}

bool equalValues(const TscriptValue& a, const TscriptValue& b) {
    if (a.isArray() || b.isArray())
        return a == b;
    if (a.type() == TscriptType::String || b.type() == TscriptType::String)
        return a.asString() == b.asString();
    if (a.type() == TscriptType::Vector || b.type() == TscriptType::Vector)
        return a.asVector() == b.asVector();
    if (a.type() == TscriptType::Int && b.type() == TscriptType::Int)
        return a.intRef() == b.intRef();
    return a.asFloat() == b.asFloat();
}

} // namespace

TscriptValue scriptZero(TscriptType type) {
    switch (type) {
    case TscriptType::Int: return 0;
    case TscriptType::Float: return 0.0;
    case TscriptType::String: return std::string();
    case TscriptType::Vector: return TscriptVector{0, 0, 0};
    case TscriptType::IntArray: return std::vector<int>();
    case TscriptType::FloatArray: return std::vector<double>();
    case TscriptType::StringArray: return std::vector<std::string>();
    case TscriptType::VectorArray: return std::vector<TscriptVector>();
    default: return {};
    }
}

bool scriptTruth(const TscriptValue& v) {
    switch (v.type()) {
    case TscriptType::Int: return v.intRef() != 0;
    case TscriptType::Float: return v.floatRef() != 0.0;
    case TscriptType::String: return !v.stringRef().empty();
    case TscriptType::Vector: {
        const TscriptVector& x = v.vectorRef();
        return x[0] != 0 || x[1] != 0 || x[2] != 0;
    }
    case TscriptType::None: fault("a call that gives no value cannot be a condition");
    default: fault("cannot use " + scriptTypeArticle(v.type()) + " as a condition");
    }
}

TscriptValue scriptConvert(const TscriptValue& v, TscriptType type, const std::string& what) {
    if (v.type() == type)
        return v;
    bool toArray = type >= TscriptType::IntArray;
    std::string target = what.empty() ? std::string() : " for " + what;
    if (v.isNone()) {
        // A command that gives nothing leaves the target empty.
        return scriptZero(type);
    }
    if (toArray != v.isArray())
        fault("cannot convert " + scriptTypeArticle(v.type()) + " to " + scriptTypeName(type) + target);
    switch (type) {
    case TscriptType::Int: return v.asInt();
    case TscriptType::Float: return v.asFloat();
    case TscriptType::String: return v.asString();
    case TscriptType::Vector: return v.asVector();
    default: break;
    }
    // Array to array, element by element.
    TscriptType elem = scriptElementOf(type);
    auto convertAll = [&](const auto& items) {
        TscriptValue out = scriptZero(type);
        for (const auto& item : items) {
            TscriptValue e = scriptConvert(TscriptValue(item), elem, what);
            switch (type) {
            case TscriptType::IntArray: out.intArray().push_back(e.intRef()); break;
            case TscriptType::FloatArray: out.floatArray().push_back(e.floatRef()); break;
            case TscriptType::StringArray: out.stringArray().push_back(e.stringRef()); break;
            default: out.vectorArray().push_back(e.vectorRef()); break;
            }
        }
        return out;
    };
    switch (v.type()) {
    case TscriptType::IntArray: return convertAll(v.intArray());
    case TscriptType::FloatArray: return convertAll(v.floatArray());
    case TscriptType::StringArray: return convertAll(v.stringArray());
    default: return convertAll(v.vectorArray());
    }
}

TscriptValue scriptUnary(const std::string& op, const TscriptValue& a) {
    if (op == "!")
        return !scriptTruth(a);
    switch (a.type()) {
    case TscriptType::Int: return op == "-" ? wrapSub(0, a.intRef()) : a.intRef();
    case TscriptType::Float: return op == "-" ? -a.floatRef() : a.floatRef();
    case TscriptType::Vector: {
        TscriptVector v = a.vectorRef();
        if (op == "-")
            v = {-v[0], -v[1], -v[2]};
        return v;
    }
    default: fault(cannotTake(op, a.type()));
    }
}

TscriptValue scriptBinary(const std::string& op, const TscriptValue& a, const TscriptValue& b) {
    if (op == "==" || op == "!=") {
        if (a.isNone() || b.isNone())
            fault(cannotTake(op, TscriptType::None));
        bool eq = equalValues(a, b);
        return op == "==" ? eq : !eq;
    }
    if (a.isArray() || a.isNone())
        fault(cannotTake(op, a.type()));
    if (b.isArray() || b.isNone())
        fault(cannotTake(op, b.type()));
    if (op == "<" || op == "<=" || op == ">" || op == ">=") {
        int c = compareValues(op, a, b);
        if (c == 2)
            return 0;
        if (op == "<")
            return c < 0;
        if (op == "<=")
            return c <= 0;
        if (op == ">")
            return c > 0;
        return c >= 0;
    }
    bool sa = a.type() == TscriptType::String, sb = b.type() == TscriptType::String;
    if (op == "+" && (sa || sb))
        return a.asString() + b.asString();
    if (sa || sb)
        fault(cannotTake(op, TscriptType::String));
    if (a.type() == TscriptType::Vector || b.type() == TscriptType::Vector)
        return vectorArith(op, a, b);
    if (op == "^")
        fault("operator '^' is the cross product of two vectors; use pow() for powers");
    if (a.type() == TscriptType::Int && b.type() == TscriptType::Int)
        return intArith(op[0], a.intRef(), b.intRef());
    return floatArith(op[0], a.asFloat(), b.asFloat());
}
