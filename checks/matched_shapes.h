// The modes of two bodies at the nodes that both have, read a block of nodes at a time.
#ifndef CHECKS_MATCHED_SHAPES_H
#define CHECKS_MATCHED_SHAPES_H

#include "checks/parts.h"

#include "dense/products.h"

#include <functional>

namespace zel_checks
{

// Nodes of the mode shapes of two bodies, in pairs.
struct NodePairs
{
    std::vector<int> base, fresh; // ids
    int base_only = 0, fresh_only = 0;
    double farthest = 0.0;   // distance within a pair
    int farthest_node = 0;   // of the base
    Eigen::Matrix3Xd places; // in the base
    Eigen::VectorXd weights; // roots of nodal masses, of the base if it has any; 1 where neither body has
    bool weighed = false;
    double size = 0.0; // diagonal of the box around them
};
NodePairs pair_nodes(ZELDATA* base, ZELDATA* fresh, bool by_position = false, std::optional<double> tolerance = {});

// Modes of one body, in the order of their numbers here, as columns.
class ModeReader
{
public:
    ModeReader(ZELDATA* db, const std::vector<int>& node_ids, std::vector<int> mode_numbers)
        : db_(db), node_ids_(node_ids), mode_numbers_(std::move(mode_numbers))
    {}
    Eigen::Index modes() const { return Eigen::Index(mode_numbers_.size()); }
    // Six components a node of nodes [first, first + count); holds until the next call.
    Eigen::Map<const Eigen::MatrixXd> read(size_t first, size_t count);

private:
    ZELDATA* db_;
    const std::vector<int>& node_ids_;
    std::vector<int> mode_numbers_;
    std::vector<double> values_;
};

// The modes in coordinates of a space that has no more dimensions than there are modes: all lengths and angles are those of the
// weighed shapes.
struct ShapeCoordinates
{
    Eigen::MatrixXd base, fresh; // columns; zero for a mode that is zero, or no number, at these nodes
    Eigen::MatrixXd rigid;       // motions of a rigid body, orthonormal
    Eigen::Index dimensions;     // that shapes can have at these nodes
    bool with_rotations;         // they count as well, as some mode moves no node
};
ShapeCoordinates coordinates_of_shapes(ModeReader& base, ModeReader* fresh, const NodePairs& nodes, Phases& phases);

// Calls action(first, count) for blocks of nodes that are small enough for so many modes.
void for_node_blocks(const NodePairs& nodes, Eigen::Index modes, Phases& phases,
                     const std::function<void(size_t first, size_t count)>& action);

} // namespace zel_checks

#endif
