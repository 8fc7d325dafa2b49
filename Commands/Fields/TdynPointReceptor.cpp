#include "Commands/Fields/TdynPointReceptor.h"

void TdynPointReceptor::setArrays(const T4dDblVectorArray* positions, const T4dDblVectorArray* velocities,
                                  const TdoubleArray* masses, T4dDblVectorArray* forces, double deltaTime) {
    fPositions = positions;
    fVelocities = velocities;
    fMasses = masses;
    fForces = forces;
    fDeltaTime = deltaTime;
    fCurrent = 0;
    fCount = positions ? positions->length() : 0;
    if (fForces && fForces->length() != fCount) fForces->changeLogicalSizeTo(fCount);
    fPos = positions ? positions->data() : nullptr;
    // Short companion arrays are not trusted: a law reads every index below the point count.
    fVel = velocities && velocities->length() >= fCount && fCount > 0 ? velocities->data() : nullptr;
    fMass = masses && masses->length() >= fCount && fCount > 0 ? masses->data() : nullptr;
    fForce = fForces ? fForces->data() : nullptr;
}

void TdynPointReceptor::scaleAllForces(double s) {
    for (unsigned i = 0; i < fCount; ++i)
        fForce[i] *= s;
}
