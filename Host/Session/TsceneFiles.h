#pragma once
// Saving, opening and starting scenes of a session. Each throws
// std::runtime_error with a message naming the file when it cannot do it; a
// failed open or save leaves the scene and the file as they were.

#include "Host/Session/Tsession.h"

#include <string>

// Scene files are text (".mls", a script of our command language) or binary
// (".mlb", tagged chunks: smaller and much faster for large arrays).
enum class TsceneFormat { kText, kBinary };

// The format a -type value names ("text", "binary"), or that a path's
// extension names when the type is empty; throws for anything else.
TsceneFormat sceneFormatFor(const std::string& path, const std::string& type);

void saveScene(Tsession& session, const std::string& path, TsceneFormat format);
// Either format, told by the file's first bytes.
void openScene(Tsession& session, const std::string& path);
void newScene(Tsession& session);
