#pragma once
#include <cstddef>
#include <vector>

namespace tessarin {

// Factors of the pivoting solver's basis matrix B (k by k), kept as Q B = R
// with Q dense and R upper triangular, updated as rows and columns come and go
// instead of being refactored. The transformations are elementary eliminations
// with row interchange; Q absorbs them, so no permutation is remembered.
//
// Storage grows and is never given back, so once the largest basis has been
// seen no update allocates.
class BasisFactors {
public:
    // Below this a pivot is taken as zero in the eliminations.
    static constexpr double tiny = 2.22e-16 * 1e-4;
    // Back substitution treats a diagonal of this magnitude or less as singular.
    static constexpr double singular = 0.001;

    int size() const { return k_; }
    void clear() { k_ = 0; }
    void reserve(int n);

    // Borders B with a last column col (k entries: rows 0..k-1), a last row
    // row (k entries: columns 0..k-1) and the corner d. Returns the new last
    // diagonal of R, whose magnitude tells how far the new row depends on the
    // old ones.
    double add(const double* col, const double* row, double d);

    // Removes row and column p of B.
    void remove(int p);

    // Solves B x = rhs (both in basis order). An unknown whose diagonal is at
    // most 'singular' in magnitude takes 0, or its value in prev when prev is
    // given. Returns how many unknowns were singular.
    int solve(const double* rhs, double* x, const double* prev = nullptr) const;

    // The diagonal of R at p, for tests and statistics.
    double diagonal(int p) const { return r(p)[p]; }

    // Copies to and from another instance of the same storage (a cache).
    void copy_from(const BasisFactors& o);
    // Exchanges contents with o without copying.
    void swap(BasisFactors& o) noexcept;

private:
    double* q(int i) { return q_.data() + std::size_t(i) * std::size_t(cap_); }
    const double* q(int i) const { return q_.data() + std::size_t(i) * std::size_t(cap_); }
    double* r(int i) { return r_.data() + std::size_t(i) * std::size_t(cap_); }
    const double* r(int i) const { return r_.data() + std::size_t(i) * std::size_t(cap_); }
    void grow(int n);
    // One elimination of row b's leading entry at column c against row a,
    // rows of R from column c and rows of Q in full (width w).
    void eliminate(int a, int b, int c, int w, int qw);

    int k_ = 0, cap_ = 0;
    std::vector<double> q_, r_;
    mutable std::vector<double> t_;
    mutable std::vector<int> nz_;
};

} // namespace tessarin
