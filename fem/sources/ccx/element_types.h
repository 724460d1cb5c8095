// The elements of CalculiX that can be imported.
#ifndef FEM_CCX_ELEMENT_TYPES_H
#define FEM_CCX_ELEMENT_TYPES_H

#include "fem/elements.h"

namespace zel_fem::ccx
{

// By the name in the deck, in capitals. Null for a type that cannot be imported.
const ElementType* find_element_type(std::string_view name);

// Nodes that the solver adds to each element of the type for its incompatible modes (Wilson, Taylor, Doherty and Ghaboussi
// 1973): rows of the matrices that belong to no node of the deck.
int incompatible_nodes(const ElementType& type);

} // namespace zel_fem::ccx

#endif
