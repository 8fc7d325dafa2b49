#pragma once
// Geometry with a start and an end state per step: the triangles of a mesh
// or the lines of a sampled curve, for collisions and surface emission.

#include "Commands/Collisions/TdynBoundingBox.h"
#include "Commands/Collisions/TdynSweptLine.h"
#include "Commands/Collisions/TdynSweptPoint.h"
#include "Commands/Collisions/TdynSweptTriangle.h"
#include "Host/Math/T4dDblMatrix.h"

#include <vector>

class Tshape;
class Tdata;
class TpolyMesh;
class Tcurve;

class TdynSweptGeometry {
public:
    enum Kind { kEmpty = 0, kLines = 1, kTriangles = 2 };
    // Triangles per sub-box: a point first meets the whole box, then runs of this many.
    static constexpr int kTrianglesPerBox = 100;

    TdynSweptGeometry() = default;
    ~TdynSweptGeometry();
    TdynSweptGeometry(const TdynSweptGeometry&) = delete;
    TdynSweptGeometry& operator=(const TdynSweptGeometry&) = delete;

    // Gives every element back to the free lists; kind 0, area and length 0. The shape stays.
    void clear();
    // Copies each element's end state to its start state.
    void saveLastState();
    void markMoving(bool flag);
    void removePolygon(int index);
    void clearPolygon();
    void removeLine(int index);
    void clearLine();

    // Builds from a shape through a matrix (its world matrix for world space): a mesh gives triangles, a
    // curve lines; any other class (or none) leaves it empty. Returns the kind made.
    int create(Tshape* shape, const T4dDblMatrix& matrix);
    // From a geometry letter (TdataMesh or TdataCurve); other letters give 0.
    int create(const Tdata& geometry, const T4dDblMatrix& matrix);
    int createFromMesh(const TpolyMesh& mesh, const T4dDblMatrix& matrix);
    int createFromCurve(const Tcurve& curve, const T4dDblMatrix& matrix);
    // clear, then create.
    int recreate(const Tdata& geometry, const T4dDblMatrix& matrix);
    // New end state from geometry of the same layout, through the matrix; false (and nothing changed)
    // when the layout differs (see hasChanged).
    bool rebuild(const Tdata& geometry, const T4dDblMatrix& matrix);
    // The mesh's faces as triangles, with u, v from its uvs (0 without).
    void tesselateSurface(const TpolyMesh& mesh, const T4dDblMatrix& matrix);
    // Spacing of the even samples of a curve: ten lines per span, so that a deforming curve keeps its
    // number of lines.
    static double getLineSpacing(const Tcurve& curve);
    static int getLineCount(const Tcurve& curve);
    // Sends the end state of every element through m.
    void applyMatrix(const T4dDblMatrix& m);
    void copyUVPoints(const TpolyMesh& mesh);
    // Whether geometry of this layout would need a new build: another kind, another number of points,
    // or other faces (a mesh) or control points (a curve).
    bool hasChanged(const Tdata& geometry) const;

    const TdynBoundingBox& boundingBox() const { return box; }
    double computeArea();
    double computeLength();
    int count() const { return fCount; }
    void setCount(int c) { fCount = c; }

    // Tests the point against every triangle whose boxes it meets, from `startTime` (fraction of the
    // step) on. Each hit found is recorded on the point with the surface's normal, u, v, velocity,
    // `resilience`, `friction` and `shape`; the point keeps the earliest. True when any triangle was hit.
    bool intersectsWithPoint(TdynSweptPoint& point, double dt, double startTime, double resilience,
                             double friction, Tshape* shapeHit);

    void refreshBoundingBox();
    void clearSubBoundingBoxes();
    int subBoundingBoxCount() const { return static_cast<int>(subBoxes.size()); }
    const TdynBoundingBox* subBoundingBox(int i) const {
        return i >= 0 && i < subBoundingBoxCount() ? subBoxes[i].get() : nullptr;
    }

    // Triangles the last intersectsWithPoint reached past the boxes of the whole and of the runs.
    int trianglesVisited() const { return fVisited; }

    int triangleCount() const { return static_cast<int>(triangles.size()); }
    int lineCount() const { return static_cast<int>(lines.size()); }

    int kind = kEmpty;
    TdynSweptTrianglePtrArray triangles;
    TdynSweptLinePtrArray lines;
    TdynBoundingBoxPtrArray subBoxes;
    TdynBoundingBox box;
    double area = 0; // totals at the end of the step
    double length = 0;
    bool moving = false;
    Tshape* shape = nullptr;

private:
    // Layout of the source, for hasChanged.
    std::vector<int> fFaceCounts, fFaceVertices;
    int fPointCount = 0;
    int fControlPointCount = 0;
    // Point index of each triangle corner, and its place in the mesh's faceVertices (for uvs).
    std::vector<int> fTriVertices, fTriCorners;
    int fCount = 0;
    int fVisited = 0;
    // Each triangle's box side by side, so that the walk over a run reads one small array and touches
    // a triangle only when the point's box meets its own.
    std::vector<TdynBoundingBox> fTriangleBoxes;
};
