// The database from the inside: guards, block flags, lookups, and what a change makes stale.
#ifndef ZELDB_H
#define ZELDB_H

#include "zel.h"
#include "zelmem.h"
#include "zelmsg.h"

namespace zel
{

// The library's own caches of one database.
struct Private
{
    // Blocks of the file (by block number) that no longer describe the body: its modes or its origin have changed since.
    char stale_block[33];
};

inline Private& own(const ZELDATA* db)
{
    return *static_cast<Private*>(db->private_data);
}

// Eigenvalue that stands for infinity. Compared by bit pattern only: a computed value of this size is no sentinel.
constexpr double kInfiniteEigenvalue = 1.2345e20;
inline bool is_infinite_eigenvalue(double value)
{
    return std::memcmp(&value, &kInfiniteEigenvalue, sizeof value) == 0;
}

inline bool valid_kind(int kind)
{
    return kind >= 0 && kind < ZEL_MODE_KINDS;
}

// Position of a block's flag in the content summary, -1 for blocks 1 to 3, which always exist.
constexpr int flag_position(int block)
{
    return block < 4 ? -1 : block < 11 ? block - 4 : block < 14 ? block - 3 : block - 2;
}
inline bool has_flag(const char flags[100], int block)
{
    return flags[flag_position(block)] != 0;
}
inline void raise_flag(ZELDATA* db, int block)
{
    db->content_flags[flag_position(block)] = 1;
}
inline void clear_flag(ZELDATA* db, int block)
{
    db->content_flags[flag_position(block)] = 0;
}

// Block numbers that are spoken of by name.
enum : int
{
    kBlockVersion = 1,
    kBlockHeader,
    kBlockSummary,
    kBlockNodes,
    kBlockTopology,
    kBlockBody,
    kBlockEigenvalues,
    kBlockModes,
    kBlockMasses,
    kBlockInertias,
    kBlockUnits,
    kBlockStiffness,
    kBlockMass,
    kBlockFaces,
    kBlockDamping,
    kBlockTransformation,
    kBlockInterface,
    kBlockStress,
    kBlockInvar1,
    kBlockInvar2,
    kBlockInvar3,
    kBlockInvar4,
    kBlockInvar5,
    kBlockInvar7,
    kBlockInvar8,
    kBlockInvar9,
    kBlockPreload,
    kBlockLoads,
    kBlockStrain,
    kBlockStatistics,
    kBlockPreStress,
    kBlockPreStrain,
    kBlockCount = kBlockPreStrain
};

inline ZELSTREAM& mode_stream(ZELDATA* db, int kind)
{
    return kind == ZEL_MODE_SHAPE ? db->mode_file : kind == ZEL_MODAL_STRESS ? db->stress_file : db->strain_file;
}

// Appends an entry to a sparse matrix; false, with the matrix as it was, when memory is short.
inline bool append_entry(ZELMATRIX& matrix, int row, int column, double value)
{
    constexpr int kGrowth = 100;
    if (!grow(matrix.entries, matrix.capacity, int64_t(matrix.count) + 1, kGrowth))
        return false;
    matrix.entries[matrix.count++] = {row, column, value};
    return true;
}

// The database that the Fortran entry points work on; null when it is freed.
extern ZELDATA* current_database;

// Frees invariant n (1 to 9, not 6) and marks it empty. Invariants 3, 4, 5, 8 and 9 are freed by the sizes in invar_modes.
void drop_invariant(ZELDATA* db, int number);

} // namespace zel

#endif
