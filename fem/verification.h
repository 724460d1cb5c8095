// How far up a reduced body vibrates as the full model does.
#ifndef FEM_VERIFICATION_H
#define FEM_VERIFICATION_H

#include <vector>

#include "fem/reduction.h"

namespace zel_fem
{

// Free-free eigenvalues of the full model, its interfaces as they are in the body, and of the reduced one, in pairs; ascending.
// Rigid-body modes are left out.
struct Verification
{
    std::vector<double> full, reduced;
    int agreeing = 0; // pairs from the lowest on, whose frequencies differ by 1 % at most
};

// As many modes of the full model as the body has flexible ones, none of them missing. `stiffness` and `mass`: of the reduced body,
// which has six rigid-body modes. Nodes that follow a reference node rigidly do so in the full model too.
Verification verify(const Model& model, const std::vector<Interface>& interfaces, const Eigen::MatrixXd& stiffness,
                    const Eigen::MatrixXd& mass, Progress& progress);

} // namespace zel_fem

#endif
