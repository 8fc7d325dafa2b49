#pragma once
// Small value types shared by voxel grids and everything that samples them.
#include <cstdint>

struct T3Int32 {
    int32_t x = 0, y = 0, z = 0;
    T3Int32() = default;
    T3Int32(int32_t a, int32_t b, int32_t c) : x(a), y(b), z(c) {}
    int32_t& operator[](int i) { return i == 0 ? x : (i == 1 ? y : z); }
    int32_t operator[](int i) const { return i == 0 ? x : (i == 1 ? y : z); }
};

struct T2dFltPoint {
    float x = 0, y = 0;
    T2dFltPoint() = default;
    T2dFltPoint(float a, float b) : x(a), y(b) {}
};

struct T3dFltPoint {
    float x = 0, y = 0, z = 0;
    T3dFltPoint() = default;
    T3dFltPoint(float a, float b, float c) : x(a), y(b), z(c) {}
    float& operator[](int i) { return i == 0 ? x : (i == 1 ? y : z); }
    float operator[](int i) const { return i == 0 ? x : (i == 1 ? y : z); }
};

using T2dFltVector = T2dFltPoint;
using T3dFltVector = T3dFltPoint;

struct T4dFltVector {
    float x = 0, y = 0, z = 0;
    T4dFltVector() = default;
    T4dFltVector(float a, float b, float c) : x(a), y(b), z(c) {}
    float& operator[](int i) { return i == 0 ? x : (i == 1 ? y : z); }
    float operator[](int i) const { return i == 0 ? x : (i == 1 ? y : z); }
};

// Behaviour of a grid at the two faces of one axis.
enum TgridBounds : int {
    kBoundNone = 0,     // "None": open on both sides
    kBoundBoth = 1,     // "Both Sides"
    kBoundLow = 2,      // "-X Side": wall on the low side only
    kBoundHigh = 3,     // "X side": wall on the high side only
    kBoundWrapping = 4, // "Wrapping"
};

// Index on an axis of resolution r under bound b: wrapped or clamped.
inline int boundedIndex(int n, int r, int b) {
    if (b == kBoundWrapping) {
        if (n < 0) return ((n % r) + r) % r;
        if (n >= r) return n % r;
        return n;
    }
    return n < 0 ? 0 : (n >= r ? r - 1 : n);
}
