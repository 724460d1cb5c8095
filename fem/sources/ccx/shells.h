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

// A node where shells and beams meet at an angle, or in different thickness. All nodes of their sections move as u + w x r + s r, r
// from the knot: its displacement, rotation and stretch.
struct Knot
{
    Place place;
    int node;                   // index
    std::vector<int> layer_ids; // as in `node_index`
    int64_t stretch_row = -1;   // of the matrices
    int unturned = -1;          // axis of all its normals, about which it has no rotation; -1: it has three
};

// The deck with solids for shells; nodes of the layers follow those of the mesh, go by negative ids in `node_index`, and bear
// the id of their node of the shell in messages.
struct Expansion
{
    Deck deck;
    Layers layers; // their mesh is that of the deck
    std::vector<Knot> knots;

    // Gives freedoms that bear the id of a shell's node, once for each layer, the ids of the layers; those of a knot the knot's, with
    // components 4 to 6 for its rotations, and 0 for its stretch. InputError where the solver made others.
    void name_layers(std::vector<Freedom>& freedoms);
    // Gives nodes of a results file that the deck does not have the ids of the layers, in their order.
    void name_layers(std::vector<int>& node_ids) const;

private:
    void name_knots(std::vector<Freedom>& freedoms);
};

// Whether the solver computes shells or beams of the mesh as solids.
bool is_expanded(const Element& element);
bool has_expanded(const Mesh& mesh);

// The solver averages the normals of shells that meet smoothly at a node, and hangs solids, masses and springs on the nodes of its solids.
// InputError where trusses meet them.
Expansion expand_shells(const Deck& deck);

} // namespace zel_fem::ccx

#endif
