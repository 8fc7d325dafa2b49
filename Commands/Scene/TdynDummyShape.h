#pragma once
// A shape with no geometry: it holds a place under a transform for dynamics
// that need a shape node but draw nothing of their own.

#include "Host/Dag/Tshape.h"

class TdnVSTdynDummyShape : public TdnVSTshape {
public:
    TdnVSTdynDummyShape() = default;
};

class TdynDummyShape : public Tshape {
    TDECLARE_NODE(TdynDummyShape, TdnVSTdynDummyShape)
};
