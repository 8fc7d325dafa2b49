#include "Host/Data/TdataArrayAttrs.h"

#include <algorithm>

const TletterClass TdataArrayAttrs::sClass{"arrayAttrs", nullptr};

TdataArrayAttrs::Entry& TdataArrayAttrs::entry(const Tstring& n, Kind k) {
    if (auto it = fIndex.find(n); it != fIndex.end()) {
        Entry& e = fEntries[it->second];
        e = Entry{n, k, {}, {}, {}, {}, {}};
        return e;
    }
    fIndex.emplace(n, static_cast<unsigned>(fEntries.size()));
    fEntries.push_back(Entry{n, k, {}, {}, {}, {}, {}});
    return fEntries.back();
}

TdataArrayAttrs::Entry* TdataArrayAttrs::find(const Tstring& n, Kind k) {
    auto it = fIndex.find(n);
    if (it == fIndex.end()) return nullptr;
    Entry& e = fEntries[it->second];
    return e.kind == k ? &e : nullptr;
}

TdoubleArray& TdataArrayAttrs::addDoubleData(const Tstring& n) {
    return entry(n, Kind::Double).doubles;
}
T4dDblVectorArray& TdataArrayAttrs::addVectorData(const Tstring& n) {
    return entry(n, Kind::Vector).vectors;
}
Tint32Array& TdataArrayAttrs::addInt32Data(const Tstring& n) {
    return entry(n, Kind::Int32).ints;
}
TstringArray& TdataArrayAttrs::addStringData(const Tstring& n) {
    return entry(n, Kind::String).strings;
}
TvoidPtrArray& TdataArrayAttrs::addVoidPtrData(const Tstring& n) {
    return entry(n, Kind::VoidPtr).pointers;
}

void TdataArrayAttrs::add(const Tstring& n, const Tdata& data) {
    if (auto* d = data.as<TdataDoubleArray>())
        addDoubleData(n) = d->array();
    else if (auto* v = data.as<TdataVectorArray>())
        addVectorData(n) = v->array();
    else if (auto* i = data.as<TdataInt32Array>())
        addInt32Data(n) = i->array();
    else if (auto* s = data.as<TdataStringArray>())
        addStringData(n) = s->array();
}

TdoubleArray* TdataArrayAttrs::getDoubleData(const Tstring& n) {
    Entry* e = find(n, Kind::Double);
    return e ? &e->doubles : nullptr;
}
T4dDblVectorArray* TdataArrayAttrs::getVectorData(const Tstring& n) {
    Entry* e = find(n, Kind::Vector);
    return e ? &e->vectors : nullptr;
}
Tint32Array* TdataArrayAttrs::getInt32Data(const Tstring& n) {
    Entry* e = find(n, Kind::Int32);
    return e ? &e->ints : nullptr;
}
TstringArray* TdataArrayAttrs::getStringData(const Tstring& n) {
    Entry* e = find(n, Kind::String);
    return e ? &e->strings : nullptr;
}

TvoidPtrArray* TdataArrayAttrs::getVoidPtrData(const Tstring& n) {
    Entry* e = find(n, Kind::VoidPtr);
    return e ? &e->pointers : nullptr;
}

bool TdataArrayAttrs::getIndex(const Tstring& n, unsigned& index) const {
    auto it = fIndex.find(n);
    if (it == fIndex.end()) return false;
    index = it->second;
    return true;
}

unsigned TdataArrayAttrs::arrayLength(unsigned i) const {
    const Entry& e = fEntries[i];
    switch (e.kind) {
    case Kind::Double:
        return e.doubles.length();
    case Kind::Vector:
        return e.vectors.length();
    case Kind::Int32:
        return e.ints.length();
    case Kind::String:
        return e.strings.length();
    case Kind::VoidPtr:
        return e.pointers.length();
    }
    return 0;
}

unsigned TdataArrayAttrs::longestArraySize() const {
    unsigned n = 0;
    for (unsigned i = 0; i < count(); ++i)
        n = std::max(n, arrayLength(i));
    return n;
}

namespace {
template <class A> void fillTo(A& a, unsigned n, bool fillEmpty) {
    if (a.length() >= n) return;
    if (a.isEmpty()) {
        if (fillEmpty) a.changeLogicalSizeTo(n);
        return;
    }
    auto last = a.last();
    unsigned from = a.length();
    a.changeLogicalSizeTo(n);
    for (unsigned k = from; k < n; ++k)
        a[k] = last;
}
} // namespace

void TdataArrayAttrs::justifyAndFillArrays(bool fillEmpty) {
    unsigned n = longestArraySize();
    for (Entry& e : fEntries) {
        fillTo(e.doubles, n, fillEmpty && e.kind == Kind::Double);
        fillTo(e.vectors, n, fillEmpty && e.kind == Kind::Vector);
        fillTo(e.ints, n, fillEmpty && e.kind == Kind::Int32);
        fillTo(e.strings, n, fillEmpty && e.kind == Kind::String);
        fillTo(e.pointers, n, fillEmpty && e.kind == Kind::VoidPtr);
    }
}
