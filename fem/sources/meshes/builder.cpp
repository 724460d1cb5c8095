#include "fem/sources/meshes/builder.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

namespace zel_fem::meshes
{

// Density of an element that was given none.
constexpr double kNone = std::numeric_limits<double>::quiet_NaN();

int MeshBuilder::add_file(const std::string& path)
{
    result_.mesh.files.push_back(path);
    return int(result_.mesh.files.size()) - 1;
}

void MeshBuilder::add_node(int id, const Eigen::Vector3d& at, const Place& place)
{
    if (id < 1)
        throw InputError(place, "node number " + std::to_string(id) + " is not positive");
    if (!node_index_.try_emplace(id, int(result_.mesh.nodes.size())).second)
        throw InputError(place, "node " + std::to_string(id) + " is defined twice");
    result_.mesh.nodes.push_back({id, at});
}

Element& MeshBuilder::add_element(int id, const ElementType& type, std::span<const int> nodes, int file, int64_t line)
{
    Element element;
    element.id = id;
    element.type = &type;
    element.density = kNone;
    element.file = file;
    element.line = int(line);
    const Place place = result_.mesh.place(element);
    if (id < 1)
        throw InputError(place, "element number " + std::to_string(id) + " is not positive");
    if (!element_ids_.insert(id).second)
        throw InputError(place, "element " + std::to_string(id) + " is defined twice");
    if (int(nodes.size()) != node_count(type.shape))
        throw InputError(place, "an element of type " + std::string(type.name) + " has " +
                                    std::to_string(node_count(type.shape)) + " nodes, not " +
                                    std::to_string(nodes.size()));
    std::copy(nodes.begin(), nodes.end(), element.nodes.begin());
    return result_.mesh.elements.emplace_back(element);
}

void MeshBuilder::add_to_set(const std::string& name, std::span<const int> nodes)
{
    for (int id : nodes)
        add_range_to_set(name, id, id);
}

int MeshBuilder::find_node(int id) const
{
    const auto found = node_index_.find(id);
    return found == node_index_.end() ? -1 : found->second;
}

void MeshBuilder::leave_density(const std::string& reason)
{
    if (!density_left_)
        note(reason + ": densities of the elements are left aside");
    density_left_ = true;
}

void MeshBuilder::sort_nodes()
{
    auto& nodes = result_.mesh.nodes;
    std::sort(nodes.begin(), nodes.end(), [](const Node& a, const Node& b) { return a.id < b.id; });
    for (size_t i = 0; i < nodes.size(); ++i)
        node_index_[nodes[i].id] = int(i);
}

void MeshBuilder::resolve_elements()
{
    for (Element& element : result_.mesh.elements)
        for (int i = 0; i < node_count(element.type->shape); ++i)
        {
            int& node = element.nodes[size_t(i)];
            const int index = find_node(node);
            if (index < 0)
                throw InputError(result_.mesh.place(element), "element " + std::to_string(element.id) + ": node " +
                                                                  std::to_string(node) + " is not defined");
            node = index;
        }
}

static std::span<const int> nodes_of(const Element& element)
{
    return std::span(element.nodes).first(size_t(node_count(element.type->shape)));
}

// Where nodes of an element fall together its shape functions have no slopes there, which rotations are taken from.
void MeshBuilder::drop_collapsed()
{
    const size_t dropped = std::erase_if(result_.mesh.elements, [](const Element& element) {
        std::array<int, kMostNodes> nodes = element.nodes;
        const auto end = nodes.begin() + node_count(element.type->shape);
        std::sort(nodes.begin(), end);
        return std::adjacent_find(nodes.begin(), end) != end;
    });
    if (dropped > 0)
    {
        skip("elements that name a node twice", int64_t(dropped));
        leave_density("elements that name a node twice are not read");
    }
}

static int dimension_of(const Element& element)
{
    const Shape shape = element.type->shape;
    return shape == Shape::point ? 0 : shape == Shape::line2 || shape == Shape::line3 ? 1 : is_shell(shape) ? 2 : 3;
}

// Faces and edges are written as elements by mesh generators, to name them. A shell with a thickness is one.
void MeshBuilder::drop_faces()
{
    auto& elements = result_.mesh.elements;
    std::vector<int> highest(result_.mesh.nodes.size());
    for (const Element& element : elements)
        for (int node : nodes_of(element))
            highest[size_t(node)] = std::max(highest[size_t(node)], dimension_of(element));
    const size_t dropped = std::erase_if(elements, [&highest](const Element& element) {
        const auto nodes = nodes_of(element);
        const int dimension = dimension_of(element);
        return dimension > 0 && !(element.thickness > 0.0) &&
               std::all_of(nodes.begin(), nodes.end(),
                           [&highest, dimension](int node) { return highest[size_t(node)] > dimension; });
    });
    if (dropped > 0)
        note(std::to_string(dropped) + (dropped == 1 ? " face or edge of others is no element of the body"
                                                     : " faces and edges of others are no elements of the body"));
}

void MeshBuilder::judge_density()
{
    bool any = false, all = true;
    for (Element& element : result_.mesh.elements)
    {
        const bool has_volume = element.type->shape < Shape::line2;
        const bool dense = element.density > 0.0 && (!is_shell(element.type->shape) || element.thickness > 0.0);
        any |= has_volume;
        all &= dense || !has_volume;
        if (std::isnan(element.density))
            element.density = 0.0;
    }
    result_.has_density = any && all && !density_left_;
}

void MeshBuilder::resolve_sets()
{
    const auto& nodes = result_.mesh.nodes;
    for (auto& [name, ranges] : sets_)
    {
        std::sort(ranges.begin(), ranges.end());
        ranges.erase(std::unique(ranges.begin(), ranges.end()), ranges.end());
        std::vector<int> indexes;
        size_t undefined = 0;
        for (const auto& [first, last] : ranges)
        {
            auto at = std::lower_bound(nodes.begin(), nodes.end(), first,
                                       [](const Node& node, int id) { return node.id < id; });
            undefined += first == last && (at == nodes.end() || at->id != first) ? 1 : 0;
            for (; at != nodes.end() && at->id <= last; ++at)
                indexes.push_back(int(at - nodes.begin()));
        }
        std::sort(indexes.begin(), indexes.end());
        indexes.erase(std::unique(indexes.begin(), indexes.end()), indexes.end());
        if (undefined > 0)
            note("set " + name + ": " + std::to_string(undefined) + " of its nodes are not defined and left out");
        if (!indexes.empty())
            result_.node_sets[name] = std::move(indexes);
    }
}

void MeshBuilder::tell_skipped()
{
    std::string text;
    for (const auto& [what, count] : skipped_)
        text.append(text.empty() ? "skipped: " : ", ").append(std::to_string(count) + " " + what);
    if (!text.empty())
        note(text);
}

MeshFile MeshBuilder::finish()
{
    if (result_.mesh.nodes.empty())
        throw InputError({result_.mesh.files[0], 0}, "the file has no nodes");
    sort_nodes();
    resolve_elements();
    drop_collapsed();
    drop_faces();
    judge_density();
    resolve_sets();
    tell_skipped();
    if (result_.mesh.elements.empty())
        note("the mesh has no elements: nothing but its nodes can be drawn");
    return std::move(result_);
}

} // namespace zel_fem::meshes
