#include "fem/sources/ccx/shells.h"

#include <algorithm>
#include <map>
#include <optional>
#include <string>

#include "fem/sources/ccx/beams.h"
#include "fem/sources/ccx/element_types.h"
#include "fem/sources/ccx/trusses.h"

namespace zel_fem::ccx
{

using Eigen::Index;
using Eigen::MatrixXd;
using Eigen::Vector3d;
using Eigen::VectorXd;

constexpr double kSmooth = 0.939693; // cosine of twenty degrees: shells at less are one to the solver
constexpr double kSlight = 0.9962;   // cosine of five degrees
constexpr double kParallel = 1e-9;   // sine

bool is_expanded(const Element& element)
{
    return is_shell(element.type->shape) || is_beam(*element.type);
}

bool has_expanded(const Mesh& mesh)
{
    return std::any_of(mesh.elements.begin(), mesh.elements.end(), is_expanded);
}

static int corner_count(Shape shape)
{
    if (shape == Shape::line2 || shape == Shape::line3)
        return 2;
    return shape == Shape::tri3 || shape == Shape::tri6 ? 3 : 4;
}

static bool has_mid_sides(Shape shape)
{
    return node_count(shape) > corner_count(shape);
}

static const char* solid_of(const ElementType& type)
{
    if (corner_count(type.shape) == 3)
        return has_mid_sides(type.shape) ? "C3D15" : "C3D6";
    if (has_mid_sides(type.shape))
        return type.name == "S8R" ? "C3D20R" : "C3D20";
    return type.name == "S4" ? "C3D8I" : "C3D8R";
}

// Unit normal of a shell at its node `k`.
static Vector3d normal_at(const Mesh& mesh, const Element& element, int k)
{
    VectorXd value;
    MatrixXd gradient;
    shape_functions(element.type->shape, node_positions(element.type->shape).col(k), value, gradient);
    Vector3d along[2] = {Vector3d::Zero(), Vector3d::Zero()};
    for (Index i = 0; i < value.size(); ++i)
        for (int direction = 0; direction < 2; ++direction)
            along[direction] += gradient(i, direction) * mesh.nodes[size_t(element.nodes[size_t(i)])].at;
    return along[0].cross(along[1]).normalized();
}

namespace
{
enum class NodeKind
{
    corner, // of an element that has middle nodes
    middle,
    of_linear // a corner of one that has none
};
// Elements at a node that share the nodes of one section, as they meet smoothly there.
struct Group
{
    std::vector<int> elements;          // indexes
    std::vector<CrossSection> sections; // of beams; else of shells:
    std::vector<Vector3d> normals;
    double thickness = 0.0;
    NodeKind kind;
    std::vector<int> all; // the nodes, in the solver's order

    std::vector<Vector3d> places() const;
};
// Several of them make a knot.
using Meeting = std::vector<Group>;
} // namespace

// From the node of the shell or beam.
std::vector<Vector3d> Group::places() const
{
    if (!sections.empty())
        return mean_of(sections).places();
    Vector3d sum = Vector3d::Zero();
    for (const Vector3d& normal : normals)
        sum += normal;
    const Vector3d half = 0.5 * thickness * sum.normalized();
    return kind == NodeKind::corner ? std::vector<Vector3d>{-half, Vector3d::Zero(), half}
                                    : std::vector<Vector3d>{-half, half};
}

[[noreturn]] static void refuse(const Mesh& mesh, const Element& element, int node, const std::string& why)
{
    throw InputError(mesh.place(element), "node " + std::to_string(mesh.nodes[size_t(node)].id) + " " + why);
}

static void join(const Mesh& mesh, int index, int k, Meeting& meeting)
{
    const Element& element = mesh.elements[size_t(index)];
    const bool quadratic = has_mid_sides(element.type->shape);
    Group own;
    own.kind = !quadratic                              ? NodeKind::of_linear
               : k < corner_count(element.type->shape) ? NodeKind::corner
                                                       : NodeKind::middle;
    if (is_beam(*element.type))
        own.sections.push_back(section_at(mesh, element, k));
    else
        own.normals.push_back(normal_at(mesh, element, k));
    own.thickness = element.thickness;
    const auto same = std::find_if(meeting.begin(), meeting.end(), [&](const Group& other) {
        if (!own.sections.empty() || !other.sections.empty())
            return !own.sections.empty() && !other.sections.empty() &&
                   (own.sections[0] == other.sections[0] || own.sections[0].meets_smoothly(other.sections[0], kSmooth));
        return own.thickness == other.thickness && own.normals[0].dot(other.normals[0]) > kSmooth;
    });
    const bool fresh = same == meeting.end();
    if (fresh)
        meeting.push_back(own);
    else
    {
        same->normals.insert(same->normals.end(), own.normals.begin(), own.normals.end());
        same->sections.insert(same->sections.end(), own.sections.begin(), own.sections.end());
    }
    Group& joined = fresh ? meeting.back() : *same;
    if (joined.kind != own.kind)
        refuse(mesh, element, element.nodes[size_t(k)],
               "is a corner of one shell or beam and a middle node of another, or of one without middle nodes: the "
               "matrices of such a "
               "mesh are not proved");
    joined.elements.push_back(index);
}

// The solid's nodes in its own order: bottom and top corners, bottom and top mid-side nodes, those between bottom and top.
static Element solid_from(const Element& shell, int index, const std::vector<Meeting>& meetings)
{
    const int corners = corner_count(shell.type->shape), count = node_count(shell.type->shape);
    const auto layers = [&](int k) -> const std::vector<int>& {
        const Meeting& meeting = meetings[size_t(shell.nodes[size_t(k)])];
        return std::find_if(meeting.begin(), meeting.end(),
                            [&](const Group& group) {
                                return std::find(group.elements.begin(), group.elements.end(), index) !=
                                       group.elements.end();
                            })
            ->all;
    };
    if (is_beam(*shell.type))
    {
        std::vector<std::vector<int>> sections;
        for (int k = 0; k < count; ++k)
            sections.push_back(layers(k));
        return beam_solid(shell, sections);
    }
    Element solid = shell;
    solid.type = find_element_type(solid_of(*shell.type));
    solid.thickness = 0.0;
    int next = 0;
    for (const auto& [from, to] : {std::pair(0, corners), std::pair(corners, count)})
        for (const bool top : {false, true})
            for (int k = from; k < to; ++k)
                solid.nodes[size_t(next++)] = top ? layers(k).back() : layers(k).front();
    for (int k = 0; count > corners && k < corners; ++k)
        solid.nodes[size_t(next++)] = layers(k)[1];
    return solid;
}

static std::vector<Meeting> meetings_of(const Mesh& mesh)
{
    std::vector<Meeting> meetings(mesh.nodes.size());
    for (size_t i = 0; i < mesh.elements.size(); ++i)
    {
        const Element& element = mesh.elements[i];
        for (int k = 0; is_expanded(element) && k < node_count(element.type->shape); ++k)
            join(mesh, int(i), k, meetings[size_t(element.nodes[size_t(k)])]);
    }
    for (const Element& element : mesh.elements)
        for (int k = 0; is_truss(*element.type) && k < node_count(element.type->shape); ++k)
            if (!meetings[size_t(element.nodes[size_t(k)])].empty())
                refuse(mesh, element, element.nodes[size_t(k)],
                       "of a truss belongs to a shell or beam as well: matrices of such a knot are not proved");
    return meetings;
}

// By node: the first element, if any, that is a solid, a mass, a spring or a dashpot.
static std::vector<const Element*> others_at_nodes(const Mesh& mesh)
{
    std::vector<const Element*> others(mesh.nodes.size());
    for (const Element& element : mesh.elements)
        for (int k = 0; !is_expanded(element) && k < node_count(element.type->shape); ++k)
            if (const Element*& other = others[size_t(element.nodes[size_t(k)])]; !other)
                other = &element;
    return others;
}

// A node of a shell or beam that others share is their hinge: the mean of bottom and top, or of the corners of a beam. The solver
// eliminates the first of these. (Its results show another mean, over the thickness, at the node.)
static void hang_node(const Place& place, int node_id, const Group& group, const std::vector<int>& layer_ids,
                      Deck& deck)
{
    const std::vector<int> outer = !group.sections.empty() ? std::vector<int>(layer_ids.begin(), layer_ids.begin() + 4)
                                                           : std::vector<int>{layer_ids.front(), layer_ids.back()};
    for (int c = 0; c < 3; ++c)
    {
        Equation equation{place, {{node_id, c, 1.0}}};
        for (const int id : outer)
            equation.terms.push_back({id, c, -1.0 / double(outer.size())});
        deck.equations.push_back(std::move(equation));
    }
}

// The axis along which all normals at a knot of shells lie, about which it has no rotation then; -1 where they span more.
static int common_axis(const Mesh& mesh, int node, const Meeting& meeting)
{
    const Element& element = mesh.elements[size_t(meeting.back().elements[0])];
    const Vector3d line = !meeting[0].sections.empty() ? Vector3d::Zero() : meeting[0].normals[0];
    bool alike = true;
    for (const Group& group : meeting)
        for (size_t i = 0; i < std::max<size_t>(group.normals.size(), 1); ++i)
        {
            const bool parallel =
                group.sections.empty() && !line.isZero() && group.normals[i].cross(line).norm() < kParallel;
            if (!parallel && group.sections.empty() && &group != &meeting[0] && group.normals[i].dot(line) > kSlight)
                refuse(mesh, element, node, "joins shells of different thickness at a slight angle");
            alike = alike && parallel;
        }
    for (int c = 0; c < 3 && alike; ++c)
        if (1.0 - std::abs(line[c]) < kParallel)
            return c;
    if (alike)
        refuse(mesh, element, node,
               "joins shells of different thickness, and their normal lies along none of the axes");
    return -1;
}

Expansion expand_shells(const Deck& deck)
{
    const Mesh& mesh = deck.mesh;
    Expansion expansion{deck, {{}, {}, std::vector<int>(mesh.nodes.size(), -1)}, {}};
    std::vector<Meeting> meetings = meetings_of(mesh);
    const std::vector<const Element*> others = others_at_nodes(mesh);
    Mesh& solids = expansion.deck.mesh;
    int next_id = 0;
    for (int node = 0; node < int(mesh.nodes.size()); ++node)
    {
        Meeting& meeting = meetings[size_t(node)];
        if (meeting.empty())
            continue;
        std::vector<int> all, outer;
        Knot knot{mesh.place(mesh.elements[size_t(meeting[0].elements[0])]), node, {}};
        for (Group& group : meeting)
        {
            for (const Vector3d& place : group.places())
            {
                expansion.deck.node_index[--next_id] = int(solids.nodes.size());
                group.all.push_back(int(solids.nodes.size()));
                solids.nodes.push_back({mesh.nodes[size_t(node)].id, mesh.nodes[size_t(node)].at + place});
                knot.layer_ids.push_back(next_id);
            }
            all.insert(all.end(), group.all.begin(), group.all.end());
            if (!group.sections.empty())
                outer.insert(outer.end(), group.all.begin(), group.all.begin() + 4);
            else
                outer.insert(outer.end(), {group.all.front(), group.all.back()});
        }
        if (meeting.size() == 1 && others[size_t(node)])
        {
            hang_node(mesh.place(*others[size_t(node)]), mesh.nodes[size_t(node)].id, meeting[0], knot.layer_ids,
                      expansion.deck);
            all.push_back(node);
        }
        expansion.layers.layers_of_node[size_t(node)] = int(expansion.layers.nodes.size());
        expansion.layers.nodes.emplace_back(node, std::move(all), std::move(outer), solids);
        expansion.layers.nodes.back().is_knot = meeting.size() > 1;
        if (meeting.size() > 1)
        {
            knot.unturned = common_axis(mesh, node, meeting);
            expansion.knots.push_back(std::move(knot));
        }
    }
    for (size_t i = 0; i < solids.elements.size(); ++i)
        if (Element& element = solids.elements[i]; is_expanded(element))
            element = solid_from(element, int(i), meetings);
    expansion.layers.mesh = solids;
    return expansion;
}

static void check_ties(const Deck& deck, const std::vector<int>& shell_of)
{
    for (const Tie& tie : deck.ties)
        for (int id : tie.node_ids)
            if (shell_of[size_t(deck.find_node(id))] >= 0)
                throw InputError(tie.place, "matrices of tied shells cannot be imported: leave the tie out of the deck "
                                            "and name its nodes with --interface");
}

static const Element& element_with(const Mesh& mesh, int node)
{
    return *std::find_if(mesh.elements.begin(), mesh.elements.end(), [node](const Element& element) {
        return std::find(element.nodes.begin(), element.nodes.end(), node) != element.nodes.end();
    });
}

void Expansion::name_layers(std::vector<int>& node_ids) const
{
    int last = 0;
    for (int& id : node_ids)
        if (deck.find_node(id) < 0)
            id = --last;
}

// Knots have a node of their own for their rotations, and one behind it for the stretch, in the order of their own numbers. No other
// nodes of the solver's making have a single freedom.
void Expansion::name_knots(std::vector<Freedom>& freedoms)
{
    size_t knot = 0;
    for (size_t i = 0; i < freedoms.size(); ++i)
    {
        const int id = freedoms[i].node_id;
        if (deck.find_node(id) >= 0 || id <= 0)
            continue;
        std::vector<int> turns;
        for (; i < freedoms.size() && freedoms[i].node_id == id; ++i)
            turns.push_back(freedoms[i].component - 1);
        const bool belongs = i < freedoms.size() && freedoms[i].node_id == id + 1 && freedoms[i].component == 1 &&
                             (i + 1 == freedoms.size() || freedoms[i + 1].node_id != id + 1);
        const size_t first = i - turns.size();
        if (!belongs)
        {
            --i;
            continue;
        }
        if (knot < knots.size())
        {
            std::vector<int> expected = {0, 1, 2};
            std::erase(expected, knots[knot].unturned);
            if (turns != expected)
                refuse(deck.mesh, deck.mesh.elements[0], knots[knot].node, "is a knot of other rotations");
            for (size_t c = 0; c < turns.size(); ++c)
                freedoms[first + c] = {deck.mesh.nodes[size_t(knots[knot].node)].id, turns[c] + 4};
            freedoms[i].node_id = 0;
            knots[knot].stretch_row = int64_t(i);
        }
        ++knot;
    }
    if (knot != knots.size())
        throw InputError({deck.mesh.files[0], 0},
                         "shells and beams meet at an angle in " + std::to_string(knots.size()) +
                             " nodes, and the matrices have " + std::to_string(knot) +
                             " knots: supports, angles of about twenty degrees, and beams of other "
                             "sections in one line make others");
}

void Expansion::name_layers(std::vector<Freedom>& freedoms)
{
    check_ties(deck, layers.layers_of_node);
    name_knots(freedoms);
    std::vector<int> id_of(deck.mesh.nodes.size());
    for (const auto& [id, node] : deck.node_index)
        id_of[size_t(node)] = id;
    std::map<std::pair<int, int>, size_t> seen; // of node and component
    for (Freedom& freedom : freedoms)
    {
        const int node = deck.find_node(freedom.node_id);
        if (node < 0 || layers.layers_of_node[size_t(node)] < 0)
            continue;
        std::vector<int> own = layers.nodes_of(node);
        if (own.size() > 1 && own.back() == node) // hung: it has rows, the first of the layers has none
        {
            own.pop_back();
            own[0] = node;
        }
        const size_t layer = seen[{node, freedom.component}]++;
        freedom.node_id = id_of[size_t(own[std::min(layer, own.size() - 1)])];
    }
    for (const LayeredNode& shell : layers.nodes)
        for (int component = 1; component <= 3; ++component)
            if (seen[{shell.node, component}] != layers.nodes_of(shell.node).size() - size_t(shell.is_hung()))
                refuse(deck.mesh, element_with(deck.mesh, shell.all[0]), shell.node,
                       "has other freedoms in the matrices than shells or beams without supports and ties");
}

} // namespace zel_fem::ccx
