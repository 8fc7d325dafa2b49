#pragma once
// Base of the host's scene commands: parse against a syntax, then record the
// graph edits as undoable operations.

#include "Host/Command/TargDatabase.h"
#include "Host/Command/TcommandEngine.h"
#include "Host/Command/TcommandObject.h"
#include "Host/Dag/Tmodel.h"
#include "Host/SceneCommands/TplugPath.h"

class TsceneCommand : public TDGcommand {
public:
    int doIt(const TargList& args) final {
        Tsyntax syntax;
        makeSyntax(syntax);
        TargDatabase db(syntax, args);
        if (db.isQuery()) setOkayForUndo(false);
        int status = 0;
        try {
            status = run(db);
        } catch (const TplugError& e) {
            fail(e.what());
        } catch (const TgraphError& e) {
            fail(e.what());
        } catch (const std::out_of_range& e) {
            fail(e.what()); // a time or count no clock or array holds
        }
        // Commands that changed nothing leave nothing to undo.
        if (operationCount() == 0) setOkayForUndo(false);
        return status;
    }

protected:
    virtual void makeSyntax(Tsyntax& syntax) = 0;
    virtual int run(const TargDatabase& db) = 0;

    TdependGraph& graph() { return TdependGraph::current(); }
    Tmodel& model() { return *TmodelList::activeModel(); }
    TcommandEngine& engine() { return TcommandEngine::current(); }
    // Records an edit and runs it now.
    void perform(std::function<void()> apply, std::function<void()> revert) {
        addOperation(std::move(apply), std::move(revert));
        doOperations();
    }
    [[noreturn]] void fail(const std::string& text) const { throw TargError(commandName() + ": " + text); }
};

// Node creation shared by createNode and the geometry commands: makes a node
// (undoably), optionally under a parent transform.
TdependNode* createNodeUndoable(TDGcommand& cmd, const std::string& type, const std::string& name,
                                TdependNode* parent = nullptr);
// Deletes nodes undoably, shapes under deleted transforms included.
void deleteNodesUndoable(TDGcommand& cmd, const std::vector<TdependNode*>& nodes);
// Reads an OBJ file into new mesh shapes (undoably); the names made, transform then shape.
std::vector<std::string> importObj(TDGcommand& cmd, const std::string& path);
