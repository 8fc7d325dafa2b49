// The field's volume: a primitive per shape, made on first use, placed by the
// field's world matrix after the offset.

#include "Commands/Fields/TdynField.h"

namespace {
constexpr double kDegreesPerRadian = 57.29577951308232;

std::unique_ptr<TdynVolumePrimitive> makePrimitive(int shape) {
    switch (shape) {
    case 1:
        return std::make_unique<TdynVolumeCube>();
    case 2:
        return std::make_unique<TdynVolumeSphere>();
    case 3:
        return std::make_unique<TdynVolumeCylinder>();
    case 4:
        return std::make_unique<TdynVolumeCone>();
    case 5:
        return std::make_unique<TdynVolumeTorus>();
    default:
        return nullptr;
    }
}

void pushSettings(TdynVolumePrimitive* p, double sweepRadians, double sectionRadius) {
    if (auto* s = dynamic_cast<TdynVolumeSwept*>(p)) s->setSweep(sweepRadians * kDegreesPerRadian);
    if (auto* t = dynamic_cast<TdynVolumeTorus*>(p)) t->setSectionRadius(sectionRadius);
}
} // namespace

TdynVolumePrimitive* TdynField::volumePrimitive() {
    return volumePrimitive(lawBlock());
}

TdynVolumePrimitive* TdynField::volumePrimitive(TdataBlock& block) {
    auto* vs = fieldVs();
    const int shape = block.inputValue(&vs->volumeShape).asInt();
    if (shape < 1 || shape > 5) return nullptr;
    auto& slot = fPrimitives[shape - 1];
    if (!slot) slot = makePrimitive(shape);
    pushSettings(slot.get(), block.inputValue(&vs->volumeSweep).asDouble(),
                 block.inputValue(&vs->sectionRadius).asDouble());
    return slot.get();
}

T4dDblMatrix TdynField::finalVolumeMatrix() {
    return finalVolumeMatrix(lawBlock());
}

T4dDblMatrix TdynField::finalVolumeMatrix(TdataBlock& block) {
    auto* vs = fieldVs();
    // Row vectors: the offset applies first, in the field's own space.
    return T4dDblMatrix::translation(block.inputValue(&vs->volumeOffset).asVector()) *
           block.inputValue(&vs->worldMatrix).asMatrix();
}

bool TdynField::applyVolumeField(const T4dDblPoint& point) {
    TdynVolumePrimitive* p = volumePrimitive();
    if (!p) return true;
    const bool exclusion = lawBlock().inputValue(&fieldVs()->volumeExclusion).asBool();
    return applyVolumeField(p, point, TdynVolumeMatrix(finalVolumeMatrix()), exclusion);
}

TboundingBox TdynField::boundingBox() {
    TboundingBox own = TdynAuxiliary::boundingBox();
    auto* vs = fieldVs();
    TdataBlock& block = normalBlock();
    std::unique_ptr<TdynVolumePrimitive> p = makePrimitive(block.inputValue(&vs->volumeShape).asInt());
    if (!p) return own;
    pushSettings(p.get(), block.inputValue(&vs->volumeSweep).asDouble(),
                 block.inputValue(&vs->sectionRadius).asDouble());
    const T4dDblMatrix local =
        T4dDblMatrix::translation(block.inputValue(&vs->volumeOffset).asVector()) * computeLocalXform(block);
    TboundingBox box = p->boundingBox().transformed(local);
    const T4dDblVector extent = own.size();
    if (extent.x > 0 || extent.y > 0 || extent.z > 0) box.includeBox(own);
    return box;
}
