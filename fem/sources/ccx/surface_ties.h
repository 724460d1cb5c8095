// Nodes of one surface on the faces of another.
#ifndef FEM_CCX_SURFACE_TIES_H
#define FEM_CCX_SURFACE_TIES_H

#include <vector>

#include "fem/sources/ccx/constraints.h"

namespace zel_fem::ccx
{

// Three a node of the slave surface that lies on the master surface, its own term first.
std::vector<Equation> equations_of(const Deck& deck, const SurfaceTie& tie);

} // namespace zel_fem::ccx

#endif
