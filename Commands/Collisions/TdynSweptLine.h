#pragma once
// A segment of a sampled curve that moves linearly through the step.

#include "Commands/Collisions/TdynBoundingBox.h"

#include <vector>

class TdynSweptLine {
public:
    TdynSweptLine() = default;

    // Module-wide free list, as for triangles.
    static TdynSweptLine* newLine();
    static void deleteLine(TdynSweptLine* l);
    static std::size_t freeListSize();

    // End state (time 1) of end i.
    void setVertex(int i, const T4dDblVector& p) {
        fEnd[i] = p;
        fBoxDone = false;
    }
    void setVertices(const T4dDblVector& p0, const T4dDblVector& p1) {
        fEnd[0] = p0;
        fEnd[1] = p1;
        fBoxDone = false;
    }
    void saveLastState() {
        fStart[0] = fEnd[0];
        fStart[1] = fEnd[1];
        fBoxDone = false;
    }
    void setMoving(bool on) {
        fMoving = on;
        fBoxDone = false;
    }
    bool isMoving() const { return fMoving; }
    // Curve parameter (0 to 1 over the curve) at each end.
    void setParameters(double u0, double u1) {
        fU[0] = u0;
        fU[1] = u1;
    }
    double parameter(int i) const { return fU[i]; }

    T4dDblVector vertex(int i, double t) const {
        if (!fMoving || t == 1.0) return fEnd[i];
        if (t == 0.0) return fStart[i];
        return fStart[i] + (fEnd[i] - fStart[i]) * t;
    }
    // Unit direction from end 0 to end 1; zero for a point-like segment.
    T4dDblVector tangent(double t) const { return (vertex(1, t) - vertex(0, t)).normal(); }
    // Unit vector across the segment: the world up (y) made perpendicular to it, or x when the segment
    // runs along y. A curve lying on the ground thus emits upward.
    T4dDblVector normal(double t) const;
    double length(double t) const { return (vertex(1, t) - vertex(0, t)).length(); }
    // a + r (b - a) at time t.
    T4dDblVector pointAt(double r, double t) const {
        return vertex(0, t) + (vertex(1, t) - vertex(0, t)) * r;
    }
    double parameterAt(double r) const { return fU[0] + (fU[1] - fU[0]) * r; }
    const TdynBoundingBox& boundingBox() const;

private:
    T4dDblVector fStart[2], fEnd[2];
    double fU[2] = {0, 0};
    bool fMoving = false;
    mutable TdynBoundingBox fBox;
    mutable bool fBoxDone = false;
};

using TdynSweptLinePtrArray = std::vector<TdynSweptLine*>;
