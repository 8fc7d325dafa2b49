// The evaluation loop: how a pull at a time becomes at most one step, the
// integrator, force accumulation with goals, and the derived arrays.

#include "Commands/Caches/TdynParticleCache.h"
#include "Commands/Particles/TdynParticleShape.h"

#include "Host/Command/TcommandEngine.h"
#include "Host/Data/TdataGeometry.h"
#include "Host/Graph/TdnTime.h"

#include <algorithm>
#include <cmath>

namespace {
constexpr double kEps = 1e-10;

// Takes the letter out of a slot so that nobody else holds it, then makes it
// writable: no copy unless another attribute shares it.
template <class L> Tdata takeForWriting(TdataBlock& block, const Tattribute* attr) {
    Tdata d = std::move(block.outputValue(attr).data());
    if (!d.as<L>()) d = makeData<L>();
    d.makeWriter();
    return d;
}
template <class L> typename L::ArrayType& arrayOf(Tdata& d) {
    return d.as<L>()->array();
}

const T4dDblVectorArray& emptyVectors() {
    static const T4dDblVectorArray empty;
    return empty;
}
} // namespace

bool TdynParticleShape::computePlug(const Tplug& plug, TdataBlock& block) {
    if (!fPrivateDataInitialized) initializePrivateData();
    auto* vs = sVsData();
    const Tattribute* a = plug.attribute();
    if (!isInComputeExclusionList(a)) block.inputValue(vs->count);

    auto isChildOf = [](const Tattribute* attr, const Tattribute* parent) {
        return attr == parent || attr->parent() == parent;
    };
    if (a == vs->count) return computeCount(block);
    if (a == vs->lastPosition) return computeLastPositionFromVelocity(block), true;
    if (a == vs->worldPosition) return computeWorldPosition(block), true;
    if (a == vs->lastWorldPosition) return computeLastWorldPosition(block), true;
    if (isChildOf(a, vs->fieldData)) return computeFieldData(block), true;
    if (isChildOf(a, vs->emitterData)) return computeEmitterData(block), true;
    if (a == vs->worldVelocity || a == vs->lastWorldVelocity) return computeWorldVelocity(block), true;
    if (a == vs->worldVelocityInObjectSpace) return computeWorldVelocityInObjectSpace(block), true;
    if (a == vs->cachedWorldPosition) return computeCachedWorldPosition(block), true;
    if (a == vs->lastCachedPosition) return computeLastCachedPositionFromVelocity(block), true;
    if (a == vs->cachedWorldVelocity) return computeCachedWorldVelocity(block), true;
    if (isChildOf(a, vs->centroid)) return computeCentroid(block, vs->position, vs->centroid), true;
    if (isChildOf(a, vs->worldCentroid))
        return computeCentroid(block, vs->worldPosition, vs->worldCentroid), true;
    if (isChildOf(a, vs->cachedWorldCentroid))
        return computeCentroid(block, vs->cachedWorldPosition, vs->cachedWorldCentroid), true;
    if (a == vs->force) return computeForces(block), true;
    if (a == vs->timeStepSize) return computeTimeStepSize(block), true;
    if (a == vs->evaluationTime) return computeEvaluationTime(block), true;
    if (a == vs->age) return computeAge(block), true;
    if (a == vs->lastWorldMatrix) return computeLastWorldMatrix(block), true;
    if (a == vs->forceDynamics) {
        if (block.isNormalContext()) computeCount(block);
        block.outputValue(vs->forceDynamics).setClean();
        return true;
    }
    if (a == vs->emission) return computeEmission(block), true;
    if (a == vs->inputGeometryPoints) return computeInputGeomPoints(block), true;
    if (a == vs->targetGeometry) return computeTargetGeometry(block), true;
    if (a == vs->death) return computeDeath(block), true;
    if (a == vs->isFull) return computeIsFull(block), true;
    if (isChildOf(a, vs->idMapping)) return computeIdMapping(block), true;
    if (a == vs->finalLifespanPP) {
        if (block.inputValue(vs->lifespanMode).asInt() != 3) return TgeometryShape::computePlug(plug, block);
        return computeFinalLifespanPP(block), true;
    }
    if (a == vs->collisions) {
        processCollisions(block);
        block.outputValue(vs->collisions).setClean();
        return true;
    }
    if (a == vs->collisionEvents) return computeCollisionEvents(block), true;
    if (a == vs->eventTest) return computeEventTest(block), true;
    // Expressions join in later; their step slots settle as no-ops.
    if (a == vs->executeCreationExpression || a == vs->executeRuntimeExpression) {
        block.outputValue(a).setClean();
        return true;
    }
    if (a->name() == "ageNormalized" || (a->name().empty() && a->shortName() == "ageNormalized"))
        return computeNormalizedAge(block), true;
    return TgeometryShape::computePlug(plug, block);
}

void TdynParticleShape::doPreDraw() {
    if (!isVisible()) return;
    TdynStatic::delayedTimeChangeRunup(this);
    worldMatrix();
    normalBlock().inputValue(sVsData()->position);
}

void TdynParticleShape::forceDynamics() {
    if (!fPrivateDataInitialized) initializePrivateData();
    TdataBlock& block = normalBlock();
    block.inputValue(sVsData()->currentTime);
    computeCount(block);
}

// ---- the step ----

bool TdynParticleShape::computeCount(TdataBlock& block) {
    auto* vs = sVsData();
    const bool wasComputing = block.outputValue(vs->computingCount).asBool();
    {
        TdataHandle c = block.outputValue(vs->count);
        c.set(static_cast<std::int32_t>(block.isNormalContext() ? countNoCompute() : [&] {
            auto* p = TdynStatic::dataVectorArray(block.outputValue(vs->position).data());
            return p ? p->length() : 0u;
        }()));
        c.setClean();
    }
    // In a timed context the object shows its stored state; a nested request returns at once.
    if (!block.isNormalContext() || wasComputing) return true;
    if (!fDynamicStateInitialized) initializeDynamicState(true);

    block.outputValue(vs->computingCount).set(true);
    // A failure inside the step must not leave the guard set for good.
    struct Reset {
        TdataBlock& block;
        const Tattribute* attr;
        ~Reset() { block.outputValue(attr).set(false); }
    } reset{block, vs->computingCount};
    TdependGraph& graph = TdependGraph::current();
    const Tplug countPlug(this, vs->count);
    auto dirtyCountDependents = [&] { graph.dirtyDependents(countPlug); };

    const TanimTime start = block.inputValue(vs->startTime).asTime();
    const TanimTime current = block.inputValue(vs->currentTime).asTime();
    const TanimTime cached = block.inputValue(vs->cachedTime).asTime();
    const TanimTime t = graph.time();

    // Cached data for this time (disk files, the memory cache) stands in for the step.
    TdynParticleCaches& caches = TdynParticleCaches::of(*this);
    if (caches.usingCachedAttributes(current)) {
        useCachedState(block, current, t);
        dirtyCountDependents();
        return true;
    }

    const double d = (current - cached).seconds();
    if (d < 0 || (t <= start && std::fabs(d) > kEps)) restoreState(block);

    block.inputValue(vs->evaluationTime);
    // Settled now, so that the derived arrays read after the step see this step's length.
    block.inputValue(vs->timeStepSize);
    block.setClean(vs->count);
    const bool dynamic = block.inputValue(vs->isDynamic).asBool();
    if (dynamic) {
        ++fStepCount;
        clearAccelerations(block);
        updateFromRamp(vs->velocity, vs->rampVelocity, block);
        updateFromRamp(vs->position, vs->rampPosition, block);
        dirtyCountDependents();
        const bool after = block.inputValue(vs->expressionsAfterDynamics).asBool();
        if (!after) block.inputValue(vs->executeRuntimeExpression);
        fBirthPoints.clear(); // births of an earlier step are no longer new
        block.inputValue(vs->emission);
        addParticlesFromHistory(block);
        dirtyCountDependents();
        block.inputValue(vs->executeCreationExpression);
        computeDynamics(block);
        block.inputValue(vs->death);
        const int renderType = block.inputValue(vs->particleRenderType).asInt();
        bool needWorldVelocity = renderType == 1 || renderType == 6 || renderType == 9;
        for (auto& [key, dst] : outputConnections())
            if (key.attr == vs->worldVelocityInObjectSpace->index()) needWorldVelocity = true;
        if (needWorldVelocity) computeWorldVelocityInObjectSpace(block);
        block.inputValue(vs->collisions);
        block.inputValue(vs->collisionEvents);
        dirtyCountDependents();
        if (after) block.inputValue(vs->executeRuntimeExpression);
        removeParticlesFromHistory(block);
        TdataHandle c = block.outputValue(vs->count);
        c.set(static_cast<std::int32_t>(countNoCompute()));
        c.setClean();
        // The memory cache takes the step's result.
        caches.cacheAttributes(block.outputValue(vs->evaluationTime).asTime());
    }
    block.outputValue(vs->computingCount).set(false);

    if (dynamic && d > 0) {
        // Added per-particle arrays settle within this step.
        if (Tattribute* an = attribute("ageNormalized")) {
            computeNormalizedAge(block);
            block.setClean(an);
        }
        for (Tattribute* a : localDynamicAttrs()) {
            if (a->hasFlag(Tattribute::kInternal) || a->hasFlag(Tattribute::kHiddenFromPerParticle)) continue;
            if (a->name() == "uvSetTweakLocation" || !perParticleAttribute(a->name())) continue;
            block.inputValue(a);
        }
    }
    return true;
}

void TdynParticleShape::useCachedState(TdataBlock& block, TanimTime current, TanimTime sceneTime) {
    auto* vs = sVsData();
    auto setTime = [&](const Tattribute* a, TanimTime v) {
        TdataHandle h = block.outputValue(a);
        h.set(v);
        h.setClean();
    };
    setTime(vs->lastTimeEvaluated, current);
    setTime(vs->cachedTime, current);
    setAttributeValue(vs->lastSceneTime, sceneTime);
    block.inputValue(vs->lastSceneTime);
    // Force providers see the restored state.
    block.outputValue(vs->cachedPosition).set(block.outputValue(vs->position).data());
    block.outputValue(vs->cachedVelocity).set(block.outputValue(vs->velocity).data());
    TdataHandle c = block.outputValue(vs->count);
    c.set(static_cast<std::int32_t>(countNoCompute()));
    c.setClean();
}

void TdynParticleShape::computeEvaluationTime(TdataBlock& block) {
    auto* vs = sVsData();
    const TanimTime t = block.context().time();
    const TanimTime start = block.inputValue(vs->startTime).asTime();
    const TanimTime wanted =
        t < start ? start : TdynStatic::nextFrameBoundary(t, TdynStatic::activeGlobalsOverSampling());
    TanimTime value = wanted;
    const Tplug src = inputSource(vs->currentTime, -1);
    const bool plainTime = !src.isNull() && TdnTime::cast(src.node()) != nullptr;
    if (!plainTime) {
        // A time warp on currentTime bends the whole simulation.
        TdgContextTimed ctx(wanted);
        TdataHandle h;
        TmsgPlugValue msg(Tplug(this, vs->currentTime), h, ctx);
        if (msg.send()) value = h.asTime();
    }
    TdataHandle out = block.outputValue(vs->evaluationTime);
    out.set(value);
    out.setClean();
}

void TdynParticleShape::computeTimeStepSize(TdataBlock& block) {
    auto* vs = sVsData();
    const TanimTime e = block.inputValue(vs->evaluationTime).asTime();
    const TanimTime l = block.inputValue(vs->lastTimeEvaluated).asTime();
    TdataHandle out = block.outputValue(vs->timeStepSize);
    out.set(e - l);
    out.setClean();
}

void TdynParticleShape::computeAge(TdataBlock& block) {
    auto* vs = sVsData();
    const unsigned n = static_cast<unsigned>(std::max(0, block.outputValue(vs->count).asInt()));
    const double te = block.inputValue(vs->evaluationTime).asTime().seconds();
    Tdata birth = block.outputValue(vs->birthTime).data();
    const TdoubleArray* b = TdynStatic::dataDoubleArray(birth);
    Tdata ages = takeForWriting<TdataDoubleArray>(block, vs->age);
    TdoubleArray& g = arrayOf<TdataDoubleArray>(ages);
    g.changeLogicalSizeTo(n);
    if (b && b->length() == n) {
        for (unsigned i = 0; i < n; ++i)
            g[i] = te - (*b)[i];
    } else {
        const double s = te - block.inputValue(vs->startTime).asTime().seconds();
        for (unsigned i = 0; i < n; ++i)
            g[i] = s;
    }
    block.outputValue(vs->age).set(ages);
}

void TdynParticleShape::computeDynamics(TdataBlock& block) {
    auto* vs = sVsData();
    const TanimTime start = block.inputValue(vs->startTime).asTime();
    const TanimTime eval = block.outputValue(vs->evaluationTime).asTime();
    const TanimTime t = block.context().time();
    const double dt = (eval - block.outputValue(vs->cachedTime).asTime()).seconds();

    const TanimTime previousScene = block.outputValue(vs->currentSceneTime).asTime();
    {
        TdataHandle h = block.outputValue(vs->currentSceneTime);
        h.set(t);
        h.setClean();
    }
    const bool forcesInWorld = block.inputValue(vs->forcesInWorld).asBool();
    const double weight = block.inputValue(vs->dynamicsWeight).asDouble();
    const double conserve = block.inputValue(vs->conserve).asDouble();
    auto markClean = [&] {
        block.setClean(vs->position);
        block.setClean(vs->velocity);
        block.setClean(vs->acceleration);
    };
    auto storeSceneStep = [&] {
        TdataHandle h = block.outputValue(vs->sceneTimeStepSize);
        h.set(t - previousScene);
        h.setClean();
    };

    if (dt == 0.0) {
        markClean();
    } else if (dt > 0 && start < t && block.inputValue(vs->isDynamic).asBool()) {
        const unsigned n = countNoCompute();
        if (n == 0) {
            markClean();
            storeSceneStep();
        } else {
            // Reading force pulls the connected fields, which read the cached generation.
            Tdata forceData = block.inputValue(vs->force).data();
            Tdata massData = block.inputValue(vs->mass).data();
            block.inputValue(vs->acceleration);
            const T4dDblMatrix world = worldMatrix();
            // The cached generation lets go of the old letters, so that writing needs no copy.
            block.outputValue(vs->cachedPosition).data().reset();
            block.outputValue(vs->cachedVelocity).data().reset();
            Tdata pos = takeForWriting<TdataVectorArray>(block, vs->position);
            Tdata vel = takeForWriting<TdataVectorArray>(block, vs->velocity);
            Tdata acc = takeForWriting<TdataVectorArray>(block, vs->acceleration);
            T4dDblVectorArray& p = arrayOf<TdataVectorArray>(pos);
            T4dDblVectorArray& v = arrayOf<TdataVectorArray>(vel);
            T4dDblVectorArray& ac = arrayOf<TdataVectorArray>(acc);
            // Velocity and acceleration follow position's length; mass defaults to 1.
            if (v.length() < p.length()) v.changeLogicalSizeTo(p.length());
            if (ac.length() < p.length()) ac.changeLogicalSizeTo(p.length());
            const TdoubleArray* m = TdynStatic::dataDoubleArray(massData);
            TdoubleArray massCopy;
            if (!m || m->length() < p.length()) {
                massCopy = m ? *m : TdoubleArray();
                const unsigned old = massCopy.length();
                massCopy.changeLogicalSizeTo(p.length());
                for (unsigned i = old; i < p.length(); ++i)
                    massCopy[i] = 1.0;
                m = &massCopy;
            }
            const T4dDblVectorArray* f = TdynStatic::dataVectorArray(forceData);
            evaluateEuler(p, v, ac, f ? *f : emptyVectors(), *m, dt, conserve, weight, forcesInWorld, world,
                          nullptr, nullptr, nullptr, name().c_str());
            pos.makeHolder();
            vel.makeHolder();
            acc.makeHolder();
            block.outputValue(vs->position).set(pos);
            block.outputValue(vs->velocity).set(vel);
            block.outputValue(vs->cachedPosition).set(pos);
            block.outputValue(vs->cachedVelocity).set(vel);
            block.outputValue(vs->acceleration).set(acc);
            storeSceneStep();
        }
    } else {
        markClean();
    }
    if (block.isNormalContext()) {
        for (const Tattribute* a :
             std::initializer_list<const Tattribute*>{vs->cachedTime, vs->lastTimeEvaluated}) {
            TdataHandle h = block.outputValue(a);
            h.set(eval);
            h.setClean();
        }
        TdataHandle h = block.outputValue(vs->lastSceneTime);
        h.set(t);
        h.setClean();
    }
}

void TdynParticleShape::evaluateEuler(T4dDblVectorArray& position, T4dDblVectorArray& velocity,
                                      T4dDblVectorArray& acceleration, const T4dDblVectorArray& force,
                                      const TdoubleArray& mass, double dt, double conserve,
                                      double dynamicsWeight, bool forcesInWorld,
                                      const T4dDblMatrix& worldMatrix, T4dDblVectorArray* outPosition,
                                      T4dDblVectorArray* outVelocity, T4dDblVectorArray* outAcceleration,
                                      const char* nameForWarnings) {
    T4dDblVectorArray* P = &position;
    T4dDblVectorArray* V = &velocity;
    T4dDblVectorArray* A = &acceleration;
    if (outPosition) {
        *outPosition = position;
        P = outPosition;
    }
    if (outVelocity) {
        *outVelocity = velocity;
        V = outVelocity;
    }
    if (outAcceleration) {
        *outAcceleration = acceleration;
        A = outAcceleration;
    }
    const int n = static_cast<int>(P->length());
    T4dDblVector* p = P->data();
    T4dDblVector* v = V->data();
    T4dDblVector* a = A->data();

    if (conserve != 1.0)
        for (int i = static_cast<int>(V->length()) - 1; i >= 0; --i)
            v[i] *= conserve;

    if (std::fabs(dynamicsWeight) <= kEps) {
        for (int i = n - 1; i >= 0; --i)
            p[i] += v[i] * dt;
        return;
    }

    const double* m = mass.data();
    bool allMassive = true;
    for (int i = n - 1; i >= 0; --i)
        if (std::fabs(m[i]) <= kEps) {
            allMassive = false;
            break;
        }

    T4dDblMatrix M;
    if (forcesInWorld) M = TdynStatic::matrixWithoutTranslation(worldMatrix).inverse();
    // An object without rotation or scale needs no product per particle.
    if (forcesInWorld && M.isIdentity(0.0)) forcesInWorld = false;

    const T4dDblVector* f = force.data();
    T4dDblVectorArray padded;
    if (static_cast<int>(force.length()) < n) {
        padded = force;
        padded.changeLogicalSizeTo(static_cast<unsigned>(n));
        f = padded.data();
    }

    if (allMassive && !forcesInWorld) {
        for (int i = n - 1; i >= 0; --i) {
            const double s = dynamicsWeight / m[i];
            a[i] += f[i] * s;
            v[i] += a[i] * dt;
            p[i] += v[i] * dt;
        }
        return;
    }
    for (int i = n - 1; i >= 0; --i) {
        double mi = m[i];
        if (!allMassive && std::fabs(mi) <= kEps) {
            if (nameForWarnings)
                TcommandEngine::current().displayWarning(TmessageTable::text(4425) + std::to_string(i) +
                                                         ", " + nameForWarnings + TmessageTable::text(4426));
            mi = 1.0;
        }
        const double s = dynamicsWeight / mi;
        T4dDblVector acc = f[i] * s;
        if (forcesInWorld) acc = M.transformVector(acc);
        a[i] += acc;
        v[i] += a[i] * dt;
        p[i] += v[i] * dt;
    }
}

// ---- forces ----

void TdynParticleShape::computeForces(TdataBlock& block) {
    auto* vs = sVsData();
    TmultiHandle inputs = block.inputArrayValue(vs->inputForce);
    const unsigned n = static_cast<unsigned>(std::max(0, block.outputValue(vs->count).asInt()));
    Tdata out = takeForWriting<TdataVectorArray>(block, vs->force);
    T4dDblVectorArray& force = arrayOf<TdataVectorArray>(out);
    force.changeLogicalSizeTo(n);
    T4dDblVector* fo = force.data();
    // The first array is copied in rather than added to zeros: one pass fewer.
    bool first = true;
    for (unsigned e = 0; e < inputs.elementCount(); ++e) {
        inputs.jumpToArrayElement(e);
        Tdata d = inputs.value().data();
        const T4dDblVectorArray* f = TdynStatic::dataVectorArray(d);
        if (!f || f->length() == 0) continue;
        const unsigned m = std::min(f->length(), n);
        const T4dDblVector* fi = f->data();
        // Newcomers the field has not seen yet get its last value.
        const T4dDblVector last = fi[f->length() - 1];
        if (first) {
            for (unsigned i = 0; i < m; ++i)
                fo[i] = fi[i];
            for (unsigned i = m; i < n; ++i)
                fo[i] = last;
        } else {
            for (unsigned i = 0; i < m; ++i)
                fo[i] += fi[i];
            for (unsigned i = m; i < n; ++i)
                fo[i] += last;
        }
        first = false;
    }
    if (first) std::fill(force.begin(), force.end(), T4dDblVector());
    computeGoalForces(force, block);
    out.makeHolder();
    block.outputValue(vs->force).set(out);
}

bool TdynParticleShape::isGoalObjectValid(int element, TdataBlock& block) {
    auto* vs = sVsData();
    if (block.hasElement(vs->goalActive, element) && !block.inputValue(vs->goalActive, element).asBool())
        return false;
    if (block.hasElement(vs->goalWeight, element) &&
        std::fabs(block.inputValue(vs->goalWeight, element).asDouble()) <= kEps)
        return false;
    if (!block.hasElement(vs->goalGeometry, element) || inputSource(vs->goalGeometry, element).isNull())
        return false;
    Tdata d = block.inputValue(vs->goalGeometry, element).data();
    if (auto* v = d.as<TdataVectorArray>()) return v->length() > 0;
    if (d.as<TdataMatrix>()) return true;
    if (auto* g = d.as<TdataGeometry>()) return g->iterator().count() > 0;
    return false;
}

void TdynParticleShape::getGoalWeights(TdoubleArray& out, TdataBlock& block) {
    auto* vs = sVsData();
    out.clear();
    for (int e : block.elementIndices(vs->goalGeometry)) {
        if (!isGoalObjectValid(e, block)) continue;
        double w = 1.0;
        if (block.hasElement(vs->goalWeight, e))
            w = std::clamp(block.inputValue(vs->goalWeight, e).asDouble(), 0.0, 1.0);
        out.addLast(w);
    }
}

bool TdynParticleShape::getGoalPositions(T4dDblVectorArray& out, unsigned n, TdataBlock& block) {
    auto* vs = sVsData();
    out.clear();
    std::vector<int> valid;
    for (int e : block.elementIndices(vs->goalGeometry))
        if (isGoalObjectValid(e, block)) valid.push_back(e);
    if (valid.empty() || n == 0) return false;
    out.changeLogicalSizeTo(n * static_cast<unsigned>(valid.size()));
    for (unsigned k = 0; k < valid.size(); ++k) {
        Tdata d = block.inputValue(vs->goalGeometry, valid[k]).data();
        std::vector<T4dDblVector> pts;
        if (auto* v = d.as<TdataVectorArray>())
            pts.assign(v->array().begin(), v->array().end());
        else if (auto* mtx = d.as<TdataMatrix>())
            pts.push_back(mtx->matrix().getTranslation());
        else if (auto* g = d.as<TdataGeometry>())
            for (TgeometryIterator it = g->iterator(); !it.isDone(); it.next())
                pts.push_back(it.point());
        if (pts.empty()) continue;
        // A goal with fewer points than particles wraps around.
        for (unsigned j = 0; j < pts.size(); ++j)
            for (unsigned i = j; i < n; i += static_cast<unsigned>(pts.size()))
                out[i + n * k] = pts[j];
    }
    if (Tattribute* off = attribute("goalOffset")) {
        Tdata od = block.inputValue(off).data();
        if (const T4dDblVectorArray* o = TdynStatic::dataVectorArray(od))
            for (unsigned k = 0; k < valid.size(); ++k)
                for (unsigned i = 0; i < o->length() && i < n; ++i)
                    out[i + n * k] += (*o)[i];
    }
    return true;
}

void TdynParticleShape::computeGoalForces(T4dDblVectorArray& force, TdataBlock& block) {
    auto* vs = sVsData();
    const unsigned n = countNoCompute();
    T4dDblVectorArray G;
    if (!getGoalPositions(G, n, block) || G.length() == 0) return;
    TdoubleArray weights;
    getGoalWeights(weights, block);
    const unsigned g = G.length() / n;
    if (g < 1 || weights.length() != g) return;
    const double s = block.inputValue(vs->goalSmoothness).asDouble();
    for (double& w : weights)
        w = std::pow(w, s);

    Tdata posData = block.outputValue(vs->position).data();
    Tdata velData = block.outputValue(vs->velocity).data();
    Tdata accData = block.outputValue(vs->acceleration).data();
    Tdata massData = block.inputValue(vs->mass).data();
    const double conserve = block.inputValue(vs->conserve).asDouble();
    const double dw = block.inputValue(vs->dynamicsWeight).asDouble();
    if (std::fabs(dw) <= kEps) {
        TcommandEngine::current().displayWarning(
            TmessageTable::text(4412) + name() + TmessageTable::text(4413), true);
        return;
    }
    const double dt =
        (block.outputValue(vs->evaluationTime).asTime() - block.outputValue(vs->cachedTime).asTime())
            .seconds();
    if (!(dt >= 0 && std::fabs(dt) > kEps)) return;
    const T4dDblMatrix W = worldMatrix();
    const T4dDblMatrix Vinv = TdynStatic::matrixWithoutTranslation(W).inverse();
    const bool forcesInWorld = block.inputValue(vs->forcesInWorld).asBool();

    const T4dDblVectorArray* pos = TdynStatic::dataVectorArray(posData);
    if (!pos || pos->length() < n) return;
    T4dDblVectorArray vel =
        velData.as<TdataVectorArray>() ? velData.as<TdataVectorArray>()->array() : T4dDblVectorArray();
    T4dDblVectorArray acc =
        accData.as<TdataVectorArray>() ? accData.as<TdataVectorArray>()->array() : T4dDblVectorArray();
    vel.changeLogicalSizeTo(n);
    acc.changeLogicalSizeTo(n);
    TdoubleArray mass =
        massData.as<TdataDoubleArray>() ? massData.as<TdataDoubleArray>()->array() : TdoubleArray();
    {
        const unsigned old = mass.length();
        mass.changeLogicalSizeTo(n);
        for (unsigned i = old; i < n; ++i)
            mass[i] = 1.0;
    }
    // Predict where the particles would go without goals; the prediction is thrown away.
    T4dDblVectorArray P, PV, PA;
    T4dDblVectorArray posCopy = *pos;
    evaluateEuler(posCopy, vel, acc, force, mass, dt, conserve, dw, forcesInWorld, W, &P, &PV, &PA);
    TdynStatic::transformVectorArrayByMatrix(P, W, true);

    // Weights squared over their sum, on purpose.
    double sum = 0, wmax = 0;
    for (double w : weights) {
        sum += w;
        wmax = std::max(wmax, w);
    }
    if (wmax == 0.0) return;
    TdoubleArray N(g);
    for (unsigned k = 0; k < g; ++k)
        N[k] = (weights[k] / sum) * weights[k];
    wmax = std::min(wmax, 1.0);

    unsigned L = n;
    TdoubleArray scale(n);
    Tattribute* goalPP = attribute("goalPP");
    const TdoubleArray* gpp = nullptr;
    Tdata gppData;
    if (goalPP) {
        gppData = block.inputValue(goalPP).data();
        gpp = TdynStatic::dataDoubleArray(gppData);
    }
    if (gpp) {
        L = std::min(n, gpp->length());
        for (unsigned i = 0; i < L; ++i)
            scale[i] = std::clamp(std::pow((*gpp)[i], s), 0.0, 1.0) * mass[i];
    } else {
        for (unsigned i = 0; i < n; ++i)
            scale[i] = mass[i];
    }
    const double c = 1.0 / (dw * dt * dt);
    T4dDblVectorArray A(L);
    for (unsigned i = 0; i < L; ++i)
        A[i] = ((*pos)[i] - P[i]) * (scale[i] * c * wmax);
    for (unsigned k = 0; k < g; ++k)
        for (unsigned i = 0; i < L; ++i)
            A[i] += (G[i + n * k] - (*pos)[i]) * (scale[i] * N[k] * c);
    if (!forcesInWorld) TdynStatic::transformVectorArrayByMatrix(A, Vinv, false);
    if (force.length() < L) force.changeLogicalSizeTo(L);
    for (unsigned i = 0; i < L; ++i)
        force[i] += A[i];
}

void TdynParticleShape::clearAccelerations(TdataBlock& block) {
    auto* vs = sVsData();
    if (updateFromRamp(vs->acceleration, vs->rampAcceleration, block)) return;
    Tdata acc = takeForWriting<TdataVectorArray>(block, vs->acceleration);
    T4dDblVectorArray& a = arrayOf<TdataVectorArray>(acc);
    std::fill(a.begin(), a.end(), T4dDblVector());
    acc.makeHolder();
    block.outputValue(vs->acceleration).set(acc);
}

bool TdynParticleShape::updateFromRamp(const Tattribute* target, const Tattribute* ramp, TdataBlock& block) {
    if (!TdynStatic::hasInputConnection(Tplug(this, const_cast<Tattribute*>(ramp)))) return false;
    if (attribute("ageNormalized")) computeNormalizedAge(block);
    Tdata r = block.inputValue(ramp).data();
    const T4dDblVectorArray* src = TdynStatic::dataVectorArray(r);
    Tdata out = takeForWriting<TdataVectorArray>(block, target);
    T4dDblVectorArray& dst = arrayOf<TdataVectorArray>(out);
    const unsigned m = src ? std::min(src->length(), dst.length()) : 0;
    for (unsigned i = 0; i < m; ++i)
        dst[i] = (*src)[i];
    for (unsigned i = m; i < dst.length(); ++i)
        dst[i] = T4dDblVector();
    out.makeHolder();
    block.outputValue(target).set(out);
    return true;
}

// ---- derived arrays ----

namespace {
double stepSeconds(TdataBlock& block, const Tattribute* timeStep) {
    return block.inputValue(timeStep).asTime().seconds();
}

void storeVectors(TdataBlock& block, const Tattribute* attr, T4dDblVectorArray array) {
    block.outputValue(attr).set(makeData<TdataVectorArray>(std::move(array)));
}
const T4dDblVectorArray& vectorsOf(const Tdata& d) {
    const T4dDblVectorArray* a = TdynStatic::dataVectorArray(d);
    return a ? *a : emptyVectors();
}
} // namespace

void TdynParticleShape::computeWorldPosition(TdataBlock& block) {
    auto* vs = sVsData();
    Tdata p = block.inputValue(vs->position).data();
    T4dDblVectorArray out;
    TdynStatic::transformCopyOfVectorArrayByMatrix(vectorsOf(p), worldMatrix(), out, true);
    storeVectors(block, vs->worldPosition, std::move(out));
}

void TdynParticleShape::computeLastPositionFromVelocity(TdataBlock& block) {
    auto* vs = sVsData();
    stepBackAlongVelocity(block, vs->position, vs->velocity, vs->lastPosition);
}

void TdynParticleShape::stepBackAlongVelocity(TdataBlock& block, const Tattribute* position,
                                              const Tattribute* velocity, const Tattribute* out) {
    Tdata pd = block.inputValue(position).data();
    Tdata vd = block.inputValue(velocity).data();
    const double h = stepSeconds(block, sVsData()->timeStepSize);
    const T4dDblVectorArray& p = vectorsOf(pd);
    const T4dDblVectorArray& v = vectorsOf(vd);
    T4dDblVectorArray back = p;
    for (unsigned i = 0; i < v.length() && i < p.length(); ++i)
        back[i] = p[i] - v[i] * h;
    storeVectors(block, out, std::move(back));
}

void TdynParticleShape::computeLastWorldPosition(TdataBlock& block) {
    auto* vs = sVsData();
    Tdata lp = block.inputValue(vs->lastPosition).data();
    const T4dDblMatrix lw = block.inputValue(vs->lastWorldMatrix).asMatrix();
    T4dDblVectorArray out;
    TdynStatic::transformCopyOfVectorArrayByMatrix(vectorsOf(lp), lw, out, true);
    storeVectors(block, vs->lastWorldPosition, std::move(out));
}

void TdynParticleShape::computeWorldVelocity(TdataBlock& block) {
    auto* vs = sVsData();
    const double h = stepSeconds(block, vs->timeStepSize);
    T4dDblVectorArray out;
    if (h > 0) {
        Tdata wp = block.inputValue(vs->worldPosition).data();
        Tdata lwp = block.inputValue(vs->lastWorldPosition).data();
        const T4dDblVectorArray& a = vectorsOf(wp);
        const T4dDblVectorArray& b = vectorsOf(lwp);
        const unsigned n = std::min(a.length(), b.length());
        out.changeLogicalSizeTo(n);
        for (unsigned i = 0; i < n; ++i)
            out[i] = (a[i] - b[i]) / h;
    } else {
        Tdata v = block.inputValue(vs->velocity).data();
        TdynStatic::transformCopyOfVectorArrayByMatrix(vectorsOf(v), worldMatrix(), out, false);
    }
    storeVectors(block, vs->lastWorldVelocity, out);
    storeVectors(block, vs->worldVelocity, std::move(out));
}

void TdynParticleShape::computeWorldVelocityInObjectSpace(TdataBlock& block) {
    auto* vs = sVsData();
    Tdata wv = block.inputValue(vs->worldVelocity).data();
    T4dDblVectorArray out;
    const T4dDblMatrix inv = TdynStatic::matrixWithoutTranslation(worldMatrix()).inverse();
    TdynStatic::transformCopyOfVectorArrayByMatrix(vectorsOf(wv), inv, out, false);
    storeVectors(block, vs->worldVelocityInObjectSpace, std::move(out));
}

void TdynParticleShape::computeCachedWorldPosition(TdataBlock& block) {
    auto* vs = sVsData();
    Tdata cp = block.inputValue(vs->cachedPosition).data();
    const T4dDblMatrix w = worldMatrix();
    if (w.isIdentity(0.0)) {
        // No transform: share the letter instead of copying it.
        block.outputValue(vs->cachedWorldPosition).set(cp.isNULL() ? makeData<TdataVectorArray>() : cp);
        return;
    }
    T4dDblVectorArray out;
    TdynStatic::transformCopyOfVectorArrayByMatrix(vectorsOf(cp), w, out, true);
    storeVectors(block, vs->cachedWorldPosition, std::move(out));
}

void TdynParticleShape::computeLastCachedPositionFromVelocity(TdataBlock& block) {
    auto* vs = sVsData();
    stepBackAlongVelocity(block, vs->cachedPosition, vs->cachedVelocity, vs->lastCachedPosition);
}

void TdynParticleShape::computeCachedWorldVelocity(TdataBlock& block) {
    auto* vs = sVsData();
    const double h = stepSeconds(block, vs->timeStepSize);
    const T4dDblMatrix w = worldMatrix();
    T4dDblVectorArray out;
    const bool atStart = block.context().time() <= block.inputValue(vs->startTime).asTime();
    if (h <= 0 || atStart) {
        Tdata cv = block.inputValue(vs->cachedVelocity).data();
        if (w.isIdentity(0.0)) {
            block.outputValue(vs->cachedWorldVelocity).set(cv.isNULL() ? makeData<TdataVectorArray>() : cv);
            return;
        }
        TdynStatic::transformCopyOfVectorArrayByMatrix(vectorsOf(cv), w, out, false);
    } else {
        Tdata cp = block.inputValue(vs->cachedPosition).data();
        Tdata lcp = block.inputValue(vs->lastCachedPosition).data();
        const T4dDblMatrix lw = block.inputValue(vs->lastWorldMatrix).asMatrix();
        const T4dDblVectorArray& a = vectorsOf(cp);
        const T4dDblVectorArray& b = vectorsOf(lcp);
        const unsigned n = std::min(a.length(), b.length());
        out.changeLogicalSizeTo(n);
        for (unsigned i = 0; i < n; ++i)
            out[i] = (w.transformPoint(a[i]) - lw.transformPoint(b[i])) / h;
    }
    storeVectors(block, vs->cachedWorldVelocity, std::move(out));
}

void TdynParticleShape::computeCentroid(TdataBlock& block, const Tattribute* source,
                                        Tattribute3Double* target) {
    Tdata d = block.inputValue(source).data();
    const T4dDblVectorArray& a = vectorsOf(d);
    T4dDblVector sum;
    for (int i = static_cast<int>(a.length()) - 1; i >= 0; --i)
        sum += a[static_cast<unsigned>(i)];
    if (a.length() > 0) sum /= static_cast<double>(a.length());
    TdataHandle h = block.outputValue(target);
    h.set(sum);
    h.setClean();
}

void TdynParticleShape::computeLastWorldMatrix(TdataBlock& block) {
    const T4dDblMatrix current = worldMatrix();
    const T4dDblMatrix last = fHaveLastWorldMatrix ? fLastWorldMatrix : current;
    fLastWorldMatrix = current;
    fHaveLastWorldMatrix = true;
    block.outputValue(sVsData()->lastWorldMatrix).set(makeMatrixData(last));
}

void TdynParticleShape::computeFieldData(TdataBlock& block) {
    auto* vs = sVsData();
    // The letters are handed out as they are: no copy.
    block.outputValue(vs->fieldDataPosition).set(block.inputValue(vs->cachedWorldPosition).data());
    block.outputValue(vs->fieldDataVelocity).set(block.inputValue(vs->cachedWorldVelocity).data());
    block.outputValue(vs->fieldDataMass).set(fieldMasses(block));
    TdataHandle dt = block.outputValue(vs->fieldDataDeltaTime);
    dt.set(block.outputValue(vs->sceneTimeStepSize).asTime());
    dt.setClean();
    block.setClean(vs->fieldData);
}

Tdata TdynParticleShape::fieldMasses(TdataBlock& block) {
    auto* vs = sVsData();
    Tdata mass = block.outputValue(vs->mass).data();
    const T4dDblVectorArray* pos =
        TdynStatic::dataVectorArray(block.outputValue(vs->cachedWorldPosition).data());
    const TdoubleArray* m = TdynStatic::dataDoubleArray(mass);
    const unsigned n = pos ? pos->length() : 0;
    if (!m || m->length() == n) return mass;
    // Births (and deaths) of this step already changed the masses, while fields
    // see the positions of the last step: they get masses of that length, the
    // newcomers' left out and any missing ones taken as 1, so the step keeps its forces.
    Tdata out = makeData<TdataDoubleArray>();
    TdoubleArray& a = out.as<TdataDoubleArray>()->array();
    a.changeLogicalSizeTo(n);
    const unsigned kept = std::min(n, m->length());
    for (unsigned i = 0; i < kept; ++i)
        a[i] = (*m)[i];
    for (unsigned i = kept; i < n; ++i)
        a[i] = 1.0;
    return out;
}

void TdynParticleShape::computeEmitterData(TdataBlock& block) {
    auto* vs = sVsData();
    block.outputValue(vs->emitterDataPosition).set(block.inputValue(vs->cachedWorldPosition).data());
    block.outputValue(vs->emitterDataVelocity).set(block.inputValue(vs->cachedWorldVelocity).data());
    TdataHandle dt = block.outputValue(vs->emitterDataDeltaTime);
    dt.set(block.outputValue(vs->sceneTimeStepSize).asTime());
    dt.setClean();
    block.setClean(vs->emitterData);
}
