// The sets of invariants that a file is written with, and what becomes of invariants when the body is given other modes or
// another origin.
//
// An invariant that was computed from nodes is dropped and computed anew. One that the caller gave, or that was read, is all
// that is known: it is transformed, and its block in the file no longer counts. A new invariant is made in a record of its
// own that has nothing but invariants, which is exchanged with the database's when nothing can fail any more.
#include "base/base.h"
#include "mechanics.h"

#include <algorithm>

namespace zel
{

// ---- Sets -----------------------------------------------------------------------------------------------------------

static bool in_set(InvariantSet set, const InvariantRow& row)
{
    return row.set <= set;
}

// Whether an invariant is known without summing over the nodes. What was computed without nodal masses is not.
static bool is_known(const ZELDATA* db, int number)
{
    if (invariant_filled(db, number))
        return db->invar_origin[number] != kComputed || has_flag(db->content_flags, ZEL_BLOCK_MASSES);
    const int block = invariant_row(number).block;
    return file_describes(db, block);
}

bool mass_data_suffices(const ZELDATA* db, InvariantSet set)
{
    if (set == InvariantSet::rigid)
        return has_flag(db->content_flags, ZEL_BLOCK_MASSES) || db->total_mass != 0.0 || is_known(db, 1);
    if (shapes_cover_masses(db))
        return true;
    for (const InvariantRow& row : kInvariants)
        if (in_set(set, row) && !is_known(db, row.number))
            return false;
    return true;
}

int fill_invariants(ZELDATA* db, InvariantSet set)
{
    const bool has_modes = db->mode_count > 0;
    if (has_modes && set == InvariantSet::all && !sum_modal_invariants(db, ModalSums::both))
        return 0;
    for (const InvariantRow& row : kInvariants)
        if (in_set(set, row) && (has_modes || !row.modal) && !fill_invariant(db, row.number))
            return 0;
    return 1;
}

// ---- What a change begins and ends with -----------------------------------------------------------------------------

// Reads those of the wanted invariants that the file still describes.
template <typename Wanted> static int read_from_file(ZELDATA* db, Wanted wanted)
{
    for (const InvariantRow& row : kInvariants)
        if (wanted(row) && !invariant_filled(db, row.number) && file_describes(db, row.block) &&
            !fill_invariant(db, row.number))
            return 0;
    return 1;
}

// Whether the value can be had again from the nodes, after the change.
static bool can_be_summed(const ZELDATA* db, int number)
{
    return db->invar_origin[number] == kComputed && (!invariant_row(number).modal || shapes_cover_masses(db));
}

template <typename Wanted> static void forget_blocks(ZELDATA* db, Wanted wanted)
{
    for (const InvariantRow& row : kInvariants)
        if (wanted(row))
            block_changed(db, row.block);
}

static bool is_modal(const InvariantRow& row)
{
    return row.modal;
}
static bool has_origin(const InvariantRow& row)
{
    return row.has_origin;
}

// ---- New modes ------------------------------------------------------------------------------------------------------

// Copies between one plane of an invariant and an array, row by row.
template <typename Copy>
static void walk_plane(const ZELDATA* db, const InvariantRow& row, int plane, double* array, Copy copy)
{
    const int columns = row.by_pair ? db->invar_modes : 1;
    const int with_values = row.by_pair ? table_modes(db, row.number) : db->invar_modes;
    for (int i = 0; i < with_values; ++i)
        for (int j = 0; j < std::min(columns, with_values); ++j)
            copy(invariant_entry(db, row, plane, i, j), array[int64_t(i) * columns + j]);
}

// Fills `to`, which has the new modes, with an invariant of `from` in the new basis. 0 when memory is short.
static int transform(const ZELDATA* from, ZELDATA* to, const InvariantRow& row, const double* basis)
{
    const int before = from->invar_modes, after = to->invar_modes, columns = row.by_pair ? before : 1;
    Scratch<double> old_plane(int64_t(before) * columns), half(int64_t(before) * after),
        new_plane(int64_t(after) * (row.by_pair ? after : 1));
    if (!old_plane.data || !half.data || !new_plane.data)
        return no_memory(module_word::invariants);
    for (int plane = 0; plane < row.planes(); ++plane)
    {
        walk_plane(from, row, plane, old_plane.data, [](const double& entry, double& place) { place = entry; });
        if (row.by_pair) // in column order, with V the basis: V' (P' V), the transposed V P V' of row order
        {
            blas::gemm('N', 'N', before, after, before, 1.0, old_plane.data, before, basis, before, 0.0, half.data,
                       before);
            blas::gemm('T', 'N', after, after, before, 1.0, basis, before, half.data, before, 0.0, new_plane.data,
                       after);
        }
        else
            blas::gemv('T', before, after, 1.0, basis, before, old_plane.data, 0.0, new_plane.data);
        walk_plane(to, row, plane, new_plane.data, [](double& entry, const double& place) { entry = place; });
    }
    return 1;
}

int change_invariant_basis(ZELDATA* db, const double* basis, int modes)
{
    if (!read_from_file(db, is_modal))
        return 0;
    SpareInvariants fresh(modes);
    if (!fresh.db())
        return no_memory(module_word::invariants);
    for (const InvariantRow& row : kInvariants)
    {
        const int number = row.number;
        if (!row.modal || !invariant_filled(db, number) || can_be_summed(db, number))
            continue;
        const bool only_zeros = row.by_pair && table_modes(db, number) == 0;
        if (!open_invariant(fresh.db(), number, db->invar_origin[number], only_zeros ? 0 : modes) ||
            (!only_zeros && !transform(db, fresh.db(), row, basis)))
            return 0;
    }
    fresh.exchange_modal(db);
    forget_blocks(db, is_modal);
    return 1;
}

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

int shift_invariant_origin(ZELDATA* db, const double origin[3])
{
    RigidInvariants rigid = {};
    const auto takes_part = [](const InvariantRow& row) { return row.has_origin || row.number == 3; };
    if (!read_from_file(db, takes_part) || !rigid_invariants(db, rigid))
        return 0;
    const auto is_shifted = [db](int number) { return invariant_filled(db, number) && !can_be_summed(db, number); };
    const bool shifts_modal = is_shifted(4) || is_shifted(8);
    if (shifts_modal && !fill_invariant(db, 3))
        return 0;
    for (const InvariantRow& row : kInvariants)
        if (row.has_origin && invariant_filled(db, row.number) && can_be_summed(db, row.number))
            drop_invariant(db, row.number);
    if (db->invar7)
        shift_tensor(db->invar7, rigid.mass, rigid.moment, origin);
    if (shifts_modal)
        shift_modal(db, origin);
    for (int axis = 0; db->invar2 && axis < 3; ++axis)
        db->invar2[axis] -= rigid.mass * origin[axis];
    forget_blocks(db, has_origin);
    return 1;
}

} // namespace zel
