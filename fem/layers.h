// Meshes whose program moves other nodes than the body shall have: shells computed as solids of one layer, and beams as solids.
#ifndef FEM_LAYERS_H
#define FEM_LAYERS_H

#include "dense/products.h"

#include <vector>

#include "fem/elements.h"

namespace zel_fem
{

// A node of the body amid nodes that move, with indexes into the mesh of these.
struct LayeredNode
{
    int node;             // of the body's mesh, and of the other
    std::vector<int> all; // in the order of the program
    std::vector<int>
        outer; // those that tell its motion: bottom and top of a shell, the corners of a beam. It is their mean
    Eigen::Matrix3Xd arms; // from it to these, one column each
    bool is_knot = false;  // it moves itself, with rotations, and the others with it
    Eigen::Matrix3d turn;  // the rotation that fits displacements u of these best is turn times the sum of arm x u
    Eigen::Matrix3d rest;  // projects rotations to those that they do not tell

    // Whether it is one of `all`, the last: others than shells and beams have it as well, and it moves by the layers, but not by their mean.
    bool is_hung() const { return all.back() == node; }

    LayeredNode(int own, std::vector<int> every, std::vector<int> telling, const Mesh& mesh);
};

struct Layers
{
    Mesh mesh; // what the program computes; its first nodes are those of the body's mesh, the layers follow
    std::vector<LayeredNode> nodes;  // ascending
    std::vector<int> layers_of_node; // by node of the body's mesh: index into nodes, -1: it moves itself

    // The nodes that stand for one of the body's mesh: its layers, from bottom to top, or itself, as knots do.
    std::vector<int> nodes_of(int node) const;
    // Values of the body's nodes from those of the layers, `width` rows a node: the mean of the outer ones.
    Eigen::MatrixXd mean(const Eigen::MatrixXd& values, Eigen::Index width) const;
    // Rotations, of shells none about the normal; zero at nodes that move themselves. Three rows a node.
    Eigen::MatrixXd rotation(const Eigen::MatrixXd& motion) const;
    // What these leave out, of the rotations by the elements of the body.
    Eigen::MatrixXd rest(Eigen::MatrixXd elements) const;
};

} // namespace zel_fem

#endif
