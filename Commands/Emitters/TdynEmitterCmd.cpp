// emitter: makes an emitter (free at -position, or owned by each selected
// particle object, mesh or curve), edits one with -edit and reports a setting
// with -query. Every value is checked before anything is made or changed.

#include "Commands/Collisions/TdynGeoConnector.h"
#include "Commands/Emitters/TdynEmitter.h"
#include "Commands/Particles/TdynParticleShape.h"
#include "Commands/Scene/TdynAuxiliaryCmd.h"
#include "Commands/Scene/TdynStatic.h"

#include <algorithm>
#include <cmath>

namespace {
constexpr double kDegreesPerRadian = 57.29577951308232;

struct EmitterFlag {
    enum Kind { kDouble, kBool, kWord, kTriple };
    const char* shortName;
    const char* longName;
    Kind kind;
    const char* attrs[3];
};

const std::vector<EmitterFlag>& emitterFlags() {
    using F = EmitterFlag;
    static const std::vector<EmitterFlag> flags = {
        {"typ", "type", F::kWord, {"emitterType"}},
        {"r", "rate", F::kDouble, {"rate"}},
        {"sro", "scaleRateByObjectSize", F::kBool, {"scaleRateByObjectSize"}},
        {"nuv", "needParentUV", F::kBool, {"needParentUV"}},
        {"cye", "cycleEmission", F::kWord, {"cycleEmission"}},
        {"cyi", "cycleInterval", F::kDouble, {"cycleInterval"}},
        {"mnd", "minDistance", F::kDouble, {"minDistance"}},
        {"mxd", "maxDistance", F::kDouble, {"maxDistance"}},
        {"dx", "directionX", F::kDouble, {"directionX"}},
        {"dy", "directionY", F::kDouble, {"directionY"}},
        {"dz", "directionZ", F::kDouble, {"directionZ"}},
        {"sp", "spread", F::kDouble, {"spread"}},
        {"spd", "speed", F::kDouble, {"speed"}},
        {"srn", "speedRandom", F::kDouble, {"speedRandom"}},
        {"nsp", "normalSpeed", F::kDouble, {"normalSpeed"}},
        {"tsp", "tangentSpeed", F::kDouble, {"tangentSpeed"}},
        {"vsh", "volumeShape", F::kWord, {"volumeShape"}},
        {"vsw", "volumeSweep", F::kDouble, {"volumeSweep"}},
        {"vof", "volumeOffset", F::kTriple, {"volumeOffsetX", "volumeOffsetY", "volumeOffsetZ"}},
        {"tsr", "torusSectionRadius", F::kDouble, {"sectionRadius"}},
        {"afc", "awayFromCenter", F::kDouble, {"awayFromCenter"}},
        {"afa", "awayFromAxis", F::kDouble, {"awayFromAxis"}},
        {"alx", "alongAxis", F::kDouble, {"alongAxis"}},
        {"arx", "aroundAxis", F::kDouble, {"aroundAxis"}},
        {"rnd", "randomDirection", F::kDouble, {"randomDirection"}},
        {"ssz", "scaleSpeedBySize", F::kBool, {"scaleSpeedBySize"}},
        {"drs", "directionalSpeed", F::kDouble, {"directionalSpeed"}},
    };
    return flags;
}

// The words each enumerated flag takes, by value.
struct Word {
    const char* word;
    int value;
};
const Word kTypeWords[] = {{"dir", 0},  {"direction", 0}, {"omni", 1}, {"surf", 2},  {"surface", 2},
                           {"curv", 3}, {"curve", 3},     {"vol", 4},  {"volume", 4}};
const char* const kTypeNames[] = {"direction", "omni", "surface", "curve", "volume"};
const Word kShapeWords[] = {{"cube", 0}, {"sphere", 1}, {"cylinder", 2}, {"cone", 3}, {"torus", 4}};
const char* const kShapeNames[] = {"cube", "sphere", "cylinder", "cone", "torus"};
const Word kCycleWords[] = {{"none", 0}, {"frame", 1}};
const char* const kCycleNames[] = {"none", "frame"};

template <std::size_t N> bool lookUp(const Word (&words)[N], const std::string& w, int& value) {
    for (const Word& x : words)
        if (w == x.word) return value = x.value, true;
    return false;
}

using Values = std::vector<std::pair<std::string, double>>;

void set(Values& v, const std::string& attr, double value) {
    for (auto& [name, old] : v)
        if (name == attr) return void(old = value);
    v.emplace_back(attr, value);
}

double get(const Values& v, const std::string& attr, double fallback) {
    for (const auto& [name, value] : v)
        if (name == attr) return value;
    return fallback;
}

void writeValues(TdynEmitter* e, const Values& values) {
    for (const auto& [name, value] : values)
        if (Tattribute* a = e->attribute(name)) e->setNumber(a, value);
}
} // namespace

class TdynEmitterCmd : public TdynAuxiliaryCmd {
protected:
    std::unique_ptr<Tsyntax> newSyntax() override {
        auto s = std::make_unique<Tsyntax>();
        makeSyntaxEditQuery(*s);
        makeDefaultObjectListSelection(*s);
        addAuxiliaryFlags(*s);
        using T = TargType;
        for (const EmitterFlag& f : emitterFlags()) {
            switch (f.kind) {
            case EmitterFlag::kDouble:
                s->addFlag(f.shortName, f.longName, {T::Double});
                break;
            case EmitterFlag::kBool:
                s->addFlag(f.shortName, f.longName, {T::Bool});
                break;
            case EmitterFlag::kWord:
                s->addFlag(f.shortName, f.longName, {T::String});
                break;
            case EmitterFlag::kTriple:
                s->addFlag(f.shortName, f.longName, {T::Double, T::Double, T::Double});
                break;
            }
        }
        return s;
    }

    bool parseValues(const TargDatabase& db, Values& out) {
        const std::string cmd = db.commandName();
        if (fPositionSet) {
            set(out, "translateX", fPosition.x);
            set(out, "translateY", fPosition.y);
            set(out, "translateZ", fPosition.z);
        }
        for (const EmitterFlag& f : emitterFlags()) {
            if (!isFlagSet(db, f.shortName, f.longName)) continue;
            const std::string lname = f.longName;
            bool given = false;
            if (f.kind == EmitterFlag::kWord) {
                std::string w;
                getFlagArg(db, f.shortName, f.longName, w, given);
                int value = -1;
                bool ok = false;
                if (lname == "type") ok = lookUp(kTypeWords, w, value);
                if (lname == "volumeShape") ok = lookUp(kShapeWords, w, value);
                if (lname == "cycleEmission") ok = lookUp(kCycleWords, w, value);
                if (!ok) {
                    const char* choices = lname == "type" ? "omni, direction, surface, curve or volume"
                                          : lname == "volumeShape" ? "cube, sphere, cylinder, cone or torus"
                                                                   : "none or frame";
                    engine().displayError(cmd + ": unknown value '" + w + "' for -" + lname + "; use " +
                                          choices);
                    return false;
                }
                set(out, f.attrs[0], value);
            } else if (f.kind == EmitterFlag::kBool) {
                bool b = false;
                getFlagArg(db, f.shortName, f.longName, b, given);
                set(out, f.attrs[0], b ? 1 : 0);
            } else if (f.kind == EmitterFlag::kTriple) {
                T4dDblVector v;
                getFlagArg(db, f.shortName, f.longName, v, given);
                for (int k = 0; k < 3; ++k)
                    set(out, f.attrs[k], v[k]);
            } else {
                double v = 0;
                getFlagArg(db, f.shortName, f.longName, v, given);
                if (!std::isfinite(v)) {
                    engine().displayError(cmd + ": -" + lname + " must be a finite number");
                    return false;
                }
                // Negative speeds and distances keep their arithmetic meaning; these have none.
                if ((lname == "rate" || lname == "torusSectionRadius") && v < 0) {
                    engine().displayError(cmd + ": -" + lname + " cannot be negative, got " +
                                          std::to_string(v));
                    return false;
                }
                if (lname == "cycleInterval" && (v < 1 || v != std::floor(v))) {
                    engine().displayError(cmd +
                                          ": -cycleInterval must be a whole number of frames from 1, got " +
                                          std::to_string(v));
                    return false;
                }
                if (lname == "volumeSweep") v /= kDegreesPerRadian; // typed in degrees, kept in radians
                set(out, f.attrs[0], v);
            }
        }
        return true;
    }

    int parseEditOrNew(const TargDatabase& db) override {
        if (!parseAuxiliaryFlags(db)) return -1;
        Values values;
        if (!parseValues(db, values)) return -1;
        fValues = std::move(values);
        const std::string cmd = db.commandName();
        if (!isEditMode()) {
            for (unsigned i = 0; i < itemCount(); ++i) {
                auto* dag = TdagObject::cast(item(i));
                TdependNode* owner = nullptr;
                if (dag) {
                    if (TdagObject* p = TdynStatic::dynamicObject(dag); TdynParticleShape::cast(p))
                        owner = p;
                    else if (TdagObject* shape = TdynStatic::getShape(dag);
                             shape && TdynAuxiliary::canBeOwnedBy(shape))
                        owner = shape;
                }
                if (!owner || TdynEmitter::cast(item(i))) {
                    engine().displayError(
                        cmd + ": '" + item(i)->name() +
                        "' cannot own an emitter; select a particle object, a mesh or a curve");
                    return -1;
                }
                if (std::find(fOwners.begin(), fOwners.end(), owner) == fOwners.end())
                    fOwners.push_back(owner);
            }
            if (!fName.empty() && fOwners.size() > 1) {
                engine().displayError(cmd + ": -name names one emitter, but " +
                                      std::to_string(fOwners.size()) + " objects are selected");
                return -1;
            }
            warnDistances(cmd, fValues, 0, 0);
            return 0;
        }
        for (unsigned i = 0; i < itemCount(); ++i)
            if (auto* e = TdynEmitter::cast(item(i))) fTargets.push_back(e);
        if (fTargets.empty()) {
            engine().displayError(cmd + ": name an emitter to edit");
            return -1;
        }
        if (!fName.empty()) {
            engine().displayError(cmd + ": -name cannot be used in edit mode");
            return -1;
        }
        for (TdynEmitter* e : fTargets) {
            Values old;
            for (const auto& [name, value] : fValues)
                if (Tattribute* a = e->attribute(name)) old.emplace_back(name, e->number(a));
            fOld.push_back(std::move(old));
            auto* vs = TdynEmitter::saVs();
            warnDistances(cmd, fValues, e->number(&vs->minDistance), e->number(&vs->maxDistance));
        }
        return 0;
    }

    // A range the node will refuse: the births stop without a word, so say it here.
    void warnDistances(const std::string& cmd, const Values& v, double minNow, double maxNow) {
        const double mn = get(v, "minDistance", minNow), mx = get(v, "maxDistance", maxNow);
        if (mx != 0 && mx < mn)
            engine().displayWarning(cmd + ": maxDistance " + std::to_string(mx) + " is below minDistance " +
                                    std::to_string(mn) + "; no particles are born until it is not");
    }

    int queryActions(const TargDatabase& db) override {
        TdynEmitter* e = nullptr;
        for (unsigned i = 0; i < itemCount() && !e; ++i)
            e = TdynEmitter::cast(item(i));
        const std::string cmd = db.commandName();
        if (!e) {
            engine().displayError(cmd + ": name an emitter to query");
            return -1;
        }
        auto num = [&](const char* name) {
            Tattribute* a = e->attribute(name);
            return a ? e->number(a) : 0.0;
        };
        if (isFlagSet(db, "pos", "position")) {
            engine().setResult(TscriptVector{num("translateX"), num("translateY"), num("translateZ")});
            return 0;
        }
        if (isFlagSet(db, "n", "name")) {
            engine().setResult(e->name());
            return 0;
        }
        for (const EmitterFlag& f : emitterFlags()) {
            if (!isFlagSet(db, f.shortName, f.longName)) continue;
            const std::string lname = f.longName;
            const int k = static_cast<int>(num(f.attrs[0]));
            if (lname == "type") {
                engine().setResult(std::string(k >= 0 && k < 5 ? kTypeNames[k] : "omni"));
            } else if (lname == "volumeShape") {
                engine().setResult(std::string(k >= 0 && k < 5 ? kShapeNames[k] : "cube"));
            } else if (lname == "cycleEmission") {
                engine().setResult(std::string(k == 1 ? kCycleNames[1] : kCycleNames[0]));
            } else if (lname == "volumeSweep") {
                engine().setResult(num("volumeSweep") * kDegreesPerRadian);
            } else if (f.kind == EmitterFlag::kTriple) {
                engine().setResult(TscriptVector{num(f.attrs[0]), num(f.attrs[1]), num(f.attrs[2])});
            } else if (f.kind == EmitterFlag::kBool) {
                engine().setResult(num(f.attrs[0]) != 0);
            } else {
                engine().setResult(num(f.attrs[0]));
            }
            return 0;
        }
        return 0;
    }

    int doRedoIt() override {
        if (isEditMode()) {
            for (TdynEmitter* e : fTargets)
                writeValues(e, fValues);
            return 0;
        }
        TdependGraph& g = TdependGraph::current();
        if (!fDetached.empty()) {
            for (auto& n : fDetached)
                g.reattachNode(std::move(n));
            fDetached.clear();
        } else {
            const std::size_t count = std::max<std::size_t>(1, fOwners.size());
            for (std::size_t k = 0; k < count; ++k) {
                auto* e = TdynEmitter::cast(g.createNode("pointEmitter", fName.empty() ? "emitter1" : fName));
                if (!e) {
                    engine().displayError("emitter: could not make a node of type pointEmitter");
                    doUndoIt();
                    return -1;
                }
                writeValues(e, fValues);
                fMade.push_back(e);
                if (k >= fOwners.size()) continue;
                std::string why;
                if (!e->setOwner(fOwners[k], why)) {
                    engine().displayError("emitter: " + why);
                    doUndoIt();
                    return -1;
                }
                // A particle owner tells which of its particles each birth comes from.
                if (auto* p = TdynParticleShape::cast(fOwners[k])) {
                    g.connect(Tplug(p, TdynParticleShape::sVsData()->particleId),
                              Tplug(e, &TdynEmitter::saVs()->parentId), true);
                    continue;
                }
                // Geometry reaches the emitter through its connector: points, velocities and the swept
                // triangles or lines.
                auto* dag = TdagObject::cast(fOwners[k]);
                if (!dag || !TdynGeoConnector::canConnect(dag)) continue;
                const bool had = TdynGeoConnector::connectorFor(dag, false, why) != nullptr;
                TdynGeoConnector* c = TdynGeoConnector::connectorFor(dag, true, why);
                if (!c || !c->connectOwnerDataTo(e, why) ||
                    !c->connectSweptGeometryTo(Tplug(e, &TdynEmitter::saVs()->sweptGeometry), why)) {
                    engine().displayError("emitter: " + why);
                    doUndoIt();
                    return -1;
                }
                if (!had) fMade.push_back(c);
            }
        }
        std::vector<std::string> names;
        for (TdependNode* n : fMade)
            if (TdynEmitter::cast(n)) names.push_back(n->name());
        if (names.size() == 1)
            engine().setResult(names.front());
        else
            engine().setResult(names);
        return 0;
    }

    int doUndoIt() override {
        if (isEditMode()) {
            for (std::size_t i = 0; i < fTargets.size(); ++i)
                writeValues(fTargets[i], fOld[i]);
            return 0;
        }
        TdependGraph& g = TdependGraph::current();
        if (fDetached.empty())
            for (auto it = fMade.rbegin(); it != fMade.rend(); ++it)
                fDetached.push_back(g.detachNode(*it));
        return 0;
    }

    int redoCheck() override { return 0; }
    int afterFirstRedo() override { return 0; }

private:
    Values fValues;
    std::vector<TdependNode*> fOwners;
    // Emitters and the connectors made for them.
    std::vector<TdependNode*> fMade;
    std::vector<std::unique_ptr<TdependNode>> fDetached;
    std::vector<TdynEmitter*> fTargets;
    std::vector<Values> fOld;
};

MOTILANE_REGISTER_COMMAND("emitter", TdynEmitterCmd);
