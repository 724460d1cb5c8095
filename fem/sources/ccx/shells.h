// Shells as the solver computes them: solids of one layer, whose nodes lie below, in and above each node of the shell.
#ifndef FEM_SHELLS_H
#define FEM_SHELLS_H

#include <Eigen/Dense>
#include <vector>

#include "deck.h"
#include "matrices.h"

namespace zel_fem
{

// A node of shells, with indexes into the mesh of the expansion.
struct ShellNode
{
    int node;                // of the deck's mesh, and of the expansion's
    int bottom, middle, top; // middle: -1 at a mid-side node and in a shell without such nodes
    Eigen::Vector3d normal;  // unit, from bottom to top
    double thickness;
};

struct Expansion
{
    Deck deck; // the given one with solids for shells; nodes of the layers follow those of the mesh, go by
               // negative ids in `node_index`, and bear the id of their node of the shell in messages
    std::vector<ShellNode> shells; // in the order of the nodes: that of the solver
    std::vector<int> shell_of;     // by node of the deck's mesh: index into shells, -1: none

    // The nodes that stand for one of the deck's mesh: its layers, from bottom to top, or itself.
    std::vector<int> nodes_of(int node) const;
    // Values of the deck's nodes from those of the expansion, `width` rows a node: the mean of bottom and top.
    Eigen::MatrixXd mean(const Eigen::MatrixXd& values, Eigen::Index width) const;
    // Rotations: n x (top - bottom) / thickness, none about the normal; zero at nodes of solids. Three rows a node.
    Eigen::MatrixXd rotation(const Eigen::MatrixXd& motion) const;
    // Gives freedoms that bear the id of a shell's node, once for each layer, the ids of the layers. InputError where the
    // solver made others: where shells meet at an angle or are tied.
    void name_layers(std::vector<Freedom>& freedoms) const;
    // Gives nodes of a results file that the deck does not have the ids of the layers, in their order.
    void name_layers(std::vector<int>& node_ids) const;
};

bool has_shells(const Mesh& mesh);

// The solver averages the normals of the elements that meet at a node. InputError where shells of
// different thickness, or other elements, meet.
Expansion expand_shells(const Deck& deck);

} // namespace zel_fem

#endif
