// A deck is a sequence of cards: a keyword line with parameters, then its data lines. Cards are read whole and handed to the
// row of a table; references to sets, materials and nodes that may come later are resolved at the end. As in the solver,
// blanks and case do not matter, "**" starts a comment, and a set may be extended by later cards.
#include "fem/sources/ccx/deck.h"

#include <algorithm>
#include <filesystem>
#include <functional>
#include <memory>
#include <set>

#include "fem/sources/cards.h"
#include "fem/sources/ccx/beams.h"
#include "fem/sources/ccx/element_types.h"
#include "fem/sources/ccx/materials.h"
#include "fem/sources/ccx/trusses.h"

namespace zel_fem::ccx
{

struct Section
{
    Place place;
    std::string element_set, material, orientation;
    double thickness = 0.0, width = 0.0;
    Eigen::Vector3d axis = Eigen::Vector3d::Zero();
    double area = 0.0;                   // of trusses
    std::vector<std::string> plies = {}; // materials of a composite shell
};

struct Material
{
    double density = 0.0;
    bool has_density = false;
};

class DeckReader
{
public:
    explicit DeckReader(const std::string& path) : cards_(path) {}
    Deck read();

private:
    using Handler = void (DeckReader::*)(const Card&);
    struct Row
    {
        const char* keyword;
        Handler handler;
    };
    static const Row kRows[];

    void handle(const Card& card);

    void heading(const Card& card);
    void node(const Card& card);
    void element(const Card& card);
    void node_set(const Card& card) { add_set(card, "NSET", deck_.node_sets, deck_.node_index); }
    void element_set(const Card& card) { add_set(card, "ELSET", deck_.element_sets, element_index_); }
    void surface(const Card& card);
    void material(const Card& card) { materials_[material_ = capitals(required(card, "NAME"))]; }
    void density(const Card& card);
    void elastic(const Card& card) { elasticities_.elastic(material_, card); }
    void orientation(const Card& card) { elasticities_.orientation(card); }
    void section(const Card& card);
    void beam_section(const Card& card, Section& section) const;
    void plies(const Card& card, Section& section) const;
    void mass(const Card& card);
    void rigid_body(const Card& card);
    void coupling(const Card& card);
    void kinematic(const Card& card);
    void distributing(const Card& card);
    void step(const Card& card);
    void frequency(const Card& card);
    void static_step(const Card& card);
    void boundary(const Card& card);
    // Takes the fields of a data line and the members that it names.
    using LoadTaker = std::function<void(const std::vector<std::string_view>&, std::vector<int>&, const Place&)>;
    void each_load(const Card& card, const char* what, const std::map<std::string, std::vector<int>>& sets,
                   const std::unordered_map<int, int>& defined, const LoadTaker& take);
    void concentrated(const Card& card);
    void distributed(const Card& card);
    void distribute(const std::string& label, const std::vector<std::string_view>& fields,
                    const std::vector<int>& elements, const Place& at);
    void leave_out(const Card& card) { loads_.leave_out(card.keyword, place(card), card.shown); }
    void refuse(const Card& card);
    void equation(const Card& card);
    void transform(const Card& card);
    void surface_tie(const Card& card);
    void spring(const Card& card);
    void dashpot(const Card& card);
    void mpc(const Card& card)
    {
        leave_to_results(card, card.shown +
                                   " is not linear, and the solver stores matrices of it that are no numbers or that "
                                   "nothing proves");
    }

    Place place(const Card& card) const { return cards_.place(card); }
    Place place(const DataLine& line) const { return cards_.place(line); }
    void note(const Place& at, const std::string& what) { deck_.notes.push_back(InputError(at, what).what()); }
    [[noreturn]] void fail(const Card& card, const std::string& what) const { cards_.fail(card, what); }
    void leave_to_results(const Card& card, const std::string& why)
    {
        deck_.results_only.emplace_back(place(card), why + ": take the modes of *NODE FILE, U (route results)");
    }
    const std::string& required(const Card& card, const std::string& name) const { return cards_.required(card, name); }
    void add_set(const Card& card, const char* parameter, std::map<std::string, std::vector<int>>& sets,
                 const std::unordered_map<int, int>& defined);
    void append_members(std::string_view field, const Place& at, const char* what,
                        const std::map<std::string, std::vector<int>>& sets,
                        const std::unordered_map<int, int>& defined, std::vector<int>& members);
    const std::vector<int>& set_named(const Place& at, const std::string& name, const char* what,
                                      const std::map<std::string, std::vector<int>>& sets) const;
    const Element& element_with(int id) const { return deck_.mesh.elements[size_t(element_index_.at(id))]; }
    void check_tie(const Tie& tie) const;
    void resolve();
    void resolve_unknown();
    void resolve_nodes();
    void apply_sections();
    void sort_nodes();

    CardReader cards_;
    Deck deck_;
    std::unordered_map<int, int> element_index_;
    std::map<std::string, Material> materials_;
    std::string material_; // the one that property cards speak of
    Materials elasticities_;
    std::vector<Section> sections_;
    LoadHistory loads_;
    std::set<int> constrained_;                  // ids of nodes in equations
    bool preloaded_ = false;                     // a step is a perturbation of an earlier one
    std::unique_ptr<Tie> coupling_;              // waits for its *KINEMATIC
    std::vector<std::pair<Place, int>> unknown_; // nodes that were named before they were defined, if they are at all
};

// A number of a data line; those that are left out are zero.
static double number_at(const std::vector<std::string_view>& fields, size_t i, const Place& at)
{
    return i < fields.size() && !fields[i].empty() ? parse_real(fields[i], at) : 0.0;
}

const DeckReader::Row DeckReader::kRows[] = {
    {"HEADING", &DeckReader::heading},
    {"NODE", &DeckReader::node},
    {"ELEMENT", &DeckReader::element},
    {"NSET", &DeckReader::node_set},
    {"ELSET", &DeckReader::element_set},
    {"SURFACE", &DeckReader::surface},
    {"MATERIAL", &DeckReader::material},
    {"DENSITY", &DeckReader::density},
    {"ELASTIC", &DeckReader::elastic},
    {"ORIENTATION", &DeckReader::orientation},
    {"SOLIDSECTION", &DeckReader::section},
    {"SHELLSECTION", &DeckReader::section},
    {"BEAMSECTION", &DeckReader::section},
    {"BEAMGENERALSECTION", &DeckReader::refuse},
    {"MASS", &DeckReader::mass},
    {"SPRING", &DeckReader::spring},
    {"DASHPOT", &DeckReader::dashpot},
    {"RIGIDBODY", &DeckReader::rigid_body},
    {"COUPLING", &DeckReader::coupling},
    {"KINEMATIC", &DeckReader::kinematic},
    {"DISTRIBUTING", &DeckReader::distributing},
    {"DISTRIBUTINGCOUPLING", &DeckReader::distributing},
    {"STEP", &DeckReader::step},
    {"FREQUENCY", &DeckReader::frequency},
    {"STATIC", &DeckReader::static_step},
    {"BOUNDARY", &DeckReader::boundary},
    {"CLOAD", &DeckReader::concentrated},
    {"DLOAD", &DeckReader::distributed},
    {"DSLOAD", &DeckReader::leave_out},
    {"TEMPERATURE", &DeckReader::leave_out},
    {"MODELCHANGE", &DeckReader::leave_out},
    {"NODALTHICKNESS", &DeckReader::refuse},
    {"NORMAL", &DeckReader::refuse},
    {"EQUATION", &DeckReader::equation},
    {"MPC", &DeckReader::mpc},
    {"TRANSFORM", &DeckReader::transform},
    {"TIE", &DeckReader::surface_tie},
    {"CYCLICSYMMETRYMODEL", &DeckReader::refuse},
    {"PRE-TENSIONSECTION", &DeckReader::refuse},
    {"SUBMODEL", &DeckReader::refuse},
};

Deck DeckReader::read()
{
    Card card;
    while (cards_.next(card))
        handle(card);
    deck_.mesh.files = cards_.files();
    resolve();
    return std::move(deck_);
}

void DeckReader::handle(const Card& card)
{
    if (coupling_ && card.keyword != "KINEMATIC" && card.keyword != "DISTRIBUTING")
        throw InputError(coupling_->place, "*COUPLING without *KINEMATIC");
    if (is_nonlinear(card.keyword))
        elasticities_.nonlinear(material_, card);
    for (const Row& row : kRows)
        if (card.keyword == row.keyword)
            return (this->*row.handler)(card);
}

void DeckReader::heading(const Card& card)
{
    if (!card.lines.empty() && deck_.heading.empty())
        deck_.heading = card.lines[0].text;
}

void DeckReader::node(const Card& card)
{
    std::vector<int> ids;
    for (const DataLine& line : card.lines)
    {
        const Node node = cards_.node(line);
        const auto [slot, added] = deck_.node_index.try_emplace(node.id, int(deck_.mesh.nodes.size()));
        if (added)
            deck_.mesh.nodes.push_back(node);
        else
            deck_.mesh.nodes[size_t(slot->second)] = node; // a later definition replaces the earlier one
        ids.push_back(node.id);
    }
    if (card.has("NSET"))
    {
        auto& set = deck_.node_sets[capitals(card.parameters.at("NSET"))];
        set.insert(set.end(), ids.begin(), ids.end());
        std::sort(set.begin(), set.end());
        set.erase(std::unique(set.begin(), set.end()), set.end());
    }
}

void DeckReader::element(const Card& card)
{
    const std::string name = capitals(required(card, "TYPE"));
    const ElementType* type = find_element_type(name);
    if (name == "SPRING1" || name == "DASHPOT1")
        fail(card, "an element of type " + name +
                       " holds a node to the ground, and a body moves freely: leave supports to the "
                       "multibody model");
    if (!type)
        fail(card, "elements of type " + name + " cannot be imported");
    const int count = node_count(type->shape);
    std::vector<int> ids;
    for (size_t l = 0; l < card.lines.size();)
    {
        const Place start = place(card.lines[l]);
        const std::vector<int> numbers = cards_.element(card, l, count);
        if (int(numbers.size()) > count + 1)
            note(start,
                 "an element of type " + name + " has " + std::to_string(count) + " nodes: the others are left out");
        else if (int(numbers.size()) != count + 1)
            throw InputError(start, "an element of type " + name + " has " + std::to_string(count) + " nodes, not " +
                                        std::to_string(numbers.size() - 1));
        Element element;
        element.id = numbers[0];
        element.type = type;
        std::copy_n(numbers.begin() + 1, count, element.nodes.begin());
        if (type->shape == Shape::line3) // in decks the middle comes second
            std::swap(element.nodes[1], element.nodes[2]);
        element.file = card.file;
        element.line = int(start.line);
        if (!element_index_.try_emplace(element.id, int(deck_.mesh.elements.size())).second)
            throw InputError(start, "element " + std::to_string(element.id) + " is defined twice");
        deck_.mesh.elements.push_back(element);
        ids.push_back(element.id);
    }
    if (card.has("ELSET"))
    {
        auto& set = deck_.element_sets[capitals(card.parameters.at("ELSET"))];
        set.insert(set.end(), ids.begin(), ids.end());
        std::sort(set.begin(), set.end());
    }
}

const std::vector<int>& DeckReader::set_named(const Place& at, const std::string& name, const char* what,
                                              const std::map<std::string, std::vector<int>>& sets) const
{
    const auto found = sets.find(capitals(name));
    if (found == sets.end())
        throw InputError(at, std::string("there is no ") + what + " named " + name);
    return found->second;
}

// One field of a list: a number, or the name of a set that is known by then.
void DeckReader::append_members(std::string_view field, const Place& at, const char* what,
                                const std::map<std::string, std::vector<int>>& sets,
                                const std::unordered_map<int, int>& defined, std::vector<int>& members)
{
    if (!is_number(field))
    {
        const auto& set = set_named(at, std::string(field), what, sets);
        members.insert(members.end(), set.begin(), set.end());
        return;
    }
    const int id = parse_int(field, at);
    if (defined.count(id))
        members.push_back(id);
    else if (&defined == &deck_.node_index)
        unknown_.push_back({at, id});
    else
        throw InputError(at, std::string(what) + " member " + std::to_string(id) + " is not defined");
}

void DeckReader::add_set(const Card& card, const char* parameter, std::map<std::string, std::vector<int>>& sets,
                         const std::unordered_map<int, int>& defined)
{
    const std::string name = capitals(required(card, parameter));
    const char* what = parameter[0] == 'N' ? "node set" : "element set";
    std::vector<int> members;
    for (const DataLine& line : card.lines)
    {
        const Place at = place(line);
        const auto fields = split(line.text);
        if (!card.has("GENERATE"))
        {
            for (std::string_view field : fields)
                if (!field.empty())
                    append_members(field, at, what, sets, defined, members);
            continue;
        }
        const Range range = cards_.range(line);
        for (const auto& [id, index] : defined) // numbers in between that do not exist are left out
            if (range.contains(id))
                members.push_back(id);
    }
    auto& set = sets[name];
    set.insert(set.end(), members.begin(), members.end());
    std::sort(set.begin(), set.end());
    set.erase(std::unique(set.begin(), set.end()), set.end());
}

void DeckReader::surface(const Card& card)
{
    const bool of_nodes = card.has("TYPE") && capitals(card.parameters.at("TYPE")) == "NODE";
    std::set<int> nodes;
    std::vector<ElementFace> faces;
    for (const DataLine& line : card.lines)
    {
        const Place at = place(line);
        const auto fields = split(line.text);
        std::vector<int> members;
        if (of_nodes)
        {
            append_members(fields[0], at, "node set", deck_.node_sets, deck_.node_index, members);
            nodes.insert(members.begin(), members.end());
            continue;
        }
        append_members(fields[0], at, "element set", deck_.element_sets, element_index_, members);
        const std::string label = fields.size() > 1 ? capitals(std::string(fields[1])) : "";
        const int number = label.size() == 2 && label[0] == 'S' ? label[1] - '0'
                           : label == "SPOS"                    ? 2
                                                                : int(label == "SNEG");
        for (int id : members)
        {
            const Face face = element_face(element_with(id), number); // ids still, as long as nodes are unresolved
            if (face.empty())
                throw InputError(at, "element " + std::to_string(id) + " has no face " + in_quotes(label));
            nodes.insert(face.begin(), face.end());
            faces.push_back({element_index_.at(id), number});
        }
    }
    if (!of_nodes)
        deck_.surfaces[capitals(required(card, "NAME"))] = std::move(faces);
    deck_.surface_nodes[capitals(required(card, "NAME"))].assign(nodes.begin(), nodes.end());
}

void DeckReader::density(const Card& card)
{
    if (material_.empty() || card.lines.empty())
        fail(card, material_.empty() ? "*DENSITY before any *MATERIAL" : "*DENSITY without a value");
    const Place at = place(card.lines[0]);
    const double value = parse_real(split(card.lines[0].text)[0], at);
    if (value < 0.0)
        throw InputError(at, "the density is negative");
    materials_[material_] = {value, true};
}

// A rectangle: two sides, and on the next line the direction of the first.
void DeckReader::beam_section(const Card& card, Section& section) const
{
    if (capitals(required(card, "SECTION")) != "RECT")
        fail(card,
             "beams with a section other than RECT cannot be imported: the solver's integration of them is not proved");
    for (const char* offset : {"OFFSET1", "OFFSET2"})
        if (card.has(offset) && parse_real(card.parameters.at(offset), section.place) != 0.0)
            fail(card, "beams with an offset cannot be imported: put the nodes into the middle of the section");
    if (card.lines.empty())
        fail(card, card.shown + " without thicknesses");
    const Place at = place(card.lines[0]);
    const auto sides = split(card.lines[0].text);
    section.thickness = number_at(sides, 0, at);
    section.width = number_at(sides, 1, at);
    if (section.width == 0.0) // a square, as the solver has it
        section.width = section.thickness;
    if (!(section.thickness > 0.0 && section.width > 0.0))
        throw InputError(at, "the thicknesses of a beam are not positive");
    section.axis = -Eigen::Vector3d::UnitZ();
    if (card.lines.size() > 1)
        for (size_t i = 0; i < 3; ++i)
            section.axis[Eigen::Index(i)] = number_at(split(card.lines[1].text), i, place(card.lines[1]));
    if (!(section.axis.norm() > 0.0))
        throw InputError(at, "the direction of the section is zero");
}

// Thickness, points of integration, material and orientation of each.
void DeckReader::plies(const Card& card, Section& section) const
{
    for (const DataLine& line : card.lines)
    {
        const auto fields = split(line.text);
        const double thickness = number_at(fields, 0, place(line));
        if (!(thickness > 0.0))
            throw InputError(place(line), "the thickness is not positive");
        section.thickness += thickness;
        section.plies.push_back(fields.size() > 2 ? capitals(std::string(fields[2])) : "");
    }
    if (section.plies.empty())
        fail(card, card.shown + " without a thickness");
    section.material = section.plies[0];
}

void DeckReader::section(const Card& card)
{
    Section section{place(card), required(card, "ELSET"), "", ""};
    if (card.has("NODALTHICKNESS"))
        fail(card, "shells with NODAL THICKNESS cannot be imported");
    if (card.has("OFFSET") && parse_real(card.parameters.at("OFFSET"), section.place) != 0.0)
        fail(card, "shells with OFFSET cannot be imported: put the nodes into the middle of the shell");
    if (card.has("COMPOSITE"))
        plies(card, section);
    else
        section.material = required(card, "MATERIAL");
    if (card.has("ORIENTATION"))
        section.orientation = capitals(card.parameters.at("ORIENTATION"));
    if (card.keyword == "BEAMSECTION")
        beam_section(card, section);
    if (card.keyword == "SHELLSECTION" && section.plies.empty())
    {
        if (card.lines.empty())
            fail(card, card.shown + " without a thickness");
        const Place at = place(card.lines[0]);
        section.thickness = parse_real(split(card.lines[0].text)[0], at);
        if (!(section.thickness > 0.0))
            throw InputError(at, "the thickness is not positive");
    }
    if (card.keyword == "SOLIDSECTION" && !card.lines.empty())
        section.area = number_at(split(card.lines[0].text), 0, place(card.lines[0]));
    sections_.push_back(section);
}

void DeckReader::mass(const Card& card)
{
    const auto& set = set_named(place(card), required(card, "ELSET"), "element set", deck_.element_sets);
    if (card.lines.empty())
        fail(card, "*MASS without a value");
    const Place at = place(card.lines[0]);
    const double value = parse_real(split(card.lines[0].text)[0], at);
    if (value < 0.0)
        throw InputError(at, "the mass is negative");
    for (int id : set)
    {
        Element& element = deck_.mesh.elements[size_t(element_index_.at(id))];
        if (element.type->shape != Shape::point)
            fail(card, "element " + std::to_string(id) + " is not of type MASS");
        element.point_mass = value;
    }
}

// What springs do is in the stiffness; where it depends on the motion, only as it is at rest.
void DeckReader::spring(const Card& card)
{
    if (card.has("NONLINEAR"))
        leave_to_results(card, card.shown + " with NONLINEAR is not proved");
}

// The direction that DASHPOTA has of its elements is a line without any numbers.
void DeckReader::dashpot(const Card& card)
{
    std::vector<std::pair<Place, double>> constants;
    for (const DataLine& line : card.lines)
        if (const auto fields = split(line.text);
            std::any_of(fields.begin(), fields.end(), [](auto f) { return !f.empty(); }))
            constants.emplace_back(place(line), number_at(fields, 0, place(line)));
    if (constants.empty())
        fail(card, card.shown + " without a constant");
    if (constants.size() > 1)
        throw InputError(constants[1].first,
                         "a dashpot whose constant depends on frequency or temperature cannot be imported");
    const auto& [at, constant] = constants[0];
    if (constant < 0.0)
        throw InputError(at, "the constant of a dashpot is negative");
    for (int id : set_named(place(card), required(card, "ELSET"), "element set", deck_.element_sets))
        if (element_with(id).type->name == "DASHPOTA")
            deck_.dashpots.push_back({at, element_index_.at(id), constant});
        else
            fail(card, "element " + std::to_string(id) + " is not of type DASHPOTA");
}

// Nodes may have got axes before; the equation is turned into those of the model. Components 4 to 6 are rotations of shells and
// beams.
void DeckReader::equation(const Card& card)
{
    for (Equation& own : read_equations(cards_, card))
    {
        Equation turned{own.place, {}};
        for (const auto& [id, component, coefficient] : own.terms)
        {
            constrained_.insert(id);
            if (component < 0 || component > 2)
                return leave_to_results(card, card.shown + " between other than the components 1 to 3");
            const auto found = deck_.transforms.find(id);
            if (found == deck_.transforms.end())
            {
                turned.terms.push_back({id, component, coefficient});
                continue;
            }
            const auto node = deck_.node_index.find(id);
            if (node == deck_.node_index.end())
                throw InputError(own.place, "node " + std::to_string(id) + " is not defined");
            const Eigen::Vector3d axis = found->second.axes(deck_.mesh.nodes[size_t(node->second)].at).col(component);
            for (int c = 0; c < 3; ++c)
                turned.terms.push_back({id, c, coefficient * axis[c]});
        }
        deck_.equations.push_back(std::move(turned));
    }
}

// A cyclic tie does nothing until a card says of how many sectors the model is one.
void DeckReader::surface_tie(const Card& card)
{
    for (const char* kind : {"MULTISTAGE", "FLUIDCYCLIC", "FLUIDPERIODIC"})
        if (card.has(kind))
            return leave_to_results(card, card.shown + " with " + kind + " is not proved in matrices");
    if (!card.has("CYCLICSYMMETRY"))
        deck_.surface_ties.push_back(read_surface_tie(cards_, card));
}

void DeckReader::transform(const Card& card)
{
    const Transform transform = read_transform(cards_, card);
    for (int id : set_named(place(card), required(card, "NSET"), "node set", deck_.node_sets))
    {
        if (constrained_.count(id))
            fail(card, card.shown + " comes behind an *EQUATION of node " + std::to_string(id) + ": put it in front");
        deck_.transforms[id] = transform;
    }
}

void DeckReader::check_tie(const Tie& tie) const
{
    for (int id : {tie.reference_id, tie.rotation_id})
        if (id != 0 && !deck_.node_index.count(id))
            throw InputError(tie.place, "node " + std::to_string(id) + " is not defined");
    if (tie.node_ids.empty())
        throw InputError(tie.place, "it ties no nodes");
}

void DeckReader::rigid_body(const Card& card)
{
    Tie tie{place(card), {}, parse_int(required(card, "REFNODE"), place(card)), false, 0};
    if (card.has("ROTNODE"))
        tie.rotation_id = parse_int(card.parameters.at("ROTNODE"), place(card));
    std::set<int> ids;
    if (card.has("NSET"))
    {
        const auto& set = set_named(tie.place, card.parameters.at("NSET"), "node set", deck_.node_sets);
        ids.insert(set.begin(), set.end());
    }
    else
        for (int id : set_named(tie.place, required(card, "ELSET"), "element set", deck_.element_sets))
        {
            const Element& element = element_with(id);
            ids.insert(element.nodes.begin(), element.nodes.begin() + node_count(element.type->shape));
        }
    ids.erase(tie.reference_id);
    ids.erase(tie.rotation_id);
    tie.node_ids.assign(ids.begin(), ids.end());
    check_tie(tie);
    deck_.ties.push_back(tie);
}

void DeckReader::coupling(const Card& card)
{
    Tie tie{place(card), {}, parse_int(required(card, "REFNODE"), place(card)), true, 0};
    const std::string& name = required(card, "SURFACE");
    const auto found = deck_.surface_nodes.find(capitals(name));
    if (found == deck_.surface_nodes.end())
        fail(card, "there is no surface named " + name);
    tie.node_ids = found->second;
    check_tie(tie);
    coupling_ = std::make_unique<Tie>(tie);
}

// Without data lines all freedoms follow; with them the translations 1 to 3 must all be named.
void DeckReader::kinematic(const Card& card)
{
    if (!coupling_)
        fail(card, "*KINEMATIC without *COUPLING");
    bool follows[3] = {card.lines.empty(), card.lines.empty(), card.lines.empty()};
    for (const DataLine& line : card.lines)
    {
        const auto fields = split(line.text);
        const int first = parse_int(fields[0], place(line));
        const int last = fields.size() > 1 && !fields[1].empty() ? parse_int(fields[1], place(line)) : first;
        for (int component = 1; component <= 3; ++component)
            follows[component - 1] |= component >= first && component <= last;
    }
    if (follows[0] && follows[1] && follows[2])
        deck_.ties.push_back(*coupling_);
    else
        leave_to_results(card, "*KINEMATIC must tie the components 1 to 3");
    coupling_.reset();
}

void DeckReader::distributing(const Card& card)
{
    coupling_.reset();
    leave_to_results(card, card.shown +
                               " leaves its reference node without freedoms of its own; use *KINEMATIC or *RIGID BODY");
}

void DeckReader::frequency(const Card& card)
{
    if (deck_.steps.empty())
        fail(card, "*FREQUENCY outside a step");
    deck_.steps.back().frequency = true;
    const auto solver = card.parameters.find("SOLVER");
    deck_.steps.back().stores_matrices =
        solver != card.parameters.end() && capitals(squeeze(solver->second)) == "MATRIXSTORAGE";
}

void DeckReader::static_step(const Card& card)
{
    if (deck_.steps.empty())
        fail(card, "*STATIC outside a step");
    deck_.steps.back().static_step = true;
    loads_.be_static();
}

void DeckReader::step(const Card& card)
{
    preloaded_ |= card.has("PERTURBATION") && !deck_.steps.empty();
    deck_.steps.push_back({place(card), false, false, false, {}});
    loads_.begin_step(card, place(card));
}

// Only what steps prescribe is of interest; an unconstrained matrix shows by itself that the model has no supports.
void DeckReader::boundary(const Card& card)
{
    if (deck_.steps.empty())
        return;
    loads_.begin_card(card, place(card));
    for (const DataLine& line : card.lines)
    {
        const Place at = place(line);
        const auto fields = split(line.text);
        std::vector<int> members;
        append_members(fields[0], at, "node set", deck_.node_sets, deck_.node_index, members);
        const int first = fields.size() > 1 ? parse_int(fields[1], at) : 0;
        const int last = fields.size() > 2 && !fields[2].empty() ? parse_int(fields[2], at) : first;
        const double value = fields.size() > 3 && !fields[3].empty() ? parse_real(fields[3], at) : 0.0;
        if (first < 1 || last > 6)
            throw InputError(at, "a boundary condition names the components 1 to 6");
        for (int id : members)
            for (int component = first; component <= last; ++component)
            {
                deck_.steps.back().boundary.push_back({double(id), double(component), value});
                loads_.prescribe(id, component, value);
            }
    }
}

void DeckReader::each_load(const Card& card, const char* what, const std::map<std::string, std::vector<int>>& sets,
                           const std::unordered_map<int, int>& defined, const LoadTaker& take)
{
    if (deck_.steps.empty())
        fail(card, card.shown + " outside a step");
    if (!loads_.begin_card(card, place(card)))
        return;
    for (const DataLine& line : card.lines)
    {
        const auto fields = split(line.text);
        std::vector<int> members;
        append_members(fields[0], place(line), what, sets, defined, members);
        take(fields, members, place(line));
    }
}

void DeckReader::concentrated(const Card& card)
{
    each_load(card, "node set", deck_.node_sets, deck_.node_index, [&](auto& fields, auto& members, auto& at) {
        const int component = fields.size() > 1 ? parse_int(fields[1], at) : 0;
        if (component < 1 || component > 6)
            throw InputError(at, "a concentrated load names one of the components 1 to 6");
        for (int id : members)
            loads_.add({LoadKey::nodal, id, component, {}, {}}, number_at(fields, 2, at), {}, at);
    });
}

void DeckReader::distributed(const Card& card)
{
    each_load(card, "element set", deck_.element_sets, element_index_, [&](auto& fields, auto& members, auto& at) {
        for (int& member : members)
            member = element_index_.at(member);
        distribute(fields.size() > 1 ? capitals(std::string(fields[1])) : "", fields, members, at);
    });
}

void DeckReader::distribute(const std::string& label, const std::vector<std::string_view>& fields,
                            const std::vector<int>& elements, const Place& at)
{
    const double value = number_at(fields, 2, at);
    if (label == "P" || (label.size() == 2 && label[0] == 'P' && label[1] >= '1' && label[1] <= '6'))
        for (int element : elements)
        {
            const Element& pressed = deck_.mesh.elements[size_t(element)]; // of a shell whatever number is the bottom
            const int number = label == "P" || is_shell(pressed.type->shape) ? 1 : label[1] - '0';
            if ((label == "P" && !is_shell(pressed.type->shape)) || element_face(pressed, number).size() < 3)
                loads_.leave_out("DLOAD", at,
                                 "the load " + in_quotes(label) + " on element " + std::to_string(pressed.id) +
                                     ", which has no such face,");
            else
                loads_.add({LoadKey::pressure, element, number, {}, {}}, value, {}, at);
        }
    else if (label == "GRAV" || label == "CENTRIF")
    {
        const bool turns = label == "CENTRIF";
        LoadKey key{turns ? LoadKey::centrifugal : LoadKey::gravity, 0, 0, capitals(std::string(fields[0])), {}};
        Eigen::Map<Eigen::Vector3d> point(key.axis.data()), direction(key.axis.data() + 3);
        for (size_t i = 0; i < 3; ++i)
            key.axis[3 + i] = number_at(fields, (turns ? 6 : 3) + i, at);
        for (size_t i = 0; turns && i < 3; ++i)
            point[Eigen::Index(i)] = number_at(fields, 3 + i, at);
        if (!(direction.norm() > 0.0))
            throw InputError(at, label + " without a direction");
        direction.normalize();
        loads_.add(key, value, elements, at);
    }
    else
        loads_.leave_out("DLOAD", at, "the load " + in_quotes(label));
}

void DeckReader::refuse(const Card& card)
{
    fail(card, card.shown + " cannot be imported");
}

// Nodes ascend by id, so that bodies and matrices have one order whatever the deck's.
void DeckReader::sort_nodes()
{
    auto& nodes = deck_.mesh.nodes;
    std::sort(nodes.begin(), nodes.end(), [](const Node& a, const Node& b) { return a.id < b.id; });
    for (size_t i = 0; i < nodes.size(); ++i)
        deck_.node_index[nodes[i].id] = int(i);
}

// A set that would lack a node which comes later is refused; without the node the solver leaves it out as well.
void DeckReader::resolve_unknown()
{
    for (const auto& [at, id] : unknown_)
    {
        if (deck_.find_node(id) >= 0)
            throw InputError(at, "node " + std::to_string(id) + " is named before it is defined");
        note(at, "node " + std::to_string(id) + " is not defined: it is left out");
    }
}

void DeckReader::resolve_nodes()
{
    for (Element& element : deck_.mesh.elements)
        for (int i = 0; i < node_count(element.type->shape); ++i)
        {
            int& node = element.nodes[size_t(i)];
            const int index = deck_.find_node(node);
            if (index < 0)
                throw InputError(deck_.mesh.place(element), "element " + std::to_string(element.id) + ": node " +
                                                                std::to_string(node) + " is not defined");
            node = index;
        }
}

// Points are masses, and other lines springs and dashpots.
static bool has_material(const ElementType& type)
{
    return is_beam(type) || is_truss(type) || (type.shape != Shape::point && type.shape != Shape::line2);
}

static bool fits(const Section& section, const ElementType& type)
{
    return has_material(type) && is_beam(type) == (section.width > 0.0) &&
           is_shell(type.shape) == (section.thickness > 0.0 && section.width == 0.0);
}

void DeckReader::apply_sections()
{
    std::vector<char> assigned(deck_.mesh.elements.size());
    for (const Section& section : sections_)
    {
        const auto material = materials_.find(capitals(section.material));
        if (material == materials_.end())
            throw InputError(section.place, "there is no material named " + section.material);
        if (!material->second.has_density)
            throw InputError(section.place, "the material " + section.material + " has no *DENSITY");
        for (const std::string& ply : section.plies)
            if (const auto other = materials_.find(ply);
                other == materials_.end() || other->second.density != material->second.density)
                throw InputError(section.place, "the plies of a composite shell differ in density: its mass across the "
                                                "thickness cannot be had of one density");
        for (int id : set_named(section.place, section.element_set, "element set", deck_.element_sets))
        {
            const int index = element_index_.at(id);
            Element& element = deck_.mesh.elements[size_t(index)];
            const bool layered = element.type->name == "S8R" || element.type->name == "S6";
            if (!fits(section, *element.type) || (!section.plies.empty() && !layered))
                throw InputError(section.place,
                                 "element " + std::to_string(id) + " is of type " + std::string(element.type->name));
            element.density = material->second.density;
            element.thickness = section.thickness;
            if (section.plies.empty()) // nothing is told of the stress between plies
                element.elasticity = elasticities_.use({material->first, section.orientation, section.thickness > 0.0});
            element.width = section.width;
            element.axis = section.axis;
            if (is_truss(*element.type) && !(section.area > 0.0))
                throw InputError(section.place, "the area of truss " + std::to_string(id) + " is not positive");
            if (is_truss(*element.type))
                set_square_section(deck_.mesh, element, section.area);
            assigned[size_t(index)] = 1;
        }
    }
    for (size_t i = 0; i < assigned.size(); ++i)
    {
        const Element& element = deck_.mesh.elements[i];
        if (!assigned[i] && has_material(*element.type))
            throw InputError(deck_.mesh.place(element), "element " + std::to_string(element.id) + " has no section");
    }
}

void DeckReader::resolve()
{
    if (coupling_)
        throw InputError(coupling_->place, "*COUPLING without *KINEMATIC");
    if (deck_.mesh.elements.empty())
        throw InputError({deck_.mesh.files[0], 0}, "the deck has no elements");
    sort_nodes();
    resolve_unknown();
    resolve_nodes();
    apply_sections();
    for (const Tie& tie : deck_.ties)
        if (deck_.transforms.count(tie.reference_id) || deck_.transforms.count(tie.rotation_id))
            throw InputError(tie.place, "the reference node has axes of its own by *TRANSFORM");
    deck_.static_loads = loads_.finish(deck_.notes);
    if (preloaded_)
        elasticities_.refuse("the modes are those of a loaded state (PERTURBATION)");
    deck_.elasticities = elasticities_.list();
}

int Deck::find_node(int id) const
{
    const auto found = node_index.find(id);
    return found == node_index.end() ? -1 : found->second;
}

Deck read_deck(const std::string& path)
{
    return DeckReader(path).read();
}

} // namespace zel_fem::ccx
