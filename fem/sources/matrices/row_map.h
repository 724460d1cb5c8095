// What the rows of matrices move, where the matrices do not say so themselves.
#ifndef FEM_ROW_MAP_H
#define FEM_ROW_MAP_H

#include <string>
#include <vector>

#include "fem/model.h"
#include "fem/sources/matrices/matrix_file.h"

namespace zel_fem::matrices
{

struct RowMap
{
    std::string told;          // for the report: "three translations a node, ascending by number"
    std::vector<Row> rows;     // with indexes into the nodes of the mesh
    bool three_a_node = false; // a mapping vector: it has no place for freedoms that are missing
};

// A file as matrices.h tells. InputError, naming the line, for what it cannot mean, nodes that the mesh does not have and rows that
// move the same.
RowMap read_row_map(const std::string& path, const Mesh& mesh);

// All nodes of the mesh, or of its elements, in their order. InputError, naming the option for a map, where `order` is neither three
// nor six for each of them.
RowMap default_rows(const Mesh& mesh, int64_t order);

} // namespace zel_fem::matrices

#endif
