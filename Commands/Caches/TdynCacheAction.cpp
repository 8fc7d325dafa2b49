// dynCache: starts, stops, flushes and reports the memory cache of particle
// objects.
//   dynCache -enable on|off [-width N] OBJECTS | -all
//   dynCache -flush OBJECTS | -all
//   dynCache -query OBJECTS | -all      (the number of stored times of each)

#include "Commands/Caches/TdynParticleCache.h"
#include "Commands/Particles/TdynParticleShape.h"
#include "Commands/Scene/TdynObjectLookup.h"
#include "Host/Command/TargDatabase.h"
#include "Host/Command/TcommandEngine.h"
#include "Host/Command/TmetaCommand.h"
#include "Host/Graph/TdependGraph.h"

class TdynCacheAction : public TmetaCommand {
public:
    using TmetaCommand::TmetaCommand;
    int doIt(const TargList& args) override;
};

MOTILANE_REGISTER_COMMAND("dynCache", TdynCacheAction);

namespace {
void writeNumber(TdynParticleShape* shape, const Tattribute* a, double value) {
    TstandaloneValue v(a);
    v.handle().set(value);
    shape->setCachedValue(Tplug(shape, const_cast<Tattribute*>(a)), v.handle(), TdgContext::fsNormal);
}
} // namespace

int TdynCacheAction::doIt(const TargList& args) {
    TcommandEngine& engine = TcommandEngine::current();
    engine.clearResult();
    Tsyntax s;
    s.addFlag("e", "enable", {TargType::Bool});
    s.addFlag("w", "width", {TargType::Int});
    s.addFlag("f", "flush");
    s.addFlag("q", "query");
    s.addFlag("all", "allObjects");
    s.setObjectKind(Tsyntax::ObjectKind::Strings, 0);
    TargDatabase db(s, args);
    auto has = [&](const char* a, const char* b) { return db.isFlagSet(a) || db.isFlagSet(b); };
    auto which = [&](const char* a, const char* b) { return db.isFlagSet(b) ? b : a; };

    std::vector<TdynParticleShape*> objects;
    if (has("all", "allObjects"))
        for (TdependNode* n : TdependGraph::current().nodes())
            if (auto* p = TdynParticleShape::cast(n)) objects.push_back(p);
    for (const std::string& o : db.objects()) {
        TdynParticleShape* p = particleShapeNamed(o);
        if (!p) {
            engine.displayError("dynCache: '" + o + "' is not a particle object");
            return -1;
        }
        objects.push_back(p);
    }
    if (objects.empty()) {
        engine.displayError("dynCache: name the particle objects, or use -allObjects");
        return -1;
    }
    const bool enable = has("e", "enable"), width = has("w", "width"), flush = has("f", "flush"),
               query = has("q", "query");
    if (!enable && !width && !flush && !query) {
        engine.displayError("dynCache: say what to do: -enable, -width, -flush or -query");
        return -1;
    }
    int newWidth = 0;
    if (width) {
        newWidth = db.flagArgumentInt(which("w", "width"));
        if (newWidth < 1) {
            engine.displayError("dynCache: -width must be 1 or more, not " + std::to_string(newWidth));
            return -1;
        }
    }
    auto* vs = TdynParticleShape::sVsData();
    std::vector<int> stored;
    for (TdynParticleShape* p : objects) {
        TdynParticleCaches& caches = TdynParticleCaches::of(*p);
        if (flush) caches.memoryCache().deleteCache();
        if (enable) writeNumber(p, vs->cacheData, db.flagArgumentBool(which("e", "enable")) ? 1.0 : 0.0);
        if (width) writeNumber(p, vs->cacheWidth, newWidth);
        caches.syncMemorySettings();
        stored.push_back(static_cast<int>(caches.memoryCache().length()));
    }
    if (query) engine.setResult(stored);
    return 0;
}
