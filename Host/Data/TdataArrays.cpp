#include "Host/Data/TdataArrays.h"

const TletterClass TdataDoubleArray::sClass{"doubleArray", nullptr};
const TletterClass TdataVectorArray::sClass{"vectorArray", nullptr};
const TletterClass TdataInt32Array::sClass{"Int32Array", nullptr};
const TletterClass TdataStringArray::sClass{"stringArray", nullptr};
const TletterClass TdataString::sClass{"string", nullptr};
const TletterClass TdataMatrix::sClass{"matrix", nullptr};
