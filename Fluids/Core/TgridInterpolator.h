#pragma once
// Sampling of voxel grids at arbitrary points. The solver traces back through
// one interpolator; point queries and shading use another.
//
// Points are in the grid's local space. A coordinate c (voxel units, cell i's
// centre at i) splits into n and a fraction: n = trunc(c) for c >= 0 and
// -trunc(1 - c) below. Every sample index is wrapped on a "Wrapping" axis and
// clamped otherwise, so outside the box the border repeats.
#include <cstddef>

#include "Fluids/Core/TfluidGrid.h"
#include "Host/Voxel/TvoxelGrid.h"

namespace interp_detail {

struct Split {
    int n;
    double t;
};

inline Split split(double c) {
    // Far-away or non-finite points read the border; keeps the int conversion defined.
    if (!(c > -1e6)) c = -1e6;
    if (!(c < 1e6)) c = 1e6;
    if (c >= 0) {
        const int n = int(c);
        return {n, c - n};
    }
    const int n = -int(1.0 - c);
    return {n, c - n};
}

// Where samples are read from and where occupation is looked up.
struct Space {
    int r[3];  // resolution of the sampled array
    int b[3];  // its bounds
    int fr[3]; // resolution of the occupation (the fluid's cells)
    int fb[3];
    const float* a;
    const unsigned char* occ;
    int dims; // 2 or 3

    // Bounded index on one axis.
    int bi(int axis, int n) const { return boundedIndex(n, r[axis], b[axis]); }
    // Element at already bounded indices.
    double raw(int i, int j, int k) const {
        return a[size_t(i) + size_t(r[0]) * (size_t(j) + size_t(r[1]) * size_t(k))];
    }
    double at(int i, int j, int k) const {
        return a[size_t(boundedIndex(i, r[0], b[0])) +
                 size_t(r[0]) * (size_t(boundedIndex(j, r[1], b[1])) +
                                 size_t(r[1]) * size_t(boundedIndex(k, r[2], b[2])))];
    }
    bool blocked(int i, int j, int k) const {
        const size_t c =
            size_t(boundedIndex(i, fr[0], fb[0])) +
            size_t(fr[0]) * (size_t(boundedIndex(j, fr[1], fb[1])) +
                             size_t(fr[1]) * size_t(dims == 3 ? boundedIndex(k, fr[2], fb[2]) : 0));
        return occ[c] != 0;
    }
};

// Space for a grid sampled on its own cells.
inline Space scalarSpace(const TvoxelGrid& g, const unsigned char* occ, const float* a, int dims) {
    Space s{{int(g.nx), int(g.ny), int(g.nz)},
            {g.bounds[0], g.bounds[1], g.bounds[2]},
            {int(g.nx), int(g.ny), int(g.nz)},
            {g.bounds[0], g.bounds[1], g.bounds[2]},
            a,
            occ,
            dims};
    if (dims == 2) s.r[2] = s.fr[2] = 1;
    return s;
}

inline void gridSpace(const TvoxelGrid& g, double px, double py, double pz, double out[3]) {
    out[0] = g.dx != 0 ? (px - g.originX()) / g.dx - 0.5 : 0.0;
    out[1] = g.dy != 0 ? (py - g.originY()) / g.dy - 0.5 : 0.0;
    out[2] = g.dz != 0 ? (pz - g.originZ()) / g.dz - 0.5 : 0.0;
}

// Space for a staggered component read at points in the fluid's grid space.
inline Space componentSpace(const TvoxelGrid& fluid, const unsigned char* occ, const TvoxelGrid& comp,
                            const float* a, int dims) {
    Space s{{int(comp.nx), int(comp.ny), int(comp.nz)},
            {comp.bounds[0], comp.bounds[1], comp.bounds[2]},
            {int(fluid.nx), int(fluid.ny), int(fluid.nz)},
            {fluid.bounds[0], fluid.bounds[1], fluid.bounds[2]},
            a,
            occ,
            dims};
    if (dims == 2) s.r[2] = s.fr[2] = 1;
    return s;
}

// Axis of a staggered component, told by which resolution exceeds the fluid's; -1 for none.
inline int componentAxis(const TvoxelGrid& fluid, const TvoxelGrid& comp) {
    if (comp.nx > fluid.nx) return 0;
    if (comp.ny > fluid.ny) return 1;
    if (comp.nz > fluid.nz) return 2;
    return -1;
}

inline double lerp(double a, double b, double t) {
    return a + t * (b - a);
}

// Twice the quadratic B-spline value over a, b, c at t.
inline double quadratic(double a, double b, double c, double t) {
    return a + b + (((c - b) + (a - b)) * t - 2 * (a - b)) * t;
}

// Monotone cubic Hermite between p[2] and p[3] from six samples p[0..5].
inline double interpRange(double t, const double p[6]) {
    const double d = p[3] - p[2];
    double m0 = (p[0] - 8 * p[1] + 8 * p[3] - p[4]) / 12;
    double m1 = (p[1] - 8 * p[2] + 8 * p[4] - p[5]) / 12;
    if (d == 0) {
        m0 = m1 = 0;
    } else if (d > 0) {
        if (m0 < 0) m0 = 0;
        if (m0 > 3 * d) m0 = 3 * d;
        if (m1 < 0) m1 = 0;
        if (m1 > 3 * d) m1 = 3 * d;
    } else {
        if (m0 > 0) m0 = 0;
        if (m0 < 3 * d) m0 = 3 * d;
        if (m1 > 0) m1 = 0;
        if (m1 < 3 * d) m1 = 3 * d;
    }
    return p[2] + (m0 + (3 * d - 2 * m0 - m1 - (2 * d - m0 - m1) * t) * t) * t;
}

// The obstacle form: occ[m] tells whether sample m (p-2 .. p3) lies in a blocked cell.
inline double interpRange(double t, bool normalAxis, const bool occ[6], double p[6], double friction) {
    if (occ[2] && (occ[3] || !normalAxis)) return 0.0;
    if (normalAxis) {
        if (occ[1])
            p[0] = p[1] = p[2] = 0;
        else if (occ[0])
            p[0] = p[1] = 0;
        if (occ[3])
            p[3] = p[4] = p[5] = 0;
        else if (occ[4])
            p[4] = p[5] = 0;
        else if (occ[5])
            p[5] = 0;
    } else {
        const double k = 1 - 2 * friction;
        if (occ[2])
            p[0] = p[1] = p[2] = k * p[3];
        else if (occ[1])
            p[0] = p[1] = k * p[2];
        else if (occ[0])
            p[0] = k * p[1];
        if (occ[3])
            p[3] = p[4] = p[5] = k * p[2];
        else if (occ[4])
            p[4] = p[5] = k * p[3];
        else if (occ[5])
            p[5] = k * p[4];
    }
    return interpRange(t, p);
}

// Obstacle-aware linear step between a and b.
inline double bndLerp(double t, bool occA, bool occB, double a, double b, bool& flag) {
    if (t < 0.5) {
        flag = occA;
        if (occA) return 0;
        if (occB) return a;
    } else {
        flag = occB;
        if (occB) return 0;
        if (occA) return b;
    }
    return a + t * (b - a);
}

// Tangential form: a blocked sample reflects the other one by k = 1 - 2*friction.
inline double bndLerpTangent(double t, bool occA, bool occB, double a, double b, double friction) {
    if (occA && occB) return 0;
    const double k = 1 - 2 * friction;
    if (occA)
        a = k * b;
    else if (occB)
        b = k * a;
    return a + t * (b - a);
}

// Bounded index of n and n + 1 on one axis; inside the array no bound applies.
inline void boundedPair(const Space& s, int axis, int n, int& lo, int& hi) {
    if (n >= 0 && n < s.r[axis] - 1) {
        lo = n;
        hi = n + 1;
        return;
    }
    lo = s.bi(axis, n);
    hi = s.bi(axis, n + 1);
}

inline double linearSample(const Space& s, const double g[3]) {
    const Split x = split(g[0]), y = split(g[1]);
    // Indices are bounded once per axis, then read directly.
    int i0, i1, j0, j1;
    boundedPair(s, 0, x.n, i0, i1);
    boundedPair(s, 1, y.n, j0, j1);
    // 2D: along y at x = n, along y at x = n+1, then along x.
    auto plane = [&](int k) {
        const double a = lerp(s.raw(i0, j0, k), s.raw(i0, j1, k), y.t);
        const double b = lerp(s.raw(i1, j0, k), s.raw(i1, j1, k), y.t);
        return lerp(a, b, x.t);
    };
    if (s.dims == 2) return plane(0);
    const Split z = split(g[2]);
    int k0, k1;
    boundedPair(s, 2, z.n, k0, k1);
    return lerp(plane(k0), plane(k1), z.t);
}

double quadraticSample(const Space& s, const double g[3]);
// normalAxis: the component's own axis (-1 for scalars); fr: friction per axis.
double hermiteSample(const Space& s, const double g[3], int normalAxis, const double fr[3]);
double bndLinearSample(const Space& s, const double g[3], int normalAxis, const double fr[3]);

} // namespace interp_detail

class TgridInterpolator {
public:
    TgridInterpolator() = default;
    TgridInterpolator(const TgridInterpolator&) = delete;
    TgridInterpolator& operator=(const TgridInterpolator&) = delete;
    virtual ~TgridInterpolator() = default;

    void ref() { ++refs_; }
    void unref() {
        if (--refs_ <= 0) delete this;
    }
    int refCount() const { return refs_; }

    virtual T4dFltVector interpVector(const TvoxelGrid& grid, const unsigned char* occupation,
                                      const T2dFltPoint& p, const T2dFltVector& friction,
                                      const TbuffFloatFluidGrid& u, const TbuffFloatFluidGrid& v,
                                      const TbuffFloatFluidGrid& w, const float* au, const float* av,
                                      const float* aw) const;
    virtual T4dFltVector interpVector(const TvoxelGrid& grid, const unsigned char* occupation,
                                      const T3dFltPoint& p, const T3dFltVector& friction,
                                      const TbuffFloatFluidGrid& u, const TbuffFloatFluidGrid& v,
                                      const TbuffFloatFluidGrid& w, const float* au, const float* av,
                                      const float* aw) const;
    virtual float interpVectorComponent(const TvoxelGrid& fluidGrid, const unsigned char* occupation,
                                        const T2dFltPoint& p, const T2dFltVector& friction,
                                        const TbuffFloatFluidGrid& component, const float* array) const;
    virtual float interpVectorComponent(const TvoxelGrid& fluidGrid, const unsigned char* occupation,
                                        const T3dFltPoint& p, const T3dFltVector& friction,
                                        const TbuffFloatFluidGrid& component, const float* array) const;
    virtual T2dFltPoint interpPoint(const TvoxelGrid& grid, const unsigned char* occupation,
                                    const T2dFltPoint& p, const float* a0, const float* a1) const;
    virtual T3dFltPoint interpPoint(const TvoxelGrid& grid, const unsigned char* occupation,
                                    const T3dFltPoint& p, const float* a0, const float* a1,
                                    const float* a2) const;
    virtual float interpScalar(const TvoxelGrid& grid, const unsigned char* occupation, const T2dFltPoint& p,
                               const float* array) const;
    virtual float interpScalar(const TvoxelGrid& grid, const unsigned char* occupation, const T3dFltPoint& p,
                               const float* array) const;
    virtual const char* interpolatorName() const { return classInterpolatorName(); }
    static const char* classInterpolatorName() { return "none"; }

protected:
    // The sample of one kind; the base has none and reads 0.
    virtual double sample(const interp_detail::Space&, const double[3], int /*normalAxis*/,
                          const double[3]) const {
        return 0.0;
    }

private:
    int refs_ = 0;
};

// The kinds below are final, so a caller that knows the kind calls their
// inline forms without a virtual dispatch per sample.
#define TGRID_INTERPOLATOR_FORMS(SAMPLE)                                                                     \
    float interpScalar(const TvoxelGrid& grid, const unsigned char* occupation, const T3dFltPoint& p,        \
                       const float* array) const final {                                                     \
        double g[3];                                                                                         \
        interp_detail::gridSpace(grid, p.x, p.y, p.z, g);                                                    \
        const double fr[3] = {0, 0, 0};                                                                      \
        return float(SAMPLE(interp_detail::scalarSpace(grid, occupation, array, 3), g, -1, fr));             \
    }                                                                                                        \
    float interpScalar(const TvoxelGrid& grid, const unsigned char* occupation, const T2dFltPoint& p,        \
                       const float* array) const final {                                                     \
        double g[3];                                                                                         \
        interp_detail::gridSpace(grid, p.x, p.y, 0.0, g);                                                    \
        g[2] = 0;                                                                                            \
        const double fr[3] = {0, 0, 0};                                                                      \
        return float(SAMPLE(interp_detail::scalarSpace(grid, occupation, array, 2), g, -1, fr));             \
    }                                                                                                        \
    float interpVectorComponent(const TvoxelGrid& fluid, const unsigned char* occupation,                    \
                                const T3dFltPoint& p, const T3dFltVector& friction,                          \
                                const TbuffFloatFluidGrid& comp, const float* array) const final {           \
        const int axis = interp_detail::componentAxis(fluid, comp);                                          \
        if (axis < 0) return 0.0f;                                                                           \
        double g[3];                                                                                         \
        interp_detail::gridSpace(fluid, p.x, p.y, p.z, g);                                                   \
        g[axis] += 0.5;                                                                                      \
        const double fr[3] = {friction.x, friction.y, friction.z};                                           \
        interp_detail::Space s{{int(comp.nx), int(comp.ny), int(comp.nz)},                                   \
                               {comp.bounds[0], comp.bounds[1], comp.bounds[2]},                             \
                               {int(fluid.nx), int(fluid.ny), int(fluid.nz)},                                \
                               {fluid.bounds[0], fluid.bounds[1], fluid.bounds[2]},                          \
                               array ? array : comp.array(),                                                 \
                               occupation,                                                                   \
                               3};                                                                           \
        return float(SAMPLE(s, g, axis, fr));                                                                \
    }                                                                                                        \
    float interpVectorComponent(const TvoxelGrid& fluid, const unsigned char* occupation,                    \
                                const T2dFltPoint& p, const T2dFltVector& friction,                          \
                                const TbuffFloatFluidGrid& comp, const float* array) const final {           \
        const int axis = interp_detail::componentAxis(fluid, comp);                                          \
        if (axis < 0 || axis > 1) return 0.0f;                                                               \
        double g[3];                                                                                         \
        interp_detail::gridSpace(fluid, p.x, p.y, 0.0, g);                                                   \
        g[2] = 0;                                                                                            \
        g[axis] += 0.5;                                                                                      \
        const double fr[3] = {friction.x, friction.y, 0.0};                                                  \
        interp_detail::Space s{{int(comp.nx), int(comp.ny), 1},                                              \
                               {comp.bounds[0], comp.bounds[1], comp.bounds[2]},                             \
                               {int(fluid.nx), int(fluid.ny), 1},                                            \
                               {fluid.bounds[0], fluid.bounds[1], fluid.bounds[2]},                          \
                               array ? array : comp.array(),                                                 \
                               occupation,                                                                   \
                               2};                                                                           \
        return float(SAMPLE(s, g, axis, fr));                                                                \
    }

class TlinearGridInterpolator final : public TgridInterpolator {
public:
    static double kernel(const interp_detail::Space& s, const double g[3], int, const double*) {
        return interp_detail::linearSample(s, g);
    }
    TGRID_INTERPOLATOR_FORMS(kernel)
    const char* interpolatorName() const override { return classInterpolatorName(); }
    static const char* classInterpolatorName() { return "linear"; }
    static TgridInterpolator* creatorFunc() { return new TlinearGridInterpolator; }

protected:
    double sample(const interp_detail::Space& s, const double g[3], int a, const double f[3]) const override {
        return kernel(s, g, a, f);
    }
};

class TquadraticGridInterpolator final : public TgridInterpolator {
public:
    static double kernel(const interp_detail::Space& s, const double g[3], int, const double*) {
        return interp_detail::quadraticSample(s, g);
    }
    TGRID_INTERPOLATOR_FORMS(kernel)
    const char* interpolatorName() const override { return classInterpolatorName(); }
    static const char* classInterpolatorName() { return "quadratic"; }
    static TgridInterpolator* creatorFunc() { return new TquadraticGridInterpolator; }

protected:
    double sample(const interp_detail::Space& s, const double g[3], int a, const double f[3]) const override {
        return kernel(s, g, a, f);
    }
};

class ThermiteGridInterpolator final : public TgridInterpolator {
public:
    static double kernel(const interp_detail::Space& s, const double g[3], int axis, const double* fr) {
        return interp_detail::hermiteSample(s, g, axis, fr);
    }
    TGRID_INTERPOLATOR_FORMS(kernel)
    const char* interpolatorName() const override { return classInterpolatorName(); }
    static const char* classInterpolatorName() { return "hermite"; }
    static TgridInterpolator* creatorFunc() { return new ThermiteGridInterpolator; }

protected:
    double sample(const interp_detail::Space& s, const double g[3], int a, const double f[3]) const override {
        return kernel(s, g, a, f);
    }
};

class TbndLinearGridInterpolator final : public TgridInterpolator {
public:
    static double kernel(const interp_detail::Space& s, const double g[3], int axis, const double* fr) {
        return interp_detail::bndLinearSample(s, g, axis, fr);
    }
    TGRID_INTERPOLATOR_FORMS(kernel)
    const char* interpolatorName() const override { return classInterpolatorName(); }
    static const char* classInterpolatorName() { return "linear (w. bounds)"; }
    static TgridInterpolator* creatorFunc() { return new TbndLinearGridInterpolator; }

protected:
    double sample(const interp_detail::Space& s, const double g[3], int a, const double f[3]) const override {
        return kernel(s, g, a, f);
    }
};

// The solver's interpolator by attribute value: 2 "hermite", anything else linear.
TgridInterpolator* newGridInterpolator(int gridInterpolator);
// The render interpolator: 3 "smooth" is quadratic, anything else linear.
TgridInterpolator* newRenderInterpolator(int renderInterpolator);
