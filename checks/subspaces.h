// Spans of vectors, and the angles between them.
#ifndef CHECKS_SUBSPACES_H
#define CHECKS_SUBSPACES_H

#include "dense/products.h"

#include <vector>

namespace zel_checks
{

// Orthonormal vectors of the same span: fewer where some depend on others, up to rounding.
Eigen::MatrixXd orthonormal(const Eigen::MatrixXd& vectors);

// Principal angles between the spans of orthonormal vectors in radians, the largest first, as many as the smaller one has
// dimensions. Small ones are as accurate as large ones.
std::vector<double> principal_angles(const Eigen::MatrixXd& a, const Eigen::MatrixXd& b);

// Factors x for which vectors * x is nearest to the targets. Dependent vectors share theirs.
Eigen::MatrixXd nearest_combination(const Eigen::MatrixXd& vectors, const Eigen::MatrixXd& targets);

// The triangle R of X = Q R for a matrix that comes in blocks of rows: products, angles and spans of columns of R are those of
// the columns of X, and no digits are lost as they would be in X' X. Each block is factored with the triangle of those before
// (J. Demmel, L. Grigori, M. Hoemmen and J. Langou, SIAM J. Sci. Comput. 34, 2012).
class TallTriangle
{
public:
    // all_rows: of all blocks, so that few rows of many columns take little room
    TallTriangle(Eigen::Index columns, Eigen::Index block_rows, Eigen::Index all_rows);
    // Where the next block goes: at most block_rows rows.
    Eigen::Ref<Eigen::MatrixXd> block(Eigen::Index rows) { return work_.block(filled_, 0, rows, work_.cols()); }
    // Takes the block that lies there.
    void take(Eigen::Index rows);
    Eigen::MatrixXd triangle() const { return work_.topRows(filled_); }

private:
    Eigen::MatrixXd work_;
    Eigen::Index filled_ = 0; // rows of the triangle so far
    std::vector<double> factors_, scratch_;
};

} // namespace zel_checks

#endif
