// Decks of CalculiX, Abaqus, and of generators that write for them: nodes, elements, sets, and what gives elements a
// density. A deck is flat or made of parts. A part is read as a body of its own; an instance is a copy of its part with
// what stands in the instance, put to its place; the assembly, or a flat deck, is the body outside of them. Sets and
// sections wait until all is read, as they may name what comes later. Constraints, loads and steps move no node and are
// passed over.
#include <algorithm>
#include <cctype>
#include <utility>

#include "fem/sources/meshes/deck_bodies.h"
#include "fem/sources/meshes/readers.h"

namespace zel_fem::meshes
{

// Letters behind these names choose integration, hybrid or modified formulations of the same geometry.
constexpr ElementType kDeckTypes[] = {
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
constexpr std::string_view kRefusedKeywords[] = {"SYSTEM",
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
                                                 "SYMMETRICMODELGENERATION"};
// So do these parameters of cards that are read.
constexpr std::string_view kRefusedParameters[] = {"INPUT",  "SYSTEM",         "LIBRARY",
                                                   "OFFSET", "NODALTHICKNESS", "SHELLTHICKNESS"};
// These give mass beside that of the elements.
constexpr std::string_view kHeavyKeywords[] = {"ROTARYINERTIA", "NONSTRUCTURALMASS", "SHELLGENERALSECTION",
                                               "BEAMGENERALSECTION"};

constexpr size_t kManyMembers = 1000;

// Of parts, instances and sets: case does not matter, and quotes allow blanks.
static std::string set_name(const std::string& text)
{
    const bool quoted = text.size() > 1 && text.front() == '"' && text.back() == '"';
    return capitals(quoted ? text.substr(1, text.size() - 2) : text);
}

namespace
{
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
    void end(const Card&) { current_ = &deck_.outside; }
    void node(const Card& card);
    void element(const Card& card);
    void skip_elements(const Card& card, const std::string& type);
    void node_set(const Card& card);
    void element_set(const Card& card);
    void add_set(const Card& card, const std::string& name, Sets DeckBody::*sets);
    void add_members(std::string_view field, const Place& at, int instance, Sets DeckBody::*sets,
                     std::vector<Members>& to);
    int instance_named(const std::string& name, const Place& at) const;
    void material(const Card& card) { material_ = capitals(cards_.required(card, "NAME")); }
    void density(const Card& card);
    void section(const Card& card);
    void mass(const Card& card);
    void step(const Card& card) { in_step_ = card.keyword == "STEP"; }

    // The body that members in a set of the current one belong to.
    DeckBody& body_of(int instance) { return instance == kOwn ? *current_ : deck_.instances[size_t(instance)].body; }

    CardReader cards_;
    Progress& progress_;
    MeshBuilder builder_{"CalculiX or Abaqus deck"};
    DeckBodies deck_;
    std::map<std::string, DeckBody> parts_;
    DeckBody* current_ = &deck_.outside;
    std::string material_; // the one that property cards speak of
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
    if (is_among(kRefusedKeywords, card.keyword))
        cards_.fail(card, card.shown + " cannot be read");
    if (is_among(kHeavyKeywords, card.keyword))
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
    deck_.instances.push_back({set_name(cards_.required(card, "NAME")), found->second, card.lines});
    current_ = &deck_.instances.back().body;
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
    const auto* found = std::find_if(std::begin(kDeckTypes), std::end(kDeckTypes), [&name](const ElementType& type) {
        const size_t letters = type.name.size();
        return name.starts_with(type.name) &&
               (name.find_first_of("0123456789", letters) == std::string::npos || name.substr(letters) == "R5");
    });
    return found == std::end(kDeckTypes) ? nullptr : found;
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
            .id = numbers[0], .type = type, .density = kNoDensity, .file = card.file, .line = int(start.line)};
        std::copy(numbers.begin() + 1, numbers.end(), element.nodes.begin());
        if (type->shape == Shape::line3)
            std::swap(element.nodes[1], element.nodes[2]); // programs have its middle between its ends
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
    for (size_t i = 0; i < deck_.instances.size(); ++i)
        if (deck_.instances[i].name == name)
            return int(i);
    throw InputError(at, "there is no instance named " + name);
}

// A number, the name of a set, or either behind the name of an instance and a point.
void MeshDeckReader::add_members(std::string_view field, const Place& at, int instance, Sets DeckBody::*sets,
                                 std::vector<Members>& to)
{
    if (is_number(field))
    {
        const int id = parse_int(field, at);
        return to.push_back({instance, {id, id, 1}});
    }
    const std::string name = set_name(std::string(field));
    const Sets& known = body_of(instance).*sets;
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

void MeshDeckReader::add_set(const Card& card, const std::string& name, Sets DeckBody::*sets)
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
        return add_set(card, name, &DeckBody::node_sets);
    add_members(card.parameters.at("ELSET"), cards_.place(card), kOwn, &DeckBody::element_sets,
                current_->nodes_of_elements[name]);
}

void MeshDeckReader::element_set(const Card& card)
{
    add_set(card, set_name(cards_.required(card, "ELSET")), &DeckBody::element_sets);
}

// A density that depends on temperature is none.
void MeshDeckReader::density(const Card& card)
{
    if (card.lines.empty())
        cards_.fail(card, card.shown + " without a value");
    double value = kNoDensity;
    for (const DataLine& line : card.lines)
    {
        const double given = parse_real(split(line.text)[0], cards_.place(line));
        if (given < 0.0)
            throw InputError(cards_.place(line), "the density is negative");
        value = &line == &card.lines[0] || value == given ? given : kNoDensity;
    }
    deck_.densities[material_] = value;
}

void MeshDeckReader::section(const Card& card)
{
    DeckSection section{cards_.place(card), set_name(cards_.required(card, "ELSET")), "", 0.0};
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
    assemble(deck_, cards_, builder_);
    MeshFile file = builder_.finish();
    if (!deck_.instances.empty())
        file.format = "Abaqus deck";
    return file;
}

MeshFile read_deck(const std::string& path, Progress& progress)
{
    return MeshDeckReader(path, progress).read();
}

} // namespace zel_fem::meshes
