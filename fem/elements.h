// Finite elements as far as a flexible body needs them: shape functions, mass, and the faces that draw their surface.
#ifndef FEM_ELEMENTS_H
#define FEM_ELEMENTS_H

#include "dense/products.h"

#include <array>
#include <string_view>
#include <vector>

#include "fem/input_error.h"

namespace zel_fem
{

enum class Shape
{
    tet4,
    tet10,
    wedge6,
    wedge15,
    hex8,
    hex20,
    tri3,
    tri6,
    quad4,
    quad8,
    line2, // lines have mass where they have a width
    line3,
    point
};
constexpr int kMostNodes = 20; // of one element

// How a program has the stress of an element at its nodes.
enum class StressRule
{
    unknown, // or not proved
    none,    // it has no stress: masses
    points,  // that of its integration points, by the fit of its lower shape functions to them
    mean     // one for all of it, of the mean strain over its volume
};

// A type of a program: each source has its own table of them.
struct ElementType
{
    std::string_view name; // as the program calls it
    Shape shape;
    // Where the program integrates the mass: points of a triangle or tetrahedron, and Gauss points a direction otherwise.
    int simplex_points, gauss_points;
    StressRule stress = StressRule::unknown;
};

enum class Rule
{
    exact, // for straight edges
    solver // the program's, which loses inertia in elements of few points
};

int node_count(Shape shape);
bool is_shell(Shape shape);

struct Node
{
    int id;
    Eigen::Vector3d at;
};

struct Element
{
    int id = 0;
    const ElementType* type = nullptr;
    std::array<int, kMostNodes> nodes{}; // indexes into Mesh::nodes, in the order of the program
    double density = 0.0;
    double thickness = 0.0;                         // of a shell, and of a beam along its axis
    double width = 0.0;                             // of a beam, across its axis
    Eigen::Vector3d axis = Eigen::Vector3d::Zero(); // of a beam: about across it
    double point_mass = 0.0;
    int elasticity = -1; // index into Model::elasticities; -1: not told
    int file = 0;        // index into Mesh::files
    int line = 0;
};

struct Mesh
{
    std::vector<Node> nodes;
    std::vector<Element> elements;
    std::vector<std::string> files;

    Place place(const Element& element) const { return {files[size_t(element.file)], element.line}; }
};

// The index of a node by its number; -1 if the mesh does not have it.
int find_node(const Mesh& mesh, int id);

// Mass, first moment and second moments of a body about the origin: sums of m, m x and m x x^T.
struct MassMoments
{
    double mass = 0.0;
    Eigen::Vector3d first = Eigen::Vector3d::Zero();
    Eigen::Matrix3d second = Eigen::Matrix3d::Zero();

    void add(double m, const Eigen::Vector3d& at);
    MassMoments& operator+=(const MassMoments& other);
    Eigen::Vector3d center() const { return mass > 0.0 ? Eigen::Vector3d(first / mass) : Eigen::Vector3d::Zero(); }
    // Inertia tensor about `point`.
    Eigen::Matrix3d inertia(const Eigen::Vector3d& point) const;
    // Mass matrix of the six rigid motions about `center`: translations, then rotations.
    Eigen::Matrix<double, 6, 6> rigid_mass(const Eigen::Vector3d& center) const;
};

struct ElementMass
{
    Eigen::MatrixXd consistent; // node by node; the same in the three directions
    MassMoments moments;        // with those across the thickness of a shell
    double volume = 0.0;
    std::vector<Eigen::Matrix3d>
        across; // node by node: second moments across the thickness of a shell or the section of a beam; else empty
};

// Values of the shape functions at a point, and their derivatives, one column a direction.
struct QuadraturePoint
{
    double weight;
    Eigen::Vector3d local;
    Eigen::VectorXd value;
    Eigen::MatrixXd gradient;
};

// The points of a rule, in local coordinates of the type's shape. They stay.
const std::vector<QuadraturePoint>& quadrature(const ElementType& type, Rule rule);

// InputError for a Jacobian that is not positive.
ElementMass element_mass(const Mesh& mesh, const Element& element, Rule rule = Rule::exact);

// Local shape functions and their derivatives (one column a direction) at a local point.
void shape_functions(Shape shape, const Eigen::Vector3d& local, Eigen::VectorXd& value, Eigen::MatrixXd& gradient);

// Local coordinates of the nodes, one column a node.
const Eigen::Matrix3Xd& node_positions(Shape shape);

// A face as node indexes, mid-side nodes between their corners, seen counter-clockwise from outside.
using Face = std::vector<int>;

// Face `number` (from 1, as in S1) of an element; empty when there is none. A shell or line has its one face under every number.
Face element_face(const Element& element, int number);

// A face of a mesh, by the index of its element and its number from 1.
struct ElementFace
{
    int element, number;
};

// The surface of the body: the faces that belong to one solid only, in the order of the elements, all shells and the ends of lines.
std::vector<ElementFace> skin_faces(const Mesh& mesh);
std::vector<Face> skin(const Mesh& mesh);

// Integrals over a face of the shape function of each of its nodes. Those along the normal are exact on curved faces
// too, so that over a closed surface they add up to nothing.
struct FaceIntegrals
{
    Eigen::Matrix3Xd normal; // times the normal: outward, or that of the shell
    Eigen::VectorXd area;
};

// Of a face of three, four, six or eight nodes; empty for others.
FaceIntegrals face_integrals(const Mesh& mesh, const Face& face);

} // namespace zel_fem

#endif
