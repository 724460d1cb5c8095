// Both triangles are made by a counting sort into columns, the lower one as its transpose; where a matrix has both, they must agree.
#include "fem/sources/arrays/matrix.h"

#include <algorithm>
#include <cmath>

#include "checks/report.h"
#include "fem/input_error.h"
#include "fem/sources/triangles.h"

namespace zel_fem::arrays
{

using Eigen::Index;

[[noreturn]] static void refuse(const std::string& what, const std::string& why)
{
    throw InputError({}, what + " " + why);
}

static std::string place_of(int64_t row, int64_t column)
{
    return zel_checks::format("(%lld, %lld)", static_cast<long long>(row), static_cast<long long>(column));
}

static void check(const Matrix& matrix, const std::string& what)
{
    const auto count = int64_t(matrix.values.size());
    if (matrix.order < 1 || int64_t(matrix.starts.size()) != matrix.order + 1 ||
        int64_t(matrix.indices.size()) != count || matrix.starts.front() != 0 || matrix.starts.back() != count ||
        !std::is_sorted(matrix.starts.begin(), matrix.starts.end()))
        refuse(what, "is no compressed square matrix");
    for (int64_t column = 0; column < matrix.order; ++column)
        for (int64_t k = matrix.starts[size_t(column)]; k < matrix.starts[size_t(column) + 1]; ++k)
        {
            const int64_t row = matrix.indices[size_t(k)];
            if (row < 0 || row >= matrix.order)
                refuse(what, "has an entry in row " + std::to_string(row) + " of " + std::to_string(matrix.order));
            if (!std::isfinite(matrix.values[size_t(k)]))
                refuse(what, "has an entry that is no finite number at " + place_of(row, column));
        }
}

// The entries of one triangle, as an upper one: of the lower triangle the transpose.
static SparseMatrix triangle(const Matrix& matrix, bool lower)
{
    const auto each = [&matrix, lower](const auto& act) {
        for (int64_t column = 0; column < matrix.order; ++column)
            for (int64_t k = matrix.starts[size_t(column)]; k < matrix.starts[size_t(column) + 1]; ++k)
                if (const int64_t row = matrix.indices[size_t(k)]; lower ? row >= column : row <= column)
                    act(std::min(row, column), std::max(row, column), matrix.values[size_t(k)]);
    };
    return sorted_triangle(matrix.order, each, [](int64_t, int64_t) {});
}

// One triangle is enough; of two that agree the mean is taken.
static SparseMatrix united(const SparseMatrix& upper, const SparseMatrix& lower, const std::string& what)
{
    const Index order = upper.cols();
    if (upper.nonZeros() == order)
        return lower;
    if (lower.nonZeros() == order)
        return upper;
    if (const auto found = find_asymmetry(upper, lower))
        refuse(what, zel_checks::format("is not symmetric: its entries at %s and %s differ by %.3g",
                                        place_of(found->row, found->column).c_str(),
                                        place_of(found->column, found->row).c_str(), found->difference));
    return 0.5 * (upper + lower);
}

SparseMatrix upper_triangle(const Matrix& matrix, const std::string& what)
{
    check(matrix, what);
    SparseMatrix whole = united(triangle(matrix, false), triangle(matrix, true), what);
    for (Index row = 0; row < whole.cols(); ++row)
        if (whole.coeff(row, row) < 0.0)
            refuse(what, "has a negative entry on its diagonal, in row " + std::to_string(row));
    return whole;
}

} // namespace zel_fem::arrays
