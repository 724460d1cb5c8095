// The door of this folder: the record of a body and its lifetime, the tables of nodes and modes, the files of mode vectors,
// the slots of invariants, factors of a change of units, extremes of mode vectors.
#ifndef ZEL_DATABASE_DATABASE_H
#define ZEL_DATABASE_DATABASE_H

#include "invariant_slots.h"
#include "kinds.h"
#include "mode_files.h"
#include "record.h"
#include "statistics.h"
#include "units.h"

#endif
