// Matrix-free operators, their diagonal preconditioners, and the conjugate-gradient routine.
#include <algorithm>
#include <cmath>
#include <vector>

#include "Fluids/Core/Tfluid.h"
#include "Fluids/Core/TfluidThreads.h"
#include "Fluids/Core/TnsGridSolver.h"

namespace {

// The all-Neumann pressure system is singular; scaling the outward neighbour
// on the border by this leak keeps it definite.
constexpr double kLeak = 0.96;

// Seven-point stencil over a grid of resolution r with bounds b:
//   y = [x] + (2x - xm - xp)*ix + (2x - ym - yp)*iy + (2x - zm - zp)*iz
// Leak scales the outward neighbour of a border cell; Ident adds x (diffusion);
// with occ (cells of the same resolution) a free cell reads its own value for a
// blocked neighbour, and a blocked cell gets y = x (Ident) or y = 0.
template <bool Leak, bool Ident>
void stencil3(const int r[3], const int b[3], const float* x, float* y, double ix, double iy, double iz,
              const unsigned char* occ, int kLo, int kHi) {
    const int X = r[0], Y = r[1], Z = r[2];
    for (int k = kLo; k < kHi; ++k) {
        const int km = boundedIndex(k - 1, Z, b[2]), kp = boundedIndex(k + 1, Z, b[2]);
        const double fzm = (Leak && k == 0) ? kLeak : 1.0;
        const double fzp = (Leak && k == Z - 1 && k != 0) ? kLeak : 1.0;
        for (int j = 0; j < Y; ++j) {
            const int jm = boundedIndex(j - 1, Y, b[1]), jp = boundedIndex(j + 1, Y, b[1]);
            const double fym = (Leak && j == 0) ? kLeak : 1.0;
            const double fyp = (Leak && j == Y - 1 && j != 0) ? kLeak : 1.0;
            const size_t row = size_t(X) * (size_t(j) + size_t(Y) * k);
            const size_t rJm = size_t(X) * (size_t(jm) + size_t(Y) * k),
                         rJp = size_t(X) * (size_t(jp) + size_t(Y) * k);
            const size_t rKm = size_t(X) * (size_t(j) + size_t(Y) * km),
                         rKp = size_t(X) * (size_t(j) + size_t(Y) * kp);
            auto one = [&](int i, int im, int ip, double fxm, double fxp) __attribute__((always_inline)) {
                const size_t c = row + size_t(i);
                const double xc = x[c];
                double xm = x[row + size_t(im)], xp = x[row + size_t(ip)];
                double ym = x[rJm + size_t(i)], yp = x[rJp + size_t(i)];
                double zm = x[rKm + size_t(i)], zp = x[rKp + size_t(i)];
                if (occ) {
                    if (occ[c]) {
                        y[c] = Ident ? x[c] : 0.0f;
                        return;
                    }
                    if (occ[row + size_t(im)]) xm = xc;
                    if (occ[row + size_t(ip)]) xp = xc;
                    if (occ[rJm + size_t(i)]) ym = xc;
                    if (occ[rJp + size_t(i)]) yp = xc;
                    if (occ[rKm + size_t(i)]) zm = xc;
                    if (occ[rKp + size_t(i)]) zp = xc;
                }
                xm *= fxm;
                xp *= fxp;
                ym *= fym;
                yp *= fyp;
                zm *= fzm;
                zp *= fzp;
                double v = Ident ? xc : 0.0;
                v += (2 * xc - xm - xp) * ix;
                v += (2 * xc - ym - yp) * iy;
                v += (2 * xc - zm - zp) * iz;
                y[c] = float(v);
            };
            const double fxm0 = Leak ? kLeak : 1.0;
            if (X == 1) {
                one(0, boundedIndex(-1, X, b[0]), boundedIndex(1, X, b[0]), fxm0, 1.0);
                continue;
            }
            one(0, boundedIndex(-1, X, b[0]), 1, fxm0, 1.0);
            for (int i = 1; i < X - 1; ++i)
                one(i, i - 1, i + 1, 1.0, 1.0);
            one(X - 1, X - 2, boundedIndex(X, X, b[0]), 1.0, Leak ? kLeak : 1.0);
        }
    }
}

template <bool Leak, bool Ident>
void stencil2(const int r[2], const int b[2], const float* x, float* y, double ix, double iy,
              const unsigned char* occ, int jLo, int jHi) {
    const int X = r[0], Y = r[1];
    for (int j = jLo; j < jHi; ++j) {
        const int jm = boundedIndex(j - 1, Y, b[1]), jp = boundedIndex(j + 1, Y, b[1]);
        const double fym = (Leak && j == 0) ? kLeak : 1.0;
        const double fyp = (Leak && j == Y - 1 && j != 0) ? kLeak : 1.0;
        const size_t row = size_t(X) * size_t(j), rJm = size_t(X) * size_t(jm), rJp = size_t(X) * size_t(jp);
        auto one = [&](int i, int im, int ip, double fxm, double fxp) __attribute__((always_inline)) {
            const size_t c = row + size_t(i);
            const double xc = x[c];
            double xm = x[row + size_t(im)], xp = x[row + size_t(ip)];
            double ym = x[rJm + size_t(i)], yp = x[rJp + size_t(i)];
            if (occ) {
                if (occ[c]) {
                    y[c] = Ident ? x[c] : 0.0f;
                    return;
                }
                if (occ[row + size_t(im)]) xm = xc;
                if (occ[row + size_t(ip)]) xp = xc;
                if (occ[rJm + size_t(i)]) ym = xc;
                if (occ[rJp + size_t(i)]) yp = xc;
            }
            xm *= fxm;
            xp *= fxp;
            ym *= fym;
            yp *= fyp;
            double v = Ident ? xc : 0.0;
            v += (2 * xc - xm - xp) * ix;
            v += (2 * xc - ym - yp) * iy;
            y[c] = float(v);
        };
        const double fxm0 = Leak ? kLeak : 1.0;
        if (X == 1) {
            one(0, boundedIndex(-1, X, b[0]), boundedIndex(1, X, b[0]), fxm0, 1.0);
            continue;
        }
        one(0, boundedIndex(-1, X, b[0]), 1, fxm0, 1.0);
        for (int i = 1; i < X - 1; ++i)
            one(i, i - 1, i + 1, 1.0, 1.0);
        one(X - 1, X - 2, boundedIndex(X, X, b[0]), 1.0, Leak ? kLeak : 1.0);
    }
}

// The stencil over the whole grid, its slabs (k planes, j rows in 2D) shared out
// among the threads: each output cell is written by exactly one of them.
template <bool Leak, bool Ident>
void stencil(const TvoxelGrid& g, const float* x, float* y, double ix, double iy, double iz,
             const unsigned char* occ, bool is2d) {
    if (is2d) {
        const int r[2] = {int(g.nx), int(g.ny)}, b[2] = {g.bounds[0], g.bounds[1]};
        TfluidThreads::forRange(g.ny, [&](size_t lo, size_t hi) {
            stencil2<Leak, Ident>(r, b, x, y, ix, iy, occ, int(lo), int(hi));
        });
    } else {
        const int r[3] = {int(g.nx), int(g.ny), int(g.nz)}, b[3] = {g.bounds[0], g.bounds[1], g.bounds[2]};
        TfluidThreads::forRange(g.nz, [&](size_t lo, size_t hi) {
            stencil3<Leak, Ident>(r, b, x, y, ix, iy, iz, occ, int(lo), int(hi));
        });
    }
}

// Cell-centred operator on a grid of the fluid's resolution.
template <bool Leak, bool Ident>
void cellOperator(Tfluid* f, TbuffFloatFluidGrid& g, float* x, float* y, float alpha, bool is2d) {
    float ix, iy, iz;
    TnsGridSolver::setIdInverse(g, alpha, ix, iy, iz);
    const unsigned char* occ = f ? f->occupation() : nullptr;
    if (occ && f->n != g.n) occ = nullptr;
    if (occ && !Ident) {
        // A blocked cell's iterate is cleared as well as its row.
        for (size_t c = 0; c < g.n; ++c)
            if (occ[c]) x[c] = 0.0f;
    }
    stencil<Leak, Ident>(g, x, y, ix, iy, iz, occ, is2d);
}

// Faces of a component blocked by an occupied cell on either side, or null for
// no occupation. The mask keeps its memory between calls.
const unsigned char* blockedFaces(Tfluid* f, const TbuffFloatFluidGrid& g, int axis,
                                  std::vector<unsigned char>& mask) {
    const unsigned char* occ = f ? f->occupation() : nullptr;
    if (!occ) return nullptr;
    mask.assign(g.n, 0);
    const int fx = int(f->nx), fy = int(f->ny), fz = int(f->nz);
    for (unsigned k = 0; k < g.nz; ++k)
        for (unsigned j = 0; j < g.ny; ++j)
            for (unsigned i = 0; i < g.nx; ++i) {
                auto cell = [&](int a, int b, int c) {
                    return occ[size_t(boundedIndex(a, fx, f->bounds[0])) +
                               size_t(fx) * (size_t(boundedIndex(b, fy, f->bounds[1])) +
                                             size_t(fy) * size_t(boundedIndex(c, fz, f->bounds[2])))] != 0;
                };
                const int i0 = int(i), j0 = int(j), k0 = fz > 1 ? int(k) : 0;
                const bool blocked =
                    cell(i0, j0, k0) || cell(i0 - (axis == 0), j0 - (axis == 1), k0 - (axis == 2 && fz > 1));
                mask[g.index(i, j, k)] = blocked ? 1 : 0;
            }
    return mask.data();
}

// Diffusion of one velocity component: blocked faces have y = 0 and x = 0.
void faceOperator(Tfluid* f, TbuffFloatFluidGrid& g, float* x, float* y, float alpha, int axis, bool is2d) {
    float ix, iy, iz;
    TnsGridSolver::setIdInverse(g, alpha, ix, iy, iz);
    // One mask per process, rebuilt per call; only fluids with obstacles pay for it.
    static std::vector<unsigned char> mask;
    const unsigned char* blocked = blockedFaces(f, g, axis, mask);
    if (blocked) {
        // Cleared first, so that neighbours read the cleared value whatever the order.
        for (size_t c = 0; c < g.n; ++c)
            if (blocked[c]) x[c] = 0.0f;
    }
    stencil<false, true>(g, x, y, ix, iy, iz, nullptr, is2d);
    if (blocked) {
        for (size_t c = 0; c < g.n; ++c)
            if (blocked[c]) y[c] = 0.0f;
    }
}

void constantPrecond(const TvoxelGrid& g, const float* r, float* z, double diag) {
    TfluidThreads::forRange(g.n, [&](size_t lo, size_t hi) {
        for (size_t c = lo; c < hi; ++c)
            z[c] = float(r[c] / diag);
    });
}

double diffDiagonal(const TvoxelGrid& g, float alpha, bool is2d) {
    float ix, iy, iz;
    TnsGridSolver::setIdInverse(g, 1.0f, ix, iy, iz);
    const double s = is2d ? double(ix) + iy : double(ix) + iy + iz;
    return std::max(1 + 2 * double(alpha) * s, 1e-5);
}

double poissonDiagonal(const TvoxelGrid& g, bool is2d) {
    float ix, iy, iz;
    TnsGridSolver::setIdInverse(g, 1.0f, ix, iy, iz);
    return 2 * (is2d ? double(ix) + iy : double(ix) + iy + iz);
}

// Dot product in double: fixed blocks, each with four partial sums, added in
// block order (the same sum for any thread count).
double dot(const float* a, const float* b, size_t n) {
    return TfluidThreads::sumBlocks(n, [&](size_t lo, size_t hi) {
        double s0 = 0, s1 = 0, s2 = 0, s3 = 0;
        size_t c = lo;
        for (; c + 4 <= hi; c += 4) {
            s0 += double(a[c]) * b[c];
            s1 += double(a[c + 1]) * b[c + 1];
            s2 += double(a[c + 2]) * b[c + 2];
            s3 += double(a[c + 3]) * b[c + 3];
        }
        for (; c < hi; ++c)
            s0 += double(a[c]) * b[c];
        return (s0 + s1) + (s2 + s3);
    });
}

} // namespace

void TnsGridSolver::setIdInverse(const TvoxelGrid& g, float alpha, float& ix, float& iy, float& iz) {
    const float d2[3] = {float(g.dx * g.dx), float(g.dy * g.dy), float(g.dz * g.dz)};
    ix = float(double(alpha) / double(std::max(d2[0], 1e-5f)));
    iy = float(double(alpha) / double(std::max(d2[1], 1e-5f)));
    iz = float(double(alpha) / double(std::max(d2[2], 1e-5f)));
}

void TnsGridSolver::diffScalMult2d(Tfluid* f, TbuffFloatFluidGrid& g, float x[], float y[], float a) {
    cellOperator<false, true>(f, g, x, y, a, true);
}
void TnsGridSolver::diffScalMult3d(Tfluid* f, TbuffFloatFluidGrid& g, float x[], float y[], float a) {
    cellOperator<false, true>(f, g, x, y, a, false);
}
void TnsGridSolver::poissonMult2d(Tfluid* f, TbuffFloatFluidGrid& g, float x[], float y[], float) {
    cellOperator<true, false>(f, g, x, y, 1.0f, true);
}
void TnsGridSolver::poissonMult3d(Tfluid* f, TbuffFloatFluidGrid& g, float x[], float y[], float) {
    cellOperator<true, false>(f, g, x, y, 1.0f, false);
}
void TnsGridSolver::diff_u_mult2d(Tfluid* f, TbuffFloatFluidGrid& g, float x[], float y[], float a) {
    faceOperator(f, g, x, y, a, 0, true);
}
void TnsGridSolver::diff_u_mult3d(Tfluid* f, TbuffFloatFluidGrid& g, float x[], float y[], float a) {
    faceOperator(f, g, x, y, a, 0, false);
}
void TnsGridSolver::diff_v_mult2d(Tfluid* f, TbuffFloatFluidGrid& g, float x[], float y[], float a) {
    faceOperator(f, g, x, y, a, 1, true);
}
void TnsGridSolver::diff_v_mult3d(Tfluid* f, TbuffFloatFluidGrid& g, float x[], float y[], float a) {
    faceOperator(f, g, x, y, a, 1, false);
}
void TnsGridSolver::diff_w_mult3d(Tfluid* f, TbuffFloatFluidGrid& g, float x[], float y[], float a) {
    faceOperator(f, g, x, y, a, 2, false);
}

void TnsGridSolver::diffScalPrecond2d(TbuffFloatFluidGrid& g, float r[], float z[], float a) {
    constantPrecond(g, r, z, diffDiagonal(g, a, true));
}
void TnsGridSolver::diffScalPrecond3d(TbuffFloatFluidGrid& g, float r[], float z[], float a) {
    constantPrecond(g, r, z, diffDiagonal(g, a, false));
}
void TnsGridSolver::poissonPrecond2d(TbuffFloatFluidGrid& g, float r[], float z[], float) {
    constantPrecond(g, r, z, poissonDiagonal(g, true));
}
void TnsGridSolver::poissonPrecond3d(TbuffFloatFluidGrid& g, float r[], float z[], float) {
    constantPrecond(g, r, z, poissonDiagonal(g, false));
}
void TnsGridSolver::diff_u_precond2d(TbuffFloatFluidGrid& g, float r[], float z[], float a) {
    diffScalPrecond2d(g, r, z, a);
}
void TnsGridSolver::diff_u_precond3d(TbuffFloatFluidGrid& g, float r[], float z[], float a) {
    diffScalPrecond3d(g, r, z, a);
}
void TnsGridSolver::diff_v_precond2d(TbuffFloatFluidGrid& g, float r[], float z[], float a) {
    diffScalPrecond2d(g, r, z, a);
}
void TnsGridSolver::diff_v_precond3d(TbuffFloatFluidGrid& g, float r[], float z[], float a) {
    diffScalPrecond3d(g, r, z, a);
}
void TnsGridSolver::diff_w_precond3d(TbuffFloatFluidGrid& g, float r[], float z[], float a) {
    diffScalPrecond3d(g, r, z, a);
}

bool TnsGridSolver::CGsolve(Tfluid* f, TbuffFloatFluidGrid& g, float alpha, MultFunc mult,
                            PrecondFunc precond, int maxIterations, float tolerance) {
    const size_t n = g.n;
    if (!g.allocated() || n == 0 || !g.prevArray()) return false;
    float* x = g.array();
    const float* b = g.prevArray();
    // Four vectors, their starts a few cache lines apart.
    const size_t pad = 64;
    float* base = TbuffFloatFluidGrid::work(4 * (n + pad));
    float* r = base;
    float* p = base + n + pad;
    float* z = base + 2 * (n + pad) + 16;
    float* q = base + 3 * (n + pad) + 32;

    double normb = std::sqrt(dot(b, b, n));
    if (normb == 0.0)
        normb = 1.0;
    else if (normb < 1e-5)
        normb = 1e-5;

    mult(f, g, x, q, alpha);
    TfluidThreads::forRange(n, [&](size_t lo, size_t hi) {
        for (size_t c = lo; c < hi; ++c)
            r[c] = float(double(b[c]) - q[c]);
    });
    double res = std::sqrt(dot(r, r, n)) / normb;
    if (res <= tolerance) return false;
    if (maxIterations < 1) return true;

    double rhoPrev = 0.0;
    for (int m = 0;; ++m) {
        precond(g, r, z, alpha);
        const double rho = dot(r, z, n);
        if (m == 0) {
            std::copy(z, z + n, p);
        } else {
            double beta;
            if (rhoPrev > 1e-5 || rhoPrev < -1e-5)
                beta = rho / rhoPrev;
            else
                beta = rhoPrev < 0 ? -rho * 100000 : rho * 100000;
            TfluidThreads::forRange(n, [&](size_t lo, size_t hi) {
                for (size_t c = lo; c < hi; ++c)
                    p[c] = float(z[c] + beta * p[c]);
            });
        }
        mult(f, g, p, q, alpha);
        const double pq = dot(p, q, n);
        double a;
        // One-sided on purpose: a large negative pq takes the substitute too.
        if (pq > 1e-5)
            a = rho / pq;
        else
            a = pq < 0 ? -rho * 100000 : rho * 100000;
        TfluidThreads::forRange(n, [&](size_t lo, size_t hi) {
            for (size_t c = lo; c < hi; ++c) {
                x[c] = float(x[c] + a * p[c]);
                r[c] = float(r[c] - a * q[c]);
            }
        });
        res = std::sqrt(dot(r, r, n)) / normb;
        rhoPrev = rho;
        if (res <= tolerance) break;
        if (m + 1 >= maxIterations) break;
    }
    return true;
}
