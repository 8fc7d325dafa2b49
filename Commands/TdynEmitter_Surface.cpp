// Surface and curve emission, on the swept geometry of the owner.

#include "Commands/TdynEmitter.h"

bool TdynEmitter::surfaceEmitter(const Tplug& plug, TdataBlock& block) {
    Frame f;
    beginFrame(plug, block, f);
    checkFrame(block, f);
    endFrame(block, f);
    return true;
}

bool TdynEmitter::curveEmitter(const Tplug& plug, TdataBlock& block) {
    Frame f;
    beginFrame(plug, block, f);
    checkFrame(block, f);
    endFrame(block, f);
    return true;
}
