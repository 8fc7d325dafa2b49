#include "Global/Basket/TdynColorCallback.h"
#include "Global/Basket/TdynamicsBasket.h"

namespace {
struct Palette {
    const char* kind;
    TdynColorCallback::Color color;
};
// Defaults chosen to tell the kinds apart on a dark background.
constexpr Palette kDefaults[TdynColorCallback::kKindCount] = {
    {"particles", {0.85f, 0.85f, 0.95f}},    {"fields", {0.40f, 0.80f, 1.00f}},
    {"emitters", {1.00f, 0.80f, 0.30f}},     {"collisions", {0.90f, 0.40f, 0.30f}},
    {"springs", {0.55f, 0.95f, 0.45f}},      {"activeRigid", {0.95f, 0.60f, 0.20f}},
    {"passiveRigid", {0.55f, 0.55f, 0.60f}}, {"constraints", {0.95f, 0.35f, 0.85f}},
    {"fluids", {0.75f, 0.75f, 0.80f}},
};

TdynColorCallback::Color gColors[TdynColorCallback::kKindCount];
bool gInitialized = false;

void ensureInitialized() {
    if (gInitialized) return;
    TdynColorCallback::resetColors();
}
} // namespace

bool TdynColorCallback::getColor(int index, Color& out) {
    if (index < 0 || index >= kKindCount) return false;
    ensureInitialized();
    out = gColors[index];
    return true;
}

bool TdynColorCallback::setColor(int index, const Color& color) {
    if (index < 0 || index >= kKindCount) return false;
    ensureInitialized();
    gColors[index] = color;
    return true;
}

std::vector<TdynColorCallback::Row> TdynColorCallback::getColorsWithIndex() {
    ensureInitialized();
    std::vector<Row> rows;
    for (int i = 0; i < kKindCount; ++i)
        rows.push_back({i, kDefaults[i].kind, gColors[i]});
    return rows;
}

void TdynColorCallback::attachCallbacks() {
    TdynamicsBasket::setSceneCallback(TdynamicsBasket::kColorsCallback, &TdynColorCallback::resetColors);
}

void TdynColorCallback::resetColors() {
    for (int i = 0; i < kKindCount; ++i)
        gColors[i] = kDefaults[i].color;
    gInitialized = true;
}
