#pragma once
// One attribute's values as they stood at a cached time: an owned copy of a
// double array or of a vector array, never both.

#include "Host/Data/TdataArrays.h"

#include <memory>
#include <vector>

class TdynCachedAttribute {
public:
    TdynCachedAttribute(Tstring name, const TdoubleArray& values)
        : fName(std::move(name)), fDoubles(std::make_unique<TdoubleArray>(values)) {}
    TdynCachedAttribute(Tstring name, const T4dDblVectorArray& values)
        : fName(std::move(name)), fVectors(std::make_unique<T4dDblVectorArray>(values)) {}
    TdynCachedAttribute(const TdynCachedAttribute& o)
        : fName(o.fName), fDoubles(o.fDoubles ? std::make_unique<TdoubleArray>(*o.fDoubles) : nullptr),
          fVectors(o.fVectors ? std::make_unique<T4dDblVectorArray>(*o.fVectors) : nullptr) {}
    TdynCachedAttribute& operator=(const TdynCachedAttribute&) = delete;

    const Tstring& name() const { return fName; }
    bool isVector() const { return fVectors != nullptr; }
    TdoubleArray* doubles() { return fDoubles.get(); }
    T4dDblVectorArray* vectors() { return fVectors.get(); }
    const TdoubleArray* doubles() const { return fDoubles.get(); }
    const T4dDblVectorArray* vectors() const { return fVectors.get(); }
    unsigned length() const { return fVectors ? fVectors->length() : fDoubles->length(); }

private:
    Tstring fName;
    std::unique_ptr<TdoubleArray> fDoubles;
    std::unique_ptr<T4dDblVectorArray> fVectors;
};

using TdynCachedAttributePtrArray = std::vector<std::unique_ptr<TdynCachedAttribute>>;
