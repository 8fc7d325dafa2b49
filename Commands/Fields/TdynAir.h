#pragma once
// Wind: pushes each point's velocity towards the air's own, at a rate set by
// `speed`. The field remembers where it stood, so that a moving field's own
// velocity can be inherited.

#include "Commands/Fields/TdynField.h"

class TdnVSTdynAir : public TdnVSTdynField {
public:
    TdnVSTdynAir();
    void appendAttributes(TattributeList& list) override;
    Tattribute3Double direction;
    TattributeDouble speed;
    TattributeDouble inheritVelocity;
    TattributeBoolean componentOnly;
    TattributeDouble spread;
    TattributeBoolean enableSpread;
    TattributeBoolean inheritRotation;
};

class TdynAir : public TdynField {
    TDECLARE_NODE(TdynAir, TdnVSTdynAir)
public:
    static TdnVSTdynAir* saVs() { return sVsData(); }
    bool apply(TdynPointReceptor& receptor, int elementIndex, bool useReceptorDeltaTime) override;
    const char* baseObjectName() const override { return "airField#"; }
    // The host's playing-back condition: the remembered position is kept as it is.
    void playingBack(bool) {}
    const T4dDblPoint& lastPosition() const { return fLastPosition; }
    void setLastPosition(const T4dDblPoint& p) { fLastPosition = p; }

private:
    T4dDblPoint fLastPosition;
};
