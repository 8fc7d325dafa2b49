#pragma once
// The playback range (playbackOptions -min/-max).

#include "Host/Time/TanimTime.h"

class TanimInfo {
public:
    static TanimInfo& currAnimInfo();

    TanimTime startTime() const { return fStart; }
    TanimTime endTime() const { return fEnd; }
    // Moves the range and tells the range clients.
    void setRange(TanimTime start, TanimTime end);

private:
    TanimTime fStart = TanimTime(1.0, kFilm);
    TanimTime fEnd = TanimTime(120.0, kFilm);
};
