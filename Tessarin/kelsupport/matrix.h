#pragma once
#include <iosfwd>

#include "Tessarin/kelsupport/mvector.h"

class permutation;

// Row-major dense matrix with inline room for 36 elements (6x6 and smaller never
// allocate). It can wrap external memory, which it then never frees.
class matrix {
public:
    static constexpr int inline_room = 36;
    // Marker exponent for the transpose in operator^.
    static constexpr int T = 2;

    matrix() = default; // the null matrix
    matrix(int rows, int cols);
    matrix(int rows, int cols, double* external);
    matrix(const matrix& o);
    matrix(matrix&& o) noexcept;
    ~matrix();

    matrix& operator=(const matrix& o);
    // Only 0, 1 (unit, square) and -1 (minus unit) are legal constants.
    matrix& operator=(double c);

    void declare(int rows, int cols);
    // Reshapes an owning matrix (content lost); a wrapping one rewraps the same memory.
    void resize(int rows, int cols);
    void wrap(int rows, int cols, double* external);

    int rows() const { return r_; }
    int cols() const { return c_; }
    bool null() const { return r_ == 0 && c_ == 0; }
    double* data() { return p_; }
    const double* data() const { return p_; }
    double* operator[](int i) { return p_ + i * c_; }
    const double* operator[](int i) const { return p_ + i * c_; }
    double& operator()(int i, int j) { return p_[i * c_ + j]; }
    double operator()(int i, int j) const { return p_[i * c_ + j]; }
    bool on_heap() const { return own_ && p_ != local_ && p_ != nullptr; }

    matrix operator+(const matrix& o) const;
    matrix operator-(const matrix& o) const;
    matrix& operator+=(const matrix& o);
    matrix& operator-=(const matrix& o);
    matrix operator*(const matrix& o) const;
    mvector operator*(const mvector& v) const;
    matrix operator*(double s) const;
    matrix operator*(const permutation& p) const; // column permutation
    bool operator==(const matrix& o) const;
    bool operator==(double c) const;

    matrix transpose() const;
    matrix inverse() const;
    double determinant() const;
    // Exponent -1, 1 or matrix::T only.
    matrix operator^(int e) const;
    void zero();

private:
    void allocate(int rows, int cols);
    void release();

    int r_ = 0, c_ = 0;
    double* p_ = nullptr;
    bool own_ = true;
    double local_[inline_room] = {};
};

inline matrix operator*(double s, const matrix& m) {
    return m * s;
}

matrix unity(int n);

std::ostream& operator<<(std::ostream& os, const matrix& m);
// Reads rows of numbers; a sized matrix checks its row and column counts, a
// null one takes the shape of the text: "[r c]" header is not needed, rows end
// with ';' or a newline and the matrix ends with an empty line or end of input.
std::istream& operator>>(std::istream& is, matrix& m);
