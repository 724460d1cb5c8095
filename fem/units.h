// The units that a user writes, as in "mm, t, s, N".
#ifndef UNITS_H
#define UNITS_H

#include <string>

namespace zel_fem
{

/** A system of units. */
struct Units
{
    std::string mass;   ///< canonical label, as ZEL_ConvertUnitsLabel gives it
    std::string length; ///< canonical label
    std::string time;   ///< canonical label
    std::string force;  ///< canonical label

    /** Whether all labels are the same. */
    bool operator==(const Units&) const = default;
};

/** Four spellings in any order, separated by commas, one of each dimension. Throws std::runtime_error for anything else. */
Units parse_units(const std::string& text);

/** The unit of force over mass length / time^2: 1 when the units belong together. */
double consistency_of(const Units& units);

/** Relative; what the printed factors of units that belong together differ by. */
constexpr double kConsistentUnits = 1e-4;

} // namespace zel_fem

#endif
