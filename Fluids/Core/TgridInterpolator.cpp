#include "Fluids/Core/TgridInterpolator.h"

namespace interp_detail {

double quadraticSample(const Space& s, const double g[3]) {
    // Offset by half a cell so the stencil n-1, n, n+1 centres on the nearest cell.
    const Split x = split(g[0] + 0.5), y = split(g[1] + 0.5);
    int ix[3], jy[3];
    for (int a = 0; a < 3; ++a) {
        ix[a] = s.bi(0, x.n - 1 + a);
        jy[a] = s.bi(1, y.n - 1 + a);
    }
    auto plane = [&](int k) {
        double col[3];
        for (int a = 0; a < 3; ++a)
            col[a] = quadratic(s.raw(ix[a], jy[0], k), s.raw(ix[a], jy[1], k), s.raw(ix[a], jy[2], k), y.t);
        return quadratic(col[0], col[1], col[2], x.t);
    };
    if (s.dims == 2) return 0.25 * plane(0);
    const Split z = split(g[2] + 0.5);
    return 0.125 * quadratic(plane(s.bi(2, z.n - 1)), plane(s.bi(2, z.n)), plane(s.bi(2, z.n + 1)), z.t);
}

double hermiteSample(const Space& s, const double g[3], int normalAxis, const double fr[3]) {
    const Split x = split(g[0]), y = split(g[1]);
    const Split z = s.dims == 3 ? split(g[2]) : Split{0, 0.0};
    const bool useOcc = s.occ != nullptr;
    // Rows of the later reductions look up occupation at the nearest sample.
    const int yNear = y.n + (y.t >= 0.5 ? 1 : 0);
    const int zNear = z.n + (z.t >= 0.5 ? 1 : 0);
    double col[6];
    double p[6]; // results of the y reductions, one per x sample
    double zs[6];
    bool occ[6];
    int ix[6], jy[6], kz[6];
    for (int a = 0; a < 6; ++a) {
        ix[a] = s.bi(0, x.n - 2 + a);
        jy[a] = s.bi(1, y.n - 2 + a);
        kz[a] = s.dims == 3 ? s.bi(2, z.n - 2 + a) : 0;
    }
    for (int a = 0; a < 6; ++a) {
        const int i = x.n - 2 + a;
        for (int b = 0; b < 6; ++b) {
            const int j = y.n - 2 + b;
            if (s.dims == 2) {
                col[b] = s.raw(ix[a], jy[b], 0);
                continue;
            }
            for (int c = 0; c < 6; ++c)
                zs[c] = s.raw(ix[a], jy[b], kz[c]);
            if (useOcc) {
                for (int c = 0; c < 6; ++c)
                    occ[c] = s.blocked(i, j, z.n - 2 + c);
                col[b] = interpRange(z.t, normalAxis == 2, occ, zs, fr[2]);
            } else {
                col[b] = interpRange(z.t, zs);
            }
        }
        if (useOcc) {
            for (int b = 0; b < 6; ++b)
                occ[b] = s.blocked(i, y.n - 2 + b, zNear);
            p[a] = interpRange(y.t, normalAxis == 1, occ, col, fr[1]);
        } else {
            p[a] = interpRange(y.t, col);
        }
    }
    if (useOcc) {
        for (int a = 0; a < 6; ++a)
            occ[a] = s.blocked(x.n - 2 + a, yNear, zNear);
        double q[6] = {p[0], p[1], p[2], p[3], p[4], p[5]};
        return interpRange(x.t, normalAxis == 0, occ, q, fr[0]);
    }
    return interpRange(x.t, p);
}

double bndLinearSample(const Space& s, const double g[3], int normalAxis, const double fr[3]) {
    if (!s.occ) return linearSample(s, g);
    const Split x = split(g[0]), y = split(g[1]);
    const Split z = s.dims == 3 ? split(g[2]) : Split{0, 0.0};
    const int iNear = x.n + (x.t >= 0.5 ? 1 : 0);
    const int jNear = y.n + (y.t >= 0.5 ? 1 : 0);
    auto step = [&](int axis, double t, bool oa, bool ob, double a, double b) {
        if (normalAxis >= 0 && axis != normalAxis) return bndLerpTangent(t, oa, ob, a, b, fr[axis]);
        bool flag = false;
        return bndLerp(t, oa, ob, a, b, flag);
    };
    auto plane = [&](int k) {
        const double a = step(1, y.t, s.blocked(x.n, y.n, k), s.blocked(x.n, y.n + 1, k), s.at(x.n, y.n, k),
                              s.at(x.n, y.n + 1, k));
        const double b = step(1, y.t, s.blocked(x.n + 1, y.n, k), s.blocked(x.n + 1, y.n + 1, k),
                              s.at(x.n + 1, y.n, k), s.at(x.n + 1, y.n + 1, k));
        return step(0, x.t, s.blocked(x.n, jNear, k), s.blocked(x.n + 1, jNear, k), a, b);
    };
    if (s.dims == 2) return plane(0);
    return step(2, z.t, s.blocked(iNear, jNear, z.n), s.blocked(iNear, jNear, z.n + 1), plane(z.n),
                plane(z.n + 1));
}

} // namespace interp_detail

using namespace interp_detail;

float TgridInterpolator::interpScalar(const TvoxelGrid& grid, const unsigned char* occupation,
                                      const T3dFltPoint& p, const float* array) const {
    double g[3];
    gridSpace(grid, p.x, p.y, p.z, g);
    const double fr[3] = {0, 0, 0};
    return float(sample(scalarSpace(grid, occupation, array, 3), g, -1, fr));
}

float TgridInterpolator::interpScalar(const TvoxelGrid& grid, const unsigned char* occupation,
                                      const T2dFltPoint& p, const float* array) const {
    double g[3];
    gridSpace(grid, p.x, p.y, 0.0, g);
    g[2] = 0;
    const double fr[3] = {0, 0, 0};
    return float(sample(scalarSpace(grid, occupation, array, 2), g, -1, fr));
}

float TgridInterpolator::interpVectorComponent(const TvoxelGrid& fluid, const unsigned char* occupation,
                                               const T3dFltPoint& p, const T3dFltVector& friction,
                                               const TbuffFloatFluidGrid& comp, const float* array) const {
    const int axis = componentAxis(fluid, comp);
    if (axis < 0) return 0.0f;
    double g[3];
    gridSpace(fluid, p.x, p.y, p.z, g);
    g[axis] += 0.5;
    const double fr[3] = {friction.x, friction.y, friction.z};
    Space s{{int(comp.nx), int(comp.ny), int(comp.nz)},
            {comp.bounds[0], comp.bounds[1], comp.bounds[2]},
            {int(fluid.nx), int(fluid.ny), int(fluid.nz)},
            {fluid.bounds[0], fluid.bounds[1], fluid.bounds[2]},
            array ? array : comp.array(),
            occupation,
            3};
    return float(sample(s, g, axis, fr));
}

float TgridInterpolator::interpVectorComponent(const TvoxelGrid& fluid, const unsigned char* occupation,
                                               const T2dFltPoint& p, const T2dFltVector& friction,
                                               const TbuffFloatFluidGrid& comp, const float* array) const {
    const int axis = componentAxis(fluid, comp);
    if (axis < 0 || axis > 1) return 0.0f;
    double g[3];
    gridSpace(fluid, p.x, p.y, 0.0, g);
    g[2] = 0;
    g[axis] += 0.5;
    const double fr[3] = {friction.x, friction.y, 0.0};
    Space s{{int(comp.nx), int(comp.ny), 1},
            {comp.bounds[0], comp.bounds[1], comp.bounds[2]},
            {int(fluid.nx), int(fluid.ny), 1},
            {fluid.bounds[0], fluid.bounds[1], fluid.bounds[2]},
            array ? array : comp.array(),
            occupation,
            2};
    return float(sample(s, g, axis, fr));
}

T4dFltVector TgridInterpolator::interpVector(const TvoxelGrid& grid, const unsigned char* occupation,
                                             const T3dFltPoint& p, const T3dFltVector& friction,
                                             const TbuffFloatFluidGrid& u, const TbuffFloatFluidGrid& v,
                                             const TbuffFloatFluidGrid& w, const float* au, const float* av,
                                             const float* aw) const {
    return {interpVectorComponent(grid, occupation, p, friction, u, au),
            interpVectorComponent(grid, occupation, p, friction, v, av),
            interpVectorComponent(grid, occupation, p, friction, w, aw)};
}

T4dFltVector TgridInterpolator::interpVector(const TvoxelGrid& grid, const unsigned char* occupation,
                                             const T2dFltPoint& p, const T2dFltVector& friction,
                                             const TbuffFloatFluidGrid& u, const TbuffFloatFluidGrid& v,
                                             const TbuffFloatFluidGrid&, const float* au, const float* av,
                                             const float*) const {
    return {interpVectorComponent(grid, occupation, p, friction, u, au),
            interpVectorComponent(grid, occupation, p, friction, v, av), 0.0f};
}

T2dFltPoint TgridInterpolator::interpPoint(const TvoxelGrid& grid, const unsigned char* occupation,
                                           const T2dFltPoint& p, const float* a0, const float* a1) const {
    return {interpScalar(grid, occupation, p, a0), interpScalar(grid, occupation, p, a1)};
}

T3dFltPoint TgridInterpolator::interpPoint(const TvoxelGrid& grid, const unsigned char* occupation,
                                           const T3dFltPoint& p, const float* a0, const float* a1,
                                           const float* a2) const {
    return {interpScalar(grid, occupation, p, a0), interpScalar(grid, occupation, p, a1),
            interpScalar(grid, occupation, p, a2)};
}

TgridInterpolator* newGridInterpolator(int gridInterpolator) {
    if (gridInterpolator == 2) return ThermiteGridInterpolator::creatorFunc();
    return TlinearGridInterpolator::creatorFunc();
}

TgridInterpolator* newRenderInterpolator(int renderInterpolator) {
    if (renderInterpolator == 3) return TquadraticGridInterpolator::creatorFunc();
    return TlinearGridInterpolator::creatorFunc();
}
