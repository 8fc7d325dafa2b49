#pragma once
// One working session of the host: a scene graph, the command engine and the
// script interpreter, wired to each other and made current.

#include "Host/Command/TcommandEngine.h"
#include "Host/Graph/TdependGraph.h"
#include "Host/Script/TscriptInterpreter.h"

#include <atomic>
#include <functional>
#include <memory>
#include <string>

class Tsession {
public:
    Tsession();
    ~Tsession();
    Tsession(const Tsession&) = delete;
    Tsession& operator=(const Tsession&) = delete;

    TdependGraph& graph() { return *fGraph; }
    TcommandEngine& engine() { return *fEngine; }
    TscriptInterpreter& interpreter() { return *fInterpreter; }

    // Runs a script file; a file that cannot be read is reported as an error.
    bool runFile(const std::string& path, bool echo);
    bool runText(const std::string& text, const std::string& name, bool echo);
    // Set from a signal handler to stop a running script (and long work that checks it).
    static std::atomic<bool>& interruptFlag();

    // Work a loaded module does on every scene that opens (a new session, a
    // scene file read); run in the order added.
    static void addSceneOpenedCallback(std::function<void()> callback);
    static void notifySceneOpened();

private:
    TdependGraph* fPreviousGraph = nullptr;
    std::unique_ptr<TdependGraph> fGraph;
    std::unique_ptr<TcommandEngine> fEngine;
    std::unique_ptr<TscriptInterpreter> fInterpreter;
};
