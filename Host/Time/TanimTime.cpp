#include "Host/Time/TanimTime.h"
#include "Host/Time/TtimeEvents.h"
#include <cstdio>
#include <stdexcept>

#include <cmath>
#include <cstring>

namespace {
TtimeUnitSystem gCurrentUnit = kFilm;

struct UnitRow {
    TtimeUnitSystem unit;
    const char* name;
    double ticks;
};
constexpr UnitRow kUnits[] = {
    {kHours, "hour", 6000.0 * 3600.0},
    {kSeconds, "sec", 6000.0},
    {kMinutes, "min", 6000.0 * 60.0},
    {kMilliseconds, "millisec", 6.0},
    {kGame, "game", 400.0},
    {kFilm, "film", 250.0},
    {kPal, "pal", 240.0},
    {kNtsc, "ntsc", 200.0},
    {kShow, "show", 125.0},
    {kPalf, "palf", 120.0},
    {kNtscf, "ntscf", 100.0},
};
} // namespace

double TtimeUnit::ticksPerUnit(TtimeUnitSystem unit) {
    if (unit == kCurrentFrameUnit) unit = gCurrentUnit;
    for (const UnitRow& r : kUnits)
        if (r.unit == unit) return r.ticks;
    return 6000.0;
}

TtimeUnitSystem TtimeUnit::current() {
    return gCurrentUnit;
}

void TtimeUnit::setCurrent(TtimeUnitSystem unit) {
    if (unit == kCurrentFrameUnit || unit == kInvalidTimeUnit || unit == gCurrentUnit) return;
    gCurrentUnit = unit;
    TtimeEvents::timeUnitChanged().send();
}

TtimeUnitSystem TtimeUnit::fromName(const char* n) {
    for (const UnitRow& r : kUnits)
        if (std::strcmp(r.name, n) == 0) return r.unit;
    if (std::strcmp(n, "second") == 0 || std::strcmp(n, "s") == 0) return kSeconds;
    return kInvalidTimeUnit;
}

const char* TtimeUnit::name(TtimeUnitSystem unit) {
    if (unit == kCurrentFrameUnit) unit = gCurrentUnit;
    for (const UnitRow& r : kUnits)
        if (r.unit == unit) return r.name;
    return "";
}

double TtimeUnit::framesPerSecond(TtimeUnitSystem unit) {
    return 6000.0 / ticksPerUnit(unit);
}

TanimTime::TanimTime(double value, TtimeUnitSystem unit)
    : fTicks(static_cast<std::int64_t>(std::llround(value * TtimeUnit::ticksPerUnit(unit)))) {}

bool TanimTime::fits(double value, TtimeUnitSystem unit) {
    // Half the tick range either way, so that sums of such times cannot wrap either.
    constexpr double kMostTicks = 4.0e18;
    const double ticks = value * TtimeUnit::ticksPerUnit(unit);
    return std::isfinite(ticks) && std::fabs(ticks) <= kMostTicks;
}

TanimTime TanimTime::checked(double value, TtimeUnitSystem unit, const std::string& what) {
    if (!fits(value, unit)) {
        char text[64];
        std::snprintf(text, sizeof text, "%g", value);
        char most[64];
        std::snprintf(most, sizeof most, "%.3g", 4.0e18 / TtimeUnit::ticksPerUnit(unit));
        throw std::out_of_range(what + " " + text + " is beyond the times the clock holds (at most " + most +
                                " either way)");
    }
    return TanimTime(value, unit);
}

double TanimTime::valueInThisUnit(TtimeUnitSystem unit) const {
    return static_cast<double>(fTicks) / TtimeUnit::ticksPerUnit(unit);
}
