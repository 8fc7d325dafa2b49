#include "Commands/Collisions/TdynGeoConnectable.h"

TDEFINE_NODE(TdynGeoConnectable, TdnVSTdynGeoConnectable, TmeshShape, "geoConnectable", "YGCO")
