// The inertia invariants from the inside: how their slots are filled, and what changes of basis and origin do to them.
#ifndef ZEL_MECHANICS_MECHANICS_H
#define ZEL_MECHANICS_MECHANICS_H

#include "database/database.h"

#include <cstdint>

namespace zel
{

// The slot of an invariant filled, from its block of the file or from the nodes, unless it is filled already. 0, with a
// message, when that fails. Those made for modes need a mode.
int fill_invariant(ZELDATA* db, int number);

// What invariants 1, 2 and 7 yield (from a filled slot, the file or the nodes), without filling a slot.
struct RigidInvariants
{
    double mass, moment[3], tensor[9];
};
int rigid_invariants(ZELDATA* db, RigidInvariants& out); // 0 when the file cannot be read

// ---- Sums over the nodes (mechanics/invariant_sums.cpp) ---------------------------------------------------------------------------

// Whether nodal data can say anything of the modes: there are nodal masses, and every node with a mass or an inertia is
// one that the mode shapes cover. Where not, invariants 3, 4, 5, 8 and 9 are zero: part of a sum would be worse.
bool shapes_cover_masses(const ZELDATA* db);

// Which modal invariants one pass makes: those with values for a mode, or for a pair of modes, as what costs one of a
// group costs the others too.
enum class ModalSums
{
    by_mode,
    by_pair,
    both
};

// Fills those modal invariants of a group that have neither values nor a block in the file, all in one pass over the mode
// shapes. 0, with a message and none of them filled, when memory is short.
int sum_modal_invariants(ZELDATA* db, ModalSums group);

// Sums over the masses m at (x, y, z) for the first `modes` mode shapes phi: of m phi, m x phi, m y phi and m z phi, each
// [3 * modes] with component a of mode i at [3 * i + a], one behind the other. Zero where shapes_cover_masses does not
// hold. 0, with a message, when memory is short.
int mass_moments(ZELDATA* db, int modes, double* moments);

// The cross product of position and mode shape, summed over the masses: sum of m s x phi of one mode, out of its moments.
void angular_moment(const double* moments, int modes, int mode, double out[3]);

// ---- What is asked for, and changes (mechanics/invariant_changes.cpp) ----------------------------------------------------------------

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

// Leading rigid-body modes as ZEL_RigidBodyModeCount tells them, but by frequencies in hertz whatever the unit of time.
int rigid_modes_by_hertz(ZELDATA* db);

// The preload and all load cases that wait for it; damping, whose result also tells whether it failed because the rigid-body
// modes do not span the principal directions. 0, with a message and nothing changed, on failure.
int project_loads_of_body(ZELDATA* db);
int project_damping_of_body(ZELDATA* db, bool& singular);

} // namespace zel

#endif
