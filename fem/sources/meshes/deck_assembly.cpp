// Instances are put to their places and numbered, sections give their elements a density, and sets become nodes of the
// mesh.
#include <algorithm>
#include <numbers>
#include <set>

#include "fem/sources/meshes/deck_bodies.h"

namespace zel_fem::meshes
{

using Eigen::Vector3d;

namespace
{
class Assembly
{
public:
    Assembly(DeckBodies& deck, const CardReader& cards, MeshBuilder& builder)
        : deck_(deck), cards_(cards), builder_(builder)
    {}
    void run();

private:
    void place_instance(DeckInstance& instance) const;
    void number_nodes();
    template <typename Visit>
    void visit(const std::vector<Members>& members, DeckBody& here, std::map<int, int> DeckBody::*index, Visit visit);
    void apply_sections(DeckBody& body);
    void emit(DeckBody& body, int* next_element);
    void emit_sets(DeckBody& body, const std::string& prefix, const std::map<std::string, int>& owners);

    // The body that members in a set of `here` belong to.
    DeckBody& body_of(int instance, DeckBody& here)
    {
        return instance == kOwn ? here : deck_.instances[size_t(instance)].body;
    }

    DeckBodies& deck_;
    const CardReader& cards_;
    MeshBuilder& builder_;
};
} // namespace

static std::vector<double> reals_of(const DataLine& line, const Place& at, size_t count)
{
    std::vector<double> values;
    for (std::string_view field : split(line.text))
        if (!field.empty())
            values.push_back(parse_real(field, at));
    if (values.size() != count)
        throw InputError(at, "the position of an instance has " + std::to_string(count) + " numbers here, not " +
                                 std::to_string(values.size()));
    return values;
}

// First the translation, then the rotation about the axis through two points, in degrees by the right hand.
void Assembly::place_instance(DeckInstance& instance) const
{
    const auto& lines = instance.position;
    if (lines.size() > 2)
        throw InputError(cards_.place(lines[2]), "an instance has two lines for its position");
    if (lines.empty())
        return;
    const Vector3d shift = Vector3d::Map(reals_of(lines[0], cards_.place(lines[0]), 3).data());
    Vector3d origin = Vector3d::Zero();
    Eigen::Matrix3d turn = Eigen::Matrix3d::Identity();
    if (lines.size() == 2)
    {
        const std::vector<double> axis = reals_of(lines[1], cards_.place(lines[1]), 7);
        origin = Vector3d::Map(axis.data());
        const Vector3d along = Vector3d::Map(axis.data() + 3) - origin;
        if (!(along.norm() > 0.0))
            throw InputError(cards_.place(lines[1]), "the two points of the axis are one");
        turn = Eigen::AngleAxisd(axis[6] * std::numbers::pi / 180, along.normalized());
    }
    for (Node& node : instance.body.nodes)
        node.at = origin + turn * (node.at + shift - origin);
}

// A flat deck and a single instance keep their numbers; nodes of an assembly that collide with them come behind.
void Assembly::number_nodes()
{
    int64_t next = 1;
    auto number = [&](DeckBody& body, bool anew) {
        body.node_numbers.resize(body.nodes.size());
        for (const auto& [id, index] : body.node_index)
        {
            const int64_t given = anew ? next : id;
            if (given > std::numeric_limits<int>::max())
                throw InputError({cards_.files()[0], 0}, "there are too many nodes to number");
            body.node_numbers[size_t(index)] = int(given);
            next = std::max(next, given + 1);
        }
    };
    for (DeckInstance& instance : deck_.instances)
    {
        const int64_t first = next;
        number(instance.body, deck_.instances.size() > 1);
        if (deck_.instances.size() > 1)
            builder_.note("the nodes of instance " + instance.name + " are renumbered in the order of their ids, " +
                          std::to_string(first) + " to " + std::to_string(next - 1));
    }
    const bool collides =
        deck_.instances.size() > 1 ||
        std::any_of(deck_.instances.begin(), deck_.instances.end(), [this](const DeckInstance& instance) {
            return std::any_of(deck_.outside.nodes.begin(), deck_.outside.nodes.end(),
                               [&instance](const Node& node) { return instance.body.node_index.count(node.id) > 0; });
        });
    const int64_t first = next;
    number(deck_.outside, collides);
    if (collides && next > first)
        builder_.note("the nodes of the assembly are renumbered " + std::to_string(first) + " to " +
                      std::to_string(next - 1));
}

// Calls visit(body, index) for each member that is defined, and (body, -1) for a single one that is not.
template <typename Visit> void Assembly::visit(const std::vector<Members>& members, DeckBody& here,
                                               std::map<int, int> DeckBody::*index, Visit visit)
{
    for (const auto& [instance, ids] : members)
    {
        DeckBody& body = body_of(instance, here);
        const std::map<int, int>& defined = body.*index;
        const auto from = defined.lower_bound(ids.first);
        if (ids.first == ids.last && (from == defined.end() || from->first != ids.first))
            visit(body, -1);
        for (auto at = from; at != defined.end() && at->first <= ids.last; ++at)
            if (ids.contains(at->first))
                visit(body, at->second);
    }
}

void Assembly::apply_sections(DeckBody& body)
{
    auto members_of = [&body](const Place& place, const std::string& name) -> const std::vector<Members>& {
        const auto found = body.element_sets.find(name);
        if (found == body.element_sets.end())
            throw InputError(place, "there is no element set named " + name);
        return found->second;
    };
    for (const DeckSection& section : body.sections)
    {
        const auto material = deck_.densities.find(section.material);
        visit(members_of(section.place, section.element_set), body, &DeckBody::element_index,
              [&](DeckBody& of, int index) {
                  if (index < 0)
                      return;
                  Element& element = of.elements[size_t(index)];
                  element.density = material == deck_.densities.end() ? kNoDensity : material->second;
                  element.thickness = is_shell(element.type->shape) ? section.thickness : 0.0;
              });
    }
    for (const PointMasses& masses : body.masses)
        visit(members_of(masses.place, masses.element_set), body, &DeckBody::element_index,
              [&](DeckBody& of, int index) {
                  if (index >= 0 && of.elements[size_t(index)].type->shape == Shape::point)
                      of.elements[size_t(index)].point_mass = masses.mass;
              });
}

// Gives nodes and elements to the mesh.
void Assembly::emit(DeckBody& body, int* next_element)
{
    for (size_t i = 0; i < body.nodes.size(); ++i)
        builder_.add_node(body.node_numbers[i], body.nodes[i].at, {cards_.files()[0], 0});
    for (Element& element : body.elements)
    {
        std::vector<int> nodes;
        for (int i = 0; i < node_count(element.type->shape); ++i)
        {
            int& node = element.nodes[size_t(i)];
            const auto found = body.node_index.find(node);
            if (found == body.node_index.end())
                throw InputError({cards_.files()[size_t(element.file)], element.line},
                                 "element " + std::to_string(element.id) + ": node " + std::to_string(node) +
                                     " is not defined");
            node = found->second;
            nodes.push_back(body.node_numbers[size_t(node)]);
        }
        Element& added = builder_.add_element(next_element ? (*next_element)++ : element.id, *element.type, nodes,
                                              element.file, element.line);
        added.density = element.density;
        added.thickness = element.thickness;
        added.point_mass = element.point_mass;
    }
}

// Sets of an instance are known by its name and theirs, and by theirs alone where nothing else has it.
void Assembly::emit_sets(DeckBody& body, const std::string& prefix, const std::map<std::string, int>& owners)
{
    auto add = [&](const std::string& name, std::vector<int>& numbers) {
        std::sort(numbers.begin(), numbers.end());
        numbers.erase(std::unique(numbers.begin(), numbers.end()), numbers.end());
        builder_.add_to_set(prefix + name, numbers);
        if (!prefix.empty() && owners.at(name) == 1)
            builder_.add_to_set(name, numbers);
    };
    for (const auto& [name, members] : body.node_sets)
    {
        std::vector<int> numbers;
        for (const auto& [instance, ids] : members)
            visit({{instance, ids}}, body, &DeckBody::node_index, [&numbers, &ids = ids](DeckBody& of, int index) {
                numbers.push_back(index >= 0 ? of.node_numbers[size_t(index)]
                                             : (ids.first > 0 ? -ids.first : ids.first));
            });
        add(name, numbers);
    }
    for (const Sets* sets : {&body.nodes_of_elements, &body.element_sets})
        for (const auto& [name, members] : *sets)
        {
            std::vector<int> numbers;
            visit(members, body, &DeckBody::element_index, [&numbers](DeckBody& of, int index) {
                if (index < 0)
                    return;
                const Element& element = of.elements[size_t(index)];
                for (int i = 0; i < node_count(element.type->shape); ++i)
                    numbers.push_back(of.node_numbers[size_t(element.nodes[size_t(i)])]);
            });
            if (sets == &body.nodes_of_elements || body.node_sets.count(name) == 0)
                add(name, numbers);
        }
}

void Assembly::run()
{
    for (DeckInstance& instance : deck_.instances)
        place_instance(instance);
    number_nodes();
    const bool renumber = deck_.instances.size() > 1 || (!deck_.instances.empty() && !deck_.outside.elements.empty());
    int next_element = 1;
    std::map<std::string, int> owners; // bodies that have a set of the name
    std::vector<std::pair<std::string, DeckBody*>> bodies;
    for (DeckInstance& instance : deck_.instances)
        bodies.push_back({instance.name + ".", &instance.body});
    bodies.push_back({"", &deck_.outside});
    for (auto& [prefix, body] : bodies)
    {
        apply_sections(*body);
        emit(*body, renumber ? &next_element : nullptr);
        std::set<std::string> names;
        for (const Sets* sets : {&body->node_sets, &body->nodes_of_elements, &body->element_sets})
            for (const auto& [name, members] : *sets)
                names.insert(name);
        for (const std::string& name : names)
            ++owners[name];
    }
    for (auto& [prefix, body] : bodies)
        emit_sets(*body, prefix, owners);
}

void assemble(DeckBodies& deck, const CardReader& cards, MeshBuilder& builder)
{
    Assembly(deck, cards, builder).run();
}

} // namespace zel_fem::meshes
