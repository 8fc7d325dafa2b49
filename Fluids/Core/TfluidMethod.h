#pragma once
// How a fluid channel gets its values: a grid, a constant, or a function of position.

enum TfluidAttributeMethod : int {
    kMethodOff = 0,
    kMethodGrid = 2, // static or dynamic grid
    kMethodConstant = 4,
    kMethodXGradient = 5,
    kMethodYGradient = 6,
    kMethodZGradient = 7,
    kMethodNegXGradient = 8,
    kMethodNegYGradient = 9,
    kMethodNegZGradient = 10,
    kMethodCenterGradient = 11,
    kMethodGridRead = 12, // stored like a grid; the solver only reads it
};

enum TcoordMethod : int { kCoordFixed = 0, kCoordGrid = 1 };

inline bool fluidUsesGrid(int method) {
    return method == kMethodGrid || method == kMethodGridRead;
}
inline bool fluidUsesFunctions(int method) {
    return method > kMethodGridRead;
}

// Gradient methods at a point normalised to the box, each coordinate in [-0.5, 0.5].
double fluidGradient(double x, double y, double z, int method);
