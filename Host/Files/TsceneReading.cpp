#include "Host/Files/TsceneReading.h"

namespace {
int gDepth = 0;
} // namespace

bool isReadingSceneFile() {
    return gDepth > 0;
}

TsceneReadingScope::TsceneReadingScope() {
    ++gDepth;
}

TsceneReadingScope::~TsceneReadingScope() {
    --gDepth;
}
