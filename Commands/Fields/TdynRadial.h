#pragma once
// A push away from the sources (pull with a negative magnitude), in two parts
// blended by radialType.

#include "Commands/Fields/TdynField.h"

class TdnVSTdynRadial : public TdnVSTdynField {
public:
    TdnVSTdynRadial();
    void appendAttributes(TattributeList& list) override;
    TattributeDouble radialType;
};

class TdynRadial : public TdynField {
    TDECLARE_NODE(TdynRadial, TdnVSTdynRadial)
public:
    static TdnVSTdynRadial* saVs() { return sVsData(); }
    bool apply(TdynPointReceptor& receptor, int elementIndex, bool useReceptorDeltaTime) override;
    const char* baseObjectName() const override { return "radialField#"; }
    static Tattribute* saRadialType() { return &sVsData()->radialType; }
};
