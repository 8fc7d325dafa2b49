#pragma once
// Creation of an auxiliary node (field, emitter ...): the frame adds -position
// and -name to the dynamics command cycle.

#include "Commands/Scene/TdynCmd.h"

class TdynAuxiliaryCmd : public TdynCmd {
protected:
    // Adds -position (-pos) and -name (-n).
    static void addAuxiliaryFlags(Tsyntax& s);
    // Reads them; false (with a message) for a bad value.
    bool parseAuxiliaryFlags(const TargDatabase& db);

    bool fPositionSet = false;
    T4dDblVector fPosition;
    std::string fName;
};
