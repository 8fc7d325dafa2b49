#pragma once
// The host's time events that nodes subscribe to.

#include "Host/Base/TclientServer.h"

class TtimeEvents {
public:
    static TclientServer& timeChanged();
    static TclientServer& timeUnitChanged();
    static TclientServer& rangeChanged();
};
