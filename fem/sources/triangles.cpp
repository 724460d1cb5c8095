#include "fem/sources/triangles.h"

#include <cmath>

namespace zel_fem
{

constexpr double kAsymmetry = 1e-8;

std::optional<Asymmetry> find_asymmetry(const SparseMatrix& upper, const SparseMatrix& lower)
{
    const Eigen::VectorXd diagonal = upper.diagonal().cwiseAbs();
    const double largest = std::max(upper.coeffs().abs().maxCoeff(), lower.coeffs().abs().maxCoeff());
    const SparseMatrix difference = upper - lower;
    for (int64_t column = 0; column < difference.cols(); ++column)
        for (SparseMatrix::InnerIterator entry(difference, column); entry; ++entry)
        {
            const double size = std::sqrt(diagonal[entry.row()]) * std::sqrt(diagonal[column]);
            if (std::abs(entry.value()) > kAsymmetry * (size > 0.0 ? size : largest))
                return Asymmetry{entry.row(), column, std::abs(entry.value())};
        }
    return {};
}

} // namespace zel_fem
