// Set-up of the arrays, the return to the initial state, saving the initial
// state, and the reactions to values written from outside.

#include "Commands/Caches/TdynParticleCache.h"
#include "Commands/Particles/TdynParticleShape.h"
#include "Host/Files/TsceneReading.h"

#include "Host/Command/TcommandEngine.h"
#include "Host/Graph/TdnTime.h"
#include "Host/Time/TanimInfo.h"
#include "Host/Time/TtimeEvents.h"

#include <algorithm>
#include <cmath>

namespace {
const bool kMessages = [] {
    TmessageTable::set(4627, "this name is a scalar attribute; its per-particle form ends in \"PP\": ");
    TmessageTable::set(4399, "the particle memory cache is on: changes show after the cache is cleared");
    TmessageTable::set(4401, "use \"dynCache\" or turn cacheData off to see the change at once");
    TmessageTable::set(4425, "zero mass for particle ");
    TmessageTable::set(4426, " (moved with mass 1 for this step)");
    TmessageTable::set(4412, "goals on ");
    TmessageTable::set(4413, " have no effect while dynamicsWeight is 0");
    return true;
}();

const TletterClass* arrayClassOf(const Tattribute* a) {
    if (!a || a->type() != TattrType::Typed || a->letterClasses().empty()) return nullptr;
    return a->letterClasses().front();
}
} // namespace

TdynParticleShape::TdynParticleShape() = default;

TdynParticleShape::~TdynParticleShape() {
    TtimeEvents::timeChanged().removeClient(&fTimeChangeClient);
    TtimeEvents::timeUnitChanged().removeClient(&fUnitClient);
    TtimeEvents::rangeChanged().removeClient(&fRangeClient);
    TdynParticleCaches::forget(this);
}

void TdynParticleShape::postConstructor() {
    initializePrivateData();
    // Simulations follow the scene's time from the moment they are made.
    if (TdependGraph::hasCurrent() && isInGraph()) {
        TdependGraph& g = TdependGraph::current();
        const Tplug timePlug(this, sVsData()->currentTime);
        if (TdnTime* t = g.timeNode();
            t && t != static_cast<TdependNode*>(this) && inputSource(sVsData()->currentTime, -1).isNull())
            g.connect(t->outTimePlug(), timePlug);
    }
    TtimeEvents::timeChanged().addClient(&fTimeChangeClient);
    TtimeEvents::timeUnitChanged().addClient(&fUnitClient);
    TtimeEvents::rangeChanged().addClient(&fRangeClient);
}

void TdynParticleShape::TtimeClient::triggered(int) {
    if (fKind == 0) {
        // Checked after the change settles, when the display pulls.
        if (TdependNode::fsDirtyPropagation && !TdynStatic::fIsInRunup) TdynStatic::fCheckForRunup = true;
    } else if (fKind == 1) {
        fShape.timeUnitChanged();
    } else {
        fShape.timeRangeChanged();
    }
}

void TdynParticleShape::timeUnitChanged() {
    auto* vs = sVsData();
    double startFrame = 1;
    getAttributeValue(vs->startFrame, startFrame);
    setAttributeValue(vs->startTime, TanimTime(startFrame, kCurrentFrameUnit));
    if (TdependGraph::hasCurrent()) TdependGraph::current().dirtyDependents(Tplug(this, vs->startTime));
}

namespace {
int cacheWidthForRange() {
    const TanimInfo& info = TanimInfo::currAnimInfo();
    const double frame = TanimTime(1.0, kCurrentFrameUnit).seconds();
    return static_cast<int>((info.endTime() - info.startTime()).seconds() / frame + 1.0);
}
} // namespace

void TdynParticleShape::timeRangeChanged() {
    auto* vs = sVsData();
    if (!normalBlock().outputValue(vs->cacheData).asBool()) return;
    TdataHandle w = normalBlock().outputValue(vs->cacheWidth);
    if (w.asInt() != cacheWidthForRange()) {
        w.set(static_cast<std::int32_t>(cacheWidthForRange()));
        w.setClean();
    }
}

void TdynParticleShape::setDirty(TmsgDirty& msg) {
    TgeometryShape::setDirty(msg);
    auto* vs = sVsData();
    const Tattribute* a = msg.plug().attribute();
    if (a == vs->samplerPerParticleData) {
        // Rebuilt on the next read.
        normalBlock().outputValue(a).data().reset();
    } else if (!isInSamplerPerParticleDataExclusionList(a) && TdependGraph::hasCurrent()) {
        TdependGraph::current().queueDirty(Tplug(this, vs->samplerPerParticleData));
    }
}

bool TdynParticleShape::shouldBeWritten(const Tplug& plug) const {
    auto* vs = sVsData();
    const Tattribute* a = plug.attribute();
    // Compiled expression strings and per-step records are rebuilt, not saved. The event
    // table is saved: scene files are the only record of the events a user defined.
    for (const Tattribute* derived : std::initializer_list<const Tattribute*>{
             vs->internalRuntimeExpression, vs->internalCreationExpression, vs->emission,
             vs->collisionRecords, vs->samplerPerParticleData})
        if (a == derived) return false;
    // A runtime array with an initial state is made again from it when the scene starts.
    if (a->type() == TattrType::Typed && !isInitialStateOrCacheAttribute(a))
        if (const Tattribute* initial = attribute(a->name() + "0"); initial && runtimeAttribute(initial) == a)
            return false;
    return TgeometryShape::shouldBeWritten(plug);
}

void TdynParticleShape::shiftInitialBirthTimes(double seconds) {
    auto* vs = sVsData();
    if (seconds == 0.0 || !doubleArrayReference(vs->birthTime0)) return;
    Tdata d = normalBlock().outputValue(vs->birthTime0).data();
    d.makeWriter();
    for (double& x : d.as<TdataDoubleArray>()->array())
        x += seconds;
    normalBlock().outputValue(vs->birthTime0).set(d);
}

void TdynParticleShape::initializePrivateData() {
    if (fPrivateDataInitialized) return;
    fPrivateDataInitialized = true;
    buildExclusionLists();
    auto* vs = sVsData();
    TdataBlock& block = normalBlock();
    {
        TdataHandle c = block.outputValue(vs->count);
        c.set(std::int32_t(0));
        c.setClean();
    }
    for (int i = static_cast<int>(attributeCount()) - 1; i >= 0; --i) {
        Tattribute* a = attribute(static_cast<unsigned>(i));
        if (!a || a->hasFlag(Tattribute::kInternal) || a->hasFlag(Tattribute::kHiddenFromPerParticle))
            continue;
        if (a->name() == "uvSetTweakLocation" || a->isArray()) continue;
        const TletterClass* c = arrayClassOf(a);
        if (!c) continue;
        TdataHandle h = block.outputValue(a);
        if (!h.data().isNULL()) continue;
        if (c == &TdataDoubleArray::sClass)
            h.set(makeData<TdataDoubleArray>());
        else if (c == &TdataVectorArray::sClass)
            h.set(makeData<TdataVectorArray>());
        else if (c == &TdataInt32Array::sClass)
            h.set(makeData<TdataInt32Array>());
        else if (c == &TdataArrayAttrs::sClass)
            h.set(makeData<TdataArrayAttrs>());
    }
    double startFrame = 1;
    getAttributeValue(vs->startFrame, startFrame);
    setAttributeValue(vs->startTime, TanimTime(startFrame, kCurrentFrameUnit));
    const TanimTime now = std::max(TdependGraph::hasCurrent() ? TdependGraph::current().time() : TanimTime(),
                                   TanimTime(startFrame, kCurrentFrameUnit));
    setAttributeValue(vs->cachedTime, now);
    setAttributeValue(vs->lastTimeEvaluated, now);
}

void TdynParticleShape::initializeDynamicState(bool copy) {
    if (!fDynamicStateInitialized) {
        fDynamicStateInitialized = true;
        if (!fPrivateDataInitialized) initializePrivateData();
        disableDynamics();
        patchInitialStateData(normalBlock());
        if (copy) {
            copyInitialToRuntime(normalBlock());
            // The initial state is the state at the start, whenever it is first set up.
            auto* vs = sVsData();
            const TanimTime start = normalBlock().inputValue(vs->startTime).asTime();
            for (const Tattribute* a : std::initializer_list<const Tattribute*>{
                     vs->evaluationTime, vs->cachedTime, vs->lastTimeEvaluated}) {
                TdataHandle h = normalBlock().outputValue(a);
                h.set(start);
                h.setClean();
            }
        }
        enableDynamics();
    }
    if (TdependGraph::hasCurrent()) TdependGraph::current().dirtyPlug(Tplug(this, sVsData()->currentTime));
}

void TdynParticleShape::patchInitialStateData(TdataBlock& block) {
    auto* vs = sVsData();
    const unsigned n = initialCount();
    for (Tattribute* a : perParticleArrays(false)) {
        Tattribute* a0 = initialStateAttribute(a);
        if (!a0 || a0 == vs->position0) continue;
        if (a == vs->finalLifespanPP) continue;
        clampParticleAttribute(a0, n, block);
    }
}

bool TdynParticleShape::restoreState(TdataBlock& block) {
    auto* vs = sVsData();
    disableExpressions();
    disableDynamics();
    bool restored = false;
    const TanimTime t = block.context().time();
    const TanimTime start = block.inputValue(vs->startTime).asTime();
    const TanimTime cached = block.outputValue(vs->cachedTime).asTime();
    if (TdynParticleCaches::of(*this).restoreCachedState(t)) {
        // The state a run-up ended with at this time.
        useCachedState(block, t, t);
        restored = true;
    } else if (start < t && t != cached) {
        const bool atPlaybackStart = TanimInfo::currAnimInfo().startTime() == t;
        if (TdynStatic::runupToCurrentTimeIsOn() || atPlaybackStart) {
            const bool saved = block.outputValue(vs->computingCount).asBool();
            block.outputValue(vs->computingCount).set(false);
            TdynStatic::runupSceneTo(t, TdynStatic::activeGlobalsOverSampling(), true);
            TdynStatic::cacheState(t);
            block.outputValue(vs->computingCount).set(saved);
            restored = true;
        }
        // Otherwise time jumped back and nothing can bring the object there: it keeps its state.
    } else {
        copyInitialToRuntime(block);
        restored = true;
    }
    enableDynamics();
    enableExpressions();
    if (restored && TdependGraph::hasCurrent()) {
        TdependGraph::current().dirtyDependents(Tplug(this, vs->currentTime));
        dirtySpecialCurrentTimeDependents();
    }
    return restored;
}

void TdynParticleShape::copyInitialToRuntime(TdataBlock& block) {
    auto* vs = sVsData();
    TdynParticleCaches::of(*this).clearAttributeCache();
    auto copy = [&](const Tattribute* from, const Tattribute* to) {
        copyParticleAttribute(from, block, to, block);
    };
    if (!hasNonExprInputConnection(vs->position)) copy(vs->position0, vs->position);
    copy(vs->position0, vs->lastPosition);
    copy(vs->position0, vs->lastCachedPosition);
    copy(vs->position0, vs->cachedPosition);
    if (!hasNonExprInputConnection(vs->velocity)) copy(vs->velocity0, vs->velocity);
    copy(vs->velocity0, vs->lastVelocity);
    copy(vs->velocity0, vs->cachedVelocity);
    copy(vs->acceleration0, vs->acceleration);
    if (!hasNonExprInputConnection(vs->mass)) copy(vs->mass0, vs->mass);
    copy(vs->age0, vs->age);
    copy(vs->birthTime0, vs->birthTime);
    copy(vs->particleId0, vs->particleId);
    copy(vs->emitterId0, vs->emitterId);

    const unsigned n = initialCount();
    {
        TdataHandle c = block.outputValue(vs->count);
        c.set(static_cast<std::int32_t>(n));
        c.setClean();
        TdataHandle nid = block.outputValue(vs->nextId);
        nid.set(block.outputValue(vs->nextId0).asInt());
        nid.setClean();
    }
    // The runtime arrays that came from short initial arrays are brought to the count.
    for (const Tattribute* a : std::initializer_list<const Tattribute*>{
             vs->velocity, vs->acceleration, vs->mass, vs->age, vs->birthTime, vs->particleId, vs->emitterId})
        if (!hasNonExprInputConnection(a)) clampParticleAttribute(a, n, block);

    for (Tattribute* a : localDynamicAttrs()) {
        if (isInitialStateOrCacheAttribute(a) || hasNonExprInputConnection(a) ||
            !perParticleAttribute(a->name()))
            continue;
        if (a->hasFlag(Tattribute::kInternal)) continue;
        if (Tattribute* a0 = initialStateAttribute(a)) {
            copy(a0, a);
            clampParticleAttribute(a, n, block);
        } else if (arrayClassOf(a) == &TdataVectorArray::sClass) {
            allocateAndFillVector(a, n, defaultVectorValue(a), block);
        } else if (arrayClassOf(a) == &TdataDoubleArray::sClass) {
            allocateAndFillDouble(a, n, defaultDoubleValue(a), block);
        } else {
            block.outputValue(a).set(makeData<TdataInt32Array>(Tint32Array(n, 0)));
        }
    }

    const TanimTime sceneTime = block.context().time();
    {
        // randState first: lifespans below draw from it.
        auto seedState = [&](Tattribute3Int32* state, const Tattribute* seedAttr) {
            const int s = block.inputValue(seedAttr).asInt();
            const int values[3] = {s, 0, 1};
            for (int i = 0; i < 3; ++i) {
                TdataHandle h = block.outputValue(state->children()[i]);
                h.set(static_cast<std::int32_t>(values[i]));
                h.setClean();
            }
        };
        seedState(vs->eventRandState, vs->eventSeed);
        seedState(vs->randState, vs->generalSeed);
    }
    {
        Tdata f = makeData<TdataDoubleArray>();
        fillWithLifespanValues(f.as<TdataDoubleArray>()->array(), 0, n, block);
        block.outputValue(vs->finalLifespanPP).set(f);
    }
    const T4dDblMatrix w = worldMatrix();
    {
        Tdata p0 = block.outputValue(vs->position0).data();
        const T4dDblVectorArray* p = TdynStatic::dataVectorArray(p0);
        T4dDblVectorArray wp;
        if (p) TdynStatic::transformCopyOfVectorArrayByMatrix(*p, w, wp, true);
        Tdata d = makeData<TdataVectorArray>(std::move(wp));
        for (const Tattribute* a : std::initializer_list<const Tattribute*>{
                 vs->worldPosition, vs->lastWorldPosition, vs->cachedWorldPosition})
            block.outputValue(a).set(d);
        Tdata v0 = block.outputValue(vs->velocity0).data();
        const T4dDblVectorArray* v = TdynStatic::dataVectorArray(v0);
        T4dDblVectorArray wv;
        if (v)
            TdynStatic::transformCopyOfVectorArrayByMatrix(*v, TdynStatic::matrixWithoutTranslation(w), wv,
                                                           false);
        Tdata dv = makeData<TdataVectorArray>(std::move(wv));
        for (const Tattribute* a : std::initializer_list<const Tattribute*>{
                 vs->worldVelocity, vs->lastWorldVelocity, vs->cachedWorldVelocity})
            block.outputValue(a).set(dv);
        block.outputValue(vs->worldVelocityInObjectSpace)
            .set(v0.isNULL() ? makeData<TdataVectorArray>() : v0);
    }
    block.outputValue(vs->force).set(makeData<TdataVectorArray>(T4dDblVectorArray(n)));

    auto setTime = [&](const Tattribute* a, TanimTime v) {
        TdataHandle h = block.outputValue(a);
        h.set(v);
        h.setClean();
    };
    setTime(vs->currentSceneTime, sceneTime);
    setTime(vs->lastSceneTime, sceneTime);
    setTime(vs->sceneTimeStepSize, TanimTime());
    // Before the start the object stands at its start.
    const TanimTime start = block.inputValue(vs->startTime).asTime();
    const TanimTime current = std::max(block.inputValue(vs->currentTime).asTime(), start);
    setTime(vs->evaluationTime, current);
    setTime(vs->cachedTime, current);
    setTime(vs->lastTimeEvaluated, current);
    block.inputValue(vs->timeStepSize);
    setTime(vs->timeStepSize, TanimTime());
    TdataHandle tec = block.outputValue(vs->totalEventCount);
    tec.set(std::int32_t(0));
    tec.setClean();
    fHaveLastWorldMatrix = false;
}

void TdynParticleShape::updateCachedAttributes(TdataBlock& block) {
    auto* vs = sVsData();
    Tdata p = block.outputValue(vs->position).data();
    Tdata v = block.outputValue(vs->velocity).data();
    block.outputValue(vs->lastPosition).set(p);
    block.outputValue(vs->cachedPosition).set(p);
    block.outputValue(vs->lastVelocity).set(v);
    block.outputValue(vs->cachedVelocity).set(v);
    if (TdependGraph::hasCurrent()) {
        TdependGraph& g = TdependGraph::current();
        g.dirtyDependents(Tplug(this, vs->cachedPosition));
        g.dirtyDependents(Tplug(this, vs->cachedVelocity));
    }
}

// The fields read the cached generation: without this the first step would still see the old values.
void TdynParticleShape::followEditAtStart(const Tattribute* attribute) {
    auto* vs = sVsData();
    if (attribute != vs->position && attribute != vs->velocity) return;
    TdataBlock& block = normalBlock();
    if (block.inputValue(vs->currentTime).asTime() > block.inputValue(vs->startTime).asTime()) return;
    updateCachedAttributes(block);
}

void TdynParticleShape::saveInitialState() {
    auto* vs = sVsData();
    disableExpressions();
    disableDynamics();
    TdataBlock& block = normalBlock();
    block.inputValue(vs->position); // bring the object to the current time first
    const double T = block.inputValue(vs->currentTime).asTime().seconds();
    double S = block.inputValue(vs->startTime).asTime().seconds();
    {
        TdgContextTimed ctx(block.inputValue(vs->startTime).asTime());
        TdataHandle h;
        TmsgPlugValue msg(Tplug(this, vs->currentTime), h, ctx);
        if (msg.send()) S = h.asTime().seconds();
    }
    // The saved particles keep their ages at the new start.
    if (doubleArrayReference(vs->birthTime)) {
        Tdata d = block.outputValue(vs->birthTime).data();
        d.makeWriter();
        for (double& x : d.as<TdataDoubleArray>()->array())
            x -= (T - S);
        block.outputValue(vs->birthTime).set(d);
    }
    for (unsigned i = 0; i < attributeCount(); ++i) {
        Tattribute* a = attribute(i);
        if (a && !a->hasFlag(Tattribute::kInternal)) saveInitialState(a);
    }
    TdataHandle n0 = block.outputValue(vs->nextId0);
    n0.set(block.outputValue(vs->nextId).asInt());
    n0.setClean();
    enableDynamics();
    enableExpressions();
}

bool TdynParticleShape::saveInitialState(const Tattribute* attribute) {
    if (!perParticleAttribute(attribute->name()) || isInitialStateOrCacheAttribute(attribute)) return false;
    Tattribute* a0 = initialStateAttribute(attribute);
    if (!a0) return false;
    TdataBlock& block = normalBlock();
    copyParticleAttribute(attribute, block, a0, block);
    return true;
}

bool TdynParticleShape::addAttribute(std::unique_ptr<Tattribute> attr, TattrClass cls) {
    Tattribute* a = attr.get();
    if (!TgeometryShape::addAttribute(std::move(attr), cls)) return false;
    const std::string& n = a->name();
    if (isInitialStateOrCacheAttribute(a)) {
        a->setFlag(Tattribute::kHiddenFromPerParticle);
        if (n.size() > 5 && n.compare(n.size() - 5, 5, "Cache") == 0) a->setStorable(false);
    }
    if (arrayClassOf(a) && (n == "lifespan" || n == "opacity" || n == "goal" || n == "rgb"))
        TcommandEngine::current().displayWarning(TmessageTable::text(4627) + n);
    TdataBlock& block = normalBlock();
    // Every per-particle array is a letter of its own from the start.
    if (const TletterClass* c = arrayClassOf(a); c && block.outputValue(a).data().isNULL()) {
        if (c == &TdataDoubleArray::sClass)
            block.outputValue(a).set(makeData<TdataDoubleArray>());
        else if (c == &TdataVectorArray::sClass)
            block.outputValue(a).set(makeData<TdataVectorArray>());
        else if (c == &TdataInt32Array::sClass)
            block.outputValue(a).set(makeData<TdataInt32Array>());
    }
    if (!isInitialStateOrCacheAttribute(a) && perParticleAttribute(n)) {
        // A runtime array starts at the present count, filled with its default.
        clampParticleAttribute(a, countNoCompute(), block);
    } else if (n.size() > 1 && n.back() == '0') {
        if (Tattribute* runtime = runtimeAttribute(a)) {
            runtime->setStorable(false);
            clampParticleAttribute(a, initialCount(), block);
        }
    }
    return true;
}

std::unique_ptr<Tattribute> TdynParticleShape::removeAttribute(Tattribute* attr, TattrClass cls) {
    if (attr && attr->name().size() > 1 && attr->name().back() == '0')
        if (Tattribute* runtime = runtimeAttribute(attr)) runtime->setStorable(true);
    return TgeometryShape::removeAttribute(attr, cls);
}

void TdynParticleShape::dirtySpecialCurrentTimeDependents() {
    if (!TdependGraph::hasCurrent()) return;
    TdependGraph& g = TdependGraph::current();
    for (int i = static_cast<int>(attributeCount()) - 1; i >= 0; --i) {
        Tattribute* a = attribute(static_cast<unsigned>(i));
        if (!a || !a->hasFlag(Tattribute::kPerParticleDirtyOnTime)) continue;
        if (a->hasFlag(Tattribute::kInternal) || isInitialStateOrCacheAttribute(a)) continue;
        if (a->name().rfind("cached", 0) == 0 && a->name().size() > 7) continue;
        g.dirtyPlug(Tplug(this, a));
    }
    g.dirtyPlug(Tplug(this, sVsData()->samplerPerParticleData));
}

bool TdynParticleShape::setCachedValue(const Tplug& plug, const TdataHandle& handle,
                                       const TdgContext& context) {
    if (!fPrivateDataInitialized) initializePrivateData();
    auto* vs = sVsData();
    const Tattribute* a = plug.attribute();
    if (a == vs->currentTime) {
        if (context.isNormal()) {
            TdataHandle save = normalBlock().outputValue(vs->currentTimeSave);
            save.set(handle.asTime());
            save.setClean();
        }
    } else if (a == vs->startFrame && !TanimTime::fits(handle.asDouble(), kCurrentFrameUnit)) {
        return false; // a start no clock holds
    } else if (a == vs->startFrame || a == vs->startTime) {
        const TanimTime newStart =
            a == vs->startFrame ? TanimTime(handle.asDouble(), kCurrentFrameUnit) : handle.asTime();
        const TanimTime oldStart = normalBlock().outputValue(vs->startTime).asTime();
        // Initial ages stay as they were.
        // A scene file holds the initial birth times as they stand for its start.
        if (context.isNormal() && !isReadingSceneFile())
            shiftInitialBirthTimes((newStart - oldStart).seconds());
        if (a == vs->startFrame) {
            const bool ok = TgeometryShape::setCachedValue(plug, handle, context);
            TstandaloneValue v(vs->startTime);
            v.handle().set(newStart);
            TgeometryShape::setCachedValue(Tplug(this, vs->startTime), v.handle(), context);
            return ok;
        }
    } else if (a == vs->particleRenderType) {
        const double r = handle.asDouble();
        if (r < 0 || r > 9 || r != std::floor(r)) return false;
    } else if (a == vs->cacheData && handle.asBool()) {
        const int width = cacheWidthForRange();
        TdataHandle w = normalBlock().outputValue(vs->cacheWidth);
        if (w.asInt() != width) {
            w.set(static_cast<std::int32_t>(width));
            w.setClean();
        }
    }
    if (context.isNormal() && a != vs->currentTime && a != vs->cacheData && a != vs->cacheWidth) {
        // An edit makes every remembered frame stale; the run-up's end state goes too.
        TdynParticleCaches& caches = TdynParticleCaches::of(*this);
        if (TdynParticleCache* state = caches.stateCache()) state->deleteCache();
        if (!normalBlock().outputValue(vs->cacheData).asBool()) {
            caches.memoryCache().deleteCache();
        } else {
            TcommandEngine::current().displayWarning(TmessageTable::text(4399));
            TcommandEngine::current().displayWarning(TmessageTable::text(4401));
        }
    }
    return TgeometryShape::setCachedValue(plug, handle, context);
}
