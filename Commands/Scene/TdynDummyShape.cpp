#include "Commands/Scene/TdynDummyShape.h"

TDEFINE_NODE(TdynDummyShape, TdnVSTdynDummyShape, Tshape, "dynHolder", "YHLD")
