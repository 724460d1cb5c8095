// The suffix of a file tells little: .inp, .dat and .txt are written by several programs. The first line that can stand
// in one format only decides.
#include "fem/sources/meshes/mesh_file.h"

#include "fem/sources/meshes/readers.h"
#include "fem/sources/text_file.h"

namespace zel_fem::meshes
{

struct Format
{
    bool (*has_line)(std::string_view line);
    MeshFile (*read)(const std::string& path, Progress& progress);
};

constexpr Format kFormats[] = {
    {is_cdb, read_cdb}, // before decks, for its lines that begin with *
    {is_deck, read_deck}, {is_gmsh, read_gmsh}, {is_nastran, read_nastran}, {is_node_table, read_node_table},
};
constexpr int kLinesAsked = 100000; // headers and comments are shorter

static const Format& format_of(const std::string& path)
{
    LineReader file(path);
    std::string_view line;
    for (int count = 0; count < kLinesAsked && file.next(line); ++count)
        for (const Format& format : kFormats)
            if (format.has_line(trim(line)))
                return format;
    throw InputError({path, 0}, "no mesh of a known format");
}

MeshFile read_mesh_file(const std::string& path, Progress& progress)
{
    progress.begin("read the mesh");
    const size_t comma = path.find(',');
    if (comma != std::string::npos && !input_exists(path))
        return read_node_and_element_tables(path.substr(0, comma), path.substr(comma + 1), progress);
    return format_of(path).read(path, progress);
}

} // namespace zel_fem::meshes
