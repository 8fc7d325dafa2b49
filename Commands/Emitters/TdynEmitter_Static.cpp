// Finding emitters, their owners and targets, and joining an emitter to a
// particle object.

#include "Commands/Emitters/TdynEmitter.h"

#include "Commands/Particles/TdynParticleShape.h"
#include "Host/Dag/Tmodel.h"
#include "Host/Graph/TdnTime.h"

#include <algorithm>

void TdynEmitter::postConstructor() {
    TdynAuxiliary::postConstructor();
    // Emitters follow the scene's time from the moment they are made.
    if (!TdependGraph::hasCurrent() || !isInGraph()) return;
    TdependGraph& g = TdependGraph::current();
    const Tplug timePlug(this, &emVs()->currentTime);
    if (TdnTime* t = g.timeNode(); t && inputSource(&emVs()->currentTime, -1).isNull())
        g.connect(t->outTimePlug(), timePlug);
}

void TdynEmitter::getEmitters(const std::string& pattern, TdynEmitterPtrArray& out) {
    out.clear();
    Tmodel* model = TmodelList::activeModel();
    if (!model) return;
    for (TdependNode* n : model->findMatches(pattern))
        if (auto* e = TdynEmitter::cast(n); e && std::find(out.begin(), out.end(), e) == out.end())
            out.push_back(e);
}

void TdynEmitter::getListOfEmitters(TdynEmitterPtrArray& out) {
    out.clear();
    if (!TdependGraph::hasCurrent()) return;
    for (TdependNode* n : TdependGraph::current().nodes())
        if (auto* e = TdynEmitter::cast(n)) out.push_back(e);
}

void TdynEmitter::getEmittersConnectedTo(TdependNode* object, TdynEmitterPtrArray& out) {
    out.clear();
    auto* p = TdynParticleShape::cast(object);
    if (!p) return;
    auto* pvs = TdynParticleShape::sVsData();
    for (int idx : p->normalBlock().elementIndices(pvs->newParticles)) {
        Tplug src = Tplug(p, pvs->newParticles, idx).source();
        if (auto* e = TdynEmitter::cast(src.node()); e && std::find(out.begin(), out.end(), e) == out.end())
            out.push_back(e);
    }
}

void TdynEmitter::getEmittersOwnedBy(const TdependNode* shape, TdynEmitterPtrArray& out) {
    TdynEmitterPtrArray all;
    getListOfEmitters(all);
    out.clear();
    for (TdynEmitter* e : all)
        if (shape && e->ownerObject() == shape) out.push_back(e);
}

namespace {
// What a target hands its emitter at index i: (target attribute, emitter attribute, element on the target).
struct Link {
    Tattribute* from;
    Tattribute* to;
    bool targetElement;
};

std::vector<Link> linksOf(TdnVSTdynEmitter* vs) {
    auto* pvs = TdynParticleShape::sVsData();
    return {{pvs->timeStepSize, &vs->deltaTime, false},
            {pvs->startTime, &vs->startTime, false},
            {pvs->isFull, &vs->isFull, false},
            {pvs->seed, &vs->seed, true},
            {pvs->inheritFactor, &vs->inheritFactor, false}};
}
} // namespace

int TdynEmitter::connectToTarget(TdependNode* target, std::string& why) {
    auto* p = TdynParticleShape::cast(target);
    if (!p) {
        why = (target ? target->name() : std::string("(nothing)")) + " is not a particle object";
        return -1;
    }
    auto* vs = emVs();
    auto* pvs = TdynParticleShape::sVsData();
    // Already joined: the existing index stands.
    for (int idx : p->normalBlock().elementIndices(pvs->newParticles))
        if (Tplug(p, pvs->newParticles, idx).source() == Tplug(this, &vs->output, idx)) return idx;
    // The first index free on both sides, so that every link shares it.
    int i = 0;
    auto taken = [&](int k) {
        return !Tplug(p, pvs->newParticles, k).source().isNull() ||
               !Tplug(this, &vs->deltaTime, k).source().isNull() ||
               !Tplug(this, &vs->output, k).destinations().empty();
    };
    while (taken(i))
        ++i;
    TdependGraph& g = TdependGraph::current();
    try {
        for (const Link& l : linksOf(vs))
            g.connect(Tplug(p, l.from, l.targetElement ? i : -1), Tplug(this, l.to, i));
        g.connect(Tplug(this, &vs->output, i), Tplug(p, pvs->newParticles, i));
    } catch (const std::exception& e) {
        disconnectFromTarget(p, i);
        why = e.what();
        return -1;
    }
    // The new target starts from its own seed.
    resetRandomGenerator(i);
    return i;
}

void TdynEmitter::disconnectFromTarget(TdependNode* target, int i) {
    auto* p = TdynParticleShape::cast(target);
    if (!p || i < 0) return;
    auto* vs = emVs();
    auto* pvs = TdynParticleShape::sVsData();
    TdependGraph& g = TdependGraph::current();
    const Tplug dst(p, pvs->newParticles, i);
    if (dst.source() == Tplug(this, &vs->output, i)) g.disconnect(dst.source(), dst);
    for (const Link& l : linksOf(vs)) {
        const Tplug to(this, l.to, i);
        if (Tplug src = to.source(); !src.isNull() && src.node() == p) g.disconnect(src, to);
    }
}
