#include "Host/Time/TanimInfo.h"
#include "Host/Time/TtimeEvents.h"

TanimInfo& TanimInfo::currAnimInfo() {
    static TanimInfo info;
    return info;
}

void TanimInfo::setRange(TanimTime start, TanimTime end) {
    if (start == fStart && end == fEnd) return;
    fStart = start;
    fEnd = end;
    TtimeEvents::rangeChanged().send();
}
