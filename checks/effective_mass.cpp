// How much of a body's mass each mode carries along when its supports shake (R. W. Clough and J. Penzien, Dynamics of Structures,
// chapter on base excitation): with L = phi^T M r for the motion r of a rigid body, L^2 / (phi^T M phi).
#include "checks/parts.h"

#include <algorithm>
#include <cmath>

namespace zel_checks
{

bool nodes_tell_all(ZELDATA* db)
{
    if (!ZEL_Exists(db, ZEL_BLOCK_MASSES - 1) || !ZEL_ModeExist(db, ZEL_MODE_SHAPE))
        return false;
    double inertia[9];
    for (int node = ZEL_ModeNodeCount(db, ZEL_MODE_SHAPE); node < ZEL_NodeCount(db); ++node)
        if (ZEL_NodalMass(db, node) != 0.0 || ZEL_NodalInertia(db, node, inertia))
            return false;
    return true;
}

// L is invariant 3 for translations, and invariant 4 for rotations about the origin. The library sums them over the nodes where
// they are not stored; it leaves zeros where a mass has no mode shape, which is no answer.
static bool tells_participation(ZELDATA* db)
{
    return (ZEL_Exists(db, ZEL_BLOCK_INVAR3 - 1) && ZEL_Exists(db, ZEL_BLOCK_INVAR4 - 1)) || nodes_tell_all(db);
}

std::vector<Participation> participations_of(ZELDATA* db, const std::vector<Mode>& modes)
{
    std::vector<Participation> all;
    const size_t count = modes.size();
    if (count == 0 || !modes.front().hertz || !tells_participation(db)) // coupled modes share their masses
        return all;
    const Values linear(ZEL_Invar3(db), std::free), angular(ZEL_Invar4(db), std::free);
    const MassProperties body = mass_properties(db);
    if (!linear || !angular || !(body.mass > 0.0))
        return all;
    const std::array<double, 9> tensor = tensor_about(body, body.center);
    constexpr double kNoInertia = 1e-12; // of the largest one: the body is a line along this axis
    const double least = kNoInertia * std::max({tensor[0], tensor[4], tensor[8]});
    for (size_t k = 0; k < count; ++k)
    {
        std::array<double, 3> p, h; // linear momentum, and angular momentum about the centre
        for (size_t c = 0; c < 3; ++c)
            p[c] = linear.get()[c * count + k];
        for (size_t c = 0; c < 3; ++c)
        {
            const size_t d = (c + 1) % 3, e = (c + 2) % 3;
            h[c] = angular.get()[c * count + k] - (body.center[d] * p[e] - body.center[e] * p[d]);
        }
        auto& [factors, share] = all.emplace_back();
        for (size_t c = 0; c < 3; ++c)
        {
            factors[c] = p[c] / modes[k].mass;
            factors[3 + c] = h[c] / modes[k].mass;
            share[c] = p[c] * p[c] / modes[k].mass / body.mass;
            share[3 + c] = tensor[4 * c] > least ? h[c] * h[c] / modes[k].mass / tensor[4 * c] : std::nan("");
        }
    }
    return all;
}

std::vector<std::array<double, 6>> effective_masses_of(ZELDATA* db)
{
    std::vector<std::array<double, 6>> shares;
    for (const Participation& one : participations_of(db, modes_of(db)))
        shares.push_back(one.share);
    return shares;
}

} // namespace zel_checks
