// Operators and conversions of script values.

#include "Host/Script/TscriptEvaluator.h"

#include <climits>
#include <cmath>

namespace {

[[noreturn]] void fault(const std::string& message) {
    throw TscriptFault{message};
}

std::string cannotTake(TscriptOp op, TscriptType t) {
    std::string o = std::string("operator '") + scriptOpText(op) + "'";
    if (t == TscriptType::None) return o + " cannot take nothing (a call that gives no value)";
    return o + " cannot take " + scriptTypeArticle(t);
}

const char* const kCrossOnly = "operator '^' is the cross product of two vectors; use pow() for powers";

// Ints wrap around like the machine's, without undefined behaviour.
int wrapAdd(int a, int b) {
    return static_cast<int>(static_cast<unsigned>(a) + static_cast<unsigned>(b));
}
int wrapSub(int a, int b) {
    return static_cast<int>(static_cast<unsigned>(a) - static_cast<unsigned>(b));
}
int wrapMul(int a, int b) {
    return static_cast<int>(static_cast<unsigned>(a) * static_cast<unsigned>(b));
}

TscriptValue intArith(TscriptOp op, int a, int b) {
    switch (op) {
    case TscriptOp::Add:
        return wrapAdd(a, b);
    case TscriptOp::Sub:
        return wrapSub(a, b);
    case TscriptOp::Mul:
        return wrapMul(a, b);
    case TscriptOp::Div:
        if (b == 0) fault("integer division by zero");
        if (a == INT_MIN && b == -1) return INT_MIN;
        return a / b;
    case TscriptOp::Mod:
        if (b == 0) fault("integer modulo by zero");
        if (b == -1) return 0;
        return a % b;
    default:
        return 0;
    }
}

double floatArith(TscriptOp op, double a, double b) {
    switch (op) {
    case TscriptOp::Add:
        return a + b;
    case TscriptOp::Sub:
        return a - b;
    case TscriptOp::Mul:
        return a * b;
    case TscriptOp::Div:
        return a / b;
    case TscriptOp::Mod:
        return std::fmod(a, b);
    default:
        return 0;
    }
}

TscriptValue vectorArith(TscriptOp op, const TscriptValue& a, const TscriptValue& b) {
    bool va = a.type() == TscriptType::Vector, vb = b.type() == TscriptType::Vector;
    TscriptVector x = a.asVector(), y = b.asVector();
    if (op == TscriptOp::Cross) {
        if (!va || !vb) fault(kCrossOnly);
        return TscriptVector{x[1] * y[2] - x[2] * y[1], x[2] * y[0] - x[0] * y[2], x[0] * y[1] - x[1] * y[0]};
    }
    if (op == TscriptOp::Mul && va && vb) return x[0] * y[0] + x[1] * y[1] + x[2] * y[2]; // dot product
    if (op == TscriptOp::Mod) fault(cannotTake(op, TscriptType::Vector));
    TscriptVector r;
    for (int i = 0; i < 3; ++i)
        r[i] = floatArith(op, x[i], y[i]);
    return r;
}

// -1, 0, 1, or 2 when unordered (NaN).
int compareValues(TscriptOp op, const TscriptValue& a, const TscriptValue& b) {
    if (a.type() == TscriptType::String && b.type() == TscriptType::String) {
        int c = a.stringRef().compare(b.stringRef());
        return c < 0 ? -1 : c > 0 ? 1 : 0;
    }
    if (a.type() == TscriptType::Vector || b.type() == TscriptType::Vector)
        fault(std::string("operator '") + scriptOpText(op) +
              "' cannot compare vectors; compare mag() of them");
    if (a.type() == TscriptType::Int && b.type() == TscriptType::Int)
        return a.intRef() < b.intRef() ? -1 : a.intRef() > b.intRef() ? 1 : 0;
    double x = a.asFloat(), y = b.asFloat();
    return x < y ? -1 : x > y ? 1 : (x == y ? 0 : 2);
}

bool equalValues(const TscriptValue& a, const TscriptValue& b) {
    if (a.isArray() || b.isArray()) return a == b;
    if (a.type() == TscriptType::String || b.type() == TscriptType::String)
        return a.asString() == b.asString();
    if (a.type() == TscriptType::Vector || b.type() == TscriptType::Vector)
        return a.asVector() == b.asVector();
    if (a.type() == TscriptType::Int && b.type() == TscriptType::Int) return a.intRef() == b.intRef();
    return a.asFloat() == b.asFloat();
}

} // namespace

TscriptValue scriptZero(TscriptType type) {
    switch (type) {
    case TscriptType::Int:
        return 0;
    case TscriptType::Float:
        return 0.0;
    case TscriptType::String:
        return std::string();
    case TscriptType::Vector:
        return TscriptVector{0, 0, 0};
    case TscriptType::IntArray:
        return std::vector<int>();
    case TscriptType::FloatArray:
        return std::vector<double>();
    case TscriptType::StringArray:
        return std::vector<std::string>();
    case TscriptType::VectorArray:
        return std::vector<TscriptVector>();
    default:
        return {};
    }
}

bool scriptTruth(const TscriptValue& v) {
    switch (v.type()) {
    case TscriptType::Int:
        return v.intRef() != 0;
    case TscriptType::Float:
        return v.floatRef() != 0.0;
    case TscriptType::String:
        return !v.stringRef().empty();
    case TscriptType::Vector: {
        const TscriptVector& x = v.vectorRef();
        return x[0] != 0 || x[1] != 0 || x[2] != 0;
    }
    case TscriptType::None:
        fault("a call that gives no value cannot be a condition");
    default:
        fault("cannot use " + scriptTypeArticle(v.type()) + " as a condition");
    }
}

TscriptValue scriptConvert(const TscriptValue& v, TscriptType type, const std::string& what) {
    if (v.type() == type) return v;
    bool toArray = type >= TscriptType::IntArray;
    std::string target = what.empty() ? std::string() : " for " + what;
    if (v.isNone()) {
        // A command that gives nothing leaves the target empty.
        return scriptZero(type);
    }
    if (toArray != v.isArray())
        fault("cannot convert " + scriptTypeArticle(v.type()) + " to " + scriptTypeName(type) + target);
    switch (type) {
    case TscriptType::Int:
        return v.asInt();
    case TscriptType::Float:
        return v.asFloat();
    case TscriptType::String:
        return v.asString();
    case TscriptType::Vector:
        return v.asVector();
    default:
        break;
    }
    // Array to array, element by element.
    TscriptType elem = scriptElementOf(type);
    auto convertAll = [&](const auto& items) {
        TscriptValue out = scriptZero(type);
        for (const auto& item : items) {
            TscriptValue e = scriptConvert(TscriptValue(item), elem, what);
            switch (type) {
            case TscriptType::IntArray:
                out.intArray().push_back(e.intRef());
                break;
            case TscriptType::FloatArray:
                out.floatArray().push_back(e.floatRef());
                break;
            case TscriptType::StringArray:
                out.stringArray().push_back(e.stringRef());
                break;
            default:
                out.vectorArray().push_back(e.vectorRef());
                break;
            }
        }
        return out;
    };
    switch (v.type()) {
    case TscriptType::IntArray:
        return convertAll(v.intArray());
    case TscriptType::FloatArray:
        return convertAll(v.floatArray());
    case TscriptType::StringArray:
        return convertAll(v.stringArray());
    default:
        return convertAll(v.vectorArray());
    }
}

TscriptValue scriptUnary(TscriptOp op, const TscriptValue& a) {
    if (op == TscriptOp::Not) return !scriptTruth(a);
    bool neg = op == TscriptOp::Neg;
    switch (a.type()) {
    case TscriptType::Int:
        return neg ? wrapSub(0, a.intRef()) : a.intRef();
    case TscriptType::Float:
        return neg ? -a.floatRef() : a.floatRef();
    case TscriptType::Vector: {
        TscriptVector v = a.vectorRef();
        if (neg) v = {-v[0], -v[1], -v[2]};
        return v;
    }
    default:
        fault(cannotTake(op, a.type()));
    }
}

namespace {
// The six comparisons, for ints and floats alike; false when `op` is not one of them.
template <class T> bool compareNumbers(TscriptOp op, T x, T y, bool& out) {
    switch (op) {
    case TscriptOp::Eq:
        out = x == y;
        return true;
    case TscriptOp::Ne:
        out = x != y;
        return true;
    case TscriptOp::Lt:
        out = x < y;
        return true;
    case TscriptOp::Le:
        out = x <= y;
        return true;
    case TscriptOp::Gt:
        out = x > y;
        return true;
    case TscriptOp::Ge:
        out = x >= y;
        return true;
    default:
        return false;
    }
}
} // namespace

TscriptValue scriptBinary(TscriptOp op, const TscriptValue& a, const TscriptValue& b) {
    TscriptType ta = a.type(), tb = b.type();
    // The common cases first: two ints, two floats.
    if (ta == TscriptType::Int && tb == TscriptType::Int) {
        int x = a.intRef(), y = b.intRef();
        bool c = false;
        if (compareNumbers(op, x, y, c)) return c;
        if (op == TscriptOp::Cross) fault(kCrossOnly);
        return intArith(op, x, y);
    }
    if (a.isNumber() && b.isNumber()) {
        double x = a.asFloat(), y = b.asFloat();
        bool c = false;
        if (compareNumbers(op, x, y, c)) return c;
        if (op == TscriptOp::Cross) fault(kCrossOnly);
        return floatArith(op, x, y);
    }
    if (op == TscriptOp::Eq || op == TscriptOp::Ne) {
        if (a.isNone() || b.isNone()) fault(cannotTake(op, TscriptType::None));
        bool eq = equalValues(a, b);
        return op == TscriptOp::Eq ? eq : !eq;
    }
    if (a.isArray() || a.isNone()) fault(cannotTake(op, ta));
    if (b.isArray() || b.isNone()) fault(cannotTake(op, tb));
    switch (op) {
    case TscriptOp::Lt:
    case TscriptOp::Le:
    case TscriptOp::Gt:
    case TscriptOp::Ge: {
        int c = compareValues(op, a, b);
        if (c == 2) return 0;
        if (op == TscriptOp::Lt) return c < 0;
        if (op == TscriptOp::Le) return c <= 0;
        if (op == TscriptOp::Gt) return c > 0;
        return c >= 0;
    }
    default:
        break;
    }
    bool sa = ta == TscriptType::String, sb = tb == TscriptType::String;
    if (op == TscriptOp::Add && (sa || sb)) {
        std::string text = a.asString();
        const std::string more = b.asString();
        if (text.size() + more.size() > TscriptEvaluator::kMaxStringLength)
            fault("string too long (over " + std::to_string(TscriptEvaluator::kMaxStringLength) + " bytes)");
        return text + more;
    }
    if (sa || sb) fault(cannotTake(op, TscriptType::String));
    return vectorArith(op, a, b);
}
