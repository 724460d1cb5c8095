// Rigid motions among the modes of a body.
#ifndef FEM_RIGID_H
#define FEM_RIGID_H

#include "fem/body.h"

namespace zel_fem
{

// Rigid motions about a point as combinations of modes, by least squares over the nodes of elements.
struct RigidFit
{
    Eigen::MatrixXd coefficients; // one row a mode, six columns
    double residual = 0.0;        // largest share of one of the six motions that the modes do not have
};

RigidFit fit_rigid_motions(const Mesh& mesh, const Eigen::Vector3d& center, const Eigen::MatrixXd& motion);

// Gives the rigid motions of a body the generalized mass of `target`; `rigid` has them, about its centre, as combinations of the modes
// of all nodes that move: those of a beam do not tell of its torsion. What is orthogonal to them stays, and with it all flexible
// eigenvalues. The first six modes of a free body become motions of unit mass, and so they do in `rows`, the modes at the rows of the
// matrices, unless it is null.
void set_rigid_mass(Body& body, const MassMoments& target, const Eigen::MatrixXd& rigid, Eigen::MatrixXd* rows);

// The motions in such combinations that their mass, `mass` now, is the identity. Throws std::runtime_error where one has none.
Eigen::MatrixXd of_unit_mass(const Eigen::MatrixXd& motions, const Eigen::MatrixXd& mass);

// Rotations of the nodes as their elements turn there, averaged; in a shell the normal stays normal. Three rows a node, zero
// where no element tells one.
Eigen::MatrixXd node_rotations(const Mesh& mesh, const Eigen::MatrixXd& motion);

} // namespace zel_fem

#endif
