// The units that a user writes, as in "mm, t, s, N".
#ifndef UNITS_H
#define UNITS_H

#include <array>
#include <string>

namespace zel_command
{

// Canonical labels of mass, length, time and force.
using UnitLabels = std::array<std::string, 4>;

// Four spellings in any order, separated by commas, one of each dimension; std::runtime_error for anything else.
UnitLabels parse_units(const std::string& text);

// The unit of force over mass length / time^2: 1 when the units belong together.
double consistency_of(const UnitLabels& units);

// Relative; what the printed factors of units that belong together differ by.
constexpr double kConsistentUnits = 1e-4;

} // namespace zel_command

#endif
