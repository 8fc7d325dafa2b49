// The step, the scalar and velocity solves, and semi-Lagrangian transport.
#include "Fluids/Core/TnsGridSolver.h"
#include "Fluids/Core/TfluidThreads.h"

#include <algorithm>
#include <cmath>

#include "Fluids/Core/Tfluid.h"
#include "Fluids/Core/TgridInterpolator.h"

namespace {

// Calls f with the interpolator as its most derived known kind, so that the
// per-cell samples inside f are direct (inlinable) calls.
template <class F> void withKind(const TgridInterpolator* in, F&& f) {
    if (auto* a = dynamic_cast<const TlinearGridInterpolator*>(in))
        f(*a);
    else if (auto* b = dynamic_cast<const ThermiteGridInterpolator*>(in))
        f(*b);
    else if (auto* c = dynamic_cast<const TquadraticGridInterpolator*>(in))
        f(*c);
    else if (auto* d = dynamic_cast<const TbndLinearGridInterpolator*>(in))
        f(*d);
    else
        f(*in);
}

// The kinds known here expose their sampling kernel: the three components
// then share one conversion of the point to grid space, with the same
// arithmetic as interpVectorComponent.
template <class I> constexpr bool hasKernel = requires(const interp_detail::Space& s, const double* g) {
    I::kernel(s, g, 0, g);
};

// Traces a point back (or forward) through the velocity field with a midpoint
// step. Made once per sweep: what does not change from cell to cell (the
// sampled spaces, the friction) is worked out here, not per sample.
template <class I> class Tracer3 {
public:
    Tracer3(const I& in, const Tfluid& f, const TvelocityGrid& vel, float fr, bool prev)
        : fIn(in), fFluid(f), fVel(vel), fOcc(f.occupation()), fFriction(fr, fr, fr), fPrev(prev),
          fGrid(vel.usesGrid()) {
        const TbuffFloatFluidGrid &U = vel.gridU(), &V = vel.gridV(), &W = vel.gridW();
        fSpace[0] = interp_detail::componentSpace(f, fOcc, U, prev ? U.prevArray() : U.array(), 3);
        fSpace[1] = interp_detail::componentSpace(f, fOcc, V, prev ? V.prevArray() : V.array(), 3);
        fSpace[2] = interp_detail::componentSpace(f, fOcc, W, prev ? W.prevArray() : W.array(), 3);
        for (double& r : fFrs)
            r = fr;
    }

    T3dFltPoint operator()(const T3dFltPoint& p, double dt) const {
        double v1[3], v2[3];
        velocityAt(p, v1);
        const T3dFltPoint m(float(p.x + 0.5 * dt * v1[0]), float(p.y + 0.5 * dt * v1[1]),
                            float(p.z + 0.5 * dt * v1[2]));
        velocityAt(m, v2);
        return {float(p.x + dt * v2[0]), float(p.y + dt * v2[1]), float(p.z + dt * v2[2])};
    }

private:
    void velocityAt(const T3dFltPoint& q, double out[3]) const {
        if constexpr (hasKernel<I>) {
            if (fGrid) {
                double g[3];
                interp_detail::gridSpace(fFluid, q.x, q.y, q.z, g);
                for (int a = 0; a < 3; ++a) {
                    double ga[3] = {g[0], g[1], g[2]};
                    ga[a] += 0.5;
                    out[a] = double(float(I::kernel(fSpace[a], ga, a, fFrs))) * fVel.velocityScale[a];
                }
                return;
            }
        }
        if (fGrid) {
            const TbuffFloatFluidGrid &U = fVel.gridU(), &V = fVel.gridV(), &W = fVel.gridW();
            out[0] = double(fIn.interpVectorComponent(fFluid, fOcc, q, fFriction, U,
                                                      fPrev ? U.prevArray() : nullptr)) *
                     fVel.velocityScale[0];
            out[1] = double(fIn.interpVectorComponent(fFluid, fOcc, q, fFriction, V,
                                                      fPrev ? V.prevArray() : nullptr)) *
                     fVel.velocityScale[1];
            out[2] = double(fIn.interpVectorComponent(fFluid, fOcc, q, fFriction, W,
                                                      fPrev ? W.prevArray() : nullptr)) *
                     fVel.velocityScale[2];
        } else {
            float u, v, w;
            fVel.velocityAtPoint(q, u, v, w);
            out[0] = u;
            out[1] = v;
            out[2] = w;
        }
    }

    const I& fIn;
    const Tfluid& fFluid;
    const TvelocityGrid& fVel;
    const unsigned char* fOcc;
    T3dFltVector fFriction;
    bool fPrev, fGrid;
    interp_detail::Space fSpace[3]{};
    double fFrs[3];
};

template <class I>
T3dFltPoint traceT(const I& in, const Tfluid& f, const TvelocityGrid& vel, const T3dFltPoint& p, double dt,
                   float fr, bool prev) {
    return Tracer3<I>(in, f, vel, fr, prev)(p, dt);
}

template <class I>
T2dFltPoint traceT(const I& in, const Tfluid& f, const TvelocityGrid& vel, const T2dFltPoint& p, double dt,
                   float fr, bool prev) {
    const unsigned char* occ = f.occupation();
    const T2dFltVector fv(fr, fr);
    const bool grid = vel.usesGrid();
    const TbuffFloatFluidGrid &U = vel.gridU(), &V = vel.gridV();
    auto velocityAt = [&](const T2dFltPoint& q, double out[2]) {
        if constexpr (hasKernel<I>) {
            if (grid) {
                const interp_detail::Space s[2] = {
                    interp_detail::componentSpace(f, occ, U, prev ? U.prevArray() : U.array(), 2),
                    interp_detail::componentSpace(f, occ, V, prev ? V.prevArray() : V.array(), 2)};
                const double frs[3] = {fr, fr, 0.0};
                double g[3];
                interp_detail::gridSpace(f, q.x, q.y, 0.0, g);
                g[2] = 0;
                for (int a = 0; a < 2; ++a) {
                    double ga[3] = {g[0], g[1], 0.0};
                    ga[a] += 0.5;
                    out[a] = double(float(I::kernel(s[a], ga, a, frs))) * vel.velocityScale[a];
                }
                return;
            }
        }
        if (grid) {
            out[0] = double(in.interpVectorComponent(f, occ, q, fv, U, prev ? U.prevArray() : nullptr)) *
                     vel.velocityScale[0];
            out[1] = double(in.interpVectorComponent(f, occ, q, fv, V, prev ? V.prevArray() : nullptr)) *
                     vel.velocityScale[1];
        } else {
            float u, v;
            vel.velocityAtPoint(q, u, v);
            out[0] = u;
            out[1] = v;
        }
    };
    double v1[2], v2[2];
    velocityAt(p, v1);
    const T2dFltPoint m(float(p.x + 0.5 * dt * v1[0]), float(p.y + 0.5 * dt * v1[1]));
    velocityAt(m, v2);
    return {float(p.x + dt * v2[0]), float(p.y + dt * v2[1])};
}

// Zeroes border cells of the open sides; true when any side is open.
bool clearOpenSides(TbuffFloatFluidGrid& g, const TvelocityGrid& vel, bool is2d) {
    bool lowOpen[3], highOpen[3], any = false;
    for (int a = 0; a < 3; ++a) {
        const int b = vel.bounds[a];
        lowOpen[a] = (b == kBoundNone || b == kBoundHigh) && !(is2d && a == 2);
        highOpen[a] = (b == kBoundNone || b == kBoundLow) && !(is2d && a == 2);
        any = any || lowOpen[a] || highOpen[a];
    }
    if (!any) return false;
    float* v = g.array();
    const unsigned nx = g.nx, ny = g.ny, nz = g.nz;
    for (unsigned k = 0; k < nz; ++k)
        for (unsigned j = 0; j < ny; ++j)
            for (unsigned i = 0; i < nx; ++i) {
                const bool border = (lowOpen[0] && i == 0) || (highOpen[0] && i == nx - 1) ||
                                    (lowOpen[1] && j == 0) || (highOpen[1] && j == ny - 1) ||
                                    (lowOpen[2] && k == 0) || (highOpen[2] && k == nz - 1);
                if (border) v[g.index(i, j, k)] = 0.0f;
            }
    return true;
}

double maxCellDivergence(TvelocityGrid& v, bool is2d) {
    const float *U = v.arrayU(), *V = v.arrayV(), *W = v.arrayW();
    const unsigned nx = v.nx, ny = v.ny, nz = is2d ? 1 : v.nz;
    const size_t su = nx + 1, planeU = su * ny, planeV = size_t(nx) * (ny + 1), planeW = size_t(nx) * ny;
    double m = 0;
    for (unsigned k = 0; k < nz; ++k)
        for (unsigned j = 0; j < ny; ++j)
            for (unsigned i = 0; i < nx; ++i) {
                const size_t u = i + su * j + planeU * k, c = i + size_t(nx) * j, vv = c + planeV * k,
                             w = c + planeW * k;
                double d = (double(U[u + 1]) - U[u]) / v.dx + (double(V[vv + nx]) - V[vv]) / v.dy;
                if (!is2d) d += (double(W[w + planeW]) - W[w]) / v.dz;
                m = std::max(m, std::fabs(d));
            }
    return m;
}

void conserve(TbuffFloatFluidGrid& g) {
    const double S = g.calcSum();
    const double P = g.sumPrevious();
    if (!(S > 1e-5)) return;
    const double f = P / S - 1;
    float* v = g.array();
    for (size_t c = 0; c < g.n; ++c)
        v[c] = float(v[c] + v[c] * f);
}

} // namespace

// ---- The step ----

void TnsGridSolver::solve(Tfluid& f, double dt) {
    // Scalars of this step may share their traced cells; nothing outside the step may.
    struct StepScope {
        TracedCells& t;
        explicit StepScope(TracedCells& cells) : t(cells) {
            t.enabled = true;
            t.valid = false;
        }
        ~StepScope() { t.enabled = t.valid = false; }
    } step(traced_);
    const bool conserveMass = f.conserveMass();
    TvelocityGrid& vel = f.velocityGrid();

    if (f.solveForColorGrid() && f.hasColorGrid()) {
        if (f.densityMethod() == kMethodGrid && f.hasDensityGrid()) f.propagateColorToZeroDensityRegions();
        TscalarSolverParms parms(dt, f.colorDiffusion(), conserveMass, false, false);
        TcolorGrid& c = f.colorGrid();
        solveScalar(&f, vel, c.redGrid(), c.redGrid(), &parms);
        solveScalar(&f, vel, c.greenGrid(), c.greenGrid(), &parms);
        solveScalar(&f, vel, c.blueGrid(), c.blueGrid(), &parms);
        f.dissipateScalar(c.redGrid(), dt, f.colorDissipation());
        f.dissipateScalar(c.greenGrid(), dt, f.colorDissipation());
        f.dissipateScalar(c.blueGrid(), dt, f.colorDissipation());
    }
    if (f.temperatureMethod() == kMethodGrid && f.hasTemperatureGrid()) {
        if (f.solveForTemperatureGrid()) {
            TscalarSolverParms parms(dt, f.temperatureDiffusion(), conserveMass, true, true);
            solveScalar(&f, vel, f.temperatureGrid(), f.heatGrid(), &parms);
        }
        f.dissipateScalar(f.temperatureGrid(), dt, f.temperatureDissipation());
    }
    if (f.densityMethod() == kMethodGrid && f.hasDensityGrid()) {
        if (f.solveForDensityGrid()) {
            TscalarSolverParms parms(dt, f.densityDiffusion(), conserveMass, true, true);
            solveScalar(&f, vel, f.densityGrid(), f.matterGrid(), &parms);
        }
        f.dissipateScalar(f.densityGrid(), dt, f.densityDissipation());
    }
    if (f.solveForReactionGrid() && f.hasReactionGrid()) {
        // Fuel diffuses at the density's rate on purpose.
        TscalarSolverParms parms(dt, f.densityDiffusion(), conserveMass, false, true);
        solveScalar(&f, vel, f.reactionGrid(), f.reactionGrid(), &parms);
    }
    if (f.solveForCoordinateGrid() && f.hasCoordinateGrid()) {
        float saved[3] = {vel.velocityScale[0], vel.velocityScale[1], vel.velocityScale[2]};
        for (float& s : vel.velocityScale)
            s *= f.coordinateSpeed();
        TscalarSolverParms parms(dt, 0.0, false, false, false);
        solveScalar(&f, vel, f.coordinateGridU(), f.coordinateGridU(), &parms);
        solveScalar(&f, vel, f.coordinateGridV(), f.coordinateGridV(), &parms);
        if (!f.is2d()) solveScalar(&f, vel, f.coordinateGridW(), f.coordinateGridW(), &parms);
        for (int a = 0; a < 3; ++a)
            vel.velocityScale[a] = saved[a];
    }
    if (vel.method != kMethodGrid || !vel.allocated()) return;
    if (f.densityMethod() == kMethodGrid && f.hasDensityGrid()) f.addBuoyancy(false);
    if (f.temperatureScale() != 0) f.addBuoyancy(true);
    f.addTurbulence();
    if (f.solveForVelocityGrid()) {
        if (f.useInternalTurbulence()) {
            f.addInternalTurb();
        } else {
            // Grid noise acts at a twentieth of its strength while the flow is solved.
            vel.turbulence = f.turbulence() * 0.05f;
            vel.addTurbulenceToGrid(f.occupation());
            vel.turbulence = f.turbulence();
        }
        TvelocitySolverParms parms(dt, vel.reynolds, vel.friction, vel.swirl, f.damp(), f.velocityAdvect(),
                                   f.velocityProject());
        solveVelocity(&f, vel, f.forceGrid(), &parms);
    } else if (f.internalTime() == 0.0) {
        // An unsolved field still shows a first frame of noise.
        if (f.useInternalTurbulence())
            f.addInternalTurb();
        else
            vel.addTurbulenceToGrid(f.occupation());
    }
}

void TnsGridSolver::solveScalar(Tfluid* f, TvelocityGrid& vel, TbuffFloatFluidGrid& value,
                                TfloatFluidGrid& input, TscalarSolverParms* parms) {
    if (!parms || !f || !value.allocated()) return;
    const double dt = parms->timeStep();
    const bool is2d = f->is2d();
    if (parms->addForces()) add_input(value, input, dt);
    if (is2d)
        transport_scalar2d(*f, value, vel, dt, parms->conserveMass(), parms->outsideIsZero());
    else
        transport_scalar3d(*f, value, vel, dt, parms->conserveMass(), parms->outsideIsZero());
    if (parms->diffusion() > 0) {
        value.moveCurrentToPrevious();
        const float a = float(double(parms->diffusion()) * dt);
        if (is2d)
            CGsolve(f, value, a, diffScalMult2d, diffScalPrecond2d, 20, 1e-6f);
        else
            CGsolve(f, value, a, diffScalMult3d, diffScalPrecond3d, 20, 1e-6f);
    }
    if (const unsigned char* occ = f->occupation()) {
        if (is2d)
            blendOccupationVoxels2d(value, occ);
        else
            blendOccupationVoxels3d(value, occ);
    }
}

void TnsGridSolver::solveVelocity(Tfluid* f, TvelocityGrid& vel, T3floatFluidGrid& force,
                                  TvelocitySolverParms* parms) {
    if (!parms || !f || !vel.usesGrid() || !vel.allocated()) return;
    const double dt = parms->timeStep();
    if (dt == 0.0) return;
    const bool is2d = f->is2d();
    if (parms->advect()) {
        if (is2d)
            transport_field2d(*f, vel, dt, 0.0f);
        else
            transport_field3d(*f, vel, dt, 0.0f);
    }
    if (force.allocated()) {
        if (is2d)
            add_force2d(*f, vel, force, dt);
        else
            add_force3d(*f, vel, force, dt);
    }
    if (is2d)
        clearBoundaryVelocities2d(*f, vel, parms->friction());
    else
        clearBoundaryVelocities3d(*f, vel, parms->friction());
    if (parms->project()) {
        if (is2d)
            project2d(*f, vel, dt);
        else
            project3d(*f, vel, dt);
        if (measureDivergence) lastMaxDivergence = maxCellDivergence(vel, is2d);
    }
    double r = parms->reynolds();
    if (r < 0.0001) r = 1e-4;
    if (1.0 / r >= 0.0001) {
        vel.gridU().moveCurrentToPrevious();
        vel.gridV().moveCurrentToPrevious();
        vel.gridW().moveCurrentToPrevious();
        const float a = float(dt / r);
        if (is2d) {
            CGsolve(f, vel.gridU(), a, diff_u_mult2d, diff_u_precond2d, 20, 1e-6f);
            CGsolve(f, vel.gridV(), a, diff_v_mult2d, diff_v_precond2d, 20, 1e-6f);
        } else {
            CGsolve(f, vel.gridU(), a, diff_u_mult3d, diff_u_precond3d, 20, 1e-6f);
            CGsolve(f, vel.gridV(), a, diff_v_mult3d, diff_v_precond3d, 20, 1e-6f);
            CGsolve(f, vel.gridW(), a, diff_w_mult3d, diff_w_precond3d, 20, 1e-6f);
        }
    }
    if (parms->swirl() > 0) {
        if (is2d)
            confine2d(*f, vel, parms->swirl(), float(dt));
        else
            confine3d(*f, vel, parms->swirl(), float(dt));
    }
    // Walls again, without friction: projection came before viscosity and swirl.
    if (is2d)
        clearBoundaryVelocities2d(*f, vel, 0.0f);
    else
        clearBoundaryVelocities3d(*f, vel, 0.0f);
    if (parms->damp() != 0) {
        if (is2d)
            applyDamp2d(vel, parms->damp(), float(dt));
        else
            applyDamp3d(vel, parms->damp(), float(dt));
    }
}

// ---- Sources into the grids ----

void TnsGridSolver::add_input(TfloatFluidGrid& value, TfloatFluidGrid& input, double dt) {
    if (!value.allocated() || !input.allocated() || input.n != value.n) return;
    float* v = value.array();
    const float* in = input.array();
    for (size_t c = 0; c < value.n; ++c)
        v[c] = float(v[c] + double(in[c]) * dt);
}

void TnsGridSolver::add_force3d(Tfluid& f, TvelocityGrid& vel, T3floatFluidGrid& force, double dt) {
    if (!vel.allocated() || !force.allocated() || force.n != f.n) return;
    const double h = 0.5 * dt;
    const unsigned nx = f.nx, ny = f.ny, nz = f.nz;
    float *U = vel.arrayU(), *V = vel.arrayV(), *W = vel.arrayW();
    const float *Fx = force.arrayU(), *Fy = force.arrayV(), *Fz = force.arrayW();
    const unsigned char* occ = f.occupation();
    const size_t su = nx + 1, sv = nx, planeV = size_t(nx) * (ny + 1), planeW = size_t(nx) * ny;
    for (unsigned k = 0; k < nz; ++k)
        for (unsigned j = 0; j < ny; ++j)
            for (unsigned i = 0; i < nx; ++i) {
                const size_t c = f.index(i, j, k);
                if (occ && occ[c]) continue;
                const size_t u = i + su * (j + size_t(ny) * k), v = i + sv * j + planeV * k,
                             w = i + sv * j + planeW * k;
                U[u] = float(U[u] + Fx[c] * h);
                U[u + 1] = float(U[u + 1] + Fx[c] * h);
                V[v] = float(V[v] + Fy[c] * h);
                V[v + sv] = float(V[v + sv] + Fy[c] * h);
                W[w] = float(W[w] + Fz[c] * h);
                W[w + planeW] = float(W[w + planeW] + Fz[c] * h);
            }
}

void TnsGridSolver::add_force2d(Tfluid& f, TvelocityGrid& vel, T3floatFluidGrid& force, double dt) {
    if (!vel.allocated() || !force.allocated() || force.n != f.n) return;
    const double h = 0.5 * dt;
    const unsigned nx = f.nx, ny = f.ny;
    float *U = vel.arrayU(), *V = vel.arrayV();
    const float *Fx = force.arrayU(), *Fy = force.arrayV();
    const unsigned char* occ = f.occupation();
    for (unsigned j = 0; j < ny; ++j)
        for (unsigned i = 0; i < nx; ++i) {
            const size_t c = i + size_t(nx) * j;
            if (occ && occ[c]) continue;
            const size_t u = i + size_t(nx + 1) * j, v = c;
            U[u] = float(U[u] + Fx[c] * h);
            U[u + 1] = float(U[u + 1] + Fx[c] * h);
            V[v] = float(V[v] + Fy[c] * h);
            V[v + nx] = float(V[v + nx] + Fy[c] * h);
        }
}

// ---- Tracing ----

T3dFltPoint TnsGridSolver::advect(Tfluid& f, TvelocityGrid& vel, const T3dFltPoint& p, double dt, float fr) {
    T3dFltPoint r = p;
    if (interp_) withKind(interp_, [&](const auto& in) { r = traceT(in, f, vel, p, dt, fr, false); });
    return r;
}

T2dFltPoint TnsGridSolver::advect(Tfluid& f, TvelocityGrid& vel, const T2dFltPoint& p, double dt, float fr) {
    T2dFltPoint r = p;
    if (interp_) withKind(interp_, [&](const auto& in) { r = traceT(in, f, vel, p, dt, fr, false); });
    return r;
}

T3dFltPoint TnsGridSolver::advectPrev(Tfluid& f, TvelocityGrid& vel, const T3dFltPoint& p, double dt,
                                      float fr) {
    T3dFltPoint r = p;
    if (interp_) withKind(interp_, [&](const auto& in) { r = traceT(in, f, vel, p, dt, fr, true); });
    return r;
}

T2dFltPoint TnsGridSolver::advectPrev(Tfluid& f, TvelocityGrid& vel, const T2dFltPoint& p, double dt,
                                      float fr) {
    T2dFltPoint r = p;
    if (interp_) withKind(interp_, [&](const auto& in) { r = traceT(in, f, vel, p, dt, fr, true); });
    return r;
}

// ---- Transport ----

const T3dFltPoint* TnsGridSolver::tracedCells(Tfluid& f, const TbuffFloatFluidGrid& g, TvelocityGrid& vel,
                                              double dt) {
    if (!traced_.enabled || !interp_) return nullptr;
    // Only grids laid on the fluid's own cells start from the same points.
    if (g.nx != f.nx || g.ny != f.ny || g.nz != f.nz || g.dx != f.dx || g.dy != f.dy || g.dz != f.dz ||
        g.originX() != f.originX() || g.originY() != f.originY() || g.originZ() != f.originZ())
        return nullptr;
    if (traced_.valid && traced_.dt == dt && traced_.scale[0] == vel.velocityScale[0] &&
        traced_.scale[1] == vel.velocityScale[1] && traced_.scale[2] == vel.velocityScale[2])
        return traced_.points.data();
    traced_.points.resize(g.n);
    T3dFltPoint* out = traced_.points.data();
    const double x0 = g.originX(), y0 = g.originY(), z0 = g.originZ();
    withKind(interp_, [&](const auto& in) {
        const Tracer3 trace(in, f, vel, 0.0f, false);
        TfluidThreads::forRange(g.nz, [&](size_t lo, size_t hi) {
            for (unsigned k = unsigned(lo); k < unsigned(hi); ++k)
                for (unsigned j = 0; j < g.ny; ++j)
                    for (unsigned i = 0; i < g.nx; ++i) {
                        const T3dFltPoint p(float((i + 0.5) * g.dx + x0), float((j + 0.5) * g.dy + y0),
                                            float((k + 0.5) * g.dz + z0));
                        out[g.index(i, j, k)] = trace(p, -dt);
                    }
        });
    });
    traced_.valid = true;
    traced_.dt = dt;
    for (int a = 0; a < 3; ++a)
        traced_.scale[a] = vel.velocityScale[a];
    return out;
}

void TnsGridSolver::transport_scalar3d(Tfluid& f, TbuffFloatFluidGrid& g, TvelocityGrid& vel, double dt,
                                       bool conserveMass, bool outsideIsZero) {
    if (!interp_ || !g.allocated()) return;
    const T3dFltPoint* from = tracedCells(f, g, vel, dt);
    g.moveCurrentToPrevious();
    const double x0 = g.originX(), y0 = g.originY(), z0 = g.originZ();
    const unsigned nx = g.nx, ny = g.ny, nz = g.nz;
    float* cur = g.array();
    float* prev = g.prevArray();
    const unsigned char* occ = f.occupation();
    if (occ && f.n != g.n) occ = nullptr;
    withKind(interp_, [&](const auto& in) {
        const Tracer3 trace(in, f, vel, 0.0f, false);
        auto cell = [&](unsigned i, unsigned j, unsigned k) {
            const size_t c = g.index(i, j, k);
            const T3dFltPoint p(float((i + 0.5) * g.dx + x0), float((j + 0.5) * g.dy + y0),
                                float((k + 0.5) * g.dz + z0));
            const T3dFltPoint q = from ? from[c] : trace(p, -dt);
            cur[c] = in.interpScalar(g, occ, q, prev);
        };
        if (!occ) {
            // Each cell reads only the previous values: planes go to the threads.
            TfluidThreads::forRange(nz, [&](size_t lo, size_t hi) {
                for (unsigned k = unsigned(lo); k < unsigned(hi); ++k)
                    for (unsigned j = 0; j < ny; ++j)
                        for (unsigned i = 0; i < nx; ++i)
                            cell(i, j, k);
            });
            return;
        }
        // Blocked cells clear their previous value as the sweep passes, which
        // later cells read: the order i, j, k (k innermost) is part of the result.
        for (unsigned i = 0; i < nx; ++i)
            for (unsigned j = 0; j < ny; ++j)
                for (unsigned k = 0; k < nz; ++k) {
                    const size_t c = g.index(i, j, k);
                    if (occ[c]) {
                        cur[c] = 0.0f;
                        prev[c] = 0.0f;
                        continue;
                    }
                    cell(i, j, k);
                }
    });
    if (!outsideIsZero) return;
    if (clearOpenSides(g, vel, false)) return;
    if (conserveMass) conserve(g);
}

void TnsGridSolver::transport_scalar2d(Tfluid& f, TbuffFloatFluidGrid& g, TvelocityGrid& vel, double dt,
                                       bool conserveMass, bool outsideIsZero) {
    if (!interp_ || !g.allocated()) return;
    g.moveCurrentToPrevious();
    const double x0 = g.originX(), y0 = g.originY();
    const unsigned nx = g.nx, ny = g.ny;
    float* cur = g.array();
    float* prev = g.prevArray();
    const unsigned char* occ = f.occupation();
    if (occ && f.n != g.n) occ = nullptr;
    withKind(interp_, [&](const auto& in) {
        // Blocked cells clear their previous value as the sweep passes (later
        // cells read it), so with obstacles the sweep keeps one thread and its order.
        auto columns = [&](size_t lo, size_t hi) {
            for (unsigned i = unsigned(lo); i < unsigned(hi); ++i)
                for (unsigned j = 0; j < ny; ++j) {
                    const size_t c = i + size_t(nx) * j;
                    if (occ && occ[c]) {
                        cur[c] = 0.0f;
                        prev[c] = 0.0f;
                        continue;
                    }
                    const T2dFltPoint p(float((i + 0.5) * g.dx + x0), float((j + 0.5) * g.dy + y0));
                    const T2dFltPoint q = traceT(in, f, vel, p, -dt, 0.0f, false);
                    cur[c] = in.interpScalar(g, occ, q, prev);
                }
        };
        if (occ)
            columns(0, nx);
        else
            TfluidThreads::forRange(nx, columns);
    });
    if (!outsideIsZero) return;
    if (clearOpenSides(g, vel, true)) return;
    if (conserveMass) conserve(g);
}

void TnsGridSolver::transport_field3d(Tfluid& f, TvelocityGrid& vel, double dt, float fr) {
    if (!interp_ || !vel.usesGrid() || !vel.allocated()) return;
    TbuffFloatFluidGrid* comps[3] = {&vel.gridU(), &vel.gridV(), &vel.gridW()};
    for (TbuffFloatFluidGrid* g : comps)
        g->moveCurrentToPrevious();
    const double x0 = vel.originX(), y0 = vel.originY(), z0 = vel.originZ();
    const double dx = vel.dx, dy = vel.dy, dz = vel.dz;
    const unsigned char* occ = f.occupation();
    const T3dFltVector fv(fr, fr, fr);
    auto blocked = [&](int i, int j, int k) {
        return occ[size_t(boundedIndex(i, int(f.nx), f.bounds[0])) +
                   size_t(f.nx) * (size_t(boundedIndex(j, int(f.ny), f.bounds[1])) +
                                   size_t(f.ny) * size_t(boundedIndex(k, int(f.nz), f.bounds[2])))] != 0;
    };
    withKind(interp_, [&](const auto& in) {
        for (int a = 0; a < 3; ++a) {
            TbuffFloatFluidGrid& g = *comps[a];
            float* out = g.array();
            const float* src = g.prevArray();
            const Tracer3 trace(in, f, vel, fr, true);
            const double ox = a == 0 ? 0.0 : 0.5, oy = a == 1 ? 0.0 : 0.5, oz = a == 2 ? 0.0 : 0.5;
            // Faces read only the previous velocities: planes go to the threads.
            TfluidThreads::forRange(g.nz, [&](size_t lo, size_t hi) {
                for (unsigned k = unsigned(lo); k < unsigned(hi); ++k)
                    for (unsigned j = 0; j < g.ny; ++j)
                        for (unsigned i = 0; i < g.nx; ++i) {
                            const size_t c = g.index(i, j, k);
                            if (occ && (blocked(int(i), int(j), int(k)) ||
                                        blocked(int(i) - (a == 0), int(j) - (a == 1), int(k) - (a == 2)))) {
                                out[c] = 0.0f;
                                continue;
                            }
                            const T3dFltPoint p(float((i + ox) * dx + x0), float((j + oy) * dy + y0),
                                                float((k + oz) * dz + z0));
                            const T3dFltPoint q = trace(p, -dt);
                            out[c] = in.interpVectorComponent(f, occ, q, fv, g, src);
                        }
            });
        }
    });
}

void TnsGridSolver::transport_field2d(Tfluid& f, TvelocityGrid& vel, double dt, float fr) {
    if (!interp_ || !vel.usesGrid() || !vel.allocated()) return;
    TbuffFloatFluidGrid* comps[3] = {&vel.gridU(), &vel.gridV(), &vel.gridW()};
    for (TbuffFloatFluidGrid* g : comps)
        g->moveCurrentToPrevious();
    const double x0 = vel.originX(), y0 = vel.originY();
    const double dx = vel.dx, dy = vel.dy;
    const unsigned char* occ = f.occupation();
    const T2dFltVector fv(fr, fr);
    auto blocked = [&](int i, int j) {
        return occ[size_t(boundedIndex(i, int(f.nx), f.bounds[0])) +
                   size_t(f.nx) * size_t(boundedIndex(j, int(f.ny), f.bounds[1]))] != 0;
    };
    withKind(interp_, [&](const auto& in) {
        for (int a = 0; a < 2; ++a) {
            TbuffFloatFluidGrid& g = *comps[a];
            float* out = g.array();
            const float* src = g.prevArray();
            const double ox = a == 0 ? 0.0 : 0.5, oy = a == 1 ? 0.0 : 0.5;
            TfluidThreads::forRange(g.ny, [&](size_t lo, size_t hi) {
                for (unsigned j = unsigned(lo); j < unsigned(hi); ++j)
                    for (unsigned i = 0; i < g.nx; ++i) {
                        const size_t c = i + size_t(g.nx) * j;
                        if (occ &&
                            (blocked(int(i), int(j)) || blocked(int(i) - (a == 0), int(j) - (a == 1)))) {
                            out[c] = 0.0f;
                            continue;
                        }
                        const T2dFltPoint p(float((i + ox) * dx + x0), float((j + oy) * dy + y0));
                        const T2dFltPoint q = traceT(in, f, vel, p, -dt, fr, true);
                        out[c] = in.interpVectorComponent(f, occ, q, fv, g, src);
                    }
            });
        }
    });
}
