#include "Commands/Scene/TdynAuxiliaryCmd.h"

void TdynAuxiliaryCmd::addAuxiliaryFlags(Tsyntax& s) {
    using T = TargType;
    s.addFlag("pos", "position", {T::Double, T::Double, T::Double});
    s.addFlag("n", "name", {T::String});
}

bool TdynAuxiliaryCmd::parseAuxiliaryFlags(const TargDatabase& db) {
    getFlagArg(db, "pos", "position", fPosition, fPositionSet);
    bool set = false;
    getFlagArg(db, "n", "name", fName, set);
    if (set && fName.find_first_of(" |.*?[]") != std::string::npos) {
        engine().displayError(db.commandName() + ": '" + fName + "' is not a usable node name");
        return false;
    }
    return true;
}
