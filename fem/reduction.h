// Reduction of a finite-element model to a few modes: Craig-Bampton when it has interfaces, free-free modes when it has
// none.
#ifndef FEM_REDUCTION_H
#define FEM_REDUCTION_H

#include "dense/products.h"

#include <vector>

#include "fem/model.h"
#include "fem/sparse_modes.h"

namespace zel_fem
{

struct Reduction
{
    Eigen::MatrixXd stiffness, mass;  // generalized, symmetric
    Eigen::MatrixXd motion;           // of the rows of the matrices, one column a mode
    Eigen::MatrixXd reference_motion; // six rows an interface: what its reference node does; none of a free body
    int boundary_count = 0;           // the first modes: one constraint mode a freedom of an interface
    int rigid_count = 0;              // the next, of zero frequency: rigid motions that the interfaces leave free
    int mode_count = 0;               // fixed-interface modes behind them, or flexible ones behind six rigid ones
    int attachment_count = 0;         // the last ones
    std::vector<char> attached;       // by load: whether it has an attachment mode
    double rigid_before = 0.0;        // largest of the six smallest |eigenvalue| before the repair
    double complete_to = 0.0;         // the modes have every eigenvalue below: fixed-interface ones, or flexible ones
    std::vector<double> completeness; // of a free body, by interface: share of the modes in its static flexibility
    double factor_bytes = 0.0;
};

// Constraint modes and fixed-interface modes (Craig and Bampton, AIAA J. 6, 1968), rigid ones first. Nodes of a rigid interface
// follow their reference node; the freedoms of it that do not join are unknowns like those inside. The reference node of an average
// follows its nodes, q = B u: constraint modes are static under B u = 1 for one freedom, 0 for the others, and B u = 0 in all fixed
// ones. Behind them are attachment modes for `loads`, one column each at the rows of the matrices, of which there may be none, and
// at the reference nodes, six rows an interface. The interfaces are those of the moved mesh.
Reduction reduce_craig_bampton(const Model& model, const std::vector<Interface>& interfaces, const ModeChoice& choice,
                               Progress& progress, const Eigen::MatrixXd& loads = {},
                               const Eigen::MatrixXd& reference_loads = {});

// Six rigid-body modes, exact and M-orthonormal, the flexible modes behind them, and attachment modes for `loads`.
// `pulls`: forces at the rows, three columns an interface whose completeness is wanted.
Reduction reduce_free(const Model& model, const ModeChoice& choice, Progress& progress,
                      const Eigen::MatrixXd& pulls = {}, const Eigen::MatrixXd& loads = {});

// Takes out of the boundary stiffness what resists the rigid motions of the reference nodes in their freedoms. Returns the largest
// of the six smallest |eigenvalue| before.
double repair_rigid_motions(const std::vector<Interface>& interfaces, Eigen::MatrixXd& stiffness,
                            const Eigen::MatrixXd& mass);

// Eigenvalues of a generalized pair, ascending.
Eigen::VectorXd generalized_eigenvalues(const Eigen::MatrixXd& stiffness, const Eigen::MatrixXd& mass);

// What the moved mesh's nodes do in every mode, three rows a node.
struct NodeMotion
{
    Eigen::MatrixXd displacement;
    Eigen::MatrixXd rotation; // empty unless rows rotate nodes of elements
};

NodeMotion node_motion(const Model& model, const Reduction& reduction);

} // namespace zel_fem

#endif
