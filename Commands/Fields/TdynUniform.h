#pragma once
// A constant push along a direction, the same everywhere in reach.

#include "Commands/Fields/TdynField.h"

class TdnVSTdynUniform : public TdnVSTdynField {
public:
    TdnVSTdynUniform();
    void appendAttributes(TattributeList& list) override;
    Tattribute3Double direction;
    TattributeDouble inheritFactor; // stored for users; the law does not read it
};

class TdynUniform : public TdynField {
    TDECLARE_NODE(TdynUniform, TdnVSTdynUniform)
public:
    static TdnVSTdynUniform* saVs() { return sVsData(); }
    bool apply(TdynPointReceptor& receptor, int elementIndex, bool useReceptorDeltaTime) override;
    bool positionalForce() const override { return false; }
    const char* baseObjectName() const override { return "uniformField#"; }
    static Tattribute3Double* saDirection() { return &sVsData()->direction; }
};
