#pragma once
// The module object: finishes the module's set-up once per load, after the
// node classes have entered the graph through their static constructors.

#include <functional>
#include <string>
#include <vector>

class TdynamicsBasket {
public:
    // A scene-event callback with its priority (lower runs first).
    struct Callback {
        std::string name;
        int priority;
        std::function<void()> onSceneOpen;
    };

    // Runs the set-up once; later calls return at once.
    static void initialize();
    static bool isInitialized();
    // The node-type filters and default callbacks entered by the set-up.
    static const std::vector<std::pair<std::string, int>>& nodeCallbacks();
    static const std::vector<Callback>& defaultCallbacks();
    // Scene events: runs the default callbacks by priority. The session calls
    // it for every new or opened scene.
    static void sceneOpened();
    // The default callbacks' slots that have work of ours.
    enum Slot { kGlobalsCallback = 0, kFirstRunCallback = 1, kColorsCallback = 2 };
    static void setSceneCallback(Slot slot, std::function<void()> onSceneOpen);
};
