// Shells as the solver computes them: solids of one layer, whose nodes lie below, in and above each node of the shell. So too beams,
// whose nodes lie across theirs.
#ifndef FEM_SHELLS_H
#define FEM_SHELLS_H

#include <vector>

#include "fem/layers.h"
#include "fem/sources/ccx/deck.h"
#include "fem/sources/ccx/stored_matrices.h"

namespace zel_fem::ccx
{

// The deck with solids for shells; nodes of the layers follow those of the mesh, go by negative ids in `node_index`, and bear
// the id of their node of the shell in messages.
struct Expansion
{
    Deck deck;
    Layers layers; // their mesh is that of the deck

    // Gives freedoms that bear the id of a shell's node, once for each layer, the ids of the layers. InputError where the
    // solver made others: where shells meet at an angle or are tied.
    void name_layers(std::vector<Freedom>& freedoms) const;
    // Gives nodes of a results file that the deck does not have the ids of the layers, in their order.
    void name_layers(std::vector<int>& node_ids) const;
};

// Whether the solver computes shells or beams of the mesh as solids.
bool is_expanded(const Element& element);
bool has_expanded(const Mesh& mesh);

// The solver averages the normals of the elements that meet at a node. InputError where shells of
// different thickness, or other elements, meet.
Expansion expand_shells(const Deck& deck);

} // namespace zel_fem::ccx

#endif
