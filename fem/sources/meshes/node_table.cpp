// Tables of nodes and elements as spreadsheets and exports of result viewers have them: a number and three coordinates
// a line, or a number, perhaps the name of a type, and nodes. What follows the first number of a line separates the
// columns: a comma, a semicolon, or blanks and tabs. Unless commas separate, a comma is the decimal one.
#include <algorithm>
#include <optional>

#include "fem/sources/meshes/builder.h"
#include "fem/sources/meshes/readers.h"
#include "fem/sources/text_file.h"

namespace zel_fem::meshes
{

constexpr const char* kFormat = "plain table of nodes";
constexpr std::string_view kSpace = " \t";

// A word for the type counts by its first letters, as in "Hex20" and "wedge"; without one, the first type of so many
// nodes is taken.
constexpr size_t kLetters = 3;
constexpr ElementType kTableTypes[] = {
    {"tet4", Shape::tet4, 0, 4},       {"tet10", Shape::tet10, 0, 4},   {"wedge6", Shape::wedge6, 0, 4},
    {"wedge15", Shape::wedge15, 0, 4}, {"prism6", Shape::wedge6, 0, 4}, {"prism15", Shape::wedge15, 0, 4},
    {"hex8", Shape::hex8, 0, 4},       {"hex20", Shape::hex20, 0, 4},   {"tri3", Shape::tri3, 0, 4},
    {"tri6", Shape::tri6, 0, 4},       {"quad4", Shape::quad4, 0, 4},   {"quad8", Shape::quad8, 0, 4},
};

namespace
{
class Table
{
public:
    Table(const std::string& path, MeshBuilder& builder, Progress& progress)
        : file_(path), builder_(builder), progress_(progress)
    {}
    void read_nodes();
    void read_elements();

private:
    bool next_row(std::vector<std::string_view>& fields);
    double coordinate(std::string_view field);

    LineReader file_;
    MeshBuilder& builder_;
    Progress& progress_;
    bool header_ = false, rows_ = false;
    std::optional<bool> decimal_comma_; // once a field has shown it
};
} // namespace

static bool is_digits(std::string_view text)
{
    return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

static std::string_view first_field(std::string_view line)
{
    return line.substr(0, line.find_first_of(" \t;,"));
}

static char separator_of(std::string_view line)
{
    const size_t after = line.find_first_not_of(kSpace, first_field(line).size());
    const char next = after == std::string_view::npos ? ' ' : line[after];
    return next == ';' || next == ',' ? next : ' ';
}

static std::vector<std::string_view> split_row(std::string_view line)
{
    const char separator = separator_of(line);
    const std::string_view ends = separator == ' ' ? kSpace : std::string_view(separator == ';' ? ";" : ",");
    std::vector<std::string_view> fields;
    while (!line.empty())
    {
        const size_t end = line.find_first_of(ends);
        fields.push_back(trim(line.substr(0, end)));
        line.remove_prefix(end == std::string_view::npos ? line.size() : end + 1);
        if (separator == ' ')
            line.remove_prefix(std::min(line.find_first_not_of(kSpace), line.size()));
    }
    return fields;
}

bool is_node_table(std::string_view line)
{
    return is_digits(first_field(line)) && split_row(line).size() >= 4;
}

// A row whose number is damaged must not pass for the header.
static bool has_numbers(std::string_view line)
{
    int numbers = 0;
    while (!line.empty())
    {
        const std::string_view field = line.substr(0, line.find_first_of(" \t;,"));
        line.remove_prefix(std::min(field.size() + 1, line.size()));
        numbers += field.find_first_of("0123456789") != std::string_view::npos &&
                   field.find_first_not_of("0123456789+-.eEdD") == std::string_view::npos;
    }
    return numbers > 2;
}

// Empty lines and those that begin with # are no rows, nor is one line of words before the first row.
bool Table::next_row(std::vector<std::string_view>& fields)
{
    std::string_view line;
    while (file_.next(line))
    {
        if (file_.place().line == 1 && line.starts_with("\xEF\xBB\xBF"))
            line.remove_prefix(3); // the mark of UTF-8
        line = trim(line);
        if (file_.place().line % 4096 == 0)
            progress_.advance(file_.share_read());
        if (line.empty() || line[0] == '#')
            continue;
        if (!is_digits(first_field(line)))
        {
            if (header_ || rows_ || has_numbers(line))
                file_.fail("a row begins with the number of a node or element, not with " +
                           in_quotes(first_field(line)));
            header_ = true;
            std::string header(line);
            std::replace(header.begin(), header.end(), '\t', ' ');
            builder_.note("header of the table: " + in_quotes(header));
            continue;
        }
        rows_ = true;
        fields = split_row(line);
        return true;
    }
    return false;
}

// A point beside decimal commas divides thousands somewhere in the world, so that no table has both.
double Table::coordinate(std::string_view field)
{
    std::string text(field);
    const bool comma = text.find(',') != std::string::npos, point = text.find('.') != std::string::npos;
    if ((comma || point) && (comma == point || decimal_comma_.value_or(comma) != comma))
        file_.fail("decimal points and decimal commas in one table: " + in_quotes(field));
    if (comma || point)
        decimal_comma_ = comma;
    std::replace(text.begin(), text.end(), ',', '.');
    return parse_real(text, file_.place());
}

void Table::read_nodes()
{
    std::vector<std::string_view> fields;
    while (next_row(fields))
    {
        if (fields.size() != 4)
            file_.fail("a row has the number of a node and three coordinates, not " + std::to_string(fields.size()) +
                       " columns");
        const Eigen::Vector3d at(coordinate(fields[1]), coordinate(fields[2]), coordinate(fields[3]));
        builder_.add_node(parse_int(fields[0], file_.place()), at, file_.place());
    }
}

static bool is_named(const ElementType& type, std::string_view word)
{
    return word.size() >= kLetters && std::equal(word.begin(), word.begin() + kLetters, type.name.begin(),
                                                 [](char a, char b) { return (a | ' ') == b; });
}

void Table::read_elements()
{
    const int file = builder_.add_file(file_.place().file);
    std::vector<std::string_view> fields;
    std::vector<int> nodes;
    while (next_row(fields))
    {
        const std::string_view word = fields.size() > 1 && !is_digits(fields[1]) ? fields[1] : "";
        nodes.clear();
        for (size_t i = word.empty() ? 1 : 2; i < fields.size(); ++i)
            nodes.push_back(parse_int(fields[i], file_.place()));
        const auto* type = std::find_if(std::begin(kTableTypes), std::end(kTableTypes), [&](const ElementType& row) {
            return node_count(row.shape) == int(nodes.size()) && (word.empty() || is_named(row, word));
        });
        if (type == std::end(kTableTypes))
            file_.fail((word.empty() ? "an element" : "an element of type " + in_quotes(word)) + " with " +
                       std::to_string(nodes.size()) + " nodes is not known");
        builder_.add_element(parse_int(fields[0], file_.place()), *type, nodes, file, file_.place().line);
    }
}

MeshFile read_node_table(const std::string& path, Progress& progress)
{
    MeshBuilder builder(kFormat);
    builder.add_file(path);
    Table(path, builder, progress).read_nodes();
    return builder.finish();
}

MeshFile read_node_and_element_tables(const std::string& nodes, const std::string& elements, Progress& progress)
{
    MeshBuilder builder(kFormat);
    builder.add_file(nodes);
    Table(nodes, builder, progress).read_nodes();
    Table(elements, builder, progress).read_elements();
    return builder.finish();
}

} // namespace zel_fem::meshes
