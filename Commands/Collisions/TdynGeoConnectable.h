#pragma once
// A shape that exists to be connected to the dynamics: it holds a mesh handed
// to it on inMesh (from any source) and offers it to a geometry connector like
// any mesh shape, so geometry that has no shape of its own can collide, emit
// or own fields.

#include "Host/Dag/Tshape.h"

class TdnVSTdynGeoConnectable : public TdnVSTmeshShape {
public:
    TdnVSTdynGeoConnectable() = default;
};

class TdynGeoConnectable : public TmeshShape {
    TDECLARE_NODE(TdynGeoConnectable, TdnVSTdynGeoConnectable)
};
