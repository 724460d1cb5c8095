// The body as a rigid one: its global mass properties.
#include "zel.h"
#include "zeldb.h"

#include <cmath>

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
