#include "Global/Basket/TdynamicsBasket.h"

#include "Commands/Particles/TdynParticleShape.h"
#include "Commands/Scene/TdynStatic.h"
#include "Fluids/Core/Tfluid.h"
#include "Global/Basket/TdynColorCallback.h"
#include "Host/Graph/TdependGraph.h"
#include "Host/Session/Tsession.h"

#include <algorithm>

namespace {
bool gInitialized = false;
std::vector<std::pair<std::string, int>> gNodeCallbacks;
std::vector<TdynamicsBasket::Callback> gDefaultCallbacks;

// A scene holds one active globals node: an opened scene that has dynamics but
// no globals gets them, one that has several keeps the first, and the
// over-sampling is worked out again for the scene's time unit.
void sceneGlobals() {
    if (!TdependGraph::hasCurrent()) return;
    bool hasDynamics = false;
    for (TdependNode* n : TdependGraph::current().nodes())
        hasDynamics = hasDynamics || TdynStatic::isADynamicObject(n);
    TdynGlobals* globals = TdynGlobals::activeGlobalsNode(hasDynamics);
    if (hasDynamics) TdynController::controller(true);
    if (globals) {
        TdynGlobals::forceOneActive();
        globals->timeUnitChanged();
    }
}

// Nothing of a previous scene's run may leak into the next: no run-up is in
// progress and the controller has not evaluated yet.
void firstRunSetup() {
    TdynStatic::fIsInRunup = false;
    if (TdynController* c = TdynController::controller(false))
        c->setAttributeValue(&TdynController::sVsData()->firstEval, 1.0);
}
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
    gDefaultCallbacks[kGlobalsCallback].onSceneOpen = sceneGlobals;
    gDefaultCallbacks[kFirstRunCallback].onSceneOpen = firstRunSetup;
    TdynColorCallback::attachCallbacks();
    Tfluid::registerSolvers();
    Tsession::addSceneOpenedCallback(&TdynamicsBasket::sceneOpened);
    gInitialized = true;
}

bool TdynamicsBasket::isInitialized() {
    return gInitialized;
}

const std::vector<std::pair<std::string, int>>& TdynamicsBasket::nodeCallbacks() {
    return gNodeCallbacks;
}

const std::vector<TdynamicsBasket::Callback>& TdynamicsBasket::defaultCallbacks() {
    return gDefaultCallbacks;
}

void TdynamicsBasket::sceneOpened() {
    std::vector<const Callback*> order;
    for (const Callback& c : gDefaultCallbacks)
        order.push_back(&c);
    std::stable_sort(order.begin(), order.end(), [](auto* a, auto* b) { return a->priority < b->priority; });
    for (const Callback* c : order)
        if (c->onSceneOpen) c->onSceneOpen();
}

void TdynamicsBasket::setSceneCallback(Slot slot, std::function<void()> onSceneOpen) {
    if (static_cast<std::size_t>(slot) < gDefaultCallbacks.size())
        gDefaultCallbacks[slot].onSceneOpen = std::move(onSceneOpen);
}
