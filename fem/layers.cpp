#include "fem/layers.h"

#include <utility>

#include "dense/dense.h"

namespace zel_fem
{

using Eigen::Index;
using Eigen::MatrixXd;
using Eigen::Vector3d;

// The least squares of u_i - w x r_i, where the r_i add up to nothing: T w = sum of r x u, T = sum of r.r E - r r^T. Two nodes do not
// tell of the rotation about their line, and get none.
LayeredNode::LayeredNode(int own, std::vector<int> every, std::vector<int> telling, const Mesh& mesh)
    : node(own), all(std::move(every)), outer(std::move(telling)), arms(3, Index(outer.size()))
{
    Eigen::Matrix3d span = Eigen::Matrix3d::Zero();
    for (size_t i = 0; i < outer.size(); ++i)
    {
        const Vector3d r = mesh.nodes[size_t(outer[i])].at - mesh.nodes[size_t(own)].at;
        arms.col(Index(i)) = r;
        span += r.squaredNorm() * Eigen::Matrix3d::Identity() - r * r.transpose();
    }
    turn = zel_dense::pseudo_inverse(span, 1e-8);
    rest = Eigen::Matrix3d::Identity() - turn * span;
}

std::vector<int> Layers::nodes_of(int node) const
{
    const int layered = layers_of_node[size_t(node)];
    return layered < 0 || nodes[size_t(layered)].is_knot ? std::vector<int>{node} : nodes[size_t(layered)].all;
}

MatrixXd Layers::mean(const MatrixXd& values, Index width) const
{
    MatrixXd mean = values.topRows(width * Index(layers_of_node.size()));
    for (const LayeredNode& n : nodes)
    {
        auto own = mean.middleRows(width * n.node, width);
        own.setZero();
        for (const int outer : n.outer)
            own += values.middleRows(width * outer, width) / double(n.outer.size());
    }
    return mean;
}

MatrixXd Layers::rotation(const MatrixXd& motion) const
{
    MatrixXd rotation = MatrixXd::Zero(3 * Index(layers_of_node.size()), motion.cols());
    for (const LayeredNode& n : nodes)
        for (Index k = 0; k < motion.cols(); ++k)
        {
            Vector3d sum = Vector3d::Zero();
            for (size_t i = 0; i < n.outer.size(); ++i)
                sum += Vector3d(n.arms.col(Index(i))).cross(Vector3d(motion.col(k).segment<3>(3 * Index(n.outer[i]))));
            rotation.col(k).segment<3>(3 * Index(n.node)) = n.turn * sum;
        }
    return rotation;
}

MatrixXd Layers::rest(MatrixXd elements) const
{
    for (const LayeredNode& n : nodes)
        elements.middleRows<3>(3 * Index(n.node)) = (n.rest * elements.middleRows<3>(3 * Index(n.node))).eval();
    return elements;
}

} // namespace zel_fem
