#include "Host/Geometry/TpolyMesh.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>

int TpolyMesh::addFace(const std::vector<int>& vertices, const std::vector<int>& uvIds) {
    if (!uvIds.empty() && uvIds.size() != vertices.size())
        throw std::invalid_argument("mesh face " + std::to_string(numFaces()) + ": " +
                                    std::to_string(vertices.size()) + " vertices but " +
                                    std::to_string(uvIds.size()) + " uv indices");
    if (!uvIds.empty() && uvIndices.size() != faceVertices.size())
        throw std::invalid_argument("mesh face " + std::to_string(numFaces()) +
                                    ": uv indices given, but the earlier faces have none");
    faceCounts.push_back(static_cast<int>(vertices.size()));
    faceVertices.insert(faceVertices.end(), vertices.begin(), vertices.end());
    uvIndices.insert(uvIndices.end(), uvIds.begin(), uvIds.end());
    return numFaces() - 1;
}

std::vector<int> TpolyMesh::faceOffsets() const {
    std::vector<int> out(faceCounts.size());
    int at = 0;
    for (std::size_t f = 0; f < faceCounts.size(); ++f) {
        out[f] = at;
        at += faceCounts[f];
    }
    return out;
}

void TpolyMesh::validate() const {
    long long total = 0;
    for (std::size_t f = 0; f < faceCounts.size(); ++f) {
        if (faceCounts[f] < 3)
            throw std::invalid_argument("mesh face " + std::to_string(f) + " has " +
                                        std::to_string(faceCounts[f]) + " vertices; a face needs at least 3");
        total += faceCounts[f];
    }
    if (total != static_cast<long long>(faceVertices.size()))
        throw std::invalid_argument("mesh face counts add up to " + std::to_string(total) +
                                    " but there are " + std::to_string(faceVertices.size()) +
                                    " face vertices");
    if (!uvIndices.empty() && uvIndices.size() != faceVertices.size())
        throw std::invalid_argument("mesh has " + std::to_string(uvIndices.size()) + " uv indices for " +
                                    std::to_string(faceVertices.size()) + " face vertices");
    int face = 0, left = faceCounts.empty() ? 0 : faceCounts[0];
    for (std::size_t i = 0; i < faceVertices.size(); ++i) {
        while (left == 0)
            left = faceCounts[++face];
        --left;
        if (faceVertices[i] < 0 || faceVertices[i] >= numPoints())
            throw std::invalid_argument("mesh face " + std::to_string(face) + " uses point " +
                                        std::to_string(faceVertices[i]) + ", but the mesh has " +
                                        std::to_string(numPoints()) + " points");
        if (!uvIndices.empty() && (uvIndices[i] < 0 || uvIndices[i] >= static_cast<int>(uvs.size())))
            throw std::invalid_argument("mesh face " + std::to_string(face) + " uses uv " +
                                        std::to_string(uvIndices[i]) + ", but the mesh has " +
                                        std::to_string(uvs.size()) + " uvs");
    }
}

// Twice the area vector of the polygon; exact for planar faces whatever their shape.
T4dDblVector TpolyMesh::newellNormal(int offset, int count) const {
    T4dDblVector n;
    const int* v = faceVertices.data() + offset;
    // Relative to the first point, for precision far from the origin.
    const T4dDblVector o = points[v[0]];
    for (int i = 0; i < count; ++i) {
        const T4dDblVector a = points[v[i]] - o;
        const T4dDblVector b = points[v[(i + 1) % count]] - o;
        n += a.cross(b);
    }
    return n;
}

std::vector<T4dDblVector> TpolyMesh::faceNormals() const {
    std::vector<T4dDblVector> out(faceCounts.size());
    int at = 0;
    for (std::size_t f = 0; f < faceCounts.size(); ++f) {
        out[f] = newellNormal(at, faceCounts[f]).normal();
        at += faceCounts[f];
    }
    return out;
}

std::vector<double> TpolyMesh::faceAreas() const {
    std::vector<double> out(faceCounts.size());
    int at = 0;
    for (std::size_t f = 0; f < faceCounts.size(); ++f) {
        out[f] = 0.5 * newellNormal(at, faceCounts[f]).length();
        at += faceCounts[f];
    }
    return out;
}

namespace {
int offsetOf(const std::vector<int>& counts, int face) {
    if (face < 0 || face >= static_cast<int>(counts.size()))
        throw std::out_of_range("mesh face " + std::to_string(face) + " does not exist (the mesh has " +
                                std::to_string(counts.size()) + " faces)");
    int at = 0;
    for (int f = 0; f < face; ++f)
        at += counts[f];
    return at;
}
} // namespace

T4dDblVector TpolyMesh::faceNormal(int face) const {
    const int at = offsetOf(faceCounts, face); // checks the index first
    return newellNormal(at, faceCounts[face]).normal();
}

double TpolyMesh::faceArea(int face) const {
    const int at = offsetOf(faceCounts, face);
    return 0.5 * newellNormal(at, faceCounts[face]).length();
}

T4dDblVector TpolyMesh::faceCenter(int face) const {
    const int at = offsetOf(faceCounts, face);
    const int n = faceCounts[face];
    T4dDblVector c;
    for (int i = 0; i < n; ++i)
        c += points[faceVertices[static_cast<std::size_t>(at + i)]];
    return n > 0 ? c / n : c;
}

std::vector<T4dDblVector> TpolyMesh::vertexNormals() const {
    std::vector<T4dDblVector> out(points.size());
    int at = 0;
    for (std::size_t f = 0; f < faceCounts.size(); ++f) {
        // Unnormalised: larger faces weigh more.
        const T4dDblVector n = newellNormal(at, faceCounts[f]);
        for (int i = 0; i < faceCounts[f]; ++i)
            out[faceVertices[static_cast<std::size_t>(at + i)]] += n;
        at += faceCounts[f];
    }
    for (auto& n : out)
        n.normalizeIt();
    return out;
}

namespace {

// Signed doubled area of triangle abc in 2D.
double orient(const double* a, const double* b, const double* c) {
    return (b[0] - a[0]) * (c[1] - a[1]) - (b[1] - a[1]) * (c[0] - a[0]);
}

} // namespace

TmeshTriangles TpolyMesh::triangulate() const {
    TmeshTriangles out;
    out.vertices.reserve(faceVertices.size() * 3);
    out.corners.reserve(faceVertices.size() * 3);
    out.faces.reserve(faceVertices.size());
    std::vector<double> xy;
    std::vector<int> ring;
    int at = 0;
    for (std::size_t f = 0; f < faceCounts.size(); ++f) {
        const int n = faceCounts[f];
        const int* v = faceVertices.data() + at;
        const int face = static_cast<int>(f);
        if (n == 3) {
            out.vertices.insert(out.vertices.end(), {v[0], v[1], v[2]});
            out.corners.insert(out.corners.end(), {at, at + 1, at + 2});
            out.faces.push_back(face);
        } else if (n > 3) {
            // Project onto the plane across the normal's largest axis, keeping counter-clockwise order.
            const T4dDblVector nrm = newellNormal(at, n);
            int ax = 0;
            if (std::fabs(nrm.y) > std::fabs(nrm[ax])) ax = 1;
            if (std::fabs(nrm.z) > std::fabs(nrm[ax])) ax = 2;
            const int i0 = (ax + 1) % 3, i1 = (ax + 2) % 3;
            const bool flip = nrm[ax] < 0;
            xy.resize(2 * n);
            for (int i = 0; i < n; ++i) {
                const T4dDblVector& p = points[v[i]];
                xy[2 * i] = p[i0];
                xy[2 * i + 1] = flip ? -p[i1] : p[i1];
            }
            ring.resize(n);
            for (int i = 0; i < n; ++i)
                ring[i] = i;
            auto P = [&xy](int i) { return xy.data() + 2 * i; };
            while (ring.size() > 3) {
                const int m = static_cast<int>(ring.size());
                int ear = -1;
                for (int k = 0; k < m && ear < 0; ++k) {
                    const int a = ring[(k + m - 1) % m], b = ring[k], c = ring[(k + 1) % m];
                    if (orient(P(a), P(b), P(c)) <= 0) continue; // reflex or flat corner
                    bool empty = true;
                    for (int q : ring) {
                        if (q == a || q == b || q == c) continue;
                        if (orient(P(a), P(b), P(q)) >= 0 && orient(P(b), P(c), P(q)) >= 0 &&
                            orient(P(c), P(a), P(q)) >= 0) {
                            empty = false;
                            break;
                        }
                    }
                    if (empty) ear = k;
                }
                // A degenerate face has no proper ear; clip any corner so every face still yields n-2
                // triangles.
                if (ear < 0) ear = 0;
                const int a = ring[(ear + m - 1) % m], b = ring[ear], c = ring[(ear + 1) % m];
                out.vertices.insert(out.vertices.end(), {v[a], v[b], v[c]});
                out.corners.insert(out.corners.end(), {at + a, at + b, at + c});
                out.faces.push_back(face);
                ring.erase(ring.begin() + ear);
            }
            out.vertices.insert(out.vertices.end(), {v[ring[0]], v[ring[1]], v[ring[2]]});
            out.corners.insert(out.corners.end(), {at + ring[0], at + ring[1], at + ring[2]});
            out.faces.push_back(face);
        }
        at += n;
    }
    return out;
}

TboundingBox TpolyMesh::boundingBox() const {
    TboundingBox b;
    for (const auto& p : points)
        b.includePoint(p);
    return b;
}

double TpolyMesh::surfaceArea() const {
    double sum = 0;
    for (double a : faceAreas())
        sum += a;
    return sum;
}

std::vector<std::pair<int, int>> TpolyMesh::edges() const {
    std::vector<std::pair<int, int>> out;
    out.reserve(faceVertices.size());
    int at = 0;
    for (int n : faceCounts) {
        for (int i = 0; i < n; ++i) {
            const int a = faceVertices[at + i];
            const int b = faceVertices[at + (i + 1) % n];
            out.emplace_back(std::min(a, b), std::max(a, b));
        }
        at += n;
    }
    std::sort(out.begin(), out.end());
    out.erase(std::unique(out.begin(), out.end()), out.end());
    return out;
}

void TpolyMesh::transform(const T4dDblMatrix& m) {
    for (auto& p : points)
        p = m.transformPoint(p);
}
