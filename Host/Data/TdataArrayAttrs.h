#pragma once
// A named bag of arrays describing one batch of particles (what emitters hand
// over, and what collision records are made of).

#include "Host/Data/TdataArrays.h"

#include <unordered_map>
#include <vector>

class TdataArrayAttrs : public Tletter {
    TLETTER_CLASS(TdataArrayAttrs)
public:
    enum class Kind { Double, Vector, Int32, String, VoidPtr };

    void clear() {
        fEntries.clear();
        fIndex.clear();
    }
    unsigned count() const { return static_cast<unsigned>(fEntries.size()); }

    // Adds an array under a name (replacing one of the same name) and returns it.
    TdoubleArray& addDoubleData(const Tstring& name);
    T4dDblVectorArray& addVectorData(const Tstring& name);
    Tint32Array& addInt32Data(const Tstring& name);
    TstringArray& addStringData(const Tstring& name);
    TvoidPtrArray& addVoidPtrData(const Tstring& name);
    // Adds a copy of an array letter under a name.
    void add(const Tstring& name, const Tdata& data);

    TdoubleArray* getDoubleData(const Tstring& name);
    T4dDblVectorArray* getVectorData(const Tstring& name);
    Tint32Array* getInt32Data(const Tstring& name);
    TstringArray* getStringData(const Tstring& name);
    TvoidPtrArray* getVoidPtrData(const Tstring& name);
    bool getIndex(const Tstring& name, unsigned& index) const;

    bool isDoubleType(unsigned i) const { return fEntries[i].kind == Kind::Double; }
    bool isVectorType(unsigned i) const { return fEntries[i].kind == Kind::Vector; }
    Kind kind(unsigned i) const { return fEntries[i].kind; }
    const Tstring& name(unsigned i) const { return fEntries[i].name; }
    unsigned arrayLength(unsigned i) const;
    TdoubleArray& doubles(unsigned i) { return fEntries[i].doubles; }
    T4dDblVectorArray& vectors(unsigned i) { return fEntries[i].vectors; }
    Tint32Array& ints(unsigned i) { return fEntries[i].ints; }

    unsigned longestArraySize() const;
    // Brings every array to the longest length by repeating its last element;
    // with `fillEmpty` false, empty arrays stay empty.
    void justifyAndFillArrays(bool fillEmpty);

private:
    struct Entry {
        Tstring name;
        Kind kind;
        TdoubleArray doubles;
        T4dDblVectorArray vectors;
        Tint32Array ints;
        TstringArray strings;
        TvoidPtrArray pointers;
    };
    Entry& entry(const Tstring& name, Kind kind);
    Entry* find(const Tstring& name, Kind kind);

    std::vector<Entry> fEntries;
    // Names to places, so that a batch of many arrays is found and filled in linear time.
    std::unordered_map<Tstring, unsigned> fIndex;
};
