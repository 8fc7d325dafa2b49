#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <stdexcept>

#include "Host/Geometry/TpolyPrimitives.h"
#include "tests/Host/Geometry/MeshCheck.h"

namespace {

constexpr double kPi = std::numbers::pi;

void expectUvsInUnitSquare(const TpolyMesh& m) {
    ASSERT_TRUE(m.hasUvs());
    EXPECT_EQ(m.uvIndices.size(), m.faceVertices.size());
    for (const auto& uv : m.uvs) {
        EXPECT_GE(uv.u, 0.0);
        EXPECT_LE(uv.u, 1.0);
        EXPECT_GE(uv.v, 0.0);
        EXPECT_LE(uv.v, 1.0);
    }
}

// V - E + F: 2 for a sphere-like surface, 0 for a torus.
int euler(const TpolyMesh& m) {
    return m.numPoints() - static_cast<int>(m.edges().size()) + m.numFaces();
}

TEST(PolyPrimitives, PlaneFacesUpWithGridUvs) {
    const TpolyMesh p = makePolyPlane();
    EXPECT_EQ(p.numPoints(), 121);
    EXPECT_EQ(p.numFaces(), 100);
    EXPECT_NO_THROW(p.validate());
    expectUvsInUnitSquare(p);
    for (const auto& n : p.faceNormals())
        EXPECT_EQ(n, T4dDblVector(0, 1, 0));
    for (const auto& n : p.vertexNormals())
        EXPECT_EQ(n, T4dDblVector(0, 1, 0));
    EXPECT_NEAR(p.surfaceArea(), 1.0, 1e-12);

    const TpolyMesh q = makePolyPlane(4, 2, 2, 1);
    EXPECT_EQ(q.numPoints(), 6);
    EXPECT_NEAR(q.surfaceArea(), 8.0, 1e-12);
    const TboundingBox b = q.boundingBox();
    EXPECT_EQ(b.min, T4dDblVector(-2, 0, -1));
    EXPECT_EQ(b.max, T4dDblVector(2, 0, 1));
    // u along +X, v along -Z.
    for (int i = 0; i < q.numFaceVertices(); ++i) {
        const T4dDblVector& pt = q.points[q.faceVertices[i]];
        const TuvPoint& uv = q.uvs[q.uvIndices[i]];
        EXPECT_DOUBLE_EQ(uv.u, (pt.x + 2) / 4);
        EXPECT_DOUBLE_EQ(uv.v, (1 - pt.z) / 2);
    }
    // An open sheet: boundary edges are used once.
    EXPECT_FALSE(meshcheck::isClosedAndConsistent(q));
}

TEST(PolyPrimitives, CubeIsClosedWithExactAreaAndVolume) {
    const TpolyMesh c = makePolyCube();
    EXPECT_EQ(c.numPoints(), 8);
    EXPECT_EQ(c.numFaces(), 6);
    EXPECT_EQ(c.edges().size(), 12u);
    std::string why;
    EXPECT_TRUE(meshcheck::isClosedAndConsistent(c, &why)) << why;

    // Surface lattice points: 3*4*5 minus the hidden 1*2*3; faces 2 (2*3 + 3*4 + 2*4).
    const TpolyMesh d = makePolyCube(2, 3, 4, 2, 3, 4);
    EXPECT_EQ(d.numPoints(), 54);
    EXPECT_EQ(d.numFaces(), 52);
    EXPECT_NO_THROW(d.validate());
    EXPECT_TRUE(meshcheck::isClosedAndConsistent(d, &why)) << why;
    EXPECT_EQ(euler(d), 2);
    expectUvsInUnitSquare(d);
    EXPECT_NEAR(d.surfaceArea(), 2 * (2 * 3 + 3 * 4 + 2 * 4), 1e-12);
    EXPECT_NEAR(meshcheck::signedVolume(d), 24.0, 1e-12);
    // Each face normal is an axis pointing away from the centre.
    const auto normals = d.faceNormals();
    for (int f = 0; f < d.numFaces(); ++f) {
        const T4dDblVector c0 = d.faceCenter(f);
        EXPECT_GT(normals[f].dot(c0), 0.0) << "face " << f;
        EXPECT_NEAR(std::fabs(normals[f].x) + std::fabs(normals[f].y) + std::fabs(normals[f].z), 1.0, 1e-15);
    }
    EXPECT_EQ(d.boundingBox().size(), T4dDblVector(2, 3, 4));
}

TEST(PolyPrimitives, SphereConvergesToItsClosedForms) {
    const TpolyMesh s = makePolySphere();
    EXPECT_EQ(s.numPoints(), 2 + 19 * 20);
    EXPECT_EQ(s.numFaces(), 400);
    EXPECT_NO_THROW(s.validate());
    std::string why;
    EXPECT_TRUE(meshcheck::isClosedAndConsistent(s, &why)) << why;
    EXPECT_EQ(euler(s), 2);
    expectUvsInUnitSquare(s);
    const auto normals = s.faceNormals();
    for (int f = 0; f < s.numFaces(); ++f)
        EXPECT_GT(normals[f].dot(s.faceCenter(f)), 0.0) << "face " << f;
    // Vertex normals of a sphere point along the radius.
    const auto vn = s.vertexNormals();
    for (int i = 0; i < s.numPoints(); ++i)
        EXPECT_GT(vn[i].dot(s.points[i].normal()), 0.999) << "point " << i;

    // Inscribed polyhedra approach 4 pi r^2 and 4/3 pi r^3 from below, the error shrinking as 1/n^2.
    const double r = 2.5;
    double lastErr = 1e300;
    for (int n : {10, 20, 40, 80}) {
        const TpolyMesh m = makePolySphere(r, n, n);
        const double err = 4 * kPi * r * r - m.surfaceArea();
        EXPECT_GT(err, 0.0) << n;
        EXPECT_LT(err, lastErr / 3) << n;
        lastErr = err;
        EXPECT_GT(meshcheck::signedVolume(m), 0.0);
    }
    const TpolyMesh fine = makePolySphere(r, 200, 200);
    EXPECT_NEAR(fine.surfaceArea() / (4 * kPi * r * r), 1.0, 2e-4);
    EXPECT_NEAR(meshcheck::signedVolume(fine) / (4.0 / 3 * kPi * r * r * r), 1.0, 3e-4);
}

TEST(PolyPrimitives, CylinderMatchesItsPolygonPrism) {
    const int sa = 20;
    const double r = 1.5, h = 3;
    // The prism over a regular sa-gon: exact side, cap and volume.
    const double chord = 2 * r * std::sin(kPi / sa);
    const double capArea = sa / 2.0 * r * r * std::sin(2 * kPi / sa);
    for (int caps : {0, 1, 3}) {
        const TpolyMesh c = makePolyCylinder(r, h, sa, 2, caps);
        SCOPED_TRACE(testing::Message() << "caps " << caps);
        EXPECT_NO_THROW(c.validate());
        std::string why;
        EXPECT_TRUE(meshcheck::isClosedAndConsistent(c, &why)) << why;
        EXPECT_EQ(euler(c), 2);
        expectUvsInUnitSquare(c);
        EXPECT_NEAR(c.surfaceArea(), sa * chord * h + 2 * capArea, 1e-10);
        EXPECT_NEAR(meshcheck::signedVolume(c), capArea * h, 1e-10);
        const auto normals = c.faceNormals();
        for (int f = 0; f < c.numFaces(); ++f)
            EXPECT_GT(normals[f].dot(c.faceCenter(f)), 0.0) << "face " << f;
    }
    const TpolyMesh plain = makePolyCylinder();
    EXPECT_EQ(plain.numPoints(), 40);
    EXPECT_EQ(plain.numFaces(), 22);
    EXPECT_EQ(plain.boundingBox().max.y, 1.0);
    const TpolyMesh capped = makePolyCylinder(1, 2, 20, 3, 2);
    EXPECT_EQ(capped.numPoints(), 4 * 20 + 2 * (1 + 20));
    EXPECT_EQ(capped.numFaces(), 3 * 20 + 2 * (20 + 20));
}

TEST(PolyPrimitives, TorusIsClosedWithOutwardTube) {
    const double R = 2, r = 0.5;
    const TpolyMesh t = makePolyTorus(R, r);
    EXPECT_EQ(t.numPoints(), 400);
    EXPECT_EQ(t.numFaces(), 400);
    EXPECT_NO_THROW(t.validate());
    std::string why;
    EXPECT_TRUE(meshcheck::isClosedAndConsistent(t, &why)) << why;
    EXPECT_EQ(euler(t), 0);
    expectUvsInUnitSquare(t);
    // Outward from the tube: away from the nearest point of the centre ring.
    const auto normals = t.faceNormals();
    for (int f = 0; f < t.numFaces(); ++f) {
        const T4dDblVector c = t.faceCenter(f);
        const T4dDblVector ring = T4dDblVector(c.x, 0, c.z).normal() * R;
        EXPECT_GT(normals[f].dot(c - ring), 0.0) << "face " << f;
    }
    // Pappus: area 4 pi^2 R r, volume 2 pi^2 R r^2.
    const TpolyMesh fine = makePolyTorus(R, r, 200, 100);
    EXPECT_NEAR(fine.surfaceArea() / (4 * kPi * kPi * R * r), 1.0, 1e-3);
    EXPECT_NEAR(meshcheck::signedVolume(fine) / (2 * kPi * kPi * R * r * r), 1.0, 1e-3);
}

TEST(PolyPrimitives, BadArgumentsAreNamed) {
    auto message = [](auto&& make) {
        try {
            make();
        } catch (const std::invalid_argument& e) {
            return std::string(e.what());
        }
        return std::string("no exception");
    };
    EXPECT_NE(message([] { makePolySphere(1, 2, 10); }).find("subdivisionsAxis"), std::string::npos);
    EXPECT_NE(message([] { makePolyPlane(-1, 1); }).find("width"), std::string::npos);
    EXPECT_NE(message([] { makePolyCube(1, NAN, 1); }).find("height"), std::string::npos);
    EXPECT_NE(message([] { makePolyCylinder(1, 1, 10, 1, -1); }).find("subdivisionsCaps"), std::string::npos);
    EXPECT_NE(message([] { makePolyTorus(1, 0.2, 100000, 100000); }).find("limit"), std::string::npos);
    EXPECT_NE(message([] { makePolyTorus(1, 0.2, 100000, 100000); }).find("polyTorus"), std::string::npos);
}

} // namespace
