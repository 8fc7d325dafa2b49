#include "Host/Command/ToptionVars.h"

#include "Host/Command/TargDatabase.h"

#include <map>

namespace {

std::map<std::string, TscriptValue>& store() {
    static std::map<std::string, TscriptValue> values;
    return values;
}

const TscriptValue* lookup(const std::string& name) {
    auto it = store().find(name);
    return it == store().end() ? nullptr : &it->second;
}

} // namespace

bool ToptionVars::exists(const std::string& name) {
    return lookup(name) != nullptr;
}

TscriptValue ToptionVars::value(const std::string& name) {
    const TscriptValue* v = lookup(name);
    return v ? *v : TscriptValue();
}

int ToptionVars::intValue(const std::string& name, int fallback) {
    const TscriptValue* v = lookup(name);
    int out = fallback;
    if (v && scriptValueToInt(*v, out)) return out;
    // A float preference read as int truncates, as the language does.
    if (v && v->type() == TscriptType::Float) return v->asInt();
    return fallback;
}

double ToptionVars::floatValue(const std::string& name, double fallback) {
    const TscriptValue* v = lookup(name);
    double out = fallback;
    return v && scriptValueToDouble(*v, out) ? out : fallback;
}

std::string ToptionVars::stringValue(const std::string& name, const std::string& fallback) {
    const TscriptValue* v = lookup(name);
    if (!v || v->isArray() || v->isNone()) return fallback;
    return v->asString();
}

void ToptionVars::setInt(const std::string& name, int value) {
    store()[name] = TscriptValue(value);
}
void ToptionVars::setFloat(const std::string& name, double value) {
    store()[name] = TscriptValue(value);
}
void ToptionVars::setString(const std::string& name, const std::string& value) {
    store()[name] = TscriptValue(value);
}

void ToptionVars::appendInt(const std::string& name, int value) {
    TscriptValue& v = store()[name];
    if (v.type() == TscriptType::IntArray)
        v.intArray().push_back(value);
    else if (v.type() == TscriptType::Int)
        v = TscriptValue(std::vector<int>{v.asInt(), value});
    else
        v = TscriptValue(std::vector<int>{value});
}

void ToptionVars::appendFloat(const std::string& name, double value) {
    TscriptValue& v = store()[name];
    if (v.type() == TscriptType::FloatArray)
        v.floatArray().push_back(value);
    else if (v.type() == TscriptType::Float)
        v = TscriptValue(std::vector<double>{v.asFloat(), value});
    else
        v = TscriptValue(std::vector<double>{value});
}

void ToptionVars::appendString(const std::string& name, const std::string& value) {
    TscriptValue& v = store()[name];
    if (v.type() == TscriptType::StringArray)
        v.stringArray().push_back(value);
    else if (v.type() == TscriptType::String)
        v = TscriptValue(std::vector<std::string>{v.asString(), value});
    else
        v = TscriptValue(std::vector<std::string>{value});
}

bool ToptionVars::remove(const std::string& name) {
    return store().erase(name) > 0;
}

std::vector<std::string> ToptionVars::names() {
    std::vector<std::string> out;
    for (const auto& entry : store())
        out.push_back(entry.first);
    return out;
}

void ToptionVars::clear() {
    store().clear();
}
