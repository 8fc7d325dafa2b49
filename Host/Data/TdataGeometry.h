#pragma once
// Geometry letters: a mesh or a curve with the matrix that places it, and a
// point iterator over either.

#include "Host/Data/Tdata.h"
#include "Host/Geometry/TpolyMesh.h"
#include "Host/Geometry/Tcurve.h"
#include "Host/Geometry/TgeometryIterator.h"
#include "Host/Math/T4dDblMatrix.h"

#include <vector>

class TdataGeometry : public Tletter {
public:
    static const TletterClass sClass;
    const T4dDblMatrix& matrix() const { return fMatrix; }
    void setMatrix(const T4dDblMatrix& m) { fMatrix = m; }
    virtual TgeometryIterator iterator() const = 0;

private:
    T4dDblMatrix fMatrix;
};

class TdataMesh : public TdataGeometry {
    TLETTER_CLASS(TdataMesh)
public:
    TdataMesh() = default;
    explicit TdataMesh(TpolyMesh m) : fMesh(std::move(m)) {}
    TpolyMesh& mesh() { return fMesh; }
    const TpolyMesh& mesh() const { return fMesh; }
    TgeometryIterator iterator() const override { return TgeometryIterator(fMesh); }

private:
    TpolyMesh fMesh;
};

class TdataCurve : public TdataGeometry {
    TLETTER_CLASS(TdataCurve)
public:
    TdataCurve() = default;
    explicit TdataCurve(Tcurve c) : fCurve(std::move(c)) {}
    Tcurve& curve() { return fCurve; }
    const Tcurve& curve() const { return fCurve; }
    TgeometryIterator iterator() const override { return TgeometryIterator(fCurve); }

private:
    Tcurve fCurve;
};
