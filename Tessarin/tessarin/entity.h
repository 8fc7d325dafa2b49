#pragma once
#include <string>

namespace tessarin {

// What constraint solves compute right now. The numbers are switched on by
// contacts' kind and right-hand sides.
enum Task {
    TASK_FIRST_ORDER = 1,
    TASK_DYNAMICS = 2,
    TASK_IMPACT = 3,
    TOLERANCE_CORRECTION = 4,
    TASK_NONE = 5,
};

// Derived state remembers the stamp it was computed at; a different stamp, or
// a stored 0, means recompute.
class Keystamp {
public:
    int keystamp = 0;
};

// Hook bases: the node layer hangs its own data and names here.
class EntityHook {
public:
    virtual ~EntityHook() = default;
    std::string name;
    void* user_data = nullptr;
    const char* display_name() const { return name.empty() ? "(noname)" : name.c_str(); }
};

class BodyHook : public EntityHook {};
class ShapeHook : public EntityHook {};
class InfluenceHook : public EntityHook {};
class ContactHook {
public:
    virtual ~ContactHook() = default;
};
class BarrierHook {
public:
    virtual ~BarrierHook() = default;
};

} // namespace tessarin
