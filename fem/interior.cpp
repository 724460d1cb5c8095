// The reference node of an average moves as the rigid motion that fits the displacements of its nodes best, by least squares with
// their weights: q = (sum w G^T G)^-1 sum w G^T u, where G are the rigid motions of a node about the reference node.
#include "fem/interior.h"

#include <algorithm>
#include <utility>

#include "dense/dense.h"
#include "fem/interfaces.h"
#include "fem/sparse_modes.h"

namespace zel_fem
{

using Eigen::Index;
using Eigen::MatrixXd;
using Eigen::Vector3d;
using Eigen::VectorXd;
using Matrix6 = Eigen::Matrix<double, 6, 6>;
using Vector6 = Eigen::Matrix<double, 6, 1>;

constexpr double kNotFelt = 1e-12; // squared share of a rigid motion that interfaces do not feel

Matrix6 rigid_reference(const Vector3d& at, const Vector3d& center)
{
    Matrix6 motion = Matrix6::Zero();
    motion.topRows<3>() = rigid_motion(at, center);
    motion.bottomRightCorner<3, 3>().setIdentity();
    return motion;
}

static void append(MatrixXd& columns, const MatrixXd& more)
{
    columns.conservativeResize(more.rows(), columns.cols() + more.cols());
    columns.rightCols(more.cols()) = more;
}

// ---- Rows --------------------------------------------------------------------------------------------------------------

void Interior::split_rows(const Model& model)
{
    const std::vector<Node>& nodes = model.moved_mesh().nodes;
    std::vector<int> owner(nodes.size(), -1);
    for (size_t j = 0; j < interfaces_.size(); ++j)
    {
        if (interfaces_[j].kind != InterfaceKind::rigid)
            continue;
        for (int node : interfaces_[j].tied)
            owner[size_t(node)] = int(j);
        if (interfaces_[j].reference >= 0)
            owner[size_t(interfaces_[j].reference)] = int(j);
    }
    for (const auto& [node, component] : model.matrices->rows)
    {
        const int j = node >= 0 ? owner[size_t(node)] : -1;
        if (j < 0)
        {
            position_.push_back(row_count_++);
            node_.push_back(node);
            continue;
        }
        const Interface& interface = interfaces_[size_t(j)];
        Follower follower{j, Vector6::Unit(component)};
        if (component < 3 && node != interface.reference)
            follower.coefficients = rigid_motion(nodes[size_t(node)].at, interface.at).row(component);
        position_.push_back(-1 - Index(followers_.size()));
        followers_.push_back(follower);
    }
}

// By all six motions of every reference node at first, then by those that join and those that do not.
Interior::Part Interior::partition(const SparseMatrix& upper) const
{
    const Index motions = 6 * Index(interfaces_.size());
    Part parts{SparseMatrix(row_count_, row_count_), MatrixXd::Zero(row_count_, motions),
               MatrixXd::Zero(motions, motions)};
    parts.inside.reserve(upper.nonZeros());
    auto couple = [&](Index inside, Index position, double value) {
        const Follower& f = followers_[size_t(-1 - position)];
        parts.coupling.row(inside).segment<6>(6 * f.interface) += value * f.coefficients.transpose();
    };
    for (Index column = 0; column < upper.cols(); ++column)
    {
        const Index c = position_[size_t(column)];
        if (c >= 0)
            parts.inside.startVec(c);
        for (SparseMatrix::InnerIterator entry(upper, column); entry; ++entry)
        {
            const Index r = position_[size_t(entry.row())];
            if (r >= 0 && c >= 0)
                parts.inside.insertBack(r, c) = entry.value();
            else if (r >= 0 || c >= 0)
                couple(std::max(r, c), std::min(r, c), entry.value());
            else
            {
                const Follower &a = followers_[size_t(-1 - r)], &b = followers_[size_t(-1 - c)];
                const Matrix6 block = entry.value() * a.coefficients * b.coefficients.transpose();
                parts.boundary.block<6, 6>(6 * a.interface, 6 * b.interface) += block;
                if (entry.row() != column)
                    parts.boundary.block<6, 6>(6 * b.interface, 6 * a.interface) += block.transpose();
            }
        }
    }
    parts.inside.finalize();
    if (inner_.cols() > 0)
        parts.inside = bordered(parts.inside, parts.coupling * inner_, inner_.transpose() * parts.boundary * inner_);
    MatrixXd coupling(row_count_ + inner_.cols(), boundary_.cols());
    coupling << parts.coupling * boundary_, inner_.transpose() * parts.boundary * boundary_;
    parts.coupling = std::move(coupling);
    parts.boundary = (boundary_.transpose() * parts.boundary * boundary_).eval();
    return parts;
}

// ---- Reference nodes ---------------------------------------------------------------------------------------------------

// The freedoms that do not join become unknowns, as far as they move a node.
void Interior::add_reference(const Model& model, const std::vector<int>& moved, size_t j)
{
    std::vector<int> others;
    for (int c = 0; c < 6; ++c)
        if (!interfaces_[j].freedoms[size_t(c)])
            others.push_back(c);
    const Directions felt = felt_directions(span_of(model.moved_mesh(), interfaces_[j], moved), others);
    if (felt.motions.cols() == 0)
        return;
    MatrixXd motions = MatrixXd::Zero(6 * Index(interfaces_.size()), felt.motions.cols()), dual = motions;
    motions.middleRows<6>(6 * Index(j)) = felt.motions;
    dual.middleRows<6>(6 * Index(j)) = felt.dual;
    append(inner_, motions);
    append(inner_dual_, dual);
}

void Interior::add_mean(const Model& model, const std::vector<int>& moved, size_t j)
{
    const Interface& interface = interfaces_[j];
    const std::vector<Node>& nodes = model.moved_mesh().nodes;
    const Span span = span_of(model.moved_mesh(), interface, moved);
    const zel_dense::Eigenpairs motions = zel_dense::eigenpairs(span.sum);
    Vector6 inverse = motions.values;
    for (double& value : inverse)
        value = value > Span::zero(span.sum.trace()) ? 1.0 / value : 0.0;
    const Matrix6 fit =
        motions.vectors * inverse.asDiagonal() * motions.vectors.transpose() * span.scale().asDiagonal();
    std::vector<double> weight(nodes.size());
    for (size_t i = 0; i < interface.tied.size(); ++i)
        weight[size_t(interface.tied[i])] = interface.weights[i];
    MatrixXd& mean = means_[j] = MatrixXd::Zero(row_count_ + inner_.cols(), 6);
    for (size_t i = 0; i < position_.size(); ++i)
        if (const auto [node, component] = model.matrices->rows[i];
            node >= 0 && component < 3 && weight[size_t(node)] != 0.0 && position_[i] >= 0)
            mean.row(position_[i]) = weight[size_t(node)] *
                                     rigid_motion(nodes[size_t(node)].at, interface.at).row(component) *
                                     span.scale().asDiagonal() * fit;
}

// ---- Rigid motions -----------------------------------------------------------------------------------------------------

// Of six motions, those combinations that give zero rows.
static MatrixXd null_space(const MatrixXd& rows)
{
    if (rows.rows() == 0)
        return Matrix6::Identity();
    const zel_dense::Eigenpairs pairs = zel_dense::eigenpairs(rows.transpose() * rows);
    const Index count = (pairs.values.array() < kNotFelt * pairs.values[5]).count();
    return pairs.vectors.leftCols(count);
}

void Interior::find_rigid(const Model& model)
{
    const Mesh& mesh = model.moved_mesh();
    const Vector3d center = middle_of(mesh);
    double size = 0.0;
    for (const Node& node : mesh.nodes)
        size = std::max(size, (node.at - center).norm());
    Vector6 scale; // that makes rotations and translations alike
    scale << 1, 1, 1, Vector3d::Constant(1 / size);
    MatrixXd felt[2] = {MatrixXd(0, 6), MatrixXd(0, 6)}; // by rigid interfaces, and by all
    MatrixXd references(6 * Index(interfaces_.size()), 6);
    for (size_t j = 0; j < interfaces_.size(); ++j)
    {
        references.middleRows<6>(6 * Index(j)) = rigid_reference(interfaces_[j].at, center) * scale.asDiagonal();
        for (int c : interfaces_[j].components())
            for (int all = interfaces_[j].kind == InterfaceKind::rigid ? 0 : 1; all < 2; ++all)
            {
                felt[all].conservativeResize(felt[all].rows() + 1, 6);
                felt[all].bottomRows<1>() = references.row(6 * Index(j) + c) / scale[c];
            }
    }
    const MatrixXd loose_ones = null_space(felt[0]), rigid_ones = null_space(felt[1]);
    const MatrixXd rows = rigid_motions(model, center) * scale.asDiagonal();
    MatrixXd motions(row_count_ + inner_.cols(), 6);
    for (size_t i = 0; i < position_.size(); ++i)
        if (position_[i] >= 0)
            motions.row(position_[i]) = rows.row(Index(i));
    motions.bottomRows(inner_.cols()) = inner_dual_.transpose() * references;
    loose = motions * loose_ones;
    rigid = motions * rigid_ones;
    if (rigid.cols() == 0)
        return;
    const std::optional<MatrixXd> normal = zel_dense::normalised(rigid, rigid.transpose() * times(mass.inside, rigid));
    if (!normal)
        throw std::runtime_error("the interfaces leave a motion free in which the body has no mass");
    rigid = *normal;
}

Interior::Interior(const Model& model, const std::vector<Interface>& interfaces)
    : interfaces_(interfaces), means_(interfaces.size())
{
    split_rows(model);
    if (row_count_ == 0)
        throw std::runtime_error("all nodes of the body are tied to its interfaces");
    const std::vector<int> moved = moved_components(model);
    const Index motions = 6 * Index(interfaces.size());
    boundary_ = inner_ = inner_dual_ = MatrixXd(motions, 0);
    for (size_t j = 0; j < interfaces.size(); ++j)
        if (interfaces[j].kind == InterfaceKind::rigid)
            add_reference(model, moved, j);
    constraints = MatrixXd(row_count_ + inner_.cols(), 0);
    for (size_t j = 0; j < interfaces.size(); ++j)
    {
        const bool mean = interfaces[j].kind == InterfaceKind::average;
        if (mean)
            add_mean(model, moved, j);
        for (int c : interfaces[j].components())
        {
            append(boundary_,
                   mean ? MatrixXd(MatrixXd::Zero(motions, 1)) : MatrixXd(VectorXd::Unit(motions, 6 * Index(j) + c)));
            if (mean)
                append(constraints, means_[j].col(c));
        }
    }
    given = MatrixXd::Zero(constraints.cols(), boundary_.cols());
    for (Index k = 0, row = 0; k < boundary_.cols(); ++k)
        if (boundary_.col(k).isZero(0.0))
            given(row++, k) = 1.0;
    stiffness = partition(model.matrices->stiffness);
    mass = partition(model.matrices->mass);
    find_rigid(model);
    order = Elimination::by_dissection(stiffness.inside, node_, inner_.cols());
}

MatrixXd Interior::reference_motion(const MatrixXd& x, const MatrixXd& q) const
{
    MatrixXd motion = boundary_ * q;
    if (inner_.cols() > 0)
        motion += inner_ * x.bottomRows(inner_.cols());
    Index k = 0;
    for (size_t j = 0; j < interfaces_.size(); ++j)
    {
        if (means_[j].size() > 0)
            motion.middleRows<6>(6 * Index(j)) = means_[j].transpose() * x;
        for (int c : interfaces_[j].components()) // without what rounding leaves
            motion.row(6 * Index(j) + c) = q.row(k++);
    }
    return motion;
}

MatrixXd Interior::motion(const MatrixXd& x, const MatrixXd& reference) const
{
    MatrixXd rows(Index(position_.size()), x.cols());
    for (size_t i = 0; i < position_.size(); ++i)
        if (const Index at = position_[i]; at >= 0)
            rows.row(Index(i)) = x.row(at);
        else
        {
            const Follower& f = followers_[size_t(-1 - at)];
            rows.row(Index(i)) = f.coefficients.transpose() * reference.middleRows<6>(6 * f.interface);
        }
    return rows;
}

MatrixXd Interior::forces(const MatrixXd& rows, const MatrixXd& references) const
{
    MatrixXd at_unknowns = MatrixXd::Zero(row_count_ + inner_.cols(), rows.cols());
    if (rows.cols() == 0)
        return at_unknowns;
    MatrixXd at_references = MatrixXd::Zero(boundary_.rows(), rows.cols());
    if (references.size() > 0)
        at_references = references;
    for (size_t j = 0; j < means_.size(); ++j)
        if (means_[j].size() > 0)
            at_unknowns += means_[j] * at_references.middleRows<6>(6 * Index(j));
    for (size_t i = 0; i < position_.size(); ++i)
        if (const Index at = position_[i]; at >= 0)
            at_unknowns.row(at) += rows.row(Index(i));
        else
        {
            const Follower& f = followers_[size_t(-1 - at)];
            at_references.middleRows<6>(6 * f.interface) += f.coefficients * rows.row(Index(i));
        }
    at_unknowns.bottomRows(inner_.cols()) += inner_.transpose() * at_references;
    return at_unknowns;
}

// ---- Solutions ---------------------------------------------------------------------------------------------------------

// Unknowns far apart that together feel every loose motion.
static std::vector<Index> rows_to_hold(const MatrixXd& loose)
{
    std::vector<Index> rows;
    if (loose.cols() == 0)
        return rows;
    rows = zel_dense::independent_columns(loose.transpose());
    rows.resize(size_t(loose.cols()));
    return rows;
}

// Springs as stiff as the body is there.
static SparseMatrix grounded(SparseMatrix stiffness, const std::vector<Index>& rows)
{
    for (Index row : rows)
        stiffness.coeffRef(row, row) *= 2.0;
    return stiffness;
}

// With springs s = p p^T the stiffness is K_g = K + P P^T. Constraint forces w and what the springs feel, r = P^T x, are the other
// unknowns of K_g x + C w - P r = f, C^T x = given.
HeldSolver::HeldSolver(const Interior& interior, Progress& progress)
    : ground_(rows_to_hold(interior.loose)),
      factor_(ground_.empty() ? interior.stiffness.inside : grounded(interior.stiffness.inside, ground_),
              Cholesky::kUsualMemory, interior.order, &progress)
{
    const SparseMatrix& k = interior.stiffness.inside;
    const Index springs = Index(ground_.size());
    sides_ = interior.constraints;
    if (interior.rigid.cols() > 0)
        append(sides_, times(interior.mass.inside, interior.rigid));
    MatrixXd held = MatrixXd::Zero(k.rows(), springs);
    for (Index i = 0; i < springs; ++i)
        held(ground_[size_t(i)], i) = -std::sqrt(k.coeff(ground_[size_t(i)], ground_[size_t(i)]));
    append(sides_, held);
    if (sides_.cols() == 0)
        return;
    answers_ = factor_.solve(sides_);
    MatrixXd products = sides_.transpose() * answers_;
    products.bottomRightCorner(springs, springs) -= MatrixXd::Identity(springs, springs);
    scale_ = products.cwiseAbs().rowwise().maxCoeff().cwiseSqrt().cwiseInverse();
    small_ = zel_dense::Equations(scale_.asDiagonal() * products * scale_.asDiagonal());
    if (!small_.solvable())
        throw std::runtime_error("the freedoms of the interfaces depend on each other");
}

MatrixXd HeldSolver::solve(const MatrixXd& right) const
{
    return solve(right, MatrixXd(0, right.cols()));
}

MatrixXd HeldSolver::solve(const MatrixXd& right, const MatrixXd& given) const
{
    MatrixXd x = factor_.solve(right);
    if (sides_.cols() == 0)
        return x;
    MatrixXd gap = sides_.transpose() * x;
    gap.topRows(given.rows()) -= given;
    const MatrixXd forces = scale_.asDiagonal() * small_.solve(scale_.asDiagonal() * gap);
    x.noalias() -= answers_ * forces;
    return x;
}

} // namespace zel_fem
