// Nodes of two bodies in pairs, and their modes there as the columns of one tall matrix, of which only the triangle is kept.
#include "checks/matched_shapes.h"

#include "checks/subspaces.h"

#include <algorithm>
#include <cmath>
#include <tuple>

namespace zel_checks
{

using Eigen::Index;
using Eigen::Map;
using Eigen::Matrix3Xd;
using Eigen::MatrixXd;
using Eigen::Vector3d;
using Eigen::VectorXd;

// ---- Nodes -------------------------------------------------------------------------------------------------------------

static Vector3d place_of(const ZELDATA* db, int node)
{
    return {db->nodes[node].x, db->nodes[node].y, db->nodes[node].z};
}

static int shape_count(const ZELDATA* db)
{
    return ZEL_ModeNodeCount(db, ZEL_MODE_SHAPE);
}

static double size_of(const Matrix3Xd& places)
{
    return places.cols() > 0 ? (places.rowwise().maxCoeff() - places.rowwise().minCoeff()).norm() : 0.0;
}

static void pair_by_id(ZELDATA* base, ZELDATA* fresh, NodePairs& pairs)
{
    for (int i = 0; i < shape_count(base); ++i)
        if (const int id = ZEL_ModeNodeID(base, ZEL_MODE_SHAPE, i); ZEL_ModeNodeIndex(fresh, ZEL_MODE_SHAPE, id) >= 0)
        {
            pairs.base.push_back(id);
            pairs.fresh.push_back(id);
        }
}

namespace
{
// Two nodes that could be a pair. Of nodes at one place those of the same id go together.
struct Candidate
{
    double distance;
    bool other_id;
    int base, fresh; // positions in the mode shapes
    bool operator<(const Candidate& other) const
    {
        return std::tie(distance, other_id, base, fresh) <
               std::tie(other.distance, other.other_id, other.base, other.fresh);
    }
};
} // namespace

// The nearest ones within a distance: more than a few at one place are not told apart anyway.
static std::vector<Candidate> candidates_of(ZELDATA* base, ZELDATA* fresh, double tolerance, double rounding)
{
    constexpr int kNearest = 8;
    std::vector<Candidate> candidates;
    for (int i = 0; i < shape_count(base); ++i)
    {
        const int id = ZEL_ModeNodeID(base, ZEL_MODE_SHAPE, i);
        const Vector3d place = place_of(base, ZEL_NodeIndex(base, id));
        int count = 0;
        const std::unique_ptr<int, void (*)(void*)> near(ZEL_ClosestNodes(fresh, place.data(), kNearest, 0, &count),
                                                         std::free);
        for (int k = 0; k < count; ++k)
        {
            const int other = fresh->nodes[near.get()[k]].id, at = ZEL_ModeNodeIndex(fresh, ZEL_MODE_SHAPE, other);
            const double distance = (place_of(fresh, near.get()[k]) - place).norm();
            if (at >= 0 && distance <= tolerance)
                candidates.push_back({distance > rounding ? distance : 0.0, other != id, i, at});
        }
    }
    std::sort(candidates.begin(), candidates.end());
    return candidates;
}

static void pair_by_position(ZELDATA* base, ZELDATA* fresh, std::optional<double> tolerance, NodePairs& pairs)
{
    constexpr double kTolerance = 1e-4, kRounding = 1e-9; // of the size of the body
    Matrix3Xd places(3, shape_count(base));
    for (int i = 0; i < places.cols(); ++i)
        places.col(i) = place_of(base, ZEL_NodeIndex(base, ZEL_ModeNodeID(base, ZEL_MODE_SHAPE, i)));
    const double size = size_of(places);
    std::vector<int> partner(size_t(shape_count(base)), -1);
    std::vector<bool> taken(size_t(shape_count(fresh)));
    for (const Candidate& one : candidates_of(base, fresh, tolerance.value_or(kTolerance * size), kRounding * size))
        if (partner[size_t(one.base)] < 0 && !taken[size_t(one.fresh)])
        {
            partner[size_t(one.base)] = one.fresh;
            taken[size_t(one.fresh)] = true;
        }
    for (size_t i = 0; i < partner.size(); ++i)
        if (partner[i] >= 0)
        {
            pairs.base.push_back(ZEL_ModeNodeID(base, ZEL_MODE_SHAPE, int(i)));
            pairs.fresh.push_back(ZEL_ModeNodeID(fresh, ZEL_MODE_SHAPE, partner[i]));
        }
}

static bool take_weights(ZELDATA* db, const std::vector<int>& ids, VectorXd& weights)
{
    weights.resize(Index(ids.size()));
    for (size_t i = 0; i < ids.size(); ++i)
        weights[Index(i)] = ZEL_NodalMass(db, ZEL_NodeIndex(db, ids[i]));
    const bool usable = !ids.empty() && weights.allFinite() && weights.minCoeff() >= 0.0 && weights.maxCoeff() > 0.0;
    weights = usable ? VectorXd(weights.cwiseSqrt()) : VectorXd::Ones(weights.size());
    return usable;
}

NodePairs pair_nodes(ZELDATA* base, ZELDATA* fresh, bool by_position, std::optional<double> tolerance)
{
    NodePairs pairs;
    if (by_position)
        pair_by_position(base, fresh, tolerance, pairs);
    else
        pair_by_id(base, fresh, pairs);
    pairs.base_only = shape_count(base) - int(pairs.base.size());
    pairs.fresh_only = shape_count(fresh) - int(pairs.base.size());
    pairs.places.resize(3, Index(pairs.base.size()));
    for (size_t i = 0; i < pairs.base.size(); ++i)
    {
        const Vector3d place = place_of(base, ZEL_NodeIndex(base, pairs.base[i]));
        const double distance = (place_of(fresh, ZEL_NodeIndex(fresh, pairs.fresh[i])) - place).norm();
        pairs.places.col(Index(i)) = place;
        if (distance > pairs.farthest)
            pairs.farthest = distance, pairs.farthest_node = pairs.base[i];
    }
    pairs.weighed = take_weights(base, pairs.base, pairs.weights) || take_weights(fresh, pairs.fresh, pairs.weights);
    pairs.size = size_of(pairs.places);
    return pairs;
}

// ---- Shapes ------------------------------------------------------------------------------------------------------------

Map<const MatrixXd> ModeReader::read(size_t first, size_t count)
{
    values_.resize(6 * count * mode_numbers_.size());
    if (!values_.empty() && !ZEL_ModesOfNodes(db_, ZEL_MODE_SHAPE, int(count), node_ids_.data() + first,
                                              int(mode_numbers_.size()), mode_numbers_.data(), values_.data()))
        throw std::runtime_error("the mode shapes cannot be read");
    return {values_.data(), Index(6 * count), modes()};
}

static size_t nodes_in_block(Index modes)
{
    constexpr Index kValues = Index(1) << 22; // 32 MiB
    return size_t(std::max<Index>(kValues / (6 * std::max<Index>(modes, 1)), modes / 3 + 1));
}

void for_node_blocks(const NodePairs& nodes, Index modes, Phases& phases,
                     const std::function<void(size_t first, size_t count)>& action)
{
    const size_t all = nodes.base.size(), step = nodes_in_block(modes);
    for (size_t first = 0; first < all; first += step)
    {
        action(first, std::min(step, all - first));
        phases.advance(double(std::min(first + step, all)) / double(all));
    }
}

namespace
{
// Lays the modes of a body into their columns of the tall matrix, and keeps how they move.
class Columns
{
public:
    Columns(ModeReader& reader, Index first_column)
        : reader_(reader), first_(first_column), moves_(VectorXd::Zero(reader.modes())), turns_(moves_),
          finite_(size_t(reader.modes()), true)
    {}
    // `arm`: length by which rotations are translations; 0: they do not count.
    void lay(const NodePairs& nodes, size_t first, size_t count, double arm, Eigen::Ref<MatrixXd> block)
    {
        const Map<const MatrixXd> values = reader_.read(first, count);
        const Index components = arm > 0.0 ? 6 : 3;
        for (Index k = 0; k < values.cols(); ++k)
        {
            finite_[size_t(k)] = finite_[size_t(k)] && values.col(k).allFinite();
            if (!finite_[size_t(k)])
            {
                block.col(first_ + k).setZero();
                continue;
            }
            for (Index i = 0; i < Index(count); ++i)
            {
                const auto at = values.col(k).segment<6>(6 * i);
                const double weight = nodes.weights[Index(first) + i];
                for (Index c = 0; c < components; ++c)
                    block(components * i + c, first_ + k) = (c < 3 ? weight : arm * weight) * at[c];
                moves_[k] = std::max(moves_[k], at.head<3>().cwiseAbs().maxCoeff());
                turns_[k] = std::max(turns_[k], at.tail<3>().cwiseAbs().maxCoeff());
            }
        }
    }
    bool some_only_turn(double size) const
    {
        constexpr double kNoise = 1e-6;
        return ((turns_.array() > 0.0) && (moves_.array() <= kNoise * size * turns_.array())).any();
    }
    MatrixXd taken_from(const MatrixXd& triangle) const
    {
        MatrixXd columns = triangle.middleCols(first_, reader_.modes());
        for (Index k = 0; k < columns.cols(); ++k)
            if (!finite_[size_t(k)] || !columns.col(k).allFinite())
                columns.col(k).setZero();
        return columns;
    }

private:
    ModeReader& reader_;
    Index first_;
    VectorXd moves_, turns_;   // largest components of each mode
    std::vector<bool> finite_; // false: a value that is no number, which would spread into all columns behind
};
} // namespace

static void lay_rigid_motions(const NodePairs& nodes, size_t first, size_t count, double arm,
                              Eigen::Ref<MatrixXd> columns)
{
    const Vector3d center = nodes.places.rowwise().mean();
    const double size = nodes.size > 0.0 ? nodes.size : 1.0;
    const Index components = arm > 0.0 ? 6 : 3;
    columns.setZero();
    for (Index i = 0; i < Index(count); ++i)
        for (Index axis = 0; axis < 3; ++axis)
        {
            const double weight = nodes.weights[Index(first) + i];
            const Vector3d from_center = (nodes.places.col(Index(first) + i) - center) / size;
            columns(components * i + axis, axis) = weight;
            columns.col(3 + axis).segment<3>(components * i) = weight * Vector3d::Unit(axis).cross(from_center);
            if (arm > 0.0)
                columns(components * i + 3 + axis, 3 + axis) = weight * arm / size;
        }
}

ShapeCoordinates coordinates_of_shapes(ModeReader& base, ModeReader* fresh, const NodePairs& nodes, Phases& phases)
{
    constexpr double kArm = 0.1; // of the size of the body
    const Index all = base.modes() + (fresh ? fresh->modes() : 0);
    for (const double arm : {0.0, nodes.size > 0.0 ? kArm * nodes.size : 1.0})
    {
        const Index components = arm > 0.0 ? 6 : 3;
        phases.begin("read the modes");
        Columns base_columns(base, 0), fresh_columns(fresh ? *fresh : base, fresh ? base.modes() : 0);
        const size_t count_of_nodes = nodes.base.size();
        TallTriangle tall(all + 6, components * Index(std::min(count_of_nodes, nodes_in_block(all))),
                          components * Index(count_of_nodes));
        for_node_blocks(nodes, all, phases, [&](size_t first, size_t count) {
            Eigen::Ref<MatrixXd> block = tall.block(components * Index(count));
            base_columns.lay(nodes, first, count, arm, block);
            if (fresh)
                fresh_columns.lay(nodes, first, count, arm, block);
            lay_rigid_motions(nodes, first, count, arm, block.rightCols(6));
            tall.take(block.rows());
        });
        if (arm == 0.0 && (base_columns.some_only_turn(nodes.size) || fresh_columns.some_only_turn(nodes.size)))
            continue;
        const MatrixXd triangle = tall.triangle();
        const Index dimensions = components * (nodes.weights.array() > 0.0).count();
        return {base_columns.taken_from(triangle), fresh ? fresh_columns.taken_from(triangle) : MatrixXd(),
                orthonormal(triangle.rightCols(6)), dimensions, arm > 0.0};
    }
    throw std::logic_error("the last of both always returns");
}

} // namespace zel_checks
