// Gmsh's own files of versions 2 and 4.1 in ASCII. Elements carry their physical groups, directly in version 2 and by
// the entity that they belong to in 4.1; a group is a set of nodes. Orders of nodes: "Node ordering" in Gmsh's
// reference manual.
#include <algorithm>
#include <cstdlib>
#include <limits>
#include <set>

#include "fem/sources/meshes/builder.h"
#include "fem/sources/meshes/readers.h"
#include "fem/sources/text_file.h"

namespace zel_fem::meshes
{

struct GmshType
{
    ElementType element; // of nodes that it does not have, those inside of faces and volumes, nothing is drawn
    int number, dimension, nodes;
    std::array<int, kMostNodes> order; // where the nodes of the shape stand in the file; all zero: in their order
};

// Point and pyramids are no elements of ours.
constexpr GmshType kGmshTypes[] = {
    {{"line", Shape::line2, 0, 4}, 1, 1, 2, {}},
    {{"triangle", Shape::tri3, 0, 4}, 2, 2, 3, {}},
    {{"quadrangle", Shape::quad4, 0, 4}, 3, 2, 4, {}},
    {{"tetrahedron", Shape::tet4, 0, 4}, 4, 3, 4, {}},
    {{"hexahedron", Shape::hex8, 0, 4}, 5, 3, 8, {}},
    {{"prism", Shape::wedge6, 0, 4}, 6, 3, 6, {}},
    {{"pyramid", Shape::point, 0, 0}, 7, 3, 5, {}},
    {{"line3", Shape::line3, 0, 4}, 8, 1, 3, {}},
    {{"triangle6", Shape::tri6, 0, 4}, 9, 2, 6, {}},
    {{"quadrangle9", Shape::quad8, 0, 4}, 10, 2, 9, {}},
    {{"tetrahedron10", Shape::tet10, 0, 4}, 11, 3, 10, {0, 1, 2, 3, 4, 5, 6, 7, 9, 8}},
    {{"hexahedron27", Shape::hex20, 0, 4}, 12, 3, 27, {0,  1, 2,  3,  4,  5,  6,  7,  8,  11,
                                                       13, 9, 16, 18, 19, 17, 10, 12, 14, 15}},
    {{"prism18", Shape::wedge15, 0, 4}, 13, 3, 18, {0, 1, 2, 3, 4, 5, 6, 9, 7, 12, 14, 13, 8, 10, 11}},
    {{"pyramid14", Shape::point, 0, 0}, 14, 3, 14, {}},
    {{"point", Shape::point, 0, 0}, 15, 0, 1, {}},
    {{"quadrangle8", Shape::quad8, 0, 4}, 16, 2, 8, {}},
    {{"hexahedron20", Shape::hex20, 0, 4}, 17, 3, 20, {0,  1, 2,  3,  4,  5,  6,  7,  8,  11,
                                                       13, 9, 16, 18, 19, 17, 10, 12, 14, 15}},
    {{"prism15", Shape::wedge15, 0, 4}, 18, 3, 15, {0, 1, 2, 3, 4, 5, 6, 9, 7, 12, 14, 13, 8, 10, 11}},
    {{"pyramid13", Shape::point, 0, 0}, 19, 3, 13, {}},
};
constexpr const char* kDimensions[] = {"point", "curve", "surface", "volume"};

namespace
{
using Key = std::pair<int, int>; // dimension and number, of an entity or a group

class GmshReader
{
public:
    GmshReader(const std::string& path, Progress& progress) : file_(path), progress_(progress) {}
    MeshFile read();

private:
    bool next(); // a line and its fields
    void expect_line();
    void need(size_t fields) const;
    int number(size_t field) const { return parse_int(fields_[field], file_.place()); }
    int64_t count(size_t field) const;
    int group(size_t field) const;
    Eigen::Vector3d point(size_t field) const;
    void read_format();
    void read_names();
    void read_entities();
    void read_nodes();
    void read_node_blocks();
    void read_elements();
    void read_element_blocks();
    void add_element(int id, const GmshType& type, size_t first_node, const std::vector<int>& groups);
    const GmshType& type_of(size_t field) const;
    void skip_section(const std::string& name);
    void add_sets();

    LineReader file_;
    Progress& progress_;
    MeshBuilder builder_{"Gmsh"};
    std::string_view line_;
    std::vector<std::string_view> fields_;
    bool blocks_ = false; // of version 4.1
    std::string format_;
    std::map<Key, std::string> names_;
    std::map<Key, std::vector<int>> entities_; // groups of each
    std::map<Key, std::vector<int>> groups_;   // ids of nodes
    std::set<std::vector<int>> solids_;        // version 2 writes an element once for each of its groups
};
} // namespace

bool is_gmsh(std::string_view line)
{
    return line.starts_with("$MeshFormat");
}

bool GmshReader::next()
{
    if (!file_.next(line_))
        return false;
    if (file_.place().line % 4096 == 0)
        progress_.advance(file_.share_read());
    line_ = trim(line_);
    fields_.clear();
    for (std::string_view rest = line_; !rest.empty(); rest = trim(rest))
    {
        const size_t end = std::min(rest.find_first_of(" \t"), rest.size());
        fields_.push_back(rest.substr(0, end));
        rest.remove_prefix(end);
    }
    return true;
}

void GmshReader::expect_line()
{
    if (!next())
        file_.fail("the file ends within a section");
}

void GmshReader::need(size_t fields) const
{
    if (fields_.size() < fields)
        file_.fail("a line with " + std::to_string(fields) + " numbers is expected here");
}

int64_t GmshReader::count(size_t field) const
{
    const int value = number(field);
    if (value < 0)
        file_.fail("a count is negative");
    return value;
}

// A negative number turns its members round.
int GmshReader::group(size_t field) const
{
    const int value = number(field);
    if (value < -std::numeric_limits<int>::max())
        file_.fail("a physical group has no such number");
    return std::abs(value);
}

Eigen::Vector3d GmshReader::point(size_t field) const
{
    need(field + 3);
    Eigen::Vector3d at;
    for (size_t axis = 0; axis < 3; ++axis)
        at[int(axis)] = parse_real(fields_[field + axis], file_.place());
    return at;
}

void GmshReader::read_format()
{
    expect_line();
    need(3);
    const std::string version(fields_[0]);
    blocks_ = version == "4.1";
    if (!blocks_ && version != "2" && !version.starts_with("2."))
        file_.fail("version " + version + " cannot be read: save the mesh in version 2.2 or 4.1");
    if (fields_[1] != "0")
        file_.fail("a binary mesh cannot be read: save it as ASCII");
    format_ = "Gmsh " + version;
}

void GmshReader::read_names()
{
    expect_line();
    need(1);
    for (int64_t left = count(0); left > 0; --left)
    {
        expect_line();
        need(3);
        const size_t quote = line_.find('"'), end = line_.rfind('"');
        if (quote == std::string_view::npos || end <= quote + 1)
            file_.fail("the name of a physical group is expected here");
        names_[{number(0), number(1)}] = line_.substr(quote + 1, end - quote - 1);
    }
}

void GmshReader::read_entities()
{
    expect_line();
    need(4);
    const std::array<int64_t, 4> counts = {count(0), count(1), count(2), count(3)};
    for (int dimension = 0; dimension < 4; ++dimension)
        for (int64_t left = counts[size_t(dimension)]; left > 0; --left)
        {
            expect_line();
            const size_t at = dimension == 0 ? 4 : 7; // behind its coordinates or its box
            need(at + 1);
            const int64_t groups = count(at);
            need(at + 1 + size_t(groups));
            for (size_t i = 0; i < size_t(groups); ++i)
                entities_[{dimension, number(0)}].push_back(group(at + 1 + i));
        }
}

void GmshReader::read_nodes()
{
    if (blocks_)
        return read_node_blocks();
    expect_line();
    need(1);
    for (int64_t left = count(0); left > 0; --left)
    {
        expect_line();
        need(4);
        builder_.add_node(number(0), point(1), file_.place());
    }
}

// A block has the numbers of its nodes first, then their coordinates.
void GmshReader::read_node_blocks()
{
    expect_line();
    need(4);
    for (int64_t blocks = count(0); blocks > 0; --blocks)
    {
        expect_line();
        need(4);
        const int64_t nodes = count(3);
        std::vector<int> ids;
        for (int64_t i = 0; i < nodes; ++i)
        {
            expect_line();
            need(1);
            ids.push_back(number(0));
        }
        for (int id : ids)
        {
            expect_line();
            builder_.add_node(id, point(0), file_.place());
        }
    }
}

const GmshType& GmshReader::type_of(size_t field) const
{
    const int wanted = number(field);
    const auto* found = std::find_if(std::begin(kGmshTypes), std::end(kGmshTypes),
                                     [wanted](const GmshType& type) { return type.number == wanted; });
    if (found == std::end(kGmshTypes))
        file_.fail("elements of Gmsh's type " + std::to_string(wanted) + " cannot be read");
    return *found;
}

void GmshReader::read_elements()
{
    if (blocks_)
        return read_element_blocks();
    expect_line();
    need(1);
    for (int64_t left = count(0); left > 0; --left)
    {
        expect_line();
        need(3);
        const int64_t tags = count(2);
        need(3 + size_t(tags));
        std::vector<int> groups;
        if (tags > 0 && number(3) != 0)
            groups.push_back(group(3));
        add_element(number(0), type_of(1), 3 + size_t(tags), groups);
    }
}

void GmshReader::read_element_blocks()
{
    expect_line();
    need(4);
    for (int64_t blocks = count(0); blocks > 0; --blocks)
    {
        expect_line();
        need(4);
        const GmshType& type = type_of(2);
        const auto entity = entities_.find({type.dimension, number(1)});
        const std::vector<int> groups = entity == entities_.end() ? std::vector<int>() : entity->second;
        for (int64_t left = count(3); left > 0; --left)
        {
            expect_line();
            need(1);
            add_element(number(0), type, 1, groups);
        }
    }
}

void GmshReader::add_element(int id, const GmshType& type, size_t first_node, const std::vector<int>& groups)
{
    if (fields_.size() != first_node + size_t(type.nodes))
        file_.fail("an element of type " + std::string(type.element.name) + " has " + std::to_string(type.nodes) +
                   " nodes, not " + std::to_string(std::max(fields_.size(), first_node) - first_node));
    std::vector<int> given, nodes;
    for (size_t i = first_node; i < fields_.size(); ++i)
        given.push_back(number(i));
    for (int group : groups)
    {
        auto& members = groups_[{type.dimension, group}];
        members.insert(members.end(), given.begin(), given.end());
    }
    if (type.element.shape == Shape::point)
        return type.dimension == 0 ? void() : builder_.skip("elements of type " + std::string(type.element.name));
    for (int i = 0; i < node_count(type.element.shape); ++i)
        nodes.push_back(given[size_t(type.order[1] ? type.order[size_t(i)] : i)]);
    if (type.dimension == 3 && !solids_.insert(nodes).second)
        return builder_.skip("repeated elements, of another group");
    builder_.add_element(id, type.element, nodes, 0, file_.place().line);
}

void GmshReader::skip_section(const std::string& name)
{
    const std::string end = "$End" + name.substr(1);
    builder_.skip(name);
    do
        expect_line();
    while (line_ != end);
}

// A group has its name, or else its number, and its dimension behind it where another dimension has a group of that
// name.
void GmshReader::add_sets()
{
    auto name_of = [this](const Key& group) {
        const auto found = names_.find(group);
        return found == names_.end() ? std::to_string(group.second) : found->second;
    };
    std::map<std::string, int> owners;
    for (const auto& [group, nodes] : groups_)
        ++owners[name_of(group)];
    for (const auto& [group, nodes] : groups_)
    {
        const std::string name = name_of(group);
        builder_.add_to_set(owners[name] == 1 ? name : name + "-" + kDimensions[group.first], nodes);
    }
}

MeshFile GmshReader::read()
{
    using Section = void (GmshReader::*)();
    const std::pair<std::string_view, Section> sections[] = {{"$MeshFormat", &GmshReader::read_format},
                                                             {"$PhysicalNames", &GmshReader::read_names},
                                                             {"$Entities", &GmshReader::read_entities},
                                                             {"$Nodes", &GmshReader::read_nodes},
                                                             {"$Elements", &GmshReader::read_elements}};
    builder_.add_file(file_.place().file);
    while (next())
    {
        if (line_.empty())
            continue;
        const std::string name(line_);
        const auto* section = std::find_if(std::begin(sections), std::end(sections),
                                           [&name](const auto& row) { return row.first == name; });
        if (name[0] != '$' || (format_.empty() && section != std::begin(sections)))
            file_.fail("a section is expected here, not " + in_quotes(name));
        if (section == std::end(sections))
        {
            skip_section(name);
            continue;
        }
        (this->*section->second)();
        expect_line();
        if (line_ != "$End" + name.substr(1))
            file_.fail("$End" + name.substr(1) + " is expected here");
    }
    add_sets();
    MeshFile file = builder_.finish();
    file.format = format_;
    return file;
}

MeshFile read_gmsh(const std::string& path, Progress& progress)
{
    return GmshReader(path, progress).read();
}

} // namespace zel_fem::meshes
