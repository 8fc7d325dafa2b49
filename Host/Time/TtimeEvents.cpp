#include "Host/Time/TtimeEvents.h"

TclientServer& TtimeEvents::timeChanged() {
    static TclientServer s;
    return s;
}
TclientServer& TtimeEvents::timeUnitChanged() {
    static TclientServer s;
    return s;
}
TclientServer& TtimeEvents::rangeChanged() {
    static TclientServer s;
    return s;
}
