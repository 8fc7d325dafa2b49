// Changes to the fields outside the transport equations: reaction, dissipation,
// buoyancy, turbulence and colour propagation, and the step that orders them.
#include <cmath>
#include <cstdlib>

#include "Fluids/Core/Tfluid.h"
#include "Host/Time/TanimTime.h"

namespace {
// Sample position of cell i on an axis of n cells: the first and last cells
// sit on the box faces rather than at cell centres; one cell sits at 0.
inline double cornerPosition(unsigned i, unsigned n, double size) {
    return n > 1 ? (double(i) / double(n - 1) - 0.5) * size : 0.0;
}
} // namespace

void Tfluid::update(double dt) {
    velocity_.turbulenceTime = float(internalTime_ * turbulenceSpeed_);
    if (reactionMethod_ == kMethodGrid) updateReaction(dt);
    if (solver_) {
        if (solveForDensityGrid_) densityDirty_ = true;
        solver_->solve(*this, dt);
    }
    internalTime_ += dt;
}

void Tfluid::updateReaction(double dt) {
    if (reactionMethod_ != kMethodGrid || !reaction_.allocated()) return;
    float* temperature =
        (temperatureMethod_ == kMethodGrid && temperature_.allocated()) ? temperature_.array() : nullptr;
    computeReactionGrid(dt, reaction_.array(), temperature);
}

void Tfluid::computeReactionGrid(double dt, float* reaction, float* temperature) {
    if (!reaction) return;
    const double unit = double(TanimTime(1.0, kCurrentFrameUnit).ticks()) * (1.0 / 6000.0);
    const double rate = dt * reactionSpeed_ / unit;
    const double range = double(maxReactionTemp_) - minReactionTemp_;
    auto burnCell = [&](size_t c, double T, size_t fuelIndex) {
        const double r = reaction[fuelIndex];
        if (r <= 0) return;
        if (T <= minReactionTemp_) return;
        double burn = T >= maxReactionTemp_ ? rate : (T - minReactionTemp_) * rate / range;
        if (burn > r) burn = r;
        reaction[fuelIndex] = float(r - burn);
        if (temperature) temperature[c] = float(temperature[c] + burn * reactionHeat_);
    };
    if (temperature || temperatureMethod_ <= kMethodGridRead) {
        const T3dFltPoint centre(0.5f, 0.5f, 0.5f);
        for (size_t c = 0; c < n; ++c) {
            double T;
            if (temperature) {
                T = temperature[c];
            } else {
                const unsigned cell = unsigned(c);
                T = getTemperatureAtPoint(centre, &cell);
            }
            burnCell(c, T, c);
        }
        return;
    }
    // A temperature function: the fuel of a whole column lives at index i.
    for (unsigned i = 0; i < nx; ++i)
        for (unsigned j = 0; j < ny; ++j)
            for (unsigned k = 0; k < nz; ++k) {
                const T3dFltPoint p(float(cornerPosition(i, nx, width)), float(cornerPosition(j, ny, height)),
                                    float(is2d_ ? 0.0 : cornerPosition(k, nz, depth)));
                const unsigned cell = unsigned(index(i, j, k));
                burnCell(cell, getTemperatureAtPoint(p, &cell), i);
            }
}

void Tfluid::dissipateScalar(TfloatFluidGrid& grid, double dt, double rate) {
    if (!grid.allocated() || !(rate > 0) || !(dt > 0)) return;
    densityDirty_ = true;
    const double f = 1.0 / (1.0 + rate * dt);
    float* a = grid.array();
    for (size_t c = 0; c < grid.n; ++c)
        a[c] = float(a[c] * f);
}

void Tfluid::addBuoyancy(bool temperature) {
    if (!solveForVelocityGrid_ || !force_.allocated()) return;
    const double k = temperature ? double(buoyancy_) : double(densityBuoyancy_) * 2 * double(gravity_);
    if (k >= -1e-4 && k <= 1e-4) return;
    const unsigned char* occ = occupation();
    const unsigned fx = force_.nx, fy = force_.ny, fz = force_.nz;
    float* lift = force_.arrayV();
    for (unsigned kk = 0; kk < fz; ++kk) {
        const double z = is2d_ ? 0.0 : cornerPosition(kk, nz, depth);
        for (unsigned j = 0; j < fy; ++j) {
            const double y = cornerPosition(j, ny, height);
            for (unsigned i = 0; i < fx; ++i) {
                const unsigned c = unsigned(force_.index(i, j, kk));
                if (occ && occ[c]) continue;
                const T3dFltPoint p(float(cornerPosition(i, nx, width)), float(y), float(z));
                const double v = temperature ? getTemperatureAtPoint(p, &c) : getDensityAtPoint(p, &c);
                const double b = v * k;
                if (std::fabs(b) > 1e-4) lift[c] = float(lift[c] + b);
            }
        }
    }
}

void Tfluid::addTurbulence() {
    if (!solveForVelocityGrid_ || !(temperatureTurbulence_ > 0)) return;
    for (unsigned k = 0; k < nz; ++k) {
        const double z = is2d_ ? 0.0 : cornerPosition(k, nz, depth);
        for (unsigned j = 0; j < ny; ++j) {
            const double y = cornerPosition(j, ny, height);
            for (unsigned i = 0; i < nx; ++i) {
                const unsigned c = unsigned(index(i, j, k));
                const T3dFltPoint p(float(cornerPosition(i, nx, width)), float(y), float(z));
                const double a = double(getTemperatureAtPoint(p, &c)) * temperatureTurbulence_;
                // Not centred on purpose: hot regions drift along the positive diagonal.
                const double r1 = drand48(), r2 = drand48(), r3 = drand48();
                velocity_.addValue(T4dFltVector(float(a * r1), float(a * r2), float(a * r3)), size_t(c));
            }
        }
    }
}

void Tfluid::addInternalTurb() {
    if (velocity_.method != kMethodGrid || !(turbulence_ > 0)) return;
    if (!turbTable_.created() || turbTable_.cells() == 0 || turbTable_.res() == 0) return;
    const unsigned res = turbTable_.res();
    const double t = internalTime_ * turbulenceSpeed_ * res;
    const double whole = std::trunc(t);
    const double frac = t - whole;
    const unsigned a = unsigned(std::fmod(whole, double(res)));
    const unsigned b = (a + 1) % res;
    const int32_t* offs = turbTable_.offsets();
    const float* tab[3] = {turbTable_.x(), turbTable_.y(), turbTable_.z()};
    const float* dens = density_.allocated() ? density_.array() : nullptr;
    // Kept from cell to cell: a cell without density repeats the previous push.
    T4dFltVector v;
    for (size_t c = 0; c < velocity_.n; ++c) {
        const uint32_t o = (offs && c < turbTable_.cells()) ? uint32_t(offs[c]) : 0xFFFFFFFFu;
        const uint32_t ia = uint32_t((uint64_t(o) + a) % res), ib = uint32_t((uint64_t(o) + b) % res);
        const double amp = (dens && c < density_.n ? double(dens[c]) : 0.0) * turbulence_;
        if (amp > 0) {
            for (int ax = 0; ax < 3; ++ax) {
                const double ta = ia < res ? tab[ax][ia] : 0.0, tb = ib < res ? tab[ax][ib] : 0.0;
                v[ax] = float((ta * (1 - frac) + tb * frac) * amp);
            }
        }
        velocity_.addValue(v, c);
    }
}

void Tfluid::propagateColorToZeroDensityRegions() {
    if (!color_.allocated() || !density_.allocated()) return;
    float* ch[3] = {color_.redGrid().array(), color_.greenGrid().array(), color_.blueGrid().array()};
    const float* d = density_.array();
    const int X = int(nx), Y = int(ny), Z = int(nz);
    auto blendFrom = [&](size_t c, size_t from) {
        for (float* a : ch)
            a[c] = float(0.2 * a[from] + 0.8 * a[c]);
    };
    auto inside = [&](int i, int j, int k) { return i >= 0 && j >= 0 && k >= 0 && i < X && j < Y && k < Z; };
    for (int i = 0; i < X; ++i)
        for (int j = 0; j < Y; ++j)
            for (int k = 0; k < Z; ++k) {
                const size_t c = index(unsigned(i), unsigned(j), unsigned(k));
                if (d[c] != 0.0f) continue;
                bool done = false;
                // A single layer has its four in-plane corners instead of eight.
                const int kFirst = Z == 1 ? 0 : -1, kStep = Z == 1 ? 1 : 2;
                for (int di = -1; di <= 1 && !done; di += 2)
                    for (int dj = -1; dj <= 1 && !done; dj += 2)
                        for (int dk = kFirst; dk <= 1 && !done; dk += kStep) {
                            if (Z == 1 && dk != 0) break;
                            if (!inside(i + di, j + dj, k + dk)) continue;
                            const size_t o = index(unsigned(i + di), unsigned(j + dj), unsigned(k + dk));
                            if (d[o] != 0.0f) {
                                blendFrom(c, o);
                                done = true;
                            }
                        }
                if (done) continue;
                const int face[6][3] = {{-1, 0, 0}, {0, -1, 0}, {0, 0, -1}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
                for (const auto& f : face) {
                    if (!inside(i + f[0], j + f[1], k + f[2])) continue;
                    const size_t o = index(unsigned(i + f[0]), unsigned(j + f[1]), unsigned(k + f[2]));
                    if (d[o] != 0.0f) {
                        blendFrom(c, o);
                        break;
                    }
                }
            }
}
