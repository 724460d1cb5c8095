// The inertia invariants of a reduced body, as its mass matrix has them.
#ifndef FEM_INVARIANTS_H
#define FEM_INVARIANTS_H

#include "fem/body.h"

namespace zel_fem
{

// What invariants 5, 8 and 9 stand on; the others are those of a mass matrix in all cases but the last.
enum class InvariantMass
{
    matrix,           // a number for each pair of nodes, the same along x, y and z
    elements,         // that of the elements, where modes are given and no matrix, which these modes prove
    matrix_and_nodes, // the matrix has rows for rotations, which the definitions of 5, 8 and 9 leave out: masses at the nodes
    nodes             // it couples directions: all nine are left to masses at the nodes
};

// Puts the invariants of all modes into the body, which has nodal masses, shapes and generalized mass by now. None in the last case.
// rows    the modes at the rows of the matrices
// target  the mass that the rigid motions of the body have in its generalized mass
InvariantMass take_invariants(const Model& model, const Eigen::MatrixXd& rows, const MassMoments& target, Body& body);

// Those of modes without a matrix, by the consistent mass of the elements of `mesh`, all of whose nodes `motion` has.
void take_invariants_of_elements(const Mesh& mesh, const Eigen::MatrixXd& motion, const MassMoments& target,
                                 Body& body);

// Largest difference of the generalized masses, as invariant 9 has them, from those of the body, in units of the two modes' own.
double mass_error(const Body& body);

} // namespace zel_fem

#endif
