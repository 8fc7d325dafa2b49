#pragma once
// Float grids of a fluid: plain, double-buffered, and the three-component force grid.
#include <cstddef>

#include "Host/Voxel/TfloatVoxelGrid.h"

class Tfluid;

class TfloatFluidGrid : public TfloatVoxelGrid {
public:
    // New resolution over the same box; content is sampled at the new cell
    // centres through the fluid's solver interpolator (linear without a fluid).
    virtual void resample(Tfluid* fluid, unsigned nx, unsigned ny, unsigned nz);
    // The same onto a new box size (staggered components grow with the spacing).
    virtual void resampleTo(Tfluid* fluid, unsigned nx, unsigned ny, unsigned nz, double width, double height,
                            double depth);
};

class TbuffFloatFluidGrid : public TfloatFluidGrid {
public:
    void create(unsigned nx, unsigned ny, unsigned nz, double width, double height, double depth) override;
    void setSize(unsigned nx, unsigned ny, unsigned nz, double width, double height, double depth) override;
    void extend(unsigned xmin, unsigned xmax, unsigned ymin, unsigned ymax, unsigned zmin,
                unsigned zmax) override;
    void reset() override;
    void clear() override;
    void resampleTo(Tfluid* fluid, unsigned nx, unsigned ny, unsigned nz, double width, double height,
                    double depth) override;

    float* prevArray() { return prev_.data(); }
    const float* prevArray() const { return prev_.data(); }
    // Sum of the previous array.
    virtual double sumPrevious() const;
    // Swaps current and previous; nothing is copied.
    virtual void moveCurrentToPrevious() { data_.swap(prev_); }

    // Process-wide scratch of at least n floats. It only grows and is zeroed
    // only when it grows; one fluid is solved at a time.
    static float* work(size_t n);

private:
    TvoxelFloatBuffer prev_;
};

// Forces at cell centres, one grid per component.
class T3floatFluidGrid : public TvoxelGrid {
public:
    void create(unsigned nx, unsigned ny, unsigned nz, double width, double height, double depth) override;
    void setSize(unsigned nx, unsigned ny, unsigned nz, double width, double height, double depth) override;
    void extend(unsigned xmin, unsigned xmax, unsigned ymin, unsigned ymax, unsigned zmin,
                unsigned zmax) override;
    void reset() override;
    void setBounds(int x, int y, int z) override;
    void clear();
    void resample(Tfluid* fluid, unsigned nx, unsigned ny, unsigned nz);
    bool allocated() const { return u_.allocated(); }

    float* arrayU() { return u_.array(); }
    float* arrayV() { return v_.array(); }
    float* arrayW() { return w_.array(); }
    const float* arrayU() const { return u_.array(); }
    const float* arrayV() const { return v_.array(); }
    const float* arrayW() const { return w_.array(); }
    float valueU(size_t c) const { return u_.value(c); }
    float valueV(size_t c) const { return v_.value(c); }
    float valueW(size_t c) const { return w_.value(c); }
    void setValueU(size_t c, float x) { u_.setValue(c, x); }
    void setValueV(size_t c, float x) { v_.setValue(c, x); }
    void setValueW(size_t c, float x) { w_.setValue(c, x); }
    float absMaxU() const { return u_.absMax(); }
    float absMaxV() const { return v_.absMax(); }
    float absMaxW() const { return w_.absMax(); }
    void addValue(size_t c, float x, float y, float z) {
        u_.addValue(c, x);
        v_.addValue(c, y);
        w_.addValue(c, z);
    }
    TfloatFluidGrid& gridU() { return u_; }
    TfloatFluidGrid& gridV() { return v_; }
    TfloatFluidGrid& gridW() { return w_; }

private:
    TfloatFluidGrid u_, v_, w_;
};

enum TblendMode : int { kBlendReplace = 0, kBlendAdd = 1, kBlendMultiply = 2, kBlendMix = 3 };

class TcolorGrid : public TvoxelGrid {
public:
    void create(unsigned nx, unsigned ny, unsigned nz, double width, double height, double depth) override;
    void setSize(unsigned nx, unsigned ny, unsigned nz, double width, double height, double depth) override;
    void extend(unsigned xmin, unsigned xmax, unsigned ymin, unsigned ymax, unsigned zmin,
                unsigned zmax) override;
    void reset() override;
    void setBounds(int x, int y, int z) override;
    void clear();
    void resample(Tfluid* fluid, unsigned nx, unsigned ny, unsigned nz);
    bool allocated() const { return red_.allocated(); }
    void setAllValues(float r, float g, float b);
    // Blends a colour into cell c; `weight` is used by kBlendMix.
    void blendValue(size_t c, float r, float g, float b, TblendMode mode, float weight = 1.0f);

    TbuffFloatFluidGrid& redGrid() { return red_; }
    TbuffFloatFluidGrid& greenGrid() { return green_; }
    TbuffFloatFluidGrid& blueGrid() { return blue_; }
    const TbuffFloatFluidGrid& redGrid() const { return red_; }
    const TbuffFloatFluidGrid& greenGrid() const { return green_; }
    const TbuffFloatFluidGrid& blueGrid() const { return blue_; }

private:
    TbuffFloatFluidGrid red_, green_, blue_;
};

// Texture coordinates carried by the flow. A fresh grid holds each cell's own
// position in the box, from 0 to 1 per axis, times the texture scale.
class TtexCoordGrid : public TvoxelGrid {
public:
    void create(unsigned nx, unsigned ny, unsigned nz, double width, double height, double depth) override;
    void setSize(unsigned nx, unsigned ny, unsigned nz, double width, double height, double depth) override;
    void reset() override;
    void setBounds(int x, int y, int z) override;
    bool allocated() const { return u_.allocated(); }
    // Back to the undisturbed coordinates.
    void initCoordinates();

    TbuffFloatFluidGrid& gridU() { return u_; }
    TbuffFloatFluidGrid& gridV() { return v_; }
    TbuffFloatFluidGrid& gridW() { return w_; }

    float scaleU = 1.0f, scaleV = 1.0f, scaleW = 1.0f;
    float offsetU = 0.0f, offsetV = 0.0f, offsetW = 0.0f;

private:
    TbuffFloatFluidGrid u_, v_, w_;
};
