#pragma once
// Flow through a volume: away from its centre or axis, along and around the
// axis, a directional drift and noise, fading towards the surface.

#include "Commands/Fields/TdynField.h"

class TdnVSTdynVolumeAxis : public TdnVSTdynField {
public:
    TdnVSTdynVolumeAxis();
    void appendAttributes(TattributeList& list) override;
    TattributeBoolean invertAttenuation;
    TattributeDouble awayFromCenter, awayFromAxis, alongAxis, aroundAxis, directionalSpeed;
    Tattribute3Double direction;
    TattributeBoolean displaySpeed;
    TattributeDouble turbulence, turbulenceSpeed;
    Tattribute3Double turbulenceFrequency, turbulenceOffset;
    TattributeDouble detailTurbulence;
    TattributeTime time;
};

class TdynVolumeAxis : public TdynField {
    TDECLARE_NODE(TdynVolumeAxis, TdnVSTdynVolumeAxis)
public:
    bool apply(TdynPointReceptor& receptor, int elementIndex, bool useReceptorDeltaTime) override;
    const char* baseObjectName() const override { return "volumeAxisField#"; }
    static TdnVSTdynVolumeAxis* saVs() { return sVsData(); }
};
