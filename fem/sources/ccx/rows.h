// What the rows of stored matrices move.
#ifndef FEM_CCX_ROWS_H
#define FEM_CCX_ROWS_H

#include <vector>

#include "fem/model.h"
#include "fem/sources/ccx/deck.h"
#include "fem/sources/ccx/stored_matrices.h"

namespace zel_fem::ccx
{

// One a freedom, with indexes into the deck's mesh. Throws for freedoms that belong neither to a node of the deck nor to one that
// the solver makes.
std::vector<zel_fem::Row> rows_of(const Deck& deck, const StoredMatrices& matrices);

} // namespace zel_fem::ccx

#endif
