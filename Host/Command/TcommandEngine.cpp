#include "Host/Command/TcommandEngine.h"

#include <algorithm>
#include <iostream>

namespace {

TcommandEngine* gCurrent = nullptr;

TcommandEngine& defaultEngine() {
    static TcommandEngine engine;
    return engine;
}

std::map<int, std::string>& messageTexts() {
    static std::map<int, std::string> texts = {
        {1818, "no active model to work in"},
        {4787, "could not read the selection"},
    };
    return texts;
}

} // namespace

void TmessageTable::set(int id, std::string text) {
    messageTexts()[id] = std::move(text);
}

std::string TmessageTable::text(int id) {
    const auto& texts = messageTexts();
    auto it = texts.find(id);
    return it == texts.end() ? "message " + std::to_string(id) : it->second;
}

TcommandEngine::TcommandEngine() = default;

TcommandEngine::~TcommandEngine() {
    if (gCurrent == this) gCurrent = nullptr;
}

TcommandEngine& TcommandEngine::current() {
    return gCurrent ? *gCurrent : defaultEngine();
}

void TcommandEngine::setCurrent(TcommandEngine* engine) {
    gCurrent = engine;
}

void TcommandEngine::registerCommand(std::unique_ptr<TmetaCommand> command) {
    if (!command) return;
    std::string name = command->name();
    fLocal[name] = std::move(command);
}

TmetaCommand* TcommandEngine::findCommand(const std::string& name) const {
    auto it = fLocal.find(name);
    if (it != fLocal.end()) return it->second.get();
    return TmetaCommand::find(name);
}

std::vector<std::string> TcommandEngine::commandNames() const {
    std::vector<std::string> names = TmetaCommand::registeredNames();
    for (const auto& entry : fLocal)
        names.push_back(entry.first);
    std::sort(names.begin(), names.end());
    names.erase(std::unique(names.begin(), names.end()), names.end());
    return names;
}

bool TcommandEngine::hasCommand(const std::string& name) const {
    return findCommand(name) != nullptr;
}

TscriptValue TcommandEngine::runCommand(const std::string& name, const std::vector<TscriptArg>& args,
                                        const TsourceLocation& where) {
    TmetaCommand* meta = findCommand(name);
    if (!meta) throw TscriptError("unknown command '" + name + "'", where);

    // Outlives the frame below: the undo group names itself after it.
    const TargList list(name, args);
    // Whatever happens, the caller's command, location and result come back,
    // and a top-level call's group of undo entries is closed.
    struct Frame {
        TcommandEngine& engine;
        TcommandObject* command;
        TsourceLocation location;
        TscriptValue result;
        bool topLevel;
        TcommandEngine* previousCurrent;
        ~Frame() {
            gCurrent = previousCurrent;
            if (topLevel) engine.fUndo.endCommandGroup();
            engine.fCurrentCommand = command;
            engine.fLocation = std::move(location);
            engine.fResult = std::move(result);
            --engine.fDepth;
        }
    } frame{*this, fCurrentCommand, fLocation, std::move(fResult), fDepth == 0, gCurrent};
    // The commands it runs reach this engine through current().
    gCurrent = this;
    ++fDepth;
    fLocation = where;
    fResult = TscriptValue();
    // Everything one top-level call stores (its own entry, and those of the
    // commands it runs in turn) is undone as one step.
    if (frame.topLevel) fUndo.beginCommandGroup(list);

    const int errorsBefore = fErrors;
    auto failed = [&](const std::string& text) -> TscriptError {
        if (fErrors == errorsBefore) displayError(text);
        return TscriptError(fLastError, where, true);
    };
    try {
        // A command may have stored itself (a tool's finalize); then the
        // queue owns it, even when it fails afterwards.
        struct Owned {
            std::unique_ptr<TcommandObject> command;
            ~Owned() {
                if (command && command->isStored()) (void)command.release();
            }
        } owned{meta->create()};
        int status = 0;
        if (TcommandObject* command = owned.command.get()) {
            command->setArgList(list);
            fCurrentCommand = command;
            status = command->doIt(list);
            if (status == 0 && command->isUndoable() && !fUndoSuspended) {
                ++fChanges;
                if (!command->isStored()) fUndo.storeCommand(std::move(owned.command));
            }
        } else {
            fCurrentCommand = nullptr;
            status = meta->doIt(list);
        }
        if (status != 0) throw TfailedException(status);
    } catch (const TscriptError&) {
        throw; // from a script the command ran; already on its way out
    } catch (const TfailedException& e) {
        throw failed(name + ": command failed" +
                     (e.code() != -1 ? " (code " + std::to_string(e.code()) + ")" : ""));
    } catch (const std::bad_alloc&) {
        throw failed(name +
                     ": out of memory: what it was asked to make does not fit in this machine's memory");
    } catch (const std::exception& e) {
        throw failed(e.what());
    } catch (...) {
        throw failed(name + ": command failed");
    }
    return std::move(fResult);
}

TscriptValue TcommandEngine::run(const TargList& args) {
    std::string name = args.commandName();
    return runCommand(name, args.args(), fLocation);
}

TscriptValue TcommandEngine::run(const std::string& name, std::initializer_list<std::string> words) {
    return run(TargList::fromWords(name, words));
}

TscriptValue TcommandEngine::executeScript(const std::string& text) {
    if (!fEvaluate) throw TscriptError("no script interpreter to run: " + text, fLocation);
    return fEvaluate(text, fLocation);
}

TscriptValue TcommandEngine::executeScript(const std::string& text, const TsourceLocation& where) {
    if (!fEvaluate) throw TscriptError("no script interpreter to run " + where.file, fLocation);
    return fEvaluate(text, where);
}

bool TcommandEngine::tryExecuteScript(const std::string& text, TscriptValue* result) {
    try {
        TscriptValue value = executeScript(text);
        if (result) *result = std::move(value);
        return true;
    } catch (const TscriptError& e) {
        if (!e.reported()) error(e.where(), e.what());
    }
    return false;
}

void TcommandEngine::output(const std::string& text) {
    outputStream() << text << std::flush;
}

void TcommandEngine::error(const TsourceLocation& where, const std::string& text) {
    ++fErrors;
    fLastError = text;
    std::ostream& err = errorStream();
    err << "// Error: ";
    if (!where.file.empty()) err << where.file << ':' << where.line << ": ";
    err << text << " //" << std::endl;
}

void TcommandEngine::result(const TscriptValue& value) {
    if (value.isNone()) return;
    outputStream() << "// Result: " << value.toString() << " //" << std::endl;
}

void TcommandEngine::clearResult() {
    fResult = TscriptValue();
}
void TcommandEngine::setResult(const TscriptValue& value) {
    fResult = value;
}
void TcommandEngine::setResult(int value) {
    fResult = TscriptValue(value);
}
void TcommandEngine::setResult(double value) {
    fResult = TscriptValue(value);
}
void TcommandEngine::setResult(bool value) {
    fResult = TscriptValue(value);
}
void TcommandEngine::setResult(const char* value) {
    fResult = TscriptValue(value);
}
void TcommandEngine::setResult(const std::string& value) {
    fResult = TscriptValue(value);
}
void TcommandEngine::setResult(const TscriptVector& value) {
    fResult = TscriptValue(value);
}
void TcommandEngine::setResult(const std::vector<int>& value) {
    fResult = TscriptValue(value);
}
void TcommandEngine::setResult(const std::vector<double>& value) {
    fResult = TscriptValue(value);
}
void TcommandEngine::setResult(const std::vector<std::string>& value) {
    fResult = TscriptValue(value);
}
void TcommandEngine::setResult(const std::vector<TscriptVector>& value) {
    fResult = TscriptValue(value);
}

void TcommandEngine::appendResult(const std::string& value) {
    switch (fResult.type()) {
    case TscriptType::StringArray:
        fResult.stringArray().push_back(value);
        return;
    case TscriptType::None:
        fResult = TscriptValue(std::vector<std::string>{value});
        return;
    case TscriptType::IntArray:
    case TscriptType::FloatArray:
    case TscriptType::VectorArray: {
        // Mixed kinds: everything becomes text, as the language joins them.
        std::vector<std::string> items;
        if (fResult.type() == TscriptType::IntArray)
            for (int i : fResult.intArray())
                items.push_back(TscriptValue(i).asString());
        else if (fResult.type() == TscriptType::FloatArray)
            for (double d : fResult.floatArray())
                items.push_back(TscriptValue(d).asString());
        else
            for (const auto& v : fResult.vectorArray())
                items.push_back(TscriptValue(v).asString());
        items.push_back(value);
        fResult = TscriptValue(std::move(items));
        return;
    }
    default:
        fResult = TscriptValue(std::vector<std::string>{fResult.asString(), value});
        return;
    }
}

void TcommandEngine::appendResult(int value) {
    switch (fResult.type()) {
    case TscriptType::IntArray:
        fResult.intArray().push_back(value);
        return;
    case TscriptType::None:
        fResult = TscriptValue(std::vector<int>{value});
        return;
    case TscriptType::Int:
        fResult = TscriptValue(std::vector<int>{fResult.asInt(), value});
        return;
    case TscriptType::FloatArray:
        fResult.floatArray().push_back(value);
        return;
    default:
        appendResult(TscriptValue(value).asString());
        return;
    }
}

void TcommandEngine::appendResult(double value) {
    switch (fResult.type()) {
    case TscriptType::FloatArray:
        fResult.floatArray().push_back(value);
        return;
    case TscriptType::None:
        fResult = TscriptValue(std::vector<double>{value});
        return;
    case TscriptType::Int:
    case TscriptType::Float:
        fResult = TscriptValue(std::vector<double>{fResult.asFloat(), value});
        return;
    case TscriptType::IntArray: {
        std::vector<double> items(fResult.intArray().begin(), fResult.intArray().end());
        items.push_back(value);
        fResult = TscriptValue(std::move(items));
        return;
    }
    default:
        appendResult(TscriptValue(value).asString());
        return;
    }
}

void TcommandEngine::displayError(const std::string& text) {
    error(fLocation, text);
}

void TcommandEngine::displayError(int messageId) {
    displayError(TmessageTable::text(messageId));
}

void TcommandEngine::displayWarning(const std::string& text, bool once) {
    if (once && !fShownOnce.insert(text).second) return;
    ++fWarnings;
    errorStream() << "// Warning: " << text << " //" << std::endl;
}

void TcommandEngine::displayWarning(int messageId, bool once) {
    displayWarning(TmessageTable::text(messageId), once);
}

void TcommandEngine::displayInfo(const std::string& text) {
    outputStream() << text << std::endl;
}

void TcommandEngine::resetCounts() {
    fErrors = fWarnings = 0;
    fLastError.clear();
}

void TcommandEngine::setOutputStream(std::ostream* out) {
    fOut = out;
}
void TcommandEngine::setErrorStream(std::ostream* err) {
    fErr = err;
}
std::ostream& TcommandEngine::outputStream() const {
    return fOut ? *fOut : std::cout;
}
std::ostream& TcommandEngine::errorStream() const {
    return fErr ? *fErr : std::cerr;
}

void TcommandEngine::echoCommand(const std::string& text) {
    if (fCommandEcho) outputStream() << text << ';' << std::endl;
}

std::vector<std::string> TcommandEngine::selection() const {
    return fSelection ? fSelection() : std::vector<std::string>{};
}

bool TcommandEngine::objectExists(const std::string& name) const {
    return fExists ? fExists(name) : true;
}

std::vector<std::string> TcommandEngine::matchObjects(const std::string& pattern) const {
    if (fMatcher) return fMatcher(pattern);
    if (objectExists(pattern)) return {pattern};
    return {};
}
