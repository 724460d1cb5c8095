// The formats of meshes, for the table that tells them apart. Each takes the path of one file.
#ifndef FEM_MESH_READERS_H
#define FEM_MESH_READERS_H

#include <string>
#include <string_view>

#include "fem/sources/meshes/mesh_file.h"

namespace zel_fem::meshes
{

// Whether a line, without blanks around it, can only stand in a file of the format. Lines are asked from the first one
// on.
bool is_cdb(std::string_view line);
bool is_deck(std::string_view line);
bool is_gmsh(std::string_view line);
bool is_nastran(std::string_view line);
bool is_node_table(std::string_view line);

MeshFile read_cdb(const std::string& path, Progress& progress);
MeshFile read_deck(const std::string& path, Progress& progress);
MeshFile read_gmsh(const std::string& path, Progress& progress);
MeshFile read_nastran(const std::string& path, Progress& progress);
MeshFile read_node_table(const std::string& path, Progress& progress);
MeshFile read_node_and_element_tables(const std::string& nodes, const std::string& elements, Progress& progress);

} // namespace zel_fem::meshes

#endif
