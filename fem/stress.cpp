// Strain is exact at the integration points of an element, where programs have it. From there it goes to the nodes by the polynomials
// that the points can tell, fitted in the sense of least squares (E. Hinton and J. S. Campbell, Int. J. Num. Meth. Eng. 8, 1974).
#include "fem/stress.h"

#include <map>
#include <mutex>
#include <optional>
#include <tuple>

#include "dense/dense.h"

namespace zel_fem
{

using Eigen::Index;
using Eigen::Matrix3d;
using Eigen::Matrix3Xd;
using Eigen::MatrixXd;
using Eigen::Vector3d;
using Eigen::VectorXd;
using Vector6d = Eigen::Matrix<double, 6, 1>;

// The shape whose functions are fitted: the richest of the family with no more functions than there are points.
static Shape carrier_of(Shape shape, size_t points)
{
    if (shape == Shape::tet10)
        return Shape::tet4;
    if (shape == Shape::wedge15)
        return Shape::wedge6;
    return shape == Shape::hex20 && points < size_t(node_count(Shape::hex20)) ? Shape::hex8 : shape;
}

// Values at the nodes from those at the points, one row a node.
static MatrixXd make_extrapolation(const ElementType& type)
{
    const Matrix3Xd& nodes = node_positions(type.shape);
    const std::vector<QuadraturePoint>& points = quadrature(type, Rule::solver);
    if (type.stress == StressRule::mean || points.size() == 1)
        return MatrixXd::Ones(nodes.cols(), 1);
    const Shape carrier = carrier_of(type.shape, points.size());
    const Index terms = node_count(carrier);
    MatrixXd at_points(Index(points.size()), terms), at_nodes(nodes.cols(), terms), gradient;
    VectorXd value;
    for (size_t p = 0; p < points.size(); ++p)
    {
        shape_functions(carrier, points[p].local, value, gradient);
        at_points.row(Index(p)) = value;
    }
    for (Index i = 0; i < nodes.cols(); ++i)
    {
        shape_functions(carrier, nodes.col(i), value, gradient);
        at_nodes.row(i) = value;
    }
    return at_nodes * zel_dense::pseudo_inverse(at_points);
}

static const MatrixXd& extrapolation(const ElementType& type)
{
    static std::mutex mutex;
    static std::map<std::tuple<Shape, int, int, StressRule>, MatrixXd> made;
    const std::lock_guard lock(mutex);
    MatrixXd& matrix = made[{type.shape, type.simplex_points, type.gauss_points, type.stress}];
    if (matrix.size() == 0)
        matrix = make_extrapolation(type);
    return matrix;
}

static std::string why_unknown(const Element& element, const std::vector<Elasticity>& elasticities)
{
    if (element.type->stress == StressRule::none)
        return "";
    if (element.type->stress == StressRule::unknown)
        return "the stress of elements of type " + std::string(element.type->name) + " is not computed";
    if (element.elasticity < 0)
        return "no material is told";
    const Elasticity& own = elasticities[size_t(element.elasticity)];
    return own.unknown.empty() ? "" : "material " + own.name + ": " + own.unknown;
}

NodalStress::NodalStress(const Mesh& mesh, const std::vector<Elasticity>& elasticities)
    : mesh_(mesh), elasticities_(elasticities), known_(mesh.nodes.size(), 1), elements_(mesh.nodes.size())
{
    for (const Element& element : mesh.elements)
    {
        unknown_.push_back(why_unknown(element, elasticities));
        for (int i = 0; i < node_count(element.type->shape); ++i)
        {
            const size_t node = size_t(element.nodes[size_t(i)]);
            if (!unknown_.back().empty())
                known_[node] = 0;
            else if (element.type->stress != StressRule::none)
                ++elements_[node];
        }
    }
    for (size_t node = 0; node < known_.size(); ++node)
        known_[node] = char(known_[node] && elements_[node] > 0);
}

std::vector<std::string> NodalStress::reasons() const
{
    std::map<std::string, int> counts;
    for (const std::string& why : unknown_)
        if (!why.empty())
            ++counts[why];
    std::vector<std::string> lines;
    for (const auto& [why, count] : counts)
        lines.push_back(std::to_string(count) +
                        (count == 1 ? " element has no modal stress, nor have its nodes: "
                                    : " elements have no modal stress, nor have their nodes: ") +
                        why);
    return lines;
}

// Engineering strains of all displacements from their gradients, three rows each.
static MatrixXd strains_of(const MatrixXd& gradients)
{
    MatrixXd strains(6, gradients.rows() / 3);
    for (Index k = 0; k < strains.cols(); ++k)
    {
        const Matrix3d h = gradients.middleRows<3>(3 * k);
        strains.col(k) << h(0, 0), h(1, 1), h(2, 2), h(0, 1) + h(1, 0), h(0, 2) + h(2, 0), h(1, 2) + h(2, 1);
    }
    return strains;
}

// Six rows a displacement, one column an integration point, or one alone for the mean. `moved`: three rows a displacement, one column
// a node.
static MatrixXd strains_at_points(const ElementType& type, const Matrix3Xd& at, const MatrixXd& moved)
{
    const bool mean = type.stress == StressRule::mean;
    const std::vector<QuadraturePoint>& points = quadrature(type, mean ? Rule::exact : Rule::solver);
    MatrixXd strains = MatrixXd::Zero(2 * moved.rows(), mean ? 1 : Index(points.size()));
    double volume = 0.0;
    for (size_t p = 0; p < points.size(); ++p)
    {
        const Matrix3d tangents = at * points[p].gradient;
        const MatrixXd own = strains_of(moved * points[p].gradient * tangents.inverse());
        const double share = points[p].weight * tangents.determinant();
        volume += share;
        if (mean)
            strains.col(0) += share * own.reshaped();
        else
            strains.col(Index(p)) = own.reshaped();
    }
    return mean ? MatrixXd(strains / volume) : strains;
}

static Matrix3Xd places_of(const Mesh& mesh, const Element& element)
{
    Matrix3Xd at(3, node_count(element.type->shape));
    for (Index i = 0; i < at.cols(); ++i)
        at.col(i) = mesh.nodes[size_t(element.nodes[size_t(i)])].at;
    return at;
}

StressField NodalStress::of(const Eigen::Ref<const MatrixXd>& displacement) const
{
    const Index count = displacement.cols(), rows = 6 * Index(mesh_.nodes.size());
    StressField field{MatrixXd::Zero(rows, count), MatrixXd::Zero(rows, count)};
    for (size_t e = 0; e < mesh_.elements.size(); ++e)
    {
        const Element& element = mesh_.elements[e];
        if (!unknown_[e].empty() || element.type->stress == StressRule::none)
            continue;
        const Matrix3Xd at = places_of(mesh_, element);
        MatrixXd moved(3 * count, at.cols());
        for (Index i = 0; i < at.cols(); ++i)
            moved.col(i) = displacement.middleRows<3>(3 * Index(element.nodes[size_t(i)])).reshaped();
        const MatrixXd at_nodes =
            strains_at_points(*element.type, at, moved) * extrapolation(*element.type).transpose();
        const Elasticity& elasticity = elasticities_[size_t(element.elasticity)];
        for (Index i = 0; i < at.cols(); ++i)
        {
            const size_t node = size_t(element.nodes[size_t(i)]);
            const MatrixXd strain = at_nodes.col(i).reshaped(6, count) / elements_[node];
            field.strain.middleRows<6>(6 * Index(node)) += strain;
            field.stress.middleRows<6>(6 * Index(node)) += elasticity.stiffness * strain;
        }
    }
    return field;
}

// ---- Of modes ----------------------------------------------------------------------------------------------------------

ModalStress::ModalStress(const Body& body)
    : body_(body), nodal_(body.recovery->layers ? body.recovery->layers->mesh : body.mesh, body.recovery->elasticities),
      known_(nodal_.known())
{
    if (!body.recovery->layers)
        return;
    for (const LayeredNode& n : body.recovery->layers->nodes)
        known_[size_t(n.node)] = // of two layers alone: that of beams and where shells meet at an angle is not proved
            char(n.outer.size() == 2 && nodal_.known()[size_t(n.outer[0])] && nodal_.known()[size_t(n.outer[1])]);
    known_.resize(body.mesh.nodes.size());
}

StressField ModalStress::of(Index first, Index count) const
{
    const std::optional<Layers>& layers = body_.recovery->layers;
    StressField field = nodal_.of((layers ? body_.recovery->layer_motion : body_.motion).middleCols(first, count));
    if (layers)
        field = {layers->mean(field.stress, 6), layers->mean(field.strain, 6)};
    for (Index k = 0; k < count; ++k)
        if (body_.stiffness.col(first + k).isZero(0.0))
        {
            field.stress.col(k).setZero();
            field.strain.col(k).setZero();
        }
    return field;
}

} // namespace zel_fem
