// Comparison of what the modes have as a whole: inertia invariants, preload, loads, statistics. What belongs to a mode whose
// sign is turned is turned with it.
#include "compare.h"
#include "mechanics/mechanics.h"

namespace zel
{

// ---- Invariants --------------------------------------------------------------------------------------------------------

namespace
{
// Of one value of an invariant: the modes that it belongs to, one, two or none, and its component there.
struct Owners
{
    int64_t modes[2] = {-1, -1};
    int count = 0, component;
};
} // namespace

// Of value k of a piece, by the shape of its invariant.
static Owners owners_of(const InvariantShape& shape, int64_t piece, int k, int modes)
{
    Owners owners;
    if (shape.pieces_power == 2)
        owners.modes[owners.count++] = piece / modes;
    if (shape.pieces_power > 0)
        owners.modes[owners.count++] = shape.pieces_power == 2 ? piece % modes : piece / shape.pieces;
    if (shape.length_power > 0)
        owners.modes[owners.count++] = k;
    owners.component = shape.length_power > 0 ? int(piece % shape.pieces) : k;
    return owners;
}

// The sign that a value has to have turned.
static int sign_of(const Comparison& c, const Owners& owners)
{
    int sign = 1;
    for (int i = 0; i < owners.count; ++i)
        sign *= c.sign[owners.modes[i]];
    return sign;
}

// Of a pair of modes, that of the first one.
static Place place_of(const Comparison& c, const Owners& owners)
{
    return {owners.count > 0 ? ZEL_ModeNumber(c.fresh, int(owners.modes[0])) : ZEL_NONE, ZEL_NONE, owners.component};
}

// Invariants 5 and 9 are left zero by the writer's fast set.
static bool left_out(const Comparison& c, const Finding& finding, int number, const Difference& difference)
{
    if ((number != 5 && number != 9) || (difference.fresh_scale > 0.0 && difference.base_scale > 0.0))
        return false;
    if (difference.fresh_scale == 0.0)
        print(c, ZEL_COMPARISON_WARNING, "->Warning invar%d=0 in new %s, 'fast_invar' may have been used\n", number,
              number == 5 ? "file" : "ZEL file");
    if (difference.base_scale == 0.0)
        print(c, ZEL_COMPARISON_WARNING, "->Warning invar%d=0 in base ZEL file, 'fast_invar' may have been used\n",
              number);
    tell(c, ZEL_COMPARISON_WARNING, finding, "->Warning invar%d not checked\n", number);
    return true;
}

static Difference difference_of(const Comparison& c, const InvariantRow& row, Scratch<double>& fresh,
                                Scratch<double>& base, int length)
{
    Difference difference;
    Owners worst = {};
    const int64_t end =
        std::max(invariant_pieces_with_values(c.fresh, row.number), invariant_pieces_with_values(c.base, row.number));
    for (int64_t piece = 0; piece < end; ++piece)
    {
        copy_invariant_piece(c.fresh, row.number, piece, fresh.data);
        copy_invariant_piece(c.base, row.number, piece, base.data);
        for (int k = 0; k < length; ++k)
        {
            const double before = difference.largest;
            const Owners owners = owners_of(row.shape, piece, k, c.common_modes);
            difference.add(sign_of(c, owners) * fresh[k], base[k]);
            if (difference.largest > before)
                worst = owners;
        }
    }
    if (difference.largest > 0.0)
        difference.place = place_of(c, worst);
    return difference;
}

static int compare_invariant(Comparison& c, const Block& block)
{
    static constexpr const char* kChecks[] = {"invariant 1", "invariant 2", "invariant 3",
                                              "invariant 4", "invariant 5", "",
                                              "invariant 7", "invariant 8", "invariant 9"};
    const InvariantRow& row = kInvariants[block.number - ZEL_BLOCK_INVAR1];
    Finding finding = {kChecks[row.number - 1], row.block};
    if (!both_have(c, finding, "ZEL_"))
        return 0;
    if (row.modal && (ZEL_ModeCount(c.fresh) != ZEL_ModeCount(c.base) || c.common_modes == 0))
    {
        tell(c, ZEL_COMPARISON_NOTE, finding, "->Note block_%d__%s not checked\n", row.block, block.name);
        return 0;
    }
    const int length = invariant_pieces(row.number, c.common_modes).length;
    Scratch<double> fresh(length), base(length);
    Finding found = {finding.check, row.block, HUGE_VAL}; // what cannot be read
    if (!fresh.data || !base.data)
        no_room(c);
    else if (fill_invariant(c.fresh, row.number) && fill_invariant(c.base, row.number))
    {
        const Difference difference = difference_of(c, row, fresh, base, length);
        if (left_out(c, finding, row.number, difference))
            return 0;
        found = measured(finding.check, row.block, difference);
    }
    if (is_ended())
        return -1;
    if (row.number != 2)
        return check(c, found, "Invar%d", row.number);
    const bool failed = is_beyond(c, found.worst); // its difference has other digits in the report
    check_silently(c, found);
    print(c, failed ? ZEL_COMPARISON_FAIL : ZEL_COMPARISON_PASS, "%s Invar2  Delta: %f\n", failed ? "->Fail" : "  Pass",
          found.worst);
    return failed ? -1 : 0;
}

// ---- Loads -------------------------------------------------------------------------------------------------------------

namespace
{
// A vector of modal components, one a mode, null where there is none.
struct ModalVector
{
    const double* values;
    int count;
    bool projected; // the first components belong to the principal axes
};
} // namespace

static constexpr int kRigidComponents = 6;

static ModalVector preload_of(const ZELDATA* db)
{
    return {db->modal_preload, db->modal_preload ? db->mode_count : 0, db->principal_axes_done != 0};
}

static ModalVector load_of(const ZELDATA* db, int load_case)
{
    const ZELLOADCASE& load = db->load_cases[load_case];
    return {load.values, load.values ? db->mode_count : 0, load.processed != 0};
}

// All components by their signs, unlike in the report; without the first six where just one vector is projected.
static void check_components(const Comparison& c, const char* what, int block, const ModalVector& fresh,
                             const ModalVector& base, int load_case)
{
    if (!fresh.values && !base.values)
        return;
    Finding finding = {what, block, HUGE_VAL, {ZEL_NONE, ZEL_NONE, load_case}};
    if (fresh.values && base.values)
    {
        Difference difference;
        const int first = fresh.projected == base.projected ? 0 : kRigidComponents;
        const int end = std::min({fresh.count, base.count, c.common_modes});
        for (int k = first; k < end; ++k)
            difference.add((fresh.projected && k < kRigidComponents ? 1 : c.sign[k]) * fresh.values[k], base.values[k],
                           {ZEL_ModeNumber(c.fresh, k), ZEL_NONE, load_case});
        const Place whole = finding.place;
        finding = measured(what, block, difference);
        finding.place = difference.largest > 0.0 ? difference.place : whole;
    }
    check_silently(c, finding);
}

// Nothing of the preload fails in the report: it is state, not shape, of the body.
static int compare_preload(Comparison& c, const Block& row)
{
    const ModalVector fresh = preload_of(c.fresh), base = preload_of(c.base);
    expect_equal(c, {"mode count of the preload", row.number}, fresh.count, base.count, "Preload mode count mismatch",
                 "Preload mode count");
    if (!fresh.values && base.values)
        print(c, ZEL_COMPARISON_WARNING, "->Warning: Null modal preload vector found in new file\n");
    if (fresh.values && !base.values)
        print(c, ZEL_COMPARISON_WARNING, "->Warning: Null modal preload vector found in base file\n");
    check_components(c, "preload", row.number, fresh, base, ZEL_NONE);
    return 0;
}

static void note_state_of_load(const Comparison& c, const ModalVector& fresh, const ModalVector& base, int number)
{
    if (fresh.count != base.count)
        print(c, ZEL_COMPARISON_WARNING, "->Warning: Modal Load count mismatch for case #%d\n", number);
    if (!fresh.projected)
        print(c, ZEL_COMPARISON_NOTE, "->Note new ZEL load case #%d not yet projected on principal axes\n", number);
    if (!base.projected)
        print(c, ZEL_COMPARISON_NOTE, "->Note base ZEL load case #%d not yet projected on principal axes\n", number);
    print(c, ZEL_COMPARISON_WARNING, "->Warning: Rigid body components (assumed first 6) won't be checked\n");
    if (!fresh.values)
        print(c, ZEL_COMPARISON_WARNING, "->Warning: Null modal load vector found for case #%d in new ZEL\n", number);
    if (!base.values)
        print(c, ZEL_COMPARISON_WARNING, "->Warning: Null modal load vector found for case #%d in base ZEL\n", number);
}

static int compare_load(Comparison& c, const Block& row, int load_case)
{
    const int number = load_case + 1;
    const ModalVector fresh = load_of(c.fresh, load_case), base = load_of(c.base, load_case);
    note_state_of_load(c, fresh, base, number);
    check_components(c, "modal load", row.number, fresh, base, load_case);
    if (!fresh.values || !base.values)
        return 0;
    const int count = std::min(fresh.count, base.count);
    Difference difference;
    for (int k = kRigidComponents; k < count; ++k)
        difference.add(std::fabs(fresh.values[k]), std::fabs(base.values[k]));
    const int result = print_check(c, difference.measure(), "Modal Load: Case #%d", number);
    for (int k = kRigidComponents; k < count; ++k)
    {
        const double apart = std::fabs(fresh.values[k] - base.values[k]) / std::max(1.0, difference.base_scale);
        if (fresh.values[k] * base.values[k] < 0.0 && apart > c.tolerance)
            print(c, ZEL_COMPARISON_WARNING, "->Warning: Modal load component %d differs in sign for case #%d\n", k + 1,
                  number);
    }
    return result;
}

static int compare_loads(Comparison& c, const Block& row)
{
    const int fresh_cases = ZEL_GetModalLoadCaseCount(c.fresh), base_cases = ZEL_GetModalLoadCaseCount(c.base);
    expect_equal(c, {"load case count", row.number}, fresh_cases, base_cases, "Modal Load Case count mismatch",
                 "Modal Load Case count");
    int result = 0;
    for (int load_case = 0; load_case < std::min(fresh_cases, base_cases); ++load_case)
        result |= compare_load(c, row, load_case);
    if (result == 0)
        print(c, ZEL_COMPARISON_PASS, "  Pass Modal Loads\n");
    else
        print(c, ZEL_COMPARISON_FAIL, "->Fail Modal Loads\n");
    return result;
}

// ---- Statistics --------------------------------------------------------------------------------------------------------

// The largest values of each mode, of which the report says nothing. The nodes that have them may differ where several do.
static int compare_statistics(Comparison& c, const Block& row)
{
    if (!c.in_base[row.number] || !c.in_fresh[row.number])
        return 0;
    const int modes = std::min(c.fresh->modal_statistics_count, c.base->modal_statistics_count);
    Difference difference;
    for (int mode = 0; mode < modes; ++mode)
        for (int kind = 0; kind < int(std::size(ZELSTATISTICS().pair)); ++kind)
        {
            const ZELSTATPAIR& fresh = c.fresh->modal_statistics[mode].pair[kind];
            difference.add(fresh.value, c.base->modal_statistics[mode].pair[kind].value,
                           {ZEL_ModeNumber(c.fresh, mode), fresh.node_id, kind});
        }
    check_silently(c, measured("modal statistics", row.number, difference));
    return 0;
}

// ---- The table ---------------------------------------------------------------------------------------------------------

static constexpr BlockComparer kModalComparers[] = {
    {ZEL_BLOCK_EIGENVALUES, compare_eigenvalues},
    {ZEL_BLOCK_MODES, compare_mode_shapes},
    {ZEL_BLOCK_STIFFNESS, compare_matrix},
    {ZEL_BLOCK_MASS, compare_matrix},
    {ZEL_BLOCK_DAMPING, compare_damping},
    {ZEL_BLOCK_TRANSFORMATION, compare_transformation},
    {ZEL_BLOCK_STRESS, compare_stress_or_strain},
    {ZEL_BLOCK_INVAR1, compare_invariant},
    {ZEL_BLOCK_INVAR2, compare_invariant},
    {ZEL_BLOCK_INVAR3, compare_invariant},
    {ZEL_BLOCK_INVAR4, compare_invariant},
    {ZEL_BLOCK_INVAR5, compare_invariant},
    {ZEL_BLOCK_INVAR7, compare_invariant},
    {ZEL_BLOCK_INVAR8, compare_invariant},
    {ZEL_BLOCK_INVAR9, compare_invariant},
    {ZEL_BLOCK_PRELOAD, compare_preload},
    {ZEL_BLOCK_LOADS, compare_loads},
    {ZEL_BLOCK_STRAIN, compare_stress_or_strain},
    {ZEL_BLOCK_STATISTICS, compare_statistics},
    {ZEL_BLOCK_PRE_STRESS, compare_pre_tensors},
    {ZEL_BLOCK_PRE_STRAIN, compare_pre_tensors},
};
static_assert(rows_are_complete(kModalComparers, is_modal_block), "each block of modes and each invariant is compared");

int compare_modal_block(Comparison& c, const Block& row)
{
    return row_of(kModalComparers, row.number).compare(c, row);
}

} // namespace zel
