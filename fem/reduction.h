// Reduction of a finite-element model to a few modes: Craig-Bampton when it has interfaces, free-free modes when it has
// none.
#ifndef FEM_REDUCTION_H
#define FEM_REDUCTION_H

#include <Eigen/Dense>
#include <vector>

#include "fem/sources/ccx/deck.h"
#include "fem/sources/ccx/matrices.h"
#include "report.h"
#include "sparse_modes.h"

namespace zel_fem
{

// Nodes that follow one reference node, through which the body is joined to others.
struct Interface
{
    int reference_id = 0;
    Eigen::Vector3d at = Eigen::Vector3d::Zero();
    std::vector<int> tied; // indexes into Mesh::nodes, ascending
};

// Six motions of a rigid body at a point: translations x, y, z and rotations about the axes through `center`; the rows
// are the displacement of `at`.
Eigen::Matrix<double, 3, 6> rigid_motion(const Eigen::Vector3d& at, const Eigen::Vector3d& center);

// What the rows of the matrices move.
struct Model
{
    const Deck* deck;
    StoredMatrices matrices;
    std::vector<Interface> interfaces;
    std::vector<int> rotation_ids; // of each tie of the deck, those that the solver made included

    // Rigid motions about `center`, six columns, at the freedoms.
    Eigen::MatrixXd rigid_motions(const Eigen::Vector3d& center) const;
};

struct Reduction
{
    Eigen::MatrixXd stiffness, mass; // generalized, symmetric
    Eigen::MatrixXd motion;          // of the freedoms of the matrices, one column a mode
    int boundary_count = 0;          // the first modes: six constraint modes an interface
    double rigid_before = 0.0;       // largest of the six smallest |eigenvalue| before the repair and after it
    double rigid_after = 0.0;
    double complete_to = 0.0; // the modes have every eigenvalue below: fixed-interface ones, or flexible ones
    double factor_bytes = 0.0;
};

// Matches the freedoms with the deck, and checks that the body is free: K R = 0 for its six rigid motions R.
Model make_model(const Deck& deck, StoredMatrices matrices, std::vector<Interface> interfaces);

// Fixed-interface modes and constraint modes (Craig and Bampton, AIAA J. 6, 1968).
Reduction reduce_craig_bampton(const Model& model, int mode_count, PhaseLog& log);

// Six rigid-body modes, exact and M-orthonormal, and the flexible modes behind them.
Reduction reduce_free(const Model& model, int mode_count, PhaseLog& log);

// Takes out of the boundary stiffness what resists the rigid motions of the reference nodes.
void repair_rigid_motions(const std::vector<Interface>& interfaces, Reduction& reduction);

// Eigenvalues of a generalized pair, ascending.
Eigen::VectorXd generalized_eigenvalues(const Eigen::MatrixXd& stiffness, const Eigen::MatrixXd& mass);

// Displacements of the mesh's nodes: three rows a node, one column a mode.
Eigen::MatrixXd node_motion(const Model& model, const Reduction& reduction);

// Mass moments as the mass matrix has them.
MassMoments matrix_moments(const Model& model);

} // namespace zel_fem

#endif
