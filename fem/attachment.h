// Attachment modes: what static responses to loads have beyond the modes of a basis.
#ifndef FEM_ATTACHMENT_H
#define FEM_ATTACHMENT_H

#include <vector>

#include "fem/sparse_modes.h"

namespace zel_fem
{

// Appends to `modes` of the pencil one for each column of `forces` whose static response they do not have, as long as
// it is independent of the others; M-orthonormal and K-orthogonal to all others, so that they are told from modes by
// their place alone. Under forces that are not in equilibrium a free body accelerates as a whole and deforms under them
// and its inertia. `factor` solves with K - shift M, as lowest_modes() has it. Returns which loads got a mode.
std::vector<char> add_attachment_modes(const Pencil& pencil, const LinearSolver& factor, const Eigen::MatrixXd& forces,
                                       Eigenmodes& modes, Progress& progress);

} // namespace zel_fem

#endif
