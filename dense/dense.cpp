#include "dense/dense.h"

#include <Eigen/Dense>

#include <algorithm>

namespace zel_dense
{

using Eigen::Index;

Eigenpairs eigenpairs(const MatrixXd& symmetric)
{
    const Eigen::SelfAdjointEigenSolver<MatrixXd> solver(symmetric);
    return {solver.info() == Eigen::Success, solver.eigenvalues(), solver.eigenvectors()};
}

Eigenpairs eigenpairs(const MatrixXd& stiffness, const MatrixXd& mass)
{
    const Eigen::GeneralizedSelfAdjointEigenSolver<MatrixXd> solver(stiffness, mass);
    if (solver.info() != Eigen::Success)
        return {};
    return {true, solver.eigenvalues(), solver.eigenvectors()};
}

Eigenpairs eigenvalues(const MatrixXd& stiffness, const MatrixXd& mass)
{
    const Eigen::GeneralizedSelfAdjointEigenSolver<MatrixXd> solver(stiffness, mass, Eigen::EigenvaluesOnly);
    if (solver.info() != Eigen::Success)
        return {};
    return {true, solver.eigenvalues(), {}};
}

std::optional<MatrixXd> cholesky(const MatrixXd& a)
{
    const Eigen::LLT<MatrixXd> factor(a);
    return factor.info() == Eigen::Success ? std::optional<MatrixXd>(factor.matrixL()) : std::nullopt;
}

std::optional<MatrixXd> normalised(const MatrixXd& x, const MatrixXd& gram)
{
    const Eigen::LLT<MatrixXd> factor(gram);
    if (factor.info() != Eigen::Success)
        return std::nullopt;
    return MatrixXd(factor.matrixU().solve<Eigen::OnTheRight>(x));
}

MatrixXd solve_symmetric(const MatrixXd& a, const MatrixXd& b)
{
    return a.ldlt().solve(b);
}

MatrixXd inverse(const MatrixXd& a)
{
    return a.inverse();
}

MatrixXd least_squares(const MatrixXd& a, const MatrixXd& b)
{
    return a.colPivHouseholderQr().solve(b);
}

static Eigen::CompleteOrthogonalDecomposition<MatrixXd> decomposed(const MatrixXd& a, std::optional<double> threshold)
{
    Eigen::CompleteOrthogonalDecomposition<MatrixXd> result(a.rows(), a.cols());
    if (threshold)
        result.setThreshold(*threshold);
    result.compute(a);
    return result;
}

MatrixXd shortest_least_squares(const MatrixXd& a, const MatrixXd& b, std::optional<double> threshold)
{
    return decomposed(a, threshold).solve(b);
}

MatrixXd pseudo_inverse(const MatrixXd& a, std::optional<double> threshold)
{
    return decomposed(a, threshold).pseudoInverse();
}

MatrixXd orthonormal(const MatrixXd& a)
{
    return a.householderQr().householderQ() * MatrixXd::Identity(a.rows(), a.cols());
}

MatrixXd triangle(const MatrixXd& a)
{
    return a.householderQr().matrixQR().topRows(a.cols()).triangularView<Eigen::Upper>();
}

MatrixXd orthonormal(const MatrixXd& a, double threshold)
{
    Eigen::ColPivHouseholderQR<MatrixXd> factor(a.rows(), a.cols());
    factor.setThreshold(threshold);
    factor.compute(a);
    if (factor.rank() == 0)
        return MatrixXd(a.rows(), 0);
    return factor.householderQ() * MatrixXd::Identity(a.rows(), factor.rank());
}

std::vector<Index> independent_columns(const MatrixXd& a)
{
    const Eigen::ColPivHouseholderQR<MatrixXd> factor(a);
    const auto& order = factor.colsPermutation().indices();
    return {order.begin(), order.end()};
}

MatrixXd null_space(const MatrixXd& a, double threshold)
{
    const Eigen::JacobiSVD<MatrixXd> svd(a, Eigen::ComputeFullV);
    const VectorXd& sizes = svd.singularValues();
    const Index rank =
        std::count_if(sizes.begin(), sizes.end(), [&](double s) { return s > threshold * sizes.maxCoeff(); });
    return svd.matrixV().rightCols(a.cols() - rank);
}

// ---- Equations -----------------------------------------------------------------------------------------------------------

struct Equations::Factors
{
    Eigen::FullPivLU<MatrixXd> lu;
};

Equations::Equations(const MatrixXd& a, std::optional<double> threshold)
{
    const auto factors = std::make_shared<Factors>();
    if (threshold)
        factors->lu.setThreshold(*threshold);
    factors->lu.compute(a);
    factors_ = factors;
}

bool Equations::solvable() const
{
    return factors_ && factors_->lu.isInvertible();
}

MatrixXd Equations::solve(const MatrixXd& b) const
{
    return factors_->lu.solve(b);
}

} // namespace zel_dense
