#include "Fluids/Core/TfluidGrid.h"

#include <cstring>

#include "Fluids/Core/Tfluid.h"
#include "Fluids/Core/TgridInterpolator.h"

namespace {

// Resamples g to a new resolution over the same box, reading the old content
// at each new cell centre.
void resampleGrid(TfloatVoxelGrid& g, Tfluid* fluid, unsigned nx, unsigned ny, unsigned nz, double w,
                  double h, double d) {
    const TfloatVoxelGrid old = g;
    g.setSize(nx, ny, nz, w, h, d);
    if (!old.allocated() || !g.allocated()) return;
    g.clear();
    static TlinearGridInterpolator fallback;
    const TgridInterpolator* in = fluid && fluid->interpolator() ? fluid->interpolator() : &fallback;
    float* a = g.array();
    for (unsigned k = 0; k < nz; ++k)
        for (unsigned j = 0; j < ny; ++j)
            for (unsigned i = 0; i < nx; ++i) {
                const T3dFltPoint p = g.toGridCenter(i, j, k);
                a[g.index(i, j, k)] = old.nz <= 1
                                          ? in->interpScalar(old, nullptr, T2dFltPoint(p.x, p.y), old.array())
                                          : in->interpScalar(old, nullptr, p, old.array());
            }
}

} // namespace

void TfloatFluidGrid::resample(Tfluid* fluid, unsigned x, unsigned y, unsigned z) {
    resampleTo(fluid, x, y, z, width, height, depth);
}

void TfloatFluidGrid::resampleTo(Tfluid* fluid, unsigned x, unsigned y, unsigned z, double w, double h,
                                 double d) {
    resampleGrid(*this, fluid, x, y, z, w, h, d);
}

void TbuffFloatFluidGrid::create(unsigned x, unsigned y, unsigned z, double w, double h, double d) {
    TfloatFluidGrid::create(x, y, z, w, h, d);
    prev_ = newFloatArray(n);
}

void TbuffFloatFluidGrid::setSize(unsigned x, unsigned y, unsigned z, double w, double h, double d) {
    TfloatFluidGrid::setSize(x, y, z, w, h, d);
    if (prev_.size() != n) prev_ = newFloatArray(n);
}

void TbuffFloatFluidGrid::extend(unsigned xmin, unsigned xmax, unsigned ymin, unsigned ymax, unsigned zmin,
                                 unsigned zmax) {
    TfloatFluidGrid::extend(xmin, xmax, ymin, ymax, zmin, zmax);
    prev_ = newFloatArray(n);
}

void TbuffFloatFluidGrid::reset() {
    TfloatFluidGrid::reset();
    prev_ = TvoxelFloatBuffer();
}

void TbuffFloatFluidGrid::clear() {
    TfloatFluidGrid::clear();
    if (prev_) std::memset(prev_.data(), 0, prev_.size() * sizeof(float));
}

void TbuffFloatFluidGrid::resampleTo(Tfluid* fluid, unsigned x, unsigned y, unsigned z, double w, double h,
                                     double d) {
    resampleGrid(*this, fluid, x, y, z, w, h, d);
    prev_ = newFloatArray(n);
}

double TbuffFloatFluidGrid::sumPrevious() const {
    double s = 0.0;
    const float* a = prev_.data();
    for (size_t c = 0; c < prev_.size(); ++c)
        s += a[c];
    return s;
}

float* TbuffFloatFluidGrid::work(size_t count) {
    static TvoxelFloatBuffer block;
    if (block.size() < count) block = TvoxelFloatBuffer(count);
    return block.data();
}

// ---- T3floatFluidGrid ----

void T3floatFluidGrid::create(unsigned x, unsigned y, unsigned z, double w, double h, double d) {
    TvoxelGrid::create(x, y, z, w, h, d);
    for (TfloatFluidGrid* g : {&u_, &v_, &w_}) {
        g->setCenter(center[0], center[1], center[2]);
        g->create(x, y, z, w, h, d);
    }
}

void T3floatFluidGrid::setSize(unsigned x, unsigned y, unsigned z, double w, double h, double d) {
    TvoxelGrid::setSize(x, y, z, w, h, d);
    for (TfloatFluidGrid* g : {&u_, &v_, &w_}) {
        g->setCenter(center[0], center[1], center[2]);
        g->setSize(x, y, z, w, h, d);
    }
}

void T3floatFluidGrid::extend(unsigned a, unsigned b, unsigned c, unsigned d, unsigned e, unsigned f) {
    TvoxelGrid::extend(a, b, c, d, e, f);
    for (TfloatFluidGrid* g : {&u_, &v_, &w_})
        g->extend(a, b, c, d, e, f);
}

void T3floatFluidGrid::reset() {
    TvoxelGrid::reset();
    for (TfloatFluidGrid* g : {&u_, &v_, &w_})
        g->reset();
}

void T3floatFluidGrid::setBounds(int x, int y, int z) {
    TvoxelGrid::setBounds(x, y, z);
    for (TfloatFluidGrid* g : {&u_, &v_, &w_})
        g->setBounds(x, y, z);
}

void T3floatFluidGrid::clear() {
    for (TfloatFluidGrid* g : {&u_, &v_, &w_})
        g->clear();
}

void T3floatFluidGrid::resample(Tfluid* fluid, unsigned x, unsigned y, unsigned z) {
    for (TfloatFluidGrid* g : {&u_, &v_, &w_})
        g->resample(fluid, x, y, z);
    TvoxelGrid::setSize(x, y, z, width, height, depth);
}

// ---- TcolorGrid ----

void TcolorGrid::create(unsigned x, unsigned y, unsigned z, double w, double h, double d) {
    TvoxelGrid::create(x, y, z, w, h, d);
    for (TbuffFloatFluidGrid* g : {&red_, &green_, &blue_}) {
        g->setCenter(center[0], center[1], center[2]);
        g->create(x, y, z, w, h, d);
    }
}

void TcolorGrid::setSize(unsigned x, unsigned y, unsigned z, double w, double h, double d) {
    TvoxelGrid::setSize(x, y, z, w, h, d);
    for (TbuffFloatFluidGrid* g : {&red_, &green_, &blue_}) {
        g->setCenter(center[0], center[1], center[2]);
        g->setSize(x, y, z, w, h, d);
    }
}

void TcolorGrid::extend(unsigned a, unsigned b, unsigned c, unsigned d, unsigned e, unsigned f) {
    TvoxelGrid::extend(a, b, c, d, e, f);
    for (TbuffFloatFluidGrid* g : {&red_, &green_, &blue_})
        g->extend(a, b, c, d, e, f);
}

void TcolorGrid::reset() {
    TvoxelGrid::reset();
    for (TbuffFloatFluidGrid* g : {&red_, &green_, &blue_})
        g->reset();
}

void TcolorGrid::setBounds(int x, int y, int z) {
    TvoxelGrid::setBounds(x, y, z);
    for (TbuffFloatFluidGrid* g : {&red_, &green_, &blue_})
        g->setBounds(x, y, z);
}

void TcolorGrid::clear() {
    for (TbuffFloatFluidGrid* g : {&red_, &green_, &blue_})
        g->clear();
}

void TcolorGrid::resample(Tfluid* fluid, unsigned x, unsigned y, unsigned z) {
    for (TbuffFloatFluidGrid* g : {&red_, &green_, &blue_})
        g->resample(fluid, x, y, z);
    TvoxelGrid::setSize(x, y, z, width, height, depth);
}

void TcolorGrid::setAllValues(float r, float g, float b) {
    red_.setAllValues(r);
    green_.setAllValues(g);
    blue_.setAllValues(b);
}

void TcolorGrid::blendValue(size_t c, float r, float g, float b, TblendMode mode, float weight) {
    if (c >= red_.n || !allocated()) return;
    float* a[3] = {red_.array(), green_.array(), blue_.array()};
    const float in[3] = {r, g, b};
    for (int ch = 0; ch < 3; ++ch) {
        float& v = a[ch][c];
        switch (mode) {
        case kBlendReplace:
            v = in[ch];
            break;
        case kBlendAdd:
            v += in[ch];
            break;
        case kBlendMultiply:
            v *= in[ch];
            break;
        case kBlendMix:
            v = float(double(v) + (double(in[ch]) - v) * weight);
            break;
        }
    }
}

// ---- TtexCoordGrid ----

void TtexCoordGrid::create(unsigned x, unsigned y, unsigned z, double w, double h, double d) {
    TvoxelGrid::create(x, y, z, w, h, d);
    for (TbuffFloatFluidGrid* g : {&u_, &v_, &w_}) {
        g->setCenter(center[0], center[1], center[2]);
        g->create(x, y, z, w, h, d);
    }
    initCoordinates();
}

void TtexCoordGrid::setSize(unsigned x, unsigned y, unsigned z, double w, double h, double d) {
    const size_t before = n;
    TvoxelGrid::setSize(x, y, z, w, h, d);
    for (TbuffFloatFluidGrid* g : {&u_, &v_, &w_}) {
        g->setCenter(center[0], center[1], center[2]);
        g->setSize(x, y, z, w, h, d);
    }
    if (before != n) initCoordinates();
}

void TtexCoordGrid::reset() {
    TvoxelGrid::reset();
    for (TbuffFloatFluidGrid* g : {&u_, &v_, &w_})
        g->reset();
}

void TtexCoordGrid::setBounds(int x, int y, int z) {
    TvoxelGrid::setBounds(x, y, z);
    for (TbuffFloatFluidGrid* g : {&u_, &v_, &w_})
        g->setBounds(x, y, z);
}

void TtexCoordGrid::initCoordinates() {
    if (!allocated()) return;
    float* a[3] = {u_.array(), v_.array(), w_.array()};
    for (unsigned k = 0; k < nz; ++k)
        for (unsigned j = 0; j < ny; ++j)
            for (unsigned i = 0; i < nx; ++i) {
                const size_t c = index(i, j, k);
                a[0][c] = float((i + 0.5) / nx * scaleU + offsetU);
                a[1][c] = float((j + 0.5) / ny * scaleV + offsetV);
                a[2][c] = float((k + 0.5) / nz * scaleW + offsetW);
            }
}
