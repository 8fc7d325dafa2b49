#pragma once
// The module's drawing colours: one row for each kind of dynamics object, read
// and written by index. Pictures of a scene take their colours from here, so a
// user can recolour a kind of object once for every image.

#include <array>
#include <string>
#include <vector>

class TdynColorCallback {
public:
    // The kinds of object, in row order.
    enum Kind {
        kParticles,
        kFields,
        kEmitters,
        kCollisions,
        kSprings,
        kActiveRigid,
        kPassiveRigid,
        kConstraints,
        kFluids,
        kKindCount
    };
    using Color = std::array<float, 3>;

    // False for an index outside 0 .. kKindCount-1 (the colour is left as it was).
    static bool getColor(int index, Color& out);
    static bool setColor(int index, const Color& color);
    // Every row, with its index and the name of its kind.
    struct Row {
        int index;
        std::string kind;
        Color color;
    };
    static std::vector<Row> getColorsWithIndex();
    // Joins the scene events: every scene opened starts from the default palette.
    static void attachCallbacks();
    static void resetColors();
};
