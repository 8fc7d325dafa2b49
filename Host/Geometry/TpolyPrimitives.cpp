#include "Host/Geometry/TpolyPrimitives.h"

#include <cmath>
#include <map>
#include <numbers>
#include <stdexcept>
#include <string>
#include <tuple>

namespace {

constexpr double kTwoPi = 2 * std::numbers::pi;
// Beyond this many points a request is surely a typo, and would exhaust memory.
constexpr long long kMaxPoints = 50'000'000;

void checkSize(const char* fn, const char* arg, double v) {
    if (!std::isfinite(v) || v < 0)
        throw std::invalid_argument(std::string(fn) + ": " + arg +
                                    " must be a finite number not below 0 (got " + std::to_string(v) + ")");
}

void checkSubdivisions(const char* fn, const char* arg, int v, int minimum) {
    if (v < minimum)
        throw std::invalid_argument(std::string(fn) + ": " + arg + " must be at least " +
                                    std::to_string(minimum) + " (got " + std::to_string(v) + ")");
}

void checkTotal(const char* fn, long long points) {
    if (points > kMaxPoints)
        throw std::invalid_argument(std::string(fn) + ": the subdivisions ask for " + std::to_string(points) +
                                    " points, more than the limit of " + std::to_string(kMaxPoints));
}

// Point on a circle of the XZ plane; angle grows from +X towards -Z, which with Y up makes rings run
// counter-clockwise seen from +Y.
T4dDblVector ringPoint(double radius, double angle, double y) {
    return {radius * std::cos(angle), y, -radius * std::sin(angle)};
}

} // namespace

TpolyMesh makePolyPlane(double width, double height, int sx, int sy) {
    const char* fn = "polyPlane";
    checkSize(fn, "width", width);
    checkSize(fn, "height", height);
    checkSubdivisions(fn, "subdivisionsX", sx, 1);
    checkSubdivisions(fn, "subdivisionsY", sy, 1);
    checkTotal(fn, (sx + 1LL) * (sy + 1LL));
    TpolyMesh m;
    m.points.reserve((sx + 1) * (sy + 1));
    // Row j runs towards -Z so that (i, j) -> (i+1, j) -> (i+1, j+1) turns counter-clockwise seen from +Y.
    for (int j = 0; j <= sy; ++j)
        for (int i = 0; i <= sx; ++i) {
            m.addPoint({-width / 2 + width * i / sx, 0, height / 2 - height * j / sy});
            m.addUv(double(i) / sx, double(j) / sy);
        }
    auto id = [sx](int i, int j) { return j * (sx + 1) + i; };
    for (int j = 0; j < sy; ++j)
        for (int i = 0; i < sx; ++i) {
            const std::vector<int> f{id(i, j), id(i + 1, j), id(i + 1, j + 1), id(i, j + 1)};
            m.addFace(f, f);
        }
    return m;
}

TpolyMesh makePolyCube(double width, double height, double depth, int sx, int sy, int sz) {
    const char* fn = "polyCube";
    checkSize(fn, "width", width);
    checkSize(fn, "height", height);
    checkSize(fn, "depth", depth);
    checkSubdivisions(fn, "subdivisionsX", sx, 1);
    checkSubdivisions(fn, "subdivisionsY", sy, 1);
    checkSubdivisions(fn, "subdivisionsZ", sz, 1);
    checkTotal(fn, 2 * ((sx + 1LL) * (sy + 1LL) + (sy + 1LL) * (sz + 1LL) + (sx + 1LL) * (sz + 1LL)));

    const int n[3] = {sx, sy, sz};
    const double size[3] = {width, height, depth};
    TpolyMesh m;
    // Points live on the box's integer lattice; sides share the points of their common edges.
    std::map<std::tuple<int, int, int>, int> lattice;
    auto pointAt = [&](int l[3]) {
        auto key = std::make_tuple(l[0], l[1], l[2]);
        auto it = lattice.find(key);
        if (it != lattice.end()) return it->second;
        T4dDblVector p;
        for (int a = 0; a < 3; ++a)
            p[a] = -size[a] / 2 + size[a] * l[a] / n[a];
        const int id = m.addPoint(p);
        lattice.emplace(key, id);
        return id;
    };

    // Per side: the fixed axis and its end, then the u and v axes with their directions, u x v outward.
    struct Side {
        int axis, high, uAxis, uSign, vAxis, vSign;
    };
    const Side sides[6] = {
        {0, 1, 2, -1, 1, 1}, // +X: u = -Z, v = +Y
        {0, 0, 2, 1, 1, 1},  // -X: u = +Z, v = +Y
        {1, 1, 0, 1, 2, -1}, // +Y: u = +X, v = -Z
        {1, 0, 0, 1, 2, 1},  // -Y: u = +X, v = +Z
        {2, 1, 0, 1, 1, 1},  // +Z: u = +X, v = +Y
        {2, 0, 0, -1, 1, 1}, // -Z: u = -X, v = +Y
    };
    for (int s = 0; s < 6; ++s) {
        const Side& sd = sides[s];
        const int nu = n[sd.uAxis], nv = n[sd.vAxis];
        // Each side gets its own tile of a 3 x 2 uv atlas.
        const double tu = (s % 3) / 3.0, tv = (s / 3) / 2.0;
        std::vector<int> ids((nu + 1) * (nv + 1));
        std::vector<int> uvIds(ids.size());
        for (int b = 0; b <= nv; ++b)
            for (int a = 0; a <= nu; ++a) {
                int l[3];
                l[sd.axis] = sd.high ? n[sd.axis] : 0;
                l[sd.uAxis] = sd.uSign > 0 ? a : nu - a;
                l[sd.vAxis] = sd.vSign > 0 ? b : nv - b;
                const std::size_t k = b * (nu + 1) + a;
                ids[k] = pointAt(l);
                uvIds[k] = m.addUv(tu + (double(a) / nu) / 3.0, tv + (double(b) / nv) / 2.0);
            }
        auto k = [nu](int a, int b) { return b * (nu + 1) + a; };
        for (int b = 0; b < nv; ++b)
            for (int a = 0; a < nu; ++a)
                m.addFace({ids[k(a, b)], ids[k(a + 1, b)], ids[k(a + 1, b + 1)], ids[k(a, b + 1)]},
                          {uvIds[k(a, b)], uvIds[k(a + 1, b)], uvIds[k(a + 1, b + 1)], uvIds[k(a, b + 1)]});
    }
    return m;
}

TpolyMesh makePolySphere(double radius, int sa, int sh) {
    const char* fn = "polySphere";
    checkSize(fn, "radius", radius);
    checkSubdivisions(fn, "subdivisionsAxis", sa, 3);
    checkSubdivisions(fn, "subdivisionsHeight", sh, 2);
    checkTotal(fn, 2 + (sh - 1LL) * sa);
    TpolyMesh m;
    const int south = m.addPoint({0, -radius, 0});
    // Ring r (1 .. sh-1) from south to north, sa points each.
    for (int r = 1; r < sh; ++r) {
        const double lat = -std::numbers::pi / 2 + std::numbers::pi * r / sh;
        for (int i = 0; i < sa; ++i)
            m.addPoint(ringPoint(radius * std::cos(lat), kTwoPi * i / sa, radius * std::sin(lat)));
    }
    const int north = m.addPoint({0, radius, 0});
    auto P = [sa](int r, int i) { return 1 + (r - 1) * sa + i % sa; };

    // uvs: a seam column at u = 1, and one uv per pole triangle at the middle of its column.
    const int uvRings = sh - 1;
    for (int r = 1; r <= uvRings; ++r)
        for (int i = 0; i <= sa; ++i)
            m.addUv(double(i) / sa, double(r) / sh);
    auto U = [sa](int r, int i) { return (r - 1) * (sa + 1) + i; };
    const int southUv = static_cast<int>(m.uvs.size());
    for (int i = 0; i < sa; ++i)
        m.addUv((i + 0.5) / sa, 0);
    const int northUv = static_cast<int>(m.uvs.size());
    for (int i = 0; i < sa; ++i)
        m.addUv((i + 0.5) / sa, 1);

    for (int i = 0; i < sa; ++i)
        m.addFace({south, P(1, i + 1), P(1, i)}, {southUv + i, U(1, i + 1), U(1, i)});
    for (int r = 1; r < sh - 1; ++r)
        for (int i = 0; i < sa; ++i)
            m.addFace({P(r, i), P(r, i + 1), P(r + 1, i + 1), P(r + 1, i)},
                      {U(r, i), U(r, i + 1), U(r + 1, i + 1), U(r + 1, i)});
    for (int i = 0; i < sa; ++i)
        m.addFace({P(sh - 1, i), P(sh - 1, i + 1), north}, {U(sh - 1, i), U(sh - 1, i + 1), northUv + i});
    return m;
}

TpolyMesh makePolyCylinder(double radius, double height, int sa, int sh, int sc) {
    const char* fn = "polyCylinder";
    checkSize(fn, "radius", radius);
    checkSize(fn, "height", height);
    checkSubdivisions(fn, "subdivisionsAxis", sa, 3);
    checkSubdivisions(fn, "subdivisionsHeight", sh, 1);
    checkSubdivisions(fn, "subdivisionsCaps", sc, 0);
    checkTotal(fn, (sh + 1LL) * sa + 2LL * (sc > 0 ? 1 + (sc - 1LL) * sa : 0));
    TpolyMesh m;
    // Side rings bottom to top.
    for (int r = 0; r <= sh; ++r)
        for (int i = 0; i < sa; ++i)
            m.addPoint(ringPoint(radius, kTwoPi * i / sa, -height / 2 + height * r / sh));
    auto S = [sa](int r, int i) { return r * sa + i % sa; };
    // uv layout: the side band over v in [0.5, 1], the caps as discs centred at (0.25, 0.25) and (0.75,
    // 0.25).
    for (int r = 0; r <= sh; ++r)
        for (int i = 0; i <= sa; ++i)
            m.addUv(double(i) / sa, 0.5 + 0.5 * r / sh);
    auto SU = [sa](int r, int i) { return r * (sa + 1) + i; };
    for (int r = 0; r < sh; ++r)
        for (int i = 0; i < sa; ++i)
            m.addFace({S(r, i), S(r, i + 1), S(r + 1, i + 1), S(r + 1, i)},
                      {SU(r, i), SU(r, i + 1), SU(r + 1, i + 1), SU(r + 1, i)});

    for (int top = 0; top < 2; ++top) {
        const double y = top ? height / 2 : -height / 2;
        const int rim = top ? sh : 0;
        // Looking at the cap from outside, the top cap sees the rings counter-clockwise, the bottom
        // clockwise.
        const double cu = top ? 0.75 : 0.25, cv = 0.25, cr = 0.24;
        auto capUv = [&](double frac, int i) {
            const double a = kTwoPi * i / sa;
            // Mirror the bottom disc so that its uvs are not seen backwards from below.
            return m.addUv(cu + cr * frac * std::cos(a), cv + cr * frac * (top ? std::sin(a) : -std::sin(a)));
        };
        if (sc == 0) {
            std::vector<int> f, fu;
            for (int k = 0; k < sa; ++k) {
                const int i = top ? k : (sa - k) % sa;
                f.push_back(S(rim, i));
                fu.push_back(capUv(1.0, i));
            }
            m.addFace(f, fu);
            continue;
        }
        // Rings 1 .. sc from the centre out; ring sc is the side's rim.
        const int centre = m.addPoint({0, y, 0});
        const int centreUv = m.addUv(cu, cv);
        const int firstRing = m.numPoints();
        for (int k = 1; k < sc; ++k)
            for (int i = 0; i < sa; ++i)
                m.addPoint(ringPoint(radius * k / sc, kTwoPi * i / sa, y));
        auto C = [&](int k, int i) { return k == sc ? S(rim, i) : firstRing + (k - 1) * sa + i % sa; };
        std::vector<int> ringUv(sc * sa);
        for (int k = 1; k <= sc; ++k)
            for (int i = 0; i < sa; ++i)
                ringUv[(k - 1) * sa + i] = capUv(double(k) / sc, i);
        auto CU = [&](int k, int i) { return ringUv[(k - 1) * sa + i % sa]; };
        for (int i = 0; i < sa; ++i) {
            if (top)
                m.addFace({centre, C(1, i), C(1, i + 1)}, {centreUv, CU(1, i), CU(1, i + 1)});
            else
                m.addFace({centre, C(1, i + 1), C(1, i)}, {centreUv, CU(1, i + 1), CU(1, i)});
        }
        for (int k = 1; k < sc; ++k)
            for (int i = 0; i < sa; ++i) {
                if (top)
                    m.addFace({C(k, i), C(k + 1, i), C(k + 1, i + 1), C(k, i + 1)},
                              {CU(k, i), CU(k + 1, i), CU(k + 1, i + 1), CU(k, i + 1)});
                else
                    m.addFace({C(k, i), C(k, i + 1), C(k + 1, i + 1), C(k + 1, i)},
                              {CU(k, i), CU(k, i + 1), CU(k + 1, i + 1), CU(k + 1, i)});
            }
    }
    return m;
}

TpolyMesh makePolyTorus(double radius, double sectionRadius, int sa, int sh) {
    const char* fn = "polyTorus";
    checkSize(fn, "radius", radius);
    checkSize(fn, "sectionRadius", sectionRadius);
    checkSubdivisions(fn, "subdivisionsAxis", sa, 3);
    checkSubdivisions(fn, "subdivisionsHeight", sh, 3);
    checkTotal(fn, 1LL * sa * sh);
    TpolyMesh m;
    for (int i = 0; i < sa; ++i) {
        const double a = kTwoPi * i / sa;
        for (int j = 0; j < sh; ++j) {
            const double b = kTwoPi * j / sh;
            m.addPoint(ringPoint(radius + sectionRadius * std::cos(b), a, sectionRadius * std::sin(b)));
        }
    }
    auto P = [sa, sh](int i, int j) { return (i % sa) * sh + j % sh; };
    for (int i = 0; i <= sa; ++i)
        for (int j = 0; j <= sh; ++j)
            m.addUv(double(i) / sa, double(j) / sh);
    auto U = [sh](int i, int j) { return i * (sh + 1) + j; };
    // Around the ring then around the tube: outward on the outer and on the inner side alike.
    for (int i = 0; i < sa; ++i)
        for (int j = 0; j < sh; ++j)
            m.addFace({P(i, j), P(i + 1, j), P(i + 1, j + 1), P(i, j + 1)},
                      {U(i, j), U(i + 1, j), U(i + 1, j + 1), U(i, j + 1)});
    return m;
}
