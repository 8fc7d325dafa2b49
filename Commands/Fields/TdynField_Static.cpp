// Finding fields, their owners and clients, and joining a field to a client.

#include "Commands/Fields/TdynField.h"

#include "Commands/Particles/TdynParticleShape.h"
#include "Commands/Scene/TdynStatic.h"
#include "Host/Dag/Tmodel.h"

#include <algorithm>
#include <set>

void TdynField::connectionMade(const Tplug& plug, const Tplug& other, bool asSource) {
    TdynAuxiliary::connectionMade(plug, other, asSource);
}

void TdynField::connectionBroken(const Tplug& plug, const Tplug& other, bool asSource) {
    TdynAuxiliary::connectionBroken(plug, other, asSource);
}

void TdynField::copyData(TdynField& from) {
    setMagnitude(from.magnitude());
    setAttenuation(std::max(0.0, from.attenuation()));
    setMaxDistance(from.maxDistance());
    setUseMaxDistance(from.useMaxDistance());
    setApplyPerVertex(from.applyPerVertex());
}

void TdynField::getFields(const std::string& pattern, TdynFieldPtrArray& out) {
    out.clear();
    Tmodel* model = TmodelList::activeModel();
    if (!model) return;
    for (TdependNode* n : model->findMatches(pattern))
        if (auto* f = TdynField::cast(n); f && std::find(out.begin(), out.end(), f) == out.end())
            out.push_back(f);
}

void TdynField::getListOfFields(TdynFieldPtrArray& out) {
    out.clear();
    if (!TdependGraph::hasCurrent()) return;
    for (TdependNode* n : TdependGraph::current().nodes())
        if (auto* f = TdynField::cast(n)) out.push_back(f);
}

void TdynField::getAllPositionalFields(TdynFieldPtrArray& out) {
    TdynFieldPtrArray all;
    getListOfFields(all);
    out.clear();
    std::set<TdynField*> seen;
    for (TdynField* f : all)
        if (!f->ownerObject() && seen.insert(f).second) out.push_back(f);
}

void TdynField::getFieldsOwnedBy(const TdependNode* shape, TdynFieldPtrArray& out) {
    TdynFieldPtrArray all;
    getListOfFields(all);
    out.clear();
    for (TdynField* f : all)
        if (shape && f->ownerObject() == shape) out.push_back(f);
}

void TdynField::getAllFieldOwners(std::vector<TdependNode*>& out) {
    TdynFieldPtrArray all;
    getListOfFields(all);
    out.clear();
    for (TdynField* f : all)
        if (TdependNode* o = f->ownerObject(); o && std::find(out.begin(), out.end(), o) == out.end())
            out.push_back(o);
}

bool TdynField::isFieldOwner(const TdependNode* object) {
    TdynFieldPtrArray owned;
    getFieldsOwnedBy(object, owned);
    return !owned.empty();
}

void TdynField::getFieldsConnectedTo(TdependNode* object, TdynFieldPtrArray& out) {
    out.clear();
    auto* p = TdynParticleShape::cast(object);
    if (!p) return;
    auto* pvs = TdynParticleShape::sVsData();
    for (int idx : p->normalBlock().elementIndices(pvs->inputForce)) {
        Tplug src = Tplug(p, pvs->inputForce, idx).source();
        if (auto* f = TdynField::cast(src.node()); f && std::find(out.begin(), out.end(), f) == out.end())
            out.push_back(f);
    }
}

int TdynField::connectToClient(TdependNode* client, std::string& why) {
    auto* p = TdynParticleShape::cast(client);
    if (!p) {
        why = (client ? client->name() : std::string("(nothing)")) + " is not a dynamic object";
        return -1;
    }
    auto* vs = fieldVs();
    auto* pvs = TdynParticleShape::sVsData();
    // Already joined: nothing to do, the existing index stands.
    for (int idx : p->normalBlock().elementIndices(pvs->inputForce))
        if (Tplug(p, pvs->inputForce, idx).source() == Tplug(this, &vs->outputForce, idx)) return idx;
    // The first index free on both sides, so that the two connections share it.
    int i = 0;
    auto taken = [&](int k) {
        return !Tplug(p, pvs->inputForce, k).source().isNull() ||
               !Tplug(this, &vs->inputPositions, k).source().isNull();
    };
    while (taken(i))
        ++i;
    TdependGraph& g = TdependGraph::current();
    try {
        g.connect(Tplug(p, pvs->fieldData), Tplug(this, &vs->inputData, i));
        g.connect(Tplug(this, &vs->outputForce, i), Tplug(p, pvs->inputForce, i));
    } catch (const std::exception& e) {
        // Leave nothing half made.
        for (Tattribute* c : std::initializer_list<Tattribute*>{&vs->inputPositions, &vs->inputVelocities,
                                                                &vs->inputMass, &vs->deltaTime}) {
            Tplug dst(this, c, i);
            Tplug src = dst.source();
            if (!src.isNull()) g.disconnect(src, dst);
        }
        why = e.what();
        return -1;
    }
    return i;
}
