#pragma once
// `motilane demo`: runs the built-in scene and writes its outputs.

#include <string>

struct TdemoOptions {
    std::string outDir = "demo-out";
    int frames = 0; // 0: the scene's playback range
    bool quiet = false;
};

// Returns the exit status.
int runDemo(const TdemoOptions& options);
