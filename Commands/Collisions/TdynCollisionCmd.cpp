// collision: makes geometry a collision object (the collision node and the
// geometry connector), edits and queries its resilience and friction. Particle
// objects named or selected with the geometry collide with it at once, as
// fields take selected particle objects as clients.

#include "Commands/Collisions/TdynCollision.h"
#include "Commands/Collisions/TdynGeoConnector.h"
#include "Commands/Particles/TdynParticleShape.h"
#include "Commands/Scene/TdynCmd.h"
#include "Commands/Scene/TdynStatic.h"

#include <algorithm>
#include <optional>

class TdynCollisionCmd : public TdynCmd {
protected:
    std::unique_ptr<Tsyntax> newSyntax() override {
        auto s = std::make_unique<Tsyntax>();
        makeSyntaxEditQuery(*s);
        makeDefaultObjectListSelection(*s);
        s->addFlag("r", "resilience", {TargType::Double});
        s->addFlag("f", "friction", {TargType::Double});
        return s;
    }

    // Geometry (or its collision node) and particle objects, sorted apart.
    int objectListActions(const TargDatabase&) override {
        for (unsigned i = 0; i < itemCount(); ++i) {
            TdependNode* n = item(i);
            if (auto* c = TdynCollision::cast(n)) {
                addGeometry(c->geometry(), n);
                continue;
            }
            auto* dag = TdagObject::cast(n);
            if (!dag) {
                fBad.push_back(n->name());
                continue;
            }
            if (auto* p = TdynParticleShape::cast(TdynStatic::dynamicObject(dag))) {
                if (std::find(fParticles.begin(), fParticles.end(), p) == fParticles.end())
                    fParticles.push_back(p);
                continue;
            }
            addGeometry(dag, n);
        }
        return 0;
    }

    int parseQuery(const TargDatabase&) override {
        if (fGeometry.empty() || !TdynCollision::collisionOf(fGeometry.front())) {
            engine().displayError("collision: name a collision object to query");
            return -1;
        }
        return 0;
    }

    int queryActions(const TargDatabase& db) override {
        TdynCollision* c = TdynCollision::collisionOf(fGeometry.front());
        if (queryFlag(db, "r", "resilience", TscriptValue(c->resilience()))) return 0;
        if (queryFlag(db, "f", "friction", TscriptValue(c->friction()))) return 0;
        engine().setResult(c->name());
        return 0;
    }

    int parseEditOrNew(const TargDatabase& db) override {
        if (!fBad.empty()) {
            engine().displayError("collision: '" + fBad.front() + "' has no geometry to collide with");
            return -1;
        }
        bool set = false;
        double v = 0;
        // Both are refused alike outside what they mean: resilience 1 bounces back at full speed, 0
        // stops, a negative one lets particles through at that part of their speed; friction from
        // none to all of the sliding.
        if (getFlagArg(db, "r", "resilience", v, set)) {
            if (!(v >= -1 && v <= 2)) {
                engine().displayError("collision: -resilience must lie between -1 and 2, got " +
                                      formatScriptNumber(v));
                return -1;
            }
            fResilience = v;
        }
        set = false;
        if (getFlagArg(db, "f", "friction", v, set)) {
            if (!(v >= 0 && v <= 1)) {
                engine().displayError("collision: -friction must lie between 0 and 1, got " +
                                      formatScriptNumber(v));
                return -1;
            }
            fFriction = v;
        }
        if (fGeometry.empty()) {
            engine().displayError("collision: name the geometry to collide with (or select it)");
            return -1;
        }
        // Everything is checked before anything is made.
        for (TdagObject* g : fGeometry) {
            if (isEditMode()) {
                if (!TdynCollision::collisionOf(g)) {
                    engine().displayError("collision: '" + g->name() + "' is not a collision object");
                    return -1;
                }
                continue;
            }
            TdagObject* shape = Tshape::cast(g) ? g : TdynStatic::getShape(g);
            if (!shape || !TdynGeoConnector::canConnect(shape)) {
                engine().displayError("collision: '" + g->name() + "' has no geometry to collide with");
                return -1;
            }
        }
        return 0;
    }

    int doRedoIt() override {
        std::vector<std::string> result;
        std::string why;
        fChanges.clear();
        for (TdagObject* g : fGeometry) {
            TdynCollision* c = TdynCollision::collisionOf(g);
            if (!c && !isEditMode()) {
                c = TdynCollision::makeCollision(g, why);
                if (!c) {
                    engine().displayError("collision: " + why);
                    doUndoIt();
                    return -1;
                }
                fMade.push_back(c);
            }
            fChanges.push_back({c, c->resilience(), c->friction()});
            if (fResilience) c->setResilience(*fResilience);
            if (fFriction) c->setFriction(*fFriction);
            for (TdynParticleShape* p : fParticles) {
                if (TdynCollision::connectToObject(g, p, why) < 0) {
                    engine().displayError("collision: " + why);
                    doUndoIt();
                    return -1;
                }
                fJoined.push_back({g, p});
            }
            result.push_back(c->name());
        }
        engine().setResult(result);
        return 0;
    }

    int doUndoIt() override {
        for (auto it = fJoined.rbegin(); it != fJoined.rend(); ++it)
            TdynCollision::disconnectFromObject(it->first, it->second);
        fJoined.clear();
        for (auto it = fChanges.rbegin(); it != fChanges.rend(); ++it) {
            it->collision->setResilience(it->resilience);
            it->collision->setFriction(it->friction);
        }
        // Nodes this command made go away again.
        for (TdynCollision* c : fMade)
            fDetached.push_back(TdependGraph::current().detachNode(c));
        fMade.clear();
        return 0;
    }

    int redoCheck() override { return 0; }
    int afterFirstRedo() override { return 0; }

private:
    void addGeometry(TdagObject* g, TdependNode* named) {
        if (!g) {
            fBad.push_back(named->name());
            return;
        }
        if (std::find(fGeometry.begin(), fGeometry.end(), g) == fGeometry.end()) fGeometry.push_back(g);
    }

    struct Change {
        TdynCollision* collision;
        double resilience, friction;
    };
    std::vector<TdagObject*> fGeometry;
    std::vector<TdynParticleShape*> fParticles;
    std::vector<std::string> fBad;
    std::optional<double> fResilience, fFriction;
    std::vector<Change> fChanges;
    std::vector<TdynCollision*> fMade;
    std::vector<std::unique_ptr<TdependNode>> fDetached;
    std::vector<std::pair<TdagObject*, TdynParticleShape*>> fJoined;
};

MOTILANE_REGISTER_COMMAND("collision", TdynCollisionCmd);
