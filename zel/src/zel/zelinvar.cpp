// The inertia invariants: what a multibody solver needs of the body's mass and mode shapes to build its mass matrix
// without visiting the nodes. Each is taken from its slot in the database, else from its block of the file, else summed
// over the nodes; the first use fills the slot.
#include "zel.h"
#include "zeldb.h"

using namespace zel;

static constexpr char kModule[] = "zelinvar";

static bool has_nodal_masses(const ZELDATA* db)
{
    return has_flag(db->content_flags, kBlockMasses);
}

static void add_nodal_inertia(const ZELNODE& node, double tensor[9])
{
    constexpr int kComponent[9] = {0, 3, 4, 3, 1, 5, 4, 5, 2}; // stored as xx yy zz xy xz yz
    for (int i = 0; node.inertia && i < 9; ++i)
        tensor[i] += node.inertia[kComponent[i]];
}

// ---- Invariants 1, 2 and 7: mass, first moment and inertia of the body as a whole -----------------------------------

static void sum_mass(const ZELDATA* db, double mass[1])
{
    mass[0] = has_nodal_masses(db) ? 0.0 : db->total_mass;
    if (has_nodal_masses(db))
        for (int node = 0; node < db->node_count; ++node)
            mass[0] += db->nodes[node].mass;
}

static void sum_moment(const ZELDATA* db, double moment[3])
{
    for (int axis = 0; axis < 3; ++axis)
        moment[axis] = has_nodal_masses(db) ? 0.0 : db->total_mass * db->center_of_mass[axis];
    if (!has_nodal_masses(db))
        return;
    for (int i = 0; i < db->node_count; ++i)
    {
        const ZELNODE& node = db->nodes[i];
        moment[0] += node.mass * node.x;
        moment[1] += node.mass * node.y;
        moment[2] += node.mass * node.z;
    }
}

static void sum_tensor(const ZELDATA* db, double tensor[9])
{
    // The database's own inertia holds products of inertia, which have the opposite sign of the tensor's components.
    const bool from_body = !has_nodal_masses(db) && db->total_mass != 0.0;
    for (int i = 0; i < 9; ++i)
        tensor[i] = !from_body ? 0.0 : i % 4 == 0 ? db->inertia_tensor[i] : -db->inertia_tensor[i];
    for (int i = 0; !from_body && i < db->node_count; ++i)
    {
        const ZELNODE& node = db->nodes[i];
        const double s[3] = {node.x, node.y, node.z};
        const double square = s[0] * s[0] + s[1] * s[1] + s[2] * s[2];
        for (int row = 0; row < 3; ++row)
            for (int column = 0; column < 3; ++column)
                tensor[3 * row + column] += node.mass * ((row == column ? square : 0.0) - s[row] * s[column]);
        add_nodal_inertia(node, tensor);
    }
}

namespace
{
struct Rigid
{
    int number, count;
    double* ZELDATA::*slot;
    void (*sum)(const ZELDATA* db, double* values);
};
} // namespace

static constexpr Rigid kRigid[] = {
    {1, 1, &ZELDATA::invar1, sum_mass},
    {2, 3, &ZELDATA::invar2, sum_moment},
    {7, 9, &ZELDATA::invar7, sum_tensor},
};

// The values of an invariant; returns their origin, 0 when they cannot be read.
static int rigid_values(ZELDATA* db, const Rigid& invariant, double* values)
{
    if (const double* filled = db->*invariant.slot)
    {
        std::memcpy(values, filled, size_t(invariant.count) * sizeof(double));
        return db->invar_origin[invariant.number];
    }
    invariant.sum(db, values);
    return kComputed;
}

namespace zel
{

int rigid_invariants(ZELDATA* db, RigidInvariants& rigid)
{
    return rigid_values(db, kRigid[0], &rigid.mass) && rigid_values(db, kRigid[1], rigid.moment) &&
           rigid_values(db, kRigid[2], rigid.tensor);
}

} // namespace zel

// A copy of an invariant for the caller; null, with a message, when it cannot be had.
static double* rigid_copy(ZELDATA* db, const Rigid& invariant)
{
    if (!CheckZEL(db))
        return nullptr;
    Scratch<double> copy(invariant.count);
    if (!copy.data)
        return no_memory(kModule);
    const int origin = rigid_values(db, invariant, copy.data);
    if (!origin)
        return nullptr;
    if (!(db->*invariant.slot))
    {
        Scratch<double> kept(invariant.count);
        if (!kept.data)
            return no_memory(kModule);
        std::memcpy(kept.data, copy.data, size_t(invariant.count) * sizeof(double));
        db->*invariant.slot = kept.release();
        db->invar_origin[invariant.number] = char(origin);
    }
    return copy.release();
}

double ZEL_Invar1(ZELDATA* db)
{
    double* copy = rigid_copy(db, kRigid[0]);
    const double mass = copy ? *copy : 0.0;
    std::free(copy);
    return mass;
}

double* ZEL_Invar2(ZELDATA* db)
{
    return rigid_copy(db, kRigid[1]);
}

double* ZEL_Invar7(ZELDATA* db)
{
    return rigid_copy(db, kRigid[2]);
}

const char* zelinvar_VersionId(void)
{
    return "zelinvar " ZEL_VERSION;
}
