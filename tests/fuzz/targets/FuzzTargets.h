#pragma once
// One input of each reader of outside data. Anything may come in; nothing may
// crash, hang or leak. The fuzzers call these, and the test suite replays the
// seed corpus and every input that once failed through them.

#include <cstddef>
#include <cstdint>

// Script text, run by the interpreter with the host's commands (those that write files or make large
// meshes stand aside) and a step limit.
void fuzzScript(const std::uint8_t* data, std::size_t size);
// A particle data file (.pdc).
void fuzzPdc(const std::uint8_t* data, std::size_t size);
// A Wavefront OBJ file.
void fuzzObj(const std::uint8_t* data, std::size_t size);
// A binary scene file (.mlb), opened into a fresh session with the dynamics loaded.
void fuzzSceneBinary(const std::uint8_t* data, std::size_t size);
