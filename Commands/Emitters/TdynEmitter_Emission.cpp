// Counts into birth records. A particle born at a fraction t of the step is
// placed back along its velocity by t steps, since the client integrates every
// new particle for the whole step: it then ends where it would have been had
// it been moving since its birth. The order of random draws is behaviour: the
// same seed must give the same births.

#include "Commands/Emitters/TdynEmitter.h"

#include <algorithm>
#include <cmath>

namespace {
constexpr double kEps = 1e-10;
constexpr double kPi = 3.14159265358979323846;

// Rodrigues' rotation of v about a unit axis.
T4dDblVector rotateAbout(const T4dDblVector& v, const T4dDblVector& axis, double angle) {
    const double len = axis.length();
    if (!(len > 0)) return v;
    const T4dDblVector k = axis / len;
    const double c = std::cos(angle), s = std::sin(angle);
    return v * c + k.cross(v) * s + k * (k.dot(v) * (1 - c));
}

// The arrays of one batch. Adding an entry may move the others, so all are added before any is looked up.
struct Outputs {
    T4dDblVectorArray* pos = nullptr;
    T4dDblVectorArray* vel = nullptr;
    TdoubleArray* timeInStep = nullptr;
    TdoubleArray* parentId = nullptr;
};

Outputs prepareOutputs(TdataArrayAttrs& attrs, unsigned total, bool withParent) {
    attrs.addDoubleData("timeInStep");
    if (withParent) attrs.addDoubleData("parentId");
    Outputs o;
    o.pos = TdynEmitter::getOutputDataArrays(attrs, total, &o.vel);
    o.timeInStep = attrs.getDoubleData("timeInStep");
    o.timeInStep->changeLogicalSizeTo(total);
    if (withParent) {
        o.parentId = attrs.getDoubleData("parentId");
        o.parentId->changeLogicalSizeTo(total);
    }
    return o;
}

unsigned sumOf(const Tint32Array& counts) {
    unsigned total = 0;
    for (unsigned j = 0; j < counts.length(); ++j)
        if (counts[j] > 0) total += static_cast<unsigned>(counts[j]);
    return total;
}
} // namespace

T4dDblVectorArray* TdynEmitter::getOutputDataArrays(TdataArrayAttrs& attrs, unsigned total,
                                                    T4dDblVectorArray** velocities) {
    // Adding an entry may move the others: look both up once they exist.
    attrs.addVectorData("position");
    attrs.addVectorData("velocity");
    T4dDblVectorArray* p = attrs.getVectorData("position");
    *velocities = attrs.getVectorData("velocity");
    p->changeLogicalSizeTo(total);
    (*velocities)->changeLogicalSizeTo(total);
    return p;
}

// ---- random directions ----

T4dDblVector TdynEmitter::randomVelocity() {
    T4dDblVector d;
    d.x = randgen();
    d.y = randgen();
    d.z = randgen();
    d.normalizeIt();
    if (randgen() > 0.5) d.x = -d.x;
    if (randgen() > 0.5) d.y = -d.y;
    if (randgen() > 0.5) d.z = -d.z;
    return d;
}

void TdynEmitter::spreadVelocity(const T4dDblVector& v, T4dDblVector& out, double angle) {
    out = v;
    const double r1 = randgen();
    const double r2 = randgen();
    const T4dDblVector ref =
        std::fabs(v.x) < kEps && std::fabs(v.z) < kEps ? T4dDblVector(0, 0, 1) : T4dDblVector(0, 1, 0);
    const T4dDblVector perp = v.cross(ref);
    out = rotateAbout(out, perp, angle * r1);
    out = rotateAbout(out, v, 4 * kPi * r2);
}

void TdynEmitter::getSurfaceEmitVelocity(double normalSpeed, double tangentSpeed, const T4dDblVector& normal,
                                         T4dDblVector& out) {
    if (std::fabs(tangentSpeed) <= kEps) {
        out = normal * normalSpeed;
        return;
    }
    T4dDblVector r;
    spreadVelocity(normal, r, kPi);
    if (std::fabs(normalSpeed) <= kEps) {
        out = (r - normal * r.dot(normal)).normal() * tangentSpeed;
        return;
    }
    const T4dDblVector np = normal * r.dot(normal);
    out = np * normalSpeed + (r - np) * tangentSpeed;
}

// ---- counts over elements ----

int TdynEmitter::randomIndex(const TdoubleArray& cdf) {
    const double r = randgen();
    if (cdf.length() == 0) return 0;
    const double* first = cdf.data();
    const double* found = std::lower_bound(first, first + cdf.length(), r);
    const long idx = found - first;
    return static_cast<int>(std::min<long>(idx, static_cast<long>(cdf.length()) - 1));
}

void TdynEmitter::getEmitCountPerSweptGeo(int total, double totalSize, const TdoubleArray& sizes,
                                          Tint32Array& counts) {
    const unsigned n = sizes.length();
    counts.changeLogicalSizeTo(n);
    for (unsigned k = 0; k < n; ++k)
        counts[k] = 0;
    if (total == 0 || !(std::fabs(totalSize) > kEps)) return;
    TdoubleArray f(n);
    long given = 0;
    double F = 0;
    for (unsigned k = 0; k < n; ++k) {
        const double x = sizes[k] / totalSize * total;
        counts[k] = static_cast<std::int32_t>(x);
        f[k] = x - counts[k];
        given += counts[k];
        F += f[k];
    }
    if (F != 0) {
        double run = 0;
        for (unsigned k = 0; k < n; ++k) {
            run += f[k];
            f[k] = run / F;
        }
    }
    for (long left = total - given; left > 0; --left)
        ++counts[static_cast<unsigned>(randomIndex(f))];
}

// ---- point sources ----

void TdynEmitter::emitFromPointOmni(const TdynEmitSources& src, const Tint32Array& counts,
                                    const TdynEmitSettings& s, TdataArrayAttrs& attrs) {
    const unsigned total = sumOf(counts);
    if (total == 0) return;
    const Outputs o = prepareOutputs(attrs, total, src.parentIds != nullptr);
    T4dDblVectorArray* pos = o.pos;
    T4dDblVectorArray* vel = o.vel;
    TdoubleArray& tis = *o.timeInStep;
    TdoubleArray* pid = o.parentId;
    const bool offset = s.maxDistance > 0 && s.minDistance <= s.maxDistance;
    const double range = s.maxDistance - s.minDistance;
    unsigned out = 0;
    for (unsigned j = 0; j < counts.length(); ++j) {
        const int n = counts[j];
        if (n <= 0) continue;
        const T4dDblVector P = (*src.positions)[j];
        const T4dDblVector V = (*src.velocities)[j];
        const T4dDblVector Q = P - V * s.dt;
        const T4dDblVector inherit = V * s.inheritFactor;
        const double id = pid && j < src.parentIds->length() ? (*src.parentIds)[j] : -1;
        for (int k = 0; k < n; ++k, ++out) {
            T4dDblVector dirn, B;
            double sp = s.speed, t = 0;
            if (offset) {
                dirn = randomVelocity();
                if (s.speedRandom != 0) sp = (randgen() - 0.5) * s.speedRandom + s.speed;
                const double off = randgen() * range + s.minDistance;
                t = (k + randgen()) / n;
                B = Q * (1 - t) + P * t + dirn * off;
            } else {
                // Without an offset the draws come in another order, on purpose.
                t = (k + randgen()) / n;
                if (s.speedRandom != 0) sp = (randgen() - 0.5) * s.speedRandom + s.speed;
                dirn = randomVelocity();
                B = Q * (1 - t) + P * t;
            }
            const T4dDblVector v = dirn * sp + inherit;
            (*pos)[out] = B - v * (s.dt * t);
            (*vel)[out] = v;
            tis[out] = t;
            if (pid) (*pid)[out] = id;
        }
    }
}

void TdynEmitter::emitFromPointDirectional(const TdynEmitSources& src, const Tint32Array& counts,
                                           const TdynEmitSettings& s, const T4dDblVector& direction,
                                           const T4dDblMatrix& inclusive, TdataArrayAttrs& attrs) {
    const unsigned total = sumOf(counts);
    if (total == 0) return;
    const Outputs o = prepareOutputs(attrs, total, src.parentIds != nullptr);
    T4dDblVectorArray* pos = o.pos;
    T4dDblVectorArray* vel = o.vel;
    TdoubleArray& tis = *o.timeInStep;
    TdoubleArray* pid = o.parentId;
    const T4dDblVector dir = inclusive.transformVector(direction).normal();
    double angle = kPi * s.spread;
    if (std::fabs(angle) < kEps) angle = 0;
    const bool offset = s.maxDistance > 0 && s.minDistance <= s.maxDistance;
    const double range = s.maxDistance - s.minDistance;
    const T4dDblVector fixedSv = dir * s.speed;
    unsigned out = 0;
    for (unsigned j = 0; j < counts.length(); ++j) {
        const int n = counts[j];
        if (n <= 0) continue;
        const T4dDblVector P = (*src.positions)[j];
        const T4dDblVector V = (*src.velocities)[j];
        const T4dDblVector Q = P - V * s.dt;
        const T4dDblVector inherit = V * s.inheritFactor;
        const double id = pid && j < src.parentIds->length() ? (*src.parentIds)[j] : -1;
        for (int k = 0; k < n; ++k, ++out) {
            T4dDblVector sv = fixedSv;
            if (s.speedRandom != 0) sv = dir * ((randgen() - 0.5) * s.speedRandom + s.speed);
            const double off = offset ? randgen() * range + s.minDistance : 0;
            const double t = (k + randgen()) / n;
            T4dDblVector B = Q * (1 - t) + P * t;
            T4dDblVector v = sv;
            if (angle > 0) spreadVelocity(sv, v, angle);
            if (offset) {
                // Along the unit spread direction (the world direction itself when the speed is 0).
                T4dDblVector u = v;
                if (!(u.normalizeIt() > 0)) {
                    if (angle > 0) {
                        spreadVelocity(dir, u, angle);
                    } else {
                        u = dir;
                    }
                }
                B += u * off;
            }
            v += inherit;
            (*pos)[out] = B - v * (s.dt * t);
            (*vel)[out] = v;
            tis[out] = t;
            if (pid) (*pid)[out] = id;
        }
    }
}

// ---- volumes ----

void TdynEmitter::emitFromVolume(const TdynVolumePrimitive& primitive, const T4dDblMatrix& finalMatrix,
                                 const T4dDblMatrix& previousMatrix, const T4dDblVector& emitterVelocity,
                                 int count, const TdynEmitSettings& s, const VolumeSettings& v,
                                 TdataArrayAttrs& attrs) {
    if (count <= 0) return;
    const unsigned total = static_cast<unsigned>(count);
    const Outputs o = prepareOutputs(attrs, total, false);
    T4dDblVectorArray* pos = o.pos;
    T4dDblVectorArray* vel = o.vel;
    TdoubleArray& tis = *o.timeInStep;
    const TdynVolumeMatrix M(finalMatrix);
    const T4dDblVector sc = M.scale;
    const bool inherit = s.inheritFactor > 0 && s.dt > kEps;
    for (int k = 0; k < count; ++k) {
        const double t = (k + randgen()) / count;
        bool interrupted = false;
        const T4dDblVector p =
            primitive.randomPointInVolumeFromStreamWithInterrupt(fRandState, interrupted, M, nullptr);
        if (interrupted) {
            attrs.getVectorData("position")->changeLogicalSizeTo(static_cast<unsigned>(k));
            attrs.getVectorData("velocity")->changeLogicalSizeTo(static_cast<unsigned>(k));
            tis.changeLogicalSizeTo(static_cast<unsigned>(k));
            return;
        }
        T4dDblVector vi;
        if (inherit) {
            const T4dDblVector old = previousMatrix.transformPoint(M.toLocal(p));
            vi = (p - old) / s.dt * s.inheritFactor;
        }
        T4dDblVector a1 = primitive.vectorFromPointInVolume(kVolumeAway, p, M, false) * v.away;
        T4dDblVector a2 = primitive.vectorFromPointInVolume(kVolumeAlong, p, M, false) * v.along;
        T4dDblVector a3 = primitive.vectorFromPointInVolume(kVolumeAround, p, M, false) * v.around;
        T4dDblVector rd = randomVelocity().normal() * v.randomDirection;
        auto scaled = [&](const T4dDblVector& a) { return T4dDblVector(a.x * sc.x, a.y * sc.y, a.z * sc.z); };
        if (v.scaleSpeedBySize) {
            a1 = scaled(a1);
            a2 = scaled(a2);
            a3 = scaled(a3);
            rd = scaled(rd);
        } else if (v.shape == kEmitCone) {
            // The sloping along-vector follows the cone's scale but keeps its speed.
            const double before = a2.length();
            const T4dDblVector b = scaled(a2);
            const double after = b.length();
            if (after > 0) a2 = b * (before / after);
        }
        T4dDblVector vv = a1 + a2 + a3 + vi + rd + v.direction;
        if (s.speedRandom != 0) {
            const double len = vv.length();
            vv = vv.normal() * (len + (randgen() - 0.5) * s.speedRandom);
        }
        (*pos)[static_cast<unsigned>(k)] = p - emitterVelocity * (s.dt * (1 - t)) - vv * (s.dt * t);
        (*vel)[static_cast<unsigned>(k)] = vv;
        tis[static_cast<unsigned>(k)] = t;
    }
}

TdynVolumePrimitive* TdynEmitter::currentVolumePrimitive() {
    auto* vs = emVs();
    TdataBlock& block = normalBlock();
    const int shape = block.inputValue(&vs->volumeShape).asInt();
    if (shape < 0 || shape > 4) return nullptr;
    auto& slot = fPrimitives[shape];
    if (!slot) {
        switch (shape) {
        case kEmitCube:
            slot = std::make_unique<TdynVolumeCube>();
            break;
        case kEmitSphere:
            slot = std::make_unique<TdynVolumeSphere>();
            break;
        case kEmitCylinder:
            slot = std::make_unique<TdynVolumeCylinder>();
            break;
        case kEmitCone:
            slot = std::make_unique<TdynVolumeCone>();
            break;
        default:
            slot = std::make_unique<TdynVolumeTorus>();
            break;
        }
    }
    constexpr double kDegreesPerRadian = 57.29577951308232;
    if (auto* sw = dynamic_cast<TdynVolumeSwept*>(slot.get()))
        sw->setSweep(block.inputValue(&vs->volumeSweep).asDouble() * kDegreesPerRadian);
    if (auto* tor = dynamic_cast<TdynVolumeTorus*>(slot.get()))
        tor->setSectionRadius(block.inputValue(&vs->sectionRadius).asDouble());
    return slot.get();
}

T4dDblMatrix TdynEmitter::finalVolumeMatrix(TdataBlock& block) {
    auto* vs = emVs();
    return T4dDblMatrix::translation(block.inputValue(&vs->volumeOffset).asVector()) *
           block.inputValue(&vs->worldMatrix).asMatrix();
}

bool TdynEmitter::arePointsWithinVolume(const T4dDblVectorArray& points, Tint32Array& flags) {
    auto* vs = emVs();
    TdataBlock& block = normalBlock();
    if (block.inputValue(&vs->emitterType).asInt() != kEmitVolume) return false;
    TdynVolumePrimitive* p = currentVolumePrimitive();
    if (!p) return false;
    const TdynVolumeMatrix M(finalVolumeMatrix(block));
    flags.changeLogicalSizeTo(points.length());
    for (unsigned k = 0; k < points.length(); ++k)
        flags[k] = p->isPointInVolume(points[k], M) ? 1 : 0;
    return true;
}

// ---- texture filtering ----

bool TdynEmitter::normalizeUV(TdoubleArray& u, TdoubleArray& v) {
    // Textures repeat over the unit square: bring each coordinate into [0, 1).
    bool changed = false;
    for (TdoubleArray* a : {&u, &v})
        for (unsigned k = 0; k < a->length(); ++k) {
            const double x = (*a)[k];
            if (x >= 0 && x < 1) continue;
            (*a)[k] = x - std::floor(x);
            changed = true;
        }
    return changed;
}

void TdynEmitter::computeFilterArray(const T4dDblVectorArray& colours, TdoubleArray& out) {
    out.changeLogicalSizeTo(colours.length());
    for (unsigned k = 0; k < colours.length(); ++k)
        out[k] = (colours[k].x + colours[k].y + colours[k].z) * (1.0 / 3.0);
}

void TdynEmitter::filterDataArrayAttrs(unsigned index, TdataArrayAttrs& attrs) {
    // The last entry moves into the rejected slot, in every array alike.
    auto fill = [index](auto& a) {
        const unsigned n = a.length();
        if (index >= n) return;
        a[index] = a[n - 1];
        a.changeLogicalSizeTo(n - 1);
    };
    for (unsigned i = 0; i < attrs.count(); ++i) {
        switch (attrs.kind(i)) {
        case TdataArrayAttrs::Kind::Double:
            fill(attrs.doubles(i));
            break;
        case TdataArrayAttrs::Kind::Vector:
            fill(attrs.vectors(i));
            break;
        case TdataArrayAttrs::Kind::Int32:
            fill(attrs.ints(i));
            break;
        default:
            break;
        }
    }
}

void TdynEmitter::filterTextureEmission(const TdoubleArray& filter, TdataArrayAttrs& attrs) {
    if (filter.length() < 2) return;
    const bool dark = normalBlock().inputValue(&emVs()->emitFromDark).asBool();
    TdoubleArray f = filter;
    unsigned m = f.length();
    unsigned k = 0;
    while (k < m) {
        const double r = randgen();
        // A bright texel emits more by default, a dark one with emitFromDark.
        const bool reject = dark ? r < f[k] : r > f[k];
        if (reject) {
            f[k] = f[m - 1];
            filterDataArrayAttrs(k, attrs);
            --m;
        } else {
            ++k;
        }
    }
}
