#pragma once
// Rotation about an axis through each source: the force is the displacement
// of one step's turn, divided by the step.

#include "Commands/Fields/TdynField.h"

class TdnVSTdynVortex : public TdnVSTdynField {
public:
    TdnVSTdynVortex();
    void appendAttributes(TattributeList& list) override;
    Tattribute3Double axis;
};

class TdynVortex : public TdynField {
    TDECLARE_NODE(TdynVortex, TdnVSTdynVortex)
public:
    static TdnVSTdynVortex* saVs() { return sVsData(); }
    bool apply(TdynPointReceptor& receptor, int elementIndex, bool useReceptorDeltaTime) override;
    const char* baseObjectName() const override { return "vortexField#"; }
    static Tattribute3Double* saAxis() { return &sVsData()->axis; }
};
