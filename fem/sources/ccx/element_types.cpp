#include "fem/sources/ccx/element_types.h"

#include <algorithm>

namespace zel_fem::ccx
{

// The solver integrates shells and beams as the solids that it makes of them. Where stress is told, it agrees with the solver's.
constexpr ElementType kTypes[] = {
    {"C3D4", Shape::tet4, 1, 0, StressRule::points},
    {"C3D6", Shape::wedge6, 1, 2}, // the solver gives its nodes each other's stress
    {"C3D8", Shape::hex8, 0, 2, StressRule::points},
    {"C3D8R", Shape::hex8, 0, 1, StressRule::mean},
    {"C3D8I", Shape::hex8, 0, 2},
    {"C3D10", Shape::tet10, 4, 0, StressRule::points},
    {"C3D10T", Shape::tet10, 4, 0, StressRule::points},
    {"C3D15", Shape::wedge15, 3, 3, StressRule::points},
    {"C3D20", Shape::hex20, 0, 3, StressRule::points},
    {"C3D20R", Shape::hex20, 0, 2, StressRule::points},
    {"C3D20RI", Shape::hex20, 0, 2},
    {"S3", Shape::tri3, 1, 2},
    {"S4", Shape::quad4, 0, 2},
    {"S4R", Shape::quad4, 0, 1},
    {"S6", Shape::tri6, 3, 3},
    {"S8", Shape::quad8, 0, 3},
    {"S8R", Shape::quad8, 0, 2},
    {"MASS", Shape::point, 0, 0, StressRule::none},
    // The solver counts them at their nodes, with a stress of zero.
    {"SPRINGA", Shape::line2, 0, 0},
    {"SPRING2", Shape::line2, 0, 0},
    {"DASHPOTA", Shape::line2, 0, 0},
    {"B31", Shape::line2, 0, 0},
    {"B32", Shape::line3, 0, 0},
    {"B32R", Shape::line3, 0, 0},
    {"T3D2", Shape::line2, 0, 0},
    {"T3D3", Shape::line3, 0, 0},
};

const ElementType* find_element_type(std::string_view name)
{
    const auto* found = std::find_if(std::begin(kTypes), std::end(kTypes), [&](auto& row) { return row.name == name; });
    return found == std::end(kTypes) ? nullptr : found;
}

int incompatible_nodes(const ElementType& type)
{
    return type.name == "C3D8I" || type.name == "T3D2" ? 3 : 0;
}

} // namespace zel_fem::ccx
