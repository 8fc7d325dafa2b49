#pragma once
#include <iosfwd>

#include "Tessarin/kelsupport/triple.h"

class matrix;
class permutation;

// A dense vector of doubles. Storage rules:
//  - built on an external pointer it is a view and never frees;
//  - owning with at most 6 elements it uses the inline room;
//  - owning above 6 it takes the heap, except that one buffer is parked
//    process-wide: a dying vector parks its buffer if the cache is empty, and a
//    vector asking for exactly the parked size takes it. The state-sized
//    vectors of the integrator live on that.
class mvector {
public:
    static constexpr int inline_room = 6;

    mvector() = default; // the null vector
    explicit mvector(int n);
    mvector(int n, double* external); // a view
    mvector(const mvector& o);
    mvector(mvector&& o) noexcept;
    ~mvector();

    mvector& operator=(const mvector& o);
    mvector& operator=(double c); // only the constant 0 is legal

    // Gives a null vector its size; redeclaring a sized one is an error.
    void declare(int n);
    // Changes the size of an owning vector, keeping nothing; a view is reported.
    void resize(int n);
    // Makes this a view of external memory, letting go of what it had.
    void view(int n, double* external);

    int size() const { return n_; }
    bool null() const { return n_ == 0; }
    double* data() { return p_; }
    const double* data() const { return p_; }
    double& operator[](int i) { return p_[i]; }
    double operator[](int i) const { return p_[i]; }
    bool owns() const { return own_; }
    bool on_heap() const { return own_ && p_ != local_ && p_ != nullptr; }

    mvector operator+(const mvector& o) const;
    mvector operator-(const mvector& o) const;
    mvector operator-() const;
    mvector operator*(double s) const;
    mvector& operator+=(const mvector& o);
    mvector& operator-=(const mvector& o);
    mvector& operator*=(double s);
    bool operator==(const mvector& o) const;
    bool operator==(double c) const;           // only against 0
    double operator*(const mvector& o) const;  // dot product
    mvector operator^(const mvector& o) const; // cross product, size 3 only
    mvector operator*(const matrix& m) const;  // row vector times matrix
    mvector operator*(const permutation& p) const;

    // this = a x + y
    void axpy(double a, const mvector& x, const mvector& y);
    // this = a x
    void ax(double a, const mvector& x);
    void zero();
    double length() const;

    // The parked buffer, for tests and statistics.
    static const double* parked_buffer();
    static int parked_size();
    // Frees the parked buffer, if any.
    static void free_parked();

private:
    void allocate(int n);
    void release();

    int n_ = 0;
    double* p_ = nullptr;
    bool own_ = true;
    double local_[inline_room] = {};
};

inline mvector operator*(double s, const mvector& v) {
    return v * s;
}

std::ostream& operator<<(std::ostream& os, const mvector& v);
std::istream& operator>>(std::istream& is, mvector& v);
