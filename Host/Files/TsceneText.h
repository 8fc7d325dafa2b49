#pragma once
// Scene files as text: a script of our command language that makes the scene
// again when run in a new scene. Readable, and diffs well under version
// control.

#include "Host/Graph/TdependGraph.h"

#include <ostream>
#include <string_view>

// The newest format this program writes and reads.
constexpr int kSceneTextFormat = 1;
// The first line of every text scene, followed by the format number.
constexpr std::string_view kSceneTextHeader = "//Motilane scene ";

void writeSceneText(TdependGraph& graph, std::ostream& out);

// The format a text names on its first line, or 0 when it has no such line
// (a plain script, which opens as a scene too).
int sceneTextFormat(std::string_view text);
