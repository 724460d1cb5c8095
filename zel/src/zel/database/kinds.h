// What tells the kinds of mode vectors apart, and the generalized matrices: one row each.
#ifndef ZEL_DATABASE_KINDS_H
#define ZEL_DATABASE_KINDS_H

#include "format/format.h"
#include "zel.h"

#include <cassert>
#include <iterator>

namespace zel
{

// ---- Mode vectors ------------------------------------------------------------------------------------------------------

struct KindRow
{
    int kind, block;
    const char *name, *title;
    ZELSTREAM ZELDATA::*stream;
    // The pre-stress or pre-strain; mode shapes have none, and null and 0 here.
    int pre_tensor_block;
    const char* pre_tensor_title;
    ZELSIX* ZELDATA::*pre_tensors;
    int ZELDATA::*pre_tensor_capacity;
};

// Row i describes kind i.
constexpr KindRow kKinds[] = {
    {ZEL_MODE_SHAPE, ZEL_BLOCK_MODES, "mode shape", "Mode", &ZELDATA::mode_file, 0, nullptr, nullptr, nullptr},
    {ZEL_MODAL_STRESS, ZEL_BLOCK_STRESS, "modal stress", "Stress", &ZELDATA::stress_file, ZEL_BLOCK_PRE_STRESS,
     "Pre-Stress", &ZELDATA::pre_stress, &ZELDATA::pre_stress_capacity},
    {ZEL_MODAL_STRAIN, ZEL_BLOCK_STRAIN, "modal strain", "Strain", &ZELDATA::strain_file, ZEL_BLOCK_PRE_STRAIN,
     "Pre-Strain", &ZELDATA::pre_strain, &ZELDATA::pre_strain_capacity},
};

constexpr bool kinds_are_in_order()
{
    for (int i = 0; i < int(std::size(kKinds)); ++i)
        if (kKinds[i].kind != i)
            return false;
    return std::size(kKinds) == ZEL_MODE_KINDS;
}
static_assert(kinds_are_in_order());

// Vectors, and what belongs to their nodes, are found by the kinds alone: by the reduction to nodes with geometry, too.
constexpr bool kinds_have_all_blocks_of_vectors()
{
    int blocks = 0, found = 0;
    for (const Block& block : kBlocks)
        blocks += block.carrier == Carrier::vector || block.carrier == Carrier::mode_node;
    for (const KindRow& row : kKinds)
    {
        found += block_row(row.block).carrier == Carrier::vector;
        found += row.pre_tensor_block && block_row(row.pre_tensor_block).carrier == Carrier::mode_node;
    }
    return found == blocks;
}
static_assert(kinds_have_all_blocks_of_vectors());

// The row to which a block of vectors, pre-stress or pre-strain belongs.
inline const KindRow& kind_of_block(int block)
{
    for (const KindRow& row : kKinds)
        if (row.block == block || row.pre_tensor_block == block)
            return row;
    assert(false && "a block of mode vectors");
    return kKinds[ZEL_MODE_SHAPE];
}

inline ZELSTREAM& mode_stream(ZELDATA* db, int kind)
{
    assert(kind >= 0 && kind < ZEL_MODE_KINDS);
    return db->*kKinds[kind].stream;
}

// The pre-stress or pre-strain, a record a node of the kind; nodes behind the last record, and all where there are none,
// have zeros.
struct PreTensors
{
    const ZELSIX* records;
    int count;
    const double* at(int position) const
    {
        static constexpr ZELSIX kNone = {};
        return position >= 0 && position < count ? records[position].v : kNone.v;
    }
};
inline PreTensors pre_tensors_of(const ZELDATA* db, int kind)
{
    const KindRow& row = kKinds[kind];
    if (!row.pre_tensors || !(db->*row.pre_tensors))
        return {nullptr, 0};
    return {db->*row.pre_tensors, db->*row.pre_tensor_capacity};
}

// ---- Generalized matrices ----------------------------------------------------------------------------------------------

struct MatrixRow
{
    int block;
    ZELMATRIX ZELDATA::*list;
    const char* name;
    int record_field; // of an eigenvalue record: the diagonal that a matrix without entries implies; 0: it implies none
    int (*count)(const ZELDATA* db);
    int (*entries)(ZELDATA* db, int* rows, int* columns, double* values);
};
constexpr MatrixRow kMatrices[] = {
    {ZEL_BLOCK_STIFFNESS, &ZELDATA::stiffness, "stiffness", 5, ZEL_NumberOfGenStiff, ZEL_GenStiffSparse},
    {ZEL_BLOCK_MASS, &ZELDATA::mass, "mass", 4, ZEL_NumberOfGenMass, ZEL_GenMassSparse},
    {ZEL_BLOCK_DAMPING, &ZELDATA::damping, "damping", 0, ZEL_NumberOfGenDamp, ZEL_GenDampSparse},
};

// The row of a block that holds a matrix.
constexpr const MatrixRow& matrix_row(int block)
{
    assert(block == ZEL_BLOCK_STIFFNESS || block == ZEL_BLOCK_MASS || block == ZEL_BLOCK_DAMPING);
    return kMatrices[block == ZEL_BLOCK_DAMPING ? 2 : block - ZEL_BLOCK_STIFFNESS];
}
static_assert(matrix_row(ZEL_BLOCK_STIFFNESS).block == ZEL_BLOCK_STIFFNESS &&
              matrix_row(ZEL_BLOCK_MASS).block == ZEL_BLOCK_MASS &&
              matrix_row(ZEL_BLOCK_DAMPING).block == ZEL_BLOCK_DAMPING && std::size(kMatrices) == 3);

// ---- Inertia invariants ------------------------------------------------------------------------------------------------

// The sets that are asked for; each has those before it.
enum class InvariantSet : char
{
    rigid,
    fast,
    all
};

// The values are pieces of one length; either number may grow with the modes. Pieces are component rows over the modes (of
// 3, 4 and 5) or whole vectors and matrices (of all others).
struct InvariantShape
{
    int pieces, pieces_power; // pieces * modes^power
    int length, length_power; // length * modes^power
};

// An invariant that has a slot and a block; invariant 6 is the generalized mass. One of its three slots is not null.
struct InvariantRow
{
    int number, block;
    bool modal;       // made for invar_modes modes
    bool by_pair;     // has values for the pairs of the first table_modes modes only
    InvariantSet set; // the smallest that has it
    bool has_origin;  // changes when the origin moves
    InvariantShape shape;
    double* ZELDATA::*values;  // all in one array
    double** ZELDATA::*rows;   // an array for each mode
    double*** ZELDATA::*table; // an array for each pair of modes

    // A modal invariant is so many vectors (3, 4 and 8) or square matrices (5 and 9) over the modes.
    constexpr int planes() const { return shape.pieces * shape.length; }
};
constexpr InvariantRow kInvariants[] = {
    {1, ZEL_BLOCK_INVAR1, false, false, InvariantSet::rigid, false, {1, 0, 1, 0}, &ZELDATA::invar1, nullptr, nullptr},
    {2, ZEL_BLOCK_INVAR2, false, false, InvariantSet::rigid, true, {1, 0, 3, 0}, &ZELDATA::invar2, nullptr, nullptr},
    {3, ZEL_BLOCK_INVAR3, true, false, InvariantSet::rigid, false, {3, 0, 1, 1}, &ZELDATA::invar3, nullptr, nullptr},
    {4, ZEL_BLOCK_INVAR4, true, false, InvariantSet::fast, true, {3, 0, 1, 1}, &ZELDATA::invar4, nullptr, nullptr},
    {5, ZEL_BLOCK_INVAR5, true, true, InvariantSet::all, false, {3, 1, 1, 1}, nullptr, &ZELDATA::invar5, nullptr},
    {7, ZEL_BLOCK_INVAR7, false, false, InvariantSet::rigid, true, {1, 0, 9, 0}, &ZELDATA::invar7, nullptr, nullptr},
    {8, ZEL_BLOCK_INVAR8, true, false, InvariantSet::fast, true, {1, 1, 9, 0}, nullptr, &ZELDATA::invar8, nullptr},
    {9, ZEL_BLOCK_INVAR9, true, true, InvariantSet::all, false, {1, 2, 9, 0}, nullptr, nullptr, &ZELDATA::invar9},
};
constexpr const InvariantRow& invariant_row(int number)
{
    assert(number >= 1 && number <= 9 && number != 6 && "6 is the generalized mass");
    return kInvariants[number < 6 ? number - 1 : number - 2];
}

constexpr bool invariants_are_in_order()
{
    int block = ZEL_BLOCK_INVAR1;
    for (const InvariantRow& row : kInvariants)
        if (&invariant_row(row.number) != &row || row.block != block++ || !row.values + !row.rows + !row.table != 2)
            return false;
    return block == ZEL_BLOCK_INVAR9 + 1;
}
static_assert(invariants_are_in_order());

constexpr bool is_invariant(int block)
{
    return block >= ZEL_BLOCK_INVAR1 && block <= ZEL_BLOCK_INVAR9;
}
constexpr const InvariantRow& invariant_of_block(int block)
{
    assert(is_invariant(block));
    return kInvariants[block - ZEL_BLOCK_INVAR1];
}

// Blocks of modes, and the invariants, all of which are written and compared alike.
constexpr bool is_modal_block(const Block& row)
{
    return hangs_on_modes(row) || is_invariant(row.number);
}

// Whether the slot is there, for whatever modes.
inline bool has_slot(const ZELDATA* db, const InvariantRow& row)
{
    return row.values ? db->*row.values != nullptr : row.rows ? db->*row.rows != nullptr : db->*row.table != nullptr;
}

} // namespace zel

#endif
