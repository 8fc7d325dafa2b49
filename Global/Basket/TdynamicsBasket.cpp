#include "Global/Basket/TdynamicsBasket.h"

#include "Host/Graph/TdependGraph.h"

#include <algorithm>

namespace {
bool gInitialized = false;
std::vector<std::pair<std::string, int>> gNodeCallbacks;
std::vector<TdynamicsBasket::Callback> gDefaultCallbacks;

// Per-scene set-up the module does when a scene opens; the globals and the
// first-run set-up join as their node classes arrive.
void sceneGlobals() {}
void firstRunSetup() {}
} // namespace

void TdynamicsBasket::initialize() {
    if (gInitialized) return;
    // With a graph already current, the scene's set-up runs at once.
    if (TdependGraph::hasCurrent()) {
        sceneGlobals();
        firstRunSetup();
    }
    // Node callbacks by type filter and priority; the types join the catalogue as their classes arrive.
    gNodeCallbacks = {{"dynamic", 5},  {"rigidBody", 4}, {"rigidConstraint", 5},
                      {"particle", 5}, {"airField", 4},  {"pointEmitter", 4}};
    // Default callbacks with their priorities, in this order.
    const int priorities[] = {4, 5, 0, 4, 4, 4, 4, 5, 4, 5, 1, 5, 11, 3};
    gDefaultCallbacks.clear();
    for (std::size_t i = 0; i < std::size(priorities); ++i)
        gDefaultCallbacks.push_back({"dynamics" + std::to_string(i + 1), priorities[i], nullptr});
    gDefaultCallbacks[0].onSceneOpen = sceneGlobals;
    gDefaultCallbacks[1].onSceneOpen = firstRunSetup;
    gInitialized = true;
}

bool TdynamicsBasket::isInitialized() { return gInitialized; }

const std::vector<std::pair<std::string, int>>& TdynamicsBasket::nodeCallbacks() { return gNodeCallbacks; }

const std::vector<TdynamicsBasket::Callback>& TdynamicsBasket::defaultCallbacks() { return gDefaultCallbacks; }

void TdynamicsBasket::sceneOpened() {
    std::vector<const Callback*> order;
    for (const Callback& c : gDefaultCallbacks) order.push_back(&c);
    std::stable_sort(order.begin(), order.end(), [](auto* a, auto* b) { return a->priority < b->priority; });
    for (const Callback* c : order)
        if (c->onSceneOpen) c->onSceneOpen();
}
