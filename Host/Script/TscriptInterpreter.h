#pragma once
// Runs texts of the script language against a TscriptHost.

#include "Host/Script/TscriptHost.h"
#include "Host/Script/TscriptValue.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

class TscriptEvaluator;
struct TscriptUnit;

// A text parsed once, to be run many times (event procedures, expressions
// run each step) by the interpreter that compiled it. Holds no state of a run.
class TscriptCompiled {
public:
    explicit TscriptCompiled(std::shared_ptr<TscriptUnit> unit) : fUnit(std::move(unit)) {}
    const std::shared_ptr<TscriptUnit>& unit() const { return fUnit; }

private:
    std::shared_ptr<TscriptUnit> fUnit;
};

class TscriptInterpreter {
public:
    explicit TscriptInterpreter(TscriptHost& host);
    ~TscriptInterpreter();
    TscriptInterpreter(const TscriptInterpreter&) = delete;
    TscriptInterpreter& operator=(const TscriptInterpreter&) = delete;

    // Runs a whole text. The text is read in full first, so a syntax error
    // runs nothing; a later error stops the text and leaves what ran done.
    // Errors go to host.error. With `echo`, each top-level statement that is
    // a call and gives a value is passed to host.result.
    bool run(std::string_view source, const std::string& fileName, bool echo);

    // Runs composed text (an eval) at the top level, where global procs of
    // earlier texts are known. Gives the value of the last statement, or of
    // a top-level `return`. Throws TscriptError; nothing is reported.
    TscriptValue evaluate(std::string_view source, const TsourceLocation& where);

    // evaluate() in two halves: parse now (a syntax error throws), run later
    // as often as wanted, with what evaluate() gives and throws.
    std::shared_ptr<const TscriptCompiled> compile(std::string_view source, const TsourceLocation& where);
    TscriptValue execute(const TscriptCompiled& code);

    // Variables of the top level, which procs see through `global` declarations.
    // The name may be given with or without its '$'.
    void setGlobal(const std::string& name, TscriptValue value);
    bool getGlobal(const std::string& name, TscriptValue& value) const;
    bool hasProc(const std::string& name) const;

    // Checked once per loop turn and call: a set flag stops the script with
    // "interrupted". Nothing is checked when no flag is given.
    void setInterruptFlag(const std::atomic<bool>* flag);
    // Stops a script after this many loop turns and calls (0: no limit). For
    // callers that run untrusted text and must get control back.
    void setStepLimit(std::uint64_t steps);

private:
    std::unique_ptr<TscriptEvaluator> fEval;
};
