#pragma once
// One object's state at one time, as the export drivers write it: the particle
// count and named columns that point into the object's arrays (the letters are
// held, so nothing is copied). Drivers write a frame; tests can build one by hand.

#include "Host/Data/Tdata.h"
#include "Host/Data/TdataArrays.h"
#include "Host/Math/T4dDblVector.h"

#include <cstdint>
#include <string>
#include <vector>

class TdynParticleShape;
class Tattribute;

struct TdynExportColumn {
    // The values are the type codes of particle data files.
    enum Kind {
        kIntScalar = 0,
        kIntArray = 1,
        kDoubleScalar = 2,
        kDoubleArray = 3,
        kVectorScalar = 4,
        kVectorArray = 5
    };

    Tstring name;
    Kind kind = kDoubleScalar;
    unsigned length = 0; // arrays: elements behind the pointer
    const double* doubles = nullptr;
    const T4dDblVector* vectors = nullptr;
    const std::int32_t* ints = nullptr;
    double scalar[3] = {0, 0, 0}; // scalars: the value (vectors use all three)
    Tdata keep;                   // keeps the array's letter alive

    bool isArray() const { return kind == kIntArray || kind == kDoubleArray || kind == kVectorArray; }
    // Convenience makers for code that owns the arrays itself.
    static TdynExportColumn doubleArray(Tstring name, const double* values, unsigned n);
    static TdynExportColumn vectorArray(Tstring name, const T4dDblVector* values, unsigned n);
    static TdynExportColumn intArray(Tstring name, const std::int32_t* values, unsigned n);
    static TdynExportColumn doubleScalar(Tstring name, double v);
    static TdynExportColumn intScalar(Tstring name, std::int32_t v);
    static TdynExportColumn vectorScalar(Tstring name, const T4dDblVector& v);
};

struct TdynExportFrame {
    std::int32_t count = 0;
    std::vector<TdynExportColumn> columns;

    // Reads `names` from the object's normal block, in order. An unknown name is
    // skipped; an attribute of a kind no file can hold stops with false and its
    // name in `error`. Reading `count` first takes the object's step.
    bool gather(TdynParticleShape& object, const std::vector<Tstring>& names, Tstring& error);
    // The column's kind for an attribute, or false for a kind no file holds.
    static bool kindOf(const Tattribute* attribute, TdynExportColumn::Kind& kind);
};
