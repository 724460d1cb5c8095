// Loads of a model as modal load cases: those that a user names, and those that the model has itself.
#ifndef FEM_LOADS_H
#define FEM_LOADS_H

#include "dense/products.h"

#include <string>
#include <vector>

#include "fem/fem.h"
#include "fem/model.h"

namespace zel_fem
{

// One column a load.
struct FullLoads
{
    std::vector<std::string> labels;
    Eigen::MatrixXd
        forces; // at the rows of the matrices, or three rows a node of the moved mesh where there are only modes
    Eigen::MatrixXd references; // at the reference nodes: six rows an interface, forces and then moments
    Eigen::MatrixXd resultants; // six rows: forces, and moments about the origin
    bool inertial = false;      // gravity or centrifugal forces are among them
    std::vector<std::string> notes;

    // Phi^T f, one column a load: `motion` of the rows of `forces`, `reference_motion` of those of `references`.
    Eigen::MatrixXd modal(const Eigen::MatrixXd& motion, const Eigen::MatrixXd& reference_motion) const
    {
        Eigen::MatrixXd values = motion.transpose() * forces;
        if (references.rows() > 0)
            values += reference_motion.transpose() * references;
        return values;
    }
};

// The loads that the options name, then those of the model. A case of the model that cannot be taken is told in the
// notes; one that the options name throws InputError. `interfaces` are those of the body, with indexes into the model's
// mesh. Gravity has the mass of `target`, which the body is given.
FullLoads full_loads(const Model& model, const std::vector<Interface>& interfaces,
                     const std::vector<LoadChoice>& choices, const MassMoments& target);

} // namespace zel_fem

#endif
