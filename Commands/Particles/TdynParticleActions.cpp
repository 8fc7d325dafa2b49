// The light particle and dynamics commands: reading and writing per-particle
// values, emitting into a running object, adding per-particle attributes,
// saving the initial state, run-up, preferences, globals and the controller.

#include "Commands/Particles/TdynParticleShape.h"
#include "Commands/Particles/TdynParticleSnapshot.h"
#include "Commands/Scene/TdynObjectLookup.h"

#include "Host/Command/TargDatabase.h"
#include "Host/Command/TcommandEngine.h"
#include "Host/Command/ToptionVars.h"
#include "Host/Time/TanimInfo.h"

#include <algorithm>
#include <cstdlib>

namespace {
using T = TargType;

TcommandEngine& engine() {
    return TcommandEngine::current();
}

[[noreturn]] void fail(const TargDatabase& db, const std::string& text) {
    throw TargError(db.commandName() + ": " + text);
}

bool flag(const TargDatabase& db, const char* s, const char* l) {
    return db.isFlagSet(s) || db.isFlagSet(l);
}
const char* which(const TargDatabase& db, const char* s, const char* l) {
    return db.isFlagSet(l) ? l : s;
}

T4dDblVector vectorArg(const TargDatabase& db, const char* f, std::size_t use = 0) {
    return {db.flagArgumentDouble(f, use, 0), db.flagArgumentDouble(f, use, 1),
            db.flagArgumentDouble(f, use, 2)};
}

struct Target {
    TdynParticleShape* shape = nullptr;
    int index = -1;
};

Target findTarget(const TargDatabase& db, const std::string& text) {
    Target t;
    std::string object;
    if (!splitParticleComponent(text, object, t.index))
        fail(db, "'" + text + "' is not a particle or particle component");
    t.shape = particleShapeNamed(object);
    if (!t.shape) fail(db, "'" + object + "' is not a particle object");
    return t;
}

std::vector<Target> targets(const TargDatabase& db, const char* objectFlagShort = nullptr,
                            const char* objectFlagLong = nullptr) {
    std::vector<Target> out;
    if (objectFlagShort && flag(db, objectFlagShort, objectFlagLong))
        out.push_back(findTarget(db, db.flagArgumentString(which(db, objectFlagShort, objectFlagLong))));
    for (const std::string& o : db.objects())
        out.push_back(findTarget(db, o));
    if (out.empty()) fail(db, "name a particle object");
    return out;
}

bool isVectorAttr(const Tattribute* a) {
    return a->letterClasses().front() == &TdataVectorArray::sClass;
}

Tattribute* perParticle(const TargDatabase& db, TdynParticleShape* shape, const std::string& name) {
    Tattribute* a = shape->perParticleAttribute(name);
    if (!a) fail(db, "'" + name + "' is not a per-particle attribute of " + shape->name());
    return a;
}
} // namespace

// getParticleAttr -at ATTR OBJECT: every particle's value as one flat list.
class TdynGetAttrAction : public TmetaCommand {
public:
    using TmetaCommand::TmetaCommand;
    int doIt(const TargList& args) override {
        Tsyntax s;
        s.addFlag("at", "attribute", {T::String});
        s.addFlag("object", "object", {T::String});
        s.addFlag("array", "array", {T::Bool});
        s.setObjectKind(Tsyntax::ObjectKind::Strings, 0);
        TargDatabase db(s, args);
        if (!flag(db, "at", "attribute")) fail(db, "give the attribute with -attribute");
        const std::string name = db.flagArgumentString(which(db, "at", "attribute"));
        std::vector<double> out;
        for (const Target& t : targets(db, "object", "object")) {
            Tattribute* a = perParticle(db, t.shape, name);
            Tdata d = t.shape->normalBlock().inputValue(a).data();
            const unsigned first = t.index < 0 ? 0u : static_cast<unsigned>(t.index);
            auto check = [&](unsigned len) {
                if (t.index >= 0 && static_cast<unsigned>(t.index) >= len)
                    fail(db, "particle " + std::to_string(t.index) + " is out of range; " + t.shape->name() +
                                 " has " + std::to_string(len));
                return t.index < 0 ? len : first + 1;
            };
            if (auto* v = d.as<TdataVectorArray>()) {
                const unsigned end = check(v->length());
                for (unsigned i = first; i < end; ++i)
                    for (int k = 0; k < 3; ++k)
                        out.push_back(v->array()[i][k]);
            } else if (auto* x = d.as<TdataDoubleArray>()) {
                const unsigned end = check(x->length());
                for (unsigned i = first; i < end; ++i)
                    out.push_back(x->array()[i]);
            } else if (auto* n = d.as<TdataInt32Array>()) {
                const unsigned end = check(n->length());
                for (unsigned i = first; i < end; ++i)
                    out.push_back(n->array()[i]);
            }
        }
        engine().setResult(out);
        return 0;
    }
};

// setParticleAttr -at ATTR -fv V | -vv X Y Z [-relative] OBJECT[.pt[i]]
class TdynSetAttrAction : public TmetaCommand {
public:
    using TmetaCommand::TmetaCommand;
    int doIt(const TargList& args) override {
        Tsyntax s;
        s.addFlag("at", "attribute", {T::String});
        s.addFlag("fv", "floatValue", {T::Double});
        s.addFlag("vv", "vectorValue", {T::Double, T::Double, T::Double});
        s.addFlag("rf", "randomFloat", {T::Double});
        s.addFlag("rv", "randomVector", {T::Double, T::Double, T::Double});
        s.addFlag("r", "relative", {T::Bool});
        s.addFlag("object", "object", {T::String});
        s.setObjectKind(Tsyntax::ObjectKind::Strings, 0);
        TargDatabase db(s, args);
        if (!flag(db, "at", "attribute")) fail(db, "give the attribute with -attribute");
        const std::string name = db.flagArgumentString(which(db, "at", "attribute"));
        const bool relative = flag(db, "r", "relative") && db.flagArgumentBool(which(db, "r", "relative"));
        const std::vector<Target> ts = targets(db, "object", "object");
        // Check everything before changing anything: a bad call leaves the state alone.
        for (const Target& t : ts) {
            Tattribute* a = perParticle(db, t.shape, name);
            const bool vec = isVectorAttr(a);
            if (vec && (flag(db, "fv", "floatValue") || flag(db, "rf", "randomFloat")))
                fail(db, t.shape->name() + "." + name + " holds vectors; use -vectorValue");
            if (!vec && (flag(db, "vv", "vectorValue") || flag(db, "rv", "randomVector")))
                fail(db, t.shape->name() + "." + name + " holds numbers; use -floatValue");
            if (!flag(db, "fv", "floatValue") && !flag(db, "vv", "vectorValue") &&
                !flag(db, "rf", "randomFloat") && !flag(db, "rv", "randomVector"))
                fail(db, "give a value with -floatValue or -vectorValue");
            const unsigned n = t.shape->normalBlock().inputValue(TdynParticleShape::sVsData()->count).asInt();
            if (t.index >= 0 && static_cast<unsigned>(t.index) >= n)
                fail(db, "particle " + std::to_string(t.index) + " is out of range; " + t.shape->name() +
                             " has " + std::to_string(n));
        }
        for (const Target& t : ts) {
            Tattribute* a = t.shape->perParticleAttribute(name);
            const unsigned n = t.shape->countNoCompute();
            const unsigned first = t.index < 0 ? 0 : static_cast<unsigned>(t.index);
            const unsigned end = t.index < 0 ? n : first + 1;
            Tstring why;
            for (unsigned i = first; i < end; ++i) {
                if (isVectorAttr(a)) {
                    T4dDblVector v = flag(db, "vv", "vectorValue")
                                         ? vectorArg(db, which(db, "vv", "vectorValue"))
                                         : T4dDblVector();
                    if (flag(db, "rv", "randomVector")) {
                        const T4dDblVector r = vectorArg(db, which(db, "rv", "randomVector"));
                        v += T4dDblVector{dynRandgen::uniform(-r.x, r.x), dynRandgen::uniform(-r.y, r.y),
                                          dynRandgen::uniform(-r.z, r.z)};
                    }
                    T4dDblVector old;
                    if (relative && t.shape->getAttribute(name, i, old)) v += old;
                    if (!t.shape->setAttribute(name, i, v, &why)) fail(db, why);
                } else {
                    double v = flag(db, "fv", "floatValue")
                                   ? db.flagArgumentDouble(which(db, "fv", "floatValue"))
                                   : 0;
                    if (flag(db, "rf", "randomFloat")) {
                        const double r = db.flagArgumentDouble(which(db, "rf", "randomFloat"));
                        v += dynRandgen::uniform(-r, r);
                    }
                    double old = 0;
                    if (relative && t.shape->getAttribute(name, i, old)) v += old;
                    if (!t.shape->setAttribute(name, i, v, &why)) fail(db, why);
                }
            }
        }
        return 0;
    }
};

// particleExists NAME: whether NAME is a particle object.
class TdynParticleExistsAction : public TmetaCommand {
public:
    using TmetaCommand::TmetaCommand;
    int doIt(const TargList& args) override {
        Tsyntax s;
        s.setObjectKind(Tsyntax::ObjectKind::Strings, 1, 1);
        TargDatabase db(s, args);
        engine().setResult(particleShapeNamed(db.objects()[0]) != nullptr);
        return 0;
    }
};

// emit -object OBJECT -pos x y z ... [-at ATTR -fv/-vv ...]: particles born through the birth path.
class TdynEmitAction : public TmetaCommand {
public:
    using TmetaCommand::TmetaCommand;
    int doIt(const TargList& args) override {
        Tsyntax s;
        s.addFlag("o", "object", {T::String});
        s.addFlag("pos", "position", {T::Double, T::Double, T::Double});
        s.makeFlagMultiUse("pos");
        s.addFlag("at", "attribute", {T::String});
        s.makeFlagMultiUse("at");
        s.addFlag("fv", "floatValue", {T::Double});
        s.makeFlagMultiUse("fv");
        s.addFlag("vv", "vectorValue", {T::Double, T::Double, T::Double});
        s.makeFlagMultiUse("vv");
        TargDatabase db(s, args);
        if (!flag(db, "o", "object")) fail(db, "give the particle object with -object");
        TdynParticleShape* shape = particleShapeNamed(db.flagArgumentString(which(db, "o", "object")));
        if (!shape)
            fail(db, "'" + db.flagArgumentString(which(db, "o", "object")) + "' is not a particle object");
        const char* posFlag = which(db, "pos", "position");
        const std::size_t n = db.flagUseCount(posFlag);
        if (n == 0) fail(db, "give at least one -position");
        TdataArrayAttrs batch;
        T4dDblVectorArray& p = batch.addVectorData("position");
        for (std::size_t u = 0; u < n; ++u)
            p.addLast(vectorArg(db, posFlag, u));
        // Values follow the attributes in order: n values for each -attribute.
        const char* atFlag = which(db, "at", "attribute");
        const char* fvFlag = which(db, "fv", "floatValue");
        const char* vvFlag = which(db, "vv", "vectorValue");
        std::size_t fv = 0, vv = 0;
        for (std::size_t k = 0; k < db.flagUseCount(atFlag); ++k) {
            const std::string name = db.flagArgumentString(atFlag, k);
            Tattribute* a = perParticle(db, shape, name);
            if (isVectorAttr(a)) {
                if (db.flagUseCount(vvFlag) < vv + n)
                    fail(db, "-attribute " + name + " needs " + std::to_string(n) + " -vectorValue");
                T4dDblVectorArray& arr = batch.addVectorData(name);
                for (std::size_t i = 0; i < n; ++i)
                    arr.addLast(vectorArg(db, vvFlag, vv++));
            } else {
                if (db.flagUseCount(fvFlag) < fv + n)
                    fail(db, "-attribute " + name + " needs " + std::to_string(n) + " -floatValue");
                TdoubleArray& arr = batch.addDoubleData(name);
                for (std::size_t i = 0; i < n; ++i)
                    arr.addLast(db.flagArgumentDouble(fvFlag, fv++));
            }
        }
        shape->normalBlock().inputValue(TdynParticleShape::sVsData()->count);
        const unsigned before = shape->countNoCompute();
        shape->addRuntimeParticles(batch, true, true, false);
        shape->updateCachedAttributes(shape->normalBlock());
        engine().setResult(static_cast<int>(shape->countNoCompute() - before));
        return 0;
    }
};

// addPP -atr ATTR OBJECT: a per-particle attribute with its initial-state partner.
class TdynAddPPAction : public TmetaCommand {
public:
    using TmetaCommand::TmetaCommand;
    int doIt(const TargList& args) override {
        Tsyntax s;
        s.addFlag("atr", "attribute", {T::String});
        s.makeFlagMultiUse("atr");
        s.setObjectKind(Tsyntax::ObjectKind::Strings, 1);
        TargDatabase db(s, args);
        const char* f = which(db, "atr", "attribute");
        if (db.flagUseCount(f) == 0) fail(db, "give the attribute with -attribute");
        for (const Target& t : targets(db)) {
            for (std::size_t u = 0; u < db.flagUseCount(f); ++u) {
                const std::string name = db.flagArgumentString(f, u);
                if (name.empty() || name.find_first_of(" .[]|") != std::string::npos)
                    fail(db, "'" + name + "' is not a valid attribute name");
                if (t.shape->attribute(name)) continue;
                const bool vec = name == "rgbPP" || name == "incandescencePP" || name == "goalOffset" ||
                                 name.rfind("userVector", 0) == 0 || name == "birthPosition" ||
                                 name == "birthWorldPosition";
                const TletterClass& c = vec ? TdataVectorArray::sClass : TdataDoubleArray::sClass;
                for (const std::string& n : {name, name + "0"}) {
                    auto a = std::make_unique<TattributeTyped>(n.c_str(), n.c_str(), makeIffTag("USER"), c);
                    if (!t.shape->addAttribute(std::move(a)))
                        fail(db, "could not add '" + n + "' to " + t.shape->name());
                }
            }
        }
        return 0;
    }
};

// saveInitialState [-atr ATTR] OBJECT...: the current state becomes the initial state.
class TdynSaveInitAction : public TmetaCommand {
public:
    using TmetaCommand::TmetaCommand;
    int doIt(const TargList& args) override {
        Tsyntax s;
        s.addFlag("saveall", "all");
        s.addFlag("atr", "attribute", {T::String});
        s.setObjectKind(Tsyntax::ObjectKind::Strings, 0);
        TargDatabase db(s, args);
        std::vector<TdynParticleShape*> shapes;
        if (flag(db, "saveall", "all") || db.objects().empty()) {
            for (TdependNode* n : TdynStatic::particleNodes())
                shapes.push_back(TdynParticleShape::cast(n));
        }
        for (const std::string& o : db.objects())
            shapes.push_back(findTarget(db, o).shape);
        if (shapes.empty()) fail(db, "no particle object to save");
        for (TdynParticleShape* p : shapes) {
            if (flag(db, "atr", "attribute")) {
                const std::string name = db.flagArgumentString(which(db, "atr", "attribute"));
                Tattribute* a = perParticle(db, p, name);
                if (!p->saveInitialState(a))
                    fail(db, p->name() + "." + name + " has no initial-state attribute");
            } else {
                p->saveInitialState();
            }
        }
        return 0;
    }
};

// runup [-maxFrame F] [-cache] [-state] [-fromStartFrame | -fromPreviousFrame]
class TdynRunupAction : public TmetaCommand {
public:
    using TmetaCommand::TmetaCommand;
    int doIt(const TargList& args) override {
        Tsyntax s;
        s.addFlag("mxf", "maxFrame", {T::Double});
        s.addFlag("cch", "cache");
        s.addFlag("st", "state");
        s.addFlag("fsf", "fromStartFrame");
        s.addFlag("fpf", "fromPreviousFrame");
        TargDatabase db(s, args);
        TdependGraph& g = TdependGraph::current();
        TanimTime to = g.time();
        if (flag(db, "mxf", "maxFrame"))
            to = TanimTime::checked(db.flagArgumentDouble(which(db, "mxf", "maxFrame")), kCurrentFrameUnit,
                                    "-maxFrame");
        const int n = TdynStatic::activeGlobalsOverSampling();
        bool fromStart = ToptionVars::intValue("dynPrefRunupFrom", 2) == 1;
        if (flag(db, "fsf", "fromStartFrame")) fromStart = true;
        if (flag(db, "fpf", "fromPreviousFrame")) fromStart = false;
        const TanimTime from = fromStart ? TdynStatic::earliestStartTime() : TdynStatic::lastEvaluatedTime(n);
        const bool ran = TdynStatic::runupSceneFromTo(from, to, n, true, flag(db, "cch", "cache"));
        // -state keeps where the run-up ended, so a later return to that time needs no replay.
        if (ran && flag(db, "st", "state")) TdynStatic::cacheState(to);
        g.refreshDisplay();
        engine().setResult(ran);
        return 0;
    }
};

// dynPref: the run-up preferences, kept as option variables.
class TdynPrefAction : public TmetaCommand {
public:
    using TmetaCommand::TmetaCommand;
    int doIt(const TargList& args) override {
        Tsyntax s;
        s.enableQuery();
        s.addFlag("ac", "autoCreate", {T::Bool});
        s.addFlag("rt", "runupToCurrentTime", {T::Bool});
        s.addFlag("rf", "runupFrom", {T::Int});
        s.addFlag("sq", "saveOnQuit", {T::Bool});
        s.addFlag("sr", "saveRuntimeState", {T::Bool});
        TargDatabase db(s, args);
        struct Pref {
            const char* s;
            const char* l;
            const char* var;
            int fallback;
        };
        const Pref prefs[] = {{"ac", "autoCreate", "dynPrefAutoCreate", 1},
                              {"rt", "runupToCurrentTime", "dynPrefRunUpToCurrentTime", 0},
                              {"rf", "runupFrom", "dynPrefRunupFrom", 2},
                              {"sq", "saveOnQuit", "dynPrefSaveOnQuit", 0},
                              {"sr", "saveRuntimeState", "dynPrefSaveRuntimeState", 0}};
        for (const Pref& p : prefs) {
            if (!flag(db, p.s, p.l)) continue;
            if (db.isQuery()) {
                engine().setResult(ToptionVars::intValue(p.var, p.fallback));
                return 0;
            }
            int v = db.flagArgumentInt(which(db, p.s, p.l));
            if (std::string(p.s) == "rf" && (v < 1 || v > 2))
                fail(db, "-runupFrom takes 1 (start frame) or 2 (previous frame)");
            ToptionVars::setInt(p.var, v);
        }
        return 0;
    }
};

// dynGlobals: the active globals node's over-sampling, and the list of globals nodes.
class TdynGlobalsCmd : public TmetaCommand {
public:
    using TmetaCommand::TmetaCommand;
    int doIt(const TargList& args) override {
        Tsyntax s;
        s.enableQuery();
        s.enableEdit();
        s.addFlag("os", "overSampling", {T::Int});
        s.addFlag("la", "listAll");
        s.addFlag("a", "active");
        TargDatabase db(s, args);
        TdynGlobals* g = TdynGlobals::activeGlobalsNode(true);
        if (flag(db, "la", "listAll")) {
            std::vector<std::string> names;
            for (TdependNode* n : TdependGraph::current().nodes())
                if (TdynGlobals::cast(n)) names.push_back(n->name());
            engine().setResult(names);
            return 0;
        }
        if (flag(db, "a", "active")) {
            engine().setResult(g->name());
            return 0;
        }
        if (flag(db, "os", "overSampling")) {
            auto* vs = TdynGlobals::sVsData();
            if (db.isQuery()) {
                double v = 1;
                g->getAttributeValue(&vs->overSamples, v);
                engine().setResult(static_cast<int>(v));
                return 0;
            }
            const int v = db.flagArgumentInt(which(db, "os", "overSampling"));
            const auto most = TanimTime(1.0, kCurrentFrameUnit).ticks();
            if (v < 1 || v > most)
                fail(db, "-overSampling must lie between 1 and " + std::to_string(most) +
                             " (one tick a step), got " + std::to_string(v));
            // Steps of a whole number of ticks that fill the frame exactly, or every frame drifts.
            if (most % v != 0) {
                std::string choices;
                for (std::int64_t d = 1, shown = 0; d <= most && shown < 12; ++d)
                    if (most % d == 0) {
                        choices += (shown++ ? ", " : "") + std::to_string(d);
                    }
                fail(db, "-overSampling " + std::to_string(v) + " does not divide a frame (" +
                             std::to_string(most) + " ticks in " + TtimeUnit::name(TtimeUnit::current()) +
                             "), so its steps could not all be alike and the frames would drift; use " +
                             choices);
            }
            TstandaloneValue value(&vs->overSamples);
            value.handle().set(static_cast<std::int32_t>(v));
            g->setCachedValue(Tplug(g, &vs->overSamples), value.handle(), TdgContext::fsNormal);
        }
        return 0;
    }
};

// dynControl: queries and edits of the controller's switches.
class TdynControlCmd : public TmetaCommand {
public:
    using TmetaCommand::TmetaCommand;
    int doIt(const TargList& args) override {
        Tsyntax s;
        s.enableQuery();
        s.enableEdit();
        auto* vs = TdynController::sVsData();
        struct Row {
            const char* s;
            const char* l;
            Tattribute* a;
            TargType type;
        };
        const Row rows[] = {{"traceDepth", "traceDepth", &vs->traceDepth, T::Int},
                            {"particleCache", "particleCache", &vs->particleCache, T::Bool},
                            {"particlesOn", "particlesOn", &vs->particlesOn, T::Bool},
                            {"rigidOn", "rigidOn", &vs->rigidOn, T::Bool},
                            {"pld", "particleLOD", &vs->particleLOD, T::Double},
                            {"oversample", "oversample", &vs->oversample, T::Int},
                            {"seed", "seed", &vs->seed, T::Int}};
        for (const Row& r : rows)
            s.addFlag(r.s, r.l, {r.type});
        TargDatabase db(s, args);
        TdynController* c = TdynController::controller(true);
        // Without a switch named, every switch with its value, so that a bare call shows them.
        if (std::none_of(std::begin(rows), std::end(rows),
                         [&](const Row& r) { return flag(db, r.s, r.l); })) {
            std::vector<std::string> all;
            for (const Row& r : rows) {
                double v = 0;
                c->getAttributeValue(r.a, v);
                all.push_back(std::string(r.l) + " " + formatScriptNumber(v));
            }
            engine().setResult(all);
            return 0;
        }
        for (const Row& r : rows) {
            if (!flag(db, r.s, r.l)) continue;
            if (db.isQuery()) {
                double v = 0;
                c->getAttributeValue(r.a, v);
                if (r.type == T::Double)
                    engine().setResult(v);
                else
                    engine().setResult(static_cast<int>(v));
                return 0;
            }
            const double v = db.flagArgumentDouble(which(db, r.s, r.l));
            if (r.a == &vs->particleLOD && (v < 0 || v > 1))
                fail(db, "-particleLOD must lie between 0 and 1");
            if (r.a == &vs->traceDepth && v < 0) fail(db, "-traceDepth cannot be negative");
            TstandaloneValue value(r.a);
            value.handle().set(v);
            c->setCachedValue(Tplug(c, r.a), value.handle(), TdgContext::fsNormal);
        }
        return 0;
    }
};

MOTILANE_REGISTER_COMMAND("getParticleAttr", TdynGetAttrAction);
MOTILANE_REGISTER_COMMAND("setParticleAttr", TdynUndoableParticleAction<TdynSetAttrAction>);
MOTILANE_REGISTER_COMMAND("particleExists", TdynParticleExistsAction);
MOTILANE_REGISTER_COMMAND("emit", TdynUndoableParticleAction<TdynEmitAction>);
MOTILANE_REGISTER_COMMAND("addPP", TdynUndoableParticleAction<TdynAddPPAction>);
MOTILANE_REGISTER_COMMAND("saveInitialState", TdynUndoableParticleAction<TdynSaveInitAction>);
MOTILANE_REGISTER_COMMAND("runup", TdynRunupAction);
MOTILANE_REGISTER_COMMAND("dynPref", TdynPrefAction);
MOTILANE_REGISTER_COMMAND("dynGlobals", TdynGlobalsCmd);
MOTILANE_REGISTER_COMMAND("dynControl", TdynControlCmd);
