#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>

#include "Host/Geometry/TgeometryIterator.h"
#include "Host/Geometry/TpolyMesh.h"
#include "Host/Geometry/TpolyPrimitives.h"

namespace {

// A U shape in the XY plane, counter-clockwise seen from +Z, area 3*2 - 1*1 = 5. A fan from its first
// corner would put a triangle across the notch, upside down.
TpolyMesh uShape() {
    TpolyMesh m;
    for (auto [x, y] : {std::pair{0, 0}, {3, 0}, {3, 2}, {2, 2}, {2, 1}, {1, 1}, {1, 2}, {0, 2}})
        m.addPoint({double(x), double(y), 0});
    m.addFace({0, 1, 2, 3, 4, 5, 6, 7});
    return m;
}

TEST(TpolyMesh, FaceNormalAreaAndCentre) {
    const TpolyMesh u = uShape();
    EXPECT_EQ(u.faceNormal(0), T4dDblVector(0, 0, 1));
    EXPECT_DOUBLE_EQ(u.faceArea(0), 5.0);
    EXPECT_DOUBLE_EQ(u.surfaceArea(), 5.0);
    EXPECT_EQ(u.faceCenter(0), T4dDblVector(12.0 / 8, 10.0 / 8, 0));
    EXPECT_THROW(u.faceArea(1), std::out_of_range);

    // Far from the origin the area stays exact (computed relative to the face).
    TpolyMesh far;
    for (auto p : {T4dDblVector(1e8, 1e8, 0), {1e8 + 1, 1e8, 0}, {1e8 + 1, 1e8 + 1, 0}, {1e8, 1e8 + 1, 0}})
        far.addPoint(p);
    far.addFace({0, 1, 2, 3});
    EXPECT_DOUBLE_EQ(far.faceArea(0), 1.0);
}

TEST(TpolyMesh, TriangulationHandlesConcaveFacesAndKeepsWinding) {
    const TpolyMesh u = uShape();
    const TmeshTriangles t = u.triangulate();
    ASSERT_EQ(t.count(), 6);
    double area = 0;
    for (int i = 0; i < t.count(); ++i) {
        EXPECT_EQ(t.faces[i], 0);
        const T4dDblVector& a = u.points[t.vertices[3 * i]];
        const T4dDblVector& b = u.points[t.vertices[3 * i + 1]];
        const T4dDblVector& c = u.points[t.vertices[3 * i + 2]];
        const T4dDblVector n = (b - a).cross(c - a);
        // Every triangle faces the way the polygon does; none is flipped or flat.
        EXPECT_GT(n.z, 0.0) << "triangle " << i;
        area += 0.5 * n.length();
    }
    // Flipped or overlapping triangles would not add up to the polygon's area.
    EXPECT_DOUBLE_EQ(area, 5.0);

    // The same polygon seen from below (reversed) triangulates facing -Z.
    TpolyMesh r = u;
    r.faceVertices = {7, 6, 5, 4, 3, 2, 1, 0};
    const TmeshTriangles rt = r.triangulate();
    for (int i = 0; i < rt.count(); ++i) {
        const T4dDblVector& a = r.points[rt.vertices[3 * i]];
        const T4dDblVector n =
            (r.points[rt.vertices[3 * i + 1]] - a).cross(r.points[rt.vertices[3 * i + 2]] - a);
        EXPECT_LT(n.z, 0.0);
    }

    // Mixed faces: a triangle and a quad give 1 + 2 triangles, with their face numbers.
    const TpolyMesh cube = makePolyCube();
    const TmeshTriangles ct = cube.triangulate();
    EXPECT_EQ(ct.count(), 12);
    EXPECT_EQ(ct.faces[0], 0);
    EXPECT_EQ(ct.faces[11], 5);
    // Corners lead back into the face's own vertex list, and so to its uvs.
    ASSERT_EQ(ct.corners.size(), ct.vertices.size());
    const auto offsets = cube.faceOffsets();
    for (std::size_t k = 0; k < ct.corners.size(); ++k) {
        const int corner = ct.corners[k];
        const int face = ct.faces[k / 3];
        EXPECT_EQ(cube.faceVertices[corner], ct.vertices[k]);
        EXPECT_GE(corner, offsets[face]);
        EXPECT_LT(corner, offsets[face] + cube.faceCounts[face]);
    }
    const TmeshTriangles ut = u.triangulate();
    for (std::size_t k = 0; k < ut.corners.size(); ++k)
        EXPECT_EQ(u.faceVertices[ut.corners[k]], ut.vertices[k]);
}

TEST(TpolyMesh, EdgesAndVertexNormals) {
    TpolyMesh m;
    // Two triangles folded along the shared edge 1-2 at a right angle, facing +Y and +X.
    m.addPoint({0, 0, 0});
    m.addPoint({1, 0, 0});
    m.addPoint({1, 0, -1});
    m.addPoint({1, -1, 0});
    m.addFace({0, 1, 2});
    m.addFace({2, 1, 3});
    const auto e = m.edges();
    const std::vector<std::pair<int, int>> expected{{0, 1}, {0, 2}, {1, 2}, {1, 3}, {2, 3}};
    EXPECT_EQ(e, expected);
    const auto vn = m.vertexNormals();
    // Equal areas: the shared points get the bisector of +Y and +X, the others their face's normal.
    const double s = std::sqrt(0.5);
    EXPECT_TRUE(vn[1].isEquivalent({s, s, 0}, 1e-15));
    EXPECT_TRUE(vn[2].isEquivalent({s, s, 0}, 1e-15));
    EXPECT_EQ(vn[0], T4dDblVector(0, 1, 0));
    EXPECT_EQ(vn[3], T4dDblVector(1, 0, 0));
    // A loose point has no normal.
    m.addPoint({5, 5, 5});
    EXPECT_EQ(m.vertexNormals()[4], T4dDblVector());
}

TEST(TpolyMesh, ValidateNamesTheFaceAndIndex) {
    auto message = [](const TpolyMesh& m) {
        try {
            m.validate();
        } catch (const std::invalid_argument& e) {
            return std::string(e.what());
        }
        return std::string("valid");
    };
    TpolyMesh m = makePolyPlane(1, 1, 2, 1);
    EXPECT_EQ(message(m), "valid");
    m.faceVertices[6] = 9;
    EXPECT_NE(message(m).find("face 1 uses point 9"), std::string::npos) << message(m);
    m = makePolyPlane(1, 1, 2, 1);
    m.faceCounts[1] = 5;
    EXPECT_NE(message(m).find("add up to 9"), std::string::npos) << message(m);
    m = makePolyPlane(1, 1, 2, 1);
    m.uvIndices[0] = -1;
    EXPECT_NE(message(m).find("face 0 uses uv -1"), std::string::npos) << message(m);
    m = makePolyPlane(1, 1, 2, 1);
    m.faceCounts = {2, 6};
    EXPECT_NE(message(m).find("face 0 has 2 vertices"), std::string::npos) << message(m);
    // Adding a face whose uv list does not match is refused at once.
    EXPECT_THROW(m.addFace({0, 1, 2}, {0, 1}), std::invalid_argument);
}

TEST(TpolyMesh, TransformMovesPointsAndBox) {
    TpolyMesh c = makePolyCube(2, 2, 2);
    EXPECT_EQ(c, makePolyCube(2, 2, 2));
    c.transform(T4dDblMatrix::scaling({1, 2, 3}) * T4dDblMatrix::translation({10, 0, 0}));
    const TboundingBox b = c.boundingBox();
    EXPECT_EQ(b.min, T4dDblVector(9, -2, -3));
    EXPECT_EQ(b.max, T4dDblVector(11, 2, 3));
    EXPECT_NE(c, makePolyCube(2, 2, 2));
}

TEST(TgeometryIterator, VisitsEveryPointOnceAndResets) {
    const TpolyMesh s = makePolySphere(1, 8, 4);
    TgeometryIterator it(s);
    EXPECT_EQ(it.count(), s.numPoints());
    int visited = 0;
    T4dDblVector sum;
    for (; !it.isDone(); it.next()) {
        EXPECT_EQ(it.index(), visited);
        EXPECT_EQ(&it.point(), &s.points[visited]);
        sum += it.point();
        ++visited;
    }
    EXPECT_EQ(visited, s.numPoints());
    // Symmetric sphere: the points sum to zero.
    EXPECT_TRUE(sum.isEquivalent({}, 1e-12));
    it.next(); // harmless past the end
    EXPECT_TRUE(it.isDone());
    it.reset();
    EXPECT_FALSE(it.isDone());
    EXPECT_EQ(it.point(), s.points[0]);

    const std::vector<T4dDblVector> none;
    TgeometryIterator empty(none);
    EXPECT_TRUE(empty.isDone());
}

} // namespace
