// event: makes, edits, queries, lists and deletes the collision events of
// particle objects. An event is one element of the object's event table; it is
// found by -name or by -idNumber (its element).

#include "Commands/Particles/TdynParticleShape.h"
#include "Commands/Scene/TdynCmd.h"
#include "Commands/Scene/TdynStatic.h"

#include <algorithm>
#include <optional>

namespace {

// One element of the event table, as read or to be written.
struct TeventValues {
    Tstring name;
    bool valid = false;
    int count = 0, emit = 0, split = 0;
    bool die = false, random = false;
    double spread = 0.0;
    Tstring proc;
    TdynParticleShape* target = nullptr;
};

Tstring stringAt(TdynParticleShape* p, const Tattribute* a, int e) {
    Tdata d;
    if (!p->getAttributeValue(a, d, e)) return {};
    const auto* s = d.as<TdataString>();
    return s ? s->string() : Tstring();
}
double numberAt(TdynParticleShape* p, const Tattribute* a, int e) {
    double v = 0;
    p->getAttributeValue(a, v, e);
    return v;
}

TeventValues readEvent(TdynParticleShape* p, int e) {
    auto* vs = TdynParticleShape::sVsData();
    TeventValues v;
    v.name = stringAt(p, vs->eventName, e);
    v.valid = numberAt(p, vs->eventValid, e) != 0;
    v.count = static_cast<int>(numberAt(p, vs->eventCount, e));
    v.emit = static_cast<int>(numberAt(p, vs->eventEmit, e));
    v.split = static_cast<int>(numberAt(p, vs->eventSplit, e));
    v.die = numberAt(p, vs->eventDie, e) != 0;
    v.random = numberAt(p, vs->eventRandom, e) != 0;
    v.spread = numberAt(p, vs->eventSpread, e);
    v.proc = stringAt(p, vs->eventProc, e);
    v.target = p->eventTargetObject(e);
    return v;
}

void writeEvent(TdynParticleShape* p, int e, const TeventValues& v) {
    auto* vs = TdynParticleShape::sVsData();
    p->setAttributeValue(vs->eventName, makeData<TdataString>(v.name), e);
    p->setAttributeValue(vs->eventValid, v.valid ? 1.0 : 0.0, e);
    p->setAttributeValue(vs->eventCount, v.count, e);
    p->setAttributeValue(vs->eventEmit, v.emit, e);
    p->setAttributeValue(vs->eventSplit, v.split, e);
    p->setAttributeValue(vs->eventDie, v.die ? 1.0 : 0.0, e);
    p->setAttributeValue(vs->eventRandom, v.random ? 1.0 : 0.0, e);
    p->setAttributeValue(vs->eventSpread, v.spread, e);
    p->setAttributeValue(vs->eventProc, makeData<TdataString>(v.proc), e);
    TdependGraph& g = TdependGraph::current();
    const Tplug dst(p, vs->eventTarget, e);
    const Tplug src = dst.source();
    if (!src.isNull() && (!v.target || src.node() != v.target)) g.disconnect(src, dst);
    if (v.target && (src.isNull() || src.node() != v.target))
        g.connect(Tplug(v.target, &v.target->vsData()->message), dst, true);
}

// The per-particle hit counter the events read, with its initial state.
void addEventCounter(TdynParticleShape* p) {
    for (const char* n : {"event", "event0"}) {
        if (p->attribute(n)) continue;
        p->addAttribute(
            std::make_unique<TattributeTyped>(n, n, makeIffTag("EVNT"), TdataDoubleArray::sClass));
    }
}

} // namespace

class TdynEventCmd : public TdynCmd {
protected:
    std::unique_ptr<Tsyntax> newSyntax() override {
        auto s = std::make_unique<Tsyntax>();
        makeSyntaxEditQuery(*s);
        makeDefaultObjectListSelection(*s);
        using T = TargType;
        s->addFlag("d", "delete");
        s->addFlag("t", "target", {T::String});
        s->addFlag("spl", "split", {T::Int});
        s->addFlag("em", "emit", {T::Int});
        s->addFlag("die", "dieAtCollision", {T::Bool});
        s->addFlag("r", "random", {T::Bool});
        s->addFlag("ct", "count", {T::Int});
        s->addFlag("sp", "spread", {T::Double});
        s->addFlag("n", "name", {T::String});
        s->addFlag("re", "rename", {T::String});
        s->addFlag("pr", "proc", {T::String});
        s->addFlag("ls", "list");
        s->addFlag("s", "select");
        s->addFlag("id", "idNumber", {T::Int});
        // In a query the event is still named.
        s->makeFlagQueryWithArgs("n", 1);
        s->makeFlagQueryWithArgs("id", 1);
        return s;
    }

    int objectListActions(const TargDatabase& db) override {
        fShapes.clear();
        for (TdependNode* n : findSelectedNodes(TdynParticleShape::sMetaclass()))
            fShapes.push_back(TdynParticleShape::cast(n));
        if (fShapes.empty()) {
            engine().displayError("event: name a particle object (or select one)");
            return -1;
        }
        fList = isFlagSet(db, "ls", "list");
        if (fList) {
            std::vector<Tstring> names;
            for (TdynParticleShape* p : fShapes)
                p->appendEventNames(names);
            engine().setResult(names);
            // A listing changes nothing: it must not take the slot an undo would use.
            setOkayForUndo(false, 0);
        }
        return 0;
    }

    int parseQuery(const TargDatabase& db) override {
        if (fList) return 1;
        return findEvent(db, fShapes.front(), fElement) ? 0 : -1;
    }

    int queryActions(const TargDatabase& db) override {
        if (fElement < 0) {
            std::vector<Tstring> names;
            fShapes.front()->appendEventNames(names);
            engine().setResult(names);
            return 0;
        }
        const TeventValues v = readEvent(fShapes.front(), fElement);
        if (queryFlag(db, "t", "target", TscriptValue(v.target ? v.target->name() : Tstring()))) return 0;
        if (queryFlag(db, "spl", "split", TscriptValue(v.split))) return 0;
        if (queryFlag(db, "em", "emit", TscriptValue(v.emit))) return 0;
        if (queryFlag(db, "die", "dieAtCollision", TscriptValue(v.die))) return 0;
        if (queryFlag(db, "r", "random", TscriptValue(v.random))) return 0;
        if (queryFlag(db, "ct", "count", TscriptValue(v.count))) return 0;
        if (queryFlag(db, "sp", "spread", TscriptValue(v.spread))) return 0;
        if (queryFlag(db, "pr", "proc", TscriptValue(v.proc))) return 0;
        engine().setResult(v.name);
        return 0;
    }

    int parseEditOrNew(const TargDatabase& db) override {
        if (fList) return 0;
        fDelete = isFlagSet(db, "d", "delete");
        bool set = false;
        std::string s;
        if (getFlagArg(db, "t", "target", s, set)) {
            TdependNode* n = findObject(s);
            TdagObject* dag = n ? TdagObject::cast(n) : nullptr;
            TdagObject* dyn = dag ? TdynStatic::dynamicObject(dag) : nullptr;
            TdynParticleShape* target = dyn ? TdynParticleShape::cast(dyn) : nullptr;
            if (!target) {
                engine().displayError("event: the target '" + s + "' is not a particle object");
                return -1;
            }
            fSet.target = target;
        }
        int i = 0;
        if (set = false; getFlagArg(db, "spl", "split", i, set)) fSet.split = i;
        if (set = false; getFlagArg(db, "em", "emit", i, set)) fSet.emit = i;
        if (set = false; getFlagArg(db, "ct", "count", i, set)) fSet.count = i;
        bool b = false;
        if (set = false; getFlagArg(db, "die", "dieAtCollision", b, set)) fSet.die = b;
        if (set = false; getFlagArg(db, "r", "random", b, set)) fSet.random = b;
        double d = 0;
        if (set = false; getFlagArg(db, "sp", "spread", d, set)) fSet.spread = d;
        if (set = false; getFlagArg(db, "pr", "proc", s, set)) fSet.proc = s;
        if (set = false; getFlagArg(db, "re", "rename", s, set)) fRename = s;
        if (set = false; getFlagArg(db, "n", "name", s, set)) fName = s;
        if (set = false; getFlagArg(db, "id", "idNumber", i, set)) fId = i;
        fSelect = isFlagSet(db, "s", "select");
        for (const auto& [value, what] :
             {std::pair{fSet.split, "split"}, {fSet.emit, "emit"}, {fSet.count, "count"}})
            if (value && *value < 0) {
                engine().displayError(std::string("event: -") + what + " cannot be negative");
                return -1;
            }
        // Every hit makes this many: bounded as an emitter's births a step are.
        for (const auto& [value, what] : {std::pair{fSet.split, "split"}, {fSet.emit, "emit"}})
            if (value && *value > TdynParticleShape::kMostBirthsPerHit) {
                engine().displayError(
                    std::string("event: -") + what + " " + std::to_string(*value) + " is more than the " +
                    std::to_string(TdynParticleShape::kMostBirthsPerHit) + " particles a hit can make");
                return -1;
            }
        if (fRename && (fRename->empty() || (!isEditMode() && !fDelete))) {
            engine().displayError("event: -rename needs edit mode and a new name");
            return -1;
        }
        // Editing and deleting need the event to exist on every object; making one needs a free name.
        for (TdynParticleShape* p : fShapes) {
            int e = -1;
            if (isEditMode() || fDelete) {
                if (!findEvent(db, p, e)) return -1;
                if (e < 0) {
                    engine().displayError("event: name the event with -name or -idNumber");
                    return -1;
                }
            } else if (fName) {
                std::vector<Tstring> names;
                p->appendEventNames(names);
                if (std::find(names.begin(), names.end(), *fName) != names.end()) {
                    engine().displayError("event: " + p->name() + " already has an event named '" + *fName +
                                          "'");
                    return -1;
                }
            }
            fTargets.push_back({p, e});
        }
        return 0;
    }

    int doRedoIt() override {
        if (fList) return 0;
        if (!fDone) {
            std::vector<Tstring> result;
            for (Target& t : fTargets) {
                TdynParticleShape* p = t.shape;
                if (t.element < 0) t.element = newEventElement(p);
                t.before = readEvent(p, t.element);
                TeventValues v = t.before;
                if (fDelete) {
                    v = TeventValues();
                } else {
                    if (!t.before.valid) {
                        v = TeventValues();
                        v.name = defaultName(p);
                        v.valid = true;
                    }
                    apply(v);
                    addEventCounter(p);
                }
                writeEvent(p, t.element, v);
                t.after = v;
                result.push_back(v.name);
            }
            updateEventCounts();
            if (!fDelete) engine().setResult(result);
            if (fSelect) {
                std::vector<TdependNode*> nodes(fShapes.begin(), fShapes.end());
                model()->setActiveList(nodes);
            }
            fDone = true;
            return 0;
        }
        for (Target& t : fTargets)
            writeEvent(t.shape, t.element, t.after);
        updateEventCounts();
        return 0;
    }

    int doUndoIt() override {
        for (auto it = fTargets.rbegin(); it != fTargets.rend(); ++it)
            writeEvent(it->shape, it->element, it->before);
        updateEventCounts();
        return 0;
    }

    int redoCheck() override { return 0; }
    int afterFirstRedo() override { return 0; }

private:
    struct Changes {
        std::optional<int> count, emit, split;
        std::optional<bool> die, random;
        std::optional<double> spread;
        std::optional<Tstring> proc;
        std::optional<TdynParticleShape*> target;
    };
    struct Target {
        TdynParticleShape* shape;
        int element;
        TeventValues before{}, after{};
    };

    // The event named by -name or -idNumber on `p`; -1 when neither was given. False (with a message)
    // when the named one does not exist.
    bool findEvent(const TargDatabase& db, TdynParticleShape* p, int& element) {
        element = -1;
        std::string name;
        int id = -1;
        bool set = false;
        if (getFlagArg(db, "id", "idNumber", id, set)) {
            if (id < 0 || !readEvent(p, id).valid) {
                engine().displayError("event: " + p->name() + " has no event number " + std::to_string(id));
                return false;
            }
            element = id;
            return true;
        }
        if (getFlagArg(db, "n", "name", name, set)) {
            for (int e : p->validEventIndices())
                if (readEvent(p, e).name == name) {
                    element = e;
                    return true;
                }
            engine().displayError("event: " + p->name() + " has no event named '" + name + "'");
            return false;
        }
        return true;
    }

    int newEventElement(TdynParticleShape* p) {
        if (fId && *fId >= 0 && !readEvent(p, *fId).valid) return *fId;
        // A name no event has: getValidEventIndex hands out a free element for it.
        return p->getValidEventIndex(fName ? *fName : Tstring("\x01"));
    }

    Tstring defaultName(TdynParticleShape* p) {
        if (fName) return *fName;
        std::vector<Tstring> names;
        p->appendEventNames(names);
        for (int k = 1;; ++k) {
            Tstring n = "event" + std::to_string(k);
            if (std::find(names.begin(), names.end(), n) == names.end()) return n;
        }
    }

    void apply(TeventValues& v) const {
        if (fSet.count) v.count = *fSet.count;
        if (fSet.emit) v.emit = *fSet.emit;
        if (fSet.split) v.split = *fSet.split;
        if (fSet.die) v.die = *fSet.die;
        if (fSet.random) v.random = *fSet.random;
        if (fSet.spread) v.spread = *fSet.spread;
        if (fSet.proc) v.proc = *fSet.proc;
        if (fSet.target) v.target = *fSet.target;
        if (fRename) v.name = *fRename;
    }

    void updateEventCounts() {
        auto* vs = TdynParticleShape::sVsData();
        for (TdynParticleShape* p : fShapes)
            p->setAttributeValue(vs->numberOfEvents, static_cast<double>(p->validEventIndices().size()));
    }

    std::vector<TdynParticleShape*> fShapes;
    std::vector<Target> fTargets;
    Changes fSet;
    std::optional<Tstring> fName, fRename;
    std::optional<int> fId;
    int fElement = -1;
    bool fList = false, fDelete = false, fSelect = false, fDone = false;
};

MOTILANE_REGISTER_COMMAND("event", TdynEventCmd);
