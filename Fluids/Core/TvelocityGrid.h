#pragma once
// Staggered velocity: each component on the faces normal to its axis, pressure
// at cell centres.
//   gridU (nx+1, ny, nz): sample (i,j,k) at (i*dx, (j+.5)*dy, (k+.5)*dz) from the low corner
//   gridV (nx, ny+1, nz), gridW (nx, ny, nz+1) likewise; a 2D fluid still holds gridW.
#include "Fluids/Core/TfluidGrid.h"
#include "Fluids/Core/TfluidMethod.h"

class Tfluid;

class TvelocityGrid : public TvoxelGrid {
public:
    void create(unsigned nx, unsigned ny, unsigned nz, double width, double height, double depth) override;
    void setSize(unsigned nx, unsigned ny, unsigned nz, double width, double height, double depth) override;
    void extend(unsigned xmin, unsigned xmax, unsigned ymin, unsigned ymax, unsigned zmin,
                unsigned zmax) override;
    void reset() override;
    void setBounds(int x, int y, int z) override;
    void resample(Tfluid* fluid, unsigned nx, unsigned ny, unsigned nz);
    // Box only, for the analytic methods; frees the component grids.
    void setBoxOnly(unsigned nx, unsigned ny, unsigned nz, double width, double height, double depth);

    TbuffFloatFluidGrid& gridU() { return u_; }
    TbuffFloatFluidGrid& gridV() { return v_; }
    TbuffFloatFluidGrid& gridW() { return w_; }
    TbuffFloatFluidGrid& pressureGrid() { return p_; }
    const TbuffFloatFluidGrid& gridU() const { return u_; }
    const TbuffFloatFluidGrid& gridV() const { return v_; }
    const TbuffFloatFluidGrid& gridW() const { return w_; }
    const TbuffFloatFluidGrid& pressureGrid() const { return p_; }
    float* arrayU() { return u_.array(); }
    float* arrayV() { return v_.array(); }
    float* arrayW() { return w_.array(); }
    float* prevArrayU() { return u_.prevArray(); }
    float* prevArrayV() { return v_.prevArray(); }
    float* prevArrayW() { return w_.prevArray(); }
    float valueU(size_t c) const { return u_.value(c); }
    float valueV(size_t c) const { return v_.value(c); }
    float valueW(size_t c) const { return w_.value(c); }
    void setValueU(size_t c, float x) { u_.setValue(c, x); }
    void setValueV(size_t c, float x) { v_.setValue(c, x); }
    void setValueW(size_t c, float x) { w_.setValue(c, x); }
    float absMaxU() const { return u_.absMax(); }
    float absMaxV() const { return v_.absMax(); }
    float absMaxW() const { return w_.absMax(); }
    bool usesGrid() const { return fluidUsesGrid(method); }
    bool allocated() const { return u_.allocated() && v_.allocated() && w_.allocated() && p_.allocated(); }
    float pressure(size_t c) const { return p_.value(c); }

    // Interpolated velocity at the centre of cell (i,j,k); false without an interpolator.
    bool getValue(T4dFltVector& out, const Tfluid& fluid, unsigned i, unsigned j, unsigned k) const;
    void getValueLowerFace(T4dFltVector& out, unsigned i, unsigned j, unsigned k) const;
    // Both faces of the cell, where they exist.
    void setValue(const T4dFltVector& v, unsigned i, unsigned j, unsigned k);
    // The lower face, and the upper one only where it is the grid's last face.
    void setValueLowerFace(const T4dFltVector& v, unsigned i, unsigned j, unsigned k);
    // Adds to both faces of the cell, without halving.
    void addValue(const T4dFltVector& v, unsigned i, unsigned j, unsigned k);
    void addValue(const T4dFltVector& v, size_t c);
    void setAllValues(const T4dFltVector& v);
    void clear();

    // Analytic velocity of a gradient or constant method at a local point.
    void velocityAtPoint(const T3dFltPoint& p, float& u, float& v, float& w) const;
    void velocityAtPoint(const T3dFltPoint& p, float& u, float& v) const;
    void velocityAtPoint(const T2dFltPoint& p, float& u, float& v) const;

    // Adds smooth noise scaled by `turbulence` to every free cell (method 2 only).
    void addTurbulenceToGrid(const unsigned char* occupation);

    float reynolds = 1e5f;
    float friction = 0.0f;
    float swirl = 0.0f;
    float turbulence = 0.0f;
    float turbulenceFrequency = 0.2f;
    float turbulenceTime = 0.0f;
    int method = kMethodOff;
    float velocityScale[3] = {1.0f, 1.0f, 1.0f};

private:
    void sizeComponents();
    TbuffFloatFluidGrid u_, v_, w_, p_;
};
