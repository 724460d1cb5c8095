// Mode shapes against each other, as cosines of the angle between them. The square is the modal assurance criterion (R. J. Allemang
// and D. L. Brown, 1st International Modal Analysis Conference, 1982).
#include "checks/parts.h"

#include <Eigen/Dense>

#include <algorithm>
#include <cmath>

namespace zel_checks
{

namespace
{
// Translations of the modes of one body at the nodes that are compared, weighed by the roots of their masses.
class Shapes
{
public:
    Shapes(ZELDATA* db, std::vector<int> positions, const Eigen::VectorXd& weights)
        : db_(db), positions_(std::move(positions)), weights_(weights),
          all_(3 * size_t(ZEL_ModeNodeCount(db, ZEL_MODE_SHAPE)))
    {}
    Eigen::Index rows() const { return 3 * Eigen::Index(positions_.size()); }
    // Of length 1. A shape without length stays zero.
    void read(const Mode& mode, Eigen::Ref<Eigen::VectorXd> shape)
    {
        if (!ZEL_Mode(db_, mode.number, ZEL_MODE_SHAPE, all_.data(), 0))
            throw std::runtime_error(format("mode %d cannot be read", mode.number));
        for (size_t i = 0; i < positions_.size(); ++i)
            for (size_t c = 0; c < 3; ++c)
                shape[Eigen::Index(3 * i + c)] = weights_[Eigen::Index(i)] * all_[3 * size_t(positions_[i]) + c];
        const double size = shape.cwiseAbs().maxCoeff(); // first: the squares of large values have none
        if (size > 0.0 && std::isfinite(size))
            shape /= size * (shape / size).norm();
    }

private:
    ZELDATA* db_;
    std::vector<int> positions_;
    const Eigen::VectorXd& weights_;
    std::vector<double> all_;
};

struct CommonNodes
{
    std::vector<int> a, b; // positions in the mode shapes of the bodies
    Eigen::VectorXd weights;
};
} // namespace

static CommonNodes common_nodes_of(ZELDATA* a, ZELDATA* b)
{
    CommonNodes nodes;
    std::vector<double> masses;
    for (int i = 0; i < ZEL_ModeNodeCount(a, ZEL_MODE_SHAPE); ++i)
    {
        const int id = ZEL_ModeNodeID(a, ZEL_MODE_SHAPE, i);
        const int other = a == b ? i : ZEL_ModeNodeIndex(b, ZEL_MODE_SHAPE, id);
        if (other < 0)
            continue;
        nodes.a.push_back(i);
        nodes.b.push_back(other);
        masses.push_back(ZEL_NodalMass(a, ZEL_NodeIndex(a, id)));
    }
    nodes.weights = Eigen::Map<Eigen::VectorXd>(masses.data(), Eigen::Index(masses.size()));
    if (!masses.empty() && nodes.weights.minCoeff() >= 0.0 && nodes.weights.maxCoeff() > 0.0)
        nodes.weights = nodes.weights.cwiseSqrt().eval();
    else
        nodes.weights.setOnes();
    return nodes;
}

ModeCosines mode_cosines(ZELDATA* a, const std::vector<Mode>& modes_a, ZELDATA* b, const std::vector<Mode>& modes_b)
{
    constexpr Eigen::Index kHeldValues = Eigen::Index(1) << 23; // 64 MiB; the modes of b pass by once for so many of a
    const CommonNodes nodes = common_nodes_of(a, b);
    ModeCosines cosines = {int(nodes.a.size()), std::vector<double>(modes_a.size() * modes_b.size())};
    if (nodes.a.empty() || cosines.values.empty())
        return cosines;
    Shapes shapes_a(a, nodes.a, nodes.weights), shapes_b(b, nodes.b, nodes.weights);
    const size_t block = size_t(std::max<Eigen::Index>(1, kHeldValues / shapes_a.rows()));
    Eigen::MatrixXd held(shapes_a.rows(), Eigen::Index(std::min(block, modes_a.size())));
    Eigen::VectorXd shape(shapes_b.rows());
    for (size_t first = 0; first < modes_a.size(); first += block)
    {
        const size_t count = std::min(block, modes_a.size() - first);
        for (size_t i = 0; i < count; ++i)
            shapes_a.read(modes_a[first + i], held.col(Eigen::Index(i)));
        for (size_t j = 0; j < modes_b.size(); ++j)
        {
            shapes_b.read(modes_b[j], shape);
            const Eigen::VectorXd products = held.leftCols(Eigen::Index(count)).transpose() * shape;
            for (size_t i = 0; i < count; ++i)
                cosines.values[(first + i) * modes_b.size() + j] = products[Eigen::Index(i)];
        }
    }
    return cosines;
}

} // namespace zel_checks
