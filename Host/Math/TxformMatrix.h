#pragma once

#include "Host/Math/T4dDblMatrix.h"

// A transform kept as its parts (what users edit) rather than as a matrix.
// Rotation angles are in degrees, as typed. Shear holds (xy, xz, yz).
class TxformMatrix {
public:
    enum RotateOrder { kXYZ = 0, kYZX = 1, kZXY = 2, kXZY = 3, kYXZ = 4, kZYX = 5 };

    TxformMatrix() = default;
    // Decomposes; see decompose().
    explicit TxformMatrix(const T4dDblMatrix& m, int rotateOrder = kXYZ) { decompose(m, rotateOrder); }

    T4dDblVector translation() const { return translate_; }
    void setTranslation(const T4dDblVector& t) { translate_ = t; }
    void translateBy(const T4dDblVector& d) { translate_ += d; }

    // Degrees.
    T4dDblVector rotation() const { return rotate_; }
    void setRotation(const T4dDblVector& degrees) { rotate_ = degrees; }
    void rotateBy(const T4dDblVector& degrees) { rotate_ += degrees; }
    int rotateOrder() const { return order_; }
    // Orders outside 0..5 fall back to xyz.
    void setRotateOrder(int order) { order_ = (order >= 0 && order <= 5) ? order : kXYZ; }

    T4dDblVector scale() const { return scale_; }
    void setScale(const T4dDblVector& s) { scale_ = s; }
    // Component by component.
    void scaleBy(const T4dDblVector& s) { scale_ = {scale_.x * s.x, scale_.y * s.y, scale_.z * s.z}; }

    T4dDblVector shear() const { return shear_; }
    void setShear(const T4dDblVector& s) { shear_ = s; }

    T4dDblVector rotatePivot() const { return rotatePivot_; }
    void setRotatePivot(const T4dDblVector& p) { rotatePivot_ = p; }
    T4dDblVector rotatePivotTranslation() const { return rotatePivotTranslate_; }
    void setRotatePivotTranslation(const T4dDblVector& t) { rotatePivotTranslate_ = t; }
    T4dDblVector scalePivot() const { return scalePivot_; }
    void setScalePivot(const T4dDblVector& p) { scalePivot_ = p; }
    T4dDblVector scalePivotTranslation() const { return scalePivotTranslate_; }
    void setScalePivotTranslation(const T4dDblVector& t) { scalePivotTranslate_ = t; }

    // -scalePivot, scale, shear, +scalePivot, +scalePivotTranslate, -rotatePivot, rotate, +rotatePivot,
    // +rotatePivotTranslate, translate; row vectors, so the first applied is leftmost.
    T4dDblMatrix asMatrix() const;
    T4dDblMatrix matrix() const { return asMatrix(); }
    T4dDblMatrix inverse() const { return asMatrix().inverse(); }

    // Splits an affine matrix into translate, rotate (in the given order), scale and shear, with every pivot
    // cleared. A mirror goes into a negative x scale. Returns false (and keeps the translation only) when the
    // upper 3x3 is singular.
    bool decompose(const T4dDblMatrix& m, int rotateOrder = kXYZ);

    // Rotation part alone, for angles in degrees and the given order.
    static T4dDblMatrix rotationMatrix(const T4dDblVector& degrees, int rotateOrder);
    // Angles in degrees of a pure rotation matrix for the given order, each in (-180, 180].
    static T4dDblVector eulerFromRotation(const T4dDblMatrix& r, int rotateOrder);
    // The same rotation as the nearest angles to `previous`, so that a spinning object's angles keep
    // counting past 180 instead of jumping (for angles written out frame after frame).
    static T4dDblVector eulerFromRotationNear(const T4dDblMatrix& r, int rotateOrder,
                                              const T4dDblVector& previous);

    bool isEquivalent(const TxformMatrix& o, double tol = 1e-10) const {
        return order_ == o.order_ && translate_.isEquivalent(o.translate_, tol) &&
               rotate_.isEquivalent(o.rotate_, tol) && scale_.isEquivalent(o.scale_, tol) &&
               shear_.isEquivalent(o.shear_, tol) && rotatePivot_.isEquivalent(o.rotatePivot_, tol) &&
               rotatePivotTranslate_.isEquivalent(o.rotatePivotTranslate_, tol) &&
               scalePivot_.isEquivalent(o.scalePivot_, tol) &&
               scalePivotTranslate_.isEquivalent(o.scalePivotTranslate_, tol);
    }

private:
    T4dDblVector translate_;
    T4dDblVector rotate_;
    T4dDblVector scale_{1, 1, 1};
    T4dDblVector shear_;
    T4dDblVector rotatePivot_, rotatePivotTranslate_;
    T4dDblVector scalePivot_, scalePivotTranslate_;
    int order_ = kXYZ;
};
