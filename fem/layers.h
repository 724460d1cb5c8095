// Meshes whose program moves other nodes than the body shall have: shells computed as solids of one layer.
#ifndef FEM_LAYERS_H
#define FEM_LAYERS_H

#include <Eigen/Dense>
#include <vector>

#include "fem/elements.h"

namespace zel_fem
{

// A node of the body in the middle of nodes that move, with indexes into the mesh of these.
struct LayeredNode
{
    int node;                // of the body's mesh, and of the other
    int bottom, middle, top; // middle: -1 where no node moves there
    Eigen::Vector3d normal;  // unit, from bottom to top
    double thickness;        // from bottom to top
};

struct Layers
{
    Mesh mesh; // what the program computes; its first nodes are those of the body's mesh, the layers follow
    std::vector<LayeredNode> nodes;  // ascending
    std::vector<int> layers_of_node; // by node of the body's mesh: index into nodes, -1: it moves itself

    // The nodes that stand for one of the body's mesh: its layers, from bottom to top, or itself.
    std::vector<int> nodes_of(int node) const;
    // Values of the body's nodes from those of the layers, `width` rows a node: the mean of bottom and top.
    Eigen::MatrixXd mean(const Eigen::MatrixXd& values, Eigen::Index width) const;
    // Rotations: n x (top - bottom) / thickness, none about the normal; zero at nodes that move themselves. Three rows a node.
    Eigen::MatrixXd rotation(const Eigen::MatrixXd& motion) const;
};

} // namespace zel_fem

#endif
