#include "Host/Script/TscriptValue.h"

#include <charconv>
#include <cmath>
#include <limits>
#include <system_error>

namespace {

bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

std::string_view trimmed(std::string_view s) {
    while (!s.empty() && isBlank(s.front()))
        s.remove_prefix(1);
    while (!s.empty() && isBlank(s.back()))
        s.remove_suffix(1);
    return s;
}

// Reads `s` as one whole number; false when anything is left over.
bool readWholeNumber(std::string_view s, double& out) {
    s = trimmed(s);
    if (!s.empty() && s.front() == '+') s.remove_prefix(1);
    if (s.empty()) return false;
    const char* end = s.data() + s.size();
    auto [ptr, ec] = std::from_chars(s.data(), end, out);
    return ec == std::errc() && ptr == end;
}

int saturatedInt(double v) {
    if (std::isnan(v)) return 0;
    if (v >= 2147483647.0) return std::numeric_limits<int>::max();
    if (v <= -2147483648.0) return std::numeric_limits<int>::min();
    return static_cast<int>(v);
}

double length(const TscriptVector& v) {
    return std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
}

std::string vectorText(const TscriptVector& v) {
    return formatScriptNumber(v[0]) + " " + formatScriptNumber(v[1]) + " " + formatScriptNumber(v[2]);
}

template <typename T, typename F> std::string joinArray(const std::vector<T>& items, F&& text) {
    std::string out;
    for (size_t i = 0; i < items.size(); ++i) {
        if (i) out += ' ';
        out += text(items[i]);
    }
    return out;
}

} // namespace

std::string formatScriptNumber(double value) {
    char buf[64];
    auto [ptr, ec] = std::to_chars(buf, buf + sizeof buf, value);
    if (ec != std::errc()) return "nan";
    return std::string(buf, ptr);
}

int TscriptValue::asInt() const {
    switch (type()) {
    case TscriptType::Int:
        return std::get<int>(fData);
    case TscriptType::Float:
        return saturatedInt(std::get<double>(fData));
    case TscriptType::String: {
        double v = 0;
        return readWholeNumber(std::get<std::string>(fData), v) ? saturatedInt(v) : 0;
    }
    case TscriptType::Vector:
        return saturatedInt(length(std::get<TscriptVector>(fData)));
    default:
        return 0;
    }
}

double TscriptValue::asFloat() const {
    switch (type()) {
    case TscriptType::Int:
        return std::get<int>(fData);
    case TscriptType::Float:
        return std::get<double>(fData);
    case TscriptType::String: {
        double v = 0;
        return readWholeNumber(std::get<std::string>(fData), v) ? v : 0.0;
    }
    case TscriptType::Vector:
        return length(std::get<TscriptVector>(fData));
    default:
        return 0.0;
    }
}

std::string TscriptValue::asString() const {
    switch (type()) {
    case TscriptType::String:
        return std::get<std::string>(fData);
    default:
        return toString();
    }
}

TscriptVector TscriptValue::asVector() const {
    switch (type()) {
    case TscriptType::Vector:
        return std::get<TscriptVector>(fData);
    case TscriptType::Int:
    case TscriptType::Float: {
        double v = asFloat();
        return {v, v, v};
    }
    case TscriptType::String: {
        // "x y z" reads back as the vector it was written from; one number
        // fills all three components.
        std::string_view s = trimmed(std::get<std::string>(fData));
        TscriptVector out{0, 0, 0};
        int n = 0;
        while (!s.empty() && n < 4) {
            size_t cut = 0;
            while (cut < s.size() && !isBlank(s[cut]))
                ++cut;
            double v = 0;
            if (n == 3 || !readWholeNumber(s.substr(0, cut), v)) return {0, 0, 0};
            out[n++] = v;
            s = trimmed(s.substr(cut));
        }
        if (n == 1) return {out[0], out[0], out[0]};
        return n == 3 ? out : TscriptVector{0, 0, 0};
    }
    default:
        return {0, 0, 0};
    }
}

std::string TscriptValue::toString() const {
    switch (type()) {
    case TscriptType::None:
        return {};
    case TscriptType::Int:
        return std::to_string(std::get<int>(fData));
    case TscriptType::Float:
        return formatScriptNumber(std::get<double>(fData));
    case TscriptType::String:
        return std::get<std::string>(fData);
    case TscriptType::Vector:
        return vectorText(std::get<TscriptVector>(fData));
    case TscriptType::IntArray:
        return joinArray(intArray(), [](int v) { return std::to_string(v); });
    case TscriptType::FloatArray:
        return joinArray(floatArray(), [](double v) { return formatScriptNumber(v); });
    case TscriptType::StringArray:
        return joinArray(stringArray(), [](const std::string& v) { return v; });
    case TscriptType::VectorArray:
        return joinArray(vectorArray(), [](const TscriptVector& v) { return vectorText(v); });
    }
    return {};
}
