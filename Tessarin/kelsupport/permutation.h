#pragma once
#include <vector>

class mvector;
class matrix;

// A permutation of 0..n-1; p[i] is the source index that lands at i.
class permutation {
public:
    permutation() = default; // the null permutation
    explicit permutation(int n) { declare(n); }
    permutation(const permutation&) = default;

    void declare(int n); // identity of size n; a non-null one is an error
    int size() const { return int(p_.size()); }
    bool null() const { return p_.empty(); }
    int operator[](int i) const { return p_[i]; }
    int& operator[](int i) { return p_[i]; }

    void swap(int i, int j);
    permutation inverse() const;
    permutation& operator=(const permutation& o);
    permutation& operator=(int c);                     // only the unit constant 1
    permutation operator*(const permutation& o) const; // (this*o)[i] = this[o[i]]
    mvector operator*(const mvector& v) const;         // (P v)[i] = v[p[i]]
    matrix operator*(const matrix& m) const;           // rows permuted

private:
    std::vector<int> p_;
};
