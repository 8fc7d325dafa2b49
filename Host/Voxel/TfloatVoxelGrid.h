#pragma once
// A voxel grid holding one float per cell. Reads of a bad index give 0 and
// writes to one are ignored.
#include "Host/Voxel/TvoxelGrid.h"

class TfloatVoxelGrid : public TvoxelGrid {
public:
    TfloatVoxelGrid() = default;
    TfloatVoxelGrid(const TfloatVoxelGrid&) = default;
    TfloatVoxelGrid& operator=(const TfloatVoxelGrid&) = default;

    void create(unsigned nx, unsigned ny, unsigned nz, double width, double height, double depth) override;
    void setSize(unsigned nx, unsigned ny, unsigned nz, double width, double height, double depth) override;
    void extend(unsigned xmin, unsigned xmax, unsigned ymin, unsigned ymax, unsigned zmin,
                unsigned zmax) override;
    void reset() override;

    virtual float value(size_t c) const { return c < n && allocated() ? data_.data()[c] : 0.0f; }
    virtual float value(unsigned i, unsigned j, unsigned k) const {
        return (i < nx && j < ny && k < nz) ? value(index(i, j, k)) : 0.0f;
    }
    virtual float getValue(unsigned i, unsigned j, unsigned k) const { return value(i, j, k); }
    virtual float operator[](size_t c) const { return value(c); }
    // Writable element; a bad index yields a dummy that is discarded.
    virtual float& operator[](size_t c);
    virtual void setValue(size_t c, float v) {
        if (c < n && allocated()) data_.data()[c] = v;
    }
    virtual void setValue(unsigned i, unsigned j, unsigned k, float v) {
        if (i < nx && j < ny && k < nz) setValue(index(i, j, k), v);
    }
    virtual void setAllValues(float v);
    // Values vary linearly from `from` at the first cell to `to` at the last
    // (in index order); used for ramps and tests.
    virtual void setAllValues(float from, float to);
    virtual void addValue(size_t c, float v) {
        if (c < n && allocated()) data_.data()[c] += v;
    }
    virtual void clear();
    virtual double sum() const { return sum_; }
    virtual void storeSum(double s) { sum_ = s; }

    float* array() { return data_.data(); }
    const float* array() const { return data_.data(); }
    bool allocated() const { return allocated_; }
    float absMax() const;
    // Sums the cells, stores the result and returns it.
    double calcSum();

protected:
    void allocate();

    TvoxelFloatBuffer data_;
    bool allocated_ = false;
    double sum_ = 0.0;
};
