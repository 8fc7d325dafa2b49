// Functions built into the language. Each checks its own arguments and names
// itself in its messages.

#include "Host/Script/TscriptEvaluator.h"

#include <algorithm>
#include <cmath>
#include <unordered_map>

namespace {

using Call = TscriptBuiltinCall;

bool isNumeric(const TscriptValue& v) {
    return v.isNumber();
}

TscriptVector vmake(double x, double y, double z) {
    return {x, y, z};
}

// ---------------------------------------------------------------- output and text

TscriptValue bPrint(Call& c) {
    c.expectCount(1, 1);
    const TscriptValue& v = c[0];
    if (!v.isArray()) {
        c.eval.host().output(v.toString());
        return {};
    }
    // Arrays print one element a line.
    std::string out;
    size_t n = 0;
    switch (v.type()) {
    case TscriptType::IntArray:
        n = v.intArray().size();
        break;
    case TscriptType::FloatArray:
        n = v.floatArray().size();
        break;
    case TscriptType::StringArray:
        n = v.stringArray().size();
        break;
    default:
        n = v.vectorArray().size();
        break;
    }
    for (size_t i = 0; i < n; ++i) {
        switch (v.type()) {
        case TscriptType::IntArray:
            out += std::to_string(v.intArray()[i]);
            break;
        case TscriptType::FloatArray:
            out += formatScriptNumber(v.floatArray()[i]);
            break;
        case TscriptType::StringArray:
            out += v.stringArray()[i];
            break;
        default:
            out += TscriptValue(v.vectorArray()[i]).toString();
            break;
        }
        out += '\n';
    }
    c.eval.host().output(out);
    return {};
}

std::string joined(Call& c) {
    std::string text;
    for (size_t i = 0; i < c.count(); ++i) {
        if (i) text += ' ';
        text += c[i].toString();
    }
    return text;
}

// warning "text": shown, and the script goes on.
TscriptValue bWarning(Call& c) {
    c.eval.host().warning(joined(c));
    return {};
}

// error "text": stops the script with the script's own message.
TscriptValue bError(Call& c) {
    throw TscriptError(joined(c), c.where());
}

TscriptValue bSize(Call& c) {
    c.expectCount(1, 1);
    const TscriptValue& v = c[0];
    switch (v.type()) {
    case TscriptType::String:
        return static_cast<int>(v.stringRef().size());
    case TscriptType::IntArray:
        return static_cast<int>(v.intArray().size());
    case TscriptType::FloatArray:
        return static_cast<int>(v.floatArray().size());
    case TscriptType::StringArray:
        return static_cast<int>(v.stringArray().size());
    case TscriptType::VectorArray:
        return static_cast<int>(v.vectorArray().size());
    default:
        c.fail("expected a string or an array, given " + scriptTypeArticle(v.type()));
    }
}

TscriptValue bEval(Call& c) {
    if (c.count() == 0) c.fail("expected the text to run");
    std::string text;
    for (size_t i = 0; i < c.count(); ++i) {
        if (c[i].isArray() || c[i].isNone()) c.fail("cannot run " + scriptTypeArticle(c[i].type()));
        if (i) text += ' ';
        text += c[i].asString();
    }
    return c.eval.evaluate(text, c.where());
}

TscriptValue bExists(Call& c) {
    c.expectCount(1, 1);
    return c.eval.hasCallable(c.text(0));
}

TscriptValue bStrcmp(Call& c) {
    c.expectCount(2, 2);
    int r = c.text(0).compare(c.text(1));
    return r < 0 ? -1 : r > 0 ? 1 : 0;
}

std::vector<std::string> splitText(const std::string& s, const std::string& delims) {
    std::vector<std::string> parts;
    size_t i = 0;
    while (i < s.size()) {
        size_t start = s.find_first_not_of(delims, i);
        if (start == std::string::npos) break;
        size_t end = s.find_first_of(delims, start);
        if (end == std::string::npos) end = s.size();
        parts.push_back(s.substr(start, end - start));
        i = end;
    }
    return parts;
}

// tokenize(text [, delimiters]) gives the parts; with a string array
// variable last, the parts go into it and the count is given.
TscriptValue bTokenize(Call& c) {
    c.expectCount(1, 3);
    size_t n = c.count();
    TscriptValue* target = nullptr;
    if (n >= 2 && c[n - 1].type() == TscriptType::StringArray) {
        target = c.eval.variableOf(*c.exprs[n - 1].expr);
        if (!target) c.fail("the last argument must be a string array variable");
        --n;
    } else if (n == 3) {
        c.fail("the last argument must be a string array variable");
    }
    std::string delims = n == 2 ? c.text(1) : std::string(" \t\n");
    if (delims.empty()) c.fail("the delimiters are empty");
    std::vector<std::string> parts = splitText(c.text(0), delims);
    if (!target) return parts;
    int count = static_cast<int>(parts.size());
    *target = std::move(parts);
    return count;
}

TscriptValue bSubstring(Call& c) {
    c.expectCount(3, 3);
    // 1-based and inclusive at both ends; out-of-range ends are clipped.
    const std::string& s = c.text(0);
    long first = std::max(1, c.integer(1));
    long last = std::min(static_cast<long>(s.size()), static_cast<long>(c.integer(2)));
    if (last < first) return std::string();
    return s.substr(static_cast<size_t>(first - 1), static_cast<size_t>(last - first + 1));
}

TscriptValue bToUpper(Call& c) {
    c.expectCount(1, 1);
    std::string s = c.text(0);
    for (char& ch : s)
        if (ch >= 'a' && ch <= 'z') ch = static_cast<char>(ch - 'a' + 'A');
    return s;
}

TscriptValue bToLower(Call& c) {
    c.expectCount(1, 1);
    std::string s = c.text(0);
    for (char& ch : s)
        if (ch >= 'A' && ch <= 'Z') ch = static_cast<char>(ch - 'A' + 'a');
    return s;
}

TscriptValue bStrip(Call& c) {
    c.expectCount(1, 1);
    const std::string& s = c.text(0);
    size_t a = s.find_first_not_of(" \t\n\r");
    if (a == std::string::npos) return std::string();
    size_t b = s.find_last_not_of(" \t\n\r");
    return s.substr(a, b - a + 1);
}

TscriptValue bStartsWith(Call& c) {
    c.expectCount(2, 2);
    return c.text(0).rfind(c.text(1), 0) == 0;
}

TscriptValue bEndsWith(Call& c) {
    c.expectCount(2, 2);
    const std::string &s = c.text(0), &t = c.text(1);
    return s.size() >= t.size() && s.compare(s.size() - t.size(), t.size(), t) == 0;
}

TscriptValue bStringArrayCount(Call& c) {
    c.expectCount(2, 2);
    if (c[1].type() != TscriptType::StringArray)
        c.fail("argument 2 must be a string[], given " + scriptTypeArticle(c[1].type()));
    const auto& items = c[1].stringArray();
    return static_cast<int>(std::count(items.begin(), items.end(), c.text(0)));
}

// Glob match: * any run, ? one character, [abc] / [a-z] / [!a] one of a set.
// Iterative, with one point to come back to, so no text can make it recurse
// or take more than length-times-length steps.
bool globMatch(const std::string& text, const std::string& pat) {
    size_t t = 0, p = 0, starP = std::string::npos, starT = 0;
    auto matchSet = [&](size_t& pp, char ch) {
        // pat[pp] is '['; on return pp is past the closing ']'.
        size_t q = pp + 1;
        bool negate = q < pat.size() && (pat[q] == '!' || pat[q] == '^');
        if (negate) ++q;
        bool hit = false;
        bool first = true;
        while (q < pat.size() && (first || pat[q] != ']')) {
            first = false;
            if (q + 2 < pat.size() && pat[q + 1] == '-' && pat[q + 2] != ']') {
                hit = hit || (ch >= pat[q] && ch <= pat[q + 2]);
                q += 3;
            } else {
                hit = hit || ch == pat[q];
                ++q;
            }
        }
        pp = q < pat.size() ? q + 1 : q;
        return hit != negate;
    };
    while (t < text.size()) {
        if (p < pat.size() && pat[p] == '*') {
            starP = p++;
            starT = t;
            continue;
        }
        if (p < pat.size()) {
            size_t next = p + 1;
            bool ok = false;
            if (pat[p] == '?')
                ok = true;
            else if (pat[p] == '[')
                ok = matchSet(next = p, text[t]);
            else
                ok = pat[p] == text[t];
            if (ok) {
                p = next;
                ++t;
                continue;
            }
        }
        if (starP == std::string::npos) return false;
        p = starP + 1;
        t = ++starT;
    }
    while (p < pat.size() && pat[p] == '*')
        ++p;
    return p == pat.size();
}

TscriptValue bGmatch(Call& c) {
    c.expectCount(2, 2);
    return globMatch(c.text(0), c.text(1));
}

// substituteAllString(text, find, replace): every occurrence, literally.
TscriptValue bSubstituteAll(Call& c) {
    c.expectCount(3, 3);
    const std::string &s = c.text(0), &find = c.text(1), &with = c.text(2);
    if (find.empty()) return s;
    std::string out;
    size_t at = 0;
    while (true) {
        size_t hit = s.find(find, at);
        if (hit == std::string::npos) break;
        out.append(s, at, hit - at);
        out += with;
        if (out.size() > TscriptEvaluator::kMaxStringLength) c.fail("the result is too long");
        at = hit + find.size();
    }
    out.append(s, at, std::string::npos);
    return out;
}

TscriptValue bStringArrayToString(Call& c) {
    c.expectCount(2, 2);
    if (c[0].type() != TscriptType::StringArray)
        c.fail("argument 1 must be a string[], given " + scriptTypeArticle(c[0].type()));
    const std::string& sep = c.text(1);
    std::string out;
    const auto& items = c[0].stringArray();
    for (size_t i = 0; i < items.size(); ++i) {
        if (i) out += sep;
        out += items[i];
        if (out.size() > TscriptEvaluator::kMaxStringLength) c.fail("the result is too long");
    }
    return out;
}

// sort(array): a sorted copy; strings by text, vectors by x, then y, then z.
TscriptValue bSort(Call& c) {
    c.expectCount(1, 1);
    TscriptValue v = c[0];
    switch (v.type()) {
    case TscriptType::IntArray:
        std::sort(v.intArray().begin(), v.intArray().end());
        break;
    case TscriptType::FloatArray:
        // NaNs last, so the order is strict and the sort well defined.
        std::sort(v.floatArray().begin(), v.floatArray().end(),
                  [](double a, double b) { return std::isnan(b) ? !std::isnan(a) : a < b; });
        break;
    case TscriptType::StringArray:
        std::sort(v.stringArray().begin(), v.stringArray().end());
        break;
    case TscriptType::VectorArray:
        std::sort(v.vectorArray().begin(), v.vectorArray().end(),
                  [](const TscriptVector& a, const TscriptVector& b) {
                      for (int i = 0; i < 3; ++i) {
                          if (std::isnan(a[i]) || std::isnan(b[i]))
                              return std::isnan(b[i]) && !std::isnan(a[i]);
                          if (a[i] != b[i]) return a[i] < b[i];
                      }
                      return false;
                  });
        break;
    default:
        c.fail("expected an array, given " + scriptTypeArticle(v.type()));
    }
    return v;
}

TscriptValue bClear(Call& c) {
    c.expectCount(1, 1);
    TscriptValue* target = c.eval.variableOf(*c.exprs[0].expr);
    if (!target || !target->isArray()) c.fail("expected an array variable");
    *target = scriptZero(target->type());
    return {};
}

// ---------------------------------------------------------------- numbers

template <double (*F)(double)> TscriptValue unaryMath(Call& c) {
    c.expectCount(1, 1);
    return F(c.number(0));
}

double degToRad(double d) {
    return d * (M_PI / 180.0);
}
double radToDeg(double r) {
    return r * (180.0 / M_PI);
}
double floorF(double x) {
    return std::floor(x);
}
double ceilF(double x) {
    return std::ceil(x);
}
double truncF(double x) {
    return std::trunc(x);
}
double sqrtF(double x) {
    return std::sqrt(x);
}
double sinF(double x) {
    return std::sin(x);
}
double cosF(double x) {
    return std::cos(x);
}
double tanF(double x) {
    return std::tan(x);
}
double asinF(double x) {
    return std::asin(x);
}
double acosF(double x) {
    return std::acos(x);
}
double atanF(double x) {
    return std::atan(x);
}
double expF(double x) {
    return std::exp(x);
}
double logF(double x) {
    return std::log(x);
}
double log10F(double x) {
    return std::log10(x);
}

TscriptValue bAbs(Call& c) {
    c.expectCount(1, 1);
    const TscriptValue& v = c[0];
    if (v.type() == TscriptType::Int)
        return v.intRef() < 0 ? static_cast<int>(0u - static_cast<unsigned>(v.intRef())) : v.intRef();
    if (v.type() == TscriptType::Vector) {
        const TscriptVector& x = v.vectorRef();
        return vmake(std::fabs(x[0]), std::fabs(x[1]), std::fabs(x[2]));
    }
    return std::fabs(c.number(0));
}

TscriptValue bSign(Call& c) {
    c.expectCount(1, 1);
    double x = c.number(0);
    return x > 0 ? 1.0 : x < 0 ? -1.0 : 0.0;
}

TscriptValue bAtan2(Call& c) {
    c.expectCount(2, 2);
    return std::atan2(c.number(0), c.number(1));
}

TscriptValue bPow(Call& c) {
    c.expectCount(2, 2);
    return std::pow(c.number(0), c.number(1));
}

TscriptValue bFmod(Call& c) {
    c.expectCount(2, 2);
    return std::fmod(c.number(0), c.number(1));
}

TscriptValue bHypot(Call& c) {
    c.expectCount(2, 2);
    return std::hypot(c.number(0), c.number(1));
}

// min and max keep ints when both are ints, and work per component on vectors.
template <bool Max> TscriptValue minMax(Call& c) {
    c.expectCount(2, 2);
    const TscriptValue &a = c[0], &b = c[1];
    auto pick = [](double x, double y) { return Max ? std::max(x, y) : std::min(x, y); };
    if (a.type() == TscriptType::Int && b.type() == TscriptType::Int)
        return Max ? std::max(a.intRef(), b.intRef()) : std::min(a.intRef(), b.intRef());
    if (a.type() == TscriptType::Vector || b.type() == TscriptType::Vector) {
        TscriptVector x = c.vector(0), y = c.vector(1);
        return vmake(pick(x[0], y[0]), pick(x[1], y[1]), pick(x[2], y[2]));
    }
    return pick(c.number(0), c.number(1));
}

// clamp(low, high, value)
TscriptValue bClamp(Call& c) {
    c.expectCount(3, 3);
    if (c[0].type() == TscriptType::Int && c[1].type() == TscriptType::Int && c[2].type() == TscriptType::Int)
        return std::min(std::max(c[2].intRef(), c[0].intRef()), c[1].intRef());
    if (c[2].type() == TscriptType::Vector) {
        TscriptVector lo = c.vector(0), hi = c.vector(1), v = c.vector(2);
        for (int i = 0; i < 3; ++i)
            v[i] = std::min(std::max(v[i], lo[i]), hi[i]);
        return v;
    }
    return std::min(std::max(c.number(2), c.number(0)), c.number(1));
}

// smoothstep(low, high, value): 0 below, 1 above, 3t^2 - 2t^3 between.
TscriptValue bSmoothstep(Call& c) {
    c.expectCount(3, 3);
    double lo = c.number(0), hi = c.number(1), x = c.number(2);
    if (x <= lo) return 0.0;
    if (x >= hi) return 1.0;
    double t = (x - lo) / (hi - lo);
    return t * t * (3.0 - 2.0 * t);
}

TscriptValue bLinstep(Call& c) {
    c.expectCount(3, 3);
    double lo = c.number(0), hi = c.number(1), x = c.number(2);
    if (x <= lo) return 0.0;
    if (x >= hi) return 1.0;
    return (x - lo) / (hi - lo);
}

// ---------------------------------------------------------------- vectors

TscriptValue bMag(Call& c) {
    c.expectCount(1, 1);
    TscriptVector v = c.vector(0, false);
    return std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
}

TscriptValue bUnit(Call& c) {
    c.expectCount(1, 1);
    TscriptVector v = c.vector(0, false);
    double m = std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
    // The zero vector stays zero rather than turning into NaN.
    if (m < 1e-300) return vmake(0, 0, 0);
    return vmake(v[0] / m, v[1] / m, v[2] / m);
}

TscriptValue bCross(Call& c) {
    c.expectCount(2, 2);
    TscriptVector x = c.vector(0, false), y = c.vector(1, false);
    return vmake(x[1] * y[2] - x[2] * y[1], x[2] * y[0] - x[0] * y[2], x[0] * y[1] - x[1] * y[0]);
}

TscriptValue bDot(Call& c) {
    c.expectCount(2, 2);
    TscriptVector x = c.vector(0, false), y = c.vector(1, false);
    return x[0] * y[0] + x[1] * y[1] + x[2] * y[2];
}

TscriptValue bAngle(Call& c) {
    c.expectCount(2, 2);
    TscriptVector x = c.vector(0, false), y = c.vector(1, false);
    double cx = x[1] * y[2] - x[2] * y[1], cy = x[2] * y[0] - x[0] * y[2], cz = x[0] * y[1] - x[1] * y[0];
    return std::atan2(std::sqrt(cx * cx + cy * cy + cz * cz), x[0] * y[0] + x[1] * y[1] + x[2] * y[2]);
}

// ---------------------------------------------------------------- random and noise

// rand(high), rand(low, high); vectors draw each component.
TscriptValue bRand(Call& c) {
    c.expectCount(1, 2);
    bool vec = c[0].type() == TscriptType::Vector || (c.count() == 2 && c[1].type() == TscriptType::Vector);
    if (vec) {
        TscriptVector lo{0, 0, 0}, hi = c.vector(0);
        if (c.count() == 2) {
            lo = hi;
            hi = c.vector(1);
        }
        TscriptVector r;
        for (int i = 0; i < 3; ++i)
            r[i] = lo[i] + (hi[i] - lo[i]) * c.eval.random();
        return r;
    }
    double lo = 0, hi = c.number(0);
    if (c.count() == 2) {
        lo = hi;
        hi = c.number(1);
    }
    return lo + (hi - lo) * c.eval.random();
}

// A point evenly spread inside a sphere of the given radius (default 1),
// drawn directly rather than by rejection, so it takes three draws always.
TscriptValue bSphrand(Call& c) {
    c.expectCount(0, 1);
    double radius = c.count() ? c.number(0) : 1.0;
    double z = 2.0 * c.eval.random() - 1.0;
    double phi = 2.0 * M_PI * c.eval.random();
    double r = radius * std::cbrt(c.eval.random());
    double ring = std::sqrt(std::max(0.0, 1.0 - z * z));
    return vmake(r * ring * std::cos(phi), r * ring * std::sin(phi), r * z);
}

// gauss(deviation): normal with mean 0, by Box-Muller from two draws.
TscriptValue bGauss(Call& c) {
    c.expectCount(1, 1);
    double sigma = c.number(0);
    double u = 1.0 - c.eval.random(); // in (0, 1], so log(u) is finite
    double v = c.eval.random();
    return sigma * std::sqrt(-2.0 * std::log(u)) * std::cos(2.0 * M_PI * v);
}

TscriptValue bSeed(Call& c) {
    c.expectCount(1, 1);
    c.eval.seed(c.integer(0));
    return {};
}

TscriptValue bNoise(Call& c) {
    c.expectCount(1, 3);
    if (c.count() == 1 && c[0].type() != TscriptType::Vector) return scriptNoise1(c.number(0));
    TscriptVector p = c.count() == 1 ? c.vector(0) : vmake(c.number(0), c.number(1), 0.0);
    if (c.count() == 3) p[2] = c.number(2);
    return scriptNoise3(p[0], p[1], p[2]);
}

// Three decorrelated noises, one a component.
TscriptValue bDnoise(Call& c) {
    c.expectCount(1, 1);
    TscriptVector p = c.vector(0);
    return vmake(scriptNoise3(p[0], p[1], p[2]), scriptNoise3(p[0] + 31.416, p[1] - 47.853, p[2] + 12.793),
                 scriptNoise3(p[0] - 19.247, p[1] + 73.519, p[2] - 55.131));
}

const std::unordered_map<std::string, TscriptBuiltin>& table() {
    static const std::unordered_map<std::string, TscriptBuiltin> t = {
        {"print", bPrint},
        {"size", bSize},
        {"warning", bWarning},
        {"error", bError},
        {"eval", bEval},
        {"exists", bExists},
        {"strcmp", bStrcmp},
        {"tokenize", bTokenize},
        {"substring", bSubstring},
        {"toupper", bToUpper},
        {"tolower", bToLower},
        {"strip", bStrip},
        {"startsWith", bStartsWith},
        {"endsWith", bEndsWith},
        {"stringArrayCount", bStringArrayCount},
        {"clear", bClear},
        {"gmatch", bGmatch},
        {"substituteAllString", bSubstituteAll},
        {"stringArrayToString", bStringArrayToString},
        {"sort", bSort},
        {"abs", bAbs},
        {"sign", bSign},
        {"sqrt", unaryMath<sqrtF>},
        {"sin", unaryMath<sinF>},
        {"cos", unaryMath<cosF>},
        {"tan", unaryMath<tanF>},
        {"asin", unaryMath<asinF>},
        {"acos", unaryMath<acosF>},
        {"atan", unaryMath<atanF>},
        {"exp", unaryMath<expF>},
        {"log", unaryMath<logF>},
        {"log10", unaryMath<log10F>},
        {"floor", unaryMath<floorF>},
        {"ceil", unaryMath<ceilF>},
        {"trunc", unaryMath<truncF>},
        {"deg_to_rad", unaryMath<degToRad>},
        {"rad_to_deg", unaryMath<radToDeg>},
        {"atan2", bAtan2},
        {"pow", bPow},
        {"fmod", bFmod},
        {"hypot", bHypot},
        {"min", minMax<false>},
        {"max", minMax<true>},
        {"clamp", bClamp},
        {"smoothstep", bSmoothstep},
        {"linstep", bLinstep},
        {"mag", bMag},
        {"unit", bUnit},
        {"cross", bCross},
        {"dot", bDot},
        {"angle", bAngle},
        {"rand", bRand},
        {"seed", bSeed},
        {"sphrand", bSphrand},
        {"gauss", bGauss},
        {"noise", bNoise},
        {"dnoise", bDnoise},
    };
    return t;
}

std::string ordinal(size_t i) {
    return "argument " + std::to_string(i + 1);
}

} // namespace

const TscriptBuiltin* findScriptBuiltin(const std::string& name) {
    const auto& t = table();
    auto it = t.find(name);
    return it == t.end() ? nullptr : &it->second;
}

TsourceLocation TscriptBuiltinCall::where() const {
    return eval.where(line);
}

void TscriptBuiltinCall::expectCount(size_t lo, size_t hi) const {
    if (n >= lo && n <= hi) return;
    std::string want = lo == hi ? std::to_string(lo) : std::to_string(lo) + " to " + std::to_string(hi);
    fail("expected " + want + " argument" + (hi == 1 ? "" : "s") + ", given " + std::to_string(n));
}

double TscriptBuiltinCall::number(size_t i) const {
    const TscriptValue& v = *args[i];
    if (!isNumeric(v)) fail(ordinal(i) + " must be a number, given " + scriptTypeArticle(v.type()));
    return v.asFloat();
}

int TscriptBuiltinCall::integer(size_t i) const {
    const TscriptValue& v = *args[i];
    if (!isNumeric(v)) fail(ordinal(i) + " must be a number, given " + scriptTypeArticle(v.type()));
    return v.asInt();
}

const std::string& TscriptBuiltinCall::text(size_t i) const {
    const TscriptValue& v = *args[i];
    if (v.type() != TscriptType::String)
        fail(ordinal(i) + " must be a string, given " + scriptTypeArticle(v.type()));
    return v.stringRef();
}

TscriptVector TscriptBuiltinCall::vector(size_t i, bool allowNumber) const {
    const TscriptValue& v = *args[i];
    if (v.type() == TscriptType::Vector) return v.vectorRef();
    if (allowNumber && isNumeric(v)) return v.asVector();
    fail(ordinal(i) + " must be a vector, given " + scriptTypeArticle(v.type()));
}
