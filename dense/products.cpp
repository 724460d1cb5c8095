#include "dense/products.h"

#include <algorithm>
#include <cassert>
#include <utility>

namespace zel_dense
{

using Eigen::Index;

extern "C" {
void dgemm_(const char* ta, const char* tb, const int* m, const int* n, const int* k, const double* alpha,
            const double* a, const int* lda, const double* b, const int* ldb, const double* beta, double* c,
            const int* ldc);
void dgemv_(const char* trans, const int* m, const int* n, const double* alpha, const double* a, const int* lda,
            const double* x, const int* incx, const double* beta, double* y, const int* incy);
}

namespace
{
// A matrix as BLAS takes it: in column order, or its transpose.
struct Stored
{
    Stored(Index rows, Index columns, Strided<const double> a)
        : by_columns(a.down == 1 || rows == 1), data(a.data),
          leading(int(by_columns ? std::max(a.right, rows) : std::max(a.down, columns)))
    {}
    char flag() const { return by_columns ? 'N' : 'T'; }
    bool by_columns;
    const double* data;
    int leading;
};

template <typename Number> Strided<Number> transposed(Strided<Number> a)
{
    return {a.data, a.right, a.down};
}
} // namespace

// y = factor a x + kept y
static void set_vector(Index rows, Index depth, double factor, Strided<const double> a, const double* x, Index step_x,
                       double kept, double* y, Index step_y)
{
    const Stored matrix(rows, depth, a);
    const int height = int(matrix.by_columns ? rows : depth), width = int(matrix.by_columns ? depth : rows);
    const int of_x = int(step_x), of_y = int(step_y);
    const char flag = matrix.flag();
    dgemv_(&flag, &height, &width, &factor, matrix.data, &matrix.leading, x, &of_x, &kept, y, &of_y);
}

static void set_matrix(Index rows, Index columns, Index depth, double factor, Strided<const double> a,
                       Strided<const double> b, double kept, Strided<double> c)
{
    const Stored left(rows, depth, a), right(depth, columns, b);
    const int m = int(rows), n = int(columns), k = int(depth), leading = int(std::max(c.right, rows));
    const char of_left = left.flag(), of_right = right.flag();
    dgemm_(&of_left, &of_right, &m, &n, &k, &factor, left.data, &left.leading, right.data, &right.leading, &kept,
           c.data, &leading);
}

static void set_zero(Index rows, Index columns, Strided<double> c)
{
    for (Index j = 0; j < columns; ++j)
        for (Index i = 0; i < rows; ++i)
            c.data[i * c.down + j * c.right] = 0.0;
}

void set_product(Index rows, Index columns, Index depth, double factor, Strided<const double> a,
                 Strided<const double> b, double kept, Strided<double> c)
{
    if (rows == 0 || columns == 0)
        return;
    assert(a.down == 1 || a.right == 1 || rows == 1 || depth <= 1);
    assert(b.down == 1 || b.right == 1 || depth <= 1 || columns == 1);
    assert(c.down == 1 || c.right == 1 || rows == 1 || columns == 1);
    if (depth == 0)
    {
        if (kept == 0.0)
            set_zero(rows, columns, c);
    }
    else if (columns == 1)
        set_vector(rows, depth, factor, a, b.data, b.down, kept, c.data, c.down);
    else if (rows == 1)
        set_vector(columns, depth, factor, transposed(b), a.data, a.right, kept, c.data, c.right);
    else if (c.down == 1)
        set_matrix(rows, columns, depth, factor, a, b, kept, c);
    else
        set_matrix(columns, rows, depth, factor, transposed(b), transposed(a), kept, transposed(c));
}

} // namespace zel_dense
