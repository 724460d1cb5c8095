// A sound body, small enough to know all of it by heart.
#ifndef BOX_H
#define BOX_H

#include "zel.h"

#include <string>

// A box of 2 x 1 x 1 whose eight corners weigh 3 kg each: mass 24, centre in the middle. Its modes are the six rigid-body
// modes, normalised by hand, and a stretching along x of generalized mass 1 at 50 Hz. Two faces, and node 1 on the interface.
ZELDATA* box();

// Writes a body to a file with these options, and frees it.
void write_and_free(ZELDATA* db, const std::string& path, const char* options);

#endif
