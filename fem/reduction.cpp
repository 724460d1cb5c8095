// Interior freedoms are eliminated with one sparse Cholesky factor, which serves the constraint modes as a block of right
// sides and the fixed-interface modes as the operator of their solver.
#include "fem/reduction.h"

#include <algorithm>
#include <array>
#include <map>
#include <utility>

#include "fem/attachment.h"
#include "fem/completeness.h"

namespace zel_fem
{

using Eigen::Index;
using Eigen::MatrixXd;
using Eigen::Vector3d;
using Eigen::VectorXd;
using Vector6 = Eigen::Matrix<double, 6, 1>;

VectorXd generalized_eigenvalues(const MatrixXd& stiffness, const MatrixXd& mass)
{
    const Eigen::GeneralizedSelfAdjointEigenSolver<MatrixXd> solver(stiffness, mass, Eigen::EigenvaluesOnly);
    if (solver.info() != Eigen::Success)
        throw std::runtime_error("the generalized mass matrix is not positive definite");
    return solver.eigenvalues();
}

// ---- Rows -------------------------------------------------------------------------------------------------------------

// A row that the reference node of an interface moves: its six motions times the coefficients.
struct Follower
{
    int interface;
    Vector6 coefficients;
};

// Interior rows are unknowns, in their order; all others follow a reference node.
struct Split
{
    Index interior_count = 0;
    std::vector<Index> position; // interior number, or -1 - index into followers
    std::vector<Follower> followers;
};

static Split split_rows(const Model& model, const std::vector<Interface>& interfaces)
{
    const std::vector<Node>& nodes = model.moved_mesh().nodes;
    std::vector<int> owner(nodes.size(), -1);
    for (size_t j = 0; j < interfaces.size(); ++j)
    {
        for (int node : interfaces[j].tied)
            owner[size_t(node)] = int(j);
        if (interfaces[j].reference >= 0)
            owner[size_t(interfaces[j].reference)] = int(j);
    }
    Split split;
    for (const auto& [node, component] : model.matrices->rows)
    {
        const int j = node >= 0 ? owner[size_t(node)] : -1;
        if (j < 0)
        {
            split.position.push_back(split.interior_count++);
            continue;
        }
        const Interface& interface = interfaces[size_t(j)];
        Follower follower{j, Vector6::Unit(component)};
        if (component < 3 && node != interface.reference)
            follower.coefficients = rigid_motion(nodes[size_t(node)].at, interface.at).row(component);
        split.position.push_back(-1 - Index(split.followers.size()));
        split.followers.push_back(follower);
    }
    return split;
}

struct Partition
{
    SparseMatrix interior; // upper triangle
    MatrixXd coupling;     // interior x boundary
    MatrixXd boundary;
};

static Partition partition(const SparseMatrix& upper, const Split& split, Index boundary_count)
{
    Partition parts{SparseMatrix(split.interior_count, split.interior_count),
                    MatrixXd::Zero(split.interior_count, boundary_count),
                    MatrixXd::Zero(boundary_count, boundary_count)};
    parts.interior.reserve(upper.nonZeros());
    auto couple = [&](Index interior, Index position, double value) {
        const Follower& f = split.followers[size_t(-1 - position)];
        parts.coupling.row(interior).segment<6>(6 * f.interface) += value * f.coefficients.transpose();
    };
    for (Index column = 0; column < upper.cols(); ++column)
    {
        const Index c = split.position[size_t(column)];
        if (c >= 0)
            parts.interior.startVec(c);
        for (SparseMatrix::InnerIterator entry(upper, column); entry; ++entry)
        {
            const Index r = split.position[size_t(entry.row())];
            if (r >= 0 && c >= 0)
                parts.interior.insertBack(r, c) = entry.value();
            else if (r >= 0 || c >= 0)
                couple(std::max(r, c), std::min(r, c), entry.value());
            else
            {
                const Follower &a = split.followers[size_t(-1 - r)], &b = split.followers[size_t(-1 - c)];
                const Eigen::Matrix<double, 6, 6> block = entry.value() * a.coefficients * b.coefficients.transpose();
                parts.boundary.block<6, 6>(6 * a.interface, 6 * b.interface) += block;
                if (entry.row() != column)
                    parts.boundary.block<6, 6>(6 * b.interface, 6 * a.interface) += block.transpose();
            }
        }
    }
    parts.interior.finalize();
    return parts;
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

double repair_rigid_motions(const std::vector<Interface>& interfaces, MatrixXd& stiffness, const MatrixXd& mass)
{
    const Index count = 6 * Index(interfaces.size());
    const Vector3d center = interfaces[0].at;
    MatrixXd rigid = MatrixXd::Zero(count, 6);
    for (size_t j = 0; j < interfaces.size(); ++j)
    {
        rigid.block<3, 6>(6 * Index(j), 0) = rigid_motion(interfaces[j].at, center);
        rigid.block<3, 3>(6 * Index(j) + 3, 3).setIdentity();
    }
    // P = I - Rb (Rb^T Rb)^-1 Rb^T, through an orthonormal basis of Rb
    const MatrixXd basis = rigid.householderQr().householderQ() * MatrixXd::Identity(count, 6);
    const MatrixXd projector = MatrixXd::Identity(count, count) - basis * basis.transpose();
    const double before = largest_rigid(stiffness, mass);
    auto boundary = stiffness.topLeftCorner(count, count);
    boundary = symmetric(projector * boundary * projector);
    return before;
}

static void attach(const Pencil& pencil, const Cholesky& factor, const MatrixXd& loads, Eigenmodes& modes,
                   Reduction& reduction, Progress& progress)
{
    reduction.mode_count = int(modes.values.size());
    if (loads.cols() == 0)
        return;
    progress.begin("attachment modes");
    reduction.attached = add_attachment_modes(pencil, factor, loads, modes, progress);
    reduction.attachment_count = int(modes.values.size()) - reduction.mode_count;
}

// Forces at interior rows.
static MatrixXd interior_part(const Split& split, const MatrixXd& forces)
{
    MatrixXd interior(split.interior_count, forces.cols());
    for (size_t i = 0; i < split.position.size() && forces.cols() > 0; ++i)
        if (split.position[i] >= 0)
            interior.row(split.position[i]) = forces.row(Index(i));
    return interior;
}

Reduction reduce_craig_bampton(const Model& model, const std::vector<Interface>& interfaces, const ModeChoice& choice,
                               Progress& progress, const MatrixXd& loads)
{
    const Index boundary = 6 * Index(interfaces.size());
    const Split split = split_rows(model, interfaces);
    if (split.interior_count == 0)
        throw std::runtime_error("all nodes of the body are tied to its interfaces");
    const Partition k = partition(model.matrices->stiffness, split, boundary);
    const Partition m = partition(model.matrices->mass, split, boundary);
    progress.begin("factor the stiffness matrix");
    const Cholesky factor(k.interior);
    progress.begin("constraint modes");
    const MatrixXd constraint = factor.solve(-k.coupling); // of the interior, under unit motions of the reference nodes
    progress.begin("fixed-interface modes");
    const MatrixXd no_rigid(split.interior_count, 0);
    const Pencil pencil{k.interior, m.interior, no_rigid, 0.0};
    Eigenmodes fixed = lowest_modes(pencil, factor, choice, progress);
    Reduction reduction;
    attach(pencil, factor, interior_part(split, loads), fixed, reduction, progress);
    progress.begin("generalized matrices");
    const Index inner = fixed.values.size(), modes = boundary + inner;
    const MatrixXd inertia = times(m.interior, constraint) + m.coupling;
    reduction.boundary_count = int(boundary);
    reduction.factor_bytes = factor.factor_bytes();
    reduction.complete_to = fixed.complete_to;
    reduction.stiffness = MatrixXd::Zero(modes, modes);
    reduction.stiffness.topLeftCorner(boundary, boundary) = symmetric(k.boundary + k.coupling.transpose() * constraint);
    reduction.stiffness.bottomRightCorner(inner, inner) = fixed.values.asDiagonal();
    reduction.mass = MatrixXd::Identity(modes, modes);
    reduction.mass.topLeftCorner(boundary, boundary) =
        symmetric(m.boundary + constraint.transpose() * inertia + m.coupling.transpose() * constraint);
    reduction.mass.topRightCorner(boundary, inner) = inertia.transpose() * fixed.shapes;
    reduction.mass.bottomLeftCorner(inner, boundary) = reduction.mass.topRightCorner(boundary, inner).transpose();
    reduction.rigid_before = repair_rigid_motions(interfaces, reduction.stiffness, reduction.mass);

    reduction.motion = MatrixXd::Zero(Index(split.position.size()), modes);
    for (size_t i = 0; i < split.position.size(); ++i)
    {
        const Index at = split.position[i];
        auto row = reduction.motion.row(Index(i));
        if (at >= 0)
            row << constraint.row(at), fixed.shapes.row(at);
        else
            row.segment<6>(6 * split.followers[size_t(-1 - at)].interface) =
                split.followers[size_t(-1 - at)].coefficients;
    }
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

Reduction reduce_free(const Model& model, const ModeChoice& choice, Progress& progress, const MatrixXd& pulls,
                      const MatrixXd& loads)
{
    const SparseMatrix &k = model.matrices->stiffness, &m = model.matrices->mass;
    MatrixXd rigid = rigid_motions(model, middle_of(model.moved_mesh()));
    const MatrixXd rigid_mass = symmetric(rigid.transpose() * times(m, rigid));
    const Eigen::LLT<MatrixXd> normal(rigid_mass);
    if (normal.info() != Eigen::Success)
        throw std::runtime_error("the body has no mass to vibrate with");
    rigid = normal.matrixU().solve<Eigen::OnTheRight>(rigid).eval();
    const double shift = -bending_scale(model, rigid);
    if (!(shift < 0.0))
        throw std::runtime_error("the stiffness matrix has no stiffness against bending");
    progress.begin("factor the shifted stiffness matrix");
    const Cholesky factor(SparseMatrix(k - shift * m));
    progress.begin("free-free modes");
    const Pencil pencil{k, m, rigid, shift};
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

// ---- Back to the nodes -------------------------------------------------------------------------------------------------

// Nodes that the program has eliminated follow the reference node of their tie; `turning` has its three rows of rotations.
static void move_followers(const Model& model, const Tie& tie, const std::array<Index, 3>& turning,
                           const std::vector<char>& moved, const MatrixXd& rows, MatrixXd& displacement)
{
    const auto& nodes = model.moved_mesh().nodes;
    MatrixXd rotation = MatrixXd::Zero(3, rows.cols());
    for (int axis = 0; axis < 3; ++axis)
        if (turning[size_t(axis)] >= 0)
            rotation.row(axis) = rows.row(turning[size_t(axis)]);
    for (int node : tie.nodes)
    {
        if (moved[size_t(node)])
            continue;
        const Eigen::Matrix<double, 3, 6> rigid = rigid_motion(nodes[size_t(node)].at, nodes[size_t(tie.reference)].at);
        displacement.middleRows<3>(3 * Index(node)) =
            displacement.middleRows<3>(3 * Index(tie.reference)) + rigid.rightCols<3>() * rotation;
    }
}

NodeMotion node_motion(const Model& model, const Reduction& reduction)
{
    const Index nodes = Index(model.moved_mesh().nodes.size()), modes = reduction.motion.cols();
    const std::vector<char> reference = references_of_ties(model);
    std::vector<char> moved(static_cast<size_t>(nodes));
    std::map<int, std::array<Index, 3>> turning; // of reference nodes
    NodeMotion motion{MatrixXd::Zero(3 * nodes, modes), {}};
    for (size_t i = 0; i < model.matrices->rows.size(); ++i)
    {
        const auto [node, component] = model.matrices->rows[i];
        if (node < 0)
            continue;
        const bool turns = component >= 3;
        if (turns && reference[size_t(node)])
        {
            turning.try_emplace(node, std::array<Index, 3>{-1, -1, -1}).first->second[size_t(component - 3)] = Index(i);
            continue;
        }
        if (turns && motion.rotation.size() == 0)
            motion.rotation = MatrixXd::Zero(3 * nodes, modes);
        (turns ? motion.rotation : motion.displacement).row(3 * Index(node) + component % 3) =
            reduction.motion.row(Index(i));
        moved[size_t(node)] = 1;
    }
    for (const Tie& tie : model.ties)
        if (const auto found = turning.find(tie.reference); found != turning.end() && moved[size_t(tie.reference)])
            move_followers(model, tie, found->second, moved, reduction.motion, motion.displacement);
    return motion;
}

} // namespace zel_fem
