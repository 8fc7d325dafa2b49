#pragma once
// A constant acceleration: force along the direction, scaled by each point's mass.

#include "Commands/Fields/TdynField.h"

class TdnVSTdynGravity : public TdnVSTdynField {
public:
    TdnVSTdynGravity();
    void appendAttributes(TattributeList& list) override;
    Tattribute3Double direction;
};

class TdynGravity : public TdynField {
    TDECLARE_NODE(TdynGravity, TdnVSTdynGravity)
public:
    static TdnVSTdynGravity* saVs() { return sVsData(); }
    bool apply(TdynPointReceptor& receptor, int elementIndex, bool useReceptorDeltaTime) override;
    bool positionalForce() const override { return false; }
    const char* baseObjectName() const override { return "gravityField#"; }
    static Tattribute3Double* saDirection() { return &sVsData()->direction; }
};
