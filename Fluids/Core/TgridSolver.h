#pragma once
// Solvers that advance a fluid by one step, their per-call parameters, and the
// registry that makes them by name.
#include <string>
#include <vector>

class Tfluid;
class TgridInterpolator;

class TsolverParms {
public:
    explicit TsolverParms(double timeStep) : timeStep_(timeStep) {}
    double timeStep() const { return timeStep_; }

private:
    double timeStep_;
};

class TscalarSolverParms : public TsolverParms {
public:
    TscalarSolverParms(double timeStep, double diffusion, bool conserveMass, bool addForces,
                       bool outsideIsZero)
        : TsolverParms(timeStep), diffusion_(float(diffusion)), conserveMass_(conserveMass),
          addForces_(addForces), outsideIsZero_(outsideIsZero) {}
    float diffusion() const { return diffusion_; }
    bool conserveMass() const { return conserveMass_; }
    bool addForces() const { return addForces_; }
    bool outsideIsZero() const { return outsideIsZero_; }

private:
    float diffusion_;
    bool conserveMass_, addForces_, outsideIsZero_;
};

class TvelocitySolverParms : public TsolverParms {
public:
    TvelocitySolverParms(double timeStep, double reynolds, double friction, double swirl, double damp,
                         bool advect, bool project)
        : TsolverParms(timeStep), reynolds_(float(reynolds)), friction_(float(friction)),
          swirl_(float(swirl)), damp_(float(damp)), advect_(advect), project_(project) {}
    float reynolds() const { return reynolds_; }
    float friction() const { return friction_; }
    float swirl() const { return swirl_; }
    float damp() const { return damp_; }
    bool advect() const { return advect_; }
    bool project() const { return project_; }

private:
    float reynolds_, friction_, swirl_, damp_;
    bool advect_, project_;
};

class TtextureSolverParms : public TsolverParms {
public:
    explicit TtextureSolverParms(double timeStep) : TsolverParms(timeStep) {}
};

class TgridSolver {
public:
    TgridSolver() = default;
    TgridSolver(const TgridSolver&) = delete;
    TgridSolver& operator=(const TgridSolver&) = delete;
    virtual ~TgridSolver();

    virtual void solve(Tfluid& fluid, double dt) = 0;
    virtual const char* solverName() const { return classSolverName(); }
    // Shares the interpolator; the solver never makes one of its own.
    virtual void setInterpolator(TgridInterpolator* interp);

    static const char* classSolverName() { return nullptr; } // the base is "none"
    TgridInterpolator* interpolator() const { return interp_; }
    void ref() { ++refs_; }
    void unref() {
        if (--refs_ <= 0) delete this;
    }
    int refCount() const { return refs_; }

protected:
    TgridInterpolator* interp_ = nullptr;

private:
    int refs_ = 0;
};

using TsolverCreator = TgridSolver* (*)();

class TsolverRegistry {
public:
    static void addSolverCreator(const std::string& name, TsolverCreator creator);
    // A new solver, or null for an unknown name.
    static TgridSolver* newSolver(const std::string& name);
    static bool hasSolver(const std::string& name);
    // Names in sorted order.
    static std::vector<std::string> getAllSolvers();
};
