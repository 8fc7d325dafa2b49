// Array and matrix operations of TdynStatic.

#include "Commands/Scene/TdynStatic.h"

#include <cmath>

void TdynStatic::scaleArrayByDoubleInPlace(T4dDblVectorArray& array, double s) {
    T4dDblVector* v = array.data();
    for (unsigned i = array.length(); i-- > 0;)
        v[i] *= s;
}

void TdynStatic::scaleArrayByDoubleInPlace(TdoubleArray& array, double s) {
    double* v = array.data();
    for (unsigned i = array.length(); i-- > 0;)
        v[i] *= s;
}

void TdynStatic::scaleArrayByDouble(const T4dDblVectorArray& array, double s, T4dDblVectorArray& out) {
    out.changeLogicalSizeTo(array.length());
    const T4dDblVector* in = array.data();
    T4dDblVector* o = out.data();
    for (unsigned i = array.length(); i-- > 0;)
        o[i] = in[i] * s;
}

void TdynStatic::fillVectorArray(T4dDblVectorArray& array, unsigned n, const T4dDblVector& value) {
    array.changeLogicalSizeTo(n);
    array.fill(value);
}

T4dDblMatrix TdynStatic::matrixWithoutTranslation(const T4dDblMatrix& m) {
    T4dDblMatrix out = m;
    out.m[3][0] = out.m[3][1] = out.m[3][2] = 0;
    return out;
}

namespace {
double rowLength(const T4dDblMatrix& m, int r) {
    return std::sqrt(m.m[r][0] * m.m[r][0] + m.m[r][1] * m.m[r][1] + m.m[r][2] * m.m[r][2]);
}
} // namespace

T4dDblMatrix TdynStatic::matrixWithoutRotation(const T4dDblMatrix& m) {
    T4dDblMatrix out;
    for (int r = 0; r < 3; ++r)
        out.m[r][r] = rowLength(m, r);
    for (int c = 0; c < 3; ++c)
        out.m[3][c] = m.m[3][c];
    return out;
}

T4dDblMatrix TdynStatic::matrixWithoutScale(const T4dDblMatrix& m) {
    T4dDblMatrix out = m;
    for (int r = 0; r < 3; ++r) {
        double len = rowLength(m, r);
        if (len > 1e-10)
            for (int c = 0; c < 3; ++c)
                out.m[r][c] /= len;
    }
    return out;
}

void TdynStatic::transformVectorArrayByMatrix(T4dDblVectorArray& array, const T4dDblMatrix& m,
                                              bool asPoints) {
    T4dDblVector* v = array.data();
    if (asPoints)
        for (unsigned i = array.length(); i-- > 0;)
            v[i] = m.transformPoint(v[i]);
    else
        for (unsigned i = array.length(); i-- > 0;)
            v[i] = m.transformVector(v[i]);
}

void TdynStatic::transformCopyOfVectorArrayByMatrix(const T4dDblVectorArray& array, const T4dDblMatrix& m,
                                                    T4dDblVectorArray& out, bool asPoints) {
    out.changeLogicalSizeTo(array.length());
    const T4dDblVector* in = array.data();
    T4dDblVector* o = out.data();
    if (asPoints)
        for (unsigned i = array.length(); i-- > 0;)
            o[i] = m.transformPoint(in[i]);
    else
        for (unsigned i = array.length(); i-- > 0;)
            o[i] = m.transformVector(in[i]);
}

T4dDblVector TdynStatic::worldVelocityOfPoint(const T4dDblVector& p, const T4dDblMatrix& oldMatrix,
                                              const T4dDblMatrix& newMatrix, double dt) {
    if (std::fabs(dt) < 1e-10) return {};
    T4dDblVector local = newMatrix.inverse().transformPoint(p);
    T4dDblVector before = oldMatrix.transformPoint(local);
    return (p - before) / dt;
}

T4dDblVectorArray* TdynStatic::writableDataVectorArray(Tdata& d) {
    if (d.isNULL()) d = makeData<TdataVectorArray>();
    d.makeWriter();
    return dataVectorArray(d);
}

TdoubleArray* TdynStatic::writableDataDoubleArray(Tdata& d) {
    if (d.isNULL()) d = makeData<TdataDoubleArray>();
    d.makeWriter();
    return dataDoubleArray(d);
}
