// libFuzzer entry for one reader; the work is in FuzzTargets.cpp.
#include "../targets/FuzzTargets.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzzSceneBinary(data, size);
    return 0;
}
