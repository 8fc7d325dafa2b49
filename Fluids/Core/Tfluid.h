#pragma once
// The whole state of one fluid: a box of voxels with scalar and vector grids,
// the coefficients the solver reads, and the solver and interpolators that act
// on it. It knows nothing of the graph; its container copies attribute values in.
//
// Local space: the box is centred on the origin. Cell (i,j,k) has index
// i + nx*(j + ny*k). A grid exists only while its channel's method needs it.
#include <string>
#include <vector>

#include "Fluids/Core/TfluidGrid.h"
#include "Fluids/Core/TfluidMethod.h"
#include "Fluids/Core/TgridInterpolator.h"
#include "Fluids/Core/TgridSolver.h"
#include "Fluids/Core/TvelocityGrid.h"
#include "Fluids/Core/TvelocityTurbulence.h"
#include "Host/Math/T4dDblMatrix.h"

// A plain field with its reader x() and writer setX().
#define TFLUID_FIELD(Type, name, Setter, init)                                                               \
public:                                                                                                      \
    Type name() const {                                                                                      \
        return name##_;                                                                                      \
    }                                                                                                        \
    void Setter(Type v) {                                                                                    \
        name##_ = v;                                                                                         \
    }                                                                                                        \
                                                                                                             \
private:                                                                                                     \
    Type name##_ = init;

class Tfluid : public TvoxelGrid {
public:
    Tfluid();
    Tfluid(const Tfluid& o);
    Tfluid& operator=(const Tfluid& o);
    ~Tfluid() override;

    // Enters the known solvers into the registry; safe to call more than once.
    // The module's set-up calls it; a program that uses the core alone calls it first.
    static void registerSolvers();

    // ---- Sizes ----
    void create(unsigned nx, unsigned ny, unsigned nz, double width, double height, double depth) override;
    void setSize(unsigned nx, unsigned ny, unsigned nz, double width, double height, double depth) override;
    void extend(unsigned xmin, unsigned xmax, unsigned ymin, unsigned ymax, unsigned zmin,
                unsigned zmax) override;
    void resize(double width, double height, double depth) override;
    void setBounds(int x, int y, int z) override;
    void reset() override;
    // New resolution keeping content by interpolation.
    void resample(unsigned nx, unsigned ny, unsigned nz);
    void getFluidRes(unsigned& x, unsigned& y, unsigned& z) const;
    void getFluidDim(double& w, double& h, double& d) const;
    bool getDensityRes(unsigned& x, unsigned& y, unsigned& z) const { return resOf(density_, x, y, z); }
    bool getTemperatureRes(unsigned& x, unsigned& y, unsigned& z) const {
        return resOf(temperature_, x, y, z);
    }
    bool getReactionRes(unsigned& x, unsigned& y, unsigned& z) const { return resOf(reaction_, x, y, z); }
    bool getColorRes(unsigned& x, unsigned& y, unsigned& z) const { return resOf(color_.redGrid(), x, y, z); }
    bool getVelocityRes(unsigned& x, unsigned& y, unsigned& z) const;
    bool getDensityDim(double& w, double& h, double& d) const { return dimOf(density_, w, h, d); }
    bool getTemperatureDim(double& w, double& h, double& d) const { return dimOf(temperature_, w, h, d); }
    bool getVelocityDim(double& w, double& h, double& d) const;
    // Cell of a local point on a channel's grid; false outside or without the grid.
    bool getDensityCoords(T3Int32& idx, const T3dFltPoint& p) const {
        return density_.allocated() && density_.toGridIndex(p, idx);
    }
    bool getTemperatureCoords(T3Int32& idx, const T3dFltPoint& p) const {
        return temperature_.allocated() && temperature_.toGridIndex(p, idx);
    }
    bool getVelocityCoords(T3Int32& idx, const T3dFltPoint& p) const {
        return velocity_.allocated() && toGridIndex(p, idx);
    }

    // ---- Grids ----
    TvelocityGrid& velocityGrid() { return velocity_; }
    const TvelocityGrid& velocityGrid() const { return velocity_; }
    T3floatFluidGrid& forceGrid() { return force_; }
    TbuffFloatFluidGrid& densityGrid() { return density_; }
    const TbuffFloatFluidGrid& densityGrid() const { return density_; }
    TbuffFloatFluidGrid& temperatureGrid() { return temperature_; }
    const TbuffFloatFluidGrid& temperatureGrid() const { return temperature_; }
    TfloatFluidGrid& heatGrid() { return heat_; }
    TfloatFluidGrid& matterGrid() { return matter_; }
    TbuffFloatFluidGrid& reactionGrid() { return reaction_; }
    TcolorGrid& colorGrid() { return color_; }
    const TcolorGrid& colorGrid() const { return color_; }
    TtexCoordGrid& coordinateGrid() { return coords_; }
    TbuffFloatFluidGrid& coordinateGridU() { return coords_.gridU(); }
    TbuffFloatFluidGrid& coordinateGridV() { return coords_.gridV(); }
    TbuffFloatFluidGrid& coordinateGridW() { return coords_.gridW(); }
    TvelocityTurbulence& velocityTurbulence() { return turbTable_; }
    bool hasDensityGrid() const { return density_.allocated(); }
    bool hasTemperatureGrid() const { return temperature_.allocated(); }
    bool hasReactionGrid() const { return reaction_.allocated(); }
    bool hasColorGrid() const { return color_.allocated(); }
    bool hasVelocityGrid() const { return velocity_.allocated(); }
    bool hasForceGrid() const { return force_.allocated(); }
    bool hasCoordinateGrid() const { return coords_.allocated(); }

    // ---- Occupation: one byte a cell, non-zero is blocked ----
    unsigned char* occupation() { return occ_.empty() ? nullptr : occ_.data(); }
    const unsigned char* occupation() const { return occ_.empty() ? nullptr : occ_.data(); }
    // Frees and makes a zeroed array.
    void createOccupation();
    void deleteOccupation() { std::vector<unsigned char>().swap(occ_); }

    // ---- Methods ----
    int densityMethod() const { return densityMethod_; }
    int velocityMethod() const { return velocity_.method; }
    int temperatureMethod() const { return temperatureMethod_; }
    int reactionMethod() const { return reactionMethod_; }
    int colorMethod() const { return colorMethod_; }
    int coordinateMethod() const { return coordinateMethod_; }
    void setDensityMethod(int m);
    void setVelocityMethod(int m);
    void setTemperatureMethod(int m);
    void setReactionMethod(int m);
    void setColorMethod(int m);
    void setCoordinateMethod(int m);
    bool usesDensityGrid() const { return fluidUsesGrid(densityMethod_); }
    bool usesVelocityGrid() const { return fluidUsesGrid(velocity_.method); }
    bool usesTemperatureGrid() const { return fluidUsesGrid(temperatureMethod_); }
    bool usesReactionGrid() const { return fluidUsesGrid(reactionMethod_); }
    bool usesColorGrid() const { return fluidUsesGrid(colorMethod_); }
    bool usesTextureCoordGrid() const { return coordinateMethod_ != kCoordFixed; }
    bool densityIsConstant() const { return densityMethod_ == kMethodConstant; }
    bool velocityIsConstant() const { return velocity_.method == kMethodConstant; }
    bool temperatureIsConstant() const { return temperatureMethod_ == kMethodConstant; }
    bool reactionIsConstant() const { return reactionMethod_ == kMethodConstant; }
    bool colorIsConstant() const { return colorMethod_ == kMethodConstant; }
    bool usesDensityFunctions() const { return fluidUsesFunctions(densityMethod_); }
    bool usesVelocityFunctions() const { return fluidUsesFunctions(velocity_.method); }
    bool usesTemperatureFunctions() const { return fluidUsesFunctions(temperatureMethod_); }
    bool usesReactionFunctions() const { return fluidUsesFunctions(reactionMethod_); }
    bool usesColorFunctions() const { return fluidUsesFunctions(colorMethod_); }
    // 0.5 - x and its kin at a point normalised to the box.
    static double gradient(const T3dFltPoint& g, int method) { return fluidGradient(g.x, g.y, g.z, method); }

    // ---- Velocity settings, written through to the velocity grid ----
    // Viscosity below 1e-5 counts as 1e-5; reynolds = (1 - v) / v.
    void setViscosity(float v);
    float reynolds() const { return velocity_.reynolds; }
    void setReynolds(float r) { velocity_.reynolds = r; }
    void setVelocityScale(float x, float y, float z);
    float velocitySwirl() const { return velocity_.swirl; }
    void setVelocitySwirl(float s) { velocity_.swirl = s; }
    float velocityFriction() const { return velocity_.friction; }
    void setVelocityFriction(float f) { velocity_.friction = f; }
    float turbulence() const { return turbulence_; }
    void setTurbulence(float t) {
        turbulence_ = t;
        velocity_.turbulence = t;
    }
    float turbulenceFrequency() const { return velocity_.turbulenceFrequency; }
    void setTurbulenceFrequency(float f) { velocity_.turbulenceFrequency = f; }
    void setInternalTurbRes(unsigned res);
    unsigned internalTurbRes() const { return internalTurbRes_; }

    // ---- Solver and interpolators (reference counted) ----
    TgridSolver* solver() const { return solver_; }
    // False unless the registry knows the name; keeps a solver of the same name.
    bool setSolver(const std::string& name);
    void removeSolver();
    TgridInterpolator* interpolator() const { return interp_; }
    TgridInterpolator* renderInterpolator() const { return renderInterp_; }
    void setInterpolator(TgridInterpolator* i);
    void setRenderInterpolator(TgridInterpolator* i);

    // ---- Values at a cell ----
    float getDensityValue(size_t c) const { return density_.value(c); }
    float getTemperatureValue(size_t c) const { return temperature_.value(c); }
    float getReactionValue(size_t c) const { return reaction_.value(c); }
    float getHeatValue(size_t c) const { return heat_.value(c); }
    float getMatterValue(size_t c) const { return matter_.value(c); }
    bool getColorValue(size_t c, float& r, float& g, float& b) const;
    bool getForceValue(size_t c, T4dFltVector& f) const;
    bool getVelocityValue(unsigned i, unsigned j, unsigned k, T4dFltVector& v) const {
        return velocity_.getValue(v, *this, i, j, k);
    }
    float getVelocityValueU(size_t c) const { return velocity_.valueU(c); }
    float getVelocityValueV(size_t c) const { return velocity_.valueV(c); }
    float getVelocityValueW(size_t c) const { return velocity_.valueW(c); }
    void getVelocityValueLowerFace(unsigned i, unsigned j, unsigned k, T4dFltVector& v) const {
        velocity_.getValueLowerFace(v, i, j, k);
    }
    bool getOccupiedValue(size_t c) const { return c < occ_.size() && occ_[c] != 0; }
    void setDensityValue(size_t c, float v) { density_.setValue(c, v); }
    void setTemperatureValue(size_t c, float v) { temperature_.setValue(c, v); }
    void setReactionValue(size_t c, float v) { reaction_.setValue(c, v); }
    void setHeatValue(size_t c, float v) { heat_.setValue(c, v); }
    void setMatterValue(size_t c, float v) { matter_.setValue(c, v); }
    void setColorValue(size_t c, float r, float g, float b);
    void setForceValue(size_t c, const T4dFltVector& f);
    void setVelocityValue(unsigned i, unsigned j, unsigned k, const T4dFltVector& v) {
        velocity_.setValue(v, i, j, k);
    }
    void setOccupiedValue(size_t c, bool blocked) {
        if (c < occ_.size()) occ_[c] = blocked ? 1 : 0;
    }
    void addDensityValue(size_t c, float v) { density_.addValue(c, v); }
    void addTemperatureValue(size_t c, float v) { temperature_.addValue(c, v); }
    void addReactionValue(size_t c, float v) { reaction_.addValue(c, v); }
    void addHeatValue(size_t c, float v) { heat_.addValue(c, v); }
    void addMatterValue(size_t c, float v) { matter_.addValue(c, v); }
    void addColorValue(size_t c, float r, float g, float b);
    void addForceValue(size_t c, const T4dFltVector& f) { force_.addValue(c, f.x, f.y, f.z); }
    void addVelocityValue(unsigned i, unsigned j, unsigned k, const T4dFltVector& v) {
        velocity_.addValue(v, i, j, k);
    }
    void setAllDensityValues(float v) { density_.setAllValues(v); }
    void setAllTemperatureValues(float v) { temperature_.setAllValues(v); }
    void setAllReactionValues(float v) { reaction_.setAllValues(v); }
    void setAllColorValues(float r, float g, float b) { color_.setAllValues(r, g, b); }
    void setAllVelocityValues(const T4dFltVector& v) { velocity_.setAllValues(v); }
    // Scalar channel by name ("density", "temperature", "fuel", "heat", "matter"); false for another name.
    bool setScalarValue(const std::string& channel, size_t c, float v);
    bool addScalarValue(const std::string& channel, size_t c, float v);
    // Vector channel by name ("velocity", "force", "color").
    bool setVectorValue(const std::string& channel, unsigned i, unsigned j, unsigned k,
                        const T4dFltVector& v);
    bool addVectorValue(const std::string& channel, unsigned i, unsigned j, unsigned k,
                        const T4dFltVector& v);
    void blendColorValue(size_t c, float r, float g, float b, TblendMode mode) {
        color_.blendValue(c, r, g, b, mode);
    }
    // Mixes in a colour with the given weight in [0, 1].
    void blendColorWeighted(size_t c, float r, float g, float b, float weight) {
        color_.blendValue(c, r, g, b, kBlendMix, weight);
    }

    // ---- Values at a local point; `cell` picks a cell directly when given ----
    float getDensityAtPoint(const T3dFltPoint& p, const unsigned* cell = nullptr) const;
    float getTemperatureAtPoint(const T3dFltPoint& p, const unsigned* cell = nullptr) const;
    float getReactionAtPoint(const T3dFltPoint& p, const unsigned* cell = nullptr) const;
    float getPressureAtPoint(const T3dFltPoint& p, const unsigned* cell = nullptr) const;
    float getSpeedAtPoint(const T3dFltPoint& p, const unsigned* cell = nullptr) const;
    T4dFltVector getVelocityAtPoint(const T3dFltPoint& p) const;
    T4dFltVector getColorAtPoint(const T3dFltPoint& p, const unsigned* cell = nullptr) const;
    T3dFltPoint getTextureCoordAtPoint(const T3dFltPoint& p, const unsigned* cell = nullptr) const;

    // ---- Lifecycle ----
    void clear();
    void clearForces() { force_.clear(); }
    void clearVelocity() { velocity_.clear(); }
    void clearHeat() { heat_.clear(); }
    void clearMatter() { matter_.clear(); }
    void clearReaction() { reaction_.clear(); }
    void clearTemperature() { temperature_.clear(); }
    void clearDensity() { density_.clear(); }
    void clearCoordinateGrid() { coords_.initCoordinates(); }
    Tfluid* copy() const { return new Tfluid(*this); }

    // ---- Source terms and the step ----
    // Advances one step of dt seconds: reaction, then the solver.
    void update(double dt);
    void updateReaction(double dt);
    void computeReactionGrid(double dt, float* reaction, float* temperature);
    // Multiplies by 1 / (1 + rate*dt).
    void dissipateScalar(TfloatFluidGrid& grid, double dt, double rate);
    void addBuoyancy(bool temperature);
    void addTurbulence();
    void addInternalTurb();
    void propagateColorToZeroDensityRegions();

    // Set whenever density may have changed; the container clears it after reading.
    bool densityDirty() const { return densityDirty_; }
    void setDensityDirty(bool d) { densityDirty_ = d; }

    const T4dDblMatrix& inclusiveMatrix() const { return inclusiveMatrix_; }
    const T4dDblMatrix& inclusiveMatrixInverse() const { return inclusiveMatrixInverse_; }
    void setInclusiveMatrix(const T4dDblMatrix& m, const T4dDblMatrix& inverse) {
        inclusiveMatrix_ = m;
        inclusiveMatrixInverse_ = inverse;
    }

    TFLUID_FIELD(bool, is2d, setIs2d, false)
    TFLUID_FIELD(bool, conserveMass, setConserveMass, true)
    TFLUID_FIELD(bool, velocityAdvect, setVelocityAdvect, true)
    TFLUID_FIELD(bool, velocityProject, setVelocityProject, true)
    TFLUID_FIELD(float, densityScale, setDensityScale, 1.0f)
    TFLUID_FIELD(float, temperatureScale, setTemperatureScale, 1.0f)
    TFLUID_FIELD(float, reactionScale, setReactionScale, 1.0f)
    TFLUID_FIELD(float, colorScale, setColorScale, 1.0f)
    TFLUID_FIELD(float, reactionSpeed, setReactionSpeed, 0.05f)
    TFLUID_FIELD(float, minReactionTemp, setMinReactionTemp, 0.0f)
    TFLUID_FIELD(float, maxReactionTemp, setMaxReactionTemp, 1.0f)
    TFLUID_FIELD(float, reactionHeat, setReactionHeat, 1.0f)
    TFLUID_FIELD(float, turbulenceSpeed, setTurbulenceSpeed, 0.2f)
    TFLUID_FIELD(float, temperatureTurbulence, setTemperatureTurbulence, 0.0f)
    TFLUID_FIELD(bool, useInternalTurbulence, setUseInternalTurbulenceFlag, false)
    TFLUID_FIELD(int, solverVarient, setSolverVarient, 0)
    TFLUID_FIELD(bool, solveForColorGrid, setSolveForColorGrid, true)
    TFLUID_FIELD(bool, solveForVelocityGrid, setSolveForVelocityGrid, true)
    TFLUID_FIELD(bool, solveForDensityGrid, setSolveForDensityGrid, true)
    TFLUID_FIELD(bool, solveForTemperatureGrid, setSolveForTemperatureGrid, true)
    TFLUID_FIELD(bool, solveForReactionGrid, setSolveForReactionGrid, true)
    TFLUID_FIELD(bool, solveForCoordinateGrid, setSolveForCoordinateGrid, true)
    TFLUID_FIELD(bool, zeroCentered, setZeroCentered, false)
    TFLUID_FIELD(float, gravity, setGravity, 2.0f)
    TFLUID_FIELD(float, buoyancy, setBuoyancy, 0.0f)
    TFLUID_FIELD(float, densityBuoyancy, setDensityBuoyancy, 0.0f)
    TFLUID_FIELD(float, damp, setDamp, 0.0f)
    TFLUID_FIELD(double, internalTime, setInternalTime, 0.0)
    TFLUID_FIELD(float, densityDiffusion, setDensityDiffusion, 0.0f)
    TFLUID_FIELD(float, densityDissipation, setDensityDissipation, 0.0f)
    TFLUID_FIELD(float, temperatureDiffusion, setTemperatureDiffusion, 0.0f)
    TFLUID_FIELD(float, temperatureDissipation, setTemperatureDissipation, 0.0f)
    TFLUID_FIELD(float, colorDiffusion, setColorDiffusion, 0.0f)
    TFLUID_FIELD(float, colorDissipation, setColorDissipation, 0.0f)
    TFLUID_FIELD(float, coordinateSpeed, setCoordinateSpeed, 0.2f)
    TFLUID_FIELD(int, drawSubVolume, setDrawSubVolume, 0)
    TFLUID_FIELD(int, lockAxisDir, setLockAxisDir, 0)
    TFLUID_FIELD(int, axisDir, setAxisDir, 0)

public:
    void setUseInternalTurbulence(bool on);
    const int* subVolumeCenter() const { return subVolumeCenter_; }
    const int* subVolumeSize() const { return subVolumeSize_; }
    void setSubVolume(const int center[3], const int size[3]);

private:
    static bool resOf(const TvoxelGrid& g, unsigned& x, unsigned& y, unsigned& z);
    static bool dimOf(const TvoxelGrid& g, double& w, double& h, double& d);
    // Sizes a grid like the fluid, with its bounds and centre.
    void shapeLike(TvoxelGrid& g);
    void sizeVelocity();
    float scalarAtPoint(const TbuffFloatFluidGrid& g, int method, float scale, const T3dFltPoint& p,
                        const unsigned* cell) const;
    void refTo(TgridInterpolator*& slot, TgridInterpolator* i);

    std::vector<unsigned char> occ_;
    TvelocityGrid velocity_;
    T3floatFluidGrid force_;
    TbuffFloatFluidGrid density_;
    TbuffFloatFluidGrid temperature_;
    TfloatFluidGrid heat_;
    TvelocityTurbulence turbTable_;
    unsigned internalTurbRes_ = 64;
    TcolorGrid color_;
    TbuffFloatFluidGrid reaction_;
    TtexCoordGrid coords_;
    TfloatFluidGrid matter_;
    int colorMethod_ = kMethodOff;
    int densityMethod_ = kMethodOff;
    int temperatureMethod_ = kMethodOff;
    int reactionMethod_ = kMethodOff;
    int coordinateMethod_ = kCoordFixed;
    float turbulence_ = 0.0f;
    TgridSolver* solver_ = nullptr;
    TgridInterpolator* interp_ = nullptr;
    TgridInterpolator* renderInterp_ = nullptr;
    T4dDblMatrix inclusiveMatrix_;
    T4dDblMatrix inclusiveMatrixInverse_;
    int subVolumeCenter_[3] = {0, 0, 0};
    int subVolumeSize_[3] = {0, 0, 0};
    bool densityDirty_ = false;
};

#undef TFLUID_FIELD
