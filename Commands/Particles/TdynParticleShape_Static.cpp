// The class-wide lists that say which attributes take part in which walk,
// and the naming rules of the attribute families.

#include "Commands/Particles/TdynParticleShape.h"

#include <algorithm>
#include <unordered_set>

namespace {
struct TexclusionList {
    bool initialized = false;
    std::unordered_set<const Tattribute*> attrs;
    std::unordered_set<std::string> names;
    bool has(const Tattribute* a) const {
        return attrs.count(a) != 0 || (!names.empty() && names.count(a->name()));
    }
};
TexclusionList gCompute, gEmission, gSampler, gCompressed;

bool endsWith(const std::string& s, const std::string& tail) {
    return s.size() > tail.size() && s.compare(s.size() - tail.size(), tail.size(), tail) == 0;
}
} // namespace

void TdynParticleShape::buildExclusionLists() {
    auto* vs = sVsData();
    if (!gCompute.initialized) {
        gCompute.initialized = true;
        for (const Tattribute* a :
             std::initializer_list<const Tattribute*>{vs->rampPosition,
                                                      vs->rampVelocity,
                                                      vs->rampAcceleration,
                                                      vs->input,
                                                      vs->count,
                                                      vs->computingCount,
                                                      vs->force,
                                                      vs->inputForce,
                                                      vs->cachedPosition,
                                                      vs->lastCachedPosition,
                                                      vs->cachedWorldPosition,
                                                      static_cast<const Tattribute*>(vs->cachedWorldCentroid),
                                                      vs->cachedVelocity,
                                                      vs->cachedWorldVelocity,
                                                      vs->nextId,
                                                      vs->isDynamic,
                                                      vs->dynamicsWeight,
                                                      vs->conserve,
                                                      vs->maxCount,
                                                      vs->isFull,
                                                      vs->levelOfDetail,
                                                      vs->inheritFactor,
                                                      static_cast<const Tattribute*>(vs->fieldData),
                                                      vs->fieldDataPosition,
                                                      vs->fieldDataVelocity,
                                                      vs->fieldDataMass,
                                                      vs->fieldDataDeltaTime,
                                                      static_cast<const Tattribute*>(vs->emitterData),
                                                      vs->emitterDataPosition,
                                                      vs->emitterDataVelocity,
                                                      vs->emitterDataDeltaTime,
                                                      vs->currentTime,
                                                      vs->currentSceneTime,
                                                      vs->lastTimeEvaluated,
                                                      vs->lastSceneTime,
                                                      vs->cachedTime,
                                                      vs->timeStepSize,
                                                      vs->evaluationTime,
                                                      vs->sceneTimeStepSize,
                                                      vs->startFrame,
                                                      vs->startTime,
                                                      vs->goalGeometry,
                                                      vs->goalWeight,
                                                      vs->goalActive,
                                                      vs->enforceCountFromHistory,
                                                      vs->inputGeometry,
                                                      vs->targetGeometry,
                                                      vs->eventTest,
                                                      vs->eventName,
                                                      vs->eventCount,
                                                      vs->eventValid,
                                                      vs->eventEmit,
                                                      vs->eventSplit,
                                                      vs->eventDie,
                                                      vs->eventRandom,
                                                      vs->eventSpread,
                                                      vs->eventTarget,
                                                      vs->eventProc,
                                                      vs->numberOfEvents,
                                                      vs->eventNameCount,
                                                      vs->depthSort,
                                                      vs->particleRenderType,
                                                      vs->internalRuntimeExpression,
                                                      vs->internalCreationExpression,
                                                      vs->currentParticle,
                                                      vs->disableCloudAxis,
                                                      vs->lastWorldMatrix,
                                                      vs->inputGeometryPoints,
                                                      vs->sortedId,
                                                      vs->idIndex,
                                                      static_cast<const Tattribute*>(vs->idMapping),
                                                      vs->collisions,
                                                      vs->traceDepth,
                                                      vs->collisionData,
                                                      vs->collisionGeometry,
                                                      vs->collisionResilience,
                                                      vs->collisionFriction,
                                                      vs->collisionRecords})
            gCompute.attrs.insert(a);
        for (const Tattribute* c : vs->cachedWorldCentroid->children())
            gCompute.attrs.insert(c);
        // Everything the geometry base declares.
        const unsigned own = vs->ownAttributeCount();
        for (unsigned i = 0; i + own < vs->attributeCount(); ++i)
            gCompute.attrs.insert(vs->attribute(i));
    }
    if (!gEmission.initialized) {
        gEmission.initialized = true;
        for (const Tattribute* a : std::initializer_list<const Tattribute*>{
                 vs->rampPosition, vs->rampVelocity, vs->rampAcceleration, vs->emitterDataPosition,
                 vs->emitterDataVelocity, vs->fieldDataPosition, vs->fieldDataVelocity, vs->fieldDataMass,
                 vs->inputGeometryPoints, vs->sortedId, vs->idIndex,
                 static_cast<const Tattribute*>(vs->idMapping)})
            gEmission.attrs.insert(a);
    }
    if (!gSampler.initialized) {
        gSampler.initialized = true;
        for (const Tattribute* a : std::initializer_list<const Tattribute*>{vs->lastPosition,
                                                                            vs->lastVelocity,
                                                                            vs->lastWorldPosition,
                                                                            vs->lastWorldVelocity,
                                                                            vs->cachedPosition,
                                                                            vs->lastCachedPosition,
                                                                            vs->cachedWorldPosition,
                                                                            vs->cachedVelocity,
                                                                            vs->cachedWorldVelocity,
                                                                            vs->massCache,
                                                                            vs->idCache,
                                                                            vs->sortedId,
                                                                            vs->idIndex,
                                                                            vs->birthTimeCache,
                                                                            vs->ageCache,
                                                                            vs->fieldDataPosition,
                                                                            vs->fieldDataVelocity,
                                                                            vs->fieldDataMass,
                                                                            vs->emitterDataPosition,
                                                                            vs->emitterDataVelocity,
                                                                            vs->inputGeometryPoints})
            gSampler.attrs.insert(a);
    }
    if (!gCompressed.initialized) {
        gCompressed.initialized = true;
        for (const Tattribute* a : std::initializer_list<const Tattribute*>{
                 vs->position, vs->velocity, vs->acceleration, vs->mass, vs->age, vs->birthTime,
                 vs->finalLifespanPP, vs->force, vs->worldPosition, vs->worldVelocity, vs->particleId})
            gCompressed.attrs.insert(a);
        for (const char* n : {"ageNormalized",      "parentU",       "parentV",         "collisionU",
                              "collisionV",         "opacityPP",     "lifespanPP",      "radiusPP",
                              "userScalar1PP",      "userScalar2PP", "userScalar3PP",   "userScalar4PP",
                              "userScalar5PP",      "rgbPP",         "incandescencePP", "birthPosition",
                              "birthWorldPosition", "userVector1PP", "userVector2PP",   "userVector3PP",
                              "userVector4PP",      "userVector5PP"})
            gCompressed.names.insert(n);
    }
}

bool TdynParticleShape::isInitialStateOrCacheAttribute(const Tattribute* a) {
    if (!a) return false;
    const std::string& n = a->name();
    // The fixed scalars that end in "0" are not per-particle initial state of
    // an array, but they still stay out of every per-particle walk.
    return endsWith(n, "0") || endsWith(n, "Cache");
}

bool TdynParticleShape::isInComputeExclusionList(const Tattribute* a) {
    buildExclusionLists();
    return gCompute.has(a) || isInitialStateOrCacheAttribute(a);
}

bool TdynParticleShape::isInEmissionExclusionList(const Tattribute* a) {
    buildExclusionLists();
    return gEmission.has(a);
}

bool TdynParticleShape::isInSamplerPerParticleDataExclusionList(const Tattribute* a) {
    buildExclusionLists();
    return gSampler.has(a);
}

namespace {
Tattribute* findOnNode(const TdependNode& node, const std::string& name) {
    return node.attribute(name);
}
} // namespace

Tattribute* TdynParticleShape::initialStateAttribute(const Tattribute* a) const {
    return a ? findOnNode(*this, a->name() + "0") : nullptr;
}

Tattribute* TdynParticleShape::cacheAttribute(const Tattribute* a) const {
    return a ? findOnNode(*this, a->name() + "Cache") : nullptr;
}

Tattribute* TdynParticleShape::runtimeAttribute(const Tattribute* a) const {
    if (!a) return nullptr;
    const std::string& n = a->name();
    if (endsWith(n, "0")) return findOnNode(*this, n.substr(0, n.size() - 1));
    if (endsWith(n, "Cache")) return findOnNode(*this, n.substr(0, n.size() - 5));
    return nullptr;
}

bool TdynParticleShape::hasNonExprInputConnection(const Tattribute* a) const {
    // Expressions are not nodes of their own here, so any input connection counts.
    return a && !inputSource(a, -1).isNull();
}

bool TdynParticleShape::isExcludedFromEmission(const Tattribute* a) const {
    if (!a || a->hasFlag(Tattribute::kInternal) || a->hasFlag(Tattribute::kHiddenFromPerParticle))
        return true;
    if (a->name() == "uvSetTweakLocation") return true;
    if (a->type() != TattrType::Typed || a->isArray() || a->parent()) return true;
    const auto& classes = a->letterClasses();
    if (classes.empty()) return true;
    const TletterClass* c = classes.front();
    if (c != &TdataDoubleArray::sClass && c != &TdataVectorArray::sClass && c != &TdataInt32Array::sClass)
        return true;
    if (isInEmissionExclusionList(a) || isInitialStateOrCacheAttribute(a)) return true;
    return hasNonExprInputConnection(a);
}

std::vector<Tattribute*> TdynParticleShape::perParticleArrays(bool forEmission) const {
    std::vector<Tattribute*> out;
    auto* vs = sVsData();
    for (int i = static_cast<int>(attributeCount()) - 1; i >= 0; --i) {
        Tattribute* a = attribute(static_cast<unsigned>(i));
        if (!a || isExcludedFromEmission(a)) continue;
        if (!forEmission && hasNonExprInputConnection(a)) continue;
        // Derived arrays that the step computes on demand stay out of births and deaths.
        if (a == vs->force || a == vs->worldPosition || a == vs->lastPosition || a == vs->lastWorldPosition ||
            a == vs->worldVelocity || a == vs->lastWorldVelocity || a == vs->worldVelocityInObjectSpace ||
            a == vs->lastVelocity || a == vs->cachedPosition || a == vs->lastCachedPosition ||
            a == vs->cachedWorldPosition || a == vs->cachedVelocity || a == vs->cachedWorldVelocity ||
            a == vs->targetGeometry)
            continue;
        out.push_back(a);
    }
    return out;
}
