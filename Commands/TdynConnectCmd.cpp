// connectDynamic: joins fields and emitters (and, once they exist, collision
// objects) to dynamic objects. Everything named is checked before anything is
// connected, so a bad name leaves the scene as it was.

#include "Commands/TdynCmd.h"
#include "Commands/TdynEmitter.h"
#include "Commands/TdynField.h"
#include "Commands/TdynStatic.h"

class TdynConnectCmd : public TdynCmd {
protected:
    std::unique_ptr<Tsyntax> newSyntax() override {
        auto s = std::make_unique<Tsyntax>();
        makeDefaultObjectListSelection(*s);
        using T = TargType;
        s->addFlag("f", "fields", {T::String});
        s->makeFlagMultiUse("f");
        s->addFlag("em", "emitters", {T::String});
        s->makeFlagMultiUse("em");
        s->addFlag("c", "collisions", {T::String});
        s->makeFlagMultiUse("c");
        return s;
    }

    int parseEditOrNew(const TargDatabase& db) override {
        const std::string cmd = db.commandName();
        if (db.flagUseCount("c") != 0) {
            engine().displayError(cmd + ": '" + db.flagArgumentString("c", 0) +
                                  "' is not a collision object");
            return -1;
        }
        if (db.flagUseCount("f") == 0 && db.flagUseCount("em") == 0) {
            engine().displayError(cmd +
                                  ": give the fields to connect with -fields or the emitters with -emitters");
            return -1;
        }
        // Every name must match, and every match must be of the flag's kind.
        auto gather = [&](const char* flag, const char* kind, auto cast, auto& into) {
            for (std::size_t u = 0; u < db.flagUseCount(flag); ++u) {
                const std::string name = db.flagArgumentString(flag, u);
                std::vector<TdependNode*> found = model()->findMatches(name);
                if (found.empty()) {
                    engine().displayError(cmd + ": no object matches '" + name + "'");
                    return false;
                }
                for (TdependNode* n : found) {
                    auto* x = cast(n);
                    if (!x) {
                        engine().displayError(cmd + ": '" + n->name() + "' is not " + kind);
                        return false;
                    }
                    if (std::find(into.begin(), into.end(), x) == into.end()) into.push_back(x);
                }
            }
            return true;
        };
        if (!gather(
                "f", "a field", [](TdependNode* n) { return TdynField::cast(n); }, fFields))
            return -1;
        if (!gather(
                "em", "an emitter", [](TdependNode* n) { return TdynEmitter::cast(n); }, fEmitters))
            return -1;
        for (unsigned i = 0; i < itemCount(); ++i) {
            TdependNode* n = item(i);
            // A field named with -fields and also selected is not a target.
            if (auto* f = TdynField::cast(n);
                f && std::find(fFields.begin(), fFields.end(), f) != fFields.end())
                continue;
            if (auto* e = TdynEmitter::cast(n);
                e && std::find(fEmitters.begin(), fEmitters.end(), e) != fEmitters.end())
                continue;
            auto* dag = TdagObject::cast(n);
            TdagObject* object = dag ? TdynStatic::dynamicObject(dag) : nullptr;
            if (!object) {
                engine().displayError(cmd + ": '" + n->name() + "' is not a dynamic object");
                return -1;
            }
            if (std::find(fObjects.begin(), fObjects.end(), object) == fObjects.end())
                fObjects.push_back(object);
        }
        if (fObjects.empty()) {
            engine().displayError(cmd + ": name a dynamic object to connect to");
            return -1;
        }
        return 0;
    }

    int doRedoIt() override {
        fMade.clear();
        for (TdynField* f : fFields)
            for (TdagObject* o : fObjects) {
                std::string why;
                // Already joined pairs are left as they are and are not undone.
                TdynFieldPtrArray before;
                TdynField::getFieldsConnectedTo(o, before);
                const bool had = std::find(before.begin(), before.end(), f) != before.end();
                const int index = f->connectToClient(o, why);
                if (index < 0) {
                    engine().displayError("connectDynamic: " + why);
                    doUndoIt();
                    return -1;
                }
                if (!had) fMade.push_back({f, o, index});
            }
        for (TdynEmitter* e : fEmitters)
            for (TdagObject* o : fObjects) {
                TdynEmitterPtrArray before;
                TdynEmitter::getEmittersConnectedTo(o, before);
                const bool had = std::find(before.begin(), before.end(), e) != before.end();
                std::string why;
                const int index = e->connectToTarget(o, why);
                if (index < 0) {
                    engine().displayError("connectDynamic: " + why);
                    doUndoIt();
                    return -1;
                }
                if (!had) fMadeEmitters.push_back({e, o, index});
            }
        std::vector<std::string> result;
        for (TdynField* f : fFields)
            result.push_back(f->name());
        for (TdynEmitter* e : fEmitters)
            result.push_back(e->name());
        engine().setResult(result);
        return 0;
    }

    int doUndoIt() override {
        for (auto it = fMadeEmitters.rbegin(); it != fMadeEmitters.rend(); ++it)
            it->emitter->disconnectFromTarget(it->object, it->index);
        fMadeEmitters.clear();
        TdependGraph& g = TdependGraph::current();
        for (auto it = fMade.rbegin(); it != fMade.rend(); ++it) {
            auto* vs = it->field->fieldVs();
            Tattribute* inputForce = it->object->attribute("inputForce");
            Tattribute* fieldData = it->object->attribute("fieldData");
            if (inputForce) {
                Tplug dst(it->object, inputForce, it->index);
                if (dst.source() == Tplug(it->field, &vs->outputForce, it->index))
                    g.disconnect(dst.source(), dst);
            }
            if (fieldData) {
                for (Tattribute* c : std::initializer_list<Tattribute*>{
                         &vs->inputPositions, &vs->inputVelocities, &vs->inputMass, &vs->deltaTime}) {
                    Tplug child(it->field, c, it->index);
                    if (Tplug src = child.source(); !src.isNull() && src.node() == it->object)
                        g.disconnect(src, child);
                }
            }
        }
        fMade.clear();
        return 0;
    }

    int redoCheck() override { return 0; }
    int afterFirstRedo() override { return 0; }

private:
    struct Made {
        TdynField* field;
        TdagObject* object;
        int index;
    };
    struct MadeEmitter {
        TdynEmitter* emitter;
        TdagObject* object;
        int index;
    };
    std::vector<TdynField*> fFields;
    std::vector<TdynEmitter*> fEmitters;
    std::vector<MadeEmitter> fMadeEmitters;
    std::vector<TdagObject*> fObjects;
    std::vector<Made> fMade;
};

MOTILANE_REGISTER_COMMAND("connectDynamic", TdynConnectCmd);
