#include "fem/layers.h"

namespace zel_fem
{

using Eigen::Index;
using Eigen::MatrixXd;
using Eigen::Vector3d;

std::vector<int> Layers::nodes_of(int node) const
{
    const int layered = layers_of_node[size_t(node)];
    if (layered < 0)
        return {node};
    const auto& [own, bottom, middle, top, normal, thickness] = nodes[size_t(layered)];
    return middle < 0 ? std::vector<int>{bottom, top} : std::vector<int>{bottom, middle, top};
}

MatrixXd Layers::mean(const MatrixXd& values, Index width) const
{
    MatrixXd mean = values.topRows(width * Index(layers_of_node.size()));
    for (const LayeredNode& n : nodes)
        mean.middleRows(width * n.node, width) =
            0.5 * (values.middleRows(width * n.bottom, width) + values.middleRows(width * n.top, width));
    return mean;
}

MatrixXd Layers::rotation(const MatrixXd& motion) const
{
    MatrixXd rotation = MatrixXd::Zero(3 * Index(layers_of_node.size()), motion.cols());
    for (const LayeredNode& n : nodes)
    {
        const MatrixXd across =
            (motion.middleRows<3>(3 * Index(n.top)) - motion.middleRows<3>(3 * Index(n.bottom))) / n.thickness;
        for (Index k = 0; k < motion.cols(); ++k)
            rotation.col(k).segment<3>(3 * Index(n.node)) = n.normal.cross(Vector3d(across.col(k)));
    }
    return rotation;
}

} // namespace zel_fem
