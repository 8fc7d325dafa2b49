#pragma once
// Semi-Lagrangian Navier-Stokes step on a staggered grid: scalars at cell
// centres, velocity components on cell faces. Viscosity, diffusion and pressure
// are all solved matrix free by one preconditioned conjugate-gradient routine.
//
// Every operation comes as a 2D and a 3D form; each operator has a fast path
// for a fluid without occupation and a guarded one with it, and the two give
// the same bytes when the occupation is empty.
#include "Fluids/Core/TfluidGrid.h"
#include "Fluids/Core/TgridSolver.h"
#include "Fluids/Core/TvelocityGrid.h"

#include <vector>

class Tfluid;

class TnsGridSolver : public TgridSolver {
public:
    using MultFunc = void (*)(Tfluid*, TbuffFloatFluidGrid&, float x[], float y[], float alpha);
    using PrecondFunc = void (*)(TbuffFloatFluidGrid&, float r[], float z[], float alpha);

    static const char* classSolverName() { return "Navier-Stokes"; }
    const char* solverName() const override { return classSolverName(); }
    static TgridSolver* creatorFunc() { return new TnsGridSolver; }

    void solve(Tfluid& fluid, double dt) override;
    void solveScalar(Tfluid* fluid, TvelocityGrid& velocity, TbuffFloatFluidGrid& value,
                     TfloatFluidGrid& input, TscalarSolverParms* parms);
    void solveVelocity(Tfluid* fluid, TvelocityGrid& velocity, T3floatFluidGrid& force,
                       TvelocitySolverParms* parms);
    void solveTexture() {}

    static void add_input(TfloatFluidGrid& value, TfloatFluidGrid& input, double dt);
    static void add_force2d(Tfluid& fluid, TvelocityGrid& velocity, T3floatFluidGrid& force, double dt);
    static void add_force3d(Tfluid& fluid, TvelocityGrid& velocity, T3floatFluidGrid& force, double dt);
    void transport_scalar2d(Tfluid& fluid, TbuffFloatFluidGrid& value, TvelocityGrid& velocity, double dt,
                            bool conserveMass, bool outsideIsZero);
    void transport_scalar3d(Tfluid& fluid, TbuffFloatFluidGrid& value, TvelocityGrid& velocity, double dt,
                            bool conserveMass, bool outsideIsZero);
    void transport_field2d(Tfluid& fluid, TvelocityGrid& velocity, double dt, float friction);
    void transport_field3d(Tfluid& fluid, TvelocityGrid& velocity, double dt, float friction);
    // Traces a point through the velocity by the midpoint rule; pass -dt to go back.
    T3dFltPoint advect(Tfluid& fluid, TvelocityGrid& velocity, const T3dFltPoint& p, double dt,
                       float friction);
    T2dFltPoint advect(Tfluid& fluid, TvelocityGrid& velocity, const T2dFltPoint& p, double dt,
                       float friction);
    // The same, reading the previous arrays of the components.
    T3dFltPoint advectPrev(Tfluid& fluid, TvelocityGrid& velocity, const T3dFltPoint& p, double dt,
                           float friction);
    T2dFltPoint advectPrev(Tfluid& fluid, TvelocityGrid& velocity, const T2dFltPoint& p, double dt,
                           float friction);

    static void clearBoundaryVelocities2d(Tfluid& fluid, TvelocityGrid& velocity, float friction);
    static void clearBoundaryVelocities3d(Tfluid& fluid, TvelocityGrid& velocity, float friction);
    static void project2d(Tfluid& fluid, TvelocityGrid& velocity, double dt);
    static void project3d(Tfluid& fluid, TvelocityGrid& velocity, double dt);
    static void confine2d(Tfluid& fluid, TvelocityGrid& velocity, float swirl, float dt);
    static void confine3d(Tfluid& fluid, TvelocityGrid& velocity, float swirl, float dt);
    static void applyDamp2d(TvelocityGrid& velocity, float damp, float dt);
    static void applyDamp3d(TvelocityGrid& velocity, float damp, float dt);
    static void blendOccupationVoxels2d(TbuffFloatFluidGrid& value, const unsigned char* occupation);
    static void blendOccupationVoxels3d(TbuffFloatFluidGrid& value, const unsigned char* occupation);

    // Solves A x = b for the grid's current array x with b its previous array.
    // False when the start already meets the tolerance; reaching the iteration
    // limit is not an error.
    static bool CGsolve(Tfluid* fluid, TbuffFloatFluidGrid& grid, float alpha, MultFunc mult,
                        PrecondFunc precond, int maxIterations, float tolerance);

    // y = A x. Diffusion: A = I - alpha*Laplacian. Poisson: the negative
    // Laplacian, with outward border neighbours scaled by 0.96.
    static void diffScalMult2d(Tfluid*, TbuffFloatFluidGrid&, float x[], float y[], float alpha);
    static void diffScalMult3d(Tfluid*, TbuffFloatFluidGrid&, float x[], float y[], float alpha);
    static void poissonMult2d(Tfluid*, TbuffFloatFluidGrid&, float x[], float y[], float alpha);
    static void poissonMult3d(Tfluid*, TbuffFloatFluidGrid&, float x[], float y[], float alpha);
    static void diff_u_mult2d(Tfluid*, TbuffFloatFluidGrid&, float x[], float y[], float alpha);
    static void diff_u_mult3d(Tfluid*, TbuffFloatFluidGrid&, float x[], float y[], float alpha);
    static void diff_v_mult2d(Tfluid*, TbuffFloatFluidGrid&, float x[], float y[], float alpha);
    static void diff_v_mult3d(Tfluid*, TbuffFloatFluidGrid&, float x[], float y[], float alpha);
    static void diff_w_mult3d(Tfluid*, TbuffFloatFluidGrid&, float x[], float y[], float alpha);
    // z = M^-1 r with a constant diagonal.
    static void diffScalPrecond2d(TbuffFloatFluidGrid&, float r[], float z[], float alpha);
    static void diffScalPrecond3d(TbuffFloatFluidGrid&, float r[], float z[], float alpha);
    static void poissonPrecond2d(TbuffFloatFluidGrid&, float r[], float z[], float alpha);
    static void poissonPrecond3d(TbuffFloatFluidGrid&, float r[], float z[], float alpha);
    static void diff_u_precond2d(TbuffFloatFluidGrid&, float r[], float z[], float alpha);
    static void diff_u_precond3d(TbuffFloatFluidGrid&, float r[], float z[], float alpha);
    static void diff_v_precond2d(TbuffFloatFluidGrid&, float r[], float z[], float alpha);
    static void diff_v_precond3d(TbuffFloatFluidGrid&, float r[], float z[], float alpha);
    static void diff_w_precond3d(TbuffFloatFluidGrid&, float r[], float z[], float alpha);

    // When set, the largest absolute cell divergence (1/s) right after each
    // projection is kept in lastMaxDivergence; an extra pass over the faces.
    bool measureDivergence = false;
    double lastMaxDivergence = 0.0;

    // alpha / max(d*d, 1e-5) per axis, in single precision.
    static void setIdInverse(const TvoxelGrid& grid, float alpha, float& ix, float& iy, float& iz);

private:
    // Where each cell centre came from in this step. Every scalar of a step
    // is carried by the same velocity over the same time, so the points are
    // traced once and read by the others. Kept only within solve(), whose
    // scalars all come before the velocity changes; the array keeps its room
    // from step to step.
    struct TracedCells {
        bool enabled = false;
        bool valid = false;
        double dt = 0;
        float scale[3] = {0, 0, 0};
        std::vector<T3dFltPoint> points;
    };
    TracedCells traced_;
    // The traced points for cells of `g` (filled on first use this step), or null when they cannot be shared.
    const T3dFltPoint* tracedCells(Tfluid& f, const TbuffFloatFluidGrid& g, TvelocityGrid& vel, double dt);
};
