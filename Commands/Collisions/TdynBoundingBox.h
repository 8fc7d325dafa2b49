#pragma once
// Axis-aligned box of swept elements. Its coarse test is what keeps a point
// from reaching the polynomial of every triangle, so it stays inline and plain.

#include "Host/Math/T4dDblVector.h"

#include <cfloat>
#include <memory>
#include <vector>

class TdynBoundingBox {
public:
    TdynBoundingBox() { clear(); }
    TdynBoundingBox(const T4dDblVector& a, const T4dDblVector& b) {
        clear();
        include(a);
        include(b);
    }

    // Empty: every minimum DBL_MAX and every maximum its negative, so the first point included is the box.
    void clear() {
        min[0] = min[1] = min[2] = DBL_MAX;
        max[0] = max[1] = max[2] = -DBL_MAX;
    }
    bool isEmpty() const { return min[0] > max[0] || min[1] > max[1] || min[2] > max[2]; }

    void include(const T4dDblVector& p) {
        for (int k = 0; k < 3; ++k) {
            if (p[k] < min[k]) min[k] = p[k];
            if (p[k] > max[k]) max[k] = p[k];
        }
    }
    void include(const TdynBoundingBox& b) {
        for (int k = 0; k < 3; ++k) {
            if (b.min[k] < min[k]) min[k] = b.min[k];
            if (b.max[k] > max[k]) max[k] = b.max[k];
        }
    }
    // Touching faces count as meeting; an empty box meets nothing.
    bool intersects(const TdynBoundingBox& b) const {
        return min[0] <= b.max[0] && b.min[0] <= max[0] && min[1] <= b.max[1] && b.min[1] <= max[1] &&
               min[2] <= b.max[2] && b.min[2] <= max[2];
    }
    bool contains(const T4dDblVector& p) const {
        return p.x >= min[0] && p.x <= max[0] && p.y >= min[1] && p.y <= max[1] && p.z >= min[2] &&
               p.z <= max[2];
    }
    T4dDblVector minimum() const { return {min[0], min[1], min[2]}; }
    T4dDblVector maximum() const { return {max[0], max[1], max[2]}; }

    double min[3];
    double max[3];
};

using TdynBoundingBoxPtrArray = std::vector<std::unique_ptr<TdynBoundingBox>>;
