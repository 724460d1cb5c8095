// How much of what loads at interfaces do statically, and of what shaking them does, the modes of a basis have.
#ifndef FEM_COMPLETENESS_H
#define FEM_COMPLETENESS_H

#include <array>
#include <optional>
#include <vector>

#include "fem/reduction.h"

namespace zel_fem
{

// Motions of the rows under which forces do work that pull each interface along x, y and z: at its reference node, or evenly at its
// nodes where the model does not have one. Three columns an interface.
Eigen::MatrixXd pulls_at(const Model& model, const std::vector<Interface>& interfaces);

// Of each interface, the share of the modes in its flexibility, which is the trace of the displacements under unit forces along x, y and
// z, of a free body in its frame of mean axes (inertia relief; Craig, Structural Dynamics, Wiley 1981). Modes have the part
// (phi^T f)^2 / lambda of it; the rest is residual flexibility, found by iteration with the factor of K - shift M.
// `pulls` as above. std::runtime_error where the iteration does not converge.
std::vector<double> static_completeness(const Pencil& pencil, const Cholesky& shifted, const Eigenmodes& modes,
                                        const Eigen::MatrixXd& pulls);

// Shares of mass and of inertia about the centre of mass, along and about x, y and z, that all fixed-interface modes carry when the
// interfaces shake as one rigid piece (Clough and Penzien, Dynamics of Structures). What nodes of the interfaces weigh themselves no mode
// carries. `reference_motion`: six rows an interface, one column a mode. Nothing where the interfaces do not hold the body.
std::optional<std::array<double, 6>> fixed_effective_masses(const std::vector<Interface>& interfaces,
                                                            const Eigen::MatrixXd& reference_motion,
                                                            const Eigen::MatrixXd& mass, const Reduction& reduction,
                                                            const MassMoments& moments);

} // namespace zel_fem

#endif
