#pragma once

#include <utility>
#include <vector>

#include "Host/Math/T4dDblMatrix.h"
#include "Host/Math/TboundingBox.h"

struct TuvPoint {
    double u = 0, v = 0;
    bool operator==(const TuvPoint&) const = default;
};

// Triangles of a mesh: three point indices each, and the face each came from. corners gives, for each
// triangle corner, its position in the mesh's faceVertices, so that uvs follow through uvIndices.
struct TmeshTriangles {
    std::vector<int> vertices;
    std::vector<int> corners;
    std::vector<int> faces;
    int count() const { return static_cast<int>(faces.size()); }
};

// Polygon mesh. Faces list their points counter-clockwise seen from the side the normal points to.
// faceVertices holds the point indices of all faces in a row, faceCounts how many each face takes;
// uvIndices, when the mesh has uvs, runs parallel to faceVertices.
class TpolyMesh {
public:
    std::vector<T4dDblVector> points;
    std::vector<int> faceCounts;
    std::vector<int> faceVertices;
    std::vector<TuvPoint> uvs;
    std::vector<int> uvIndices;

    int numPoints() const { return static_cast<int>(points.size()); }
    int numFaces() const { return static_cast<int>(faceCounts.size()); }
    int numFaceVertices() const { return static_cast<int>(faceVertices.size()); }
    bool hasUvs() const { return !uvIndices.empty(); }
    bool isEmpty() const { return points.empty(); }
    void clear() { *this = TpolyMesh{}; }
    // Exact comparison of every array, for telling whether incoming geometry changed.
    bool operator==(const TpolyMesh&) const = default;

    int addPoint(const T4dDblVector& p) {
        points.push_back(p);
        return numPoints() - 1;
    }
    int addUv(double u, double v) {
        uvs.push_back({u, v});
        return static_cast<int>(uvs.size()) - 1;
    }
    // Appends a face; uvIds, when given, must have one entry per vertex. Returns the face index.
    int addFace(const std::vector<int>& vertices, const std::vector<int>& uvIds = {});

    // Where each face starts in faceVertices (one entry per face).
    std::vector<int> faceOffsets() const;

    // Throws std::invalid_argument naming the face and the bad index or count when the arrays disagree.
    void validate() const;

    // Per face: unit normal (Newell's method, so non-planar and concave faces work) and area.
    std::vector<T4dDblVector> faceNormals() const;
    std::vector<double> faceAreas() const;
    T4dDblVector faceNormal(int face) const;
    double faceArea(int face) const;
    T4dDblVector faceCenter(int face) const;
    // Per point: the area-weighted mean of the normals of the faces around it; zero for a loose point.
    std::vector<T4dDblVector> vertexNormals() const;

    // Ear clipping in each face's plane, so concave faces triangulate correctly; triangles keep the winding.
    // Expects a valid mesh (see validate); faces of fewer than three vertices give no triangles.
    TmeshTriangles triangulate() const;

    TboundingBox boundingBox() const;
    double surfaceArea() const;
    // Each undirected edge once, as (lower index, higher index), sorted.
    std::vector<std::pair<int, int>> edges() const;

    // Moves the points by the matrix (row vectors).
    void transform(const T4dDblMatrix& m);

private:
    T4dDblVector newellNormal(int offset, int count) const;
};
