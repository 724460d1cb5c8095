// Which modes of two sets belong together.
#ifndef CHECKS_MODE_GROUPS_H
#define CHECKS_MODE_GROUPS_H

#include "dense/products.h"

#include <vector>

namespace zel_checks
{

// Modes of one body as columns of coordinates.
struct ModeSet
{
    Eigen::MatrixXd columns;
    std::vector<double> hertz; // not a number: a mode that has none
    std::vector<bool> rigid;
};

// Finds the rigid-body modes: their shapes are motions of a rigid body, and their frequencies far below all others, so that it does
// not matter where in the set they stand.
std::vector<bool> rigid_modes_among(const ModeSet& set, const Eigen::MatrixXd& rigid_motions, Eigen::Index dimensions,
                                    const std::vector<bool>& by_number);

// Modes that are compared with each other, of each set as many; by frequency, rigid ones by their place.
struct MatchedModes
{
    std::vector<Eigen::Index> a, b;
    bool rigid;
};
struct Matching
{
    std::vector<MatchedModes> groups;
    std::vector<Eigen::Index> a_only, b_only; // ascending
};

// Modes whose frequencies are within a relative distance of their neighbour's are one span, as are the rigid-body modes. Spans are
// matched by their mean squared cosine, the best first. What is left has too little in common.
Matching match_modes(const ModeSet& a, const ModeSet& b, double cluster);

} // namespace zel_checks

#endif
