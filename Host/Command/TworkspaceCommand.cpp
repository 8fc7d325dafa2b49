// workspace: the project root and its file rules.

#include "Host/Command/TargDatabase.h"
#include "Host/Command/TcommandEngine.h"
#include "Host/Command/TmetaCommand.h"
#include "Host/Command/TworkspaceRoot.h"

namespace {

class TworkspaceAction : public TmetaCommand {
public:
    using TmetaCommand::TmetaCommand;

    static Tsyntax syntax() {
        Tsyntax s;
        s.enableQuery();
        s.addFlag("rd", "rootDirectory", {TargType::String});
        s.addFlag("fr", "fileRule", {TargType::String, TargType::String});
        s.makeFlagQueryWithArgs("fileRule", 1);
        s.addFlag("frl", "fileRuleList");
        return s;
    }

    int doIt(const TargList& args) override {
        TargDatabase db(syntax(), args);
        TcommandEngine& engine = TcommandEngine::current();
        if (db.isQuery()) {
            if (db.isFlagSet("rootDirectory")) {
                engine.setResult(TworkspaceRoot::get());
            } else if (db.isFlagSet("fileRule")) {
                std::string rule = db.flagArgumentString("fileRule");
                std::string dir = TworkspaceRoot::fileRule(rule);
                if (dir.empty()) engine.displayWarning("workspace: no file rule '" + rule + "'");
                engine.setResult(dir);
            } else if (db.isFlagSet("fileRuleList")) {
                engine.setResult(TworkspaceRoot::fileRuleNames());
            } else {
                throw TargError("workspace: nothing to query");
            }
            return 0;
        }
        if (db.isFlagSet("rootDirectory")) {
            std::string dir = db.flagArgumentString("rootDirectory");
            if (dir.empty()) throw TargError("workspace: flag '-rootDirectory' expects a directory, got ''");
            TworkspaceRoot::set(dir);
            engine.setResult(TworkspaceRoot::get());
        }
        if (db.isFlagSet("fileRule")) {
            std::string rule = db.flagArgumentString("fileRule", 0, 0);
            if (rule.empty()) throw TargError("workspace: flag '-fileRule' expects a rule name, got ''");
            TworkspaceRoot::setFileRule(rule, db.flagArgumentString("fileRule", 0, 1));
        }
        return 0;
    }
};

} // namespace

MOTILANE_REGISTER_COMMAND("workspace", TworkspaceAction);
