#pragma once
// The data letter that carries a swept geometry through the graph. Letters
// share the geometry by its count: a copy of the letter is another holder of
// the same geometry, which its maker (a geometry connector) updates in place
// every step instead of copying thousands of triangles.

#include "Commands/Collisions/TdynSweptGeometry.h"
#include "Host/Data/Tdata.h"

class TdataSweptGeometry : public Tletter {
    TLETTER_CLASS(TdataSweptGeometry)
public:
    // A new, empty geometry.
    TdataSweptGeometry();
    // Holds `g` (which may be null).
    explicit TdataSweptGeometry(TdynSweptGeometry* g);
    TdataSweptGeometry(const TdataSweptGeometry& o);
    ~TdataSweptGeometry() override;

    TdynSweptGeometry* sweptGeometry() const { return fGeometry; }
    // Holds `g` instead of what it held.
    void setSweptGeometry(TdynSweptGeometry* g);
    // Time samples it carries: two (start and end of the step) when it holds a geometry.
    int timeSampleCount() const { return fGeometry ? 2 : 0; }

private:
    TdynSweptGeometry* fGeometry = nullptr;
};

// The swept geometry an envelope carries, or null.
inline TdynSweptGeometry* sweptGeometryOf(const Tdata& d) {
    auto* l = d.as<TdataSweptGeometry>();
    return l ? l->sweptGeometry() : nullptr;
}
