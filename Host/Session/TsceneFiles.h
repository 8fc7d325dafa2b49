#pragma once
// Saving, opening and starting scenes of a session. Each throws
// std::runtime_error with a message naming the file when it cannot do it; a
// failed open or save leaves the scene and the file as they were.

#include "Host/Session/Tsession.h"

#include <string>

// The scene file extension: scenes are text scripts of our command language.
constexpr const char* kSceneExtension = ".mls";

void saveScene(Tsession& session, const std::string& path);
void openScene(Tsession& session, const std::string& path);
void newScene(Tsession& session);
