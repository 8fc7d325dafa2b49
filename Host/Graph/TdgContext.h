#pragma once
// Evaluation contexts. The normal context is the graph's current time; a timed
// context reads values at another time and never advances simulation state.

#include "Host/Time/TanimTime.h"

#include <cstdint>

class TdgContext {
public:
    static const TdgContext fsNormal;

    virtual ~TdgContext();
    bool isNormal() const { return fId == 0; }
    std::uint64_t id() const { return fId; }
    bool isTimed() const { return fTimed; }
    // The time the context evaluates at; for the normal context, the graph's time.
    TanimTime time() const;

protected:
    TdgContext(std::uint64_t id, bool timed, TanimTime t) : fId(id), fTimed(timed), fTime(t) {}

private:
    std::uint64_t fId;
    bool fTimed;
    TanimTime fTime;
};

// Evaluation at a given time. Blocks made for it are dropped when it goes.
class TdgContextTimed : public TdgContext {
public:
    explicit TdgContextTimed(TanimTime t);
    ~TdgContextTimed() override;
    TdgContextTimed(const TdgContextTimed&) = delete;
    TdgContextTimed& operator=(const TdgContextTimed&) = delete;
};
