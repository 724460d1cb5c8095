// Which nodes a user means: what is written becomes a choice, and in a model the choice becomes nodes.
#include <algorithm>
#include <cmath>
#include <iterator>
#include <utility>

#include "checks/report.h"
#include "fem/body.h"
#include "fem/interfaces.h"
#include "fem/sources/text_file.h"
#include "fem/text.h"

namespace zel_fem
{

using Eigen::Vector3d;
using zel_checks::format;

constexpr double kReach = 1e-5;        // of regions beyond their limits, against the diagonal of the model
constexpr size_t kSetsNamed = 20;      // in a message
constexpr char kFreedoms[] = "xyzrst"; // of a reference node

// ---- What is written ---------------------------------------------------------------------------------------------------

static std::vector<std::string_view> split(std::string_view text, char at)
{
    std::vector<std::string_view> parts;
    for (;;)
    {
        const size_t sign = text.find(at);
        parts.push_back(text.substr(0, sign));
        if (sign == std::string_view::npos)
            return parts;
        text.remove_prefix(sign + 1);
    }
}

static std::array<double, 3> three_numbers(std::string_view text, const Place& place)
{
    const auto fields = split(text, ',');
    if (fields.size() != 3)
        throw InputError(place, in_quotes(text) + " is not three numbers x,y,z");
    return {parse_real(fields[0], place), parse_real(fields[1], place), parse_real(fields[2], place)};
}

static std::array<double, 3> direction(std::string_view text, const Place& place)
{
    const std::array<double, 3> numbers = three_numbers(text, place);
    const double length = std::hypot(numbers[0], numbers[1], numbers[2]);
    if (!(length > 0.0) || !std::isfinite(length))
        throw InputError(place, in_quotes(text) + " has no direction");
    return numbers;
}

static double not_negative(std::string_view text, const Place& place)
{
    const double number = parse_real(text, place);
    if (number < 0.0)
        throw InputError(place, in_quotes(text) + " is negative");
    return number;
}

// The parts between slashes, as many as a region has.
static std::vector<std::string_view> parts_of(std::string_view text, const Place& place, size_t least, size_t most,
                                              const char* form)
{
    const auto parts = split(text, '/');
    if (parts.size() < least || parts.size() > most)
        throw InputError(place, std::string("expected ") + form);
    return parts;
}

static Cylinder parse_cylinder(std::string_view text, const Place& place)
{
    const auto parts = parts_of(text, place, 3, 4, "cylinder=x,y,z/dx,dy,dz/radius or the same with /length");
    Cylinder cylinder{three_numbers(parts[0], place), direction(parts[1], place), not_negative(parts[2], place), {}};
    if (parts.size() > 3)
        cylinder.length = not_negative(parts[3], place);
    return cylinder;
}

static Plane parse_plane(std::string_view text, const Place& place)
{
    const auto parts = parts_of(text, place, 2, 3, "plane=x,y,z/nx,ny,nz or the same with /tolerance");
    Plane plane{three_numbers(parts[0], place), direction(parts[1], place), {}};
    if (parts.size() > 2)
        plane.tolerance = not_negative(parts[2], place);
    return plane;
}

static Box parse_box(std::string_view text, const Place& place)
{
    const auto parts = parts_of(text, place, 2, 2, "box=x,y,z/x,y,z");
    return {three_numbers(parts[0], place), three_numbers(parts[1], place)};
}

NodeChoice parse_nodes(const std::string& text)
{
    const Place place{text, 0};
    NodeChoice choice;
    choice.name = text;
    std::string_view rest = text;
    const auto begins = [&](std::string_view word) {
        const bool does = rest.starts_with(word);
        rest.remove_prefix(does ? word.size() : 0);
        return does;
    };
    if (begins("ids="))
        for (std::string_view id : split(rest, ','))
            choice.ids.push_back(parse_int(id, place));
    else if (begins("cylinder="))
        choice.region = parse_cylinder(rest, place);
    else if (begins("plane="))
        choice.region = parse_plane(rest, place);
    else if (begins("box="))
        choice.region = parse_box(rest, place);
    else if (begins("file="))
        choice.file = rest;
    if (text.empty() || text == "file=")
        throw InputError(place, "expected NAME, ids=1,2,3, cylinder=..., plane=..., box=... or file=PATH");
    return choice;
}

// Which of the suffixes a part is: 0 a point, 1 a kind, 2 freedoms, -1 none.
static int suffix_of(std::string_view part, InterfaceChoice& choice)
{
    if (part[0] == '@')
        try
        {
            choice.at = three_numbers(part.substr(1), {});
            return 0;
        }
        catch (const InputError&)
        {
            return -1;
        }
    part.remove_prefix(1);
    if (part == "rigid" || part == "average")
    {
        choice.kind = part == "rigid" ? InterfaceKind::rigid : InterfaceKind::average;
        return 1;
    }
    std::array<bool, 6> freedoms{};
    for (char letter : part)
    {
        const char* at = std::find(kFreedoms, std::end(kFreedoms) - 1, letter);
        if (at == std::end(kFreedoms) - 1 || std::exchange(freedoms[size_t(at - kFreedoms)], true))
            return -1;
    }
    if (part.empty())
        return -1;
    choice.freedoms = freedoms;
    return 2;
}

InterfaceChoice parse_interface(const std::string& text)
{
    InterfaceChoice choice;
    std::array<bool, 3> given{};
    std::string_view rest = text;
    for (size_t sign = rest.find_last_of("@:"); sign != std::string::npos; sign = rest.find_last_of("@:"))
    {
        InterfaceChoice with = choice;
        const int suffix = suffix_of(rest.substr(sign), with);
        if (suffix < 0 || std::exchange(given[size_t(suffix)], true)) // a part of the name
            break;
        choice = with;
        rest = rest.substr(0, sign);
    }
    choice.nodes = parse_nodes(std::string(rest));
    choice.written = text;
    return choice;
}

// ---- What it names in a model ------------------------------------------------------------------------------------------

static std::string capitals(std::string text)
{
    for (char& c : text)
        if (c >= 'a' && c <= 'z')
            c = char(c - 'a' + 'A');
    return text;
}

bool has_set(const Model& model, const std::string& name)
{
    return model.node_sets.count(name) > 0;
}

static std::string sets_of(const Model& model)
{
    std::string text;
    size_t count = 0;
    for (const auto& [name, nodes] : model.node_sets)
        if (!nodes.empty() && ++count <= kSetsNamed)
            text += (count > 1 ? ", " : "; it has ") + name;
    if (count > kSetsNamed)
        text += format(" and %zu more", count - kSetsNamed);
    return text.empty() ? "; it has none" : text;
}

// What keeps the end of a name from being a suffix.
static std::string wrong_suffix(const std::string& name)
{
    const size_t sign = name.find_last_of("@:");
    if (sign == std::string::npos)
        return {};
    try
    {
        if (name[sign] == '@')
            three_numbers(std::string_view(name).substr(sign + 1), {});
    }
    catch (const InputError& error)
    {
        return std::string(" (and behind @ ") + error.what() + ")";
    }
    return " (and " + in_quotes(name.substr(sign)) + " is neither :rigid nor :average nor some of :xyzrst)";
}

// By its name as it stands, or else by the only name that differs in case alone.
static const std::vector<int>& set_named(const Model& model, const std::string& name)
{
    const std::pair<const std::string, std::vector<int>>* found = nullptr;
    if (const auto exact = model.node_sets.find(name); exact != model.node_sets.end())
        found = &*exact;
    else
        for (const auto& set : model.node_sets)
            if (capitals(set.first) == capitals(name))
            {
                if (found)
                    throw InputError({},
                                     "the node sets " + found->first + " and " + set.first + " are both like " + name);
                found = &set;
            }
    if (!found || found->second.empty())
        throw InputError({}, "the mesh has no node set named " + name + wrong_suffix(name) + sets_of(model));
    return found->second;
}

static std::vector<int> nodes_with_ids(const Model& model, const std::vector<int>& ids, const std::string& name)
{
    std::vector<int> nodes;
    for (int id : ids)
    {
        nodes.push_back(find_node(model.mesh, id));
        if (nodes.back() < 0)
            throw InputError({}, format("%s names node %d, which the mesh does not have: its %zu nodes are %d to %d",
                                        name.c_str(), id, model.mesh.nodes.size(), model.mesh.nodes.front().id,
                                        model.mesh.nodes.back().id));
    }
    std::sort(nodes.begin(), nodes.end());
    nodes.erase(std::unique(nodes.begin(), nodes.end()), nodes.end());
    return nodes;
}

static std::vector<int> ids_in(const std::string& path)
{
    std::vector<int> ids;
    LineReader reader(path);
    for (std::string_view line; reader.next(line);)
    {
        line = trim(line);
        if (line.starts_with('#') || line.starts_with("**"))
            continue;
        std::string words(line);
        std::replace(words.begin(), words.end(), ',', ' ');
        std::replace(words.begin(), words.end(), '\t', ' ');
        for (std::string_view word : split(words, ' '))
            if (!word.empty())
                ids.push_back(parse_int(word, reader.place()));
    }
    if (ids.empty())
        throw InputError({path, 0}, "has no numbers of nodes");
    return ids;
}

// ---- Regions -----------------------------------------------------------------------------------------------------------

static Vector3d vector_of(const std::array<double, 3>& numbers)
{
    return {numbers[0], numbers[1], numbers[2]};
}

static bool holds(const std::monostate&, const Vector3d&, double)
{
    return false;
}

static bool holds(const Cylinder& cylinder, const Vector3d& at, double reach)
{
    const Vector3d axis = vector_of(cylinder.axis).normalized(), from = at - vector_of(cylinder.at);
    const double along = from.dot(axis);
    return (from - along * axis).norm() <= cylinder.radius + reach &&
           (!cylinder.length || (along >= -reach && along <= *cylinder.length + reach));
}

static bool holds(const Plane& plane, const Vector3d& at, double reach)
{
    return std::abs((at - vector_of(plane.at)).dot(vector_of(plane.normal).normalized())) <=
           plane.tolerance.value_or(reach);
}

static bool holds(const Box& box, const Vector3d& at, double reach)
{
    const Vector3d a = vector_of(box.from), b = vector_of(box.to);
    return ((at - a.cwiseMin(b)).array() >= -reach).all() && ((a.cwiseMax(b) - at).array() >= -reach).all();
}

static std::vector<char> on_surface(const Mesh& mesh)
{
    std::vector<char> on(mesh.nodes.size());
    bool has_faces = false;
    for (const Face& face : skin(mesh))
        for (int node : face)
        {
            has_faces = has_faces || face.size() > 2; // the skin draws lines as two ends
            on[size_t(node)] = 1;
        }
    return has_faces ? on : used_nodes(mesh);
}

static std::vector<int> nodes_in_region(const Model& model, const NodeChoice& choice)
{
    const Mesh& mesh = model.mesh;
    const std::vector<char> candidates = on_surface(mesh);
    Eigen::AlignedBox3d around;
    for (size_t i = 0; i < candidates.size(); ++i)
        if (candidates[i])
            around.extend(mesh.nodes[i].at);
    const double reach = around.isEmpty() ? 0.0 : kReach * around.diagonal().norm();
    std::vector<int> nodes;
    for (size_t i = 0; i < candidates.size(); ++i)
        if (candidates[i] &&
            std::visit([&](const auto& region) { return holds(region, mesh.nodes[i].at, reach); }, choice.region))
            nodes.push_back(int(i));
    if (nodes.empty() && !around.isEmpty())
        throw InputError({}, format("no node of the surface lies in %s; the model reaches from %g,%g,%g to %g,%g,%g",
                                    choice.name.c_str(), around.min()[0], around.min()[1], around.min()[2],
                                    around.max()[0], around.max()[1], around.max()[2]));
    if (nodes.empty())
        throw InputError({}, "the mesh has no elements whose nodes could lie in " + choice.name);
    return nodes;
}

std::vector<int> chosen_nodes(const Model& model, const NodeChoice& choice)
{
    if (!choice.ids.empty())
        return nodes_with_ids(model, choice.ids, choice.name);
    if (choice.region.index() > 0)
        return nodes_in_region(model, choice);
    if (!choice.file.empty())
        return nodes_with_ids(model, ids_in(choice.file), choice.name);
    return set_named(model, choice.name);
}

// ---- Lists -------------------------------------------------------------------------------------------------------------

static NodeSet listed(const Mesh& mesh, const std::string& name, const std::vector<int>& nodes)
{
    NodeSet set{name, nodes.size(), {}, {}, {}, {}};
    Eigen::AlignedBox3d around;
    Vector3d sum = Vector3d::Zero();
    for (int node : nodes)
    {
        around.extend(mesh.nodes[size_t(node)].at);
        sum += mesh.nodes[size_t(node)].at;
    }
    for (size_t axis = 0; axis < 3 && !nodes.empty(); ++axis)
    {
        set.center[axis] = sum[Eigen::Index(axis)] / double(nodes.size());
        set.from[axis] = around.min()[Eigen::Index(axis)];
        set.to[axis] = around.max()[Eigen::Index(axis)];
    }
    return set;
}

std::vector<NodeSet> list_sets(Source& source, Progress& progress)
{
    const Model model = source.read_model(progress);
    std::vector<NodeSet> sets;
    for (const auto& [name, nodes] : model.node_sets)
        sets.push_back(listed(model.mesh, name, nodes));
    for (const Tie& tie : model.ties)
    {
        const int id = model.mesh.nodes[size_t(tie.reference)].id;
        sets.push_back(listed(model.mesh, "tie", tie.nodes));
        sets.back().reference = id;
    }
    return sets;
}

} // namespace zel_fem
