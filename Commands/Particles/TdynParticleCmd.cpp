// The particle command: makes a particle object with its initial particles,
// queries its count and edits one particle.

#include "Commands/Caches/TdynParticleCache.h"
#include "Commands/Particles/TdynParticleShape.h"
#include "Commands/Scene/TdynObjectCmd.h"
#include "Commands/Scene/TdynObjectLookup.h"

#include "Host/Dag/Ttransform.h"
#include "Host/Graph/TdnTime.h"
#include "Host/Time/TanimInfo.h"

#include <cmath>
#include <cstdlib>
#include <sstream>

namespace {
// The most particles one particle command makes at once (a grid, or jittered points).
constexpr long long kMostGridParticles = 50'000'000;
} // namespace

namespace {
T4dDblVector vectorArg(const TargDatabase& db, const char* flag, std::size_t use = 0) {
    return {db.flagArgumentDouble(flag, use, 0), db.flagArgumentDouble(flag, use, 1),
            db.flagArgumentDouble(flag, use, 2)};
}
} // namespace

class TdynParticleCmd : public TdynObjectCmd {
protected:
    std::unique_ptr<Tsyntax> newSyntax() override {
        auto s = std::make_unique<Tsyntax>();
        makeSyntaxEditQuery(*s);
        makeDefaultObjectListSelection(*s);
        using T = TargType;
        s->addFlag("p", "position", {T::Double, T::Double, T::Double});
        s->makeFlagMultiUse("p");
        s->addFlag("n", "name", {T::String});
        s->addFlag("i", "inherit", {T::Double});
        s->addFlag("c", "conserve", {T::Double});
        s->addFlag("sn", "shapeName", {T::String});
        s->addFlag("ct", "count");
        s->addFlag("ch", "cache", {T::Bool});
        s->addFlag("dc", "deleteCache");
        s->addFlag("ppd", "perParticleDouble");
        s->addFlag("ppv", "perParticleVector");
        s->addFlag("dal", "dynamicAttrList");
        s->addFlag("id", "particleId", {T::Int});
        s->addFlag("or", "order", {T::Int});
        s->addFlag("grs", "gridSpacing", {T::Double});
        s->addFlag("ll", "lowerLeft", {T::Double, T::Double, T::Double});
        s->addFlag("ur", "upperRight", {T::Double, T::Double, T::Double});
        s->addFlag("jbp", "jitterBasePoint", {T::Double, T::Double, T::Double});
        s->makeFlagMultiUse("jbp");
        s->addFlag("nj", "numJitters", {T::Int});
        s->addFlag("jr", "jitterRadius", {T::Double});
        s->addFlag("at", "attribute", {T::String});
        s->addFlag("fv", "floatValue", {T::Double});
        s->addFlag("vv", "vectorValue", {T::Double, T::Double, T::Double});
        return s;
    }

    bool acceptObject(TdependNode* n) const override {
        return TdynParticleShape::cast(n) || (TdagObject::cast(n) && particleShapeNamed(n->name()));
    }

    TdynParticleShape* target() const {
        for (TdependNode* n : simulatedObjects())
            if (auto* p = TdynParticleShape::cast(n)) return p;
        return nullptr;
    }

    int queryActions(const TargDatabase& db) override {
        TdynParticleShape* p = target();
        if (!p) {
            engine().displayError("particle: name a particle object to query");
            return -1;
        }
        auto* vs = TdynParticleShape::sVsData();
        double v = 0;
        if (isFlagSet(db, "sn", "shapeName")) {
            engine().setResult(p->name());
        } else if (isFlagSet(db, "ct", "count")) {
            p->getAttributeValue(vs->count, v);
            engine().setResult(static_cast<int>(v));
        } else if (isFlagSet(db, "c", "conserve")) {
            p->getAttributeValue(vs->conserve, v);
            engine().setResult(v);
        } else if (isFlagSet(db, "i", "inherit")) {
            p->getAttributeValue(vs->inheritFactor, v);
            engine().setResult(v);
        } else if (isFlagSet(db, "dal", "dynamicAttrList")) {
            std::vector<std::string> names;
            for (Tattribute* a : p->localDynamicAttrs())
                if (p->perParticleAttribute(a->name())) names.push_back(a->name());
            engine().setResult(names);
        } else if (isFlagSet(db, "ppd", "perParticleDouble") || isFlagSet(db, "ppv", "perParticleVector")) {
            const bool vectors = isFlagSet(db, "ppv", "perParticleVector");
            std::vector<std::string> names;
            for (unsigned i = 0; i < p->attributeCount(); ++i) {
                Tattribute* a = p->attribute(i);
                if (!a || !p->perParticleAttribute(a->name()) || a->hasFlag(Tattribute::kInternal) ||
                    TdynParticleShape::isInitialStateOrCacheAttribute(a))
                    continue;
                const bool isVec = a->letterClasses().front() == &TdataVectorArray::sClass;
                if (isVec == vectors) names.push_back(a->name());
            }
            engine().setResult(names);
        }
        return 0;
    }

    int parseEditOrNew(const TargDatabase& db) override {
        fDb = db;
        if (isEditMode()) {
            fShape = target();
            if (!fShape) {
                engine().displayError("particle: name a particle object to edit");
                return -1;
            }
            return parseEdit(db);
        }
        return parseNew(db);
    }

    int parseNew(const TargDatabase& db) {
        for (std::size_t u = 0; u < db.flagUseCount("p"); ++u)
            fPoints.addLast(vectorArg(db, "p", u));
        const bool ll = isFlagSet(db, "ll", "lowerLeft"), ur = isFlagSet(db, "ur", "upperRight"),
                   grs = isFlagSet(db, "grs", "gridSpacing");
        if (ll || ur || grs) {
            if (!(ll && ur && grs)) {
                engine().displayError(
                    "particle: a grid needs -lowerLeft, -upperRight and -gridSpacing together");
                return -1;
            }
            const T4dDblVector lo = vectorArg(db, "ll"), hi = vectorArg(db, "ur");
            const double step = db.flagArgumentDouble("grs");
            if (!(step > 0) || !std::isfinite(step)) {
                engine().displayError("particle: -gridSpacing must be greater than 0, got " +
                                      formatScriptNumber(step));
                return -1;
            }
            for (int k = 0; k < 3; ++k)
                if (hi[k] < lo[k]) {
                    engine().displayError(std::string("particle: -upperRight is below -lowerLeft in ") +
                                          "xyz"[k]);
                    return -1;
                }
            // Counted in doubles, so that no size can wrap past the limit; refused before anything is made.
            double per[3];
            for (int k = 0; k < 3; ++k)
                per[k] = std::floor((hi[k] - lo[k]) / step + 1e-9) + 1;
            const double total = per[0] * per[1] * per[2];
            if (!(total <= kMostGridParticles)) {
                std::ostringstream n;
                n.precision(3);
                n << total;
                engine().displayError("particle: the grid would make " + n.str() + " particles (" +
                                      formatScriptNumber(per[0]) + " x " + formatScriptNumber(per[1]) +
                                      " x " + formatScriptNumber(per[2]) + "), more than the " +
                                      std::to_string(kMostGridParticles) +
                                      " one command makes; use a larger -gridSpacing");
                return -1;
            }
            const auto nx = static_cast<long long>(per[0]), ny = static_cast<long long>(per[1]),
                       nz = static_cast<long long>(per[2]);
            for (long long k = 0; k < nz; ++k)
                for (long long j = 0; j < ny; ++j)
                    for (long long i = 0; i < nx; ++i)
                        fPoints.addLast({lo.x + i * step, lo.y + j * step, lo.z + k * step});
        }
        if (isFlagSet(db, "jbp", "jitterBasePoint")) {
            int n = 1;
            double r = 0;
            bool set = false;
            getFlagArg(db, "nj", "numJitters", n, set);
            getFlagArg(db, "jr", "jitterRadius", r, set);
            if (n < 0 || r < 0) {
                engine().displayError("particle: -numJitters and -jitterRadius cannot be negative");
                return -1;
            }
            if (static_cast<long long>(n) * static_cast<long long>(db.flagUseCount("jbp")) >
                kMostGridParticles) {
                engine().displayError("particle: -numJitters would make " +
                                      std::to_string(static_cast<long long>(n) *
                                                     static_cast<long long>(db.flagUseCount("jbp"))) +
                                      " particles, more than the " + std::to_string(kMostGridParticles) +
                                      " one command makes");
                return -1;
            }
            // A fixed stream, so that the same command makes the same points.
            unsigned short xsubi[3] = {0x330e, 0x1234, 0xabcd};
            for (std::size_t u = 0; u < db.flagUseCount("jbp"); ++u) {
                const T4dDblVector base = vectorArg(db, "jbp", u);
                for (int j = 0; j < n; ++j) {
                    T4dDblVector d;
                    do {
                        d = {2 * erand48(xsubi) - 1, 2 * erand48(xsubi) - 1, 2 * erand48(xsubi) - 1};
                    } while (d.lengthSquared() > 1.0);
                    fPoints.addLast(base + d * r);
                }
            }
        }
        bool set = false;
        getFlagArg(db, "n", "name", fName, set);
        getFlagArg(db, "c", "conserve", fConserve, fConserveSet);
        getFlagArg(db, "i", "inherit", fInherit, fInheritSet);
        getFlagArg(db, "ch", "cache", fCache, fCacheSet);
        return 0;
    }

    int parseEdit(const TargDatabase& db) {
        getFlagArg(db, "ch", "cache", fCache, fCacheSet);
        fDeleteCache = isFlagSet(db, "dc", "deleteCache");
        if (fCacheSet)
            fOldCache = fShape->normalBlock().outputValue(TdynParticleShape::sVsData()->cacheData).asBool();
        if (int r = parseEditFactors(db); r != 0) return r;
        if (!isFlagSet(db, "at", "attribute")) return 0;
        fAttr = db.flagArgumentString("at");
        const bool byId = isFlagSet(db, "id", "particleId"), byOrder = isFlagSet(db, "or", "order");
        if (byId == byOrder) {
            engine().displayError(
                "particle: -attribute in edit mode needs -particleId or -order (one of them)");
            return -1;
        }
        Tattribute* a = fShape->perParticleAttribute(fAttr);
        if (!a) {
            engine().displayError("particle: '" + fAttr + "' is not a per-particle attribute of " +
                                  fShape->name());
            return -1;
        }
        if (byOrder) {
            // -order addresses the particle by its place in the arrays.
            double count = 0;
            fShape->getAttributeValue(TdynParticleShape::sVsData()->count, count);
            fIndex = db.flagArgumentInt("or");
            if (fIndex < 0 || fIndex >= static_cast<int>(count)) {
                engine().displayError("particle: -order " + std::to_string(fIndex) + " is outside " +
                                      fShape->name() + "'s " + std::to_string(static_cast<int>(count)) +
                                      " particles");
                return -1;
            }
        } else {
            // The identifier leads to the particle's index.
            const int id = db.flagArgumentInt("id");
            TdoubleArray* ids = fShape->doubleArrayValue(TdynParticleShape::sVsData()->particleId);
            fIndex = -1;
            for (unsigned i = 0; ids && i < ids->length(); ++i)
                if (static_cast<int>((*ids)[i]) == id) fIndex = static_cast<int>(i);
            if (fIndex < 0) {
                engine().displayError("particle: " + fShape->name() + " has no particle with id " +
                                      std::to_string(id));
                return -1;
            }
        }
        fIsVector = a->letterClasses().front() == &TdataVectorArray::sClass;
        if (fIsVector && !isFlagSet(db, "vv", "vectorValue")) {
            engine().displayError("particle: " + fAttr + " holds vectors; give -vectorValue");
            return -1;
        }
        if (!fIsVector && !isFlagSet(db, "fv", "floatValue")) {
            engine().displayError("particle: " + fAttr + " holds numbers; give -floatValue");
            return -1;
        }
        if (fIsVector) {
            fNewVector = vectorArg(db, "vv");
            fShape->getAttribute(fAttr, static_cast<unsigned>(fIndex), fOldVector);
        } else {
            fNewDouble = db.flagArgumentDouble("fv");
            fShape->getAttribute(fAttr, static_cast<unsigned>(fIndex), fOldDouble);
        }
        return 0;
    }

    // -conserve and -inherit in edit mode: checked, with the old values kept for undo.
    int parseEditFactors(const TargDatabase& db) {
        auto* vs = TdynParticleShape::sVsData();
        getFlagArg(db, "c", "conserve", fConserve, fConserveSet);
        getFlagArg(db, "i", "inherit", fInherit, fInheritSet);
        if ((fConserveSet && !std::isfinite(fConserve)) || (fInheritSet && !std::isfinite(fInherit))) {
            engine().displayError("particle: -conserve and -inherit take finite numbers");
            return -1;
        }
        if (fConserveSet) fShape->getAttributeValue(vs->conserve, fOldConserve);
        if (fInheritSet) fShape->getAttributeValue(vs->inheritFactor, fOldInherit);
        return 0;
    }

    void writeFactors(bool newValues) {
        auto* vs = TdynParticleShape::sVsData();
        if (fConserveSet) writeNumber(fShape, vs->conserve, newValues ? fConserve : fOldConserve);
        if (fInheritSet) writeNumber(fShape, vs->inheritFactor, newValues ? fInherit : fOldInherit);
    }

    void writeParticle(bool newValues) {
        if (fAttr.empty() || !fShape) return;
        const unsigned i = static_cast<unsigned>(fIndex);
        if (fIsVector)
            fShape->setAttribute(fAttr, i, newValues ? fNewVector : fOldVector);
        else
            fShape->setAttribute(fAttr, i, newValues ? fNewDouble : fOldDouble);
        // At the start the initial state changes too, so that the edit survives a rewind.
        auto* vs = TdynParticleShape::sVsData();
        if (TdependGraph::current().time() <= fShape->normalBlock().inputValue(vs->startTime).asTime())
            if (Tattribute* a0 = fShape->attribute(fAttr + "0");
                a0 && fShape->perParticleAttribute(a0->name())) {
                if (fIsVector)
                    fShape->setAttribute(a0->name(), i, newValues ? fNewVector : fOldVector);
                else
                    fShape->setAttribute(a0->name(), i, newValues ? fNewDouble : fOldDouble);
            }
    }

    int doRedoIt() override {
        if (isEditMode()) {
            if (fCacheSet) writeNumber(fShape, TdynParticleShape::sVsData()->cacheData, fCache ? 1.0 : 0.0);
            // Cached frames can't be brought back by undo: deleting them only costs a rerun.
            if (fDeleteCache) TdynParticleCaches::of(*fShape).memoryCache().deleteCache();
            writeFactors(true);
            writeParticle(true);
            return 0;
        }
        TdependGraph& g = TdependGraph::current();
        if (!fNodes.empty()) {
            // Redo after undo: the same nodes come back, parented and following time again.
            for (auto it = fDetached.rbegin(); it != fDetached.rend(); ++it)
                g.reattachNode(std::move(*it));
            fDetached.clear();
            auto* shape = TdynParticleShape::cast(fNodes[1]);
            shape->setParentObject(TdagObject::cast(fNodes[0]));
            connectTime(shape);
            return 0;
        }
        TdynGlobals::activeGlobalsNode(true);
        TdynController::controller(true);
        const std::string base = fName.empty() ? "particle1" : fName;
        auto* xf = TdagObject::cast(g.createNode("transform", base));
        const std::string shapeName = fName.empty() ? "particleShape1" : xf->name() + "Shape";
        auto* shape = TdynParticleShape::cast(g.createNode("particle", shapeName));
        shape->setParentObject(xf);
        auto* vs = TdynParticleShape::sVsData();
        connectTime(shape);
        const double start = TanimInfo::currAnimInfo().startTime().valueInThisUnit(kCurrentFrameUnit);
        writeNumber(shape, vs->startFrame, start);
        if (fConserveSet) writeNumber(shape, vs->conserve, fConserve);
        if (fInheritSet) writeNumber(shape, vs->inheritFactor, fInherit);
        if (fCacheSet) writeNumber(shape, vs->cacheData, fCache ? 1.0 : 0.0);
        if (fPoints.length() > 0) shape->addParticles(fPoints);
        shape->initializeDynamicState(true);
        fNodes = {xf, shape};
        engine().setResult(std::vector<std::string>{xf->name(), shape->name()});
        return 0;
    }

    int doUndoIt() override {
        if (isEditMode()) {
            if (fCacheSet)
                writeNumber(fShape, TdynParticleShape::sVsData()->cacheData, fOldCache ? 1.0 : 0.0);
            writeFactors(false);
            writeParticle(false);
            return 0;
        }
        TdependGraph& g = TdependGraph::current();
        for (auto it = fNodes.rbegin(); it != fNodes.rend(); ++it)
            fDetached.push_back(g.detachNode(*it));
        return 0;
    }

    static void connectTime(TdynParticleShape* shape) {
        TdependGraph& g = TdependGraph::current();
        auto* vs = TdynParticleShape::sVsData();
        if (shape->inputSource(vs->currentTime, -1).isNull())
            g.connect(g.timeNode()->outTimePlug(), Tplug(shape, vs->currentTime));
    }

    static void writeNumber(TdependNode* node, const Tattribute* a, double v) {
        TstandaloneValue value(a);
        value.handle().set(v);
        node->setCachedValue(Tplug(node, const_cast<Tattribute*>(a)), value.handle(), TdgContext::fsNormal);
    }

    int redoCheck() override { return 0; }
    int afterFirstRedo() override { return 0; }

private:
    TargDatabase fDb;
    std::string fName;
    double fConserve = 1, fInherit = 0, fOldConserve = 1, fOldInherit = 0;
    bool fConserveSet = false, fInheritSet = false, fCache = false, fCacheSet = false;
    bool fOldCache = false, fDeleteCache = false;
    T4dDblVectorArray fPoints;
    std::vector<TdependNode*> fNodes;
    std::vector<std::unique_ptr<TdependNode>> fDetached;
    TdynParticleShape* fShape = nullptr;
    std::string fAttr;
    int fIndex = -1;
    bool fIsVector = false;
    double fNewDouble = 0, fOldDouble = 0;
    T4dDblVector fNewVector, fOldVector;
};

MOTILANE_REGISTER_COMMAND("particle", TdynParticleCmd);
