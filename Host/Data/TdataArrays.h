#pragma once
// The graph's data letters for arrays, strings and matrices.

#include "Host/Base/Tarray.h"
#include "Host/Data/Tdata.h"
#include "Host/Math/T4dDblMatrix.h"
#include "Host/Math/T4dDblVector.h"

using T4dDblVectorArray = Tarray<T4dDblVector>;

// A letter holding one array; `array()` is the element store the simulation loops over.
template <class A> class TdataArrayOf : public Tletter {
public:
    using ArrayType = A;
    TdataArrayOf() = default;
    explicit TdataArrayOf(A a) : fArray(std::move(a)) {}
    A& array() { return fArray; }
    const A& array() const { return fArray; }
    unsigned length() const { return fArray.length(); }

private:
    A fArray;
};

class TdataDoubleArray : public TdataArrayOf<TdoubleArray> {
    TLETTER_CLASS(TdataDoubleArray)
public:
    using TdataArrayOf::TdataArrayOf;
};

class TdataVectorArray : public TdataArrayOf<T4dDblVectorArray> {
    TLETTER_CLASS(TdataVectorArray)
public:
    using TdataArrayOf::TdataArrayOf;
};

class TdataInt32Array : public TdataArrayOf<Tint32Array> {
    TLETTER_CLASS(TdataInt32Array)
public:
    using TdataArrayOf::TdataArrayOf;
};

class TdataStringArray : public TdataArrayOf<TstringArray> {
    TLETTER_CLASS(TdataStringArray)
public:
    using TdataArrayOf::TdataArrayOf;
};

class TdataString : public Tletter {
    TLETTER_CLASS(TdataString)
public:
    TdataString() = default;
    explicit TdataString(Tstring s) : fString(std::move(s)) {}
    Tstring& string() { return fString; }
    const Tstring& string() const { return fString; }

private:
    Tstring fString;
};

class TdataMatrix : public Tletter {
    TLETTER_CLASS(TdataMatrix)
public:
    TdataMatrix() = default;
    explicit TdataMatrix(const T4dDblMatrix& m) : fMatrix(m) {}
    T4dDblMatrix& matrix() { return fMatrix; }
    const T4dDblMatrix& matrix() const { return fMatrix; }

private:
    T4dDblMatrix fMatrix;
};
