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

    // The session whose scene commands act on; null when none.
    static Tsession* current();

    // The scene's file: empty until the scene is saved or opened.
    const std::string& sceneName() const { return fSceneName; }
    void setSceneName(std::string path) { fSceneName = std::move(path); }
    // Whether commands changed the scene since it was made, opened or saved.
    bool isModified() const { return fEngine->changeCount() != fSavedChanges; }
    void markUnmodified() { fSavedChanges = fEngine->changeCount(); }
    // Builds a new scene by running `build` against an empty graph made
    // current, then puts it in place of the open one, whose undo queue goes
    // with it. When `build` throws, the open scene is left as it was and the
    // exception goes on.
    void replaceScene(const std::function<void()>& build);

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
    // A scene's clock and range as a new scene starts them.
    void startSceneSettings();

    Tsession* fPreviousSession = nullptr;
    std::string fSceneName;
    std::uint64_t fSavedChanges = 0;
    TdependGraph* fPreviousGraph = nullptr;
    std::unique_ptr<TdependGraph> fGraph;
    std::unique_ptr<TcommandEngine> fEngine;
    std::unique_ptr<TscriptInterpreter> fInterpreter;
};
