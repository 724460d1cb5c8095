// Decks of CalculiX, Abaqus, and of generators that write for them: nodes, elements, sets, and what gives elements a density. A
// deck is flat or made of parts. A part is read as a body of its own; an instance is a copy of its part with what stands in the
// instance, put to its place; the assembly, or a flat deck, is the body outside of them. Sets and sections wait until all is
// read, as they may name what comes later. Constraints, loads and steps move no node and are passed over.
#include <algorithm>
#include <cmath>
#include <deque>
#include <limits>
#include <numbers>

#include "fem/sources/cards.h"
#include "fem/sources/meshes/builder.h"
#include "fem/sources/meshes/readers.h"

namespace zel_fem::meshes
{

using Eigen::Vector3d;

// Letters behind these names choose integration, hybrid or modified formulations of the same geometry.
constexpr ElementType kTypes[] = {
    {"C3D4", Shape::tet4, 0, 4},   {"C3D6", Shape::wedge6, 0, 4},   {"C3D8", Shape::hex8, 0, 4},
    {"C3D10", Shape::tet10, 0, 4}, {"C3D15", Shape::wedge15, 0, 4}, {"C3D20", Shape::hex20, 0, 4},
    {"SC6", Shape::wedge6, 0, 4},  {"SC8", Shape::hex8, 0, 4},      {"S3", Shape::tri3, 0, 4},
    {"S4", Shape::quad4, 0, 4},    {"S6", Shape::tri6, 0, 4},       {"S8", Shape::quad8, 0, 4},
    {"STRI3", Shape::tri3, 0, 4},  {"STRI65", Shape::tri6, 0, 4},   {"M3D3", Shape::tri3, 0, 4},
    {"M3D4", Shape::quad4, 0, 4},  {"M3D6", Shape::tri6, 0, 4},     {"M3D8", Shape::quad8, 0, 4},
    {"CPS3", Shape::tri3, 0, 4},   {"CPS4", Shape::quad4, 0, 4},    {"CPS6", Shape::tri6, 0, 4},
    {"CPS8", Shape::quad8, 0, 4},  {"CPE3", Shape::tri3, 0, 4},     {"CPE4", Shape::quad4, 0, 4},
    {"CPE6", Shape::tri6, 0, 4},   {"CPE8", Shape::quad8, 0, 4},    {"T3D2", Shape::line2, 0, 4},
    {"T3D3", Shape::line3, 0, 4},  {"B31", Shape::line2, 0, 4},     {"B32", Shape::line3, 0, 4},
    {"B33", Shape::line2, 0, 4},   {"MASS", Shape::point, 0, 0},
};
constexpr std::string_view kMassless[] = {"SPRING", "DASHPOT", "CONN", "GAP", "DGAP", "ITS", "DCOUP", "SFM3D", "R3D"};
// These make or move nodes by rules of their own, turn the directions of rows, or put the material of shells elsewhere.
constexpr std::string_view kRefused[] = {
    "SYSTEM",
    "NGEN",
    "NFILL",
    "NCOPY",
    "NMAP",
    "ELGEN",
    "ELCOPY",
    "PARAMETER",
    "TRANSFORM",
    "NODALTHICKNESS",
    "IMPERFECTION",
    "IMPORT",
    "SYMMETRICMODELGENERATION",
};
// So do these parameters of cards that are read.
constexpr std::string_view kRefusedParameters[] = {"INPUT",  "SYSTEM",         "LIBRARY",
                                                   "OFFSET", "NODALTHICKNESS", "SHELLTHICKNESS"};
// These give mass beside that of the elements.
constexpr std::string_view kHeavy[] = {"ROTARYINERTIA", "NONSTRUCTURALMASS", "SHELLGENERALSECTION",
                                       "BEAMGENERALSECTION"};

constexpr int kOwn = -1; // no instance
constexpr size_t kManyMembers = 1000;
constexpr double kUnknown = std::numeric_limits<double>::quiet_NaN();

// Of parts, instances and sets: case does not matter, and quotes allow blanks.
static std::string set_name(const std::string& text)
{
    const bool quoted = text.size() > 1 && text.front() == '"' && text.back() == '"';
    return capitals(quoted ? text.substr(1, text.size() - 2) : text);
}

namespace
{
struct Members
{
    int instance;
    Range ids;

    auto operator<=>(const Members&) const = default;
};
using Sets = std::map<std::string, std::vector<Members>>;

struct Section
{
    Place place;
    std::string element_set, material;
    double thickness;
};

struct PointMasses
{
    Place place;
    std::string element_set;
    double mass;
};

struct Body
{
    std::vector<Node> nodes;
    std::vector<Element> elements; // their nodes are ids until they are given to the mesh, then indexes
    std::map<int, int> node_index, element_index;
    Sets node_sets, element_sets, nodes_of_elements; // the last: node sets by elements
    std::vector<Section> sections;
    std::vector<PointMasses> masses;
    std::vector<int> node_numbers; // in the mesh, by index
};

struct Instance
{
    std::string name;
    Body body;
    std::vector<DataLine> position;
};

class MeshDeckReader
{
public:
    MeshDeckReader(const std::string& path, Progress& progress) : cards_(path), progress_(progress) {}
    MeshFile read();

private:
    using Handler = void (MeshDeckReader::*)(const Card&);
    struct Row
    {
        const char* keyword;
        Handler handler;
    };
    static const Row kRows[];

    void handle(const Card& card);
    void check_parameters(const Card& card) const;
    void skip(const Card& card);
    void pass(const Card&) {}
    void heading(const Card& card);
    void part(const Card& card) { current_ = &parts_[set_name(cards_.required(card, "NAME"))]; }
    void instance(const Card& card);
    void end(const Card&) { current_ = &outside_; }
    void node(const Card& card);
    void element(const Card& card);
    void skip_elements(const Card& card, const std::string& type);
    void node_set(const Card& card);
    void element_set(const Card& card);
    void add_set(const Card& card, const std::string& name, Sets Body::*sets);
    void add_members(std::string_view field, const Place& at, int instance, Sets Body::*sets, std::vector<Members>& to);
    int instance_named(const std::string& name, const Place& at) const;
    void material(const Card& card) { material_ = capitals(cards_.required(card, "NAME")); }
    void density(const Card& card);
    void section(const Card& card);
    void mass(const Card& card);
    void step(const Card& card) { in_step_ = card.keyword == "STEP"; }

    void place_instance(Instance& instance) const;
    void number_nodes();
    template <typename Visit>
    void visit(const std::vector<Members>& members, Body& here, std::map<int, int> Body::*index, Visit visit);
    void apply_sections(Body& body);
    void emit(Body& body, int* next_element);
    void emit_sets(Body& body, const std::string& prefix, const std::map<std::string, int>& owners);

    // The body that members in a set of `here` belong to.
    Body& body_of(int instance, Body& here) { return instance == kOwn ? here : instances_[size_t(instance)].body; }

    CardReader cards_;
    Progress& progress_;
    MeshBuilder builder_{"CalculiX or Abaqus deck"};
    std::string title_;
    Body outside_;
    std::map<std::string, Body> parts_;
    std::deque<Instance> instances_;
    Body* current_ = &outside_;
    std::map<std::string, double> densities_; // by material
    std::string material_;                    // the one that property cards speak of
    bool in_step_ = false;
};
} // namespace

const MeshDeckReader::Row MeshDeckReader::kRows[] = {
    {"HEADING", &MeshDeckReader::heading},
    {"PREPRINT", &MeshDeckReader::pass},
    {"PART", &MeshDeckReader::part},
    {"ENDPART", &MeshDeckReader::end},
    {"ASSEMBLY", &MeshDeckReader::end},
    {"ENDASSEMBLY", &MeshDeckReader::pass},
    {"INSTANCE", &MeshDeckReader::instance},
    {"ENDINSTANCE", &MeshDeckReader::end},
    {"NODE", &MeshDeckReader::node},
    {"ELEMENT", &MeshDeckReader::element},
    {"NSET", &MeshDeckReader::node_set},
    {"ELSET", &MeshDeckReader::element_set},
    {"MATERIAL", &MeshDeckReader::material},
    {"DENSITY", &MeshDeckReader::density},
    {"SOLIDSECTION", &MeshDeckReader::section},
    {"SHELLSECTION", &MeshDeckReader::section},
    {"MEMBRANESECTION", &MeshDeckReader::section},
    {"MASS", &MeshDeckReader::mass},
};

template <typename Names> static bool is_among(const Names& names, std::string_view name)
{
    return std::find(std::begin(names), std::end(names), name) != std::end(names);
}

bool is_deck(std::string_view line)
{
    return line.size() > 1 && line[0] == '*' && (line[1] == '*' || std::isalpha(static_cast<unsigned char>(line[1])));
}

// Steps are skipped whole.
void MeshDeckReader::handle(const Card& card)
{
    if (card.keyword == "STEP" || card.keyword == "ENDSTEP")
        step(card);
    if (card.keyword == "STEP")
        builder_.skip("steps");
    if (in_step_ || card.keyword == "ENDSTEP")
        return;
    for (const Row& row : kRows)
        if (card.keyword == row.keyword)
        {
            check_parameters(card);
            return (this->*row.handler)(card);
        }
    skip(card);
}

void MeshDeckReader::check_parameters(const Card& card) const
{
    for (const auto& [name, value] : card.parameters)
        if (is_among(kRefusedParameters, name) && !(name == "SYSTEM" && capitals(value) == "R") &&
            !(name == "OFFSET" && is_number(value) && parse_int(value, cards_.place(card)) == 0))
            cards_.fail(card, card.shown + " with " + name + " cannot be read");
}

void MeshDeckReader::skip(const Card& card)
{
    if (is_among(kRefused, card.keyword))
        cards_.fail(card, card.shown + " cannot be read");
    if (is_among(kHeavy, card.keyword))
        builder_.leave_density(card.shown + " gives mass beside the elements");
    builder_.skip(capitals(card.shown));
}

void MeshDeckReader::heading(const Card& card)
{
    if (!card.lines.empty())
        builder_.set_title(card.lines[0].text);
}

void MeshDeckReader::instance(const Card& card)
{
    const auto found = parts_.find(set_name(cards_.required(card, "PART")));
    if (found == parts_.end())
        cards_.fail(card, "there is no part named " + cards_.required(card, "PART"));
    instances_.push_back({set_name(cards_.required(card, "NAME")), found->second, card.lines});
    current_ = &instances_.back().body;
}

void MeshDeckReader::node(const Card& card)
{
    for (const DataLine& line : card.lines)
    {
        const Node node = cards_.node(line);
        const auto [slot, added] = current_->node_index.try_emplace(node.id, int(current_->nodes.size()));
        if (added)
            current_->nodes.push_back(node);
        else
            current_->nodes[size_t(slot->second)] = node; // a later definition replaces the earlier one
        if (card.has("NSET"))
            current_->node_sets[set_name(card.parameters.at("NSET"))].push_back({kOwn, {node.id, node.id, 1}});
    }
}

static const ElementType* find_type(const std::string& name)
{
    const auto* found = std::find_if(std::begin(kTypes), std::end(kTypes), [&name](const ElementType& type) {
        const size_t letters = type.name.size();
        return name.starts_with(type.name) &&
               (name.find_first_of("0123456789", letters) == std::string::npos || name.substr(letters) == "R5");
    });
    return found == std::end(kTypes) ? nullptr : found;
}

// Elements that draw nothing. Those of springs, contacts and the like have no mass; others may have.
void MeshDeckReader::skip_elements(const Card& card, const std::string& type)
{
    const bool massless = std::any_of(std::begin(kMassless), std::end(kMassless),
                                      [&type](std::string_view begin) { return type.starts_with(begin); });
    if (!massless)
        builder_.leave_density("elements of type " + type + " are not read");
    for (const DataLine& line : card.lines)
        if (line.text.back() != ',')
            builder_.skip("elements of type " + type);
}

void MeshDeckReader::element(const Card& card)
{
    const std::string name = capitals(cards_.required(card, "TYPE"));
    const ElementType* type = find_type(name);
    // an element of the assembly names its nodes as INSTANCE.7
    if (!type || (!card.lines.empty() && card.lines[0].text.find('.') != std::string::npos))
        return skip_elements(card, name);
    const bool is_line = type->shape == Shape::line2 || type->shape == Shape::line3;
    if (is_line)
        builder_.leave_density("elements of type " + name + " are lines");
    const size_t count = size_t(node_count(type->shape));
    for (size_t l = 0; l < card.lines.size();)
    {
        const Place start = cards_.place(card.lines[l]);
        std::vector<int> numbers = cards_.element(card, l, int(count));
        if (is_line && numbers.size() > count + 1)
            numbers.resize(count + 1); // a node that gives the direction of the section follows
        if (numbers.size() != count + 1)
            throw InputError(start, "an element of type " + name + " has " + std::to_string(count) + " nodes, not " +
                                        std::to_string(numbers.size() - 1));
        Element element{
            .id = numbers[0], .type = type, .density = kUnknown, .file = card.file, .line = int(start.line)};
        std::copy(numbers.begin() + 1, numbers.end(), element.nodes.begin());
        if (!current_->element_index.try_emplace(element.id, int(current_->elements.size())).second)
            throw InputError(start, "element " + std::to_string(element.id) + " is defined twice");
        current_->elements.push_back(element);
        if (card.has("ELSET"))
            current_->element_sets[set_name(card.parameters.at("ELSET"))].push_back(
                {kOwn, {element.id, element.id, 1}});
    }
}

int MeshDeckReader::instance_named(const std::string& name, const Place& at) const
{
    for (size_t i = 0; i < instances_.size(); ++i)
        if (instances_[i].name == name)
            return int(i);
    throw InputError(at, "there is no instance named " + name);
}

// A number, the name of a set, or either behind the name of an instance and a point.
void MeshDeckReader::add_members(std::string_view field, const Place& at, int instance, Sets Body::*sets,
                                 std::vector<Members>& to)
{
    if (is_number(field))
    {
        const int id = parse_int(field, at);
        return to.push_back({instance, {id, id, 1}});
    }
    const std::string name = set_name(std::string(field));
    const Sets& known = body_of(instance, *current_).*sets;
    const auto found = known.find(name);
    if (found != known.end())
    {
        const std::vector<Members> members = found->second; // it may be the set that grows
        for (const Members& member : members)
            to.push_back({instance == kOwn ? member.instance : instance, member.ids});
        return;
    }
    const size_t point = name.find('.');
    if (instance != kOwn || point == std::string::npos)
        throw InputError(at, "there is no set named " + std::string(field));
    add_members(std::string_view(name).substr(point + 1), at, instance_named(name.substr(0, point), at), sets, to);
}

static size_t sort_out(std::vector<Members>& members)
{
    std::sort(members.begin(), members.end());
    members.erase(std::unique(members.begin(), members.end()), members.end());
    return members.size();
}

void MeshDeckReader::add_set(const Card& card, const std::string& name, Sets Body::*sets)
{
    const int instance =
        card.has("INSTANCE") ? instance_named(set_name(card.parameters.at("INSTANCE")), cards_.place(card)) : kOwn;
    std::vector<Members> members = (current_->*sets)[name];
    size_t room = 2 * members.size() + kManyMembers;
    for (const DataLine& line : card.lines)
        for (std::string_view field : split(line.text))
        {
            if (card.has("GENERATE"))
            {
                members.push_back({instance, cards_.range(line)});
                break;
            }
            if (!field.empty())
                add_members(field, cards_.place(line), instance, sets, members);
            if (members.size() > room) // sets that name each other again and again do not fill the memory
                room = 2 * sort_out(members) + kManyMembers;
        }
    sort_out(members);
    (current_->*sets)[name] = std::move(members);
}

void MeshDeckReader::node_set(const Card& card)
{
    const std::string name = set_name(cards_.required(card, "NSET"));
    if (!card.has("ELSET"))
        return add_set(card, name, &Body::node_sets);
    add_members(card.parameters.at("ELSET"), cards_.place(card), kOwn, &Body::element_sets,
                current_->nodes_of_elements[name]);
}

void MeshDeckReader::element_set(const Card& card)
{
    add_set(card, set_name(cards_.required(card, "ELSET")), &Body::element_sets);
}

// A density that depends on temperature is none.
void MeshDeckReader::density(const Card& card)
{
    if (card.lines.empty())
        cards_.fail(card, card.shown + " without a value");
    double value = kUnknown;
    for (const DataLine& line : card.lines)
    {
        const double given = parse_real(split(line.text)[0], cards_.place(line));
        if (given < 0.0)
            throw InputError(cards_.place(line), "the density is negative");
        value = &line == &card.lines[0] || value == given ? given : kUnknown;
    }
    densities_[material_] = value;
}

void MeshDeckReader::section(const Card& card)
{
    Section section{cards_.place(card), set_name(cards_.required(card, "ELSET")), "", 0.0};
    if (card.has("MATERIAL"))
        section.material = capitals(card.parameters.at("MATERIAL"));
    if (card.keyword != "SOLIDSECTION" && !card.has("COMPOSITE") && !card.lines.empty())
    {
        const Place at = cards_.place(card.lines[0]);
        section.thickness = parse_real(split(card.lines[0].text)[0], at);
        if (!(section.thickness > 0.0))
            throw InputError(at, "the thickness is not positive");
    }
    current_->sections.push_back(section);
}

void MeshDeckReader::mass(const Card& card)
{
    if (card.lines.empty())
        cards_.fail(card, card.shown + " without a value");
    const Place at = cards_.place(card.lines[0]);
    current_->masses.push_back(
        {at, set_name(cards_.required(card, "ELSET")), parse_real(split(card.lines[0].text)[0], at)});
    if (current_->masses.back().mass < 0.0)
        throw InputError(at, "the mass is negative");
}

// ---- All is read -------------------------------------------------------------------------------------------------------

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
void MeshDeckReader::place_instance(Instance& instance) const
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
void MeshDeckReader::number_nodes()
{
    int64_t next = 1;
    auto number = [&](Body& body, bool anew) {
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
    for (Instance& instance : instances_)
    {
        const int64_t first = next;
        number(instance.body, instances_.size() > 1);
        if (instances_.size() > 1)
            builder_.note("the nodes of instance " + instance.name + " are renumbered in the order of their ids, " +
                          std::to_string(first) + " to " + std::to_string(next - 1));
    }
    const bool collides =
        instances_.size() > 1 || std::any_of(instances_.begin(), instances_.end(), [this](const Instance& instance) {
            return std::any_of(outside_.nodes.begin(), outside_.nodes.end(),
                               [&instance](const Node& node) { return instance.body.node_index.count(node.id) > 0; });
        });
    const int64_t first = next;
    number(outside_, collides);
    if (collides && next > first)
        builder_.note("the nodes of the assembly are renumbered " + std::to_string(first) + " to " +
                      std::to_string(next - 1));
}

// Calls visit(body, index) for each member that is defined, and (body, -1) for a single one that is not.
template <typename Visit> void MeshDeckReader::visit(const std::vector<Members>& members, Body& here,
                                                     std::map<int, int> Body::*index, Visit visit)
{
    for (const auto& [instance, ids] : members)
    {
        Body& body = body_of(instance, here);
        const std::map<int, int>& defined = body.*index;
        const auto from = defined.lower_bound(ids.first);
        if (ids.first == ids.last && (from == defined.end() || from->first != ids.first))
            visit(body, -1);
        for (auto at = from; at != defined.end() && at->first <= ids.last; ++at)
            if (ids.contains(at->first))
                visit(body, at->second);
    }
}

void MeshDeckReader::apply_sections(Body& body)
{
    auto members_of = [&body](const Place& place, const std::string& name) -> const std::vector<Members>& {
        const auto found = body.element_sets.find(name);
        if (found == body.element_sets.end())
            throw InputError(place, "there is no element set named " + name);
        return found->second;
    };
    for (const Section& section : body.sections)
    {
        const auto material = densities_.find(section.material);
        visit(members_of(section.place, section.element_set), body, &Body::element_index, [&](Body& of, int index) {
            if (index < 0)
                return;
            Element& element = of.elements[size_t(index)];
            element.density = material == densities_.end() ? kUnknown : material->second;
            element.thickness = is_shell(element.type->shape) ? section.thickness : 0.0;
        });
    }
    for (const PointMasses& masses : body.masses)
        visit(members_of(masses.place, masses.element_set), body, &Body::element_index, [&](Body& of, int index) {
            if (index >= 0 && of.elements[size_t(index)].type->shape == Shape::point)
                of.elements[size_t(index)].point_mass = masses.mass;
        });
}

// Gives nodes and elements to the mesh.
void MeshDeckReader::emit(Body& body, int* next_element)
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
void MeshDeckReader::emit_sets(Body& body, const std::string& prefix, const std::map<std::string, int>& owners)
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
            visit({{instance, ids}}, body, &Body::node_index, [&numbers, &ids = ids](Body& of, int index) {
                numbers.push_back(index < 0 ? -std::abs(ids.first) : of.node_numbers[size_t(index)]);
            });
        add(name, numbers);
    }
    for (const Sets* sets : {&body.nodes_of_elements, &body.element_sets})
        for (const auto& [name, members] : *sets)
        {
            std::vector<int> numbers;
            visit(members, body, &Body::element_index, [&numbers](Body& of, int index) {
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

MeshFile MeshDeckReader::read()
{
    Card card;
    while (cards_.next(card))
    {
        progress_.advance(cards_.share_read());
        handle(card);
    }
    for (const std::string& file : cards_.files())
        builder_.add_file(file);
    for (Instance& instance : instances_)
        place_instance(instance);
    number_nodes();
    const bool renumber = instances_.size() > 1 || (!instances_.empty() && !outside_.elements.empty());
    int next_element = 1;
    std::map<std::string, int> owners; // bodies that have a set of the name
    std::vector<std::pair<std::string, Body*>> bodies;
    for (Instance& instance : instances_)
        bodies.push_back({instance.name + ".", &instance.body});
    bodies.push_back({"", &outside_});
    for (auto& [prefix, body] : bodies)
    {
        apply_sections(*body);
        emit(*body, renumber ? &next_element : nullptr);
        std::map<std::string, int> names;
        for (const Sets* sets : {&body->node_sets, &body->nodes_of_elements, &body->element_sets})
            for (const auto& [name, members] : *sets)
                names[name] = 1;
        for (const auto& [name, one] : names)
            owners[name] += one;
    }
    for (auto& [prefix, body] : bodies)
        emit_sets(*body, prefix, owners);
    MeshFile file = builder_.finish();
    if (!instances_.empty())
        file.format = "Abaqus deck";
    return file;
}

MeshFile read_deck(const std::string& path, Progress& progress)
{
    return MeshDeckReader(path, progress).read();
}

} // namespace zel_fem::meshes
