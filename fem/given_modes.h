// Modes that a program has computed: exact rigid motions in place of its own, and the masses that the mesh gives them.
#ifndef FEM_GIVEN_MODES_H
#define FEM_GIVEN_MODES_H

#include "dense/products.h"

#include <optional>

#include "fem/elements.h"

namespace zel_fem
{

constexpr double kModeMassTolerance = 1e-3; // modes and coordinates have six digits

// As a source gives them. Constraint modes come first: unit translations and rotations of each interface's reference node in
// turn, all others held. The other modes are held at the interfaces, or those of a body without any.
struct GivenModes
{
    Eigen::MatrixXd motion;          // 3 rows a node of the moved mesh, one column a mode
    Eigen::MatrixXd stress;          // 6 rows a node (x, y, z, xy, xz, yz); may be empty
    Eigen::MatrixXd boundary_forces; // on the reference nodes, one column a constraint mode; may be empty
    Eigen::VectorXd eigenvalues;     // of the other modes
    bool mass_is_in_the_mesh = true; // false: parts of the mass matrix belong to freedoms that the mesh does not have
    std::optional<MassMoments> program_mass =
        {}; // of what the program computes in place of the mesh, by its quadrature
};

// What follows from them and the consistent mass of the mesh.
struct ModalBasis
{
    Eigen::MatrixXd stiffness, mass, motion, stress; // generalized, one row a mode; shapes as above
    int boundary_count = 0;                          // constraint modes; 0: free or supported modes only
    int rigid_count = 0;                             // modes that exact rigid motions have replaced
    bool held = false;                               // the rigid motions do not lie among the modes
    double rigid_before = 0.0;                       // largest |eigenvalue| of the rigid motions as the program has it
    double mass_error = 0.0;     // largest entry of Phi^T M Phi - I of the program's modes, M by its own quadrature
    bool mass_is_proved = false; // by the masses of the modes: that of the elements is all mass that the program had
    double rigid_error = 0.0;    // the same of the rigid motions that were replaced, from the moments of the body alone
    double asymmetry = 0.0;      // of the boundary forces, relative to the largest of them
};

ModalBasis basis_of(const Mesh& mesh, GivenModes modes);

// Largest difference of a square matrix from its transpose, relative to its largest entry.
double asymmetry_of(const Eigen::MatrixXd& forces);

} // namespace zel_fem

#endif
