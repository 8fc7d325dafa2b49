#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <vector>

#include "Host/Geometry/TobjReader.h"
#include "Host/Geometry/TpolyPrimitives.h"

namespace {

std::string tempPath(const std::string& name) {
    return (std::filesystem::path(testing::TempDir()) / ("motilane_obj_" + name)).string();
}

void writeText(const std::string& path, const std::string& text) {
    std::ofstream out(path);
    out << text;
}

// Writes a mesh as one OBJ object, 1-based indices offset by what earlier objects wrote.
void writeMesh(std::ostream& out, const std::string& key, const std::string& name, const TpolyMesh& m,
               int pointBase, int uvBase) {
    out << key << ' ' << name << '\n';
    char buf[128];
    for (const auto& p : m.points) {
        std::snprintf(buf, sizeof buf, "v %.17g %.17g %.17g\n", p.x, p.y, p.z);
        out << buf;
    }
    for (const auto& uv : m.uvs) {
        std::snprintf(buf, sizeof buf, "vt %.17g %.17g\n", uv.u, uv.v);
        out << buf;
    }
    int at = 0;
    for (int n : m.faceCounts) {
        out << 'f';
        for (int i = 0; i < n; ++i, ++at) {
            out << ' ' << pointBase + m.faceVertices[at] + 1;
            if (m.hasUvs()) out << '/' << uvBase + m.uvIndices[at] + 1;
        }
        out << '\n';
    }
}

TEST(ObjReader, RoundTripOfObjectsAndGroups) {
    const TpolyMesh box = makePolyCube(1, 2, 3, 2, 1, 1);
    TpolyMesh ground = makePolyPlane(5, 5, 2, 2);
    ground.uvs.clear();
    ground.uvIndices.clear();
    const std::string path = tempPath("roundtrip.obj");
    {
        std::ofstream out(path);
        out << "# two objects\n";
        writeMesh(out, "o", "box", box, 0, 0);
        writeMesh(out, "g", "ground", ground, box.numPoints(), static_cast<int>(box.uvs.size()));
    }
    const auto meshes = readObjFile(path);
    ASSERT_EQ(meshes.size(), 2u);
    EXPECT_EQ(meshes[0].name, "box");
    EXPECT_EQ(meshes[1].name, "ground");

    // The second object's points are renumbered from 0, so compare face by face through the indices.
    auto sameGeometry = [](const TpolyMesh& a, const TpolyMesh& b) {
        ASSERT_EQ(a.faceCounts, b.faceCounts);
        ASSERT_EQ(a.numFaceVertices(), b.numFaceVertices());
        EXPECT_EQ(a.numPoints(), b.numPoints());
        EXPECT_EQ(a.hasUvs(), b.hasUvs());
        for (int i = 0; i < a.numFaceVertices(); ++i) {
            // The loader reads single precision.
            const T4dDblVector pa = a.points[a.faceVertices[i]], pb = b.points[b.faceVertices[i]];
            EXPECT_TRUE(pa.isEquivalent(pb, 1e-6)) << "face vertex " << i;
            if (a.hasUvs()) {
                EXPECT_NEAR(a.uvs[a.uvIndices[i]].u, b.uvs[b.uvIndices[i]].u, 1e-6);
                EXPECT_NEAR(a.uvs[a.uvIndices[i]].v, b.uvs[b.uvIndices[i]].v, 1e-6);
            }
        }
    };
    sameGeometry(meshes[0].mesh, box);
    sameGeometry(meshes[1].mesh, ground);
    EXPECT_NO_THROW(meshes[0].mesh.validate());
    EXPECT_NEAR(meshes[0].mesh.surfaceArea(), box.surfaceArea(), 1e-5);
    std::remove(path.c_str());
}

TEST(ObjReader, UnnamedFileTakesItsNameAndRelativeIndicesWork) {
    const std::string path = tempPath("tri.obj");
    writeText(path, "v 0 0 0\nv 1 0 0\nv 0 1 0\nv 0 0 1\nf -4 -3 -2\nf 1 2 4\n");
    const auto meshes = readObjFile(path);
    ASSERT_EQ(meshes.size(), 1u);
    EXPECT_EQ(meshes[0].name, "motilane_obj_tri");
    EXPECT_EQ(meshes[0].mesh.numFaces(), 2);
    EXPECT_EQ(meshes[0].mesh.numPoints(), 4);
    EXPECT_FALSE(meshes[0].mesh.hasUvs());
    EXPECT_EQ(meshes[0].mesh.faceNormal(0), T4dDblVector(0, 0, 1));
    std::remove(path.c_str());
}

TEST(ObjWriter, WrittenMeshesReadBack) {
    const std::string path = tempPath("written.obj");
    TpolyMesh bare = makePolyTorus(2, 0.25, 6, 4);
    bare.uvs.clear();
    bare.uvIndices.clear();
    const std::vector<TnamedMesh> meshes{{"ball", makePolySphere(1.25, 7, 5)}, {"ring", bare}};
    writeObjFile(path, meshes);
    EXPECT_FALSE(std::filesystem::exists(path + ".part"));
    const auto back = readObjFile(path);
    ASSERT_EQ(back.size(), 2u);
    for (int k = 0; k < 2; ++k) {
        const TpolyMesh& a = meshes[k].mesh;
        const TpolyMesh& b = back[k].mesh;
        EXPECT_EQ(back[k].name, meshes[k].name);
        // Every point is used, in order, so indices survive unchanged.
        EXPECT_EQ(b.faceCounts, a.faceCounts);
        EXPECT_EQ(b.faceVertices, a.faceVertices);
        ASSERT_EQ(b.numPoints(), a.numPoints());
        // The loader keeps single precision.
        for (int i = 0; i < a.numPoints(); ++i)
            EXPECT_TRUE(b.points[i].isEquivalent(a.points[i], 1e-6));
        EXPECT_EQ(b.hasUvs(), a.hasUvs());
    }
    EXPECT_EQ(back[0].mesh.uvIndices, meshes[0].mesh.uvIndices);

    // A broken mesh is refused before anything is written, and the message names it.
    TpolyMesh broken = makePolyPlane(1, 1, 1, 1);
    broken.faceVertices[0] = 42;
    try {
        writeObjFile(path, {{"flat", broken}});
        FAIL() << "no exception";
    } catch (const std::runtime_error& e) {
        EXPECT_NE(std::string(e.what()).find("object 'flat'"), std::string::npos) << e.what();
    }
    EXPECT_EQ(readObjFile(path).size(), 2u);
    const std::string noDir = tempPath("no_such_dir/x.obj");
    EXPECT_THROW(writeObjFile(noDir, meshes), std::runtime_error);
    std::remove(path.c_str());
}

struct Case {
    const char* text;
    const char* expected;
};

std::string errorOf(const std::string& path) {
    try {
        readObjFile(path);
    } catch (const std::runtime_error& e) {
        return e.what();
    }
    return "no exception";
}

TEST(ObjReader, ErrorsNameTheFileAndLine) {
    const std::string missing = tempPath("does_not_exist.obj");
    const std::string m = errorOf(missing);
    EXPECT_EQ(m.rfind(missing, 0), 0u) << m;
    EXPECT_NE(m.find("cannot open"), std::string::npos) << m;

    std::vector<Case> cases = {
        {"v 0 0 0\nv 1 0 0\nv 1 abc 0\nf 1 2 3\n", ":3: 'abc' is not a finite number"},
        {"# comment\nv 0 0 0\nv 1 0 0\nvt 0 nan\n", ":4: 'nan' is not a finite number"},
        {"v 0 0 0\nv 1 0\n", ":2: 'v' needs three coordinates"},
        {"v 0 0 0\nv 1 0 0\nv 1 1 0\n\nf 1 2\n", ":5: a face needs at least three corners"},
        {"v 0 0 0\nv 1 0 0\nv 1 1 0\nf 1 2 x3\n", ":4: 'x3' is not a face corner"},
        {"v 0 0 0\nv 1 0 0\nv 1 1 0\nf 1 2 0\n", ":4: '0' is not a face corner"},
    };
    std::string bigFace = "v 0 0 0\nv 1 0 0\nv 1 1 0\nf";
    for (int i = 0; i < 300; ++i) {
        bigFace += ' ';
        bigFace += char('1' + i % 3);
    }
    bigFace += "\n";
    cases.push_back({bigFace.c_str(), ":4: a face of 300 corners; at most 255 can be read"});
    for (const auto& c : cases) {
        const std::string path = tempPath("bad.obj");
        writeText(path, c.text);
        const std::string msg = errorOf(path);
        EXPECT_EQ(msg.rfind(path, 0), 0u) << msg;
        EXPECT_NE(msg.find(c.expected), std::string::npos) << msg;
        std::remove(path.c_str());
    }
    // Indices past the end, forward or backward, and uvs that do not exist.
    const Case ranges[] = {
        {"v 0 0 0\nv 1 0 0\nv 1 1 0\nf 1 2 9\nv 2 2 2\n", ":4: a face uses vertex 9, but the file has 4"},
        {"v 0 0 0\nv 1 0 0\nf -1 -2 -3\nv 1 1 0\n",
         ":3: '-3' refers 3 vertices back, but only 2 come before it"},
        {"v 0 0 0\nv 1 0 0\nv 1 1 0\nvt 0 0\nf 1/1 2/1 3/2\n", ":5: a face uses uv 2, but the file has 1"},
    };
    for (const auto& c : ranges) {
        const std::string path = tempPath("range.obj");
        writeText(path, c.text);
        const std::string msg = errorOf(path);
        EXPECT_EQ(msg.rfind(path, 0), 0u) << msg;
        EXPECT_NE(msg.find(c.expected), std::string::npos) << msg;
        std::remove(path.c_str());
    }
}

// Continued lines are joined and then checked like any other; a folder is not a file; an index at the
// integer's limit is refused rather than negated.
TEST(ObjReader, ContinuedLinesFoldersAndExtremeIndicesAreChecked) {
    std::string continued = "v 0 0 0\nv 1 0 0\nv 0 1 0\nf";
    for (int i = 0; i < 100; ++i)
        continued += " 1 2 3";
    continued += " \\\n 1 2 3\n";
    const Case cases[] = {
        {"v 0 0 0\nv 1 0 0\nv 0 1 0\nv nan \\\n 0 0\nf 1 2 3\n", ":4: 'nan' is not a finite number"},
        {continued.c_str(), ":4: a face of 303 corners; at most 255 can be read"},
        {"v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 -9223372036854775808\n",
         ":4: '-9223372036854775808' is not a face corner"},
    };
    for (const auto& c : cases) {
        const std::string path = tempPath("continued.obj");
        writeText(path, c.text);
        const std::string msg = errorOf(path);
        EXPECT_NE(msg.find(c.expected), std::string::npos) << msg;
        std::remove(path.c_str());
    }
    // A continued line that is fine reads as the one line it is.
    const std::string ok = tempPath("joined.obj");
    writeText(ok, "v 0 0 0\nv 1 \\\n 0 0\nv 0 1 0\nf 1 2 \\\n 3\n");
    const auto meshes = readObjFile(ok);
    ASSERT_EQ(meshes.size(), 1u);
    EXPECT_EQ(meshes[0].mesh.numFaces(), 1);
    EXPECT_EQ(meshes[0].mesh.points[1].x, 1.0);
    std::remove(ok.c_str());
    const std::string folder = tempPath("folder.obj");
    std::filesystem::create_directories(folder);
    EXPECT_NE(errorOf(folder).find("folder.obj: not a regular file"), std::string::npos) << errorOf(folder);
}

} // namespace
