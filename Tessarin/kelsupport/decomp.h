#pragma once
#include "Tessarin/kelsupport/matrix.h"
#include "Tessarin/kelsupport/permutation.h"

// p a q = l u with complete pivoting and early exit: at each stage the first
// column whose best entry reaches the tolerance is used. Returns the numerical
// rank. l, u, p, q may be null and are then sized here.
int lu_decomp(const matrix& a, matrix& l, matrix& u, permutation& p, permutation& q, double tolerance);

// q a p = r by Householder reflections with column pivoting (largest remaining
// norm first). Returns the numerical rank; at a column below the tolerance the
// rows of r from there on are left as they stand. r, q, p may be null.
int qr_decomp(const matrix& a, matrix& r, matrix& q, permutation& p, double tolerance);
