// Meshes of other programs, one file a format, under one record.
#ifndef FEM_MESH_FILE_H
#define FEM_MESH_FILE_H

#include <map>
#include <string>
#include <vector>

#include "fem/elements.h"
#include "fem/progress.h"

namespace zel_fem::meshes
{

// What a mesh file says, whatever its format.
struct MeshFile
{
    std::string format; // as reports call it: "Nastran bulk data"
    std::string title;  // empty where the file has none
    Mesh mesh; // nodes ascend by id, elements stand as in the file; density and thickness where the file has them
    bool has_density = false;                          // every element with volume has one; no mass stands beside them
    std::map<std::string, std::vector<int>> node_sets; // indexes of nodes, ascending
    std::vector<std::string> notes;                    // what was skipped, with counts, and renumbered
};

// The format is told by the content, and a name ending in .gz may be left out. "NODES,ELEMENTS" are two files: a plain
// table of nodes and one of elements. InputError, naming file and line, for what is damaged, unknown, or would change
// the geometry unread.
MeshFile read_mesh_file(const std::string& path, Progress& progress);

} // namespace zel_fem::meshes

#endif
