#include "Commands/Scene/TdynCmd.h"

#include "Host/Dag/Tshape.h"
#include "Host/Dag/Ttransform.h"

#include <algorithm>

namespace {
// The texts behind the frame's message numbers.
const bool kMessages = [] {
    TmessageTable::set(kNoActiveModelMessage, "no scene is open");
    TmessageTable::set(kSelectionMessage, "the selection could not be read");
    return true;
}();
} // namespace

TdynCmd::TdynCmd() = default;
TdynCmd::~TdynCmd() = default;

int TdynCmd::doIt(const TargList& args) {
    engine().clearResult();
    fModel = TmodelList::activeModel();
    if (!fModel) {
        engine().displayError(kNoActiveModelMessage);
        throw TfailedException(-1);
    }
    if (int r = fSelection.remember(); r != 0) {
        engine().displayError(kSelectionMessage);
        throw TfailedException(r);
    }
    int status = parseArgs(args);
    if (status != 0) throw TfailedException(status);
    if (!fQueryMode) {
        status = redoIt();
        if (status == 0) status = afterFirstRedo();
    } else {
        // A query leaves nothing to undo.
        setOkayForUndo(false, 0);
    }
    return status;
}

int TdynCmd::parseArgs(const TargList& args) {
    return parseWith(args);
}

int TdynCmd::parseWith(const TargList& args) {
    std::unique_ptr<Tsyntax> syntax = newSyntax();
    if (!syntax) return -1;
    TargDatabase db;
    if (int r = db.parse(*syntax, args); r != 0) return r;
    if (int r = buildObjectList(db); r < 0) return r;
    if (int r = objectListActions(db); r != 0) return r;
    if (db.isQuery()) {
        fQueryMode = true;
        if (parseQuery(db) == 0) queryActions(db);
        return 0;
    }
    if (db.isEdit()) {
        fEditMode = true;
        saveLastValues();
    }
    int r = parseEditOrNew(db);
    if (r == 0) r = editOrNewActions(db);
    return r;
}

int TdynCmd::redoIt() {
    if (int r = redoCheck(); r != 0) return r;
    if (fQueryMode) {
        setUndone(false);
        return 0;
    }
    if (fEditMode && isUndone()) swapLastValues();
    setValues();
    int r = doRedoIt();
    setUndone(false);
    return r;
}

int TdynCmd::undoIt() {
    if (fQueryMode) {
        setUndone(true);
        return 0;
    }
    if (fEditMode) {
        swapLastValues();
        setValues();
    }
    int r = doUndoIt();
    setUndone(true);
    if (fSelection.restore() != 0) r = -1;
    return r;
}

int TdynCmd::setUpInteractive() {
    fModel = TmodelList::activeModel();
    if (!fModel) {
        engine().displayError(kNoActiveModelMessage);
        return -1;
    }
    if (int r = fSelection.remember(); r != 0) {
        engine().displayError(kSelectionMessage);
        return r;
    }
    setInteractive(true);
    return doSetUpInteractive();
}

int TdynCmd::cancel() {
    return 0;
}

int TdynCmd::finalize() {
    TundoManager& undo = engine().undoManager();
    undo.openChunk(argList());
    displayCommand();
    setCommitted(true);
    undo.storeCommand(this);
    undo.closeChunk();
    return doFinalize();
}

std::unique_ptr<Tsyntax> TdynCmd::newSyntax() {
    return std::make_unique<Tsyntax>();
}

int TdynCmd::buildObjectList(const TargDatabase& db) {
    resetObjectLists();
    for (const std::string& name : db.objects()) {
        if (fStringsOnly) {
            fStrings.push_back(name);
            continue;
        }
        for (TdependNode* n : fModel->findMatches(name)) {
            if (!acceptObject(n)) continue;
            fItems.push_back(n);
            if (auto* dag = TdagObject::cast(n)) {
                fObjects.push_back(dag);
                fStrings.push_back(dag->fullPathName());
            }
        }
    }
    return static_cast<int>(fStringsOnly ? fStrings.size() : fItems.size());
}

void TdynCmd::resetObjectLists() {
    fItems.clear();
    fObjects.clear();
    fStrings.clear();
}

// ---- flags ----

namespace {
const char* given(const TargDatabase& db, const char* s, const char* l) {
    if (db.isFlagSet(l)) return l;
    if (db.isFlagSet(s)) return s;
    return nullptr;
}
} // namespace

bool TdynCmd::isFlagSet(const TargDatabase& db, const char* s, const char* l) {
    return given(db, s, l) != nullptr;
}

bool TdynCmd::queryFlag(const TargDatabase& db, const char* s, const char* l, const TscriptValue& value) {
    if (!given(db, s, l)) return false;
    TcommandEngine::current().clearResult();
    TcommandEngine::current().setResult(value);
    return true;
}

bool TdynCmd::getFlagArg(const TargDatabase& db, const char* s, const char* l, double& value, bool& set) {
    const char* f = given(db, s, l);
    if (!f || !db.getFlagArgument(f, 0, value)) return false;
    set = true;
    return true;
}
bool TdynCmd::getFlagArg(const TargDatabase& db, const char* s, const char* l, int& value, bool& set) {
    const char* f = given(db, s, l);
    if (!f || !db.getFlagArgument(f, 0, value)) return false;
    set = true;
    return true;
}
bool TdynCmd::getFlagArg(const TargDatabase& db, const char* s, const char* l, bool& value, bool& set) {
    const char* f = given(db, s, l);
    if (!f || !db.getFlagArgument(f, 0, value)) return false;
    set = true;
    return true;
}
bool TdynCmd::getFlagArg(const TargDatabase& db, const char* s, const char* l, std::string& value,
                         bool& set) {
    const char* f = given(db, s, l);
    if (!f || !db.getFlagArgument(f, 0, value)) return false;
    set = true;
    return true;
}
bool TdynCmd::getFlagArg(const TargDatabase& db, const char* s, const char* l, T4dDblVector& value,
                         bool& set) {
    const char* f = given(db, s, l);
    if (!f || db.flagArgumentCount(f) < 3) return false;
    value = {db.flagArgumentDouble(f, 0, 0), db.flagArgumentDouble(f, 0, 1), db.flagArgumentDouble(f, 0, 2)};
    set = true;
    return true;
}

bool TdynCmd::displayErrorIfSet(const TargDatabase& db, const char* s, const char* l, const char* mode) {
    if (!given(db, s, l)) return false;
    TcommandEngine::current().displayError(db.commandName() + ": -" + l + " cannot be used in " + mode +
                                           " mode");
    return true;
}

// ---- syntax helpers ----

void TdynCmd::makeSyntaxEditQuery(Tsyntax& s) {
    s.enableQuery();
    s.enableEdit();
}
void TdynCmd::makeDefaultObjectListSelection(Tsyntax& s) {
    s.setObjectKind(Tsyntax::ObjectKind::Objects, 0);
    s.useSelectionAsDefault(true);
}
void TdynCmd::makeDefaultObjectListNone(Tsyntax& s) {
    s.setObjectKind(Tsyntax::ObjectKind::None);
}
void TdynCmd::makeArrayTypeObjects(Tsyntax& s) {
    s.setObjectKind(Tsyntax::ObjectKind::Objects, 0);
    fStringsOnly = false;
}
void TdynCmd::makeArrayTypeStrings(Tsyntax& s) {
    s.setObjectKind(Tsyntax::ObjectKind::Strings, 0);
    fStringsOnly = true;
}

// ---- object helpers ----

bool TdynCmd::objectExists(const std::string& name) {
    return findObject(name) != nullptr;
}

TdependNode* TdynCmd::findObject(const std::string& name) {
    Tmodel* m = TmodelList::activeModel();
    if (!m) return nullptr;
    auto found = m->findMatches(name);
    return found.empty() ? nullptr : found.front();
}

TdependNode* TdynCmd::findObjectFromList(const std::string& name) const {
    for (TdependNode* n : fItems)
        if (n->name() == name) return n;
    return nullptr;
}

void TdynCmd::traverseTransformHierarchy(TdagObject* object, std::vector<TdagObject*>& shapes) {
    for (TdagObject* c : object->childObjects()) {
        if (isObjectAShape(c))
            shapes.push_back(c);
        else
            traverseTransformHierarchy(c, shapes);
    }
}

std::vector<TdagObject*> TdynCmd::findDagObjectShapes(TdagObject* object) {
    std::vector<TdagObject*> shapes;
    if (isObjectAShape(object))
        shapes.push_back(object);
    else
        traverseTransformHierarchy(object, shapes);
    return shapes;
}

std::vector<TdependNode*> TdynCmd::findSelectedNodes(const Tmetaclass& type) const {
    std::vector<TdependNode*> out;
    auto add = [&](TdependNode* n) {
        if (n->isA(type) && std::find(out.begin(), out.end(), n) == out.end()) out.push_back(n);
    };
    for (TdependNode* n : fItems) {
        add(n);
        if (auto* dag = TdagObject::cast(n))
            for (TdagObject* s : findDagObjectShapes(dag))
                add(s);
    }
    return out;
}

bool TdynCmd::isObjectAShape(const TdependNode* n) {
    return n && n->typeof().derivesFrom(Tshape::sMetaclass());
}
bool TdynCmd::isObjectATransform(const TdependNode* n) {
    return n && n->typeof().derivesFrom(Ttransform::sMetaclass());
}

std::vector<int> TdynCmd::indexArrayForName(const std::vector<std::string>& names, const std::string& name) {
    std::vector<int> out;
    for (std::size_t i = 0; i < names.size(); ++i)
        if (names[i] == name) out.push_back(static_cast<int>(i));
    return out;
}
