#include "Commands/TdynForceReceptor.h"

TdynForceReceptor::~TdynForceReceptor() = default;
