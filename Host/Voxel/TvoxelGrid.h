#pragma once
// Geometry of a box of voxels: resolution, size, centre, spacing and the bound
// rule of each axis. Content lives in derived classes.
#include <cstddef>
#include <memory>

#include "Host/Voxel/TvoxelTypes.h"

// Owning float block. Starts of successive blocks are staggered by a few cache
// lines so that loops streaming several grids do not land on the same cache sets.
class TvoxelFloatBuffer {
public:
    TvoxelFloatBuffer() = default;
    explicit TvoxelFloatBuffer(size_t count);
    TvoxelFloatBuffer(const TvoxelFloatBuffer& o);
    TvoxelFloatBuffer& operator=(const TvoxelFloatBuffer& o);
    TvoxelFloatBuffer(TvoxelFloatBuffer&&) noexcept = default;
    TvoxelFloatBuffer& operator=(TvoxelFloatBuffer&&) noexcept = default;

    float* data() { return data_; }
    const float* data() const { return data_; }
    size_t size() const { return count_; }
    explicit operator bool() const { return data_ != nullptr; }
    void swap(TvoxelFloatBuffer& o) noexcept {
        storage_.swap(o.storage_);
        std::swap(data_, o.data_);
        std::swap(count_, o.count_);
    }

private:
    std::unique_ptr<float[]> storage_;
    float* data_ = nullptr;
    size_t count_ = 0;
};

class TvoxelGrid {
public:
    TvoxelGrid() = default;
    virtual ~TvoxelGrid() = default;
    TvoxelGrid(const TvoxelGrid&) = default;
    TvoxelGrid& operator=(const TvoxelGrid&) = default;

    virtual void create(unsigned nx, unsigned ny, unsigned nz, double width, double height, double depth);
    virtual void setSize(unsigned nx, unsigned ny, unsigned nz, double width, double height, double depth);
    // Adds cells on the given sides (counts may be 0); spacing is kept, so the
    // box grows and its centre moves towards the sides that grew.
    virtual void extend(unsigned xmin, unsigned xmax, unsigned ymin, unsigned ymax, unsigned zmin,
                        unsigned zmax);
    // New box size at the same resolution.
    virtual void resize(double width, double height, double depth);
    virtual void reset();
    virtual void setBounds(int x, int y, int z);

    // World position of a cell centre.
    T3dFltPoint toGridCenter(unsigned i, unsigned j, unsigned k) const;
    // Centre of the cell holding a point (the point itself outside).
    T3dFltPoint toGridCenter(float x, float y, float z) const;
    // Cell holding a point; false when the point lies outside the box.
    bool toGridIndex(const T3dFltPoint& p, T3Int32& idx) const;
    // Voxel units in which the centre of cell i has coordinate i.
    T3dFltPoint toGridSpace(const T3dFltPoint& p) const;
    T2dFltPoint toGridSpace(const T2dFltPoint& p) const;

    void setCenter(float x, float y, float z) {
        center[0] = x;
        center[1] = y;
        center[2] = z;
    }
    // Low corner of the box.
    double originX() const { return -0.5 * width + center[0]; }
    double originY() const { return -0.5 * height + center[1]; }
    double originZ() const { return -0.5 * depth + center[2]; }
    size_t index(unsigned i, unsigned j, unsigned k) const { return i + size_t(nx) * (j + size_t(ny) * k); }
    int bound(int axis) const { return bounds[axis]; }

    size_t n = 0;
    unsigned nx = 0, ny = 0, nz = 0;
    double width = 0, height = 0, depth = 0;
    float center[3] = {0, 0, 0};
    double dx = 0, dy = 0, dz = 0;
    int bounds[3] = {kBoundBoth, kBoundBoth, kBoundBoth};

protected:
    static TvoxelFloatBuffer newFloatArray(size_t count) { return TvoxelFloatBuffer(count); }
    void computeSpacing();
};
