// Interior freedoms are eliminated with one sparse Cholesky factor, which serves the constraint modes as a block of right
// sides and the fixed-interface modes as the operator of their solver.
#include "reduction.h"

#include <algorithm>
#include <utility>

namespace zel_fem
{

using Eigen::Index;
using Eigen::MatrixXd;
using Eigen::Vector3d;
using Eigen::VectorXd;
using Matrix3x6 = Eigen::Matrix<double, 3, 6>;
using Vector6 = Eigen::Matrix<double, 6, 1>;

constexpr double kRigidTolerance = 1e-6; // of K R, relative to the sums of |K| |R|; stored values have 14 digits

VectorXd generalized_eigenvalues(const MatrixXd& stiffness, const MatrixXd& mass)
{
    const Eigen::GeneralizedSelfAdjointEigenSolver<MatrixXd> solver(stiffness, mass, Eigen::EigenvaluesOnly);
    if (solver.info() != Eigen::Success)
        throw std::runtime_error("the generalized mass matrix is not positive definite");
    return solver.eigenvalues();
}

// ---- Freedoms ----------------------------------------------------------------------------------------------------------

Matrix3x6 rigid_motion(const Vector3d& at, const Vector3d& center)
{
    const Vector3d r = at - center;
    Matrix3x6 motion;
    motion << 1, 0, 0, 0, r[2], -r[1], //
        0, 1, 0, -r[2], 0, r[0],       //
        0, 0, 1, r[1], -r[0], 0;
    return motion;
}

static Vector3d mesh_center(const Mesh& mesh)
{
    Vector3d low = mesh.nodes[0].at, high = low;
    for (const Node& node : mesh.nodes)
    {
        low = low.cwiseMin(node.at);
        high = high.cwiseMax(node.at);
    }
    return 0.5 * (low + high);
}

// Elements with incompatible modes (Wilson, Taylor, Doherty and Ghaboussi 1973) have three more nodes each.
static int64_t count_incompatible_nodes(const Mesh& mesh)
{
    return 3 * std::count_if(mesh.elements.begin(), mesh.elements.end(),
                             [](const Element& element) { return element.type->name == "C3D8I"; });
}

// Nodes of the solver's own making carry incompatible modes, and the rotations of ties that name no node for them. Which is
// whose shows in the stiffness: a reference node is coupled with its own rotations through the elements of the nodes that
// follow both.
static std::vector<int> find_rotation_nodes(const Deck& deck, const StoredMatrices& matrices)
{
    std::vector<int> ids, made;
    std::unordered_map<int, Index> made_at;
    std::unordered_map<int, Index> tie_of; // reference node to tie
    for (const Tie& tie : deck.ties)
    {
        if (tie.rotation_id == 0)
            tie_of[tie.reference_id] = Index(ids.size());
        ids.push_back(tie.rotation_id);
    }
    for (const Freedom& freedom : matrices.freedoms)
        if (deck.find_node(freedom.node_id) < 0 && made_at.try_emplace(freedom.node_id, Index(made.size())).second)
            made.push_back(freedom.node_id);
    MatrixXd strength = MatrixXd::Zero(Index(ids.size()), Index(made.size()));
    for (Index column = 0; column < matrices.stiffness.cols(); ++column)
    {
        const auto at = made_at.find(matrices.freedoms[size_t(column)].node_id);
        for (SparseMatrix::InnerIterator entry(matrices.stiffness, column); at != made_at.end() && entry; ++entry)
        {
            const auto tie = tie_of.find(matrices.freedoms[size_t(entry.row())].node_id);
            if (tie != tie_of.end())
                strength(tie->second, at->second) += std::abs(entry.value());
        }
    }
    int64_t incompatible = count_incompatible_nodes(deck.mesh);
    for (Index m = 0; m < strength.cols(); ++m)
    {
        Index tie = 0;
        const double strongest = strength.rows() > 0 ? strength.col(m).maxCoeff(&tie) : 0.0;
        if (strongest <= 0.0 && incompatible-- > 0)
            continue;
        if (strongest <= 0.0 || std::exchange(ids[size_t(tie)], made[size_t(m)]) != 0)
            throw std::runtime_error("the matrices have freedoms of node " + std::to_string(made[size_t(m)]) +
                                     ", which the deck does not define");
    }
    return ids;
}

static bool is_rotation_node(const Model& model, int node_id)
{
    return std::find(model.rotation_ids.begin(), model.rotation_ids.end(), node_id) != model.rotation_ids.end();
}

MatrixXd Model::rigid_motions(const Vector3d& center) const
{
    MatrixXd motions = MatrixXd::Zero(Index(matrices.freedoms.size()), 6);
    for (size_t i = 0; i < matrices.freedoms.size(); ++i)
    {
        const auto [id, component] = matrices.freedoms[i];
        if (is_rotation_node(*this, id))
            motions(Index(i), 2 + component) = 1.0;
        else if (const int node = deck->find_node(id); node >= 0) // incompatible modes are at rest
            motions.row(Index(i)) = rigid_motion(deck->mesh.nodes[size_t(node)].at, center).row(component - 1);
    }
    return motions;
}

// Every node of an element has its three freedoms, unless it follows a reference node that has.
static void check_freedoms(const Model& model)
{
    const Deck& deck = *model.deck;
    std::vector<int> seen(deck.mesh.nodes.size());
    for (const auto& [id, component] : model.matrices.freedoms)
    {
        const int node = deck.find_node(id);
        if (node >= 0)
            seen[size_t(node)] |= 1 << component;
    }
    for (const Tie& tie : deck.ties)
        if (seen[size_t(deck.find_node(tie.reference_id))] == 14)
            for (int id : tie.node_ids)
                if (seen[size_t(deck.find_node(id))] == 0)
                    seen[size_t(deck.find_node(id))] = 14;
    for (const Element& element : deck.mesh.elements)
        for (int i = 0; i < node_count(element.type->shape); ++i)
        {
            const int node = element.nodes[size_t(i)];
            if (seen[size_t(node)] != 14)
                throw InputError(deck.mesh.place(element),
                                 "node " + std::to_string(deck.mesh.nodes[size_t(node)].id) +
                                     " has no freedoms in the matrices: the model must be free of supports and "
                                     "constraints, and the matrices must belong to this deck");
        }
}

// No rigid motion strains a free body. A support, or a matrix of another model, shows here.
static void check_rigid_motions(const Model& model)
{
    const Vector3d center = mesh_center(model.deck->mesh);
    const MatrixXd rigid = model.rigid_motions(center), force = times(model.matrices.stiffness, rigid);
    SparseMatrix magnitude = model.matrices.stiffness;
    magnitude.coeffs() = magnitude.coeffs().abs();
    const MatrixXd scale = times(magnitude, rigid.cwiseAbs());
    for (int k = 0; k < 6; ++k)
        if (force.col(k).cwiseAbs().maxCoeff() > kRigidTolerance * scale.col(k).maxCoeff())
            throw std::runtime_error("the stiffness matrix resists rigid motion: the model must be free of supports, "
                                     "and the matrices must belong to this deck");
}

Model make_model(const Deck& deck, StoredMatrices matrices, std::vector<Interface> interfaces)
{
    Model model{&deck, std::move(matrices), std::move(interfaces), {}};
    model.rotation_ids = find_rotation_nodes(deck, model.matrices);
    check_freedoms(model);
    check_rigid_motions(model);
    return model;
}

// A freedom that the reference node of an interface moves: its six motions times the coefficients.
struct Follower
{
    int interface;
    Vector6 coefficients;
};

// Interior freedoms are unknowns, in their order; all others follow a reference node.
struct Split
{
    Index interior_count = 0;
    std::vector<Index> position; // interior number, or -1 - index into followers
    std::vector<Follower> followers;
};

static Split split_freedoms(const Model& model)
{
    const Deck& deck = *model.deck;
    std::vector<int> owner(deck.mesh.nodes.size(), -1);
    std::unordered_map<int, int> reference, rotation; // node id to interface
    for (size_t j = 0; j < model.interfaces.size(); ++j)
    {
        for (int node : model.interfaces[j].tied)
            owner[size_t(node)] = int(j);
        reference[model.interfaces[j].reference_id] = int(j);
        for (size_t t = 0; t < deck.ties.size(); ++t)
            if (deck.ties[t].reference_id == model.interfaces[j].reference_id)
                rotation[model.rotation_ids[t]] = int(j);
    }
    Split split;
    for (const auto& [id, component] : model.matrices.freedoms)
    {
        const int node = deck.find_node(id);
        Follower follower{node >= 0 ? owner[size_t(node)] : -1, Vector6::Zero()};
        if (follower.interface >= 0)
            follower.coefficients =
                rigid_motion(deck.mesh.nodes[size_t(node)].at, model.interfaces[size_t(follower.interface)].at)
                    .row(component - 1);
        else if (reference.count(id))
            follower = {reference[id], Vector6::Unit(component - 1)};
        else if (rotation.count(id))
            follower = {rotation[id], Vector6::Unit(2 + component)};
        if (follower.interface < 0)
            split.position.push_back(split.interior_count++);
        else
        {
            split.position.push_back(-1 - Index(split.followers.size()));
            split.followers.push_back(follower);
        }
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

static double largest_rigid(const Reduction& reduction)
{
    VectorXd values = generalized_eigenvalues(reduction.stiffness, reduction.mass).cwiseAbs();
    std::sort(values.begin(), values.end());
    return values[std::min<Index>(6, values.size()) - 1];
}

void repair_rigid_motions(const std::vector<Interface>& interfaces, Reduction& reduction)
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
    reduction.rigid_before = largest_rigid(reduction);
    auto boundary = reduction.stiffness.topLeftCorner(count, count);
    boundary = symmetric(projector * boundary * projector);
    reduction.rigid_after = largest_rigid(reduction);
}

Reduction reduce_craig_bampton(const Model& model, int mode_count, PhaseLog& log)
{
    const Index boundary = 6 * Index(model.interfaces.size()), modes = boundary + mode_count;
    const Split split = split_freedoms(model);
    if (split.interior_count == 0)
        throw std::runtime_error("all nodes of the body are tied to its interfaces");
    const Partition k = partition(model.matrices.stiffness, split, boundary);
    const Partition m = partition(model.matrices.mass, split, boundary);
    log.begin("factor the stiffness matrix");
    const Cholesky factor(k.interior);
    log.begin("constraint modes");
    const MatrixXd constraint = factor.solve(-k.coupling); // of the interior, under unit motions of the reference nodes
    log.begin("fixed-interface modes");
    const Eigenmodes fixed =
        lowest_modes({k.interior, m.interior, MatrixXd(split.interior_count, 0), 0.0}, factor, mode_count);
    log.begin("generalized matrices");
    const MatrixXd inertia = times(m.interior, constraint) + m.coupling;
    Reduction reduction;
    reduction.boundary_count = int(boundary);
    reduction.factor_bytes = factor.factor_bytes();
    reduction.complete_to = fixed.complete_to;
    reduction.stiffness = MatrixXd::Zero(modes, modes);
    reduction.stiffness.topLeftCorner(boundary, boundary) = symmetric(k.boundary + k.coupling.transpose() * constraint);
    reduction.stiffness.bottomRightCorner(mode_count, mode_count) = fixed.values.asDiagonal();
    reduction.mass = MatrixXd::Identity(modes, modes);
    reduction.mass.topLeftCorner(boundary, boundary) =
        symmetric(m.boundary + constraint.transpose() * inertia + m.coupling.transpose() * constraint);
    reduction.mass.topRightCorner(boundary, mode_count) = inertia.transpose() * fixed.shapes;
    reduction.mass.bottomLeftCorner(mode_count, boundary) =
        reduction.mass.topRightCorner(boundary, mode_count).transpose();
    repair_rigid_motions(model.interfaces, reduction);

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

// Rayleigh quotient of a smooth bend along the longest axis: a safe scale for the first flexible eigenvalue.
static double bending_scale(const Model& model, const MatrixXd& rigid)
{
    const Mesh& mesh = model.deck->mesh;
    const Vector3d center = mesh_center(mesh);
    Vector3d size = Vector3d::Zero();
    for (const Node& node : mesh.nodes)
        size = size.cwiseMax((node.at - center).cwiseAbs());
    Index longest = 0;
    size.maxCoeff(&longest);
    const Index side = (longest + 1) % 3, other = (longest + 2) % 3, across = size[side] < size[other] ? side : other;
    MatrixXd bend = MatrixXd::Zero(rigid.rows(), 1);
    for (Index i = 0; i < bend.rows(); ++i)
    {
        const auto [id, component] = model.matrices.freedoms[size_t(i)];
        const int node = model.deck->find_node(id);
        if (node < 0 || is_rotation_node(model, id))
            continue;
        // u = x^2 across the axis, and -2 x y along it, so that sections stay plane
        const Vector3d r = mesh.nodes[size_t(node)].at - center;
        if (component - 1 == across)
            bend(i, 0) = r[longest] * r[longest];
        else if (component - 1 == longest)
            bend(i, 0) = -2.0 * r[longest] * r[across];
    }
    bend -= rigid * (times(model.matrices.mass, rigid).transpose() * bend);
    const double stiffness = (bend.transpose() * times(model.matrices.stiffness, bend))(0, 0);
    const double mass = (bend.transpose() * times(model.matrices.mass, bend))(0, 0);
    return stiffness / mass;
}

Reduction reduce_free(const Model& model, int mode_count, PhaseLog& log)
{
    const SparseMatrix &k = model.matrices.stiffness, &m = model.matrices.mass;
    MatrixXd rigid = model.rigid_motions(mesh_center(model.deck->mesh));
    const MatrixXd rigid_mass = symmetric(rigid.transpose() * times(m, rigid));
    const Eigen::LLT<MatrixXd> normal(rigid_mass);
    if (normal.info() != Eigen::Success)
        throw std::runtime_error("the body has no mass to vibrate with");
    rigid = normal.matrixU().solve<Eigen::OnTheRight>(rigid).eval();
    const double shift = -bending_scale(model, rigid);
    if (!(shift < 0.0))
        throw std::runtime_error("the stiffness matrix has no stiffness against bending");
    log.begin("factor the shifted stiffness matrix");
    const Cholesky factor(SparseMatrix(k - shift * m));
    log.begin("free-free modes");
    const Eigenmodes flexible = lowest_modes({k, m, rigid, shift}, factor, mode_count);
    Reduction reduction;
    reduction.factor_bytes = factor.factor_bytes();
    reduction.complete_to = flexible.complete_to;
    reduction.motion.resize(rigid.rows(), 6 + mode_count);
    reduction.motion << rigid, flexible.shapes;
    reduction.mass = MatrixXd::Identity(6 + mode_count, 6 + mode_count);
    reduction.stiffness = MatrixXd::Zero(6 + mode_count, 6 + mode_count);
    reduction.stiffness.bottomRightCorner(mode_count, mode_count) = flexible.values.asDiagonal();
    reduction.rigid_before = (rigid.transpose() * times(k, rigid))
                                 .eval()
                                 .selfadjointView<Eigen::Upper>()
                                 .eigenvalues()
                                 .cwiseAbs()
                                 .maxCoeff();
    return reduction;
}

// ---- Back to the nodes -------------------------------------------------------------------------------------------------

MatrixXd node_motion(const Model& model, const Reduction& reduction)
{
    const Deck& deck = *model.deck;
    const auto& nodes = deck.mesh.nodes;
    MatrixXd motion = MatrixXd::Zero(3 * Index(nodes.size()), reduction.motion.cols());
    std::unordered_map<int, MatrixXd> rotations; // of the nodes that carry them, 3 x modes
    std::vector<char> moved(nodes.size());
    for (size_t i = 0; i < model.matrices.freedoms.size(); ++i)
    {
        const auto [id, component] = model.matrices.freedoms[i];
        if (is_rotation_node(model, id))
        {
            MatrixXd& rotation = rotations.try_emplace(id, MatrixXd::Zero(3, motion.cols())).first->second;
            rotation.row(component - 1) = reduction.motion.row(Index(i));
            continue;
        }
        const int node = deck.find_node(id);
        if (node < 0)
            continue;
        motion.row(3 * Index(node) + component - 1) = reduction.motion.row(Index(i));
        moved[size_t(node)] = 1;
    }
    // nodes that the solver has eliminated follow their reference node
    for (size_t t = 0; t < deck.ties.size(); ++t)
    {
        const int reference = deck.find_node(deck.ties[t].reference_id);
        const auto rotation = rotations.find(model.rotation_ids[t]);
        if (!moved[size_t(reference)] || rotation == rotations.end())
            continue;
        for (int id : deck.ties[t].node_ids)
        {
            const int node = deck.find_node(id);
            if (moved[size_t(node)])
                continue;
            const Matrix3x6 rigid = rigid_motion(nodes[size_t(node)].at, nodes[size_t(reference)].at);
            motion.middleRows<3>(3 * Index(node)) =
                motion.middleRows<3>(3 * Index(reference)) + rigid.rightCols<3>() * rotation->second;
        }
    }
    return motion;
}

MassMoments matrix_moments(const Model& model)
{
    const Vector3d center = mesh_center(model.deck->mesh);
    const MatrixXd rigid = model.rigid_motions(center);
    const Eigen::Matrix<double, 6, 6> m = rigid.transpose() * times(model.matrices.mass, rigid);
    MassMoments moments;
    moments.mass = m.topLeftCorner<3, 3>().trace() / 3.0;
    // u_y of a turn about z is x, u_z of one about x is y, u_x of one about y is z
    moments.first = Vector3d(m(1, 5), m(2, 3), m(0, 4));
    const Eigen::Matrix3d inertia = m.bottomRightCorner<3, 3>();
    moments.second = 0.5 * inertia.trace() * Eigen::Matrix3d::Identity() - inertia;
    const Vector3d about_center = moments.first;
    moments.first += moments.mass * center;
    moments.second += about_center * center.transpose() + center * about_center.transpose() +
                      moments.mass * center * center.transpose();
    return moments;
}

} // namespace zel_fem
