// Trusses as the solver computes them: each is a solid of its own, of square section, that hangs on the truss's nodes by hinges.
#ifndef FEM_CCX_TRUSSES_H
#define FEM_CCX_TRUSSES_H

#include "fem/sources/ccx/deck.h"
#include "fem/sources/ccx/stored_matrices.h"

namespace zel_fem::ccx
{

bool is_truss(const ElementType& type);

// Gives a truss the sides and the direction of its section. InputError where it is not straight.
void set_square_section(const Mesh& mesh, Element& truss, double area);

// The rows of the trusses' solids become motions against the trusses' nodes, which rigid motions leave at rest: freedoms inside elements,
// with node 0. InputError where the solver made other rows.
void hang_trusses(const Deck& deck, StoredMatrices& stored);

} // namespace zel_fem::ccx

#endif
