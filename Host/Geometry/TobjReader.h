#pragma once

#include <string>
#include <vector>

#include "Host/Geometry/TpolyMesh.h"

// One object or group of an OBJ file.
struct TnamedMesh {
    std::string name;
    TpolyMesh mesh;
};

// Reads the polygon objects of a Wavefront OBJ file, one mesh per object or group, each holding only the
// points its faces use (in order of first use), and uvs when every face vertex of it has one. Materials,
// normals, lines and points are not read. A missing file or a malformed line throws std::runtime_error
// whose message names the file, and the line when it is known.
std::vector<TnamedMesh> readObjFile(const std::string& path);
