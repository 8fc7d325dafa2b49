#pragma once
// The frame of every field command: the flags all fields share, creation with
// the command's own defaults, connection to selected particle objects (or
// ownership by a selected geometry), edit with undo, and query.

#include "Commands/Scene/TdynAuxiliaryCmd.h"

#include <limits>
#include <utility>
#include <vector>

class TdynField;

// One flag of a field command and the attributes it writes.
struct TdynFieldFlag {
    enum Kind {
        kDouble,   // one number into attrs[0]
        kBool,     // on/off into attrs[0]
        kInt,      // a whole number into attrs[0]
        kTriple,   // three numbers into attrs[0..2]
        kAllThree, // one number into each of attrs[0..2]
    };
    const char* shortName;
    const char* longName;
    Kind kind;
    const char* attrs[3];
    double low = -std::numeric_limits<double>::infinity();
    double high = std::numeric_limits<double>::infinity();
};

class TdynStandardFieldCmd : public TdynAuxiliaryCmd {
public:
    using Values = std::vector<std::pair<std::string, double>>;

protected:
    // ---- what a field command supplies ----
    virtual const char* fieldTypeName() const = 0;
    // "gravityField" for nodes named gravityField1, gravityField2 ...
    virtual const char* baseName() const = 0;
    virtual std::vector<TdynFieldFlag> ownFlags() const { return {}; }
    // The command's creation defaults (they override the node's).
    virtual Values creationDefaults(const TargDatabase& db) const = 0;
    // Extra flags of the syntax (presets); read before the value flags.
    virtual void addExtraFlags(Tsyntax&) const {}
    virtual bool applyPresets(const TargDatabase&, Values&) { return true; }
    // A query of a flag the class handles itself; true when handled (or failed, with `ok` false).
    // After the node is made (or comes back on redo).
    virtual void fieldMade(TdynField*) {}
    virtual bool queryExtra(const TargDatabase&, TdynField*, bool& ok) { return ok = true, false; }

    // ---- the cycle ----
    std::unique_ptr<Tsyntax> newSyntax() override;
    int parseEditOrNew(const TargDatabase& db) override;
    int queryActions(const TargDatabase& db) override;
    int doRedoIt() override;
    int doUndoIt() override;
    int redoCheck() override { return 0; }
    int afterFirstRedo() override { return 0; }

    static void set(Values& v, const std::string& attr, double value);
    // v, or the end of the flag's range it lies beyond (with a warning saying so).
    double inRange(const std::string& cmd, const TdynFieldFlag& f, double v);
    static void writeValues(TdynField* field, const Values& values);

private:
    bool parseValueFlags(const TargDatabase& db, Values& out);
    int createField();
    std::vector<TdynFieldFlag> allFlags() const;

    Values fValues;
    // Edit mode: the fields and what each held before.
    std::vector<TdynField*> fTargets;
    std::vector<Values> fOld;
    // Creation: the node and what it was joined to, kept across undo and redo.
    TdynField* fField = nullptr;
    std::unique_ptr<TdependNode> fDetached;
    std::vector<TdependNode*> fClients;
    TdependNode* fOwner = nullptr;
};
