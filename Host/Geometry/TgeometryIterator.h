#pragma once

#include <vector>

#include "Host/Geometry/Tcurve.h"
#include "Host/Geometry/TpolyMesh.h"

// Walks the points of a geometry: a mesh's points, a curve's control points, or any point array. It
// refers to the geometry's array, which must outlive it and not change size meanwhile.
class TgeometryIterator {
public:
    explicit TgeometryIterator(const std::vector<T4dDblVector>& points) : points_(&points) {}
    explicit TgeometryIterator(const TpolyMesh& mesh) : points_(&mesh.points) {}
    explicit TgeometryIterator(const Tcurve& curve) : points_(&curve.controlPoints()) {}

    void reset() { index_ = 0; }
    bool isDone() const { return index_ >= count(); }
    void next() {
        if (!isDone()) ++index_;
    }
    // Only valid while !isDone().
    const T4dDblVector& point() const { return (*points_)[static_cast<std::size_t>(index_)]; }
    int index() const { return index_; }
    int count() const { return static_cast<int>(points_->size()); }

private:
    const std::vector<T4dDblVector>* points_;
    int index_ = 0;
};
