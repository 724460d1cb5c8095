// Six modes near zero are an arbitrary mixture of rigid motions: exact ones replace them. Where a program has found modes with
// its interfaces held, its boundary forces are columns of K and the consistent mass of the elements gives M.
#include "fem/given_modes.h"

#include <algorithm>

#include "dense/dense.h"
#include "fem/nodal_mass.h"
#include "fem/reduction.h"
#include "fem/rigid.h"

namespace zel_fem
{

using Eigen::Index;
using Eigen::MatrixXd;
using Eigen::VectorXd;

constexpr double kNearRigid = 1e-4;    // eigenvalues against the first flexible one
constexpr double kMissingShare = 1e-2; // of a rigid motion that lies among modes in six digits

// Phi^T M Phi with the consistent mass of the elements as the program integrates it.
static MatrixXd projected_mass(const Mesh& mesh, const MatrixXd& motion)
{
    MatrixXd mass = MatrixXd::Zero(motion.cols(), motion.cols());
    for (const Element& element : mesh.elements)
    {
        const MatrixXd own = element_mass(mesh, element, Rule::solver).consistent;
        MatrixXd local(own.rows(), motion.cols());
        for (int axis = 0; axis < 3; ++axis)
        {
            for (Index i = 0; i < own.rows(); ++i)
                local.row(i) = motion.row(3 * Index(element.nodes[size_t(i)]) + axis);
            mass.noalias() += local.transpose() * (own * local);
        }
    }
    return 0.5 * (mass + mass.transpose());
}

static double difference_from_identity(const MatrixXd& mass)
{
    return (mass - MatrixXd::Identity(mass.rows(), mass.cols())).cwiseAbs().maxCoeff();
}

// Six exact rigid motions of unit mass in place of as many modes near zero, where these are a mixture of them.
static void replace_rigid_modes(const Mesh& mesh, const MassMoments& program_mass, ModalBasis& basis)
{
    const VectorXd values = basis.stiffness.diagonal();
    const MassMoments moments = mesh_mass(mesh).moments;
    const Eigen::Vector3d center = moments.center();
    basis.held = fit_rigid_motions(mesh, center, basis.motion).residual > kMissingShare;
    if (basis.held || values.size() < 6)
        return;
    const double rigid = values.head(6).cwiseAbs().maxCoeff();
    const RigidFit fit = fit_rigid_motions(mesh, center, basis.motion.leftCols(6));
    if (fit.residual > kMissingShare || (values.size() > 6 && rigid > kNearRigid * values[6]))
        return;
    basis.rigid_before = rigid;
    const MatrixXd inverse = zel_dense::inverse(fit.coefficients);
    basis.rigid_error = difference_from_identity(inverse.transpose() * program_mass.rigid_mass(center) * inverse);
    MatrixXd exact(basis.motion.rows(), 6);
    for (size_t i = 0; i < mesh.nodes.size(); ++i)
        exact.middleRows<3>(3 * Index(i)) = rigid_motion(mesh.nodes[i].at, center);
    basis.motion.leftCols(6) = of_unit_mass(exact, moments.rigid_mass(center));
    basis.stiffness.diagonal().head(6).setZero();
    if (basis.stress.size() > 0)
        basis.stress.leftCols(6).setZero();
    basis.rigid_count = 6;
}

// Flexible modes have no part of a rigid motion but what the digits of the program's print leave of it.
static void take_out_rigid_parts(const Mesh& mesh, ModalBasis& basis)
{
    const auto rigid = basis.motion.leftCols(6);
    MatrixXd inertia = MatrixXd::Zero(rigid.rows(), 6);
    for (const Element& element : mesh.elements)
    {
        const MatrixXd own = element_mass(mesh, element, Rule::solver).consistent;
        for (Index i = 0; i < own.rows(); ++i)
            for (Index j = 0; j < own.cols(); ++j)
                inertia.middleRows<3>(3 * Index(element.nodes[size_t(i)])) +=
                    own(i, j) * rigid.middleRows<3>(3 * Index(element.nodes[size_t(j)]));
    }
    auto flexible = basis.motion.rightCols(basis.motion.cols() - 6);
    const Eigen::Matrix<double, 6, 6> mass = inertia.transpose() * rigid;
    flexible -= rigid * zel_dense::solve_symmetric(mass, inertia.transpose() * flexible);
}

// Lines and the middles of shells have rotations as well, of which the mass of the mesh knows nothing.
static bool has_all_motions(const Mesh& mesh)
{
    return std::none_of(mesh.elements.begin(), mesh.elements.end(),
                        [](const Element& element) { return is_shell(element.type->shape) || element.width > 0.0; });
}

ModalBasis basis_of(const Mesh& mesh, GivenModes modes)
{
    const Index boundary = modes.boundary_forces.cols(), own = modes.eigenvalues.size();
    ModalBasis basis;
    basis.boundary_count = int(boundary);
    basis.stiffness = MatrixXd::Zero(boundary + own, boundary + own);
    basis.stiffness.topLeftCorner(boundary, boundary) =
        0.5 * (modes.boundary_forces + modes.boundary_forces.transpose());
    basis.stiffness.diagonal().tail(own) = modes.eigenvalues;
    if (boundary > 0)
        basis.asymmetry = asymmetry_of(modes.boundary_forces);
    basis.motion = std::move(modes.motion);
    basis.stress = std::move(modes.stress);
    basis.mass = projected_mass(mesh, basis.motion);
    basis.mass_error = own > 0 ? difference_from_identity(basis.mass.bottomRightCorner(own, own)) : 0.0;
    basis.mass_is_proved =
        modes.mass_is_in_the_mesh && own > 0 && basis.mass_error < kModeMassTolerance && has_all_motions(mesh);
    if (boundary == 0)
    {
        replace_rigid_modes(mesh, modes.program_mass ? *modes.program_mass : solver_moments(mesh), basis);
        if (basis.mass_is_proved && basis.rigid_count > 0)
            take_out_rigid_parts(mesh, basis);
        basis.mass.setIdentity();
    }
    return basis;
}

double asymmetry_of(const MatrixXd& forces)
{
    return (forces - forces.transpose()).cwiseAbs().maxCoeff() / forces.cwiseAbs().maxCoeff();
}

} // namespace zel_fem
