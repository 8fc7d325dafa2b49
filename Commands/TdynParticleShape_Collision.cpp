// Collisions: the step's motion of each particle traced against the swept
// geometry on collisionData, the response written back to the state, and one
// record per hit for events.

#include "Commands/TdynParticleShape.h"

#include <cmath>

void TdynParticleShape::clearCollisionUVAttributes(TdataBlock& block) {
    const unsigned n = countNoCompute();
    for (const char* name : {"collisionU", "collisionV"}) {
        Tattribute* a = attribute(name);
        if (!a) continue;
        Tdata d = std::move(block.outputValue(a).data());
        if (!d.as<TdataDoubleArray>()) d = makeData<TdataDoubleArray>();
        d.makeWriter();
        TdoubleArray& arr = d.as<TdataDoubleArray>()->array();
        arr.changeLogicalSizeTo(n);
        arr.fill(-1.0);
        d.makeHolder();
        block.outputValue(a).set(d);
    }
}

void TdynParticleShape::processCollisions(TdataBlock& block) {
    auto* vs = sVsData();
    // Only the step traces: the response changes the state.
    if (!block.isNormalContext() || !block.outputValue(vs->computingCount).asBool()) return;
    Tdata recordData = std::move(block.outputValue(vs->collisionRecords).data());
    if (!recordData.as<TdataArrayAttrs>()) recordData = makeData<TdataArrayAttrs>();
    recordData.makeWriter();
    clearCollisionRecords(*recordData.as<TdataArrayAttrs>());
    recordData.makeHolder();
    block.outputValue(vs->collisionRecords).set(recordData);
    clearCollisionUVAttributes(block);
}
