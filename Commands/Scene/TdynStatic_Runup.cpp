// Run-up: the host's time set sub-step by sub-step, each simulation pulled in turn.

#include "Commands/Caches/TdynParticleCache.h"
#include "Commands/Particles/TdynParticleShape.h"
#include "Commands/Scene/TdynStatic.h"

#include "Host/Command/TcommandEngine.h"
#include "Host/Command/ToptionVars.h"
#include "Host/Time/TanimInfo.h"

#include <algorithm>
#include <cmath>

bool TdynStatic::fIsInRunup = false;
bool TdynStatic::fCheckForRunup = false;
bool TdynStatic::fIsRendering = false;

int TdynStatic::activeGlobalsOverSampling() {
    TdynGlobals* g = TdynGlobals::activeGlobalsNode(false);
    if (!g) return 1;
    // A sub-step is at least one tick.
    const int most = static_cast<int>(std::max<std::int64_t>(1, TanimTime(1.0, kCurrentFrameUnit).ticks()));
    const int n = std::clamp(g->overSamples(), 1, most);
    // Set before the time unit changed, or set on the attribute: said once, as frames will drift.
    if (most % n != 0)
        TcommandEngine::current().displayWarning(
            "over-sampling " + std::to_string(n) + " does not divide a frame (" + std::to_string(most) +
                " ticks): the steps cannot all be alike and frames drift; choose a number that divides it",
            true);
    return n;
}

bool TdynStatic::runupToCurrentTimeIsOn() {
    return ToptionVars::intValue("dynPrefRunUpToCurrentTime", 0) != 0;
}

// "dynPrefRunupFrom": 1 plays from the start time, 2 (the default) from the previous frame.
bool TdynStatic::runupFromStartTime() {
    return ToptionVars::intValue("dynPrefRunupFrom", 2) == 1;
}

std::vector<TdependNode*> TdynStatic::particleNodes() {
    std::vector<TdependNode*> out;
    if (!TdependGraph::hasCurrent()) return out;
    for (TdependNode* n : TdependGraph::current().nodes())
        if (n->isInGraph() && TdynParticleShape::cast(n)) out.push_back(n);
    return out;
}

TanimTime TdynStatic::earliestStartTime() {
    bool any = false;
    TanimTime earliest;
    for (TdependNode* n : particleNodes()) {
        TanimTime s = n->normalBlock().inputValue(TdynParticleShape::sVsData()->startTime).asTime();
        if (!any || s < earliest) earliest = s;
        any = true;
    }
    return any ? earliest : TanimInfo::currAnimInfo().startTime();
}

TanimTime TdynStatic::lastEvaluatedTime(int) {
    bool any = false;
    TanimTime last;
    for (TdependNode* n : particleNodes()) {
        TanimTime s = n->normalBlock().outputValue(TdynParticleShape::sVsData()->lastSceneTime).asTime();
        if (!any || s < last) last = s;
        any = true;
    }
    return any ? last : earliestStartTime();
}

bool TdynStatic::isSceneCached(TanimTime t) {
    const std::vector<TdependNode*> nodes = particleNodes();
    if (nodes.empty()) return false;
    for (TdependNode* n : nodes) {
        TdynParticleCache* state = TdynParticleCaches::of(*static_cast<TdynParticleShape*>(n)).stateCache();
        TanimTime first;
        if (!state || !state->isEnabled() || !state->getCacheTime(0, first) || first != t) return false;
    }
    return true;
}

bool TdynStatic::cacheState(TanimTime t) {
    bool any = false;
    for (TdependNode* n : particleNodes())
        any = TdynParticleCaches::of(*static_cast<TdynParticleShape*>(n)).cacheState(t) || any;
    return any;
}

bool TdynStatic::gotoRunupFrame(TanimTime t) {
    if (!TdependGraph::hasCurrent()) return false;
    if (TdependGraph::current().time() != t) TdependGraph::current().setTime(t, false);
    return true;
}

bool TdynStatic::runupSceneTo(TanimTime t, int oversample, bool interruptible) {
    if (fIsInRunup) return true;
    if (runupFromStartTime() && interruptible) {
        const TanimTime s = earliestStartTime();
        return s <= t ? runupSceneFromTo(s, t, oversample, interruptible, true) : false;
    }
    const TanimTime last = lastEvaluatedTime(oversample);
    if (t < last) return runupSceneFromTo(earliestStartTime(), t, oversample, interruptible, true);
    return runupSceneFromTo(last, t, oversample, interruptible, true);
}

bool TdynStatic::runupSceneFromPreviousTo(TanimTime t, int oversample, bool interruptible) {
    return runupSceneFromTo(lastEvaluatedTime(oversample), t, oversample, interruptible, true);
}

bool TdynStatic::runupSceneFromTo(TanimTime from, TanimTime to, int oversample, bool interruptible, bool) {
    if (fIsInRunup) return true;
    if (isSceneCached(to)) from = to;
    const TanimTime a = std::min(from, to);
    const TanimTime b = std::max(from, to);
    if (oversample < 1) oversample = 1;
    const std::vector<TdependNode*> nodes = particleNodes();
    if (nodes.empty()) return false;

    TcommandEngine& engine = TcommandEngine::current();
    fIsInRunup = true;
    const TanimTime sub = TanimTime::fromTicks(
        std::max<std::int64_t>(1, TanimTime(1.0, kCurrentFrameUnit).ticks() / oversample));
    TanimTime t = a;
    if (a == lastEvaluatedTime(oversample)) t += sub;
    // A fraction of a step past the end, so that `b` is met despite whole ticks.
    const TanimTime limit =
        b + TanimTime::fromTicks(static_cast<std::int64_t>(std::floor(0.99 * sub.ticks())));
    const long long total = (b - a).ticks() / std::max<std::int64_t>(1, sub.ticks()) + 1;
    long long done = 0;
    bool stopped = false;
    while (t <= limit) {
        if (interruptible && engine.interruptRequested()) {
            stopped = true;
            break;
        }
        if (t > b) t = b;
        gotoRunupFrame(t);
        for (TdependNode* n : nodes)
            if (auto* p = TdynParticleShape::cast(n); p && p->isInGraph()) p->forceDynamics();
        if (interruptible) engine.progress("runup", ++done, total);
        t += sub;
    }
    // The line ends whole, however the estimate of steps came out.
    if (interruptible) engine.progress("runup", stopped ? -1 : total, total);
    fIsInRunup = false;
    return true;
}

void TdynStatic::delayedTimeChangeRunup(TdependNode* node) {
    auto* p = TdynParticleShape::cast(node);
    if (!p || !TdependNode::fsDirtyPropagation || fIsInRunup || !fCheckForRunup ||
        !TdependGraph::hasCurrent())
        return;
    auto* vs = TdynParticleShape::sVsData();
    TdataBlock& block = p->normalBlock();
    if (!block.inputValue(vs->isDynamic).asBool()) return;
    const TanimTime now = TdependGraph::current().time();
    const double d = (now - block.outputValue(vs->lastSceneTime).asTime()).frames();
    const int n = activeGlobalsOverSampling();
    if (!(d > 1.0 / n + 1e-9 || d < 0)) return;
    fCheckForRunup = false;
    // The run-up moves time itself: its own time changes ask for nothing.
    struct Clear {
        ~Clear() { fCheckForRunup = false; }
    } clear;
    if (runupToCurrentTimeIsOn())
        runupSceneTo(now, n, d > 1.0 || d < 0);
    else if (n > 1 && d > 0 && d <= 1.0 + 1e-9)
        runupSceneTo(now, n, false);
}
