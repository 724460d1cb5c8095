// One sparse Cholesky factor of what the interfaces hold serves the constraint modes as a block of right sides and the fixed-interface
// modes as the operator of their solver.
#include "fem/reduction.h"

#include <algorithm>
#include <utility>

#include "dense/dense.h"
#include "fem/attachment.h"
#include "fem/completeness.h"
#include "fem/interior.h"

namespace zel_fem
{

using Eigen::Index;
using Eigen::MatrixXd;
using Eigen::Vector3d;
using Eigen::VectorXd;

constexpr double kIndependent = 1e-9; // of the rigid motions of a boundary

VectorXd generalized_eigenvalues(const MatrixXd& stiffness, const MatrixXd& mass)
{
    const zel_dense::Eigenpairs pairs = zel_dense::eigenvalues(stiffness, mass);
    if (!pairs.found)
        throw std::runtime_error("the generalized mass matrix is not positive definite");
    return pairs.values;
}

// ---- Reductions --------------------------------------------------------------------------------------------------------

static MatrixXd symmetric(const MatrixXd& a)
{
    return 0.5 * (a + a.transpose());
}

static double largest_rigid(const MatrixXd& stiffness, const MatrixXd& mass)
{
    VectorXd values = generalized_eigenvalues(stiffness, mass).cwiseAbs();
    std::sort(values.begin(), values.end());
    return values[std::min<Index>(6, values.size()) - 1];
}

// Orthonormal columns that span the rigid motions of the boundary. There may be fewer than six, as of a single ball joint.
static MatrixXd rigid_boundary(const std::vector<Interface>& interfaces, Index count)
{
    MatrixXd rigid = MatrixXd::Zero(count, 6);
    Index row = 0;
    for (const Interface& interface : interfaces)
    {
        const Eigen::Matrix<double, 6, 6> motion = rigid_reference(interface.at, interfaces[0].at);
        for (int c : interface.components())
            rigid.row(row++) = motion.row(c);
    }
    const MatrixXd independent = zel_dense::orthonormal(rigid, kIndependent);
    return independent.cols() < 6 ? independent : zel_dense::orthonormal(rigid);
}

double repair_rigid_motions(const std::vector<Interface>& interfaces, MatrixXd& stiffness, const MatrixXd& mass)
{
    Index count = 0;
    for (const Interface& interface : interfaces)
        count += Index(interface.components().size());
    // P = I - Rb (Rb^T Rb)^-1 Rb^T, through an orthonormal basis of Rb
    const MatrixXd basis = rigid_boundary(interfaces, count);
    const MatrixXd projector = MatrixXd::Identity(count, count) - basis * basis.transpose();
    const double before = largest_rigid(stiffness, mass);
    auto boundary = stiffness.topLeftCorner(count, count);
    boundary = symmetric(projector * boundary * projector);
    return before;
}

static void attach(const Pencil& pencil, const LinearSolver& solver, const MatrixXd& loads, Eigenmodes& modes,
                   Reduction& reduction, Progress& progress)
{
    reduction.mode_count = int(modes.values.size());
    if (loads.cols() == 0)
        return;
    progress.begin("attachment modes");
    reduction.attached = add_attachment_modes(pencil, solver, loads, modes, progress);
    reduction.attachment_count = int(modes.values.size()) - reduction.mode_count;
}

// Generalized matrices of constraint modes and, behind them, modes that are orthogonal to them in the stiffness and M-orthonormal
// to each other. What K makes of a constraint mode inside are the forces of its constraints.
static void take_matrices(const Interior& interior, const MatrixXd& constraint, const MatrixXd& fixed,
                          const VectorXd& values, Reduction& reduction)
{
    const Interior::Part &k = interior.stiffness, &m = interior.mass;
    const Index boundary = constraint.cols(), modes = boundary + fixed.cols();
    const MatrixXd inertia = times(m.inside, constraint) + m.coupling;
    MatrixXd stiffness = k.boundary + k.coupling.transpose() * constraint;
    if (interior.constraints.cols() > 0 || interior.rigid.cols() > 0)
        stiffness += constraint.transpose() * (times(k.inside, constraint) + k.coupling);
    reduction.stiffness = MatrixXd::Zero(modes, modes);
    reduction.stiffness.topLeftCorner(boundary, boundary) = symmetric(stiffness);
    reduction.stiffness.diagonal().tail(values.size()) = values;
    reduction.mass = MatrixXd::Identity(modes, modes);
    reduction.mass.topLeftCorner(boundary, boundary) =
        symmetric(m.boundary + constraint.transpose() * inertia + m.coupling.transpose() * constraint);
    reduction.mass.topRightCorner(boundary, fixed.cols()) = inertia.transpose() * fixed;
    reduction.mass.bottomLeftCorner(fixed.cols(), boundary) =
        reduction.mass.topRightCorner(boundary, fixed.cols()).transpose();
}

Reduction reduce_craig_bampton(const Model& model, const std::vector<Interface>& interfaces, const ModeChoice& choice,
                               Progress& progress, const MatrixXd& loads, const MatrixXd& reference_loads)
{
    progress.begin("factor the stiffness matrix");
    const Interior interior(model, interfaces);
    const HeldSolver solver(interior, progress);
    progress.begin("constraint modes");
    const MatrixXd constraint = solver.solve(-interior.stiffness.coupling, interior.given);
    progress.begin("fixed-interface modes");
    const bool held = interior.constraints.cols() > 0 || interior.rigid.cols() > 0;
    const Pencil pencil{interior.stiffness.inside,
                        interior.mass.inside,
                        interior.rigid,
                        0.0,
                        held ? &interior.constraints : nullptr,
                        interior.order};
    Eigenmodes flexible = lowest_modes(pencil, solver, choice, progress);
    Reduction reduction;
    attach(pencil, solver, interior.forces(loads, reference_loads), flexible, reduction, progress);
    progress.begin("generalized matrices");
    const Index boundary = interior.boundary_count(), rigid = interior.rigid.cols(), count = flexible.values.size();
    MatrixXd x(constraint.rows(), boundary + rigid + count);
    x << constraint, interior.rigid, flexible.shapes;
    reduction.boundary_count = int(boundary);
    reduction.rigid_count = int(rigid);
    reduction.factor_bytes = solver.factor_bytes();
    reduction.complete_to = flexible.complete_to;
    take_matrices(interior, constraint, x.rightCols(rigid + count), flexible.values, reduction);
    reduction.rigid_before = repair_rigid_motions(interfaces, reduction.stiffness, reduction.mass);
    reduction.reference_motion = interior.reference_motion(x, MatrixXd::Identity(boundary, x.cols()));
    reduction.motion = interior.motion(x, reduction.reference_motion);
    return reduction;
}

// Rayleigh quotient of a smooth bend along the longest axis: a safe scale for the first flexible eigenvalue. Reference nodes
// of ties do not turn in it, which makes it larger.
static double bending_scale(const Model& model, const MatrixXd& rigid)
{
    const Mesh& mesh = model.moved_mesh();
    const Vector3d center = middle_of(mesh);
    Vector3d size = Vector3d::Zero();
    for (const Node& node : mesh.nodes)
        size = size.cwiseMax((node.at - center).cwiseAbs());
    Index longest = 0;
    size.maxCoeff(&longest);
    const Index side = (longest + 1) % 3, other = (longest + 2) % 3, across = size[side] < size[other] ? side : other;
    const double handed = across == side ? 1.0 : -1.0; // of the axes longest, across and the third
    const std::vector<char> reference = references_of_ties(model);
    MatrixXd bend = MatrixXd::Zero(rigid.rows(), 1);
    for (Index i = 0; i < bend.rows(); ++i)
    {
        const auto [node, component] = model.matrices->rows[size_t(i)];
        if (node < 0)
            continue;
        // u = x^2 across the axis, and -2 x y along it, so that sections stay plane; they turn by 2 x about the third axis
        const Vector3d r = mesh.nodes[size_t(node)].at - center;
        if (component == across)
            bend(i, 0) = r[longest] * r[longest];
        else if (component == longest)
            bend(i, 0) = -2.0 * r[longest] * r[across];
        else if (component == 3 + (3 - longest - across) && !reference[size_t(node)])
            bend(i, 0) = handed * 2.0 * r[longest];
    }
    bend -= rigid * (times(model.matrices->mass, rigid).transpose() * bend);
    const double stiffness = (bend.transpose() * times(model.matrices->stiffness, bend))(0, 0);
    const double mass = (bend.transpose() * times(model.matrices->mass, bend))(0, 0);
    return stiffness / mass;
}

// Largest of the six smallest |eigenvalue|, by one step of inverse iteration from the rigid motions: rough errors, as coordinates
// of few digits have them, are high modes of the stiffness and all but vanish in it, so that what is left is the stiffness's own.
static double rigid_eigenvalue(const Pencil& pencil, const Cholesky& shifted)
{
    const MatrixXd x = shifted.solve(times(pencil.mass, pencil.rigid));
    return largest_rigid(symmetric(x.transpose() * times(pencil.stiffness, x)),
                         symmetric(x.transpose() * times(pencil.mass, x)));
}

static Reduction free_modes(const Model& model, const MatrixXd& rigid, double shift, const ModeChoice& choice,
                            Progress& progress, const MatrixXd& pulls, const MatrixXd& loads)
{
    const SparseMatrix &k = model.matrices->stiffness, &m = model.matrices->mass;
    progress.begin("factor the shifted stiffness matrix");
    const SparseMatrix shifted = k - shift * m;
    std::vector<int> nodes;
    for (const Row& row : model.matrices->rows)
        nodes.push_back(row.node);
    const Elimination order = Elimination::by_dissection(shifted, nodes);
    const Cholesky factor(shifted, Cholesky::kUsualMemory, order, &progress);
    progress.begin("free-free modes");
    const Pencil pencil{k, m, rigid, shift, nullptr, order};
    Eigenmodes flexible = lowest_modes(pencil, factor, choice, progress);
    Reduction reduction;
    attach(pencil, factor, loads, flexible, reduction, progress);
    const Index count = flexible.values.size();
    reduction.factor_bytes = factor.factor_bytes();
    reduction.complete_to = flexible.complete_to;
    reduction.motion.resize(rigid.rows(), 6 + count);
    reduction.motion << rigid, flexible.shapes;
    reduction.mass = MatrixXd::Identity(6 + count, 6 + count);
    reduction.stiffness = MatrixXd::Zero(6 + count, 6 + count);
    reduction.stiffness.bottomRightCorner(count, count) = flexible.values.asDiagonal();
    reduction.rigid_before = rigid_eigenvalue(pencil, factor);
    reduction.completeness = static_completeness(pencil, factor, flexible, pulls);
    return reduction;
}

Reduction reduce_free(const Model& model, const ModeChoice& choice, Progress& progress, const MatrixXd& pulls,
                      const MatrixXd& loads)
{
    constexpr int kMostShifts = 4;
    const SparseMatrix& m = model.matrices->mass;
    MatrixXd rigid = rigid_motions(model, middle_of(model.moved_mesh()));
    const MatrixXd rigid_mass = symmetric(rigid.transpose() * times(m, rigid));
    const std::optional<MatrixXd> normal = zel_dense::normalised(rigid, rigid_mass);
    if (!normal)
        throw std::runtime_error("the body has no mass to vibrate with");
    rigid = *normal;
    double shift = -bending_scale(model, rigid);
    if (!(shift < 0.0))
        throw std::runtime_error(
            "the stiffness matrix does not resist bending: the model is a mechanism, or no elastic solid");
    for (int tried = 1;; ++tried)
        try
        {
            return free_modes(model, rigid, shift, choice, progress, pulls, loads);
        }
        catch (const FarShift& far) // a smooth bend stretches a thin shell that is curved
        {
            if (tried == kMostShifts)
                throw std::runtime_error("no mode converges");
            shift = -std::max(far.lowest, 1e-8 * -shift);
        }
}

// ---- Back to the nodes -------------------------------------------------------------------------------------------------

NodeMotion node_motion(const Model& model, const Reduction& reduction)
{
    const Index nodes = Index(model.moved_mesh().nodes.size()), modes = reduction.motion.cols();
    const std::vector<char> reference = references_of_ties(model);
    NodeMotion motion{MatrixXd::Zero(3 * nodes, modes), {}};
    for (size_t i = 0; i < model.matrices->rows.size(); ++i)
    {
        const auto [node, component] = model.matrices->rows[i];
        if (node < 0)
            continue;
        const bool turns = component >= 3;
        if (turns && reference[size_t(node)])
            continue;
        if (turns && motion.rotation.size() == 0)
            motion.rotation = MatrixXd::Zero(3 * nodes, modes);
        (turns ? motion.rotation : motion.displacement).row(3 * Index(node) + component % 3) =
            reduction.motion.row(Index(i));
    }
    if (model.dependents.motion.size() > 0)
        motion.displacement += model.dependents.motion * reduction.motion;
    return motion;
}

} // namespace zel_fem
