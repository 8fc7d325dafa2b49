#include "Host/Voxel/TfloatVoxelGrid.h"

#include <algorithm>
#include <cmath>
#include <cstring>

void TfloatVoxelGrid::allocate() {
    data_ = newFloatArray(n);
    allocated_ = n > 0;
    sum_ = 0.0;
}

void TfloatVoxelGrid::create(unsigned x, unsigned y, unsigned z, double w, double h, double d) {
    TvoxelGrid::create(x, y, z, w, h, d);
    allocate();
}

void TfloatVoxelGrid::setSize(unsigned x, unsigned y, unsigned z, double w, double h, double d) {
    const bool sameCount = allocated_ && size_t(x) * y * z == n;
    TvoxelGrid::setSize(x, y, z, w, h, d);
    if (sameCount) return; // keep the memory; a new box size alone does not clear
    allocate();
}

void TfloatVoxelGrid::extend(unsigned xmin, unsigned xmax, unsigned ymin, unsigned ymax, unsigned zmin,
                             unsigned zmax) {
    const unsigned ox = nx, oy = ny, oz = nz;
    TvoxelFloatBuffer old;
    old.swap(data_);
    const bool had = allocated_;
    TvoxelGrid::extend(xmin, xmax, ymin, ymax, zmin, zmax);
    allocate();
    if (!had || !old) return;
    for (unsigned k = 0; k < oz; ++k)
        for (unsigned j = 0; j < oy; ++j)
            std::memcpy(data_.data() + index(xmin, j + ymin, k + zmin),
                        old.data() + (size_t(ox) * (j + size_t(oy) * k)), ox * sizeof(float));
}

void TfloatVoxelGrid::reset() {
    TvoxelGrid::reset();
    data_ = TvoxelFloatBuffer();
    allocated_ = false;
    sum_ = 0.0;
}

float& TfloatVoxelGrid::operator[](size_t c) {
    static float dummy;
    if (c < n && allocated()) return data_.data()[c];
    dummy = 0.0f;
    return dummy;
}

void TfloatVoxelGrid::setAllValues(float v) {
    if (!allocated()) return;
    std::fill(data_.data(), data_.data() + n, v);
}

void TfloatVoxelGrid::setAllValues(float from, float to) {
    if (!allocated()) return;
    const double step = n > 1 ? (double(to) - from) / double(n - 1) : 0.0;
    float* a = data_.data();
    for (size_t c = 0; c < n; ++c)
        a[c] = float(from + step * double(c));
}

void TfloatVoxelGrid::clear() {
    if (allocated()) std::memset(data_.data(), 0, n * sizeof(float));
    sum_ = 0.0;
}

float TfloatVoxelGrid::absMax() const {
    if (!allocated()) return 0.0f;
    float m = 0.0f;
    const float* a = data_.data();
    for (size_t c = 0; c < n; ++c)
        m = std::max(m, std::fabs(a[c]));
    return m;
}

double TfloatVoxelGrid::calcSum() {
    double s = 0.0;
    if (allocated()) {
        const float* a = data_.data();
        for (size_t c = 0; c < n; ++c)
            s += a[c];
    }
    sum_ = s;
    return s;
}
