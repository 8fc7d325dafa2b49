// help COMMAND: what a command accepts; help with no name: every command.

#include "Host/Command/TargDatabase.h"
#include "Host/Command/TcommandEngine.h"
#include "Host/Command/TmetaCommand.h"

#include <sstream>

namespace {

const char* typeName(TargType t) {
    switch (t) {
    case TargType::Bool:
        return "on|off";
    case TargType::Int:
        return "INT";
    case TargType::Double:
        return "NUMBER";
    case TargType::String:
        return "STRING";
    case TargType::Time:
        return "FRAME";
    }
    return "VALUE";
}

// The command's syntax, found by letting it build its argument database and stopping it there.
bool probe(TmetaCommand& meta, Tsyntax& out) {
    TsyntaxProbe p;
    const TargList args(meta.name(), {});
    try {
        if (std::unique_ptr<TcommandObject> command = meta.create())
            command->doIt(args);
        else
            meta.doIt(args);
    } catch (const TsyntaxProbed&) {
    } catch (const std::exception&) {
        // A command that checks something before its arguments has nothing to show here.
    }
    if (!p.found()) return false;
    out = p.syntax();
    return true;
}

class ThelpAction : public TmetaCommand {
public:
    using TmetaCommand::TmetaCommand;
    int doIt(const TargList& args) override {
        Tsyntax s;
        s.setObjectKind(Tsyntax::ObjectKind::Strings, 0, 1);
        TargDatabase db(s, args);
        TcommandEngine& engine = TcommandEngine::current();
        if (db.objects().empty()) {
            engine.setResult(engine.commandNames());
            return 0;
        }
        const std::string name = db.objects()[0];
        TmetaCommand* meta = engine.findCommand(name);
        if (!meta) throw TargError("help: no command named '" + name + "'");
        Tsyntax syntax;
        if (!probe(*meta, syntax)) throw TargError("help: " + name + " does not describe its flags");
        // One line a flag: short and long name, then what it takes.
        std::vector<std::string> lines{
            "Synopsis: " + name + " [flags]" +
            (syntax.objectKind() != Tsyntax::ObjectKind::None ? " [objects]" : "")};
        for (const TflagInfo& f : syntax.flags()) {
            std::string line = "  -" + f.shortName;
            if (!f.longName.empty() && f.longName != f.shortName) line += " -" + f.longName;
            for (TargType t : f.types)
                line += std::string(" ") + typeName(t);
            if (f.multiUse) line += " (more than once)";
            lines.push_back(line);
        }
        if (syntax.objectKind() != Tsyntax::ObjectKind::None) {
            std::string objects = syntax.minObjects() > 0
                                      ? "objects: at least " + std::to_string(syntax.minObjects())
                                      : "objects: any number";
            if (syntax.selectionAsDefault()) objects += ", the selection when none are named";
            lines.push_back(objects);
        }
        std::string text;
        for (const std::string& l : lines)
            text += l + "\n";
        engine.output(text);
        return 0;
    }
};

MOTILANE_REGISTER_COMMAND("help", ThelpAction);

} // namespace
