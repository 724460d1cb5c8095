// Matrices of the modes of two bodies in one basis.
#ifndef CHECKS_CHANGED_BASIS_H
#define CHECKS_CHANGED_BASIS_H

#include "checks/modal_comparison.h"
#include "checks/parts.h"

#include "dense/products.h"

namespace zel_checks
{

// Some modes of the base as combinations of the new modes.
struct BasisChange
{
    std::vector<Eigen::Index> modes; // of the base, those that the new ones span
    Eigen::MatrixXd factors;         // a column for each of them
    std::string reason;              // why there are none
};

// All inertia invariants, stiffness and damping, those of the new body after the change of basis, for the modes that it has. Both
// are in the same units.
std::vector<MatrixMatch> compare_in_one_basis(ZELDATA* base, ZELDATA* fresh, const BasisChange& change, double limit,
                                              Phases& phases);

} // namespace zel_checks

#endif
