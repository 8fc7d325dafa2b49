#include "Host/Data/TdataGeometry.h"

const TletterClass TdataGeometry::sClass{"geometry", nullptr};
const TletterClass TdataMesh::sClass{"mesh", &TdataGeometry::sClass};
const TletterClass TdataCurve::sClass{"curve", &TdataGeometry::sClass};
