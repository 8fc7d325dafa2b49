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
// points its faces use (in file order), and uvs when every face vertex of it has one. Materials,
// normals, lines and points are not read. A missing file or a malformed line throws std::runtime_error
// whose message names the file, and the line when it is known.
std::vector<TnamedMesh> readObjFile(const std::string& path);

// Writes meshes as OBJ objects with their uvs, 17 significant digits so that doubles read back exactly.
// The file appears whole or not at all (written aside, then renamed). Throws std::runtime_error naming the
// file when it cannot be written, or the mesh when it does not validate.
void writeObjFile(const std::string& path, const std::vector<TnamedMesh>& meshes);
