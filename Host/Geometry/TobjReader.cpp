#include "Host/Geometry/TobjReader.h"

#include <tiny_obj_loader.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdio>
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

// Finite numbers only: a NaN or infinite coordinate would poison every computation on the mesh.
bool isNumber(const std::string& tok) {
    if (tok.empty()) return false;
    char* end = nullptr;
    const double v = std::strtod(tok.c_str(), &end);
    return end == tok.c_str() + tok.size() && std::isfinite(v);
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
            errno = 0;
            idx[part] = std::strtol(piece.c_str(), &end, 10);
            if (end != piece.c_str() + piece.size() || idx[part] == 0) return false;
            // Beyond an int no file can have so many elements; and negating the extreme would overflow.
            if (errno == ERANGE || idx[part] > INT_MAX || idx[part] < -INT_MAX) return false;
        }
        if (slash == std::string::npos) return true;
        at = slash + 1;
    }
    return false;
}

// The loader reads a malformed number as 0, drops short faces and clamps bad indices with at most a
// warning; find such lines first so that a broken file is reported rather than read as other geometry.
// Lines ending in a backslash go on in the next: joined here, so that the checks and the loader read the
// same lines. `firstLine` maps each joined line to the file line it starts on.
std::string joinContinuedLines(const std::string& text, std::vector<int>& firstLine) {
    std::string out;
    out.reserve(text.size());
    std::istringstream in(text);
    std::string line;
    int lineNo = 0;
    bool continuing = false;
    while (std::getline(in, line)) {
        ++lineNo;
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (!continuing) firstLine.push_back(lineNo);
        continuing = !line.empty() && line.back() == '\\';
        if (continuing) {
            line.back() = ' ';
            out += line;
        } else {
            out += line;
            out += '\n';
        }
    }
    if (continuing) out += '\n';
    return out;
}

void checkLines(const std::string& path, std::istream& in, const std::vector<int>& firstLine) {
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
    int logical = 0;
    while (std::getline(in, line)) {
        const int lineNo = logical < static_cast<int>(firstLine.size())
                               ? firstLine[static_cast<std::size_t>(logical)]
                               : logical + 1;
        ++logical;
        std::istringstream ss(line);
        std::string key;
        if (!(ss >> key) || key[0] == '#') continue;
        std::vector<std::string> tok;
        for (std::string t; ss >> t;)
            tok.push_back(t);
        if (key == "v" || key == "vn") {
            if (tok.size() < 3) fail(path, lineNo, "'" + key + "' needs three coordinates");
            for (const auto& t : tok)
                if (!isNumber(t)) fail(path, lineNo, "'" + t + "' is not a finite number");
            ++defined[key == "v" ? 0 : 2];
        } else if (key == "vt") {
            if (tok.empty()) fail(path, lineNo, "'vt' needs at least one coordinate");
            for (const auto& t : tok)
                if (!isNumber(t)) fail(path, lineNo, "'" + t + "' is not a finite number");
            ++defined[1];
        } else if (key == "f") {
            if (tok.size() < 3) fail(path, lineNo, "a face needs at least three corners");
            // The loader counts corners in a byte.
            if (tok.size() > 255)
                fail(path, lineNo,
                     "a face of " + std::to_string(tok.size()) + " corners; at most 255 can be read");
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
    std::error_code ec;
    const auto status = std::filesystem::status(path, ec);
    if (!ec && std::filesystem::exists(status) && !std::filesystem::is_regular_file(status))
        fail(path, 0, "not a regular file");
    std::ifstream raw(path, std::ios::binary);
    if (!raw) fail(path, 0, std::string("cannot open the file: ") + std::strerror(errno));
    std::stringstream whole;
    whole << raw.rdbuf();
    std::vector<int> firstLine;
    std::istringstream file(joinContinuedLines(whole.str(), firstLine));
    checkLines(path, file, firstLine);
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
        bool allUvs = true;
        for (const auto& idx : src.indices)
            allUvs = allUvs && idx.texcoord_index >= 0;
        const int numPositions = static_cast<int>(attrib.vertices.size() / 3);
        const int numUvs = static_cast<int>(attrib.texcoords.size() / 2);

        // The object's points are the file's vertices it uses, in file order, so a one-object file keeps
        // its numbering (per-point data made for it still lines up).
        std::vector<int> used, usedUv;
        for (const auto& idx : src.indices) {
            if (idx.vertex_index < 0 || idx.vertex_index >= numPositions)
                fail(path, 0, "object '" + nm.name + "' uses a vertex that does not exist");
            if (allUvs && idx.texcoord_index >= numUvs)
                fail(path, 0, "object '" + nm.name + "' uses a uv that does not exist");
            used.push_back(idx.vertex_index);
            if (allUvs) usedUv.push_back(idx.texcoord_index);
        }
        auto sortUnique = [](std::vector<int>& v) {
            std::sort(v.begin(), v.end());
            v.erase(std::unique(v.begin(), v.end()), v.end());
        };
        sortUnique(used);
        sortUnique(usedUv);
        for (int v : used) {
            const auto k = static_cast<std::size_t>(v) * 3;
            m.addPoint({attrib.vertices[k], attrib.vertices[k + 1], attrib.vertices[k + 2]});
        }
        for (int t : usedUv) {
            const auto k = static_cast<std::size_t>(t) * 2;
            m.addUv(attrib.texcoords[k], attrib.texcoords[k + 1]);
        }
        auto local = [](const std::vector<int>& v, int fileIndex) {
            return static_cast<int>(std::lower_bound(v.begin(), v.end(), fileIndex) - v.begin());
        };
        std::size_t at = 0;
        for (const unsigned int count : src.num_face_vertices) {
            std::vector<int> face, faceUv;
            for (unsigned int c = 0; c < count; ++c, ++at) {
                face.push_back(local(used, src.indices[at].vertex_index));
                if (allUvs) faceUv.push_back(local(usedUv, src.indices[at].texcoord_index));
            }
            m.addFace(face, faceUv);
        }
        try {
            m.validate();
        } catch (const std::invalid_argument& e) {
            fail(path, 0, "object '" + nm.name + "' is not a valid mesh: " + e.what());
        }
        out.push_back(std::move(nm));
    }
    // Several unnamed or equally named groups get numbered so that names stay unique.
    std::unordered_map<std::string, int> seen;
    for (auto& nm : out)
        if (int n = seen[nm.name]++; n > 0) nm.name += std::to_string(n);
    return out;
}

void writeObjFile(const std::string& path, const std::vector<TnamedMesh>& meshes) {
    for (const auto& nm : meshes) {
        try {
            nm.mesh.validate();
        } catch (const std::invalid_argument& e) {
            fail(path, 0, "object '" + nm.name + "': " + e.what());
        }
    }
    const std::string temp = path + ".part";
    {
        std::ofstream out(temp, std::ios::trunc);
        if (!out) fail(path, 0, std::string("cannot write the file: ") + std::strerror(errno));
        out << "# motilane\n";
        char buf[96];
        long pointBase = 1, uvBase = 1;
        for (const auto& nm : meshes) {
            const TpolyMesh& m = nm.mesh;
            out << "o " << (nm.name.empty() ? std::string("mesh") : nm.name) << '\n';
            for (const auto& p : m.points) {
                std::snprintf(buf, sizeof buf, "v %.17g %.17g %.17g\n", p.x, p.y, p.z);
                out << buf;
            }
            for (const auto& uv : m.uvs) {
                std::snprintf(buf, sizeof buf, "vt %.17g %.17g\n", uv.u, uv.v);
                out << buf;
            }
            std::size_t at = 0;
            for (int n : m.faceCounts) {
                out << 'f';
                for (int i = 0; i < n; ++i, ++at) {
                    out << ' ' << pointBase + m.faceVertices[at];
                    if (m.hasUvs()) out << '/' << uvBase + m.uvIndices[at];
                }
                out << '\n';
            }
            pointBase += m.numPoints();
            uvBase += static_cast<long>(m.uvs.size());
        }
        out.flush();
        if (!out) {
            std::remove(temp.c_str());
            fail(path, 0, "writing failed (disk full?)");
        }
    }
    std::error_code ec;
    std::filesystem::rename(temp, path, ec);
    if (ec) {
        std::remove(temp.c_str());
        fail(path, 0, "cannot replace the file: " + ec.message());
    }
}
