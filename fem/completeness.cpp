#include "fem/completeness.h"

#include <algorithm>
#include <limits>
#include <stdexcept>

#include "dense/dense.h"

namespace zel_fem
{

using Eigen::Index;
using Eigen::MatrixXd;
using Eigen::Vector3d;
using Eigen::VectorXd;

constexpr Index kDirections = 3;

MatrixXd pulls_at(const Model& model, const std::vector<Interface>& interfaces)
{
    const std::vector<Row>& rows = model.matrices->rows;
    MatrixXd pulls = MatrixXd::Zero(Index(rows.size()), kDirections * Index(interfaces.size()));
    for (size_t j = 0; j < interfaces.size(); ++j)
    {
        const Interface& interface = interfaces[j];
        const auto take = [&](auto belongs) {
            for (size_t i = 0; i < rows.size(); ++i)
                if (rows[i].node >= 0 && rows[i].component < 3 && belongs(rows[i].node))
                    pulls(Index(i), kDirections * Index(j) + rows[i].component) = 1.0;
        };
        take([&](int node) { return node == interface.reference; });
        auto columns = pulls.middleCols<kDirections>(kDirections * Index(j));
        if (columns.isZero(0.0))
            take([&](int node) { return std::binary_search(interface.tied.begin(), interface.tied.end(), node); });
        for (Index c = 0; c < kDirections; ++c)
            columns.col(c) /= std::max(columns.col(c).sum(), 1.0);
    }
    return pulls;
}

// Sums of three columns each.
static VectorXd by_interface(const VectorXd& by_column)
{
    return by_column.reshaped(kDirections, by_column.size() / kDirections).colwise().sum();
}

// (K - shift M) x' = f - shift M x takes out of x the share shift / (shift - lambda) of each mode that is left. The rest of the
// forces does nothing to those that are known.
static VectorXd residual_flexibilities(const Pencil& pencil, const Cholesky& shifted, const MatrixXd& known,
                                       const MatrixXd& pulls)
{
    constexpr int kMostTurns = 500;
    constexpr double kSettled = 1e-10;
    const MatrixXd inertia = times(pencil.mass, known), rest = pulls - inertia * (known.transpose() * pulls);
    MatrixXd x = MatrixXd::Zero(rest.rows(), rest.cols());
    VectorXd flexibility = VectorXd::Zero(rest.cols());
    for (int step = 0; step < kMostTurns; ++step)
    {
        x = shifted.solve(rest - pencil.shift * times(pencil.mass, x));
        x -= known * (inertia.transpose() * x);
        const VectorXd now = rest.cwiseProduct(x).colwise().sum();
        const double change = (now - flexibility).cwiseAbs().maxCoeff();
        flexibility = now;
        if (change <= kSettled * now.cwiseAbs().maxCoeff())
            return flexibility;
    }
    throw std::runtime_error("the flexibility of the interfaces has not been found");
}

std::vector<double> static_completeness(const Pencil& pencil, const Cholesky& shifted, const Eigenmodes& modes,
                                        const MatrixXd& pulls)
{
    if (pulls.cols() == 0)
        return {};
    MatrixXd known(pulls.rows(), pencil.rigid.cols() + modes.shapes.cols());
    known << pencil.rigid, modes.shapes;
    const MatrixXd amplitudes = modes.shapes.transpose() * pulls;
    const VectorXd kept = by_interface(
                       (modes.values.cwiseInverse().asDiagonal() * amplitudes.cwiseAbs2()).colwise().sum().transpose()),
                   left = by_interface(residual_flexibilities(pencil, shifted, known, pulls));
    const VectorXd shares = kept.cwiseQuotient(kept + left);
    return {shares.begin(), shares.end()};
}

std::optional<std::array<double, 6>> fixed_effective_masses(const std::vector<Interface>& interfaces,
                                                            const MatrixXd& reference_motion, const MatrixXd& mass,
                                                            const Reduction& reduction, const MassMoments& moments)
{
    constexpr double kRigid = 1e-9, kNoInertia = 1e-12;
    const Index boundary = reduction.boundary_count;
    MatrixXd rigid(6 * Index(interfaces.size()), 6);
    for (size_t j = 0; j < interfaces.size(); ++j)
    {
        rigid.middleRows<3>(6 * Index(j)) = rigid_motion(interfaces[j].at, moments.center());
        rigid.middleRows<3>(6 * Index(j) + 3) << Eigen::Matrix3d::Zero(), Eigen::Matrix3d::Identity();
    }
    const MatrixXd constraint = reference_motion.leftCols(boundary);
    const MatrixXd moved = zel_dense::least_squares(constraint, rigid);
    if ((constraint * moved - rigid).norm() > kRigid * rigid.norm())
        return std::nullopt;
    const MatrixXd excited =
        moved.transpose() * mass.block(0, boundary + reduction.rigid_count, boundary, reduction.mode_count);
    const Vector3d inertia = moments.inertia(moments.center()).diagonal();
    std::array<double, 6> shares;
    for (Index c = 0; c < 6; ++c)
    {
        const double whole = c < 3 ? moments.mass : inertia[c - 3],
                     moving = excited.cols() > 0 ? excited.row(c).squaredNorm() : 0.0;
        shares[size_t(c)] = whole > kNoInertia * (c < 3 ? 0.0 : inertia.maxCoeff())
                                ? moving / whole
                                : std::numeric_limits<double>::quiet_NaN();
    }
    return shares;
}

} // namespace zel_fem
