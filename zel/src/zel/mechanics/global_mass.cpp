// The global mass properties: as the caller gives them, compared with what the invariants yield, or taken from these.
#include "database/database.h"
#include "mechanics.h"
#include "zel.h"

#include <algorithm>
#include <cmath>

namespace zel
{

// Whether `value` differs from `reference`, relative to what is large and absolute to what is small.
static bool differs(double reference, double value)
{
    constexpr double kTolerance = 1e-8;
    const double scale = std::fabs(reference) > 1.0 ? reference : 1.0;
    return std::fabs((reference - value) / scale) > kTolerance;
}

static bool any_differs(const double* given, const double* expected, int count)
{
    for (int i = 0; i < count; ++i)
        if (differs(given[i], expected[i]))
            return true;
    return false;
}

// Warns of global properties that contradict the invariants which the database yields already.
static void check_global_mass(ZELDATA* db, double mass, const double center[3], const double inertia[9])
{
    RigidInvariants known;
    if (!rigid_invariants(db, known))
        return;
    if (differs(known.mass, mass))
        ZEL_Warning("Global mass is inconsistent with INVAR1 setting or sum of nodal masses.");
    const double divisor = known.mass != 0.0 ? known.mass : mass;
    if (divisor == 0.0)
        ZEL_Info("Global mass is being set to zero.");
    else
        for (double& moment : known.moment)
            moment /= divisor;
    if (any_differs(center, known.moment, 3))
        ZEL_Warning("Global center of mass is inconsistent with INVAR2 setting or nodal data.");
    if (any_differs(inertia, known.tensor, 9))
        ZEL_Warning("Global mass inertia is inconsistent with INVAR7 setting or nodal data.");
}

} // namespace zel

using namespace zel;

int ZEL_CalculateGlobalMassFromNodeMass(ZELDATA* db)
{
    if (!db)
        return no_database();
    RigidInvariants rigid = {};
    if (!rigid_invariants(db, rigid))
        return 0;
    const bool has_mass = rigid.mass != 0.0 && !std::isnan(rigid.mass);
    db->total_mass = rigid.mass;
    for (int axis = 0; axis < 3; ++axis)
        db->center_of_mass[axis] = has_mass ? rigid.moment[axis] / rigid.mass : 0.0;
    for (int i = 0; i < 9; ++i) // products of inertia have the opposite sign of the tensor's components
        db->inertia_tensor[i] = i % 4 == 0 ? rigid.tensor[i] : -rigid.tensor[i];
    return 1;
}

int ZEL_TotalMassInertia(ZELDATA* db, double* mass, double inertia[9], double center[3])
{
    const bool computed = db && ZEL_CalculateGlobalMassFromNodeMass(db);
    if (mass)
        *mass = computed ? db->total_mass : 0.0;
    for (int entry = 0; inertia && entry < 9; ++entry)
        inertia[entry] = computed ? db->inertia_tensor[entry] : 0.0;
    for (int axis = 0; center && axis < 3; ++axis)
        center[axis] = computed ? db->center_of_mass[axis] : 0.0;
    return computed ? 1 : 0;
}

int ZEL_SetGlobalMass(ZELDATA* db, double mass, const double center[3], const double inertia[9])
{
    if (!db)
        return no_database();
    if (!center || !inertia)
        return 0;
    const auto finite = [](double value) { return std::isfinite(value); };
    if (!finite(mass) || !std::all_of(center, center + 3, finite) || !std::all_of(inertia, inertia + 9, finite))
        return fail("The global mass, center of mass or inertia is not finite.");
    check_global_mass(db, mass, center, inertia);
    db->total_mass = mass;
    std::copy_n(center, 3, db->center_of_mass);
    std::copy_n(inertia, 9, db->inertia_tensor);
    raise_flag(db, ZEL_BLOCK_BODY);
    mass_or_modes_changed(db);
    return 1;
}
