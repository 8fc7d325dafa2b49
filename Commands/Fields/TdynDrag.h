#pragma once
// Resistance against each point's velocity, optionally per axis.

#include "Commands/Fields/TdynField.h"

class TdnVSTdynDrag : public TdnVSTdynField {
public:
    TdnVSTdynDrag();
    void appendAttributes(TattributeList& list) override;
    Tattribute3Double direction;
    TattributeBoolean useDirection;
};

class TdynDrag : public TdynField {
    TDECLARE_NODE(TdynDrag, TdnVSTdynDrag)
public:
    static TdnVSTdynDrag* saVs() { return sVsData(); }
    bool apply(TdynPointReceptor& receptor, int elementIndex, bool useReceptorDeltaTime) override;
    bool positionalForce() const override { return false; }
    const char* baseObjectName() const override { return "dragField#"; }
    static Tattribute3Double* saDirection() { return &sVsData()->direction; }
    static Tattribute* saUseDirection() { return &sVsData()->useDirection; }
};
