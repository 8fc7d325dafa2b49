// connectDynamic: joins fields, emitters and collision objects to dynamic
// objects. Everything named is checked before anything is connected, so a bad
// name leaves the scene as it was.

#include "Commands/Collisions/TdynCollision.h"
#include "Commands/Emitters/TdynEmitter.h"
#include "Commands/Fields/TdynField.h"
#include "Commands/Particles/TdynParticleShape.h"
#include "Commands/Scene/TdynCmd.h"
#include "Commands/Scene/TdynStatic.h"

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
        if (db.flagUseCount("f") == 0 && db.flagUseCount("em") == 0 && db.flagUseCount("c") == 0) {
            engine().displayError(cmd + ": give the fields to connect with -fields, the emitters with "
                                        "-emitters or the collision objects with -collisions");
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
        // Geometry made a collision object by the collision command.
        if (!gather(
                "c", "a collision object (make one with the collision command)",
                [](TdependNode* n) -> TdagObject* {
                    auto* dag = TdagObject::cast(n);
                    return dag && TdynCollision::collisionOf(dag) ? dag : nullptr;
                },
                fGeometry))
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
            if (auto* dag = TdagObject::cast(n);
                dag && std::find(fGeometry.begin(), fGeometry.end(), dag) != fGeometry.end())
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
        // Only particle objects take collisions.
        if (!fGeometry.empty())
            for (TdagObject* o : fObjects)
                if (!TdynParticleShape::cast(o)) {
                    engine().displayError(cmd + ": '" + o->name() + "' is not a particle object");
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
        for (TdagObject* geometry : fGeometry)
            for (TdagObject* o : fObjects) {
                auto* particles = TdynParticleShape::cast(o);
                bool had = false;
                for (const TdynCollision::Member& m : TdynCollision::collisionsOf(particles))
                    had = had || m.collision == TdynCollision::collisionOf(geometry);
                std::string why;
                if (TdynCollision::connectToObject(geometry, particles, why) < 0) {
                    engine().displayError("connectDynamic: " + why);
                    doUndoIt();
                    return -1;
                }
                if (!had) fMadeCollisions.push_back({geometry, particles});
            }
        std::vector<std::string> result;
        for (TdynField* f : fFields)
            result.push_back(f->name());
        for (TdynEmitter* e : fEmitters)
            result.push_back(e->name());
        for (TdagObject* geometry : fGeometry)
            result.push_back(geometry->name());
        engine().setResult(result);
        return 0;
    }

    int doUndoIt() override {
        for (auto it = fMadeCollisions.rbegin(); it != fMadeCollisions.rend(); ++it)
            TdynCollision::disconnectFromObject(it->geometry, it->particles);
        fMadeCollisions.clear();
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
    struct MadeCollision {
        TdagObject* geometry;
        TdynParticleShape* particles;
    };
    std::vector<TdynField*> fFields;
    std::vector<TdagObject*> fGeometry;
    std::vector<MadeCollision> fMadeCollisions;
    std::vector<TdynEmitter*> fEmitters;
    std::vector<MadeEmitter> fMadeEmitters;
    std::vector<TdagObject*> fObjects;
    std::vector<Made> fMade;
};

MOTILANE_REGISTER_COMMAND("connectDynamic", TdynConnectCmd);
