// Shape functions follow from two tables: where the nodes of a shape are (corners, and edges that carry a mid-side node)
// and which monomials span its functions; inverting the matrix of monomials at the nodes gives the coefficients. Faces
// come from the same corners and edges, so that no second list of node numbers can disagree with the first.
#include "fem/elements.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <mutex>
#include <tuple>
#include <utility>

#include "dense/dense.h"

namespace zel_fem
{

using Eigen::Index;
using Eigen::Matrix3d;
using Eigen::Matrix3Xd;
using Eigen::MatrixXd;
using Eigen::Vector3d;
using Eigen::VectorXd;

// What a family of elements is made of. Nodes are the corners and, in quadratic shapes, the middle of each edge in order.
struct Family
{
    int dimension;
    std::vector<Vector3d> corners;
    std::vector<std::array<int, 2>> edges;
    std::vector<std::vector<int>> faces; // corners, counter-clockwise from outside, in the order S1, S2, ...
    bool (*spans)(const std::array<int, 3>& power, int order);
};

static bool spans_simplex(const std::array<int, 3>& power, int order)
{
    return power[0] + power[1] + power[2] <= order;
}

static bool spans_wedge(const std::array<int, 3>& power, int order)
{
    const int in_plane = power[0] + power[1];
    return in_plane <= order && (power[2] <= 1 || (order == 2 && power[2] == 2 && in_plane <= 1));
}

// Serendipity: the powers above one must not add up to more than the order (Arnold and Awanou 2011).
static bool spans_block(const std::array<int, 3>& power, int order)
{
    int superlinear = 0;
    for (int p : power)
        superlinear += p > 1 ? p : 0;
    return superlinear <= (order == 2 ? 2 : 0);
}

static const Family kTet = {3,
                            {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}},
                            {{0, 1}, {1, 2}, {2, 0}, {0, 3}, {1, 3}, {2, 3}},
                            {{0, 2, 1}, {0, 1, 3}, {1, 2, 3}, {2, 0, 3}},
                            spans_simplex};
static const Family kWedge = {3,
                              {{0, 0, -1}, {1, 0, -1}, {0, 1, -1}, {0, 0, 1}, {1, 0, 1}, {0, 1, 1}},
                              {{0, 1}, {1, 2}, {2, 0}, {3, 4}, {4, 5}, {5, 3}, {0, 3}, {1, 4}, {2, 5}},
                              {{0, 2, 1}, {3, 4, 5}, {0, 1, 4, 3}, {1, 2, 5, 4}, {2, 0, 3, 5}},
                              spans_wedge};
static const Family kHex = {
    3,
    {{-1, -1, -1}, {1, -1, -1}, {1, 1, -1}, {-1, 1, -1}, {-1, -1, 1}, {1, -1, 1}, {1, 1, 1}, {-1, 1, 1}},
    {{0, 1}, {1, 2}, {2, 3}, {3, 0}, {4, 5}, {5, 6}, {6, 7}, {7, 4}, {0, 4}, {1, 5}, {2, 6}, {3, 7}},
    {{0, 3, 2, 1}, {4, 5, 6, 7}, {0, 1, 5, 4}, {1, 2, 6, 5}, {2, 3, 7, 6}, {3, 0, 4, 7}},
    spans_block};
static const Family kTri = {2, {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}, {{0, 1}, {1, 2}, {2, 0}}, {{0, 1, 2}}, spans_simplex};
static const Family kQuad = {
    2, {{-1, -1, 0}, {1, -1, 0}, {1, 1, 0}, {-1, 1, 0}}, {{0, 1}, {1, 2}, {2, 3}, {3, 0}}, {{0, 1, 2, 3}}, spans_block};
static const Family kLine = {1, {{-1, 0, 0}, {1, 0, 0}}, {{0, 1}}, {{0, 1}}, spans_simplex};
static const Family kPoint = {0, {{0, 0, 0}}, {}, {}, spans_simplex};

struct ShapeRow
{
    const Family* family;
    int order;
};
// In the order of Shape.
constexpr ShapeRow kShapes[] = {{&kTet, 1},  {&kTet, 2},  {&kWedge, 1}, {&kWedge, 2}, {&kHex, 1},
                                {&kHex, 2},  {&kTri, 1},  {&kTri, 2},   {&kQuad, 1},  {&kQuad, 2},
                                {&kLine, 1}, {&kLine, 2}, {&kPoint, 0}};
constexpr int kShapeCount = int(std::size(kShapes));
static_assert(kShapeCount == int(Shape::point) + 1);

static const ShapeRow& row_of(Shape shape)
{
    return kShapes[int(shape)];
}

int node_count(Shape shape)
{
    const ShapeRow& row = row_of(shape);
    return int(row.family->corners.size() + (row.order == 2 ? row.family->edges.size() : 0));
}

bool is_shell(Shape shape)
{
    return row_of(shape).family->dimension == 2;
}

// Positions, monomials and their coefficients of one shape, made on first use.
struct Functions
{
    Matrix3Xd positions;
    std::vector<std::array<int, 3>> powers;
    MatrixXd coefficients; // row: node, column: monomial
};

static double monomial(const std::array<int, 3>& power, const Vector3d& at)
{
    double value = 1.0;
    for (int axis = 0; axis < 3; ++axis)
        for (int k = 0; k < power[size_t(axis)]; ++k)
            value *= at[axis];
    return value;
}

static Functions make_functions(Shape shape)
{
    const auto& [family, order] = row_of(shape);
    const int count = node_count(shape);
    Functions f;
    f.positions.resize(3, count);
    for (size_t i = 0; i < family->corners.size(); ++i)
        f.positions.col(int(i)) = family->corners[i];
    for (int i = int(family->corners.size()); i < count; ++i)
    {
        const auto& edge = family->edges[size_t(i) - family->corners.size()];
        f.positions.col(i) = 0.5 * (family->corners[size_t(edge[0])] + family->corners[size_t(edge[1])]);
    }
    const int highest[3] = {family->dimension > 0 ? 2 : 0, family->dimension > 1 ? 2 : 0,
                            family->dimension > 2 ? 2 : 0};
    for (int a = 0; a <= highest[0]; ++a)
        for (int b = 0; b <= highest[1]; ++b)
            for (int c = 0; c <= highest[2]; ++c)
                if (family->spans({a, b, c}, order))
                    f.powers.push_back({a, b, c});
    MatrixXd at_nodes(int(f.powers.size()), count);
    for (int i = 0; i < count; ++i)
        for (size_t k = 0; k < f.powers.size(); ++k)
            at_nodes(int(k), i) = monomial(f.powers[k], f.positions.col(i));
    f.coefficients = zel_dense::inverse(at_nodes);
    return f;
}

static const Functions& functions_of(Shape shape)
{
    static const std::vector<Functions> all = [] {
        std::vector<Functions> made;
        for (int s = 0; s < kShapeCount; ++s)
            made.push_back(make_functions(Shape(s)));
        return made;
    }();
    return all[size_t(shape)];
}

const Matrix3Xd& node_positions(Shape shape)
{
    return functions_of(shape).positions;
}

void shape_functions(Shape shape, const Vector3d& local, VectorXd& value, MatrixXd& gradient)
{
    const Functions& f = functions_of(shape);
    const int dimension = row_of(shape).family->dimension, terms = int(f.powers.size());
    VectorXd monomials(terms);
    MatrixXd slopes(terms, dimension);
    for (int k = 0; k < terms; ++k)
    {
        const auto& power = f.powers[size_t(k)];
        monomials[k] = monomial(power, local);
        for (int axis = 0; axis < dimension; ++axis)
        {
            auto lower = power;
            const int p = lower[size_t(axis)]--;
            slopes(k, axis) = p > 0 ? p * monomial(lower, local) : 0.0;
        }
    }
    value.noalias() = f.coefficients * monomials;
    gradient.noalias() = f.coefficients * slopes;
}

static double square(double x)
{
    return x * x;
}

using Rule1D = std::vector<std::array<double, 2>>; // abscissae and weights on [-1, 1]

// Gauss-Legendre, exact to degree 2 n - 1.
static const Rule1D kGauss[5] = {{},
                                 {{0, 2}},
                                 {{-0.57735026918962576451, 1}, {0.57735026918962576451, 1}},
                                 {{-0.77459666924148337704, 5. / 9}, {0, 8. / 9}, {0.77459666924148337704, 5. / 9}},
                                 {{-0.86113631159405257522, 0.34785484513745385737},
                                  {-0.33998104358485626480, 0.65214515486254614263},
                                  {0.33998104358485626480, 0.65214515486254614263},
                                  {0.86113631159405257522, 0.34785484513745385737}}};
constexpr int kExactPoints = 4;

// Simplices are the block with its top edge or face collapsed (Stroud 1971); the collapse costs two degrees, which leaves
// degree 5 of the 7, enough for the product of two quadratic functions.
static QuadraturePoint quadrature_point(Shape shape, const Vector3d& unit, double weight)
{
    const Family* family = row_of(shape).family;
    Vector3d local = unit; // in [-1, 1]^3
    const Vector3d half = 0.5 * (unit + Vector3d::Ones());
    if (family == &kTet)
    {
        local = {half[0] * (1 - half[1]) * (1 - half[2]), half[1] * (1 - half[2]), half[2]};
        weight *= (1 - half[1]) * (1 - half[2]) * (1 - half[2]) / 8;
    }
    else if (family == &kWedge || family == &kTri)
    {
        local = {half[0] * (1 - half[1]), half[1], unit[2]};
        weight *= (1 - half[1]) / 4;
    }
    QuadraturePoint point{weight, local, {}, {}};
    shape_functions(shape, local, point.value, point.gradient);
    return point;
}

static std::vector<QuadraturePoint> product_rule(Shape shape, const Rule1D& gauss)
{
    std::vector<QuadraturePoint> points;
    const int dimension = row_of(shape).family->dimension;
    for (const auto& a : gauss)
        for (const auto& b : gauss)
            if (dimension == 2)
                points.push_back(quadrature_point(shape, {a[0], b[0], 0.0}, a[1] * b[1]));
            else
                for (const auto& c : gauss)
                    points.push_back(quadrature_point(shape, {a[0], b[0], c[0]}, a[1] * b[1] * c[1]));
    return points;
}

// Equal weights at the points of which one barycentric coordinate differs from the others, exact to degree 2 for three points
// of a triangle and four of a tetrahedron; the centre alone to degree 1 (Stroud 1971).
static std::vector<QuadraturePoint> simplex_rule(const ElementType& type)
{
    const bool solid = row_of(type.shape).family == &kTet, shell = is_shell(type.shape);
    const int corners = solid ? 4 : 3, count = type.simplex_points;
    const double low = count == 1 ? 1.0 / corners : solid ? (5 - std::sqrt(5.0)) / 20 : 1.0 / 6;
    const double high = 1 - (corners - 1) * low, size = (solid ? 1.0 / 6 : 0.5) / count;
    const Rule1D once = {{0, 1}};
    std::vector<QuadraturePoint> points;
    for (const auto& [across, weight] : solid || shell ? once : kGauss[type.gauss_points])
        for (int k = 0; k < count; ++k)
        {
            Vector3d local(low, low, solid ? low : across);
            if (k > 0)
                local[k - 1] = high;
            QuadraturePoint point{size * weight, local, {}, {}};
            shape_functions(type.shape, local, point.value, point.gradient);
            points.push_back(std::move(point));
        }
    return points;
}

// Rules are made on first use and stay, whatever thread asks for them.
const std::vector<QuadraturePoint>& quadrature(const ElementType& type, Rule rule)
{
    static std::mutex mutex;
    static std::map<std::tuple<Shape, int, int>, std::vector<QuadraturePoint>> rules;
    const int simplex = rule == Rule::exact ? 0 : type.simplex_points;
    const int gauss = rule == Rule::exact ? kExactPoints : type.gauss_points;
    const std::lock_guard lock(mutex);
    std::vector<QuadraturePoint>& points = rules[{type.shape, simplex, gauss}];
    if (points.empty())
        points = simplex > 0 ? simplex_rule(type) : product_rule(type.shape, kGauss[gauss]);
    return points;
}

int find_node(const Mesh& mesh, int id)
{
    const auto at = std::lower_bound(mesh.nodes.begin(), mesh.nodes.end(), id,
                                     [](const Node& node, int wanted) { return node.id < wanted; });
    return at != mesh.nodes.end() && at->id == id ? int(at - mesh.nodes.begin()) : -1;
}

void MassMoments::add(double m, const Vector3d& at)
{
    mass += m;
    first += m * at;
    second += m * at * at.transpose();
}

MassMoments& MassMoments::operator+=(const MassMoments& other)
{
    mass += other.mass;
    first += other.first;
    second += other.second;
    return *this;
}

Matrix3d MassMoments::inertia(const Vector3d& point) const
{
    const Matrix3d about =
        second - first * point.transpose() - point * first.transpose() + mass * point * point.transpose();
    return about.trace() * Matrix3d::Identity() - about;
}

Eigen::Matrix<double, 6, 6> MassMoments::rigid_mass(const Vector3d& center) const
{
    const Vector3d about = first - mass * center;
    Matrix3d cross; // cross * v = about x v
    cross << 0, -about[2], about[1], about[2], 0, -about[0], -about[1], about[0], 0;
    Eigen::Matrix<double, 6, 6> m;
    m << mass * Matrix3d::Identity(), -cross, cross, inertia(center);
    return m;
}

// Volume, or area, that a unit of local volume stands for; not positive when the element is turned inside out.
static double jacobian(const Matrix3Xd& at, const QuadraturePoint& point)
{
    const MatrixXd tangents = at * point.gradient;
    if (tangents.cols() == 3)
        return Matrix3d(tangents).determinant();
    return Vector3d(tangents.col(0)).cross(Vector3d(tangents.col(1))).norm();
}

// A tetrahedron whose last two mid-side nodes lie in the middle of each other's edge.
static bool has_exchanged_nodes(Shape shape, const Matrix3Xd& at)
{
    if (shape != Shape::tet10)
        return false;
    const Vector3d middle_8 = 0.5 * (at.col(1) + at.col(3)), middle_9 = 0.5 * (at.col(2) + at.col(3));
    return (at.col(9) - middle_8).norm() < (at.col(8) - middle_8).norm() &&
           (at.col(8) - middle_9).norm() < (at.col(9) - middle_9).norm();
}

// Adds what a piece of a shell has across its thickness, and shares it among the nodes by the squares of their functions.
static void add_thickness(const QuadraturePoint& point, const Matrix3Xd& at, double second, ElementMass& result)
{
    const MatrixXd tangents = at * point.gradient;
    const Vector3d normal = Vector3d(tangents.col(0)).cross(Vector3d(tangents.col(1))).normalized();
    const Matrix3d across = second * normal * normal.transpose();
    result.moments.second += across;
    result.across.resize(size_t(at.cols()), Matrix3d::Zero());
    for (Index i = 0; i < at.cols(); ++i)
        result.across[size_t(i)] += square(point.value[i]) / point.value.squaredNorm() * across;
}

// Lines of a rectangular section, by Gauss points. That of a program's truss, a square, does not turn about it, and has the inertia
// of as much mass spread along it.
static void add_line(const Element& element, const Matrix3Xd& at, Rule rule, ElementMass& result)
{
    VectorXd value;
    MatrixXd gradient;
    result.across.assign(size_t(at.cols()), Matrix3d::Zero());
    for (const auto& [place, weight] : kGauss[kExactPoints])
    {
        shape_functions(element.type->shape, {place, 0.0, 0.0}, value, gradient);
        const Vector3d tangent = at * gradient.col(0), along = tangent.normalized();
        const Vector3d first = (element.axis - along * along.dot(element.axis)).normalized(),
                       second = along.cross(first);
        const double volume = weight * tangent.norm() * element.thickness * element.width,
                     mass = element.density * volume;
        Matrix3d across = mass / 12 *
                          (square(element.thickness) * first * first.transpose() +
                           square(element.width) * second * second.transpose());
        if (rule == Rule::solver)
            across = mass / 12 * square(element.thickness) * along * along.transpose();
        result.volume += volume;
        result.moments.add(mass, at * value);
        result.moments.second += across;
        result.consistent.noalias() += mass * value * value.transpose();
        for (Index i = 0; i < at.cols(); ++i)
            result.across[size_t(i)] += square(value[i]) / value.squaredNorm() * across;
    }
}

ElementMass element_mass(const Mesh& mesh, const Element& element, Rule rule)
{
    const Shape shape = element.type->shape;
    const int count = node_count(shape);
    ElementMass result;
    result.consistent = MatrixXd::Zero(count, count);
    if (shape == Shape::point)
    {
        result.consistent(0, 0) = element.point_mass;
        result.moments.add(element.point_mass, mesh.nodes[size_t(element.nodes[0])].at);
        return result;
    }
    Matrix3Xd at(3, count);
    for (int i = 0; i < count; ++i)
        at.col(i) = mesh.nodes[size_t(element.nodes[size_t(i)])].at;
    if (row_of(shape).family->dimension == 1)
    {
        if (element.width > 0.0)
            add_line(element, at, rule, result);
        return result;
    }
    if (has_exchanged_nodes(shape, at))
        throw InputError(mesh.place(element), "element " + std::to_string(element.id) +
                                                  ": its last two mid-side nodes are exchanged (the order of gmsh)");
    const double depth = is_shell(shape) ? element.thickness : 1.0;
    const bool thick = is_shell(shape) && (rule == Rule::exact || element.type->gauss_points > 1);
    for (const QuadraturePoint& point : quadrature(*element.type, rule))
    {
        const double local = jacobian(at, point);
        if (!(local > 0.0))
            throw InputError(mesh.place(element), "element " + std::to_string(element.id) + " (" +
                                                      std::string(element.type->name) +
                                                      ") has a Jacobian that is not positive");
        const double volume = point.weight * local * depth;
        result.volume += volume;
        result.moments.add(element.density * volume, at * point.value);
        result.consistent.noalias() += element.density * volume * point.value * point.value.transpose();
        if (thick)
            add_thickness(point, at, element.density * volume * square(depth) / 12, result);
    }
    return result;
}

static int edge_between(const Family& family, int a, int b)
{
    for (size_t e = 0; e < family.edges.size(); ++e)
        if (std::minmax(family.edges[e][0], family.edges[e][1]) == std::minmax(a, b))
            return int(e);
    return -1;
}

Face element_face(const Element& element, int number)
{
    const auto& [family, order] = row_of(element.type->shape);
    if (family->dimension < 3)
        number = 1;
    Face face;
    if (number < 1 || size_t(number) > family->faces.size())
        return face;
    const std::vector<int>& corners = family->faces[size_t(number) - 1];
    for (size_t i = 0; i < corners.size(); ++i)
    {
        face.push_back(element.nodes[size_t(corners[i])]);
        if (order == 2 && family->dimension > 1)
        {
            const int edge = edge_between(*family, corners[i], corners[(i + 1) % corners.size()]);
            face.push_back(element.nodes[family->corners.size() + size_t(edge)]);
        }
    }
    return face;
}

std::vector<ElementFace> skin_faces(const Mesh& mesh)
{
    std::vector<ElementFace> faces;
    std::vector<Face> sorted;
    std::map<Face, int> owners; // sorted nodes of a face: how many elements have it
    for (size_t i = 0; i < mesh.elements.size(); ++i)
    {
        const Family& family = *row_of(mesh.elements[i].type->shape).family;
        for (int number = 1; number <= int(family.faces.size()); ++number)
        {
            faces.push_back({int(i), number});
            sorted.push_back(element_face(mesh.elements[i], number));
            std::sort(sorted.back().begin(), sorted.back().end());
            owners[sorted.back()] += family.dimension == 3 ? 1 : 0;
        }
    }
    size_t kept = 0;
    for (size_t i = 0; i < faces.size(); ++i)
        if (owners[sorted[i]] <= 1)
            faces[kept++] = faces[i];
    faces.resize(kept);
    return faces;
}

std::vector<Face> skin(const Mesh& mesh)
{
    std::vector<Face> faces;
    for (const auto& [index, number] : skin_faces(mesh))
    {
        const Element& element = mesh.elements[size_t(index)];
        Face face = element_face(element, number);
        if (element.type->shape == Shape::line3) // two lines: what no face has gets no motion in the body
        {
            faces.push_back({face[0], element.nodes[2]});
            face[0] = element.nodes[2];
        }
        faces.push_back(std::move(face));
    }
    return faces;
}

FaceIntegrals face_integrals(const Mesh& mesh, const Face& face)
{
    static const std::map<size_t, Shape> shapes = {
        {3, Shape::tri3}, {4, Shape::quad4}, {6, Shape::tri6}, {8, Shape::quad8}};
    const auto shape = shapes.find(face.size());
    const Index count = Index(face.size());
    FaceIntegrals integrals{Matrix3Xd::Zero(3, count), VectorXd::Zero(count)};
    if (shape == shapes.end())
        return {};
    const Index corners = count > 4 ? count / 2 : count;
    const auto place = [&](Index i) { return count == corners ? i : i < corners ? 2 * i : 2 * (i - corners) + 1; };
    Matrix3Xd at(3, count); // corners first
    for (Index i = 0; i < count; ++i)
        at.col(i) = mesh.nodes[size_t(face[size_t(place(i))])].at;
    const ElementType type{"", shape->second, 0, 0};
    for (const QuadraturePoint& point : quadrature(type, Rule::exact))
    {
        const MatrixXd tangents = at * point.gradient;
        const Vector3d normal = point.weight * Vector3d(tangents.col(0)).cross(Vector3d(tangents.col(1)));
        for (Index i = 0; i < count; ++i)
        {
            integrals.normal.col(place(i)) += point.value[i] * normal;
            integrals.area[place(i)] += point.value[i] * normal.norm();
        }
    }
    return integrals;
}

} // namespace zel_fem
