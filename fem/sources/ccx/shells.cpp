#include "fem/sources/ccx/shells.h"

#include <algorithm>
#include <map>
#include <optional>
#include <string>

#include "fem/sources/ccx/beams.h"
#include "fem/sources/ccx/element_types.h"

namespace zel_fem::ccx
{

using Eigen::Index;
using Eigen::MatrixXd;
using Eigen::Vector3d;
using Eigen::VectorXd;

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
// What the elements at a node of shells or beams say of it.
struct Meeting
{
    std::vector<Vector3d> normals;
    double thickness = 0.0;
    bool corner = false;
    std::optional<CrossSection> section; // of beams
};
} // namespace

[[noreturn]] static void refuse(const Mesh& mesh, const Element& element, int node, const std::string& why)
{
    throw InputError(mesh.place(element), "node " + std::to_string(mesh.nodes[size_t(node)].id) + " " + why);
}

static void join(const Mesh& mesh, const Element& element, int k, Meeting& meeting)
{
    const int node = element.nodes[size_t(k)];
    if (is_beam(*element.type))
    {
        const CrossSection own = section_at(mesh, element, k);
        if (!meeting.normals.empty() || (meeting.section && !(*meeting.section == own)))
            refuse(
                mesh, element, node,
                "joins beams at an angle or of different sections, or a shell: matrices of such a knot are not proved");
        meeting.section = own;
        return;
    }
    if (meeting.section)
        refuse(mesh, element, node, "joins a shell and a beam: matrices of such a knot are not proved");
    if (!meeting.normals.empty() && meeting.thickness != element.thickness)
        refuse(mesh, element, node, "joins shells of different thickness: import modes from *NODE FILE, OUTPUT=2D");
    meeting.thickness = element.thickness;
    meeting.corner = k < corner_count(element.type->shape) && has_mid_sides(element.type->shape);
    meeting.normals.push_back(normal_at(mesh, element, k));
}

// The solid's nodes in its own order: bottom and top corners, bottom and top mid-side nodes, those between bottom and top.
static Element solid_from(const Element& shell, const std::vector<LayeredNode>& shells,
                          const std::vector<int>& shell_of)
{
    const int corners = corner_count(shell.type->shape), count = node_count(shell.type->shape);
    const auto layers = [&](int k) -> const std::vector<int>& {
        return shells[size_t(shell_of[size_t(shell.nodes[size_t(k)])])].all;
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

Expansion expand_shells(const Deck& deck)
{
    const Mesh& mesh = deck.mesh;
    Expansion expansion{deck, {{}, {}, std::vector<int>(mesh.nodes.size(), -1)}};
    std::vector<LayeredNode>& shells = expansion.layers.nodes;
    std::vector<int>& shell_of = expansion.layers.layers_of_node;
    std::vector<Meeting> meetings(mesh.nodes.size());
    for (const Element& element : mesh.elements)
        for (int k = 0; is_expanded(element) && k < node_count(element.type->shape); ++k)
            join(mesh, element, k, meetings[size_t(element.nodes[size_t(k)])]);
    Mesh& solids = expansion.deck.mesh;
    int next_id = 0;
    const auto add_node = [&](int node, const Vector3d& at) {
        expansion.deck.node_index[--next_id] = int(solids.nodes.size());
        solids.nodes.push_back({mesh.nodes[size_t(node)].id, at});
        return int(solids.nodes.size()) - 1;
    };
    for (int node = 0; node < int(mesh.nodes.size()); ++node)
    {
        const Meeting& meeting = meetings[size_t(node)];
        if (meeting.normals.empty() && !meeting.section)
            continue;
        std::vector<Vector3d> places;
        if (meeting.section)
            places = meeting.section->places();
        else
        {
            Vector3d sum = Vector3d::Zero();
            for (const Vector3d& normal : meeting.normals)
                sum += normal;
            const Vector3d half = 0.5 * meeting.thickness * sum.normalized();
            places = meeting.corner ? std::vector<Vector3d>{-half, Vector3d::Zero(), half}
                                    : std::vector<Vector3d>{-half, half};
        }
        std::vector<int> all;
        for (const Vector3d& place : places)
            all.push_back(add_node(node, mesh.nodes[size_t(node)].at + place));
        std::vector<int> outer = {all.front(), all.back()};
        if (meeting.section)
            outer.assign(all.begin(), all.begin() + 4);
        shell_of[size_t(node)] = int(shells.size());
        shells.emplace_back(node, std::move(all), std::move(outer), solids);
    }
    for (Element& element : solids.elements)
        if (is_expanded(element))
            element = solid_from(element, shells, shell_of);
        else
            for (int k = 0; k < node_count(element.type->shape); ++k)
                if (shell_of[size_t(element.nodes[size_t(k)])] >= 0)
                    refuse(mesh, element, element.nodes[size_t(k)],
                           meetings[size_t(element.nodes[size_t(k)])].section
                               ? "belongs to a beam as well: matrices of such a knot are not proved"
                               : "belongs to a shell as well: import modes from *NODE FILE, OUTPUT=2D");
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

void Expansion::name_layers(std::vector<Freedom>& freedoms) const
{
    check_ties(deck, layers.layers_of_node);
    std::vector<int> id_of(deck.mesh.nodes.size());
    for (const auto& [id, node] : deck.node_index)
        id_of[size_t(node)] = id;
    std::map<std::pair<int, int>, size_t> seen; // of node and component
    for (Freedom& freedom : freedoms)
    {
        const int node = deck.find_node(freedom.node_id);
        if (node < 0 || layers.layers_of_node[size_t(node)] < 0)
            continue;
        const std::vector<int> own = layers.nodes_of(node);
        const size_t layer = seen[{node, freedom.component}]++;
        freedom.node_id = id_of[size_t(own[std::min(layer, own.size() - 1)])];
    }
    for (const LayeredNode& shell : layers.nodes)
        for (int component = 1; component <= 3; ++component)
            if (seen[{shell.node, component}] != layers.nodes_of(shell.node).size())
                refuse(deck.mesh, element_with(deck.mesh, shell.all[0]), shell.node,
                       "has other freedoms in the matrices than a smooth shell or straight beam without supports and "
                       "ties");
}

} // namespace zel_fem::ccx
