#pragma once
// Scene files in binary: the same walk as the text form, as tagged chunks
// holding node type tags and attribute tags. Arrays go in as raw numbers, so
// large scenes save and open quickly.

#include "Host/Graph/TdependGraph.h"

#include <string>
#include <string_view>

constexpr int kSceneBinaryFormat = 1;
constexpr TiffTag kSceneBinaryType = makeIffTag("MLSB");

std::string writeSceneBinary(TdependGraph& graph);

// Whether the bytes are a binary scene (by their first chunk).
bool isSceneBinary(std::string_view bytes);

// Builds the scene the bytes hold into the current graph, which should be
// empty but for its time node. Throws std::runtime_error naming the file and
// the byte offset of what is wrong.
void readSceneBinary(std::string_view bytes, const std::string& file);
