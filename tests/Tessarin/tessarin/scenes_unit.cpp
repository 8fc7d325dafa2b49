// The shared scene builders, compiled into the kernel tests so that they do
// not depend on the benchmark build.
#include "bench/rigid_scenes.cpp"
