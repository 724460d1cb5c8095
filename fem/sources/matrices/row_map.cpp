#include "fem/sources/matrices/row_map.h"

#include <algorithm>

#include "checks/report.h"
#include "fem/body.h"
#include "fem/sources/matrices/readers.h"

namespace zel_fem::matrices
{

using zel_checks::format;

namespace
{
// Rows as a file names them, one after another.
class Mapping
{
public:
    Mapping(LineReader& reader, const Mesh& mesh, RowMap& map)
        : reader_(reader), mesh_(mesh), map_(map), moved_(mesh.nodes.size())
    {}
    // Components are counted from 0.
    void add(int64_t node_id, int64_t component);

private:
    LineReader& reader_;
    const Mesh& mesh_;
    RowMap& map_;
    std::vector<char> moved_; // by node: a bit a component
};
} // namespace

void Mapping::add(int64_t node_id, int64_t component)
{
    const std::string name = "node " + std::to_string(node_id);
    if (component < 0 || component > 5)
        reader_.fail("component " + std::to_string(component + 1) + " of " + name +
                     " is none of 1 to 6, translations and rotations");
    const int node = node_id == int(node_id) ? find_node(mesh_, int(node_id)) : -1;
    if (node < 0)
        reader_.fail("a row moves " + name + ", which the mesh does not have");
    if (moved_[size_t(node)] >> component & 1)
        reader_.fail("two rows move component " + std::to_string(component + 1) + " of " + name);
    moved_[size_t(node)] = char(moved_[size_t(node)] | 1 << component);
    map_.rows.push_back({node, int(component)});
}

// A mapping vector: the number of its entries, and the node of each three rows.
static void read_vector(LineReader& reader, Mapping& mapping)
{
    std::string_view line = size_line(reader);
    Numbers sizes(line);
    int64_t count = 0, columns = 0, found = 0, node = 0;
    if (!sizes.next(count) || !sizes.next(columns) || !sizes.ended() || columns != 1 || count < 1)
        reader.fail("expected the number of nodes and a 1, found " + in_quotes(line));
    while (reader.next(line))
    {
        Numbers numbers(line);
        if (is_comment(line))
            continue;
        if (!numbers.next(node) || !numbers.ended())
            reader.fail("expected the number of a node, found " + in_quotes(line));
        if (++found > count)
            reader.fail("has more entries than the " + std::to_string(count) + " of its header");
        for (int component = 0; component < 3; ++component)
            mapping.add(node, component);
    }
    if (found < count)
        reader.fail("ends behind " + std::to_string(found) + " of " + std::to_string(count) +
                    " entries: it is cut off");
}

// "node.component" or "node component".
static void read_freedoms(LineReader& reader, std::string_view line, Mapping& mapping)
{
    do
    {
        if (is_comment(line))
            continue;
        std::string words(line);
        std::replace(words.begin(), words.end(), '.', ' ');
        Numbers numbers(words);
        int64_t node = 0, component = 0;
        if (!numbers.next(node) || !numbers.next(component) || !numbers.ended())
            reader.fail("expected \"node.component\" or \"node component\", found " + in_quotes(line));
        mapping.add(node, component - 1);
    } while (reader.next(line));
}

RowMap read_row_map(const std::string& path, const Mesh& mesh)
{
    LineReader reader(path);
    RowMap map;
    map.told = "what " + path + " says";
    Mapping mapping(reader, mesh, map);
    std::string_view line;
    if (!reader.next(line))
        reader.fail("has no rows");
    if (!is_matrix_market(line))
        read_freedoms(reader, line, mapping);
    else if (matrix_market_header(line) == std::vector<std::string>{"matrix", "array", "integer", "general"})
    {
        read_vector(reader, mapping);
        map.three_a_node = true;
    }
    else
        reader.fail("expected a mapping vector, \"matrix array integer general\", found " + in_quotes(line));
    if (!reader.line_ended())
        reader.fail("the last line has no end: the file is cut off");
    if (map.rows.empty())
        reader.fail("has no rows");
    return map;
}

RowMap default_rows(const Mesh& mesh, int64_t order)
{
    const std::vector<char> used = used_nodes(mesh);
    const auto all = int64_t(mesh.nodes.size()), of_elements = int64_t(std::count(used.begin(), used.end(), char(1)));
    for (const int components : {3, 6})
        for (const int64_t nodes : {all, of_elements})
        {
            if (order != components * nodes)
                continue;
            RowMap map;
            map.told = format("%s of each node, ascending by number",
                              components == 3 ? "the three translations" : "the six components");
            for (int node = 0; node < int(all); ++node)
                for (int component = 0; (nodes == all || used[size_t(node)]) && component < components; ++component)
                    map.rows.push_back({node, component});
            return map;
        }
    throw InputError(
        {}, format("the matrices have %lld rows, neither three nor six for each of the %lld nodes of the mesh: say "
                   "with --dofs what each row moves",
                   static_cast<long long>(order), static_cast<long long>(all)));
}

} // namespace zel_fem::matrices
