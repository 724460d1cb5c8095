// The inertia invariants from the inside: their slots, how they are filled, and what changes of basis and origin do to
// them.
#ifndef ZEL_MECHANICS_MECHANICS_H
#define ZEL_MECHANICS_MECHANICS_H

#include "database/database.h"

#include <cstdint>
#include <initializer_list>

namespace zel
{

// The values of an invariant are `count` pieces of `length` in the order of its block: one piece for 1, 2 and 7; a piece
// for each component row of 3 and 4, for each mode and component row of 5, each mode of 8, each pair of modes of 9.
struct Pieces
{
    int64_t count;
    int length;
};
Pieces invariant_pieces(int number, int modes);

// A piece of a filled slot. Invariants 5 and 9 have values for the pairs of the first table_modes modes only: a piece of 5
// is so long, and one of another mode is null. Whoever wants the zeros too copies the piece.
double* invariant_piece(const ZELDATA* db, int number, int64_t piece);
void copy_invariant_piece(const ZELDATA* db, int number, int64_t piece, double* out);

// No piece from this one on has values.
int64_t invariant_pieces_with_values(const ZELDATA* db, int number);

// Whether a slot is filled. One that was made for another number of modes counts as empty.
bool invariant_filled(const ZELDATA* db, int number);

// Zeroed values of the given origin (kComputed, kGiven, kRead) in an empty slot, for the modes of now; first all slots
// that were made for another number of modes are emptied. Of invariants 5 and 9 the first `table_modes` modes at most have
// room for values. 0, with a message and the slot empty, when memory is short.
int open_invariant(ZELDATA* db, int number, char origin, int table_modes = INT32_MAX);

// The slot of an invariant filled, from its block of the file or from the nodes, unless it is filled already. 0, with a
// message, when that fails. Those made for modes need a mode.
int fill_invariant(ZELDATA* db, int number);

// ---- Sums over the nodes (mechanics/invariant_sums.cpp) ---------------------------------------------------------------------------

// Whether nodal data can say anything of the modes: there are nodal masses, and every node with a mass or an inertia is
// one that the mode shapes cover. Where not, invariants 3, 4, 5, 8 and 9 are zero: part of a sum would be worse.
bool shapes_cover_masses(const ZELDATA* db);

// Fills those of the modal invariants among `numbers` that have neither values nor a block in the file, all in one pass
// over the mode shapes. 0, with a message and none of them filled, when memory is short.
int sum_modal_invariants(ZELDATA* db, std::initializer_list<int> numbers);

// Sums over the masses m at (x, y, z) for the first `modes` mode shapes phi: of m phi, m x phi, m y phi and m z phi, each
// [3 * modes] with component a of mode i at [3 * i + a], one behind the other. Zero where shapes_cover_masses does not
// hold. 0, with a message, when memory is short.
int mass_moments(ZELDATA* db, int modes, double* moments);

// The cross product of position and mode shape, summed over the masses: sum of m s x phi of one mode, out of its moments.
void angular_moment(const double* moments, int modes, int mode, double out[3]);

// ---- What is asked for, and changes (mechanics/invariant_changes.cpp) ----------------------------------------------------------------

enum class InvariantSet
{
    rigid, // 1, 2, 3, 7
    fast,  // 1, 2, 3, 4, 7, 8
    all
};

// Whether the body has the data that a set is made of; what it lacks would become zero.
bool mass_data_suffices(const ZELDATA* db, InvariantSet set);

// Fills the slots of a set, all sums over modes in one pass. 0, with a message, when one of them cannot be had.
int fill_invariants(ZELDATA* db, InvariantSet set);

// The modes become `modes` combinations of the present ones: new mode i has the component basis[i * mode_count + k] on old
// mode k. Modal invariants from the caller and the file are transformed, and the file's are not read again; computed ones
// are dropped where they can be computed anew, else transformed too. Called before mode_count changes, which it leaves to
// the caller. 0, with a message and everything as it was, when memory is short or a block cannot be read.
int change_invariant_basis(ZELDATA* db, const double* basis, int modes);

// The origin moves to a point, given in the present frame: likewise. Called before the nodes are moved.
int shift_invariant_origin(ZELDATA* db, const double origin[3]);

// ---- Projection on the principal axes (mechanics/rigid_body.cpp) ---------------------------------------------------------------

// The preload and all load cases that wait for it; damping, whose result also tells whether it failed because the rigid-body
// modes do not span the principal directions. 0, with a message and nothing changed, on failure.
int project_loads_of_body(ZELDATA* db);
int project_damping_of_body(ZELDATA* db, bool& singular);

} // namespace zel

#endif
