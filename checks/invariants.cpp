// Inertia invariants against the nodes.
#include "checks/parts.h"

#include <cmath>

namespace zel_checks
{

// Invariant 3 against its sums over the nodes, where the modes cover the masses.
void check_invariants(ZELDATA* db, Phases& phases, Report& report)
{
    phases.begin("nodes and invariants");
    const size_t nodes = size_t(ZEL_NodeCount(db)), modes = size_t(ZEL_ModeCount(db));
    if (!ZEL_Exists(db, ZEL_BLOCK_MASSES - 1) || !ZEL_Exists(db, ZEL_BLOCK_INVAR3 - 1) ||
        ZEL_ModeNodeCount(db, ZEL_MODE_SHAPE) != ZEL_NodeCount(db))
        return;
    const Values stored(ZEL_Invar3(db), std::free);
    std::vector<double> shape(3 * nodes), sums(3 * modes);
    double scale = 0.0;
    for (size_t k = 0; stored && k < modes; ++k)
    {
        if (!ZEL_Mode(db, ZEL_ModeNumber(db, int(k)), ZEL_MODE_SHAPE, shape.data(), 0))
            continue;
        for (size_t p = 0; p < nodes; ++p)
            for (size_t c = 0; c < 3; ++c)
            {
                const double term = ZEL_NodalMass(db, int(p)) * shape[3 * p + c];
                sums[c * modes + k] += term;
                scale += std::fabs(term);
            }
    }
    const double difference = stored ? relative_difference(stored.get(), sums.data(), sums.size(), scale) : 1.0;
    report.check("invariant 3 follows from modes and masses", format("largest difference %.1e", difference),
                 difference <= rounding(db), {{"difference", difference}});
}

} // namespace zel_checks
