// The cells of meshio that can be drawn.
#ifndef FEM_ARRAYS_CELL_TYPES_H
#define FEM_ARRAYS_CELL_TYPES_H

#include "fem/elements.h"

namespace zel_fem::arrays
{

struct CellType
{
    ElementType element;
    int nodes; // of a cell; those that the element does not have are points of their own
    int dimension;
};

// Null for a type that cannot be drawn.
const CellType* find_cell_type(std::string_view name);

// An element of one node without mass.
const ElementType& vertex();

} // namespace zel_fem::arrays

#endif
