// What the steps of the writer share.
#ifndef ZEL_WRITE_WRITER_H
#define ZEL_WRITE_WRITER_H

#include "zel.h"

namespace zel
{

// Replaces the modes by a set that is orthogonal with respect to generalized stiffness and mass, and everything that is
// expressed in modes with them: eigenvalue records, generalized matrices, damping, loads, preload, invariants and the mode
// vectors of all kinds. The new modes are mass-normalised and in ascending order of eigenvalue; modes from the first
// infinite one on are dropped. The database's transformation then describes the new modes in terms of the caller's.
// Returns 1; 0, after a message and with the modes as they were, when memory or disk is short.
int orthogonalise_modes(ZELDATA* db);

// Drops the modal data of nodes that carry no geometry; the nodes themselves stay, those of the mode
// shapes first. Inertia invariants, which are of the whole body, stay too. 1, also when there is nothing to drop; 0, with a
// message and the database as it was, when memory or disk is short.
int reduce_to_geometry_nodes(ZELDATA* db);

// Whether the body has geometry, and mode shapes at nodes without. 0, with a message, when memory is short.
int find_shapes_inside(ZELDATA* db, bool& inside);

} // namespace zel

#endif
