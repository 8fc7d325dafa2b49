#pragma once
// The session's command layer: the command table, results, messages, the
// undo queue, and the bridge to the script interpreter.

#include "Host/Command/TargList.h"
#include "Host/Command/TcommandObject.h"
#include "Host/Command/TmetaCommand.h"
#include "Host/Command/TundoManager.h"
#include "Host/Script/TscriptHost.h"
#include "Host/Script/TscriptValue.h"

#include <atomic>
#include <concepts>
#include <functional>
#include <iosfwd>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

class TcommandEngine : public TscriptHost {
public:
    using Evaluator = std::function<TscriptValue(const std::string& source, const TsourceLocation& where)>;
    using SelectionProvider = std::function<std::vector<std::string>()>;
    using ExistsCheck = std::function<bool(const std::string& name)>;
    using ObjectMatcher = std::function<std::vector<std::string>(const std::string& pattern)>;

    TcommandEngine();
    ~TcommandEngine() override;
    TcommandEngine(const TcommandEngine&) = delete;
    TcommandEngine& operator=(const TcommandEngine&) = delete;

    // The session's engine. Until one is set, a process-wide default.
    static TcommandEngine& current();
    // Null goes back to the default. The engine must outlive its time as current.
    static void setCurrent(TcommandEngine* engine);

    // Commands of this engine only, in front of the process-wide table.
    void registerCommand(std::unique_ptr<TmetaCommand> command);
    template <class C> void registerCommand(const std::string& name) {
        if constexpr (std::is_base_of_v<TmetaCommand, C>)
            registerCommand(std::make_unique<C>(name));
        else
            registerCommand(std::make_unique<TmetaCommandOf<C>>(name));
    }
    TmetaCommand* findCommand(const std::string& name) const;
    std::vector<std::string> commandNames() const;

    // TscriptHost
    bool hasCommand(const std::string& name) const override;
    TscriptValue runCommand(const std::string& name, const std::vector<TscriptArg>& args,
                            const TsourceLocation& where) override;
    void output(const std::string& text) override;
    void warning(const std::string& text) override { displayWarning(text); }
    void error(const TsourceLocation& where, const std::string& text) override;
    void result(const TscriptValue& value) override;

    // From C++: the same path as a script call, at the current location.
    TscriptValue run(const TargList& args);
    TscriptValue run(const std::string& name, std::initializer_list<std::string> words);

    // Script text through the interpreter (eval from C++, event procedures).
    // Gives the value of the last command. Throws TscriptError.
    TscriptValue executeScript(const std::string& text);
    // For callers that must go on after a failing script (an event procedure
    // inside a simulation step): the error is shown, once, and false returned.
    bool tryExecuteScript(const std::string& text, TscriptValue* result = nullptr);
    // Runs a whole text as if it were the file `where` names (errors give its lines).
    TscriptValue executeScript(const std::string& text, const TsourceLocation& where);
    bool hasInterpreter() const { return static_cast<bool>(fEvaluate); }
    void setEvaluator(Evaluator evaluate) { fEvaluate = std::move(evaluate); }
    // Anything with evaluate(source, where) returning a TscriptValue.
    template <class Interpreter> void setInterpreter(Interpreter& interpreter) {
        fEvaluate = [&interpreter](const std::string& source, const TsourceLocation& where) {
            return TscriptValue(interpreter.evaluate(source, where));
        };
    }

    // The command being run, and where from; null and empty outside one.
    TcommandObject* currentCommand() const { return fCurrentCommand; }
    const TsourceLocation& currentLocation() const { return fLocation; }
    void setCurrentLocation(TsourceLocation where) { fLocation = std::move(where); }
    // 0 outside commands, 1 in a command the script called, more when nested.
    int depth() const { return fDepth; }

    // The result of the running command.
    void clearResult();
    void setResult(const TscriptValue& value);
    void setResult(int value);
    void setResult(double value);
    void setResult(bool value);
    void setResult(const char* value);
    void setResult(const std::string& value);
    void setResult(const TscriptVector& value);
    void setResult(const std::vector<int>& value);
    void setResult(const std::vector<double>& value);
    void setResult(const std::vector<std::string>& value);
    void setResult(const std::vector<TscriptVector>& value);
    template <std::integral I>
    requires(!std::same_as<I, int> && !std::same_as<I, bool>) void setResult(I value) {
        setResult(static_cast<int>(value));
    }
    // Builds an array result one element at a time; a scalar result of the
    // same kind becomes the first element.
    void appendResult(const std::string& value);
    void appendResult(const char* value) { appendResult(std::string(value)); }
    void appendResult(int value);
    void appendResult(double value);
    const TscriptValue& result() const { return fResult; }

    // "// Error: FILE:LINE: TEXT //" at the current location.
    void displayError(const std::string& text);
    // By message number (see TmessageTable).
    void displayError(int messageId);
    // "// Warning: TEXT //". With `once`, a text is shown the first time only
    // (for warnings a step would repeat every frame).
    void displayWarning(const std::string& text, bool once = false);
    void displayWarning(int messageId, bool once = false);
    // Plain information on the output stream.
    void displayInfo(const std::string& text);
    int errorCount() const { return fErrors; }
    int warningCount() const { return fWarnings; }
    const std::string& lastError() const { return fLastError; }
    void resetCounts();

    // Where output goes; null restores std::cout and std::cerr.
    void setOutputStream(std::ostream* out);
    void setErrorStream(std::ostream* err);
    std::ostream& outputStream() const;
    std::ostream& errorStream() const;

    // Tools show the command line they stand for when this is on.
    void setCommandEcho(bool on) { fCommandEcho = on; }
    bool commandEcho() const { return fCommandEcho; }
    void echoCommand(const std::string& text);

    TundoManager& undoManager() { return fUndo; }
    // Commands run while this is on are not stored for undo and do not count as
    // changes (a scene file being read builds a scene of its own).
    void setUndoSuspended(bool on) { fUndoSuspended = on; }
    bool undoSuspended() const { return fUndoSuspended; }
    // Grows with every change a command makes (undo and redo too): a scene is
    // modified when this differs from its value at the last save.
    std::uint64_t changeCount() const { return fChanges; }
    void countChange() { ++fChanges; }

    // Long work (run-up, export, baking) asks once per frame or block whether
    // to stop; the program points this at the flag its Ctrl-C handler sets.
    void setInterruptFlag(const std::atomic<bool>* flag) { fInterrupt = flag; }
    bool interruptRequested() const { return fInterrupt && fInterrupt->load(std::memory_order_relaxed); }
    // And tells how far it got; the program decides whether to show it. Work that stops early says
    // so with a done of -1.
    using ProgressHandler = std::function<void(const std::string& what, long long done, long long total)>;
    void setProgressHandler(ProgressHandler handler) { fProgress = std::move(handler); }
    void progress(const std::string& what, long long done, long long total) const {
        if (fProgress) fProgress(what, done, total);
    }

    // The graph layer tells what is selected and what exists. Without them the
    // selection is empty and every name exists.
    void setSelectionProvider(SelectionProvider provider) { fSelection = std::move(provider); }
    void setObjectExistsCheck(ExistsCheck check) { fExists = std::move(check); }
    std::vector<std::string> selection() const;
    bool objectExists(const std::string& name) const;
    // Names a pattern ("pSphere*") stands for. With a matcher set, object
    // arguments expand through it; otherwise a name stands for itself when
    // it exists.
    void setObjectMatcher(ObjectMatcher matcher) { fMatcher = std::move(matcher); }
    bool hasObjectMatcher() const { return static_cast<bool>(fMatcher); }
    std::vector<std::string> matchObjects(const std::string& pattern) const;

private:
    std::map<std::string, std::unique_ptr<TmetaCommand>> fLocal;
    Evaluator fEvaluate;
    SelectionProvider fSelection;
    ExistsCheck fExists;
    ObjectMatcher fMatcher;
    const std::atomic<bool>* fInterrupt = nullptr;
    ProgressHandler fProgress;
    TundoManager fUndo;

    TcommandObject* fCurrentCommand = nullptr;
    TsourceLocation fLocation;
    int fDepth = 0;
    TscriptValue fResult;

    std::ostream* fOut = nullptr;
    std::ostream* fErr = nullptr;
    int fErrors = 0;
    int fWarnings = 0;
    std::string fLastError;
    std::set<std::string> fShownOnce;
    bool fCommandEcho = false;
    bool fUndoSuspended = false;
    std::uint64_t fChanges = 0;
};

// Texts of numbered messages. The module enters its own at start.
class TmessageTable {
public:
    static void set(int id, std::string text);
    // "message N" for a number without text.
    static std::string text(int id);
};
