// Ansys's archives of a model (.cdb, by CDWRITE): blocks of nodes and elements in columns that a format line tells,
// types of elements, components, and densities. Columns are right-aligned and end with the last one that is not zero,
// so that a line that ends elsewhere has been cut. Shapes of fewer faces are hexahedra that name nodes several times:
// "SOLID186" in the element reference.
#include <algorithm>
#include <cctype>
#include <limits>
#include <optional>

#include "fem/sources/cards.h"
#include "fem/sources/meshes/builder.h"
#include "fem/sources/meshes/readers.h"
#include "fem/sources/text_file.h"

namespace zel_fem::meshes
{

enum class Kind
{
    solid, // eight corners and, where the element has them, the middles of twelve edges
    tet,
    shell, // four corners, and the middles of their edges
    massless
};

struct Routine
{
    int number;
    Kind kind;
};

constexpr Routine kRoutines[] = {
    {45, Kind::solid},     {185, Kind::solid},    {95, Kind::solid},     {186, Kind::solid},    {92, Kind::tet},
    {187, Kind::tet},      {285, Kind::tet},      {63, Kind::shell},     {181, Kind::shell},    {93, Kind::shell},
    {281, Kind::shell},    {14, Kind::massless},  {39, Kind::massless},  {151, Kind::massless}, {152, Kind::massless},
    {153, Kind::massless}, {154, Kind::massless}, {155, Kind::massless}, {156, Kind::massless}, {169, Kind::massless},
    {170, Kind::massless}, {171, Kind::massless}, {172, Kind::massless}, {173, Kind::massless}, {174, Kind::massless},
    {175, Kind::massless}, {176, Kind::massless}, {177, Kind::massless}, {178, Kind::massless}, {179, Kind::massless},
};

// A shape as it stands among the nodes of the element: each group of corners is one node, and `order` tells where the
// nodes of the quadratic shape stand, if not in their order. The first row that fits counts.
struct Form
{
    Kind kind;
    ElementType linear, quadratic;
    std::vector<std::vector<int>> merged;
    std::vector<int> order;
};

static const std::vector<Form>& forms()
{
    constexpr ElementType kTet = {"tetrahedron", Shape::tet4, 0, 4}, kTet10 = {"tetrahedron", Shape::tet10, 0, 4};
    constexpr ElementType kPyramid = {"pyramid", Shape::point, 0, 0};
    constexpr ElementType kPrism = {"prism", Shape::wedge6, 0, 4}, kPrism15 = {"prism", Shape::wedge15, 0, 4};
    constexpr ElementType kHex = {"hexahedron", Shape::hex8, 0, 4}, kHex20 = {"hexahedron", Shape::hex20, 0, 4};
    constexpr ElementType kTri = {"triangle", Shape::tri3, 0, 4}, kTri6 = {"triangle", Shape::tri6, 0, 4};
    constexpr ElementType kQuad = {"quadrangle", Shape::quad4, 0, 4}, kQuad8 = {"quadrangle", Shape::quad8, 0, 4};
    static const std::vector<Form> kForms = {
        {Kind::solid, kTet, kTet10, {{2, 3}, {4, 5, 6, 7}}, {0, 1, 2, 4, 8, 9, 11, 16, 17, 18}},
        {Kind::solid, kPyramid, kPyramid, {{4, 5, 6, 7}}, {}},
        {Kind::solid, kPrism, kPrism15, {{2, 3}, {6, 7}}, {0, 1, 2, 4, 5, 6, 8, 9, 11, 12, 13, 15, 16, 17, 18}},
        {Kind::solid, kHex, kHex20, {}, {}},
        {Kind::tet, kTet, kTet10, {}, {}},
        {Kind::shell, kTri, kTri6, {{2, 3}}, {0, 1, 2, 4, 5, 7}},
        {Kind::shell, kQuad, kQuad8, {}, {}},
    };
    return kForms;
}

// These define or move nodes, or read other files.
constexpr std::string_view kRefusedCommands[] = {"N",      "NGEN",   "NMODIF",   "NROTAT", "NANG",   "NSCALE", "NSYM",
                                                 "NUMMRG", "NUMCMP", "TRANSFER", "CDREAD", "/INPUT", "*USE"};
constexpr std::string_view kHeavyCommands[] = {"E", "EN", "EGEN"};
constexpr size_t kHeadOfElement = 11, kNodesOnFirstLine = 8;

namespace
{
struct Columns
{
    size_t integers, integer_width, real_width; // the last: 0 for none
};

class CdbReader
{
public:
    CdbReader(const std::string& path, Progress& progress) : file_(path), progress_(progress) {}
    MeshFile read();

private:
    using Handler = void (CdbReader::*)();
    struct Row
    {
        std::string_view name;
        Handler handler;
    };
    static const Row kRows[];

    bool next();
    void expect_line();
    std::string argument(size_t i) const; // in capitals; empty when it is left out
    int number(size_t i) const { return parse_int(argument(i), file_.place()); }
    Columns columns();
    std::vector<int> integers(const Columns& columns, size_t most) const;

    void title();
    void element_type();
    void element_types();
    void nodes();
    void elements();
    void skip_elements();
    void element(std::vector<int> numbers, int64_t line);
    void add_form(Kind kind, const std::vector<int>& numbers, const std::vector<int>& given, int64_t line);
    void component();
    void material_property();
    void material_table();
    double density(size_t i) const;
    void skip(const std::string& name);

    LineReader file_;
    Progress& progress_;
    MeshBuilder builder_{"Ansys archive"};
    std::string_view line_; // without a comment and blanks around it
    std::string_view raw_;  // without blanks behind it
    std::vector<std::string_view> arguments_;
    std::map<int, int> routines_; // by number of the type
    std::map<int, double> densities_;
    std::vector<int> materials_; // of elements
};
} // namespace

const CdbReader::Row CdbReader::kRows[] = {
    {"/TITLE", &CdbReader::title},          {"ET", &CdbReader::element_type},
    {"ETBLOCK", &CdbReader::element_types}, {"NBLOCK", &CdbReader::nodes},
    {"EBLOCK", &CdbReader::elements},       {"CMBLOCK", &CdbReader::component},
    {"MP", &CdbReader::material_property},  {"MPDATA", &CdbReader::material_table},
};

bool is_cdb(std::string_view line)
{
    const std::string name = capitals(line.substr(0, line.find_first_of(", ")));
    for (std::string_view known :
         {"/COM", "/PREP7", "/NOPR", "/BATCH", "/TITLE", "NBLOCK", "ETBLOCK", "*IF", "*SET", "*GET"})
        if (name == known)
            return true;
    return false;
}

bool CdbReader::next()
{
    if (!file_.next(raw_))
        return false;
    if (file_.place().line % 4096 == 0)
        progress_.advance(file_.share_read());
    raw_ = raw_.substr(0, raw_.find_last_not_of(" \t") + 1);
    line_ = trim(raw_.substr(0, raw_.find('!')));
    arguments_.clear();
    return true;
}

void CdbReader::expect_line()
{
    if (!next())
        file_.fail("the file ends within a block");
}

std::string CdbReader::argument(size_t i) const
{
    return i < arguments_.size() ? capitals(arguments_[i]) : "";
}

// "(3i9,6e21.13e3)": three integers of nine columns, then reals of 21.
Columns CdbReader::columns()
{
    expect_line();
    const Place at = file_.place();
    Columns result{0, 0, 0};
    std::string_view rest = line_;
    if (rest.empty() || rest.front() != '(' || rest.back() != ')')
        file_.fail("the format of a block is expected here");
    for (rest = rest.substr(1, rest.size() - 2); !rest.empty();)
    {
        const std::string field = capitals(trim(rest.substr(0, rest.find(','))));
        rest.remove_prefix(std::min(rest.find(','), rest.size() - 1) + 1);
        const size_t letter = field.find_first_of("IEFGA");
        if (letter == std::string::npos || letter == 0)
            file_.fail("the format of a block is not understood");
        const int count = parse_int(field.substr(0, letter), at);
        const int width = parse_int(field.substr(letter + 1, field.find('.') - letter - 1), at);
        if (count < 1 || width < 1 || count > 100 || width > 100)
            file_.fail("the format of a block is not understood");
        if (field[letter] == 'I')
            result.integers = size_t(count), result.integer_width = size_t(width);
        else if (field[letter] != 'A')
            result.real_width = size_t(width);
    }
    if (result.integers == 0)
        file_.fail("the format of a block is not understood");
    return result;
}

std::vector<int> CdbReader::integers(const Columns& columns, size_t most) const
{
    std::vector<int> numbers;
    for (size_t at = 0; at < raw_.size() && numbers.size() < most; at += columns.integer_width)
    {
        if (at + columns.integer_width > raw_.size() && trim(raw_) != "-1")
            file_.fail("the line ends within a column");
        numbers.push_back(parse_int(raw_.substr(at, columns.integer_width), file_.place()));
    }
    return numbers;
}

void CdbReader::title()
{
    if (const size_t comma = line_.find(','); comma != std::string_view::npos)
        builder_.set_title(std::string(trim(line_.substr(comma + 1))));
}

// By number, or by name as in SOLID186.
void CdbReader::element_type()
{
    const std::string name = argument(2);
    const size_t digits = name.find_first_of("0123456789");
    routines_[number(1)] = digits == std::string::npos ? 0 : parse_int(name.substr(digits), file_.place());
}

void CdbReader::element_types()
{
    const Columns form = columns();
    for (expect_line(); trim(raw_) != "-1"; expect_line())
    {
        const std::vector<int> numbers = integers(form, 2);
        if (numbers.size() < 2)
            file_.fail("an element type has a number and a routine");
        routines_[numbers[0]] = numbers[1];
    }
}

// The directions of rows at a node turn with its angles.
void CdbReader::nodes()
{
    const int64_t told = argument(4).empty() ? 0 : number(4);
    const Columns form = columns();
    if (form.real_width == 0)
        file_.fail("the format of a block of nodes has reals");
    const size_t head = form.integers * form.integer_width;
    int64_t count = 0;
    for (expect_line(); capitals(line_.substr(0, 2)) != "N," && line_ != "-1"; expect_line(), ++count)
    {
        const std::vector<int> numbers = integers(form, form.integers);
        if (numbers.size() < form.integers)
            file_.fail("the line ends within a column");
        double reals[6] = {};
        for (size_t i = 0; i < 6 && head + i * form.real_width < raw_.size(); ++i)
        {
            if (head + (i + 1) * form.real_width > raw_.size())
                file_.fail("the line ends within a column");
            reals[i] = parse_real(raw_.substr(head + i * form.real_width, form.real_width), file_.place());
        }
        if (reals[3] != 0.0 || reals[4] != 0.0 || reals[5] != 0.0)
            file_.fail("node " + std::to_string(numbers[0]) + " is turned: angles of nodes cannot be read");
        builder_.add_node(numbers[0], {reals[0], reals[1], reals[2]}, file_.place());
    }
    if (told > 0 && told != count)
        file_.fail("the block has " + std::to_string(count) + " nodes, not " + std::to_string(told));
}

void CdbReader::elements()
{
    if (argument(1) != "19" || argument(2) != "SOLID")
        return skip_elements();
    const Columns form = columns();
    for (expect_line(); line_ != "-1"; expect_line())
    {
        const int64_t line = file_.place().line;
        std::vector<int> numbers = integers(form, kHeadOfElement + kNodesOnFirstLine);
        const size_t nodes = numbers.size() < kHeadOfElement || numbers[8] < 1 ? 0 : size_t(numbers[8]);
        if (nodes == 0 || nodes > size_t(kMostNodes))
            file_.fail("an element has 11 numbers and 1 to 20 nodes");
        if (nodes > kNodesOnFirstLine)
        {
            expect_line();
            const std::vector<int> more = integers(form, nodes - kNodesOnFirstLine);
            numbers.insert(numbers.end(), more.begin(), more.end());
        }
        if (numbers.size() < kHeadOfElement + nodes)
            file_.fail("element " + std::to_string(numbers[10]) + " has " + std::to_string(nodes) + " nodes, not " +
                       std::to_string(numbers.size() - kHeadOfElement));
        numbers.resize(kHeadOfElement + nodes);
        element(numbers, line);
    }
}

// Blocks of contacts and point masses, which have a form of their own.
void CdbReader::skip_elements()
{
    builder_.leave_density("a block of elements is not of solids");
    for (expect_line(); line_ != "-1"; expect_line())
        if (line_.empty() || line_[0] != '(')
            builder_.skip("lines of other elements");
}

void CdbReader::element(std::vector<int> numbers, int64_t line)
{
    const auto type = routines_.find(numbers[1]);
    if (type == routines_.end())
        throw InputError({file_.place().file, line}, "element type " + std::to_string(numbers[1]) + " is not defined");
    const auto* routine = std::find_if(std::begin(kRoutines), std::end(kRoutines),
                                       [&type](const Routine& row) { return row.number == type->second; });
    if (routine == std::end(kRoutines) || routine->kind == Kind::massless)
    {
        if (routine == std::end(kRoutines))
            builder_.leave_density("elements of type " + std::to_string(type->second) + " are not read");
        return builder_.skip("elements of type " + std::to_string(type->second));
    }
    std::vector<int> given(numbers.begin() + kHeadOfElement, numbers.end());
    const size_t corners = routine->kind == Kind::solid ? 8 : 4;
    if (given.size() < corners)
        throw InputError({file_.place().file, line},
                         "element " + std::to_string(numbers[10]) + " has " + std::to_string(given.size()) + " nodes");
    // mid-side nodes may be left out one by one; behind four corners, others may give a direction
    const bool complete = given.size() == (routine->kind == Kind::solid ? 20
                                           : routine->kind == Kind::tet ? 10
                                                                        : 8) &&
                          std::find(given.begin(), given.end(), 0) == given.end();
    const bool some = !complete && std::any_of(given.begin() + std::ptrdiff_t(corners), given.end(),
                                               [](int node) { return node != 0; });
    if (some)
    {
        builder_.skip("elements of type " + std::to_string(type->second) + ", but for their corners");
        builder_.leave_density("elements lack some of their mid-side nodes");
    }
    if (!complete)
        given.resize(corners);
    add_form(routine->kind, numbers, given, line);
}

void CdbReader::add_form(Kind kind, const std::vector<int>& numbers, const std::vector<int>& given, int64_t line)
{
    const auto form = std::find_if(forms().begin(), forms().end(), [&](const Form& row) {
        return row.kind == kind &&
               std::all_of(row.merged.begin(), row.merged.end(), [&given](const std::vector<int>& group) {
                   return std::all_of(group.begin(), group.end(), [&given, &group](int corner) {
                       return given[size_t(corner)] == given[size_t(group[0])];
                   });
               });
    });
    const bool quadratic = given.size() > (kind == Kind::solid ? 8 : 4);
    const ElementType& type = quadratic ? form->quadratic : form->linear;
    if (type.shape == Shape::point)
    {
        builder_.leave_density("pyramids are not read");
        return builder_.skip("pyramids");
    }
    std::vector<int> nodes;
    for (int i = 0; i < node_count(type.shape); ++i)
        nodes.push_back(given[size_t(form->order.empty() ? i : form->order[size_t(i)])]);
    builder_.add_element(numbers[10], type, nodes, 0, line);
    materials_.push_back(numbers[0]);
}

// Of a list, a negative number ends a range that the one before it begins.
void CdbReader::component()
{
    const std::string name = std::string(trim(arguments_.size() > 1 ? arguments_[1] : ""));
    const bool of_nodes = argument(2) == "NODE";
    int64_t left = number(3);
    const Columns form = columns();
    std::optional<int> before;
    if (!of_nodes)
        builder_.skip("components of elements");
    while (left > 0)
    {
        expect_line();
        const std::vector<int> numbers = integers(form, size_t(std::min<int64_t>(left, int64_t(form.integers))));
        if (numbers.empty())
            file_.fail("the component " + name + " lacks " + std::to_string(left) + " numbers");
        for (int id : numbers)
        {
            if (id < 0 && (!before || id < -std::numeric_limits<int>::max() || -id < *before))
                file_.fail("a range of the component " + name + " does not rise");
            if (of_nodes)
                builder_.add_range_to_set(name, id < 0 ? *before : id, id < 0 ? -id : id);
            before = id < 0 ? std::nullopt : std::optional(id);
        }
        left -= int64_t(numbers.size());
    }
}

// MP,DENS,material,constant,factors of temperature. A density that depends on temperature is none.
void CdbReader::material_property()
{
    if (argument(1) != "DENS")
        return;
    bool constant = true;
    for (size_t i = 4; i < arguments_.size(); ++i)
        constant &= arguments_[i].empty() || parse_real(arguments_[i], file_.place()) == 0.0;
    densities_[number(2)] = constant ? density(3) : 0.0;
}

// MPDATA,DENS,material,place,values, with a revision and a count before DENS in archives.
void CdbReader::material_table()
{
    const size_t at = argument(1) == "DENS" ? 1 : 3;
    if (argument(at) != "DENS")
        return;
    for (size_t i = at + 3; i < arguments_.size(); ++i)
        if (!arguments_[i].empty())
            if (const auto [slot, added] = densities_.try_emplace(number(at + 1), density(i));
                slot->second != density(i))
                slot->second = 0.0;
}

double CdbReader::density(size_t i) const
{
    const double value = parse_real(argument(i), file_.place());
    if (value < 0.0)
        file_.fail("the density is negative");
    return value;
}

void CdbReader::skip(const std::string& name)
{
    if (std::find(std::begin(kRefusedCommands), std::end(kRefusedCommands), name) != std::end(kRefusedCommands))
        file_.fail(name + " cannot be read: nodes are read from blocks only");
    if (std::find(std::begin(kHeavyCommands), std::end(kHeavyCommands), name) != std::end(kHeavyCommands))
        builder_.leave_density("elements outside of blocks are not read");
    builder_.skip(name);
}

// Lines of numbers outside of the blocks that are read belong to blocks that are not.
MeshFile CdbReader::read()
{
    builder_.add_file(file_.place().file);
    while (next())
    {
        if (line_.empty() ||
            !(std::isalpha(static_cast<unsigned char>(line_[0])) || line_[0] == '/' || line_[0] == '*'))
            continue;
        for (std::string_view rest = line_;;)
        {
            const size_t comma = rest.find(',');
            arguments_.push_back(trim(rest.substr(0, comma)));
            if (comma == std::string_view::npos)
                break;
            rest.remove_prefix(comma + 1);
        }
        const std::string name = argument(0);
        const auto* row =
            std::find_if(std::begin(kRows), std::end(kRows), [&name](const Row& r) { return r.name == name; });
        if (row != std::end(kRows))
            (this->*row->handler)();
        else
            skip(name);
    }
    for (size_t i = 0; i < materials_.size(); ++i)
        if (const auto found = densities_.find(materials_[i]); found != densities_.end())
            builder_.elements()[i].density = found->second;
    return builder_.finish();
}

MeshFile read_cdb(const std::string& path, Progress& progress)
{
    return CdbReader(path, progress).read();
}

} // namespace zel_fem::meshes
