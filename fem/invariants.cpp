// With the matrix M = m E, m a number for each pair of nodes, the sums over nodes of the nine definitions become products with m:
// all follow from A_ab = Phi_a^T m Phi_b and B_ab = Phi_a^T m s_b, where Phi_a has component a of the modes and s_b coordinate b of
// the nodes. Invariants 3 and 4 are R^T M Phi, R the rigid motions, also where M has rows for rotations.
//
// A program that loses some of the inertia has another mass T for the rigid motions than the body, whose generalized mass was given
// theirs. Each mode is R g and a rest that is M-orthogonal to R: what T has beyond M is added to the products of the first parts
// alone, as it was to the generalized mass. So the laws hold that tie the invariants to each other and to the generalized mass, and
// flexible modes keep no momentum.
#include "fem/invariants.h"

#include <algorithm>
#include <map>
#include <optional>

#include "dense/dense.h"
#include "fem/nodal_mass.h"
#include "fem/sparse_modes.h"

namespace zel_fem
{

using Eigen::Index;
using Eigen::Matrix3Xd;
using Eigen::Matrix4d;
using Eigen::MatrixXd;
using Eigen::Vector3d;

constexpr double kScalar = 1e-6; // of the diagonal: matrices are stored with eight digits at least
constexpr Index kSliceBytes = Index(4) << 20;

namespace
{
using Triple = std::array<Index, 3>; // rows that move x, y and z of one point

// A mass matrix that does not know directions.
struct ScalarMass
{
    std::vector<Triple> points;
    Matrix3Xd at;      // zero for freedoms inside elements, which rigid motions leave at rest
    SparseMatrix mass; // whole
};

// Products of the modes. Of A the six with a <= b, the others are their transposes; of B all, a row for each mode.
struct Products
{
    MatrixXd a[3][3];
    MatrixXd b[3]; // one column a coordinate
    MatrixXd of(int row, int column) const
    {
        return row <= column ? a[row][column] : MatrixXd(a[column][row].transpose());
    }
};
} // namespace

// ---- The matrix ------------------------------------------------------------------------------------------------------------

// Three rows a point. Freedoms inside elements have no names: the n-th along x belongs to the n-th along y. Nothing where a point
// lacks one of the three, or rows rotate.
static std::optional<std::vector<Triple>> points_of(const std::vector<Row>& rows)
{
    std::map<std::pair<bool, Index>, Triple> points;
    Index inside[3] = {};
    for (size_t i = 0; i < rows.size(); ++i)
    {
        const auto [node, component] = rows[i];
        if (component > 2)
            return std::nullopt;
        const std::pair<bool, Index> name(node < 0, node < 0 ? inside[component]++ : Index(node));
        points.try_emplace(name, Triple{-1, -1, -1}).first->second[size_t(component)] = Index(i);
    }
    std::vector<Triple> triples;
    for (const auto& [name, triple] : points)
        if (*std::min_element(triple.begin(), triple.end()) < 0)
            return std::nullopt;
        else
            triples.push_back(triple);
    return triples;
}

// The part of a matrix that couples components alike, whole, a matrix a component. Nothing where others are coupled.
static std::optional<std::array<SparseMatrix, 3>>
components_of(const SparseMatrix& upper, const std::vector<Triple>& points, const std::vector<Row>& rows)
{
    std::vector<Index> point(rows.size());
    for (size_t i = 0; i < points.size(); ++i)
        for (const Index row : points[i])
            point[size_t(row)] = Index(i);
    const Eigen::VectorXd size = upper.diagonal().cwiseAbs().cwiseSqrt();
    std::array<std::vector<Eigen::Triplet<double>>, 3> entries;
    for (Index column = 0; column < upper.cols(); ++column)
        for (SparseMatrix::InnerIterator entry(upper, column); entry; ++entry)
        {
            const size_t row = size_t(entry.row());
            const int component = rows[row].component;
            if (component != rows[size_t(column)].component)
            {
                if (std::abs(entry.value()) > kScalar * size[entry.row()] * size[column])
                    return std::nullopt;
                continue;
            }
            entries[size_t(component)].emplace_back(point[row], point[size_t(column)], entry.value());
            if (entry.row() != column)
                entries[size_t(component)].emplace_back(point[size_t(column)], point[row], entry.value());
        }
    std::array<SparseMatrix, 3> parts;
    for (size_t c = 0; c < 3; ++c)
    {
        parts[c].resize(Index(points.size()), Index(points.size()));
        parts[c].setFromTriplets(entries[c].begin(), entries[c].end());
        entries[c] = {};
    }
    return parts;
}

static bool differ(const SparseMatrix& a, const SparseMatrix& b, const Eigen::VectorXd& size)
{
    const SparseMatrix difference = a - b;
    for (Index column = 0; column < difference.cols(); ++column)
        for (SparseMatrix::InnerIterator entry(difference, column); entry; ++entry)
            if (std::abs(entry.value()) > kScalar * size[entry.row()] * size[column])
                return true;
    return false;
}

static std::optional<ScalarMass> scalar_mass(const Model& model)
{
    const std::vector<Row>& rows = model.matrices->rows;
    auto points = points_of(rows);
    if (!points)
        return std::nullopt;
    auto parts = components_of(model.matrices->mass, *points, rows);
    if (!parts)
        return std::nullopt;
    auto& [x, y, z] = *parts;
    const Eigen::VectorXd size = x.diagonal().cwiseAbs().cwiseSqrt();
    if (differ(x, y, size) || differ(x, z, size))
        return std::nullopt;
    ScalarMass scalar{std::move(*points), {}, std::move(x)};
    scalar.at = Matrix3Xd::Zero(3, Index(scalar.points.size()));
    for (size_t i = 0; i < scalar.points.size(); ++i)
        if (const int node = rows[size_t(scalar.points[i][0])].node; node >= 0)
            scalar.at.col(Index(i)) = model.moved_mesh().nodes[size_t(node)].at;
    return scalar;
}

// Masses at the nodes of the body's mesh, as a matrix for its three rows a node.
static ScalarMass nodal_mass_of(const Body& body)
{
    const Index nodes = Index(body.mesh.nodes.size());
    ScalarMass scalar{{}, Matrix3Xd(3, nodes), SparseMatrix(nodes, nodes)};
    for (Index i = 0; i < nodes; ++i)
    {
        scalar.points.push_back({3 * i, 3 * i + 1, 3 * i + 2});
        scalar.at.col(i) = body.mesh.nodes[size_t(i)].at;
        scalar.mass.insert(i, i) = body.nodes.masses[size_t(i)];
    }
    return scalar;
}

// ---- Products of the modes -------------------------------------------------------------------------------------------------

// Component c of the modes at some points, and of m times the modes.
static void gather(const ScalarMass& scalar, const MatrixXd& rows, Index first, int c, MatrixXd& shape,
                   MatrixXd& weighed)
{
    for (Index mode = 0; mode < rows.cols(); ++mode)
        for (Index i = 0; i < shape.rows(); ++i)
        {
            double sum = 0.0;
            for (SparseMatrix::InnerIterator entry(scalar.mass, first + i); entry; ++entry)
                sum += entry.value() * rows(scalar.points[size_t(entry.row())][size_t(c)], mode);
            weighed(i, mode) = sum;
            shape(i, mode) = rows(scalar.points[size_t(first + i)][size_t(c)], mode);
        }
}

static Products no_products(Index modes)
{
    Products products;
    for (int a = 0; a < 3; ++a)
    {
        products.b[a] = MatrixXd::Zero(modes, 3);
        for (int b = a; b < 3; ++b)
            products.a[a][b] = MatrixXd::Zero(modes, modes);
    }
    return products;
}

// By blocks of points, so that beside the modes only a few megabytes are needed.
static Products products_of(const ScalarMass& scalar, const MatrixXd& rows)
{
    const Index modes = rows.cols(), points = Index(scalar.points.size());
    const Index block = std::clamp<Index>(kSliceBytes / (6 * 8 * std::max<Index>(modes, 1)), 16, 4096);
    Products products = no_products(modes);
    for (Index first = 0; first < points; first += block)
    {
        const Index count = std::min(block, points - first);
        MatrixXd shape[3], weighed[3];
        for (int c = 0; c < 3; ++c)
        {
            shape[c].resize(count, modes);
            weighed[c].resize(count, modes);
            gather(scalar, rows, first, c, shape[c], weighed[c]);
            products.b[c].noalias() += weighed[c].transpose() * scalar.at.middleCols(first, count).transpose();
        }
        for (int a = 0; a < 3; ++a)
            for (int b = a; b < 3; ++b)
                products.a[a][b].noalias() += shape[a].transpose() * weighed[b];
    }
    return products;
}

namespace
{
// Nodes of some elements one upon the other, so that products with the masses of each become those of large matrices.
class Stack
{
public:
    static constexpr size_t kElements = 64;
    explicit Stack(Index modes) : at_(kRows, 3)
    {
        for (int c = 0; c < 3; ++c)
            shape_[c] = weighed_[c] = MatrixXd(kRows, modes);
    }
    void push(const Mesh& mesh, const Element& element, const MatrixXd& motion);
    // Adds to the products, and to the momenta along the axes, what there is on the stack, and empties it.
    void take(Products& products, MatrixXd& linear);

private:
    static constexpr Index kRows = Index(kElements) * kMostNodes;
    MatrixXd shape_[3], weighed_[3], at_;
    Index count_ = 0;
};
} // namespace

void Stack::push(const Mesh& mesh, const Element& element, const MatrixXd& motion)
{
    const MatrixXd own = element_mass(mesh, element, Rule::solver).consistent;
    for (Index i = 0; i < own.rows(); ++i)
    {
        const size_t node = size_t(element.nodes[size_t(i)]);
        at_.row(count_ + i) = mesh.nodes[node].at;
        for (int c = 0; c < 3; ++c)
            shape_[c].row(count_ + i) = motion.row(3 * Index(node) + c);
    }
    for (int c = 0; c < 3; ++c)
        weighed_[c].middleRows(count_, own.rows()) = own * shape_[c].middleRows(count_, own.rows());
    count_ += own.rows();
}

void Stack::take(Products& products, MatrixXd& linear)
{
    for (int a = 0; a < 3; ++a)
    {
        const auto weighed = weighed_[a].topRows(count_);
        linear.row(a) += weighed.colwise().sum();
        products.b[a].noalias() += weighed.transpose() * at_.topRows(count_);
        for (int b = 0; b <= a; ++b)
            products.a[b][a].noalias() += shape_[b].topRows(count_).transpose() * weighed;
    }
    count_ = 0;
}

// Second moments, the first ones and the mass of a body about a point, as the products of 1, x, y and z.
static Matrix4d affine_moments(const MassMoments& moments, const Vector3d& center)
{
    const Vector3d first = moments.first - moments.mass * center;
    Matrix4d m;
    m << moments.mass, first.transpose(), first,
        moments.second - moments.first * center.transpose() - center * moments.first.transpose() +
            moments.mass * center * center.transpose();
    return m;
}

// `rigid`: six rows, the rigid motions about `center` in the modes. `lacking`: what the affine moments lack.
static void add_rigid(const MatrixXd& rigid, const Vector3d& center, const Matrix4d& lacking, Products& products)
{
    MatrixXd affine[3]; // coefficients of 1, x, y and z in component a: u = t + w x s
    for (int a = 0; a < 3; ++a)
    {
        const int next = (a + 1) % 3, last = (a + 2) % 3;
        affine[a] = MatrixXd::Zero(4, rigid.cols());
        affine[a].row(0) = rigid.row(a);
        affine[a].row(1 + last) = rigid.row(3 + next);
        affine[a].row(1 + next) = -rigid.row(3 + last);
    }
    Eigen::Matrix<double, 4, 3> coordinates;
    coordinates << center.transpose(), Eigen::Matrix3d::Identity();
    for (int a = 0; a < 3; ++a)
    {
        products.b[a] += affine[a].transpose() * lacking * coordinates;
        for (int b = a; b < 3; ++b)
            products.a[a][b] += affine[a].transpose() * lacking * affine[b];
    }
}

// ---- The nine ----------------------------------------------------------------------------------------------------------------

// R^T M Phi with R about `center`, and the rigid motions that are in the modes: R^T M R g = R^T M Phi.
struct Momenta
{
    MatrixXd momenta, rigid; // six rows
};
// Of the consistent mass of the elements, as their program integrates it. Angular momentum is in the antisymmetric part of the products
// with the coordinates.
static std::pair<Momenta, Products> by_elements(const Mesh& mesh, const MatrixXd& motion, const MassMoments& own,
                                                const Vector3d& center)
{
    Products products = no_products(motion.cols());
    Momenta found{MatrixXd::Zero(6, motion.cols()), {}};
    MatrixXd linear = MatrixXd::Zero(3, motion.cols());
    Stack stack(motion.cols());
    for (size_t e = 0; e < mesh.elements.size(); ++e)
    {
        stack.push(mesh, mesh.elements[e], motion);
        if ((e + 1) % Stack::kElements == 0 || e + 1 == mesh.elements.size())
            stack.take(products, linear);
    }
    found.momenta.topRows<3>() = linear;
    for (int c = 0; c < 3; ++c)
    {
        const int next = (c + 1) % 3, last = (c + 2) % 3;
        found.momenta.row(3 + c) = (products.b[last].col(next) - products.b[next].col(last)).transpose() -
                                   center[next] * linear.row(last) + center[last] * linear.row(next);
    }
    found.rigid = zel_dense::solve_symmetric(own.rigid_mass(center), found.momenta);
    return {std::move(found), std::move(products)};
}

static Momenta momenta_of(const Model& model, const MatrixXd& rows, const Vector3d& center)
{
    const MatrixXd rigid = rigid_motions(model, center), inertia = times(model.matrices->mass, rigid);
    Momenta found{inertia.transpose() * rows, {}};
    found.rigid = zel_dense::solve_symmetric(rigid.transpose() * inertia, found.momenta);
    return found;
}

static std::vector<double> values_of(const MatrixXd& m)
{
    const Eigen::Matrix<double, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor> by_rows = m;
    return {by_rows.data(), by_rows.data() + by_rows.size()};
}

// 1, 2, 3, 4 and 7. The momenta are about `center`.
static void set_momenta(const MassMoments& mass, const MatrixXd& momenta, const Vector3d& center,
                        InertiaInvariants& invariants)
{
    MatrixXd angular = momenta.bottomRows<3>();
    for (Index k = 0; k < angular.cols(); ++k)
        angular.col(k) += center.cross(Vector3d(momenta.col(k).head<3>()));
    invariants[0] = {mass.mass};
    invariants[1] = values_of(mass.first);
    invariants[2] = values_of(momenta.topRows<3>());
    invariants[3] = values_of(angular);
    invariants[6] = values_of(mass.inertia(Vector3d::Zero()));
}

// 5, 8 and 9. Of modes i and j, sum of m phi_i,a phi_j,b is A_ab(i, j).
static void set_products(const Products& products, InertiaInvariants& invariants)
{
    const Index modes = products.b[0].rows();
    MatrixXd a[3][3];
    for (int row = 0; row < 3; ++row)
        for (int column = 0; column < 3; ++column)
            a[row][column] = products.of(row, column);
    for (int row = 0; row < 3; ++row) // rounding apart it is symmetric
        a[row][row] = 0.5 * (a[row][row] + a[row][row].transpose()).eval();
    auto &fifth = invariants[4], &eighth = invariants[7], &ninth = invariants[8];
    fifth.clear(), eighth.clear(), ninth.clear();
    for (Index i = 0; i < modes; ++i)
        for (int c = 0; c < 3; ++c)
            for (Index j = 0; j < modes; ++j)
                fifth.push_back(a[(c + 1) % 3][(c + 2) % 3](i, j) - a[(c + 2) % 3][(c + 1) % 3](i, j));
    for (Index k = 0; k < modes; ++k)
    {
        const double trace = products.b[0](k, 0) + products.b[1](k, 1) + products.b[2](k, 2);
        for (int row = 0; row < 3; ++row)
            for (int column = 0; column < 3; ++column)
                eighth.push_back(products.b[row](k, column) - (row == column ? trace : 0.0));
    }
    for (Index i = 0; i < modes; ++i)
        for (Index j = 0; j < modes; ++j)
        {
            const double trace = a[0][0](i, j) + a[1][1](i, j) + a[2][2](i, j);
            for (int row = 0; row < 3; ++row)
                for (int column = 0; column < 3; ++column)
                    ninth.push_back(a[row][column](j, i) - (row == column ? trace : 0.0));
        }
}

// What the rigid motions have beyond the mass that they were found with.
static void add_lacking(const MassMoments& own, const MassMoments& target, const Vector3d& center, Momenta& momenta)
{
    momenta.momenta += (target.rigid_mass(center) - own.rigid_mass(center)) * momenta.rigid;
}

void take_invariants_of_elements(const Mesh& mesh, const MatrixXd& motion, const MassMoments& target, Body& body)
{
    const MassMoments own = solver_moments(mesh);
    const Vector3d center = target.center();
    auto [momenta, products] = by_elements(mesh, motion, own, center);
    add_lacking(own, target, center, momenta);
    set_momenta(target, momenta.momenta, center, body.invariants);
    add_rigid(momenta.rigid, center, affine_moments(target, center) - affine_moments(own, center), products);
    set_products(products, body.invariants);
}

InvariantMass take_invariants(const Model& model, const MatrixXd& rows, const MassMoments& target, Body& body)
{
    const std::vector<Row>& of_rows = model.matrices->rows;
    const bool turns = std::any_of(of_rows.begin(), of_rows.end(), [](const Row& row) { return row.component > 2; });
    const std::optional<ScalarMass> scalar = turns ? std::nullopt : scalar_mass(model);
    if (!scalar && !turns)
        return InvariantMass::nodes;
    const Vector3d center = middle_of(model.moved_mesh());
    const MassMoments own = matrix_moments(model);
    Momenta momenta = momenta_of(model, rows, center);
    add_lacking(own, target, center, momenta);
    set_momenta(target, momenta.momenta, center, body.invariants);
    Products products = scalar ? products_of(*scalar, rows) : products_of(nodal_mass_of(body), body.motion);
    if (scalar)
        add_rigid(momenta.rigid, center, affine_moments(target, center) - affine_moments(own, center), products);
    set_products(products, body.invariants);
    return scalar ? InvariantMass::matrix : InvariantMass::matrix_and_nodes;
}

double mass_error(const Body& body)
{
    const Index modes = body.mass.rows();
    double worst = 0.0;
    for (Index i = 0; i < modes; ++i)
        for (Index j = 0; j < modes; ++j)
        {
            const double* ninth = body.invariants[8].data() + 9 * (i * modes + j);
            const double mass = -0.5 * (ninth[0] + ninth[4] + ninth[8]);
            worst = std::max(worst, std::abs(mass - body.mass(i, j)) / std::sqrt(body.mass(i, i) * body.mass(j, j)));
        }
    return worst;
}

} // namespace zel_fem
