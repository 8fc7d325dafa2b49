#pragma once
// Growable array of plain values. The element store and the length are read
// directly in hot loops (`data()`, `length()`); everything else is for setup.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

template <class T> class Tarray {
public:
    Tarray() = default;
    explicit Tarray(std::size_t n, const T& fill = T()) : fItems(n, fill) {}
    Tarray(std::initializer_list<T> items) : fItems(items) {}

    unsigned length() const { return static_cast<unsigned>(fItems.size()); }
    bool isEmpty() const { return fItems.empty(); }

    // Sets the logical length, keeping the leading elements. New elements are
    // value-initialised so that runs repeat bit for bit.
    void changeLogicalSizeTo(unsigned n) { fItems.resize(n); }
    void clear() { fItems.clear(); }
    void reserve(unsigned n) { fItems.reserve(n); }

    T* data() { return fItems.data(); }
    const T* data() const { return fItems.data(); }
    T& operator[](unsigned i) { return fItems[i]; }
    const T& operator[](unsigned i) const { return fItems[i]; }
    T& last() { return fItems.back(); }
    const T& last() const { return fItems.back(); }

    void addLast(const T& v) { fItems.push_back(v); }
    void copy(const Tarray& other) { fItems = other.fItems; }
    void catenate(const Tarray& other) { fItems.insert(fItems.end(), other.fItems.begin(), other.fItems.end()); }
    void insert(unsigned at, const T& v) { fItems.insert(fItems.begin() + at, v); }
    void remove(unsigned at) { fItems.erase(fItems.begin() + at); }
    void fill(const T& v) { std::fill(fItems.begin(), fItems.end(), v); }

    auto begin() { return fItems.begin(); }
    auto end() { return fItems.end(); }
    auto begin() const { return fItems.begin(); }
    auto end() const { return fItems.end(); }

    bool operator==(const Tarray& other) const { return fItems == other.fItems; }

    std::vector<T>& vector() { return fItems; }
    const std::vector<T>& vector() const { return fItems; }

private:
    std::vector<T> fItems;
};

using Tstring = std::string;
using TdoubleArray = Tarray<double>;
using Tint32Array = Tarray<std::int32_t>;
using TuInt32Array = Tarray<std::uint32_t>;
using TbooleanArray = Tarray<std::uint8_t>;
using TstringArray = Tarray<Tstring>;
using TvoidPtrArray = Tarray<void*>;
