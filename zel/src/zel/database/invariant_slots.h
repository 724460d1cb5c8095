// The slots in which a database keeps its inertia invariants. Who fills them is in mechanics.
#ifndef ZEL_DATABASE_INVARIANT_SLOTS_H
#define ZEL_DATABASE_INVARIANT_SLOTS_H

#include "kinds.h"

#include <cstdint>

namespace zel
{

// Where the values in a slot come from (invar_origin).
enum : char
{
    kNoValues = 0,
    kComputed,
    kGiven,
    kRead
};

// The values of an invariant are `count` pieces of `length` in the order of its block: one piece for 1, 2 and 7; a piece
// for each component row of 3 and 4, for each mode and component row of 5, each mode of 8, each pair of modes of 9.
struct Pieces
{
    int64_t count;
    int length;
};
Pieces invariant_pieces(int number, int modes);

// Of invariants 5 and 9 only the pairs of so many modes, from the first on, have values in the slot; the others are zero.
int table_modes(const ZELDATA* db, int number);

// A piece of a filled slot. Invariants 5 and 9 have values for the pairs of the first table_modes modes only: a piece of 5
// is so long, and one of another mode is null. Whoever wants the zeros too copies the piece.
double* invariant_piece(const ZELDATA* db, int number, int64_t piece);
void copy_invariant_piece(const ZELDATA* db, int number, int64_t piece, double* out);

// The entry of a modal invariant for mode i, or for modes i and j, in one of its planes; of a pair, among those that have
// values.
double& invariant_entry(const ZELDATA* db, const InvariantRow& row, int plane, int i, int j);

// No piece from this one on has values.
int64_t invariant_pieces_with_values(const ZELDATA* db, int number);

// Whether a slot is filled. One that was made for another number of modes counts as empty.
bool invariant_filled(const ZELDATA* db, int number);

// The arrays of which a slot is made, for whatever modes: visit(values, count). An empty slot has none.
template <typename Visit> void for_each_array(const ZELDATA* db, const InvariantRow& row, Visit visit)
{
    if (!has_slot(db, row))
        return;
    const int modes = db->invar_modes, table = table_modes(db, row.number);
    const Pieces pieces = invariant_pieces(row.number, modes);
    if (row.values)
        visit(db->*row.values, pieces.count * pieces.length);
    for (int i = 0; row.rows && i < (row.by_pair ? table : modes); ++i)
        visit((db->*row.rows)[i], row.by_pair ? int64_t(row.shape.pieces) * table : pieces.length);
    for (int i = 0; row.table && i < table; ++i)
        for (int j = 0; j < table; ++j)
            visit((db->*row.table)[i][j], pieces.length);
}

// Zeroed values of the given origin (kComputed, kGiven, kRead) in an empty slot, for the modes of now; first all slots
// that were made for another number of modes are emptied. Of invariants 5 and 9 the first `table_modes` modes at most have
// room for values. 0, with a message and the slot empty, when memory is short.
int open_invariant(ZELDATA* db, int number, char origin, int table_modes = INT32_MAX);

// Frees invariant n (1 to 9, not 6) and marks it empty. Invariants 3, 4, 5, 8 and 9 are freed by the sizes in invar_modes.
void drop_invariant(ZELDATA* db, int number);

// A record with nothing but invariants, for another number of modes: they are made there before they take the place of
// those of a database. They go with it.
class SpareInvariants
{
public:
    explicit SpareInvariants(int modes);
    ~SpareInvariants();
    SpareInvariants(const SpareInvariants&) = delete;
    SpareInvariants& operator=(const SpareInvariants&) = delete;
    ZELDATA* db() const { return db_; } // null: memory was short
    void exchange_modal(ZELDATA* db);   // all slots that are made for modes

private:
    ZELDATA* db_; // owned
};

} // namespace zel

#endif
