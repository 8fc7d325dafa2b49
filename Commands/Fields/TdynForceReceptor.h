#pragma once
// The write side of a force evaluation: a force law adds to it and never
// overwrites what is already there.

#include "Host/Math/T4dDblVector.h"

class TdynForceReceptor {
public:
    TdynForceReceptor() = default;
    virtual ~TdynForceReceptor();
    TdynForceReceptor(const TdynForceReceptor&) = delete;
    TdynForceReceptor& operator=(const TdynForceReceptor&) = delete;

    static const char* sClassName() { return "TdynForceReceptor"; }
    virtual const char* className() const { return sClassName(); }
    // Type test: whether the receptor also carries sample points.
    virtual bool isPointReceptor() const { return false; }

    virtual void addForce(unsigned index, const T4dDblVector& force) = 0;
    virtual void scaleAllForces(double factor) = 0;
    virtual void scaleForce(unsigned index, double factor) = 0;

protected:
    int fTag = 0;
};
