#pragma once
// The life cycle every creating and editing dynamics command shares: parse,
// gather objects, act, undo, redo. A command class fills in its flags and
// actions; an edit keeps the values it replaced and swaps them on undo and redo.

#include "Host/Command/TargDatabase.h"
#include "Host/Command/TcommandEngine.h"
#include "Host/Command/TcommandObject.h"
#include "Host/Dag/TdagObject.h"
#include "Host/Dag/Tmodel.h"
#include "Host/Math/T4dDblVector.h"

#include <memory>
#include <string>
#include <vector>

class TdynCmd : public TtoolCommandObject {
public:
    TdynCmd();
    ~TdynCmd() override;

    int doIt(const TargList& args) override;
    int redoIt() override;
    int undoIt() override;

    virtual int setUpInteractive();
    virtual int cancel();
    virtual int finalize();

    bool isQueryMode() const { return fQueryMode; }
    bool isEditMode() const { return fEditMode; }

    unsigned itemCount() const { return static_cast<unsigned>(fItems.size()); }
    unsigned objectCount() const { return static_cast<unsigned>(fObjects.size()); }
    unsigned stringCount() const { return static_cast<unsigned>(fStrings.size()); }
    TdependNode* item(unsigned i) const { return fItems[i]; }
    TdagObject* object(unsigned i) const { return fObjects[i]; }
    const std::string& string(unsigned i) const { return fStrings[i]; }

    // Flag helpers, each given the short and the long flag.
    static bool isFlagSet(const TargDatabase& db, const char* shortFlag, const char* longFlag);
    static bool queryFlag(const TargDatabase& db, const char* shortFlag, const char* longFlag,
                          const TscriptValue& value);
    static bool getFlagArg(const TargDatabase& db, const char* shortFlag, const char* longFlag, double& value,
                           bool& set);
    static bool getFlagArg(const TargDatabase& db, const char* shortFlag, const char* longFlag, int& value,
                           bool& set);
    static bool getFlagArg(const TargDatabase& db, const char* shortFlag, const char* longFlag, bool& value,
                           bool& set);
    static bool getFlagArg(const TargDatabase& db, const char* shortFlag, const char* longFlag,
                           std::string& value, bool& set);
    static bool getFlagArg(const TargDatabase& db, const char* shortFlag, const char* longFlag,
                           T4dDblVector& value, bool& set);
    // An error for a flag the present mode does not allow; true if it was set.
    static bool displayErrorIfSet(const TargDatabase& db, const char* shortFlag, const char* longFlag,
                                  const char* mode);
    template <class T> static void swap(T& a, T& b) {
        T t = a;
        a = b;
        b = t;
    }

protected:
    // Step overrides of the cycle; the defaults do nothing and succeed.
    virtual int doRedoIt() { return 0; }
    virtual int doUndoIt() { return 0; }
    virtual int doSetUpInteractive() { return 0; }
    virtual int doFinalize() { return 0; }
    // The command's syntax; null when it cannot be made.
    virtual std::unique_ptr<Tsyntax> newSyntax();
    virtual int parseArgs(const TargList& args);
    virtual int parseEditOrNew(const TargDatabase&) { return 0; }
    virtual int editOrNewActions(const TargDatabase&) { return 0; }
    virtual int parseQuery(const TargDatabase&) { return 0; }
    virtual int queryActions(const TargDatabase&) { return 0; }
    virtual int doInitialize() { return 0; }
    virtual void saveLastValues() {}
    virtual void swapLastValues() {}
    virtual void setValues() {}
    virtual int buildObjectList(const TargDatabase& db);
    virtual int objectListActions(const TargDatabase&) { return 0; }
    // The check that comes first in redoIt, and the step after the first successful redoIt.
    virtual int redoCheck() = 0;
    virtual int afterFirstRedo() = 0;
    // Whether a found node belongs in the object list (the class's object type).
    virtual bool acceptObject(TdependNode*) const { return true; }

    // Syntax helpers.
    static void makeSyntaxEditQuery(Tsyntax& s);
    void makeDefaultObjectListSelection(Tsyntax& s);
    void makeDefaultObjectListNone(Tsyntax& s);
    void makeArrayTypeObjects(Tsyntax& s);
    void makeArrayTypeStrings(Tsyntax& s);

    // Object helpers.
    void resetObjectLists();
    static bool objectExists(const std::string& name);
    static TdependNode* findObject(const std::string& name);
    TdependNode* findObjectFromList(const std::string& name) const;
    // Shapes of the given class under the listed objects (the objects themselves if they are such shapes).
    std::vector<TdependNode*> findSelectedNodes(const Tmetaclass& type) const;
    static std::vector<TdagObject*> findDagObjectShapes(TdagObject* object);
    static void traverseTransformHierarchy(TdagObject* object, std::vector<TdagObject*>& shapes);
    static bool isObjectAShape(const TdependNode* node);
    static bool isObjectATransform(const TdependNode* node);
    static std::vector<int> indexArrayForName(const std::vector<std::string>& names, const std::string& name);

    Tmodel* model() const { return fModel; }
    TcommandEngine& engine() const { return TcommandEngine::current(); }

private:
    int parseWith(const TargList& args);

    Tmodel* fModel = nullptr;
    bool fQueryMode = false;
    bool fEditMode = false;
    bool fStringsOnly = false;
    std::vector<TdependNode*> fItems;
    std::vector<TdagObject*> fObjects;
    std::vector<std::string> fStrings;
    TselectionSnapshot fSelection;
};

// The texts of the module's numbered messages the frame uses.
constexpr int kNoActiveModelMessage = 1818;
constexpr int kSelectionMessage = 4787;
