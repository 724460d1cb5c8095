// At each node of a truss the mean of its solid's section moves as the node, and the section does not turn about the truss. Nothing
// else holds it: the solver eliminates all of its first corner, and one more displacement. With u_k of the truss's nodes and the
// slope du/ds of the line through them the others move as u_k - t (r . du/ds) + d, t along the truss and r across it to the corner. The
// first two are all of a rigid motion, and with d instead of u the rows belong to no node: K and M become T^T K T and T^T M T.
#include "fem/sources/ccx/trusses.h"

#include <algorithm>
#include <map>

#include "fem/sources/ccx/beams.h"

namespace zel_fem::ccx
{

using Eigen::Index;
using Eigen::Vector3d;

constexpr double kStraight = 1e-6;  // sine between its halves
constexpr double kAcross = 1e-10;   // of a direction: what the solver calls zero
constexpr double kRounding = 1e-13; // of sums of stored values, which have 14 digits

namespace
{
// Where a truss is at one of its nodes: its nodes' shares in the slope, and the corners of the section.
struct Hinge
{
    const Element& truss;
    int k;
    std::vector<Vector3d> corners = {};
    Vector3d along = Vector3d::Zero();
    Eigen::VectorXd slope = {}; // by node, per length
};
using Entries = std::vector<Eigen::Triplet<double, int64_t>>;
} // namespace

bool is_truss(const ElementType& type)
{
    return type.name[0] == 'T';
}

void set_square_section(const Mesh& mesh, Element& truss, double area)
{
    const auto at = [&](size_t k) { return mesh.nodes[size_t(truss.nodes[k])].at; };
    const Vector3d along = (at(1) - at(0)).normalized();
    if (truss.type->shape == Shape::line3 && !(along.cross(at(2) - at(0)).norm() < kStraight * (at(1) - at(0)).norm()))
        throw InputError(mesh.place(truss), "a truss of three nodes must be straight: the solver does not let a curved "
                                            "one move as a rigid body");
    const int across = std::abs(along[0]) > kAcross ? 1 : std::abs(along[1]) > kAcross ? 2 : 0;
    truss.thickness = truss.width = std::sqrt(area);
    truss.axis = -Vector3d::Unit(across).cross(along);
}

static Hinge hinge_at(const Mesh& mesh, const Element& truss, int k)
{
    Hinge hinge{truss, k};
    const CrossSection section = section_at(mesh, truss, k);
    hinge.corners = section.places();
    hinge.along = section.axes[0].cross(section.axes[1]);
    Eigen::VectorXd value;
    Eigen::MatrixXd gradient;
    shape_functions(truss.type->shape, node_positions(truss.type->shape).col(k), value, gradient);
    double length = 0.0;
    for (Index i = 0; i < value.size(); ++i)
        length += gradient(i, 0) * hinge.along.dot(mesh.nodes[size_t(truss.nodes[size_t(i)])].at);
    hinge.slope = gradient.col(0) / length;
    return hinge;
}

// By node, in the order of the solver's numbers: that of the elements' own.
static std::map<int, std::vector<Hinge>> hinges_of(const Deck& deck)
{
    std::vector<const Element*> trusses;
    for (const Element& element : deck.mesh.elements)
        if (is_truss(*element.type))
            trusses.push_back(&element);
    std::sort(trusses.begin(), trusses.end(), [](auto* a, auto* b) { return a->id < b->id; });
    std::map<int, std::vector<Hinge>> hinges;
    for (const Element* truss : trusses)
        for (int k = 0; k < node_count(truss->type->shape); ++k)
            hinges[truss->nodes[size_t(k)]].push_back(hinge_at(deck.mesh, *truss, k));
    return hinges;
}

// The rows of one section, from `first` on: those of all corners but the first, without one displacement.
static void hang(const Hinge& hinge, const std::vector<size_t>& rows, size_t first,
                 const std::map<int, std::vector<size_t>>& rows_of, std::vector<Freedom>& freedoms, Entries& entries)
{
    size_t corner = 1;
    for (size_t i = first; i < first + 3 * hinge.corners.size() - 4; ++i)
    {
        const size_t row = rows[i];
        const int component = freedoms[row].component - 1;
        if (i > first && component < freedoms[rows[i - 1]].component)
            ++corner;
        entries.emplace_back(row, rows[size_t(component)], 1.0);
        for (Index n = 0; n < hinge.slope.size(); ++n)
            for (size_t c = 0; c < 3; ++c)
                entries.emplace_back(row, rows_of.at(hinge.truss.nodes[size_t(n)])[c],
                                     -hinge.along[component] * hinge.slope[n] * hinge.corners[corner][Index(c)]);
    }
}

static SparseMatrix whole_congruent(const SparseMatrix& upper, const SparseMatrix& t)
{
    const SparseMatrix whole = upper.selfadjointView<Eigen::Upper>();
    const SparseMatrix right = whole * t;
    return SparseMatrix(t.transpose()) * right;
}

// T^T A T without what rounding has left of values that cancel: a mechanism has no stiffness at all in its motions, not a little.
static SparseMatrix congruent(const SparseMatrix& upper, const SparseMatrix& t)
{
    const SparseMatrix product = whole_congruent(upper, t), size = whole_congruent(upper.cwiseAbs(), t.cwiseAbs());
    Entries entries;
    for (Index column = 0; column < product.cols(); ++column)
        for (SparseMatrix::InnerIterator entry(product, column); entry; ++entry)
            if (entry.row() <= column && std::abs(entry.value()) > kRounding * size.coeff(entry.row(), column))
                entries.emplace_back(entry.row(), column, entry.value());
    SparseMatrix kept(product.rows(), product.cols());
    kept.setFromTriplets(entries.begin(), entries.end());
    return kept;
}

void hang_trusses(const Deck& deck, StoredMatrices& stored)
{
    const std::map<int, std::vector<Hinge>> hinges = hinges_of(deck);
    if (hinges.empty())
        return;
    std::map<int, std::vector<size_t>> rows_of; // by node of a truss: its own three, and those of sections
    std::vector<Freedom>& freedoms = stored.freedoms;
    for (size_t i = 0; i < freedoms.size(); ++i)
        if (const int node = deck.find_node(freedoms[i].node_id); hinges.count(node))
            rows_of[node].push_back(i);
    for (const auto& [node, meeting] : hinges)
    {
        size_t count = 3;
        for (const Hinge& hinge : meeting)
            count += 3 * hinge.corners.size() - 4;
        if (rows_of[node].size() != count)
            throw InputError(deck.mesh.place(meeting[0].truss),
                             "node " + std::to_string(deck.mesh.nodes[size_t(node)].id) +
                                 " of a truss has other freedoms in the matrices than a node of trusses and solids "
                                 "without supports and constraints");
    }
    const Index order = Index(freedoms.size());
    Entries entries;
    for (Index i = 0; i < order; ++i)
        entries.emplace_back(i, i, 1.0);
    for (const auto& [node, meeting] : hinges)
    {
        const std::vector<size_t>& rows = rows_of.at(node);
        size_t next = 3;
        for (const Hinge& hinge : meeting)
        {
            hang(hinge, rows, next, rows_of, freedoms, entries);
            next += 3 * hinge.corners.size() - 4;
        }
    }
    for (const auto& [node, rows] : rows_of)
        for (size_t i = 3; i < rows.size(); ++i)
            freedoms[rows[i]].node_id = 0;
    SparseMatrix t(order, order);
    t.setFromTriplets(entries.begin(), entries.end());
    stored.stiffness = congruent(stored.stiffness, t);
    stored.mass = congruent(stored.mass, t);
}

} // namespace zel_fem::ccx
