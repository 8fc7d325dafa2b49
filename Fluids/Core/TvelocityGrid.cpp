#include "Fluids/Core/TvelocityGrid.h"

#include <cmath>

#include "Fluids/Core/Tfluid.h"
#include "Fluids/Core/TgridInterpolator.h"
#include "Host/Noise/T4dVectorNoise.h"

double fluidGradient(double x, double y, double z, int method) {
    switch (method) {
    case kMethodXGradient:
        return 0.5 - x;
    case kMethodYGradient:
        return 0.5 - y;
    case kMethodZGradient:
        return 0.5 - z;
    case kMethodNegXGradient:
        return 0.5 + x;
    case kMethodNegYGradient:
        return 0.5 + y;
    case kMethodNegZGradient:
        return 0.5 + z;
    case kMethodCenterGradient:
        return std::sqrt(x * x + y * y + z * z);
    default:
        return 0.0;
    }
}

void TvelocityGrid::sizeComponents() {
    const double ex = nx ? width / nx : 0.0, ey = ny ? height / ny : 0.0, ez = nz ? depth / nz : 0.0;
    TbuffFloatFluidGrid* g[4] = {&u_, &v_, &w_, &p_};
    for (TbuffFloatFluidGrid* c : g)
        c->setCenter(center[0], center[1], center[2]);
    u_.setSize(nx + 1, ny, nz, width + ex, height, depth);
    v_.setSize(nx, ny + 1, nz, width, height + ey, depth);
    w_.setSize(nx, ny, nz + 1, width, height, depth + ez);
    p_.setSize(nx, ny, nz, width, height, depth);
    for (TbuffFloatFluidGrid* c : g)
        c->setBounds(bounds[0], bounds[1], bounds[2]);
}

void TvelocityGrid::create(unsigned x, unsigned y, unsigned z, double w, double h, double d) {
    TvoxelGrid::create(x, y, z, w, h, d);
    sizeComponents();
}

void TvelocityGrid::setSize(unsigned x, unsigned y, unsigned z, double w, double h, double d) {
    TvoxelGrid::setSize(x, y, z, w, h, d);
    sizeComponents();
}

void TvelocityGrid::extend(unsigned a, unsigned b, unsigned c, unsigned d, unsigned e, unsigned f) {
    u_.extend(a, b, c, d, e, f);
    v_.extend(a, b, c, d, e, f);
    w_.extend(a, b, c, d, e, f);
    p_.extend(a, b, c, d, e, f);
    TvoxelGrid::extend(a, b, c, d, e, f);
}

void TvelocityGrid::setBoxOnly(unsigned x, unsigned y, unsigned z, double w, double h, double d) {
    TvoxelGrid::setSize(x, y, z, w, h, d);
    for (TbuffFloatFluidGrid* c : {&u_, &v_, &w_, &p_})
        c->reset();
}

void TvelocityGrid::reset() {
    TvoxelGrid::reset();
    for (TbuffFloatFluidGrid* c : {&u_, &v_, &w_, &p_})
        c->reset();
}

void TvelocityGrid::setBounds(int x, int y, int z) {
    TvoxelGrid::setBounds(x, y, z);
    for (TbuffFloatFluidGrid* c : {&u_, &v_, &w_, &p_})
        c->setBounds(x, y, z);
}

void TvelocityGrid::resample(Tfluid* fluid, unsigned x, unsigned y, unsigned z) {
    // Each component keeps its faces on the new cell spacing: its box is one
    // new cell longer along its own axis.
    const double ex = x ? width / x : 0.0, ey = y ? height / y : 0.0, ez = z ? depth / z : 0.0;
    u_.resampleTo(fluid, x + 1, y, z, width + ex, height, depth);
    v_.resampleTo(fluid, x, y + 1, z, width, height + ey, depth);
    w_.resampleTo(fluid, x, y, z + 1, width, height, depth + ez);
    p_.resampleTo(fluid, x, y, z, width, height, depth);
    TvoxelGrid::setSize(x, y, z, width, height, depth);
}

bool TvelocityGrid::getValue(T4dFltVector& out, const Tfluid& fluid, unsigned i, unsigned j,
                             unsigned k) const {
    const TgridInterpolator* in = fluid.interpolator();
    if (!in || !allocated()) return false;
    const T3dFltPoint c = fluid.toGridCenter(i, j, k);
    if (fluid.is2d())
        out = in->interpVector(fluid, nullptr, T2dFltPoint(c.x, c.y), T2dFltVector(0, 0), u_, v_, w_, nullptr,
                               nullptr, nullptr);
    else
        out =
            in->interpVector(fluid, nullptr, c, T3dFltVector(0, 0, 0), u_, v_, w_, nullptr, nullptr, nullptr);
    return true;
}

void TvelocityGrid::getValueLowerFace(T4dFltVector& out, unsigned i, unsigned j, unsigned k) const {
    out = T4dFltVector(u_.value(i, j, k), v_.value(i, j, k), w_.value(i, j, k));
}

void TvelocityGrid::setValue(const T4dFltVector& v, unsigned i, unsigned j, unsigned k) {
    u_.setValue(i, j, k, v.x);
    u_.setValue(i + 1, j, k, v.x);
    v_.setValue(i, j, k, v.y);
    v_.setValue(i, j + 1, k, v.y);
    w_.setValue(i, j, k, v.z);
    w_.setValue(i, j, k + 1, v.z);
}

void TvelocityGrid::setValueLowerFace(const T4dFltVector& v, unsigned i, unsigned j, unsigned k) {
    u_.setValue(i, j, k, v.x);
    if (i + 1 == nx) u_.setValue(i + 1, j, k, v.x);
    v_.setValue(i, j, k, v.y);
    if (j + 1 == ny) v_.setValue(i, j + 1, k, v.y);
    w_.setValue(i, j, k, v.z);
    if (k + 1 == nz) w_.setValue(i, j, k + 1, v.z);
}

void TvelocityGrid::addValue(const T4dFltVector& v, unsigned i, unsigned j, unsigned k) {
    if (!allocated()) return;
    if (i < nx) {
        float* a = u_.array();
        a[u_.index(i, j, k)] += v.x;
        a[u_.index(i + 1, j, k)] += v.x;
    }
    if (j < ny) {
        float* a = v_.array();
        a[v_.index(i, j, k)] += v.y;
        a[v_.index(i, j + 1, k)] += v.y;
    }
    if (nz >= 2 && k < nz) {
        float* a = w_.array();
        a[w_.index(i, j, k)] += v.z;
        a[w_.index(i, j, k + 1)] += v.z;
    }
}

void TvelocityGrid::addValue(const T4dFltVector& v, size_t c) {
    if (nx == 0 || ny == 0 || c >= n) return;
    const unsigned i = unsigned(c % nx), j = unsigned((c / nx) % ny), k = unsigned(c / (size_t(nx) * ny));
    addValue(v, i, j, k);
}

void TvelocityGrid::setAllValues(const T4dFltVector& v) {
    u_.setAllValues(v.x);
    v_.setAllValues(v.y);
    w_.setAllValues(v.z);
}

void TvelocityGrid::clear() {
    for (TbuffFloatFluidGrid* c : {&u_, &v_, &w_, &p_})
        c->clear();
}

void TvelocityGrid::velocityAtPoint(const T3dFltPoint& p, float& u, float& v, float& w) const {
    const double gx = width != 0 ? p.x / width : 0.0, gy = height != 0 ? p.y / height : 0.0,
                 gz = depth != 0 ? p.z / depth : 0.0;
    // A constant method moves everything at the velocity scale.
    const double s = method == kMethodConstant ? 1.0 : fluidGradient(gx, gy, gz, method);
    double r[3] = {s * velocityScale[0], s * velocityScale[1], s * velocityScale[2]};
    if (turbulence > 0) {
        const float f = turbulenceFrequency;
        const TnoiseVector nz3 =
            T4dVectorNoise::getNoiseSmoothTime(p.x * f, p.y * f, p.z * f, turbulenceTime);
        r[0] += nz3.x * turbulence * s;
        r[1] += nz3.y * turbulence * s;
        r[2] += nz3.z * turbulence * s;
    }
    u = float(r[0]);
    v = float(r[1]);
    w = float(r[2]);
}

void TvelocityGrid::velocityAtPoint(const T3dFltPoint& p, float& u, float& v) const {
    float w;
    velocityAtPoint(p, u, v, w);
}

void TvelocityGrid::velocityAtPoint(const T2dFltPoint& p, float& u, float& v) const {
    float w;
    velocityAtPoint(T3dFltPoint(p.x, p.y, 0.0f), u, v, w);
}

void TvelocityGrid::addTurbulenceToGrid(const unsigned char* occupation) {
    if (method != kMethodGrid || !allocated() || !(turbulence > 0)) return;
    const double f = turbulenceFrequency;
    for (unsigned k = 0; k < nz; ++k) {
        const double z = nz > 1 ? (double(k) / (nz - 1) - 0.5) * depth * f : 0.0;
        for (unsigned j = 0; j < ny; ++j) {
            const double y = ny > 1 ? (double(j) / (ny - 1) - 0.5) * height * f : 0.0;
            for (unsigned i = 0; i < nx; ++i) {
                const size_t c = index(i, j, k);
                if (occupation && occupation[c]) continue;
                const double x = nx > 1 ? (double(i) / (nx - 1) - 0.5) * width * f : 0.0;
                const TnoiseVector nv =
                    T4dVectorNoise::getNoiseSmoothTime(float(x), float(y), float(z), turbulenceTime);
                addValue(T4dFltVector(nv.x * turbulence, nv.y * turbulence, nv.z * turbulence), i, j, k);
            }
        }
    }
}
