// Dense linear equations: LU decomposition with row pivoting, after Doolittle.
#include "base/base.h"
#include "zel.h"

#include <cmath>
#include <cstring>
#include <utility>

namespace zel
{

// Row of the largest magnitude in a column, at or below the diagonal; the lowest such row, -1 when all are zero.
static int pivot_row(const double* const* a, int n, int column)
{
    int pivot = -1;
    double largest = 0.0;
    for (int row = column; row < n; ++row)
        if (const double magnitude = std::fabs(a[row][column]); magnitude > largest)
        {
            largest = magnitude;
            pivot = row;
        }
    return pivot;
}

} // namespace zel

using namespace zel;

int ZEL_LUPDecomposition(double** a, int n, int* perm)
{
    if (!a || !perm)
        return 0;
    for (int row = 0; row < n; ++row)
        perm[row] = row;
    for (int column = 0; column < n - 1; ++column)
    {
        const int pivot = pivot_row(a, n, column);
        if (pivot < 0)
            return 0;
        std::swap(perm[column], perm[pivot]);
        for (int j = 0; j < n; ++j) // the rows' contents: their pointers are the caller's
            std::swap(a[column][j], a[pivot][j]);
        for (int row = column + 1; row < n; ++row)
        {
            const double factor = a[row][column] /= a[column][column];
            for (int j = column + 1; j < n; ++j)
                a[row][j] -= factor * a[column][j];
        }
    }
    return 1;
}

int ZEL_LUPSolve(double** lu, int n, const int* perm, double* b)
{
    Scratch<double> y(n > 0 ? n : -1); // no equations are refused like no memory
    if (!y.data)
        return no_memory(module_word::tools);
    if (!lu || !perm || !b)
        return 0;
    for (int row = 0; row < n; ++row)
    {
        double value = b[perm[row]];
        for (int j = 0; j < row; ++j)
            value -= lu[row][j] * y[j];
        y[row] = value;
    }
    for (int row = n - 1; row >= 0; --row)
    {
        double value = y[row];
        for (int j = row + 1; j < n; ++j)
            value -= lu[row][j] * b[j];
        b[row] = value / lu[row][row];
    }
    return 1;
}

int ZEL_LUPInvert(double** lu, int n, const int* perm)
{
    Scratch<double> inverse(n > 0 ? int64_t(n) * n : -1), column(n);
    if (!inverse.data || !column.data)
        return no_memory(module_word::tools);
    for (int j = 0; j < n; ++j)
    {
        for (int row = 0; row < n; ++row)
            column[row] = row == j ? 1.0 : 0.0;
        if (!ZEL_LUPSolve(lu, n, perm, column.data))
            return 0;
        for (int row = 0; row < n; ++row)
            inverse[int64_t(row) * n + j] = column[row];
    }
    for (int row = 0; row < n; ++row)
        std::memcpy(lu[row], &inverse[int64_t(row) * n], size_t(n) * sizeof(double));
    return 1;
}
