#include "fem/sources/arrays/cell_types.h"

#include <algorithm>

namespace zel_fem::arrays
{

// meshio and the shapes order their nodes alike: corners, then edges; what lies inside faces and cells comes last.
constexpr CellType kTypes[] = {
    {{"vertex", Shape::point, 0, 0}, 1, 0},        {{"line", Shape::line2, 0, 0}, 2, 1},
    {{"line3", Shape::line3, 0, 0}, 3, 1},         {{"triangle", Shape::tri3, 0, 0}, 3, 2},
    {{"triangle6", Shape::tri6, 0, 0}, 6, 2},      {{"triangle7", Shape::tri6, 0, 0}, 7, 2},
    {{"quad", Shape::quad4, 0, 0}, 4, 2},          {{"quad8", Shape::quad8, 0, 0}, 8, 2},
    {{"quad9", Shape::quad8, 0, 0}, 9, 2},         {{"tetra", Shape::tet4, 0, 0}, 4, 3},
    {{"tetra10", Shape::tet10, 0, 0}, 10, 3},      {{"tetra14", Shape::tet10, 0, 0}, 14, 3},
    {{"wedge", Shape::wedge6, 0, 0}, 6, 3},        {{"wedge15", Shape::wedge15, 0, 0}, 15, 3},
    {{"wedge18", Shape::wedge15, 0, 0}, 18, 3},    {{"hexahedron", Shape::hex8, 0, 0}, 8, 3},
    {{"hexahedron20", Shape::hex20, 0, 0}, 20, 3}, {{"hexahedron24", Shape::hex20, 0, 0}, 24, 3},
    {{"hexahedron27", Shape::hex20, 0, 0}, 27, 3},
};

const CellType* find_cell_type(std::string_view name)
{
    const auto* found =
        std::find_if(std::begin(kTypes), std::end(kTypes), [&](auto& row) { return row.element.name == name; });
    return found == std::end(kTypes) ? nullptr : found;
}

const ElementType& vertex()
{
    return kTypes[0].element;
}

} // namespace zel_fem::arrays
