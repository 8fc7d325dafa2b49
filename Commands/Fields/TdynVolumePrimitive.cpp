#include "Commands/Fields/TdynVolumePrimitive.h"

#include <cmath>
#include <cstdlib>

namespace {
double rowLength(const T4dDblMatrix& m, int r) {
    return std::sqrt(m[r][0] * m[r][0] + m[r][1] * m[r][1] + m[r][2] * m[r][2]);
}
} // namespace

TdynVolumeMatrix::TdynVolumeMatrix(const T4dDblMatrix& m) : matrix(m), inverse(m.inverse()), rotation(m) {
    // Rows are the images of the local axes: their lengths are the scales.
    scale = {rowLength(m, 0), rowLength(m, 1), rowLength(m, 2)};
    for (int r = 0; r < 3; ++r)
        if (scale[r] > 1e-10)
            for (int c = 0; c < 3; ++c)
                rotation[r][c] /= scale[r];
    rotation.setTranslation({});
}

// ---- base ----

double TdynVolumePrimitive::volume(const TdynVolumeMatrix& matrix) const {
    return std::fabs(matrix.scale.x) * std::fabs(matrix.scale.y) * std::fabs(matrix.scale.z) *
           basePrimitiveVolume();
}

double TdynVolumePrimitive::volumeScaleOfBasePrimitive(const TdynVolumeMatrix& matrix) const {
    const double base = basePrimitiveVolume();
    if (std::fabs(base) <= 1e-10) return 1;
    return volume(matrix) / base;
}

TboundingBox TdynVolumePrimitive::boundingBox() const {
    return TboundingBox({-1, -1, -1}, {1, 1, 1});
}

double TdynVolumePrimitive::distanceFromAxis(const T4dDblPoint& point, const TdynVolumeMatrix& matrix) const {
    const T4dDblVector l = matrix.toLocal(point);
    // The point's image with y dropped, compared with the point itself.
    return matrix.toWorld({l.x, 0, l.z}).distanceTo(point);
}

T4dDblPoint TdynVolumePrimitive::randomPointInVolumeFromStreamWarp(unsigned short randomState[3],
                                                                   const TdynVolumeMatrix& matrix) const {
    const T4dDblVector e = boundingBox().size();
    const double u1 = erand48(randomState), u2 = erand48(randomState), u3 = erand48(randomState);
    return matrix.toWorld({(u1 - 0.5) * e.x, (u2 - 0.5) * e.y, (u3 - 0.5) * e.z});
}

T4dDblPoint TdynVolumePrimitive::randomPointInVolumeFromStreamWithInterrupt(unsigned short randomState[3],
                                                                            bool& interrupted,
                                                                            TdynVolumeMatrix matrix,
                                                                            Tcomputation*) const {
    interrupted = false;
    return randomPointInVolumeFromStreamWarp(randomState, matrix);
}

T4dDblPoint TdynVolumePrimitive::randomPointInVolumeFromStream(unsigned short randomState[3],
                                                               const TdynVolumeMatrix& matrix) const {
    return matrix.toWorld(randomPointInVolumeFromStreamWarp(randomState, matrix));
}

T4dDblVector TdynVolumePrimitive::localDirectionToWorld(const T4dDblVector& local,
                                                        const TdynVolumeMatrix& matrix) {
    return matrix.rotation.transformVector(local.normal()).normal();
}

// ---- sweep ----

void TdynVolumeSwept::setSweep(double degrees) {
    if (!std::isfinite(degrees)) degrees = 360;
    // A full turn stored as radians to a few decimals (the field's 6.28319) lands a hair above 360 degrees:
    // it still means the whole solid, not a sliver.
    if (degrees > 360 && degrees < 360 + 1e-3) degrees = 360;
    while (degrees > 360)
        degrees -= 360;
    while (degrees < 0)
        degrees += 360;
    fSweep = degrees;
    fSweepRad = degrees * 3.14159265359 * 0.00555555555556;
}

bool TdynVolumeSwept::passesSweep(const T4dDblVector& l) const {
    const double sw = fSweepRad > 0.01 ? fSweepRad : 0.01;
    const double ang = std::atan2(-l.z, -l.x) + 3.14159265358979;
    return ang <= sw || ang - sw <= 0.0001;
}

void TdynVolumeSwept::includeSweepPoints(TboundingBox& box, double r, double y) const {
    if (fSweep > 90) box.includePoint({0, y, r});
    if (fSweep > 180) box.includePoint({-r, y, 0});
    if (fSweep > 270) box.includePoint({0, y, -r});
    box.includePoint({std::cos(fSweepRad) * r, y, std::sin(fSweepRad) * r});
}

// ---- cube ----

TboundingBox TdynVolumeCube::boundingBox() const {
    return TboundingBox({-1, -1, -1}, {1, 1, 1});
}

bool TdynVolumeCube::isPointInVolume(const T4dDblPoint& point, const TdynVolumeMatrix& matrix) const {
    return isPointInBoundingBox(point, matrix);
}

T4dDblVector TdynVolumeCube::vectorFromPointInVolume(TdynVolumeVectorType type, const T4dDblPoint& point,
                                                     const TdynVolumeMatrix& matrix, bool testInside) const {
    if (testInside && !isPointInVolume(point, matrix)) return {};
    const T4dDblVector l = matrix.toLocal(point);
    switch (type) {
    case kVolumeAway:
        return localDirectionToWorld(l, matrix);
    case kVolumeAlong:
        return localDirectionToWorld({0, 1, 0}, matrix);
    case kVolumeAround:
        return localDirectionToWorld({l.z, 0, -l.x}, matrix);
    }
    return {};
}

double TdynVolumeCube::distanceFromAxisRatio(const T4dDblPoint& point, const TdynVolumeMatrix& matrix,
                                             bool testInside) const {
    if (testInside && !isPointInVolume(point, matrix)) return 1;
    const T4dDblVector l = matrix.toLocal(point);
    return std::max(std::fabs(l.x), std::fabs(l.z));
}

T4dDblPoint TdynVolumeCube::randomPointInVolumeFromStreamWarp(unsigned short randomState[3],
                                                              const TdynVolumeMatrix& matrix) const {
    const double u1 = erand48(randomState), u2 = erand48(randomState), u3 = erand48(randomState);
    return matrix.toWorld({2 * u1 - 1, 2 * u2 - 1, 2 * u3 - 1});
}

// ---- sphere ----

TboundingBox TdynVolumeSphere::boundingBox() const {
    TboundingBox box({0, -1, 0}, {1, 1, 1});
    includeSweepPoints(box, 1, 0);
    box.expandFromCenter(0.01);
    return box;
}

bool TdynVolumeSphere::isPointInVolume(const T4dDblPoint& point, const TdynVolumeMatrix& matrix) const {
    const T4dDblVector l = matrix.toLocal(point);
    return boundingBox().contains(l) && l.lengthSquared() <= 1.0 && passesSweep(l);
}

T4dDblVector TdynVolumeSphere::vectorFromPointInVolume(TdynVolumeVectorType type, const T4dDblPoint& point,
                                                       const TdynVolumeMatrix& matrix,
                                                       bool testInside) const {
    if (testInside && !isPointInVolume(point, matrix)) return {};
    const T4dDblVector l = matrix.toLocal(point);
    switch (type) {
    case kVolumeAway:
        return localDirectionToWorld(l, matrix);
    case kVolumeAlong:
        return localDirectionToWorld({0, 1, 0}, matrix);
    case kVolumeAround:
        return localDirectionToWorld({l.z, 0, -l.x}, matrix);
    }
    return {};
}

double TdynVolumeSphere::distanceFromAxis(const T4dDblPoint& point, const TdynVolumeMatrix& matrix) const {
    return point.distanceTo(matrix.toWorld({0, 0, 0}));
}

double TdynVolumeSphere::distanceFromAxisRatio(const T4dDblPoint& point, const TdynVolumeMatrix& matrix,
                                               bool testInside) const {
    if (testInside && !isPointInVolume(point, matrix)) return 1;
    return matrix.toLocal(point).length();
}

T4dDblPoint TdynVolumeSphere::randomPointInVolumeFromStreamWarp(unsigned short randomState[3],
                                                                const TdynVolumeMatrix& matrix) const {
    const double u1 = erand48(randomState), u2 = erand48(randomState), u3 = erand48(randomState);
    const double ph = std::acos(1 - 2 * u1);
    const double az = fSweepRad * u2;
    const double rr = std::pow(u3, 0.3333333333);
    return matrix.toWorld(
        {std::cos(az) * std::sin(ph) * rr, std::cos(ph) * rr, std::sin(az) * std::sin(ph) * rr});
}

// ---- cylinder ----

TboundingBox TdynVolumeCylinder::boundingBox() const {
    TboundingBox box({0, -1, 0}, {1, 1, 1});
    includeSweepPoints(box, 1, 0);
    box.expandFromCenter(0.01);
    return box;
}

bool TdynVolumeCylinder::isPointInVolume(const T4dDblPoint& point, const TdynVolumeMatrix& matrix) const {
    const T4dDblVector l = matrix.toLocal(point);
    return boundingBox().contains(l) && l.x * l.x + l.z * l.z <= 1.0 && passesSweep(l);
}

T4dDblVector TdynVolumeCylinder::vectorFromPointInVolume(TdynVolumeVectorType type, const T4dDblPoint& point,
                                                         const TdynVolumeMatrix& matrix,
                                                         bool testInside) const {
    if (testInside && !isPointInVolume(point, matrix)) return {};
    const T4dDblVector l = matrix.toLocal(point);
    switch (type) {
    case kVolumeAway:
        return localDirectionToWorld({l.x, 0, l.z}, matrix);
    case kVolumeAlong:
        return localDirectionToWorld({0, 1, 0}, matrix);
    case kVolumeAround:
        return localDirectionToWorld({l.z, 0, -l.x}, matrix);
    }
    return {};
}

double TdynVolumeCylinder::distanceFromAxisRatio(const T4dDblPoint& point, const TdynVolumeMatrix& matrix,
                                                 bool testInside) const {
    if (testInside && !isPointInVolume(point, matrix)) return 1;
    const T4dDblVector l = matrix.toLocal(point);
    return std::sqrt(l.x * l.x + l.z * l.z);
}

T4dDblPoint TdynVolumeCylinder::randomPointInVolumeFromStreamWarp(unsigned short randomState[3],
                                                                  const TdynVolumeMatrix& matrix) const {
    const double u1 = erand48(randomState), u2 = erand48(randomState), u3 = erand48(randomState);
    const double az = fSweepRad * u1;
    return matrix.toWorld({std::cos(az) * std::sqrt(u2), 2 * (u3 - 0.5), std::sin(az) * std::sqrt(u2)});
}

// ---- cone ----

TboundingBox TdynVolumeCone::boundingBox() const {
    TboundingBox box({0, 0, 0}, {1, 1, 1});
    includeSweepPoints(box, 1, 1);
    box.expandFromCenter(0.01);
    return box;
}

bool TdynVolumeCone::isPointInVolume(const T4dDblPoint& point, const TdynVolumeMatrix& matrix) const {
    const T4dDblVector l = matrix.toLocal(point);
    return boundingBox().contains(l) && std::sqrt(l.x * l.x + l.z * l.z) <= l.y && passesSweep(l);
}

T4dDblVector TdynVolumeCone::vectorFromPointInVolume(TdynVolumeVectorType type, const T4dDblPoint& point,
                                                     const TdynVolumeMatrix& matrix, bool testInside) const {
    if (testInside && !isPointInVolume(point, matrix)) return {};
    const T4dDblVector l = matrix.toLocal(point);
    switch (type) {
    case kVolumeAway:
        return localDirectionToWorld({l.x, 0, l.z}, matrix);
    case kVolumeAlong:
        return localDirectionToWorld(l, matrix);
    case kVolumeAround:
        return localDirectionToWorld({l.z, 0, -l.x}, matrix);
    }
    return {};
}

double TdynVolumeCone::distanceFromAxisRatio(const T4dDblPoint& point, const TdynVolumeMatrix& matrix,
                                             bool testInside) const {
    if (testInside && !isPointInVolume(point, matrix)) return 1;
    const T4dDblVector l = matrix.toLocal(point);
    if (!(l.y > 0)) return 0;
    return std::sqrt(l.x * l.x + l.z * l.z) / l.y;
}

T4dDblPoint TdynVolumeCone::randomPointInVolumeFromStreamWarp(unsigned short randomState[3],
                                                              const TdynVolumeMatrix& matrix) const {
    const double u1 = erand48(randomState), u2 = erand48(randomState), u3 = erand48(randomState);
    const double az = fSweepRad * u1;
    const double h = std::sqrt(u3);
    return matrix.toWorld({std::cos(az) * std::sqrt(u2) * h, h, std::sin(az) * std::sqrt(u2) * h});
}

// ---- torus ----

namespace {
// The nearest point of the unit ring in the xz plane (the local point's own direction). On the y axis every
// ring point is as near as any other: take +x, so that the hole stays outside the tube.
T4dDblVector ringPoint(const T4dDblVector& l) {
    if (l.x == 0 && l.z == 0) return {1, 0, 0};
    return T4dDblVector{l.x, 0, l.z}.normal();
}
} // namespace

TboundingBox TdynVolumeTorus::boundingBox() const {
    const double sr = fSectionRadius;
    TboundingBox box({1 - sr, -sr, 0}, {1 + sr, sr, sr});
    includeSweepPoints(box, 1 + sr, 0);
    box.expandFromCenter(0.01);
    return box;
}

bool TdynVolumeTorus::isPointInVolume(const T4dDblPoint& point, const TdynVolumeMatrix& matrix) const {
    const T4dDblVector l = matrix.toLocal(point);
    if (!boundingBox().contains(l) || !passesSweep(l)) return false;
    const double tube = fSectionRadius > 0.01 ? fSectionRadius : 0.01;
    return l.distanceTo(ringPoint(l)) < tube;
}

T4dDblVector TdynVolumeTorus::vectorFromPointInVolume(TdynVolumeVectorType type, const T4dDblPoint& point,
                                                      const TdynVolumeMatrix& matrix, bool testInside) const {
    if (testInside && !isPointInVolume(point, matrix)) return {};
    const T4dDblVector l = matrix.toLocal(point);
    const T4dDblVector ring = ringPoint(l);
    const T4dDblVector tangent = T4dDblVector{0, 1, 0}.cross(ring);
    switch (type) {
    case kVolumeAway:
        return localDirectionToWorld(l - ring, matrix);
    case kVolumeAlong:
        return localDirectionToWorld(tangent, matrix);
    case kVolumeAround:
        return localDirectionToWorld(tangent.cross(l - ring), matrix);
    }
    return {};
}

double TdynVolumeTorus::distanceFromAxis(const T4dDblPoint& point, const TdynVolumeMatrix& matrix) const {
    return point.distanceTo(matrix.toWorld(ringPoint(matrix.toLocal(point))));
}

double TdynVolumeTorus::distanceFromAxisRatio(const T4dDblPoint& point, const TdynVolumeMatrix& matrix,
                                              bool testInside) const {
    if (testInside && !isPointInVolume(point, matrix)) return 1;
    const T4dDblVector l = matrix.toLocal(point);
    if (l.x * l.x + l.z * l.z == 0) return 0;
    if (!(fSectionRadius > 0)) return 1;
    return l.distanceTo(ringPoint(l)) / fSectionRadius;
}

T4dDblPoint TdynVolumeTorus::randomPointInVolumeFromStreamWarp(unsigned short randomState[3],
                                                               const TdynVolumeMatrix& matrix) const {
    const double sr = fSectionRadius;
    if (sr <= 1) {
        const double az = fSweepRad * erand48(randomState);
        const double inner = 1 - sr, outer = 1 + sr;
        const T4dDblVector centre{std::cos(az), 0, std::sin(az)};
        T4dDblVector p;
        // Rejection keeps the density uniform over the tube's section; a zero tube takes the ring itself.
        for (int tries = 0; tries < 1000; ++tries) {
            const double u = erand48(randomState), v = erand48(randomState);
            const double rr = std::sqrt(u * (outer * outer - inner * inner) + inner * inner);
            p = {std::cos(az) * rr, 2 * (v - 0.5) * sr, std::sin(az) * rr};
            if (p.distanceTo(centre) <= sr) break;
            p = centre;
        }
        return matrix.toWorld(p);
    }
    const double u1 = erand48(randomState), u2 = erand48(randomState), u3 = erand48(randomState);
    const double ph = 6.28318530718 * u1, az = fSweepRad * u3;
    const double q = std::sqrt(u2) * sr, w = 1 + std::cos(ph) * q;
    return matrix.toWorld({std::cos(az) * w, q * std::sin(ph), std::sin(az) * w});
}
