// How far masses at the nodes may be from the mass matrix that the modes belong to.
#ifndef CHECKS_LUMPING_H
#define CHECKS_LUMPING_H

#include "dense/products.h"

namespace zel_checks
{

// How far lumping alone changes the generalized masses of the lower half of the flexible modes: the median, as one wrong mode leaves
// it where it is. `shares`: of each mode, its mass over the lumps in parts of its generalized mass; the first `rigid` are rigid.
double lumping_of(const Eigen::VectorXd& shares, int rigid);

// Limit of the share that rigid-body motions may have in a mode of a body lumped so far. Lumping shows the more the higher the mode.
double mixed_limit(double lumping, Eigen::Index mode, Eigen::Index modes, int rigid);

// Whether there are nodes enough for a limit: of two quadratic bricks, say, lumping can make anything.
bool is_limited(int nodes, Eigen::Index flexible_modes);

} // namespace zel_checks

#endif
