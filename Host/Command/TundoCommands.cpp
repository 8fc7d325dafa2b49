// undo, redo and undoInfo: actions on the running engine's undo queue.

#include "Host/Command/TargDatabase.h"
#include "Host/Command/TcommandEngine.h"
#include "Host/Command/TmetaCommand.h"

namespace {

// Runs undo or redo; a command that fails to go back or forth is named.
bool replay(TcommandEngine& engine, const std::string& command, bool forward) {
    TundoManager& queue = engine.undoManager();
    const std::string name = forward ? queue.redoName() : queue.undoName();
    const int errorsBefore = engine.errorCount();
    try {
        const bool done = forward ? queue.redo() : queue.undo();
        if (done) engine.countChange();
        return done;
    } catch (const TscriptError&) {
        throw;
    } catch (const std::exception& e) {
        // A message the failing command gave stands; otherwise say which step failed.
        if (engine.errorCount() != errorsBefore) throw TfailedException(-1);
        throw TargError(command + ": could not " + command + " '" + name + "'");
    }
}

class TundoAction : public TmetaCommand {
public:
    using TmetaCommand::TmetaCommand;
    int doIt(const TargList& args) override {
        TargDatabase db(Tsyntax{}, args);
        TcommandEngine& engine = TcommandEngine::current();
        if (!replay(engine, "undo", false)) engine.displayWarning("undo: nothing to undo");
        return 0;
    }
};

class TredoAction : public TmetaCommand {
public:
    using TmetaCommand::TmetaCommand;
    int doIt(const TargList& args) override {
        TargDatabase db(Tsyntax{}, args);
        TcommandEngine& engine = TcommandEngine::current();
        if (!replay(engine, "redo", true)) engine.displayWarning("redo: nothing to redo");
        return 0;
    }
};

class TundoInfoAction : public TmetaCommand {
public:
    using TmetaCommand::TmetaCommand;

    static Tsyntax syntax() {
        Tsyntax s;
        s.enableQuery();
        s.addFlag("st", "state", {TargType::Bool});
        s.addFlag("ock", "openChunk");
        s.addFlag("cck", "closeChunk");
        s.addFlag("cn", "chunkName", {TargType::String});
        s.addFlag("un", "undoName");
        s.addFlag("rn", "redoName");
        s.addFlag("in", "infinity", {TargType::Bool});
        s.addFlag("l", "length", {TargType::Int});
        s.addFlag("fsh", "flush");
        return s;
    }

    int doIt(const TargList& args) override {
        TargDatabase db(syntax(), args);
        TcommandEngine& engine = TcommandEngine::current();
        TundoManager& undo = engine.undoManager();
        if (db.isQuery()) {
            if (db.isFlagSet("state"))
                engine.setResult(undo.state());
            else if (db.isFlagSet("undoName"))
                engine.setResult(undo.undoName());
            else if (db.isFlagSet("redoName"))
                engine.setResult(undo.redoName());
            else if (db.isFlagSet("infinity"))
                engine.setResult(undo.infinite());
            else if (db.isFlagSet("length"))
                engine.setResult(static_cast<int>(undo.length()));
            else
                throw TargError("undoInfo: nothing to query");
            return 0;
        }
        for (const char* flag : {"undoName", "redoName"})
            if (db.isFlagSet(flag))
                throw TargError(std::string("undoInfo: flag '-") + flag + "' needs -query");
        if (db.isFlagSet("length")) {
            int length = db.flagArgumentInt("length");
            if (length < 0)
                throw TargError("undoInfo: flag '-length' expects a count of 0 or more, got " +
                                std::to_string(length));
            undo.setLength(static_cast<std::size_t>(length));
        }
        if (db.isFlagSet("infinity")) undo.setInfinite(db.flagArgumentBool("infinity"));
        if (db.isFlagSet("state")) undo.setState(db.flagArgumentBool("state"));
        if (db.isFlagSet("flush")) undo.flush();
        if (db.isFlagSet("openChunk"))
            undo.openChunk(db.isFlagSet("chunkName") ? db.flagArgumentString("chunkName") : std::string());
        if (db.isFlagSet("closeChunk")) {
            // The call itself runs inside the engine's own group; an explicit
            // chunk is one level further in.
            if (undo.openDepth() <= static_cast<std::size_t>(engine.depth() > 0 ? 1 : 0))
                engine.displayWarning("undoInfo: no undo chunk is open");
            else
                undo.closeChunk();
        }
        return 0;
    }
};

} // namespace

MOTILANE_REGISTER_COMMAND("undo", TundoAction);
MOTILANE_REGISTER_COMMAND("redo", TredoAction);
MOTILANE_REGISTER_COMMAND("undoInfo", TundoInfoAction);
