#include "Commands/Scene/TdynAuxiliary.h"

#include "Commands/Particles/TdynParticleShape.h"

TDEFINE_ABSTRACT_NODE(TdynAuxiliary, TdnVSTdynAuxiliary, Ttransform, "dynBase", "YAux")

namespace {
const char* const kCentroidNames[] = {"ownerCentroidX", "ownerCentroidY", "ownerCentroidZ"};
const char* const kCentroidShort[] = {"ocx", "ocy", "ocz"};
} // namespace

TdnVSTdynAuxiliary::TdnVSTdynAuxiliary()
    : owner("owner", "ow", makeIffTag("OWNR")), fromWhere("fromWhere", "fw", makeIffTag("FRWH")),
      subsetId("subsetId", "sid", makeIffTag("SSID")), positional("positional", "psl", makeIffTag("PSNL")),
      ownerCentroid("ownerCentroid", "ocd", makeIffTag("OCTD"), kCentroidNames, kCentroidShort),
      ownerPosData("ownerPosData", "opd", makeIffTag("OPDT"), TdataVectorArray::sClass),
      ownerVelData("ownerVelData", "ovd", makeIffTag("OVDT"), TdataVectorArray::sClass) {
    subsetId.setNativeDefaultData(-1);
    positional.setNativeDefaultData(1);
    ownerPosData.setStorable(false);
    ownerVelData.setStorable(false);
}

void TdnVSTdynAuxiliary::appendAttributes(TattributeList& list) {
    TdnVSTtransform::appendAttributes(list);
    for (Tattribute* a : std::initializer_list<Tattribute*>{&owner, &fromWhere, &subsetId, &positional,
                                                            &ownerCentroid, &ownerPosData, &ownerVelData})
        list.addAttribute(a);
}

bool TdnVSTdynAuxiliary::setupDependencies(TdependencyMatrix& m) {
    return TdnVSTtransform::setupDependencies(m);
}

bool TdynAuxiliary::computePlug(const Tplug& plug, TdataBlock& block) {
    // The transform's compute compares against its own class's descriptors, which a derived class holds
    // copies of: the local matrices are made here.
    auto* vs = auxVs();
    if (plug.attribute() == &vs->matrix) {
        block.outputValue(&vs->matrix).set(makeMatrixData(computeLocalXform(block)));
        return true;
    }
    if (plug.attribute() == &vs->inverseMatrix) {
        block.outputValue(&vs->inverseMatrix).set(makeMatrixData(computeLocalXform(block).inverse()));
        return true;
    }
    return Ttransform::computePlug(plug, block);
}

TdependNode* TdynAuxiliary::ownerObject() const {
    Tplug src = Tplug(const_cast<TdynAuxiliary*>(this), &auxVs()->owner).source();
    return src.node();
}

Tshape* TdynAuxiliary::ownerShape() const {
    return Tshape::cast(ownerObject());
}

const T4dDblVectorArray* TdynAuxiliary::ownerPositions(TdataBlock& block) {
    auto* l = block.inputValue(&auxVs()->ownerPosData).data().as<TdataVectorArray>();
    return l ? &l->array() : nullptr;
}

const T4dDblVectorArray* TdynAuxiliary::ownerVelocities(TdataBlock& block) {
    auto* l = block.inputValue(&auxVs()->ownerVelData).data().as<TdataVectorArray>();
    return l ? &l->array() : nullptr;
}

bool TdynAuxiliary::ownerWorldPoints(TdataBlock& block, T4dDblVectorArray& out) {
    auto* vs = auxVs();
    if (!Tplug(this, &vs->ownerPosData).source().isNull()) {
        const T4dDblVectorArray* p = ownerPositions(block);
        if (!p) return false;
        out = *p;
        return true;
    }
    if (auto* mesh = TmeshShape::cast(ownerObject())) {
        const TpolyMesh* m = mesh->mesh();
        if (!m) return false;
        const T4dDblMatrix w = mesh->worldMatrix();
        out.changeLogicalSizeTo(static_cast<unsigned>(m->points.size()));
        w.transformPoints(m->points.data(), out.data(), m->points.size());
        return true;
    }
    const T4dDblVectorArray* p = ownerPositions(block);
    if (!p) return false;
    out = *p;
    return true;
}

T4dDblPoint TdynAuxiliary::ownerCentroid(TdataBlock& block) {
    auto* vs = auxVs();
    // A mesh owner with nothing connected: the mean of its world points.
    if (Tplug(this, &vs->ownerCentroid).source().isNull() &&
        Tplug(this, vs->ownerCentroid.children()[0]).source().isNull() && TmeshShape::cast(ownerObject())) {
        T4dDblVectorArray pts;
        if (ownerWorldPoints(block, pts) && pts.length() > 0) {
            T4dDblVector sum;
            for (const T4dDblVector& p : pts)
                sum += p;
            return sum / pts.length();
        }
    }
    return block.inputValue(&vs->ownerCentroid).asVector();
}

bool TdynAuxiliary::canBeOwnedBy(const TdependNode* object) {
    return object && Tshape::cast(const_cast<TdependNode*>(object)) != nullptr;
}

bool TdynAuxiliary::setOwner(TdependNode* object, std::string& why) {
    if (!canBeOwnedBy(object)) {
        why =
            (object ? object->name() : std::string("(nothing)")) + " is not a shape and cannot own " + name();
        return false;
    }
    auto* vs = auxVs();
    TdependGraph& g = TdependGraph::current();
    auto* ovs = object->vsData();
    g.connect(Tplug(object, &ovs->message), Tplug(this, &vs->owner), true);
    if (auto* p = TdynParticleShape::cast(object)) {
        auto* pvs = TdynParticleShape::sVsData();
        g.connect(Tplug(p, pvs->cachedWorldPosition), Tplug(this, &vs->ownerPosData), true);
        g.connect(Tplug(p, pvs->cachedWorldVelocity), Tplug(this, &vs->ownerVelData), true);
        g.connect(Tplug(p, pvs->cachedWorldCentroid), Tplug(this, &vs->ownerCentroid), true);
        // Laws that weigh by the owner's masses (newton) have a place for them.
        if (Tattribute* masses = attribute("ownerMassData"))
            g.connect(Tplug(p, pvs->mass), Tplug(this, masses), true);
    }
    return true;
}

TboundingBox TdynAuxiliary::boundingBox() {
    // The icon's extent around the pivot.
    return TboundingBox({-0.5, -0.5, -0.5}, {0.5, 0.5, 0.5});
}

void TdynAuxiliary::getListOfAuxiliaries(TdynAuxiliaryPtrArray& out) {
    out.clear();
    if (!TdependGraph::hasCurrent()) return;
    for (TdependNode* n : TdependGraph::current().nodes())
        if (auto* a = TdynAuxiliary::cast(n)) out.push_back(a);
}
