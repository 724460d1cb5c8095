// The inertia invariants from the inside: their slots, how they are filled, and what changes of basis and origin do to
// them. Invariant 6 is the generalized mass and has neither slot nor block.
#ifndef ZELINVAR_H
#define ZELINVAR_H

#include "zeldb.h"

namespace zel
{

struct Invariant
{
    int number, block;
    int lengths; // its unit is mass * length^lengths
    bool modal;  // made for invar_modes modes
};
constexpr Invariant kInvariants[] = {
    {1, kBlockInvar1, 0, false}, {2, kBlockInvar2, 1, false}, {3, kBlockInvar3, 1, true}, {4, kBlockInvar4, 2, true},
    {5, kBlockInvar5, 2, true},  {7, kBlockInvar7, 2, false}, {8, kBlockInvar8, 2, true}, {9, kBlockInvar9, 2, true},
};
constexpr const Invariant& invariant_row(int number)
{
    return kInvariants[number < 6 ? number - 1 : number - 2];
}

// The values of an invariant are `count` pieces of `length` in the order of its block: one piece for 1, 2 and 7; a piece
// for each component row of 3 and 4, for each mode and component row of 5, each mode of 8, each pair of modes of 9.
struct Pieces
{
    int64_t count;
    int length;
};
Pieces invariant_pieces(int number, int modes);

// A piece of a filled slot.
double* invariant_piece(const ZELDATA* db, int number, int64_t piece);

// Whether a slot is filled. One that was made for another number of modes counts as empty.
bool invariant_filled(const ZELDATA* db, int number);

// Zeroed values of the given origin (kComputed, kGiven, kRead) in an empty slot, for the modes of now; first all slots
// that were made for another number of modes are emptied. 0, with a message and the slot empty, when memory is short.
int open_invariant(ZELDATA* db, int number, char origin);

} // namespace zel

#endif
