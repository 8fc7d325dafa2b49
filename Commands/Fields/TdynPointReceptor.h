#pragma once
// Sample points read (positions, velocities, masses) and forces written, over
// plain arrays the caller owns. Final, so that the force loops call it without
// a virtual dispatch.

#include "Commands/Fields/TdynForceReceptor.h"
#include "Host/Data/TdataArrays.h"

class TdynPointReceptor final : public TdynForceReceptor {
public:
    TdynPointReceptor() = default;
    TdynPointReceptor(const T4dDblVectorArray* positions, const T4dDblVectorArray* velocities,
                      const TdoubleArray* masses, T4dDblVectorArray* forces, double deltaTime) {
        setArrays(positions, velocities, masses, forces, deltaTime);
    }

    static const char* sClassName() { return "TdynPointReceptor"; }
    const char* className() const override { return sClassName(); }
    bool isPointReceptor() const override { return true; }

    // Stores the arrays and sizes `forces` to the points without clearing it: the caller has zeroed or
    // preloaded it.
    void setArrays(const T4dDblVectorArray* positions, const T4dDblVectorArray* velocities,
                   const TdoubleArray* masses, T4dDblVectorArray* forces, double deltaTime);

    void addForce(unsigned i, const T4dDblVector& f) override { fForce[i] += f; }
    void scaleAllForces(double s) override;
    void scaleForce(unsigned i, double s) override { fForce[i] *= s; }

    unsigned count() const { return fCount; }
    const T4dDblVector& position(unsigned i) const { return fPos[i]; }
    // Zero when the client gave no velocities.
    T4dDblVector velocity(unsigned i) const { return fVel ? fVel[i] : T4dDblVector(); }
    bool hasVelocities() const { return fVel != nullptr; }
    // 1 without masses, so laws that scale by mass also work on the plain query path.
    double mass(unsigned i) const { return fMass ? fMass[i] : 1.0; }
    const T4dDblVector& force(unsigned i) const { return fForce[i]; }
    double deltaTime() const { return fDeltaTime; }
    unsigned currentIndex() const { return fCurrent; }
    void setCurrentIndex(unsigned i) { fCurrent = i; }

    const T4dDblVectorArray* positions() const { return fPositions; }
    const T4dDblVectorArray* velocities() const { return fVelocities; }
    const TdoubleArray* masses() const { return fMasses; }
    T4dDblVectorArray* forces() const { return fForces; }

private:
    const T4dDblVectorArray* fPositions = nullptr;
    const T4dDblVectorArray* fVelocities = nullptr;
    const TdoubleArray* fMasses = nullptr;
    T4dDblVectorArray* fForces = nullptr;
    const T4dDblVector* fPos = nullptr;
    const T4dDblVector* fVel = nullptr;
    const double* fMass = nullptr;
    T4dDblVector* fForce = nullptr;
    unsigned fCount = 0;
    unsigned fCurrent = 0;
    double fDeltaTime = 0;
};
