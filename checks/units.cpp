// Units: what they are called, and whether they belong together.
#include "checks/parts.h"

#include <cmath>

namespace zel_checks
{

std::array<std::string, 4> units_of(const ZELDATA* db)
{
    char mass[16], length[16], time[16], force[16];
    ZEL_Units(db, mass, length, time, force);
    return {mass, length, time, force};
}

void check_units(ZELDATA* db, Phases&, Report& report)
{
    constexpr double kSameFactor = 1e-4; // what the printed factors of units that belong together differ by
    const double factor = ZEL_UCF(db);
    const auto units = units_of(db);
    const bool consistent = std::fabs(factor - 1.0) <= kSameFactor;
    const std::string meaning =
        consistent ? "" : format(": eigenvalues are multiplied by %.6g to give squared frequencies", factor);
    report.check("units consistent", units[0] + ", " + units[1] + ", " + units[2] + ", " + units[3] + meaning,
                 consistent, {{"factor", factor}});
}

} // namespace zel_checks
