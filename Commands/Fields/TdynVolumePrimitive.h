#pragma once
// Canonical solids in their own local space: the gate and the direction
// source of volume fields, and the random point source of volume emitters.
// A primitive does not know where it stands; each call takes its placement.

#include "Host/Math/T4dDblMatrix.h"
#include "Host/Math/T4dDblVector.h"
#include "Host/Math/TboundingBox.h"
#include "Host/Math/TxformMatrix.h"

class Tcomputation;

// Where a primitive stands: its local-to-world matrix with the inverse, the
// rotation alone and the axis scales worked out once, so that the per-point
// calls do no matrix algebra.
struct TdynVolumeMatrix {
    T4dDblMatrix matrix;
    T4dDblMatrix inverse;
    T4dDblMatrix rotation; // no scale, no translation
    T4dDblVector scale{1, 1, 1};

    TdynVolumeMatrix() = default;
    explicit TdynVolumeMatrix(const T4dDblMatrix& m);
    explicit TdynVolumeMatrix(const TxformMatrix& x) : TdynVolumeMatrix(x.asMatrix()) {}

    T4dDblVector toLocal(const T4dDblVector& p) const { return inverse.transformPoint(p); }
    T4dDblVector toWorld(const T4dDblVector& p) const { return matrix.transformPoint(p); }
};

enum TdynVolumeVectorType { kVolumeAway = 1, kVolumeAlong = 2, kVolumeAround = 3 };

class TdynVolumePrimitive {
public:
    virtual ~TdynVolumePrimitive() = default;

    virtual double volume(const TdynVolumeMatrix& matrix) const;
    virtual TboundingBox boundingBox() const;
    virtual bool isPointInVolume(const T4dDblPoint& point, const TdynVolumeMatrix& matrix) const = 0;
    // Unit world direction of the given type at the point; zero when `testInside` and the point is out.
    virtual T4dDblVector vectorFromPointInVolume(TdynVolumeVectorType type, const T4dDblPoint& point,
                                                 const TdynVolumeMatrix& matrix, bool testInside) const = 0;
    virtual double distanceFromAxis(const T4dDblPoint& point, const TdynVolumeMatrix& matrix) const;
    // 0 on the axis, 1 at the surface (local units); 1 when `testInside` and the point is out.
    virtual double distanceFromAxisRatio(const T4dDblPoint& point, const TdynVolumeMatrix& matrix,
                                         bool testInside) const = 0;
    // A point of the solid placed by the matrix, from the three-word erand48 state.
    virtual T4dDblPoint randomPointInVolumeFromStreamWarp(unsigned short randomState[3],
                                                          const TdynVolumeMatrix& matrix) const;
    virtual double basePrimitiveVolume() const = 0;

    double volumeScaleOfBasePrimitive(const TdynVolumeMatrix& matrix) const;
    bool isPointInBoundingBox(const T4dDblPoint& point, const TdynVolumeMatrix& matrix) const {
        return boundingBox().contains(matrix.toLocal(point));
    }
    bool isPointInBoundingBoxInverseMatrix(const T4dDblPoint& point,
                                           const T4dDblMatrix& inverseMatrix) const {
        return boundingBox().contains(inverseMatrix.transformPoint(point));
    }
    // What emitters call; `interrupted` is left false (one draw never runs long).
    T4dDblPoint randomPointInVolumeFromStreamWithInterrupt(unsigned short randomState[3], bool& interrupted,
                                                           TdynVolumeMatrix matrix,
                                                           Tcomputation* computation) const;
    // Kept for outside callers: the matrix is applied twice.
    T4dDblPoint randomPointInVolumeFromStream(unsigned short randomState[3],
                                              const TdynVolumeMatrix& matrix) const;

protected:
    // Direction from local to world: rotation only, unit length.
    static T4dDblVector localDirectionToWorld(const T4dDblVector& local, const TdynVolumeMatrix& matrix);
};

// Swept solids keep the sweep around the y axis, from +x towards +z.
class TdynVolumeSwept : public TdynVolumePrimitive {
public:
    // Degrees, brought into [0, 360].
    void setSweep(double degrees);
    double sweep() const { return fSweep; }
    double sweepRad() const { return fSweepRad; }
    // Whether a local point lies within the swept angle.
    bool passesSweep(const T4dDblVector& local) const;

protected:
    // The quadrant points a sweep reaches, at radius r and height y.
    void includeSweepPoints(TboundingBox& box, double r, double y) const;
    double fSweep = 360;
    double fSweepRad = 6.28318530718;
};

class TdynVolumeCube : public TdynVolumePrimitive {
public:
    TboundingBox boundingBox() const override;
    bool isPointInVolume(const T4dDblPoint& point, const TdynVolumeMatrix& matrix) const override;
    T4dDblVector vectorFromPointInVolume(TdynVolumeVectorType type, const T4dDblPoint& point,
                                         const TdynVolumeMatrix& matrix, bool testInside) const override;
    double distanceFromAxisRatio(const T4dDblPoint& point, const TdynVolumeMatrix& matrix,
                                 bool testInside) const override;
    T4dDblPoint randomPointInVolumeFromStreamWarp(unsigned short randomState[3],
                                                  const TdynVolumeMatrix& matrix) const override;
    double basePrimitiveVolume() const override { return 8; }
};

class TdynVolumeSphere : public TdynVolumeSwept {
public:
    TboundingBox boundingBox() const override;
    bool isPointInVolume(const T4dDblPoint& point, const TdynVolumeMatrix& matrix) const override;
    T4dDblVector vectorFromPointInVolume(TdynVolumeVectorType type, const T4dDblPoint& point,
                                         const TdynVolumeMatrix& matrix, bool testInside) const override;
    double distanceFromAxis(const T4dDblPoint& point, const TdynVolumeMatrix& matrix) const override;
    double distanceFromAxisRatio(const T4dDblPoint& point, const TdynVolumeMatrix& matrix,
                                 bool testInside) const override;
    T4dDblPoint randomPointInVolumeFromStreamWarp(unsigned short randomState[3],
                                                  const TdynVolumeMatrix& matrix) const override;
    double basePrimitiveVolume() const override { return fSweep * (1.0 / 360.0) * 4.1887902; }
};

class TdynVolumeCylinder : public TdynVolumeSwept {
public:
    TboundingBox boundingBox() const override;
    bool isPointInVolume(const T4dDblPoint& point, const TdynVolumeMatrix& matrix) const override;
    T4dDblVector vectorFromPointInVolume(TdynVolumeVectorType type, const T4dDblPoint& point,
                                         const TdynVolumeMatrix& matrix, bool testInside) const override;
    double distanceFromAxisRatio(const T4dDblPoint& point, const TdynVolumeMatrix& matrix,
                                 bool testInside) const override;
    T4dDblPoint randomPointInVolumeFromStreamWarp(unsigned short randomState[3],
                                                  const TdynVolumeMatrix& matrix) const override;
    double basePrimitiveVolume() const override { return fSweep * (1.0 / 360.0) * 6.2831853; }
};

class TdynVolumeCone : public TdynVolumeSwept {
public:
    TboundingBox boundingBox() const override;
    bool isPointInVolume(const T4dDblPoint& point, const TdynVolumeMatrix& matrix) const override;
    T4dDblVector vectorFromPointInVolume(TdynVolumeVectorType type, const T4dDblPoint& point,
                                         const TdynVolumeMatrix& matrix, bool testInside) const override;
    double distanceFromAxisRatio(const T4dDblPoint& point, const TdynVolumeMatrix& matrix,
                                 bool testInside) const override;
    T4dDblPoint randomPointInVolumeFromStreamWarp(unsigned short randomState[3],
                                                  const TdynVolumeMatrix& matrix) const override;
    double basePrimitiveVolume() const override { return fSweep * (1.0 / 360.0) * 1.0471976; }
};

class TdynVolumeTorus : public TdynVolumeSwept {
public:
    void setSectionRadius(double r) { fSectionRadius = r < 0 ? 0 : r; }
    double sectionRadius() const { return fSectionRadius; }

    TboundingBox boundingBox() const override;
    bool isPointInVolume(const T4dDblPoint& point, const TdynVolumeMatrix& matrix) const override;
    T4dDblVector vectorFromPointInVolume(TdynVolumeVectorType type, const T4dDblPoint& point,
                                         const TdynVolumeMatrix& matrix, bool testInside) const override;
    double distanceFromAxis(const T4dDblPoint& point, const TdynVolumeMatrix& matrix) const override;
    double distanceFromAxisRatio(const T4dDblPoint& point, const TdynVolumeMatrix& matrix,
                                 bool testInside) const override;
    T4dDblPoint randomPointInVolumeFromStreamWarp(unsigned short randomState[3],
                                                  const TdynVolumeMatrix& matrix) const override;
    double basePrimitiveVolume() const override {
        return fSectionRadius * fSectionRadius * 19.739209 * fSweep * (1.0 / 360.0);
    }

private:
    double fSectionRadius = 0.5;
};
