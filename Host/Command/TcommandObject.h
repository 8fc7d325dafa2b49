#pragma once
// Commands as objects: one instance per call, kept by the undo queue when it
// can be undone.

#include "Host/Command/TargList.h"

#include <exception>
#include <functional>
#include <string>
#include <vector>

// Thrown out of doIt to stop a command. A code of -1 means the message was
// already shown through TcommandEngine::displayError.
class TfailedException : public std::exception {
public:
    explicit TfailedException(int code = -1) : fCode(code) {}
    int code() const { return fCode; }
    const char* what() const noexcept override { return "command failed"; }

private:
    int fCode;
};

class TcommandObject {
public:
    TcommandObject() = default;
    TcommandObject(const TcommandObject&) = delete;
    TcommandObject& operator=(const TcommandObject&) = delete;
    virtual ~TcommandObject() = default;

    // Runs the command the first time. 0 is success; any other value fails the
    // call like a TfailedException with that code.
    virtual int doIt(const TargList& args) = 0;
    // Run again after an undo, and undone; only called on undoable commands.
    virtual int redoIt() { return 0; }
    virtual int undoIt() { return 0; }

    // Whether the call goes to the undo queue. Plain commands are not undoable
    // until they say so; a query, for example, turns it off again.
    virtual bool isUndoable() const { return fOkayForUndo; }
    void setOkayForUndo(bool okay, int reason = 0) {
        fOkayForUndo = okay;
        fUndoReason = reason;
    }
    int undoReason() const { return fUndoReason; }

    void setUndone(bool undone) { fUndone = undone; }
    bool isUndone() const { return fUndone; }

    // The call that made this command; set by the engine before doIt.
    const TargList& argList() const { return fArgList; }
    const std::string& commandName() const { return fArgList.commandName(); }
    void setArgList(TargList args) { fArgList = std::move(args); }
    // The text the undo queue shows for this command.
    virtual std::string commandString() const { return fArgList.toString(); }

    // Set once the undo queue owns the command.
    bool isStored() const { return fStored; }
    void setStored(bool stored) { fStored = stored; }

private:
    TargList fArgList;
    bool fOkayForUndo = false;
    int fUndoReason = 0;
    bool fUndone = false;
    bool fStored = false;
};

// A command that an interactive tool builds up and then commits, or that runs
// from a script like any other. Undoable by default.
class TtoolCommandObject : public TcommandObject {
public:
    TtoolCommandObject() { setOkayForUndo(true, 0); }

    void setInteractive(bool on = true) { fInteractive = on; }
    bool isInteractive() const { return fInteractive; }
    void setCommitted(bool on = true) { fCommitted = on; }
    bool isCommitted() const { return fCommitted; }

    // Shows the command line that repeats what the tool did (when the engine
    // echoes commands).
    void displayCommand() const;

private:
    bool fInteractive = false;
    bool fCommitted = false;
};

// A command made of graph edits that each know how to take themselves back:
// doIt records and runs them, undo runs the inverses in reverse order.
class TDGcommand : public TcommandObject {
public:
    TDGcommand() { setOkayForUndo(true, 0); }

    // Records one edit. `apply` runs now (from doOperations) and on every redo.
    void addOperation(std::function<void()> apply, std::function<void()> revert);
    // Runs the edits recorded since the last call.
    void doOperations();
    std::size_t operationCount() const { return fOperations.size(); }

    int redoIt() override;
    int undoIt() override;

private:
    struct Operation {
        std::function<void()> apply;
        std::function<void()> revert;
    };
    std::vector<Operation> fOperations;
    std::size_t fDone = 0;
};
