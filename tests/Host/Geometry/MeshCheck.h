#pragma once

#include <map>
#include <utility>

#include "Host/Geometry/TpolyMesh.h"

// Shared checks of closed, consistently wound meshes.
namespace meshcheck {

// Every directed edge once and its reverse once: closed, manifold and consistently wound.
inline bool isClosedAndConsistent(const TpolyMesh& m, std::string* why = nullptr) {
    std::map<std::pair<int, int>, int> directed;
    int at = 0;
    for (int n : m.faceCounts) {
        for (int i = 0; i < n; ++i)
            ++directed[{m.faceVertices[at + i], m.faceVertices[at + (i + 1) % n]}];
        at += n;
    }
    for (const auto& [e, count] : directed) {
        const auto rev = directed.find({e.second, e.first});
        if (count != 1 || rev == directed.end() || rev->second != 1) {
            if (why)
                *why = "edge " + std::to_string(e.first) + "-" + std::to_string(e.second) + " used " +
                       std::to_string(count) + " times, reverse " +
                       std::to_string(rev == directed.end() ? 0 : rev->second);
            return false;
        }
    }
    return true;
}

// Enclosed volume by the divergence theorem: positive when the faces wind outward.
inline double signedVolume(const TpolyMesh& m) {
    const TmeshTriangles t = m.triangulate();
    double v = 0;
    for (int i = 0; i < t.count(); ++i) {
        const T4dDblVector& a = m.points[t.vertices[3 * i]];
        const T4dDblVector& b = m.points[t.vertices[3 * i + 1]];
        const T4dDblVector& c = m.points[t.vertices[3 * i + 2]];
        v += a.dot(b.cross(c));
    }
    return v / 6;
}

} // namespace meshcheck
