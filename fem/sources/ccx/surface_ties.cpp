// A tied node moves as the point of the face that it lies on. The solver moves nodes onto faces, or ties them from afar, within a
// tolerance; here they lie on them, and a node that does not has no equation.
#include "fem/sources/ccx/surface_ties.h"

#include <algorithm>
#include <optional>

#include "dense/dense.h"
#include "fem/sources/ccx/deck.h"

namespace zel_fem::ccx
{

using Eigen::Index;
using Eigen::Matrix3Xd;
using Eigen::MatrixXd;
using Eigen::Vector3d;
using Eigen::VectorXd;

constexpr double kOnFace = 1e-6; // distance from a face, relative to its size
constexpr double kInside = 1e-5; // how far beyond the edge, in local coordinates
constexpr int kMostSteps = 30;

static Shape shape_of(const Face& face)
{
    return face.size() == 3   ? Shape::tri3
           : face.size() == 4 ? Shape::quad4
           : face.size() == 6 ? Shape::tri6
                              : Shape::quad8;
}

// Corners first, then the nodes between them, as the shape has them.
static Face in_order_of_shape(const Face& around)
{
    if (around.size() < 6)
        return around;
    Face face;
    for (const size_t first : {size_t(0), size_t(1)})
        for (size_t i = first; i < around.size(); i += 2)
            face.push_back(around[i]);
    return face;
}

static bool is_inside(Shape shape, const Vector3d& local)
{
    if (shape == Shape::tri3 || shape == Shape::tri6)
        return local[0] > -kInside && local[1] > -kInside && local[0] + local[1] < 1.0 + kInside;
    return std::abs(local[0]) < 1.0 + kInside && std::abs(local[1]) < 1.0 + kInside;
}

// Shape functions of the face at the point, if it lies there: the local point is found by Newton's method on the distance.
static std::optional<VectorXd> weights_at(const Matrix3Xd& corners, Shape shape, const Vector3d& point, double size)
{
    Vector3d local = node_positions(shape).rowwise().mean();
    VectorXd value;
    MatrixXd gradient;
    for (int step = 0; step < kMostSteps; ++step)
    {
        shape_functions(shape, local, value, gradient);
        const Vector3d rest = point - corners * value;
        const Eigen::Matrix<double, 3, 2> tangents = corners * gradient.leftCols<2>();
        const Eigen::Vector2d move =
            zel_dense::solve_symmetric(tangents.transpose() * tangents, tangents.transpose() * rest);
        if (!move.allFinite() || move.norm() > 1e3)
            return std::nullopt;
        local.head<2>() += move;
        if (move.norm() < 1e-13)
            break;
    }
    shape_functions(shape, local, value, gradient);
    if (!is_inside(shape, local) || !((point - corners * value).norm() <= kOnFace * size))
        return std::nullopt;
    return value;
}

std::vector<Equation> equations_of(const Deck& deck, const SurfaceTie& tie)
{
    const Mesh& mesh = deck.mesh;
    const auto slave = deck.surface_nodes.find(tie.slave);
    const auto master = deck.surfaces.find(tie.master);
    if (slave == deck.surface_nodes.end() || master == deck.surfaces.end())
        throw InputError(tie.place, "there is no surface " +
                                        (slave == deck.surface_nodes.end() ? tie.slave : "of faces " + tie.master));
    std::vector<std::pair<double, int>> by_x; // slaves and their ids
    for (int id : slave->second)
        by_x.emplace_back(mesh.nodes[size_t(deck.find_node(id))].at[0], id);
    std::sort(by_x.begin(), by_x.end());
    std::map<int, Equation> found; // one node's, by its id; components are those along x
    for (const ElementFace& where : master->second)
    {
        const Face face = in_order_of_shape(element_face(mesh.elements[size_t(where.element)], where.number));
        Matrix3Xd at(3, Index(face.size()));
        for (size_t i = 0; i < face.size(); ++i)
            at.col(Index(i)) = mesh.nodes[size_t(face[i])].at;
        const Vector3d low = at.rowwise().minCoeff(), high = at.rowwise().maxCoeff();
        const double size = (high - low).norm();
        auto next = std::lower_bound(by_x.begin(), by_x.end(), std::pair(low[0] - size, 0));
        for (; next != by_x.end() && next->first <= high[0] + size; ++next)
        {
            const Vector3d& point = mesh.nodes[size_t(deck.find_node(next->second))].at;
            if (found.count(next->second) || ((point - low).array() < -size).any() ||
                ((point - high).array() > size).any())
                continue;
            const auto weights = weights_at(at, shape_of(face), point, size);
            if (!weights)
                continue;
            Equation equation{tie.place, {{next->second, 0, 1.0}}};
            for (size_t i = 0; i < face.size(); ++i)
                equation.terms.push_back({mesh.nodes[size_t(face[i])].id, 0, -(*weights)[Index(i)]});
            found.emplace(next->second, std::move(equation));
        }
    }
    std::vector<Equation> equations;
    for (const auto& [id, equation] : found)
        for (int c = 0; c < 3; ++c)
        {
            equations.push_back(equation);
            for (Equation::Term& term : equations.back().terms)
                term.component = c;
        }
    return equations;
}

} // namespace zel_fem::ccx
