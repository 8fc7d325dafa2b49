#include "Commands/Fields/TdynForceReceptor.h"

TdynForceReceptor::~TdynForceReceptor() = default;
