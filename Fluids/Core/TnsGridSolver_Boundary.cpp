// Walls and obstacles, pressure projection, vorticity confinement, damping and
// the filling of blocked cells.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "Fluids/Core/Tfluid.h"
#include "Fluids/Core/TfluidThreads.h"
#include "Fluids/Core/TnsGridSolver.h"

namespace {

// A face array with its resolution, reached by (i,j,k) with or without bounds.
struct Faces {
    float* a;
    int r[3];
    int b[3];
    size_t idx(int i, int j, int k) const {
        return size_t(i) + size_t(r[0]) * (size_t(j) + size_t(r[1]) * size_t(k));
    }
    float& operator()(int i, int j, int k) const { return a[idx(i, j, k)]; }
    bool inside(int i, int j, int k) const {
        return i >= 0 && j >= 0 && k >= 0 && i < r[0] && j < r[1] && k < r[2];
    }
    // Bounded read, wrapped or clamped per axis.
    double at(int i, int j, int k) const {
        return a[idx(boundedIndex(i, r[0], b[0]), boundedIndex(j, r[1], b[1]), boundedIndex(k, r[2], b[2]))];
    }
    void scale(int i, int j, int k, double s) const {
        if (inside(i, j, k)) {
            float& v = a[idx(i, j, k)];
            v = float(v * s);
        }
    }
    void zero(int i, int j, int k) const {
        if (inside(i, j, k)) a[idx(i, j, k)] = 0.0f;
    }
};

Faces faces(TbuffFloatFluidGrid& g, bool prev = false) {
    return {prev ? g.prevArray() : g.array(),
            {int(g.nx), int(g.ny), int(g.nz)},
            {g.bounds[0], g.bounds[1], g.bounds[2]}};
}

// Voxel sizes below 1e-5 in magnitude count as 1e-5.
float guardSize(double d) {
    const float f = float(d);
    return (f > -1e-5f && f < 1e-5f) ? 1e-5f : f;
}

bool cellBlocked(const Tfluid& f, const unsigned char* occ, int i, int j, int k) {
    const size_t c = size_t(boundedIndex(i, int(f.nx), f.bounds[0])) +
                     size_t(f.nx) * (size_t(boundedIndex(j, int(f.ny), f.bounds[1])) +
                                     size_t(f.ny) * size_t(boundedIndex(k, int(f.nz), f.bounds[2])));
    return occ[c] != 0;
}

bool velocityReady(TvelocityGrid& v) {
    return v.usesGrid() && v.allocated();
}

// Pressure correction of one component along its own axis, then its outer planes by the bound.
void correctAxis(const Tfluid& f, const unsigned char* occ, const Faces& U, const float* p, int axis,
                 double d, int nCells, int bound, bool is2d) {
    const int R0 = U.r[0], R1 = U.r[1], R2 = is2d ? 1 : U.r[2];
    const double g = -1.0 / d;
    const bool wrap = bound == kBoundWrapping;
    const int first = wrap ? 0 : 1, last = wrap ? nCells : nCells - 1;
    const int pr[3] = {int(f.nx), int(f.ny), is2d ? 1 : int(f.nz)};
    auto pAt = [&](int i, int j, int k) {
        return double(p[size_t(i) + size_t(pr[0]) * (size_t(j) + size_t(pr[1]) * size_t(k))]);
    };
    // Each face reads pressures and writes itself only: rows (j, k) go to the threads.
    TfluidThreads::forRange(size_t(R1) * size_t(R2), [&](size_t rowLo, size_t rowHi) {
        for (size_t row = rowLo; row < rowHi; ++row) {
            const int j = int(row % size_t(R1)), k = int(row / size_t(R1));
            for (int i = 0; i < R0; ++i) {
                const int s = axis == 0 ? i : (axis == 1 ? j : k);
                if (s < first || s > last) continue;
                int lo[3] = {i, j, k}, hi[3] = {i, j, k};
                lo[axis] = boundedIndex(s - 1, nCells, bound);
                hi[axis] = boundedIndex(s, nCells, bound);
                if (occ) {
                    int l[3] = {i, j, k};
                    l[axis] = s - 1;
                    if (cellBlocked(f, occ, i, j, is2d ? 0 : k) ||
                        cellBlocked(f, occ, l[0], l[1], is2d ? 0 : l[2])) {
                        U(i, j, k) = 0.0f;
                        continue;
                    }
                }
                float& u = U(i, j, k);
                u = float(u + (pAt(hi[0], hi[1], hi[2]) - pAt(lo[0], lo[1], lo[2])) * g);
            }
        }
    });
    if (wrap) return;
    for (int k = 0; k < (axis == 2 ? 1 : R2); ++k)
        for (int j = 0; j < (axis == 1 ? 1 : R1); ++j)
            for (int i = 0; i < (axis == 0 ? 1 : R0); ++i) {
                int a0[3] = {i, j, k}, a1[3] = {i, j, k}, b0[3] = {i, j, k}, b1[3] = {i, j, k};
                a1[axis] = 1;
                b0[axis] = nCells;
                b1[axis] = nCells - 1;
                float& low = U(a0[0], a0[1], a0[2]);
                float& high = U(b0[0], b0[1], b0[2]);
                // An open side copies the interior so that flow passes freely.
                switch (bound) {
                case kBoundNone:
                    low = U(a1[0], a1[1], a1[2]);
                    high = U(b1[0], b1[1], b1[2]);
                    break;
                case kBoundBoth:
                    low = 0.0f;
                    high = 0.0f;
                    break;
                case kBoundLow:
                    low = 0.0f;
                    high = U(b1[0], b1[1], b1[2]);
                    break;
                case kBoundHigh:
                    low = U(a1[0], a1[1], a1[2]);
                    high = 0.0f;
                    break;
                default:
                    break;
                }
            }
}

template <bool Is2d> void projectT(Tfluid& f, TvelocityGrid& vel) {
    if (!velocityReady(vel)) return;
    const float dx = guardSize(vel.dx), dy = guardSize(vel.dy), dz = guardSize(vel.dz);
    const Faces U = faces(vel.gridU()), V = faces(vel.gridV()), W = faces(vel.gridW());
    TbuffFloatFluidGrid& P = vel.pressureGrid();
    float* rhs = P.prevArray();
    float* p = P.array();
    const unsigned char* occ = f.occupation();
    const int X = int(f.nx), Y = int(f.ny), Z = Is2d ? 1 : int(f.nz);
    TfluidThreads::forRange(size_t(Y) * size_t(Z), [&](size_t rowLo, size_t rowHi) {
        for (size_t row = rowLo; row < rowHi; ++row) {
            const int j = int(row % size_t(Y)), k = int(row / size_t(Y));
            for (int i = 0; i < X; ++i) {
                const size_t c = size_t(i) + size_t(X) * (size_t(j) + size_t(Y) * k);
                double div =
                    (double(U(i + 1, j, k)) - U(i, j, k)) / dx + (double(V(i, j + 1, k)) - V(i, j, k)) / dy;
                if (!Is2d) div += (double(W(i, j, k + 1)) - W(i, j, k)) / dz;
                rhs[c] = (occ && occ[c]) ? 0.0f : float(-div);
                p[c] = 0.0f;
            }
        }
    });
    if (Is2d)
        TnsGridSolver::CGsolve(&f, P, 0.0f, TnsGridSolver::poissonMult2d, TnsGridSolver::poissonPrecond2d, 20,
                               1e-6f);
    else
        TnsGridSolver::CGsolve(&f, P, 0.0f, TnsGridSolver::poissonMult3d, TnsGridSolver::poissonPrecond3d, 20,
                               1e-6f);
    correctAxis(f, occ, U, p, 0, dx, X, vel.bounds[0], Is2d);
    correctAxis(f, occ, V, p, 1, dy, Y, vel.bounds[1], Is2d);
    if (!Is2d) correctAxis(f, occ, W, p, 2, dz, Z, vel.bounds[2], Is2d);
}

} // namespace

// ---- Walls and obstacles ----

void TnsGridSolver::clearBoundaryVelocities3d(Tfluid& f, TvelocityGrid& vel, float friction) {
    if (!velocityReady(vel)) return;
    const bool active = friction > 1e-5f;
    const double s = 1.0 - double(friction);
    const Faces U = faces(vel.gridU()), V = faces(vel.gridV()), W = faces(vel.gridW());
    const int X = int(vel.nx), Y = int(vel.ny), Z = int(vel.nz);
    const int bx = vel.bounds[0], by = vel.bounds[1], bz = vel.bounds[2];
    auto lowWall = [](int b) { return b == kBoundBoth || b == kBoundLow; };
    auto highWall = [](int b) { return b == kBoundBoth || b == kBoundHigh; };
    // x walls: U normal, V and W tangential in the layer next to the wall.
    for (int side = 0; side < 2; ++side) {
        if (!(side == 0 ? lowWall(bx) : highWall(bx))) continue;
        const int nf = side == 0 ? 0 : X, layer = side == 0 ? 0 : X - 1;
        for (int k = 0; k < Z; ++k)
            for (int j = 0; j < Y; ++j)
                U(nf, j, k) = 0.0f;
        if (!active) continue;
        for (int k = 0; k < Z; ++k)
            for (int j = 0; j <= Y; ++j)
                V.scale(layer, j, k, s);
        for (int k = 0; k <= Z; ++k)
            for (int j = 0; j < Y; ++j)
                W.scale(layer, j, k, s);
    }
    for (int side = 0; side < 2; ++side) {
        if (!(side == 0 ? lowWall(by) : highWall(by))) continue;
        const int nf = side == 0 ? 0 : Y, layer = side == 0 ? 0 : Y - 1;
        for (int k = 0; k < Z; ++k)
            for (int i = 0; i < X; ++i)
                V(i, nf, k) = 0.0f;
        if (!active) continue;
        for (int k = 0; k < Z; ++k)
            for (int i = 0; i <= X; ++i)
                U.scale(i, layer, k, s);
        for (int k = 0; k <= Z; ++k)
            for (int i = 0; i < X; ++i)
                W.scale(i, layer, k, s);
    }
    for (int side = 0; side < 2; ++side) {
        if (!(side == 0 ? lowWall(bz) : highWall(bz))) continue;
        const int nf = side == 0 ? 0 : Z, layer = side == 0 ? 0 : Z - 1;
        for (int j = 0; j < Y; ++j)
            for (int i = 0; i < X; ++i)
                W(i, j, nf) = 0.0f;
        if (!active) continue;
        for (int j = 0; j < Y; ++j)
            for (int i = 0; i <= X; ++i)
                U.scale(i, j, layer, s);
        for (int j = 0; j <= Y; ++j)
            for (int i = 0; i < X; ++i)
                V.scale(i, j, layer, s);
    }
    const unsigned char* occ = f.occupation();
    if (!occ || f.n != vel.n) return;
    const double o = 1.0 - double(friction) * friction;
    // Writes that would leave a grid are dropped; the interior is the same either way.
    for (int k = 0; k < Z; ++k)
        for (int j = 0; j < Y; ++j)
            for (int i = 0; i < X; ++i) {
                if (!occ[vel.index(unsigned(i), unsigned(j), unsigned(k))]) continue;
                U(i, j, k) = U(i + 1, j, k) = 0.0f;
                V(i, j, k) = V(i, j + 1, k) = 0.0f;
                W(i, j, k) = W(i, j, k + 1) = 0.0f;
                if (!active) continue;
                for (int d = 0; d < 2; ++d) {
                    U.scale(i + d, j + 1, k, o);
                    U.scale(i + d, j - 1, k, o);
                    U.scale(i + d, j, k - 1, o);
                    U.scale(i + d, j, k + 1, o);
                    V.scale(i + 1, j + d, k, o);
                    V.scale(i - 1, j + d, k, o);
                    V.scale(i, j + d, k - 1, o);
                    V.scale(i, j + d, k + 1, o);
                    W.scale(i + 1, j, k + d, o);
                    W.scale(i - 1, j, k + d, o);
                    W.scale(i, j + 1, k + d, o);
                    W.scale(i, j - 1, k + d, o);
                }
            }
}

void TnsGridSolver::clearBoundaryVelocities2d(Tfluid& f, TvelocityGrid& vel, float friction) {
    if (!velocityReady(vel)) return;
    const bool active = friction > 1e-5f;
    const double s = 1.0 - double(friction);
    const Faces U = faces(vel.gridU()), V = faces(vel.gridV());
    const int X = int(vel.nx), Y = int(vel.ny);
    const int bx = vel.bounds[0], by = vel.bounds[1];
    auto lowWall = [](int b) { return b == kBoundBoth || b == kBoundLow; };
    auto highWall = [](int b) { return b == kBoundBoth || b == kBoundHigh; };
    for (int side = 0; side < 2; ++side) {
        if (!(side == 0 ? lowWall(bx) : highWall(bx))) continue;
        const int nf = side == 0 ? 0 : X, layer = side == 0 ? 0 : X - 1;
        for (int j = 0; j < Y; ++j)
            U(nf, j, 0) = 0.0f;
        if (active)
            for (int j = 0; j <= Y; ++j)
                V.scale(layer, j, 0, s);
    }
    for (int side = 0; side < 2; ++side) {
        if (!(side == 0 ? lowWall(by) : highWall(by))) continue;
        const int nf = side == 0 ? 0 : Y, layer = side == 0 ? 0 : Y - 1;
        for (int i = 0; i < X; ++i)
            V(i, nf, 0) = 0.0f;
        if (active)
            for (int i = 0; i <= X; ++i)
                U.scale(i, layer, 0, s);
    }
    const unsigned char* occ = f.occupation();
    if (!occ || f.n != vel.n) return;
    const double o = 1.0 - double(friction) * friction;
    for (int j = 0; j < Y; ++j)
        for (int i = 0; i < X; ++i) {
            if (!occ[size_t(i) + size_t(X) * j]) continue;
            U(i, j, 0) = U(i + 1, j, 0) = 0.0f;
            V(i, j, 0) = V(i, j + 1, 0) = 0.0f;
            if (!active) continue;
            for (int d = 0; d < 2; ++d) {
                U.scale(i + d, j + 1, 0, o);
                U.scale(i + d, j - 1, 0, o);
                V.scale(i + 1, j + d, 0, o);
                V.scale(i - 1, j + d, 0, o);
            }
        }
}

// ---- Projection ----

void TnsGridSolver::project3d(Tfluid& f, TvelocityGrid& vel, double) {
    projectT<false>(f, vel);
}

void TnsGridSolver::project2d(Tfluid& f, TvelocityGrid& vel, double) {
    projectT<true>(f, vel);
}

// ---- Vorticity confinement ----
//
// The vorticity is not the textbook curl: of each pair of differences, the one
// across the component's own axis is taken between the cell's two faces
// (hi - lo) rather than averaged. The look of the swirl depends on it.

void TnsGridSolver::confine3d(Tfluid& f, TvelocityGrid& vel, float swirl, float dt) {
    if (!velocityReady(vel)) return;
    const double dx = guardSize(vel.dx), dy = guardSize(vel.dy), dz = guardSize(vel.dz);
    const Faces U = faces(vel.gridU()), V = faces(vel.gridV()), W = faces(vel.gridW());
    const int X = int(vel.nx), Y = int(vel.ny), Z = int(vel.nz);
    const size_t n = vel.n;
    float* wx = TbuffFloatFluidGrid::work(4 * n);
    float* wy = wx + n;
    float* wz = wy + n;
    float* wl = wz + n;
    const unsigned char* occ = f.occupation();
    if (occ && f.n != n) occ = nullptr;
    // Vorticity and then its force write one cell each: planes go to the threads.
    // The last pass adds each force to two faces, in cell order, so it stays on one.
    TfluidThreads::forRange(size_t(Z), [&](size_t kLo, size_t kHi) {
        for (int k = int(kLo); k < int(kHi); ++k)
            for (int j = 0; j < Y; ++j)
                for (int i = 0; i < X; ++i) {
                    const size_t c = vel.index(unsigned(i), unsigned(j), unsigned(k));
                    if (occ && occ[c]) {
                        wx[c] = wy[c] = wz[c] = wl[c] = 0.0f;
                        continue;
                    }
                    const double dWy_lo = (W.at(i, j + 1, k) - W.at(i, j - 1, k)) / (2 * dy);
                    const double dWy_hi = (W.at(i, j + 1, k + 1) - W.at(i, j - 1, k + 1)) / (2 * dy);
                    const double dVz_lo = (V.at(i, j, k + 1) - V.at(i, j, k - 1)) / (2 * dz);
                    const double dVz_hi = (V.at(i, j + 1, k + 1) - V.at(i, j + 1, k - 1)) / (2 * dz);
                    const double dUz_lo = (U.at(i, j, k + 1) - U.at(i, j, k - 1)) / (2 * dz);
                    const double dUz_hi = (U.at(i + 1, j, k + 1) - U.at(i + 1, j, k - 1)) / (2 * dz);
                    const double dWx_lo = (W.at(i + 1, j, k) - W.at(i - 1, j, k)) / (2 * dx);
                    const double dWx_hi = (W.at(i + 1, j, k + 1) - W.at(i - 1, j, k + 1)) / (2 * dx);
                    const double dVx_lo = (V.at(i + 1, j, k) - V.at(i - 1, j, k)) / (2 * dx);
                    const double dVx_hi = (V.at(i + 1, j + 1, k) - V.at(i - 1, j + 1, k)) / (2 * dx);
                    const double dUy_lo = (U.at(i, j + 1, k) - U.at(i, j - 1, k)) / (2 * dy);
                    const double dUy_hi = (U.at(i + 1, j + 1, k) - U.at(i + 1, j - 1, k)) / (2 * dy);
                    const double ax = 0.5 * (dWy_lo + dWy_hi + dVz_hi - dVz_lo);
                    const double ay = 0.5 * (dUz_lo + dUz_hi + dWx_hi - dWx_lo);
                    const double az = 0.5 * (dVx_lo + dVx_hi + dUy_hi - dUy_lo);
                    wx[c] = float(ax);
                    wy[c] = float(ay);
                    wz[c] = float(az);
                    wl[c] = float(std::sqrt(ax * ax + ay * ay + az * az));
                }
    });
    float* Fx = vel.prevArrayU();
    float* Fy = vel.prevArrayV();
    float* Fz = vel.prevArrayW();
    auto L = [&](int i, int j, int k) {
        return double(wl[size_t(boundedIndex(i, X, vel.bounds[0])) +
                         size_t(X) * (size_t(boundedIndex(j, Y, vel.bounds[1])) +
                                      size_t(Y) * size_t(boundedIndex(k, Z, vel.bounds[2])))]);
    };
    TfluidThreads::forRange(size_t(Z), [&](size_t kLo, size_t kHi) {
        for (int k = int(kLo); k < int(kHi); ++k)
            for (int j = 0; j < Y; ++j)
                for (int i = 0; i < X; ++i) {
                    const size_t c = vel.index(unsigned(i), unsigned(j), unsigned(k));
                    Fx[c] = Fy[c] = Fz[c] = 0.0f;
                    if (occ && occ[c]) continue;
                    double N[3] = {(L(i + 1, j, k) - L(i - 1, j, k)) / (2 * dx),
                                   (L(i, j + 1, k) - L(i, j - 1, k)) / (2 * dy),
                                   (L(i, j, k + 1) - L(i, j, k - 1)) / (2 * dz)};
                    const double len = std::sqrt(N[0] * N[0] + N[1] * N[1] + N[2] * N[2]);
                    if (len < 1e-5) continue;
                    for (double& a : N)
                        a /= len;
                    const double ax = wx[c], ay = wy[c], az = wz[c];
                    Fx[c] = float((N[1] * az - N[2] * ay) * dx * swirl);
                    Fy[c] = float((N[2] * ax - N[0] * az) * dy * swirl);
                    Fz[c] = float((N[0] * ay - N[1] * ax) * dz * swirl);
                }
    });
    const double h = 0.5 * double(dt);
    for (int k = 0; k < Z; ++k)
        for (int j = 0; j < Y; ++j)
            for (int i = 0; i < X; ++i) {
                const size_t c = vel.index(unsigned(i), unsigned(j), unsigned(k));
                if (occ && occ[c]) continue;
                U(i, j, k) = float(U(i, j, k) + h * Fx[c]);
                U(i + 1, j, k) = float(U(i + 1, j, k) + h * Fx[c]);
                V(i, j, k) = float(V(i, j, k) + h * Fy[c]);
                V(i, j + 1, k) = float(V(i, j + 1, k) + h * Fy[c]);
                W(i, j, k) = float(W(i, j, k) + h * Fz[c]);
                W(i, j, k + 1) = float(W(i, j, k + 1) + h * Fz[c]);
            }
}

void TnsGridSolver::confine2d(Tfluid& f, TvelocityGrid& vel, float swirl, float dt) {
    if (!velocityReady(vel)) return;
    const double dx = guardSize(vel.dx), dy = guardSize(vel.dy);
    const Faces U = faces(vel.gridU()), V = faces(vel.gridV());
    const int X = int(vel.nx), Y = int(vel.ny);
    const size_t n = size_t(X) * Y;
    float* wz = TbuffFloatFluidGrid::work(2 * n);
    float* wl = wz + n;
    const unsigned char* occ = f.occupation();
    if (occ && f.n != n) occ = nullptr;
    for (int j = 0; j < Y; ++j)
        for (int i = 0; i < X; ++i) {
            const size_t c = size_t(i) + size_t(X) * j;
            if (occ && occ[c]) {
                wz[c] = wl[c] = 0.0f;
                continue;
            }
            const double dVx_lo = (V.at(i + 1, j, 0) - V.at(i - 1, j, 0)) / (2 * dx);
            const double dVx_hi = (V.at(i + 1, j + 1, 0) - V.at(i - 1, j + 1, 0)) / (2 * dx);
            const double dUy_lo = (U.at(i, j + 1, 0) - U.at(i, j - 1, 0)) / (2 * dy);
            const double dUy_hi = (U.at(i + 1, j + 1, 0) - U.at(i + 1, j - 1, 0)) / (2 * dy);
            const double az = 0.5 * (dVx_lo + dVx_hi + dUy_hi - dUy_lo);
            wz[c] = float(az);
            wl[c] = float(std::fabs(az));
        }
    float* Fx = vel.prevArrayU();
    float* Fy = vel.prevArrayV();
    auto L = [&](int i, int j) {
        return double(wl[size_t(boundedIndex(i, X, vel.bounds[0])) +
                         size_t(X) * size_t(boundedIndex(j, Y, vel.bounds[1]))]);
    };
    for (int j = 0; j < Y; ++j)
        for (int i = 0; i < X; ++i) {
            const size_t c = size_t(i) + size_t(X) * j;
            Fx[c] = Fy[c] = 0.0f;
            if (occ && occ[c]) continue;
            double N[2] = {(L(i + 1, j) - L(i - 1, j)) / (2 * dx), (L(i, j + 1) - L(i, j - 1)) / (2 * dy)};
            const double len = std::sqrt(N[0] * N[0] + N[1] * N[1]);
            if (len < 1e-5) continue;
            N[0] /= len;
            N[1] /= len;
            Fx[c] = float(N[1] * wz[c] * dx * swirl);
            Fy[c] = float(-N[0] * wz[c] * dy * swirl);
        }
    const double h = 0.5 * double(dt);
    for (int j = 0; j < Y; ++j)
        for (int i = 0; i < X; ++i) {
            const size_t c = size_t(i) + size_t(X) * j;
            if (occ && occ[c]) continue;
            U(i, j, 0) = float(U(i, j, 0) + h * Fx[c]);
            U(i + 1, j, 0) = float(U(i + 1, j, 0) + h * Fx[c]);
            V(i, j, 0) = float(V(i, j, 0) + h * Fy[c]);
            V(i, j + 1, 0) = float(V(i, j + 1, 0) + h * Fy[c]);
        }
}

// ---- Damping: per step, independent of dt ----

void TnsGridSolver::applyDamp3d(TvelocityGrid& vel, float damp, float) {
    if (!velocityReady(vel) || damp == 0.0f) return;
    const double f = std::max(1.0 - double(damp), 0.0);
    for (TbuffFloatFluidGrid* g : {&vel.gridU(), &vel.gridV(), &vel.gridW()}) {
        float* a = g->array();
        for (size_t c = 0; c < g->n; ++c)
            a[c] = float(a[c] * f);
    }
}

void TnsGridSolver::applyDamp2d(TvelocityGrid& vel, float damp, float) {
    if (!velocityReady(vel) || damp == 0.0f) return;
    const double f = std::max(1.0 - double(damp), 0.0);
    for (TbuffFloatFluidGrid* g : {&vel.gridU(), &vel.gridV()}) {
        float* a = g->array();
        for (size_t c = 0; c < g->n; ++c)
            a[c] = float(a[c] * f);
    }
}

// ---- Filling blocked cells so that shading stays smooth against obstacles ----

void TnsGridSolver::blendOccupationVoxels2d(TbuffFloatFluidGrid& g, const unsigned char* occ) {
    if (!g.allocated() || !occ) return;
    const int X = int(g.nx), Y = int(g.ny);
    const size_t n = size_t(X) * Y;
    float* copy = TbuffFloatFluidGrid::work(n);
    float* a = g.array();
    std::memcpy(copy, a, n * sizeof(float));
    for (int j = 1; j <= Y - 2; ++j)
        for (int i = 1; i <= X - 2; ++i) {
            const size_t c = size_t(i) + size_t(X) * j;
            if (!occ[c]) continue;
            double s = 0;
            for (int b = -1; b <= 1; ++b)
                for (int d = -1; d <= 1; ++d)
                    s += copy[size_t(i + d) + size_t(X) * (j + b)];
            a[c] = float(s / 9);
        }
}

void TnsGridSolver::blendOccupationVoxels3d(TbuffFloatFluidGrid& g, const unsigned char* occ) {
    if (!g.allocated() || !occ) return;
    const int X = int(g.nx), Y = int(g.ny), Z = int(g.nz);
    float* a = g.array();
    for (int k = 1; k <= Z - 2; ++k)
        for (int j = 1; j <= Y - 2; ++j)
            for (int i = 1; i <= X - 2; ++i) {
                const size_t c = g.index(unsigned(i), unsigned(j), unsigned(k));
                if (!occ[c]) continue;
                double s = 0;
                for (int e = -1; e <= 1; ++e)
                    for (int b = -1; b <= 1; ++b)
                        for (int d = -1; d <= 1; ++d) {
                            const size_t o = g.index(unsigned(i + d), unsigned(j + b), unsigned(k + e));
                            if (!occ[o]) s += a[o];
                        }
                // The divisor stays 27 however many neighbours were skipped.
                a[c] = float(s / 27);
            }
}
