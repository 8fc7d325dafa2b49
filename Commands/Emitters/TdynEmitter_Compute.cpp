// The emitter's step: the output of one target, the frame the four emitters
// share, the counts and the random state that makes births repeat.

#include "Commands/Emitters/TdynEmitter.h"

#include "Commands/Particles/TdynParticleShape.h"
#include "Host/Command/TcommandEngine.h"
#include "Host/Graph/TmsgDirty.h"

#include <climits>
#include <cmath>
#include <cstdlib>

namespace {
constexpr double kEps = 1e-10;
} // namespace

bool TdynEmitter::sForceEmission = false;

TdynEmitter::TdynEmitter() = default;
TdynEmitter::~TdynEmitter() = default;

void TdynEmitter::destroyNode() {
    for (auto& p : fPrimitives)
        p.reset();
    fStores.clear();
}

void TdynEmitter::setDependentsDirty(TmsgDirty& msg) {
    TdynAuxiliary::setDependentsDirty(msg);
    auto* vs = emVs();
    const Tplug& p = msg.plug();
    const Tattribute* a = p.attribute();
    if (p.multiIndex() < 0 || !TdependGraph::hasCurrent()) return;
    // A target's new timing reaches only its own output element.
    if (a == &vs->deltaTime || a == &vs->startTime || a == &vs->isFull || a == &vs->inheritFactor ||
        a == &vs->seed)
        TdependGraph::current().queueDirty(Tplug(this, &vs->output, p.multiIndex()));
}

double TdynEmitter::number(const Tattribute* attr, int element) {
    return normalBlock().inputValue(own(attr), element).asDouble();
}

void TdynEmitter::setNumber(const Tattribute* attr, double value, int element) {
    Tattribute* a = own(attr);
    if (!a) return;
    TstandaloneValue v(a);
    v.handle().set(value);
    setCachedValue(Tplug(this, a, element), v.handle(), TdgContext::fsNormal);
}

bool TdynEmitter::computePlug(const Tplug& plug, TdataBlock& block) {
    auto* vs = emVs();
    if (plug.attribute() == &vs->volumeEfficiency) {
        TdataHandle h = block.outputValue(&vs->volumeEfficiency);
        h.set(1.0);
        h.setClean();
        return true;
    }
    if (plug.attribute() != &vs->output) return TdynAuxiliary::computePlug(plug, block);
    const int i = plug.multiIndex();
    if (i < 0) return false;

    const TanimTime step = block.inputValue(&vs->deltaTime, i).asTime();
    if (block.hasElement(&vs->isFull, i) && block.inputValue(&vs->isFull, i).asBool()) {
        cleanOutputData(i, block);
        return true;
    }
    if (block.inputValue(&vs->cycleEmission).asInt() == 1) {
        const TanimTime t = deltaTimeCycle(i) + step;
        const double interval = block.inputValue(&vs->cycleInterval).asInt();
        if (t.frames() < interval) {
            setDeltaTimeCycle(t, i);
        } else {
            resetRandomGenerator(i);
            setDeltaTimeCycle(TanimTime(), i);
        }
    }
    switch (block.inputValue(&vs->emitterType).asInt()) {
    case kEmitDirectional:
    case kEmitOmni:
        return pointEmitter(plug, block);
    case kEmitSurface:
        return surfaceEmitter(plug, block);
    case kEmitCurve:
        return curveEmitter(plug, block);
    case kEmitVolume:
        return volumeEmitter(plug, block);
    default:
        return TdynAuxiliary::computePlug(plug, block);
    }
}

// ---- the common frame ----

bool TdynEmitter::beginFrame(const Tplug& plug, TdataBlock& block, Frame& f) {
    auto* vs = emVs();
    f.target = plug.multiIndex();
    f.out = TmultiBuilder(block, &vs->output).addElement(f.target);
    f.data = std::move(f.out.data());
    if (!f.data.as<TdataArrayAttrs>()) f.data = makeData<TdataArrayAttrs>();
    f.data.makeWriter();
    f.attrs = f.data.as<TdataArrayAttrs>();
    return f.attrs != nullptr;
}

bool TdynEmitter::checkFrame(TdataBlock& block, Frame& f) {
    auto* vs = emVs();
    const int i = f.target;
    f.dt = block.inputValue(&vs->deltaTime, i).asTime();
    f.s.dt = f.dt.seconds();
    const TanimTime now = block.inputValue(&vs->currentTime).asTime();
    const TanimTime start = block.inputValue(&vs->startTime, i).asTime();
    timeChanged(now);
    // Emptied before any stop, so a stale batch is never handed over twice.
    f.attrs->clear();
    if (now <= start) {
        // Every run back to the start restores the sequence.
        resetRemainderArray(Tplug(this, &vs->emitCountRemainder, i), block);
        resetRandomGenerator(i);
        return false;
    }
    return !suppressEmission();
}

bool TdynEmitter::readSettings(TdataBlock& block, Frame& f) {
    auto* vs = emVs();
    if (!block.hasElement(&vs->inheritFactor, f.target)) return false;
    f.s.inheritFactor = block.inputValue(&vs->inheritFactor, f.target).asDouble();
    f.s.speed = block.inputValue(&vs->speed).asDouble();
    f.s.spread = block.inputValue(&vs->spread).asDouble();
    f.s.minDistance = block.inputValue(&vs->minDistance).asDouble();
    f.s.maxDistance = block.inputValue(&vs->maxDistance).asDouble();
    f.s.speedRandom = block.inputValue(&vs->speedRandom).asDouble();
    f.s.tangentSpeed = block.inputValue(&vs->tangentSpeed).asDouble();
    f.s.normalSpeed = block.inputValue(&vs->normalSpeed).asDouble();
    return true;
}

bool TdynEmitter::distancesUsable(const TdynEmitSettings& s) {
    return !(s.maxDistance != 0 && s.maxDistance < s.minDistance);
}

void TdynEmitter::endFrame(TdataBlock& block, Frame& f) {
    auto* vs = emVs();
    f.data.makeHolder();
    TdataHandle h = TmultiBuilder(block, &vs->output).addElement(f.target);
    h.set(f.data);
}

bool TdynEmitter::pointEmitter(const Tplug& plug, TdataBlock& block) {
    auto* vs = emVs();
    Frame f;
    beginFrame(plug, block, f);
    T4dDblVectorArray positions, velocities;
    getEmitPositionVelocityData(f.target, block, positions, velocities);
    if (!checkFrame(block, f) || positions.length() == 0 || positions.length() != velocities.length()) {
        endFrame(block, f);
        return true;
    }
    getRandomState(f.target, block);
    Tdata ids;
    if (TdynParticleShape::cast(ownerObject())) ids = block.inputValue(&vs->parentId).data();
    Tint32Array counts;
    if (!readSettings(block, f) || !getEmitCountPerPoint(plug, block, positions.length(), counts) ||
        !limitBirths(counts) || !distancesUsable(f.s)) {
        endFrame(block, f);
        return true;
    }
    TdynEmitSources src;
    src.positions = &positions;
    src.velocities = &velocities;
    src.parentIds = TdynStatic::dataDoubleArray(ids);
    if (block.inputValue(&vs->emitterType).asInt() == kEmitDirectional)
        emitFromPointDirectional(src, counts, f.s, block.inputValue(&vs->direction).asVector(),
                                 block.inputValue(&vs->worldMatrix).asMatrix(), *f.attrs);
    else
        emitFromPointOmni(src, counts, f.s, *f.attrs);
    endFrame(block, f);
    setRandomState(f.target, block);
    return true;
}

bool TdynEmitter::volumeEmitter(const Tplug& plug, TdataBlock& block) {
    auto* vs = emVs();
    Frame f;
    beginFrame(plug, block, f);
    T4dDblVectorArray positions, velocities;
    T4dDblMatrix previous;
    getEmitPositionVelocityData(f.target, block, positions, velocities, &previous);
    TdynVolumePrimitive* primitive = currentVolumePrimitive();
    if (!checkFrame(block, f) || !primitive || positions.length() == 0) {
        endFrame(block, f);
        return true;
    }
    getRandomState(f.target, block);
    Tint32Array counts;
    if (!readSettings(block, f) || !getEmitCountVolume(plug, block, counts) || !limitBirths(counts) ||
        !distancesUsable(f.s)) {
        endFrame(block, f);
        return true;
    }
    VolumeSettings v;
    v.shape = block.inputValue(&vs->volumeShape).asInt();
    v.away = block.inputValue(v.shape <= kEmitSphere ? &vs->awayFromCenter : &vs->awayFromAxis).asDouble();
    v.along = block.inputValue(&vs->alongAxis).asDouble();
    v.around = block.inputValue(&vs->aroundAxis).asDouble();
    v.randomDirection = block.inputValue(&vs->randomDirection).asDouble();
    v.scaleSpeedBySize = block.inputValue(&vs->scaleSpeedBySize).asBool();
    const T4dDblMatrix W = block.inputValue(&vs->worldMatrix).asMatrix();
    v.direction = W.transformVector(block.inputValue(&vs->direction).asVector()).normal() *
                  block.inputValue(&vs->directionalSpeed).asDouble();
    emitFromVolume(*primitive, finalVolumeMatrix(block), previous, velocities[0], counts[0], f.s, v,
                   *f.attrs);
    endFrame(block, f);
    setRandomState(f.target, block);
    return true;
}

// ---- counts ----

void TdynEmitter::emitCountPerPoint(double rate, double dt, double& remainder, int& count) {
    const double x = rate * dt;
    double n = std::trunc(x);
    double r = (x - n) + remainder;
    while (r >= 1) {
        n += 1;
        r -= 1;
    }
    remainder = r;
    // Counts beyond an int are far past any step's limit; kept finite here, cut down by limitBirths.
    count = n < 0 ? 0 : n > INT_MAX ? INT_MAX : static_cast<int>(n);
}

bool TdynEmitter::limitBirths(Tint32Array& counts) {
    long long total = 0;
    for (unsigned j = 0; j < counts.length(); ++j)
        total += counts[j];
    if (total <= kMaxBirthsPerStep) return total > 0;
    // Cut every point's share alike, before anything is allocated for them.
    const double keep = static_cast<double>(kMaxBirthsPerStep) / static_cast<double>(total);
    for (unsigned j = 0; j < counts.length(); ++j)
        counts[j] = static_cast<int>(std::floor(counts[j] * keep));
    if (!fBirthLimitWarned) {
        fBirthLimitWarned = true;
        TcommandEngine::current().displayWarning(
            name() + ": " + std::to_string(total) + " births in one step are more than the " +
            std::to_string(kMaxBirthsPerStep) + " a step can make; that many are made (this is said once). " +
            "Lower the rate, or give the particle object a maxCount");
    }
    return true;
}

void TdynEmitter::emitCountPerPoint(double dt, const TdoubleArray& rates, TdoubleArray& remainders,
                                    Tint32Array& counts) {
    const unsigned n = rates.length();
    counts.changeLogicalSizeTo(n);
    for (unsigned j = 0; j < n; ++j) {
        int c = 0;
        emitCountPerPoint(rates[j], dt, remainders[j], c);
        counts[j] = c;
    }
}

int TdynEmitter::totalEmitCount(double size, double rate, double dt, double& remainder) {
    if (!(rate > 0) || !(dt > 0)) return 0;
    int count = 0;
    emitCountPerPoint(size * rate, dt, remainder, count);
    return count;
}

namespace {
// The remainder array of a target, brought to n entries (new ones zero).
TdoubleArray& remainders(TdataBlock& block, const Tattribute* attr, int target, unsigned n, Tdata& hold) {
    hold = std::move(block.outputValue(attr, target).data());
    if (!hold.as<TdataDoubleArray>()) hold = makeData<TdataDoubleArray>();
    hold.makeWriter();
    TdoubleArray& r = hold.as<TdataDoubleArray>()->array();
    const unsigned old = r.length();
    r.changeLogicalSizeTo(n);
    for (unsigned j = old; j < n; ++j)
        r[j] = 0;
    return r;
}

void storeRemainders(TdataBlock& block, const Tattribute* attr, int target, Tdata& hold) {
    hold.makeHolder();
    block.outputValue(attr, target).set(hold);
}
} // namespace

bool TdynEmitter::getEmitCountPerPoint(const Tplug& plug, TdataBlock& block, unsigned n,
                                       Tint32Array& counts) {
    auto* vs = emVs();
    TdoubleArray rates;
    if (block.inputValue(&vs->useRatePP).asBool() && ownerShape()) {
        const Tdata d = block.inputValue(&vs->ratePP).data();
        const TdoubleArray* pp = TdynStatic::dataDoubleArray(d);
        if (!pp || pp->length() != n) return false;
        rates = *pp;
    } else {
        const double rate = block.inputValue(&vs->rate).asDouble();
        if (rate <= 0) return false;
        rates.changeLogicalSizeTo(n);
        for (unsigned j = 0; j < n; ++j)
            rates[j] = rate;
    }
    Tdata hold;
    TdoubleArray& rem = remainders(block, &vs->emitCountRemainder, plug.multiIndex(), n, hold);
    emitCountPerPoint(block.inputValue(&vs->deltaTime, plug.multiIndex()).asTime().seconds(), rates, rem,
                      counts);
    storeRemainders(block, &vs->emitCountRemainder, plug.multiIndex(), hold);
    for (unsigned j = 0; j < counts.length(); ++j)
        if (counts[j] > 0) return true;
    return false;
}

bool TdynEmitter::getEmitCountVolume(const Tplug& plug, TdataBlock& block, Tint32Array& counts) {
    auto* vs = emVs();
    double rate = block.inputValue(&vs->rate).asDouble();
    if (block.inputValue(&vs->scaleRateByObjectSize).asBool())
        if (TdynVolumePrimitive* p = currentVolumePrimitive())
            rate *= p->volume(TdynVolumeMatrix(finalVolumeMatrix(block)));
    if (rate <= 0) return false;
    Tdata hold;
    TdoubleArray& rem = remainders(block, &vs->emitCountRemainder, plug.multiIndex(), 1, hold);
    int c = 0;
    emitCountPerPoint(rate, block.inputValue(&vs->deltaTime, plug.multiIndex()).asTime().seconds(), rem[0],
                      c);
    storeRemainders(block, &vs->emitCountRemainder, plug.multiIndex(), hold);
    counts.changeLogicalSizeTo(1);
    counts[0] = c;
    return c > 0;
}

void TdynEmitter::resetRemainderArray(const Tplug& plug, TdataBlock& block) {
    auto* vs = emVs();
    Tdata hold = std::move(block.outputValue(&vs->emitCountRemainder, plug.multiIndex()).data());
    if (!hold.as<TdataDoubleArray>()) hold = makeData<TdataDoubleArray>();
    hold.makeWriter();
    TdoubleArray& r = hold.as<TdataDoubleArray>()->array();
    for (unsigned j = 0; j < r.length(); ++j)
        r[j] = 0;
    storeRemainders(block, &vs->emitCountRemainder, plug.multiIndex(), hold);
}

// ---- sources ----

TdynEmitter::TargetStore& TdynEmitter::store(int target) {
    auto [it, made] = fStores.try_emplace(target);
    if (made) {
        it->second.lastPoint = T4dDblVector();
        it->second.set = true;
    }
    return it->second;
}

bool TdynEmitter::getEmitPositionVelocityData(int target, TdataBlock& block, T4dDblVectorArray& positions,
                                              T4dDblVectorArray& velocities, T4dDblMatrix* matrixOut) {
    auto* vs = emVs();
    positions.clear();
    velocities.clear();
    if (TdependNode* owner = ownerObject(); owner && Tshape::cast(owner)) {
        if (!ownerWorldPoints(block, positions)) return false;
        if (const T4dDblVectorArray* v = ownerVelocities(block); v && v->length() == positions.length()) {
            velocities = *v;
        } else {
            // A shape with no velocities given is taken as still.
            velocities.changeLogicalSizeTo(positions.length());
            for (T4dDblVector& v2 : velocities)
                v2 = T4dDblVector();
        }
        if (matrixOut) *matrixOut = block.inputValue(&vs->worldMatrix).asMatrix();
        return positions.length() > 0;
    }
    const T4dDblMatrix inclusive = block.inputValue(&vs->worldMatrix).asMatrix();
    const T4dDblMatrix final =
        T4dDblMatrix::translation(block.inputValue(&vs->volumeOffset).asVector()) * inclusive;
    const T4dDblVector P = final.transformPoint(T4dDblVector());
    const double dt = block.inputValue(&vs->deltaTime, target).asTime().seconds();
    const bool first = fStores.find(target) == fStores.end();
    TargetStore& s = store(target);
    if (first) {
        s.inclusive = inclusive;
        s.final = final;
    }
    if (matrixOut) *matrixOut = s.final;
    const T4dDblVector V = dt > kEps ? (P - s.lastPoint) / dt : T4dDblVector();
    s.lastPoint = P;
    s.previousForCaller = s.final;
    s.inclusive = inclusive;
    s.final = final;
    positions.addLast(P);
    velocities.addLast(V);
    return true;
}

void TdynEmitter::cleanOutputData(int target, TdataBlock& block) {
    auto* vs = emVs();
    TdataHandle h = TmultiBuilder(block, &vs->output).addElement(target);
    Tdata d = std::move(h.data());
    if (!d.as<TdataArrayAttrs>()) d = makeData<TdataArrayAttrs>();
    d.makeWriter();
    d.as<TdataArrayAttrs>()->clear();
    d.makeHolder();
    h = TmultiBuilder(block, &vs->output).addElement(target);
    h.set(d);
    if (ownerObject()) return;
    // The step after a full target must not see a jump in velocity.
    const T4dDblMatrix inclusive = block.inputValue(&vs->worldMatrix).asMatrix();
    TargetStore& s = store(target);
    s.inclusive = inclusive;
    s.final = T4dDblMatrix::translation(block.inputValue(&vs->volumeOffset).asVector()) * inclusive;
    s.lastPoint = s.final.transformPoint(T4dDblVector());
}

void TdynEmitter::setPreviousPosition(int target) {
    auto* vs = emVs();
    TdataBlock& block = normalBlock();
    const T4dDblMatrix inclusive = block.inputValue(&vs->worldMatrix).asMatrix();
    TargetStore& s = store(target);
    s.inclusive = inclusive;
    s.final = T4dDblMatrix::translation(block.inputValue(&vs->volumeOffset).asVector()) * inclusive;
    s.previousForCaller = s.final;
    s.lastPoint = s.final.transformPoint(T4dDblVector());
}

// ---- random state ----

double TdynEmitter::randgen() {
    return erand48(fRandState);
}

void TdynEmitter::getRandomState(int target, TdataBlock& block) {
    auto* vs = emVs();
    if (!block.hasElement(&vs->randState, target)) return;
    const auto& kids = vs->randState.children();
    for (int k = 0; k < 3; ++k)
        fRandState[k] = static_cast<unsigned short>(block.outputValue(kids[k], target).asInt() & 0xffff);
}

void TdynEmitter::setRandomState(int target, TdataBlock& block) {
    auto* vs = emVs();
    const auto& kids = vs->randState.children();
    for (int k = 0; k < 3; ++k) {
        TdataHandle h = block.outputValue(kids[k], target);
        h.set(static_cast<std::int32_t>(fRandState[k]));
        h.setClean();
    }
    block.setClean(&vs->randState, target);
}

void TdynEmitter::resetRandomGenerator(int target) {
    auto* vs = emVs();
    TdataBlock& block = normalBlock();
    // A seed that arrives as a double is rounded.
    const double s = block.inputValue(&vs->seed, target).asDouble();
    fRandState[0] = static_cast<unsigned short>(static_cast<std::int32_t>(std::lround(s)) & 0xffff);
    fRandState[1] = 0;
    fRandState[2] = 1;
    setRandomState(target, block);
}

// ---- time ----

void TdynEmitter::timeChanged(TanimTime now) {
    if (!fHaveFrame) {
        fCurrentFrame = fLastFrame = now;
        fHaveFrame = true;
        return;
    }
    if (now == fCurrentFrame) return;
    fLastFrame = fCurrentFrame;
    fCurrentFrame = now;
}

bool TdynEmitter::suppressEmission() const {
    if (sForceEmission) return false;
    return fHaveFrame && fCurrentFrame < fLastFrame;
}

TanimTime TdynEmitter::deltaTimeCycle(int target) {
    return normalBlock().outputValue(&emVs()->deltaTimeCycle, target).asTime();
}

void TdynEmitter::setDeltaTimeCycle(TanimTime t, int target) {
    TdataHandle h = normalBlock().outputValue(&emVs()->deltaTimeCycle, target);
    h.set(t);
    h.setClean();
}

void TdynEmitter::worldMatrixModified() {
    if (TdependGraph::hasCurrent())
        TdependGraph::current().dirtyDependents(Tplug(this, &emVs()->worldMatrix));
}
