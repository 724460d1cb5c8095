// Nastran bulk data: grid points with their coordinate systems, solids and shells, and what gives them a density.
// Points and properties may be named before they are defined, so that they wait until all is read. Orders of nodes:
// "CHEXA" and "CPENTA" in the quick reference guides.
#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <optional>
#include <set>
#include <utility>

#include "fem/sources/meshes/builder.h"
#include "fem/sources/meshes/bulk_cards.h"
#include "fem/sources/meshes/readers.h"

namespace zel_fem::meshes
{

using Eigen::Matrix3d;
using Eigen::Vector3d;

struct BulkElement
{
    ElementType linear, quadratic;
    std::array<int, kMostNodes>
        order; // where the nodes of the quadratic shape stand on the card; all zero: in their order
};

constexpr BulkElement kElements[] = {
    {{"CTETRA", Shape::tet4, 0, 4}, {"CTETRA", Shape::tet10, 0, 4}, {}},
    {{"CPENTA", Shape::wedge6, 0, 4},
     {"CPENTA", Shape::wedge15, 0, 4},
     {0, 1, 2, 3, 4, 5, 6, 7, 8, 12, 13, 14, 9, 10, 11}},
    {{"CHEXA", Shape::hex8, 0, 4}, {"CHEXA", Shape::hex20, 0, 4}, {0,  1,  2,  3,  4,  5,  6,  7,  8,  9,
                                                                   10, 11, 16, 17, 18, 19, 12, 13, 14, 15}},
    {{"CQUAD4", Shape::quad4, 0, 4}, {"CQUAD4", Shape::quad4, 0, 4}, {}},
    {{"CQUADR", Shape::quad4, 0, 4}, {"CQUADR", Shape::quad4, 0, 4}, {}},
    {{"CTRIA3", Shape::tri3, 0, 4}, {"CTRIA3", Shape::tri3, 0, 4}, {}},
    {{"CTRIAR", Shape::tri3, 0, 4}, {"CTRIAR", Shape::tri3, 0, 4}, {}},
};
constexpr ElementType kPointMass = {"CONM2", Shape::point, 0, 0};

struct MaterialCard
{
    std::string_view name;
    size_t density; // its field
};
constexpr MaterialCard kMaterials[] = {{"MAT1", 4}, {"MAT2", 7}, {"MAT8", 7}, {"MAT9", 22}};

// Cards that give mass and are not read.
constexpr std::string_view kHeavyCards[] = {
    "CPYRAM", "CBAR",   "CBEAM", "CBEND", "CROD", "CONROD", "CTUBE",   "CSHEAR",  "CONM1",   "CMASS1", "CMASS2",
    "CMASS3", "CMASS4", "NSM",   "NSM1",  "NSML", "NSML1",  "CTRIAX6", "CQUADX4", "CQUADX8", "CTRAX3", "CTRAX6"};

constexpr int kBlank = std::numeric_limits<int>::min(); // the system of GRDSET, wherever that stands

namespace
{
struct System
{
    std::string card; // CORD2R, CORD2C or CORD2S
    Place place;
    int in; // the system of its points; 0: the basic one
    Vector3d origin, on_z, in_xz;
    std::optional<Matrix3d> axes; // as columns; with the origin in the basic system once they are known
    bool asked = false;
};

struct Grid
{
    int id, system, displacements; // the two systems
    Vector3d at;
    Place place;
};

struct Property
{
    int material;
    double thickness; // 0: of solids
};

class NastranReader
{
public:
    NastranReader(const std::string& path, Progress& progress) : cards_(path), progress_(progress) {}
    MeshFile read();

private:
    using Handler = void (NastranReader::*)(const BulkCard&);
    struct Row
    {
        std::string_view name;
        Handler handler;
    };
    static const Row kRows[];
    static Handler handler_of(std::string_view name);

    void grid(const BulkCard& card);
    void grid_defaults(const BulkCard& card) { defaults_ = {card.integer(1, 0), card.integer(5, 0)}; }
    void system(const BulkCard& card);
    void element(const BulkCard& card);
    void check_shell(const BulkCard& card, size_t corners);
    void face(const BulkCard& card);
    void point_mass(const BulkCard& card);
    void solid(const BulkCard& card) { properties_[card.integer(0)] = {card.integer(1), 0.0}; }
    void shell(const BulkCard& card);
    void material(const BulkCard& card);
    void set(const BulkCard& card);
    void parameter(const BulkCard& card);
    void begin(const BulkCard& card);
    void skip(const BulkCard& card);

    System& resolved(int id, const Place& from);
    Vector3d to_basic(const Vector3d& at, int system, const Place& from);
    void add_nodes();
    void apply_properties();

    BulkReader cards_;
    Progress& progress_;
    MeshBuilder builder_{"Nastran bulk data"};
    std::pair<int, int> defaults_{0, 0}; // of grid points
    std::vector<Grid> grids_;
    std::map<int, System> systems_;
    std::map<int, std::string> unread_systems_; // by the names of their cards
    std::map<int, Property> properties_;
    std::map<int, double> densities_; // by material
    std::vector<int> element_properties_;
    std::set<int> face_properties_;
    std::map<std::string, int64_t> skipped_;
    double mass_factor_ = 1.0;
};
} // namespace

const NastranReader::Row NastranReader::kRows[] = {
    {"GRID", &NastranReader::grid},     {"GRDSET", &NastranReader::grid_defaults},
    {"CORD2R", &NastranReader::system}, {"CORD2C", &NastranReader::system},
    {"CORD2S", &NastranReader::system}, {"CTRIA6", &NastranReader::face},
    {"CQUAD8", &NastranReader::face},   {"CONM2", &NastranReader::point_mass},
    {"PSOLID", &NastranReader::solid},  {"PSHELL", &NastranReader::shell},
    {"SET1", &NastranReader::set},      {"PARAM", &NastranReader::parameter},
    {"BEGIN", &NastranReader::begin},
};

template <typename Rows> static auto find_row(const Rows& rows, std::string_view name, auto name_of)
{
    return std::find_if(std::begin(rows), std::end(rows), [&](const auto& row) { return name_of(row) == name; });
}

static const BulkElement* find_element(std::string_view name)
{
    const auto* found = find_row(kElements, name, [](const BulkElement& row) { return row.linear.name; });
    return found == std::end(kElements) ? nullptr : found;
}

NastranReader::Handler NastranReader::handler_of(std::string_view name)
{
    if (find_element(name))
        return &NastranReader::element;
    if (find_row(kMaterials, name, [](const MaterialCard& row) { return row.name; }) != std::end(kMaterials))
        return &NastranReader::material;
    const auto* found = find_row(kRows, name, [](const Row& row) { return row.name; });
    return found == std::end(kRows) ? nullptr : found->handler;
}

bool is_nastran(std::string_view line)
{
    std::string word;
    for (char c : line.substr(0, line.find_first_of(" ,*\t")))
        word += char(c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c);
    if (word == "CEND" || word == "SOL" || word == "BEGIN" || word == "ENDDATA" || word == "NASTRAN")
        return true;
    const size_t next = std::min(line.find_first_not_of(" ,*\t", word.size()), line.size());
    return (word == "GRID" || word.starts_with("CORD") || find_element(word)) && next < line.size() &&
           line[next] >= '0' && line[next] <= '9';
}

void NastranReader::grid(const BulkCard& card)
{
    Grid grid{card.integer(0), card.integer(1, kBlank), card.integer(5, kBlank), {}, card.place};
    for (size_t axis = 0; axis < 3; ++axis)
        grid.at[int(axis)] = card.real(2 + axis, 0.0);
    grids_.push_back(grid);
}

void NastranReader::system(const BulkCard& card)
{
    Vector3d points[3];
    for (size_t i = 0; i < 9; ++i)
        points[i / 3][int(i % 3)] = card.real(2 + i, 0.0);
    const int id = card.integer(0);
    if (id < 1)
        card.fail("coordinate system " + std::to_string(id) + " has no positive number");
    if (!systems_
             .try_emplace(id, System{card.name, card.place, card.integer(1, 0), points[0], points[1], points[2], {}})
             .second)
        card.fail("coordinate system " + std::to_string(id) + " is defined twice");
}

// Densities are those of straight shells of one thickness about their nodes.
void NastranReader::check_shell(const BulkCard& card, size_t corners)
{
    if (card.real(3 + corners, 0.0) != 0.0)
        builder_.leave_density("shells have offsets (ZOFFS)");
    for (size_t i = 0; i < corners; ++i)
        if (!card.is_blank(10 + i))
            builder_.leave_density("shells have thicknesses at their corners");
}

void NastranReader::element(const BulkCard& card)
{
    const BulkElement& row = *find_element(card.name);
    const size_t corners = size_t(node_count(row.linear.shape)), all = size_t(node_count(row.quadratic.shape));
    std::vector<int> given, nodes;
    for (size_t i = 0; i < all; ++i)
        given.push_back(i < corners ? card.integer(2 + i) : card.integer(2 + i, 0));
    const size_t missing = size_t(std::count(given.begin() + std::ptrdiff_t(corners), given.end(), 0));
    const bool quadratic = all > corners && missing == 0;
    if (is_shell(row.linear.shape))
        check_shell(card, corners);
    else if (missing > 0 && missing < all - corners)
    {
        ++skipped_["mid-side nodes of " + card.name + ", which lacks others"];
        builder_.leave_density("elements lack some of their mid-side nodes");
    }
    for (size_t i = 0; i < (quadratic ? all : corners); ++i)
        nodes.push_back(given[size_t(row.order[1] && quadratic ? row.order[i] : int(i))]);
    builder_.add_element(card.integer(0), quadratic ? row.quadratic : row.linear, nodes, card.file, card.place.line);
    element_properties_.push_back(card.integer(1, card.integer(0)));
}

void NastranReader::face(const BulkCard& card)
{
    ++skipped_[card.name];
    face_properties_.insert(card.integer(1, card.integer(0)));
}

// With an offset or an inertia of its own a mass is no point.
void NastranReader::point_mass(const BulkCard& card)
{
    bool point = card.integer(2, 0) >= 0;
    for (size_t i = 4; i < card.fields.size(); ++i)
        point &= card.real(i, 0.0) == 0.0;
    if (!point)
        builder_.leave_density("masses (CONM2) have offsets or inertias");
    const int node = card.integer(1);
    builder_.add_element(card.integer(0), kPointMass, {&node, 1}, card.file, card.place.line).point_mass =
        card.real(3, 0.0);
    element_properties_.push_back(0);
}

void NastranReader::shell(const BulkCard& card)
{
    properties_[card.integer(0)] = {card.integer(1, 0), card.real(2, 0.0)};
    if (card.real(7, 0.0) != 0.0)
        builder_.leave_density("shells have mass beside their density (NSM)");
}

void NastranReader::material(const BulkCard& card)
{
    const auto* row = find_row(kMaterials, card.name, [](const MaterialCard& material) { return material.name; });
    densities_[card.integer(0)] = card.real(row->density, 0.0);
    if (card.real(row->density, 0.0) < 0.0)
        card.fail("the density is negative");
}

void NastranReader::set(const BulkCard& card)
{
    for (size_t i = 1; i < card.fields.size(); ++i)
    {
        if (card.is_blank(i))
            continue;
        const int first = card.integer(i);
        const bool range = card.word(i + 1) == "THRU";
        if (range && card.integer(i + 2) < first)
            card.fail("THRU stands between two numbers that rise");
        builder_.add_range_to_set(std::to_string(card.integer(0)), first, range ? card.integer(i + 2) : first);
        i += range ? 2 : 0;
    }
}

void NastranReader::parameter(const BulkCard& card)
{
    if (card.word(0) == "WTMASS")
        mass_factor_ = card.real(1, 1.0);
    else
        ++skipped_["PARAM"];
}

// Lines of the executive and case control have looked like cards until here.
void NastranReader::begin(const BulkCard& card)
{
    if (card.text.find("SUPER") != std::string::npos || card.text.find("AUXMODEL") != std::string::npos)
        card.fail("parts of the model in bulk data of their own cannot be read");
    skipped_.clear();
}

void NastranReader::skip(const BulkCard& card)
{
    const size_t equals = card.text.find('=');
    if (card.name == "TITLE" && equals != std::string::npos)
        return builder_.set_title(std::string(trim(std::string_view(card.text).substr(equals + 1))));
    if (card.name.starts_with("CORD"))
        unread_systems_[card.integer(0)] = card.name;
    if (card.name.starts_with("CORD1") && !card.is_blank(4)) // a second one on the card
        unread_systems_[card.integer(4)] = card.name;
    if (std::find(std::begin(kHeavyCards), std::end(kHeavyCards), card.name) != std::end(kHeavyCards))
        builder_.leave_density(card.name + " is not read, which has mass");
    ++skipped_[card.name];
}

// ---- All is read ----------------------------------------------------------------------------------------------------

// In the coordinates of its kind; angles in degrees.
static Vector3d cartesian(const System& system, const Vector3d& at)
{
    const double degree = std::numbers::pi / 180;
    const char kind = system.card.back();
    if (kind == 'C')
        return {at[0] * std::cos(at[1] * degree), at[0] * std::sin(at[1] * degree), at[2]};
    if (kind == 'S')
        return at[0] * Vector3d(std::sin(at[1] * degree) * std::cos(at[2] * degree),
                                std::sin(at[1] * degree) * std::sin(at[2] * degree), std::cos(at[1] * degree));
    return at;
}

System& NastranReader::resolved(int id, const Place& from)
{
    const auto found = systems_.find(id);
    if (found == systems_.end())
    {
        const auto unread = unread_systems_.find(id);
        throw InputError(from, "coordinate system " + std::to_string(id) +
                                   (unread == unread_systems_.end()
                                        ? " is not defined"
                                        : " is of a " + unread->second + ", which cannot be read"));
    }
    System& system = found->second;
    if (system.axes)
        return system;
    if (std::exchange(system.asked, true))
        throw InputError(system.place, "coordinate system " + std::to_string(id) + " is defined by itself");
    for (Vector3d* point : {&system.origin, &system.on_z, &system.in_xz})
        *point = to_basic(*point, system.in, system.place);
    const Vector3d z = (system.on_z - system.origin).normalized();
    const Vector3d y = z.cross(system.in_xz - system.origin);
    if (!(y.norm() > 1e-10 * (system.in_xz - system.origin).norm()))
        throw InputError(system.place,
                         "the three points of coordinate system " + std::to_string(id) + " lie on a line");
    system.axes.emplace();
    *system.axes << y.normalized().cross(z), y.normalized(), z;
    return system;
}

Vector3d NastranReader::to_basic(const Vector3d& at, int system, const Place& from)
{
    if (system == 0)
        return at;
    const System& there = resolved(system, from);
    return there.origin + *there.axes * cartesian(there, at);
}

// Rows of a point move it along the axes of its system of displacements.
void NastranReader::add_nodes()
{
    for (Grid& grid : grids_)
    {
        grid.system = grid.system == kBlank ? defaults_.first : grid.system;
        grid.displacements = grid.displacements == kBlank ? defaults_.second : grid.displacements;
        if (grid.displacements != 0)
        {
            const bool fluid = grid.displacements < 0;
            const System* system = fluid ? nullptr : &resolved(grid.displacements, grid.place);
            if (fluid || system->card != "CORD2R" || !system->axes->isApprox(Matrix3d::Identity(), 1e-12))
                throw InputError(grid.place, "GRID " + std::to_string(grid.id) + ": displacements in system " +
                                                 std::to_string(grid.displacements) + " (CD) cannot be read");
        }
        builder_.add_node(grid.id, to_basic(grid.at, grid.system, grid.place), grid.place);
    }
}

void NastranReader::apply_properties()
{
    for (size_t i = 0; i < element_properties_.size(); ++i)
    {
        Element& element = builder_.elements()[i];
        element.point_mass *= mass_factor_;
        const auto property = properties_.find(element_properties_[i]);
        if (element.type->shape == Shape::point || property == properties_.end())
            continue;
        const auto density = densities_.find(property->second.material);
        if (density != densities_.end())
            element.density = density->second * mass_factor_;
        if (is_shell(element.type->shape))
            element.thickness = property->second.thickness;
    }
    for (int property : face_properties_)
        if (properties_.count(property) > 0)
            builder_.leave_density("CTRIA6 and CQUAD8 are not read, which have a property");
}

MeshFile NastranReader::read()
{
    BulkCard card;
    auto wanted = [](const std::string& name) { return handler_of(name) || name.starts_with("CORD"); };
    while (cards_.next(card, wanted) && card.name != "ENDDATA")
    {
        progress_.advance(cards_.share_read());
        while (builder_.files() < cards_.files().size())
            builder_.add_file(cards_.files()[builder_.files()]);
        const Handler handler = handler_of(card.name);
        (this->*(handler ? handler : &NastranReader::skip))(card);
    }
    if (builder_.files() == 0)
        builder_.add_file(cards_.files()[0]);
    add_nodes();
    apply_properties();
    for (const auto& [name, count] : skipped_)
        builder_.skip(name, count);
    return builder_.finish();
}

MeshFile read_nastran(const std::string& path, Progress& progress)
{
    return NastranReader(path, progress).read();
}

} // namespace zel_fem::meshes
