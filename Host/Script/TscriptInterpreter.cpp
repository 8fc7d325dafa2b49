#include "Host/Script/TscriptInterpreter.h"

#include "Host/Script/TscriptEvaluator.h"

TscriptInterpreter::TscriptInterpreter(TscriptHost& host) : fEval(std::make_unique<TscriptEvaluator>(host)) {}

TscriptInterpreter::~TscriptInterpreter() = default;

bool TscriptInterpreter::run(std::string_view source, const std::string& fileName, bool echo) {
    return fEval->run(source, fileName, echo);
}

TscriptValue TscriptInterpreter::evaluate(std::string_view source, const TsourceLocation& where) {
    return fEval->evaluate(source, where);
}

namespace {

// "$argv" and "argv" name the same variable.
std::string bareName(const std::string& name) {
    return !name.empty() && name[0] == '$' ? name.substr(1) : name;
}

} // namespace

std::shared_ptr<const TscriptCompiled> TscriptInterpreter::compile(std::string_view source,
                                                                   const TsourceLocation& where) {
    return std::make_shared<TscriptCompiled>(fEval->compile(source, where));
}

TscriptValue TscriptInterpreter::execute(const TscriptCompiled& code) {
    return fEval->execute(code.unit());
}

void TscriptInterpreter::setGlobal(const std::string& name, TscriptValue value) {
    fEval->setGlobal(bareName(name), std::move(value));
}

bool TscriptInterpreter::getGlobal(const std::string& name, TscriptValue& value) const {
    const auto& g = fEval->globals();
    auto it = g.find(bareName(name));
    if (it == g.end()) return false;
    value = it->second;
    return true;
}

bool TscriptInterpreter::hasProc(const std::string& name) const {
    return fEval->hasProc(name);
}

void TscriptInterpreter::setInterruptFlag(const std::atomic<bool>* flag) {
    fEval->setInterruptFlag(flag);
}

void TscriptInterpreter::setStepLimit(std::uint64_t steps) {
    fEval->setStepLimit(steps);
}
