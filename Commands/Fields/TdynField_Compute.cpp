// The force pipeline: one output element per client, the plain query path,
// and the frame every law starts from (settings, volume, source points).

#include "Commands/Fields/TdynField.h"

#include "Commands/Particles/TdynParticleShape.h"

#include <algorithm>
#include <cmath>

TdynField::TdynField() = default;
TdynField::~TdynField() = default;

void TdynField::destroyNode() {
    for (auto& p : fPrimitives)
        p.reset();
}

bool TdynField::apply(TdynPointReceptor&, int, bool) {
    return false;
}

void TdynField::setDependentsDirty(TmsgDirty& msg) {
    TdynAuxiliary::setDependentsDirty(msg);
    auto* vs = fieldVs();
    const Tplug& p = msg.plug();
    const Tattribute* a = p.attribute();
    if (p.multiIndex() < 0 || !TdependGraph::hasCurrent()) return;
    if (a == &vs->inputData || a->parent() == &vs->inputData || a == &vs->inputForce)
        TdependGraph::current().queueDirty(Tplug(this, &vs->outputForce, p.multiIndex()));
}

bool TdynField::computePlug(const Tplug& plug, TdataBlock& block) {
    auto* vs = fieldVs();
    if (plug.attribute() != &vs->outputForce) return TdynAuxiliary::computePlug(plug, block);
    const int i = plug.multiIndex();
    if (i < 0 || !block.hasElement(&vs->inputData, i)) return false;

    // Any missing or badly typed input leaves the old output as it is.
    const Tdata posData = block.inputValue(&vs->inputPositions, i).data();
    const Tdata velData = block.inputValue(&vs->inputVelocities, i).data();
    const Tdata massData = block.inputValue(&vs->inputMass, i).data();
    const auto* pos = posData.as<TdataVectorArray>();
    const auto* vel = velData.as<TdataVectorArray>();
    const auto* mass = massData.as<TdataDoubleArray>();
    if (!pos || !vel || !mass) return false;
    const double dt = block.inputValue(&vs->deltaTime, i).asTime().valueInThisUnit(kSeconds);

    Tdata preload;
    const bool chained = !Tplug(this, &vs->inputForce, i).source().isNull();
    if (chained) {
        if (!block.hasElement(&vs->inputForce, i)) return false;
        preload = block.inputValue(&vs->inputForce, i).data();
    }

    const unsigned n = pos->array().length();
    if (vel->array().length() != n || mass->array().length() != n) return false;

    // An existing array that no one else holds is written in place.
    TdataHandle out = TmultiBuilder(block, &vs->outputForce).addElement(i);
    Tdata result = std::move(out.data());
    if (!result.as<TdataVectorArray>()) result = makeData<TdataVectorArray>();
    result.makeWriter();
    T4dDblVectorArray& force = result.as<TdataVectorArray>()->array();
    force.changeLogicalSizeTo(n);
    const T4dDblVectorArray* start = chained ? TdynStatic::dataVectorArray(preload) : nullptr;
    const unsigned given = start ? std::min(n, start->length()) : 0;
    // A short chained array counts as zero beyond its end.
    if (given) std::copy(start->data(), start->data() + given, force.data());
    std::fill(force.data() + given, force.data() + n, T4dDblVector());

    if (n > 0) {
        TdynPointReceptor receptor(&pos->array(), &vel->array(), &mass->array(), &force, dt);
        fBlock = &block;
        try {
            apply(receptor, i, true);
        } catch (...) {
            fBlock = nullptr;
            throw;
        }
        fBlock = nullptr;
    }
    result.makeHolder();
    out = TmultiBuilder(block, &vs->outputForce).addElement(i);
    out.set(result);
    return true;
}

int TdynField::getForceAtPoint(const T4dDblVectorArray& positions, const T4dDblVectorArray& velocities,
                               const TdoubleArray& masses, T4dDblVectorArray& forcesOut, double deltaTime) {
    const unsigned n = positions.length();
    if (n == 0 || (velocities.length() != 0 && velocities.length() != n)) return -1;
    T4dDblVectorArray local(n);
    TdynPointReceptor receptor(&positions, velocities.length() ? &velocities : nullptr,
                               masses.length() ? &masses : nullptr, &local, deltaTime);
    fApiDeltaTime = deltaTime;
    apply(receptor, 0, false);
    if (forcesOut.length() == n) {
        for (unsigned i = 0; i < n; ++i)
            forcesOut[i] += local[i];
    } else {
        forcesOut = std::move(local);
    }
    return 0;
}

bool TdynField::sForceFunction(TdynPointReceptor* receptor, TdynField* field) {
    if (receptor && field) field->apply(*receptor, 0, true);
    return true;
}

double TdynField::deltaTime(int elementIndex) {
    auto* vs = fieldVs();
    if (fBlock) return fBlock->inputValue(&vs->deltaTime, elementIndex).asTime().valueInThisUnit(kSeconds);
    TanimTime t;
    if (!getAttributeValue(&vs->deltaTime, t, elementIndex)) return 0;
    return t.valueInThisUnit(kSeconds);
}

double TdynField::number(const Tattribute* attr, int element) {
    return lawBlock().inputValue(own(attr), element).asDouble();
}

void TdynField::setNumber(const Tattribute* attr, double value, int element) {
    Tattribute* a = own(attr);
    if (!a) return;
    TstandaloneValue v(a);
    v.handle().set(value);
    setCachedValue(Tplug(this, a, element), v.handle(), TdgContext::fsNormal);
}

bool TdynField::prepareFrame(TdynFieldFrame& f, bool needSources) {
    auto* vs = fieldVs();
    TdataBlock& block = lawBlock();
    f.magnitude = block.inputValue(&vs->magnitude).asDouble();
    f.attenuation = std::max(0.0, block.inputValue(&vs->attenuation).asDouble());
    f.useMaxDistance = block.inputValue(&vs->useMaxDistance).asBool();
    f.maxDistance =
        f.useMaxDistance ? block.inputValue(&vs->maxDistance).asDouble() : std::numeric_limits<double>::max();
    f.applyPerVertex = block.inputValue(&vs->applyPerVertex).asBool();
    f.exclusion = block.inputValue(&vs->volumeExclusion).asBool();
    f.primitive = volumePrimitive(block);
    f.worldMatrix = block.inputValue(&vs->worldMatrix).asMatrix();
    if (f.primitive) f.volumeMatrix = TdynVolumeMatrix(finalVolumeMatrix(block));
    f.sources.clear();
    f.hasOwner = ownerShape() != nullptr;
    if (!needSources) return true;
    if (!f.hasOwner) {
        f.sources.addLast(f.worldMatrix.getTranslation());
    } else if (!f.applyPerVertex) {
        f.sources.addLast(ownerCentroid(block));
    } else if (!ownerWorldPoints(block, f.sources)) {
        return false;
    }
    return true;
}
