#pragma once

#include <algorithm>
#include <limits>

#include "Host/Math/T4dDblMatrix.h"

// Axis-aligned box. A default box is empty: including the first point makes it that point.
struct TboundingBox {
    T4dDblVector min{std::numeric_limits<double>::infinity(), std::numeric_limits<double>::infinity(),
                     std::numeric_limits<double>::infinity()};
    T4dDblVector max{-std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity(),
                     -std::numeric_limits<double>::infinity()};

    TboundingBox() = default;
    TboundingBox(const T4dDblVector& a, const T4dDblVector& b) { setRange(a, b); }

    bool isEmpty() const { return min.x > max.x || min.y > max.y || min.z > max.z; }
    void clear() { *this = TboundingBox{}; }

    // Corners may come in any order.
    void setRange(const T4dDblVector& a, const T4dDblVector& b) {
        min = {std::min(a.x, b.x), std::min(a.y, b.y), std::min(a.z, b.z)};
        max = {std::max(a.x, b.x), std::max(a.y, b.y), std::max(a.z, b.z)};
    }
    void includePoint(const T4dDblVector& p) {
        min = {std::min(min.x, p.x), std::min(min.y, p.y), std::min(min.z, p.z)};
        max = {std::max(max.x, p.x), std::max(max.y, p.y), std::max(max.z, p.z)};
    }
    void includeBox(const TboundingBox& b) {
        if (b.isEmpty()) return;
        includePoint(b.min);
        includePoint(b.max);
    }
    // Moves every face outward by d along its axis.
    void expandFromCenter(const T4dDblVector& d) {
        if (isEmpty()) return;
        min -= d;
        max += d;
    }
    void expandFromCenter(double d) { expandFromCenter(T4dDblVector{d, d, d}); }

    // Faces count as inside.
    bool contains(const T4dDblVector& p) const {
        return p.x >= min.x && p.x <= max.x && p.y >= min.y && p.y <= max.y && p.z >= min.z && p.z <= max.z;
    }

    T4dDblVector center() const { return isEmpty() ? T4dDblVector{} : (min + max) * 0.5; }
    T4dDblVector size() const { return isEmpty() ? T4dDblVector{} : max - min; }
    double width() const { return size().x; }
    double height() const { return size().y; }
    double depth() const { return size().z; }

    // Box of the eight transformed corners.
    TboundingBox transformed(const T4dDblMatrix& m) const {
        TboundingBox r;
        if (isEmpty()) return r;
        for (int i = 0; i < 8; ++i)
            r.includePoint(m.transformPoint(
                {(i & 1) ? max.x : min.x, (i & 2) ? max.y : min.y, (i & 4) ? max.z : min.z}));
        return r;
    }
};
