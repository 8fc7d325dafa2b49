#pragma once
// Time as a signed tick count, 6000 ticks a second, so that times compare and
// subtract exactly.

#include <compare>
#include <cstdint>
#include <string>

// Units a time can be read in. kSeconds and kCurrentFrameUnit keep the values
// the module's code uses (2 and 12).
enum TtimeUnitSystem : int {
    kInvalidTimeUnit = 0,
    kHours = 1,
    kSeconds = 2,
    kMinutes = 3,
    kMilliseconds = 4,
    kGame = 5,   // 15 fps
    kFilm = 6,   // 24 fps
    kPal = 7,    // 25 fps
    kNtsc = 8,   // 30 fps
    kShow = 9,   // 48 fps
    kPalf = 10,  // 50 fps
    kNtscf = 11, // 60 fps
    kCurrentFrameUnit = 12,
};

class TtimeUnit {
public:
    static constexpr std::int64_t kTicksPerSecond = 6000;

    // Ticks in one of `unit`; kCurrentFrameUnit resolves to the current frame unit.
    static double ticksPerUnit(TtimeUnitSystem unit);
    static TtimeUnitSystem current();
    // Changes the frame unit and tells the time-unit clients.
    static void setCurrent(TtimeUnitSystem unit);
    // "film", "pal", ... and back; kInvalidTimeUnit for an unknown name.
    static TtimeUnitSystem fromName(const char* name);
    static const char* name(TtimeUnitSystem unit);
    static double framesPerSecond(TtimeUnitSystem unit);
};

class TanimTime {
public:
    constexpr TanimTime() = default;
    // A value in a unit, rounded to the nearest tick.
    TanimTime(double value, TtimeUnitSystem unit);
    // Whether a value in a unit is a time the 64-bit tick count holds (with room to add steps to it).
    static bool fits(double value, TtimeUnitSystem unit);
    // A time given by a script: refuses (std::out_of_range, naming `what` and the value) one that does not
    // fit.
    static TanimTime checked(double value, TtimeUnitSystem unit, const std::string& what);
    static constexpr TanimTime fromTicks(std::int64_t ticks) {
        TanimTime t;
        t.fTicks = ticks;
        return t;
    }

    std::int64_t ticks() const { return fTicks; }
    double valueInThisUnit(TtimeUnitSystem unit) const;
    double seconds() const { return valueInThisUnit(kSeconds); }
    double frames() const { return valueInThisUnit(kCurrentFrameUnit); }

    friend constexpr bool operator==(TanimTime a, TanimTime b) { return a.fTicks == b.fTicks; }
    friend constexpr auto operator<=>(TanimTime a, TanimTime b) { return a.fTicks <=> b.fTicks; }
    friend constexpr TanimTime operator+(TanimTime a, TanimTime b) { return fromTicks(a.fTicks + b.fTicks); }
    friend constexpr TanimTime operator-(TanimTime a, TanimTime b) { return fromTicks(a.fTicks - b.fTicks); }
    TanimTime& operator+=(TanimTime o) {
        fTicks += o.fTicks;
        return *this;
    }
    TanimTime& operator-=(TanimTime o) {
        fTicks -= o.fTicks;
        return *this;
    }

private:
    std::int64_t fTicks = 0;
};
