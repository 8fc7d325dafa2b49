#include "Host/Geometry/TobjReader.h"

#include <tiny_obj_loader.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <unordered_map>

namespace {

[[noreturn]] void fail(const std::string& path, int line, const std::string& what) {
    std::ostringstream msg;
    msg << path;
    if (line > 0) msg << ':' << line;
    msg << ": " << what;
    throw std::runtime_error(msg.str());
}

bool isNumber(const std::string& tok) {
    if (tok.empty()) return false;
    errno = 0;
    char* end = nullptr;
    std::strtod(tok.c_str(), &end);
    return end == tok.c_str() + tok.size();
}

// A face corner is v, v/vt, v//vn or v/vt/vn with non-zero integers; idx gets v, vt and vn (0 when absent).
bool parseFaceCorner(const std::string& tok, long idx[3]) {
    idx[0] = idx[1] = idx[2] = 0;
    std::size_t at = 0;
    for (int part = 0; part < 3; ++part) {
        const std::size_t slash = tok.find('/', at);
        const std::string piece = tok.substr(at, slash == std::string::npos ? std::string::npos : slash - at);
        if (piece.empty()) {
            // Only the texture index may be left out, and only between two slashes.
            if (part != 1 || slash == std::string::npos) return false;
        } else {
            char* end = nullptr;
            idx[part] = std::strtol(piece.c_str(), &end, 10);
            if (end != piece.c_str() + piece.size() || idx[part] == 0) return false;
        }
        if (slash == std::string::npos) return true;
        at = slash + 1;
    }
    return false;
}

// The loader reads a malformed number as 0, drops short faces and clamps bad indices with at most a
// warning; find such lines first so that a broken file is reported rather than read as other geometry.
void checkLines(const std::string& path, std::istream& in) {
    static const char* kinds[3] = {"vertex", "uv", "normal"};
    static const char* plural[3] = {"vertices", "uvs", "normals"};
    long defined[3] = {0, 0, 0};
    // Positive indices may point forward; they are checked against the totals at the end.
    struct Use {
        int line;
        long index;
        int kind;
    };
    std::vector<Use> uses;
    std::string line;
    int lineNo = 0;
    while (std::getline(in, line)) {
        ++lineNo;
        // Continuation lines are rare and the loader joins them; leave such files to it.
        if (!line.empty() && line.back() == '\\') return;
        std::istringstream ss(line);
        std::string key;
        if (!(ss >> key) || key[0] == '#') continue;
        std::vector<std::string> tok;
        for (std::string t; ss >> t;)
            tok.push_back(t);
        if (key == "v" || key == "vn") {
            if (tok.size() < 3) fail(path, lineNo, "'" + key + "' needs three coordinates");
            for (const auto& t : tok)
                if (!isNumber(t)) fail(path, lineNo, "'" + t + "' is not a number");
            ++defined[key == "v" ? 0 : 2];
        } else if (key == "vt") {
            if (tok.empty()) fail(path, lineNo, "'vt' needs at least one coordinate");
            for (const auto& t : tok)
                if (!isNumber(t)) fail(path, lineNo, "'" + t + "' is not a number");
            ++defined[1];
        } else if (key == "f") {
            if (tok.size() < 3) fail(path, lineNo, "a face needs at least three corners");
            for (const auto& t : tok) {
                long idx[3];
                if (!parseFaceCorner(t, idx))
                    fail(path, lineNo, "'" + t + "' is not a face corner (v, v/vt, v//vn or v/vt/vn)");
                for (int k = 0; k < 3; ++k) {
                    if (idx[k] < 0 && -idx[k] > defined[k])
                        fail(path, lineNo,
                             "'" + t + "' refers " + std::to_string(-idx[k]) + " " + plural[k] +
                                 " back, but only " + std::to_string(defined[k]) + " come before it");
                    if (idx[k] > 0) uses.push_back({lineNo, idx[k], k});
                }
            }
        }
    }
    for (const Use& u : uses)
        if (u.index > defined[u.kind])
            fail(path, u.line,
                 std::string("a face uses ") + kinds[u.kind] + " " + std::to_string(u.index) +
                     ", but the file has " + std::to_string(defined[u.kind]));
}

} // namespace

std::vector<TnamedMesh> readObjFile(const std::string& path) {
    std::ifstream file(path);
    if (!file) fail(path, 0, std::string("cannot open the file: ") + std::strerror(errno));
    checkLines(path, file);
    file.clear();
    file.seekg(0);

    tinyobj::attrib_t attrib;
    std::vector<tinyobj::shape_t> shapes;
    std::vector<tinyobj::material_t> materials;
    std::string warn, err;
    // Materials are not ours to read; an empty material stream keeps the loader from looking for files.
    std::istringstream noMaterials;
    tinyobj::MaterialStreamReader materialReader(noMaterials);
    const bool ok = tinyobj::LoadObj(&attrib, &shapes, &materials, &warn, &err, &file, &materialReader,
                                     /*triangulate*/ false);
    if (!ok || !err.empty()) {
        // The loader puts "(line N.)" into its messages where it knows the line.
        while (!err.empty() && (err.back() == '\n' || err.back() == ' '))
            err.pop_back();
        fail(path, 0, err.empty() ? std::string("the file could not be read") : err);
    }

    const std::string stem = std::filesystem::path(path).stem().string();
    std::vector<TnamedMesh> out;
    for (std::size_t s = 0; s < shapes.size(); ++s) {
        const tinyobj::mesh_t& src = shapes[s].mesh;
        if (src.num_face_vertices.empty()) continue;
        TnamedMesh nm;
        nm.name = shapes[s].name.empty() ? stem : shapes[s].name;
        TpolyMesh& m = nm.mesh;
        std::unordered_map<int, int> pointMap, uvMap;
        bool allUvs = true;
        for (const auto& idx : src.indices)
            allUvs = allUvs && idx.texcoord_index >= 0;
        const int numPositions = static_cast<int>(attrib.vertices.size() / 3);
        const int numUvs = static_cast<int>(attrib.texcoords.size() / 2);
        std::size_t at = 0;
        for (std::size_t f = 0; f < src.num_face_vertices.size(); ++f) {
            const int count = src.num_face_vertices[f];
            std::vector<int> face, faceUv;
            for (int c = 0; c < count; ++c, ++at) {
                const tinyobj::index_t& idx = src.indices[at];
                if (idx.vertex_index < 0 || idx.vertex_index >= numPositions)
                    fail(path, 0,
                         "object '" + nm.name + "' face " + std::to_string(f) +
                             " uses a vertex that does not exist");
                auto [it, added] = pointMap.emplace(idx.vertex_index, m.numPoints());
                if (added) {
                    const auto v = static_cast<std::size_t>(idx.vertex_index) * 3;
                    m.addPoint({attrib.vertices[v], attrib.vertices[v + 1], attrib.vertices[v + 2]});
                }
                face.push_back(it->second);
                if (allUvs) {
                    if (idx.texcoord_index >= numUvs)
                        fail(path, 0,
                             "object '" + nm.name + "' face " + std::to_string(f) +
                                 " uses a uv that does not exist");
                    auto [uit, uadded] = uvMap.emplace(idx.texcoord_index, static_cast<int>(m.uvs.size()));
                    if (uadded) {
                        const auto t = static_cast<std::size_t>(idx.texcoord_index) * 2;
                        m.addUv(attrib.texcoords[t], attrib.texcoords[t + 1]);
                    }
                    faceUv.push_back(uit->second);
                }
            }
            m.addFace(face, faceUv);
        }
        out.push_back(std::move(nm));
    }
    // Several unnamed or equally named groups get numbered so that names stay unique.
    std::unordered_map<std::string, int> seen;
    for (auto& nm : out)
        if (int n = seen[nm.name]++; n > 0) nm.name += std::to_string(n);
    return out;
}
