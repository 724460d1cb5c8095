// The body as a rigid one: its global mass properties, and the projection of modal loads and damping from the first modes,
// the rigid-body modes, onto the six principal rigid-body coordinates (three forces, three moments).
#include "database/database.h"
#include "mechanics.h"
#include "zel.h"

#include <algorithm>
#include <cmath>
#include <optional>

namespace zel
{

static constexpr int kRigid = 6;

// ---- Rigid-body modes -----------------------------------------------------------------------------------------------

namespace
{
// Frequencies of the modes by index, 0 where they cannot be told. Of records, of a few modes and without memory each is looked
// for by itself; of many without records that would take the square of their number.
class Frequencies
{
public:
    explicit Frequencies(ZELDATA* db) : db_(db)
    {
        constexpr int kMany = 1000;
        if (db->mode_count > kMany && !db->eigenvalues)
            cycles_.emplace(db->mode_count);
        listed_ = cycles_ && cycles_->data && list_frequencies(db, cycles_->data);
    }
    double operator[](int mode) const
    {
        const int number = ZEL_ModeNumber(db_, mode);
        double hertz = 0.0;
        if (listed_)
            return cycles_->data[ZEL_ModeIndex(db_, number)];
        ZEL_Eigenvalue(db_, number, nullptr, &hertz, nullptr, nullptr, nullptr);
        return hertz;
    }

private:
    ZELDATA* db_;
    std::optional<Scratch<double>> cycles_;
    bool listed_;
};
} // namespace

static int count_rigid_modes(ZELDATA* db, double hertz_per_unit)
{
    constexpr double kAlmostZero = 0.1, kClearlyFlexible = 10.0, kJump = 10000.0;
    const int modes = ZEL_ModeCount(db);
    if (modes < 2)
        return 0;
    const Frequencies frequencies(db);
    const double first = frequencies[0] * hertz_per_unit;
    double previous = first;
    for (int mode = 1; mode < modes; ++mode)
    {
        const double current = frequencies[mode] * hertz_per_unit;
        if (std::fabs(first) < kAlmostZero && current > kClearlyFlexible)
            return mode;
        if (std::fabs(current) > kJump * std::fabs(previous))
            return mode;
        previous = current;
    }
    return 0;
}

int rigid_modes_by_hertz(ZELDATA* db)
{
    const double seconds = ZEL_Time2Second(db, 1.0);
    return count_rigid_modes(db, seconds > 0.0 ? 1.0 / seconds : 1.0);
}

// ---- Loads ----------------------------------------------------------------------------------------------------------

// Force and moment that a unit of each of the first `rigid_modes` modal coordinates stands for: six values a mode. They are
// the mode's momentum over its generalized mass; a mode without generalized mass has none. 0, with a message, on failure.
//
// The momentum of a mode is its column in invariants 3 and 4, or the same sums over the nodes, without their inertias.
static int resultants_of_modes(ZELDATA* db, int rigid_modes, bool from_nodes, double* resultants)
{
    Scratch<double> moments(int64_t(12) * rigid_modes);
    if (!moments.data)
        return no_memory(module_word::tools);
    if (from_nodes ? !mass_moments(db, rigid_modes, moments.data) : !fill_invariant(db, 3) || !fill_invariant(db, 4))
        return 0;
    for (int mode = 0; mode < rigid_modes; ++mode)
    {
        double* const force = resultants + int64_t(kRigid) * mode;
        double* const moment = force + 3;
        for (int axis = 0; axis < 3; ++axis)
        {
            force[axis] = from_nodes ? moments[int64_t(3) * mode + axis] : invariant_piece(db, 3, axis)[mode];
            moment[axis] = from_nodes ? 0.0 : invariant_piece(db, 4, axis)[mode];
        }
        if (from_nodes)
            angular_moment(moments.data, rigid_modes, mode, moment);
        double gen_mass = 0.0;
        ZEL_Eigenvalue(db, ZEL_ModeNumber(db, mode), nullptr, nullptr, nullptr, &gen_mass, nullptr);
        for (int i = 0; i < kRigid; ++i)
            force[i] = gen_mass == 0.0 ? 0.0 : force[i] / gen_mass;
    }
    return 1;
}

static constexpr double kNegligible = 1e-10;

// Replaces the first components of a modal vector by the resultant force and moment of its rigid-body part.
static void project_load(double* load, int modes, const double* resultants, int rigid_modes)
{
    double sum[kRigid] = {};
    for (int mode = 0; mode < std::min(rigid_modes, modes); ++mode)
        for (int i = 0; i < kRigid; ++i)
            sum[i] += load[mode] * resultants[int64_t(kRigid) * mode + i];
    for (int i = 0; rigid_modes > 0 && i < std::min(kRigid, modes); ++i)
        load[i] = std::fabs(sum[i]) <= kNegligible ? 0.0 : sum[i];
}

static void warn_of_rigid_preload(const ZELDATA* db, int rigid_modes)
{
    for (int mode = 0; mode < std::min(rigid_modes, db->mode_count); ++mode)
        if (std::fabs(db->modal_preload[mode]) > kNegligible)
            ZEL_Warning("ZEL contains a preload with a rigid body component which is being ignored");
}

static bool loads_wait_for_projection(const ZELDATA* db)
{
    bool waits = db->modal_preload && !db->principal_axes_done;
    for (int i = 0; i < db->load_case_count; ++i)
        waits = waits || !db->load_cases[i].processed;
    return waits;
}

// Whether generalized stiffness couples modes without eigenvalues: then none of them alone is a rigid-body mode.
static bool has_coupled_modes(const ZELDATA* db)
{
    const ZELENTRY *first = db->stiffness.entries, *last = first + db->stiffness.count;
    return !db->eigenvalues && std::any_of(first, last, [](const ZELENTRY& entry) {
        return entry.row != entry.column && entry.value != 0.0;
    });
}

int project_loads_of_body(ZELDATA* db)
{
    const int rigid_modes = has_coupled_modes(db) ? 0 : ZEL_RigidBodyModeCount(db);
    const bool from_nodes = !std::getenv("VXR_MFORCE_NO_FEA_MASS") && shapes_cover_masses(db);
    Scratch<double> resultants(int64_t(kRigid) * rigid_modes);
    if (!resultants.data)
        return no_memory(module_word::tools);
    const bool waiting = loads_wait_for_projection(db);
    if (waiting && rigid_modes > 0 && !resultants_of_modes(db, rigid_modes, from_nodes, resultants.data))
        return 0;
    const auto is_zero = [](double value) { return value == 0.0; };
    if (waiting && rigid_modes > 0 && std::all_of(resultants.data, resultants.data + kRigid * rigid_modes, is_zero))
    {
        ZEL_Warning("No mass data tells which forces the rigid-body part of the modal loads stands for.\n"
                    "Modal loads and preload stay as they are.");
        return 1;
    }
    const int forces = rigid_modes > 0 ? 3 : 0, components = std::min(db->mode_count, db->load_capacity);
    if (db->modal_preload && !db->principal_axes_done)
    {
        project_load(db->modal_preload, components, resultants.data, rigid_modes);
        db->principal_axes_done = 1;
        set_preload_forces(db, forces);
        warn_of_rigid_preload(db, rigid_modes);
    }
    if (rigid_modes < kRigid && db->load_case_count > 0)
        ZEL_Warning("ZEL only contains %d rigid body modes.\n  The resultant load vector will be mishandled.\n",
                    rigid_modes);
    for (int i = 0; i < db->load_case_count; ++i)
        if (ZELLOADCASE& load = db->load_cases[i]; !load.processed)
        {
            project_load(load.values, components, resultants.data, rigid_modes);
            load.processed = 1;
            set_load_forces(db, i, forces);
        }
    return 1;
}

// ---- Damping --------------------------------------------------------------------------------------------------------

namespace
{
// A 6x6 matrix in the form that the linear equations take.
struct Matrix6
{
    double values[kRigid][kRigid] = {};
    double* rows[kRigid];
    Matrix6()
    {
        for (int i = 0; i < kRigid; ++i)
            rows[i] = values[i];
    }
    Matrix6(const Matrix6&) = delete;
    Matrix6& operator=(const Matrix6&) = delete;
};
} // namespace

// Momentum of the rigid body for a unit of each principal velocity: [[mass E, -skew(moment)], [skew(moment), tensor]].
static void momentum_of_principal(const RigidInvariants& rigid, Matrix6& momentum)
{
    const double* c = rigid.moment;
    const double skew[3][3] = {{0.0, -c[2], c[1]}, {c[2], 0.0, -c[0]}, {-c[1], c[0], 0.0}};
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
        {
            momentum.values[i][j] = i == j ? rigid.mass : 0.0;
            momentum.values[i][3 + j] = -skew[i][j];
            momentum.values[3 + i][j] = skew[i][j];
            momentum.values[3 + i][3 + j] = rigid.tensor[3 * i + j];
        }
}

static constexpr double kSingular = 1e-12; // of the largest entry of a pivot's column

// The rates of the first six modes for a unit of each principal velocity: column by column the solution of
// A P = momentum, where column k of A is the momentum of mode k, from invariants 3 and 4. 0, with a message, on failure.
// `singular` tells why.
static int rates_of_principal(ZELDATA* db, Matrix6& p, bool& singular)
{
    RigidInvariants rigid = {};
    if (!rigid_invariants(db, rigid) || !fill_invariant(db, 3) || !fill_invariant(db, 4))
        return 0;
    Matrix6 a;
    for (int axis = 0; axis < 3; ++axis)
        for (int mode = 0; mode < kRigid; ++mode)
        {
            a.values[axis][mode] = invariant_piece(db, 3, axis)[mode];
            a.values[3 + axis][mode] = invariant_piece(db, 4, axis)[mode];
        }
    momentum_of_principal(rigid, p);
    double largest[kRigid] = {};
    for (int column = 0; column < kRigid; ++column)
        for (int row = 0; row < kRigid; ++row)
            largest[column] = std::max(largest[column], std::fabs(a.values[row][column]));
    int permutation[kRigid];
    bool solvable = ZEL_LUPDecomposition(a.rows, kRigid, permutation) != 0;
    for (int k = 0; k < kRigid; ++k) // of a straight body without rotary inertia one pivot is what rounding left
        solvable = solvable && std::fabs(a.rows[k][k]) > kSingular * largest[k];
    for (int column = 0; solvable && column < kRigid; ++column)
    {
        double solution[kRigid];
        for (int i = 0; i < kRigid; ++i)
            solution[i] = p.values[i][column];
        if (!ZEL_LUPSolve(a.rows, kRigid, permutation, solution))
            return 0;
        for (int i = 0; i < kRigid; ++i)
        {
            p.values[i][column] = solution[i];
            solvable = solvable && std::isfinite(solution[i]);
        }
    }
    singular = !solvable;
    return solvable ? 1 : int(fail("LU Decomposition failed.\n"));
}

// c := Q' c Q, where Q is P for the first six coordinates and the identity for the others. c is n x n.
static void project_damping(double* c, int n, const Matrix6& p)
{
    const auto combine = [&p](double* first, int64_t stride) {
        double sum[kRigid] = {};
        for (int i = 0; i < kRigid; ++i)
            for (int k = 0; k < kRigid; ++k)
                sum[i] += p.values[k][i] * first[k * stride];
        for (int i = 0; i < kRigid; ++i)
            first[i * stride] = sum[i];
    };
    for (int column = 0; column < n; ++column)
        combine(c + column, n);
    for (int64_t row = 0; row < n; ++row)
        combine(c + row * n, 1);
}

int project_damping_of_body(ZELDATA* db, bool& singular)
{
    const int modes = db->mode_count;
    singular = false;
    if (!ZEL_GenDampExist(db) || db->damping_projected || modes < kRigid || ZEL_RigidBodyModeCount(db) < kRigid)
        return 1;
    Matrix6 p;
    if (!rates_of_principal(db, p, singular))
        return 0;
    Scratch<double> full(int64_t(modes) * modes);
    if (!full.data)
        return no_memory(module_word::tools);
    ZEL_GenDampFull(db, full.data, modes);
    project_damping(full.data, modes, p);
    ZELMATRIX fresh;
    if (!list_nonzeros(full.data, modes, fresh))
        return no_memory(module_word::tools);
    install_matrix(db->damping, fresh);
    db->damping_projected = 1;
    return 1;
}

} // namespace zel

// ---- Exported -------------------------------------------------------------------------------------------------------

using namespace zel;

int ZEL_RigidBodyModeCount(ZELDATA* db)
{
    return count_rigid_modes(db, 1.0);
}

void ZEL_RigidBodyForcesOnPrincipalAxes(ZELDATA* db)
{
    if (db)
        project_loads_of_body(db);
    else
        no_database();
}

int ZEL_DampingOnPrincipalAxes(ZELDATA* db)
{
    bool singular;
    return db ? project_damping_of_body(db, singular) : int(no_database());
}

int ZEL_RigidModes2KORAL(ZELDATA* db)
{
    if (!db)
        return no_database();
    ZEL_RigidBodyForcesOnPrincipalAxes(db);
    ZEL_DampingOnPrincipalAxes(db);
    return 1;
}
