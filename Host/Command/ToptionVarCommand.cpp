// optionVar: session preferences by name.

#include "Host/Command/TargDatabase.h"
#include "Host/Command/TcommandEngine.h"
#include "Host/Command/TmetaCommand.h"
#include "Host/Command/ToptionVars.h"

namespace {

class ToptionVarAction : public TmetaCommand {
public:
    using TmetaCommand::TmetaCommand;

    static Tsyntax syntax() {
        Tsyntax s;
        s.addFlag("iv", "intValue", {TargType::String, TargType::Int});
        s.addFlag("fv", "floatValue", {TargType::String, TargType::Double});
        s.addFlag("sv", "stringValue", {TargType::String, TargType::String});
        s.addFlag("iva", "intValueAppend", {TargType::String, TargType::Int});
        s.addFlag("fva", "floatValueAppend", {TargType::String, TargType::Double});
        s.addFlag("sva", "stringValueAppend", {TargType::String, TargType::String});
        s.addFlag("rm", "remove", {TargType::String});
        s.addFlag("q", "query", {TargType::String});
        s.addFlag("ex", "exists", {TargType::String});
        s.addFlag("l", "list");
        for (const char* flag : {"iv", "fv", "sv", "iva", "fva", "sva", "rm"})
            s.makeFlagMultiUse(flag);
        return s;
    }

    int doIt(const TargList& args) override {
        TargDatabase db(syntax(), args);
        TcommandEngine& engine = TcommandEngine::current();
        for (std::size_t i = 0; i < db.flagUseCount("remove"); ++i)
            ToptionVars::remove(db.flagArgumentString("rm", i));
        for (std::size_t i = 0; i < db.flagUseCount("iv"); ++i)
            ToptionVars::setInt(db.flagArgumentString("iv", i, 0), db.flagArgumentInt("iv", i, 1));
        for (std::size_t i = 0; i < db.flagUseCount("fv"); ++i)
            ToptionVars::setFloat(db.flagArgumentString("fv", i, 0), db.flagArgumentDouble("fv", i, 1));
        for (std::size_t i = 0; i < db.flagUseCount("sv"); ++i)
            ToptionVars::setString(db.flagArgumentString("sv", i, 0), db.flagArgumentString("sv", i, 1));
        for (std::size_t i = 0; i < db.flagUseCount("iva"); ++i)
            ToptionVars::appendInt(db.flagArgumentString("iva", i, 0), db.flagArgumentInt("iva", i, 1));
        for (std::size_t i = 0; i < db.flagUseCount("fva"); ++i)
            ToptionVars::appendFloat(db.flagArgumentString("fva", i, 0), db.flagArgumentDouble("fva", i, 1));
        for (std::size_t i = 0; i < db.flagUseCount("sva"); ++i)
            ToptionVars::appendString(db.flagArgumentString("sva", i, 0), db.flagArgumentString("sva", i, 1));

        if (db.isFlagSet("query")) {
            // An unknown name reads as 0, so scripts can test it like a flag.
            TscriptValue value = ToptionVars::value(db.flagArgumentString("query"));
            engine.setResult(value.isNone() ? TscriptValue(0) : value);
        } else if (db.isFlagSet("exists")) {
            engine.setResult(ToptionVars::exists(db.flagArgumentString("exists")));
        } else if (db.isFlagSet("list")) {
            engine.setResult(ToptionVars::names());
        }
        return 0;
    }
};

} // namespace

MOTILANE_REGISTER_COMMAND("optionVar", ToptionVarAction);
