#include "Fluids/Core/TdataFluid.h"

const TletterClass TdataFluid::sClass = {"fluid", &TdataGeometry::sClass};
