#include "fem/model.h"

#include <algorithm>
#include <numeric>
#include <set>

#include "fem/sparse_modes.h"

namespace zel_fem
{

using Eigen::Index;
using Eigen::MatrixXd;
using Eigen::Vector3d;
using Matrix6 = Eigen::Matrix<double, 6, 6>;

constexpr double kRigidTolerance = 1e-6;   // of K R, relative to the sums of |K| |R|; stored values have 14 digits
constexpr double kRoundedTolerance = 1e-3; // the same for rotations about nodes with few digits
constexpr double kRoundedEnergy = 1e-3;    // of K R: its work, relative to what all forces would do with one sign
constexpr double kFollowTolerance =
    1e-5; // of rigid motions of nodes without rows; rotations relative to the size of the model
constexpr double kRigidMassTolerance = 1e-5; // of R^T M R, relative to its diagonal

Eigen::Matrix<double, 3, 6> rigid_motion(const Vector3d& at, const Vector3d& center)
{
    const Vector3d r = at - center;
    Eigen::Matrix<double, 3, 6> motion;
    motion << 1, 0, 0, 0, r[2], -r[1], //
        0, 1, 0, -r[2], 0, r[0],       //
        0, 0, 1, r[1], -r[0], 0;
    return motion;
}

MatrixXd rigid_motions(const Model& model, const Vector3d& center)
{
    const std::vector<Row>& rows = model.matrices->rows;
    MatrixXd motions = MatrixXd::Zero(Index(rows.size()), 6);
    for (size_t i = 0; i < rows.size(); ++i)
    {
        const auto [node, component] = rows[i];
        if (node >= 0 && component >= 3)
            motions(Index(i), component) = 1.0;
        else if (node >= 0)
            motions.row(Index(i)) = rigid_motion(model.moved_mesh().nodes[size_t(node)].at, center).row(component);
    }
    return motions;
}

Vector3d middle_of(const Mesh& mesh)
{
    Vector3d low = mesh.nodes[0].at, high = low;
    for (const Node& node : mesh.nodes)
    {
        low = low.cwiseMin(node.at);
        high = high.cwiseMax(node.at);
    }
    return 0.5 * (low + high);
}

std::vector<int> moved_components(const Model& model)
{
    std::vector<int> moved(model.moved_mesh().nodes.size());
    for (const auto& [node, component] : model.matrices->rows)
        if (node >= 0)
            moved[size_t(node)] |= 1 << component;
    return moved;
}

std::vector<char> references_of_ties(const Model& model)
{
    std::vector<char> references(model.moved_mesh().nodes.size());
    for (const Tie& tie : model.ties)
        references[size_t(tie.reference)] = 1;
    return references;
}

std::map<int, std::vector<size_t>> masters_of(const Dependents& dependents)
{
    std::map<int, std::vector<size_t>> masters;
    for (Index row = 0; row < dependents.motion.cols(); ++row)
        for (SparseMatrix::InnerIterator entry(dependents.motion, row); entry; ++entry)
            masters[int(entry.row() / 3)].push_back(size_t(row));
    return masters;
}

// Every node of an element has its three translations, as rows or as combinations of them.
static void check_rows(const Model& model)
{
    const Mesh& mesh = model.moved_mesh();
    std::vector<int> moved = moved_components(model);
    for (Index row = 0; row < model.dependents.motion.cols(); ++row)
        for (SparseMatrix::InnerIterator entry(model.dependents.motion, row); entry; ++entry)
            moved[size_t(entry.row() / 3)] |= 1 << (entry.row() % 3);
    for (const Element& element : mesh.elements)
        for (int i = 0; i < node_count(element.type->shape); ++i)
        {
            const size_t node = size_t(element.nodes[size_t(i)]);
            if ((moved[node] & kTranslations) != kTranslations)
                throw InputError(mesh.place(element),
                                 "node " + std::to_string(mesh.nodes[node].id) +
                                     " has no freedoms in the matrices: the model must be free of supports and "
                                     "constraints, and the matrices must belong to this mesh");
        }
}

// A constraint that does not let its nodes move rigidly, or was read amiss, shows here: frequencies alone would not tell.
static void check_dependents(const Model& model, const MatrixXd& rigid, const Vector3d& center)
{
    if (model.dependents.from.empty())
        return;
    const Mesh& mesh = model.moved_mesh();
    const std::vector<int> moved = moved_components(model);
    const MatrixXd motion = model.dependents.motion * rigid;
    double size = 0.0;
    for (const Node& node : mesh.nodes)
        size = std::max(size, (node.at - center).norm());
    for (const auto& [node, place] : model.dependents.from)
    {
        const Eigen::Matrix<double, 3, 6> wanted = rigid_motion(mesh.nodes[size_t(node)].at, center);
        for (int c = 0; c < 3; ++c)
        {
            const auto rest = motion.row(3 * Index(node) + c) - wanted.row(c);
            const double worst =
                std::max(rest.head<3>().cwiseAbs().maxCoeff(), rest.tail<3>().cwiseAbs().maxCoeff() / size);
            if (!(moved[size_t(node)] >> c & 1) && !(worst <= kFollowTolerance))
                throw InputError(
                    place, "node " + std::to_string(mesh.nodes[size_t(node)].id) +
                               " does not follow rigid motions of the body: the constraint holds it, or joins what "
                               "lies apart");
        }
    }
}

namespace
{
// What rigid motions find in their way: force = K R, and scale = |K| |R|, as large as rounding would let it be.
struct Resistance
{
    MatrixXd force, scale;

    Resistance(const SparseMatrix& stiffness, const MatrixXd& rigid) : force(times(stiffness, rigid))
    {
        SparseMatrix magnitude = stiffness;
        magnitude.coeffs() = magnitude.coeffs().abs();
        scale = times(magnitude, rigid.cwiseAbs());
    }
    // The rows that resist, the most by far first of all; forces are compared with forces and moments with moments.
    std::vector<size_t> rows(const std::vector<Row>& all) const;
    bool is_of_rounded_nodes(const MatrixXd& rigid) const;
};
} // namespace

std::vector<size_t> Resistance::rows(const std::vector<Row>& all) const
{
    std::vector<size_t> resisting;
    double worst = 0.0;
    for (const bool moments : {false, true})
        for (Index k = 0; k < 6; ++k)
        {
            double largest = 0.0;
            for (size_t i = 0; i < all.size(); ++i)
                if ((all[i].component >= 3) == moments)
                    largest = std::max(largest, scale(Index(i), k));
            for (size_t i = 0; i < all.size(); ++i)
            {
                const double share = std::abs(force(Index(i), k)) / std::max(largest, 1e-300);
                if ((all[i].component >= 3) != moments || !(share > kRigidTolerance))
                    continue;
                resisting.push_back(i);
                if (share > worst)
                    std::swap(resisting.front(), resisting.back());
                worst = std::max(worst, share);
            }
        }
    return resisting;
}

// Whether coordinates of few digits explain the resistance. With errors d in the nodes a rotation is R + D, D as small as d, and
// meets the forces K D: first order in each row, but the energy D^T K D is of second order, as their sum is in equilibrium. A
// support works against the rotation with all of its force, and nodes that are mixed up lie far from their places. Translations do
// not depend on coordinates at all.
bool Resistance::is_of_rounded_nodes(const MatrixXd& rigid) const
{
    for (Index k = 0; k < 6; ++k)
    {
        const double worst = force.col(k).cwiseAbs().maxCoeff() / std::max(scale.col(k).maxCoeff(), 1e-300);
        const double energy = std::abs(rigid.col(k).dot(force.col(k)));
        const double most = rigid.col(k).cwiseAbs().dot(force.col(k).cwiseAbs());
        if (worst > (k < 3 ? kRigidTolerance : kRoundedTolerance) ||
            (worst > kRigidTolerance && energy > kRoundedEnergy * most))
            return false;
    }
    return true;
}

// A cause that lies in the elements: what keeps bricks of one point from collapsing may resist turns unless they are cuboids.
static std::string hint_of(const Mesh& mesh)
{
    for (const Element& element : mesh.elements)
        if (element.type->shape == Shape::hex8 && element.type->gauss_points == 1)
            return "; elements of one point (" + std::string(element.type->name) +
                   ") resist turns by themselves where they are no cuboids";
    return "";
}

// No rigid motion strains a free body. A support, or a matrix of another model, shows here.
static void check_stiffness(const Model& model, const MatrixXd& rigid)
{
    const std::vector<Row>& rows = model.matrices->rows;
    const Resistance resistance(model.matrices->stiffness, rigid);
    const std::vector<size_t> resisting = resistance.rows(rows);
    if (resisting.empty() || resistance.is_of_rounded_nodes(rigid))
        return;
    const auto [node, component] = rows[resisting.front()];
    const std::string where = node < 0 ? std::string("inside an element")
                                       : "at component " + std::to_string(component + 1) + " of node " +
                                             std::to_string(model.moved_mesh().nodes[size_t(node)].id);
    throw std::runtime_error(
        "the stiffness matrix resists rigid motion, most " + where +
        ": the model must be free of supports, and the matrices must belong to this mesh, row by row" +
        hint_of(model.moved_mesh()));
}

// A spring p at row i makes K R = p R there. Smaller ones show when larger ones are gone, and digits of the diagonal that a penalty
// has swallowed come back from the condition that K R = 0: so the rows that were found are looked at once more at the end.
std::vector<size_t> release_supports(Model& model)
{
    constexpr int kPasses = 8;
    SparseMatrix& stiffness = model.matrices->stiffness;
    const MatrixXd rigid = rigid_motions(model, middle_of(model.moved_mesh()));
    std::set<size_t> released;
    for (int pass = 0; pass < kPasses; ++pass)
    {
        const Resistance resistance(stiffness, rigid);
        const std::vector<size_t> resisting = resistance.rows(model.matrices->rows);
        released.insert(resisting.begin(), resisting.end());
        for (size_t row : released)
        {
            const auto motion = rigid.row(Index(row));
            if (motion.squaredNorm() > 0.0)
                stiffness.coeffRef(Index(row), Index(row)) -=
                    resistance.force.row(Index(row)).dot(motion) / motion.squaredNorm();
        }
        if (resisting.empty())
            break;
    }
    return {released.begin(), released.end()};
}

static Matrix6 mass_of(const Model& model, const MatrixXd& rigid)
{
    return rigid.transpose() * times(model.matrices->mass, rigid);
}

// About the point of the rigid motions, and moved to the origin.
static MassMoments moments_from(const Matrix6& m, const Vector3d& center)
{
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

// The mass of a body is the same in all directions. Rows that are mixed up, or a matrix of another model, show here.
static void check_mass(const Matrix6& m, const Vector3d& center)
{
    if (!(m.topLeftCorner<3, 3>().trace() > 0.0))
        throw std::runtime_error("the mass matrix has no mass");
    const Matrix6 expected = moments_from(m, center).rigid_mass(center);
    const Eigen::Matrix<double, 6, 1> size = expected.diagonal().cwiseMax(0.0).cwiseSqrt();
    const double length = size.tail<3>().maxCoeff() / size[0];
    Eigen::Matrix<double, 6, 1> scale;
    scale << size.head<3>(), Vector3d::Constant(size[0] * length);
    if (!((m - expected).array().abs() <= kRigidMassTolerance * (scale * scale.transpose()).array()).all())
        throw std::runtime_error("the mass matrix is not that of a body, whose mass is the same along x, y and z: the "
                                 "matrices must belong to this mesh");
}

void check_equations(const Model& model)
{
    const Vector3d center = middle_of(model.moved_mesh());
    const MatrixXd rigid = rigid_motions(model, center);
    check_rows(model);
    check_dependents(model, rigid, center);
    check_stiffness(model, rigid);
    check_mass(mass_of(model, rigid), center);
}

MassMoments matrix_moments(const Model& model)
{
    const Vector3d center = middle_of(model.moved_mesh());
    return moments_from(mass_of(model, rigid_motions(model, center)), center);
}

MeshMass matrix_mass(const Model& model)
{
    const auto& [rows, stiffness, mass] = *model.matrices;
    const size_t nodes = model.mesh.nodes.size();
    MeshMass result;
    result.moments = matrix_moments(model);
    for (auto* masses : {&result.scaled, &result.row_sum, &result.point})
        masses->assign(nodes, 0.0);
    result.across.assign(nodes, Eigen::Matrix3d::Zero());
    const MatrixXd inertia = times(mass, rigid_motions(model, Vector3d::Zero()).leftCols<3>());
    for (size_t i = 0; i < rows.size(); ++i)
        if (const auto [node, component] = rows[i]; node >= 0 && component < 3)
        {
            result.scaled[size_t(node)] += mass.coeff(Index(i), Index(i)) / 3;
            result.row_sum[size_t(node)] += inertia(Index(i), component) / 3;
        }
    const double sum = std::accumulate(result.scaled.begin(), result.scaled.end(), 0.0);
    for (double& share : result.scaled)
        share *= result.moments.mass / sum;
    return result;
}

} // namespace zel_fem
