// The inertia invariants: what a multibody solver needs of the body's mass and mode shapes to build its mass matrix
// without visiting the nodes. Each is taken from its slot in the database, else from its block of the file, else summed
// over the nodes; the first use fills the slot.
#include "format/format.h"
#include "mechanics.h"
#include "stream/stream.h"

#include <algorithm>

namespace zel
{

// ---- Reading --------------------------------------------------------------------------------------------------------

// Where a piece of a block that was written for `file_modes` modes belongs; null when it is of a mode that is not there.
static double* piece_in_slot(const ZELDATA* db, const InvariantRow& row, int64_t piece, int file_modes)
{
    const int64_t modes = db->invar_modes;
    if (row.shape.pieces_power == 1 && piece >= row.shape.pieces * modes)
        return nullptr;
    if (row.shape.pieces_power == 2)
    {
        const int64_t i = piece / file_modes, j = piece % file_modes;
        if (i >= modes || j >= modes)
            return nullptr;
        piece = i * modes + j;
    }
    return invariant_piece(db, row.number, piece);
}

// The values behind the count of a block, into an open slot. What one of them and the slot does not have stays zero.
static int read_pieces(ZELDATA* db, const InvariantRow& row, int file_modes)
{
    const Pieces pieces = invariant_pieces(row.number, file_modes);
    const int kept =
        std::min(pieces.length, invariant_pieces(row.number, db->invar_modes).length); // of 5: all in the slot
    const double factor = ratios_so_far(db).of(block_row(row.block).unit);
    Scratch<double> values(pieces.length);
    if (!values.data)
        return no_memory(module_word::invariants);
    for (int64_t piece = 0; piece < pieces.count; ++piece)
    {
        if (!get_reals(db->zel_file, values.data, pieces.length))
            return fail("Problem in invar %d block", row.number);
        if (double* slot = piece_in_slot(db, row, piece, file_modes))
        {
            std::memcpy(slot, values.data, size_t(kept) * sizeof(double));
            ZEL_Convert_Units(slot, kept, factor);
        }
    }
    return 1;
}

// Fills a slot from its block of the file.
static int read_invariant(ZELDATA* db, const InvariantRow& row)
{
    int32_t file_modes = db->mode_count;
    if (row.modal && block_bytes(db, block_row(row.block)) == kDamaged)
        return 0;
    if (!ZEL_goto_block(db, row.block - 1) || (row.modal && !get_int(db->zel_file, file_modes)))
        return not_read("Problem in invar %d block", row.number);
    if (file_modes != db->mode_count)
        ZEL_Error("nm!=ModeCount at line %d in file %s", __LINE__, module_word::invariants);
    if (!open_invariant(db, row.number, kRead, file_modes))
        return 0;
    if (read_pieces(db, row, file_modes))
        return 1;
    drop_invariant(db, row.number);
    return 0;
}

// ---- Invariants 1, 2 and 7: mass, first moment and inertia of the body as a whole -----------------------------------

static bool has_nodal_masses(const ZELDATA* db)
{
    return has_flag(db->content_flags, ZEL_BLOCK_MASSES);
}

static void sum_mass(const ZELDATA* db, double mass[1])
{
    mass[0] = has_nodal_masses(db) ? 0.0 : db->total_mass;
    for (int node = 0; has_nodal_masses(db) && node < db->node_count; ++node)
        mass[0] += db->nodes[node].mass;
}

static void sum_moment(const ZELDATA* db, double moment[3])
{
    for (int axis = 0; axis < 3; ++axis)
        moment[axis] = has_nodal_masses(db) ? 0.0 : db->total_mass * db->center_of_mass[axis];
    for (int i = 0; has_nodal_masses(db) && i < db->node_count; ++i)
    {
        const ZELNODE& node = db->nodes[i];
        moment[0] += node.mass * node.x;
        moment[1] += node.mass * node.y;
        moment[2] += node.mass * node.z;
    }
}

// The database's own inertia has products of inertia off its diagonal, of the opposite sign.
static void tensor_of_body(const ZELDATA* db, double tensor[9])
{
    for (int i = 0; i < 9; ++i)
        tensor[i] = i % 4 == 0 ? db->inertia_tensor[i] : -db->inertia_tensor[i];
}

static void sum_tensor(const ZELDATA* db, double tensor[9])
{
    if (!has_nodal_masses(db) && db->total_mass != 0.0)
        return tensor_of_body(db, tensor);
    std::fill_n(tensor, 9, 0.0);
    double inertia[9];
    for (int node = 0; node < db->node_count; ++node)
    {
        const ZELNODE& at = db->nodes[node];
        const double s[3] = {at.x, at.y, at.z};
        const double square = s[0] * s[0] + s[1] * s[1] + s[2] * s[2];
        for (int row = 0; row < 3; ++row)
            for (int column = 0; column < 3; ++column)
                tensor[3 * row + column] += at.mass * ((row == column ? square : 0.0) - s[row] * s[column]);
        if (ZEL_NodalInertia(db, node, inertia))
            for (int i = 0; i < 9; ++i)
                tensor[i] += inertia[i];
    }
}

// Sums over the nodes, or what the global properties give.
static void sum_rigid(const ZELDATA* db, int number, double* values)
{
    number == 1 ? sum_mass(db, values) : number == 2 ? sum_moment(db, values) : sum_tensor(db, values);
}

// What a slot holds or would be filled with.
static int rigid_values(ZELDATA* db, int number, double* values)
{
    const bool was_filled = invariant_filled(db, number);
    const InvariantRow& row = invariant_row(number);
    if (!was_filled && !file_describes(db, row.block))
    {
        sum_rigid(db, number, values);
        return 1;
    }
    if (!was_filled && !read_invariant(db, row))
        return 0;
    const int length = invariant_pieces(number, 0).length;
    std::memcpy(values, invariant_piece(db, number, 0), size_t(length) * sizeof(double));
    if (!was_filled)
        drop_invariant(db, number);
    return 1;
}

int rigid_invariants(ZELDATA* db, RigidInvariants& out)
{
    return rigid_values(db, 1, &out.mass) && rigid_values(db, 2, out.moment) && rigid_values(db, 7, out.tensor);
}

// ---- Accessors ------------------------------------------------------------------------------------------------------

int fill_invariant(ZELDATA* db, int number)
{
    if (invariant_filled(db, number))
        return 1;
    const InvariantRow& row = invariant_row(number);
    if (file_describes(db, row.block))
        return read_invariant(db, row);
    if (row.modal)
        return sum_modal_invariants(db, row.by_pair ? ModalSums::by_pair : ModalSums::by_mode);
    if (!open_invariant(db, number, kComputed))
        return 0;
    sum_rigid(db, number, invariant_piece(db, number, 0));
    return 1;
}

// A copy for the caller of `count` pieces of an invariant, from piece `first` on.
static double* copy_of(ZELDATA* db, int number, int64_t first, int64_t count)
{
    if (!CheckZEL(db) || (invariant_row(number).modal && db->mode_count < 1) || !fill_invariant(db, number))
        return nullptr;
    const int64_t length = invariant_pieces(number, db->invar_modes).length;
    Scratch<double> copy(count * length);
    if (!copy.data)
        return no_memory(module_word::invariants);
    for (int64_t piece = 0; piece < count; ++piece)
        copy_invariant_piece(db, number, first + piece, copy.data + piece * length);
    return copy.release();
}

static bool is_mode(const ZELDATA* db, int mode)
{
    return CheckZEL(db) && mode >= 0 && mode < db->mode_count;
}

} // namespace zel

// ---- Exported -------------------------------------------------------------------------------------------------------

using namespace zel;

double ZEL_Invar1(ZELDATA* db)
{
    return CheckZEL(db) && fill_invariant(db, 1) ? *db->invar1 : 0.0;
}

double* ZEL_Invar2(ZELDATA* db)
{
    return copy_of(db, 2, 0, 1);
}

double* ZEL_Invar3(ZELDATA* db)
{
    return copy_of(db, 3, 0, 3);
}

double* ZEL_Invar4(ZELDATA* db)
{
    return copy_of(db, 4, 0, 3);
}

double* ZEL_Invar5(ZELDATA* db, int mode_index)
{
    return is_mode(db, mode_index) ? copy_of(db, 5, int64_t(3) * mode_index, 3) : nullptr;
}

double* ZEL_Invar6(ZELDATA* db)
{
    if (!CheckZEL(db) || db->mode_count < 1)
        return nullptr;
    Scratch<double> matrix(int64_t(db->mode_count) * db->mode_count);
    if (!matrix.data)
        return no_memory(module_word::invariants);
    return ZEL_GenMassFull(db, matrix.data, db->mode_count) ? matrix.release() : nullptr;
}

double* ZEL_Invar7(ZELDATA* db)
{
    return copy_of(db, 7, 0, 1);
}

double* ZEL_Invar8(ZELDATA* db, int mode_index)
{
    return is_mode(db, mode_index) ? copy_of(db, 8, mode_index, 1) : nullptr;
}

double* ZEL_Invar9(ZELDATA* db, int mode_index_i, int mode_index_j)
{
    if (!is_mode(db, mode_index_i) || !is_mode(db, mode_index_j))
        return nullptr;
    return copy_of(db, 9, int64_t(mode_index_i) * db->mode_count + mode_index_j, 1);
}

const char* zelinvar_VersionId(void)
{
    return "zelinvar " ZEL_VERSION;
}
