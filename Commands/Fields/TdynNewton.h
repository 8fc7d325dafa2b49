#pragma once
// Attraction between masses: a pull towards the sources that falls off with
// a power of the distance.

#include "Commands/Fields/TdynField.h"

class TdnVSTdynNewton : public TdnVSTdynField {
public:
    TdnVSTdynNewton();
    void appendAttributes(TattributeList& list) override;
    bool setupDependencies(TdependencyMatrix& m) override;
    TattributeDouble minDistance;
    TattributeTyped ownerMassData;
};

class TdynNewton : public TdynField {
    TDECLARE_NODE(TdynNewton, TdnVSTdynNewton)
public:
    static TdnVSTdynNewton* saVs() { return sVsData(); }
    bool apply(TdynPointReceptor& receptor, int elementIndex, bool useReceptorDeltaTime) override;
    const char* baseObjectName() const override { return "newtonField#"; }
    static Tattribute* saMinDistance() { return &sVsData()->minDistance; }
    static Tattribute* saOwnerMassData() { return &sVsData()->ownerMassData; }
};
