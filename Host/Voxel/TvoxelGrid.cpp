#include "Host/Voxel/TvoxelGrid.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace {
// 64 floats = four cache lines per step, sixteen steps before it repeats.
constexpr size_t kStaggerFloats = 16;
constexpr size_t kStaggerSteps = 16;
size_t gStaggerCounter = 0;
} // namespace

TvoxelFloatBuffer::TvoxelFloatBuffer(size_t count) : count_(count) {
    if (count == 0) return;
    const size_t shift = kStaggerFloats * (gStaggerCounter++ % kStaggerSteps);
    storage_ = std::make_unique<float[]>(count + shift); // value-initialised: zeroed
    data_ = storage_.get() + shift;
}

TvoxelFloatBuffer::TvoxelFloatBuffer(const TvoxelFloatBuffer& o) : TvoxelFloatBuffer(o.count_) {
    if (count_) std::memcpy(data_, o.data_, count_ * sizeof(float));
}

TvoxelFloatBuffer& TvoxelFloatBuffer::operator=(const TvoxelFloatBuffer& o) {
    if (this != &o) {
        TvoxelFloatBuffer t(o);
        swap(t);
    }
    return *this;
}

void TvoxelGrid::computeSpacing() {
    n = size_t(nx) * ny * nz;
    dx = nx ? width / nx : 0.0;
    dy = ny ? height / ny : 0.0;
    dz = nz ? depth / nz : 0.0;
}

void TvoxelGrid::create(unsigned x, unsigned y, unsigned z, double w, double h, double d) {
    nx = x;
    ny = y;
    nz = z;
    width = w;
    height = h;
    depth = d;
    computeSpacing();
}

void TvoxelGrid::setSize(unsigned x, unsigned y, unsigned z, double w, double h, double d) {
    TvoxelGrid::create(x, y, z, w, h, d);
}

void TvoxelGrid::extend(unsigned xmin, unsigned xmax, unsigned ymin, unsigned ymax, unsigned zmin,
                        unsigned zmax) {
    const double ox = dx, oy = dy, oz = dz;
    center[0] += float(0.5 * (double(xmax) - double(xmin)) * ox);
    center[1] += float(0.5 * (double(ymax) - double(ymin)) * oy);
    center[2] += float(0.5 * (double(zmax) - double(zmin)) * oz);
    nx += xmin + xmax;
    ny += ymin + ymax;
    nz += zmin + zmax;
    width += (xmin + xmax) * ox;
    height += (ymin + ymax) * oy;
    depth += (zmin + zmax) * oz;
    computeSpacing();
}

void TvoxelGrid::resize(double w, double h, double d) {
    width = w;
    height = h;
    depth = d;
    computeSpacing();
}

void TvoxelGrid::reset() {
    n = 0;
    nx = ny = nz = 0;
    width = height = depth = 0;
    dx = dy = dz = 0;
}

void TvoxelGrid::setBounds(int x, int y, int z) {
    bounds[0] = x;
    bounds[1] = y;
    bounds[2] = z;
}

T3dFltPoint TvoxelGrid::toGridCenter(unsigned i, unsigned j, unsigned k) const {
    return {float(originX() + (i + 0.5) * dx), float(originY() + (j + 0.5) * dy),
            float(originZ() + (k + 0.5) * dz)};
}

T3dFltPoint TvoxelGrid::toGridCenter(float x, float y, float z) const {
    T3Int32 c;
    if (!toGridIndex(T3dFltPoint(x, y, z), c)) return {x, y, z};
    return toGridCenter(unsigned(c.x), unsigned(c.y), unsigned(c.z));
}

bool TvoxelGrid::toGridIndex(const T3dFltPoint& p, T3Int32& idx) const {
    if (dx <= 0 || dy <= 0 || dz <= 0) return false;
    const double gx = std::floor((p.x - originX()) / dx);
    const double gy = std::floor((p.y - originY()) / dy);
    const double gz = std::floor((p.z - originZ()) / dz);
    if (gx < 0 || gy < 0 || gz < 0 || gx >= nx || gy >= ny || gz >= nz) return false;
    idx = T3Int32(int32_t(gx), int32_t(gy), int32_t(gz));
    return true;
}

T3dFltPoint TvoxelGrid::toGridSpace(const T3dFltPoint& p) const {
    const double sx = dx != 0 ? (p.x - originX()) / dx - 0.5 : 0.0;
    const double sy = dy != 0 ? (p.y - originY()) / dy - 0.5 : 0.0;
    const double sz = dz != 0 ? (p.z - originZ()) / dz - 0.5 : 0.0;
    return {float(sx), float(sy), float(sz)};
}

T2dFltPoint TvoxelGrid::toGridSpace(const T2dFltPoint& p) const {
    const double sx = dx != 0 ? (p.x - originX()) / dx - 0.5 : 0.0;
    const double sy = dy != 0 ? (p.y - originY()) / dy - 0.5 : 0.0;
    return {float(sx), float(sy)};
}
