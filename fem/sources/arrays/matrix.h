// Symmetric matrices as callers have them, and as the reduction takes them.
#ifndef FEM_ARRAYS_MATRIX_H
#define FEM_ARRAYS_MATRIX_H

#include "fem/sources/arrays/arrays.h"
#include "fem/sparse_factor.h"

namespace zel_fem::arrays
{

// The upper triangle, its columns in order, with all of the diagonal. `what` is its name in messages. InputError as arrays.h tells.
SparseMatrix upper_triangle(const Matrix& matrix, const std::string& what);

} // namespace zel_fem::arrays

#endif
