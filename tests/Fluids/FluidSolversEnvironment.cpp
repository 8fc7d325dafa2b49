// The core's tests stand in for the module's set-up, which enters the solvers.

#include "Fluids/Core/Tfluid.h"

#include <gtest/gtest.h>

namespace {
class FluidSolvers : public ::testing::Environment {
public:
    void SetUp() override { Tfluid::registerSolvers(); }
};
const auto* gFluidSolvers = ::testing::AddGlobalTestEnvironment(new FluidSolvers);
} // namespace
