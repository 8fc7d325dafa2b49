// Births and deaths: batches from emitters and commands, lifespans, the
// removal that keeps every array aligned, identifiers and their mapping.

#include "Commands/Particles/TdynParticleShape.h"

#include "Commands/Emitters/TdynEmitter.h"

#include "Host/Base/ThostException.h"
#include "Host/Data/TdataGeometry.h"

#include <algorithm>
#include <climits>
#include <cmath>

namespace {
constexpr double kNeverDies = 3.4028234663852886e+38;

const TletterClass* arrayClassOf(const Tattribute* a) {
    if (!a || a->type() != TattrType::Typed || a->letterClasses().empty()) return nullptr;
    return a->letterClasses().front();
}
} // namespace

namespace {
// A batch without an array of this name: particles born at the end of the
// step, with zero for anything else.
void padDoubles(TdoubleArray& a, const Tstring& name, unsigned n) {
    const double fill = name == "timeInStep" ? 1.0 : 0.0;
    const unsigned old = a.length();
    a.changeLogicalSizeTo(n);
    for (unsigned i = old; i < n; ++i)
        a[i] = fill;
}
} // namespace

void TdynParticleShape::computeEmission(TdataBlock& block) {
    auto* vs = sVsData();
    Tdata em = std::move(block.outputValue(vs->emission).data());
    if (em.isNULL()) em = makeData<TdataArrayAttrs>();
    em.makeWriter();
    TdataArrayAttrs* batch = em.require<TdataArrayAttrs>();
    batch->clear();

    // The emitters run again even if nothing dirtied them.
    for (int e : block.elementIndices(vs->newParticles))
        block.markDirty(vs->newParticles, e);
    TmultiHandle multi = block.inputArrayValue(vs->newParticles);
    for (unsigned k = 0; k < multi.elementCount(); ++k) {
        multi.jumpToArrayElement(k);
        const int e = multi.elementIndex();
        Tdata d = multi.value().data();
        auto* in = d.as<TdataArrayAttrs>();
        if (!in) continue;
        T4dDblVectorArray* pos = in->getVectorData("position");
        if (!pos) continue;
        const unsigned m = pos->length();
        const unsigned before =
            batch->getVectorData("position") ? batch->getVectorData("position")->length() : 0;
        // Merge array by array; arrays the batch lacks are padded by justify.
        for (unsigned i = 0; i < in->count(); ++i) {
            const Tstring& name = in->name(i);
            if (in->kind(i) == TdataArrayAttrs::Kind::Vector) {
                T4dDblVectorArray* dst = batch->getVectorData(name);
                if (!dst) dst = &batch->addVectorData(name);
                dst->changeLogicalSizeTo(before);
                dst->catenate(in->vectors(i));
            } else if (in->kind(i) == TdataArrayAttrs::Kind::Double) {
                TdoubleArray* dst = batch->getDoubleData(name);
                if (!dst) dst = &batch->addDoubleData(name);
                padDoubles(*dst, name, before);
                dst->catenate(in->doubles(i));
            }
        }
        // Arrays that this batch lacks keep their place for its particles.
        for (unsigned i = 0; i < batch->count(); ++i) {
            if (batch->kind(i) == TdataArrayAttrs::Kind::Vector && batch->vectors(i).length() < before + m)
                batch->vectors(i).changeLogicalSizeTo(before + m);
            else if (batch->kind(i) == TdataArrayAttrs::Kind::Double && batch->name(i) != "emitterId")
                padDoubles(batch->doubles(i), batch->name(i), before + m);
        }
        TdoubleArray* ids = batch->getDoubleData("emitterId");
        if (!ids) ids = &batch->addDoubleData("emitterId");
        ids->changeLogicalSizeTo(before + m);
        for (unsigned i = before; i < before + m; ++i)
            (*ids)[i] = e;
    }
    if (batch->getVectorData("position") && batch->getVectorData("position")->length() > 0)
        addRuntimeParticles(*batch, true, true, false);
    em.makeHolder();
    block.outputValue(vs->emission).set(em);
}

int TdynParticleShape::calculateCountAndInterval(int count, int n, int maxCount, double levelOfDetail,
                                                 bool useMax, bool useDetail, double& interval) {
    if (!useMax || maxCount < 0) maxCount = INT_MAX;
    const long long room = static_cast<long long>(maxCount) - count;
    if (room <= 0) return 0;
    const double L = std::clamp(levelOfDetail, 0.0, 1.0);
    if (useDetail && L == 0.0) return 0;
    int k = useDetail ? static_cast<int>(std::ceil(n * L)) : n;
    if (k == 0) return 0;
    interval = static_cast<double>(n) / k;
    if (useMax && room < k) {
        interval = static_cast<double>(n) / static_cast<double>(room);
        k = static_cast<int>(room);
    }
    return k;
}

int TdynParticleShape::addRuntimeParticles(TdataArrayAttrs& batch, bool useMax, bool useDetail,
                                           bool alreadyInObjectSpace) {
    if (!fPrivateDataInitialized) initializePrivateData();
    if (!fDynamicStateInitialized) initializeDynamicState(true);
    auto* vs = sVsData();
    TdataBlock& block = normalBlock();
    const int count = static_cast<int>(countNoCompute());
    const int maxCount = block.inputValue(vs->maxCount).asInt();
    const double lod = block.inputValue(vs->levelOfDetail).asDouble();
    batch.justifyAndFillArrays(false);
    const int n = static_cast<int>(batch.longestArraySize());
    double interval = 1.0;
    const int k = calculateCountAndInterval(count, n, maxCount, lod, useMax, useDetail, interval);
    const bool countWasClean = block.isClean(vs->count);
    if (k > 0) {
        const bool inWorld = block.inputValue(vs->emissionInWorld).asBool();
        const T4dDblMatrix W = worldMatrix();
        const T4dDblMatrix I = W.inverse();
        const T4dDblMatrix R = TdynStatic::matrixWithoutTranslation(W).inverse();
        const int firstId = block.outputValue(vs->nextId).asInt();
        const double T = block.inputValue(vs->evaluationTime).asTime().seconds();
        const double H = block.inputValue(vs->timeStepSize).asTime().seconds();
        recordBirthPoints(batch, firstId, H, inWorld && !alreadyInObjectSpace ? nullptr : &W);
        // Positions and velocities come in world space; bring them in once, before sampling.
        if (T4dDblVectorArray* p = batch.getVectorData("position")) {
            if (attribute("birthPosition") && attribute("birthWorldPosition")) {
                const T4dDblVectorArray world = *p;
                T4dDblVectorArray local;
                TdynStatic::transformCopyOfVectorArrayByMatrix(world, I, local, true);
                batch.addVectorData("birthPosition") = local;
                batch.addVectorData("birthWorldPosition") = world;
            }
            p = batch.getVectorData("position");
            if (inWorld && !alreadyInObjectSpace) TdynStatic::transformVectorArrayByMatrix(*p, I, true);
        }
        for (const char* name : {"velocity", "acceleration"})
            if (T4dDblVectorArray* v = batch.getVectorData(name); v && inWorld && !alreadyInObjectSpace)
                TdynStatic::transformVectorArrayByMatrix(*v, R, false);
        for (Tattribute* a : perParticleArrays(true)) {
            const bool wasClean = block.isClean(a);
            fillNewValues(a, batch, block, n, k, interval, firstId, T, H);
            if (!wasClean) block.markDirty(a);
        }
        TdataHandle nid = block.outputValue(vs->nextId);
        nid.set(static_cast<std::int32_t>(firstId + n)); // the whole range is used, kept or not
        nid.setClean();
    }
    TdataHandle c = block.outputValue(vs->count);
    c.set(static_cast<std::int32_t>(countNoCompute()));
    c.setClean();
    if (!countWasClean) block.markDirty(vs->count);
    return count;
}

void TdynParticleShape::recordBirthPoints(TdataArrayAttrs& batch, int firstId, double H,
                                          const T4dDblMatrix* toWorld) {
    fBirthFirstId = firstId;
    fBirthPoints.clear();
    const T4dDblVectorArray* p = batch.getVectorData("position");
    if (!p) return;
    const T4dDblVectorArray* v = batch.getVectorData("velocity");
    const TdoubleArray* inStep = batch.getDoubleData("timeInStep");

    fBirthPoints.resize(p->length());
    for (unsigned i = 0; i < p->length(); ++i) {
        // Emitters place a birth a fraction t into the step back along its velocity to the step's
        // start, so that the step carries it on from there; it came into being at that fraction.
        T4dDblVector at = (*p)[i];
        T4dDblVector vel = v && i < v->length() ? (*v)[i] : T4dDblVector();
        if (toWorld) {
            at = toWorld->transformPoint(at);
            vel = toWorld->transformVector(vel);
        }
        const double t = inStep && i < inStep->length() ? (*inStep)[i] : 0.0;
        fBirthPoints[i] = at + vel * (t * H);
    }
}

void TdynParticleShape::fillNewValues(Tattribute* a, TdataArrayAttrs& batch, TdataBlock& block, int n, int k,
                                      double interval, int firstId, double T, double H) {
    auto* vs = sVsData();
    const unsigned count = countNoCompute();
    const TletterClass* c = arrayClassOf(a);
    TdataHandle h = block.outputValue(a);
    Tdata d = std::move(h.data());
    // Arrays shorter than the count (or new) are first brought to it with their default.
    auto samples = [&](auto&& each) {
        double x = 0.0;
        for (int j = 0; j < k && x < n; ++j, x += interval)
            each(static_cast<unsigned>(x));
    };
    if (c == &TdataDoubleArray::sClass) {
        if (!d.as<TdataDoubleArray>()) d = makeData<TdataDoubleArray>();
        d.makeWriter();
        TdoubleArray& arr = d.as<TdataDoubleArray>()->array();
        const double def = defaultDoubleValue(a);
        if (arr.length() < count && a != vs->finalLifespanPP) {
            const unsigned old = arr.length();
            arr.changeLogicalSizeTo(count);
            for (unsigned i = old; i < count; ++i)
                arr[i] = def;
        }
        const TdoubleArray* src = batch.getDoubleData(a->name());
        const TdoubleArray* inStep = batch.getDoubleData("timeInStep");
        if (a == vs->particleId) {
            samples([&](unsigned i) { arr.addLast(static_cast<double>(firstId + static_cast<int>(i))); });
        } else if (src) {
            samples([&](unsigned i) { arr.addLast((*src)[i]); });
        } else if (a == vs->finalLifespanPP) {
            int steps = 0;
            samples([&](unsigned) { ++steps; });
            fillWithLifespanValues(arr, arr.length(), static_cast<unsigned>(steps), block);
        } else if (a == vs->birthTime && inStep) {
            samples([&](unsigned i) { arr.addLast(T - (1.0 - (*inStep)[i]) * H); });
        } else if (a == vs->birthTime) {
            samples([&](unsigned) { arr.addLast(T); });
        } else {
            samples([&](unsigned) { arr.addLast(def); });
        }
    } else if (c == &TdataVectorArray::sClass) {
        if (!d.as<TdataVectorArray>()) d = makeData<TdataVectorArray>();
        d.makeWriter();
        T4dDblVectorArray& arr = d.as<TdataVectorArray>()->array();
        const T4dDblVector def = defaultVectorValue(a);
        if (arr.length() < count && a != vs->position) {
            const unsigned old = arr.length();
            arr.changeLogicalSizeTo(count);
            for (unsigned i = old; i < count; ++i)
                arr[i] = def;
        }
        if (const T4dDblVectorArray* src = batch.getVectorData(a->name())) {
            samples([&](unsigned i) { arr.addLast((*src)[i]); });
        } else {
            samples([&](unsigned) { arr.addLast(def); });
        }
    } else if (c == &TdataInt32Array::sClass) {
        if (!d.as<TdataInt32Array>()) d = makeData<TdataInt32Array>();
        d.makeWriter();
        Tint32Array& arr = d.as<TdataInt32Array>()->array();
        if (arr.length() < count) arr.changeLogicalSizeTo(count);
        samples([&](unsigned) { arr.addLast(0); });
    }
    d.makeHolder();
    block.outputValue(a).set(d);
}

namespace {
// Fills each hole with the survivor moved into it; the same for every element type.
template <class A>
void rearrangeArray(A& array, const Tint32Array& dead, const Tint32Array& from, unsigned newLength) {
    const unsigned len = array.length();
    for (unsigned j = 0; j < dead.length() && j < from.length() && static_cast<unsigned>(dead[j]) < newLength;
         ++j)
        if (static_cast<unsigned>(dead[j]) < len && static_cast<unsigned>(from[j]) < len)
            array[dead[j]] = array[from[j]];
    if (len > newLength) array.changeLogicalSizeTo(newLength);
}
} // namespace

void TdynParticleShape::rearrangeParticles(TdoubleArray& array, const Tint32Array& dead,
                                           const Tint32Array& from, unsigned newLength) {
    rearrangeArray(array, dead, from, newLength);
}
void TdynParticleShape::rearrangeParticles(T4dDblVectorArray& array, const Tint32Array& dead,
                                           const Tint32Array& from, unsigned newLength) {
    rearrangeArray(array, dead, from, newLength);
}
void TdynParticleShape::rearrangeParticles(Tint32Array& array, const Tint32Array& dead,
                                           const Tint32Array& from, unsigned newLength) {
    rearrangeArray(array, dead, from, newLength);
}

void TdynParticleShape::removeDeadParticles(const Tint32Array& dead, TdataBlock& block) {
    const unsigned d = dead.length();
    if (d == 0) return;
    auto* vs = sVsData();
    const unsigned c = countNoCompute();
    if (d > c) return;
    // The last survivors, last first, fill the holes.
    Tint32Array from;
    int j = static_cast<int>(d) - 1;
    for (int i = static_cast<int>(c) - 1; i >= 0 && from.length() < d; --i) {
        while (j >= 0 && dead[static_cast<unsigned>(j)] > i)
            --j;
        if (j >= 0 && dead[static_cast<unsigned>(j)] == i) continue;
        from.addLast(i);
    }
    for (Tattribute* a : perParticleArrays(false)) {
        const bool wasClean = block.isClean(a);
        TdataHandle h = block.outputValue(a);
        Tdata data = std::move(h.data());
        if (!data.isNULL()) {
            data.makeWriter();
            if (auto* x = data.as<TdataDoubleArray>())
                rearrangeParticles(x->array(), dead, from, c - d);
            else if (auto* v = data.as<TdataVectorArray>())
                rearrangeParticles(v->array(), dead, from, c - d);
            else if (auto* k = data.as<TdataInt32Array>())
                rearrangeParticles(k->array(), dead, from, c - d);
            data.makeHolder();
        }
        block.outputValue(a).set(data);
        if (!wasClean) block.markDirty(a);
    }
    TdataHandle cnt = block.outputValue(vs->count);
    cnt.set(static_cast<std::int32_t>(c - d));
    cnt.setClean();
}

namespace {
// Which emitter feeds each element of newParticles: the table from element index to emitter.
std::vector<TdynEmitter*> groupOrderIndexWithEmitterIndex(TdynParticleShape& shape, TdataBlock& block) {
    auto* vs = TdynParticleShape::sVsData();
    std::vector<TdynEmitter*> table;
    for (int e : block.elementIndices(vs->newParticles)) {
        if (e < 0) continue;
        if (table.size() <= static_cast<std::size_t>(e))
            table.resize(static_cast<std::size_t>(e) + 1, nullptr);
        table[static_cast<std::size_t>(e)] =
            TdynEmitter::cast(Tplug(&shape, vs->newParticles, e).source().node());
    }
    return table;
}

// With dieOnEmissionVolumeExit: particles that left the volume of the emitter that made them die.
unsigned removeParticlesOutsideEmissionVolumes(TdynParticleShape& shape, TdataBlock& block) {
    auto* vs = TdynParticleShape::sVsData();
    if (!block.inputValue(vs->dieOnEmissionVolumeExit).asBool()) return 0;
    const std::vector<TdynEmitter*> table = groupOrderIndexWithEmitterIndex(shape, block);
    if (table.empty()) return 0;
    Tdata idData = block.outputValue(vs->emitterId).data();
    const TdoubleArray* ids = TdynStatic::dataDoubleArray(idData);
    if (!ids) return 0;
    // Particles grouped by the emitter that made them; ids of no known emitter go nowhere.
    std::vector<Tint32Array> groups(table.size());
    for (unsigned i = 0; i < ids->length(); ++i) {
        const double e = (*ids)[i];
        if (e >= 0 && e < static_cast<double>(table.size()) && table[static_cast<std::size_t>(e)])
            groups[static_cast<std::size_t>(e)].addLast(static_cast<std::int32_t>(i));
    }
    Tdata worldData = block.inputValue(vs->worldPosition).data();
    const T4dDblVectorArray* world = TdynStatic::dataVectorArray(worldData);
    Tint32Array dead, flags;
    for (std::size_t g = 0; g < table.size(); ++g) {
        if (!table[g] || groups[g].length() == 0) continue;
        T4dDblVectorArray points(groups[g].length());
        for (unsigned k = 0; k < groups[g].length(); ++k) {
            const unsigned i = static_cast<unsigned>(groups[g][k]);
            points[k] = world && i < world->length() ? (*world)[i] : T4dDblVector();
        }
        if (!table[g]->arePointsWithinVolume(points, flags)) continue; // not a volume emitter
        for (unsigned k = 0; k < flags.length(); ++k)
            if (!flags[k]) dead.addLast(groups[g][k]);
    }
    if (dead.length() == 0) return 0;
    Tint32Array companion(dead.length());
    TdynStatic::quickSortInPlace(dead, companion);
    shape.removeDeadParticles(dead, block);
    return dead.length();
}
} // namespace

void TdynParticleShape::computeDeath(TdataBlock& block) {
    auto* vs = sVsData();
    const int mode = block.inputValue(vs->lifespanMode).asInt();
    Tint32Array dead;
    if (mode != 0) {
        Tdata ageData = block.inputValue(vs->age).data();
        const TdoubleArray* ages = TdynStatic::dataDoubleArray(ageData);
        if (ages && mode == 1) {
            Tattribute* life = attribute("lifespan");
            if (life && life->isNumeric()) {
                double lifespan = 0;
                getAttributeValue(life, lifespan);
                for (unsigned i = 0; i < ages->length(); ++i)
                    if (lifespan <= (*ages)[i]) dead.addLast(static_cast<std::int32_t>(i));
            }
        } else if (ages) {
            // lifespanPP changes dirty nothing here: take its values now.
            if (mode == 3) computeFinalLifespanPP(block);
            Tdata fl = block.inputValue(vs->finalLifespanPP).data();
            if (const TdoubleArray* f = TdynStatic::dataDoubleArray(fl)) {
                const unsigned n = std::min(f->length(), ages->length());
                for (unsigned i = 0; i < n; ++i)
                    if ((*f)[i] <= (*ages)[i]) dead.addLast(static_cast<std::int32_t>(i));
            }
        }
    }
    removeDeadParticles(dead, block);
    const unsigned outside = removeParticlesOutsideEmissionVolumes(*this, block);
    TdataHandle h = block.outputValue(vs->death);
    h.set(static_cast<std::int32_t>(dead.length() + outside));
    h.setClean();
}

void TdynParticleShape::fillWithLifespanValues(TdoubleArray& array, unsigned first, unsigned n,
                                               TdataBlock& block) {
    auto* vs = sVsData();
    if (array.length() < first + n) array.changeLogicalSizeTo(first + n);
    const int mode = block.inputValue(vs->lifespanMode).asInt();
    if (mode == 1 || mode == 2) {
        Tattribute* life = attribute("lifespan");
        if (!life || !life->isNumeric() || life->isArray())
            return; // a per-particle "lifespan" is passed over
        double lifespan = 0;
        getAttributeValue(life, lifespan);
        if (mode == 1) {
            for (unsigned i = first; i < first + n; ++i)
                array[i] = lifespan;
        } else {
            const double r = block.inputValue(vs->lifespanRandom).asDouble();
            for (unsigned i = first; i < first + n; ++i)
                array[i] = randgen(block) * r + (lifespan - 0.5 * r);
        }
        return;
    }
    for (unsigned i = first; i < first + n; ++i)
        array[i] = kNeverDies;
}

void TdynParticleShape::computeFinalLifespanPP(TdataBlock& block) {
    auto* vs = sVsData();
    Tdata out = std::move(block.outputValue(vs->finalLifespanPP).data());
    if (!out.as<TdataDoubleArray>()) out = makeData<TdataDoubleArray>();
    out.makeWriter();
    if (Tattribute* pp = attribute("lifespanPP")) {
        Tdata src = block.inputValue(pp).data();
        if (const TdoubleArray* s = TdynStatic::dataDoubleArray(src)) {
            TdoubleArray& f = out.as<TdataDoubleArray>()->array();
            const unsigned n = std::min(f.length(), s->length());
            for (unsigned i = 0; i < n; ++i)
                f[i] = (*s)[i];
        }
    }
    out.makeHolder();
    block.outputValue(vs->finalLifespanPP).set(out);
}

void TdynParticleShape::computeNormalizedAge(TdataBlock& block) {
    auto* vs = sVsData();
    Tattribute* an = attribute("ageNormalized");
    if (!an) return;
    const unsigned n = static_cast<unsigned>(std::max(0, block.outputValue(vs->count).asInt()));
    Tdata ageData = block.inputValue(vs->age).data();
    Tdata fl = block.outputValue(vs->finalLifespanPP).data();
    const TdoubleArray* ages = TdynStatic::dataDoubleArray(ageData);
    const TdoubleArray* f = TdynStatic::dataDoubleArray(fl);
    Tdata out = std::move(block.outputValue(an).data());
    if (!out.as<TdataDoubleArray>()) out = makeData<TdataDoubleArray>();
    out.makeWriter();
    TdoubleArray& o = out.as<TdataDoubleArray>()->array();
    o.changeLogicalSizeTo(n);
    const unsigned m = std::min({n, ages ? ages->length() : 0u, f ? f->length() : 0u});
    for (unsigned i = 0; i < m; ++i)
        o[i] = (*ages)[i] / (*f)[i];
    out.makeHolder();
    block.outputValue(an).set(out);
}

void TdynParticleShape::computeIdMapping(TdataBlock& block) {
    auto* vs = sVsData();
    Tdata idData = block.inputValue(vs->particleId).data();
    Tint32Array sorted, index;
    if (const TdoubleArray* ids = TdynStatic::dataDoubleArray(idData)) {
        sorted.changeLogicalSizeTo(ids->length());
        index.changeLogicalSizeTo(ids->length());
        for (unsigned i = 0; i < ids->length(); ++i) {
            sorted[i] = static_cast<std::int32_t>((*ids)[i]);
            index[i] = static_cast<std::int32_t>(i);
        }
    }
    TdynStatic::quickSortInPlace(sorted, index);
    block.outputValue(vs->sortedId).set(makeData<TdataInt32Array>(std::move(sorted)));
    block.outputValue(vs->idIndex).set(makeData<TdataInt32Array>(std::move(index)));
    block.setClean(vs->idMapping);
}

void TdynParticleShape::computeIsFull(TdataBlock& block) {
    auto* vs = sVsData();
    const int maxCount = block.inputValue(vs->maxCount).asInt();
    const int count = block.outputValue(vs->count).asInt();
    TdataHandle h = block.outputValue(vs->isFull);
    h.set(maxCount >= 0 && maxCount <= count);
    h.setClean();
}

// ---- particles from an input geometry ----

namespace {
// The input geometry's points in the object's space, as the space setting asks.
bool inputGeometryPointsOf(TdynParticleShape& shape, TdataBlock& block, T4dDblVectorArray& out) {
    auto* vs = TdynParticleShape::sVsData();
    Tdata g = block.inputValue(vs->inputGeometry).data();
    out.clear();
    T4dDblMatrix m;
    if (auto* geo = g.as<TdataGeometry>()) {
        for (TgeometryIterator it = geo->iterator(); !it.isDone(); it.next())
            out.addLast(it.point());
        m = geo->matrix();
    } else if (auto* v = g.as<TdataVectorArray>()) {
        out = v->array();
    } else {
        return false;
    }
    const int space = block.inputValue(vs->inputGeometrySpace).asInt();
    if (space != 0) {
        if (space == 2) m = m * shape.worldMatrix().inverse();
        TdynStatic::transformVectorArrayByMatrix(out, m, true);
    }
    return true;
}

bool historyPoints(TdynParticleShape& shape, TdataBlock& block, T4dDblVectorArray& out) {
    if (!block.inputValue(TdynParticleShape::sVsData()->enforceCountFromHistory).asBool()) return false;
    return inputGeometryPointsOf(shape, block, out);
}
} // namespace

void TdynParticleShape::computeInputGeomPoints(TdataBlock& block) {
    Tdata d = makeData<TdataVectorArray>();
    if (!inputGeometryPointsOf(*this, block, d.as<TdataVectorArray>()->array()))
        d.as<TdataVectorArray>()->array().clear();
    TdataHandle h = block.outputValue(sVsData()->inputGeometryPoints);
    h.set(d);
    h.setClean();
}

// The input geometry with its first points moved to the particles, taken to the target's space: object
// space as they are, world space, or (local) the space of the shape whose world matrix is connected.
void TdynParticleShape::computeTargetGeometry(TdataBlock& block) {
    auto* vs = sVsData();
    Tdata g = block.inputValue(vs->inputGeometry).data();
    TdataHandle out = block.outputValue(vs->targetGeometry);
    if (!g.as<TdataGeometry>()) {
        out.set(Tdata());
        out.setClean();
        return;
    }
    T4dDblVectorArray pts;
    if (const auto* p = TdynStatic::dataVectorArray(block.inputValue(vs->position).data())) pts = *p;
    const int space = block.inputValue(vs->targetGeometrySpace).asInt();
    if (space != 0) {
        T4dDblMatrix m = worldMatrix();
        if (space == 2) m = m * block.inputValue(vs->targetGeometryWorldMatrix).asMatrix().inverse();
        TdynStatic::transformVectorArrayByMatrix(pts, m, true);
    }
    g.makeWriter();
    std::vector<T4dDblVector>* points = nullptr;
    if (auto* mesh = g.as<TdataMesh>())
        points = &mesh->mesh().points;
    else if (auto* curve = g.as<TdataCurve>())
        points = &curve->curve().controlPoints();
    const unsigned n = points ? std::min(static_cast<unsigned>(points->size()), pts.length()) : 0u;
    for (unsigned i = 0; i < n; ++i)
        (*points)[i] = pts[i];
    g.makeHolder();
    out.set(g);
    out.setClean();
}

void TdynParticleShape::addParticlesFromHistory(TdataBlock& block) {
    T4dDblVectorArray pts;
    if (!historyPoints(*this, block, pts)) return;
    const unsigned c = countNoCompute();
    if (pts.length() > c) {
        TdataArrayAttrs batch;
        T4dDblVectorArray& p = batch.addVectorData("position");
        for (unsigned i = c; i < pts.length(); ++i)
            p.addLast(pts[i]);
        addRuntimeParticles(batch, true, true, true);
    }
    moveParticlesFromHistory(block);
}

void TdynParticleShape::moveParticlesFromHistory(TdataBlock& block) {
    T4dDblVectorArray pts;
    if (!historyPoints(*this, block, pts)) return;
    auto* vs = sVsData();
    Tdata d = std::move(block.outputValue(vs->position).data());
    if (!d.as<TdataVectorArray>()) d = makeData<TdataVectorArray>();
    d.makeWriter();
    T4dDblVectorArray& p = d.as<TdataVectorArray>()->array();
    const unsigned n = std::min(p.length(), pts.length());
    for (unsigned i = 0; i < n; ++i)
        p[i] = pts[i];
    d.makeHolder();
    block.outputValue(vs->position).set(d);
}

void TdynParticleShape::removeParticlesFromHistory(TdataBlock& block) {
    T4dDblVectorArray pts;
    if (!historyPoints(*this, block, pts)) return;
    const unsigned c = countNoCompute();
    if (c <= pts.length()) return;
    Tint32Array dead;
    for (unsigned i = pts.length(); i < c; ++i)
        dead.addLast(static_cast<std::int32_t>(i));
    removeDeadParticles(dead, block);
    moveParticlesFromHistory(block);
}

// ---- the initial state of a stopped object ----

void TdynParticleShape::addParticle(const T4dDblVector& position, const T4dDblVector* velocity) {
    T4dDblVectorArray p{position};
    T4dDblVectorArray v;
    if (velocity) v.addLast(*velocity);
    addParticles(p, velocity ? &v : nullptr);
}

void TdynParticleShape::addParticles(const T4dDblVectorArray& positions,
                                     const T4dDblVectorArray* velocities) {
    if (!fPrivateDataInitialized) initializePrivateData();
    auto* vs = sVsData();
    TdataBlock& block = normalBlock();
    const unsigned n = positions.length();
    const int firstId = block.outputValue(vs->nextId0).asInt();
    const unsigned count = countNoCompute();
    const unsigned count0 = initialCount();
    auto append = [&](Tattribute* a, unsigned have) {
        if (!a) return;
        TdataHandle h = block.outputValue(a);
        Tdata d = std::move(h.data());
        const TletterClass* c = arrayClassOf(a);
        if (c == &TdataVectorArray::sClass) {
            if (!d.as<TdataVectorArray>()) d = makeData<TdataVectorArray>();
            d.makeWriter();
            T4dDblVectorArray& arr = d.as<TdataVectorArray>()->array();
            const T4dDblVector def = defaultVectorValue(a);
            const unsigned old = arr.length();
            arr.changeLogicalSizeTo(have);
            for (unsigned i = old; i < have; ++i)
                arr[i] = def;
            const bool isPos = a == vs->position || a == vs->position0;
            const bool isVel = a == vs->velocity || a == vs->velocity0;
            for (unsigned i = 0; i < n; ++i)
                arr.addLast(isPos
                                ? positions[i]
                                : (isVel && velocities && i < velocities->length() ? (*velocities)[i] : def));
        } else if (c == &TdataDoubleArray::sClass) {
            if (!d.as<TdataDoubleArray>()) d = makeData<TdataDoubleArray>();
            d.makeWriter();
            TdoubleArray& arr = d.as<TdataDoubleArray>()->array();
            const double def = defaultDoubleValue(a);
            if (a == vs->finalLifespanPP) {
                arr.changeLogicalSizeTo(have);
                fillWithLifespanValues(arr, have, n, block);
            } else {
                const unsigned old = arr.length();
                arr.changeLogicalSizeTo(have);
                for (unsigned i = old; i < have; ++i)
                    arr[i] = def;
                const bool isId = a == vs->particleId || a == vs->particleId0;
                for (unsigned i = 0; i < n; ++i)
                    arr.addLast(isId ? static_cast<double>(firstId + static_cast<int>(i)) : def);
            }
        } else if (c == &TdataInt32Array::sClass) {
            if (!d.as<TdataInt32Array>()) d = makeData<TdataInt32Array>();
            d.makeWriter();
            d.as<TdataInt32Array>()->array().changeLogicalSizeTo(have + n);
        }
        d.makeHolder();
        block.outputValue(a).set(d);
    };
    for (Tattribute* a : perParticleArrays(false)) {
        append(a, count);
        if (Tattribute* a0 = initialStateAttribute(a)) append(a0, count0);
    }
    TdataHandle n0 = block.outputValue(vs->nextId0);
    n0.set(static_cast<std::int32_t>(firstId + static_cast<int>(n)));
    n0.setClean();
    TdataHandle nid = block.outputValue(vs->nextId);
    nid.set(std::max(nid.asInt(), firstId + static_cast<int>(n)));
    nid.setClean();
    // count is clean from here on: currentTime must be clean too, or the next
    // time change stops at it and never reaches the object.
    block.inputValue(vs->currentTime);
    TdataHandle c = block.outputValue(vs->count);
    c.set(static_cast<std::int32_t>(countNoCompute()));
    c.setClean();
    updateCachedAttributes(block);
    if (TdependGraph::hasCurrent()) TdependGraph::current().dirtyDependents(Tplug(this, vs->position));
}
