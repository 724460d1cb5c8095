// The rescaling of a whole body when its units change, block by block.
//
// Values in memory are scaled at once. Mode vectors and invariant blocks that still lie in a file are not: cumulative
// factors, base_scale and mode_factor, are applied whenever they are read. The four ratios in ZELUNITS describe the last
// change only.
#include "invariant_slots.h"
#include "record.h"
#include "statistics.h"
#include "units.h"
#include "zel.h"

#include <algorithm>
#include <cmath>

namespace zel
{

namespace
{

// One walk over all values in memory, which are multiplied, or only asked whether they would stay finite.
class Scaling
{
public:
    enum Purpose
    {
        kTest,
        kChange
    };
    Scaling(const Ratios& ratios, Purpose purpose) : r(ratios), purpose_(purpose) {}

    void operator()(double* values, int64_t count, double factor)
    {
        for (int64_t i = 0; purpose_ == kChange && i < count; ++i)
            values[i] *= factor;
        for (int64_t i = 0; purpose_ == kTest && i < count; ++i)
            finite_ = finite_ && (std::isfinite(values[i] * factor) || !std::isfinite(values[i]));
    }
    bool finite() const { return finite_; } // whether every finite value stays finite

    const Ratios r;

private:
    Purpose purpose_;
    bool finite_ = true;
};

} // namespace

// ---- Blocks without modes ----------------------------------------------------------------------------------------------

static void scale_coordinates(ZELDATA* db, const Block& row, Scaling& scale)
{
    const double factor = scale.r.of(row.unit);
    for (ZELNODE* node = db->nodes; node < db->nodes + db->node_count; ++node)
        for (double* coordinate : {&node->x, &node->y, &node->z})
            scale(coordinate, 1, factor);
}

static void scale_masses(ZELDATA* db, const Block& row, Scaling& scale)
{
    for (int node = 0; node < db->node_count; ++node)
        scale(&db->nodes[node].mass, 1, scale.r.of(row.unit));
}

static void scale_inertias(ZELDATA* db, const Block& row, Scaling& scale)
{
    for (int node = 0; node < db->node_count; ++node)
        if (double* inertia = db->nodes[node].inertia)
            scale(inertia, 6, scale.r.of(row.unit));
}

static void scale_body_properties(ZELDATA* db, const Block&, Scaling& scale)
{
    scale(&db->total_mass, 1, scale.r.m);
    scale(db->center_of_mass, 3, scale.r.l);
    scale(db->inertia_tensor, 9, scale.r.inertia());
}

// ---- Eigenvalues, matrices, loads ----------------------------------------------------------------------------------------

static void scale_eigenvalues(ZELDATA* db, const Block&, Scaling& scale)
{
    const Ratios& r = scale.r;
    const double factors[6] = {1.0, r.f / (r.m * r.l), 1.0 / r.t, 1.0 / r.t, r.inertia(), r.energy()};
    for (int i = 0; db->eigenvalues && i < db->eigenvalue_count; ++i)
        for (int field = 1; field < 6; ++field)
            if (double& value = db->eigenvalues[i].value[field]; !is_infinite_eigenvalue(value))
                scale(&value, 1, factors[field]);
}

static void scale_matrix(ZELDATA* db, const Block& row, Scaling& scale)
{
    ZELMATRIX& matrix = db->*matrix_row(row.number).list;
    for (int i = 0; i < matrix.count; ++i)
    {
        ZELENTRY& entry = matrix.entries[i];
        scale(&entry.value, 1, matrix_factor(scale.r, row, entry, db->damping_projected != 0));
    }
}

static void scale_mass(ZELDATA* db, const Block& row, Scaling& scale)
{
    scale_matrix(db, row, scale);
    double assumed = assumed_mass(db);
    scale(&assumed, 1, scale.r.of(row.unit));
    set_assumed_mass(db, assumed);
}

// The force components of a projected vector scale as forces, its moments and modal components as energies.
static void scale_load(const ZELDATA* db, double* values, int forces, Scaling& scale)
{
    if (!values)
        return;
    const int components = std::min(db->mode_count, db->load_capacity), of_force = std::min(forces, components);
    scale(values, of_force, scale.r.f);
    scale(values + of_force, components - of_force, scale.r.energy());
}

static void scale_preload(ZELDATA* db, const Block&, Scaling& scale)
{
    scale_load(db, db->modal_preload, preload_forces(db), scale);
}

static void scale_loads(ZELDATA* db, const Block&, Scaling& scale)
{
    for (int i = 0; i < db->load_case_count; ++i)
        scale_load(db, db->load_cases[i].values, load_forces(db, i), scale);
}

// ---- Mode vectors and what goes with them ------------------------------------------------------------------------------

static void scale_vectors(ZELDATA* db, const Block& row, Scaling& scale)
{
    scale(&db->mode_factor[kind_of_block(row.number).kind], 1, scale.r.of(row.unit));
}

static void scale_pre_tensors(ZELDATA* db, const Block& row, Scaling& scale)
{
    const KindRow& kind = kind_of_block(row.number);
    for (int i = 0; i < db->*kind.pre_tensor_capacity; ++i)
        scale((db->*kind.pre_tensors)[i].v, 6, scale.r.of(row.unit));
}

static void scale_statistics(ZELDATA* db, const Block&, Scaling& scale)
{
    for (int i = 0; db->modal_statistics && i < db->modal_statistics_count; ++i) // rotations and strains have no unit
    {
        scale(&db->modal_statistics[i].pair[kLargestTranslation].value, 1, scale.r.l);
        scale(&db->modal_statistics[i].pair[kLargestStress].value, 1, scale.r.stress());
    }
}

static void scale_invariant(ZELDATA* db, const Block& row, Scaling& scale)
{
    for_each_array(db, invariant_of_block(row.number),
                   [&](double* values, int64_t count) { scale(values, count, scale.r.of(row.unit)); });
}

// ---- The table -----------------------------------------------------------------------------------------------------------

static constexpr struct
{
    int block;
    void (*scale)(ZELDATA* db, const Block& row, Scaling& scale);
} kScalers[] = {
    {ZEL_BLOCK_NODES, scale_coordinates},       {ZEL_BLOCK_BODY, scale_body_properties},
    {ZEL_BLOCK_EIGENVALUES, scale_eigenvalues}, {ZEL_BLOCK_MODES, scale_vectors},
    {ZEL_BLOCK_MASSES, scale_masses},           {ZEL_BLOCK_INERTIAS, scale_inertias},
    {ZEL_BLOCK_STIFFNESS, scale_matrix},        {ZEL_BLOCK_MASS, scale_mass},
    {ZEL_BLOCK_DAMPING, scale_matrix},          {ZEL_BLOCK_STRESS, scale_vectors},
    {ZEL_BLOCK_INVAR1, scale_invariant},        {ZEL_BLOCK_INVAR2, scale_invariant},
    {ZEL_BLOCK_INVAR3, scale_invariant},        {ZEL_BLOCK_INVAR4, scale_invariant},
    {ZEL_BLOCK_INVAR5, scale_invariant},        {ZEL_BLOCK_INVAR7, scale_invariant},
    {ZEL_BLOCK_INVAR8, scale_invariant},        {ZEL_BLOCK_INVAR9, scale_invariant},
    {ZEL_BLOCK_PRELOAD, scale_preload},         {ZEL_BLOCK_LOADS, scale_loads},
    {ZEL_BLOCK_STATISTICS, scale_statistics},   {ZEL_BLOCK_PRE_STRESS, scale_pre_tensors},
};
static_assert(rows_are_complete(kScalers, [](const Block& row) { return row.unit != Unit::none; }),
              "each block whose values have a unit is scaled");

static void scale_all(ZELDATA* db, Scaling& scale)
{
    for (const auto& scaler : kScalers)
        scaler.scale(db, block_row(scaler.block), scale);
    const double steps[4] = {scale.r.m, scale.r.l, scale.r.t, scale.r.f};
    for (int i = 0; i < 4; ++i)
        scale(&db->base_scale[i], 1, steps[i]);
}

// ---- Scaling a database ------------------------------------------------------------------------------------------------

// Diagonal entries of 1 are no longer 1, or have become 1.
static void note_unit_masses(ZELDATA* db)
{
    constexpr double kUnitTolerance = 1e-8;
    db->non_unit_mass = db->mass.count == 0 && std::fabs(1.0 - assumed_mass(db)) > kUnitTolerance;
    for (int i = 0; i < db->mass.count; ++i)
        if (const ZELENTRY& entry = db->mass.entries[i];
            entry.row == entry.column && std::fabs(1.0 - entry.value) > kUnitTolerance)
            db->non_unit_mass = 1;
}

} // namespace zel

// ---- Exported -------------------------------------------------------------------------------------------------------

using namespace zel;

int ZEL_ScaleDatabase(ZELDATA* db)
{
    if (!db)
        return 0;
    const Ratios r = {db->units.mass_scale, db->units.length_scale, db->units.time_scale, db->units.force_scale};
    Scaling test(r, Scaling::kTest), change(r, Scaling::kChange);
    scale_all(db, test);
    if (!test.finite())
        return 0;
    scale_all(db, change);
    nodes_changed(db);
    if (r.inertia() != 1.0)
        note_unit_masses(db);
    for (int& mode : db->cached_mode)
        mode = -1;
    return 1;
}
