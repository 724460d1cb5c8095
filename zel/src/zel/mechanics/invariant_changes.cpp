// The sets of invariants that a file is written with, and what becomes of invariants when the body is given other modes or
// another origin.
//
// An invariant that was computed from nodes is dropped and computed anew. One that the caller gave, or that was read, is all
// that is known: it is transformed, and its block in the file no longer counts. A new invariant is made in a record of its
// own that has nothing but invariants, which is exchanged with the database's when nothing can fail any more.
#include "base/base.h"
#include "mechanics.h"

#include <algorithm>

using namespace zel;

static constexpr char kModule[] = "zelinvar";

// ---- Sets -----------------------------------------------------------------------------------------------------------

static bool in_set(InvariantSet set, int number)
{
    switch (set)
    {
    case InvariantSet::rigid: return number <= 3 || number == 7;
    case InvariantSet::fast: return number != 5 && number != 9;
    default: return true;
    }
}

// Whether an invariant is known without summing over the nodes. What was computed without nodal masses is not.
static bool is_known(const ZELDATA* db, int number)
{
    if (invariant_filled(db, number))
        return db->invar_origin[number] != kComputed || has_flag(db->content_flags, ZEL_BLOCK_MASSES);
    const int block = invariant_row(number).block;
    return db->zel_file.file && has_flag(db->file_flags, block) && !is_stale_block(db, block);
}

namespace zel
{

bool mass_data_suffices(const ZELDATA* db, InvariantSet set)
{
    if (set == InvariantSet::rigid)
        return has_flag(db->content_flags, ZEL_BLOCK_MASSES) || db->total_mass != 0.0 || is_known(db, 1);
    if (shapes_cover_masses(db))
        return true;
    for (const InvariantRow& row : kInvariants)
        if (in_set(set, row.number) && !is_known(db, row.number))
            return false;
    return true;
}

int fill_invariants(ZELDATA* db, InvariantSet set)
{
    const bool has_modes = db->mode_count > 0;
    if (has_modes && set == InvariantSet::all && !sum_modal_invariants(db, {3, 4, 5, 8, 9}))
        return 0;
    for (const InvariantRow& row : kInvariants)
        if (in_set(set, row.number) && (has_modes || !row.modal) && !fill_invariant(db, row.number))
            return 0;
    return 1;
}

} // namespace zel

// ---- What a change begins and ends with -----------------------------------------------------------------------------

// Reads the invariants that the file still describes.
static int read_from_file(ZELDATA* db, std::initializer_list<int> numbers)
{
    for (int number : numbers)
        if (!invariant_filled(db, number) && ZEL_goto_block(db, invariant_row(number).block - 1) &&
            !fill_invariant(db, number))
            return 0;
    return 1;
}

// Whether the value can be had again from the nodes, after the change.
static bool can_be_summed(const ZELDATA* db, int number)
{
    return db->invar_origin[number] == kComputed && (!invariant_row(number).modal || shapes_cover_masses(db));
}

static void forget_blocks(ZELDATA* db, std::initializer_list<int> numbers)
{
    for (int number : numbers)
        block_changed(db, invariant_row(number).block);
}

// ---- New modes ------------------------------------------------------------------------------------------------------

// A modal invariant is `planes` vectors (3, 4 and 8) or square matrices (5 and 9) over the modes.
static int planes_of(int number)
{
    return number == 8 || number == 9 ? 9 : 3;
}
static bool is_by_pair(int number)
{
    return invariant_row(number).by_pair;
}

// The entry for mode i, or for modes i and j, in one plane; of a pair, among those that have values.
static double& plane_entry(const ZELDATA* db, int number, int plane, int i, int j)
{
    switch (number)
    {
    case 5: return db->invar5[i][int64_t(plane) * table_modes(db, number) + j];
    case 8: return db->invar8[i][plane];
    case 9: return db->invar9[i][j][plane];
    default: return invariant_piece(db, number, plane)[i];
    }
}

// Copies between one plane of an invariant and an array, row by row.
template <typename Copy> static void walk_plane(const ZELDATA* db, int number, int plane, double* array, Copy copy)
{
    const int columns = is_by_pair(number) ? db->invar_modes : 1;
    const int with_values = is_by_pair(number) ? table_modes(db, number) : db->invar_modes;
    for (int i = 0; i < with_values; ++i)
        for (int j = 0; j < std::min(columns, with_values); ++j)
            copy(plane_entry(db, number, plane, i, j), array[int64_t(i) * columns + j]);
}

// Fills `to`, which has the new modes, with an invariant of `from` in the new basis. 0 when memory is short.
static int transform(const ZELDATA* from, ZELDATA* to, int number, const double* basis)
{
    const int before = from->invar_modes, after = to->invar_modes, columns = is_by_pair(number) ? before : 1;
    Scratch<double> old_plane(int64_t(before) * columns), half(int64_t(before) * after),
        new_plane(int64_t(after) * (is_by_pair(number) ? after : 1));
    if (!old_plane.data || !half.data || !new_plane.data)
        return no_memory(kModule);
    for (int plane = 0; plane < planes_of(number); ++plane)
    {
        walk_plane(from, number, plane, old_plane.data, [](const double& entry, double& place) { place = entry; });
        if (is_by_pair(number)) // in column order, with V the basis: V' (P' V), the transposed V P V' of row order
        {
            blas::gemm('N', 'N', before, after, before, 1.0, old_plane.data, before, basis, before, 0.0, half.data,
                       before);
            blas::gemm('T', 'N', after, after, before, 1.0, basis, before, half.data, before, 0.0, new_plane.data,
                       after);
        }
        else
            blas::gemv('T', before, after, 1.0, basis, before, old_plane.data, 0.0, new_plane.data);
        walk_plane(to, number, plane, new_plane.data, [](double& entry, const double& place) { entry = place; });
    }
    return 1;
}

namespace zel
{

int change_invariant_basis(ZELDATA* db, const double* basis, int modes)
{
    if (!read_from_file(db, {3, 4, 5, 8, 9}))
        return 0;
    SpareInvariants fresh(modes);
    if (!fresh.db())
        return no_memory(kModule);
    for (const InvariantRow& row : kInvariants)
    {
        const int number = row.number;
        if (!row.modal || !invariant_filled(db, number) || can_be_summed(db, number))
            continue;
        const bool only_zeros = is_by_pair(number) && table_modes(db, number) == 0;
        if (!open_invariant(fresh.db(), number, db->invar_origin[number], only_zeros ? 0 : modes) ||
            (!only_zeros && !transform(db, fresh.db(), number, basis)))
            return 0;
    }
    fresh.exchange_modal(db);
    forget_blocks(db, {3, 4, 5, 8, 9});
    return 1;
}

} // namespace zel

// ---- New origin -----------------------------------------------------------------------------------------------------

static double dot(const double a[3], const double b[3])
{
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

// With s' = s - c: sum of m ((s'.s') E - s' s'^T).
static void shift_tensor(double tensor[9], double mass, const double moment[3], const double c[3])
{
    for (int row = 0; row < 3; ++row)
        for (int column = 0; column < 3; ++column)
        {
            const double unit = row == column ? 1.0 : 0.0;
            tensor[3 * row + column] +=
                mass * (dot(c, c) * unit - c[row] * c[column]) -
                (2.0 * dot(moment, c) * unit - moment[row] * c[column] - c[row] * moment[column]);
        }
}

// I4' = I4 - c x I3 and I8' = I8 - I3 c^T + (I3.c) E, mode by mode.
static void shift_modal(ZELDATA* db, const double c[3])
{
    const int64_t modes = db->invar_modes;
    for (int64_t mode = 0; mode < modes; ++mode)
    {
        const double sum[3] = {db->invar3[mode], db->invar3[modes + mode], db->invar3[2 * modes + mode]};
        for (int row = 0; row < 3; ++row)
        {
            const int next = (row + 1) % 3, last = (row + 2) % 3;
            if (db->invar4)
                db->invar4[row * modes + mode] -= c[next] * sum[last] - c[last] * sum[next];
            for (int column = 0; db->invar8 && column < 3; ++column)
                db->invar8[mode][3 * row + column] -= sum[row] * c[column] - (row == column ? dot(sum, c) : 0.0);
        }
    }
}

namespace zel
{

int shift_invariant_origin(ZELDATA* db, const double origin[3])
{
    RigidInvariants rigid = {};
    if (!read_from_file(db, {2, 3, 4, 7, 8}) || !rigid_invariants(db, rigid))
        return 0;
    const auto is_shifted = [db](int number) { return invariant_filled(db, number) && !can_be_summed(db, number); };
    const bool shifts_modal = is_shifted(4) || is_shifted(8);
    if (shifts_modal && !fill_invariant(db, 3))
        return 0;
    for (int number : {2, 4, 7, 8})
        if (invariant_filled(db, number) && can_be_summed(db, number))
            drop_invariant(db, number);
    if (db->invar7)
        shift_tensor(db->invar7, rigid.mass, rigid.moment, origin);
    if (shifts_modal)
        shift_modal(db, origin);
    for (int axis = 0; db->invar2 && axis < 3; ++axis)
        db->invar2[axis] -= rigid.mass * origin[axis];
    forget_blocks(db, {2, 4, 7, 8});
    return 1;
}

} // namespace zel
